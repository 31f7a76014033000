// tarn-res2coff: turns a compiled resource file (.res) into an x86-64 COFF
// object whose .rsrc section holds the resource directory of a PE image, so
// that the linker puts the resources into a DLL or program.
//
//   tarn-res2coff INPUT.res OUTPUT.obj
//
// The section holds, in this order: the directory tables (types, then the
// names of each type, then the languages of each name), the directory
// strings, the data entries, and the resource data, each piece 8-aligned.
// A data entry gives its data's address relative to the image, which only
// the linker knows: a relocation of type ADDR32NB against the section
// symbol fills it in.
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr uint16_t MACHINE_AMD64 = 0x8664;
constexpr uint32_t SECTION_FLAGS = 0x40000040; // initialized data, readable
constexpr uint16_t REL_AMD64_ADDR32NB = 3;
constexpr uint8_t SYM_CLASS_STATIC = 3;
constexpr uint32_t FILE_HEADER = 20, SECTION_HEADER = 40, RELOCATION = 10;
constexpr uint32_t DIRECTORY = 16, DIRECTORY_ENTRY = 8, DATA_ENTRY = 16;
constexpr uint32_t SUBDIRECTORY = 0x80000000, NAMED = 0x80000000;

using Units = std::u16string; // a name: 0xFFFF and an ordinal, or the name's units

// Named entries sort before numbered ones, as the directory requires.
struct Key {
    Units units;
    bool is_id() const { return units.size() == 2 && units[0] == 0xFFFF; }
    bool operator<(const Key& o) const {
        if (is_id() != o.is_id()) return !is_id();
        return units < o.units;
    }
};

using Languages = std::map<uint16_t, std::vector<uint8_t>>;
using Names = std::map<Key, Languages>;
using Types = std::map<Key, Names>;

struct Reader {
    const std::vector<uint8_t>& b;
    size_t at;
    bool ok = true;
    uint32_t u16() {
        if (at + 2 > b.size()) {
            ok = false;
            return 0;
        }
        at += 2;
        return uint32_t(b[at - 2] | b[at - 1] << 8);
    }
    uint32_t u32() {
        uint32_t low = u16();
        return low | u16() << 16;
    }
    Key name() {
        Key k;
        uint32_t first = u16();
        if (first == 0xFFFF) return Key{Units{0xFFFF, char16_t(u16())}};
        for (uint32_t c = first; ok && c; c = u16()) k.units += char16_t(c);
        return k;
    }
};

bool read_res(const std::vector<uint8_t>& file, Types& types) {
    for (size_t at = 0; at < file.size();) {
        Reader r{file, at};
        uint32_t data_size = r.u32(), header_size = r.u32();
        Key type = r.name(), name = r.name();
        r.at = at + header_size - 10; // language, version and characteristics follow
        uint16_t language = uint16_t(r.u16());
        size_t data = at + header_size;
        if (!r.ok || header_size < 32 || data + data_size > file.size()) return false;
        bool leading = data_size == 0 && type.is_id() && type.units[1] == 0;
        if (!leading) {
            Languages& languages = types[type][name];
            if (languages.count(language)) return false; // the same resource twice
            languages[language].assign(file.begin() + long(data),
                                       file.begin() + long(data + data_size));
        }
        at = (data + data_size + 3) / 4 * 4;
    }
    return true;
}

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
    void align(size_t n) {
        while (bytes.size() % n) u8(0);
    }
    uint32_t size() const { return uint32_t(bytes.size()); }
};

struct Section {
    Out out;
    std::vector<uint32_t> relocations; // offsets of the data entries' addresses
};

// Lays out the section: the tables are sized first, which places the
// strings, the data entries and the data after them.
Section build_section(const Types& types) {
    uint32_t tables = DIRECTORY + DIRECTORY_ENTRY * uint32_t(types.size());
    uint32_t string_bytes = 0, leaves = 0;
    auto count_name = [&](const Key& k) {
        if (!k.is_id()) string_bytes += 2 + 2 * uint32_t(k.units.size());
    };
    for (const auto& [type, names] : types) {
        count_name(type);
        tables += DIRECTORY + DIRECTORY_ENTRY * uint32_t(names.size());
        for (const auto& [name, languages] : names) {
            count_name(name);
            tables += DIRECTORY + DIRECTORY_ENTRY * uint32_t(languages.size());
            leaves += uint32_t(languages.size());
        }
    }
    uint32_t strings = tables;
    uint32_t entries = (strings + string_bytes + 7) / 8 * 8;
    uint32_t data = entries + DATA_ENTRY * leaves;

    Section s;
    Out dirs, strs, ents, blobs;
    uint32_t next_table = DIRECTORY + DIRECTORY_ENTRY * uint32_t(types.size());
    auto name_field = [&](const Key& k) {
        if (k.is_id()) return uint32_t(k.units[1]);
        uint32_t offset = strings + strs.size();
        strs.u16(uint32_t(k.units.size()));
        for (char16_t c : k.units) strs.u16(c);
        return NAMED | offset;
    };
    auto table_header = [&](size_t named, size_t ids) {
        dirs.u32(0);
        dirs.u32(0);
        dirs.u16(0);
        dirs.u16(0);
        dirs.u16(uint32_t(named));
        dirs.u16(uint32_t(ids));
    };
    auto split = [](const auto& map) {
        size_t named = 0;
        for (const auto& [k, v] : map) named += !k.is_id();
        return std::pair<size_t, size_t>(named, map.size() - named);
    };
    // Tables breadth first: root, the name tables, the language tables.
    auto [type_named, type_ids] = split(types);
    table_header(type_named, type_ids);
    for (const auto& [type, names] : types) {
        dirs.u32(name_field(type));
        dirs.u32(SUBDIRECTORY | next_table);
        next_table += DIRECTORY + DIRECTORY_ENTRY * uint32_t(names.size());
    }
    for (const auto& [type, names] : types) {
        auto [named, ids] = split(names);
        table_header(named, ids);
        for (const auto& [name, languages] : names) {
            dirs.u32(name_field(name));
            dirs.u32(SUBDIRECTORY | next_table);
            next_table += DIRECTORY + DIRECTORY_ENTRY * uint32_t(languages.size());
        }
    }
    uint32_t leaf = 0;
    for (const auto& [type, names] : types) {
        for (const auto& [name, languages] : names) {
            table_header(0, languages.size());
            for (const auto& [language, bytes] : languages) {
                dirs.u32(language);
                dirs.u32(entries + DATA_ENTRY * leaf++);
                s.relocations.push_back(entries + ents.size());
                ents.u32(data + blobs.size()); // the linker adds the section's address
                ents.u32(uint32_t(bytes.size()));
                ents.u32(0); // code page
                ents.u32(0);
                blobs.bytes.insert(blobs.bytes.end(), bytes.begin(), bytes.end());
                blobs.align(8);
            }
        }
    }
    s.out.bytes = dirs.bytes;
    s.out.bytes.insert(s.out.bytes.end(), strs.bytes.begin(), strs.bytes.end());
    s.out.align(8);
    s.out.bytes.insert(s.out.bytes.end(), ents.bytes.begin(), ents.bytes.end());
    s.out.bytes.insert(s.out.bytes.end(), blobs.bytes.begin(), blobs.bytes.end());
    return s;
}

std::vector<uint8_t> coff_object(const Section& s) {
    uint32_t raw = FILE_HEADER + SECTION_HEADER;
    uint32_t relocations = raw + s.out.size();
    uint32_t symbols = relocations + RELOCATION * uint32_t(s.relocations.size());
    Out o;
    o.u16(MACHINE_AMD64);
    o.u16(1); // sections
    o.u32(0); // time stamp
    o.u32(symbols);
    o.u32(2); // the section symbol and its auxiliary record
    o.u16(0); // no optional header
    o.u16(0);
    for (char c : std::string(".rsrc\0\0\0", 8)) o.u8(uint8_t(c));
    o.u32(0); // virtual size
    o.u32(0); // virtual address
    o.u32(s.out.size());
    o.u32(raw);
    o.u32(relocations);
    o.u32(0); // line numbers
    o.u16(uint32_t(s.relocations.size()));
    o.u16(0);
    o.u32(SECTION_FLAGS);
    o.bytes.insert(o.bytes.end(), s.out.bytes.begin(), s.out.bytes.end());
    for (uint32_t at : s.relocations) {
        o.u32(at);
        o.u32(0); // symbol 0: the section
        o.u16(REL_AMD64_ADDR32NB);
    }
    for (char c : std::string(".rsrc\0\0\0", 8)) o.u8(uint8_t(c));
    o.u32(0); // value
    o.u16(1); // section number
    o.u16(0); // type
    o.u8(SYM_CLASS_STATIC);
    o.u8(1); // one auxiliary record: the section's definition
    o.u32(s.out.size());
    o.u16(uint32_t(s.relocations.size()));
    o.u16(0); // line numbers
    o.u32(0); // check sum
    o.u16(0); // number
    o.u8(0);  // selection
    o.u8(0);
    o.u16(0);
    o.u32(4); // an empty string table
    return o.bytes;
}

bool read_file(const char* path, std::vector<uint8_t>& bytes) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    uint8_t buffer[4096];
    while (size_t n = std::fread(buffer, 1, sizeof buffer, f))
        bytes.insert(bytes.end(), buffer, buffer + n);
    bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

bool write_file(const char* path, const std::vector<uint8_t>& bytes) {
    std::FILE* f = std::fopen(path, "wb");
    if (!f) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: tarn-res2coff INPUT.res OUTPUT.obj\n");
        return 2;
    }
    std::vector<uint8_t> res;
    Types types;
    if (!read_file(argv[1], res) || !read_res(res, types)) {
        std::fprintf(stderr, "tarn-res2coff: %s is not a readable resource file\n", argv[1]);
        return 1;
    }
    if (!write_file(argv[2], coff_object(build_section(types)))) {
        std::fprintf(stderr, "tarn-res2coff: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
