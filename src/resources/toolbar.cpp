// TOOLBAR, a statement of the extended dialect: the button layout of a
// toolbar bitmap, written as one resource of type 241 whose fields are all
// 16-bit: version 1, button width and height, the count, then one id per
// item (0 for a separator).
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/text.h"

namespace tarn {

namespace {

constexpr uint16_t RT_TOOLBAR = 241;
constexpr uint16_t TOOLBAR_VERSION = 1;
constexpr uint16_t TOOLBAR_FLAGS = MEM_MOVEABLE | MEM_PURE; // as a user-defined type's

// BUTTON is no keyword of the language, so it arrives as a name.
bool is_button(const ScriptToken& t) {
    return t.kind == TK_NAME && equal_ignore_case(std::u16string_view(t.text, t.length), u"BUTTON");
}

} // namespace

bool is_toolbar_type(const ScriptToken& t) {
    return t.kind == TK_NAME &&
           equal_ignore_case(std::u16string_view(t.text, t.length), u"TOOLBAR");
}

void compile_toolbar(const ScriptToken& name) {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(TOOLBAR_FLAGS);
    uint16_t width = uint16_t(parse_expr16(true));
    accept(TK_COMMA);
    uint16_t height = uint16_t(parse_expr16(true));
    parse_optional_statements(attributes, nullptr);
    show_writing(u"TOOLBAR", &name, &attributes);
    expect(TK_BEGIN);
    std::vector<uint16_t> ids;
    while (!accept(TK_END)) {
        if (accept(TK_SEPARATOR)) {
            ids.push_back(0);
        } else if (is_button(token)) {
            next_token();
            ids.push_back(uint16_t(parse_expr16(true)));
        } else {
            // As in a dialog: the token is left to the statement loop.
            report(error_code(MSG_INVALID_SYNTAX));
            if (token.kind == TK_EOF) report(fatal_code(MSG_UNEXPECTED_EOF));
            return;
        }
    }
    if (!fits_16(ids.size(), u"toolbar item count")) return;
    ResData data;
    data.u16(TOOLBAR_VERSION);
    data.u16(width);
    data.u16(height);
    data.u16(uint16_t(ids.size()));
    for (uint16_t id : ids) data.u16(id);
    report(write_resource(data.size(), attributes, make_ordinal(RT_TOOLBAR), name_of(name), data));
}

} // namespace tarn
