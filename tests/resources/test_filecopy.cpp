// BITMAP (from a file and inline) and the whole-file statements ANICURSOR,
// ANIICON, HTML, MANIFEST, MESSAGETABLE, PLUGPLAY and VXD.
#include "harness/harness.h"
#include "resources/test_loop_res.h"

#include <tarn/tarn.h>

#include <cstdio>

using namespace tarn_test;

namespace {

class FileCopy : public FreshLibrary {
  protected:
    std::vector<ResEntry> compile_ok(const std::string& script) {
        Bytes res;
        EXPECT_EQ(compile(script, &res), 1) << script;
        return parse_res(res);
    }
};

// n bytes that count up from `first`.
std::string counting(size_t n, int first = 0) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s.push_back(char((first + i) & 0xFF));
    return s;
}
Bytes bytes_of(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

std::string riff(const char* form, size_t n) {
    return std::string("RIFF") + "\x12\x34\x56\x78" + form + counting(n);
}

TEST_F(FileCopy, BitmapDropsTheFileHeader) {
    std::string file = "BM" + counting(998, 2);
    write_file("a.bmp", file);
    Bytes res;
    ASSERT_EQ(compile("1 BITMAP \"a.bmp\"\n", &res), 1);
    auto e = parse_res(res);
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].type, ord(2));
    EXPECT_EQ(e[0].memory_flags, 0x0030);
    EXPECT_EQ(e[0].data, bytes_of(file.substr(14)));
    EXPECT_EQ(e[0].data.size(), 986u);
    EXPECT_EQ(res.size(), 32u + 32 + 986 + 2);
}

TEST_F(FileCopy, BitmapWithoutBMIsRejected) {
    write_file("b.bmp", "MB" + counting(40));
    write_file("short.bmp", "BM" + counting(5));
    Bytes res;
    EXPECT_EQ(compile("1 BITMAP b.bmp\n2 BITMAP \"short.bmp\"\n", &res), 0);
    EXPECT_TRUE(res.empty());
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(rendered(diags)[0], "1: error: Invalid or corrupt file: 'b.bmp'.");
    EXPECT_EQ(diags[1].severity, 1); // the short read's own system text
    EXPECT_EQ(diags[1].line, 2u);
}

TEST_F(FileCopy, InlineBitmap) {
    auto e = compile_ok("1 BITMAP MOVEABLE BEGIN '42 4D' '00 00 00 00 00 00 00 00 00 00 00 00' "
                        "'FF' END\n"
                        "2 BITMAP { '42 4D 0 0 0 0 0 0 0 0 0 0 0 0 1 0x2 -1 100 7FFFFFFF "
                        "80000000 -80000000 -FFFFFFFFF' }\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].type, ord(2));
    EXPECT_EQ(e[0].data, (Bytes{0xFF}));
    EXPECT_EQ(e[1].data, (Bytes{1, 2, 0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x00}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(FileCopy, InlineBitmapErrors) {
    EXPECT_EQ(compile("1 BITMAP BEGIN '42 4D 0 0 0 0 0 0 0 0 0 0 0 0' '1,2' '3 ' 'x' 4 END\n"
                      "2 BITMAP BEGIN '42 4D 0' END\n"
                      "3 BITMAP BEGIN END '42 4D' END\n"
                      "4 BITMAP '42' END END\n"),
              0);
    EXPECT_EQ(rendered(diags),
              (Lines{"1: error: Invalid syntax.", "1: error: Invalid syntax.",
                     "1: error: Invalid syntax.", "1: error: Invalid syntax.",
                     "3: error: Invalid or corrupt file: ''.", "3: error: Invalid syntax.",
                     "4: error: Invalid or corrupt file: ''.",
                     "4: error: BEGIN keyword or { character expected (found: 'HEXSTRING').",
                     "4: error: Invalid syntax.", "5: error: Invalid or corrupt file: ''."}));
}

TEST_F(FileCopy, InlineBitmapWithoutEndIsFatal) {
    EXPECT_EQ(compile("1 BITMAP BEGIN '42 4D'\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"2: fatal error: Unexpected end of file."}));
}

TEST_F(FileCopy, WholeFileStatements) {
    struct Kind {
        const char* keyword;
        uint16_t type;
    };
    const Kind kinds[] = {{"ANICURSOR", 21},    {"ANIICON", 22},  {"HTML", 23}, {"MANIFEST", 24},
                          {"MESSAGETABLE", 11}, {"PLUGPLAY", 19}, {"VXD", 20}};
    std::string file = riff("ACON", 9);
    write_file("f.bin", file);
    std::string script;
    for (const Kind& k : kinds) script += std::string("R ") + k.keyword + " f.bin\n";
    auto e = compile_ok(script);
    ASSERT_EQ(e.size(), 7u);
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(e[i].type, ord(kinds[i].type)) << kinds[i].keyword;
        EXPECT_EQ(e[i].name, u"R");
        EXPECT_EQ(e[i].memory_flags, 0x0030);
        EXPECT_EQ(e[i].data, bytes_of(file));
        // Each entry: a 32-byte header and 21 bytes of data padded to 24.
        char offset[16];
        std::snprintf(offset, sizeof offset, "0x%X", unsigned(0x20 + i * 0x38));
        EXPECT_EQ(info[i + 1], std::string("Writing ") + kinds[i].keyword +
                                   ", id = R, language = 0x409, offset = " + offset);
    }
    EXPECT_TRUE(diags.empty());
}

TEST_F(FileCopy, EmptyAndLargeFiles) {
    write_file("e.htm", "");
    std::string big = counting(5000, 7);
    write_file("m.xml", big);
    auto e = compile_ok("1 HTML e.htm\n2 MANIFEST DISCARDABLE \"m.xml\"\n3 MESSAGETABLE m.xml\n");
    ASSERT_EQ(e.size(), 3u);
    EXPECT_TRUE(e[0].data.empty());
    EXPECT_EQ(e[1].data, bytes_of(big));
    EXPECT_EQ(e[1].memory_flags, 0x1030);
    EXPECT_EQ(e[2].memory_flags, 0x0030);
}

TEST_F(FileCopy, AnimatedFilesNeedARiffAconHeader) {
    write_file("ok.ani", riff("ACON", 0));
    write_file("rifx.ani", "RIFX" + std::string(4, '\0') + "ACON");
    write_file("form.ani", riff("AVI ", 4));
    write_file("short.ani", riff("ACON", 0).substr(0, 11));
    EXPECT_EQ(compile("1 ANICURSOR ok.ani\n2 ANICURSOR rifx.ani\n3 ANIICON form.ani\n"
                      "4 ANIICON short.ani\n5 HTML form.ani\n"),
              0);
    Lines r = rendered(diags);
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r[0], "2: error: Invalid or corrupt file: 'rifx.ani'.");
    EXPECT_EQ(r[1], "3: error: Invalid or corrupt file: 'form.ani'.");
    EXPECT_EQ(r[2].substr(0, 10), "4: error: "); // the short read's system text
    EXPECT_EQ(diags[2].severity, 1);
}

TEST_F(FileCopy, TheFileOperandMustBeANameOrString) {
    EXPECT_EQ(compile("1 HTML BEGIN\n2 VXD 5\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: Invalid syntax.", "2: error: Invalid syntax."}));
}

TEST_F(FileCopy, MissingFiles) {
    EXPECT_EQ(compile("1 HTML \"nothing.htm\"\n2 BITMAP no\\such.bmp\n3 PLUGPLAY \"a/b/c\"\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: File not found: 'nothing.htm'.",
                                      "2: error: File not found: 'no\\such.bmp'.",
                                      "3: error: File not found: 'a/b/c'."}));
}

TEST_F(FileCopy, EveryCopiedFileIsRecordedWithTheDefaultLanguage) {
    write_file("f.bin", "BM" + counting(20));
    ASSERT_EQ(compile("LANGUAGE 7, 1\nA BITMAP f.bin\n2 VXD f.bin\n3 HTML missing\n"
                      "4 BITMAP BEGIN '42 4D 0 0 0 0 0 0 0 0 0 0 0 0' END\n"),
              0);
    std::vector<Record> seen = records();
    ASSERT_EQ(seen.size(), 3u); // the missing file too; inline data none
    EXPECT_EQ(seen[0].type, ord(2));
    EXPECT_EQ(seen[0].name, u"A");
    EXPECT_EQ(seen[0].language, 0x0407);
    EXPECT_EQ(seen[1].type, ord(20));
    EXPECT_EQ(seen[2].type, ord(23));
}

TEST_F(FileCopy, DependencyModeWithoutOutputStillRecords) {
    set_error_function_w(nullptr, 1);
    write_file("f.bin", "x");
    std::filesystem::path in = write_file("in.rc", "1 HTML f.bin\n");
    EXPECT_EQ(compile_script_w(wide(in).c_str(), nullptr), 1);
    EXPECT_EQ(records().size(), 1u);
}

} // namespace
