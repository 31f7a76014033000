// DIALOG and DIALOGEX: the two template layouts with their padding and
// sizes, the options, the control keywords, CONTROL with class names,
// creation data, the default window style, and the syntax errors.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Dialogs = ResTest;

TEST_F(Dialogs, ClassicTemplateWithControls) {
    auto e = compile_ok("1 DIALOG 10, 20, 200, 100 CAPTION \"Hi\" FONT 8, \"MS Shell Dlg\"\n"
                        "BEGIN LTEXT \"a\", 1, 0, 0, 10, 10, NOT 0x20000\n"
                        "  CONTROL \"\", 2, \"BUTTON\", 0, 1, 2, 30, 40\n"
                        "  CONTROL \"t\", 3, \"MyClass\", 5, 1, 2, 3, 4, 7\n"
                        "  EDITTEXT 4, 5, 6, 7, 8 END\n");
    ASSERT_EQ(heads(e), Lines{"#5 #1 1030 0409"});
    // The default style with the font and caption bits.
    Bytes want = Bytes().u32(0x80C80040, 0).u16(4, 10, 20, 200, 100);
    want.u16(0, 0).str("Hi").u16(8).str("MS Shell Dlg").pad4();
    // NOT takes the group bit off LTEXT's style.
    want.u32(0x50000000, 0).u16(0, 0, 10, 10, 1).ord(0x82).str("a").u16(0).pad4();
    // A predefined class name becomes its ordinal.
    want.u32(0x50000000, 0).u16(1, 2, 30, 40, 2).ord(0x80).str("").u16(0).pad4();
    want.u32(0x50000005, 7).u16(1, 2, 3, 4, 3).str("MyClass").str("t").u16(0).pad4();
    // EDITTEXT takes no text; no padding after the last control.
    want.u32(0x50810000, 0).u16(5, 6, 7, 8, 4).ord(0x81).str("").u16(0);
    EXPECT_EQ(e[0].data, want);
}

TEST_F(Dialogs, ExtendedTemplateWithOptionsAndCreationData) {
    auto e = compile_ok("Dlg DIALOGEX PRELOAD 1, 2, 3, 4, 99 STYLE 0x10000000 | 0x80000000\n"
                        "EXSTYLE 0x8 MENU mymenu CLASS \"cls\" FONT 9, \"Tahoma\", 700, 1, 0\n"
                        "BEGIN PUSHBUTTON \"OK\", 1, 5, 6, 7, 8, 0x1, 0x2, 77\n"
                        "  DEFPUSHBUTTON \"Go\", 2, 1, 1, 1, 1\n"
                        "  BEGIN \"ab\", L\"\\x4142\", 1, 2L 0x10000 END\n"
                        "  CONTROL 5, 3, \"Static\", 0x3, 0, 0, 1, 1, 0, 9 END\n");
    ASSERT_EQ(heads(e), Lines{"#5 DLG 1070 0409"});
    Bytes want = Bytes().u16(1, 0xFFFF).u32(99, 8, 0x90000040).u16(3, 1, 2, 3, 4);
    want.str("mymenu").str("cls").str(""); // the menu keeps its case
    want.u16(9, 700).u8(1, 0).str("Tahoma").pad4();
    want.u32(77, 2, 0x50010001).u16(5, 6, 7, 8).u32(1).ord(0x80).str("OK").u16(0).pad4();
    // Narrow bytes, a wide character's low byte and 0, a short, a long
    // ("2L"), and a short again.
    want.u32(0, 0, 0x50010001).u16(1, 1, 1, 1).u32(2).ord(0x80).str("Go");
    want.u16(12).text("ab").u8(0x42, 0).u16(1).u32(2).u16(0).pad4();
    want.u32(9, 0, 0x50000003).u16(0, 0, 1, 1).u32(3).ord(0x82).ord(5).u16(0);
    EXPECT_EQ(e[0].data, want);
}

TEST_F(Dialogs, WindowStyleRulesAndEmptyDialogs) {
    auto e = compile_ok("1 DIALOG 0, 0, 1, 1 BEGIN END\n"
                        "2 DIALOG 0, 0, 1, 1 STYLE 0 BEGIN END\n"
                        "3 DIALOG 0, 0, 1, 1 STYLE 0 CAPTION \"\" BEGIN END\n"
                        "4 DIALOG 0, 0, 1, 1 MENU 5 CLASS 7 FONT 8 \"x\" BEGIN END\n"
                        "5 DIALOGEX 0, 0, 1, 1 FONT 8, \"x\" BEGIN END\n");
    ASSERT_EQ(e.size(), 5u);
    auto classic = [](uint32_t style) { return Bytes().u32(style, 0).u16(0, 0, 0, 1, 1); };
    EXPECT_EQ(e[0].data, classic(0x80880000).u16(0, 0, 0));
    EXPECT_EQ(e[1].data, classic(0).u16(0, 0, 0));
    EXPECT_EQ(e[2].data, classic(0xC00000).u16(0, 0, 0));
    EXPECT_EQ(e[3].data, classic(0x80880040).ord(5).ord(7).u16(0, 8).str("x"));
    // DIALOGEX font defaults: weight 0, not italic, character set 1.
    Bytes ex = Bytes().u16(1, 0xFFFF).u32(0, 0, 0x80880040).u16(0, 0, 0, 1, 1);
    EXPECT_EQ(e[4].data, ex.u16(0, 0, 0, 8, 0).u8(0, 1).str("x"));
}

TEST_F(Dialogs, EveryControlKeywordHasItsClassAndStyle) {
    // Keyword, class ordinal and style in hex; those without text have a
    // class above 0x82.
    const char* rows[] = {"AUTO3STATE 80 10006",    "AUTOCHECKBOX 80 10003",
                          "AUTORADIOBUTTON 80 9",   "CHECKBOX 80 10002",
                          "COMBOBOX 85 0",          "CTEXT 82 20001",
                          "DEFPUSHBUTTON 80 10001", "EDITTEXT 81 810000",
                          "GROUPBOX 80 7",          "ICON 82 3",
                          "LISTBOX 83 800001",      "LTEXT 82 20000",
                          "PUSHBOX 80 1000A",       "PUSHBUTTON 80 10000",
                          "RADIOBUTTON 80 4",       "RTEXT 82 20002",
                          "SCROLLBAR 84 0",         "STATE3 80 10005"};
    for (const char* row : rows) {
        SCOPED_TRACE(row);
        fresh();
        char keyword[20];
        unsigned class_ordinal, style;
        ASSERT_EQ(std::sscanf(row, "%19s %x %x", keyword, &class_ordinal, &style), 3);
        bool text = class_ordinal == 0x80 || class_ordinal == 0x82;
        auto e = compile_ok(std::string("1 DIALOG 0, 0, 1, 1 BEGIN ") + keyword +
                            (text ? " 7," : "") + " 1, 2, 3, 4, 5 END\n");
        Bytes want = Bytes().u32(0x80880000, 0).u16(1, 0, 0, 1, 1, 0, 0, 0);
        want.u32(style | 0x50000000, 0).u16(2, 3, 4, 5, 1).ord(uint16_t(class_ordinal));
        (text ? want.ord(7) : want.u16(0)).u16(0); // a number as text is an ordinal
        ASSERT_EQ(e.size(), 1u);
        EXPECT_EQ(e[0].data, want);
    }
}

TEST_F(Dialogs, CreationDataOverTheLimitWarnsAndCutsTheCount) {
    std::string script = "1 DIALOGEX 0, 0, 1, 1 BEGIN LTEXT \"a\", 1, 0, 0, 1, 1 BEGIN\n";
    // Appended piece by piece: g++ 12 warns falsely (-Wrestrict) on "x" + string.
    for (int i = 0; i < 16; i++) script.append("\"").append(4000, 'z').append("\"\n");
    script.append("\"").append(2000, 'z').append("\"\nEND\nEND\n"); // 66000 bytes
    auto e = compile_ok(script, {"20: warning: Numeric value outside bounds."});
    ASSERT_EQ(e.size(), 1u);
    size_t count_at = 32 + 24 + 4 + 4; // header and strings, control, class, text
    EXPECT_EQ(get16(e[0].data, count_at), 66000 & 0xFFFF);
    EXPECT_EQ(e[0].data.size(), count_at + 2 + 66000);
}

TEST_F(Dialogs, Failures) {
    expect_failures({
        // The tokens left behind warn no more after an error.
        {"1 DIALOG 0, 0, 1, 1 BEGIN LTEXT \"a\", 1, 0, 0, 1, 1\nMENUITEM \"x\", 1 END\n",
         {"2: error: Invalid syntax."}},
        {"1 DIALOG 0, 0, 1, 1 CAPTION 5 FONT 8, 9 BEGIN END\n",
         {"1: error: String literal expected (found: 5).",
          "1: error: String literal expected (found: 9)."}},
        {"1 DIALOG 0, 0, 1, 1 BEGIN CONTROL \"a\", 1, 0x80, 0, 0, 0, 1, 1 END\n",
         {"1: error: String literal expected (found: 128)."}},
    });
}

TEST_F(Dialogs, ExtendedDialect) {
    Bytes header = Bytes().u32(0x80880000, 0).u16(1, 0, 0, 1, 1).u16(0, 0, 0);
    auto ex_header = [](uint16_t count) {
        return Bytes()
            .u16(1, 0xFFFF)
            .u32(0, 0, 0x80880000)
            .u16(count, 0, 0, 1, 1)
            .u16(0, 0, 0)
            .pad4();
    };
    // An LTEXT "" of DIALOGEX with this id, up to its creation data.
    auto ltext = [](uint32_t id) {
        return Bytes().u32(0, 0, 0x50020000).u16(0, 0, 1, 1).u32(id).ord(0x82).str("");
    };
    Bytes wide = Bytes().u32(0x80C80040, 0).u16(1, 0, 0, 1, 1).u16(0, 0).u16(0x263A, 0).u16(8);
    wide.str("f").pad4().u32(0x50000000, 0).u16(0, 0, 1, 1, 1).ord(0x80).u16(0x263A, 0).u16(0);
    expect_dialects({
        // ICON with a place and no size.
        {"1 DIALOG 0, 0, 1, 1 BEGIN ICON \"\", 10, 20, 70 END\n",
         fails({"1: error: Number expected (found: end).",
                "1: error: Number expected (found: end)."}),
         gives({Bytes(header).u32(0x50000003, 0).u16(20, 70, 0, 0, 10).ord(0x82).str("").u16(0)})},
        // DIALOGEX control ids of 32 bits.
        {"1 DIALOGEX 0, 0, 1, 1 BEGIN LTEXT \"\", -1, 0, 0, 1, 1\nLTEXT \"\", 70000, 0, 0, 1, 1 "
         "END\n",
         gives({ex_header(2).bytes(ltext(0xFFFF)).u16(0).pad4().bytes(ltext(4464)).u16(0)},
               {"2: warning: Numeric value outside bounds."}),
         gives({ex_header(2).bytes(ltext(0xFFFFFFFF)).u16(0).pad4().bytes(ltext(70000)).u16(0)})},
        // Wide caption, face, text and class keep whole UTF-16 units.
        {"1 DIALOG 0, 0, 1, 1 CAPTION L\"\\x263a\" FONT 8, L\"f\"\n"
         "BEGIN CONTROL L\"\\x263a\", 1, L\"Button\", 0, 0, 0, 1, 1 END\n",
         fails({"1: error: String literal expected (found: L\"STRING\").",
                "1: error: String literal expected (found: L\"STRING\").",
                "2: error: Number expected (found: L\"STRING\").",
                "2: error: String literal expected (found: L\"STRING\")."}),
         gives({wide})},
        // A text whose first unit is the ordinal mark is written as an
        // ordinal, of the unit after it.
        {"1 DIALOGEX 0, 0, 1, 1 BEGIN LTEXT L\"\\xffff\\x41\", 1, 0, 0, 1, 1\n"
         "LTEXT L\"\\xffff\", 2, 0, 0, 1, 1 END\n",
         fails({"1: error: Number expected (found: L\"STRING\").",
                "2: error: Number expected (found: L\"STRING\")."}),
         gives({ex_header(2)
                    .u32(0, 0, 0x50020000)
                    .u16(0, 0, 1, 1)
                    .u32(1)
                    .ord(0x82)
                    .ord(0x41)
                    .u16(0)
                    .pad4()
                    .u32(0, 0, 0x50020000)
                    .u16(0, 0, 1, 1)
                    .u32(2)
                    .ord(0x82)
                    .ord(0)
                    .u16(0)})},
        // Creation data: a wide character's high byte is kept.
        {"1 DIALOGEX 0, 0, 1, 1 BEGIN LTEXT \"\", 1, 0, 0, 1, 1 BEGIN L\"\\x4142\" END END\n",
         gives({ex_header(1).bytes(ltext(1)).u16(2, 0x0042)}),
         gives({ex_header(1).bytes(ltext(1)).u16(2, 0x4142)})},
    });
}

TEST_F(Dialogs, MoreControlsThanTheCountHoldsIsAnError) {
    std::string script = "1 DIALOG 0, 0, 1, 1 BEGIN\n";
    for (int i = 0; i < 70000; i++) script += "LTEXT \"\", 1, 0, 0, 1, 1\n";
    EXPECT_EQ(compile_fail(script + "END\n"),
              Lines{"70002: error: Too large for a 16-bit field: dialog control count is 70000, "
                    "at most 65535."});
}

} // namespace
