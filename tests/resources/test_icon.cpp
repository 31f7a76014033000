// ICON and CURSOR: image resources numbered by the process-wide counter,
// group resources, PNG icons, cursor hotspots and bit counts, file and
// inline forms, and malformed input: no read goes past an image or the
// inline bytes (the sanitizer build checks the reads).
#include <cstdio>

#include "resources/common.h"
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Icons = ResTest;

struct Image {
    uint8_t width, height, colours, reserved;
    uint16_t planes, bit_count; // hotspot x and y in a cursor file
    std::string bytes;
};

// A BITMAPINFOHEADER and filler up to `total` bytes.
std::string dib(int32_t width, int32_t height, uint16_t bits, size_t total) {
    Bytes b = Bytes().u32(40, width, height).u16(1, bits);
    while (b.size() < total) b.u8(0xA0 + b.size());
    b.resize(total);
    return std::string(b.begin(), b.end());
}

std::string png(size_t total) {
    Bytes b = Bytes().u8(0x89).text("PNG\r\n\x1a\n").u32(0x0D000000).text("IHDR");
    while (b.size() < total) b.u8(b.size());
    b.resize(total);
    return std::string(b.begin(), b.end());
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
    return std::string(b.begin(), b.end());
}

// The bytes as a script's BEGIN ... END block of hex strings.
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

std::string with_byte(std::string s, size_t at, char value) {
    s[at] = value;
    return s;
}

const Image icon16 = {16, 16, 16, 0, 1, 4, dib(16, 32, 4, 61)};
const Image icon32 = {32, 32, 0, 0, 0, 0, dib(32, 64, 32, 48)}; // planes, bits from the image
const Image icon_png = {7, 9, 3, 0, 0, 0, png(30)};
const Image cursor1 = {0xAA, 0xBB, 0xCC, 0xDD, 5, 7, dib(32, 64, 1, 50)};
const Image cursor24 = {0, 0, 0, 0, 1, 2, dib(128, 256, 24, 44)};
const std::string one_icon = image_file(1, {icon16});
const std::string one_cursor = image_file(2, {cursor1});

TEST_F(Icons, FileFormsNumberImagesAcrossStatements) {
    write_file("a.ico", image_file(1, {icon16, icon32, icon_png}));
    write_file("b.cur", image_file(2, {cursor1, cursor24}));
    auto e = compile_ok("1 ICON \"a.ico\"\n2 CURSOR b.cur\n");
    ASSERT_EQ(e.size(), 7u);
    for (uint16_t i = 0; i < 3; i++) {
        EXPECT_EQ(e[i].type, ord(3));
        EXPECT_EQ(e[i].name, ord(i + 1));
        EXPECT_EQ(e[i].flags, 0x1010);
    }
    EXPECT_EQ(e[0].data, bytes(icon16.bytes));
    EXPECT_EQ(e[2].data, bytes(icon_png.bytes)); // the PNG stream unchanged
    EXPECT_EQ(e[3].type, ord(14));
    EXPECT_EQ(e[3].name, ord(1));
    EXPECT_EQ(e[3].flags, 0x1030);
    Bytes group = Bytes().u16(0, 1, 3);
    group.u8(16, 16, 16, 0).u16(1, 4).u32(61).u16(1);
    group.u8(32, 32, 0, 0).u16(1, 32).u32(48).u16(2);
    group.u8(0, 0, 3, 0).u16(1, 32).u32(30).u16(3); // PNG: 0 x 0, 1 plane, 32 bits
    EXPECT_EQ(e[3].data, group);

    EXPECT_EQ(e[4].type, ord(1));
    EXPECT_EQ(e[4].name, ord(4)); // the counter runs on from the icon's images
    EXPECT_EQ(e[4].data, Bytes().u16(5, 7).text(cursor1.bytes));
    EXPECT_EQ(e[5].name, ord(5));
    EXPECT_EQ(e[5].data, Bytes().u16(1, 2).text(cursor24.bytes));
    EXPECT_EQ(e[6].type, ord(12));
    EXPECT_EQ(e[6].name, ord(2));
    // 128 wide sign-extends from 8 bits; a height of 256 keeps its low 8
    // bits; 24 bits per pixel give a colour word of 0 and so 32.
    Bytes cursors = Bytes().u16(0, 2, 2).u16(32, 64, 1, 1).u32(54).u16(4);
    EXPECT_EQ(e[6].data, cursors.u16(0xFF80, 0, 1, 32).u32(48).u16(5));

    ASSERT_EQ(info.size(), 3u); // one verbose line per statement
    EXPECT_EQ(info[1], "Writing ICON, id = 1, language = 0x409, offset = 0x20");
    auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, ord(3));
    EXPECT_NE(r[0].path.find(u"a.ico"), std::u16string::npos);
    EXPECT_EQ(r[1].type, ord(1));
    EXPECT_EQ(r[1].name, ord(2));
}

TEST_F(Icons, CursorBitCounts) {
    std::vector<Image> images;
    for (uint16_t bits : {1, 4, 8, 15, 16, 24, 32})
        images.push_back({0, 0, 0, 0, 0, 0, dib(16, 32, bits, 40)});
    write_file("c.cur", image_file(2, images));
    auto e = compile_ok("1 CURSOR \"c.cur\"\n");
    ASSERT_EQ(e.size(), 8u);
    const uint16_t want[] = {1, 4, 8, 32, 32, 32, 0};
    for (size_t i = 0; i < 7; i++) EXPECT_EQ(get16(e[7].data, 6 + 14 * i + 6), want[i]) << i;
    EXPECT_EQ(tarn::bits_for_colors(2), 1u);
    EXPECT_EQ(tarn::bits_for_colors(0xFFFF8000), 32u);
    EXPECT_EQ(tarn::bits_for_colors(0), 32u);
}

TEST_F(Icons, MemoryOptionsApplyToImagesOnly) {
    write_file("a.ico", one_icon);
    auto e = compile_ok("70000 ICON FIXED \"a.ico\"\n2 ICON DISCARDABLE PRELOAD \"a.ico\"\n",
                        {"1: warning: Name ordinal value outside bounds."});
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].flags, 0x1000);
    EXPECT_EQ(e[1].flags, 0x1030);
    EXPECT_EQ(e[1].name, ord(70000 & 0xFFFF));
    EXPECT_EQ(e[2].flags, 0x1070);
    EXPECT_EQ(e[3].flags, 0x1030);
}

TEST_F(Icons, InlineFormsTakeNoPngTestAndNoCountLimit) {
    std::string icon = image_file(1, {icon_png});
    // The header written with a sign, a 0x prefix and a value above a byte.
    std::string header = "'0x0 +0 101 0 1 -100'\n";
    std::string rest = hex_block(icon.substr(6)).substr(6); // without its BEGIN
    auto e = compile_ok("1 ICON BEGIN " + header + rest + "2 CURSOR " + hex_block(one_cursor) +
                        "3 ICON { '00 00 01 00 00 00' }\n");
    ASSERT_EQ(e.size(), 5u);
    EXPECT_EQ(e[0].data, bytes(icon_png.bytes));
    // Planes and bit count come from offsets 12 and 14 of the PNG stream.
    Bytes group = Bytes().u16(0, 1, 1).u8(7, 9, 3, 0);
    group.u16(get16(e[0].data, 12), get16(e[0].data, 14)).u32(30).u16(1);
    EXPECT_EQ(e[1].data, group);
    EXPECT_EQ(e[2].type, ord(1));
    EXPECT_EQ(e[2].name, ord(2));
    EXPECT_EQ(e[2].data, Bytes().u16(5, 7).text(cursor1.bytes));
    EXPECT_EQ(e[3].data, Bytes().u16(0, 2, 1, 32, 64, 1, 1).u32(54).u16(2));
    EXPECT_EQ(e[4].type, ord(14));
    EXPECT_EQ(e[4].data, Bytes().u16(0, 1, 0)); // a count of 0 inline is taken
    EXPECT_TRUE(records().empty());
}

TEST_F(Icons, MalformedFiles) {
    // Counts and types are checked, and images never read past their end.
    const std::pair<const char*, std::string> corrupt[] = {
        {"ICON", with_byte(one_icon, 4, 0)},
        {"ICON", with_byte(one_icon, 5, 0x10)}, // 4097 images
        {"ICON", one_cursor},
        {"CURSOR", one_icon},
        {"ICON", image_file(1, {{0, 0, 0, 0, 1, 32, png(8)}})}, // a PNG signature only
        {"CURSOR", image_file(2, {{0, 0, 0, 0, 1, 2, std::string(15, 'x')}})},
    };
    const std::pair<const char*, std::string> short_reads[] = {
        {"ICON", std::string("\0\0\x01", 3)},
        {"ICON", image_file(1, {icon16, icon32}).substr(0, 30)},
        {"ICON", with_byte(one_icon, 21, 0x7F)},     // offset past the end
        {"CURSOR", with_byte(one_cursor, 17, 0x7F)}, // size past the end
        {"ICON", one_icon.substr(0, 52)},
    };
    for (const auto& [keyword, file] : corrupt) {
        SCOPED_TRACE(&file - &corrupt[0].second);
        fresh();
        write_file("z.bin", file);
        EXPECT_EQ(compile_fail("1 " + std::string(keyword) + " z.bin\n"),
                  Lines{"1: error: Invalid or corrupt file: 'z.bin'."});
    }
    for (const auto& [keyword, file] : short_reads) {
        SCOPED_TRACE(&file - &short_reads[0].second);
        fresh();
        write_file("z.bin", file);
        Lines got = compile_fail("1 " + std::string(keyword) + " z.bin\n");
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0].rfind("1: error: ", 0), 0u); // the read's own system text
        EXPECT_EQ(got[0].find("corrupt"), std::string::npos) << got[0];
    }
    fresh();
    EXPECT_EQ(compile_fail("1 ICON \"missing.ico\"\n"),
              Lines{"1: error: File not found: 'missing.ico'."});
}

TEST_F(Icons, MalformedInlineBytes) {
    // Only the type is checked, but nothing is read past the bytes; the
    // message names the script.
    auto corrupt = [&](int line) {
        return std::to_string(line) + ": error: Invalid or corrupt file: '" +
               path_of("input.rc").string() + "'.";
    };
    const std::string syntax = "1: error: Invalid syntax.";
    expect_failures({
        {"1 ICON " + hex_block(image_file(1, {icon16, icon32}).substr(0, 30)), {corrupt(5)}},
        {"1 ICON " + hex_block(with_byte(one_icon, 5, 0x10)), {corrupt(9)}},
        {"1 CURSOR " + hex_block(with_byte(one_cursor, 14, char(0xF0))), {corrupt(8)}},
        {"1 ICON " + hex_block(with_byte(one_icon, 18, 0x60)), {corrupt(9)}},
        {"1 ICON " + hex_block(one_cursor), {corrupt(8)}},
        {"1 CURSOR " + hex_block(image_file(2, {{0, 0, 0, 0, 1, 2, "123456789012"}})),
         {corrupt(6)}},
        {"1 ICON BEGIN END\n", {syntax}},
        {"1 ICON BEGIN '00 00 01 00 01 00'\n5 END\n", {"2: error: Invalid syntax."}},
        {"1 ICON 5\n",
         {"1: error: BEGIN keyword or { character expected (found: 5).",
          "2: error: Invalid syntax."}},
        // A cursor skips what it cannot take, its first END included.
        {"1 CURSOR BEGIN END 2 3 END\n", {syntax, syntax, syntax, corrupt(2)}},
        {"1 CURSOR BEGIN 1 END\n", {syntax, corrupt(2)}},
        {"1 CURSOR BEGIN '00'\n",
         {"2: error: Invalid syntax.", "2: fatal error: Unexpected end of file."}},
        // Were '7,8' to give a byte, the directory after it would be misread.
        {"1 ICON BEGIN '00 00 01 00 01 00'\n'7,8'\n" + hex_block(one_icon.substr(6)).substr(6),
         {"2: error: Invalid syntax."}},
        {"1 ICON BEGIN '00 00 01 00 01 00 ' END\n", {syntax, corrupt(2)}},
    });
}

// Every byte of the header and directory of a two-image file spoiled in
// turn, in both forms: each compiles or fails cleanly, and what is written
// is well framed.
TEST_F(Icons, SpoiledHeadersCompileOrFailCleanly) {
    for (int at = 0; at < 6 + 2 * 16; at++)
        for (bool cursor : {false, true})
            for (bool from_file : {false, true}) {
                SCOPED_TRACE(std::to_string(at) + (cursor ? " cursor" : " icon") +
                             (from_file ? " file" : " inline"));
                std::string bytes =
                    cursor ? image_file(2, {cursor1, cursor24}) : image_file(1, {icon16, icon32});
                bytes[size_t(at)] = char(0xFF);
                if (from_file) write_file("x.bin", bytes);
                fresh();
                std::vector<uint8_t> res;
                std::string keyword = cursor ? "1 CURSOR " : "1 ICON ";
                if (compile(keyword + (from_file ? "x.bin\n" : hex_block(bytes)), &res))
                    read_res(res);
                else
                    EXPECT_FALSE(diags.empty());
            }
}

} // namespace
