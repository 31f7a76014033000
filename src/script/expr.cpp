// Constant expressions over the current token, by precedence climbing.
// "|" and "&" share the lowest level, so 1 | 2 & 4 is (1 | 2) & 4.
#include "script/expr.h"

#include <cstdint>

#include "diag/report.h"
#include "script/lexer.h"

namespace tarn {

namespace {

// Nesting beyond this would only exhaust the stack; no real script comes near.
constexpr int MAX_NESTING = 1000;
int nesting = 0;

// Counts one level of parentheses or unary operators for as long as it lives.
struct NestingLevel {
    NestingLevel() {
        if (++nesting > MAX_NESTING) report(fatal_code(MSG_INTERNAL_ERROR), u"parse_expr");
    }
    ~NestingLevel() { --nesting; }
    NestingLevel(const NestingLevel&) = delete;
    NestingLevel& operator=(const NestingLevel&) = delete;
};

uint32_t parse_unary(bool required);

uint32_t divide(uint32_t left, uint32_t right) {
    if (right == 0) {
        report(warning_code(MSG_DIVISION_BY_ZERO));
        return left;
    }
    int32_t l = int32_t(left), r = int32_t(right);
    if (l == INT32_MIN && r == -1) return left; // the one quotient that overflows
    return uint32_t(l / r);
}

// How tightly a binary operator binds; 0 for a token that is none.
int binding(int32_t kind) {
    switch (kind) {
    case TK_STAR:
    case TK_SLASH:
        return 3;
    case TK_PLUS:
    case TK_MINUS:
        return 2;
    case TK_BAR:
    case TK_AMPERSAND:
        return 1;
    default:
        return 0;
    }
}

uint32_t parse_binary(int least, bool required);

// Operators binding at least `least` after the operand `value`, left to
// right: one look at each token after an operand, whatever the level.
uint32_t climb(uint32_t value, int least, bool required) {
    for (;;) {
        int32_t op = token.kind;
        int level = binding(op);
        if (level == 0 || level < least) return value;
        next_token();
        uint32_t right = parse_binary(level + 1, required);
        switch (op) {
        case TK_STAR:
            value *= right;
            break;
        case TK_SLASH:
            value = divide(value, right);
            break;
        case TK_PLUS:
            value += right;
            break;
        case TK_MINUS:
            value -= right;
            break;
        case TK_BAR:
            value |= right;
            break;
        default:
            value &= right;
            break;
        }
    }
}

uint32_t parse_binary(int least, bool required) {
    return climb(parse_unary(required), least, required);
}

uint32_t parse_unary(bool required) {
    if (token.kind == TK_NUMBER) { // the usual operand, first
        uint32_t value = number_value(token);
        next_token();
        return value;
    }
    NestingLevel level;
    if (accept(TK_MINUS)) return 0u - parse_unary(required);
    if (accept(TK_TILDE)) return ~parse_unary(required);
    if (accept(TK_LPAREN)) {
        uint32_t value = parse_expr(required);
        expect(TK_RPAREN);
        return value;
    }
    if (required) expect(TK_NUMBER);
    return 0;
}

// One term of a style list; NOT clears the number's bits.
uint32_t parse_style_term(uint32_t value) {
    NestingLevel level;
    if (accept(TK_LPAREN)) {
        value = parse_style(value);
        expect(TK_RPAREN);
        return value;
    }
    bool clear = accept(TK_NOT);
    uint32_t number = token.kind == TK_NUMBER ? number_value(token) : 0;
    if (!expect(TK_NUMBER)) return value;
    return clear ? value & ~number : value | number;
}

} // namespace

uint32_t parse_expr(bool required) {
    if (token.kind == TK_NUMBER) { // most operands stand alone
        uint32_t value = number_value(token);
        next_token();
        return binding(token.kind) ? climb(value, 1, required) : value;
    }
    return parse_binary(1, required);
}

int16_t parse_expr16(bool required) {
    int32_t value = int32_t(parse_expr(required));
    if (value < -32768 || value > 65535) report(warning_code(MSG_VALUE_OUT_OF_BOUNDS));
    return int16_t(uint16_t(value));
}

uint32_t parse_style(uint32_t start) {
    int32_t k = token.kind;
    if (k != TK_LPAREN && k != TK_NOT && k != TK_NUMBER) return start;
    uint32_t value = start;
    do {
        if (token.kind == TK_NUMBER && nesting < MAX_NESTING) { // a plain number, the usual term
            value |= number_value(token);
            next_token();
        } else {
            value = parse_style_term(value);
        }
    } while (accept(TK_BAR));
    return value;
}

} // namespace tarn
