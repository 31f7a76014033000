// The platform layer on Windows: thin wrappers over the Windows API, which
// already has the behaviour the library is written against. UTF-16 text is
// handed to the wide calls as it is (char16_t and wchar_t share a layout).
#include "support/platform.h"

#include <windows.h>

#include <climits>
#include <ctime>
#include <iterator>

namespace tarn {

namespace {

const wchar_t* wide(const char16_t* s) {
    return reinterpret_cast<const wchar_t*>(s);
}
HANDLE handle(FileHandle f) {
    return static_cast<HANDLE>(f);
}

uint32_t open_file(const char16_t* path, DWORD access, DWORD share, DWORD disposition,
                   FileHandle* out) {
    *out = nullptr;
    if (!path) return ERR_PATH_NOT_FOUND;
    HANDLE f = CreateFileW(wide(path), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                           nullptr);
    if (f == INVALID_HANDLE_VALUE) return GetLastError();
    *out = f;
    return 0;
}

// A text from a call that reports the size it needs, zero included.
template <class Call> std::u16string sized_text(Call call) {
    DWORD need = call(nullptr, 0);
    if (need == 0) return std::u16string();
    std::u16string text(need, u'\0');
    DWORD got = call(reinterpret_cast<wchar_t*>(text.data()), need);
    if (got == 0 || got >= need) return std::u16string();
    text.resize(got);
    return text;
}

int clamp_int(size_t n) {
    return n > INT_MAX ? INT_MAX : static_cast<int>(n);
}

// The fixed part of a version resource: after the 6-byte header and the key
// "VS_VERSION_INFO" with its zero, aligned to 4 bytes.
constexpr size_t FIXED_INFO_OFFSET = 40;
constexpr uint32_t FIXED_INFO_SIGNATURE = 0xFEEF04BD;
constexpr size_t FILE_VERSION_HIGH = 8; // dwFileVersionMS within the fixed part

uint32_t read_u32(const unsigned char* p) {
    return p[0] | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

} // namespace

void note_refused_read(const char16_t* path);

uint32_t plat_open_read(const char16_t* path, FileHandle* out) {
    uint32_t e = open_file(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, out);
    if (e == ERROR_SHARING_VIOLATION) note_refused_read(path);
    return e;
}

uint32_t plat_create(const char16_t* path, FileHandle* out) {
    return open_file(path, GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS, out);
}

uint32_t plat_read(FileHandle f, void* buffer, uint32_t n, uint32_t* got) {
    if (got) *got = 0;
    if (!f) return ERR_INVALID_HANDLE;
    DWORD done = 0;
    if (!ReadFile(handle(f), buffer, n, &done, nullptr)) return GetLastError();
    if (got) *got = done;
    return 0;
}

uint32_t plat_write(FileHandle f, const void* buffer, uint32_t n, uint32_t* put) {
    if (put) *put = 0;
    if (!f) return ERR_INVALID_HANDLE;
    DWORD done = 0;
    if (!WriteFile(handle(f), buffer, n, &done, nullptr)) return GetLastError();
    if (put) *put = done;
    return 0;
}

// Windows file systems allocate as the file grows; no hint is given.
void plat_reserve(FileHandle, uint64_t, uint64_t) {}

uint32_t plat_seek(FileHandle f, int64_t offset, SeekOrigin origin, uint32_t* position) {
    if (!f) return ERR_INVALID_HANDLE;
    DWORD method = FILE_END;
    if (origin == SeekOrigin::begin) method = FILE_BEGIN;
    if (origin == SeekOrigin::current) method = FILE_CURRENT;
    LONG high = static_cast<LONG>(offset >> 32);
    SetLastError(NO_ERROR);
    DWORD low = SetFilePointer(handle(f), static_cast<LONG>(offset & 0xFFFFFFFF), &high, method);
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR) return GetLastError();
    if (position) *position = low;
    return 0;
}

uint32_t plat_size(FileHandle f, uint32_t* size) {
    if (!f) return ERR_INVALID_HANDLE;
    SetLastError(NO_ERROR);
    DWORD low = GetFileSize(handle(f), nullptr);
    if (low == INVALID_FILE_SIZE && GetLastError() != NO_ERROR) return GetLastError();
    *size = low;
    return 0;
}

void plat_close(FileHandle f) {
    if (f) CloseHandle(handle(f));
}

uint32_t plat_delete(const char16_t* path) {
    if (!path) return ERR_PATH_NOT_FOUND;
    return DeleteFileW(wide(path)) ? 0 : GetLastError();
}

namespace {

// The output being written: see plat_output_begin.
struct PendingOutput {
    std::u16string target;
    std::u16string temp;    // empty when the output is written in place
    HANDLE guard = nullptr; // the existing target, held while the output is written
    bool read = false;      // the compile tried to read the target: it is a source, kept
};
PendingOutput pending;
unsigned temp_counter = 0;

void release_guard() {
    if (pending.guard) CloseHandle(pending.guard);
    pending.guard = nullptr;
}

std::u16string full_path(const char16_t* path) {
    wchar_t buffer[MAX_PATH * 4];
    DWORD n = GetFullPathNameW(wide(path), DWORD(std::size(buffer)), buffer, nullptr);
    if (n == 0 || n >= std::size(buffer)) return u"";
    return std::u16string(reinterpret_cast<const char16_t*>(buffer), n);
}

std::u16string to_text(unsigned long n) {
    std::u16string digits;
    do digits.insert(digits.begin(), char16_t(u'0' + n % 10));
    while (n /= 10);
    return digits;
}

} // namespace

void note_refused_read(const char16_t* path) {
    if (plat_output_holds(path)) pending.read = true;
}

bool plat_output_holds(const char16_t* path) {
    if (!pending.guard || !path) return false;
    std::u16string a = full_path(path), b = full_path(pending.target.c_str());
    return !a.empty() && a.size() == b.size() &&
           CompareStringOrdinal(wide(a.c_str()), int(a.size()), wide(b.c_str()), int(b.size()),
                                TRUE) == CSTR_EQUAL;
}

uint32_t plat_output_begin(const char16_t* path, FileHandle* out) {
    *out = nullptr;
    plat_output_discard();
    if (!path || !path[0]) return ERR_PATH_NOT_FOUND;
    // Held as the replaced file would be: a read-only or busy file, or a
    // folder, is refused here.
    HANDLE existing = CreateFileW(wide(path), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
    if (existing == INVALID_HANDLE_VALUE) {
        DWORD e = GetLastError();
        if (e != ERROR_FILE_NOT_FOUND) return e;
        existing = nullptr;
    } else if (GetFileType(existing) != FILE_TYPE_DISK) {
        *out = existing; // a device (NUL) takes the bytes in place
        return 0;
    }
    pending.target = path;
    pending.guard = existing;
    std::u16string target = path;
    size_t cut = target.find_last_of(u"\\/:");
    std::u16string folder = cut == std::u16string::npos ? u"" : target.substr(0, cut + 1);
    std::u16string base = target.substr(folder.size());
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::u16string temp = folder + u"." + base + u".tarn-" + to_text(GetCurrentProcessId()) +
                              u"-" + to_text(++temp_counter);
        HANDLE f = CreateFileW(wide(temp.c_str()), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (f == INVALID_HANDLE_VALUE) {
            DWORD e = GetLastError();
            if (e == ERROR_FILE_EXISTS) continue;
            release_guard();
            pending = PendingOutput{};
            return e;
        }
        pending.temp = temp;
        *out = f;
        return 0;
    }
    release_guard();
    pending = PendingOutput{};
    return ERROR_FILE_EXISTS;
}

uint32_t plat_output_commit() {
    uint32_t e = 0;
    release_guard();
    if (!pending.temp.empty() &&
        !MoveFileExW(wide(pending.temp.c_str()), wide(pending.target.c_str()),
                     MOVEFILE_REPLACE_EXISTING)) {
        e = GetLastError();
        DeleteFileW(wide(pending.temp.c_str()));
    }
    pending = PendingOutput{};
    return e;
}

void plat_output_discard() {
    if (!pending.temp.empty()) DeleteFileW(wide(pending.temp.c_str()));
    // A failed compile leaves no output: the file it would have replaced goes
    // too, unless the compile read it (a script or header named as output).
    bool remove = pending.guard && !pending.read;
    release_guard();
    if (remove) DeleteFileW(wide(pending.target.c_str()));
    pending = PendingOutput{};
}

bool plat_exists(const char16_t* path) {
    if (!path) return false;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(wide(path), &found);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    return true;
}

std::u16string plat_resolve(const char16_t* path) {
    return path ? path : u"";
}

std::u16string plat_absolute(const char16_t* path) {
    if (!path) return std::u16string();
    return sized_text([&](wchar_t* buffer, DWORD size) {
        return GetFullPathNameW(wide(path), size, buffer, nullptr);
    });
}

std::u16string plat_current_directory() {
    return sized_text(
        [](wchar_t* buffer, DWORD size) { return GetCurrentDirectoryW(size, buffer); });
}

bool plat_getenv(std::u16string_view name, std::u16string* value) {
    std::u16string n(name); // the environment's names are case-insensitive already
    DWORD need = GetEnvironmentVariableW(wide(n.c_str()), nullptr, 0);
    if (need == 0) return false;
    std::u16string text(need, u'\0');
    DWORD got =
        GetEnvironmentVariableW(wide(n.c_str()), reinterpret_cast<wchar_t*>(text.data()), need);
    if (got >= need) return false;
    text.resize(got);
    *value = text;
    return true;
}

uint32_t plat_ansi_code_page() {
    return GetACP();
}
uint32_t plat_oem_code_page() {
    return GetOEMCP();
}
bool plat_valid_code_page(uint32_t code_page) {
    return IsValidCodePage(code_page) != 0;
}

size_t plat_to_utf16(uint32_t code_page, const char* bytes, size_t n, char16_t* out, size_t room) {
    if (n == 0 || n > INT_MAX || (out && room == 0)) return 0;
    int r = MultiByteToWideChar(code_page, 0, bytes, static_cast<int>(n),
                                reinterpret_cast<wchar_t*>(out), out ? clamp_int(room) : 0);
    return r > 0 ? static_cast<size_t>(r) : 0;
}

size_t plat_from_utf16(uint32_t code_page, const char16_t* text, size_t n, char* out, size_t room) {
    if (n == 0 || n > INT_MAX || (out && room == 0)) return 0;
    int r = WideCharToMultiByte(code_page, 0, wide(text), static_cast<int>(n), out,
                                out ? clamp_int(room) : 0, nullptr, nullptr);
    return r > 0 ? static_cast<size_t>(r) : 0;
}

bool plat_is_alpha(char16_t c) {
    return IsCharAlphaW(static_cast<WCHAR>(c)) != 0;
}
bool plat_is_alphanumeric(char16_t c) {
    return IsCharAlphaNumericW(static_cast<WCHAR>(c)) != 0;
}

char16_t plat_upper(char16_t c) {
    // A pointer value below 0x10000 makes CharUpperW convert that one character.
    LPWSTR r = CharUpperW(reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(c)));
    return static_cast<char16_t>(reinterpret_cast<ULONG_PTR>(r) & 0xFFFF);
}

uint32_t console_write(int handle_number, std::u16string_view text) {
    if (handle_number != 1 && handle_number != 2) return ERR_INVALID_HANDLE;
    if (text.empty()) return 0;
    HANDLE out = GetStdHandle(handle_number == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (out == INVALID_HANDLE_VALUE || !out) return ERR_INVALID_HANDLE;
    DWORD size = static_cast<DWORD>(text.size());
    DWORD written = 0;
    // The NUL device is a character device but no console: it takes bytes.
    if (GetFileType(out) == FILE_TYPE_CHAR &&
        WriteConsoleW(out, text.data(), size, &written, nullptr))
        return written == size ? 0 : ERR_WRITE_FAULT;
    UINT code_page = GetConsoleOutputCP();
    int n = WideCharToMultiByte(code_page, 0, reinterpret_cast<const wchar_t*>(text.data()),
                                static_cast<int>(size), nullptr, 0, nullptr, nullptr);
    if (n <= 0) return ERR_NO_UNICODE_TRANSLATION;
    std::string bytes(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(code_page, 0, reinterpret_cast<const wchar_t*>(text.data()),
                        static_cast<int>(size), bytes.data(), n, nullptr, nullptr);
    if (!WriteFile(out, bytes.data(), static_cast<DWORD>(n), &written, nullptr))
        return GetLastError();
    return written == static_cast<DWORD>(n) ? 0 : ERR_WRITE_FAULT;
}

int64_t time_now() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    uint64_t ticks = uint64_t(ft.dwHighDateTime) << 32 | ft.dwLowDateTime;
    return static_cast<int64_t>((ticks - 116444736000000000ULL) / 10000000ULL);
}

std::string time_text(int64_t t) {
    __time64_t tt = t;
    struct tm tm;
    char text[32];
    if (_localtime64_s(&tm, &tt) || asctime_s(text, sizeof text, &tm)) return std::string();
    return text;
}

uint32_t host_version() {
    HMODULE program = GetModuleHandleW(nullptr);
    HRSRC found = FindResourceW(program, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16)); // RT_VERSION
    if (!found) return 0;
    HGLOBAL loaded = LoadResource(program, found);
    const auto* data = loaded ? static_cast<const unsigned char*>(LockResource(loaded)) : nullptr;
    if (!data || SizeofResource(program, found) < FIXED_INFO_OFFSET + FILE_VERSION_HIGH + 4)
        return 0;
    if (read_u32(data + FIXED_INFO_OFFSET) != FIXED_INFO_SIGNATURE) return 0;
    return read_u32(data + FIXED_INFO_OFFSET + FILE_VERSION_HIGH);
}

bool plat_user_language_swedish() {
    return PRIMARYLANGID(GetUserDefaultUILanguage()) == LANG_SWEDISH;
}

std::u16string plat_system_message(uint32_t error) {
    wchar_t* buffer = nullptr;
    DWORD n = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                 FORMAT_MESSAGE_ALLOCATE_BUFFER,
                             nullptr, error, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::u16string text;
    if (n && buffer) text.assign(reinterpret_cast<const char16_t*>(buffer), n);
    if (buffer) LocalFree(buffer);
    return text;
}

} // namespace tarn
