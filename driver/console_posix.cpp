// The driver's system services on POSIX: UTF-8 arguments and output, the
// locale variables for the language, SIGINT, SIGTERM and SIGHUP as requests
// to stop, the C library's heap.
#include "console.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#endif

#include "messages.h"
#include "utf.h"

namespace tarn_driver {

namespace {

// The library's ANSI code page on POSIX.
constexpr uint32_t POSIX_ANSI_CODE_PAGE = 1252;

void (*interrupt_callback)() = nullptr;
volatile sig_atomic_t caught_signal = 0;
bool output_failed = false;

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

// See prepare_heap; volatile, or the block is optimised away. Unused where
// the sanitizers keep the heap to themselves.
[[maybe_unused]] void* volatile heap_filler = nullptr;

extern "C" void on_stop_signal(int signal_number) {
    if (!caught_signal) caught_signal = signal_number;
    if (interrupt_callback) interrupt_callback();
}

#if defined(__SANITIZE_ADDRESS__)
#define TARN_OWN_MALLOC 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define TARN_OWN_MALLOC 0
#endif
#endif
#ifndef TARN_OWN_MALLOC
#define TARN_OWN_MALLOC 1
#endif

} // namespace

// A compilation fills memory it never gives back before it ends, and a
// first touch of each 4 KiB page costs a fault (several microseconds on a
// virtual machine): for a large script the faults cost more than the
// compiling. So the heap is grown in one large step, kept, asked to back
// itself with huge pages where the system allows it, and made to serve
// large blocks as well. The next block handed out starts on a huge-page
// boundary, so that even a small compilation's memory is in huge pages.
// Only address space is taken; memory comes as it is used.
void prepare_heap() {
#if defined(__GLIBC__) && TARN_OWN_MALLOC
    constexpr uintptr_t HUGE_PAGE = uintptr_t(2) << 20;
    constexpr size_t GROWTH = size_t(64) << 20;
    constexpr size_t CHUNK_HEADER = 2 * sizeof(size_t);
    mallopt(M_MMAP_THRESHOLD, 32 << 20); // the largest the C library takes
    mallopt(M_ARENA_MAX, 1);             // the preprocessor's thread shares these pages
    mallopt(M_TOP_PAD, GROWTH);
    mallopt(M_TRIM_THRESHOLD, 2 * GROWTH);
    void* probe = std::malloc(GROWTH / 4); // beyond the top: the heap grows
    if (!probe) return;
    auto first = reinterpret_cast<uintptr_t>(probe);
    auto top = reinterpret_cast<uintptr_t>(sbrk(0));
    std::free(probe);
    uintptr_t from = (first + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    uintptr_t to = top & ~(HUGE_PAGE - 1);
    if (to <= from + HUGE_PAGE) return;
    // Kept for the life of the process: it only holds the heap's start
    // back to the boundary, and its pages are never touched.
    if (from - first > 4 * CHUNK_HEADER) heap_filler = std::malloc(from - first - 2 * CHUNK_HEADER);
    madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#endif
}

std::vector<std::u16string> command_line(int argc, char** argv) {
    std::vector<std::u16string> args;
    for (int i = 1; i < argc; ++i) args.push_back(from_utf8(argv[i]));
    return args;
}

// Written straight to the descriptor: the library writes preprocessed text
// to the same descriptor without our buffers.
bool console_write(Stream stream, std::u16string_view text) {
    std::string bytes = to_utf8(text);
    int fd = stream == Stream::out ? STDOUT_FILENO : STDERR_FILENO;
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) { // a full disk, a closed pipe
            if (stream == Stream::out) output_failed = true;
            return false;
        }
        done += size_t(n);
    }
    return true;
}

bool standard_output_failed() {
    return output_failed;
}

bool user_language_swedish() {
    return locale_is_swedish(std::getenv("LC_ALL"), std::getenv("LC_MESSAGES"),
                             std::getenv("LANG"));
}

uint32_t default_code_page() {
    return POSIX_ANSI_CODE_PAGE;
}

std::optional<std::u16string> library_message(uint32_t) {
    return std::nullopt;
}

void catch_interrupt(void (*on_interrupt)()) {
    interrupt_callback = on_interrupt;
    struct sigaction action = {};
    action.sa_handler = on_stop_signal;
    action.sa_flags = SA_RESETHAND; // the second one ends the program
    sigemptyset(&action.sa_mask);
    for (int s : STOP_SIGNALS) sigaddset(&action.sa_mask, s);
    for (int s : STOP_SIGNALS) {
        struct sigaction old = {};
        // A hang-up ignored when we started (nohup) stays ignored. SIGINT
        // is taken even when a script started us in the background with it
        // ignored: a stop asked for is better than a run to the end.
        if (s == SIGHUP && sigaction(s, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaction(s, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

int stop_signal() {
    return caught_signal;
}

bool slash_starts_option() {
    return false;
}

// Letting go of a replaced file makes the system free it, which on some
// file systems costs a few tenths of a millisecond and then about a
// millisecond per megabyte (ext4 mounted with discard), paid by whoever
// holds it last: without this, the library when it puts the new output in
// place. So the driver holds the old file through the compile, and at the
// end hands it to a child that lets go of it once this process has ended.
namespace {

int replaced_file = -1;

// All descriptors but `a` and `b` (below 1,024 where the system cannot
// close a range).
void close_all_but(int a, int b) {
    int keep = a > b ? a : b, low = a < b ? a : b;
#ifdef SYS_close_range
    if ((low == 0 || syscall(SYS_close_range, 0u, unsigned(low - 1), 0u) == 0) &&
        (keep - low < 2 ||
         syscall(SYS_close_range, unsigned(low + 1), unsigned(keep - 1), 0u) == 0) &&
        syscall(SYS_close_range, unsigned(keep + 1), ~0u, 0u) == 0)
        return;
#endif
    for (int fd = 0; fd < 1024; ++fd)
        if (fd != low && fd != keep) syscall(SYS_close, fd);
}

// The child: nothing of ours stays open in it (a pipe reading our output
// would wait for it), only the file and the pipe's read end, which ends
// with us once the write end, closed here first, is ours alone.
[[noreturn]] void hold_until_parent_ends(int file, int parent_ended, int ours) {
    syscall(SYS_close, ours);
    close_all_but(file, parent_ended);
    // A failed read is retried a few times, not on errno's word: in a child
    // sharing our memory, errno is ours.
    char c;
    for (int tries = 0; tries < 100 && syscall(SYS_read, parent_ended, &c, 1) < 0; ++tries) {
    }
    syscall(SYS_exit, 0); // the file goes with the child
    __builtin_unreachable();
}

// The child shares our memory, so that starting it copies nothing and our
// ending touches nothing it must copy; it runs on a stack of its own with
// every signal blocked and only makes system calls. Its descriptors are set
// before it starts and never changed after.
alignas(64) char holder_stack[16 * 1024];
int holder_fds[3];

int holder(void*) {
    hold_until_parent_ends(holder_fds[0], holder_fds[1], holder_fds[2]);
}

// Valgrind cannot follow a child that shares memory without being a
// thread, and stops the program: under it the child is a copy.
bool under_valgrind() {
    const char* preload = std::getenv("LD_PRELOAD");
    return preload && std::strstr(preload, "vgpreload");
}

// The child, given the pipe whose write end `ended[1]` dies with us.
pid_t start_holder(const int ended[2]) {
    if (!under_valgrind()) {
        holder_fds[0] = replaced_file;
        holder_fds[1] = ended[0];
        holder_fds[2] = ended[1];
        sigset_t all, old;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &old);
        pid_t child =
            clone(holder, holder_stack + sizeof holder_stack, CLONE_VM | SIGCHLD, nullptr);
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        if (child > 0) return child;
    }
    pid_t child = fork();
    if (child == 0) {
        for (int s : STOP_SIGNALS) signal(s, SIG_DFL);
        hold_until_parent_ends(replaced_file, ended[0], ended[1]);
    }
    return child;
}

} // namespace

void hold_replaced_file(const std::u16string& path) {
    int file = open(to_utf8(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    struct stat st;
    if (fstat(file, &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1)
        replaced_file = file;
    else
        close(file);
}

void end_process(int status) {
    int ended[2] = {-1, -1}; // the write end closes when we end
    if (replaced_file >= 0) {
        if (pipe2(ended, O_CLOEXEC) == 0) {
            if (start_holder(ended) < 0) close(ended[1]);
            close(ended[0]);
        }
        close(replaced_file);
        replaced_file = -1;
    }
    std::exit(status);
}

} // namespace tarn_driver
