// The preprocessor's report path (see report_pp.h).
#include "cpp/report_pp.h"

#include <string>

#include "cpp/preprocessor.h"
#include "cpp/tokens.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr DiagnosticCode PP_MASK = 0x3FFF7FFF;

using Args = std::initializer_list<MsgArg>;

// A buffer of `size` units keeps its terminating zero: at most size-1 units.
void cut(std::u16string* text, size_t size) {
    if (text->size() > size - 1) text->resize(size - 1);
}

// Walks the arguments in order: each insert takes the next one.
struct ArgCursor {
    Args::iterator it, end;
    const MsgArg* next() { return it == end ? nullptr : it++; }
};

// Text up to len units, stopping at a zero as "%.*ls" does.
void put_text(std::u16string* out, const char16_t* text, uint64_t len) {
    if (!text) return;
    std::u16string_view t(text, len);
    *out += t.substr(0, t.find(u'\0'));
}

void put_row(std::u16string* out, const TokenRow* row) {
    if (!row) return;
    for (const PpToken* t = row->cur; t && t < row->last; ++t) {
        if (t->type == PP_NEWLINE) break;
        if (t != row->cur && t->wslen > 0) *out += u' ';
        put_text(out, t->text, t->len);
    }
}

void put_pp_insert(std::u16string* out, char16_t kind, const MsgArg* a) {
    if (!a) return;
    switch (kind) {
    case u'1':
    case u's':
        if (a->kind == MsgArg::string) *out += a->text ? a->text : u"(null)";
        break;
    case u'c':
        if (char16_t c = static_cast<char16_t>(a->value & 0xFFFF)) *out += c;
        break;
    case u'd':
        for (char c : std::to_string(static_cast<int32_t>(a->value))) *out += c;
        break;
    case u'r':
        put_row(out, a->token_row);
        break;
    case u't':
        if (a->pp_token) put_text(out, a->pp_token->text, a->pp_token->len);
        break;
    }
}

bool is_pp_insert(char16_t c) {
    return c == u'1' || c == u's' || c == u'c' || c == u'd' || c == u'r' || c == u't';
}

std::u16string expand_pp(std::u16string_view raw, Args args) {
    ArgCursor next{args.begin(), args.end()};
    std::u16string out;
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != u'%') {
            out += raw[i];
            continue;
        }
        if (i + 1 < raw.size() && raw[i + 1] == u'%') ++i; // "%%t" works like "%t"
        if (++i == raw.size()) break;
        if (is_pp_insert(raw[i]))
            put_pp_insert(&out, raw[i], next.next());
        else
            out += raw[i];
    }
    cut(&out, PP_TEXT_BUFFER);
    return out;
}

// Prefix and the message with its inserts untouched, or the fallback text
// over the whole buffer.
std::u16string pp_raw_text(DiagnosticCode code) {
    const char16_t* message = message_text(code & PP_MASK);
    if (!message) return fallback_text(code);
    std::u16string raw = report_prefix(code) + message;
    cut(&raw, PP_RAW_BUFFER);
    return raw;
}

} // namespace

DiagnosticCode report_pp_args(DiagnosticCode code, Args args) {
    std::u16string text;
    const char16_t* file = nullptr;
    uint32_t line = 0;
    if (compile_state.error_callback) {
        text = expand_pp(pp_raw_text(code), args);
        pp_location(&file, &line);
    }
    deliver_report(code, file, line, text);
    return code & SEVERITY_MASK;
}

void report_at_source_args(DiagnosticCode code, Args args) {
    std::u16string text;
    const char16_t* file = nullptr;
    uint32_t line = 0;
    if (compile_state.error_callback) {
        text = diagnostic_text(code, args);
        pp_location(&file, &line);
    }
    deliver_report(code, file, line, text);
}

} // namespace tarn
