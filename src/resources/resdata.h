// Resource data built in memory field by field, little-endian, and written
// after its header in one write: the layouts stay visible in the code, and
// a resource costs the output a handful of writes whatever its size.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "diag/codes.h"
#include "resfile/writer.h"
#include "script/lexer.h"

namespace tarn {

struct ResData {
    std::vector<uint8_t> bytes;

    uint32_t size() const { return uint32_t(bytes.size()); }
    void u8(uint8_t v) { bytes.push_back(v); }
    void u16(uint16_t v) {
        u8(uint8_t(v));
        u8(uint8_t(v >> 8));
    }
    void u32(uint32_t v) {
        u16(uint16_t(v));
        u16(uint16_t(v >> 16));
    }
    void raw(const uint8_t* p, size_t n) { bytes.insert(bytes.end(), p, p + n); }
    // A zero-terminated UTF-16 string.
    void str(std::u16string_view s) {
        for (char16_t c : s) u16(c);
        u16(0);
    }
    void name(const NameOrOrdinal& n) {
        if (is_ordinal(n)) {
            u16(0xFFFF);
            u16(ordinal_of(n));
        } else {
            str(n.units);
        }
    }
    // Resource data start on a multiple of 4 of the file, so aligning the
    // data offset aligns the file position.
    void pad4() {
        while (bytes.size() % 4) u8(0);
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

// Header, data, and the padding after the data. `data_size` is the size
// the header announces, which some layouts compute apart from what they
// write. Returns 0 or the writer's code with the fatal bit.
inline uint32_t write_resource(uint32_t data_size, const ResourceAttributes& attributes,
                               const NameOrOrdinal& type, const NameOrOrdinal& name,
                               const ResData& data) {
    uint32_t e = write_resource_header(data_size, attributes, type, name);
    if (!e && data.size()) e = write_bytes(data.bytes.data(), data.size());
    if (!e) e = pad_to_4(output_position());
    return e ? e | CODE_FATAL : 0;
}

} // namespace tarn
