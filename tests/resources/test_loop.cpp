// The statement loop: dispatch, user-defined types, memory options, optional
// statements, top-level LANGUAGE, ordinals, misplaced tokens, skipped C
// headers, FONT, the abort flag and the verbose lines.
#include "harness/harness.h"
#include "resources/test_loop_res.h"

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

class StatementLoop : public FreshLibrary {
  protected:
    std::vector<ResEntry> compile_ok(const std::string& script) {
        Bytes res;
        EXPECT_EQ(compile(script, &res), 1) << script;
        return parse_res(res);
    }
};

TEST_F(StatementLoop, EmptyScriptWritesOnlyTheLeadingEntry) {
    Bytes res;
    EXPECT_EQ(compile("", &res), 1);
    EXPECT_EQ(res, (Bytes{0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0,
                          0, 0, 0, 0, 0,    0, 0, 0, 0,    0,    0, 0, 0,    0,    0, 0}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(StatementLoop, OneResourceByteForByte) {
    Bytes res;
    ASSERT_EQ(compile("ab RCDATA BEGIN 0x4241 END\n", &res), 1);
    Bytes expected(32);
    expected[4] = 0x20, expected[8] = expected[9] = expected[12] = expected[13] = 0xFF;
    Bytes entry = {2,    0,    0,   0, 0x24, 0, 0,    0, // DataSize, HeaderSize
                   0xFF, 0xFF, 10,  0,                   // TYPE: ordinal 10
                   'A',  0,    'B', 0, 0,    0,          // NAME "AB"
                   0,    0,                              // padding
                   0,    0,    0,   0, 0x30, 0, 0x09, 4, // DataVersion, flags, language
                   0,    0,    0,   0, 0,    0, 0,    0, // Version, Characteristics
                   0x41, 0x42, 0,   0};                  // data, padding
    expected.insert(expected.end(), entry.begin(), entry.end());
    EXPECT_EQ(res, expected);
}

TEST_F(StatementLoop, NamesAreUpperCasedAndNumbersAreOrdinals) {
    auto e = compile_ok("myName RCDATA BEGIN END\n7 RCDATA BEGIN END\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].name, u"MYNAME");
    EXPECT_EQ(e[1].name, ord(7));
}

TEST_F(StatementLoop, NameOrdinalsBeyond16BitsWarnAndWrap) {
    auto e = compile_ok("70000 RCDATA BEGIN END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].name, ord(4464));
    // Reported when the data are written, once END has been passed.
    EXPECT_EQ(rendered(diags), (Lines{"2: warning: Name ordinal value outside bounds."}));
}

TEST_F(StatementLoop, KeywordsOtherThanTheTypesNameUserTypes) {
    write_file("x.bin", "xyz");
    auto e = compile_ok("1 STYLE \"x.bin\"\n2 language x.bin\n3 Alt x.bin\n");
    ASSERT_EQ(e.size(), 3u);
    EXPECT_EQ(e[0].type, u"STYLE");
    EXPECT_EQ(e[1].type, u"LANGUAGE");
    EXPECT_EQ(e[2].type, u"ALT");
    EXPECT_EQ(e[0].data, (Bytes{'x', 'y', 'z'}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(StatementLoop, MisplacedTokensWarnAndStartTheNextStatement) {
    Bytes res;
    EXPECT_EQ(compile("\"NAME\" ICON \"x.ico\"\n1 BEGIN\n, ?\n", &res), 1);
    EXPECT_EQ(parse_res(res).size(), 0u);
    EXPECT_EQ(rendered(diags), (Lines{"1: warning: Unrecognized or misplaced token: \"STRING\"",
                                      "1: warning: Unrecognized or misplaced token: icon",
                                      "1: warning: Unrecognized or misplaced token: \"STRING\"",
                                      "2: warning: Unrecognized or misplaced token: begin",
                                      "2: warning: Unrecognized or misplaced token: begin",
                                      "3: warning: Unrecognized or misplaced token: ,",
                                      "3: warning: Unrecognized or misplaced token: "}));
    EXPECT_EQ(diags[0].severity, 0);
}

TEST_F(StatementLoop, MisplacedTokenWarningsStopAfterTheFirstError) {
    EXPECT_EQ(compile("1 BEGIN\n1 MyType BEGIN 1 END\n2 BEGIN\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"1: warning: Unrecognized or misplaced token: begin",
                                      "1: warning: Unrecognized or misplaced token: begin",
                                      "2: error: Invalid syntax."}));
}

TEST_F(StatementLoop, MemoryOptionsKeepTheirAsymmetry) {
    write_file("x.bin", "");
    auto e = compile_ok("1 T \"x.bin\"\n2 T DISCARDABLE \"x.bin\"\n"
                        "3 T DISCARDABLE IMPURE \"x.bin\"\n4 T PRELOAD FIXED \"x.bin\"\n"
                        "5 T PRELOAD LOADONCALL MOVEABLE PURE \"x.bin\"\n"
                        "6 T FIXED IMPURE PRELOAD \"x.bin\"\n");
    ASSERT_EQ(e.size(), 6u);
    const uint16_t flags[] = {0x0030, 0x1030, 0x0010, 0x0060, 0x0030, 0x0040};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(e[i].memory_flags, flags[i]) << i;
}

TEST_F(StatementLoop, TopLevelLanguageChangesLaterStatements) {
    auto e = compile_ok("1 RCDATA BEGIN END\nLANGUAGE 7, 1\n2 RCDATA BEGIN END\n"
                        "LANGUAGE 9, 1\n3 RCDATA BEGIN END\nLANGUAGE 0x1A, 0x3F\n"
                        "4 RCDATA BEGIN END\n");
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].language, 0x0409);
    EXPECT_EQ(e[1].language, 0x0407);
    EXPECT_EQ(e[2].language, 0x0409);
    EXPECT_EQ(e[3].language, 0xFC1A);
}

TEST_F(StatementLoop, OptionalStatementsInAnyOrderLastWins) {
    auto e = compile_ok("1 RCDATA LANGUAGE 7,1 VERSION 5 CHARACTERISTICS 6 VERSION 3+4 "
                        "LANGUAGE 0x0C, 2 BEGIN END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].language, 0x080C);
    EXPECT_EQ(e[0].version, 7u);
    EXPECT_EQ(e[0].characteristics, 6u);
    EXPECT_EQ(e[0].data_version, 0u);
}

TEST_F(StatementLoop, StatementsOfCHeadersAreSkipped) {
    auto e = compile_ok("#line 1 \"defs.H\"\n1 RCDATA BEGIN 1 END\n\"junk\" ?\n"
                        "#line 3 \"input.rc\"\n2 RCDATA BEGIN 2 END\n"
                        "#line 1 \"more.c\"\n3 RCDATA BEGIN 3 END\n");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].name, ord(2));
    EXPECT_TRUE(diags.empty());
}

TEST_F(StatementLoop, IncludedHeadersGiveDefinitionsButNoStatements) {
    write_file("defs.h", "#define ID 5\n1 RCDATA BEGIN 1 END\nint f(void);\n");
    write_file("more.rc", "ID RCDATA BEGIN 2 END\n");
    auto e = compile_ok("#include \"defs.h\"\n#include \"more.rc\"\n6 RCDATA BEGIN ID END\n");
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].name, ord(5));
    EXPECT_EQ(e[1].name, ord(6));
    EXPECT_EQ(e[1].data, (Bytes{5, 0}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(StatementLoop, FontIsNotImplemented) {
    Bytes res;
    EXPECT_EQ(compile("1 RCDATA BEGIN END\n2 FONT \"x.fnt\"\n", &res), 0);
    EXPECT_TRUE(res.empty());
    EXPECT_EQ(rendered(diags), (Lines{"2: fatal error: Feature not implemented."}));
    EXPECT_EQ(diags[0].severity, 2);
}

TEST_F(StatementLoop, AnErrorLeavesNoOutput) {
    Bytes res;
    EXPECT_EQ(compile("1 RCDATA BEGIN x END\n2 RCDATA BEGIN END\n", &res), 0);
    EXPECT_TRUE(res.empty());
    EXPECT_FALSE(std::filesystem::exists(path_of("input.res")));
    EXPECT_EQ(rendered(diags), (Lines{"1: error: Unknown keyword: 'x'."}));
}

TEST_F(StatementLoop, AbortStopsBeforeTheFirstStatement) {
    set_abort_flag();
    Bytes res;
    EXPECT_EQ(compile("1 RCDATA BEGIN END\n", &res), 0);
    EXPECT_TRUE(res.empty());
    EXPECT_TRUE(diags.empty());
}

TEST_F(StatementLoop, UnexpectedEndOfFileIsFatal) {
    EXPECT_EQ(compile("1 RCDATA BEGIN 1,\n"), 0);
    EXPECT_EQ(rendered(diags), (Lines{"2: error: Number expected (found: EOF).",
                                      "2: fatal error: Unexpected end of file."}));
}

TEST_F(StatementLoop, VerboseLines) {
    write_file("x.bin", "12345");
    ASSERT_EQ(compile("1 RCDATA LANGUAGE 7, 1 BEGIN END\nname RCDATA BEGIN 1 END\n"
                      "STRINGTABLE BEGIN 1 \"a\" END\n3 300 x.bin\n4 MyType x.bin\n"
                      "4294967295 RCDATA BEGIN END\n"),
              1);
    ASSERT_EQ(info.size(), 7u);
    EXPECT_EQ(info[0].rfind("Using codepage ", 0), 0u);
    EXPECT_EQ(info[1], "Writing RCDATA, id = 1, language = 0x407, offset = 0x20");
    EXPECT_EQ(info[2], "Writing RCDATA, id = NAME, language = 0x409, offset = 0x40");
    // String tables are written at the end; the line shows the position at parse time.
    EXPECT_EQ(info[3], "Writing STRINGTABLE, language = 0x409, offset = 0x6C");
    EXPECT_EQ(info[4], "Writing 0x12c, id = 3, language = 0x409, offset = 0x6C");
    EXPECT_EQ(info[5], "Writing MYTYPE, id = 4, language = 0x409, offset = 0x94");
    EXPECT_EQ(info[6], "Writing RCDATA, id = -1, language = 0x409, offset = 0xC8");
    EXPECT_EQ(rendered(diags), (Lines{"7: warning: Name ordinal value outside bounds."}));
}

} // namespace
