// The .res parser and listing. Every read is bounds-checked against the
// buffer with 64-bit arithmetic, so that no size field, however large, can
// make it read outside.
#include "dump.h"

#include <cstdio>
#include <string_view>

#include "utf.h"

namespace tarn_driver {

namespace {

constexpr uint32_t LEADING_ENTRY_SIZE = 32;
constexpr uint32_t ATTRIBUTES_SIZE = 16;
constexpr uint16_t ORDINAL_MARK = 0xFFFF;
constexpr size_t HEX_ROW = 16;

const uint8_t LEADING_ENTRY[LEADING_ENTRY_SIZE] = {
    0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00,
};

const struct {
    uint16_t ordinal;
    const char* name;
} STANDARD_TYPES[] = {
    {1, "RT_CURSOR"},      {2, "RT_BITMAP"},     {3, "RT_ICON"},          {4, "RT_MENU"},
    {5, "RT_DIALOG"},      {6, "RT_STRING"},     {7, "RT_FONTDIR"},       {8, "RT_FONT"},
    {9, "RT_ACCELERATOR"}, {10, "RT_RCDATA"},    {11, "RT_MESSAGETABLE"}, {12, "RT_GROUP_CURSOR"},
    {14, "RT_GROUP_ICON"}, {16, "RT_VERSION"},   {17, "RT_DLGINCLUDE"},   {19, "RT_PLUGPLAY"},
    {20, "RT_VXD"},        {21, "RT_ANICURSOR"}, {22, "RT_ANIICON"},      {23, "RT_HTML"},
    {24, "RT_MANIFEST"},
};

uint64_t align4(uint64_t v) {
    return (v + 3) & ~uint64_t(3);
}

struct Reader {
    std::span<const uint8_t> bytes;
    uint16_t u16(uint64_t at) const { return uint16_t(bytes[at] | bytes[at + 1] << 8); }
    uint32_t u32(uint64_t at) const { return uint32_t(u16(at)) | uint32_t(u16(at + 2)) << 16; }
};

// The failure of a parse: what and where.
ResFile malformed(std::string why, uint64_t offset) {
    ResFile r;
    r.why = std::move(why);
    r.error_offset = offset;
    return r;
}

// Upper-case hexadecimal digits, at least `digits` of them, no prefix.
std::string hex_digits(uint64_t v, int digits) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "%0*llX", digits, static_cast<unsigned long long>(v));
    return buffer;
}

std::string hex(uint64_t v, int digits) {
    return cat({"0x", hex_digits(v, digits)});
}

// Reads a name or ordinal at *at, which must end by `limit`; returns an
// empty text on success, else what is wrong.
std::string read_name(const Reader& r, uint64_t* at, uint64_t limit, ResName* out,
                      const char* what) {
    if (*at + 2 > limit) return cat({what, " runs past the end of its header"});
    if (r.u16(*at) == ORDINAL_MARK) {
        if (*at + 4 > limit) return cat({what, " ordinal runs past the end of its header"});
        out->is_ordinal = true;
        out->ordinal = r.u16(*at + 2);
        *at += 4;
        return {};
    }
    for (; *at + 2 <= limit; *at += 2) {
        uint16_t unit = r.u16(*at);
        if (unit == 0) {
            *at += 2;
            return {};
        }
        out->text += char16_t(unit);
    }
    return cat({what, " name has no terminator within its header"});
}

// Parses the entry at `at`; on success fills `e` and returns an empty text.
std::string parse_entry(const Reader& r, uint64_t at, ResEntry* e, uint64_t* fault) {
    const uint64_t size = r.bytes.size();
    *fault = at;
    if (size - at < 8) return "file ends inside a resource header";
    e->offset = at;
    e->data_size = r.u32(at);
    e->header_size = r.u32(at + 4);
    *fault = at + 4;
    std::string header_size = cat({"header size ", hex(e->header_size, 0)});
    if (e->header_size % 4) return cat({header_size, " is not a multiple of 4"});
    uint64_t header_end = at + e->header_size;
    if (header_end > size) return cat({header_size, " runs past the end of the file"});
    uint64_t cursor = at + 8;
    *fault = cursor;
    if (std::string why = read_name(r, &cursor, header_end, &e->type, "type"); !why.empty())
        return why;
    *fault = cursor;
    if (std::string why = read_name(r, &cursor, header_end, &e->name, "name"); !why.empty())
        return why;
    uint64_t expected = align4(cursor - at) + ATTRIBUTES_SIZE;
    *fault = at + 4;
    if (e->header_size != expected)
        return cat({header_size, " does not match its fields (", hex(expected, 0), ")"});
    uint64_t attributes = at + align4(cursor - at);
    e->data_version = r.u32(attributes);
    e->memory_flags = r.u16(attributes + 4);
    e->language = r.u16(attributes + 6);
    e->version = r.u32(attributes + 8);
    e->characteristics = r.u32(attributes + 12);
    e->data_offset = header_end;
    *fault = at;
    if (e->data_size > size - header_end)
        return cat({"data size ", hex(e->data_size, 0), " runs past the end of the file"});
    *fault = header_end + e->data_size;
    if (align4(header_end + e->data_size) > size)
        return "file ends inside the padding after the data";
    return {};
}

std::string quoted(std::u16string_view text) {
    std::string out = "\"";
    for (char c : to_utf8(text)) {
        if (c == '"' || c == '\\') out += '\\';
        if (static_cast<unsigned char>(c) < 0x20) {
            out += cat({"\\x", hex_digits(static_cast<unsigned char>(c), 2)});
            continue;
        }
        out += c;
    }
    out += '"';
    return out;
}

void append_entry(std::string& out, size_t index, const ResEntry& e) {
    out +=
        cat({"#", std::to_string(index), "  type=", type_text(e.type), "  name=", name_text(e.name),
             "  language=", hex(e.language, 4), "  flags=", hex(e.memory_flags, 4)});
    if (e.data_version) out += cat({"  data-version=", hex(e.data_version, 8)});
    if (e.characteristics) out += cat({"  characteristics=", hex(e.characteristics, 8)});
    if (e.version) out += cat({"  version=", hex(e.version, 8)});
    out += cat({"  size=", std::to_string(e.data_size), "\n"});
}

} // namespace

ResFile parse_res(std::span<const uint8_t> bytes) {
    for (uint32_t i = 0; i < LEADING_ENTRY_SIZE && i < bytes.size(); ++i)
        if (bytes[i] != LEADING_ENTRY[i])
            return malformed("the first entry is not the 32-byte empty entry", i);
    if (bytes.size() < LEADING_ENTRY_SIZE)
        return malformed("file ends inside the leading empty entry", bytes.size());
    Reader r{bytes};
    ResFile res;
    for (uint64_t at = LEADING_ENTRY_SIZE; at < bytes.size();) {
        ResEntry e;
        uint64_t fault = 0;
        if (std::string why = parse_entry(r, at, &e, &fault); !why.empty())
            return malformed(std::move(why), fault);
        at = align4(e.data_offset + e.data_size);
        res.entries.push_back(std::move(e));
    }
    res.ok = true;
    return res;
}

std::string type_text(const ResName& type) {
    if (!type.is_ordinal) return quoted(type.text);
    for (const auto& t : STANDARD_TYPES)
        if (t.ordinal == type.ordinal) return cat({t.name, "(", std::to_string(t.ordinal), ")"});
    return std::to_string(type.ordinal);
}

std::string name_text(const ResName& name) {
    return name.is_ordinal ? std::to_string(name.ordinal) : quoted(name.text);
}

std::string hex_dump(std::span<const uint8_t> data) {
    std::string out;
    for (size_t row = 0; row < data.size(); row += HEX_ROW) {
        std::string ascii;
        out += cat({"    ", hex_digits(row, 8), " "});
        for (size_t k = row; k < row + HEX_ROW; ++k) {
            if (k == row + HEX_ROW / 2) out += " ";
            if (k >= data.size()) {
                out += "   ";
                continue;
            }
            out += cat({" ", hex_digits(data[k], 2)});
            ascii += data[k] >= 0x20 && data[k] < 0x7F ? char(data[k]) : '.';
        }
        out += cat({"  |", ascii, "|\n"});
    }
    return out;
}

std::string format_listing(const ResFile& res, std::span<const uint8_t> bytes, bool hex) {
    std::string out;
    for (size_t i = 0; i < res.entries.size(); ++i) {
        const ResEntry& e = res.entries[i];
        append_entry(out, i + 1, e);
        if (hex) out += hex_dump(bytes.subspan(e.data_offset, e.data_size));
    }
    return out;
}

} // namespace tarn_driver
