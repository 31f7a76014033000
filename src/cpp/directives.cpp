// The line loop and the directives: each lexed line is a directive, text to
// expand and write out, or part of a region that a conditional skips. The
// conditional stack spans all files; each file counts what it opened.
#include "cpp/state.h"

#include <algorithm>

#include "diag/report.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

namespace {

void open_conditional() {
    if (++cpp.ifDepth > MAX_IF_DEPTH) {
        if (!compile_state.extended) report_pp(fatal_code(MSG_IF_TOO_DEEP));
        cpp.ifState.resize(static_cast<size_t>(cpp.ifDepth) + 1);
        cpp.ifLine.resize(static_cast<size_t>(cpp.ifDepth) + 1);
    }
    cpp.ifLine[cpp.ifDepth] = cpp.source->line;
    cpp.source->ifdepth += 1;
}

void close_conditional() {
    cpp.ifDepth -= 1;
    if (cpp.ifDepth < cpp.skipLevel) cpp.skipLevel = 0;
    cpp.source->ifdepth -= 1;
}

// #if, #ifdef, #ifndef while text is kept.
void do_if(TokenRow* row, uint8_t keyword) {
    open_conditional();
    cpp.ifState[cpp.ifDepth] = 0;
    bool taken = keyword == KW_IF ? evalIf(row) : evalIfdef(row, keyword == KW_IFNDEF);
    if (taken)
        cpp.ifState[cpp.ifDepth] = 1;
    else
        cpp.skipLevel = cpp.ifDepth;
}

// False when the line stays as it is (an #elif without #if).
bool do_elif(TokenRow* row) {
    if (cpp.ifDepth == 0) {
        report_pp(error_code(MSG_ELIF_WITHOUT_IF));
        return false;
    }
    uint8_t& state = cpp.ifState[cpp.ifDepth];
    if (state == 2) report_pp(error_code(MSG_ELIF_AFTER_ELSE));
    if (state == 0 && evalIf(row)) {
        cpp.skipLevel = 0;
        state = 1;
    } else {
        cpp.skipLevel = cpp.ifDepth;
    }
    return true;
}

bool do_else(TokenRow* row) {
    if (cpp.ifDepth == 0 || cpp.source->ifdepth == 0) {
        report_pp(error_code(MSG_ELSE_WITHOUT_IF));
        return false;
    }
    uint8_t& state = cpp.ifState[cpp.ifDepth];
    if (state == 2) report_pp(error_code(MSG_ELSE_AFTER_ELSE));
    if (rowlen(row) != 3) report_pp(error_code(MSG_ELSE_SYNTAX));
    cpp.skipLevel = state ? cpp.ifDepth : 0;
    state = 2;
    return true;
}

bool do_endif(TokenRow* row) {
    if (cpp.ifDepth == 0 || cpp.source->ifdepth == 0) {
        report_pp(error_code(MSG_ENDIF_WITHOUT_IF));
        return false;
    }
    close_conditional();
    if (rowlen(row) != 3) report_pp(warning_code(MSG_ENDIF_SYNTAX)); // milder than #else
    return true;
}

// #line n "name" and # n "name"; tp is the number. The line stays in the row.
void do_line(TokenRow* row, const PpToken* tp) {
    const PpToken* next = tp + 1;
    bool ok = tp->type == PP_NUMBER && next < row->last;
    if (ok && next->type == PP_STRING) {
        ok = next->text[0] != u'L';
        ++next;
    }
    ok = ok && next + 1 == row->last && (next->type == PP_NEWLINE || next->type == PP_END);
    if (!ok) {
        report_pp(error_code(MSG_LINE_SYNTAX));
        return;
    }
    int64_t n = 0;
    for (uint64_t i = 0; i < tp->len && tp->text[i] >= u'0' && tp->text[i] <= u'9'; ++i)
        n = std::min<int64_t>(n * 10 + (tp->text[i] - u'0'), INT32_MAX);
    int32_t line = static_cast<int32_t>(n - 1);
    cpp.source->line = line;
    if (line < 0 || line >= 32768) report_pp(warning_code(MSG_LINE_OUT_OF_RANGE));
    if (tp[1].type == PP_STRING) cpp.source->name = cpp.arena.copy(tp[1].text + 1, tp[1].len - 2);
}

// #pragma code_page(N) and code_page(DEFAULT), in the extended dialect: the
// rest of the file is read in that code page (DEFAULT: the run's own).
// Other pragmas are ignored, as ever.
void do_pragma(const TokenRow* row) {
    const PpToken* tp = row->cur;
    auto is = [](const PpToken* t, std::u16string_view word) {
        return t->type == PP_NAME && equal_ignore_case(std::u16string_view(t->text, t->len), word);
    };
    if (!is(tp, u"code_page")) return;
    const PpToken* arg = tp + 2;
    bool ok = rowlen(row) >= static_cast<size_t>(arg - row->base) + 3 && tp[1].type == K_LP &&
              arg[1].type == K_RP && (arg[2].type == PP_NEWLINE || arg[2].type == PP_END);
    uint32_t page = compile_state.code_page;
    if (ok && !is(arg, u"DEFAULT")) {
        constexpr size_t MAX_DIGITS = 9;
        ok = arg->type == PP_NUMBER && arg->len <= MAX_DIGITS;
        page = 0;
        for (uint64_t i = 0; ok && i < arg->len; ++i) {
            ok = arg->text[i] >= u'0' && arg->text[i] <= u'9';
            page = page * 10 + (arg->text[i] - u'0');
        }
    }
    if (!ok) {
        report_at_source(error_code(MSG_INVALID_SYNTAX));
        return;
    }
    if (!plat_valid_code_page(page)) {
        report_at_source(error_code(MSG_INVALID_CODEPAGE), page);
        return;
    }
    switch_code_page(cpp.source, page);
}

// In a skipped region only the conditionals count; false when the line is
// to be handled as if text were kept (#elif, #else at the skipping depth).
bool skipped_directive(TokenRow* row, uint8_t value) {
    switch (value) {
    case KW_IF:
    case KW_IFDEF:
    case KW_IFNDEF:
        open_conditional();
        return true; // nothing is evaluated
    case KW_ELIF:
    case KW_ELSE:
        return cpp.ifDepth != cpp.skipLevel;
    case KW_ENDIF:
        close_conditional();
        emptyRow(row);
        return true;
    default:
        return true;
    }
}

// The prelude's closing "#line 1", in the main script.
bool ends_prelude(const TokenRow* row) {
    const PpToken* tp = row->base;
    return !cpp.capture->header && cpp.source == cpp.capture->main && tp->type == PP_HASH &&
           rowlen(row) > 2 && tp[1].type == PP_NAME &&
           std::u16string_view(tp[1].text, tp[1].len) == u"line";
}

// The entry of a directive's name. The keywords, most often met first, are
// found without hashing: their entries, made at load, never leave the table.
const Symbol* directive_symbol(const PpToken* tp) {
    static constexpr uint8_t ORDER[] = {KW_DEFINE, KW_ENDIF, KW_IFDEF, KW_IFNDEF,
                                        KW_IF,     KW_ELSE,  KW_ELIF,  KW_INCLUDE,
                                        KW_UNDEF,  KW_LINE,  KW_ERROR, KW_PRAGMA};
    for (uint8_t k : ORDER) {
        const Symbol* s = cpp.keywords[k];
        if (s && s->len == tp->len && s->name[0] == tp->text[0] &&
            std::equal(s->name, s->name + s->len, tp->text))
            return s;
    }
    return lookupSymbol(tp, false);
}

} // namespace

void runDirective(TokenRow* row) {
    PpToken* tp = row->cur;
    if (tp->type != PP_NAME) {
        if (tp->type == PP_NUMBER)
            do_line(row, tp);
        else if (tp->type != PP_NEWLINE)
            report_pp(error_code(MSG_UNIDENTIFIABLE_CONTROL));
        return;
    }
    const Symbol* sym = directive_symbol(tp);
    if (!sym || (!(sym->flags & SYM_DIRECTIVE) && !cpp.skipLevel)) {
        report_pp(warning_code(MSG_UNKNOWN_CONTROL), tp);
        return;
    }
    // A known name that is no keyword has value 0 and so opens a conditional
    // in a skipped region, as it always has.
    if (cpp.skipLevel && skipped_directive(row, sym->value)) return;
    row->cur = tp + 1;
    switch (sym->value) {
    case KW_IF:
    case KW_IFDEF:
    case KW_IFNDEF:
        do_if(row, sym->value);
        break;
    case KW_ELIF:
        if (!do_elif(row)) return;
        break;
    case KW_ELSE:
        if (!do_else(row)) return;
        break;
    case KW_ENDIF:
        if (!do_endif(row)) return;
        break;
    case KW_INCLUDE:
        doInclude(row);
        row->last = row->cur = row->base; // a line marker follows instead
        return;
    case KW_DEFINE:
        defineMacro(row);
        break;
    case KW_UNDEF:
        undefineMacro(row);
        break;
    case KW_LINE:
        expandRow(row, u"<line>");
        do_line(row, row->base + 2);
        return;
    case KW_ERROR:
        report_pp(error_code(MSG_ERROR_DIRECTIVE), row);
        break;
    case KW_PRAGMA:
        if (cpp.capture) cpp.capture->spoiled = true;
        if (compile_state.extended) do_pragma(row);
        break;
    case KW_DEFINED:
        report_pp(error_code(MSG_BAD_CONTROL_SYNTAX));
        break;
    default:
        report_pp(fatal_code(MSG_CONTROL_NOT_IMPLEMENTED), tp);
    }
    emptyRow(row);
}

int processLines(TokenRow* row) {
    for (;;) {
        if (row->cur >= row->last) {
            row->cur = row->last = row->base;
            scratch_reset();
            cpp.pending |= lexLine(row, true);
            row->cur = row->base;
            if (cpp.capture && ends_prelude(row))
                capture_end();
            else if (cpp.headerChain || cpp.chainAfterLine)
                header_chain_line(row);
        }
        int room = 1;
        if (row->cur->type != PP_END) {
            SourceFile* from = cpp.source;
            guardLine(from, row);
            if (row->cur->type == PP_HASH) {
                row->cur += 1;
                runDirective(row);
                if (cpp.skipLevel) emptyRow(row);
            } else if (!cpp.skipLevel) {
                if (cpp.pending) expandRow(row, nullptr);
                if (cpp.skipLevel) emptyRow(row);
            } else {
                emptyRow(row);
            }
            room = put_tokens(row);
            cpp.pending = 0;
            SourceFile* s = cpp.source;
            advance_line(s);
            if (s->lineinc > 1 || cpp.guardSkipped) room = writeLineMarker();
            cpp.guardSkipped = false;
            guardLineDone(from);
        } else {
            if (--cpp.includeDepth < 0) {
                cpp.headerChain = 0; // the chain is this run's
                if (cpp.ifDepth)
                    report_pp(error_code(MSG_UNTERMINATED_IF), cpp.ifLine[cpp.ifDepth]);
                return 1;
            }
            if (cpp.source->ifdepth) {
                report_pp(WARN_UNTERMINATED_COND_INCLUDE);
                while (cpp.source->ifdepth > 0) close_conditional();
            }
            guardFileDone(cpp.source);
            bool captured = cpp.capture && cpp.capture->source == cpp.source;
            popSource();
            if (captured) capture_end();
            advance_line(cpp.source);
            row->cur = row->last;
            room = writeLineMarker();
        }
        if (!room) return 0;
    }
}

} // namespace tarn
