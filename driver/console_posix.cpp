// The driver's system services on POSIX: UTF-8 arguments and output, the
// locale variables for the language, SIGINT for Ctrl-C.
#include "console.h"

#include <csignal>
#include <cstdlib>
#include <unistd.h>

#include "messages.h"
#include "utf.h"

namespace tarn_driver {

namespace {

// The library's ANSI code page on POSIX.
constexpr uint32_t POSIX_ANSI_CODE_PAGE = 1252;

void (*interrupt_callback)() = nullptr;

extern "C" void on_sigint(int) {
    if (interrupt_callback) interrupt_callback();
}

} // namespace

std::vector<std::u16string> command_line(int argc, char** argv) {
    std::vector<std::u16string> args;
    for (int i = 1; i < argc; ++i) args.push_back(from_utf8(argv[i]));
    return args;
}

// Written straight to the descriptor: the library writes preprocessed text
// to the same descriptor without our buffers.
void console_write(Stream stream, std::u16string_view text) {
    std::string bytes = to_utf8(text);
    int fd = stream == Stream::out ? STDOUT_FILENO : STDERR_FILENO;
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) return; // a closed pipe: nothing more to do
        done += size_t(n);
    }
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
    action.sa_handler = on_sigint;
    action.sa_flags = SA_RESETHAND; // the second Ctrl-C ends the program
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

bool slash_starts_option() {
    return false;
}

} // namespace tarn_driver
