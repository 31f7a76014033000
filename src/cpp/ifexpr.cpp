// #if and #elif: the line is expanded with `defined` switched on, then
// evaluated by operator precedence over an operator stack and a value stack.
// Values are 32-bit with a type (signed, unsigned or undefined) that decides
// comparisons, shifts and division. #ifdef and #ifndef are answered here too.
#include "cpp/state.h"

#include <vector>

#include "diag/report.h"

namespace tarn {

namespace {

enum ValueType : int32_t { SIGNED = 0, UNSIGNED = 1, UNDEFINED = 2 };

struct Value {
    uint32_t v = 0;
    int32_t type = SIGNED;
};

enum Rule : uint8_t { R_NONE, R_UNARY, R_ARITH, R_SHIFT, R_RELAT, R_LOGIC, R_COND };

struct OpInfo {
    uint8_t priority;
    uint8_t arity;
    Rule rule;
};

// Indexed by token kind; kinds not listed have priority 0 and no rule.
struct OpTable {
    OpInfo op[64] = {};
    constexpr OpTable() {
        for (int k : {int(K_TILDE), int(K_NOT), int(PP_DEFINED), int(PP_NEGATE)})
            op[k] = {16, 1, R_UNARY};
        for (int k : {int(K_STAR), int(K_SLASH), int(K_PCT)}) op[k] = {15, 2, R_ARITH};
        for (int k : {int(K_PLUS), int(K_MINUS)}) op[k] = {14, 2, R_ARITH};
        for (int k : {int(K_LSH), int(K_RSH)}) op[k] = {13, 2, R_SHIFT};
        for (int k : {int(K_LEQ), int(K_GEQ), int(K_LT), int(K_GT)}) op[k] = {12, 2, R_RELAT};
        for (int k : {int(K_EQ), int(K_NEQ)}) op[k] = {11, 2, R_RELAT};
        op[K_AND] = {10, 2, R_ARITH};
        op[K_CIRC] = {9, 2, R_ARITH};
        op[K_OR] = {8, 2, R_ARITH};
        op[K_LAND] = {7, 2, R_LOGIC};
        op[K_LOR] = {6, 2, R_LOGIC};
        op[K_QUEST] = {5, 2, R_COND};
        op[K_COLON] = {5, 2, R_COND};
        op[K_COMMA] = {4, 2, R_NONE};
        op[K_LP] = {3, 0, R_NONE};
        op[K_RP] = {3, 0, R_NONE};
    }
};
constexpr OpTable OPS;

const OpInfo& info(int kind) {
    return OPS.op[kind & 63];
}

// One evaluation: the two stacks and whether it failed (with a message).
struct Eval {
    std::vector<int> ops{PP_END}; // the bottom sentinel
    std::vector<Value> vals;
    bool failed = false;

    bool fail(DiagnosticCode code) {
        report_pp(code);
        failed = true;
        return false;
    }
    bool syntax() { return fail(error_code(MSG_IFDEF_SYNTAX)); }
};

int32_t as_signed(uint32_t v) {
    return static_cast<int32_t>(v);
}

int32_t arith_type(const Value& a, const Value& b) {
    if (a.type == UNDEFINED || b.type == UNDEFINED) return UNDEFINED;
    return (a.type == UNSIGNED || b.type == UNSIGNED) ? UNSIGNED : SIGNED;
}

Value relational(int op, const Value& a, const Value& b) {
    bool uns = a.type == UNSIGNED || b.type == UNSIGNED;
    auto less = [&](uint32_t x, uint32_t y) { return uns ? x < y : as_signed(x) < as_signed(y); };
    bool r = false;
    switch (op) {
    case K_EQ:
        r = a.v == b.v;
        break;
    case K_NEQ:
        r = a.v != b.v;
        break;
    case K_LT:
        r = less(a.v, b.v);
        break;
    case K_GT:
        r = less(b.v, a.v);
        break;
    case K_LEQ:
        r = !less(b.v, a.v);
        break;
    case K_GEQ:
        r = !less(a.v, b.v);
        break;
    }
    bool undefined = a.type == UNDEFINED || b.type == UNDEFINED;
    return {r ? 1u : 0u, undefined ? UNDEFINED : SIGNED};
}

Value shift(int op, const Value& a, const Value& b) {
    int32_t type = (a.type == UNDEFINED || b.type == UNDEFINED) ? UNDEFINED : a.type;
    uint32_t n = b.v % 32;
    if (op == K_LSH) return {a.v << n, type};
    if (a.type == UNSIGNED) return {a.v >> n, type};
    return {static_cast<uint32_t>(as_signed(a.v) >> n), type};
}

Value logical(int op, const Value& a, const Value& b) {
    if (a.type == UNDEFINED) return {0, UNDEFINED};
    if (op == K_LAND ? a.v == 0 : a.v != 0) return {op == K_LAND ? 0u : 1u, SIGNED};
    if (b.type == UNDEFINED) return {0, UNDEFINED};
    return {b.v != 0 ? 1u : 0u, SIGNED};
}

Value arithmetic(int op, const Value& a, const Value& b) {
    int32_t type = arith_type(a, b);
    switch (op) {
    case K_STAR:
        return {a.v * b.v, type};
    case K_PLUS:
        return {a.v + b.v, type};
    case K_MINUS:
        return {a.v - b.v, type};
    case K_AND:
        return {a.v & b.v, type};
    case K_CIRC:
        return {a.v ^ b.v, type};
    case K_OR:
        return {a.v | b.v, type};
    }
    if (b.v == 0) return {a.v, UNDEFINED}; // the left number stands
    if (type == UNSIGNED) return {op == K_SLASH ? a.v / b.v : a.v % b.v, type};
    int32_t x = as_signed(a.v), y = as_signed(b.v);
    if (x == INT32_MIN && y == -1) return {op == K_SLASH ? a.v : 0u, type};
    return {static_cast<uint32_t>(op == K_SLASH ? x / y : x % y), type};
}

Value unary(int op, const Value& a) {
    switch (op) {
    case PP_NEGATE:
        return {0u - a.v, a.type};
    case K_TILDE:
        return {~a.v, a.type};
    case K_NOT:
        return {a.v == 0 ? 1u : 0u, a.type == UNDEFINED ? UNDEFINED : SIGNED};
    default:
        return a; // defined: the operand itself
    }
}

Value pop_value(Eval& e) {
    Value v = e.vals.back();
    e.vals.pop_back();
    return v;
}

// Reduces while the operator on top binds tighter than priority p.
bool reduce(Eval& e, int p) {
    while (info(e.ops.back()).priority > p) {
        int op = e.ops.back();
        e.ops.pop_back();
        const OpInfo& oi = info(op);
        if (op == K_LP) return e.fail(warning_code(MSG_IFDEF_SYNTAX)); // unclosed "("
        if (e.vals.size() < oi.arity) return e.fail(error_code(MSG_IF_BOTCH));
        Value b = oi.arity == 2 ? pop_value(e) : Value{};
        Value a = oi.arity >= 1 ? pop_value(e) : Value{};
        switch (oi.rule) {
        case R_UNARY:
            e.vals.push_back(unary(op, a));
            break;
        case R_ARITH:
            e.vals.push_back(arithmetic(op, a, b));
            break;
        case R_SHIFT:
            e.vals.push_back(shift(op, a, b));
            break;
        case R_RELAT:
            e.vals.push_back(relational(op, a, b));
            break;
        case R_LOGIC:
            e.vals.push_back(logical(op, a, b));
            break;
        case R_COND:
            if (op == K_COLON) {
                if (e.ops.back() != K_QUEST || e.vals.empty())
                    return e.fail(error_code(MSG_BAD_CONDITIONAL));
                e.ops.pop_back();
                Value cond = pop_value(e);
                e.vals.push_back(cond.v ? a : b);
                break;
            }
            [[fallthrough]];
        default:
            return e.fail(error_code(MSG_EVAL_BOTCH));
        }
    }
    return true;
}

// ---- Values of tokens

int digit_value(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

Value number_value(const PpToken* tp) {
    const char16_t* p = tp->text;
    const char16_t* end = p + tp->len;
    uint32_t base = 10;
    if (end - p >= 2 && p[0] == u'0' && (p[1] == u'x' || p[1] == u'X')) {
        base = 16;
        p += 2;
    } else if (p < end && p[0] == u'0') {
        base = 8;
        p += 1;
    }
    Value v;
    for (int d; p < end && (d = digit_value(*p)) >= 0; ++p) {
        if (static_cast<uint32_t>(d) >= base) report_pp(warning_code(MSG_BAD_DIGIT), tp);
        v.v = v.v * base + static_cast<uint32_t>(d); // added all the same
    }
    if (v.v >= 0x80000000u && base != 10) v.type = UNSIGNED;
    for (; p < end; ++p) {
        if (*p == u'u' || *p == u'U')
            v.type = UNSIGNED;
        else if (*p != u'l' && *p != u'L') {
            report_pp(error_code(MSG_BAD_NUMBER), tp);
            break;
        }
    }
    return v;
}

// One character of a constant after its quote; p is left after it.
uint32_t char_unit(const char16_t*& p, const char16_t* end) {
    static constexpr char16_t ESCAPES[][2] = {
        {u'b', 8},  {u'f', 12},     {u'n', 10},   {u'r', 13},   {u't', 9},
        {u'v', 11}, {u'\'', u'\''}, {u'"', u'"'}, {u'?', u'?'}, {u'\\', u'\\'}};
    if (*p != u'\\') return *p++;
    ++p;
    uint32_t n = 0;
    if (p < end && *p >= u'0' && *p <= u'7') {
        for (int i = 0; i < 3 && p < end && *p >= u'0' && *p <= u'7'; ++i)
            n = n * 8 + (*p++ - u'0');
        return n;
    }
    if (p < end && *p == u'x') {
        for (++p; p < end && digit_value(*p) >= 0; ++p)
            n = n * 16 + static_cast<uint32_t>(digit_value(*p));
        return n;
    }
    char16_t c = p < end ? *p++ : 0;
    for (const auto& e : ESCAPES)
        if (e[0] == c) return e[1];
    report_pp(warning_code(MSG_UNDEFINED_ESCAPE));
    return 0;
}

Value char_value(const PpToken* tp) {
    const char16_t* p = tp->text;
    const char16_t* end = p + tp->len;
    if (*p == u'L') {
        report_pp(warning_code(MSG_WIDE_CHAR_UNDEFINED));
        ++p;
    }
    ++p; // the quote
    uint32_t n = 0;
    if (p < end && *p == u'\'')
        report_pp(error_code(MSG_EMPTY_CHAR_CONST));
    else if (p < end)
        n = char_unit(p, end);
    if (p >= end || *p != u'\'')
        report_pp(warning_code(MSG_MULTIBYTE_CHAR_CONST));
    else if (n > 127)
        report_pp(WARN_CHAR_NOT_SIGNED);
    return {n, SIGNED};
}

Value token_value(const PpToken* tp) {
    switch (tp->type) {
    case PP_NOEXPAND_NAME:
        return {symbol_is_defined(tp) ? 1u : 0u, SIGNED};
    case PP_STRING:
        report_pp(error_code(MSG_STRING_IN_IF));
        return {};
    case PP_NUMBER:
        return number_value(tp);
    case PP_CHAR:
        return char_value(tp);
    default:
        return {}; // a name left after expansion is 0
    }
}

bool is_binary(int kind) {
    return (kind >= K_EQ && kind <= K_LOR) || (kind >= K_SLASH && kind <= K_COLON) ||
           kind == K_AND || kind == K_STAR || kind == K_PLUS || kind == K_MINUS;
}

// Walks the tokens; false when a message ended the evaluation.
bool walk(Eval& e, const PpToken* tp, const PpToken* end) {
    bool operand = false; // the last thing seen was an operand
    for (; tp < end; ++tp) {
        int k = tp->type;
        switch (k) {
        case PP_NAME:
        case PP_NUMBER:
        case PP_STRING:
        case PP_CHAR:
        case PP_NOEXPAND_NAME:
            if (operand) return e.syntax();
            e.vals.push_back(token_value(tp));
            operand = true;
            continue;
        case PP_NEWLINE:
        case PP_END:
        case 7:
            continue;
        case K_LP:
            if (operand) return e.syntax();
            e.ops.push_back(K_LP);
            continue;
        case K_RP:
            if (!operand) return e.syntax();
            if (!reduce(e, info(K_RP).priority)) return false;
            if (e.ops.back() != K_LP) return e.syntax();
            e.ops.pop_back();
            continue;
        case K_TILDE:
        case K_NOT:
        case PP_DEFINED:
            if (operand) return e.syntax();
            e.ops.push_back(k);
            continue;
        }
        if (!operand && (k == K_AND || k == K_STAR || k == K_PLUS || k == K_MINUS)) {
            if (k == K_MINUS)
                e.ops.push_back(PP_NEGATE);
            else if (k != K_PLUS)
                return e.fail(error_code(MSG_IF_ILLEGAL_OPERATOR));
            continue;
        }
        if (!is_binary(k)) {
            report_pp(error_code(MSG_IF_BAD_OPERATOR), tp);
            e.failed = true;
            return false;
        }
        if (!operand) return e.syntax();
        if (!reduce(e, info(k).priority)) return false;
        e.ops.push_back(k);
        operand = false;
    }
    if (!operand) return e.syntax();
    return true;
}

} // namespace

bool evalIf(TokenRow* row) {
    size_t start = static_cast<size_t>(row->cur - row->base);
    cpp.definedSymbol->value = KW_DEFINED;
    try {
        expandRow(row, u"<if>");
    } catch (...) {
        cpp.definedSymbol->value = KW_DEFINED_IDLE;
        throw;
    }
    cpp.definedSymbol->value = KW_DEFINED_IDLE;
    Eval e;
    if (!walk(e, row->base + start, row->last) || !reduce(e, 0)) return false;
    if (e.ops.size() != 1 || e.vals.size() != 1) {
        report_pp(error_code(MSG_IF_BOTCH));
        return false;
    }
    const Value& v = e.vals.back();
    if (v.type == UNDEFINED) report_pp(error_code(MSG_UNDEFINED_VALUE));
    return v.v != 0;
}

bool evalIfdef(TokenRow* row, bool negate) {
    if (rowlen(row) != 4 || row->cur->type != PP_NAME) {
        report_pp(error_code(MSG_IFDEF_SYNTAX));
        return false;
    }
    return symbol_is_defined(row->cur) != negate;
}

} // namespace tarn
