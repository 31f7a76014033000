// BITMAP (from a file and inline), the whole-file statements ANICURSOR,
// ANIICON, HTML, MANIFEST, MESSAGETABLE, PLUGPLAY and VXD, and the records
// of the files copied.
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
    return std::string("RIFF\x12\x34\x56\x78") + form + counting(n);
}

TEST_F(FileCopy, Bitmaps) {
    std::string file = "BM" + counting(998, 2);
    write_file("a.bmp", file);
    auto e = compile_ok("1 BITMAP \"a.bmp\"\n"
                        "2 BITMAP MOVEABLE BEGIN '42 4D' '00 00 00 00 00 00 00 00 00 00 00 00' "
                        "'FF' END\n"
                        "3 BITMAP { '42 4D 0 0 0 0 0 0 0 0 0 0 0 0 1 0x2 -1 100 7FFFFFFF "
                        "80000000 -80000000 -FFFFFFFFF' }\n");
    ASSERT_EQ(heads(e), (Lines{"#2 #1 0030 0409", "#2 #2 0030 0409", "#2 #3 0030 0409"}));
    EXPECT_EQ(e[0].data, Bytes::of(file.substr(14))); // without the file header
    EXPECT_EQ(e[1].data, Bytes().u8(0xFF));
    EXPECT_EQ(e[2].data, Bytes().u8(1, 2, 0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x00));
}

TEST_F(FileCopy, WholeFileStatements) {
    const char* keywords[] = {"ANICURSOR",    "ANIICON",  "HTML", "MANIFEST",
                              "MESSAGETABLE", "PLUGPLAY", "VXD"};
    std::string file = riff("ACON", 9), big = counting(5000, 7);
    write_file("f.bin", file);
    write_file("m.xml", big);
    write_file("e.htm", "");
    std::string script;
    for (const char* k : keywords) script += std::string("R ") + k + " f.bin\n";
    auto e = compile_ok(script + "1 HTML e.htm\n2 MANIFEST DISCARDABLE \"m.xml\"\n");
    ASSERT_EQ(heads(e), (Lines{"#21 R 0030 0409", "#22 R 0030 0409", "#23 R 0030 0409",
                               "#24 R 0030 0409", "#11 R 0030 0409", "#19 R 0030 0409",
                               "#20 R 0030 0409", "#23 #1 0030 0409", "#24 #2 1030 0409"}));
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(e[i].data, Bytes::of(file));
        EXPECT_EQ(info[i + 1].rfind(std::string("Writing ") + keywords[i] + ", id = R,", 0), 0u);
    }
    EXPECT_TRUE(e[7].data.empty());
    EXPECT_EQ(e[8].data, Bytes::of(big));
}

TEST_F(FileCopy, Failures) {
    write_file("b.bmp", "MB" + counting(40));
    write_file("ok.ani", riff("ACON", 0));
    write_file("rifx.ani", "RIFX" + std::string(4, '\0') + "ACON");
    write_file("form.ani", riff("AVI ", 4));
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
    // A short read reports the system's own text.
    write_file("short.bmp", "BM" + counting(5));
    write_file("short.ani", riff("ACON", 0).substr(0, 11));
    for (const char* script : {"1 BITMAP \"short.bmp\"\n", "1 ANIICON short.ani\n"}) {
        fresh();
        Lines got = compile_fail(script);
        ASSERT_EQ(got.size(), 1u) << script;
        EXPECT_TRUE(got[0].rfind("1: error: ", 0) == 0 && got[0].find("corrupt") > 99) << got[0];
    }
}

TEST_F(FileCopy, EveryCopiedFileIsRecordedWithTheDefaultLanguage) {
    write_file("f.bin", "BM" + counting(20));
    compile_fail("LANGUAGE 7, 1\nA BITMAP f.bin\n2 VXD f.bin\n3 HTML missing\n"
                 "4 BITMAP BEGIN '42 4D 0 0 0 0 0 0 0 0 0 0 0 0' END\n");
    auto r = records(); // the missing file too; inline data none
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r[0].first + ", " + r[1].first + ", " + r[2].first,
              "#2 A 0407, #20 #2 0407, #23 #3 0407");
    // Without an output file (dependencies only) the records are still kept.
    fresh();
    set_error_function_w(nullptr, 1);
    std::filesystem::path in = write_file("in.rc", "1 HTML f.bin\n");
    EXPECT_EQ(compile_script_w(wide(in).c_str(), nullptr), 1);
    EXPECT_EQ(records().size(), 1u);
}

} // namespace
