// The body of one compilation or preprocessing run.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/flatmap.h"

namespace tarn {

// Where a resource was defined, for the extended dialect's duplicate check.
struct DefinitionPlace {
    std::u16string file;
    uint32_t line = 0;
};

// A written resource's place: its file as an index into `written_files`.
struct WrittenPlace {
    uint32_t file = 0;
    uint32_t line = 0;
};

struct ResourcesState {
    std::u16string main_input;       // the script's path; resource files are found from it
    DefinitionPlace statement_place; // where the statement being compiled starts
    // Type, name and language of every resource written (extended dialect),
    // and the files they come from, a file once for each run of resources
    // from it: a resource costs no copy of its file's path.
    // Those whose type and name are both ordinals (most of them) by a 64-bit
    // key; the others by their units.
    FlatMap<uint64_t, WrittenPlace> written_ordinals;
    std::unordered_map<std::u16string, WrittenPlace> written;
    std::vector<std::u16string> written_files;
};
extern ResourcesState resources_state;

// Runs inside the export's fatal-error frame. With preprocess_only set the
// preprocessed text goes to standard output and no statement is parsed.
void rc_main(const char16_t* input, const char16_t* output, bool preprocess_only);

// Every statement-level state to that of a just-loaded library.
void resources_reset();

} // namespace tarn
