// Helpers for the statement tests: a .res reader that checks the framing
// (header sizes, 4-byte alignment, zero padding) and yields the entries, and
// a compact rendering of the recorded diagnostics.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "harness/harness.h"
#include <tarn/tarn.h>

namespace tarn_test {

using Bytes = std::vector<uint8_t>;

struct ResEntry {
    std::u16string type; // u"\xFFFF\x0006" for an ordinal
    std::u16string name;
    uint32_t data_version = 0;
    uint16_t memory_flags = 0;
    uint16_t language = 0;
    uint32_t version = 0;
    uint32_t characteristics = 0;
    Bytes data;
};

inline std::u16string ord(uint16_t n) {
    return std::u16string{char16_t(0xFFFF), char16_t(n)};
}

inline uint32_t le32(const Bytes& b, size_t at) {
    return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 |
           uint32_t(b[at + 3]) << 24;
}
inline uint16_t le16(const Bytes& b, size_t at) {
    return uint16_t(b[at] | b[at + 1] << 8);
}

// NAME or TYPE at `at`; advances `at`.
inline std::u16string read_name(const Bytes& b, size_t& at) {
    std::u16string s;
    if (le16(b, at) == 0xFFFF) {
        s = ord(le16(b, at + 2));
        at += 4;
        return s;
    }
    for (; le16(b, at) != 0; at += 2) s.push_back(char16_t(le16(b, at)));
    at += 2;
    return s;
}

// The entries after the 32-byte leading one.
inline std::vector<ResEntry> parse_res(const Bytes& b) {
    std::vector<ResEntry> out;
    const Bytes leading = {0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0,
                           0, 0, 0, 0, 0,    0, 0, 0, 0,    0,    0, 0, 0,    0,    0, 0};
    if (b.size() < 32 || !std::equal(leading.begin(), leading.end(), b.begin())) {
        ADD_FAILURE() << "no leading entry";
        return out;
    }
    size_t at = 32;
    while (at < b.size()) {
        EXPECT_EQ(at % 4, 0u);
        ResEntry e;
        uint32_t data_size = le32(b, at), header_size = le32(b, at + 4);
        size_t p = at + 8;
        e.type = read_name(b, p);
        e.name = read_name(b, p);
        if ((p - at) % 4) p += 2;
        e.data_version = le32(b, p);
        e.memory_flags = le16(b, p + 4);
        e.language = le16(b, p + 6);
        e.version = le32(b, p + 8);
        e.characteristics = le32(b, p + 12);
        p += 16;
        EXPECT_EQ(header_size, p - at);
        if (p + data_size > b.size()) {
            ADD_FAILURE() << "data past the end";
            return out;
        }
        e.data.assign(b.begin() + long(p), b.begin() + long(p + data_size));
        p += data_size;
        for (; p % 4; ++p) {
            EXPECT_LT(p, b.size()) << "padding missing";
            if (p < b.size()) {
                EXPECT_EQ(b[p], 0) << "padding not zero";
            }
        }
        out.push_back(e);
        at = p;
    }
    return out;
}

inline Bytes u16le(const std::u16string& s) {
    Bytes out;
    for (char16_t c : s) out.push_back(uint8_t(c)), out.push_back(uint8_t(c >> 8));
    return out;
}

// "line: text" per diagnostic, without the line break that ends each text;
// a diagnostic without a file shows "-" for its line.
inline std::vector<std::string> rendered(const std::vector<Diagnostic>& diags) {
    std::vector<std::string> out;
    for (const Diagnostic& d : diags) {
        std::string text = d.text;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        out.push_back((d.has_file ? std::to_string(d.line) : std::string("-")) + ": " + text);
    }
    return out;
}

using Lines = std::vector<std::string>;

struct Record {
    std::u16string type, name, path;
    uint16_t language;
};
// The file records, oldest first (ordinal names as their two units).
inline std::vector<Record> records() {
    std::vector<Record> out;
    enum_file_info_w(
        [](const char16_t* type, const char16_t* name, uint16_t language, const char16_t* path,
           uint64_t context) -> int32_t {
            auto take = [](const char16_t* n) {
                return n[0] == 0xFFFF ? std::u16string(n, 2) : std::u16string(n);
            };
            reinterpret_cast<std::vector<Record>*>(context)->push_back(
                {take(type), take(name), path, language});
            return 1;
        },
        reinterpret_cast<uint64_t>(&out));
    return out;
}

} // namespace tarn_test
