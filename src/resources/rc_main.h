// The body of one compilation or preprocessing run.
#pragma once

#include <string>

namespace tarn {

struct ResourcesState {
    std::u16string main_input; // the script's path; resource files are found from it
};
extern ResourcesState resources_state;

// Runs inside the export's fatal-error frame. With preprocess_only set the
// preprocessed text goes to standard output and no statement is parsed.
void rc_main(const char16_t* input, const char16_t* output, bool preprocess_only);

// Every statement-level state to that of a just-loaded library.
void resources_reset();

} // namespace tarn
