// Calls nested in the arguments of calls: each level's argument is expanded
// where it stands rather than in a copy per level, so that memory grows with
// the depth and not with its square. A depth that once needed gigabytes
// must come out right with what it had before.
#include "cpp/pp_fixture.h"

using namespace tarn_test;

namespace {

std::string nested(const std::string& name, int depth, const std::string& inner) {
    std::string s;
    for (int i = 0; i < depth; ++i) s += name + "(";
    return s + inner + std::string(depth, ')');
}

} // namespace

class Nesting : public PpTest {};

TEST_F(Nesting, ArgumentsUsedOnceOrMore) {
    check({
        {"#define F(x) x\n" + nested("F", 20, "a") + "\n", "a"},
        // The argument as written and expanded, and expanded twice.
        {"#define F(x) x\n#define G(x) x #x\nG(F(F(1)))\n", "1 \"F(F(1))\""},
        {"#define F(x) x\n#define T(x) x x\nT(F(F(2)))\n", "2 2"},
        {"#define F(x) x\n#define P(x) a ## x x\nP(b F(2))\n", "ab 2 b 2"},
        {"#define F(x) [x]\n#define C(a, b) a b\nC(F(F(1)), F((2)))\n", "[[1]] [(2)]"},
    });
}

TEST_F(Nesting, DeepCallsInLinearMemory) {
    // 4,000 levels took 2.6 GB when every level copied its argument.
    EXPECT_EQ(lines(pp("#define F(x) x\n" + nested("F", 4000, "1") + "\n")), "1");
    EXPECT_EQ(messages(), "");
    // Where a limit is reached the message is the same as ever.
    reattach();
    EXPECT_EQ(fatal("#define F(x) x\n" + nested("F", 11000, "1") + "\n"),
              "fatal error: Input buffer overflow.");
}
