// MENU and MENUEX: nested popups, options, separators, the last-item bits,
// the MENUEX sign-extended ids and padding, the nesting limit and errors.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Menus = ResTest;

TEST_F(Menus, NestedPopupsWithOptionsAndSeparators) {
    auto e =
        compile_ok("M MENU BEGIN\n"
                   "  POPUP \"&File\" BEGIN\n"
                   "    MENUITEM \"&Open\", 100\n"
                   "    MENUITEM SEPARATOR\n"
                   "    POPUP \"Sub\", GRAYED BEGIN MENUITEM \"Deep\", 101, CHECKED, INACTIVE END\n"
                   "    MENUITEM \"E&xit\", 102 MENUBARBREAK\n"
                   "  END\n"
                   "  MENUITEM \"Help\" 103, HELP, MENUBREAK\n"
                   "END\n"
                   "2 MENU BEGIN MENUITEM SEPARATOR END\n"
                   "3 MENU { }\n");
    ASSERT_EQ(heads(e), (Lines{"#4 M 1030 0409", "#4 #2 1030 0409", "#4 #3 1030 0409"}));
    Bytes want = Bytes().u32(0).u16(0x0010).str("&File").u16(0, 100).str("&Open").u16(0, 0, 0);
    want.u16(0x0011).str("Sub").u16(0x008A, 101).str("Deep");
    want.u16(0x00A0, 102).str("E&xit").u16(0x40C0, 103).str("Help");
    EXPECT_EQ(e[0].data, want);
    EXPECT_EQ(e[1].data, Bytes().u32(0).u16(0x0080, 0, 0));
    EXPECT_EQ(e[2].data, Bytes().u32(0));
}

TEST_F(Menus, ExtendedLayoutSignExtendsIdsAndPads) {
    auto e = compile_ok("ME MENUEX BEGIN\n"
                        "  POPUP \"F\", 200, 0, 0, 55 BEGIN\n"
                        "    MENUITEM \"Ab\", 40000, 0x800, 3\n"
                        "    MENUITEM \"\", -1\n"
                        "    MENUITEM \"X\"\n"
                        "  END\n"
                        "  MENUITEM \"Q\",\n"
                        "END\n");
    ASSERT_EQ(e.size(), 1u);
    Bytes want = Bytes().u16(1, 4).u32(0);
    want.u32(0, 0, 200).u16(0x01).str("F").pad4().u32(55);
    want.u32(0x800, 3, 0xFFFF9C40).u16(0).str("Ab").pad4();
    want.u32(0, 0, 0xFFFFFFFF).u16(0).str("").pad4();
    want.u32(0, 0, 0).u16(0x80).str("X").pad4();
    want.u32(0, 0, 0).u16(0x80).str("Q").pad4();
    EXPECT_EQ(e[0].data, want);
}

std::string nested(int levels) {
    std::string s = "1 MENU BEGIN\n";
    for (int i = 0; i < levels; i++) s += "POPUP \"p\" BEGIN\n";
    s += "MENUITEM \"x\", 1\n";
    for (int i = 0; i < levels; i++) s += "END\n";
    return s + "END\n";
}

TEST_F(Menus, SevenPopupLevelsFit) {
    auto e = compile_ok(nested(7));
    Bytes want = Bytes().u32(0);
    for (int i = 0; i < 7; i++) want.u16(0x0090).str("p");
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].data, want.u16(0x0080, 1).str("x"));
}

TEST_F(Menus, Failures) {
    expect_failures({
        {nested(8), {"9: error: Invalid syntax."}},
        {"1 MENU BEGIN MENUITEM 5 END\n", {"1: error: Invalid syntax."}},
        {"1 MENU BEGIN CAPTION END\n", {"1: error: Invalid syntax."}},
        {"1 MENU BEGIN POPUP \"a\" BEGIN MENUITEM \"x\", 1\n",
         {"2: error: Invalid syntax.", "2: fatal error: Unexpected end of file."}},
        {"1 MENUEX BEGIN POPUP \"a\", 1\n",
         {"2: error: BEGIN keyword or { character expected (found: EOF).",
          "2: fatal error: Unexpected end of file."}},
    });
}

TEST_F(Menus, ExtendedDialect) {
    Bytes ex = Bytes().u16(1, 4).u32(0);
    expect_dialects({
        // A MENUEX separator is an item of type MFT_SEPARATOR without text.
        {"1 MENUEX BEGIN MENUITEM \"a\", 1\nMENUITEM SEPARATOR END\n",
         fails({"2: error: String literal expected (found: separator)."}),
         gives({Bytes(ex).u32(0, 0, 1).u16(0).str("a").pad4().u32(0x800, 0, 0).u16(0x80).str("")})},
        {"1 MENU BEGIN MENUITEM L\"\\x263a\", 1 END\n2 MENUEX BEGIN POPUP L\"p\" BEGIN END END\n",
         fails({"1: error: Invalid syntax.", "1: error: Invalid syntax.",
                "2: error: String literal expected (found: L\"STRING\")."}),
         gives({Bytes().u32(0).u16(0x80, 1, 0x263A, 0),
                Bytes(ex).u32(0, 0, 0).u16(0x81).str("p").pad4().u32(0)})},
    });
}

} // namespace
