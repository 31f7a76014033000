// What the statement handlers share: the attributes a statement starts from,
// memory options, optional statements, the LANGUAGE clause, names and types
// as NameOrOrdinals, and the verbose "Writing ..." line.
#include "resources/common.h"

#include <algorithm>

#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "resources/rc_main.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

namespace {

// The asymmetry is intended: DISCARDABLE sets pure as well, IMPURE clears
// discardable as well.
struct MemoryOption {
    int32_t kind;
    uint16_t set;
    uint16_t clear;
};
constexpr MemoryOption memory_options[] = {
    {TK_PRELOAD, MEM_PRELOAD, 0},
    {TK_LOADONCALL, 0, MEM_PRELOAD},
    {TK_MOVEABLE, MEM_MOVEABLE, 0},
    {TK_FIXED, 0, MEM_MOVEABLE},
    {TK_PURE, MEM_PURE, 0},
    {TK_IMPURE, 0, MEM_PURE | MEM_DISCARDABLE},
    {TK_DISCARDABLE, MEM_PURE | MEM_DISCARDABLE, 0},
};

const MemoryOption* find_memory_option(int32_t kind) {
    for (const MemoryOption& m : memory_options)
        if (m.kind == kind) return &m;
    return nullptr;
}

NameOrOrdinal ordinal_checked(uint32_t value, Msg warning) {
    if (value > 0xFFFF) report(warning_code(warning));
    return make_ordinal(uint16_t(value));
}

// A type or name as the duplicate message shows it: an ordinal in decimal.
std::u16string name_text(const NameOrOrdinal& n) {
    return is_ordinal(n) ? decimal_text(ordinal_of(n)) : n.units;
}

// A report placed at the start of the statement rather than where the
// lexer has got to by the time the resource is written.
template <class... A>
void report_at(const DefinitionPlace& place, DiagnosticCode code, const A&... inserts) {
    ScriptLocation now = script_location;
    size_t n = std::min(place.file.size(), SCRIPT_FILE_UNITS - 1);
    std::copy_n(place.file.data(), n, script_location.script_file);
    script_location.script_file[n] = 0;
    script_location.script_line = place.line;
    report(code, inserts...);
    script_location = now;
}

// The place of the first resource with this type, name and language, or
// null; the resource's own is kept unless `last`.
const WrittenPlace* first_written(const NameOrOrdinal& type, const NameOrOrdinal& name,
                                  uint16_t language, WrittenPlace place, bool last) {
    ResourcesState& rs = resources_state;
    if (is_ordinal(type) && is_ordinal(name)) {
        uint64_t key = uint64_t(1) << 48 | uint64_t(ordinal_of(type)) << 32 |
                       uint64_t(ordinal_of(name)) << 16 | language;
        if (const WrittenPlace* first = rs.written_ordinals.find(key)) return first;
        if (!last) rs.written_ordinals.insert(key, place);
        return nullptr;
    }
    std::u16string key;
    key.reserve(type.units.size() + name.units.size() + 3);
    key.append(type.units).append(1, u'\0').append(name.units).append(1, u'\0');
    key.append(1, char16_t(language));
    auto at = rs.written.find(key);
    if (at != rs.written.end()) return &at->second;
    if (!last) rs.written.emplace(std::move(key), place);
    return nullptr;
}

} // namespace

uint32_t write_header_checked(uint32_t data_size, const ResourceAttributes& attributes,
                              const NameOrOrdinal& type, const NameOrOrdinal& name, bool last) {
    if (compile_state.extended) {
        const DefinitionPlace& here = resources_state.statement_place;
        std::vector<std::u16string>& files = resources_state.written_files;
        if (files.empty() || files.back() != here.file) files.push_back(here.file);
        WrittenPlace place{uint32_t(files.size() - 1), here.line};
        // The string blocks, written last and each once, are looked up only:
        // a large table would otherwise keep an entry per block.
        if (const WrittenPlace* first =
                first_written(type, name, attributes.language, place, last)) {
            report_at(here, error_code(MSG_DUPLICATE_RESOURCE), name_text(type), name_text(name),
                      unsigned(attributes.language), files[first->file], first->line);
            return WRITE_SKIPPED;
        }
    }
    return write_resource_header(data_size, attributes, type, name);
}

ResourceAttributes default_attributes_copy() {
    return compile_state.default_attributes;
}

uint16_t parse_memory_flags(uint16_t flags) {
    while (const MemoryOption* m = find_memory_option(token.kind)) {
        flags = uint16_t((flags | m->set) & ~m->clear);
        next_token();
    }
    return flags;
}

void parse_language(ResourceAttributes& attributes) {
    uint16_t primary = uint16_t(parse_expr16(true));
    expect(TK_COMMA);
    uint16_t sub = uint16_t(parse_expr16(true));
    attributes.language = uint16_t((sub << 10) | primary);
}

void parse_optional_statements(ResourceAttributes& attributes, DialogOptions* dialog) {
    for (;;) {
        if (accept(TK_CHARACTERISTICS))
            attributes.characteristics = parse_expr(true);
        else if (accept(TK_LANGUAGE))
            parse_language(attributes);
        else if (accept(TK_VERSION))
            attributes.version = parse_expr(true);
        else if (!dialog || !parse_dialog_option(*dialog))
            return;
    }
}

NameOrOrdinal name_ordinal(uint32_t value) {
    return ordinal_checked(value, MSG_NAME_ORDINAL_BOUNDS);
}

NameOrOrdinal type_ordinal(uint32_t value) {
    return ordinal_checked(value, MSG_TYPE_ORDINAL_BOUNDS);
}

NameOrOrdinal name_of(const ScriptToken& name) {
    if (name.kind == TK_NUMBER) return name_ordinal(number_value(name));
    return make_name(std::u16string_view(name.text, name.length));
}

std::u16string find_resource_file(const std::u16string& name) {
    return findInclude(name.c_str(), false, resources_state.main_input.c_str());
}

bool fits_16(uint64_t value, const char16_t* what) {
    if (value <= 0xFFFF) return true;
    report(error_code(MSG_FIELD_TOO_LARGE), what, static_cast<unsigned long long>(value));
    return false;
}

void show_writing(const std::u16string& type_text, const ScriptToken* name,
                  const ResourceAttributes* attributes) {
    if (!compile_state.info_callback) return;
    // One line per resource: the buffer is kept, so a line costs no allocation.
    static std::u16string line;
    line.clear();
    append_message(line, MSG_WRITING, type_text);
    if (name && name->kind == TK_NUMBER)
        append_message(line, MSG_WRITING_ID, int(number_value(*name)));
    else if (name)
        append_message(line, MSG_WRITING_NAME, static_cast<const char16_t*>(name->text));
    if (attributes) append_message(line, MSG_WRITING_LANGUAGE, unsigned(attributes->language));
    if (compile_state.output_file)
        append_message(line, MSG_WRITING_OFFSET, unsigned(output_position()));
    send_info(line);
}

} // namespace tarn
