// Cache files on Windows: where they live, and whole-file reads and atomic
// writes that never disturb a compile (every failure is just "no cache").
#include "support/platform.h"

#include <windows.h>

#include <iterator>

namespace tarn {

namespace {

const wchar_t* wide(const char16_t* s) {
    return reinterpret_cast<const wchar_t*>(s);
}

// *present tells an empty variable from a missing one.
std::u16string environment(const wchar_t* name, bool* present) {
    wchar_t buffer[MAX_PATH * 2];
    SetLastError(0);
    DWORD n = GetEnvironmentVariableW(name, buffer, DWORD(std::size(buffer)));
    *present = n < std::size(buffer) && (n > 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND);
    return *present ? std::u16string(reinterpret_cast<const char16_t*>(buffer), n) : u"";
}

bool make_folders(const std::u16string& dir) {
    DWORD a = GetFileAttributesW(wide(dir.c_str()));
    if (a != INVALID_FILE_ATTRIBUTES) return (a & FILE_ATTRIBUTE_DIRECTORY) != 0;
    size_t sep = dir.find_last_of(u"\\/");
    if (sep != std::u16string::npos && sep > 2 && !make_folders(dir.substr(0, sep))) return false;
    return CreateDirectoryW(wide(dir.c_str()), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

uint64_t as_u64(FILETIME t) {
    return uint64_t(t.dwHighDateTime) << 32 | t.dwLowDateTime;
}

} // namespace

bool plat_file_stamp(const char16_t* path, FileStamp* out) {
    WIN32_FILE_ATTRIBUTE_DATA d;
    if (!GetFileAttributesExW(wide(path), GetFileExInfoStandard, &d)) return false;
    out->size = uint64_t(d.nFileSizeHigh) << 32 | d.nFileSizeLow;
    out->modified = int64_t(as_u64(d.ftLastWriteTime));
    out->id = as_u64(d.ftCreationTime);
    out->replaced_output = plat_output_holds(path);
    return true;
}

std::u16string plat_cache_directory() {
    bool present = false;
    std::u16string own = environment(L"TARN_CACHE_DIR", &present);
    if (present) return own;
    std::u16string local = environment(L"LOCALAPPDATA", &present);
    return local.empty() ? std::u16string() : local + u"\\tarn";
}

bool plat_read_whole(const char16_t* path, std::unique_ptr<char16_t[]>* units, size_t* count) {
    HANDLE f = CreateFileW(wide(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size;
    bool ok = GetFileSizeEx(f, &size) && size.QuadPart < (1 << 30) && size.QuadPart % 2 == 0;
    if (ok) {
        *count = size_t(size.QuadPart) / 2;
        units->reset(new char16_t[*count]);
        DWORD got = 0;
        ok = ReadFile(f, units->get(), DWORD(size.QuadPart), &got, nullptr) && got == size.QuadPart;
    }
    CloseHandle(f);
    return ok;
}

bool plat_write_whole(const char16_t* path, std::string_view bytes) {
    std::u16string target = path;
    size_t sep = target.find_last_of(u"\\/");
    if (sep == std::u16string::npos || !make_folders(target.substr(0, sep))) return false;
    std::u16string temp = target + u".";
    for (DWORD id = GetCurrentProcessId(); id; id /= 10) temp += char16_t(u'0' + id % 10);
    temp += u".tmp";
    HANDLE f = CreateFileW(wide(temp.c_str()), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return false;
    DWORD put = 0;
    bool ok = WriteFile(f, bytes.data(), DWORD(bytes.size()), &put, nullptr) && put == bytes.size();
    ok = CloseHandle(f) && ok &&
         MoveFileExW(wide(temp.c_str()), wide(target.c_str()), MOVEFILE_REPLACE_EXISTING);
    if (!ok) DeleteFileW(wide(temp.c_str()));
    return ok;
}

uint64_t plat_library_stamp() {
    HMODULE self = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&plat_library_stamp), &self))
        return 0;
    wchar_t name[MAX_PATH * 2];
    DWORD n = GetModuleFileNameW(self, name, DWORD(std::size(name)));
    FileStamp s;
    if (n == 0 || n >= std::size(name) || !plat_file_stamp(reinterpret_cast<char16_t*>(name), &s))
        return 0;
    return s.size * 0x9E3779B97F4A7C15u ^ uint64_t(s.modified) ^ s.id << 7;
}

} // namespace tarn
