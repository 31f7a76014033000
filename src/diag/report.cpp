// The two report paths. The preprocessor's report fetches a message raw and
// expands its own "%%t" style inserts (tokens, rows, strings, numbers); the
// script compiler's report goes through the platform formatter's rules and
// also finds the system's texts for platform error numbers. Both prefix the
// severity word, hand the text to the host, count errors and unwind on a
// fatal code.
#include "diag/report.h"

#include <cstdio>
#include <span>

#include "cpp/preprocessor.h"
#include "cpp/tokens.h"
#include "script/lexer.h"
#include "support/platform.h"
#include "support/state.h"

namespace tarn {

DiagState diag_state;

void diag_reset() {
    diag_state.language = plat_user_language_swedish() ? Language::swedish : Language::english;
}

namespace {

constexpr DiagnosticCode PP_MASK = 0x3FFF7FFF;
constexpr DiagnosticCode SCRIPT_MASK = 0x20003FFF;
constexpr DiagnosticCode SYSTEM_NUMBER_MASK = 0x3FFF;

using Args = std::initializer_list<MsgArg>;

std::span<const MsgArg> as_span(Args args) {
    return {args.begin(), args.size()};
}

// A buffer of `size` units keeps its terminating zero: at most size-1 units.
void cut(std::u16string* text, size_t size) {
    if (text->size() > size - 1) text->resize(size - 1);
}

const char16_t* table_text(uint32_t id) {
    return catalogue_text(id, diag_state.language);
}

uint32_t prefix_number(DiagnosticCode code) {
    switch (code & SEVERITY_MASK) {
    case SEVERITY_WARNING:
        return MSG_PREFIX_WARNING;
    case SEVERITY_ERROR:
        return MSG_PREFIX_ERROR;
    default:
        return (code & CODE_FATAL) ? uint32_t{MSG_PREFIX_FATAL} : 0;
    }
}

std::u16string prefix(DiagnosticCode code) {
    uint32_t n = prefix_number(code);
    const char16_t* t = n ? table_text(CODE_LIBRARY | n) : nullptr;
    return t ? format_inserts(t, {}) : std::u16string();
}

std::u16string fallback(DiagnosticCode code) {
    char buf[64];
    int n = std::snprintf(buf, sizeof buf, "*** No message for error 0x%X ***\n",
                          static_cast<unsigned>(code));
    return std::u16string(buf, buf + n);
}

// Fatal codes unwind uncounted (the export counts them); errors count.
void conclude(DiagnosticCode code) {
    diag_state.reported += 1;
    if (code & CODE_FATAL) throw FatalUnwind{};
    if ((code & SEVERITY_MASK) == SEVERITY_ERROR) compile_state.error_count += 1;
}

// ---- preprocessor report ----

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
    const char16_t* message = table_text(code & PP_MASK);
    if (!message) return fallback(code);
    std::u16string raw = prefix(code) + message;
    cut(&raw, PP_RAW_BUFFER);
    return raw;
}

// ---- script report ----

// The message for a script report code: the library's table, then the
// system's texts for a platform error number.
bool script_message(DiagnosticCode code, Args args, std::u16string* out) {
    DiagnosticCode id = code & SCRIPT_MASK;
    if (const char16_t* t = table_text(id)) {
        *out = format_inserts(t, as_span(args));
        return true;
    }
    if (id & CODE_LIBRARY) return false;
    std::u16string system = plat_system_message(id & SYSTEM_NUMBER_MASK);
    if (system.empty()) return false;
    *out = format_inserts(system, as_span(args));
    return true;
}

std::u16string script_text(DiagnosticCode code, Args args) {
    std::u16string message;
    if (!script_message(code, args, &message)) return fallback(code);
    std::u16string text = prefix(code) + message;
    cut(&text, SCRIPT_TEXT_BUFFER);
    return text;
}

} // namespace

DiagnosticCode report_pp_args(DiagnosticCode code, Args args) {
    if (tarn_error_callback callback = compile_state.error_callback) {
        std::u16string text = expand_pp(pp_raw_text(code), args);
        const char16_t* file = nullptr;
        uint32_t line = 0;
        if (!pp_location(&file, &line)) {
            file = nullptr;
            line = 0;
        }
        callback(severity_class(code), file, line, text.c_str());
    }
    conclude(code);
    return code & SEVERITY_MASK;
}

void report_args(DiagnosticCode code, Args args) {
    if ((code & SCRIPT_MASK) == 0) return;
    if (tarn_error_callback callback = compile_state.error_callback) {
        std::u16string text = script_text(code, args);
        uint32_t line = script_location.script_line;
        const char16_t* file = line ? script_location.script_file : nullptr;
        callback(severity_class(code), file, line, text.c_str());
    }
    conclude(code);
}

void report_at_source_args(DiagnosticCode code, Args args) {
    if (tarn_error_callback callback = compile_state.error_callback) {
        std::u16string text = script_text(code, args);
        const char16_t* file = nullptr;
        uint32_t line = 0;
        pp_location(&file, &line);
        callback(severity_class(code), file, line, text.c_str());
    }
    conclude(code);
}

std::u16string format_message_args(uint32_t number, Args args) {
    const char16_t* t = table_text(CODE_LIBRARY | number);
    return t ? format_inserts(t, as_span(args)) : std::u16string();
}

void send_info(const std::u16string& text) {
    if (compile_state.info_callback) compile_state.info_callback(text.c_str());
}

std::u16string diagnostic_text(DiagnosticCode code, Args args) {
    return script_text(code, args);
}

} // namespace tarn
