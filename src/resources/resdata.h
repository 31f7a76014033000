// Resource data built in memory field by field, little-endian, and written
// after its header in one write: the layouts stay visible in the code, and
// a resource costs the output a handful of writes whatever its size.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "diag/codes.h"
#include "resfile/writer.h"
#include "script/lexer.h"

namespace tarn {

struct ResData {
    uint32_t size() const { return uint32_t(used); }
    const uint8_t* data() const { return buffer.get(); }
    // Empty again, keeping the room.
    void clear() { used = 0; }
    // Room for n bytes more without growing, for a layout of known size.
    void reserve(size_t n) {
        if (capacity - used < n) grow(n);
    }
    void u8(uint8_t v) { *room(1) = v; }
    void u16(uint16_t v) { put16(room(2), v); }
    void u32(uint32_t v) {
        uint8_t* p = room(4);
        put16(p, uint16_t(v));
        put16(p + 2, uint16_t(v >> 16));
    }
    void raw(const uint8_t* p, size_t n) {
        if (n) std::memcpy(room(n), p, n);
    }
    // A zero-terminated UTF-16 string.
    void str(std::u16string_view s) {
        static_assert(std::endian::native == std::endian::little); // units as the file keeps them
        uint8_t* p = room(2 * (s.size() + 1));
        if (!s.empty()) std::memcpy(p, s.data(), 2 * s.size());
        put16(p + 2 * s.size(), 0);
    }
    void name(const NameOrOrdinal& n) {
        if (is_ordinal(n)) {
            u16(0xFFFF);
            u16(ordinal_of(n));
        } else {
            str(n.units);
        }
    }
    // Overwrites a 16-bit field written before, such as a length known only
    // once what it measures has been written.
    void set16(size_t at, uint16_t v) { put16(buffer.get() + at, v); }
    // Resource data start on a multiple of 4 of the file, so aligning the
    // data offset aligns the file position.
    void pad4() {
        while (used % 4) u8(0);
    }

  private:
    // Appended field by field, so a byte at a time through a vector costs
    // more than the layout: the buffer is kept by hand.
    std::unique_ptr<uint8_t[]> buffer;
    size_t used = 0;
    size_t capacity = 0;

    static uint8_t* put16(uint8_t* p, uint16_t v) {
        p[0] = uint8_t(v);
        p[1] = uint8_t(v >> 8);
        return p + 2;
    }
    uint8_t* room(size_t n) {
        if (capacity - used < n) grow(n);
        uint8_t* p = buffer.get() + used;
        used += n;
        return p;
    }
    void grow(size_t n) {
        size_t wanted = std::max(used + n, 2 * capacity + 64);
        std::unique_ptr<uint8_t[]> larger(new uint8_t[wanted]);
        if (used) std::memcpy(larger.get(), buffer.get(), used);
        buffer = std::move(larger);
        capacity = wanted;
    }
};

// Bytes of a zero-terminated UTF-16 string.
inline uint32_t string_size(std::u16string_view s) {
    return 2 * (uint32_t(s.size()) + 1);
}

// The current token's text up to its first zero unit, as the resource
// layouts store strings.
inline std::u16string token_string() {
    return std::u16string(token.text);
}

// A code that stops a resource's writing and reports nothing more.
constexpr uint32_t WRITE_SKIPPED = SEVERITY_ERROR;

// write_resource_header, except that in the extended dialect a resource of
// the same type, name and language as one already written is reported as an
// error naming the first one's place, and WRITE_SKIPPED comes back: the
// linker would reject such a file later, far from the cause. `last`: nothing
// is written after this resource that could repeat it, so it is not kept.
uint32_t write_header_checked(uint32_t data_size, const ResourceAttributes& attributes,
                              const NameOrOrdinal& type, const NameOrOrdinal& name,
                              bool last = false);

// Header, data, and the padding after the data. `data_size` is the size
// the header announces, which some layouts compute apart from what they
// write. Returns 0 or the writer's code with the fatal bit.
inline uint32_t write_resource(uint32_t data_size, const ResourceAttributes& attributes,
                               const NameOrOrdinal& type, const NameOrOrdinal& name,
                               const ResData& data) {
    uint32_t e = write_header_checked(data_size, attributes, type, name);
    if (!e && data.size()) e = write_bytes(data.data(), data.size());
    if (!e) e = pad_to_4(output_position());
    return e ? e | CODE_FATAL : 0;
}

} // namespace tarn
