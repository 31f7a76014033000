// The preprocessor's report path: messages fetched raw and expanded with
// its own "%%t" style inserts (tokens, rows, strings, numbers), placed at the
// innermost source that is a file. Built on diag's pieces; it lives here
// because it reads the preprocessor's tokens and include stack.
#pragma once

#include <initializer_list>

#include "diag/report.h"

namespace tarn {

constexpr size_t PP_RAW_BUFFER = 256;  // prefix and raw text, preprocessor report
constexpr size_t PP_TEXT_BUFFER = 512; // expanded text, preprocessor report

// Preprocessor report: "%%t" token, "%%r" row from its cursor, "%%s"/"%%1"
// string, "%%d" number, "%%c" character. Location: the innermost source that
// is a file. Returns the severity bits of the code.
DiagnosticCode report_pp_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> DiagnosticCode report_pp(DiagnosticCode code, const A&... inserts) {
    return report_pp_args(code, {MsgArg(inserts)...});
}

// The script report's text (platform formatter inserts) at the
// preprocessor report's location: for such messages raised while the
// preprocessor reads a line, whose place the script lexer has not reached.
void report_at_source_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> void report_at_source(DiagnosticCode code, const A&... inserts) {
    report_at_source_args(code, {MsgArg(inserts)...});
}

} // namespace tarn
