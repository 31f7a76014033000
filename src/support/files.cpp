// File services over the platform layer: exact reads and writes, and the
// detection of a file's Unicode signature. Reads and writes are where a
// long statement spends its time, so they are where a stop is noticed.
#include "support/files.h"

#include "support/state.h"

namespace tarn {

uint32_t file_open_read(const char16_t* path, FileHandle* out) {
    return plat_open_read(path, out);
}

uint32_t file_create(const char16_t* path, FileHandle* out) {
    return plat_create(path, out);
}

uint32_t file_read(FileHandle f, void* buffer, uint32_t n) {
    poll_abort();
    uint32_t got = 0;
    uint32_t e = plat_read(f, buffer, n, &got);
    if (e) return e;
    return got == n ? 0 : ERR_READ_FAULT;
}

uint32_t file_read_some(FileHandle f, void* buffer, uint32_t n, uint32_t* got) {
    *got = 0;
    poll_abort();
    return plat_read(f, buffer, n, got);
}

uint32_t file_write(FileHandle f, const void* buffer, uint32_t n) {
    poll_abort();
    uint32_t put = 0;
    uint32_t e = plat_write(f, buffer, n, &put);
    if (e) return e;
    return put == n ? 0 : ERR_WRITE_FAULT;
}

uint32_t file_seek(FileHandle f, int64_t offset, SeekOrigin origin) {
    return plat_seek(f, offset, origin, nullptr);
}

uint32_t file_position(FileHandle f, uint32_t* position) {
    return plat_seek(f, 0, SeekOrigin::current, position);
}

uint32_t file_size(FileHandle f, uint32_t* size) {
    return plat_size(f, size);
}

void file_close(FileHandle f) {
    plat_close(f);
}

uint32_t file_delete(const char16_t* path) {
    return plat_delete(path);
}

SignatureEncoding detect_signature(FileHandle f) {
    unsigned char b[4];
    uint32_t got = 0;
    if (plat_read(f, b, 4, &got)) return SIG_READ_FAILED;
    // UTF-32 first: a UTF-16LE file starting with U+0000 is taken for UTF-32LE.
    if (got == 4 && b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 && b[3] == 0) return SIG_UTF32LE;
    if (got == 4 && b[0] == 0 && b[1] == 0 && b[2] == 0xFE && b[3] == 0xFF) return SIG_UTF32BE;
    SignatureEncoding found = SIG_NONE;
    int64_t start = 0;
    if (got >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
        found = SIG_UTF8;
        start = 3;
    } else if (got >= 2 && b[0] == 0xFF && b[1] == 0xFE) {
        found = SIG_UTF16LE;
        start = 2;
    } else if (got >= 2 && b[0] == 0xFE && b[1] == 0xFF) {
        found = SIG_UTF16BE;
        start = 2;
    }
    if (plat_seek(f, start, SeekOrigin::begin, nullptr)) return SIG_READ_FAILED;
    return found;
}

} // namespace tarn
