// The string-table collection: the entries of every STRINGTABLE statement of
// a compilation, written as blocks at its end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resfile/writer.h"

namespace tarn {

struct StringEntry {
    ResourceAttributes attributes; // of the statement that held the string
    uint32_t block_id = 0;         // ((id & 0xFFFF) >> 4) + 1
    uint32_t index = 0;            // id & 15
    std::u16string text;           // length word, the units, a zero unit
};

struct StringTableState {
    std::vector<StringEntry> entries; // every statement's, in script order
};
extern StringTableState string_tables;

// Writes every block; returns 0, a write failure (fatal) or the fatal
// duplicate-id code.
uint32_t flush_string_tables();
void string_tables_reset();

} // namespace tarn
