// The string-table collection: the entries of every STRINGTABLE statement of
// a compilation, written as blocks at its end.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "resfile/writer.h"

namespace tarn {

struct StringEntry {
    const char16_t* text = nullptr; // in the pool: length word, the units, a zero unit
    uint32_t statement = 0;         // the STRINGTABLE statement that held it
    uint16_t id = 0;
};

struct StringTableState {
    std::vector<ResourceAttributes> statements; // each statement's attributes
    std::vector<StringEntry> entries;           // every statement's, in script order
    // The texts, in chunks that never move: a compilation may hold tens of
    // thousands of strings, and one allocation each costs more than the
    // copying.
    std::vector<std::unique_ptr<char16_t[]>> chunks;
    size_t chunk_used = 0;
};
extern StringTableState string_tables;

// Writes every block; returns 0, a write failure (fatal) or the fatal
// duplicate-id code.
uint32_t flush_string_tables();
void string_tables_reset();

} // namespace tarn
