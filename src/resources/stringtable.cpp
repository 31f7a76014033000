// STRINGTABLE: every statement adds its strings to one collection for the
// whole compilation; at the end the collection is cut into blocks of 16 ids
// per language, one RT_STRING resource each, in the order in which each
// (block, language) pair first appeared.
#include <unordered_map>
#include <vector>

#include "api/state.h"
#include "diag/report.h"
#include "resources/common.h"
#include "resources/stringtable.h"
#include "script/expr.h"

namespace tarn {

StringTableState string_tables;

namespace {

constexpr uint16_t STRINGTABLE_FLAGS = 0x1030;
constexpr uint32_t BLOCK_SLOTS = 16;

StringEntry make_entry(uint16_t id) {
    StringEntry e;
    e.block_id = uint32_t(id >> 4) + 1;
    e.index = id & 15u;
    uint16_t length = uint16_t(token.length + (compile_state.null_append ? 1 : 0));
    e.text.reserve(token.length + 2);
    e.text.push_back(length);
    e.text.append(token.text, token.length);
    e.text.push_back(0);
    return e;
}

uint64_t group_key(const StringEntry& e) {
    return (uint64_t(e.block_id) << 16) | e.attributes.language;
}

// The entries of each (block, language) pair, in script order.
std::unordered_map<uint64_t, std::vector<size_t>>
group_entries(const std::vector<StringEntry>& all) {
    std::unordered_map<uint64_t, std::vector<size_t>> groups;
    for (size_t i = 0; i < all.size(); ++i) groups[group_key(all[i])].push_back(i);
    return groups;
}

// A filled slot is its length word and that many units; an empty one a zero.
std::vector<uint8_t> block_data(const StringEntry* const slots[BLOCK_SLOTS]) {
    std::vector<uint8_t> data;
    for (uint32_t i = 0; i < BLOCK_SLOTS; ++i) {
        const StringEntry* e = slots[i];
        size_t units = e ? size_t(e->text[0]) + 1 : 1;
        for (size_t u = 0; u < units; ++u) {
            char16_t c = e ? (u < e->text.size() ? e->text[u] : 0) : 0;
            data.push_back(uint8_t(c));
            data.push_back(uint8_t(c >> 8));
        }
    }
    return data;
}

uint32_t write_block(const StringEntry& first, const StringEntry* const slots[BLOCK_SLOTS]) {
    std::vector<uint8_t> data = block_data(slots);
    uint32_t size = uint32_t(data.size());
    uint32_t e = write_resource_header(size, first.attributes, make_ordinal(RT_STRING),
                                       make_ordinal(uint16_t(first.block_id)));
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
    std::vector<StringEntry> local;
    do {
        uint16_t id = uint16_t(parse_expr16(true));
        accept(TK_COMMA);
        if (token.kind == TK_STRING) local.push_back(make_entry(id));
        expect(TK_STRING);
    } while (!accept(TK_END));
    for (StringEntry& e : local) {
        e.attributes = attributes;
        string_tables.entries.push_back(std::move(e));
    }
}

uint32_t flush_string_tables() {
    std::vector<StringEntry>& all = string_tables.entries;
    std::unordered_map<uint64_t, std::vector<size_t>> groups = group_entries(all);
    std::vector<bool> placed(all.size(), false);
    for (size_t i = 0; i < all.size(); ++i) {
        if (placed[i]) continue;
        const StringEntry* slots[BLOCK_SLOTS] = {};
        for (size_t j : groups[group_key(all[i])]) {
            if (slots[all[j].index]) return fatal_code(MSG_DUPLICATE_STRING_ID);
            slots[all[j].index] = &all[j];
            placed[j] = true;
        }
        if (uint32_t e = write_block(all[i], slots)) return e;
    }
    return 0;
}

void flush_string_tables_and_report() {
    report(flush_string_tables());
}

void string_tables_reset() {
    string_tables.entries.clear();
}

} // namespace tarn
