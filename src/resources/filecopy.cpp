// Resources whose data are a file named in the script, copied without being
// interpreted: BITMAP (without the file's 14-byte header, or inline as hex
// strings), ANICURSOR and ANIICON (checked for a RIFF "ACON" header), HTML,
// MANIFEST, MESSAGETABLE, PLUGPLAY and VXD.
#include <cstring>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "support/files.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr uint16_t FILE_RESOURCE_FLAGS = 0x0030;
constexpr uint32_t BITMAP_FILE_HEADER = 14;
constexpr uint16_t BITMAP_MAGIC = 0x4D42; // "BM"
constexpr uint32_t RIFF_HEADER = 12;

struct FileResourceKind {
    uint16_t type;
    const char16_t* text; // for the verbose line
};
constexpr FileResourceKind file_resource_kinds[] = {
    {RT_ANICURSOR, u"ANICURSOR"},
    {RT_ANIICON, u"ANIICON"},
    {RT_HTML, u"HTML"},
    {RT_MANIFEST, u"MANIFEST"},
    {RT_MESSAGETABLE, u"MESSAGETABLE"},
    {RT_PLUGPLAY, u"PLUGPLAY"},
    {RT_VXD, u"VXD"},
};

const char16_t* file_resource_text(uint16_t type) {
    for (const FileResourceKind& k : file_resource_kinds)
        if (k.type == type) return k.text;
    return u"";
}

uint16_t read_u16(const uint8_t* p) {
    return uint16_t(p[0] | p[1] << 8);
}

// Animated cursors and icons must start with "RIFF" and have "ACON" at 8.
uint32_t check_riff(FileHandle f) {
    uint8_t head[RIFF_HEADER];
    if (uint32_t e = file_read(f, head, RIFF_HEADER)) return error_system_code(e);
    if (std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "ACON", 4) != 0)
        return error_code(MSG_INVALID_FILE);
    if (uint32_t e = file_seek(f, 0, SeekOrigin::begin)) return error_system_code(e);
    return 0;
}

// Header, the rest of the open file, padding; every failure here is fatal.
uint32_t write_file_data(uint32_t size, const ResourceAttributes& attributes,
                         const NameOrOrdinal& type, const NameOrOrdinal& name, FileHandle f) {
    uint32_t e = write_header_checked(size, attributes, type, name);
    if (!e) e = copy_file_rest(f);
    if (!e) e = pad_to_4(size);
    return e ? fatal_system_code(e) : 0;
}

uint32_t write_bitmap_file(const NameOrOrdinal& name, const std::u16string& path, uint16_t flags) {
    ResourceAttributes attributes = default_attributes_copy();
    NameOrOrdinal type = make_ordinal(RT_BITMAP);
    record_file_info(type, name, path);
    FileHandle f = nullptr;
    if (uint32_t e = file_open_read(path.c_str(), &f)) return error_system_code(e);
    ScopedFile file(f);
    uint8_t head[BITMAP_FILE_HEADER];
    if (uint32_t e = file_read(f, head, BITMAP_FILE_HEADER)) return error_system_code(e);
    if (read_u16(head) != BITMAP_MAGIC) return error_code(MSG_INVALID_FILE);
    uint32_t size = 0;
    if (uint32_t e = file_size(f, &size)) return error_system_code(e);
    attributes.memory_flags = flags;
    return write_file_data(size - BITMAP_FILE_HEADER, attributes, type, name, f);
}

// Inline bitmap bytes; shorter than a file header they cannot be a bitmap.
uint32_t write_bitmap_data(const NameOrOrdinal& name, const std::vector<uint8_t>& bytes,
                           uint16_t flags) {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = flags;
    if (bytes.size() < BITMAP_FILE_HEADER || read_u16(bytes.data()) != BITMAP_MAGIC)
        return error_code(MSG_INVALID_FILE);
    uint32_t size = uint32_t(bytes.size()) - BITMAP_FILE_HEADER;
    uint32_t e = write_header_checked(size, attributes, make_ordinal(RT_BITMAP), name);
    if (!e) e = write_bytes(bytes.data() + BITMAP_FILE_HEADER, size);
    if (!e) e = pad_to_4(output_position());
    return e ? fatal_system_code(e) : 0;
}

bool is_c_space(char16_t c) {
    return c == u' ' || (c >= 9 && c <= 13);
}

int hex_digit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// A signed 32-bit integer in base 16 from s[p], as the C library converts
// one: white space, sign and "0x" first; clamped to the 32-bit range.
// Returns the end position, p itself when no digit was taken.
size_t convert_hex_long(const char16_t* s, size_t p, int32_t* value) {
    size_t q = p;
    while (is_c_space(s[q])) ++q;
    bool negative = s[q] == u'-';
    if (s[q] == u'-' || s[q] == u'+') ++q;
    if (s[q] == u'0' && (s[q + 1] == u'x' || s[q + 1] == u'X')) q += 2;
    int64_t n = 0;
    size_t digits_start = q;
    for (int d; (d = hex_digit(s[q])) >= 0; ++q)
        if (n <= INT64_C(0xFFFFFFFFF)) n = n * 16 + d;
    if (q == digits_start) return p;
    if (negative) n = -n;
    *value = int32_t(n > INT32_MAX ? INT32_MAX : n < INT32_MIN ? INT32_MIN : n);
    return q;
}

// Appends the low 8 bits of each value of a hex string to data.
void parse_hex_string(const char16_t* text, std::vector<uint8_t>& data) {
    for (size_t p = 0; text[p] != 0;) {
        int32_t value = 0;
        size_t end = convert_hex_long(text, p, &value);
        if (end == p || (text[end] != 0 && text[end] != u' ')) {
            report(error_code(MSG_INVALID_SYNTAX));
            return;
        }
        data.push_back(uint8_t(value));
        p = end;
    }
}

std::vector<uint8_t> read_hex_strings() {
    std::vector<uint8_t> data;
    expect(TK_BEGIN);
    // The END test follows each round, so an END where the first string
    // should stand is reported and skipped, as in CURSOR.
    do {
        if (token.kind == TK_HEXSTRING)
            parse_hex_string(token.text, data);
        else if (token.kind == TK_EOF)
            report(fatal_code(MSG_UNEXPECTED_EOF)); // no END to come
        else
            report(error_code(MSG_INVALID_SYNTAX));
        next_token();
    } while (!accept(TK_END));
    return data;
}

// A missing file is reported with its name as the script wrote it.
void report_file_result(uint32_t result, const std::u16string& written) {
    uint32_t part = result & (CODE_LIBRARY | 0x3FFF);
    if (part == ERR_FILE_NOT_FOUND || part == ERR_PATH_NOT_FOUND)
        report(error_code(MSG_FILE_NOT_FOUND), written);
    else
        report(result | SEVERITY_ERROR, written);
}

} // namespace

uint32_t copy_file_resource(const NameOrOrdinal& name, const NameOrOrdinal& type,
                            const std::u16string& path, uint16_t memory_flags) {
    ResourceAttributes attributes = default_attributes_copy();
    record_file_info(type, name, path);
    FileHandle f = nullptr;
    if (uint32_t e = file_open_read(path.c_str(), &f)) return error_system_code(e);
    ScopedFile file(f);
    uint32_t size = 0;
    if (uint32_t e = file_size(f, &size)) return error_system_code(e);
    attributes.memory_flags = memory_flags;
    bool animated =
        is_ordinal(type) && (ordinal_of(type) == RT_ANICURSOR || ordinal_of(type) == RT_ANIICON);
    if (animated)
        if (uint32_t e = check_riff(f)) return e;
    return write_file_data(size, attributes, type, name, f);
}

void copy_named_file(const NameOrOrdinal& name, const NameOrOrdinal& type, uint16_t memory_flags) {
    std::u16string written(token.text, token.length);
    uint32_t result = copy_file_resource(name, type, find_resource_file(written), memory_flags);
    report_file_result(result, written);
    next_token();
}

void compile_file_resource(const ScriptToken& name, uint16_t type) {
    uint16_t flags = parse_memory_flags(FILE_RESOURCE_FLAGS);
    ResourceAttributes attributes = default_attributes_copy();
    show_writing(file_resource_text(type), &name, &attributes);
    if (!names_file(token)) {
        report(error_code(MSG_INVALID_SYNTAX));
        return;
    }
    copy_named_file(name_of(name), make_ordinal(type), flags);
}

void compile_bitmap(const ScriptToken& name) {
    uint16_t flags = parse_memory_flags(FILE_RESOURCE_FLAGS);
    ResourceAttributes attributes = default_attributes_copy();
    show_writing(u"BITMAP", &name, &attributes);
    if (names_file(token)) {
        std::u16string written(token.text, token.length);
        NameOrOrdinal resource = name_of(name);
        report_file_result(write_bitmap_file(resource, find_resource_file(written), flags),
                           written);
        next_token();
        return;
    }
    std::vector<uint8_t> data = read_hex_strings();
    report(write_bitmap_data(name_of(name), data, flags));
}

} // namespace tarn
