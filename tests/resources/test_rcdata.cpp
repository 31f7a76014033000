// RCDATA inline and from files, and user-defined resource types.
#include "harness/harness.h"
#include "resources/test_loop_res.h"

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

class RawData : public FreshLibrary {
  protected:
    std::vector<ResEntry> compile_ok(const std::string& script) {
        Bytes res;
        EXPECT_EQ(compile(script, &res), 1) << script;
        return parse_res(res);
    }
    // One RCDATA per item list, all in one compilation (a loaded library
    // serves one); the data of each.
    std::vector<Bytes> data_of(const std::vector<std::string>& item_lists) {
        std::string script;
        for (const std::string& items : item_lists) script += "1 RCDATA BEGIN " + items + " END\n";
        std::vector<Bytes> out;
        for (const ResEntry& e : compile_ok(script)) out.push_back(e.data);
        EXPECT_EQ(out.size(), item_lists.size());
        return out;
    }
};

// The path as found, with either separator.
std::string slashed(std::string path) {
    for (char& c : path)
        if (c == '\\') c = '/';
    return path;
}

TEST_F(RawData, InlineItems) {
    auto data = data_of({"\"ab\", 1, 2L", "L\"a\"", "", "\"\\x1234\" L\"\\x1234\"",
                         "\"a\" \"b\" 0x10000, -1 (2+3)*2 0x10000 -1",
                         // "-2" starts with "-", when the last number lexed is still 1L.
                         "1L, -2", "1L, 2, -3", "2 + 3L, 0x12345678l",
                         // A stray comma is passed over.
                         ", 1,, 2 ,"});
    ASSERT_EQ(data.size(), 9u);
    EXPECT_EQ(data[0], (Bytes{'a', 'b', 1, 0, 2, 0, 0, 0}));
    EXPECT_EQ(data[1], (Bytes{'a', 0}));
    EXPECT_EQ(data[2], Bytes{});
    EXPECT_EQ(data[3], (Bytes{0x34, 0x34, 0}));
    EXPECT_EQ(data[4], (Bytes{'a', 'b', 0, 0, 0xFF, 0xFF, 10, 0, 0xFF, 0xFF}));
    EXPECT_EQ(data[5], (Bytes{1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(data[6], (Bytes{1, 0, 0, 0, 2, 0, 0xFD, 0xFF}));
    EXPECT_EQ(data[7], (Bytes{5, 0, 0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(data[8], (Bytes{1, 0, 2, 0}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(RawData, InlineDataIsPaddedAndKeepsItsAttributes) {
    Bytes res;
    ASSERT_EQ(compile("X RCDATA DISCARDABLE VERSION 2 CHARACTERISTICS 3 BEGIN \"abcde\" END\n"
                      "2 RCDATA {1}\n",
                      &res),
              1);
    auto e = parse_res(res);
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].name, u"X");
    EXPECT_EQ(e[0].type, ord(10));
    EXPECT_EQ(e[0].memory_flags, 0x1030);
    EXPECT_EQ(e[0].version, 2u);
    EXPECT_EQ(e[0].characteristics, 3u);
    EXPECT_EQ(e[0].data, (Bytes{'a', 'b', 'c', 'd', 'e'}));
    EXPECT_EQ(e[1].memory_flags, 0x0030);
}

TEST_F(RawData, BadItemsAreReportedAndWrittenAsZero) {
    EXPECT_EQ(compile("1 RCDATA BEGIN 1, x, 'hex', 2 END\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: Unknown keyword: 'x'.",
                                      "1: error: Number expected (found: 'HEXSTRING')."}));
}

TEST_F(RawData, MissingBegin) {
    EXPECT_EQ(compile("1 RCDATA L\"x.bin\" 1 END\n"), 0);
    EXPECT_EQ(rendered(diags),
              (Lines{"1: error: BEGIN keyword or { character expected (found: L\"STRING\")."}));
}

TEST_F(RawData, FromAFileWithOnlyItsMemoryFlags) {
    write_file("d.bin", "\x01\x02\x03");
    auto e = compile_ok("DATA RCDATA PRELOAD LANGUAGE 7, 1 VERSION 9 \"d.bin\"\n"
                        "2 RCDATA d.bin\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].name, u"DATA");
    EXPECT_EQ(e[0].type, ord(10));
    EXPECT_EQ(e[0].memory_flags, 0x0070);
    EXPECT_EQ(e[0].language, 0x0409); // the options are without effect here
    EXPECT_EQ(e[0].version, 0u);
    EXPECT_EQ(e[0].data, (Bytes{1, 2, 3}));
    EXPECT_EQ(e[1].data, (Bytes{1, 2, 3}));
    auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, ord(10));
    EXPECT_EQ(r[0].name, u"DATA");
    EXPECT_EQ(r[0].language, 0x0409);
    EXPECT_EQ(slashed(u8(r[0].path)), slashed(path_of("d.bin").string()));
}

TEST_F(RawData, MissingFilesAreReportedByTheirScriptName) {
    EXPECT_EQ(compile("DATA RCDATA \"missing.bin\"\n2 RCDATA BEGIN x END\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: File not found: 'missing.bin'.",
                                      "2: error: Unknown keyword: 'x'."}));
}

TEST_F(RawData, UserTypesByNumberAndName) {
    write_file("x.bin", "abcd");
    auto e = compile_ok("1 300 \"x.bin\"\n2 MyType x.bin\n3 \"T\" x.bin\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].type, ord(300));
    EXPECT_EQ(e[0].memory_flags, 0x0030);
    EXPECT_EQ(e[1].type, u"MYTYPE");
    EXPECT_EQ(e[1].name, ord(2));
    EXPECT_EQ(e[1].data, (Bytes{'a', 'b', 'c', 'd'}));
    // A string literal cannot be a type: it starts a statement, and so does
    // the file name, which then finds no type.
    EXPECT_EQ(rendered(diags), (Lines{"3: warning: Unrecognized or misplaced token: \"STRING\"",
                                      "3: warning: Unrecognized or misplaced token: \"STRING\"",
                                      "4: warning: Unrecognized or misplaced token: EOF"}));
    EXPECT_EQ(records().size(), 2u);
}

TEST_F(RawData, UserTypeOrdinalsBeyond16BitsWarn) {
    write_file("x.bin", "");
    auto e = compile_ok("70001 70000 \"x.bin\"\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].type, ord(4464));
    EXPECT_EQ(e[0].name, ord(4465));
    EXPECT_EQ(rendered(diags), (Lines{"1: warning: Name ordinal value outside bounds.",
                                      "1: warning: Type ordinal value outside bounds."}));
}

TEST_F(RawData, UserTypesTakeNoOptionalStatementsOrInlineData) {
    write_file("x.bin", "");
    EXPECT_EQ(compile("LANGUAGE 7, 1\n1 MyType BEGIN 1 END\n2 T LANGUAGE 9, 1 x.bin\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"2: error: Invalid syntax.", "3: error: Invalid syntax."}));
}

TEST_F(RawData, FilesAreFoundFromTheMainScriptsDirectory) {
    // The preprocessor reads ahead into sub/inc.rc (and past its end) before
    // the statements are compiled; the result must not depend on that.
    write_file("y.bin", "m");
    write_file("sub/y.bin", "s");
    write_file("sub/z.bin", "z");
    std::string filler;
    for (int i = 0; i < 100; ++i) filler += std::string(400, ' ') + "\n";
    write_file("sub/inc.rc", filler + "2 RCDATA \"y.bin\"\n" + filler);
    auto e = compile_ok("1 RCDATA \"y.bin\"\n#include \"sub/inc.rc\"\n3 RCDATA y.bin\n"
                        "4 RCDATA sub\\Z.BIN\n");
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].data, (Bytes{'m'}));
    EXPECT_EQ(e[1].data, (Bytes{'m'}));
    EXPECT_EQ(e[2].data, (Bytes{'m'}));
    EXPECT_EQ(e[3].data, (Bytes{'z'})); // backslashes and letter case as for #include
}

} // namespace
