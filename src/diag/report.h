// The two report paths and information lines. A fatal report throws
// FatalUnwind, which only the export boundary catches.
#pragma once

#include "diag/catalogue.h"
#include "diag/codes.h"
#include "diag/format.h"
#include "support/state.h"

#include <initializer_list>
#include <string>

namespace tarn {

// Thrown by a fatal diagnostic (and by an abort); caught at the export.
struct FatalUnwind {};

constexpr size_t SCRIPT_TEXT_BUFFER = 512; // script report

struct DiagState {
    Language language = Language::english; // chosen at load from the user's language
    uint32_t reported = 0;                 // every diagnostic so far, of any severity
};
extern DiagState diag_state;

void diag_reset();

constexpr size_t SCRIPT_FILE_UNITS = 260;

// Where a script report points: kept by the script lexer from the line
// markers of the preprocessed text.
struct ScriptLocation {
    char16_t script_file[SCRIPT_FILE_UNITS] = {}; // named by the last line marker
    uint32_t script_line = 0;
    int32_t in_script = 0; // 0 while the text comes from a .h or .c file
};
extern ScriptLocation script_location;

// The pieces the preprocessor's own report path (cpp/report_pp.h) is made
// of: the severity word, the text for a code without a message, the
// message's raw text in the user's language, and the end of every report
// (count an error, unwind on a fatal code; the export counts fatal ones).
std::u16string report_prefix(DiagnosticCode code);
std::u16string fallback_text(DiagnosticCode code);
const char16_t* message_text(uint32_t id);
void conclude_report(DiagnosticCode code);

// Hands a report's text to the host's error callback and concludes it; on
// the preprocessor's read-ahead thread, keeps it for the main thread instead
// (support/state.h, DeferredEffect). A fatal code unwinds either thread.
void deliver_report(DiagnosticCode code, const char16_t* file, uint32_t line,
                    const std::u16string& text);
// On the main thread: what the read-ahead thread kept, as if done now.
void deliver_effect(const DeferredEffect& e);
// Every report so far, as the thread that asks has seen them: guarded
// headers and the saved prelude are kept only when none came meanwhile.
uint32_t reports_so_far();

// Script report: platform formatter inserts; location from the script lexer.
// A code whose (code & 0x20003FFF) is 0 reports nothing.
void report_args(DiagnosticCode code, std::initializer_list<MsgArg> args);
template <class... A> void report(DiagnosticCode code, const A&... inserts) {
    report_args(code, {MsgArg(inserts)...});
}

// Formats a catalogue message into a new string (empty when it has none).
std::u16string format_message_args(uint32_t number, std::initializer_list<MsgArg> args);
template <class... A> std::u16string format_message(uint32_t number, const A&... inserts) {
    return format_message_args(number, {MsgArg(inserts)...});
}

// The same, appended to `out`, for lines built of several messages.
void append_message_args(std::u16string& out, uint32_t number, std::initializer_list<MsgArg> args);
template <class... A>
void append_message(std::u16string& out, uint32_t number, const A&... inserts) {
    append_message_args(out, number, {MsgArg(inserts)...});
}

// Hands a line to the information callback, if one is set.
void send_info(const std::u16string& text);

// Text of a code for the host, with its severity prefix, as the script report
// builds it (used where no script location applies, e.g. at the boundary).
std::u16string diagnostic_text(DiagnosticCode code, std::initializer_list<MsgArg> args);

} // namespace tarn
