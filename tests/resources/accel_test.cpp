// ACCELERATORS: every event form, the options, the last-entry bit, and the
// errors of the statement.
#include "resources/res_reader.h"

using namespace res_test;

namespace {

using Accelerators = ResTest;

TEST_F(Accelerators, EveryEventFormAndOption) {
    const struct {
        const char* line;
        uint16_t flags, key;
    } rows[] = {
        {"\"^c\", 10", 0x00, 3},            // control character, case folded
        {"\"a\", 11, VIRTKEY", 0x01, 0x61}, // no upper-casing under VIRTKEY
        {"\"ab\", 12", 0x00, 0x6162},       // two characters packed in one key
        {"0x41, 13, ASCII", 0x00, 0x41},
        {"65, 14, VIRTKEY, SHIFT, CONTROL, ALT, NOINVERT", 0x1F, 65},
        {"\"b\", 15, SHIFT, CONTROL, ALT,", 0x9C, 'b'}, // last; the trailing comma is taken
    };
    std::string script = "1 ACCELERATORS\nBEGIN\n";
    Bytes want;
    for (const auto& row : rows) {
        script += std::string(row.line) + "\n";
        want.u16(row.flags, row.key, 10 + (&row - rows), 0);
    }
    auto e = compile_ok(script + "END\nKeys ACCELERATORS LANGUAGE 7, 1 { \"x\", 1 }\n");
    ASSERT_EQ(heads(e), (Lines{"#9 #1 0030 0409", "#9 KEYS 0030 0407"}));
    EXPECT_EQ(e[0].data, want);
    EXPECT_EQ(e[1].data, Bytes().u16(0x80, 'x', 1, 0)); // one entry is its own last
}

TEST_F(Accelerators, Failures) {
    expect_failures({
        {"1 ACCELERATORS\nBEGIN\n\"^1\", 1\n\"^AB\", 2\n\"^\", 3\n\"\", 4\n\"abc\", 5\n"
         "0x41, 6\n0x42, 7, SHIFT\nEND\n",
         {"3: error: Invalid control character, use ^A - ^Z.",
          "4: error: Invalid control character, use ^A - ^Z.",
          "5: error: Invalid control character, use ^A - ^Z.", "6: error: Invalid accelerator key.",
          "7: error: Invalid accelerator key.", "9: error: Type needed; use VIRTKEY or ASCII.",
          "10: error: Type needed; use VIRTKEY or ASCII."}},
        {"1 ACCELERATORS BEGIN \"a\" 1 END\n",
         {"1: error: Comma expected (found: 1).", "1: error: Number expected (found: end)."}},
    });
}

TEST_F(Accelerators, ExtendedDialectTakesWideKeys) {
    expect_dialects({
        {"1 ACCELERATORS BEGIN L\"^b\", 1\nL\"\\x263a\", 2 END\n",
         fails({"1: error: Number expected (found: L\"STRING\").",
                "2: error: Type needed; use VIRTKEY or ASCII.",
                "2: error: Number expected (found: L\"STRING\").",
                "2: error: Type needed; use VIRTKEY or ASCII."}),
         gives({Bytes().u16(0, 2, 1, 0, 0x80, 0x263A, 2, 0)})},
    });
}

} // namespace
