// Calls nested in the arguments of calls: each level's argument is expanded
// where it stands rather than in a copy per level, so that memory grows with
// the depth and not with its square. A depth that once needed gigabytes
// must come out right with what it had before. A call whose argument is one
// call, level after level, is taken apart once and finished from the inside
// out, so that time too grows with the depth, and the stack not at all.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

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

TEST_F(Nesting, ChainsOfCallsGiveWhatEachLevelWould) {
    check({
        {"#define F(x) (x)\n#define G(y) [y y]\nF(G(F(G(2))))\nF( F ( F(3) ) )\n",
         "([([2 2]) ([2 2])])\n(((3)))"},
        // An inner result is rescanned with what follows the outer call.
        {"#define F(x) x\n#define G(x) F\nF(G(1))(2)\nF(F(G(1)))(5)\n", "F(2)\nF(5)"},
        {"#define F(x) a ## x x\nF(F(F(b)))\n", "aF(F(b)) aF(b) ab b"},
        {"#define F(x) x ## x\nF(F(1))\n#define H(x) +x\nH(H(H(H(-))))\n", "F(1)F(1)\n+ + + +-",
         "warning: Bad token ()F) produced by ##."},
        {"#define r(x) r(x)+1\nr(r(r(1)))\n#define s(x) t(x)\n#define t(x) s(x)\ns(s(t(3)))\n",
         "r(r(r(1)+1)+1)+1\ns(s(t(3)))"},
        {"#define F(x) L x\n#define W(x) L#x\nF(F(W(abc)))\n#define M(x) x;x\nF(F(M(1)))\n",
         "L L L\"abc\"\nL L 1;1"},
        {"#define F(x) x\n#define E\nF(F(E))\nF(F(F( E )))x\n  F( F(F(  1  ) ) )   "
         "F(F(2))F(F(3))\n",
         "x\n 1 2 3"},
        {"#define F(x) x\nF(F(F(__LINE__)))\nF(\nF(\n F(3)\n)\n)\n#if "
         "F(F(defined(F)))\nyes\n#endif\n",
         "2\n3\nyes"},
        // Levels that are no such call: a wrong count, a # in the body.
        {"#define F() x\n#define G(x) x\nG(G(F()))\nG(G(F(1)))\n#define H(a,b) a b\nG(G(H(1)))\n",
         "x\nF(1)\nH(1)",
         "error: Disagreement in number of macro arguments.\n"
         "error: Disagreement in number of macro arguments."},
        {"#define F(x) #x x\nF(F(1))\n", "\"F(1)\" \"1\" 1"},
    });
}

TEST_F(Nesting, DeepChainsInLinearTime) {
    // Without the line limit: two chains of 100,000 levels, which took far
    // too long and ran out of stack when every level recursed and copied
    // what it held.
    reattach();
    diags.clear();
    set_extended_mode();
    EXPECT_EQ(
        lines(pp("#define F(x) x\n#define G(y) (y)\n" + nested("F", 100000, nested("G", 3, "1")) +
                 " " + nested("F", 100000, "2") + "\n")),
        "(((1))) 2");
    EXPECT_EQ(messages(), "");
}

TEST_F(Nesting, OpenCommentInAChain) {
    // A macro that opens a comment cuts the line of the level it stands in.
    reattach();
    define_symbol_w(u"CMT=/*");
    EXPECT_EQ(lines(pp("#define F(x) x\n#define G(x) [x]\n"
                       "a F(G(F(CMT))) b\nc F(F(x CMT)) d\ne\n")),
              "a [] b\nc x d\ne");
    EXPECT_EQ(messages(), "");
}
