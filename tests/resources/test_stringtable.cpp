// STRINGTABLE: blocks of 16 ids per language in order of first appearance,
// the length words, null-append, and the checks.
#include "harness/harness.h"
#include "resources/test_loop_res.h"

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

class StringTable : public FreshLibrary {
  protected:
    std::vector<ResEntry> compile_ok(const std::string& script) {
        Bytes res;
        EXPECT_EQ(compile(script, &res), 1) << script;
        return parse_res(res);
    }
};

// Block data: 16 slots, each a length word and that many units.
Bytes block(const std::vector<std::pair<int, std::u16string>>& strings) {
    std::u16string units;
    for (int slot = 0; slot < 16; ++slot) {
        std::u16string text;
        bool filled = false;
        for (const auto& [index, s] : strings)
            if (index == slot) text = s, filled = true;
        units.push_back(char16_t(filled ? text.size() : 0));
        units += text;
    }
    return u16le(units);
}

TEST_F(StringTable, OneBlockByteForByte) {
    Bytes res;
    ASSERT_EQ(compile("STRINGTABLE BEGIN 5, \"ab\" END\n", &res), 1);
    // 15 empty slots of 2 bytes and one of 2 + 2 * 2: 36 bytes, no padding.
    Bytes expected = {36,   0,    0, 0, 0x20, 0,    0,    0,    // DataSize, HeaderSize
                      0xFF, 0xFF, 6, 0, 0xFF, 0xFF, 1,    0,    // RT_STRING, block 1
                      0,    0,    0, 0, 0x30, 0x10, 0x09, 0x04, // flags 0x1030, 0x0409
                      0,    0,    0, 0, 0,    0,    0,    0};
    expected.resize(expected.size() + 10);                               // slots 0 to 4
    for (uint8_t b : Bytes{2, 0, 'a', 0, 'b', 0}) expected.push_back(b); // slot 5
    expected.resize(expected.size() + 20);                               // slots 6 to 15
    ASSERT_GE(res.size(), 32u);
    EXPECT_EQ(Bytes(res.begin() + 32, res.end()), expected);
}

TEST_F(StringTable, IdsFallIntoBlocksOf16) {
    auto e =
        compile_ok("STRINGTABLE BEGIN 0 \"z\" 15 \"f\" 16 \"s\" 65535 \"m\" -32768 \"n\" END\n");
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].type, ord(6));
    EXPECT_EQ(e[0].name, ord(1));
    EXPECT_EQ(e[0].data, block({{0, u"z"}, {15, u"f"}}));
    EXPECT_EQ(e[1].name, ord(2));
    EXPECT_EQ(e[1].data, block({{0, u"s"}}));
    EXPECT_EQ(e[2].name, ord(4096));
    EXPECT_EQ(e[2].data, block({{15, u"m"}}));
    EXPECT_EQ(e[3].name, ord(0x801));
    EXPECT_EQ(e[3].data, block({{0, u"n"}}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(StringTable, StatementsShareBlocksInOrderOfFirstAppearance) {
    auto e = compile_ok("STRINGTABLE BEGIN 20 \"b\" 1 \"a\" END\n"
                        "STRINGTABLE PRELOAD BEGIN 2 \"c\" 17 \"d\" END\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].name, ord(2));
    EXPECT_EQ(e[0].data, block({{4, u"b"}, {1, u"d"}}));
    EXPECT_EQ(e[1].name, ord(1));
    EXPECT_EQ(e[1].data, block({{1, u"a"}, {2, u"c"}}));
    EXPECT_EQ(e[0].memory_flags, 0x1030); // the first contributor's
}

TEST_F(StringTable, LanguagesMakeSeparateBlocks) {
    auto e = compile_ok("STRINGTABLE LANGUAGE 9, 1 BEGIN 1 \"en\" END\n"
                        "STRINGTABLE LANGUAGE 7, 1 VERSION 3 BEGIN 1 \"de\" END\n"
                        "LANGUAGE 7, 1\nSTRINGTABLE BEGIN 2 \"zwei\" END\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].language, 0x0409);
    EXPECT_EQ(e[0].data, block({{1, u"en"}}));
    EXPECT_EQ(e[1].language, 0x0407);
    EXPECT_EQ(e[1].version, 3u);
    EXPECT_EQ(e[1].data, block({{1, u"de"}, {2, u"zwei"}}));
}

TEST_F(StringTable, EscapesAndEmptyStrings) {
    auto e = compile_ok("STRINGTABLE BEGIN 1 \"a\\tb\" 2 \"\" 3 \"x\"\"y\" END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].data, block({{1, u"a\tb"}, {2, u""}, {3, u"x\"y"}}));
}

TEST_F(StringTable, NullAppendCountsTheTerminator) {
    set_null_append_for_strings();
    auto e = compile_ok("STRINGTABLE BEGIN 1 \"abc\" 2 \"\" END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].data, block({{1, std::u16string(u"abc\0", 4)}, {2, std::u16string(1, 0)}}));
}

TEST_F(StringTable, IdsOutsideTheRangeWarnAndWrap) {
    auto e = compile_ok("STRINGTABLE BEGIN 70000 \"x\" END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].name, ord((70000 & 0xFFFF) / 16 + 1));
    EXPECT_EQ(rendered(diags), (Lines{"1: warning: Numeric value outside bounds."}));
}

TEST_F(StringTable, EmptyBodyReportsTwiceAndAddsNothing) {
    EXPECT_EQ(compile("STRINGTABLE BEGIN END\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: Number expected (found: end).",
                                      "1: error: String literal expected (found: end)."}));
}

TEST_F(StringTable, AMissingStringDropsTheId) {
    EXPECT_EQ(compile("STRINGTABLE BEGIN 1 L\"w\" 2 \"ok\" 3 4 \"k\" END\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: String literal expected (found: L\"STRING\").",
                                      "1: error: String literal expected (found: 4).",
                                      "1: error: Number expected (found: \"STRING\").",
                                      "1: error: String literal expected (found: end)."}));
}

TEST_F(StringTable, MissingBeginIsReported) {
    EXPECT_EQ(compile("STRINGTABLE 1 \"a\" END\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: error: BEGIN keyword or { character expected (found: 1).",
                                      "1: error: Number expected (found: \"STRING\").",
                                      "1: error: String literal expected (found: end)."}));
}

TEST_F(StringTable, DuplicateIdsAreFatalAtTheEnd) {
    Bytes res;
    EXPECT_EQ(compile("STRINGTABLE BEGIN 1 \"a\" END\nSTRINGTABLE BEGIN 1 \"b\" END\n", &res), 0);
    EXPECT_TRUE(res.empty());
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_FALSE(diags[0].has_file);
    EXPECT_EQ(diags[0].line, 0u);
    EXPECT_EQ(diags[0].severity, 2);
    EXPECT_EQ(rendered(diags), (Lines{"-: fatal error: Duplicate string id."}));
}

TEST_F(StringTable, SameIdInTwoLanguagesIsNoDuplicate) {
    auto e = compile_ok("STRINGTABLE BEGIN 1 \"a\" END\n"
                        "STRINGTABLE LANGUAGE 7, 1 BEGIN 1 \"b\" END\n");
    EXPECT_EQ(e.size(), 2u);
}

} // namespace
