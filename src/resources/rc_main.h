// The body of one compilation or preprocessing run.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace tarn {

// Where a resource was defined, for the extended dialect's duplicate check.
struct DefinitionPlace {
    std::u16string file;
    uint32_t line = 0;
};

struct ResourcesState {
    std::u16string main_input;       // the script's path; resource files are found from it
    DefinitionPlace statement_place; // where the statement being compiled starts
    // Type, name and language of every resource written (extended dialect).
    std::unordered_map<std::u16string, DefinitionPlace> written;
};
extern ResourcesState resources_state;

// Runs inside the export's fatal-error frame. With preprocess_only set the
// preprocessed text goes to standard output and no statement is parsed.
void rc_main(const char16_t* input, const char16_t* output, bool preprocess_only);

// Every statement-level state to that of a just-loaded library.
void resources_reset();

} // namespace tarn
