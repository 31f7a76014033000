// The platform layer: every operating-system call of the library goes
// through here. platform_win.cpp implements it with the Windows API,
// platform_posix.cpp with POSIX and glibc. Everything above is portable.
//
// Errors are Windows error numbers on both (errno is mapped on POSIX), so
// that diagnostics and their texts are the same everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tarn {

// Windows error numbers the library relies on.
constexpr uint32_t ERR_FILE_NOT_FOUND = 2;
constexpr uint32_t ERR_PATH_NOT_FOUND = 3;
constexpr uint32_t ERR_ACCESS_DENIED = 5;
constexpr uint32_t ERR_INVALID_HANDLE = 6; // also: any file call given a null handle
constexpr uint32_t ERR_OUT_OF_MEMORY = 14;
constexpr uint32_t ERR_WRITE_FAULT = 29;
constexpr uint32_t ERR_READ_FAULT = 30;
constexpr uint32_t ERR_SHARING_VIOLATION = 32;
constexpr uint32_t ERR_HANDLE_EOF = 38;
constexpr uint32_t ERR_OPEN_FAILED = 110; // a device, pipe or pseudo-file named as a file
constexpr uint32_t ERR_NO_UNICODE_TRANSLATION = 1113;

using FileHandle = void*; // null: no file

enum class SeekOrigin { begin, current, end };

// Files. Each returns 0 or an error number.
uint32_t plat_open_read(const char16_t* path, FileHandle* out); // shared for reading
uint32_t plat_create(const char16_t* path, FileHandle* out);    // replace, read-write, not shared
uint32_t plat_read(FileHandle f, void* buffer, uint32_t n, uint32_t* got);
uint32_t plat_write(FileHandle f, const void* buffer, uint32_t n, uint32_t* put);
uint32_t plat_seek(FileHandle f, int64_t offset, SeekOrigin origin, uint32_t* position);
uint32_t plat_size(FileHandle f, uint32_t* size);
// Asks the file system to allocate `length` bytes from `offset` for writes
// to come, without changing the file's size. A hint: nothing changes when
// it cannot.
void plat_reserve(FileHandle f, uint64_t offset, uint64_t length);
void plat_close(FileHandle f);
// Refuses (as Windows does) a file open here or in another compile, a
// read-only file, and anything that is not a plain file.
uint32_t plat_delete(const char16_t* path);

// The compiled output. It is written under a temporary name beside the file
// it replaces and takes that file's name only when plat_output_commit is
// called, so a failed or stopped compile never writes into the named file, and
// of several compiles into one name each success leaves a whole file. The
// named file is held as a file being written is on Windows: an existing one
// must be writable and not in use, and no one may read it meanwhile. A
// device (the null device, a pipe) is written in place. One output at a time.
uint32_t plat_output_begin(const char16_t* path, FileHandle* out);
// After the handle is closed: puts the temporary file in place.
uint32_t plat_output_commit();
// Removes the temporary file, if any, and the plain file it would have
// replaced, unless the compile tried to read that file (then it is a source
// named as the output, and stays).
void plat_output_discard();
// Whether anything exists under the name. On POSIX "\" separates like "/",
// and a name that differs only in letter case is taken when the exact one is
// missing, as a Windows user expects of file names.
bool plat_exists(const char16_t* path);
// The name under which plat_open_read finds the file: on POSIX the path with
// "/" separators and each component in the case found on disk; on Windows
// the path as given.
std::u16string plat_resolve(const char16_t* path);
// The path made absolute against the current directory; empty on failure.
std::u16string plat_absolute(const char16_t* path);
std::u16string plat_current_directory();

// Caches (the extended dialect's saved header state). A file's size, last
// change and identity, to tell that it is still the file read before;
// false when the file cannot be asked about.
struct FileStamp {
    uint64_t size = 0;
    int64_t modified = 0; // nanoseconds, or the system's finest unit
    uint64_t id = 0;      // device and file number where the system has them
    // The existing file that the running compile replaces; not kept, as
    // it holds for this compile only.
    bool replaced_output = false;
};
bool plat_file_stamp(const char16_t* path, FileStamp* out);
#if defined(_WIN32)
// Whether the file is the existing one that the running compile replaces
// (for the stamp; POSIX compares the stamp's own file numbers).
bool plat_output_holds(const char16_t* path);
#endif
// The folder for caches: $TARN_CACHE_DIR (empty: no caching), else the
// user's cache folder with "tarn" added; empty when there is none.
std::u16string plat_cache_directory();
// A whole small file of 16-bit units; false when it cannot be read or has
// an odd size.
bool plat_read_whole(const char16_t* path, std::unique_ptr<char16_t[]>* units, size_t* count);
// Writes a whole file under a temporary name and renames it into place,
// making the folder first; false on any failure (nothing is left behind).
bool plat_write_whole(const char16_t* path, std::string_view bytes);
// Changes whenever the library's own file does (a rebuilt or updated library).
uint64_t plat_library_stamp();

// Threads (the preprocessor reads ahead on one of its own) and counting
// semaphores to hand work between two. A start or a create returns null
// when the system has none to give; the caller then goes on without.
struct PlatThread;
struct PlatSemaphore;
constexpr size_t THREAD_STACK_BYTES = size_t(8) << 20;
// The name (at most 15 characters) is what debuggers and profilers show,
// where the system keeps one.
PlatThread* plat_thread_start(void (*body)(void*), void* arg, const char* name);
void plat_thread_join(PlatThread* t); // and frees it; null is ignored
PlatSemaphore* plat_semaphore_create(uint32_t initial);
void plat_semaphore_destroy(PlatSemaphore* s); // null is ignored
void plat_semaphore_post(PlatSemaphore* s);
void plat_semaphore_wait(PlatSemaphore* s);

// The environment variable of that name, whatever the case of its letters.
bool plat_getenv(std::u16string_view name, std::u16string* value);

// Code pages, with the semantics of MultiByteToWideChar and
// WideCharToMultiByte with flags 0: undecodable input becomes a replacement
// character and unmappable characters the code page's default character.
uint32_t plat_ansi_code_page();
uint32_t plat_oem_code_page();
bool plat_valid_code_page(uint32_t code_page);
// Returns the units written (0 on failure, or when room is too small); with
// `out` null, the units needed.
size_t plat_to_utf16(uint32_t code_page, const char* bytes, size_t n, char16_t* out, size_t room);
// Returns the bytes written (0 on failure, or when room is too small); with
// `out` null, the bytes needed.
size_t plat_from_utf16(uint32_t code_page, const char16_t* text, size_t n, char* out, size_t room);

// Character classes of the platform's user-interface services.
bool plat_is_alpha(char16_t c);        // IsCharAlphaW
bool plat_is_alphanumeric(char16_t c); // IsCharAlphaNumericW
char16_t plat_upper(char16_t c);       // CharUpperW on one character

// Console: handle 1 is standard output, 2 standard error. A console gets
// UTF-16; a pipe or file gets the console output code page (UTF-8 on POSIX).
uint32_t console_write(int handle, std::u16string_view text);

// Seconds since the Unix epoch, and the C library's local-time text
// ("Www Mmm dd hh:mm:ss yyyy\n").
int64_t time_now();
std::string time_text(int64_t t);

// File version of the main program (not this library): major << 16 | minor,
// or 0 when it has none. Windows reads the program's version resource; POSIX
// has none and looks for the program's exported variable
// `tarn_host_file_version` (a uint32_t in the same form) instead.
uint32_t host_version();

// True when the user's interface language is Swedish.
bool plat_user_language_swedish();

// The system's own text for an error number, ending in CR LF; empty when it
// has none.
std::u16string plat_system_message(uint32_t error);

} // namespace tarn
