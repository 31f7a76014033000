// The compiled resource (.res) writer. Every byte of the file goes through
// write_bytes, so the one place that knows about the output handle (and
// about dependency-collection mode, where a compile may run with no output
// at all) is here. Writes are gathered in a buffer and the position is kept
// here, so that a resource of many small fields costs no system call each.
#include "resfile/writer.h"

#include <cassert>
#include <vector>

#include "support/files.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr uint32_t HEADER_FIXED_SIZE = 24; // DataSize, HeaderSize, the 16 attribute bytes
constexpr uint32_t LEADING_ENTRY_SIZE = 32;
// Each write costs the file system more than its bytes' copy (the file's
// times, its journal), so few of them; but still within a core's cache when
// the kernel copies it out.
constexpr size_t OUTPUT_BUFFER_SIZE = 256 * 1024;
// Written behind, larger: each buffer handed over costs both threads a
// wake, and each write the file system's own work.
constexpr size_t BEHIND_BUFFER_SIZE = 1024 * 1024;

struct OutputBuffer {
    std::vector<uint8_t> pending;      // written to the file by flush_output
    size_t limit = OUTPUT_BUFFER_SIZE; // what pending holds at most
    uint32_t position = 0;             // of the next byte, pending bytes included
};
OutputBuffer output;

// Dependency collection without an output: writes vanish and succeed.
bool writes_vanish() {
    return compile_state.collect_dependencies != 0 && compile_state.output_file == nullptr;
}

uint8_t* put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    return p + 2;
}

uint8_t* put32(uint8_t* p, uint32_t v) {
    return put16(put16(p, uint16_t(v)), uint16_t(v >> 16));
}

// A name's bytes as the file holds them: its units, then the terminator
// of the string form; `name_size` of them.
uint8_t* put_name(uint8_t* p, const NameOrOrdinal& name) {
    if (is_ordinal(name)) return put16(put16(p, ORDINAL_MARK), ordinal_of(name));
    for (char16_t unit : name.units) p = put16(p, unit);
    return put16(p, 0);
}

// Up to this many bytes are laid out on the stack before one write.
constexpr size_t LOCAL_BYTES = 512;

// Writing behind: a thread of its own makes the system calls while the
// caller fills the next buffer. The two buffers change hands through the
// semaphores: `handed` when one waits to be written, `idle` when the thread
// has written it (and at the start).
struct WriteBehind {
    PlatThread* thread = nullptr;
    PlatSemaphore* handed = nullptr;
    PlatSemaphore* idle = nullptr;
    std::vector<uint8_t> writing; // the thread's, between `handed` and `idle`
    bool stop = false;
    uint32_t error = 0; // the first failure; read only while the thread is idle
};
WriteBehind behind;

// A stop asked for is the compile's thread to notice (nothing may be thrown
// here), so the thread writes without file_write's check for one.
void write_behind_body(void*) {
    for (;;) {
        plat_semaphore_wait(behind.handed);
        if (behind.stop) return;
        if (!behind.error) {
            uint32_t size = uint32_t(behind.writing.size()), put = 0;
            uint32_t e = plat_write(compile_state.output_file, behind.writing.data(), size, &put);
            behind.error = e ? e : put == size ? 0 : ERR_WRITE_FAULT;
        }
        plat_semaphore_post(behind.idle);
    }
}

// Waits until the thread has written what it was handed; its first failure.
uint32_t settle_behind() {
    plat_semaphore_wait(behind.idle);
    plat_semaphore_post(behind.idle);
    return behind.error;
}

} // namespace

// The buffer is larger from start to stop whether or not a thread takes
// the writes, so that where a failed write is noticed does not depend on it.
void start_writing_behind() {
    if (output.limit != OUTPUT_BUFFER_SIZE || !compile_state.output_file || writes_vanish()) return;
    output.limit = BEHIND_BUFFER_SIZE;
    output.pending.reserve(BEHIND_BUFFER_SIZE);
    behind.handed = plat_semaphore_create(0);
    behind.idle = plat_semaphore_create(1);
    if (behind.handed && behind.idle) {
        behind.writing.reserve(BEHIND_BUFFER_SIZE);
        behind.thread = plat_thread_start(write_behind_body, nullptr, "tarn-write");
    }
}

uint32_t stop_writing_behind() {
    uint32_t e = 0;
    if (behind.thread) {
        e = settle_behind();
        behind.stop = true;
        plat_semaphore_post(behind.handed);
        plat_thread_join(behind.thread);
    }
    plat_semaphore_destroy(behind.handed);
    plat_semaphore_destroy(behind.idle);
    behind = WriteBehind{};
    output.limit = OUTPUT_BUFFER_SIZE;
    return e;
}

uint32_t create_output(const char16_t* path) {
    if (!path) return 0;
    FileHandle f = nullptr;
    if (uint32_t e = plat_output_begin(path, &f)) return e;
    compile_state.output_file = f;
    output = OutputBuffer{};
    output.pending.reserve(OUTPUT_BUFFER_SIZE);
    return 0;
}

uint32_t write_leading_entry() {
    // DataSize 0, HeaderSize 32, TYPE and NAME ordinal 0, zero attributes.
    static const uint8_t entry[LEADING_ENTRY_SIZE] = {
        0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00,
        0xFF, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00,
    };
    return write_bytes(entry, sizeof entry);
}

uint32_t flush_output() {
    if (output.pending.empty()) return 0;
    if (behind.thread) {
        poll_abort(); // where file_write would
        plat_semaphore_wait(behind.idle);
        if (behind.error) {
            plat_semaphore_post(behind.idle);
            return behind.error;
        }
        behind.writing.swap(output.pending);
        output.pending.clear();
        plat_semaphore_post(behind.handed);
        return 0;
    }
    uint32_t e = file_write(compile_state.output_file, output.pending.data(),
                            uint32_t(output.pending.size()));
    output.pending.clear();
    return e;
}

void close_output() {
    if (!compile_state.output_file) return;
    stop_writing_behind();
    // Pending bytes are dropped: a compilation that succeeds has flushed and
    // checked them already, and a failed one keeps nothing.
    output = OutputBuffer{};
    file_close(compile_state.output_file);
    compile_state.output_file = nullptr;
}

uint32_t commit_output() {
    close_output();
    return plat_output_commit();
}

void discard_output() {
    close_output();
    plat_output_discard();
}

uint32_t write_bytes(const void* buffer, uint32_t count) {
    if (writes_vanish()) return 0;
    if (!compile_state.output_file) return ERR_INVALID_HANDLE;
    if (output.pending.size() + count > output.limit)
        if (uint32_t e = flush_output()) return e;
    if (count >= output.limit) {
        if (behind.thread)
            if (uint32_t e = settle_behind()) return e;
        if (uint32_t e = file_write(compile_state.output_file, buffer, count)) return e;
    } else {
        const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
        output.pending.insert(output.pending.end(), bytes, bytes + count);
    }
    output.position += count;
    return 0;
}

uint32_t write_u16(uint16_t v) {
    const uint8_t bytes[2] = {uint8_t(v), uint8_t(v >> 8)};
    return write_bytes(bytes, sizeof bytes);
}

uint32_t write_u32(uint32_t v) {
    const uint8_t bytes[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    return write_bytes(bytes, sizeof bytes);
}

// 0 without an output.
uint32_t output_position() {
    if (!compile_state.output_file) return 0;
    return output.position;
}

void reserve_output(uint64_t count) {
    if (!compile_state.output_file || writes_vanish()) return;
    plat_reserve(compile_state.output_file, output.position, count);
}

uint32_t pad_to_4(uint32_t value) {
    static const uint8_t zeros[3] = {0, 0, 0};
    uint32_t rest = value % 4;
    if (rest == 0) return 0;
    return write_bytes(zeros, 4 - rest);
}

uint32_t name_size(const NameOrOrdinal& name) {
    if (is_ordinal(name)) return 4;
    return 2 * (uint32_t(name.units.size()) + 1);
}

// One write for the whole name.
uint32_t write_name(const NameOrOrdinal& name) {
    uint32_t size = name_size(name);
    uint8_t local[LOCAL_BYTES];
    std::vector<uint8_t> large(size > sizeof local ? size : 0);
    uint8_t* bytes = size > sizeof local ? large.data() : local;
    [[maybe_unused]] uint8_t* end = put_name(bytes, name);
    assert(uint32_t(end - bytes) == size);
    return write_bytes(bytes, size);
}

uint32_t header_size(const NameOrOrdinal& type, const NameOrOrdinal& name) {
    uint32_t size = name_size(type) + name_size(name) + HEADER_FIXED_SIZE;
    assert(size % 2 == 0);
    return size % 4 ? size + 2 : size;
}

// The whole header laid out first, then one write.
uint32_t write_resource_header(uint32_t data_size, const ResourceAttributes& attributes,
                               const NameOrOrdinal& type, const NameOrOrdinal& name) {
    uint32_t size = header_size(type, name);
    uint8_t local[LOCAL_BYTES];
    std::vector<uint8_t> large(size > sizeof local ? size : 0);
    uint8_t* bytes = size > sizeof local ? large.data() : local;
    uint8_t* p = put32(put32(bytes, data_size), size);
    p = put_name(put_name(p, type), name);
    while ((p - bytes) % 4) *p++ = 0;
    p = put32(p, attributes.data_version);
    p = put16(p, attributes.memory_flags);
    p = put16(p, attributes.language);
    p = put32(p, attributes.version);
    p = put32(p, attributes.characteristics);
    assert(uint32_t(p - bytes) == size);
    return write_bytes(bytes, size);
}

uint32_t copy_file_rest(FileHandle input) {
    if (writes_vanish()) return 0;
    uint32_t size = 0, position = 0;
    if (uint32_t e = file_size(input, &size)) return e;
    if (uint32_t e = file_position(input, &position)) return e;
    uint32_t remaining = size > position ? size - position : 0;
    uint8_t buffer[COPY_BUFFER_SIZE];
    while (remaining > 0) {
        uint32_t n = remaining < COPY_BUFFER_SIZE ? remaining : COPY_BUFFER_SIZE;
        if (uint32_t e = file_read(input, buffer, n)) return e;
        if (uint32_t e = write_bytes(buffer, n)) return e;
        remaining -= n;
    }
    return 0;
}

} // namespace tarn
