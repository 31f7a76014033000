// VERSIONINFO: the fixed version block, the StringFileInfo tables and the
// VarFileInfo values, parsed into memory, measured, and written as one tree
// of nodes (length, value length, type, key, value).
#include <string>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr uint32_t FIXED_SIGNATURE = 0xFEEF04BD;
constexpr uint32_t FIXED_STRUCTURE_VERSION = 0x00010000;
constexpr uint16_t FIXED_INFO_SIZE = 52;
constexpr uint32_t ROOT_HEADER = 40; // node header, "VS_VERSION_INFO", padding
constexpr uint32_t STRING_FILE_INFO_HEADER = 36;
constexpr uint32_t VAR_FILE_INFO_HEADER = 32;
constexpr uint32_t NODE_HEADER = 6;
constexpr size_t BLOCK_NAME_UNITS = 15;
constexpr uint16_t NODE_BINARY = 0, NODE_TEXT = 1;

// FixedFileInfo fields in file order, from the signature on.
enum FixedField {
    F_SIGNATURE,
    F_STRUCTURE_VERSION,
    F_FILE_VERSION_HIGH,
    F_FILE_VERSION_LOW,
    F_PRODUCT_VERSION_HIGH,
    F_PRODUCT_VERSION_LOW,
    F_FLAGS_MASK,
    F_FLAGS,
    F_OS,
    F_TYPE,
    F_SUBTYPE,
    F_DATE_HIGH,
    F_DATE_LOW,
    FIXED_FIELDS
};

struct FixedStatement {
    int32_t kind;
    FixedField field;
    bool is_version; // four 16-bit parts into two fields
};

constexpr FixedStatement fixed_statements[] = {
    {TK_FILEFLAGSMASK, F_FLAGS_MASK, false},
    {TK_FILEFLAGS, F_FLAGS, false},
    {TK_FILEOS, F_OS, false},
    {TK_FILETYPE, F_TYPE, false},
    {TK_FILESUBTYPE, F_SUBTYPE, false},
    {TK_FILEVERSION, F_FILE_VERSION_HIGH, true},
    {TK_PRODUCTVERSION, F_PRODUCT_VERSION_HIGH, true},
};

struct StringPair {
    std::u16string key, value;
};

struct StringTableBlock {
    std::u16string name;
    std::vector<StringPair> pairs;
};

struct VarEntry {
    std::u16string key;
    std::vector<uint32_t> values;
};

// One BLOCK "StringFileInfo" or "VarFileInfo": its blocks or entries are
// `count` of the lists from `first`. The extended dialect writes each in
// script order; the design writes all string tables, then all vars.
struct TopBlock {
    bool is_var;
    size_t first, count;
};

struct VersionInfo {
    uint32_t fixed[FIXED_FIELDS] = {FIXED_SIGNATURE, FIXED_STRUCTURE_VERSION};
    std::vector<StringTableBlock> blocks;
    std::vector<VarEntry> vars;
    std::vector<TopBlock> order;
};

// Up to four parts; each after the first only behind a comma.
void parse_version_parts(uint32_t* high_low) {
    uint16_t parts[4] = {uint16_t(parse_expr16(true))};
    for (int i = 1; i < 4 && accept(TK_COMMA); i++) parts[i] = uint16_t(parse_expr16(true));
    high_low[0] = uint32_t(parts[0]) << 16 | parts[1];
    high_low[1] = uint32_t(parts[2]) << 16 | parts[3];
}

void parse_version_fixed(VersionInfo& info) {
    for (;;) {
        const FixedStatement* found = nullptr;
        for (const FixedStatement& s : fixed_statements)
            if (token.kind == s.kind) found = &s;
        if (!found) return;
        next_token();
        if (found->is_version)
            parse_version_parts(&info.fixed[found->field]);
        else
            info.fixed[found->field] = parse_expr(true);
    }
}

// A string literal's text into `out`, then the expect that consumes it.
bool take_string(std::u16string& out) {
    bool present = is_string(token.kind);
    if (present) out = token_string();
    expect(TK_STRING);
    return present;
}

void parse_string_table_block(std::vector<StringTableBlock>& blocks) {
    StringTableBlock block;
    expect(TK_BLOCK);
    if (is_string(token.kind)) block.name = token_string().substr(0, BLOCK_NAME_UNITS);
    expect(TK_STRING);
    expect(TK_BEGIN);
    while (!accept(TK_END)) {
        StringPair pair;
        expect(TK_VALUE);
        bool has_key = take_string(pair.key);
        expect(TK_COMMA);
        bool has_value = take_string(pair.value);
        if (has_key && has_value) block.pairs.push_back(std::move(pair));
    }
    blocks.push_back(std::move(block));
}

// Whether a value round can take the token. The list runs until END or
// VALUE; any other token that no round can take ends it too, where the
// rounds would otherwise repeat for ever.
bool starts_value(int32_t kind) {
    return kind == TK_COMMA || kind == TK_NUMBER || kind == TK_MINUS || kind == TK_TILDE ||
           kind == TK_LPAREN;
}

void parse_var_entry(std::vector<VarEntry>& vars) {
    VarEntry entry;
    expect(TK_VALUE);
    take_string(entry.key);
    do {
        accept(TK_COMMA);
        uint16_t low = uint16_t(parse_expr16(false));
        accept(TK_COMMA);
        uint16_t high = uint16_t(parse_expr16(false));
        entry.values.push_back(uint32_t(high) << 16 | low);
    } while (starts_value(token.kind));
    vars.push_back(std::move(entry));
}

void parse_blocks(VersionInfo& info) {
    while (accept(TK_BLOCK)) {
        if (!is_string(token.kind)) continue;
        std::u16string block = token_string();
        if (block == u"StringFileInfo") {
            expect(TK_STRING);
            expect(TK_BEGIN);
            size_t first = info.blocks.size();
            while (!accept(TK_END)) parse_string_table_block(info.blocks);
            info.order.push_back({false, first, info.blocks.size() - first});
        } else if (block == u"VarFileInfo") {
            expect(TK_STRING);
            expect(TK_BEGIN);
            size_t first = info.vars.size();
            while (!accept(TK_END)) parse_var_entry(info.vars);
            info.order.push_back({true, first, info.vars.size() - first});
        } else {
            next_token(); // an unknown block: its body is not skipped
        }
    }
}

uint32_t align_2(uint32_t size) {
    return size % 4 ? size + 2 : size;
}

uint32_t pair_size(const StringPair& p) {
    return align_2(NODE_HEADER + string_size(p.key)) + string_size(p.value);
}

uint32_t block_size(const StringTableBlock& b) {
    uint32_t size = NODE_HEADER + string_size(b.name);
    for (const StringPair& p : b.pairs) size = align_2(size) + pair_size(p);
    return size;
}

uint32_t var_size(const VarEntry& v) {
    return align_2(NODE_HEADER + string_size(v.key)) + 4 * uint32_t(v.values.size());
}

// Blocks are added without padding between them: where a block ends two
// bytes short of a multiple of 4, the bytes written run 2 past this length.
uint32_t string_file_info_size(const std::vector<StringTableBlock>& blocks) {
    if (blocks.empty()) return 0;
    uint32_t size = STRING_FILE_INFO_HEADER;
    for (const StringTableBlock& b : blocks) size += block_size(b);
    return size;
}

uint32_t var_file_info_size(const std::vector<VarEntry>& vars) {
    if (vars.empty()) return 0;
    uint32_t size = VAR_FILE_INFO_HEADER;
    for (const VarEntry& v : vars) size += var_size(v);
    return size;
}

uint32_t root_size(const VersionInfo& info) {
    uint32_t children = string_file_info_size(info.blocks) + var_file_info_size(info.vars);
    if (children % 4 && !info.vars.empty()) children += 2;
    return ROOT_HEADER + 4 * FIXED_FIELDS + children;
}

void put_node_header(ResData& out, uint32_t length, uint32_t value_length, uint16_t type) {
    out.u16(uint16_t(length));
    out.u16(uint16_t(value_length));
    out.u16(type);
}

void put_string_file_info(ResData& out, const std::vector<StringTableBlock>& blocks) {
    put_node_header(out, string_file_info_size(blocks), 0, NODE_TEXT);
    out.str(u"StringFileInfo");
    out.pad4();
    for (const StringTableBlock& b : blocks) {
        put_node_header(out, block_size(b), 0, NODE_TEXT);
        out.str(b.name);
        for (const StringPair& p : b.pairs) {
            out.pad4();
            put_node_header(out, pair_size(p), uint32_t(p.value.size()) + 1, NODE_TEXT);
            out.str(p.key);
            out.pad4();
            out.str(p.value);
            out.pad4();
        }
    }
}

void put_var_file_info(ResData& out, const std::vector<VarEntry>& vars) {
    put_node_header(out, var_file_info_size(vars), 0, NODE_TEXT);
    out.str(u"VarFileInfo");
    out.pad4();
    for (const VarEntry& v : vars) {
        put_node_header(out, var_size(v), 4 * uint32_t(v.values.size()), NODE_BINARY);
        out.str(v.key);
        out.pad4();
        for (uint32_t value : v.values) out.u32(value);
    }
}

// The extended dialect's layout: the same nodes, each block in script order,
// every length measured on the bytes written (a node's header is written
// with length 0 and set when the node is complete), so that no length falls
// short where padding runs between blocks.
size_t open_node(ResData& out, uint32_t value_length, uint16_t type, std::u16string_view key) {
    out.pad4();
    size_t at = out.size();
    put_node_header(out, 0, value_length, type);
    out.str(key);
    return at;
}

void close_node(ResData& out, size_t at) {
    out.set16(at, uint16_t(out.size() - at)); // the whole is checked to fit
}

void put_string_blocks(ResData& out, const StringTableBlock* blocks, size_t count) {
    size_t whole = open_node(out, 0, NODE_TEXT, u"StringFileInfo");
    for (const StringTableBlock* b = blocks; b != blocks + count; ++b) {
        size_t block = open_node(out, 0, NODE_TEXT, b->name);
        for (const StringPair& p : b->pairs) {
            size_t pair = open_node(out, uint32_t(p.value.size()) + 1, NODE_TEXT, p.key);
            out.pad4();
            out.str(p.value);
            close_node(out, pair);
        }
        close_node(out, block);
    }
    close_node(out, whole);
}

void put_var_entries(ResData& out, const VarEntry* vars, size_t count) {
    size_t whole = open_node(out, 0, NODE_TEXT, u"VarFileInfo");
    for (const VarEntry* v = vars; v != vars + count; ++v) {
        size_t entry = open_node(out, 4 * uint32_t(v->values.size()), NODE_BINARY, v->key);
        out.pad4();
        for (uint32_t value : v->values) out.u32(value);
        close_node(out, entry);
    }
    close_node(out, whole);
}

void put_version_tree(ResData& out, const VersionInfo& info) {
    size_t root = open_node(out, FIXED_INFO_SIZE, NODE_BINARY, u"VS_VERSION_INFO");
    out.pad4();
    for (uint32_t v : info.fixed) out.u32(v);
    for (const TopBlock& top : info.order) {
        if (top.is_var)
            put_var_entries(out, info.vars.data() + top.first, top.count);
        else
            put_string_blocks(out, info.blocks.data() + top.first, top.count);
    }
    close_node(out, root);
}

uint32_t write_versioninfo(const ScriptToken& name, const VersionInfo& info, uint16_t flags) {
    ResData data;
    uint32_t size;
    if (compile_state.extended) {
        put_version_tree(data, info);
        size = data.size();
    } else {
        size = root_size(info);
        put_node_header(data, size, FIXED_INFO_SIZE, NODE_BINARY);
        data.str(u"VS_VERSION_INFO");
        data.pad4();
        for (uint32_t v : info.fixed) data.u32(v);
        if (!info.blocks.empty()) put_string_file_info(data, info.blocks);
        if (!info.vars.empty()) put_var_file_info(data, info.vars);
    }
    // Every node is part of the root, so the root's length is the one that
    // can outgrow its 16 bits.
    if (!fits_16(size, u"VERSIONINFO length")) return 0;
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = flags;
    return write_resource(size, attributes, make_ordinal(RT_VERSION), name_of(name), data);
}

} // namespace

void compile_versioninfo(const ScriptToken& name) {
    uint16_t flags = parse_memory_flags(MEM_MOVEABLE | MEM_PURE);
    show_writing(u"VERSIONINFO", &name, nullptr);
    VersionInfo info;
    parse_version_fixed(info);
    expect(TK_BEGIN);
    parse_blocks(info);
    expect(TK_END);
    report(write_versioninfo(name, info, flags));
}

} // namespace tarn
