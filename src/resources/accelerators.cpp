// ACCELERATORS: a table of keystrokes mapped to command ids, parsed and
// written at once as one resource of 8-byte entries.
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/platform.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr uint16_t ACCEL_VIRTKEY = 0x01;
constexpr uint16_t ACCEL_LAST = 0x80;
constexpr uint32_t ACCEL_ENTRY_SIZE = 8;

struct AcceleratorEntry {
    uint16_t flags = 0;
    uint16_t key = 0;
    uint16_t id = 0;
};

struct AccelOption {
    int32_t kind;
    uint16_t flag;
    bool gives_type; // VIRTKEY and ASCII say how the key is meant
};

constexpr AccelOption accel_options[] = {
    {TK_NOINVERT, 0x02, false}, {TK_SHIFT, 0x04, false}, {TK_VIRTKEY, ACCEL_VIRTKEY, true},
    {TK_ALT, 0x10, false},      {TK_ASCII, 0x00, true},  {TK_CONTROL, 0x08, false},
};

// The key of a string event; the string itself is left for the caller.
uint16_t string_key(const std::u16string& s) {
    if (!s.empty() && s[0] == u'^') {
        if (s.size() == 2 && plat_is_alpha(s[1])) return uint16_t(plat_upper(s[1]) - 64);
        report(error_code(MSG_INVALID_CONTROL_CHAR));
        return 0;
    }
    if (s.size() == 1) return s[0];
    if (s.size() == 2) return uint16_t((s[0] << 8) | s[1]); // two keys packed in one
    report(error_code(MSG_INVALID_ACCEL_KEY));
    return 0;
}

// Options after the id; returns whether VIRTKEY or ASCII was among them.
bool parse_accelerator_options(AcceleratorEntry& entry) {
    bool typed = false;
    while (accept(TK_COMMA)) {
        const AccelOption* found = nullptr;
        for (const AccelOption& o : accel_options)
            if (token.kind == o.kind) found = &o;
        if (!found) break;
        entry.flags |= found->flag;
        typed |= found->gives_type;
        next_token();
    }
    return typed;
}

AcceleratorEntry parse_accelerator() {
    AcceleratorEntry entry;
    bool type_needed = false;
    if (!is_string(token.kind)) {
        entry.key = uint16_t(parse_expr16(true));
        type_needed = true;
    } else {
        entry.key = string_key(token_string());
        expect(TK_STRING);
    }
    expect(TK_COMMA);
    entry.id = uint16_t(parse_expr16(true));
    if (parse_accelerator_options(entry)) type_needed = false;
    if (type_needed) report(error_code(MSG_ACCEL_TYPE_NEEDED));
    return entry;
}

uint32_t write_accelerators(const ScriptToken& name, const ResourceAttributes& attributes,
                            std::vector<AcceleratorEntry>& entries) {
    entries.back().flags |= ACCEL_LAST;
    static ResData data; // kept from table to table: its room is reused
    data.clear();
    data.reserve(ACCEL_ENTRY_SIZE * entries.size());
    for (const AcceleratorEntry& e : entries) {
        data.u16(e.flags);
        data.u16(e.key);
        data.u16(e.id);
        data.u16(0);
    }
    uint32_t size = ACCEL_ENTRY_SIZE * uint32_t(entries.size());
    return write_resource(size, attributes, make_ordinal(RT_ACCELERATOR), name_of(name), data);
}

} // namespace

void compile_accelerators(const ScriptToken& name) {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(MEM_MOVEABLE | MEM_PURE);
    parse_optional_statements(attributes, nullptr);
    show_writing(u"ACCELERATORS", &name, &attributes);
    expect(TK_BEGIN);
    static std::vector<AcceleratorEntry> entries; // its room reused from table to table
    entries.clear();
    do {
        entries.push_back(parse_accelerator());
    } while (!accept(TK_END));
    report(write_accelerators(name, attributes, entries));
}

} // namespace tarn
