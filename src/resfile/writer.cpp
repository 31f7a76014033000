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
constexpr size_t OUTPUT_BUFFER_SIZE = 65536;

struct OutputBuffer {
    std::vector<uint8_t> pending; // written to the file by flush_output
    uint32_t position = 0;        // of the next byte, pending bytes included
};
OutputBuffer output;

// Dependency collection without an output: writes vanish and succeed.
bool writes_vanish() {
    return compile_state.collect_dependencies != 0 && compile_state.output_file == nullptr;
}

uint32_t write_attributes(const ResourceAttributes& a) {
    if (uint32_t e = write_u32(a.data_version)) return e;
    if (uint32_t e = write_u16(a.memory_flags)) return e;
    if (uint32_t e = write_u16(a.language)) return e;
    if (uint32_t e = write_u32(a.version)) return e;
    return write_u32(a.characteristics);
}

} // namespace

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
    uint32_t e = file_write(compile_state.output_file, output.pending.data(),
                            uint32_t(output.pending.size()));
    output.pending.clear();
    return e;
}

void close_output() {
    if (!compile_state.output_file) return;
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
    if (output.pending.size() + count > OUTPUT_BUFFER_SIZE)
        if (uint32_t e = flush_output()) return e;
    if (count >= OUTPUT_BUFFER_SIZE) {
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

// One write for the whole name: its units little-endian, then the
// terminator of the string form; a usual name is laid out on the stack.
uint32_t write_name(const NameOrOrdinal& name) {
    const char16_t ordinal[2] = {char16_t(ORDINAL_MARK), char16_t(ordinal_of(name))};
    std::u16string_view units = is_ordinal(name) ? std::u16string_view(ordinal, 2) : name.units;
    uint32_t size = name_size(name);
    uint8_t local[256];
    std::vector<uint8_t> large;
    uint8_t* bytes = local;
    if (size > sizeof local) {
        large.resize(size);
        bytes = large.data();
    }
    uint8_t* p = bytes;
    for (char16_t unit : units) {
        *p++ = uint8_t(unit);
        *p++ = uint8_t(unit >> 8);
    }
    if (!is_ordinal(name)) *p++ = 0, *p++ = 0;
    assert(uint32_t(p - bytes) == size);
    return write_bytes(bytes, size);
}

uint32_t header_size(const NameOrOrdinal& type, const NameOrOrdinal& name) {
    uint32_t size = name_size(type) + name_size(name) + HEADER_FIXED_SIZE;
    assert(size % 2 == 0);
    return size % 4 ? size + 2 : size;
}

uint32_t write_resource_header(uint32_t data_size, const ResourceAttributes& attributes,
                               const NameOrOrdinal& type, const NameOrOrdinal& name) {
    uint32_t unpadded = 8 + name_size(type) + name_size(name);
    if (uint32_t e = write_u32(data_size)) return e;
    if (uint32_t e = write_u32(header_size(type, name))) return e;
    if (uint32_t e = write_name(type)) return e;
    if (uint32_t e = write_name(name)) return e;
    if (uint32_t e = pad_to_4(unpadded)) return e;
    return write_attributes(attributes);
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
