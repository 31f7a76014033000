// ICON and CURSOR: image resources numbered by the process-wide counter,
// group resources, PNG icons, cursor hotspots and bit counts, file and
// inline forms, and malformed input: no read goes past an image or the
// inline bytes (the sanitizer build checks the reads).
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Icons = ResTest;

struct Image {
    uint8_t width, height, colours, reserved;
    uint16_t planes, bit_count; // hotspot x and y in a cursor file
    std::string bytes;
};

// A BITMAPINFOHEADER, or a PNG signature and chunk head, and filler up to
// `total` bytes.
std::string dib(int32_t width, int32_t height, uint16_t bits, size_t total) {
    Bytes b = Bytes().u32(40, width, height).u16(1, bits);
    while (b.size() < total) b.u8(0xA0 + b.size());
    return b.resize(total), b.chars();
}
std::string png(size_t total) {
    Bytes b = Bytes().u8(0x89).text("PNG\r\n\x1a\n").u32(0x0D000000).text("IHDR");
    while (b.size() < total) b.u8(b.size());
    return b.resize(total), b.chars();
}

// The directory lists the images in order, stored one after the other.
std::string image_file(uint16_t type, const std::vector<Image>& images) {
    Bytes b = Bytes().u16(0, type, images.size());
    uint32_t offset = 6 + 16 * uint32_t(images.size());
    for (const Image& i : images) {
        b.u8(i.width, i.height, i.colours, i.reserved).u16(i.planes, i.bit_count);
        b.u32(i.bytes.size(), offset);
        offset += uint32_t(i.bytes.size());
    }
    for (const Image& i : images) b.text(i.bytes);
    return b.chars();
}

// The bytes as one hex string; `block` puts it between BEGIN and END.
std::string hex(const std::string& bytes) {
    std::string s;
    char h[4];
    for (unsigned char c : bytes) std::snprintf(h, sizeof h, " %02X", c), s += h;
    return "'" + s.substr(s.empty() ? 0 : 1) + "'";
}
std::string block(const std::string& bytes) {
    return "BEGIN " + hex(bytes) + " END\n";
}

std::string with_byte(std::string s, size_t at, char value) {
    return s[at] = value, s;
}

const Image icon16 = {16, 16, 16, 0, 1, 4, dib(16, 32, 4, 61)};
const Image icon32 = {32, 32, 0, 0, 0, 0, dib(32, 64, 32, 48)}; // planes, bits from the image
const Image icon_png = {7, 9, 3, 0, 0, 0, png(30)};
const Image cursor1 = {0xAA, 0xBB, 0xCC, 0xDD, 5, 7, dib(32, 64, 1, 50)};
const Image cursor24 = {0, 0, 0, 0, 1, 2, dib(128, 256, 24, 44)};
const std::string one_icon = image_file(1, {icon16}), one_cursor = image_file(2, {cursor1});

TEST_F(Icons, FileFormsNumberImagesAcrossStatements) {
    write_file("a.ico", image_file(1, {icon16, icon32, icon_png}));
    write_file("b.cur", image_file(2, {cursor1, cursor24}));
    auto e = compile_ok("1 ICON \"a.ico\"\n2 CURSOR b.cur\n");
    // The image counter runs on from the icon's images to the cursor's.
    ASSERT_EQ(heads(e),
              (Lines{"#3 #1 1010 0409", "#3 #2 1010 0409", "#3 #3 1010 0409", "#14 #1 1030 0409",
                     "#1 #4 1010 0409", "#1 #5 1010 0409", "#12 #2 1030 0409"}));
    EXPECT_EQ(e[0].data, Bytes::of(icon16.bytes));
    EXPECT_EQ(e[2].data, Bytes::of(icon_png.bytes)); // the PNG stream unchanged
    Bytes group = Bytes().u16(0, 1, 3);
    group.u8(16, 16, 16, 0).u16(1, 4).u32(61).u16(1);
    group.u8(32, 32, 0, 0).u16(1, 32).u32(48).u16(2);
    group.u8(0, 0, 3, 0).u16(1, 32).u32(30).u16(3); // PNG: 0 x 0, 1 plane, 32 bits
    EXPECT_EQ(e[3].data, group);
    EXPECT_EQ(e[4].data, Bytes().u16(5, 7).text(cursor1.bytes));
    EXPECT_EQ(e[5].data, Bytes().u16(1, 2).text(cursor24.bytes));
    // 128 wide sign-extends from 8 bits; a height of 256 keeps its low 8
    // bits; 24 bits per pixel give a colour word of 0 and so 32.
    Bytes cursors = Bytes().u16(0, 2, 2).u16(32, 64, 1, 1).u32(54).u16(4);
    EXPECT_EQ(e[6].data, cursors.u16(0xFF80, 0, 1, 32).u32(48).u16(5));
    ASSERT_EQ(info.size(), 3u); // one verbose line per statement
    EXPECT_EQ(info[1], "Writing ICON, id = 1, language = 0x409, offset = 0x20");
    auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].first + " " + r[1].first, "#3 #1 0409 #1 #2 0409");
    EXPECT_EQ(r[0].second, path_of("a.ico").generic_string());
}

TEST_F(Icons, CursorBitCounts) {
    std::vector<Image> images;
    for (uint16_t bits : {1, 4, 8, 15, 16, 24, 32})
        images.push_back({0, 0, 0, 0, 0, 0, dib(16, 32, bits, 40)});
    write_file("c.cur", image_file(2, images));
    auto e = compile_ok("1 CURSOR \"c.cur\"\n");
    ASSERT_EQ(e.size(), 8u);
    // The colour word, 1 << (bit count mod 32) cut to 16 bits and
    // sign-extended, listed as the bits that count to it (32 for 0 or less).
    const uint16_t want[] = {1, 4, 8, 32, 32, 32, 0};
    for (size_t i = 0; i < 7; i++) EXPECT_EQ(get16(e[7].data, 6 + 14 * i + 6), want[i]) << i;
}

TEST_F(Icons, MemoryOptionsApplyToImagesOnly) {
    write_file("a.ico", one_icon);
    auto e = compile_ok("70000 ICON FIXED \"a.ico\"\n2 ICON DISCARDABLE PRELOAD \"a.ico\"\n",
                        {"1: warning: Name ordinal value outside bounds."});
    EXPECT_EQ(heads(e), (Lines{"#3 #1 1000 0409", "#14 #4464 1030 0409", "#3 #2 1070 0409",
                               "#14 #2 1030 0409"}));
}

TEST_F(Icons, InlineFormsTakeNoPngTestAndNoCountLimit) {
    // The header written with a sign, a 0x prefix and a value above a byte.
    std::string icon = "BEGIN '0x0 +0 101 0 1 -100' " + hex(image_file(1, {icon_png}).substr(6));
    auto e = compile_ok("1 ICON " + icon + " END\n2 CURSOR " + block(one_cursor) +
                        "3 ICON { '00 00 01 00 00 00' }\n");
    ASSERT_EQ(heads(e), (Lines{"#3 #1 1010 0409", "#14 #1 1030 0409", "#1 #2 1010 0409",
                               "#12 #2 1030 0409", "#14 #3 1030 0409"}));
    EXPECT_EQ(e[0].data, Bytes::of(icon_png.bytes));
    // Planes and bit count come from offsets 12 and 14 of the PNG stream.
    Bytes group = Bytes().u16(0, 1, 1).u8(7, 9, 3, 0);
    EXPECT_EQ(e[1].data, group.u16(get16(e[0].data, 12), get16(e[0].data, 14)).u32(30).u16(1));
    EXPECT_EQ(e[2].data, Bytes().u16(5, 7).text(cursor1.bytes));
    EXPECT_EQ(e[3].data, Bytes().u16(0, 2, 1, 32, 64, 1, 1).u32(54).u16(2));
    EXPECT_EQ(e[4].data, Bytes().u16(0, 1, 0)); // a count of 0 inline is taken
    EXPECT_TRUE(records().empty());
}

TEST_F(Icons, MalformedFiles) {
    // Counts and types are checked, and no image is read past its end: a
    // short read reports the system's own text.
    const struct {
        const char* keyword;
        std::string file;
        bool corrupt;
    } rows[] = {
        {"ICON", with_byte(one_icon, 4, 0), true},
        {"ICON", with_byte(one_icon, 5, 0x10), true}, // 4097 images
        {"ICON", one_cursor, true},
        {"CURSOR", one_icon, true},
        {"ICON", image_file(1, {{0, 0, 0, 0, 1, 32, png(8)}}), true}, // a PNG signature only
        {"CURSOR", image_file(2, {{0, 0, 0, 0, 1, 2, std::string(15, 'x')}}), true},
        {"ICON", std::string("\0\0\x01", 3), false},
        {"ICON", image_file(1, {icon16, icon32}).substr(0, 30), false},
        {"ICON", with_byte(one_icon, 21, 0x7F), false},     // offset past the end
        {"CURSOR", with_byte(one_cursor, 17, 0x7F), false}, // size past the end
        {"ICON", one_icon.substr(0, 52), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        fresh();
        write_file("z.bin", row.file);
        Lines got = compile_fail("1 " + std::string(row.keyword) + " z.bin\n");
        ASSERT_EQ(got.size(), 1u);
        if (row.corrupt)
            EXPECT_EQ(got[0], "1: error: Invalid or corrupt file: 'z.bin'.");
        else
            EXPECT_TRUE(got[0].rfind("1: error: ", 0) == 0 && got[0].find("corrupt") > 99)
                << got[0];
    }
    expect_failures({{"1 ICON \"missing.ico\"\n", {"1: error: File not found: 'missing.ico'."}}});
}

TEST_F(Icons, MalformedInlineBytes) {
    // Only the type is checked, but nothing is read past the bytes; the
    // message names the script.
    const std::string corrupt =
        "2: error: Invalid or corrupt file: '" + path_of("input.rc").string() + "'.";
    const std::string syntax = "1: error: Invalid syntax.", syntax2 = "2: error: Invalid syntax.";
    expect_failures({
        {"1 ICON " + block(image_file(1, {icon16, icon32}).substr(0, 30)), {corrupt}},
        {"1 ICON " + block(with_byte(one_icon, 5, 0x10)), {corrupt}},
        {"1 CURSOR " + block(with_byte(one_cursor, 14, char(0xF0))), {corrupt}},
        {"1 ICON " + block(with_byte(one_icon, 18, 0x60)), {corrupt}},
        {"1 ICON " + block(one_cursor), {corrupt}},
        {"1 CURSOR " + block(image_file(2, {{0, 0, 0, 0, 1, 2, "123456789012"}})), {corrupt}},
        {"1 ICON BEGIN END\n", {syntax}},
        {"1 ICON BEGIN '00 00 01 00 01 00'\n5 END\n", {syntax2}},
        {"1 ICON 5\n", {"1: error: BEGIN keyword or { character expected (found: 5).", syntax2}},
        // A cursor skips what it cannot take, its first END included.
        {"1 CURSOR BEGIN END 2 3 END\n", {syntax, syntax, syntax, corrupt}},
        {"1 CURSOR BEGIN 1 END\n", {syntax, corrupt}},
        {"1 CURSOR BEGIN '00'\n", {syntax2, "2: fatal error: Unexpected end of file."}},
        // Were '7,8' to give a byte, the directory after it would be misread.
        {"1 ICON BEGIN '00 00 01 00 01 00'\n'7,8'\n" + hex(one_icon.substr(6)) + " END\n",
         {syntax2}},
        {"1 ICON BEGIN '00 00 01 00 01 00 ' END\n", {syntax, corrupt}},
    });
}

// Every byte of the header and directory of a two-image file spoiled in
// turn, in both forms: each compiles or fails cleanly, and what is written
// is well framed.
TEST_F(Icons, SpoiledHeadersCompileOrFailCleanly) {
    for (int at = 0; at < 6 + 2 * 16; at++)
        for (int form = 0; form < 4; form++) {
            bool cursor = form & 1, from_file = form & 2;
            SCOPED_TRACE(std::to_string(at) + " " + std::to_string(form));
            std::string bytes = with_byte(cursor ? image_file(2, {cursor1, cursor24})
                                                 : image_file(1, {icon16, icon32}),
                                          at, char(0xFF));
            if (from_file) write_file("x.bin", bytes);
            fresh();
            std::vector<uint8_t> res;
            if (compile((cursor ? "1 CURSOR " : "1 ICON ") + (from_file ? "x.bin\n" : block(bytes)),
                        &res))
                read_res(res);
            else
                EXPECT_FALSE(diags.empty());
        }
}

} // namespace
