// RCDATA (raw data, inline or from a file) and resources of user-defined
// types, whose data always come from a file.
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

namespace {

constexpr uint16_t RCDATA_FLAGS = 0x0030;
constexpr uint16_t USER_RESOURCE_FLAGS = 0x0030;

void append_le(std::vector<uint8_t>& data, uint32_t value, int bytes) {
    size_t at = data.size();
    data.resize(at + size_t(bytes));
    for (int i = 0; i < bytes; ++i) data[at + size_t(i)] = uint8_t(value >> (8 * i));
}

// One item: a string (see append_string_item), or a number in 4 bytes when
// the last number lexed carried "L", else in 2.
void read_item(std::vector<uint8_t>& data) {
    if (token.kind == TK_STRING || token.kind == TK_WSTRING) {
        append_string_item(data);
        return;
    }
    bool is_long = token.is_long;
    append_le(data, parse_expr(true), is_long ? 4 : 2);
}

// The items' bytes, in a buffer kept from resource to resource.
const std::vector<uint8_t>& read_items() {
    static std::vector<uint8_t> data;
    data.clear();
    expect(TK_BEGIN);
    while (!accept(TK_END)) {
        if (accept(TK_COMMA)) continue; // a stray comma is passed over
        read_item(data);
        accept(TK_COMMA);
    }
    return data;
}

uint32_t write_rcdata(const NameOrOrdinal& name, const NameOrOrdinal& type,
                      const ResourceAttributes& attributes, const std::vector<uint8_t>& data) {
    uint32_t size = uint32_t(data.size());
    uint32_t e = write_header_checked(size, attributes, type, name);
    if (!e) e = write_bytes(data.data(), size);
    if (!e) e = pad_to_4(output_position());
    return e ? fatal_system_code(e) : 0;
}

std::u16string user_type_text(const ScriptToken& type) {
    if (type.kind == TK_NUMBER) return u"0x" + hex_text(number_value(type), false);
    return std::u16string(type.text, type.length);
}

} // namespace

void append_string_item(std::vector<uint8_t>& data) {
    bool wide = token.kind == TK_WSTRING;
    uint8_t high_mask = wide && compile_state.extended ? 0xFF : 0;
    const char16_t* units = token.text.data();
    size_t at = data.size();
    data.resize(at + token.length * (wide ? 2 : 1));
    uint8_t* out = data.data() + at;
    if (wide) {
        for (size_t i = 0; i < token.length; ++i) {
            out[2 * i] = uint8_t(units[i]);
            out[2 * i + 1] = uint8_t(units[i] >> 8) & high_mask;
        }
    } else {
        for (size_t i = 0; i < token.length; ++i) out[i] = uint8_t(units[i]);
    }
    next_token();
}

bool names_file(const ScriptToken& t) {
    return is_string(t.kind) || t.kind == TK_NAME;
}

void compile_rcdata(const ScriptToken& name) {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(RCDATA_FLAGS);
    parse_optional_statements(attributes, nullptr);
    show_writing(u"RCDATA", &name, &attributes);
    if (names_file(token)) {
        // Only the memory flags travel with the file form, deliberately.
        copy_named_file(name_of(name), make_ordinal(RT_RCDATA), attributes.memory_flags);
        return;
    }
    const std::vector<uint8_t>& data = read_items();
    report(write_rcdata(name_of(name), make_ordinal(RT_RCDATA), attributes, data));
}

// The extended dialect also takes the optional statements and inline data
// as RCDATA does (TEXTINCLUDE, DLGINIT and the like are written so); as
// there, only the memory flags travel with the file form.
void compile_user_resource(const ScriptToken& name, const ScriptToken& type) {
    uint16_t flags = parse_memory_flags(USER_RESOURCE_FLAGS);
    ResourceAttributes attributes = default_attributes_copy();
    ResourceAttributes inline_attributes = attributes;
    if (compile_state.extended) parse_optional_statements(inline_attributes, nullptr);
    show_writing(user_type_text(type), &name, &attributes);
    bool inline_data = compile_state.extended && token.kind == TK_BEGIN;
    if (!names_file(token) && !inline_data) {
        report(error_code(MSG_INVALID_SYNTAX));
        return;
    }
    NameOrOrdinal resource = name_of(name); // its warning comes before the type's
    NameOrOrdinal type_name = type.kind == TK_NUMBER
                                  ? type_ordinal(number_value(type))
                                  : make_name(std::u16string_view(type.text, type.length));
    if (!inline_data) {
        copy_named_file(resource, type_name, flags);
        return;
    }
    const std::vector<uint8_t>& data = read_items();
    inline_attributes.memory_flags = flags;
    report(write_rcdata(resource, type_name, inline_attributes, data));
}

} // namespace tarn
