// STRINGTABLE: every statement adds its strings to one collection for the
// whole compilation; at the end the collection is cut into blocks of 16 ids
// per language, one RT_STRING resource each, in the order in which each
// (block, language) pair first appeared.
#include <algorithm>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "resources/stringtable.h"
#include "script/expr.h"
#include "support/state.h"

namespace tarn {

StringTableState string_tables;

namespace {

constexpr uint16_t STRINGTABLE_FLAGS = 0x1030;
constexpr uint32_t BLOCK_SLOTS = 16;
constexpr size_t CHUNK_UNITS = 64 * 1024; // more than a string's units, as a rule

// The current string as a length word, its units and a zero unit. A string
// longer than a chunk (only the extended dialect reads one) gets a chunk of
// its own, which counts as full.
const char16_t* keep_text() {
    StringTableState& st = string_tables;
    size_t units = token.length + 2;
    if (units > CHUNK_UNITS) {
        st.chunks.emplace_back(new char16_t[units]);
        st.chunk_used = CHUNK_UNITS;
    } else if (st.chunks.empty() || st.chunk_used + units > CHUNK_UNITS) {
        st.chunks.emplace_back(new char16_t[CHUNK_UNITS]);
        st.chunk_used = 0;
    }
    char16_t* text = st.chunks.back().get() + (units > CHUNK_UNITS ? 0 : st.chunk_used);
    if (units <= CHUNK_UNITS) st.chunk_used += units;
    text[0] = char16_t(token.length + (compile_state.null_append ? 1 : 0));
    std::copy(token.text.data(), token.text.data() + token.length, text + 1);
    text[token.length + 1] = 0;
    return text;
}

uint32_t block_id(const StringEntry& e) {
    return uint32_t(e.id >> 4) + 1;
}

// One block: a (block id, language) pair and its 16 slots.
struct Block {
    const StringEntry* first = nullptr; // the first entry seen; gives the attributes
    const char16_t* slots[BLOCK_SLOTS] = {};
    bool duplicate = false;
};

// The blocks in the order in which each pair first appears.
std::vector<Block> gather_blocks() {
    const StringTableState& st = string_tables;
    std::vector<Block> blocks;
    std::unordered_map<uint64_t, uint32_t> index;
    index.reserve(st.entries.size() / 8 + 1);
    for (const StringEntry& e : st.entries) {
        uint64_t key = (uint64_t(block_id(e)) << 16) | st.statements[e.statement].language;
        auto [at, added] = index.try_emplace(key, uint32_t(blocks.size()));
        if (added) blocks.emplace_back().first = &e;
        Block& b = blocks[at->second];
        const char16_t*& slot = b.slots[e.id & 15u];
        if (slot) b.duplicate = true;
        slot = e.text;
    }
    return blocks;
}

// A filled slot is its length word and that many units (the text's zero
// when a null is appended); an empty one a zero length word.
uint32_t write_block(const Block& b, std::vector<uint8_t>& data) {
    // Sized once and copied a slot at a time: the units are kept in the
    // file's own (little-endian) order.
    static_assert(std::endian::native == std::endian::little);
    size_t total = 0;
    for (const char16_t* text : b.slots) total += text ? size_t(text[0]) + 1 : 1;
    data.resize(total * sizeof(char16_t));
    uint8_t* at = data.data();
    for (const char16_t* text : b.slots) {
        if (!text) {
            at[0] = at[1] = 0;
            at += 2;
            continue;
        }
        size_t bytes = (size_t(text[0]) + 1) * sizeof(char16_t);
        std::memcpy(at, text, bytes);
        at += bytes;
    }
    uint32_t size = uint32_t(data.size());
    const ResourceAttributes& attributes = string_tables.statements[b.first->statement];
    uint32_t e = write_header_checked(size, attributes, make_ordinal(RT_STRING),
                                      make_ordinal(uint16_t(block_id(*b.first))));
    if (!e) e = write_bytes(data.data(), size);
    if (!e) e = pad_to_4(output_position());
    return e ? fatal_system_code(e) : 0;
}

} // namespace

void compile_string_table() {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(STRINGTABLE_FLAGS);
    parse_optional_statements(attributes, nullptr);
    show_writing(u"STRINGTABLE", nullptr, &attributes);
    expect(TK_BEGIN);
    StringTableState& st = string_tables;
    uint32_t statement = uint32_t(st.statements.size());
    st.statements.push_back(attributes);
    do {
        uint16_t id = uint16_t(parse_expr16(true));
        accept(TK_COMMA);
        if (is_string(token.kind) && fits_16(token.length + (compile_state.null_append ? 1 : 0),
                                             u"STRINGTABLE string length"))
            st.entries.push_back({keep_text(), statement, id});
        expect(TK_STRING);
    } while (!accept(TK_END));
}

uint32_t flush_string_tables() {
    std::vector<uint8_t> data;
    for (const Block& b : gather_blocks()) {
        if (b.duplicate) return fatal_code(MSG_DUPLICATE_STRING_ID);
        if (uint32_t e = write_block(b, data)) return e;
    }
    return 0;
}

void flush_string_tables_and_report() {
    report(flush_string_tables());
}

void string_tables_reset() {
    string_tables = StringTableState{};
}

} // namespace tarn
