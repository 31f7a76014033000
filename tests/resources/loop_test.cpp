// The statement loop: the entry framing, memory options, optional
// statements, top-level LANGUAGE, skipped C headers, misplaced tokens and
// their suppression, FONT, the abort flag and the verbose lines.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using StatementLoop = ResTest;

TEST_F(StatementLoop, OneResourceByteForByte) {
    EXPECT_TRUE(compile_ok("").empty());
    fresh();
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("ab RCDATA BEGIN 0x4241 END\n", &res), 1);
    Bytes want = Bytes().u32(0, 32).ord(0).ord(0).u32(0, 0, 0, 0);
    want.u32(2, 0x24).ord(10).str("AB").u16(0);               // sizes, type, name, padding
    want.u32(0).u16(0x0030, 0x0409).u32(0, 0).u16(0x4241, 0); // the data padded
    EXPECT_EQ(res, want);
}

TEST_F(StatementLoop, MemoryAndOptionalStatements) {
    write_file("x.bin", "");
    auto e = compile_ok("1 T \"x.bin\"\n2 T DISCARDABLE x.bin\n3 T DISCARDABLE IMPURE x.bin\n"
                        "4 T PRELOAD FIXED x.bin\n5 T PRELOAD LOADONCALL MOVEABLE PURE x.bin\n"
                        "6 T FIXED IMPURE PRELOAD x.bin\n"
                        "7 RCDATA LANGUAGE 7,1 VERSION 5 CHARACTERISTICS 6 VERSION 3+4 "
                        "LANGUAGE 0x0C, 2 BEGIN END\n"
                        "LANGUAGE 7, 1\n8 RCDATA BEGIN END\nLANGUAGE 0x1A, 0x3F\n9 RCDATA {}\n");
    EXPECT_EQ(heads(e), (Lines{"T #1 0030 0409", "T #2 1030 0409", "T #3 0010 0409",
                               "T #4 0060 0409", "T #5 0030 0409", "T #6 0040 0409",
                               "#10 #7 0030 080C v7 c6", "#10 #8 0030 0407", "#10 #9 0030 FC1A"}));
}

TEST_F(StatementLoop, CHeadersGiveDefinitionsButNoStatements) {
    write_file("defs.h", "#define ID 5\n1 RCDATA BEGIN 1 END\nint f(void);\n");
    write_file("more.rc", "ID RCDATA BEGIN 2 END\n");
    auto e = compile_ok("#include \"defs.h\"\n#include \"more.rc\"\n6 RCDATA BEGIN ID END\n"
                        "#line 1 \"x.C\"\n7 RCDATA BEGIN 3 END\n\"junk\" ?\n"
                        "#line 9 \"input.rc\"\n8 RCDATA BEGIN 4 END\n");
    ASSERT_EQ(heads(e), (Lines{"#10 #5 0030 0409", "#10 #6 0030 0409", "#10 #8 0030 0409"}));
    EXPECT_EQ(e[1].data, (Bytes().u16(5)));
}

TEST_F(StatementLoop, MisplacedTokensWarnAndStartTheNextStatement) {
    auto e = compile_ok("\"NAME\" ICON \"x.ico\"\n1 BEGIN\n, ?\n",
                        {"1: warning: Unrecognized or misplaced token: \"STRING\"",
                         "1: warning: Unrecognized or misplaced token: icon",
                         "1: warning: Unrecognized or misplaced token: \"STRING\"",
                         "2: warning: Unrecognized or misplaced token: begin",
                         "2: warning: Unrecognized or misplaced token: begin",
                         "3: warning: Unrecognized or misplaced token: ,",
                         "3: warning: Unrecognized or misplaced token: "});
    EXPECT_TRUE(e.empty());
    EXPECT_EQ(diags[0].severity, 0);
}

TEST_F(StatementLoop, FailuresLeaveNoOutput) {
    expect_failures({
        // Misplaced tokens warn no more after the first error.
        {"1 BEGIN\n1 MyType BEGIN 1 END\n2 BEGIN\n",
         {"1: warning: Unrecognized or misplaced token: begin",
          "1: warning: Unrecognized or misplaced token: begin", "2: error: Invalid syntax."}},
        {"1 RCDATA BEGIN x END\n2 RCDATA BEGIN END\n", {"1: error: Unknown keyword: 'x'."}},
        {"1 RCDATA BEGIN END\n2 FONT \"x.fnt\"\n", {"2: fatal error: Feature not implemented."}},
        {"1 RCDATA BEGIN 1,\n",
         {"2: error: Number expected (found: EOF).", "2: fatal error: Unexpected end of file."}},
    });
    EXPECT_EQ(diags[0].severity, 1);
    EXPECT_FALSE(std::filesystem::exists(path_of("input.res")));
    fresh();
    set_abort_flag();
    EXPECT_EQ(compile_fail("1 RCDATA BEGIN END\n"), Lines{}); // stops before the first statement
}

TEST_F(StatementLoop, VerboseLines) {
    write_file("x.bin", "12345");
    compile_ok("1 RCDATA LANGUAGE 7, 1 BEGIN END\nname RCDATA BEGIN 1 END\n"
               "STRINGTABLE BEGIN 1 \"a\" END\n3 300 x.bin\n4 MyType x.bin\n"
               "4294967295 RCDATA BEGIN END\n",
               {"7: warning: Name ordinal value outside bounds."});
    // String tables are written at the end; the line shows the position at parse time.
    ASSERT_EQ(info.size(), 7u);
    EXPECT_EQ(info[0].rfind("Using codepage ", 0), 0u);
    EXPECT_EQ(Lines(info.begin() + 1, info.end()),
              (Lines{"Writing RCDATA, id = 1, language = 0x407, offset = 0x20",
                     "Writing RCDATA, id = NAME, language = 0x409, offset = 0x40",
                     "Writing STRINGTABLE, language = 0x409, offset = 0x6C",
                     "Writing 0x12c, id = 3, language = 0x409, offset = 0x6C",
                     "Writing MYTYPE, id = 4, language = 0x409, offset = 0x94",
                     "Writing RCDATA, id = -1, language = 0x409, offset = 0xC8"}));
}

TEST_F(StatementLoop, ExtendedDialectRejectsDuplicateResources) {
    write_file("x.bin", "x");
    const std::string first = "1 RCDATA BEGIN 1 END\nX MYTYPE x.bin\n";
    const std::string input = path_of("input.rc").string();
    expect_dialects({
        {first + "LANGUAGE 7, 1\n1 RCDATA BEGIN 2 END\nx MYTYPE { 3 }\n",
         fails({"5: error: Invalid syntax."}),
         gives({Bytes().u16(1), Bytes::of("x"), Bytes().u16(2), Bytes().u16(3)})},
        {first + "1 RCDATA\nBEGIN 2 END\nx MYTYPE x.bin\n",
         gives({Bytes().u16(1), Bytes::of("x"), Bytes().u16(2), Bytes::of("x")}),
         fails({"3: error: Duplicate resource: type 10, name 1, language 0x409, first defined in " +
                    input + " at line 1.",
                "5: error: Duplicate resource: type MYTYPE, name X, language 0x409, first "
                "defined in " +
                    input + " at line 2."})},
        // A string block, written at the end, against a resource of its type and name.
        {"7 6 { 1 }\nSTRINGTABLE { 100, \"s\" }\n", fails({"1: error: Invalid syntax."}),
         fails({"1: error: Duplicate resource: type 6, name 7, language 0x409, first defined in " +
                input + " at line 1."})},
    });
}

} // namespace
