// The preprocessor's entry points for the rest of the library: load-time
// start-up, one run's set-up, the pull of preprocessed text, definitions from
// outside, the include path and the include search.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn {

// Every preprocessor state to that of a just-loaded library: closes what is
// still open and frees everything held (called before cpp_startup).
void cpp_reset();
// Load-time start-up: directive and built-in names, the include directory
// list ("." and the "include" environment variable), the lexer table, then
// "RC_INVOKED" and "_WIN32=1".
void cpp_startup();
// Closes every open source, innermost first.
void close_all_sources();

// One run's set-up: start time, main row, hideset table, push the main input
// (a missing file is reported fatal), first line marker.
void cpp_run_setup(const char16_t* input);
// Closes the outermost source at the end of a run.
void cpp_run_finish();

// The next piece of preprocessed text, at most max units, followed by a
// zero; it stays as it is until the next call or the end of the run. *n is
// 0 at the end.
const char16_t* lendPreprocessed(size_t max, size_t* n);
// The same, copied to dest; returns the units.
size_t readPreprocessed(char16_t* dest, size_t max);
// For a compile (not the preprocess-only run): a long script's text may be
// made on a thread of its own (read_ahead.cpp), which read_ahead_stop ends
// and waits for; every end of a compile calls it before anything else.
void read_ahead_allow();
void read_ahead_stop();

// define_symbol_w / undefine_symbol_w: kind 'D' (68) or 'U' (85).
void define_from_text(const char16_t* text, int kind);
void add_include_path(const char16_t* path);
void delete_standard_include_dirs();

// The include search; returns the found path, or the name as given.
// `current`, when not null, stands in for the current input's name in the
// first step: files named by resource statements are looked up from the
// main script, whatever file the preprocessor is reading ahead in.
std::u16string findInclude(const char16_t* name, bool angled, const char16_t* current = nullptr);

// Location for the preprocessor report: the innermost source backed by a
// file; false (and null, 0) when there is none.
bool pp_location(const char16_t** file, uint32_t* line);

} // namespace tarn
