// Constant expressions, their 16-bit form and style lists.
#include "script/script_fixture.h"

#include "diag/report.h"
#include "script/expr.h"
#include "script/lexer.h"

using namespace tarn;
using namespace tarn_test;

namespace {

class ScriptExpr : public ScriptTest {};

// Priorities ("|" and "&" share the lowest), wrapping arithmetic and signed
// division; division by zero keeps the left operand, and a missing operand
// skips the offending token.
TEST_F(ScriptExpr, Values) {
    struct Case {
        const char* text;
        uint32_t value;
        const char* left = "@EOF";
    } cases[] = {
        {"10 - 2 - 3", 5},
        {"2 + 3 * 4", 14},
        {"(2 + 3) * 4", 20},
        {"1 | 2 & 4", 0},
        {"1 + 2 | 4 * 2", 11},
        {"8 - 4 / 2 * 3 + 1", 3},
        {"6 & 3 | 8", 10},
        {"-2 * 3", uint32_t(-6)},
        {"~1 & 7", 6},
        {"0xFFFFFFFF + 2", 1},
        {"0x10000 * 0x10000", 0},
        {"-7 / 2", uint32_t(-3)},
        {"0xFFFFFFFF / 2", 0}, // -1 / 2
        {"-2147483648 / -1", 0x80000000},
        {"0x80000000 / 0xFFFFFFFF", 0x80000000},
        {"7 / 0", 7, "warning: Division by zero. @EOF"},
        {"7 / (1 - 1) + 1", 8, "warning: Division by zero. @EOF"},
        {", 5", 0, "error: Number expected (found: ,). @5"},
        {"abc 1", 0, "error: Unknown keyword: 'abc'. @1"},
        {"3 + )", 3, "error: Number expected (found: )). @EOF"},
        {"(1 + 2 x", 3, "error: Invalid syntax. @EOF"},
    };
    for (const Case& c : cases) {
        diags.clear();
        start(c.text);
        EXPECT_EQ(parse_expr(true), c.value) << c.text;
        EXPECT_EQ(left(), c.left) << c.text;
    }
}

TEST_F(ScriptExpr, OptionalExpressionConsumesNothingWithoutAValue) {
    for (const char* text : {", 5", "NOT 1", "x"}) {
        start(text);
        std::string before = left();
        EXPECT_EQ(parse_expr(false), 0u);
        EXPECT_EQ(left(), before);
    }
}

TEST_F(ScriptExpr, SixteenBitRange) {
    struct Case {
        const char* text;
        uint16_t value;
        bool warns;
    } cases[] = {{"-1", 0xFFFF, false},     {"65535", 0xFFFF, false}, {"65536", 0, true},
                 {"-32768", 0x8000, false}, {"-32769", 0x7FFF, true}, {"0x12345", 0x2345, true}};
    for (const Case& c : cases) {
        diags.clear();
        start(c.text);
        EXPECT_EQ(uint16_t(parse_expr16(true)), c.value) << c.text;
        EXPECT_EQ(messages(), c.warns ? "warning: Numeric value outside bounds." : "") << c.text;
    }
}

// "+" ends a style list; a list that starts with no number consumes nothing.
TEST_F(ScriptExpr, StyleLists) {
    struct Case {
        const char* text;
        uint32_t start, value;
        const char* left;
    } cases[] = {{"NOT 1 | 4", 3, 6, "@EOF"},
                 {"1 | (2 | NOT 1) | 8 x", 0x10, 0x1A, "@x"},
                 {"1 + 2", 0, 1, "@+"},
                 {"x | 1", 5, 5, "@x"},
                 {"1 | NOT x 2", 0, 1, "error: Unknown keyword: 'x'. @2"},
                 {"(1 | 2 4", 0, 3, "error: Invalid syntax. @EOF"}};
    for (const Case& c : cases) {
        diags.clear();
        start(c.text);
        EXPECT_EQ(parse_style(c.start), c.value) << c.text;
        EXPECT_EQ(left(), c.left) << c.text;
    }
}

TEST_F(ScriptExpr, DeepNestingEndsTheRunInsteadOfTheStack) {
    start(std::string(900, '(') + "1" + std::string(900, ')'));
    EXPECT_EQ(parse_expr(true), 1u);
    start(std::string(100000, '-') + "1");
    EXPECT_THROW(parse_expr(true), FatalUnwind);
    start(std::string(100000, '(') + "1");
    EXPECT_THROW(parse_style(0), FatalUnwind);
    EXPECT_EQ(messages(), "fatal error: Internal error (parse_expr).\n"
                          "fatal error: Internal error (parse_expr).");
    start("-(2)");
    EXPECT_EQ(parse_expr(true), uint32_t(-2)); // the levels were given back
}

} // namespace
