// DIALOG and DIALOGEX: the two template layouts with their padding and
// dialog_size, the options, the control keywords, CONTROL with class names,
// creation data, the default window style, and the syntax errors.
#include "resources/kinds_support.h"

using namespace kinds_test;

namespace {

class Dialogs : public tarn_test::FreshLibrary {};

TEST_F(Dialogs, ClassicTemplateWithControls) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 DIALOG 10, 20, 200, 100\n"
                      "CAPTION \"Hi\"\n"
                      "FONT 8, \"MS Shell Dlg\"\n"
                      "BEGIN\n"
                      "  LTEXT \"a\", 1, 0, 0, 10, 10, NOT 0x20000\n"
                      "  CONTROL \"\", 2, \"BUTTON\", 0, 1, 2, 30, 40\n"
                      "  CONTROL \"t\", 3, \"MyClass\", 5, 1, 2, 3, 4, 7\n"
                      "  EDITTEXT 4, 5, 6, 7, 8\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ord(5));
    EXPECT_EQ(r[0].flags, 0x1030);
    Bytes want;
    // Default style with the font and caption bits.
    want.u32(0x80C80040).u32(0).u16(4).u16(10).u16(20).u16(200).u16(100);
    want.u16(0).u16(0).str("Hi").u16(8).str("MS Shell Dlg").pad4();
    // LTEXT: NOT removes the default's group bit.
    want.u32(0x50000000).u32(0).u16(0).u16(0).u16(10).u16(10).u16(1);
    want.ord(0x82).str("a").u16(0).pad4();
    // CONTROL with a predefined class name becomes its ordinal.
    want.u32(0x50000000).u32(0).u16(1).u16(2).u16(30).u16(40).u16(2);
    want.ord(0x80).str("").u16(0).pad4();
    want.u32(0x50000005).u32(7).u16(1).u16(2).u16(3).u16(4).u16(3);
    want.str("MyClass").str("t").u16(0).pad4();
    // EDITTEXT takes no text: the empty string stands for it.
    want.u32(0x50810000).u32(0).u16(5).u16(6).u16(7).u16(8).u16(4);
    want.ord(0x81).str("").u16(0);
    EXPECT_EQ(r[0].data_size, 178u); // no padding after the last control
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Dialogs, ExtendedTemplateWithOptionsAndCreationData) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("Dlg DIALOGEX PRELOAD 1, 2, 3, 4, 99\n"
                      "STYLE 0x10000000 | 0x80000000\n"
                      "EXSTYLE 0x8\n"
                      "MENU mymenu\n"
                      "CLASS \"cls\"\n"
                      "FONT 9, \"Tahoma\", 700, 1, 0\n"
                      "BEGIN\n"
                      "  PUSHBUTTON \"OK\", 1, 5, 6, 7, 8, 0x1, 0x2, 77\n"
                      "  DEFPUSHBUTTON \"Go\", 2, 1, 1, 1, 1\n"
                      "  BEGIN \"ab\", L\"\\x4142\", 1, 2L 0x10000 END\n"
                      "  CONTROL 5, 3, \"Static\", 0x3, 0, 0, 1, 1, 0, 9\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].name, name("DLG"));
    EXPECT_EQ(r[0].flags, 0x1070);
    Bytes want;
    want.u16(1).u16(0xFFFF).u32(99).u32(8).u32(0x90000040).u16(3);
    want.u16(1).u16(2).u16(3).u16(4);
    want.str("mymenu").str("cls").str(""); // the menu keeps its case
    want.u16(9).u16(700).u8(1).u8(0).str("Tahoma").pad4();
    want.u32(77).u32(2).u32(0x50010001).u16(5).u16(6).u16(7).u16(8).u32(1);
    want.ord(0x80).str("OK").u16(0).pad4();
    // Narrow bytes, a wide character's low byte and 0, a short, a long
    // ("2L"), and a short again.
    Bytes data = Bytes().u8('a').u8('b').u8(0x42).u8(0).u16(1).u32(2).u16(0);
    want.u32(0).u32(0).u32(0x50010001).u16(1).u16(1).u16(1).u16(1).u32(2);
    want.ord(0x80).str("Go").u16(uint16_t(data.size())).raw(data.v).pad4();
    want.u32(9).u32(0).u32(0x50000003).u16(0).u16(0).u16(1).u16(1).u32(3);
    want.ord(0x82).ord(5).u16(0);
    EXPECT_EQ(r[0].data_size, 190u);
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Dialogs, WindowStyleRulesAndEmptyDialogs) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 DIALOG 0, 0, 1, 1 BEGIN END\n"
                      "2 DIALOG 0, 0, 1, 1 STYLE 0 BEGIN END\n"
                      "3 DIALOG 0, 0, 1, 1 STYLE 0 CAPTION \"\" BEGIN END\n"
                      "4 DIALOG 0, 0, 1, 1 MENU 5 CLASS 7 FONT 8 \"x\" BEGIN END\n"
                      "5 DIALOGEX 0, 0, 1, 1 FONT 8, \"x\" BEGIN END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 5u);
    Bytes tail = Bytes().u16(0).u16(0).u16(0).u16(1).u16(1); // count, x, y, cx, cy
    EXPECT_EQ(r[0].data, Bytes().u32(0x80880000).u32(0).raw(tail.v).u16(0).u16(0).u16(0).v);
    EXPECT_EQ(r[1].data, Bytes().u32(0).u32(0).raw(tail.v).u16(0).u16(0).u16(0).v);
    EXPECT_EQ(r[2].data, Bytes().u32(0xC00000).u32(0).raw(tail.v).u16(0).u16(0).u16(0).v);
    EXPECT_EQ(r[3].data,
              Bytes().u32(0x80880040).u32(0).raw(tail.v).ord(5).ord(7).u16(0).u16(8).str("x").v);
    // DIALOGEX defaults: weight 0, not italic, character set 1.
    EXPECT_EQ(r[4].data, Bytes()
                             .u16(1)
                             .u16(0xFFFF)
                             .u32(0)
                             .u32(0)
                             .u32(0x80880040)
                             .raw(tail.v)
                             .u16(0)
                             .u16(0)
                             .u16(0)
                             .u16(8)
                             .u16(0)
                             .u8(0)
                             .u8(1)
                             .str("x")
                             .v);
}

TEST_F(Dialogs, EveryControlKeywordHasItsClassAndStyle) {
    struct Case {
        const char* keyword;
        uint16_t class_ordinal;
        uint32_t style;
        bool text;
    } cases[] = {
        {"AUTO3STATE", 0x80, 0x00010006, true},
        {"AUTOCHECKBOX", 0x80, 0x00010003, true},
        {"AUTORADIOBUTTON", 0x80, 0x00000009, true},
        {"CHECKBOX", 0x80, 0x00010002, true},
        {"COMBOBOX", 0x85, 0, false},
        {"CTEXT", 0x82, 0x00020001, true},
        {"DEFPUSHBUTTON", 0x80, 0x00010001, true},
        {"EDITTEXT", 0x81, 0x00810000, false},
        {"GROUPBOX", 0x80, 0x00000007, true},
        {"ICON", 0x82, 0x00000003, true},
        {"LISTBOX", 0x83, 0x00800001, false},
        {"LTEXT", 0x82, 0x00020000, true},
        {"PUSHBOX", 0x80, 0x0001000A, true},
        {"PUSHBUTTON", 0x80, 0x00010000, true},
        {"RADIOBUTTON", 0x80, 0x00000004, true},
        {"RTEXT", 0x82, 0x00020002, true},
        {"SCROLLBAR", 0x84, 0, false},
        {"STATE3", 0x80, 0x00010005, true},
    };
    std::string script = "1 DIALOG 0, 0, 1, 1 BEGIN\n";
    for (const Case& c : cases)
        script += std::string(c.keyword) + (c.text ? " 7," : "") + " 1, 2, 3, 4, 5\n";
    script += "END\n";
    std::vector<uint8_t> res;
    ASSERT_EQ(compile(script, &res), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    Bytes want;
    want.u32(0x80880000).u32(0).u16(uint16_t(std::size(cases))).u16(0).u16(0).u16(1).u16(1);
    want.u16(0).u16(0).u16(0).pad4();
    for (const Case& c : cases) {
        want.pad4().u32(c.style | 0x50000000).u32(0).u16(2).u16(3).u16(4).u16(5).u16(1);
        want.ord(c.class_ordinal);
        if (c.text)
            want.ord(7); // a number as text is an ordinal
        else
            want.u16(0);
        want.u16(0);
    }
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Dialogs, UnknownTokenAmongControlsWritesNothing) {
    std::vector<uint8_t> res;
    EXPECT_EQ(compile("1 DIALOG 0, 0, 1, 1 BEGIN LTEXT \"a\", 1, 0, 0, 1, 1\n"
                      "MENUITEM \"x\", 1 END\n",
                      &res),
              0);
    EXPECT_TRUE(res.empty());
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid syntax."), 1);
    EXPECT_EQ(diags.size(), 1u); // the tokens left behind warn no more after an error
}

TEST_F(Dialogs, CaptionAndFontWithoutString) {
    EXPECT_EQ(compile("1 DIALOG 0, 0, 1, 1 CAPTION 5 FONT 8, 9 BEGIN END\n"), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "String literal expected (found: 5)."), 1);
    EXPECT_EQ(count(diags, SEV_ERROR, "String literal expected (found: 9)."), 1);
}

TEST_F(Dialogs, NumericControlClassIsAnError) {
    EXPECT_EQ(compile("1 DIALOG 0, 0, 1, 1 BEGIN CONTROL \"a\", 1, 0x80, 0, 0, 0, 1, 1 END\n"), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "String literal expected (found: 128)."), 1);
}

TEST_F(Dialogs, CreationDataOverLimitWarnsAndCutsTheCount) {
    std::string chunk(4000, 'z');
    std::string script = "1 DIALOGEX 0, 0, 1, 1 BEGIN LTEXT \"a\", 1, 0, 0, 1, 1 BEGIN\n";
    for (int i = 0; i < 16; i++) script += "\"" + chunk + "\"\n";
    script += "\"" + std::string(2000, 'z') + "\"\nEND\nEND\n"; // 66000 bytes
    std::vector<uint8_t> res;
    ASSERT_EQ(compile(script, &res), 1);
    EXPECT_EQ(count(diags, SEV_WARNING, "Numeric value outside bounds."), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    size_t count_at = 32 + 24 + 4 + 4; // header and strings, control, class, text
    EXPECT_EQ(get16(r[0].data, count_at), 66000 & 0xFFFF);
    EXPECT_EQ(r[0].data_size, count_at + 2 + 66000);
}

} // namespace
