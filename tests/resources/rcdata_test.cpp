// RCDATA inline and from files, user-defined resource types and DLGINCLUDE.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using RawData = ResTest;

TEST_F(RawData, InlineItems) {
    const std::pair<std::string, Bytes> rows[] = {
        {"\"ab\", 1, 2L", Bytes().text("ab").u16(1).u32(2)},
        {"L\"a\"", Bytes().u16('a')},
        {"", {}},
        {"\"\\x1234\" L\"\\x1234\"", Bytes().u8(0x34, 0x34, 0)},
        {"\"a\" \"b\" 0x10000, -1 (2+3)*2 0x10000 -1", Bytes().text("ab").u16(0, -1, 10, -1)},
        // "-2" starts with "-" while the last number lexed is still 1L.
        {"1L, -2", Bytes().u32(1, -2)},
        {"1L, 2, -3", Bytes().u32(1).u16(2, -3)},
        {"2 + 3L, 0x12345678l", Bytes().u16(5).u32(0x12345678)},
        {", 1,, 2 ,", Bytes().u16(1, 2)}, // stray commas are passed over
    };
    std::string script;
    for (const auto& [items, data] : rows) script += "1 RCDATA BEGIN " + items + " END\n";
    auto e = compile_ok(script);
    ASSERT_EQ(e.size(), std::size(rows));
    for (size_t i = 0; i < e.size(); i++) EXPECT_EQ(e[i].data, rows[i].second) << rows[i].first;
}

TEST_F(RawData, InlineKeepsItsOptionsTheFileFormOnlyItsMemoryFlags) {
    write_file("d.bin", "\x01\x02\x03");
    auto e = compile_ok("X RCDATA DISCARDABLE VERSION 2 CHARACTERISTICS 3 BEGIN \"abcde\" END\n"
                        "DATA RCDATA PRELOAD LANGUAGE 7, 1 VERSION 9 \"d.bin\"\n2 RCDATA d.bin\n");
    ASSERT_EQ(heads(e), (Lines{"#10 X 1030 0409 v2 c3", "#10 DATA 0070 0409", "#10 #2 0030 0409"}));
    EXPECT_EQ(e[0].data, Bytes::of("abcde"));
    EXPECT_EQ(e[1].data, Bytes::of("\x01\x02\x03"));
    EXPECT_EQ(e[2].data, e[1].data);
    auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].first, "#10 DATA 0409");
    EXPECT_EQ(r[0].second, path_of("d.bin").generic_string());
}

TEST_F(RawData, UserTypes) {
    write_file("x.bin", "abcd");
    // A string literal cannot be a type: it starts a statement, and so does
    // the file name, which then finds no type.
    auto e = compile_ok("1 300 \"x.bin\"\n2 MyType x.bin\n3 STYLE x.bin\n4 language x.bin\n"
                        "70001 70000 x.bin\n6 \"T\" x.bin\n",
                        {"5: warning: Name ordinal value outside bounds.",
                         "5: warning: Type ordinal value outside bounds.",
                         "6: warning: Unrecognized or misplaced token: \"STRING\"",
                         "6: warning: Unrecognized or misplaced token: \"STRING\"",
                         "7: warning: Unrecognized or misplaced token: EOF"});
    EXPECT_EQ(heads(e), (Lines{"#300 #1 0030 0409", "MYTYPE #2 0030 0409", "STYLE #3 0030 0409",
                               "LANGUAGE #4 0030 0409", "#4464 #4465 0030 0409"}));
    for (const Entry& entry : e) EXPECT_EQ(entry.data, Bytes::of("abcd"));
    EXPECT_EQ(records().size(), 5u);
}

TEST_F(RawData, Failures) {
    write_file("x.bin", "");
    expect_failures({
        {"1 RCDATA BEGIN 1, x, 'hex', 2 END\n",
         {"1: error: Unknown keyword: 'x'.", "1: error: Number expected (found: 'HEXSTRING')."}},
        {"1 RCDATA L\"x.bin\" 1 END\n",
         {"1: error: BEGIN keyword or { character expected (found: L\"STRING\")."}},
        {"DATA RCDATA \"missing.bin\"\n2 RCDATA BEGIN x END\n",
         {"1: error: File not found: 'missing.bin'.", "2: error: Unknown keyword: 'x'."}},
        // User types take no optional statements and no inline data.
        {"LANGUAGE 7, 1\n1 MyType BEGIN 1 END\n2 T LANGUAGE 9, 1 x.bin\n",
         {"2: error: Invalid syntax.", "3: error: Invalid syntax."}},
        {"1 DLGINCLUDE res.h\n", {"1: error: String literal expected (found: res.h)."}},
    });
}

TEST_F(RawData, FilesAreFoundFromTheMainScriptsFolder) {
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
    for (size_t i = 0; i < 3; i++) EXPECT_EQ(e[i].data, Bytes::of("m")) << i;
    EXPECT_EQ(e[3].data, Bytes::of("z")); // backslashes and letter case as for #include
}

TEST_F(RawData, DlgIncludeNameAsNarrowString) {
    auto e = compile_ok("LANGUAGE 7, 1\n1 DLGINCLUDE \"res.h\"\nx DLGINCLUDE \"a\"\n");
    ASSERT_EQ(heads(e), (Lines{"#17 #1 1030 0407", "#17 X 1030 0407"}));
    EXPECT_EQ(e[0].data, Bytes().text("res.h").u8(0));
    EXPECT_EQ(e[1].data, Bytes().text("a").u8(0));
    EXPECT_EQ(info.size(), 1u); // "Using codepage" only: no verbose line of its own
}

TEST_F(RawData, ExtendedDialect) {
    write_file("w.bin", "w");
    expect_dialects({
        // Wide strings in raw data: whole UTF-16 units rather than low bytes.
        {"1 RCDATA BEGIN L\"\\x263a\", \"\\x263a\" END\n", gives({Bytes().u8(0x3A, 0, 0x3A)}),
         gives({Bytes().u8(0x3A, 0x26, 0x3A)})},
        // User-defined types with inline data and optional statements.
        {"1 TEXTINCLUDE BEGIN \"resource.h\\0\" END\n300 256 LANGUAGE 7, 1 { 1, 2L }\n",
         fails({"1: error: Invalid syntax.", "2: error: Invalid syntax."}),
         gives({Bytes().text("resource.h").u8(0), Bytes().u16(1).u32(2)})},
        {"1 MYTYPE L\"w.bin\"\n2 RCDATA L\"w.bin\"\n",
         fails({"1: error: Invalid syntax.",
                "2: error: BEGIN keyword or { character expected (found: L\"STRING\").",
                "3: error: Number expected (found: EOF).",
                "3: fatal error: Unexpected end of file."}),
         gives({Bytes::of("w"), Bytes::of("w")})},
        // TOOLBAR: version 1, button size, count, then the ids, 0 for a separator.
        {"5 TOOLBAR 16, 15 BEGIN BUTTON 100 SEPARATOR BUTTON 101 END\n",
         fails({"1: error: Invalid syntax.", "1: error: Invalid syntax.",
                "1: error: Invalid syntax."}),
         gives({Bytes().u16(1, 16, 15, 3, 100, 0, 101)})},
        {"5 TOOLBAR 16, 15 BEGIN BUTTON 1 CONTROL END\n",
         fails({"1: error: Invalid syntax.", "1: error: Invalid syntax."}),
         fails({"1: error: Invalid syntax."})},
    });
}

} // namespace
