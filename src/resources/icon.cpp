// ICON and CURSOR: an icon or cursor file, or the same bytes written inline
// as hex strings, becomes one image resource per image, each named by the
// process-wide image_ordinal_counter, and a group resource under the
// statement's name that lists the images. Every read is bounded by the
// image or the inline bytes, whatever the directory says.
#include <cstring>
#include <string>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "support/files.h"
#include "support/state.h"

namespace tarn {

namespace {

// Lives as long as the library: ordinals keep rising across compilations.
uint16_t image_ordinal_counter = 0;

constexpr uint32_t FILE_HEADER_SIZE = 6;
constexpr uint32_t FILE_ENTRY_SIZE = 16;
constexpr uint32_t GROUP_HEADER_SIZE = 6;
constexpr uint32_t GROUP_ENTRY_SIZE = 14;
constexpr uint16_t MAX_IMAGES = 4096;
constexpr uint32_t BITMAP_FIELDS_END = 16; // width, height, planes, bit count
constexpr uint32_t HOTSPOT_SIZE = 4;
constexpr uint16_t GROUP_MEMORY_FLAGS = MEM_MOVEABLE | MEM_PURE | MEM_DISCARDABLE;
constexpr uint8_t PNG_SIGNATURE[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr DiagnosticCode CORRUPT = error_code(MSG_INVALID_FILE);

struct ImageKind {
    const char16_t* keyword;
    uint16_t file_type; // the header's type word
    uint16_t image_type;
    uint16_t group_type;
    bool cursor;
};

constexpr ImageKind icon_kind = {u"ICON", 1, RT_ICON, RT_GROUP_ICON, false};
constexpr ImageKind cursor_kind = {u"CURSOR", 2, RT_CURSOR, RT_GROUP_CURSOR, true};

// IconFileEntry; for a cursor, planes and bit_count hold the hotspot.
struct IconFileEntry {
    uint8_t width, height, colours, reserved;
    uint16_t planes, bit_count;
    uint32_t size, offset;
};

uint16_t get16(const uint8_t* p) {
    return uint16_t(p[0] | p[1] << 8);
}
uint32_t get32(const uint8_t* p) {
    return get16(p) | uint32_t(get16(p + 2)) << 16;
}

// Where a statement's bytes come from: an open file or the inline bytes.
struct ImageSource {
    FileHandle file = nullptr;
    uint32_t file_size = 0;
    const std::vector<uint8_t>* inline_bytes = nullptr;
};

// n bytes at offset. Past the end of a file that is the short read a read
// would meet, found before anything is allocated; past inline bytes, a
// corrupt input.
uint32_t read_at(const ImageSource& src, uint32_t offset, uint32_t n, std::vector<uint8_t>& out) {
    if (src.inline_bytes) {
        if (uint64_t(offset) + n > src.inline_bytes->size()) return CORRUPT;
        out.assign(src.inline_bytes->begin() + offset, src.inline_bytes->begin() + offset + n);
        return 0;
    }
    if (uint64_t(offset) + n > src.file_size) return error_system_code(ERR_READ_FAULT);
    if (file_seek(src.file, offset, SeekOrigin::begin)) return error_system_code(ERR_HANDLE_EOF);
    out.resize(n);
    if (uint32_t e = file_read(src.file, out.data(), n)) return error_system_code(e);
    return 0;
}

IconFileEntry entry_at(const uint8_t* p) {
    return {p[0], p[1], p[2], p[3], get16(p + 4), get16(p + 6), get32(p + 8), get32(p + 12)};
}

bool is_png(const std::vector<uint8_t>& image) {
    return image.size() > sizeof PNG_SIGNATURE &&
           std::memcmp(image.data(), PNG_SIGNATURE, sizeof PNG_SIGNATURE) == 0;
}

// The directory entry completed from the image: what the group lists.
uint32_t amend_entry(const ImageKind& kind, IconFileEntry& e, const std::vector<uint8_t>& image,
                     bool from_file) {
    if (!kind.cursor && from_file && is_png(image)) {
        e.width = e.height = 0;
        e.planes = 1;
        e.bit_count = 32;
        return 0;
    }
    if (image.size() < BITMAP_FIELDS_END) return CORRUPT;
    const uint8_t* bitmap = image.data();
    if (!kind.cursor) {
        e.planes = get16(bitmap + 12);
        e.bit_count = get16(bitmap + 14);
        return 0;
    }
    uint16_t colour_word = uint16_t(1u << (get16(bitmap + 14) % 32));
    e.colours = uint8_t(colour_word);
    e.reserved = uint8_t(colour_word >> 8);
    e.width = uint8_t(get32(bitmap + 4));
    e.height = uint8_t(uint8_t(get32(bitmap + 8)) >> 1);
    return 0;
}

uint32_t write_image(const ImageKind& kind, IconFileEntry& entry, const ImageSource& src,
                     const ResourceAttributes& attributes) {
    uint16_t ordinal = ++image_ordinal_counter;
    std::vector<uint8_t> image;
    if (uint32_t e = read_at(src, entry.offset, entry.size, image)) return e;
    uint16_t hotspot_x = entry.planes, hotspot_y = entry.bit_count;
    if (uint32_t e = amend_entry(kind, entry, image, src.inline_bytes == nullptr)) return e;
    ResData data;
    if (kind.cursor) {
        data.u16(hotspot_x);
        data.u16(hotspot_y);
    }
    data.raw(image.data(), image.size());
    return write_resource(data.size(), attributes, make_ordinal(kind.image_type),
                          make_ordinal(ordinal), data);
}

void put_group_entry(ResData& out, const ImageKind& kind, const IconFileEntry& e,
                     uint16_t ordinal) {
    if (kind.cursor) {
        uint16_t colour_word = uint16_t(e.colours | e.reserved << 8);
        out.u16(uint16_t(int8_t(e.width)));
        out.u16(uint16_t(2 * int8_t(e.height)));
        out.u16(1);
        out.u16(uint16_t(bits_for_colors(uint32_t(int32_t(int16_t(colour_word))))));
        out.u32(e.size + HOTSPOT_SIZE);
    } else {
        out.u8(e.width);
        out.u8(e.height);
        out.u8(e.colours);
        out.u8(e.reserved);
        out.u16(e.planes);
        out.u16(e.bit_count);
        out.u32(e.size);
    }
    out.u16(ordinal);
}

uint32_t write_group(const ImageKind& kind, const NameOrOrdinal& name,
                     const std::vector<IconFileEntry>& entries, uint16_t base,
                     ResourceAttributes attributes) {
    ResData data;
    data.u16(0);
    data.u16(kind.file_type);
    data.u16(uint16_t(entries.size()));
    for (size_t i = 0; i < entries.size(); i++)
        put_group_entry(data, kind, entries[i], uint16_t(base + i));
    attributes.memory_flags = GROUP_MEMORY_FLAGS;
    uint32_t size = GROUP_HEADER_SIZE + GROUP_ENTRY_SIZE * uint32_t(entries.size());
    return write_resource(size, attributes, make_ordinal(kind.group_type), name, data);
}

// The file form and the inline form alike: header, directory, each image,
// then the group. Images written before a failure stay in the output.
uint32_t write_images(const ImageKind& kind, const NameOrOrdinal& name, const ImageSource& src,
                      uint16_t flags) {
    ResourceAttributes attributes = default_attributes_copy();
    uint16_t base = uint16_t(image_ordinal_counter + 1);
    attributes.memory_flags = flags;
    std::vector<uint8_t> header, directory;
    if (uint32_t e = read_at(src, 0, FILE_HEADER_SIZE, header)) return e;
    uint16_t count = get16(&header[4]);
    if (get16(&header[2]) != kind.file_type) return CORRUPT;
    if (!src.inline_bytes && (count == 0 || count > MAX_IMAGES)) return CORRUPT;
    if (uint32_t e = read_at(src, FILE_HEADER_SIZE, FILE_ENTRY_SIZE * count, directory)) return e;
    std::vector<IconFileEntry> entries;
    for (uint32_t i = 0; i < count; i++)
        entries.push_back(entry_at(&directory[FILE_ENTRY_SIZE * i]));
    for (IconFileEntry& entry : entries)
        if (uint32_t e = write_image(kind, entry, src, attributes)) return e;
    return write_group(kind, name, entries, base, attributes);
}

uint32_t write_image_file(const ImageKind& kind, const NameOrOrdinal& name,
                          const std::u16string& path, uint16_t flags) {
    record_file_info(make_ordinal(kind.image_type), name, path);
    ImageSource src;
    if (uint32_t e = file_open_read(path.c_str(), &src.file)) return error_system_code(e);
    ScopedFile file(src.file);
    if (uint32_t e = file_size(src.file, &src.file_size)) return error_system_code(e);
    return write_images(kind, name, src, flags);
}

// strtol(p, &end, 16) over UTF-16: white space, a sign, an optional 0x, hex
// digits; clamped to the signed 32-bit range. Returns p when no digit was
// taken.
const char16_t* hex_long(const char16_t* p, int32_t* value) {
    const char16_t* s = p;
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) s++;
    bool negative = *s == '-';
    if (*s == '-' || *s == '+') s++;
    auto digit = [](char16_t c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X') && digit(s[2]) >= 0) s += 2;
    if (digit(*s) < 0) return p;
    uint64_t magnitude = 0;
    for (; digit(*s) >= 0; s++)
        if (magnitude <= 0x80000000u) magnitude = magnitude * 16 + uint64_t(digit(*s));
    if (negative)
        *value = magnitude >= 0x80000000u ? INT32_MIN : -int32_t(magnitude);
    else
        *value = magnitude > 0x7FFFFFFFu ? INT32_MAX : int32_t(magnitude);
    return s;
}

// One single-quoted string: a byte per hex value. A value must be followed
// by a space or the end; otherwise the string stops before that value.
void parse_hex_string(const char16_t* text, std::vector<uint8_t>& bytes) {
    const char16_t* p = text;
    while (*p) {
        int32_t value = 0;
        const char16_t* end = hex_long(p, &value);
        if (end == p || (*end != 0 && *end != ' ')) {
            report(error_code(MSG_INVALID_SYNTAX));
            return;
        }
        bytes.push_back(uint8_t(value));
        p = end;
    }
}

// BEGIN 'hex' ... END. A stray token stops an ICON at once (false: nothing
// to write, the token left to the statement loop); a CURSOR skips it.
bool parse_inline_bytes(const ImageKind& kind, std::vector<uint8_t>& bytes) {
    expect(TK_BEGIN);
    do {
        if (token.kind == TK_HEXSTRING) {
            parse_hex_string(token.text, bytes);
            next_token();
            continue;
        }
        report(error_code(MSG_INVALID_SYNTAX));
        if (!kind.cursor) return false;
        if (token.kind == TK_EOF) report(fatal_code(MSG_UNEXPECTED_EOF));
        next_token();
    } while (!accept(TK_END));
    return true;
}

void compile_images(const ImageKind& kind, const ScriptToken& name) {
    uint16_t flags = parse_memory_flags(MEM_MOVEABLE | MEM_DISCARDABLE);
    ResourceAttributes defaults = default_attributes_copy();
    show_writing(kind.keyword, &name, &defaults);
    if (names_file(token)) {
        std::u16string written = token_string();
        std::u16string path = find_resource_file(written);
        uint32_t result = write_image_file(kind, name_of(name), path, flags);
        uint32_t message = result & 0x20003FFF;
        if (message == ERR_FILE_NOT_FOUND || message == ERR_PATH_NOT_FOUND)
            report(error_code(MSG_FILE_NOT_FOUND), written);
        else
            report(result | SEVERITY_ERROR, written);
        next_token();
        return;
    }
    std::vector<uint8_t> bytes;
    if (!parse_inline_bytes(kind, bytes)) return;
    ImageSource src;
    src.inline_bytes = &bytes;
    // The bytes stand in the script, so a corrupt block names the script.
    report(write_images(kind, name_of(name), src, flags), script_location.script_file);
}

} // namespace

uint32_t bits_for_colors(uint32_t n) {
    if (n == 1) return 0;
    uint32_t bits = 0;
    for (uint32_t v = n - 1; v; v >>= 1) bits++;
    return bits;
}

void image_counter_reset() {
    image_ordinal_counter = 0;
}

void compile_icon(const ScriptToken& name) {
    compile_images(icon_kind, name);
}
void compile_cursor(const ScriptToken& name) {
    compile_images(cursor_kind, name);
}

} // namespace tarn
