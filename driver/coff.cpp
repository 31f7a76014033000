// The COFF object writer. The section holds, in this order: the directory
// tables (the types, then the names of each type, then the languages of each
// name: breadth first), the directory strings, the data entries and the
// resource data, each piece 8-aligned. A data entry holds its data's offset
// in the section; an image-relative relocation against the section symbol
// turns it into the data's address in the image.
#include "coff.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "dump.h"
#include "utf.h"

namespace tarn_driver {

namespace {

constexpr uint32_t FILE_HEADER = 20, SECTION_HEADER = 40, RELOCATION = 10, SYMBOL = 18;
constexpr uint32_t DIRECTORY = 16, DIRECTORY_ENTRY = 8, DATA_ENTRY = 16;
constexpr uint32_t SUBDIRECTORY = 0x80000000, NAMED = 0x80000000;
// Initialized data, readable, 8-aligned: the alignment of the pieces inside.
constexpr uint32_t SECTION_FLAGS = 0x40000040 | 0x00400000;
// More relocations than the header's 16-bit count holds: the first one
// carries the real count instead.
constexpr uint32_t RELOCATIONS_OVERFLOW = 0x01000000;
constexpr uint32_t MOST_RELOCATIONS = 0xFFFE;
constexpr uint8_t CLASS_STATIC = 3;
constexpr uint16_t SECTION_ABSOLUTE = 0xFFFF;
constexpr uint32_t MOST_NAME_UNITS = 0xFFFF; // a directory string's length is 16-bit
constexpr uint64_t MOST_SECTION_BYTES = 0x7FFFFFFF; // offsets share a word with a flag bit

const struct {
    Machine machine;
    uint16_t code;
    uint16_t addr32nb; // the image-relative 32-bit relocation
    bool safe_seh_mark;
    std::u16string_view names[2];
} MACHINES[] = {
    {Machine::x64, 0x8664, 3, false, {u"x64", u"amd64"}},
    // x86 linkers want every object to say it is safe for structured
    // exception handling (it is: it has no handlers).
    {Machine::x86, 0x014C, 7, true, {u"x86", u"i386"}},
    {Machine::arm64, 0xAA64, 2, false, {u"arm64", u"aarch64"}},
};

struct Out {
    std::vector<uint8_t> bytes;
    void u8(uint8_t v) { bytes.push_back(v); }
    void u16(uint32_t v) {
        u8(uint8_t(v));
        u8(uint8_t(v >> 8));
    }
    void u32(uint32_t v) {
        u16(v & 0xFFFF);
        u16(v >> 16);
    }
    void name8(std::string_view name) { // a short name, zero-filled to 8 bytes
        for (size_t i = 0; i < 8; ++i) u8(i < name.size() ? uint8_t(name[i]) : 0);
    }
    void append(std::span<const uint8_t> b) { bytes.insert(bytes.end(), b.begin(), b.end()); }
    void align(size_t n) {
        while (bytes.size() % n) u8(0);
    }
    uint32_t size() const { return uint32_t(bytes.size()); }
};

// Directory order: named entries before numbered ones, names by their
// units, numbers by value.
int compare(const ResName& a, const ResName& b) {
    if (a.is_ordinal != b.is_ordinal) return a.is_ordinal ? 1 : -1;
    if (a.is_ordinal) return int(a.ordinal) - int(b.ordinal);
    return a.text.compare(b.text);
}

struct Leaf {
    uint16_t language;
    const ResEntry* entry;
};
struct NameNode {
    const ResName* name;
    std::vector<Leaf> languages;
};
struct TypeNode {
    const ResName* type;
    std::vector<NameNode> names;
};

std::string describe(const ResEntry& e) {
    char language[8];
    std::snprintf(language, sizeof language, "0x%04X", e.language);
    return cat({"type ", type_text(e.type), ", name ", name_text(e.name), ", language ",
                language});
}

bool build_tree(const std::vector<ResEntry>& entries, std::vector<TypeNode>* types,
                std::string* why) {
    std::vector<const ResEntry*> sorted;
    for (const ResEntry& e : entries) sorted.push_back(&e);
    std::stable_sort(sorted.begin(), sorted.end(), [](const ResEntry* a, const ResEntry* b) {
        if (int c = compare(a->type, b->type)) return c < 0;
        if (int c = compare(a->name, b->name)) return c < 0;
        return a->language < b->language;
    });
    for (const ResEntry* e : sorted) {
        for (const ResName* n : {&e->type, &e->name})
            if (!n->is_ordinal && n->text.size() > MOST_NAME_UNITS) {
                *why = cat({"a name longer than 65535 units (", describe(*e), ")"});
                return false;
            }
        if (types->empty() || compare(*types->back().type, e->type) != 0)
            types->push_back({&e->type, {}});
        std::vector<NameNode>& names = types->back().names;
        if (names.empty() || compare(*names.back().name, e->name) != 0)
            names.push_back({&e->name, {}});
        std::vector<Leaf>& languages = names.back().languages;
        if (!languages.empty() && languages.back().language == e->language) {
            *why = cat({"the resource appears twice (", describe(*e), ")"});
            return false;
        }
        languages.push_back({e->language, e});
    }
    return true;
}

struct Section {
    Out out;
    std::vector<uint32_t> relocations; // offsets of the data entries' addresses
};

uint32_t table_size(size_t entries) {
    return DIRECTORY + DIRECTORY_ENTRY * uint32_t(entries);
}

// Sizes the tables and strings first, which places the data entries and
// the data after them.
bool build_section(const std::vector<TypeNode>& types, std::span<const uint8_t> res, Section* s,
                   std::string* why) {
    uint64_t tables = table_size(types.size()), string_bytes = 0, leaves = 0, data_bytes = 0;
    auto count_name = [&](const ResName& n) {
        if (!n.is_ordinal) string_bytes += 2 + 2 * uint64_t(n.text.size());
    };
    for (const TypeNode& t : types) {
        count_name(*t.type);
        tables += table_size(t.names.size());
        for (const NameNode& n : t.names) {
            count_name(*n.name);
            tables += table_size(n.languages.size());
            leaves += n.languages.size();
            for (const Leaf& l : n.languages) data_bytes += (uint64_t(l.entry->data_size) + 7) / 8 * 8;
        }
    }
    uint64_t strings = tables;
    uint64_t entries = (strings + string_bytes + 7) / 8 * 8;
    uint64_t data = entries + DATA_ENTRY * leaves;
    if (data + data_bytes > MOST_SECTION_BYTES) {
        *why = "the resources are too large for an object (2 GiB at most)";
        return false;
    }

    Out dirs, strs, ents, blobs;
    uint32_t next_table = table_size(types.size());
    auto name_field = [&](const ResName& n) {
        if (n.is_ordinal) return uint32_t(n.ordinal);
        uint32_t offset = uint32_t(strings) + strs.size();
        strs.u16(uint32_t(n.text.size()));
        for (char16_t c : n.text) strs.u16(c);
        return NAMED | offset;
    };
    auto table_header = [&](const auto& rows, auto is_named) {
        size_t named = size_t(std::count_if(rows.begin(), rows.end(), is_named));
        dirs.u32(0); // characteristics
        dirs.u32(0); // time stamp: none, for reproducible output
        dirs.u32(0); // major and minor version
        dirs.u16(uint32_t(named));
        dirs.u16(uint32_t(rows.size() - named));
    };
    table_header(types, [](const TypeNode& t) { return !t.type->is_ordinal; });
    for (const TypeNode& t : types) {
        dirs.u32(name_field(*t.type));
        dirs.u32(SUBDIRECTORY | next_table);
        next_table += table_size(t.names.size());
    }
    for (const TypeNode& t : types) {
        table_header(t.names, [](const NameNode& n) { return !n.name->is_ordinal; });
        for (const NameNode& n : t.names) {
            dirs.u32(name_field(*n.name));
            dirs.u32(SUBDIRECTORY | next_table);
            next_table += table_size(n.languages.size());
        }
    }
    for (const TypeNode& t : types) {
        for (const NameNode& n : t.names) {
            table_header(n.languages, [](const Leaf&) { return false; });
            for (const Leaf& l : n.languages) {
                dirs.u32(l.language);
                dirs.u32(uint32_t(entries) + ents.size());
                s->relocations.push_back(uint32_t(entries) + ents.size());
                ents.u32(uint32_t(data) + blobs.size()); // the linker adds the image address
                ents.u32(l.entry->data_size);
                ents.u32(0); // code page
                ents.u32(0);
                blobs.append(res.subspan(size_t(l.entry->data_offset), l.entry->data_size));
                blobs.align(8);
            }
        }
    }
    s->out = std::move(dirs);
    s->out.append(strs.bytes);
    s->out.align(8);
    s->out.append(ents.bytes);
    s->out.append(blobs.bytes);
    return true;
}

std::vector<uint8_t> coff_object(const Section& s, Machine machine, uint32_t timestamp) {
    const auto& m = *std::find_if(std::begin(MACHINES), std::end(MACHINES),
                                  [&](const auto& row) { return row.machine == machine; });
    size_t count = s.relocations.size();
    bool overflow = count > MOST_RELOCATIONS;
    uint32_t records = uint32_t(count) + (overflow ? 1 : 0);
    uint32_t raw = FILE_HEADER + SECTION_HEADER;
    uint32_t relocations = raw + s.out.size();
    uint32_t symbols = relocations + RELOCATION * records;
    uint32_t symbol_count = m.safe_seh_mark ? 3 : 2;
    uint16_t shown_count = uint16_t(overflow ? 0xFFFF : count);

    Out o;
    o.bytes.reserve(symbols + SYMBOL * symbol_count + 4);
    o.u16(m.code);
    o.u16(1); // sections
    o.u32(timestamp);
    o.u32(symbols);
    o.u32(symbol_count);
    o.u16(0); // no optional header
    o.u16(0); // characteristics
    o.name8(".rsrc");
    o.u32(0); // virtual size
    o.u32(0); // virtual address
    o.u32(s.out.size());
    o.u32(raw);
    o.u32(records ? relocations : 0);
    o.u32(0); // line numbers
    o.u16(shown_count);
    o.u16(0);
    o.u32(SECTION_FLAGS | (overflow ? RELOCATIONS_OVERFLOW : 0));
    o.append(s.out.bytes);
    if (overflow) {
        o.u32(records); // the count, this record included
        o.u32(0);
        o.u16(0);
    }
    for (uint32_t at : s.relocations) {
        o.u32(at);
        o.u32(0); // symbol 0: the section
        o.u16(m.addr32nb);
    }
    o.name8(".rsrc");
    o.u32(0); // value
    o.u16(1); // section number
    o.u16(0); // type
    o.u8(CLASS_STATIC);
    o.u8(1); // one auxiliary record: the section's definition
    o.u32(s.out.size());
    o.u16(shown_count);
    o.u16(0); // line numbers
    o.u32(0); // check sum
    o.u16(0); // associated section
    o.u8(0);  // selection
    o.u8(0);
    o.u16(0);
    if (m.safe_seh_mark) {
        o.name8("@feat.00");
        o.u32(1); // bit 0: safe exception handlers
        o.u16(SECTION_ABSOLUTE);
        o.u16(0);
        o.u8(CLASS_STATIC);
        o.u8(0);
    }
    o.u32(4); // an empty string table: its size alone
    return o.bytes;
}

char16_t lower(char16_t c) {
    return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c;
}

bool same_ignoring_case(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

} // namespace

bool res_to_coff(const std::vector<uint8_t>& res, Machine machine, uint32_t timestamp,
                 std::vector<uint8_t>* object, std::string* why) {
    ResFile file = parse_res(res);
    if (!file.ok) {
        char offset[32];
        std::snprintf(offset, sizeof offset, "0x%llX",
                      static_cast<unsigned long long>(file.error_offset));
        *why = cat({file.why, " at offset ", offset});
        return false;
    }
    std::vector<TypeNode> types;
    Section section;
    if (!build_tree(file.entries, &types, why) || !build_section(types, res, &section, why))
        return false;
    *object = coff_object(section, machine, timestamp);
    return true;
}

bool parse_machine(std::u16string_view text, Machine* machine) {
    for (const auto& m : MACHINES)
        for (std::u16string_view name : m.names)
            if (same_ignoring_case(text, name)) {
                *machine = m.machine;
                return true;
            }
    return false;
}

} // namespace tarn_driver
