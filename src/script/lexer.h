// The script lexer: cuts the preprocessed text (with its line markers) into
// ScriptTokens, keeps the one current token that every statement parser
// inspects and advances, and the script location for diagnostics.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tarn {

enum TokenKind : int32_t {
    TK_OTHER = 0, // a character that starts no token
    TK_NAME = 1,
    TK_STRING = 2,
    TK_WSTRING = 3,
    TK_HEXSTRING = 4, // single-quoted literal
    TK_NUMBER = 5,
    TK_COMMA = 6,
    TK_AMPERSAND = 7,
    TK_BAR = 8,
    TK_TILDE = 9,
    TK_PLUS = 10,
    TK_MINUS = 11,
    TK_STAR = 12,
    TK_SLASH = 13,
    TK_LPAREN = 14,
    TK_RPAREN = 15,
    TK_EOF = 16,
    TK_ACCELERATORS = 17,
    TK_ALT = 18,
    TK_ANICURSOR = 19,
    TK_ANIICON = 20,
    TK_ASCII = 21,
    TK_AUTO3STATE = 22,
    TK_AUTOCHECKBOX = 23,
    TK_AUTORADIOBUTTON = 24,
    TK_BEGIN = 25,
    TK_BITMAP = 26,
    TK_BLOCK = 27,
    TK_CAPTION = 28,
    TK_CHARACTERISTICS = 29,
    TK_CHECKBOX = 30,
    TK_CHECKED = 31,
    TK_CLASS = 32,
    TK_COMBOBOX = 33,
    TK_CONTROL = 34,
    TK_CTEXT = 35,
    TK_CURSOR = 36,
    TK_DEFPUSHBUTTON = 37,
    TK_DIALOG = 38,
    TK_DIALOGEX = 39,
    TK_DISCARDABLE = 40,
    TK_DLGINCLUDE = 41,
    TK_EDITTEXT = 42,
    TK_END = 43,
    TK_EXSTYLE = 44,
    TK_FILEFLAGS = 45,
    TK_FILEFLAGSMASK = 46,
    TK_FILEOS = 47,
    TK_FILESUBTYPE = 48,
    TK_FILETYPE = 49,
    TK_FILEVERSION = 50,
    TK_FIXED = 51,
    TK_FONT = 52,
    TK_GRAYED = 53,
    TK_GROUPBOX = 54,
    TK_HELP = 55,
    TK_HTML = 56,
    TK_ICON = 57,
    TK_IMPURE = 58,
    TK_INACTIVE = 59,
    TK_LANGUAGE = 60,
    TK_LISTBOX = 61,
    TK_LOADONCALL = 62,
    TK_LTEXT = 63,
    TK_MANIFEST = 64,
    TK_MENU = 65,
    TK_MENUBARBREAK = 66,
    TK_MENUBREAK = 67,
    TK_MENUEX = 68,
    TK_MENUITEM = 69,
    TK_MESSAGETABLE = 70,
    TK_MOVEABLE = 71,
    TK_NOINVERT = 72,
    TK_NOT = 73,
    TK_PLUGPLAY = 74,
    TK_POPUP = 75,
    TK_PRELOAD = 76,
    TK_PRODUCTVERSION = 77,
    TK_PURE = 78,
    TK_PUSHBOX = 79,
    TK_PUSHBUTTON = 80,
    TK_RADIOBUTTON = 81,
    TK_RCDATA = 82,
    TK_RTEXT = 83,
    TK_SCROLLBAR = 84,
    TK_SEPARATOR = 85,
    TK_SHIFT = 86,
    TK_STATE3 = 87,
    TK_STRINGTABLE = 88,
    TK_STYLE = 89,
    TK_VALUE = 90,
    TK_VERSION = 91,
    TK_VERSIONINFO = 92,
    TK_VIRTKEY = 93,
    TK_VXD = 94,
};

constexpr int32_t TK_FIRST_KEYWORD = TK_ACCELERATORS;
constexpr int32_t TK_LAST_KEYWORD = TK_VXD;
constexpr size_t TOKEN_TEXT_UNITS = 4096;

// A token's units: 4096 to start with, as the design has them; only the
// extended dialect, which has no limit on a literal or a name, grows them.
// It reads as a plain array of units.
struct TokenText {
    TokenText() : units(TOKEN_TEXT_UNITS) {}
    operator char16_t*() { return units.data(); }
    operator const char16_t*() const { return units.data(); }
    char16_t* data() { return units.data(); }
    const char16_t* data() const { return units.data(); }
    size_t capacity() const { return units.size(); }
    // Room for n units at least; what is held stays.
    void ensure(size_t n) {
        if (n > units.size()) units.resize(std::max(n, 2 * units.size()));
    }

  private:
    std::vector<char16_t> units;
};

struct ScriptToken {
    int32_t kind = TK_EOF;
    uint64_t length = 0; // units in text (strings, names)
    int32_t is_long = 0; // the last number ended in "l" or "L"
    TokenText text;      // zero-terminated; see number_value
};

// A number's value is kept in the first four bytes of text.
inline uint32_t number_value(const ScriptToken& t) {
    uint32_t value;
    std::memcpy(&value, t.text.data(), sizeof value);
    return value;
}

extern ScriptToken token; // the current token

// State of a just-loaded library (empties the push-back buffer).
void script_reset();

// Where the lexer pulls its text from: the preprocessor's output, or for
// tests a source of their own (null restores the preprocessor's).
using ScriptSource = size_t (*)(char16_t* dest, size_t max);
void script_set_source(ScriptSource source);

int32_t next_token();
// The current token, if of this kind, is taken and the next one read.
inline bool accept(int32_t kind) {
    if (token.kind != kind) return false;
    next_token();
    return true;
}
// Expecting a string literal (TK_STRING) takes a wide one as well in the
// extended dialect.
bool expect(int32_t kind);
// Whether the kind is a string literal that a statement takes as text: the
// narrow one, and in the extended dialect the wide one too.
bool is_string(int32_t kind);
// The current token as "found: %1" shows it.
std::u16string token_display();

} // namespace tarn
