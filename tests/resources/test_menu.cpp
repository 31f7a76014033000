// MENU and MENUEX: nested popups, options, separators, the last-item bits,
// the MENUEX sign-extended ids and padding, the nesting limit and errors.
#include "resources/kinds_support.h"

using namespace kinds_test;

namespace {

class Menus : public tarn_test::FreshLibrary {};

TEST_F(Menus, NestedPopupsWithOptionsAndSeparator) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("M MENU\n"
                      "BEGIN\n"
                      "  POPUP \"&File\"\n"
                      "  BEGIN\n"
                      "    MENUITEM \"&Open\", 100\n"
                      "    MENUITEM SEPARATOR\n"
                      "    POPUP \"Sub\", GRAYED\n"
                      "    BEGIN\n"
                      "      MENUITEM \"Deep\", 101, CHECKED, INACTIVE\n"
                      "    END\n"
                      "    MENUITEM \"E&xit\", 102 MENUBARBREAK\n"
                      "  END\n"
                      "  MENUITEM \"Help\" 103, HELP, MENUBREAK\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ord(4));
    EXPECT_EQ(r[0].name, name("M"));
    EXPECT_EQ(r[0].flags, 0x1030);
    Bytes want;
    want.u32(0);
    want.u16(0x0010).str("&File");
    want.u16(0x0000).u16(100).str("&Open");
    want.u16(0x0000).u16(0).u16(0);
    want.u16(0x0011).str("Sub");
    want.u16(0x008A).u16(101).str("Deep");
    want.u16(0x00A0).u16(102).str("E&xit");
    want.u16(0x40C0).u16(103).str("Help");
    EXPECT_EQ(r[0].data_size, 94u);
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Menus, LastSeparatorAndEmptyMenu) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 MENU BEGIN MENUITEM SEPARATOR END\n"
                      "2 MENU DISCARDABLE LANGUAGE 9, 2 { }\n",
                      &res),
              1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].data, Bytes().u32(0).u16(0x0080).u16(0).u16(0).v);
    EXPECT_EQ(r[1].data, Bytes().u32(0).v);
    EXPECT_EQ(r[1].language, 0x0809);
}

TEST_F(Menus, ExtendedLayoutSignExtendsIdsAndPads) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("ME MENUEX\n"
                      "BEGIN\n"
                      "  POPUP \"F\", 200, 0, 0, 55\n"
                      "  BEGIN\n"
                      "    MENUITEM \"Ab\", 40000, 0x800, 3\n"
                      "    MENUITEM \"\", -1\n"
                      "    MENUITEM \"X\"\n"
                      "  END\n"
                      "  MENUITEM \"Q\",\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    Bytes want;
    want.u16(1).u16(4).u32(0);
    want.u32(0).u32(0).u32(200).u16(0x01).str("F").pad4().u32(55);
    want.u32(0x800).u32(3).u32(0xFFFF9C40).u16(0).str("Ab").pad4();
    want.u32(0).u32(0).u32(0xFFFFFFFF).u16(0).str("").pad4();
    want.u32(0).u32(0).u32(0).u16(0x80).str("X").pad4();
    want.u32(0).u32(0).u32(0).u16(0x80).str("Q").pad4();
    EXPECT_EQ(r[0].data_size, 108u);
    EXPECT_EQ(r[0].data, want.v);
}

std::string nested(int levels) {
    std::string s = "1 MENU BEGIN\n";
    for (int i = 0; i < levels; i++) s += "POPUP \"p\" BEGIN\n";
    s += "MENUITEM \"x\", 1\n";
    for (int i = 0; i < levels; i++) s += "END\n";
    return s + "END\n";
}

TEST_F(Menus, SevenPopupLevelsFit) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile(nested(7), &res), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    Bytes want;
    want.u32(0);
    for (int i = 0; i < 7; i++) want.u16(0x0090).str("p");
    want.u16(0x0080).u16(1).str("x");
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Menus, EightPopupLevelsDoNot) {
    EXPECT_EQ(compile(nested(8)), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid syntax."), 1);
    EXPECT_EQ(diags.size(), 1u);
}

TEST_F(Menus, ItemThatIsNeitherStringNorSeparator) {
    EXPECT_EQ(compile("1 MENU BEGIN MENUITEM 5 END\n"), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid syntax."), 1);
    EXPECT_EQ(diags.size(), 1u);
}

TEST_F(Menus, StrayTokenWritesNothing) {
    std::vector<uint8_t> res;
    EXPECT_EQ(compile("1 MENU BEGIN CAPTION END\n", &res), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid syntax."), 1);
    EXPECT_EQ(diags.size(), 1u);
    EXPECT_TRUE(res.empty());
}

TEST_F(Menus, EndOfFileInsideAMenuIsFatal) {
    EXPECT_EQ(compile("1 MENU BEGIN POPUP \"a\" BEGIN MENUITEM \"x\", 1\n"), 0);
    EXPECT_EQ(count(diags, SEV_FATAL, "Unexpected end of file."), 1);
}

TEST_F(Menus, EndOfFileBeforeAPopupsBeginIsFatal) {
    EXPECT_EQ(compile("1 MENUEX BEGIN POPUP \"a\", 1\n"), 0);
    EXPECT_EQ(count(diags, SEV_FATAL, "Unexpected end of file."), 1);
}

} // namespace
