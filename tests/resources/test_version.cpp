// VERSIONINFO: the fixed block, string blocks and translations with their
// sizes (including the blocks that run 2 bytes past the computed length),
// and the statement's errors.
#include "resources/kinds_support.h"

using namespace kinds_test;

namespace {

class VersionInfo : public tarn_test::FreshLibrary {};

Bytes fixed(uint32_t fv_high, uint32_t fv_low, uint32_t pv_high, uint32_t pv_low, uint32_t mask,
            uint32_t flags, uint32_t os, uint32_t type, uint32_t subtype) {
    return Bytes()
        .u32(0xFEEF04BD)
        .u32(0x00010000)
        .u32(fv_high)
        .u32(fv_low)
        .u32(pv_high)
        .u32(pv_low)
        .u32(mask)
        .u32(flags)
        .u32(os)
        .u32(type)
        .u32(subtype)
        .u32(0)
        .u32(0);
}

Bytes root(uint16_t length) {
    return Bytes().u16(length).u16(52).u16(0).str("VS_VERSION_INFO").pad4();
}

TEST_F(VersionInfo, TwoStringBlocksAndATranslation) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 VERSIONINFO\n"
                      "FILEVERSION 1,2,3,4\n"
                      "PRODUCTVERSION 5,6\n"
                      "FILEFLAGSMASK 0x3F\n"
                      "FILEFLAGS 0\n"
                      "FILEOS 0x40004\n"
                      "FILETYPE 1\n"
                      "FILESUBTYPE 0\n"
                      "BEGIN\n"
                      "  BLOCK \"StringFileInfo\"\n"
                      "  BEGIN\n"
                      "    BLOCK \"040904B0\"\n"
                      "    BEGIN\n"
                      "      VALUE \"A\", \"xy\"\n"
                      "      VALUE \"Key2\", \"\"\n"
                      "    END\n"
                      "    BLOCK \"041D04B0\"\n"
                      "    BEGIN\n"
                      "      VALUE \"B\", \"z\"\n"
                      "    END\n"
                      "  END\n"
                      "  BLOCK \"VarFileInfo\"\n"
                      "  BEGIN\n"
                      "    VALUE \"Translation\", 0x409, 1200, 0x41D 1200\n"
                      "  END\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    // Block sizes 62 and 40 leave the first block 2 short of a multiple of
    // 4: the bytes written run on 2 past StringFileInfo's length of 138.
    Bytes want;
    want.raw(leading_entry()).raw(header(304, 16, 1, 0x0030).v);
    want.raw(root(304).v)
        .raw(fixed(0x00010002, 0x00030004, 0x00050006, 0, 0x3F, 0, 0x40004, 1, 0).v);
    want.u16(138).u16(0).u16(1).str("StringFileInfo").pad4();
    want.u16(62).u16(0).u16(1).str("040904B0");
    want.pad4().u16(18).u16(3).u16(1).str("A").pad4().str("xy").pad4();
    want.pad4().u16(18).u16(1).u16(1).str("Key2").pad4().str("").pad4();
    want.u16(40).u16(0).u16(1).str("041D04B0");
    want.pad4().u16(16).u16(2).u16(1).str("B").pad4().str("z").pad4();
    want.u16(72).u16(0).u16(1).str("VarFileInfo").pad4();
    want.u16(40).u16(8).u16(0).str("Translation").pad4().u32(0x04B00409).u32(0x04B0041D);
    EXPECT_EQ(res, want.v);
}

TEST_F(VersionInfo, NoBlocksAndShortVersions) {
    std::vector<uint8_t> res;
    ASSERT_EQ(
        compile("V VERSIONINFO PRELOAD FILEVERSION 1 PRODUCTVERSION 1, 2, 3 BEGIN END\n", &res), 1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ord(16));
    EXPECT_EQ(r[0].name, name("V"));
    EXPECT_EQ(r[0].flags, 0x0070);
    EXPECT_EQ(r[0].data,
              root(92).raw(fixed(0x00010000, 0, 0x00010002, 0x00030000, 0, 0, 0, 0, 0).v).v);
}

TEST_F(VersionInfo, StringsOnlyAndVarsOnly) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 VERSIONINFO BEGIN BLOCK \"StringFileInfo\" BEGIN\n"
                      "  BLOCK \"ABCDEFGHIJKLMNOPQRST\" BEGIN VALUE \"K\", \"v\" END\n"
                      "END END\n"
                      "2 VERSIONINFO BEGIN BLOCK \"VarFileInfo\" BEGIN\n"
                      "  VALUE \"Translation\", 0x409\n"
                      "  VALUE \"X\"\n"
                      "END END\n",
                      &res),
              1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 2u);
    Bytes fx = fixed(0, 0, 0, 0, 0, 0, 0, 0, 0);
    // The block name is cut to 15 characters: block 6 + 32, 2 to align,
    // then the pair's 16.
    Bytes strings = root(92 + 92).raw(fx.v);
    strings.u16(92).u16(0).u16(1).str("StringFileInfo").pad4();
    strings.u16(56).u16(0).u16(1).str("ABCDEFGHIJKLMNO");
    strings.pad4().u16(16).u16(2).u16(1).str("K").pad4().str("v");
    EXPECT_EQ(r[0].data, strings.v);
    // An odd count of numbers leaves the high half 0; a VALUE without
    // numbers still holds one value.
    Bytes vars = root(92 + 84).raw(fx.v);
    vars.u16(84).u16(0).u16(1).str("VarFileInfo").pad4();
    vars.u16(36).u16(4).u16(0).str("Translation").pad4().u32(0x409);
    vars.u16(16).u16(4).u16(0).str("X").pad4().u32(0);
    EXPECT_EQ(r[1].data, vars.v);
}

TEST_F(VersionInfo, NumericValueIsDroppedWithAnError) {
    EXPECT_EQ(compile("1 VERSIONINFO BEGIN BLOCK \"StringFileInfo\" BEGIN BLOCK \"x\" BEGIN\n"
                      "VALUE \"FileVersion\", 1\n"
                      "END END END\n"),
              0);
    EXPECT_EQ(count(diags, SEV_ERROR, "String literal expected (found: 1)."), 1);
    EXPECT_EQ(diags.size(), 1u);
}

TEST_F(VersionInfo, BlockNamesAreCaseSensitive) {
    EXPECT_EQ(compile("1 VERSIONINFO BEGIN BLOCK \"stringfileinfo\" BEGIN END END\n"), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "END keyword or } character expected (found: begin)."), 1);
}

TEST_F(VersionInfo, StrayTokenAmongValuesEndsTheList) {
    EXPECT_EQ(compile("1 VERSIONINFO BEGIN BLOCK \"VarFileInfo\" BEGIN\n"
                      "VALUE \"Translation\", 1 BLOCK END END\n"),
              0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid syntax."), 1);
}

} // namespace
