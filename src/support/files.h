// File services over the platform layer. Each returns 0 or a Windows error
// number; reads and writes are exact (a short read is 30, a short write 29).
#pragma once

#include "support/platform.h"

#include <cstdint>

namespace tarn {

uint32_t file_open_read(const char16_t* path, FileHandle* out);
uint32_t file_create(const char16_t* path, FileHandle* out);
uint32_t file_read(FileHandle f, void* buffer, uint32_t n);
// Reads up to n bytes; *got receives the count (0 at the end of the file).
uint32_t file_read_some(FileHandle f, void* buffer, uint32_t n, uint32_t* got);
uint32_t file_write(FileHandle f, const void* buffer, uint32_t n);
uint32_t file_seek(FileHandle f, int64_t offset, SeekOrigin origin);
uint32_t file_position(FileHandle f, uint32_t* position);
uint32_t file_size(FileHandle f, uint32_t* size);
void file_close(FileHandle f);
uint32_t file_delete(const char16_t* path);

enum SignatureEncoding : int32_t {
    SIG_READ_FAILED = 0,
    SIG_NONE = 1, // no signature: the code page applies
    SIG_UTF8 = 2,
    SIG_UTF16LE = 3,
    SIG_UTF16BE = 4,
    SIG_UTF32LE = 5,
    SIG_UTF32BE = 6,
};
// Reads the first bytes and leaves the file just after the signature.
SignatureEncoding detect_signature(FileHandle f);

// Closes the file on every path out of a scope.
struct ScopedFile {
    FileHandle handle = nullptr;
    ScopedFile() = default;
    explicit ScopedFile(FileHandle h) : handle(h) {}
    ScopedFile(const ScopedFile&) = delete;
    ScopedFile& operator=(const ScopedFile&) = delete;
    ~ScopedFile() { if (handle) file_close(handle); }
    FileHandle release() { FileHandle h = handle; handle = nullptr; return h; }
};

} // namespace tarn
