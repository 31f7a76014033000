// #if evaluation: the three value types, operators and their priorities,
// the values of numbers and character constants, and every message.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

class IfExpr : public PpTest {
  protected:
    // Whether `#if expr` takes its group; each in a library of its own,
    // with the given definitions from outside.
    bool holds(const std::string& expr, const std::vector<std::u16string>& defines = {}) {
        if (ran_) reload();
        ran_ = true;
        for (const std::u16string& d : defines) define_symbol_w(d.c_str());
        std::string b = body(pp("#if " + expr + "\nyes\n#else\nno\n#endif\n"));
        return b.find("yes") != std::string::npos;
    }
    bool ran_ = false;
};

TEST_F(IfExpr, SignedAndUnsigned) {
    EXPECT_TRUE(holds("0x80000000 > 0"));  // unsigned: not decimal
    EXPECT_FALSE(holds("2147483648 > 0")); // decimal stays signed and wraps
    EXPECT_FALSE(holds("-1 < 0u"));        // unsigned comparison
    EXPECT_TRUE(holds("-1 > 0UL"));
    EXPECT_TRUE(holds("0xFFFFFFFF == -1"));
    EXPECT_TRUE(holds("-8 >> 1 == -4")); // arithmetic shift
    EXPECT_TRUE(holds("0x80000000 >> 31 == 1"));
    EXPECT_TRUE(holds("1 << 33 == 2")); // shift count modulo 32
    EXPECT_TRUE(holds("-7 / 2 == -3 && -7 % 2 == -1"));
    EXPECT_TRUE(holds("0xFFFFFFF9 / 2 == 0x7FFFFFFC"));
    EXPECT_TRUE(diags.empty());
}

TEST_F(IfExpr, OperatorsAndPriorities) {
    EXPECT_TRUE(holds("1 + 2 * 3 == 7 && (1 + 2) * 3 == 9"));
    EXPECT_TRUE(holds("1 || 0 && 0"));
    EXPECT_TRUE(holds("(6 & 3) == 2 && (6 | 3) == 7 && (6 ^ 3) == 5"));
    EXPECT_TRUE(holds("!0 == 1 && ~0 == -1 && - -1 == 1 && +3 == 3"));
    EXPECT_TRUE(holds("1 < 2 && 2 <= 2 && 3 > 2 && 2 >= 2 && 1 != 2"));
    EXPECT_TRUE(holds("(1 ? 2 : 3) == 2 && (0 ? 2 : 3) == 3"));
    EXPECT_TRUE(holds("(0 ? 1 : 0 ? 2 : 3) == 3"));
    EXPECT_TRUE(diags.empty());
}

TEST_F(IfExpr, UndefinedValues) {
    EXPECT_TRUE(holds("1/0")); // the left operand's number stands
    EXPECT_EQ(count("error: Undefined expression value."), 1u);
    EXPECT_FALSE(holds("0/0"));
    EXPECT_EQ(count("error: Undefined expression value."), 1u);
    EXPECT_FALSE(holds("0 && (1/0)")); // no message: the left side decides
    EXPECT_TRUE(holds("1 || 5 % 0"));
    EXPECT_TRUE(diags.empty());
    EXPECT_FALSE(holds("(-2147483647 - 1) / -1 == 0")); // must not trap
}

TEST_F(IfExpr, Defined) {
    EXPECT_TRUE(holds("defined X || defined(Y)", {u"X"}));
    EXPECT_TRUE(holds("defined(__LINE__) && !defined Y"));
    EXPECT_TRUE(diags.empty());
    EXPECT_FALSE(holds("defined"));
    EXPECT_EQ(count("error: Incorrect syntax for 'defined'."), 1u);
}

TEST_F(IfExpr, NamesFromOutside) {
    EXPECT_TRUE(holds("Y == 2 && UNKNOWN == 0", {u"Y=2"}));
    EXPECT_FALSE(holds("X", {u"X"})); // an empty expansion: no operand
    EXPECT_EQ(count("error: Syntax error in #ifdef/#ifndef."), 1u);
}

TEST_F(IfExpr, Numbers) {
    EXPECT_TRUE(holds("010 == 8 && 0x1F == 31 && 0X1f == 31 && 10uLLu == 10"));
    EXPECT_TRUE(diags.empty());
    EXPECT_TRUE(holds("1e5 == 245")); // e is a digit, out of range in base 10
    EXPECT_EQ(texts(), std::vector<std::string>{"warning: Bad digit in number: '1e5'.\r\n"});
    EXPECT_TRUE(holds("1.5 == 1"));
    EXPECT_EQ(texts(), std::vector<std::string>{"error: Bad number (1.5) in #if/#elif.\r\n"});
}

TEST_F(IfExpr, CharacterConstants) {
    EXPECT_TRUE(holds("'a' == 97 && '\\n' == 10 && '\\'' == 39 && '\\\\' == 92 && '\\101' == 65"));
    EXPECT_TRUE(holds("'\\x41' == 65 && '\\?' == 63 && '\\v' == 11"));
    EXPECT_TRUE(diags.empty());
    EXPECT_TRUE(holds("'\\xff' == 255"));
    ASSERT_EQ(diags.size(), 1u); // "taken as not signed", whose code has no text
    EXPECT_NE(diags[0].text.find("A000403C"), std::string::npos);
    EXPECT_EQ(diags[0].severity, 0);
    EXPECT_TRUE(holds("'\xE9' == 233")); // é in the code page
    EXPECT_EQ(diags.size(), 1u);
}

TEST_F(IfExpr, CharacterConstantMessages) {
    EXPECT_TRUE(holds("'ab' == 97"));
    EXPECT_EQ(texts(),
              std::vector<std::string>{"warning: Multibyte character constant undefined.\r\n"});
    EXPECT_TRUE(holds("L'a' == 97"));
    EXPECT_EQ(texts(),
              std::vector<std::string>{"warning: Wide char constant value undefined.\r\n"});
    EXPECT_TRUE(holds("'\\q' == 0"));
    EXPECT_EQ(texts(),
              std::vector<std::string>{"warning: Undefined escape in character constant.\r\n"});
    EXPECT_TRUE(holds("'' == 0"));
    EXPECT_EQ(texts(), std::vector<std::string>{"error: Empty character constant.\r\n"});
}

TEST_F(IfExpr, SyntaxMessages) {
    struct Case {
        const char* expr;
        const char* message;
    } cases[] = {
        {"(1", "warning: Syntax error in #ifdef/#ifndef.\r\n"},
        {"1 2", "error: Syntax error in #ifdef/#ifndef.\r\n"},
        {"1 +", "error: Syntax error in #ifdef/#ifndef.\r\n"},
        {"1)", "error: Syntax error in #ifdef/#ifndef.\r\n"},
        {"1 (2)", "error: Syntax error in #ifdef/#ifndef.\r\n"},
        {"1 : 2", "error: Bad ?: in #if/endif.\r\n"},
        {"1 ? 2", "error: Eval botch (unknown operator).\r\n"},
        {"*1", "error: Illegal operator (* or &) in #if/#elif.\r\n"},
        {"1 , 2", "error: Bad operator (,) in #if/#elif.\r\n"},
        {"a = 1", "error: Bad operator (=) in #if/#elif.\r\n"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(holds(c.expr)) << c.expr;
        EXPECT_EQ(texts(), std::vector<std::string>{c.message}) << c.expr;
    }
}

TEST_F(IfExpr, StringIsAnErrorAndCountsZero) {
    EXPECT_TRUE(holds("\"s\" == 0"));
    EXPECT_EQ(texts(), std::vector<std::string>{"error: String in #if/#elif.\r\n"});
}

TEST_F(IfExpr, ElifIsEvaluatedLikeIf) {
    std::string out = body(pp("#define A 2\n#if A == 1\none\n#elif A == 2\ntwo\n#endif\n"));
    EXPECT_EQ(out, "\n\n\n\ntwo\n\n");
}
