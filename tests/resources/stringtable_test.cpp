// STRINGTABLE: blocks of 16 ids per language in order of first appearance,
// the length words, null-append, and the checks.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using StringTable = ResTest;

// Block data: 16 slots, each a length word and that many units.
Bytes block(const std::vector<std::pair<int, std::u16string>>& strings) {
    Bytes b;
    for (int slot = 0; slot < 16; ++slot) {
        std::u16string text;
        bool filled = false;
        for (const auto& [index, s] : strings)
            if (index == slot) text = s, filled = true;
        b.u16(filled ? text.size() : 0);
        for (char16_t c : text) b.u16(c);
    }
    return b;
}

TEST_F(StringTable, BlocksInOrderOfFirstAppearance) {
    auto e = compile_ok("STRINGTABLE BEGIN 20 \"b\" 1 \"a\\tb\" 0 \"\" 65535 \"m\" END\n"
                        "STRINGTABLE PRELOAD BEGIN 2 \"x\"\"y\" 17 \"d\" -32768 \"n\" END\n"
                        "STRINGTABLE BEGIN 70000 \"w\" END\n",
                        {"3: warning: Numeric value outside bounds."});
    // Each block has the memory flags of its first statement.
    ASSERT_EQ(heads(e), (Lines{"#6 #2 1030 0409", "#6 #1 1030 0409", "#6 #4096 1030 0409",
                               "#6 #2049 1070 0409", "#6 #280 1030 0409"}));
    EXPECT_EQ(e[0].data, block({{4, u"b"}, {1, u"d"}}));
    EXPECT_EQ(e[1].data, block({{0, u""}, {1, u"a\tb"}, {2, u"x\"y"}}));
    EXPECT_EQ(e[2].data, block({{15, u"m"}}));
    EXPECT_EQ(e[3].data, block({{0, u"n"}}));
    EXPECT_EQ(e[4].data, block({{(70000 & 0xFFFF) % 16, u"w"}}));
}

TEST_F(StringTable, LanguagesMakeSeparateBlocks) {
    auto e = compile_ok("STRINGTABLE LANGUAGE 9, 1 BEGIN 1 \"en\" END\n"
                        "STRINGTABLE LANGUAGE 7, 1 VERSION 3 BEGIN 1 \"de\" END\n"
                        "LANGUAGE 7, 1\nSTRINGTABLE BEGIN 2 \"zwei\" END\n");
    ASSERT_EQ(heads(e), (Lines{"#6 #1 1030 0409", "#6 #1 1030 0407 v3 c0"}));
    EXPECT_EQ(e[0].data, block({{1, u"en"}}));
    EXPECT_EQ(e[1].data, block({{1, u"de"}, {2, u"zwei"}}));
}

TEST_F(StringTable, NullAppendCountsTheTerminator) {
    set_null_append_for_strings();
    auto e = compile_ok("STRINGTABLE BEGIN 1 \"abc\" 2 \"\" END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].data, block({{1, std::u16string(u"abc\0", 4)}, {2, std::u16string(1, 0)}}));
}

// Texts are kept a byte a unit when they can be: units above 255 next to
// those that fit, with and without the appended zero, and enough strings to
// fill more than one store of texts (wide literals: the extended dialect).
TEST_F(StringTable, KeptTextsComeBackWhole) {
    std::string script =
        "STRINGTABLE BEGIN 1 L\"\\x263a\\xff\" 2 L\"\\x00ffa\" 3 \"plain\" 4 L\"z\\x100\"\n"
        // Wide units inside the first sixteen and in the tail of longer
        // texts; thirty-two units that use their whole byte.
        "5 L\"0123456789\\x0100uvwxyz!!!!!\" 6 L\"0123456789uvwxyz!!!\\x263a\"\n"
        "7 L\"\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff"
        "\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\" END\n";
    // Counts on either side of the header's short form, narrow and wide.
    script += "STRINGTABLE BEGIN 8 \"" + std::string(8191, 'a') + "\" 9 \"" +
              std::string(8192, 'b') + "\" 10 L\"" + std::string(9000, 'c') + "\\x263a\" END\n";
    // Long enough (over a megabyte) to be written out by a second thread.
    const std::string run_end = " of a long run" + std::string(70, '.');
    script += "STRINGTABLE BEGIN\n";
    for (int id = 16; id < 16 + 12000; ++id)
        script += std::to_string(id) + " \"string number " + std::to_string(id) + run_end + "\"\n";
    script += "END\n";
    for (bool zero : {false, true}) {
        SCOPED_TRACE(zero);
        if (zero) {
            reattach();
            set_null_append_for_strings();
        }
        set_extended_mode();
        std::u16string end = zero ? std::u16string(1, 0) : std::u16string();
        auto e = compile_ok(script);
        ASSERT_EQ(e.size(), 1u + 12000 / 16);
        EXPECT_EQ(e[0].data, block({{1, u"\u263a\u00ff" + end},
                                    {2, u"\u00ffa" + end},
                                    {3, u"plain" + end},
                                    {4, u"z\u0100" + end},
                                    {5, u"0123456789\u0100uvwxyz!!!!!" + end},
                                    {6, u"0123456789uvwxyz!!!\u263a" + end},
                                    {7, std::u16string(32, u'\u00ff') + end},
                                    {8, std::u16string(8191, u'a') + end},
                                    {9, std::u16string(8192, u'b') + end},
                                    {10, std::u16string(9000, u'c') + u"\u263a" + end}}));
        for (size_t k = 1; k < e.size(); ++k) {
            std::vector<std::pair<int, std::u16string>> strings;
            for (int id = int(16 * k); id < int(16 * k + 16); ++id) {
                std::string t = "string number " + std::to_string(id) + run_end;
                strings.push_back({id % 16, std::u16string(t.begin(), t.end()) + end});
            }
            ASSERT_EQ(e[k].data, block(strings)) << "block " << k;
        }
    }
}

TEST_F(StringTable, Failures) {
    expect_failures({
        {"STRINGTABLE BEGIN END\n",
         {"1: error: Number expected (found: end).",
          "1: error: String literal expected (found: end)."}},
        // A missing string drops its id.
        {"STRINGTABLE BEGIN 1 L\"w\" 2 \"ok\" 3 4 \"k\" END\n",
         {"1: error: String literal expected (found: L\"STRING\").",
          "1: error: String literal expected (found: 4).",
          "1: error: Number expected (found: \"STRING\").",
          "1: error: String literal expected (found: end)."}},
        {"STRINGTABLE 1 \"a\" END\n",
         {"1: error: BEGIN keyword or { character expected (found: 1).",
          "1: error: Number expected (found: \"STRING\").",
          "1: error: String literal expected (found: end)."}},
        // Found when the blocks are written, so without a place.
        {"STRINGTABLE BEGIN 1 \"a\" END\nSTRINGTABLE BEGIN 1 \"b\" END\n",
         {"-: fatal error: Duplicate string id."}},
    });
}

// Over 16 MiB of texts: the texts' memory is given back while the blocks
// are written, and the writing thread starts on what was given back. Each
// block's two halves come from statements far apart, so a chunk is done
// only when both are written.
TEST_F(StringTable, LargeCollectionsComeBackWhole) {
    constexpr int COUNT = 64000;
    auto text = [](int id) {
        std::string t = "text " + std::to_string(id);
        return t + std::string(290 - t.size(), '.');
    };
    std::string script;
    for (int half : {0, 1}) {
        script += "STRINGTABLE BEGIN\n";
        for (int id = 0; id < COUNT; ++id)
            if ((id & 15) / 8 == half) script += std::to_string(id) + " \"" + text(id) + "\"\n";
        script += "END\n";
    }
    auto e = compile_ok(script);
    ASSERT_EQ(e.size(), size_t(COUNT / 16));
    for (size_t k = 0; k < e.size(); ++k) {
        std::vector<std::pair<int, std::u16string>> strings;
        for (int id = int(16 * k); id < int(16 * k + 16); ++id) {
            std::string t = text(id);
            strings.push_back({id % 16, std::u16string(t.begin(), t.end())});
        }
        ASSERT_EQ(e[k].data, block(strings)) << "block " << k;
    }
}

TEST_F(StringTable, ExtendedDialect) {
    expect_dialects({
        {"STRINGTABLE BEGIN 1 L\"\\x263a\" 2 \"a\" L\"b\" END\n",
         fails({"1: error: String literal expected (found: L\"STRING\").",
                "1: error: Number expected (found: L\"STRING\").",
                "1: error: String literal expected (found: end)."}),
         gives({block({{1, u"\u263a"}, {2, u"ab"}})})},
    });
}

} // namespace
