// Helpers of the tests of the resource kinds: a builder of expected bytes
// that reads like the layouts, a reader that splits a .res file into its
// entries, and a count of diagnostics by text.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "harness/harness.h"

namespace kinds_test {

struct Bytes {
    std::vector<uint8_t> v;

    Bytes& u8(uint8_t x) {
        v.push_back(x);
        return *this;
    }
    Bytes& u16(uint16_t x) { return u8(uint8_t(x)).u8(uint8_t(x >> 8)); }
    Bytes& u32(uint32_t x) { return u16(uint16_t(x)).u16(uint16_t(x >> 16)); }
    Bytes& i32(int32_t x) { return u32(uint32_t(x)); }
    // A zero-terminated UTF-16 string (ASCII text).
    Bytes& str(const std::string& s) {
        for (unsigned char c : s) u16(c);
        return u16(0);
    }
    Bytes& ord(uint16_t x) { return u16(0xFFFF).u16(x); }
    Bytes& raw(const std::vector<uint8_t>& b) {
        v.insert(v.end(), b.begin(), b.end());
        return *this;
    }
    Bytes& text(const std::string& s) {
        v.insert(v.end(), s.begin(), s.end());
        return *this;
    }
    Bytes& zeros(size_t n) {
        v.insert(v.end(), n, 0);
        return *this;
    }
    Bytes& pad4() { return zeros((4 - v.size() % 4) % 4); }
    size_t size() const { return v.size(); }
    std::string chars() const { return std::string(v.begin(), v.end()); }
};

// An ordinal as the reader gives names and types.
inline std::u16string ord(uint16_t x) {
    return std::u16string{char16_t(0xFFFF), char16_t(x)};
}
inline std::u16string name(const std::string& s) {
    return std::u16string(s.begin(), s.end());
}

struct ResEntry {
    uint32_t data_size = 0;
    uint32_t header_size = 0;
    std::u16string type, name;
    uint32_t data_version = 0;
    uint16_t flags = 0, language = 0;
    uint32_t version = 0, characteristics = 0;
    std::vector<uint8_t> data; // data_size bytes
};

inline uint16_t get16(const std::vector<uint8_t>& b, size_t at) {
    return uint16_t(b[at] | b[at + 1] << 8);
}
inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
    return get16(b, at) | uint32_t(get16(b, at + 2)) << 16;
}

inline std::u16string read_name(const std::vector<uint8_t>& b, size_t& at) {
    if (get16(b, at) == 0xFFFF) {
        at += 4;
        return ord(get16(b, at - 2));
    }
    std::u16string s;
    for (; get16(b, at); at += 2) s += char16_t(get16(b, at));
    at += 2;
    return s;
}

// The entries after the leading empty one; each must be framed and padded
// as the format says.
inline std::vector<ResEntry> read_res(const std::vector<uint8_t>& file) {
    std::vector<ResEntry> out;
    if (file.size() < 32) {
        ADD_FAILURE() << "no leading entry";
        return out;
    }
    size_t at = 32;
    while (at < file.size()) {
        ResEntry e;
        if (at + 8 > file.size()) {
            ADD_FAILURE() << "truncated header at " << at;
            break;
        }
        e.data_size = get32(file, at);
        e.header_size = get32(file, at + 4);
        size_t p = at + 8;
        e.type = read_name(file, p);
        e.name = read_name(file, p);
        size_t attributes = at + e.header_size - 16;
        e.data_version = get32(file, attributes);
        e.flags = get16(file, attributes + 4);
        e.language = get16(file, attributes + 6);
        e.version = get32(file, attributes + 8);
        e.characteristics = get32(file, attributes + 12);
        size_t data = at + e.header_size;
        if (data + e.data_size > file.size()) {
            ADD_FAILURE() << "data past the end at " << at;
            break;
        }
        e.data.assign(file.begin() + long(data), file.begin() + long(data + e.data_size));
        at = (data + e.data_size + 3) / 4 * 4;
        for (size_t i = data + e.data_size; i < at && i < file.size(); i++)
            EXPECT_EQ(file[i], 0) << "padding at " << i;
        out.push_back(e);
    }
    return out;
}

// A header as the writer builds it, for tests that compare whole files.
inline Bytes header(uint32_t data_size, uint16_t type, uint16_t name_ordinal, uint16_t flags,
                    uint16_t language = 0x0409) {
    return Bytes()
        .u32(data_size)
        .u32(32)
        .ord(type)
        .ord(name_ordinal)
        .u32(0)
        .u16(flags)
        .u16(language)
        .u32(0)
        .u32(0);
}

inline std::vector<uint8_t> leading_entry() {
    return Bytes().u32(0).u32(32).ord(0).ord(0).zeros(16).v;
}

// How many diagnostics of that severity contain the text.
inline int count(const std::vector<tarn_test::Diagnostic>& diags, int32_t severity,
                 const std::string& text) {
    int n = 0;
    for (const auto& d : diags)
        if (d.severity == severity && d.text.find(text) != std::string::npos) n++;
    return n;
}

constexpr int32_t SEV_WARNING = 0, SEV_ERROR = 1, SEV_FATAL = 2;

} // namespace kinds_test
