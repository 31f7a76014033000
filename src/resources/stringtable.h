// The string-table collection: the entries of every STRINGTABLE statement of
// a compilation, written as blocks at its end.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "resfile/writer.h"
#include "support/flatmap.h"

namespace tarn {

// A block of 16 ids for one language: where each slot's text is kept, and
// the statement of the first string seen (its attributes are the block's).
struct StringBlock {
    uint32_t slots[16] = {}; // text offsets + 1; 0: an empty slot
    uint32_t statement = 0;
    uint16_t block_id = 0;
    bool duplicate = false;
    bool odd = false; // an odd count of units in its filled slots (zeros included)
};

struct StringTableState {
    std::vector<ResourceAttributes> statements; // each statement's attributes
    // In the order each first appears; a deque, as a growing vector would
    // hold its old and new storage at once.
    std::deque<StringBlock> blocks;
    // The texts, packed: a compilation may hold tens of thousands of
    // strings, and one allocation each costs more than the copying. Each is
    // a header (its unit count, whether a zero unit follows it and whether
    // its units are kept as bytes: all below 256, as script text mostly is),
    // then the units.
    std::vector<std::unique_ptr<uint8_t[]>> chunks; // of STRING_CHUNK_BYTES each
    std::vector<uint32_t> chunk_texts;              // each chunk's texts not yet written out
    size_t chunk_used = 0;
    uint64_t units = 0;                      // in every filled slot, zeros included
    FlatMap<uint32_t, uint32_t> block_index; // (block id, language) to its block
};
extern StringTableState string_tables;

// Writes every block; returns 0, a write failure (fatal) or the fatal
// duplicate-id code.
uint32_t flush_string_tables();
void string_tables_reset();

} // namespace tarn
