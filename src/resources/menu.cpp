// MENU and MENUEX: a menu bar with nested popups, parsed into a tree of
// MenuNodes and written as one resource, in the classic layout or the
// extended one.
#include <string>
#include <string_view>
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

// The nodes of the menu being parsed lie in one array in script order, each
// linked to its first child and next sibling, and their texts in one
// buffer: both are kept from menu to menu, so that a menu of hundreds of
// items costs no allocation each.
constexpr uint32_t NO_NODE = UINT32_MAX;

struct MenuNode {
    uint16_t flags = 0;
    uint16_t id = 0;
    uint32_t type = 0;
    uint32_t state = 0;
    uint32_t help_id = 0;
    uint32_t first_child = NO_NODE, last_child = NO_NODE, next = NO_NODE;
    uint32_t text_at = 0, text_length = 0; // in MenuTree::texts; none: empty

    bool is_popup() const { return flags & MF_POPUP; }
};

struct MenuTree {
    std::vector<MenuNode> nodes;
    std::u16string texts;
};
MenuTree tree;

MenuNode& node_at(uint32_t i) {
    return tree.nodes[i];
}

std::u16string_view text_of(const MenuNode& n) {
    return std::u16string_view(tree.texts).substr(n.text_at, n.text_length);
}

// A new last child of `parent` (NO_NODE for the menu itself).
uint32_t add_node(uint32_t parent) {
    auto at = uint32_t(tree.nodes.size());
    tree.nodes.emplace_back();
    if (parent != NO_NODE) {
        MenuNode& p = node_at(parent);
        if (p.last_child == NO_NODE)
            p.first_child = at;
        else
            node_at(p.last_child).next = at;
        p.last_child = at;
    }
    return at;
}

struct MenuOption {
    int32_t kind;
    uint16_t flag;
};

constexpr MenuOption menu_options[] = {
    {TK_GRAYED, 0x0001},       {TK_INACTIVE, 0x0002},  {TK_CHECKED, 0x0008},
    {TK_MENUBARBREAK, 0x0020}, {TK_MENUBREAK, 0x0040}, {TK_HELP, 0x4000},
};

void parse_menu_options(uint32_t at) {
    for (;;) {
        accept(TK_COMMA);
        const MenuOption* found = nullptr;
        for (const MenuOption& o : menu_options)
            if (token.kind == o.kind) found = &o;
        if (!found) return;
        node_at(at).flags |= found->flag;
        next_token();
    }
}

void parse_item_text(uint32_t at) {
    if (is_string(token.kind)) {
        std::u16string_view text(token.text); // up to its first zero, as stored
        MenuNode& node = node_at(at);
        node.text_at = uint32_t(tree.texts.size());
        node.text_length = uint32_t(text.size());
        tree.texts += text;
    }
    expect(TK_STRING);
}

// MENUEX fields, each only after a comma; a comma with nothing after it
// gives 0.
void parse_ex_fields(uint32_t at, bool popup) {
    if (!accept(TK_COMMA)) return;
    node_at(at).id = uint16_t(parse_expr16(false));
    if (!accept(TK_COMMA)) return;
    node_at(at).type = parse_expr(false);
    if (!accept(TK_COMMA)) return;
    node_at(at).state = parse_expr(false);
    if (popup && accept(TK_COMMA)) node_at(at).help_id = parse_expr(false);
}

void parse_menuitem(uint32_t parent, bool extended) {
    uint32_t at = add_node(parent);
    next_token();
    if (extended && compile_state.extended && accept(TK_SEPARATOR)) {
        node_at(at).type = MFT_SEPARATOR; // and no text
    } else if (extended) {
        parse_item_text(at);
        parse_ex_fields(at, false);
    } else if (is_string(token.kind)) {
        parse_item_text(at);
        accept(TK_COMMA);
        uint16_t id = uint16_t(parse_expr16(true));
        node_at(at).id = id;
        parse_menu_options(at);
    } else {
        expect(TK_SEPARATOR);
        node_at(at).flags = MF_SEPARATOR_MARK;
    }
}

uint32_t parse_popup(uint32_t parent, bool extended) {
    uint32_t at = add_node(parent);
    node_at(at).flags = MF_POPUP;
    next_token();
    parse_item_text(at);
    if (extended)
        parse_ex_fields(at, true);
    else
        parse_menu_options(at);
    expect(TK_BEGIN);
    return at;
}

uint32_t menu_size(const MenuNode& level) {
    uint32_t size = 0;
    for (uint32_t i = level.first_child; i != NO_NODE; i = node_at(i).next) {
        const MenuNode& c = node_at(i);
        uint32_t text = string_size(text_of(c));
        if (c.is_popup())
            size += 2 + text + menu_size(c);
        else if (c.flags & MF_SEPARATOR_MARK)
            size += 6;
        else
            size += 4 + text;
    }
    return size;
}

void put_menu(ResData& out, const MenuNode& level) {
    for (uint32_t i = level.first_child; i != NO_NODE; i = node_at(i).next) {
        const MenuNode& c = node_at(i);
        if (c.is_popup()) {
            out.u16(c.flags);
            out.str(text_of(c));
            put_menu(out, c);
        } else if (c.flags & MF_SEPARATOR_MARK) {
            out.u16(c.flags & ~MF_SEPARATOR_MARK);
            out.u32(0); // id 0 and an empty text
        } else {
            out.u16(c.flags);
            out.u16(c.id);
            out.str(text_of(c));
        }
    }
}

uint32_t menuex_size(const MenuNode& level) {
    uint32_t size = 0;
    for (uint32_t i = level.first_child; i != NO_NODE; i = node_at(i).next) {
        const MenuNode& c = node_at(i);
        size += string_size(text_of(c));
        size += c.is_popup() ? 18 + menuex_size(c) : 14;
        if (size % 4) size += 2;
    }
    return size;
}

void put_menuex(ResData& out, const MenuNode& level) {
    for (uint32_t i = level.first_child; i != NO_NODE; i = node_at(i).next) {
        const MenuNode& c = node_at(i);
        out.u32(c.type);
        out.u32(c.state);
        out.u32(uint32_t(int32_t(int16_t(c.id)))); // sign-extended, as kept
        uint16_t info = (c.flags & MF_END) ? MFR_END : 0;
        if (c.is_popup()) info |= MFR_POPUP;
        out.u16(info);
        out.str(text_of(c));
        out.pad4();
        if (!c.is_popup()) continue;
        out.u32(c.help_id);
        put_menuex(out, c);
    }
}

uint32_t write_menu(const ScriptToken& name, const ResourceAttributes& attributes,
                    const MenuNode& root, bool extended) {
    static ResData data; // kept from menu to menu: its room is reused
    data.clear();
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
    // levels[0] is the menu itself, then each open popup; a node joins its
    // parent when it starts, which keeps the script order.
    tree.nodes.clear();
    tree.texts.clear();
    uint32_t levels[MENU_LEVELS];
    levels[0] = add_node(NO_NODE);
    int depth = 0;
    for (;;) {
        if (token.kind == TK_MENUITEM) {
            parse_menuitem(levels[depth], extended);
        } else if (token.kind == TK_POPUP && depth + 1 < MENU_LEVELS) {
            uint32_t popup = parse_popup(levels[depth], extended);
            levels[++depth] = popup;
        } else if (token.kind == TK_END) {
            uint32_t last = node_at(levels[depth]).last_child;
            if (last != NO_NODE) node_at(last).flags |= MF_END;
            depth--;
            next_token();
            if (depth < 0) {
                report(write_menu(name, attributes, node_at(levels[0]), extended));
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
