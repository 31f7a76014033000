// Helpers of the resource tests: a builder of expected bytes that reads like
// the layouts, a reader that splits a .res file into its entries and checks
// their framing, and a fixture that compiles a script to entries or to its
// diagnostics.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "harness/harness.h"
#include <tarn/tarn.h>

namespace res_test {

using Lines = std::vector<std::string>;

// Little-endian fields appended in order; `str` is ASCII text as
// zero-terminated UTF-16, `text` raw bytes.
struct Bytes : std::vector<uint8_t> {
    static Bytes of(const std::string& s) { return Bytes().text(s); }
    Bytes& put(uint64_t x, int n) {
        for (int i = 0; i < n; i++) push_back(uint8_t(x >> 8 * i));
        return *this;
    }
    template <class... T> Bytes& u8(T... x) { return (put(uint64_t(x), 1), ..., *this); }
    template <class... T> Bytes& u16(T... x) { return (put(uint64_t(x), 2), ..., *this); }
    template <class... T> Bytes& u32(T... x) { return (put(uint64_t(x), 4), ..., *this); }
    Bytes& ord(uint16_t x) { return u16(0xFFFF, x); }
    Bytes& str(const std::string& s) {
        for (unsigned char c : s) u16(c);
        return u16(0);
    }
    Bytes& text(const std::string& s) { return insert(end(), s.begin(), s.end()), *this; }
    Bytes& bytes(const std::vector<uint8_t>& b) { return insert(end(), b.begin(), b.end()), *this; }
    Bytes& pad4() { return insert(end(), (4 - size() % 4) % 4, 0), *this; }
    std::string chars() const { return std::string(begin(), end()); }
};

inline uint16_t get16(const std::vector<uint8_t>& b, size_t at) {
    return uint16_t(b[at] | b[at + 1] << 8);
}
inline uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
    return get16(b, at) | uint32_t(get16(b, at + 2)) << 16;
}

// Names and types are read as "#n" for an ordinal, else as their text.
struct Entry {
    std::string type, name;
    uint16_t flags = 0, language = 0;
    uint32_t version = 0, characteristics = 0;
    std::vector<uint8_t> data;
};

inline std::string read_name(const std::vector<uint8_t>& b, size_t& at) {
    std::string s;
    if (get16(b, at) == 0xFFFF) return at += 4, s.append("#") += std::to_string(get16(b, at - 2));
    for (; get16(b, at); at += 2) s += char(get16(b, at));
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
        size_t p = at + 8, size = get32(b, at);
        e.type = read_name(b, p);
        e.name = read_name(b, p);
        p = (p + 3) / 4 * 4;
        EXPECT_EQ(get32(b, p), 0u); // the data version
        e.flags = get16(b, p + 4);
        e.language = get16(b, p + 6);
        e.version = get32(b, p + 8);
        e.characteristics = get32(b, p + 12);
        EXPECT_EQ(get32(b, at + 4), p + 16 - at); // the header size
        if ((p += 16) + size > b.size()) return ADD_FAILURE() << "data past the end", out;
        e.data.assign(b.begin() + long(p), b.begin() + long(p + size));
        for (p += size; p % 4; ++p)
            if (p >= b.size() || b[p]) return ADD_FAILURE() << "bad padding at " << p, out;
        out.push_back(e);
        at = p;
    }
    return out;
}

// "type name flags language" per entry, numbers in hex, then the version
// and characteristics where set.
inline Lines heads(const std::vector<Entry>& entries) {
    Lines out;
    for (const Entry& e : entries) {
        char s[64];
        int n = std::snprintf(s, sizeof s, " %04X %04X", e.flags, e.language);
        if (e.version || e.characteristics)
            std::snprintf(s + n, sizeof s - n, " v%u c%u", e.version, e.characteristics);
        out.push_back(e.type + " " + e.name + s);
    }
    return out;
}

// "line: text" per diagnostic ("-" without a file), without the line break.
inline Lines rendered(const std::vector<tarn_test::Diagnostic>& diags) {
    Lines out;
    for (const auto& d : diags)
        out.push_back((d.has_file ? std::to_string(d.line) : "-") + ": " +
                      d.text.substr(0, d.text.find_first_of("\r\n")));
    return out;
}

// The file records, oldest first: "type name language", and the path with
// forward slashes.
inline std::vector<std::pair<std::string, std::string>> records() {
    std::vector<std::pair<std::string, std::string>> out;
    enum_file_info_w(
        [](const char16_t* type, const char16_t* name, uint16_t language, const char16_t* path,
           uint64_t context) -> int32_t {
            auto text = [](const char16_t* n) {
                return n[0] == 0xFFFF ? std::string("#").append(std::to_string(n[1]))
                                      : tarn_test::u8(n);
            };
            char lang[8];
            std::snprintf(lang, sizeof lang, " %04X", language);
            std::string file = tarn_test::u8(path);
            std::replace(file.begin(), file.end(), '\\', '/');
            reinterpret_cast<decltype(out)*>(context)->push_back(
                {text(type) + " " + text(name) + lang, file});
            return 1;
        },
        reinterpret_cast<uint64_t>(&out));
    return out;
}

// What a script gives: the data of its entries (with these diagnostics), or
// a failure with these diagnostics and no output.
struct Outcome {
    bool ok = true;
    std::vector<Bytes> data;
    Lines diags;
};
inline Outcome gives(std::vector<Bytes> data, Lines diags = {}) {
    return {true, std::move(data), std::move(diags)};
}
inline Outcome fails(Lines diags) {
    return {false, {}, std::move(diags)};
}

// A script in the default dialect and in the extended one.
struct DialectCase {
    std::string script;
    Outcome standard, extended;
};

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
    void fresh() { reattach(), diags.clear(), info.clear(); }
    // Each script must fail with exactly its diagnostics.
    struct Failure {
        std::string script;
        Lines want;
    };
    void expect_dialects(const std::vector<DialectCase>& rows) {
        for (const DialectCase& row : rows)
            for (bool extended : {false, true}) {
                SCOPED_TRACE((extended ? "extended: " : "default: ") + row.script);
                fresh();
                if (extended) set_extended_mode();
                const Outcome& want = extended ? row.extended : row.standard;
                std::vector<uint8_t> res;
                EXPECT_EQ(compile(row.script, &res), want.ok ? 1 : 0);
                EXPECT_EQ(rendered(diags), want.diags);
                std::vector<Bytes> data;
                for (const Entry& e : want.ok ? read_res(res) : std::vector<Entry>{})
                    data.push_back(Bytes().bytes(e.data));
                EXPECT_EQ(data, want.data);
                EXPECT_TRUE(want.ok || res.empty());
            }
    }
    void expect_failures(const std::vector<Failure>& rows) {
        for (const Failure& row : rows) {
            SCOPED_TRACE(row.script);
            fresh();
            EXPECT_EQ(compile_fail(row.script), row.want);
        }
    }
};

} // namespace res_test
