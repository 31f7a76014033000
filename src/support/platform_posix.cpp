// The platform layer on POSIX: files, names, environment, console, clock,
// host version and user language. Scripts are written for Windows, so names
// take "\" as a separator and are matched without regard to letter case
// when the exact spelling is missing; errors are Windows error numbers.
// Code pages and character classes are in codepage_posix.cpp, the system's
// error texts in sysmsg_posix.cpp.
#include "support/platform.h"

#include "support/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace tarn {

namespace {

// Windows error numbers that errno values map to, beyond platform.h's.
constexpr uint32_t ERR_TOO_MANY_OPEN_FILES = 4;
constexpr uint32_t ERR_WRITE_PROTECT = 19;
constexpr uint32_t ERR_NOT_READY = 21;
constexpr uint32_t ERR_GEN_FAILURE = 31;
constexpr uint32_t ERR_FILE_EXISTS = 80;
constexpr uint32_t ERR_INVALID_PARAMETER = 87;
constexpr uint32_t ERR_BROKEN_PIPE = 109;
constexpr uint32_t ERR_DISK_FULL = 112;
constexpr uint32_t ERR_NEGATIVE_SEEK = 131;
constexpr uint32_t ERR_SEEK_ON_DEVICE = 132;
constexpr uint32_t ERR_FILENAME_TOO_LONG = 206;
constexpr uint32_t ERR_FILE_TOO_LARGE = 223;
constexpr uint32_t ERR_CANT_RESOLVE_FILENAME = 1921;

struct ErrnoMapping {
    int errno_value;
    uint32_t error;
};

// ENOENT is not here: whether it is 2 or 3 depends on the path.
constexpr ErrnoMapping ERRNO_MAP[] = {
    {EACCES, ERR_ACCESS_DENIED},
    {EPERM, ERR_ACCESS_DENIED},
    {EISDIR, ERR_ACCESS_DENIED},
    {ENOTDIR, ERR_PATH_NOT_FOUND},
    {ENOMEM, ERR_OUT_OF_MEMORY},
    {EEXIST, ERR_FILE_EXISTS},
    {EMFILE, ERR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERR_TOO_MANY_OPEN_FILES},
    {ENOSPC, ERR_DISK_FULL},
    {EDQUOT, ERR_DISK_FULL},
    {EROFS, ERR_WRITE_PROTECT},
    {ENAMETOOLONG, ERR_FILENAME_TOO_LONG},
    {EINVAL, ERR_INVALID_PARAMETER},
    {EBADF, ERR_INVALID_HANDLE},
    {EBUSY, ERR_SHARING_VIOLATION},
    {ETXTBSY, ERR_SHARING_VIOLATION},
    {ELOOP, ERR_CANT_RESOLVE_FILENAME},
    {EFBIG, ERR_FILE_TOO_LARGE},
    {EOVERFLOW, ERR_FILE_TOO_LARGE},
    {ESPIPE, ERR_SEEK_ON_DEVICE},
    {EPIPE, ERR_BROKEN_PIPE},
    {ENXIO, ERR_NOT_READY},
    {ENODEV, ERR_NOT_READY},
    {EILSEQ, ERR_NO_UNICODE_TRANSLATION},
};

// `fallback` serves EIO and anything unlisted: the read or write fault of
// the operation, or the general device failure.
uint32_t error_from_errno(int e, uint32_t fallback) {
    for (const ErrnoMapping& m : ERRNO_MAP)
        if (m.errno_value == e) return m.error;
    return fallback;
}

// A file handle is the descriptor plus one, so that descriptor 0 is not null.
FileHandle handle_of(int fd) {
    return reinterpret_cast<FileHandle>(static_cast<intptr_t>(fd) + 1);
}
int fd_of(FileHandle f) {
    return static_cast<int>(reinterpret_cast<intptr_t>(f) - 1);
}

bool entry_exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

bool is_directory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Names compare as Windows compares them: unit by unit after CharUpperW.
std::u16string folded(std::string_view name) {
    std::u16string s = utf8_to_utf16(name);
    for (char16_t& c : s) c = plat_upper(c);
    return s;
}

// A folder's names, folded, for searches in any letter case. Include
// searches ask the same few folders for many names, so a listing is kept
// while the folder's identity and modification time (which every name
// added, removed or renamed there moves) are unchanged, and only once that
// time is a while old: a change within the clock's tick may leave it as it
// was. Both threads of a compile search, hence the lock.
struct FolderListing {
    dev_t device = 0;
    ino_t inode = 0;
    struct timespec modified = {};
    std::vector<std::pair<std::u16string, std::string>> names; // folded, as stored
};
std::mutex listings_lock;
std::map<std::string, FolderListing> listings;

bool same_time(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool settled(const struct stat& st) {
    constexpr time_t SETTLED_SECONDS = 2;
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec - st.st_mtim.tv_sec > SETTLED_SECONDS;
}

// The entry of `dir` whose name matches `name` in any letter case; when
// several do, the first in byte order, so that the choice is stable. `st`
// is the folder's, when the caller has it.
bool find_case_variant(const std::string& dir, const std::string& name, std::string* found,
                       const struct stat* st = nullptr) {
    std::string folder = dir.empty() ? "." : dir;
    struct stat own;
    if (!st && stat(folder.c_str(), &own) == 0) st = &own;
    if (!st || !S_ISDIR(st->st_mode)) return false;
    bool keep = settled(*st);
    std::lock_guard<std::mutex> hold(listings_lock);
    FolderListing& listing = listings[folder];
    if (!keep || listing.device != st->st_dev || listing.inode != st->st_ino ||
        !same_time(listing.modified, st->st_mtim)) {
        listing = FolderListing{};
        DIR* d = opendir(folder.c_str());
        if (!d) return false;
        while (dirent* e = readdir(d)) listing.names.emplace_back(folded(e->d_name), e->d_name);
        closedir(d);
        if (keep) {
            listing.device = st->st_dev;
            listing.inode = st->st_ino;
            listing.modified = st->st_mtim;
        }
    }
    std::u16string want = folded(name);
    bool any = false;
    for (const auto& [key, entry] : listing.names) {
        if (key != want || (any && entry >= *found)) continue;
        *found = entry;
        any = true;
    }
    return any;
}

// The native spelling of a script's path: "/" for "\", and each component
// that is missing as written replaced by an entry differing only in case.
// `as_written`, when given, is set when the path exists as written, and
// `missing` when a component is in no letter case in its folder, which
// spares a caller asking again.
std::string resolve_native(const char16_t* path, bool* as_written = nullptr,
                           bool* missing = nullptr) {
    std::string p = path ? utf16_to_utf8(path) : std::string();
    for (char& c : p)
        if (c == '\\') c = '/';
    if (p.empty()) return p;
    if (entry_exists(p)) {
        if (as_written) *as_written = true;
        return p;
    }
    // Mostly a name missing from a folder that exists as written: only the
    // last component is searched then.
    size_t slash = p.find_last_of('/');
    if (slash != std::string::npos && slash + 1 < p.size()) {
        std::string dir = p.substr(0, slash + 1), name = p.substr(slash + 1), variant;
        struct stat st;
        if (name != "." && name != ".." && stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            if (find_case_variant(dir, name, &variant, &st)) return dir + variant;
            if (missing) *missing = true;
            return p;
        }
    }
    std::string out;
    size_t i = 0;
    bool searching = true;
    while (i < p.size()) {
        if (p[i] == '/') {
            out += p[i++];
            continue;
        }
        size_t end = p.find('/', i);
        if (end == std::string::npos) end = p.size();
        std::string name = p.substr(i, end - i);
        i = end;
        if (searching && name != "." && name != ".." && !entry_exists(out + name)) {
            std::string variant;
            if (find_case_variant(out, name, &variant))
                name = variant;
            else
                searching = false; // nothing below a missing component exists
        }
        out += name;
    }
    if (missing) *missing = !searching;
    return out;
}

// The file a path names, as plat_open_read finds it. Paths asked about were
// mostly found before, so as written they mostly exist: one call then.
bool stat_found(const char16_t* path, struct stat* st) {
    std::string native = utf16_to_utf8(path);
    if (native.find('\\') == std::string::npos && stat(native.c_str(), st) == 0) return true;
    native = resolve_native(path);
    return !native.empty() && stat(native.c_str(), st) == 0;
}

// ENOENT is "file not found" when the folder exists, else "path not found".
uint32_t missing_error(const std::string& native) {
    size_t slash = native.find_last_of('/');
    if (slash == std::string::npos) return ERR_FILE_NOT_FOUND;
    std::string dir = slash == 0 ? "/" : native.substr(0, slash);
    return is_directory(dir) ? ERR_FILE_NOT_FOUND : ERR_PATH_NOT_FOUND;
}

uint32_t name_error(int e, const std::string& native) {
    if (e == ENOENT) return native.empty() ? ERR_PATH_NOT_FOUND : missing_error(native);
    return error_from_errno(e, ERR_GEN_FAILURE);
}

// A file being replaced, already locked: a new empty file takes its name,
// with its permissions, rather than the old one being cut to empty, which
// some file systems follow with a flush of the old contents at close. A
// file with other names (hard links) is cut as before. Returns the
// descriptor to write, or -1 with the error in *e (the old one is gone
// then, as it would have been emptied). A name that is a symbolic link
// keeps pointing where it did: that file is cut.
int fresh_file_in_place_of(const std::string& native, int old_fd, const struct stat& st,
                           uint32_t* e) {
    struct stat named;
    bool plain = st.st_size != 0 && st.st_nlink == 1 && S_ISREG(st.st_mode) &&
                 lstat(native.c_str(), &named) == 0 && named.st_ino == st.st_ino &&
                 named.st_dev == st.st_dev; // not reached through a symbolic link
    if (!plain || unlink(native.c_str()) != 0) {
        if (ftruncate(old_fd, 0) != 0) {
            *e = error_from_errno(errno, ERR_WRITE_FAULT);
            return -1;
        }
        return old_fd;
    }
    int fd;
    do fd = open(native.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        *e = name_error(errno, native);
        return -1;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        *e = ERR_SHARING_VIOLATION; // opened by another in the meantime
        close(fd);
        return -1;
    }
    fchmod(fd, st.st_mode & 07777); // as it was, whatever the umask
    return fd;
}

// Windows refuses to write or delete a file with its read-only attribute,
// whoever asks; on POSIX a file nobody may write is taken for one (root
// could write it anyway).
bool read_only(const struct stat& st) {
    return S_ISREG(st.st_mode) && (st.st_mode & 0222) == 0;
}

// A regular file whose size says 0 though it has contents (/proc, /sys):
// its size cannot be trusted, so it is refused like a device.
bool pseudo_file(int fd, const struct stat& st) {
    if (st.st_size != 0) return false;
    char byte;
    ssize_t r;
    do r = pread(fd, &byte, 1, 0);
    while (r < 0 && errno == EINTR);
    return r > 0;
}

// What a file to read or replace may be: a folder is refused as Windows
// refuses it, and so is anything but a plain file (a pipe would block, a
// device never ends).
uint32_t check_plain_file(int fd, const struct stat& st) {
    if (S_ISDIR(st.st_mode)) return ERR_ACCESS_DENIED;
    if (!S_ISREG(st.st_mode) || pseudo_file(fd, st)) return ERR_OPEN_FAILED;
    return 0;
}

int open_retrying(const char* path, int flags, mode_t mode = 0666) {
    int fd;
    do fd = open(path, flags | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return fd;
}

void note_refused_read(const struct stat& st);

// Windows' sharing rules, with a lock per open file: readers share, a
// created file is shared with nobody. The file is replaced only once the
// lock is held, so a refused create leaves it as it was. Opened without
// blocking, so that a pipe is refused rather than waited on.
uint32_t open_native(const char16_t* path, bool create, FileHandle* out) {
    *out = nullptr;
    std::string native = resolve_native(path);
    if (native.empty()) return ERR_PATH_NOT_FOUND;
    int flags = (create ? O_RDWR | O_CREAT : O_RDONLY) | O_NONBLOCK;
    int fd = open_retrying(native.c_str(), flags);
    if (fd < 0 && errno == EISDIR) return ERR_ACCESS_DENIED;
    if (fd < 0) return name_error(errno, native);
    uint32_t e = 0;
    struct stat st {};
    if (fstat(fd, &st) != 0)
        e = error_from_errno(errno, ERR_GEN_FAILURE);
    else if (!(e = check_plain_file(fd, st))) {
        if (create && read_only(st))
            e = ERR_ACCESS_DENIED;
        else if (flock(fd, (create ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            e = ERR_SHARING_VIOLATION;
            if (!create) note_refused_read(st);
        }
    }
    if (e) {
        close(fd);
        return e;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    if (create) {
        int written = fresh_file_in_place_of(native, fd, st, &e);
        if (written != fd) close(fd);
        if (written < 0) return e;
        fd = written;
    }
    *out = handle_of(fd);
    return 0;
}

std::u16string from_native(const std::string& s) {
    return utf8_to_utf16(s);
}

// "." and ".." taken out lexically, as Windows makes a path full.
std::string normalised(const std::string& absolute) {
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < absolute.size()) {
        size_t end = absolute.find('/', i);
        if (end == std::string::npos) end = absolute.size();
        std::string part = absolute.substr(i, end - i);
        i = end + 1;
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
            continue;
        }
        parts.push_back(part);
    }
    std::string out;
    for (const std::string& part : parts) out += "/" + part;
    return out.empty() ? "/" : out;
}

std::string current_directory_native() {
    std::vector<char> buffer(256);
    while (!getcwd(buffer.data(), buffer.size())) {
        if (errno != ERANGE) return std::string();
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

constexpr const char* WEEKDAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Files opened for reading are read ahead: the preprocessor asks for 4 KiB
// at a time, and a system call each costs more than copying. The bytes
// read ahead count as not yet read: seeking accounts for them.
struct ReadAhead {
    std::unique_ptr<char[]> data;
    uint32_t at = 0;  // the next unread byte
    uint32_t end = 0; // past the last one
    uint64_t pos = 0; // the file position of data[0]; the descriptor stands at pos + end
};
constexpr uint32_t READ_AHEAD_BYTES = 64 * 1024;
// By descriptor. The preprocessor's thread and the main one open and close
// files at once, so the map is locked; an entry is used only by the thread
// that holds its descriptor (and a map's entries stay where they are).
std::map<int, ReadAhead> read_ahead;
std::mutex read_ahead_lock;

ReadAhead* read_ahead_of(FileHandle f) {
    std::lock_guard<std::mutex> hold(read_ahead_lock);
    auto it = read_ahead.find(fd_of(f));
    return it == read_ahead.end() ? nullptr : &it->second;
}

// Straight from the descriptor; false with the error in *e.
bool read_fully(int fd, char* buffer, uint32_t n, uint32_t* total, uint32_t* e) {
    while (*total < n) {
        ssize_t r = read(fd, buffer + *total, n - *total);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            *e = error_from_errno(errno, ERR_READ_FAULT);
            return false;
        }
        if (r == 0) break;
        *total += static_cast<uint32_t>(r);
    }
    return true;
}

} // namespace

uint32_t plat_open_read(const char16_t* path, FileHandle* out) {
    uint32_t e = open_native(path, false, out);
    if (!e) { // a descriptor number may come back after a close
        std::lock_guard<std::mutex> hold(read_ahead_lock);
        ReadAhead& ra = read_ahead[fd_of(*out)];
        if (!ra.data) ra.data.reset(new char[READ_AHEAD_BYTES]);
        ra.at = ra.end = 0;
        ra.pos = 0;
    }
    return e;
}

uint32_t plat_create(const char16_t* path, FileHandle* out) {
    return open_native(path, true, out);
}

uint32_t plat_read(FileHandle f, void* buffer, uint32_t n, uint32_t* got) {
    if (got) *got = 0;
    if (!f) return ERR_INVALID_HANDLE;
    char* out = static_cast<char*>(buffer);
    uint32_t total = 0, e = 0;
    bool at_end = false;
    if (ReadAhead* ra = read_ahead_of(f)) {
        while (total < n) {
            if (ra->at < ra->end) {
                uint32_t take = std::min(n - total, ra->end - ra->at);
                std::memcpy(out + total, ra->data.get() + ra->at, take);
                ra->at += take;
                total += take;
                continue;
            }
            ra->pos += ra->end;
            ra->at = ra->end = 0;
            if (n - total >= READ_AHEAD_BYTES) break; // the rest is large enough to go straight
            uint32_t filled = 0;
            if (!read_fully(fd_of(f), ra->data.get(), READ_AHEAD_BYTES, &filled, &e)) return e;
            ra->end = filled;
            if (filled == 0) {
                at_end = true;
                break;
            }
        }
    }
    if (total < n && !at_end) {
        uint32_t before = total;
        if (!read_fully(fd_of(f), out, n, &total, &e)) return e;
        if (ReadAhead* ra = read_ahead_of(f)) ra->pos += total - before; // read straight past it
    }
    if (got) *got = total;
    return 0;
}

uint32_t plat_write(FileHandle f, const void* buffer, uint32_t n, uint32_t* put) {
    if (put) *put = 0;
    if (!f) return ERR_INVALID_HANDLE;
    uint32_t total = 0;
    while (total < n) {
        ssize_t r = write(fd_of(f), static_cast<const char*>(buffer) + total, n - total);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return error_from_errno(errno, ERR_WRITE_FAULT);
        if (r == 0) break;
        total += static_cast<uint32_t>(r);
    }
    if (put) *put = total;
    return 0;
}

// ext4 takes a third less time to write into room allocated beforehand: it
// then reserves nothing page by page.
void plat_reserve(FileHandle f, uint64_t offset, uint64_t length) {
#ifdef FALLOC_FL_KEEP_SIZE
    if (f && length) fallocate(fd_of(f), FALLOC_FL_KEEP_SIZE, off_t(offset), off_t(length));
#else
    (void)f, (void)offset, (void)length;
#endif
}

uint32_t plat_seek(FileHandle f, int64_t offset, SeekOrigin origin, uint32_t* position) {
    if (!f) return ERR_INVALID_HANDLE;
    int whence = SEEK_END;
    if (origin == SeekOrigin::begin) whence = SEEK_SET;
    if (origin == SeekOrigin::current) whence = SEEK_CUR;
    ReadAhead* ra = read_ahead_of(f);
    if (ra && whence != SEEK_END) {
        // A place among the bytes read ahead (the start of the file after
        // its signature is read, a UTF-8 sequence cut by a chunk) needs no
        // system call and no second reading.
        int64_t target =
            whence == SEEK_SET ? offset : static_cast<int64_t>(ra->pos + ra->at) + offset;
        if (target >= static_cast<int64_t>(ra->pos) &&
            target <= static_cast<int64_t>(ra->pos + ra->end)) {
            ra->at = static_cast<uint32_t>(target - static_cast<int64_t>(ra->pos));
            if (position) *position = static_cast<uint32_t>(target);
            return 0;
        }
    }
    if (ra) { // the descriptor stands past the unread bytes
        if (whence == SEEK_CUR) offset -= static_cast<int64_t>(ra->end - ra->at);
        ra->at = ra->end = 0;
    }
    off_t at = lseek(fd_of(f), static_cast<off_t>(offset), whence);
    if (at < 0)
        return errno == EINVAL ? ERR_NEGATIVE_SEEK : error_from_errno(errno, ERR_GEN_FAILURE);
    if (ra) ra->pos = static_cast<uint64_t>(at);
    if (position) *position = static_cast<uint32_t>(at);
    return 0;
}

uint32_t plat_size(FileHandle f, uint32_t* size) {
    if (!f) return ERR_INVALID_HANDLE;
    struct stat st;
    if (fstat(fd_of(f), &st) != 0) return error_from_errno(errno, ERR_GEN_FAILURE);
    *size = static_cast<uint32_t>(st.st_size); // the low 32 bits, as GetFileSize gives
    return 0;
}

void plat_close(FileHandle f) {
    if (!f) return;
    {
        std::lock_guard<std::mutex> hold(read_ahead_lock);
        read_ahead.erase(fd_of(f));
    }
    close(fd_of(f));
}

uint32_t plat_delete(const char16_t* path) {
    std::string native = resolve_native(path);
    if (native.empty()) return ERR_PATH_NOT_FOUND;
    struct stat st;
    if (lstat(native.c_str(), &st) != 0) return name_error(errno, native);
    if (!S_ISLNK(st.st_mode)) { // a symbolic link goes by itself, as on Windows
        if (!S_ISREG(st.st_mode) || read_only(st)) return ERR_ACCESS_DENIED;
        // Held for the unlink: a lock taken by any open of ours, here or in
        // another compile, refuses it.
        int fd = open_retrying(native.c_str(), O_RDONLY | O_NONBLOCK);
        if (fd < 0) fd = open_retrying(native.c_str(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            close(fd);
            return ERR_SHARING_VIOLATION;
        }
        int failed = unlink(native.c_str()) != 0 ? errno : 0;
        if (fd >= 0) close(fd);
        return failed ? name_error(failed, native) : 0;
    }
    if (unlink(native.c_str()) != 0) return name_error(errno, native);
    return 0;
}

namespace {

// The output being written: see plat_output_begin.
struct PendingOutput {
    std::string target; // the file that the output replaces
    std::string temp;   // empty when the output is written in place
    int guard = -1;     // the existing target, locked while the output is written
    dev_t device = 0;   // and its identity, while guarded
    ino_t inode = 0;
    bool linked = false; // the target has other names: its contents are replaced in place
    bool read = false;   // the compile tried to read the target: it is a source, kept
};
PendingOutput pending;
unsigned temp_counter = 0;

void release_guard() {
    if (pending.guard >= 0) close(pending.guard);
    pending.guard = -1;
}

// A device or pipe named as the output takes the bytes as they come.
uint32_t open_device_output(const std::string& target, const struct stat& st, FileHandle* out) {
    if (!S_ISCHR(st.st_mode) && !S_ISFIFO(st.st_mode)) return ERR_ACCESS_DENIED;
    int fd = open_retrying(target.c_str(), O_WRONLY | O_NONBLOCK); // a pipe without reader fails
    if (fd < 0) return name_error(errno, target);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    pending = PendingOutput{};
    pending.target = target;
    *out = handle_of(fd);
    return 0;
}

// The existing target, held as Windows holds a file being written. Any
// descriptor serves for the lock.
uint32_t guard_target(const std::string& target, const struct stat& st) {
    if (read_only(st)) return ERR_ACCESS_DENIED;
    int fd = open_retrying(target.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0) fd = open_retrying(target.c_str(), O_WRONLY | O_NONBLOCK);
    if (fd < 0) return 0; // nothing to lock with; the replacement goes ahead
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        close(fd);
        return ERR_SHARING_VIOLATION;
    }
    pending.guard = fd;
    pending.device = st.st_dev;
    pending.inode = st.st_ino;
    return 0;
}

void note_refused_read(const struct stat& st) {
    if (pending.guard >= 0 && st.st_dev == pending.device && st.st_ino == pending.inode)
        pending.read = true;
}

std::string folder_of(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return std::string();
    return path.substr(0, slash + 1);
}

// A new file beside the target, hidden, with the target's permissions.
uint32_t create_temp(const struct stat* existing, int* fd_out) {
    std::string folder = folder_of(pending.target);
    std::string base = pending.target.substr(folder.size());
    mode_t mode = existing ? existing->st_mode & 07777 : 0666;
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string temp = folder + "." + base + ".tarn-" + std::to_string(getpid()) + "-" +
                           std::to_string(++temp_counter);
        int fd = open_retrying(temp.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) return name_error(errno, pending.target);
        if (existing) fchmod(fd, mode); // as it was, whatever the umask
        flock(fd, LOCK_EX | LOCK_NB);   // ours: no one else deletes it
        pending.temp = temp;
        *fd_out = fd;
        return 0;
    }
    return ERR_FILE_EXISTS;
}

// Replaces the contents of a file with other names in place, keeping it
// shared with them.
uint32_t copy_into_target() {
    int from = open_retrying(pending.temp.c_str(), O_RDONLY);
    if (from < 0) return error_from_errno(errno, ERR_READ_FAULT);
    int to = open_retrying(pending.target.c_str(), O_WRONLY | O_TRUNC);
    uint32_t e = to < 0 ? name_error(errno, pending.target) : 0;
    char buffer[64 * 1024];
    while (!e) {
        ssize_t n = read(from, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n < 0) e = error_from_errno(errno, ERR_READ_FAULT);
            break;
        }
        for (ssize_t done = 0; !e && done < n;) {
            ssize_t w = write(to, buffer + done, size_t(n - done));
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0)
                e = w < 0 ? error_from_errno(errno, ERR_WRITE_FAULT) : ERR_WRITE_FAULT;
            else
                done += w;
        }
    }
    close(from);
    if (to >= 0 && close(to) != 0 && !e) e = error_from_errno(errno, ERR_WRITE_FAULT);
    return e;
}

// Puts the finished file in the target's place. Over the plain file guarded
// since the start, the two names are exchanged and the old file, now under
// the temporary name, is removed: renaming over a file makes ext4 start
// writing the new one out before the call returns (about 80 ms for a 170 MB
// output), which an exchange does not. Anything else, or a file system
// without exchanges, is renamed over.
uint32_t replace_target() {
#ifdef RENAME_EXCHANGE
    auto guarded = [](const std::string& name) {
        struct stat st;
        return lstat(name.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
               st.st_dev == pending.device && st.st_ino == pending.inode;
    };
    const char* temp = pending.temp.c_str();
    const char* target = pending.target.c_str();
    if (pending.guard >= 0 && guarded(pending.target) &&
        renameat2(AT_FDCWD, temp, AT_FDCWD, target, RENAME_EXCHANGE) == 0) {
        if (guarded(pending.temp)) {
            unlink(temp);
            return 0;
        }
        // Changed between the look and the exchange: put it back.
        renameat2(AT_FDCWD, temp, AT_FDCWD, target, RENAME_EXCHANGE);
    }
#endif
    if (rename(pending.temp.c_str(), pending.target.c_str()) != 0)
        return name_error(errno, pending.target);
    return 0;
}

} // namespace

uint32_t plat_output_begin(const char16_t* path, FileHandle* out) {
    *out = nullptr;
    plat_output_discard();
    std::string target = resolve_native(path);
    if (target.empty()) return ERR_PATH_NOT_FOUND;
    struct stat st;
    if (lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        // A symbolic link keeps pointing where it did: its file is replaced.
        if (char* real = realpath(target.c_str(), nullptr)) {
            target = real;
            std::free(real);
        }
    }
    bool exists = stat(target.c_str(), &st) == 0;
    if (!exists && errno != ENOENT) return name_error(errno, target);
    if (exists && S_ISDIR(st.st_mode)) return ERR_ACCESS_DENIED;
    if (exists && !S_ISREG(st.st_mode)) return open_device_output(target, st, out);
    if (!exists && !is_directory(folder_of(target).empty() ? "." : folder_of(target)))
        return missing_error(target);
    pending = PendingOutput{};
    pending.target = target;
    if (exists) {
        if (uint32_t e = guard_target(target, st)) return e;
        pending.linked = st.st_nlink > 1;
    }
    int fd = -1;
    if (uint32_t e = create_temp(exists ? &st : nullptr, &fd)) {
        release_guard();
        pending = PendingOutput{};
        return e;
    }
    *out = handle_of(fd);
    return 0;
}

uint32_t plat_output_commit() {
    uint32_t e = 0;
    if (!pending.temp.empty()) {
        if (pending.linked)
            e = copy_into_target();
        else
            e = replace_target();
        if (e || pending.linked) unlink(pending.temp.c_str());
    }
    release_guard();
    pending = PendingOutput{};
    return e;
}

void plat_output_discard() {
    if (!pending.temp.empty()) unlink(pending.temp.c_str());
    // A failed compile leaves no output, as on Windows, where the file it
    // replaced is gone: only the plain file held since the start, and never
    // one the compile read (a script or header named as the output).
    struct stat st;
    if (pending.guard >= 0 && !pending.read && !pending.linked &&
        lstat(pending.target.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        st.st_dev == pending.device && st.st_ino == pending.inode)
        unlink(pending.target.c_str());
    release_guard();
    pending = PendingOutput{};
}

bool plat_exists(const char16_t* path) {
    bool as_written = false, missing = false;
    std::string native = resolve_native(path, &as_written, &missing);
    return as_written || (!missing && !native.empty() && entry_exists(native));
}

bool plat_file_stamp(const char16_t* path, FileStamp* out) {
    struct stat st;
    if (!stat_found(path, &st)) return false;
    out->size = uint64_t(st.st_size);
    out->modified = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    // The change time too: a file rewritten in place within the clock's
    // resolution still gets a new one.
    uint64_t changed = uint64_t(st.st_ctim.tv_sec) * 1000000000 + uint64_t(st.st_ctim.tv_nsec);
    out->id = (uint64_t(st.st_dev) << 40) ^ uint64_t(st.st_ino) ^ changed;
    out->replaced_output =
        pending.guard >= 0 && st.st_dev == pending.device && st.st_ino == pending.inode;
    return true;
}

std::u16string plat_resolve(const char16_t* path) {
    return from_native(resolve_native(path));
}

std::u16string plat_absolute(const char16_t* path) {
    std::string native = resolve_native(path);
    if (native.empty()) return std::u16string();
    if (native[0] != '/') {
        std::string cwd = current_directory_native();
        if (cwd.empty()) return std::u16string();
        native = cwd + "/" + native;
    }
    return from_native(normalised(native));
}

std::u16string plat_current_directory() {
    return from_native(current_directory_native());
}

bool plat_getenv(std::u16string_view name, std::u16string* value) {
    std::string wanted = utf16_to_utf8(name);
    const char* inexact = nullptr;
    for (char** e = environ; e && *e; ++e) {
        const char* eq = std::strchr(*e, '=');
        if (!eq) continue;
        std::string_view entry_name(*e, static_cast<size_t>(eq - *e));
        if (entry_name == wanted) { // the exact spelling wins
            *value = utf8_to_utf16(eq + 1);
            return true;
        }
        if (!inexact && equal_ignore_case(utf8_to_utf16(entry_name), name)) inexact = eq + 1;
    }
    if (!inexact) return false;
    *value = utf8_to_utf16(inexact);
    return true;
}

uint32_t console_write(int handle, std::u16string_view text) {
    if (handle != 1 && handle != 2) return ERR_INVALID_HANDLE;
    if (text.empty()) return 0;
    std::string bytes = utf16_to_utf8(text);
    if (bytes.empty()) return ERR_NO_UNICODE_TRANSLATION;
    size_t total = 0;
    while (total < bytes.size()) {
        ssize_t r = write(handle, bytes.data() + total, bytes.size() - total);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return error_from_errno(errno, ERR_WRITE_FAULT);
        if (r == 0) return ERR_WRITE_FAULT;
        total += static_cast<size_t>(r);
    }
    return 0;
}

int64_t time_now() {
    return static_cast<int64_t>(std::time(nullptr));
}

std::string time_text(int64_t t) {
    time_t tt = static_cast<time_t>(t);
    struct tm tm;
    if (!localtime_r(&tt, &tm)) return std::string();
    char text[64];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d\n", WEEKDAYS[tm.tm_wday],
                  MONTHS[tm.tm_mon], tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  tm.tm_year + 1900);
    return text;
}

uint32_t host_version() {
    void* program = dlopen(nullptr, RTLD_LAZY);
    if (!program) return 0;
    const void* symbol = dlsym(program, "tarn_host_file_version");
    uint32_t version = symbol ? *static_cast<const uint32_t*>(symbol) : 0;
    dlclose(program);
    return version;
}

bool plat_user_language_swedish() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* v = std::getenv(name);
        if (v && *v) return v[0] == 's' && v[1] == 'v';
    }
    return false;
}

} // namespace tarn
