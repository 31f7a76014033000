// Helpers of the resource tests: a builder of expected bytes that reads like
// the layouts, a reader that splits a .res file into its entries and checks
// their framing, and a fixture that compiles a script to entries or to its
// diagnostics.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "harness/harness.h"
#include <tarn/tarn.h>

namespace res_test {

using Lines = std::vector<std::string>;

// Little-endian fields appended in order.
struct Bytes : std::vector<uint8_t> {
    Bytes& put(uint64_t x, int n) {
        for (int i = 0; i < n; i++) push_back(uint8_t(x >> 8 * i));
        return *this;
    }
    template <class... T> Bytes& u8(T... x) { return (put(uint64_t(x), 1), ..., *this); }
    template <class... T> Bytes& u16(T... x) { return (put(uint64_t(x), 2), ..., *this); }
    template <class... T> Bytes& u32(T... x) { return (put(uint64_t(x), 4), ..., *this); }
    Bytes& ord(uint16_t x) { return u16(0xFFFF, x); }
    // ASCII text as zero-terminated UTF-16.
    Bytes& str(const std::string& s) {
        for (unsigned char c : s) u16(c);
        return u16(0);
    }
    Bytes& text(const std::string& s) { return insert(end(), s.begin(), s.end()), *this; }
    Bytes& pad4() { return insert(end(), (4 - size() % 4) % 4, 0), *this; }
};

inline Bytes bytes(const std::string& s) {
    return Bytes().text(s);
}

// A name or type as the reader gives it: an ordinal is 0xFFFF and the number.
inline std::u16string ord(uint16_t n) {
    return {char16_t(0xFFFF), char16_t(n)};
}

inline uint16_t get16(const std::vector<uint8_t>& b, size_t at) {
    return uint16_t(b[at] | b[at + 1] << 8);
}
inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
    return get16(b, at) | uint32_t(get16(b, at + 2)) << 16;
}

struct Entry {
    std::u16string type, name;
    uint32_t data_version = 0, version = 0, characteristics = 0;
    uint16_t flags = 0, language = 0;
    std::vector<uint8_t> data;
};

inline std::u16string read_name(const std::vector<uint8_t>& b, size_t& at) {
    if (get16(b, at) == 0xFFFF) return at += 4, ord(get16(b, at - 2));
    std::u16string s;
    for (; get16(b, at); at += 2) s += char16_t(get16(b, at));
    return at += 2, s;
}

// The entries after the leading empty one; headers, alignment and padding
// must be as the format says.
inline std::vector<Entry> read_res(const std::vector<uint8_t>& b) {
    std::vector<Entry> out;
    const Bytes leading = Bytes().u32(0, 32).ord(0).ord(0).u32(0, 0, 0, 0);
    if (b.size() < 32 || !std::equal(leading.begin(), leading.end(), b.begin()))
        return ADD_FAILURE() << "no leading entry", out;
    for (size_t at = 32; at < b.size();) {
        Entry e;
        uint32_t data_size = get32(b, at), header_size = get32(b, at + 4);
        size_t p = at + 8;
        e.type = read_name(b, p);
        e.name = read_name(b, p);
        p = (p + 3) / 4 * 4;
        e.data_version = get32(b, p);
        e.flags = get16(b, p + 4);
        e.language = get16(b, p + 6);
        e.version = get32(b, p + 8);
        e.characteristics = get32(b, p + 12);
        p += 16;
        EXPECT_EQ(header_size, p - at);
        if (p + data_size > b.size()) return ADD_FAILURE() << "data past the end", out;
        e.data.assign(b.begin() + long(p), b.begin() + long(p + data_size));
        for (p += data_size; p % 4; ++p)
            if (p >= b.size() || b[p]) return ADD_FAILURE() << "bad padding at " << p, out;
        out.push_back(e);
        at = p;
    }
    return out;
}

// "line: text" per diagnostic ("-" without a file), without the line break.
inline Lines rendered(const std::vector<tarn_test::Diagnostic>& diags) {
    Lines out;
    for (const auto& d : diags) {
        std::string text = d.text.substr(0, d.text.find_first_of("\r\n"));
        out.push_back((d.has_file ? std::to_string(d.line) : "-") + ": " + text);
    }
    return out;
}

struct Record {
    std::u16string type, name, path;
    uint16_t language;
};
// The file records, oldest first.
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

class ResTest : public tarn_test::FreshLibrary {
  protected:
    // A script that compiles with exactly these diagnostics; its entries.
    std::vector<Entry> compile_ok(const std::string& script, const Lines& want = {}) {
        std::vector<uint8_t> res;
        EXPECT_EQ(compile(script, &res), 1) << script;
        EXPECT_EQ(rendered(diags), want);
        return read_res(res);
    }
    // A script that fails and writes nothing; its diagnostics.
    Lines compile_fail(const std::string& script) {
        std::vector<uint8_t> res;
        EXPECT_EQ(compile(script, &res), 0) << script;
        EXPECT_TRUE(res.empty());
        return rendered(diags);
    }
    // A just-loaded library for the next row of a table.
    void fresh() {
        reattach();
        diags.clear();
        info.clear();
    }
    // Each script must fail with exactly its diagnostics.
    struct Failure {
        std::string script;
        Lines want;
    };
    void expect_failures(const std::vector<Failure>& rows) {
        for (const Failure& row : rows) {
            SCOPED_TRACE(row.script);
            fresh();
            EXPECT_EQ(compile_fail(row.script), row.want);
        }
    }
};

} // namespace res_test
