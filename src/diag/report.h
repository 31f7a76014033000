// The two report paths and information lines. A fatal report throws
// FatalUnwind, which only the export boundary catches.
#pragma once

#include "diag/catalogue.h"
#include "diag/codes.h"
#include "diag/format.h"

#include <initializer_list>
#include <string>

namespace tarn {

// Thrown by a fatal diagnostic (and by an abort); caught at the export.
struct FatalUnwind {};

constexpr size_t PP_RAW_BUFFER = 256;      // prefix and raw text, preprocessor report
constexpr size_t PP_TEXT_BUFFER = 512;     // expanded text, preprocessor report
constexpr size_t SCRIPT_TEXT_BUFFER = 512; // script report

struct DiagState {
    Language language = Language::english; // chosen at load from the user's language
    uint32_t reported = 0;                 // every diagnostic so far, of any severity
};
extern DiagState diag_state;

void diag_reset();

// Preprocessor report: "%%t" token, "%%r" row from its cursor, "%%s"/"%%1"
// string, "%%d" number, "%%c" character. Location: the innermost source that
// is a file. Returns the severity bits of the code.
DiagnosticCode report_pp_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> DiagnosticCode report_pp(DiagnosticCode code, const A&... inserts) {
    return report_pp_args(code, {MsgArg(inserts)...});
}

// Script report: platform formatter inserts; location from the script lexer.
// A code whose (code & 0x20003FFF) is 0 reports nothing.
void report_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> void report(DiagnosticCode code, const A&... inserts) {
    report_args(code, {MsgArg(inserts)...});
}

// The script report's text (platform formatter inserts) at the
// preprocessor report's location: for such messages raised while the
// preprocessor reads a line, whose place the script lexer has not reached.
void report_at_source_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> void report_at_source(DiagnosticCode code, const A&... inserts) {
    report_at_source_args(code, {MsgArg(inserts)...});
}

// Formats a catalogue message into a new string (empty when it has none).
std::u16string format_message_args(uint32_t number, std::initializer_list<MsgArg> args);
template <class... A> std::u16string format_message(uint32_t number, const A&... inserts) {
    return format_message_args(number, {MsgArg(inserts)...});
}

// Hands a line to the information callback, if one is set.
void send_info(const std::u16string& text);

// Text of a code for the host, with its severity prefix, as the script report
// builds it (used where no script location applies, e.g. at the boundary).
std::u16string diagnostic_text(DiagnosticCode code, std::initializer_list<MsgArg> args);

} // namespace tarn
