// ACCELERATORS: every event form, the options, the last-entry bit, the
// attributes, and the three errors of the statement.
#include "resources/kinds_support.h"

using namespace kinds_test;

namespace {

class Accelerators : public tarn_test::FreshLibrary {};

Bytes accel(uint16_t flags, uint16_t key, uint16_t id) {
    return Bytes().u16(flags).u16(key).u16(id).u16(0);
}

TEST_F(Accelerators, EveryEventFormAndOption) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("1 ACCELERATORS\n"
                      "BEGIN\n"
                      "  \"^c\", 10\n"
                      "  \"a\", 11, VIRTKEY\n"
                      "  \"ab\", 12\n"
                      "  0x41, 13, ASCII\n"
                      "  65, 14, VIRTKEY, SHIFT, CONTROL, ALT, NOINVERT\n"
                      "  \"b\", 15, SHIFT, CONTROL, ALT,\n"
                      "END\n",
                      &res),
              1);
    EXPECT_TRUE(diags.empty());
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ord(9));
    EXPECT_EQ(r[0].name, ord(1));
    EXPECT_EQ(r[0].flags, 0x0030);
    EXPECT_EQ(r[0].language, 0x0409);
    Bytes want;
    want.raw(accel(0x00, 3, 10).v);      // "^c": control character, case folded
    want.raw(accel(0x01, 0x61, 11).v);   // no upper-casing under VIRTKEY
    want.raw(accel(0x00, 0x6162, 12).v); // two characters packed in one key
    want.raw(accel(0x00, 0x41, 13).v);
    want.raw(accel(0x1F, 65, 14).v);
    want.raw(accel(0x9C, 'b', 15).v); // last entry; the trailing comma is taken
    EXPECT_EQ(r[0].data, want.v);
}

TEST_F(Accelerators, AttributesAndName) {
    std::vector<uint8_t> res;
    ASSERT_EQ(compile("Keys ACCELERATORS PRELOAD LANGUAGE 7, 1 VERSION 3 CHARACTERISTICS 4\n"
                      "{ \"x\", 1 }\n",
                      &res),
              1);
    auto r = read_res(res);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].name, name("KEYS"));
    EXPECT_EQ(r[0].flags, 0x0070);
    EXPECT_EQ(r[0].language, 0x0407);
    EXPECT_EQ(r[0].version, 3u);
    EXPECT_EQ(r[0].characteristics, 4u);
    EXPECT_EQ(r[0].data, accel(0x80, 'x', 1).v); // a table of one entry is its own last
    ASSERT_FALSE(info.empty());
    EXPECT_NE(info.back().find("Writing ACCELERATORS, id = KEYS, language = 0x407, offset = 0x20"),
              std::string::npos);
}

TEST_F(Accelerators, BadKeysAreCountedAndTheTableIsStillChecked) {
    EXPECT_EQ(compile("1 ACCELERATORS\n"
                      "BEGIN\n"
                      "  \"^1\", 1\n"
                      "  \"^AB\", 2\n"
                      "  \"^\", 3\n"
                      "  \"\", 4\n"
                      "  \"abc\", 5\n"
                      "  0x41, 6\n"
                      "  0x42, 7, SHIFT\n"
                      "END\n"),
              0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid control character, use ^A - ^Z."), 3);
    EXPECT_EQ(count(diags, SEV_ERROR, "Invalid accelerator key."), 2);
    EXPECT_EQ(count(diags, SEV_ERROR, "Type needed; use VIRTKEY or ASCII."), 2);
    EXPECT_EQ(diags.size(), 7u);
}

TEST_F(Accelerators, MissingPiecesGoThroughExpect) {
    EXPECT_EQ(compile("1 ACCELERATORS BEGIN \"a\" 1 END\n"), 0);
    EXPECT_EQ(count(diags, SEV_ERROR, "Comma expected (found: 1)."), 1);
}

} // namespace
