// Constant expressions, their 16-bit form and style lists.
#include "harness/harness.h"

#include <string>

#include "diag/report.h"
#include "script/expr.h"
#include "script/lexer.h"

using namespace tarn;
using namespace tarn_test;

namespace {

std::u16string expr_text;
size_t expr_pos = 0;

size_t feed(char16_t* dest, size_t max) {
    size_t n = std::min(max, expr_text.size() - expr_pos);
    expr_text.copy(dest, n, expr_pos);
    expr_pos += n;
    return n;
}

class ScriptExpr : public FreshLibrary {
  protected:
    void start(const std::string& text) {
        expr_text = u16(text);
        expr_pos = 0;
        script_set_source(feed);
        next_token();
    }
    // The whole text as one required expression.
    uint32_t eval(const std::string& text) {
        start(text);
        uint32_t v = parse_expr(true);
        EXPECT_EQ(token.kind, TK_EOF) << text;
        return v;
    }
    std::vector<std::string> messages() {
        std::vector<std::string> out;
        for (const Diagnostic& d : diags) out.push_back(d.text.substr(0, d.text.find('\r')));
        return out;
    }
};

TEST_F(ScriptExpr, PrecedenceAndAssociativity) {
    EXPECT_EQ(eval("10 - 2 - 3"), 5u);
    EXPECT_EQ(eval("2 + 3 * 4"), 14u);
    EXPECT_EQ(eval("(2 + 3) * 4"), 20u);
    EXPECT_EQ(eval("24 / 4 / 2"), 3u);
    EXPECT_EQ(eval("1 | 2 & 4"), 0u); // one level: (1 | 2) & 4
    EXPECT_EQ(eval("6 & 3 | 8"), 10u);
    EXPECT_EQ(eval("1 + 2 | 4 * 2"), 11u);
    EXPECT_EQ(eval("- - 3"), 3u);
    EXPECT_EQ(eval("-2 * 3"), uint32_t(-6));
    EXPECT_EQ(eval("~0"), 0xFFFFFFFFu);
    EXPECT_EQ(eval("~1 & 7"), 6u);
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptExpr, ArithmeticWrapsAndDividesSigned) {
    EXPECT_EQ(eval("0xFFFFFFFF + 2"), 1u);
    EXPECT_EQ(eval("0 - 1"), 0xFFFFFFFFu);
    EXPECT_EQ(eval("0x10000 * 0x10000"), 0u);
    EXPECT_EQ(eval("-7 / 2"), uint32_t(-3));
    EXPECT_EQ(eval("0xFFFFFFFF / 2"), 0u); // -1 / 2
    EXPECT_EQ(eval("-2147483648 / -1"), 0x80000000u);
    EXPECT_EQ(eval("0x80000000 / 0xFFFFFFFF"), 0x80000000u);
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptExpr, DivisionByZeroKeepsTheLeftOperand) {
    EXPECT_EQ(eval("7 / 0"), 7u);
    EXPECT_EQ(eval("7 / (1 - 1) + 1"), 8u);
    EXPECT_EQ(messages(), (std::vector<std::string>{"warning: Division by zero.",
                                                    "warning: Division by zero."}));
    EXPECT_EQ(diags[0].severity, 0);
}

TEST_F(ScriptExpr, MissingOperands) {
    start(", 5");
    EXPECT_EQ(parse_expr(false), 0u); // optional: silent, nothing consumed
    EXPECT_EQ(token.kind, TK_COMMA);
    EXPECT_TRUE(diags.empty());

    EXPECT_EQ(parse_expr(true), 0u);
    EXPECT_EQ(token.kind, TK_NUMBER); // the comma was skipped
    start("abc 1");
    EXPECT_EQ(parse_expr(true), 0u);
    start("3 + )");
    EXPECT_EQ(parse_expr(true), 3u);
    start("(1 + 2 x");
    EXPECT_EQ(parse_expr(true), 3u);
    EXPECT_EQ(messages(), (std::vector<std::string>{"error: Number expected (found: ,).",
                                                    "error: Unknown keyword: 'abc'.",
                                                    "error: Number expected (found: )).",
                                                    "error: Invalid syntax."}));
}

TEST_F(ScriptExpr, NamesAndNotAreNoValues) {
    start("NOT 1");
    EXPECT_EQ(parse_expr(false), 0u);
    EXPECT_EQ(token.kind, TK_NOT);
}

TEST_F(ScriptExpr, SixteenBitRange) {
    struct Case {
        const char* text;
        uint16_t value;
        bool warns;
    };
    const Case cases[] = {
        {"-1", 0xFFFF, false},     {"65535", 0xFFFF, false}, {"65536", 0, true},
        {"-32768", 0x8000, false}, {"-32769", 0x7FFF, true}, {"0x12345", 0x2345, true},
    };
    for (const Case& c : cases) {
        diags.clear();
        start(c.text);
        EXPECT_EQ(uint16_t(parse_expr16(true)), c.value) << c.text;
        EXPECT_EQ(diags.size(), c.warns ? 1u : 0u) << c.text;
        if (c.warns) {
            EXPECT_EQ(messages()[0], "warning: Numeric value outside bounds.");
        }
    }
}

TEST_F(ScriptExpr, StyleLists) {
    start("NOT 1 | 4");
    EXPECT_EQ(parse_style(3), 6u);
    start("1 | (2 | NOT 1) | 8 x");
    EXPECT_EQ(parse_style(0x10), 0x1Au);
    EXPECT_EQ(token.kind, TK_NAME);
    start("1 + 2");
    EXPECT_EQ(parse_style(0), 1u); // "+" ends the list
    EXPECT_EQ(token.kind, TK_PLUS);
    start("x | 1");
    EXPECT_EQ(parse_style(5), 5u); // no list here: nothing consumed
    EXPECT_EQ(token.kind, TK_NAME);
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptExpr, StyleListErrors) {
    start("1 | NOT x 2");
    EXPECT_EQ(parse_style(0), 1u);
    EXPECT_EQ(token.kind, TK_NUMBER); // the name was skipped
    start("(1 | 2 4");
    EXPECT_EQ(parse_style(0), 3u);
    EXPECT_EQ(token.kind, TK_EOF);
    EXPECT_EQ(messages(),
              (std::vector<std::string>{"error: Unknown keyword: 'x'.", "error: Invalid syntax."}));
}

TEST_F(ScriptExpr, DeepNestingEndsTheRunInsteadOfTheStack) {
    start(std::string(900, '(') + "1" + std::string(900, ')'));
    EXPECT_EQ(parse_expr(true), 1u);
    start(std::string(100000, '-') + "1");
    EXPECT_THROW(parse_expr(true), FatalUnwind);
    start(std::string(100000, '(') + "1");
    EXPECT_THROW(parse_style(0), FatalUnwind);
    EXPECT_EQ(messages(), (std::vector<std::string>{"fatal error: Internal error (parse_expr).",
                                                    "fatal error: Internal error (parse_expr)."}));
    start("-(2)");
    EXPECT_EQ(parse_expr(true), uint32_t(-2)); // the levels were given back
}

} // namespace
