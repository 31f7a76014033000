// BITMAP (from a file and inline), the whole-file statements ANICURSOR,
// ANIICON, HTML, MANIFEST, MESSAGETABLE, PLUGPLAY and VXD, and the records
// of the files copied.
#include <cstdio>

#include "resources/res_reader.h"

using namespace res_test;

namespace {

using FileCopy = ResTest;

// n bytes that count up from `first`.
std::string counting(size_t n, int first = 0) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s.push_back(char((first + i) & 0xFF));
    return s;
}

std::string riff(const char* form, size_t n) {
    return std::string("RIFF") + "\x12\x34\x56\x78" + form + counting(n);
}

TEST_F(FileCopy, BitmapDropsTheFileHeader) {
    std::string file = "BM" + counting(998, 2);
    write_file("a.bmp", file);
    auto e = compile_ok("1 BITMAP \"a.bmp\"\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].type, ord(2));
    EXPECT_EQ(e[0].flags, 0x0030);
    EXPECT_EQ(e[0].data, bytes(file.substr(14)));
}

TEST_F(FileCopy, InlineBitmap) {
    auto e = compile_ok("1 BITMAP MOVEABLE BEGIN '42 4D' '00 00 00 00 00 00 00 00 00 00 00 00' "
                        "'FF' END\n"
                        "2 BITMAP { '42 4D 0 0 0 0 0 0 0 0 0 0 0 0 1 0x2 -1 100 7FFFFFFF "
                        "80000000 -80000000 -FFFFFFFFF' }\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].type, ord(2));
    EXPECT_EQ(e[0].data, Bytes().u8(0xFF));
    EXPECT_EQ(e[1].data, Bytes().u8(1, 2, 0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x00));
}

TEST_F(FileCopy, WholeFileStatements) {
    const struct {
        const char* keyword;
        uint16_t type;
    } kinds[] = {{"ANICURSOR", 21},    {"ANIICON", 22},  {"HTML", 23}, {"MANIFEST", 24},
                 {"MESSAGETABLE", 11}, {"PLUGPLAY", 19}, {"VXD", 20}};
    std::string file = riff("ACON", 9), big = counting(5000, 7);
    write_file("f.bin", file);
    write_file("m.xml", big);
    write_file("e.htm", "");
    std::string script;
    for (const auto& k : kinds) script += std::string("R ") + k.keyword + " f.bin\n";
    auto e = compile_ok(script + "1 HTML e.htm\n2 MANIFEST DISCARDABLE \"m.xml\"\n");
    ASSERT_EQ(e.size(), 9u);
    for (size_t i = 0; i < 7; ++i) {
        SCOPED_TRACE(kinds[i].keyword);
        EXPECT_EQ(e[i].type, ord(kinds[i].type));
        EXPECT_EQ(e[i].name, u"R");
        EXPECT_EQ(e[i].flags, 0x0030);
        EXPECT_EQ(e[i].data, bytes(file));
        // Each entry: a 32-byte header and 21 bytes of data padded to 24.
        char offset[16];
        std::snprintf(offset, sizeof offset, "0x%X", unsigned(0x20 + i * 0x38));
        EXPECT_EQ(info[i + 1], std::string("Writing ") + kinds[i].keyword +
                                   ", id = R, language = 0x409, offset = " + offset);
    }
    EXPECT_TRUE(e[7].data.empty());
    EXPECT_EQ(e[8].data, bytes(big));
    EXPECT_EQ(e[8].flags, 0x1030);
}

TEST_F(FileCopy, Failures) {
    write_file("b.bmp", "MB" + counting(40));
    write_file("short.bmp", "BM" + counting(5));
    write_file("ok.ani", riff("ACON", 0));
    write_file("rifx.ani", "RIFX" + std::string(4, '\0') + "ACON");
    write_file("form.ani", riff("AVI ", 4));
    write_file("short.ani", riff("ACON", 0).substr(0, 11));
    expect_failures({
        {"1 BITMAP b.bmp\n", {"1: error: Invalid or corrupt file: 'b.bmp'."}},
        {"1 ANICURSOR ok.ani\n2 ANICURSOR rifx.ani\n3 ANIICON form.ani\n5 HTML form.ani\n",
         {"2: error: Invalid or corrupt file: 'rifx.ani'.",
          "3: error: Invalid or corrupt file: 'form.ani'."}},
        {"1 HTML BEGIN\n2 VXD 5\n", {"1: error: Invalid syntax.", "2: error: Invalid syntax."}},
        {"1 HTML \"nothing.htm\"\n2 BITMAP no\\such.bmp\n3 PLUGPLAY \"a/b/c\"\n",
         {"1: error: File not found: 'nothing.htm'.", "2: error: File not found: 'no\\such.bmp'.",
          "3: error: File not found: 'a/b/c'."}},
        {"1 BITMAP BEGIN '42 4D 0 0 0 0 0 0 0 0 0 0 0 0' '1,2' '3 ' 'x' 4 END\n"
         "2 BITMAP BEGIN '42 4D 0' END\n3 BITMAP BEGIN END '42 4D' END\n4 BITMAP '42' END END\n",
         {"1: error: Invalid syntax.", "1: error: Invalid syntax.", "1: error: Invalid syntax.",
          "1: error: Invalid syntax.", "3: error: Invalid or corrupt file: ''.",
          "3: error: Invalid syntax.", "4: error: Invalid or corrupt file: ''.",
          "4: error: BEGIN keyword or { character expected (found: 'HEXSTRING').",
          "4: error: Invalid syntax.", "5: error: Invalid or corrupt file: ''."}},
        {"1 BITMAP BEGIN '42 4D'\n", {"2: fatal error: Unexpected end of file."}},
    });
    // A short read gives the system's own text.
    for (const char* script : {"1 BITMAP \"short.bmp\"\n", "1 ANIICON short.ani\n"}) {
        fresh();
        Lines lines = compile_fail(script);
        ASSERT_EQ(lines.size(), 1u) << script;
        EXPECT_EQ(lines[0].substr(0, 10), "1: error: ");
        EXPECT_EQ(lines[0].find("corrupt"), std::string::npos) << lines[0];
    }
}

TEST_F(FileCopy, EveryCopiedFileIsRecordedWithTheDefaultLanguage) {
    write_file("f.bin", "BM" + counting(20));
    compile_fail("LANGUAGE 7, 1\nA BITMAP f.bin\n2 VXD f.bin\n3 HTML missing\n"
                 "4 BITMAP BEGIN '42 4D 0 0 0 0 0 0 0 0 0 0 0 0' END\n");
    std::vector<Record> seen = records();
    ASSERT_EQ(seen.size(), 3u); // the missing file too; inline data none
    EXPECT_EQ(seen[0].type, ord(2));
    EXPECT_EQ(seen[0].name, u"A");
    EXPECT_EQ(seen[0].language, 0x0407);
    EXPECT_EQ(seen[1].type, ord(20));
    EXPECT_EQ(seen[2].type, ord(23));
    // Without an output file (dependencies only) the records are still kept.
    fresh();
    set_error_function_w(nullptr, 1);
    std::filesystem::path in = write_file("in.rc", "1 HTML f.bin\n");
    EXPECT_EQ(compile_script_w(wide(in).c_str(), nullptr), 1);
    EXPECT_EQ(records().size(), 1u);
}

} // namespace
