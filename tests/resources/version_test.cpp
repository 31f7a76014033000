// VERSIONINFO: the fixed block, string blocks and translations with their
// sizes (including the blocks that run 2 bytes past the computed length),
// and the statement's errors.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using VersionInfo = ResTest;

// The root header and the fixed block after the two version numbers.
Bytes root(uint16_t length, uint32_t fv_high, uint32_t fv_low, uint32_t pv_high, uint32_t pv_low) {
    Bytes b = Bytes().u16(length, 52, 0).str("VS_VERSION_INFO").pad4();
    return b.u32(0xFEEF04BD, 0x00010000, fv_high, fv_low, pv_high, pv_low);
}

TEST_F(VersionInfo, TwoStringBlocksAndATranslation) {
    auto e =
        compile_ok("1 VERSIONINFO FILEVERSION 1,2,3,4 PRODUCTVERSION 5,6\n"
                   "FILEFLAGSMASK 0x3F FILEFLAGS 0 FILEOS 0x40004 FILETYPE 1 FILESUBTYPE 0\n"
                   "BEGIN\n"
                   "  BLOCK \"StringFileInfo\" BEGIN\n"
                   "    BLOCK \"040904B0\" BEGIN VALUE \"A\", \"xy\" VALUE \"Key2\", \"\" END\n"
                   "    BLOCK \"041D04B0\" BEGIN VALUE \"B\", \"z\" END\n"
                   "  END\n"
                   "  BLOCK \"VarFileInfo\" BEGIN\n"
                   "    VALUE \"Translation\", 0x409, 1200, 0x41D 1200\n"
                   "  END\n"
                   "END\n");
    ASSERT_EQ(heads(e), Lines{"#16 #1 0030 0409"});
    // Block sizes 62 and 40 leave the first block 2 short of a multiple of
    // 4: the bytes written run on 2 past StringFileInfo's length of 138.
    Bytes want = root(304, 0x00010002, 0x00030004, 0x00050006, 0);
    want.u32(0x3F, 0, 0x40004, 1, 0, 0, 0);
    want.u16(138, 0, 1).str("StringFileInfo").pad4();
    want.u16(62, 0, 1).str("040904B0").pad4();
    want.u16(18, 3, 1).str("A").pad4().str("xy").pad4();
    want.u16(18, 1, 1).str("Key2").pad4().str("").pad4();
    want.u16(40, 0, 1).str("041D04B0").pad4();
    want.u16(16, 2, 1).str("B").pad4().str("z").pad4();
    want.u16(72, 0, 1).str("VarFileInfo").pad4();
    want.u16(40, 8, 0).str("Translation").pad4().u32(0x04B00409, 0x04B0041D);
    EXPECT_EQ(e[0].data, want);
}

TEST_F(VersionInfo, ShortVersionsAndSingleBlocks) {
    auto e = compile_ok("1 VERSIONINFO FILEVERSION 1 PRODUCTVERSION 1, 2, 3 BEGIN END\n"
                        "2 VERSIONINFO BEGIN BLOCK \"StringFileInfo\" BEGIN\n"
                        "  BLOCK \"ABCDEFGHIJKLMNOPQRST\" BEGIN VALUE \"K\", \"v\" END\n"
                        "END END\n"
                        "3 VERSIONINFO BEGIN BLOCK \"VarFileInfo\" BEGIN\n"
                        "  VALUE \"Translation\", 0x409\n"
                        "  VALUE \"X\"\n"
                        "END END\n");
    ASSERT_EQ(e.size(), 3u);
    EXPECT_EQ(e[0].data, root(92, 0x00010000, 0, 0x00010002, 0x00030000).u32(0, 0, 0, 0, 0, 0, 0));
    // The block name is cut to 15 characters: block 6 + 32, 2 to align,
    // then the pair's 16.
    Bytes strings = root(92 + 92, 0, 0, 0, 0).u32(0, 0, 0, 0, 0, 0, 0);
    strings.u16(92, 0, 1).str("StringFileInfo").pad4();
    strings.u16(56, 0, 1).str("ABCDEFGHIJKLMNO").pad4();
    strings.u16(16, 2, 1).str("K").pad4().str("v");
    EXPECT_EQ(e[1].data, strings);
    // An odd count of numbers leaves the high half 0; a VALUE without
    // numbers still holds one value.
    Bytes vars = root(92 + 84, 0, 0, 0, 0).u32(0, 0, 0, 0, 0, 0, 0);
    vars.u16(84, 0, 1).str("VarFileInfo").pad4();
    vars.u16(36, 4, 0).str("Translation").pad4().u32(0x409);
    vars.u16(16, 4, 0).str("X").pad4().u32(0);
    EXPECT_EQ(e[2].data, vars);
}

TEST_F(VersionInfo, Failures) {
    expect_failures({
        {"1 VERSIONINFO BEGIN BLOCK \"StringFileInfo\" BEGIN BLOCK \"x\" BEGIN\n"
         "VALUE \"FileVersion\", 1\nEND END END\n",
         {"2: error: String literal expected (found: 1)."}},
        // Block names are case-sensitive.
        {"1 VERSIONINFO BEGIN BLOCK \"stringfileinfo\" BEGIN END END\n",
         {"1: error: END keyword or } character expected (found: begin)."}},
        {"1 VERSIONINFO BEGIN BLOCK \"VarFileInfo\" BEGIN\nVALUE \"Translation\", 1 BLOCK END "
         "END\n",
         {"2: error: Invalid syntax.", "2: error: String literal expected (found: end)."}},
    });
}

TEST_F(VersionInfo, ExtendedDialectMeasuresWhatItWritesInScriptOrder) {
    const std::string script =
        "1 VERSIONINFO BEGIN\n"
        "BLOCK \"VarFileInfo\" BEGIN VALUE \"Translation\", 0x409, 1200 END\n"
        "BLOCK \"StringFileInfo\" BEGIN\n"
        "  BLOCK \"040904B0\" BEGIN VALUE \"A\", \"xy\" END\n"
        "  BLOCK \"041D04B0\" BEGIN VALUE \"B\", \"z\" END\n"
        "END END\n";
    Bytes fixed = Bytes().u32(0, 0, 0, 0, 0, 0, 0);
    Bytes vars = Bytes().u16(68, 0, 1).str("VarFileInfo").pad4();
    vars.u16(36, 4, 0).str("Translation").pad4().u32(0x04B00409);
    // The first block's 42 bytes end 2 short of a multiple of 4: the
    // default's StringFileInfo length leaves the padding out.
    auto strings = [](uint16_t length) {
        Bytes b = Bytes().u16(length, 0, 1).str("StringFileInfo").pad4();
        b.u16(42, 0, 1).str("040904B0").pad4().u16(18, 3, 1).str("A").pad4().str("xy").pad4();
        return b.u16(40, 0, 1).str("041D04B0").pad4().u16(16, 2, 1).str("B").pad4().str("z");
    };
    Bytes standard = root(280, 0, 0, 0, 0).bytes(fixed).bytes(strings(118)).pad4().bytes(vars);
    Bytes extended = root(280, 0, 0, 0, 0).bytes(fixed).bytes(vars).bytes(strings(120));
    // Wide texts, joined from pieces as common.ver writes them.
    Bytes wide = root(92 + 74, 0, 0, 0, 0).bytes(fixed);
    wide.u16(74, 0, 1).str("StringFileInfo").pad4().u16(38, 0, 1).str("0409").pad4();
    wide.u16(22, 5, 1).str("K").pad4().str("5.2x");
    expect_dialects({
        {script, gives({standard}), gives({extended})},
        {"1 VERSIONINFO BEGIN BLOCK \"StringFileInfo\" BEGIN BLOCK L\"0409\" BEGIN\n"
         "VALUE L\"K\", L\"5.\" L\"2\" \"x\" END END END\n",
         fails({"1: error: String literal expected (found: L\"STRING\").",
                "2: error: String literal expected (found: L\"STRING\").",
                "2: error: String literal expected (found: L\"STRING\").",
                "2: error: Invalid syntax.", "2: error: Comma expected (found: end).",
                "2: error: String literal expected (found: end)."}),
         gives({wide})},
    });
}

TEST_F(VersionInfo, OverSixtyFourKilobytesIsAnError) {
    std::string values;
    for (int i = 0; i < 17000; i++) values += i % 100 ? ", 1, 2" : "\n, 1, 2";
    EXPECT_EQ(compile_fail("1 VERSIONINFO BEGIN BLOCK \"VarFileInfo\" BEGIN VALUE \"T\"" + values +
                           "\nEND END\n"),
              Lines{"173: error: Too large for a 16-bit field: VERSIONINFO length is 68136, at "
                    "most 65535."});
}

// The nodes of a version tree as "depth key=value" lines, checking that
// each node's length covers its key, value and children exactly, and that
// every child starts on a multiple of 4.
void walk(const std::vector<uint8_t>& d, size_t at, int depth, Lines& out) {
    size_t length = get16(d, at), value_length = get16(d, at + 2), p = at + 6;
    bool text = get16(d, at + 4) == 1;
    std::string key, value;
    for (; get16(d, p); p += 2) key += char(get16(d, p));
    p = (p + 2 + 3) / 4 * 4;
    size_t value_end = p + (text ? 2 * value_length : value_length);
    if (key == "VS_VERSION_INFO") value_end = p + 52;
    for (; text && p + 2 < value_end; p += 2) value += get16(d, p) < 128 ? char(get16(d, p)) : '?';
    out.push_back(std::to_string(depth) + " " + key + (value.empty() ? "" : "=" + value));
    size_t end = value_end;
    for (size_t child = (end + 3) / 4 * 4; child < at + length; child = (end + 3) / 4 * 4) {
        walk(d, child, depth + 1, out);
        end = child + get16(d, child);
    }
    EXPECT_EQ(end, at + length) << key;
}

TEST_F(VersionInfo, ExtendedDialectCompilesCommonVer) {
    const char* common_ver = "/usr/share/mingw-w64/include/common.ver";
    if (!std::filesystem::exists(common_ver)) GTEST_SKIP() << "no mingw-w64 headers";
    set_extended_mode();
    auto e =
        compile_ok(std::string("#define VER_FILETYPE 2\n#define VER_FILESUBTYPE 0\n"
                               "#define VER_FILEFLAGSMASK 0x3F\n#define VER_FILEFLAGS 0\n"
                               "#define VER_FILEOS 0x40004\n#define VER_COMPANYNAME_STR \"Co\"\n"
                               "#define VER_FILEDESCRIPTION_STR L\"D\"\n#define EXPORT\n"
                               "#define EXPORT_CONTROLLED\n#define VER_INTERNALNAME_STR \"i\"\n"
                               "#define VER_PRODUCTVERSION_STR L\"5.\" L\"2.3790.\"\n"
                               "#define VER_ANSICP\n#define VS_VERSION_INFO 1\n#include \"") +
                   common_ver + "\"\n");
    ASSERT_EQ(heads(e), Lines{"#16 #1 0030 0409"});
    Lines nodes;
    walk(e[0].data, 0, 0, nodes);
    EXPECT_EQ(get16(e[0].data, 0), e[0].data.size());
    Lines block = {"CompanyName=Co",
                   "FileDescription=D (Export Version)",
                   "FileVersion=5.2.3790.",
                   "InternalName=i",
                   "LegalCopyright=? Microsoft Corporation. All rights reserved.",
                   "OriginalFilename=i",
                   "ProductName=Microsoft? Windows? Operating System",
                   "ProductVersion=5.2.3790."};
    Lines want = {"0 VS_VERSION_INFO", "1 StringFileInfo", "2 040904B0"};
    for (const std::string& b : block) want.push_back("3 " + b);
    want.push_back("2 0c0904E4");
    for (const std::string& b : block) want.push_back("3 " + b);
    want.insert(want.end(), {"1 VarFileInfo", "2 Translation"});
    EXPECT_EQ(nodes, want);
}

} // namespace
