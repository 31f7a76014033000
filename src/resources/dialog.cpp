// DIALOG and DIALOGEX: the dialog's header, options and controls are parsed
// into a DialogOptions and written as one resource, in the classic template
// layout or the extended one.
#include "resources/dialog.h"

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "script/expr.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

namespace {

constexpr uint32_t CHILD_VISIBLE = 0x50000000; // every control is a visible child
constexpr uint32_t DEFAULT_DIALOG_STYLE = 0x80880000;
constexpr uint32_t STYLE_SETFONT = 0x40;
constexpr uint32_t STYLE_CAPTION = 0xC00000;
constexpr uint16_t CLASS_BUTTON = 0x80;
constexpr uint16_t CLASS_STATIC = 0x82;
constexpr uint16_t CLASS_FROM_STATEMENT = 0; // CONTROL names its class
constexpr uint32_t DIALOG_HEADER = 18, DIALOGEX_HEADER = 26;
constexpr uint32_t CONTROL_HEADER = 18, CONTROLEX_HEADER = 24;
constexpr uint32_t MAX_CREATION_DATA = 0xFFFF;

struct ControlKeyword {
    int32_t kind;
    uint16_t class_ordinal;
    uint32_t style;
};

constexpr ControlKeyword control_keywords[] = {
    {TK_AUTO3STATE, 0x80, 0x00010006},
    {TK_AUTOCHECKBOX, 0x80, 0x00010003},
    {TK_AUTORADIOBUTTON, 0x80, 0x00000009},
    {TK_CHECKBOX, 0x80, 0x00010002},
    {TK_COMBOBOX, 0x85, 0x00000000},
    {TK_CONTROL, CLASS_FROM_STATEMENT, CHILD_VISIBLE},
    {TK_CTEXT, 0x82, 0x00020001},
    {TK_DEFPUSHBUTTON, 0x80, 0x00010001},
    {TK_EDITTEXT, 0x81, 0x00810000},
    {TK_GROUPBOX, 0x80, 0x00000007},
    {TK_ICON, 0x82, 0x00000003},
    {TK_LISTBOX, 0x83, 0x00800001},
    {TK_LTEXT, 0x82, 0x00020000},
    {TK_PUSHBOX, 0x80, 0x0001000A},
    {TK_PUSHBUTTON, 0x80, 0x00010000},
    {TK_RADIOBUTTON, 0x80, 0x00000004},
    {TK_RTEXT, 0x82, 0x00020002},
    {TK_SCROLLBAR, 0x84, 0x00000000},
    {TK_STATE3, 0x80, 0x00010005},
};

struct PredefinedClass {
    const char16_t* name;
    uint16_t ordinal;
};

constexpr PredefinedClass predefined_classes[] = {
    {u"button", 0x80},  {u"edit", 0x81},      {u"static", 0x82},
    {u"listbox", 0x83}, {u"scrollbar", 0x84}, {u"combobox", 0x85},
};

const ControlKeyword* find_control_keyword(int32_t kind) {
    for (const ControlKeyword& k : control_keywords)
        if (k.kind == kind) return &k;
    return nullptr;
}

NameOrOrdinal class_from_string(std::u16string s) {
    for (const PredefinedClass& c : predefined_classes)
        if (equal_ignore_case(s, c.name)) return make_ordinal(c.ordinal);
    return NameOrOrdinal{std::move(s)};
}

// A string literal (consumed) or a number standing for an ordinal.
ControlText parse_control_text(DialogOptions& d) {
    ControlText t;
    if (!is_string(token.kind)) {
        t.is_ordinal = true;
        t.ordinal = uint16_t(parse_expr16(true));
        return t;
    }
    std::u16string_view text(token.text); // up to its first zero, as stored
    t.at = uint32_t(d.texts.size());
    t.length = uint32_t(text.size());
    d.texts += text;
    next_token();
    return t;
}

// A text is written as a name is: one that starts with the ordinal mark
// reads as an ordinal.
std::u16string_view text_units(const DialogOptions& d, const ControlText& t) {
    return std::u16string_view(d.texts).substr(t.at, t.length);
}

uint32_t text_size(const DialogOptions& d, const ControlText& t) {
    std::u16string_view units = text_units(d, t);
    if (t.is_ordinal || (!units.empty() && units[0] == ORDINAL_MARK)) return 4;
    return string_size(units);
}

void put_text(ResData& out, const DialogOptions& d, const ControlText& t) {
    std::u16string_view units = text_units(d, t);
    if (t.is_ordinal) {
        out.u16(ORDINAL_MARK);
        out.u16(t.ordinal);
    } else if (!units.empty() && units[0] == ORDINAL_MARK) {
        out.u16(ORDINAL_MARK);
        out.u16(units.size() > 1 ? units[1] : 0);
    } else {
        out.str(units);
    }
}

// Whether the token can start a coordinate: commas between the fields are
// optional.
bool starts_field(int32_t kind) {
    return kind == TK_COMMA || kind == TK_NUMBER || kind == TK_MINUS || kind == TK_TILDE ||
           kind == TK_LPAREN;
}

// x, y, cx, cy; where the size is optional (the extended dialect's ICON,
// whose size comes from its image) cx and cy are 0 when nothing follows y.
void parse_control_rect(DialogControl& c, bool size_optional = false) {
    int16_t* fields[] = {&c.x, &c.y, &c.cx, &c.cy};
    for (int i = 0; i < 4; i++) {
        if (i == 2 && size_optional && !starts_field(token.kind)) return;
        accept(TK_COMMA);
        *fields[i] = parse_expr16(true);
    }
}

// 16 bits; the extended dialect's DIALOGEX has room for 32.
uint32_t parse_control_id(const DialogOptions& dialog) {
    if (dialog.extended && compile_state.extended) return parse_expr(true);
    return uint16_t(parse_expr16(true));
}

void add_control(DialogOptions& dialog, const ControlKeyword& keyword) {
    DialogControl& c = dialog.controls.emplace_back();
    c.style = keyword.style | CHILD_VISIBLE;
    c.class_name = make_ordinal(keyword.class_ordinal);
    next_token();
    if (keyword.class_ordinal == CLASS_BUTTON || keyword.class_ordinal == CLASS_STATIC)
        c.text = parse_control_text(dialog);
    accept(TK_COMMA);
    c.id = parse_control_id(dialog);
    parse_control_rect(c, keyword.kind == TK_ICON && compile_state.extended);
    if (!accept(TK_COMMA)) return;
    c.style = parse_style(c.style);
    if (!accept(TK_COMMA)) return;
    c.extended_style = parse_style(0);
    if (dialog.extended && accept(TK_COMMA)) c.help_id = parse_expr(false);
}

void add_generic_control(DialogOptions& dialog, uint32_t style) {
    DialogControl& c = dialog.controls.emplace_back();
    next_token();
    c.text = parse_control_text(dialog);
    accept(TK_COMMA);
    c.id = parse_control_id(dialog);
    accept(TK_COMMA);
    if (is_string(token.kind)) c.class_name = class_from_string(token_string());
    expect(TK_STRING);
    accept(TK_COMMA);
    c.style = parse_style(style);
    parse_control_rect(c);
    accept(TK_COMMA);
    c.extended_style = parse_style(0);
    if (!dialog.extended) return;
    accept(TK_COMMA);
    c.help_id = parse_expr(false);
}

void parse_creation_data(std::vector<uint8_t>& data) {
    while (!accept(TK_END)) {
        if (token.kind == TK_STRING || token.kind == TK_WSTRING) {
            append_string_item(data);
        } else {
            bool is_long = token.is_long; // the item's width is that of the last number lexed
            uint32_t v = parse_expr(true);
            for (int i = 0; i < (is_long ? 4 : 2); i++) data.push_back(uint8_t(v >> (8 * i)));
        }
        accept(TK_COMMA);
    }
    if (data.size() > MAX_CREATION_DATA) report(warning_code(MSG_VALUE_OUT_OF_BOUNDS));
}

uint32_t dialog_size(const DialogOptions& d) {
    uint32_t size = d.extended ? DIALOGEX_HEADER : DIALOG_HEADER;
    size += name_size(d.menu) + name_size(d.class_name) + string_size(d.caption.value_or(u""));
    if (d.font_face) size += 2 + string_size(*d.font_face) + (d.extended ? 4 : 0);
    for (const DialogControl& c : d.controls) {
        if (size % 4) size += 2;
        size += d.extended ? CONTROLEX_HEADER : CONTROL_HEADER;
        size +=
            name_size(c.class_name) + text_size(d, c.text) + 2 + uint32_t(c.creation_data.size());
    }
    return size;
}

uint32_t window_style(const DialogOptions& d) {
    uint32_t style = d.style;
    if (style == 0 && !d.style_given) style = DEFAULT_DIALOG_STYLE;
    if (d.font_face) style |= STYLE_SETFONT;
    if (d.caption) style |= STYLE_CAPTION;
    return style;
}

void put_dialog_header(ResData& out, const DialogOptions& d) {
    uint16_t count = uint16_t(d.controls.size()); // checked to fit
    if (d.extended) {
        out.u16(1);
        out.u16(0xFFFF);
        out.u32(d.help_id);
        out.u32(d.extended_style);
        out.u32(window_style(d));
    } else {
        out.u32(window_style(d));
        out.u32(d.extended_style);
    }
    out.u16(count);
    for (int16_t v : {d.x, d.y, d.cx, d.cy}) out.u16(uint16_t(v));
    out.name(d.menu);
    out.name(d.class_name);
    out.str(d.caption.value_or(u""));
    if (d.font_face) {
        out.u16(d.point_size);
        if (d.extended) {
            out.u16(d.weight);
            out.u8(d.italic);
            out.u8(d.character_set);
        }
        out.str(*d.font_face);
    }
    out.pad4();
}

void put_control(ResData& out, const DialogOptions& d, const DialogControl& c) {
    bool extended = d.extended;
    if (extended) {
        out.u32(c.help_id);
        out.u32(c.extended_style);
        out.u32(c.style);
    } else {
        out.u32(c.style);
        out.u32(c.extended_style);
    }
    for (int16_t v : {c.x, c.y, c.cx, c.cy}) out.u16(uint16_t(v));
    if (extended)
        out.u32(c.id);
    else
        out.u16(uint16_t(c.id));
    out.name(c.class_name);
    put_text(out, d, c.text);
    out.u16(uint16_t(c.creation_data.size()));
    out.raw(c.creation_data.data(), c.creation_data.size());
    out.pad4();
}

uint32_t write_dialog(const ScriptToken& name, const ResourceAttributes& attributes,
                      const DialogOptions& d) {
    uint32_t size = dialog_size(d);
    static ResData data; // kept from dialog to dialog: its room is reused
    data.clear();
    data.reserve(size + 3);
    put_dialog_header(data, d);
    for (const DialogControl& c : d.controls) put_control(data, d, c);
    return write_resource(size, attributes, make_ordinal(RT_DIALOG), name_of(name), data);
}

void parse_font(DialogOptions& d) {
    d.point_size = uint16_t(parse_expr16(true));
    accept(TK_COMMA);
    if (is_string(token.kind)) d.font_face = token_string();
    expect(TK_STRING);
    if (!d.extended) return;
    d.weight = 0;
    d.italic = 0;
    d.character_set = 1;
    if (!accept(TK_COMMA)) return;
    d.weight = uint16_t(parse_expr16(false));
    if (!accept(TK_COMMA)) return;
    d.italic = parse_expr16(false) != 0;
    if (!accept(TK_COMMA)) return;
    d.character_set = uint8_t(parse_expr16(false));
}

// The menu keeps its name as written: no upper-casing here.
void parse_dialog_menu(DialogOptions& d) {
    if (!is_string(token.kind) && token.kind != TK_NAME) {
        d.menu = make_ordinal(uint16_t(parse_expr16(true)));
        return;
    }
    d.menu = NameOrOrdinal{token_string()};
    next_token();
}

} // namespace

bool parse_dialog_option(DialogOptions& d) {
    int32_t kind = token.kind;
    switch (kind) {
    case TK_CAPTION:
    case TK_CLASS:
    case TK_EXSTYLE:
    case TK_FONT:
    case TK_MENU:
    case TK_STYLE:
        next_token();
        break;
    default:
        return false;
    }
    switch (kind) {
    case TK_CAPTION:
        if (is_string(token.kind)) d.caption = token_string();
        expect(TK_STRING);
        break;
    case TK_CLASS:
        if (is_string(token.kind)) {
            d.class_name = NameOrOrdinal{token_string()};
            next_token();
        } else {
            d.class_name = make_ordinal(uint16_t(parse_expr16(true)));
        }
        break;
    case TK_EXSTYLE:
        d.extended_style = parse_style(0);
        break;
    case TK_FONT:
        parse_font(d);
        break;
    case TK_MENU:
        parse_dialog_menu(d);
        break;
    default:
        d.style = parse_style(0);
        d.style_given = true;
        break;
    }
    return true;
}

void compile_dialog(const ScriptToken& name, int extended) {
    // Kept from dialog to dialog: the controls and their texts reuse the
    // room of those before, and every other field starts afresh.
    static DialogOptions d;
    DialogOptions fresh;
    fresh.controls.swap(d.controls);
    fresh.texts.swap(d.texts);
    d = std::move(fresh);
    d.controls.clear();
    d.texts.clear();
    d.extended = extended != 0;
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(MEM_MOVEABLE | MEM_PURE | MEM_DISCARDABLE);
    int16_t* rect[] = {&d.x, &d.y, &d.cx, &d.cy};
    for (int i = 0; i < 4; i++) {
        *rect[i] = parse_expr16(true);
        if (i < 3) accept(TK_COMMA);
    }
    if (d.extended && accept(TK_COMMA)) d.help_id = parse_expr(true);
    parse_optional_statements(attributes, &d);
    show_writing(d.extended ? u"DIALOGEX" : u"DIALOG", &name, &attributes);
    expect(TK_BEGIN);
    for (;;) {
        if (const ControlKeyword* k = find_control_keyword(token.kind)) {
            if (k->kind == TK_CONTROL)
                add_generic_control(d, k->style);
            else
                add_control(d, *k);
            if (d.extended && accept(TK_BEGIN))
                parse_creation_data(d.controls.back().creation_data);
        } else if (token.kind != TK_END) {
            report(error_code(MSG_INVALID_SYNTAX)); // the token is left to the statement loop
            return;
        }
        if (token.kind == TK_END) {
            bool fits = fits_16(d.controls.size(), u"dialog control count"); // at the END
            next_token();
            if (fits) report(write_dialog(name, attributes, d));
            return;
        }
    }
}

} // namespace tarn
