// ICON and CURSOR: image resources numbered by the process-wide counter,
// group resources, PNG icons, cursor hotspots and the bits_for_colors
// formulas, file and inline forms, and every malformed input: no read goes
// past an image or the inline bytes.
#include <cstdio>

#include "resources/common.h"
#include "resources/kinds_support.h"
#include <tarn/tarn.h>

using namespace kinds_test;

namespace {

struct Image {
    uint8_t width, height, colours, reserved;
    uint16_t planes, bit_count; // hotspot x and y in a cursor file
    std::string bytes;
};

// A BITMAPINFOHEADER and filler up to `total` bytes.
std::string dib(int32_t width, int32_t height, uint16_t planes, uint16_t bits, size_t total) {
    Bytes b = Bytes().u32(40).i32(width).i32(height).u16(planes).u16(bits);
    while (b.size() < total) b.u8(uint8_t(0xA0 + b.size()));
    b.v.resize(total);
    return b.chars();
}

std::string png(size_t total) {
    Bytes b = Bytes().u8(0x89).text("PNG\r\n\x1a\n").u32(0x0D000000).text("IHDR");
    while (b.size() < total) b.u8(uint8_t(b.size()));
    b.v.resize(total);
    return b.chars();
}

// The directory lists the images in order, stored one after the other.
std::string image_file(uint16_t type, const std::vector<Image>& images) {
    Bytes b = Bytes().u16(0).u16(type).u16(uint16_t(images.size()));
    uint32_t offset = 6 + 16 * uint32_t(images.size());
    for (const Image& i : images) {
        b.u8(i.width).u8(i.height).u8(i.colours).u8(i.reserved).u16(i.planes).u16(i.bit_count);
        b.u32(uint32_t(i.bytes.size())).u32(offset);
        offset += uint32_t(i.bytes.size());
    }
    for (const Image& i : images) b.text(i.bytes);
    return b.chars();
}

std::string hex_block(const std::string& bytes) {
    std::string s = "BEGIN\n";
    for (size_t i = 0; i < bytes.size(); i += 16) {
        s += "'";
        for (size_t j = i; j < bytes.size() && j < i + 16; j++) {
            char h[4];
            std::snprintf(h, sizeof h, "%02X", unsigned(uint8_t(bytes[j])));
            s += std::string(j > i ? " " : "") + h;
        }
        s += "'\n";
    }
    return s + "END\n";
}

std::vector<uint8_t> bytes_of(const std::string& s) {
    return std::vector<uint8_t>(s.begin(), s.end());
}

const Image icon16 = {16, 16, 16, 0, 1, 4, dib(16, 32, 1, 4, 61)};
const Image icon32 = {32, 32, 0, 0, 0, 0, dib(32, 64, 1, 32, 48)}; // planes, bits from the image
const Image icon_png = {7, 9, 3, 0, 0, 0, png(30)};
const Image cursor1 = {0xAA, 0xBB, 0xCC, 0xDD, 5, 7, dib(32, 64, 1, 1, 50)};
const Image cursor24 = {0, 0, 0, 0, 1, 2, dib(128, 256, 1, 24, 44)};

struct Record {
    std::u16string type, name, path;
    uint16_t language;
};
std::vector<Record> records;

int32_t collect(const char16_t* type, const char16_t* name, uint16_t language, const char16_t* path,
                uint64_t) {
    auto name_or_ordinal = [](const char16_t* p) {
        return p[0] == 0xFFFF ? std::u16string(p, 2) : std::u16string(p);
    };
    records.push_back({name_or_ordinal(type), name_or_ordinal(name), path, language});
    return 1;
}

class Icons : public tarn_test::FreshLibrary {};

TEST_F(Icons, FileFormsNumberImagesAcrossStatements) {
    write_file("a.ico", image_file(1, {icon16, icon32, icon_png}));
    write_file("b.cur", image_file(2, {cursor1, cursor24}));
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 ICON \"a.ico\"\n2 CURSOR b.cur\n", &res), 1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 7u);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(r[i].type, ord(3));
        EXPECT_EQ(r[i].name, ord(uint16_t(i + 1)));
        EXPECT_EQ(r[i].flags, 0x1010);
    }
    EXPECT_EQ(r[0].data, bytes_of(icon16.bytes));
    EXPECT_EQ(r[2].data, bytes_of(icon_png.bytes)); // the PNG stream unchanged
    EXPECT_EQ(r[3].type, ord(14));
    EXPECT_EQ(r[3].name, ord(1));
    EXPECT_EQ(r[3].flags, 0x1030);
    Bytes group = Bytes().u16(0).u16(1).u16(3);
    group.u8(16).u8(16).u8(16).u8(0).u16(1).u16(4).u32(61).u16(1);
    group.u8(32).u8(32).u8(0).u8(0).u16(1).u16(32).u32(48).u16(2);
    group.u8(0).u8(0).u8(3).u8(0).u16(1).u16(32).u32(30).u16(3); // PNG: 0 x 0, 1 plane, 32 bits
    EXPECT_EQ(r[3].data, group.v);

    EXPECT_EQ(r[4].type, ord(1));
    EXPECT_EQ(r[4].name, ord(4)); // the counter runs on from the icon's images
    EXPECT_EQ(r[4].data, Bytes().u16(5).u16(7).text(cursor1.bytes).v);
    EXPECT_EQ(r[5].name, ord(5));
    EXPECT_EQ(r[5].data, Bytes().u16(1).u16(2).text(cursor24.bytes).v);
    EXPECT_EQ(r[6].type, ord(12));
    EXPECT_EQ(r[6].name, ord(2));
    Bytes cursors = Bytes().u16(0).u16(2).u16(2);
    cursors.u16(32).u16(64).u16(1).u16(1).u32(54).u16(4);
    // 128 wide sign-extends from 8 bits; a height of 256 keeps its low 8
    // bits; 24 bits per pixel give a colour word of 0 and so 32.
    cursors.u16(0xFF80).u16(0).u16(1).u16(32).u32(48).u16(5);
    EXPECT_EQ(r[6].data, cursors.v);

    // One verbose line per statement.
    int lines = 0;
    for (const std::string& l : info)
        if (l.find("Writing ICON, id = 1, language = 0x409, offset = 0x20") != std::string::npos)
            lines++;
    EXPECT_EQ(lines, 1);
}

TEST_F(Icons, FileRecordsCarryTheImageType) {
    write_file("a.ico", image_file(1, {icon16}));
    write_file("b.cur", image_file(2, {cursor1}));
    ASSERT_EQ(compile("LANGUAGE 7, 1\nI ICON \"a.ico\"\n2 CURSOR \"b.cur\"\n"
                      "3 CURSOR " +
                      hex_block(image_file(2, {cursor1}))),
              1);
    records.clear();
    EXPECT_EQ(enum_file_info_w(collect, 0), 1);
    ASSERT_EQ(records.size(), 2u); // none for the inline form
    EXPECT_EQ(records[0].type, ord(3));
    EXPECT_EQ(records[0].name, name("I"));
    EXPECT_EQ(records[0].language, 0x0407);
    EXPECT_NE(records[0].path.find(u"a.ico"), std::u16string::npos);
    EXPECT_EQ(records[1].type, ord(1));
    EXPECT_EQ(records[1].name, ord(2));
}

TEST_F(Icons, CursorBitCounts) {
    std::vector<Image> images;
    for (uint16_t bits : {1, 4, 8, 15, 16, 24, 32})
        images.push_back({0, 0, 0, 0, 0, 0, dib(16, 32, 1, bits, 40)});
    write_file("c.cur", image_file(2, images));
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 CURSOR \"c.cur\"\n", &res), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 8u);
    const uint16_t want[] = {1, 4, 8, 32, 32, 32, 0};
    for (size_t i = 0; i < 7; i++) EXPECT_EQ(get16(r[7].data, 6 + 14 * i + 6), want[i]) << i;
    EXPECT_EQ(tarn::bits_for_colors(1), 0u);
    EXPECT_EQ(tarn::bits_for_colors(2), 1u);
    EXPECT_EQ(tarn::bits_for_colors(256), 8u);
    EXPECT_EQ(tarn::bits_for_colors(0xFFFF8000), 32u);
    EXPECT_EQ(tarn::bits_for_colors(0), 32u);
}

TEST_F(Icons, MemoryOptionsApplyToImagesOnly) {
    write_file("a.ico", image_file(1, {icon16}));
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 ICON FIXED \"a.ico\"\n2 ICON DISCARDABLE PRELOAD \"a.ico\"\n", &res), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0].flags, 0x1000);
    EXPECT_EQ(r[1].flags, 0x1030);
    EXPECT_EQ(r[2].flags, 0x1070);
    EXPECT_EQ(r[3].flags, 0x1030);
}

TEST_F(Icons, NameAboveOrdinalRangeWarns) {
    write_file("a.ico", image_file(1, {icon16}));
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("70000 ICON \"a.ico\"\n", &res), 1);
    EXPECT_EQ(count(diags, SEV_WARNING, "Name ordinal value outside bounds."), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].name, ord(1));
    EXPECT_EQ(r[1].name, ord(70000 & 0xFFFF));
}

TEST_F(Icons, InlineFormsTakeNoPngTestAndNoCountLimit) {
    std::string icon = image_file(1, {icon_png});
    std::vector<uint8_t> res;
    // The header written with a sign, a 0x prefix and a value above a byte.
    std::string header = "'0x0 +0 101 0 1 -100'\n";
    std::string rest = hex_block(icon.substr(6)).substr(6); // without its BEGIN
    ASSERT_EQ(compile("1 ICON BEGIN " + header + rest + "2 CURSOR " +
                          hex_block(image_file(2, {cursor1})) + "3 ICON { '00 00 01 00 00 00' }\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 5u);
    EXPECT_EQ(r[0].data, bytes_of(icon_png.bytes));
    // Planes and bit count come from offsets 12 and 14 of the PNG stream.
    Bytes group = Bytes().u16(0).u16(1).u16(1).u8(7).u8(9).u8(3).u8(0);
    group.u16(get16(bytes_of(icon_png.bytes), 12)).u16(get16(bytes_of(icon_png.bytes), 14));
    group.u32(30).u16(1);
    EXPECT_EQ(r[1].data, group.v);
    EXPECT_EQ(r[2].type, ord(1));
    EXPECT_EQ(r[2].name, ord(2));
    EXPECT_EQ(r[2].data, Bytes().u16(5).u16(7).text(cursor1.bytes).v);
    EXPECT_EQ(r[3].data,
              Bytes().u16(0).u16(2).u16(1).u16(32).u16(64).u16(1).u16(1).u32(54).u16(2).v);
    EXPECT_EQ(r[4].type, ord(14));
    EXPECT_EQ(r[4].data, Bytes().u16(0).u16(1).u16(0).v); // a count of 0 inline is taken
}

// A script that must fail with exactly these diagnostics, in order; a file
// it names is written first. An empty text stands for a read fault: an
// error that is not the corrupt-file message.
struct ErrorCase {
    const char* label;
    std::string script;
    std::vector<std::string> texts;
    std::string file = {}, content = {};
};

void PrintTo(const ErrorCase& c, std::ostream* os) {
    *os << c.label;
}

class IconErrors : public tarn_test::FreshLibrary,
                   public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(IconErrors, FailsWithTheseDiagnostics) {
    const ErrorCase& c = GetParam();
    if (!c.file.empty()) write_file(c.file, c.content);
    std::vector<uint8_t> res;
    EXPECT_EQ(compile(c.script, &res), 0);
    EXPECT_TRUE(res.empty());
    ASSERT_EQ(diags.size(), c.texts.size());
    for (size_t i = 0; i < c.texts.size(); i++) {
        if (c.texts[i].empty()) {
            EXPECT_EQ(diags[i].severity, SEV_ERROR);
            EXPECT_EQ(diags[i].text.find("Invalid or corrupt"), std::string::npos) << diags[i].text;
        } else {
            EXPECT_NE(diags[i].text.find(c.texts[i]), std::string::npos) << diags[i].text;
        }
    }
}

std::string with_byte(std::string s, size_t at, char value) {
    s[at] = value;
    return s;
}

const std::string one_icon = image_file(1, {icon16});
const std::string two_icons = image_file(1, {icon16, icon32});
const std::string one_cursor = image_file(2, {cursor1});
const std::string header_count_1 = "BEGIN '00 00 01 00 01 00'\n";

// Files: counts and types checked, images never read past their end.
INSTANTIATE_TEST_SUITE_P(
    Files, IconErrors,
    ::testing::Values(
        ErrorCase{"count0",
                  "1 ICON \"z.ico\"\n",
                  {"Invalid or corrupt file: 'z.ico'."},
                  "z.ico",
                  with_byte(one_icon, 4, 0)},
        ErrorCase{"count4097",
                  "1 ICON \"z.ico\"\n",
                  {"Invalid or corrupt file: 'z.ico'."},
                  "z.ico",
                  with_byte(one_icon, 5, 0x10)},
        ErrorCase{"cursor_as_icon",
                  "1 ICON z.ico\n",
                  {"Invalid or corrupt file: 'z.ico'."},
                  "z.ico",
                  one_cursor},
        ErrorCase{"icon_as_cursor",
                  "1 CURSOR z.cur\n",
                  {"Invalid or corrupt file: 'z.cur'."},
                  "z.cur",
                  one_icon},
        ErrorCase{"png_signature_only",
                  "1 ICON z.ico\n",
                  {"Invalid or corrupt file: 'z.ico'."},
                  "z.ico",
                  image_file(1, {{0, 0, 0, 0, 1, 32, png(8)}})},
        ErrorCase{"cursor_image_of_15",
                  "1 CURSOR z.cur\n",
                  {"Invalid or corrupt file: 'z.cur'."},
                  "z.cur",
                  image_file(2, {{0, 0, 0, 0, 1, 2, std::string(15, 'x')}})},
        ErrorCase{"short_header", "1 ICON z.ico\n", {""}, "z.ico", std::string("\0\0\x01", 3)},
        ErrorCase{"short_directory", "1 ICON z.ico\n", {""}, "z.ico", two_icons.substr(0, 30)},
        ErrorCase{
            "offset_past_end", "1 ICON z.ico\n", {""}, "z.ico", with_byte(one_icon, 21, 0x7F)},
        ErrorCase{
            "size_past_end", "1 CURSOR z.cur\n", {""}, "z.cur", with_byte(one_cursor, 17, 0x7F)},
        ErrorCase{"image_cut", "1 ICON z.ico\n", {""}, "z.ico", one_icon.substr(0, 52)},
        ErrorCase{"missing", "1 ICON \"missing.ico\"\n", {"File not found: 'missing.ico'."}}),
    [](const auto& info) { return std::string(info.param.label); });

// Inline bytes: only the type is checked, but nothing is read past the
// bytes; the message names the script.
INSTANTIATE_TEST_SUITE_P(
    Inline, IconErrors,
    ::testing::Values(
        ErrorCase{"short_directory",
                  "1 ICON " + hex_block(two_icons.substr(0, 30)),
                  {"Invalid or corrupt file: '"}},
        ErrorCase{"count4097",
                  "1 ICON " + hex_block(with_byte(one_icon, 5, 0x10)),
                  {"Invalid or corrupt file: '"}},
        ErrorCase{"size_past_end",
                  "1 CURSOR " + hex_block(with_byte(one_cursor, 14, char(0xF0))),
                  {"Invalid or corrupt file: '"}},
        ErrorCase{"offset_past_end",
                  "1 ICON " + hex_block(with_byte(one_icon, 18, 0x60)),
                  {"Invalid or corrupt file: '"}},
        ErrorCase{"cursor_as_icon", "1 ICON " + hex_block(one_cursor), {"input.rc'."}},
        ErrorCase{"image_of_12",
                  "1 CURSOR " + hex_block(image_file(2, {{0, 0, 0, 0, 1, 2, "123456789012"}})),
                  {"Invalid or corrupt file: '"}},
        ErrorCase{"empty_icon_block", "1 ICON BEGIN END\n", {"Invalid syntax."}},
        ErrorCase{"icon_stops_at_stray_token",
                  "1 ICON " + header_count_1 + "5 END\n",
                  {"Invalid syntax."}},
        ErrorCase{"no_begin",
                  "1 ICON 5\n",
                  {"BEGIN keyword or { character expected (found: 5).", "Invalid syntax."}},
        // A cursor skips what it cannot take, its first END included.
        ErrorCase{"cursor_skips_stray_tokens",
                  "1 CURSOR BEGIN END 2 3 END\n",
                  {"Invalid syntax.", "Invalid syntax.", "Invalid syntax.", "Invalid or corrupt"}},
        ErrorCase{"cursor_without_bytes",
                  "1 CURSOR BEGIN 1 END\n",
                  {"Invalid syntax.", "Invalid or corrupt"}},
        ErrorCase{"cursor_runs_into_end_of_file",
                  "1 CURSOR BEGIN '00'\n",
                  {"Invalid syntax.", "Unexpected end of file."}},
        // Were '7,8' to give a byte, the directory after it would be misread.
        ErrorCase{"bad_value_appends_nothing",
                  "1 ICON BEGIN '00 00 01 00 01 00'\n'7,8'\n" +
                      hex_block(one_icon.substr(6)).substr(6),
                  {"Invalid syntax."}},
        ErrorCase{"trailing_blank",
                  "1 ICON BEGIN '00 00 01 00 01 00 ' END\n",
                  {"Invalid syntax.", "Invalid or corrupt"}}),
    [](const auto& info) { return std::string(info.param.label); });

} // namespace

namespace {

// Every byte of the header and directory of a two-image file spoiled in
// turn, in both forms: each compiles or fails cleanly, and what is written
// is well framed (the sanitizer build checks the reads).
class IconSpoiled : public tarn_test::FreshLibrary,
                    public ::testing::WithParamInterface<std::tuple<int, bool, bool>> {};

TEST_P(IconSpoiled, CompilesOrFailsCleanly) {
    auto [at, cursor, from_file] = GetParam();
    std::string bytes =
        cursor ? image_file(2, {cursor1, cursor24}) : image_file(1, {icon16, icon32});
    bytes[size_t(at)] = char(0xFF);
    std::string keyword = cursor ? "CURSOR " : "ICON ";
    if (from_file) write_file("x.bin", bytes);
    std::vector<uint8_t> res;
    int32_t ok = compile("1 " + keyword + (from_file ? "x.bin\n" : hex_block(bytes)), &res);
    if (ok)
        read_res(res);
    else
        EXPECT_FALSE(diags.empty());
}

INSTANTIATE_TEST_SUITE_P(HeaderAndDirectory, IconSpoiled,
                         ::testing::Combine(::testing::Range(0, 6 + 2 * 16), ::testing::Bool(),
                                            ::testing::Bool()));

} // namespace
