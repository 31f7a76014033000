// DLGINCLUDE: the header's name as a narrow string with fixed attributes.
#include "resources/kinds_support.h"

using namespace kinds_test;

namespace {

class DlgInclude : public tarn_test::FreshLibrary {};

TEST_F(DlgInclude, NameAsNarrowString) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("LANGUAGE 7, 1\n1 DLGINCLUDE \"res.h\"\nx DLGINCLUDE \"a\"\n", &res), 1);
    EXPECT_TRUE(diags.empty());
    Bytes want;
    want.raw(leading_entry()).raw(header(6, 17, 1, 0x1030, 0x0407).v).text("res.h").u8(0).pad4();
    want.u32(2).u32(32).ord(17).str("X").u32(0).u16(0x1030).u16(0x0407).u32(0).u32(0);
    want.text("a").u8(0).pad4();
    EXPECT_EQ(res, want.v);
    EXPECT_EQ(info.size(), 1u); // "Using codepage" only: no verbose line of its own
}

TEST_F(DlgInclude, UnquotedNameIsAnError) {
    std::vector<uint8_t> res;
    EXPECT_EQ(compile("1 DLGINCLUDE res.h\n", &res), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "String literal expected (found: res.h)."), 1);
    EXPECT_TRUE(res.empty());
}

} // namespace
