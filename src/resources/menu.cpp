// MENU and MENUEX: a menu bar with nested popups, parsed into a tree of
// MenuNodes and written as one resource, in the classic layout or the
// extended one.
#include <memory>
#include <optional>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr uint16_t MF_POPUP = 0x0010;
constexpr uint16_t MF_END = 0x0080;            // last item of its level
constexpr uint16_t MF_SEPARATOR_MARK = 0x1000; // internal, never written
constexpr uint32_t MFT_SEPARATOR = 0x800;      // MENUEX item type
constexpr uint16_t MFR_POPUP = 0x01;
constexpr uint16_t MFR_END = 0x80;
constexpr int MENU_LEVELS = 8; // the menu itself and at most 7 open popups
constexpr uint32_t MENU_HEADER = 4, MENUEX_HEADER = 8;

struct MenuNode {
    uint16_t flags = 0;
    uint16_t id = 0;
    uint32_t type = 0;
    uint32_t state = 0;
    uint32_t help_id = 0;
    std::vector<std::unique_ptr<MenuNode>> children;
    std::optional<std::u16string> text;

    bool is_popup() const { return flags & MF_POPUP; }
};

struct MenuOption {
    int32_t kind;
    uint16_t flag;
};

constexpr MenuOption menu_options[] = {
    {TK_GRAYED, 0x0001},       {TK_INACTIVE, 0x0002},  {TK_CHECKED, 0x0008},
    {TK_MENUBARBREAK, 0x0020}, {TK_MENUBREAK, 0x0040}, {TK_HELP, 0x4000},
};

void parse_menu_options(MenuNode& node) {
    for (;;) {
        accept(TK_COMMA);
        const MenuOption* found = nullptr;
        for (const MenuOption& o : menu_options)
            if (token.kind == o.kind) found = &o;
        if (!found) return;
        node.flags |= found->flag;
        next_token();
    }
}

void parse_item_text(MenuNode& node) {
    if (is_string(token.kind)) node.text = token_string();
    expect(TK_STRING);
}

// MENUEX fields, each only after a comma; a comma with nothing after it
// gives 0.
void parse_ex_fields(MenuNode& node, bool popup) {
    if (!accept(TK_COMMA)) return;
    node.id = uint16_t(parse_expr16(false));
    if (!accept(TK_COMMA)) return;
    node.type = parse_expr(false);
    if (!accept(TK_COMMA)) return;
    node.state = parse_expr(false);
    if (popup && accept(TK_COMMA)) node.help_id = parse_expr(false);
}

std::unique_ptr<MenuNode> parse_menuitem(bool extended) {
    auto node = std::make_unique<MenuNode>();
    next_token();
    if (extended && compile_state.extended && accept(TK_SEPARATOR)) {
        node->type = MFT_SEPARATOR; // and no text
    } else if (extended) {
        parse_item_text(*node);
        parse_ex_fields(*node, false);
    } else if (is_string(token.kind)) {
        parse_item_text(*node);
        accept(TK_COMMA);
        node->id = uint16_t(parse_expr16(true));
        parse_menu_options(*node);
    } else {
        expect(TK_SEPARATOR);
        node->flags = MF_SEPARATOR_MARK;
    }
    return node;
}

std::unique_ptr<MenuNode> parse_popup(bool extended) {
    auto node = std::make_unique<MenuNode>();
    node->flags = MF_POPUP;
    next_token();
    parse_item_text(*node);
    if (extended)
        parse_ex_fields(*node, true);
    else
        parse_menu_options(*node);
    expect(TK_BEGIN);
    return node;
}

uint32_t menu_size(const MenuNode& level) {
    uint32_t size = 0;
    for (const auto& c : level.children) {
        uint32_t text = string_size(c->text.value_or(u""));
        if (c->is_popup())
            size += 2 + text + menu_size(*c);
        else if (c->flags & MF_SEPARATOR_MARK)
            size += 6;
        else
            size += 4 + text;
    }
    return size;
}

void put_menu(ResData& out, const MenuNode& level) {
    for (const auto& c : level.children) {
        if (c->is_popup()) {
            out.u16(c->flags);
            out.str(c->text.value_or(u""));
            put_menu(out, *c);
        } else if (c->flags & MF_SEPARATOR_MARK) {
            out.u16(c->flags & ~MF_SEPARATOR_MARK);
            out.u32(0); // id 0 and an empty text
        } else {
            out.u16(c->flags);
            out.u16(c->id);
            out.str(c->text.value_or(u""));
        }
    }
}

uint32_t menuex_size(const MenuNode& level) {
    uint32_t size = 0;
    for (const auto& c : level.children) {
        size += string_size(c->text.value_or(u""));
        size += c->is_popup() ? 18 + menuex_size(*c) : 14;
        if (size % 4) size += 2;
    }
    return size;
}

void put_menuex(ResData& out, const MenuNode& level) {
    for (const auto& c : level.children) {
        out.u32(c->type);
        out.u32(c->state);
        out.u32(uint32_t(int32_t(int16_t(c->id)))); // sign-extended, as kept
        uint16_t info = (c->flags & MF_END) ? MFR_END : 0;
        if (c->is_popup()) info |= MFR_POPUP;
        out.u16(info);
        out.str(c->text.value_or(u""));
        out.pad4();
        if (!c->is_popup()) continue;
        out.u32(c->help_id);
        put_menuex(out, *c);
    }
}

uint32_t write_menu(const ScriptToken& name, const ResourceAttributes& attributes,
                    const MenuNode& root, bool extended) {
    ResData data;
    uint32_t size;
    if (extended) {
        data.u16(1); // version
        data.u16(4); // offset of the items from the end of this field
        data.u32(0); // help id
        put_menuex(data, root);
        size = MENUEX_HEADER + menuex_size(root);
    } else {
        data.u32(0); // version 0, header size 0
        put_menu(data, root);
        size = MENU_HEADER + menu_size(root);
    }
    return write_resource(size, attributes, make_ordinal(RT_MENU), name_of(name), data);
}

} // namespace

void compile_menu(const ScriptToken& name, int extended) {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(MEM_MOVEABLE | MEM_PURE | MEM_DISCARDABLE);
    parse_optional_statements(attributes, nullptr);
    show_writing(extended ? u"MENUEX" : u"MENU", &name, &attributes);
    expect(TK_BEGIN);
    // levels[0] is the menu itself; each open popup is owned here until its
    // END hands it to its parent, which keeps the script order.
    std::unique_ptr<MenuNode> levels[MENU_LEVELS];
    levels[0] = std::make_unique<MenuNode>();
    int depth = 0;
    for (;;) {
        if (token.kind == TK_MENUITEM) {
            levels[depth]->children.push_back(parse_menuitem(extended));
        } else if (token.kind == TK_POPUP && depth + 1 < MENU_LEVELS) {
            depth++;
            levels[depth] = parse_popup(extended);
        } else if (token.kind == TK_END) {
            MenuNode& level = *levels[depth];
            if (!level.children.empty()) level.children.back()->flags |= MF_END;
            if (depth > 0) levels[depth - 1]->children.push_back(std::move(levels[depth]));
            depth--;
            next_token();
            if (depth < 0) {
                report(write_menu(name, attributes, *levels[0], extended));
                return;
            }
        } else {
            report(error_code(MSG_INVALID_SYNTAX)); // also a popup nested too deep
            if (token.kind == TK_EOF) report(fatal_code(MSG_UNEXPECTED_EOF));
            return;
        }
    }
}

} // namespace tarn
