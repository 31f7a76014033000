// Macro expansion by hideset rescanning: a name is replaced by its body (with
// the arguments of a call gathered, substituted, stringized and pasted), the
// result carries the hideset of its name plus the macro, and the row is
// scanned again from the start of the replacement. Pasting and argument
// pre-expansion run through short text inputs, so the lexer stays the one
// place that knows the token grammar.
#include "cpp/state.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "diag/report.h"
#include "support/platform.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr size_t MAX_ARGS = 31;
constexpr size_t STRINGIZE_LIMIT = 1013; // units between the quotes

using ArgRows = std::vector<TokenRow>;

// Gives back the argument rows of one call on every path.
struct Args {
    ArgRows rows;
    bool expanded = false; // the rows are expanded already (a chain, below)
    Args() = default;
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;
    ~Args() {
        for (TokenRow& r : rows) giveBackRow(&r);
    }
};

// White space that stood in the source, not a blank that expansion put there.
bool real_space(const PpToken* tp) {
    return tp->wslen && !(tp->flag & FLAG_INSERTED_SPACE);
}

// ---- Built-in macros

const SourceFile* file_source() {
    for (const SourceFile* s = cpp.source; s; s = s->previous)
        if (s->file) return s;
    return cpp.source;
}

std::u16string builtin_text(const Symbol* sym, uint8_t* kind) {
    const SourceFile* s = file_source();
    std::u16string t;
    *kind = PP_STRING;
    auto take = [&](size_t from, size_t n) {
        const std::string& now = run_time_text();
        for (size_t i = from; i < from + n; ++i) t += i < now.size() ? char16_t(now[i]) : u' ';
    };
    switch (sym->value) {
    case KW_LINE_MACRO:
        *kind = PP_NUMBER;
        for (char c : std::to_string(s ? s->line : 0)) t += char16_t(c);
        return t;
    case KW_TARN_MACRO: {
        *kind = PP_NUMBER;
        uint32_t v = host_version();
        for (char c : std::to_string((v >> 16) * 100 + (v & 0xFFFF))) t += char16_t(c);
        return t;
    }
    case KW_FILE_MACRO:
        t += u'"';
        for (const char16_t* p = s ? s->name : u""; *p; ++p) {
            if (*p == u'\\') t += u'\\';
            t += *p;
        }
        break;
    case KW_DATE_MACRO: // "Www Mmm dd hh:mm:ss yyyy": Mmm dd yyyy
        if (cpp.capture) cpp.capture->spoiled = true;
        t += u'"';
        take(4, 7);
        take(20, 4);
        break;
    case KW_TIME_MACRO:
        if (cpp.capture) cpp.capture->spoiled = true;
        t += u'"';
        take(11, 8);
        break;
    default:
        report_pp(fatal_code(MSG_UNKNOWN_INTERNAL_MACRO));
    }
    t += u'"';
    return t;
}

// Replaces the name at the row's cursor in place by its one-token value.
void builtin(TokenRow* row, const Symbol* sym) {
    PpToken* tp = row->cur;
    uint8_t kind = PP_STRING;
    std::u16string t = builtin_text(sym, &kind);
    char16_t* p = scratch_alloc(t.size() + 1);
    p[0] = u' ';
    std::memcpy(p + 1, t.data(), t.size() * sizeof(char16_t));
    tp->type = kind;
    tp->text = p + 1;
    tp->len = t.size();
    tp->wslen = tp->wslen ? 1 : 0;
    tp->flag |= FLAG_ROOM;
    row->cur = tp + 1;
}

// ---- `defined` in #if lines

void mark_defined(TokenRow* row, size_t at) {
    PpToken* tp = row->base + at;
    size_t left = rowlen(row) - at - 1;
    tp->type = PP_DEFINED;
    if (left >= 1 && tp[1].type == PP_NAME)
        tp[1].type = PP_NOEXPAND_NAME;
    else if (left >= 3 && tp[1].type == K_LP && tp[2].type == PP_NAME && tp[3].type == K_RP)
        tp[2].type = PP_NOEXPAND_NAME;
    else
        report_pp(error_code(MSG_DEFINED_SYNTAX));
}

// ---- Arguments

size_t param_index(const Symbol* sym, const PpToken* tp) {
    if (tp->type != PP_NAME) return SIZE_MAX;
    for (size_t i = 0; i < rowlen(sym->params); ++i) {
        const PpToken& p = sym->params->base[i];
        if (p.len == tp->len && std::memcmp(p.text, tp->text, p.len * sizeof(char16_t)) == 0)
            return i;
    }
    return SIZE_MAX;
}

void store_arg(const TokenRow* row, size_t from, size_t to, Args* args) {
    if (args->rows.size() >= MAX_ARGS && !compile_state.extended)
        report_pp(fatal_code(MSG_TOO_MANY_MACRO_ARGS));
    args->rows.emplace_back();
    TokenRow& arg = args->rows.back();
    copyRow(&arg, row->base + from, row->base + to);
    for (PpToken* tp = arg.base; tp < arg.last; ++tp)
        if (tp->type == PP_PASTE) tp->type = PP_PASTE_ARG; // no operator in an argument
    if (arg.base < arg.last) arg.base->wslen = 0;
}

// Makes sure a row index exists, lexing further lines of the current input.
void need_token(TokenRow* row, size_t i) {
    while (i >= rowlen(row)) lexLine(row, false);
}

// Finds the "(" after the name at `at`, across lines; false when there is no call.
bool find_call(TokenRow* row, size_t at, size_t* open) {
    for (size_t i = at + 1;; ++i) {
        if (i >= rowlen(row)) {
            lexLine(row, false);
            if (row->base[i].type == PP_END) { // end of input: no call
                row->last -= 1;
                return false;
            }
        }
        uint8_t kind = row->base[i].type;
        if (kind == K_LP) {
            *open = i;
            return true;
        }
        if (kind != PP_NEWLINE) return false;
    }
}

// Gathers the arguments of a call of sym at `at`; returns the number of
// tokens of the call (name to ")"), or 0 when there is no call.
size_t gatherArgs(TokenRow* row, size_t at, const Symbol* sym, Args* args) {
    size_t open = 0;
    if (!find_call(row, at, &open)) return 0;
    size_t i = open + 1;
    int depth = 1;
    bool needspace = false;
    while (depth > 0) {
        need_token(row, i);
        PpToken* tp = row->base + i;
        if (tp->type == PP_END) {
            row->last -= 1;
            report_pp(error_code(MSG_EOF_IN_ARGLIST));
            return 0;
        }
        if (tp->type == PP_NEWLINE) { // a call across lines becomes one line
            // The next line is read while its newline still stands in front,
            // so that an end of input right after it is no missing newline.
            if (i + 1 >= rowlen(row)) lexLine(row, false);
            eraseTokens(row, i, 1);
            needspace = true;
            continue;
        }
        if (needspace) {
            giveSpace(tp);
            needspace = false;
        }
        if (tp->type == K_LP)
            ++depth;
        else if (tp->type == K_RP)
            --depth;
        ++i;
    }
    size_t close = i - 1, from = open + 1;
    int level = 0;
    for (size_t j = from; j <= close; ++j) {
        uint8_t kind = row->base[j].type;
        if (j == close || (kind == K_COMMA && level == 0)) {
            store_arg(row, from, j, args);
            from = j + 1;
        } else if (kind == K_LP) {
            ++level;
        } else if (kind == K_RP) {
            --level;
        }
    }
    // "f()" calls a macro without parameters with no argument at all.
    if (rowlen(sym->params) == 0 && args->rows.size() == 1 && rowlen(&args->rows[0]) == 0) {
        giveBackRow(&args->rows[0]);
        args->rows.clear();
    }
    return i - at;
}

// The arguments are copied: they leave the row, which keeps the name and the
// parentheses, so that a call nested in another's argument does not leave a
// copy of all that follows it at every level. Returns the call's new length.
size_t drop_arguments(TokenRow* row, size_t at, size_t ntok) {
    size_t open = at + 1;
    while (row->base[open].type != K_LP) ++open;
    size_t close = at + ntok - 1, n = close - open - 1;
    if (n == 0) return ntok;
    eraseTokens(row, open + 1, n);
    // Room a deep nesting left behind goes back too.
    constexpr size_t KEEP_TOKENS = 16;
    if (row->max > KEEP_TOKENS && rowlen(row) * 4 < row->max)
        growRow(std::max<size_t>(2 * rowlen(row), KEEP_TOKENS), row);
    return ntok - n;
}

// ---- Substitution, # and ##

PpToken stringize(const TokenRow* arg) {
    std::u16string buf = u"\"";
    for (const PpToken* tp = arg->base; tp < arg->last; ++tp) {
        if (tp->type == PP_NEWLINE) break;
        if ((buf.size() - 1) + 2 * tp->len >= STRINGIZE_LIMIT && !compile_state.extended) {
            report_pp(error_code(MSG_STRINGIZE_TOO_LONG));
            break;
        }
        if (tp->wslen && !(tp->flag & FLAG_INSERTED_SPACE)) buf += u' ';
        bool quoted = tp->type == PP_STRING || tp->type == PP_CHAR;
        for (size_t i = 0; i < tp->len; ++i) {
            char16_t c = tp->text[i];
            if (quoted && (c == u'"' || c == u'\\')) buf += u'\\';
            buf += c;
        }
    }
    buf += u'"';
    size_t n = buf.size();
    char16_t* p = scratch_alloc(n + 1);
    p[0] = u' ';
    std::memcpy(p + 1, buf.data(), n * sizeof(char16_t));
    PpToken t{};
    t.type = PP_STRING;
    t.flag = FLAG_ROOM;
    t.text = p + 1;
    t.len = n;
    return t;
}

// How often each parameter stands in the body as itself (to be replaced by
// its expanded argument) and next to # or ## (by the argument as written).
// Counted for the usual few parameters only, without a heap allocation;
// the others always take a copy of their argument.
constexpr size_t COUNTED_PARAMS = 32;
struct ParamUses {
    bool counted = false;
    std::array<uint32_t, COUNTED_PARAMS> plain{}, raw{};
};

ParamUses count_uses(const Symbol* sym, const TokenRow* body) {
    ParamUses u;
    size_t n = body ? rowlen(body) : 0;
    if (rowlen(sym->params) > COUNTED_PARAMS) return u;
    u.counted = true;
    for (size_t j = 0; j < n; ++j) {
        const PpToken* tp = body->base + j;
        if (tp->type == PP_HASH && j + 1 < n && param_index(sym, tp + 1) != SIZE_MAX) {
            u.raw[param_index(sym, tp + 1)] += 1;
            ++j;
            continue;
        }
        size_t a = param_index(sym, tp);
        if (a == SIZE_MAX) continue;
        bool pasted = (j + 1 < n && tp[1].type == PP_PASTE) || (j > 0 && tp[-1].type == PP_PASTE);
        (pasted ? u.raw : u.plain)[a] += 1;
    }
    return u;
}

void expand_argument(TokenRow* own);

void substitute(const Symbol* sym, TokenRow* work, Args* args) {
    ParamUses uses = count_uses(sym, sym->replacement);
    size_t k = 0;
    while (k < rowlen(work)) {
        PpToken* tp = work->base + k;
        if (tp->type == PP_HASH) {
            size_t a = k + 1 < rowlen(work) ? param_index(sym, tp + 1) : SIZE_MAX;
            if (a == SIZE_MAX) {
                report_pp(error_code(MSG_HASH_NOT_PARAM));
                ++k;
                continue;
            }
            // L#x makes a wide string: nothing may come between L and the quote.
            bool wide =
                k > 0 && tp[-1].type == PP_NAME && tp[-1].len == 1 && tp[-1].text[0] == u'L';
            bool spaced = !wide && real_space(tp);
            PpToken s = stringize(&args->rows[a]);
            replaceTokens(work, k, 2, &s, 1, spaced);
            if (wide) work->base[k].wslen = 0;
            k += 1;
            continue;
        }
        size_t a = param_index(sym, tp);
        if (a == SIZE_MAX) {
            ++k;
            continue;
        }
        bool spaced = real_space(tp);
        bool pasted =
            (k + 1 < rowlen(work) && tp[1].type == PP_PASTE) || (k > 0 && tp[-1].type == PP_PASTE);
        const TokenRow& arg = args->rows[a];
        if (pasted) {
            replaceTokens(work, k, 1, arg.base, rowlen(&arg), spaced);
            k += rowlen(&arg);
            continue;
        }
        if (uses.counted && --uses.plain[a] == 0 && uses.raw[a] == 0) {
            // The argument's last use: it is expanded where it is, not in a
            // copy, so that calls nested in arguments need no copy per level.
            TokenRow& own = args->rows[a];
            if (!args->expanded) expand_argument(&own);
            replaceTokens(work, k, 1, own.base, rowlen(&own), spaced);
            k += rowlen(&own);
            giveBackRow(&own);
            continue;
        }
        ScopedRow x(rowlen(&arg) + 1);
        std::memcpy(x.row.base, arg.base, rowlen(&arg) * sizeof(PpToken));
        x.row.last = x.row.base + rowlen(&arg);
        expandRow(&x.row, u"<macro>");
        replaceTokens(work, k, 1, x.row.base, rowlen(&x.row), spaced);
        k += rowlen(&x.row);
    }
}

// Lexes the joined texts of two tokens as one line of a "<##>" input.
void lex_pasted(const PpToken& left, const PpToken& right, TokenRow* out) {
    size_t n = left.len + right.len;
    char16_t* text = scratch_alloc(n + 1);
    std::memcpy(text, left.text, left.len * sizeof(char16_t));
    std::memcpy(text + left.len, right.text, right.len * sizeof(char16_t));
    text[n] = 0;
    // A name joined with units that go on a name is that one name, as the
    // lexer would read it.
    bool name = left.type == PP_NAME && right.len > 0;
    for (size_t i = 0; name && i < right.len; ++i) name = continues_name(right.text[i]);
    if (name) {
        out->last = out->base;
        PpToken* tp = out->base;
        *tp = PpToken{};
        tp->type = PP_NAME;
        tp->text = text;
        tp->len = n;
        tp[1] = PpToken{};
        tp[1].type = PP_END;
        tp[1].text = text + n;
        out->last = tp + 2;
        return;
    }
    pushSource(u"<##>", text);
    try {
        lexLine(out, true);
    } catch (...) {
        popSource();
        throw;
    }
    popSource();
}

void paste(TokenRow* work) {
    size_t k = 0;
    while (k < rowlen(work)) {
        PpToken* tp = work->base + k;
        if (tp->type == PP_PASTE_ARG) { // a "##" that came in an argument
            tp->type = PP_PASTE;
            ++k;
            continue;
        }
        if (tp->type != PP_PASTE) {
            ++k;
            continue;
        }
        if (k == 0 || k + 1 >= rowlen(work)) {
            report_pp(error_code(MSG_PASTE_AT_BORDER));
            ++k;
            continue;
        }
        ScopedRow r(3);
        lex_pasted(tp[-1], tp[1], &r.row);
        size_t n = rowlen(&r.row);
        if (n != 2 || r.row.base[1].type != PP_END || r.row.base[0].type == PP_OTHER)
            report_pp(warning_code(MSG_BAD_PASTE), &r.row);
        if (n && r.row.base[n - 1].type == PP_END) --n;
        replaceTokens(work, k - 1, 3, r.row.base, n, real_space(tp - 1));
        k -= 1; // the left position again, so that a ## b ## c goes left to right
    }
}

// The rest of the line from `at` is commented out by an open comment.
void cut_line(TokenRow* row, size_t at) {
    size_t end = at;
    while (end < rowlen(row) && row->base[end].type != PP_NEWLINE && row->base[end].type != PP_END)
        ++end;
    eraseTokens(row, at, end - at);
    if (at < rowlen(row)) {
        PpToken* nl = row->base + at;
        nl->wslen = (nl->wslen && nl->text[-1] == u'\r') ? 1 : 0;
    }
}

bool has_open_comment(const TokenRow* work) {
    for (const PpToken* tp = work->base; tp < work->last; ++tp)
        if (tp->type == PP_OPEN_COMMENT) return true;
    return false;
}

// A body that pasting, hidesets and the open-comment rule leave as it is:
// no name, no ## and no open comment. Most macros are such numbers.
bool body_as_is(const TokenRow* body) {
    if (!body) return true;
    for (const PpToken* tp = body->base; tp < body->last; ++tp)
        if (tp->type == PP_NAME || tp->type == PP_PASTE || tp->type == PP_PASTE_ARG ||
            tp->type == PP_OPEN_COMMENT)
            return false;
    return true;
}

// The last steps of an expansion: the body with its arguments in (`work`)
// is pasted, takes the hideset of the call, and replaces the call's ntok
// tokens at `at`, where the cursor is left for the rescan.
void put_expansion(TokenRow* row, size_t at, size_t ntok, const Symbol* sym, TokenRow* work) {
    paste(work);
    uint32_t hs = new_hideset(row->base[at].hideset, sym);
    for (PpToken* tp = work->base; tp < work->last; ++tp)
        if (tp->type == PP_NAME) tp->hideset = tp->hideset ? unionHidesets(tp->hideset, hs) : hs;
    if (has_open_comment(work)) {
        cut_line(row, at);
    } else {
        bool spaced = real_space(row->base + at);
        replaceTokens(row, at, ntok, work->base, rowlen(work), spaced);
    }
    row->cur = row->base + at;
}

// ---- Chains of calls nested in arguments
//
// F(G(H(x))): each level's argument is one call whose own argument is
// expanded first. Done level by level, every level would scan and copy
// all it holds and recurse once more, so that time grew with the square
// of the depth and the stack with the depth. The levels are found at once
// from the bracket structure instead, the innermost argument is expanded,
// and the levels are finished from the inside out, each one as it would
// have been: the same steps in the same order, with the same messages.

// A macro whose call can stand for a level: one parameter, used once as
// itself, with no # in the body (whose messages would come in another
// order) and nothing else that would want the argument.
bool chain_macro(const Symbol* sym) {
    if (!sym->params || rowlen(sym->params) != 1) return false;
    const TokenRow* body = sym->replacement;
    if (!body) return false;
    for (const PpToken* tp = body->base; tp < body->last; ++tp)
        if (tp->type == PP_HASH) return false;
    ParamUses u = count_uses(sym, body);
    return u.counted && u.plain[0] == 1 && u.raw[0] == 0;
}

// The macro of the call that fills row[s, e) exactly, as the rescan would
// expand it at s; null when the range is anything else. `close` holds the
// index of the ")" of each "(" with no comma at its level, else SIZE_MAX.
Symbol* chain_call(const TokenRow* row, size_t s, size_t e, const std::vector<size_t>& close) {
    if (e < s + 3) return nullptr;
    const PpToken* tp = row->base + s;
    if (tp->type != PP_NAME || tp[1].type != K_LP || close[s + 1] != e - 1) return nullptr;
    if (!macro_bit_set(cpp.macroBits, tp)) return nullptr;
    Symbol* sym = lookupSymbol(tp, false);
    if (!sym || !(sym->flags & SYM_DEFINED) || (sym->flags & SYM_BUILTIN)) return nullptr;
    if (sym->value == KW_DEFINED && sym == cpp.definedSymbol) return nullptr;
    if (tp->hideset && check_hideset(tp->hideset, sym)) return nullptr;
    return chain_macro(sym) ? sym : nullptr;
}

// The ")" of every "(" of a balanced row, or SIZE_MAX where the group
// holds a comma at its own level (more than one argument).
std::vector<size_t> bracket_closes(const TokenRow* row) {
    size_t n = rowlen(row);
    std::vector<size_t> close(n, SIZE_MAX), open;
    std::vector<bool> comma;
    for (size_t i = 0; i < n; ++i) {
        uint8_t kind = row->base[i].type;
        if (kind == K_LP) {
            open.push_back(i);
            comma.push_back(false);
        } else if (kind == K_RP) {
            if (open.empty()) break;
            if (!comma.back()) close[open.back()] = i;
            open.pop_back();
            comma.pop_back();
        } else if (kind == K_COMMA && !open.empty()) {
            comma.back() = true;
        }
    }
    return close;
}

struct ChainLevel {
    Symbol* sym;
    size_t at;    // the name's index in the argument row
    size_t close; // and its ")"
};

// Rows of the chain, given back on every path.
struct ChainRows {
    TokenRow inner{}, call{};
    ChainRows() = default;
    ChainRows(const ChainRows&) = delete;
    ChainRows& operator=(const ChainRows&) = delete;
    ~ChainRows() {
        giveBackRow(&inner);
        giveBackRow(&call);
    }
};

// Expands a gathered argument in its own row, as a "<macro>" input: what
// expandRow does, without a level of recursion per nested call.
void expand_argument(TokenRow* own) {
    own->cur = own->base;
    std::vector<ChainLevel> levels;
    size_t s = 0, e = rowlen(own);
    if (e >= 3 && own->base[0].type == PP_NAME && own->base[e - 1].type == K_RP) {
        std::vector<size_t> close = bracket_closes(own);
        while (Symbol* sym = chain_call(own, s, e, close)) {
            levels.push_back({sym, s, e - 1});
            s += 2;
            e -= 1;
            // An argument is stored without the space in front of it.
            if (s < e) own->base[s].wslen = 0;
        }
    }
    if (levels.empty()) {
        expandRow(own, u"<macro>");
        return;
    }
    // One "<macro>" input per level, as each level's rescan pushes one.
    for (size_t i = 0; i < levels.size(); ++i) pushSource(u"<macro>", u"");
    ChainRows rows;
    copyRow(&rows.inner, own->base + s, own->base + e);
    pushSource(u"<macro>", u"");
    expandRow(&rows.inner, nullptr);
    popSource();
    for (size_t i = levels.size(); i-- > 0;) {
        const ChainLevel& lv = levels[i];
        const TokenRow* body = lv.sym->replacement;
        // The call with its argument gathered: name and parentheses.
        PpToken call[3] = {own->base[lv.at], own->base[lv.at + 1], own->base[lv.close]};
        copyRow(&rows.call, call, call + 3);
        ScopedRow work(rowlen(body) + 1);
        std::memcpy(work.row.base, body->base, rowlen(body) * sizeof(PpToken));
        work.row.last = work.row.base + rowlen(body);
        {
            Args args;
            args.expanded = true;
            args.rows.push_back(rows.inner);
            rows.inner = TokenRow{};
            substitute(lv.sym, &work.row, &args);
        }
        put_expansion(&rows.call, 0, 3, lv.sym, &work.row);
        expandRow(&rows.call, nullptr); // the rescan of this level
        popSource();
        rows.inner = rows.call;
        rows.call = TokenRow{};
    }
    giveBackRow(own);
    *own = rows.inner;
    rows.inner = TokenRow{};
}

} // namespace

void expandMacro(TokenRow* row, Symbol* sym) {
    size_t at = static_cast<size_t>(row->cur - row->base);
    const TokenRow* body = sym->replacement;
    if (!sym->params && body_as_is(body)) {
        // The same steps without a working copy. The hideset is still made,
        // so that the table fills as it would.
        new_hideset(row->base[at].hideset, sym);
        PpToken* tp = row->base + at;
        bool spaced = real_space(tp);
        if (body && rowlen(body) == 1) { // one token for one, most macros
            *tp = *body->base;
            if (spaced)
                giveSpace(tp);
            else
                separateToken(row, at);
            separateToken(row, at + 1);
        } else {
            replaceTokens(row, at, 1, body ? body->base : nullptr, body ? rowlen(body) : 0, spaced);
        }
        row->cur = row->base + at;
        return;
    }
    ScopedRow work(body ? rowlen(body) + 1 : 1);
    if (body && rowlen(body)) {
        std::memcpy(work.row.base, body->base, rowlen(body) * sizeof(PpToken));
        work.row.last = work.row.base + rowlen(body);
    }
    size_t ntok = 1;
    if (sym->params) {
        Args args;
        ntok = gatherArgs(row, at, sym, &args);
        if (ntok == 0) { // not a call
            row->cur = row->base + at + 1;
            return;
        }
        if (args.rows.size() != rowlen(sym->params)) {
            report_pp(error_code(MSG_MACRO_ARG_COUNT));
            row->base[at].hideset = new_hideset(row->base[at].hideset, sym);
            row->cur = row->base + at + ntok;
            return;
        }
        ntok = drop_arguments(row, at, ntok);
        substitute(sym, &work.row, &args);
    }
    put_expansion(row, at, ntok, sym, &work.row);
}

void expandRow(TokenRow* row, const char16_t* name) {
    // A row without a name that may be a macro stays as it is (most
    // arguments are numbers); only expanding needs the input pushed.
    const PpToken* tp = row->cur;
    while (tp < row->last && (tp->type != PP_NAME || !macro_bit_set(cpp.macroBits, tp))) ++tp;
    if (tp == row->last) return;
    if (name) pushSource(name, u"");
    auto i = static_cast<size_t>(tp - row->base);
    while (i < rowlen(row)) {
        // Past the tokens that cannot be macros, in one go.
        PpToken* tp = row->base + i;
        const PpToken* last = row->last;
        while (tp < last && (tp->type != PP_NAME || !macro_bit_set(cpp.macroBits, tp))) ++tp;
        i = static_cast<size_t>(tp - row->base);
        if (tp == last) break;
        Symbol* sym = lookupSymbol(tp, false);
        if (!sym || !(sym->flags & (SYM_DEFINED | SYM_BUILTIN)) ||
            (tp->hideset && check_hideset(tp->hideset, sym))) {
            ++i;
            continue;
        }
        row->cur = tp;
        if (sym->value == KW_DEFINED && sym == cpp.definedSymbol) {
            mark_defined(row, i);
            ++i;
            continue;
        }
        if (sym->flags & SYM_BUILTIN)
            builtin(row, sym);
        else
            expandMacro(row, sym);
        i = static_cast<size_t>(row->cur - row->base);
    }
    if (name) popSource();
}

} // namespace tarn
