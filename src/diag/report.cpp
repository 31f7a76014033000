// The script compiler's report, and the pieces every report is made of. The
// script report goes through the platform formatter's rules and also finds
// the system's texts for platform error numbers; the preprocessor's report
// (cpp/report_pp.cpp) expands its own inserts from the same pieces. Both
// prefix the severity word, hand the text to the host, count errors and
// unwind on a fatal code.
#include "diag/report.h"

#include <cstdio>
#include <span>

#include "support/platform.h"
#include "support/state.h"

namespace tarn {

DiagState diag_state;
ScriptLocation script_location;

void diag_reset() {
    diag_state = DiagState{};
    diag_state.language = plat_user_language_swedish() ? Language::swedish : Language::english;
}

namespace {

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

} // namespace

std::u16string report_prefix(DiagnosticCode code) {
    uint32_t n = prefix_number(code);
    const char16_t* t = n ? message_text(CODE_LIBRARY | n) : nullptr;
    return t ? format_inserts(t, {}) : std::u16string();
}

std::u16string fallback_text(DiagnosticCode code) {
    char buf[64];
    int n = std::snprintf(buf, sizeof buf, "*** No message for error 0x%X ***\n",
                          static_cast<unsigned>(code));
    return std::u16string(buf, buf + n);
}

namespace {

// The script report's location is the script lexer's when it is handed
// over: for a kept one, where the script had come to when it took the text.
void deliver_script_report(DiagnosticCode code, const std::u16string& text) {
    uint32_t line = script_location.script_line;
    deliver_report(code, line ? script_location.script_file : nullptr, line, text);
}

void keep_report(DeferredEffect e, DiagnosticCode code, std::u16string text) {
    e.code = code;
    e.text = std::move(text);
    deferred.list->push_back(std::move(e));
    deferred.reported += 1;
    if (code & CODE_FATAL) throw FatalUnwind{}; // the read-ahead thread stops here
}

} // namespace

void deliver_report(DiagnosticCode code, const char16_t* file, uint32_t line,
                    const std::u16string& text) {
    if (deferred.list) {
        DeferredEffect e;
        e.has_file = file != nullptr;
        if (file) e.file = file;
        e.line = line;
        keep_report(std::move(e), code, text);
        return;
    }
    if (tarn_error_callback callback = compile_state.error_callback)
        callback(severity_class(code), file, line, text.c_str());
    conclude_report(code);
}

void deliver_effect(const DeferredEffect& e) {
    switch (e.kind) {
    case DeferredEffect::REPORT:
        deliver_report(e.code, e.file_or_null(), e.line, e.text);
        return;
    case DeferredEffect::SCRIPT_REPORT:
        deliver_script_report(e.code, e.text);
        return;
    case DeferredEffect::INCLUDE:
        record_include(e.file);
        return;
    }
}

uint32_t reports_so_far() {
    return deferred.list ? deferred.reported : diag_state.reported;
}

void conclude_report(DiagnosticCode code) {
    diag_state.reported += 1;
    if (code & CODE_FATAL) throw FatalUnwind{};
    if ((code & SEVERITY_MASK) == SEVERITY_ERROR) compile_state.error_count += 1;
}

const char16_t* message_text(uint32_t id) {
    return catalogue_text(id, diag_state.language);
}

namespace {

// ---- script report ----

// The message for a script report code: the library's table, then the
// system's texts for a platform error number.
bool script_message(DiagnosticCode code, Args args, std::u16string* out) {
    DiagnosticCode id = code & SCRIPT_MASK;
    if (const char16_t* t = message_text(id)) {
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
    if (!script_message(code, args, &message)) return fallback_text(code);
    std::u16string text = report_prefix(code) + message;
    cut(&text, SCRIPT_TEXT_BUFFER);
    return text;
}

} // namespace

void report_args(DiagnosticCode code, Args args) {
    if ((code & SCRIPT_MASK) == 0) return;
    std::u16string text;
    if (compile_state.error_callback) text = script_text(code, args);
    if (deferred.list) {
        DeferredEffect e;
        e.kind = DeferredEffect::SCRIPT_REPORT;
        keep_report(std::move(e), code, std::move(text));
        return;
    }
    deliver_script_report(code, text);
}

std::u16string format_message_args(uint32_t number, Args args) {
    const char16_t* t = message_text(CODE_LIBRARY | number);
    return t ? format_inserts(t, as_span(args)) : std::u16string();
}

void append_message_args(std::u16string& out, uint32_t number, Args args) {
    if (const char16_t* t = message_text(CODE_LIBRARY | number))
        append_inserts(out, t, as_span(args));
}

void send_info(const std::u16string& text) {
    if (compile_state.info_callback) compile_state.info_callback(text.c_str());
}

std::u16string diagnostic_text(DiagnosticCode code, Args args) {
    return script_text(code, args);
}

} // namespace tarn
