// Cache files on POSIX: where they live, and whole-file reads and atomic
// writes that never disturb a compile (every failure is just "no cache").
#include "support/platform.h"

#include "support/text.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn {

namespace {

bool make_folders(const std::string& dir) {
    struct stat st;
    if (stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    size_t slash = dir.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !make_folders(dir.substr(0, slash)))
        return false;
    return mkdir(dir.c_str(), 0777) == 0 || errno == EEXIST;
}

} // namespace

std::u16string plat_cache_directory() {
    if (const char* own = std::getenv("TARN_CACHE_DIR")) return utf8_to_utf16(own);
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && xdg[0] == '/')
        return utf8_to_utf16(std::string(xdg) + "/tarn");
    if (const char* home = std::getenv("HOME"); home && home[0] == '/')
        return utf8_to_utf16(std::string(home) + "/.cache/tarn");
    return std::u16string();
}

bool plat_read_whole(const char16_t* path, std::unique_ptr<char16_t[]>* units, size_t* count) {
    int fd = open(utf16_to_utf8(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat st;
    bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size % 2 == 0;
    if (ok) {
        *count = size_t(st.st_size) / 2;
        units->reset(new char16_t[*count]); // not cleared: read over at once
        char* bytes = reinterpret_cast<char*>(units->get());
        size_t size = size_t(st.st_size), done = 0;
        while (ok && done < size) {
            ssize_t n = read(fd, bytes + done, size - done);
            if (n < 0 && errno == EINTR) continue;
            ok = n > 0;
            if (ok) done += size_t(n);
        }
    }
    close(fd);
    return ok;
}

bool plat_write_whole(const char16_t* path, std::string_view bytes) {
    std::string target = utf16_to_utf8(path);
    size_t slash = target.find_last_of('/');
    if (slash == std::string::npos || !make_folders(target.substr(0, slash))) return false;
    std::string temp = target + "." + std::to_string(getpid()) + ".tmp";
    int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = true;
    for (size_t done = 0; ok && done < bytes.size();) {
        ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += size_t(n);
    }
    ok = close(fd) == 0 && ok && rename(temp.c_str(), target.c_str()) == 0;
    if (!ok) unlink(temp.c_str());
    return ok;
}

uint64_t plat_library_stamp() {
    Dl_info info{};
    struct stat st;
    if (!dladdr(reinterpret_cast<void*>(&plat_library_stamp), &info) || !info.dli_fname ||
        stat(info.dli_fname, &st) != 0)
        return 0;
    return uint64_t(st.st_size) * 0x9E3779B97F4A7C15u ^ uint64_t(st.st_mtim.tv_sec) << 30 ^
           uint64_t(st.st_mtim.tv_nsec) ^ uint64_t(st.st_ino) << 17;
}

} // namespace tarn
