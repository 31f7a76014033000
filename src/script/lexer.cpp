// The script lexer. It pulls the preprocessed text in blocks, follows the
// line markers in it (file, line, and whether the text is a C header whose
// statements are skipped), and cuts the rest into ScriptTokens: names and the
// 78 keywords, numbers, string literals and punctuation.
#include "script/lexer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "support/platform.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

ScriptToken token;

namespace {

constexpr size_t BLOCK_UNITS = 32768;
constexpr int PUSHBACK_UNITS = 7;
constexpr size_t NAME_UNITS = 256;
constexpr size_t STRING_UNITS = TOKEN_TEXT_UNITS - 1; // 4095

// Character input: the block buffer and the push-back stack. `ready` is
// `end` while nothing is pushed back and 0 otherwise, so that the common
// case of get_char is one comparison.
struct LexerInput {
    // A zero after the text ends every scan. The preprocessor lends its
    // own text (so it is not copied); a test's source fills `own`.
    const char16_t* block = own;
    char16_t own[BLOCK_UNITS + 1];

    size_t pos = 0;
    size_t end = 0;
    size_t ready = 0;
    char16_t pushed[PUSHBACK_UNITS];
    int pushed_count = 0;
    ScriptSource source = nullptr; // null: the preprocessor's
};
LexerInput input;

// Sorted; the kind of entry i is TK_FIRST_KEYWORD + i.
// clang-format off
constexpr const char16_t* keywords[] = {
    u"accelerators", u"alt", u"anicursor", u"aniicon", u"ascii", u"auto3state",
    u"autocheckbox", u"autoradiobutton", u"begin", u"bitmap", u"block", u"caption",
    u"characteristics", u"checkbox", u"checked", u"class", u"combobox", u"control",
    u"ctext", u"cursor", u"defpushbutton", u"dialog", u"dialogex", u"discardable",
    u"dlginclude", u"edittext", u"end", u"exstyle", u"fileflags", u"fileflagsmask",
    u"fileos", u"filesubtype", u"filetype", u"fileversion", u"fixed", u"font",
    u"grayed", u"groupbox", u"help", u"html", u"icon", u"impure",
    u"inactive", u"language", u"listbox", u"loadoncall", u"ltext", u"manifest",
    u"menu", u"menubarbreak", u"menubreak", u"menuex", u"menuitem", u"messagetable",
    u"moveable", u"noinvert", u"not", u"plugplay", u"popup", u"preload",
    u"productversion", u"pure", u"pushbox", u"pushbutton", u"radiobutton", u"rcdata",
    u"rtext", u"scrollbar", u"separator", u"shift", u"state3", u"stringtable",
    u"style", u"value", u"version", u"versioninfo", u"virtkey", u"vxd",
};
// clang-format on
constexpr size_t KEYWORD_COUNT = sizeof keywords / sizeof keywords[0];
static_assert(KEYWORD_COUNT == TK_LAST_KEYWORD - TK_FIRST_KEYWORD + 1);

// Single characters that are tokens by themselves.
struct Punctuation {
    char16_t c;
    int32_t kind;
};
constexpr Punctuation punctuation[] = {
    {u',', TK_COMMA},  {u'&', TK_AMPERSAND}, {u'|', TK_BAR},   {u'~', TK_TILDE},
    {u'+', TK_PLUS},   {u'-', TK_MINUS},     {u'*', TK_STAR},  {u'/', TK_SLASH},
    {u'(', TK_LPAREN}, {u')', TK_RPAREN},    {u'{', TK_BEGIN}, {u'}', TK_END},
};

// Classes of the ASCII characters; above ASCII only the platform's
// alphanumeric test makes a name character.
enum : uint8_t { CH_NAME = 1, CH_DIGIT = 2, CH_OCTAL = 4, CH_HEX = 8 };

constexpr std::array<uint8_t, 128> make_ascii_classes() {
    std::array<uint8_t, 128> t{};
    for (char16_t c = u'a'; c <= u'z'; ++c) t[c] |= CH_NAME, t[c - 32] |= CH_NAME;
    for (char16_t c = u'0'; c <= u'9'; ++c) t[c] |= CH_NAME | CH_DIGIT | CH_HEX;
    for (char16_t c = u'0'; c <= u'7'; ++c) t[c] |= CH_OCTAL;
    for (char16_t c = u'a'; c <= u'f'; ++c) t[c] |= CH_HEX, t[c - 32] |= CH_HEX;
    for (char c : std::string_view("./!#$%':;<=>[\\]^_@`")) t[uint8_t(c)] |= CH_NAME;
    return t;
}
constexpr std::array<uint8_t, 128> ascii_classes = make_ascii_classes();

bool has_class(char16_t c, uint8_t cls) {
    return c < 128 && (ascii_classes[c] & cls);
}

// A pushed-back unit, or the next block.
[[gnu::noinline]] char16_t get_char_slowly() {
    if (input.pushed_count) {
        char16_t c = input.pushed[--input.pushed_count];
        if (input.pushed_count == 0) input.ready = input.end;
        return c;
    }
    if (input.pos == input.end) {
        input.pos = 0;
        if (input.source) {
            input.end = input.source(input.own, BLOCK_UNITS);
            input.own[input.end] = 0;
            input.block = input.own;
        } else {
            input.block = lendPreprocessed(BLOCK_UNITS, &input.end);
        }
        input.ready = input.end;
        if (input.end == 0) return 0;
    }
    return input.block[input.pos++];
}

char16_t get_char() {
    if (input.pos < input.ready) return input.block[input.pos++];
    return get_char_slowly();
}

// A push beyond the stack's depth is dropped, as the design has it. The
// unit just taken from the block goes back by a step back instead, which
// reads the same and keeps the next read on the quick path.
void push_back(char16_t c) {
    if (input.pushed_count == 0 && input.pos > 0 && input.block[input.pos - 1] == c) {
        --input.pos;
        return;
    }
    if (input.pushed_count < PUSHBACK_UNITS) {
        input.pushed[input.pushed_count++] = c;
        input.ready = 0;
    }
}

// Units straight from the block for as long as `keep` takes them (it
// stores what it takes and answers false to stop), without the unit-by-unit
// path: the common case of blanks, names, digits and string text. Nothing
// is taken while a unit is pushed back, as `ready` is 0 then.
template <class Keep> void take_from_block(Keep keep) {
    size_t pos = input.pos;
    while (pos < input.ready && keep(input.block[pos])) ++pos;
    input.pos = pos;
}

bool is_digit(char16_t c) {
    return has_class(c, CH_DIGIT);
}
bool is_octal(char16_t c) {
    return has_class(c, CH_OCTAL);
}
bool is_blank(char16_t c) {
    return c == u' ' || c == u'\t';
}

constexpr std::array<int8_t, 128> hex_values = [] {
    std::array<int8_t, 128> t{};
    for (size_t c = 0; c < 128; ++c)
        t[c] = (ascii_classes[c] & CH_HEX) ? int8_t(c <= u'9' ? c - u'0' : (c | 0x20) - u'a' + 10)
                                           : -1;
    return t;
}();

int hex_value(char16_t c) {
    return c < 128 ? hex_values[c] : -1;
}

bool is_name_char(char16_t c) {
    return c < 128 ? has_class(c, CH_NAME) : plat_is_alphanumeric(c);
}

char16_t fold(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c;
}

constexpr size_t LONGEST_KEYWORD = [] {
    size_t longest = 0;
    for (const char16_t* k : keywords) longest = std::max(longest, std::u16string_view(k).size());
    return longest;
}();

// The keywords in an open-addressed table keyed by length and the first,
// second and last units with their case bit set (every keyword unit is a
// lower-case letter or a digit, which already has it): one probe or two for
// most names, where a search through the sorted list costs a dozen compares.
constexpr size_t KEYWORD_SLOTS = 256;

constexpr size_t keyword_hash(char16_t first, char16_t second, char16_t last, size_t n) {
    return (size_t(first | 0x20) * 7 + size_t(second | 0x20) * 3 + size_t(last | 0x20) * 5 +
            n * 11) %
           KEYWORD_SLOTS;
}

struct KeywordSlot {
    uint8_t entry = 0; // keyword index + 1; 0: empty
    uint8_t length = 0;
};

constexpr std::array<KeywordSlot, KEYWORD_SLOTS> keyword_slots = [] {
    std::array<KeywordSlot, KEYWORD_SLOTS> t{};
    for (size_t i = 0; i < KEYWORD_COUNT; ++i) {
        std::u16string_view k = keywords[i];
        size_t h = keyword_hash(k[0], k[1], k.back(), k.size());
        while (t[h].entry) h = (h + 1) % KEYWORD_SLOTS;
        t[h] = {uint8_t(i + 1), uint8_t(k.size())};
    }
    return t;
}();

// Case-insensitive. A name longer than every keyword, or shorter than all,
// is none.
int32_t keyword_kind(const char16_t* name, size_t n) {
    if (n < 3 || n > LONGEST_KEYWORD) return TK_NAME;
    for (size_t h = keyword_hash(name[0], name[1], name[n - 1], n); keyword_slots[h].entry;
         h = (h + 1) % KEYWORD_SLOTS) {
        if (keyword_slots[h].length != n) continue;
        const char16_t* k = keywords[keyword_slots[h].entry - 1];
        // Four units at a time, then one by one. A unit above ASCII never
        // matches: it keeps its high bits.
        constexpr uint64_t CASE_BITS = 0x0020002000200020u;
        size_t i = 0;
        for (uint64_t a, b; i + 4 <= n; i += 4) {
            std::memcpy(&a, name + i, sizeof a);
            std::memcpy(&b, k + i, sizeof b);
            if ((a | CASE_BITS) != b) break;
        }
        while (i < n && char16_t(name[i] | 0x20) == k[i]) ++i;
        if (i == n) return TK_FIRST_KEYWORD + keyword_slots[h].entry - 1;
    }
    return TK_NAME;
}

void set_number(uint32_t value) {
    std::memcpy(token.text, &value, sizeof value);
    token.length = 0;
    token.kind = TK_NUMBER;
}

// After the first digit. The digits are not checked against the base.
void read_number(char16_t first) {
    uint32_t base = 10, value = uint32_t(first - u'0');
    char16_t c = get_char();
    if (first == u'0') {
        base = 8;
        if (c == u'o')
            c = get_char();
        else if (c == u'x' || c == u'X')
            base = 16, c = get_char();
    }
    for (int d; (d = hex_value(c)) >= 0; c = get_char()) {
        value = value * base + uint32_t(d);
        take_from_block([&](char16_t next) {
            if ((d = hex_value(next)) < 0) return false;
            value = value * base + uint32_t(d);
            return true;
        });
    }
    token.is_long = (c == u'l' || c == u'L');
    if (!token.is_long && c != u'u' && c != u'U') push_back(c);
    set_number(value);
}

// Stores a unit of a name or literal at n, growing the text where the
// extended dialect lets a token run past its usual room.
void put_unit(size_t& n, char16_t c) {
    if (n + 1 >= token.text.capacity()) token.text.ensure(n + 2);
    token.text[n++] = c;
}

// The same for a run of units: room once, one copy.
void put_units(size_t& n, const char16_t* from, size_t count) {
    if (n + count + 1 > token.text.capacity()) token.text.ensure(n + count + 2);
    std::memcpy(token.text.data() + n, from, count * sizeof(char16_t));
    n += count;
}

// The block's units from the read position on that `keep` accepts, at most
// `most` of them: taken, and their number returned; they start at `*from`.
template <class Keep> size_t take_run(Keep keep, size_t most, const char16_t** from) {
    size_t pos = input.pos, end = pos;
    size_t left = input.ready > pos ? input.ready - pos : 0; // none while units are pushed back
    size_t stop = pos + std::min(left, most);
    while (end < stop && keep(input.block[end])) ++end;
    input.pos = end;
    *from = input.block + pos;
    return end - pos;
}

// Names stop after 256 units, and the rest starts the next token; the
// extended dialect reads a name whole.
void read_name(char16_t first) {
    size_t limit = compile_state.extended ? SIZE_MAX : NAME_UNITS;
    size_t n = 0;
    token.text[n++] = first;
    // ASCII name units in bulk; the loop after it reads whatever ends the
    // name as before.
    const char16_t* run = nullptr;
    size_t count = take_run([](char16_t c) { return has_class(c, CH_NAME); }, limit - n, &run);
    put_units(n, run, count);
    char16_t c = 0;
    while (n < limit && is_name_char(c = get_char())) put_unit(n, c);
    if (n < limit) push_back(c);
    token.text[n] = 0;
    token.length = n;
    token.kind = keyword_kind(token.text, n);
}

// The one-letter escapes and the units they stand for ("\\a" is a backspace
// too); 0 for any other unit.
struct SimpleEscape {
    char16_t c, value;
};
constexpr SimpleEscape simple_escapes[] = {
    {u'a', 8},  {u'b', 8},  {u'f', 12}, {u'n', 10},  {u'r', 13},  {u't', 9},
    {u'v', 11}, {u'?', 63}, {u'"', 34}, {u'\'', 39}, {u'\\', 92},
};
constexpr std::array<char16_t, 128> simple_escape_values = [] {
    std::array<char16_t, 128> t{};
    for (const SimpleEscape& e : simple_escapes) t[e.c] = e.value;
    return t;
}();

char16_t simple_escape(char16_t c) {
    return c < 128 ? simple_escape_values[c] : 0;
}

// Collects the units of a literal, dropping those beyond the limit (none
// in the extended dialect).
struct LiteralText {
    size_t n = 0;
    size_t limit = compile_state.extended ? SIZE_MAX : STRING_UNITS;
    bool truncated = false;
    void put(char16_t c) {
        if (n < limit)
            put_unit(n, c);
        else
            truncated = true;
    }
    void put_run(const char16_t* from, size_t count) {
        size_t take = std::min(count, limit - n);
        if (take < count) truncated = true;
        put_units(n, from, take);
    }
    void finish(int32_t kind) {
        token.text[n] = 0;
        token.length = n;
        token.kind = kind;
        if (truncated) report(warning_code(MSG_STRING_TOO_LONG));
    }
};

// After a backslash: stores the unit(s) the escape stands for. "\x" takes
// any number of digits, except in the wide pieces of the extended dialect,
// where four make one unit as a C compiler reads them.
void read_escape(LiteralText& out, bool wide) {
    char16_t c = get_char();
    if (is_octal(c)) {
        char16_t value = c - u'0';
        int digits = 1;
        for (; digits < 3 && is_octal(c = get_char()); ++digits) value = value * 8 + (c - u'0');
        if (digits < 3) push_back(c);
        out.put(value);
        return;
    }
    if (c == u'x') {
        char16_t value = 0;
        int most = wide && compile_state.extended ? 4 : INT32_MAX;
        int digits = 0;
        for (int d; digits < most && (d = hex_value(c = get_char())) >= 0; ++digits)
            value = char16_t(value * 16 + d);
        if (digits < most) push_back(c);
        out.put(value);
        return;
    }
    if (char16_t value = simple_escape(c)) return out.put(value);
    out.put(u'\\');
    if (c != 0)
        out.put(c);
    else
        push_back(c);
}

// The first unit from `pos` on (before `end`) that ends a run of plain
// literal text: a quote, a backslash or a zero; `end` if none does.
size_t plain_run_end(const char16_t* b, size_t pos, size_t end) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi16(u'"'), backslash = _mm_set1_epi16(u'\\');
    const __m128i zero = _mm_setzero_si128();
    for (; pos + 8 <= end; pos += 8) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + pos));
        __m128i hit =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash)),
                         _mm_cmpeq_epi16(v, zero));
        if (int mask = _mm_movemask_epi8(hit))
            return pos + size_t(__builtin_ctz(unsigned(mask))) / 2;
    }
#else
    // Four units at a time while none of them ends the run (a zero lane
    // test on each of the three values).
    constexpr uint64_t ONES = 0x0001000100010001u, HIGHS = 0x8000800080008000u;
    auto any_zero = [](uint64_t v) { return (v - ONES) & ~v & HIGHS; };
    for (; pos + 4 <= end; pos += 4) {
        uint64_t four;
        std::memcpy(&four, b + pos, sizeof four);
        if (any_zero(four) | any_zero(four ^ (ONES * u'"')) | any_zero(four ^ (ONES * u'\\')))
            break;
    }
#endif
    while (pos < end && b[pos] != u'"' && b[pos] != u'\\' && b[pos] != 0) ++pos;
    return pos;
}

// After the opening double quote. Narrow strings separated by blanks join.
// The units of a literal up to the next quote, backslash or zero, in bulk
// (none while a unit is pushed back, as `ready` is 0 then).
void take_plain_units(LiteralText& out) {
    size_t start = input.pos;
    if (start >= input.ready) return;
    size_t end = plain_run_end(input.block, start, input.ready);
    input.pos = end;
    out.put_run(input.block + start, end - start);
}

// After a closing quote and the blanks behind it: whether another literal
// follows that joins this one; if not, what was read goes back. Narrow
// literals join narrow ones; in the extended dialect any two join, and a
// wide piece makes the whole wide (as the version headers build their texts
// from pieces of both kinds).
bool joins_next(char16_t c, int32_t& kind, bool& wide_piece) {
    if (c == u'"' && (kind == TK_STRING || compile_state.extended)) {
        wide_piece = false;
        return true;
    }
    if (c != u'L' || !compile_state.extended) {
        push_back(c);
        return false;
    }
    char16_t quote = get_char();
    if (quote != u'"') {
        push_back(quote);
        push_back(c);
        return false;
    }
    kind = TK_WSTRING;
    wide_piece = true;
    return true;
}

void read_string(int32_t kind) {
    LiteralText out;
    bool wide_piece = kind == TK_WSTRING;
    for (char16_t c; (take_plain_units(out), c = get_char()) != 0;) {
        if (c == u'\\') {
            read_escape(out, wide_piece);
            continue;
        }
        if (c != u'"') {
            out.put(c);
            continue;
        }
        c = get_char();
        if (c == u'"') {
            out.put(c);
            continue;
        }
        if (kind == TK_STRING || compile_state.extended) {
            while (is_blank(c)) c = get_char();
            if (joins_next(c, kind, wide_piece)) continue;
        } else {
            push_back(c);
        }
        break;
    }
    out.finish(kind);
}

void read_quoted(int32_t kind) {
    LiteralText out;
    for (char16_t c; (c = get_char()) != 0 && c != u'\'';) out.put(c);
    out.finish(kind);
}

bool ends_with_c_or_h(const char16_t* name, size_t n) {
    if (n < 2 || name[n - 2] != u'.') return false;
    char16_t c = fold(name[n - 1]);
    return c == u'c' || c == u'h';
}

// After "#": "line", the number, and the quoted file name if any.
void read_line_marker() {
    for (const char16_t* p = u"line"; *p; ++p)
        if (get_char() != *p) return;
    char16_t c;
    while (is_blank(c = get_char())) {
    }
    uint32_t line = 0;
    for (; is_digit(c); c = get_char()) line = line * 10 + uint32_t(c - u'0');
    script_location.script_line = line - 1; // the marker's own line feed adds one
    while (is_blank(c)) c = get_char();
    if (c == u'"') {
        size_t n = 0;
        take_from_block([&](char16_t b) {
            if (b == u'"' || b == 0) return false;
            if (n < SCRIPT_FILE_UNITS - 1) script_location.script_file[n++] = b;
            return true;
        });
        while ((c = get_char()) != 0 && c != u'"')
            if (n < SCRIPT_FILE_UNITS - 1) script_location.script_file[n++] = c;
        script_location.script_file[n] = 0;
    } else {
        push_back(c);
    }
    const char16_t* file = script_location.script_file;
    size_t n = str_len(file);
    script_location.in_script = (n < 3 || !ends_with_c_or_h(file, n)) ? 1 : 0;
}

constexpr std::array<int32_t, 128> make_punctuation_kinds() {
    std::array<int32_t, 128> t{};
    for (const Punctuation& p : punctuation) t[p.c] = p.kind;
    return t;
}
constexpr std::array<int32_t, 128> punctuation_kinds = make_punctuation_kinds();

int32_t punctuation_kind(char16_t c) {
    return c < 128 ? punctuation_kinds[c] : TK_OTHER;
}

// ---- The quick path ----
// Most tokens lie whole inside the block with nothing pushed back: they are
// cut straight from the block by index. A token the quick path cannot finish
// there (one that may run into the next block, a line marker, an escape, a
// joined or overlong literal, a unit above ASCII) is left untouched for the
// unit-by-unit path, which reads it from its first unit.

// What a unit starting a token leads to.
enum : uint8_t { Q_SLOW, Q_BLANK, Q_NEWLINE, Q_PUNCT, Q_DIGIT, Q_NAME, Q_STRING, Q_L };

constexpr std::array<uint8_t, 128> make_quick_starts() {
    std::array<uint8_t, 128> t{};
    for (size_t c = 1; c < 128; ++c) {
        if (c == u'#' || c == u'\'')
            t[c] = Q_SLOW;
        else if (c == u' ' || c == u'\t' || c == u'\r')
            t[c] = Q_BLANK;
        else if (c == u'\n')
            t[c] = Q_NEWLINE;
        else if (c == u'"')
            t[c] = Q_STRING;
        else if (c == u'L')
            t[c] = Q_L;
        else if (punctuation_kinds[c])
            t[c] = Q_PUNCT;
        else if (ascii_classes[c] & CH_DIGIT)
            t[c] = Q_DIGIT;
        else if (ascii_classes[c] & CH_NAME)
            t[c] = Q_NAME;
    }
    return t;
}
constexpr std::array<uint8_t, 128> quick_starts = make_quick_starts();

// The scans below stop at the zero after the block's text: whatever ends
// there may go on in the next block and is left to the unit-by-unit path.
bool quick_number(const char16_t* b, size_t start, size_t end) {
    uint32_t base = 10, value = uint32_t(b[start] - u'0');
    size_t p = start + 1;
    if (b[start] == u'0') {
        base = 8;
        if (b[p] == u'o')
            ++p;
        else if (b[p] == u'x' || b[p] == u'X')
            base = 16, ++p;
    }
    if (base == 16) // the "L" marked masks of the headers: shifts, no multiply
        for (int d; (d = hex_value(b[p])) >= 0; ++p) value = value << 4 | uint32_t(d);
    else
        for (int d; (d = hex_value(b[p])) >= 0; ++p) value = value * base + uint32_t(d);
    if (p >= end) return false;
    char16_t c = b[p];
    token.is_long = (c == u'l' || c == u'L');
    if (token.is_long || c == u'u' || c == u'U') ++p;
    input.pos = p;
    set_number(value);
    return true;
}

// Copied while scanned; a name of NAME_UNITS or more is left to the
// unit-by-unit path, which knows where to cut it.
bool quick_name(const char16_t* b, size_t start, size_t end) {
    char16_t* text = token.text.data();
    text[0] = b[start];
    size_t n = 1;
    for (char16_t c; n < NAME_UNITS && (c = b[start + n]) < 128 && (ascii_classes[c] & CH_NAME);
         ++n)
        text[n] = c;
    size_t p = start + n;
    if (p >= end || b[p] >= 128 || n >= NAME_UNITS) return false;
    text[n] = 0;
    token.length = n;
    token.kind = keyword_kind(text, n);
    input.pos = p;
    return true;
}

// `open` is just past the opening quote. The one-letter escapes are taken
// here; any other, like a literal that would be cut, is left to the
// unit-by-unit path.
bool quick_string(const char16_t* b, size_t open, size_t end, int32_t kind) {
    size_t limit = compile_state.extended ? SIZE_MAX : STRING_UNITS;
    size_t n = 0, close = open;
    for (size_t p = open;;) {
        close = plain_run_end(b, p, end);
        size_t run = close - p;
        if (close >= end || run > limit - n) return false;
        token.text.ensure(n + run + 2);
        std::memcpy(token.text.data() + n, b + p, run * sizeof(char16_t));
        n += run;
        if (b[close] == u'"') break;
        char16_t value = b[close] == u'\\' ? simple_escape(b[close + 1]) : 0;
        if (value == 0 || n == limit) return false; // a zero, or another escape
        token.text[n++] = value;
        p = close + 2;
    }
    size_t next = close + 1;
    if (next >= end || b[next] == u'"') return false; // a doubled quote
    if (kind == TK_STRING || compile_state.extended) {
        while (next < end && is_blank(b[next])) ++next;
        if (next >= end) return false;
        if (b[next] == u'"' || (b[next] == u'L' && compile_state.extended))
            return false; // may join
    }
    token.text[n] = 0;
    token.length = n;
    token.kind = kind;
    input.pos = next;
    return true;
}

// Skips blanks and line feeds and cuts the token that follows, if it can;
// otherwise the read position is left on the token's first unit.
bool quick_token() {
    const char16_t* b = input.block;
    size_t pos = input.pos, end = input.ready; // `ready` is 0 while a unit is pushed back
    if (pos >= end) return false;
    uint8_t q;
    char16_t c;
    for (;; ++pos) {
        c = b[pos];
        if (c == u' ') continue; // the usual gap, ahead of the table
        q = c < 128 ? quick_starts[c] : uint8_t(Q_SLOW);
        if (q == Q_BLANK) continue;
        if (q != Q_NEWLINE) break;
        script_location.script_line += 1;
    }
    input.pos = pos;
    // Numbers and punctuation are most tokens: tested before the rest.
    if (q == Q_DIGIT) return quick_number(b, pos, end);
    if (q == Q_PUNCT) {
        token.length = 0;
        token.text[0] = 0;
        token.kind = punctuation_kinds[c];
        input.pos = pos + 1;
        return true;
    }
    switch (q) {
    case Q_NAME:
        return quick_name(b, pos, end);
    case Q_STRING:
        return quick_string(b, pos + 1, end, TK_STRING);
    case Q_L:
        if (b[pos + 1] == u'"') return quick_string(b, pos + 2, end, TK_WSTRING);
        return quick_name(b, pos, end);
    default:
        return false; // the zero after the text among them
    }
}

// The unit-by-unit path: any token, wherever it lies. After a line feed or
// a line marker the quick path is tried again: a header's many empty lines
// follow its markers.
[[gnu::noinline]] int32_t next_token_slowly() {
    for (;;) {
        char16_t c = get_char();
        token.length = 0;
        token.text[0] = 0;
        switch (c) {
        case 0:
            return token.kind = TK_EOF;
        case u'L':
            if ((c = get_char()) == u'"') {
                read_string(TK_WSTRING);
                return token.kind;
            }
            push_back(c);
            read_name(u'L');
            return token.kind;
        case u' ':
        case u'\t':
        case u'\r':
            take_from_block([](char16_t b) { return b == u' ' || b == u'\t' || b == u'\r'; });
            continue;
        case u'\n':
            script_location.script_line += 1;
            if (quick_token()) return token.kind;
            continue;
        case u'#':
            read_line_marker();
            if (quick_token()) return token.kind;
            continue;
        case u'"':
            read_string(TK_STRING);
            return token.kind;
        case u'\'':
            read_quoted(TK_HEXSTRING);
            return token.kind;
        default:
            break;
        }
        if (int32_t kind = punctuation_kind(c)) return token.kind = kind;
        if (is_digit(c))
            read_number(c);
        else if (is_name_char(c))
            read_name(c);
        else
            token.kind = TK_OTHER;
        return token.kind;
    }
}
} // namespace

void script_reset() {
    script_location = ScriptLocation{};
    token = ScriptToken{};
    input.pos = input.end = input.ready = 0;
    input.pushed_count = 0;
    input.source = nullptr;
    input.block = input.own;
}

void script_set_source(ScriptSource source) {
    input.source = source;
    input.block = input.own;
    input.pos = input.end = input.ready = 0;
    input.pushed_count = 0;
}

int32_t next_token() {
    if (quick_token()) return token.kind;
    return next_token_slowly();
}

namespace {

DiagnosticCode mismatch_code(int32_t expected) {
    switch (expected) {
    case TK_STRING:
        return error_code(MSG_STRING_EXPECTED);
    case TK_NUMBER:
        return error_code(token.kind == TK_NAME ? MSG_UNKNOWN_KEYWORD : MSG_NUMBER_EXPECTED);
    case TK_COMMA:
        return error_code(MSG_COMMA_EXPECTED);
    case TK_BEGIN:
        return error_code(MSG_BEGIN_EXPECTED);
    case TK_END:
        return error_code(MSG_END_EXPECTED);
    default:
        return error_code(MSG_INVALID_SYNTAX);
    }
}

} // namespace

bool is_string(int32_t kind) {
    return kind == TK_STRING || (kind == TK_WSTRING && compile_state.extended);
}

bool expect(int32_t kind) {
    if (accept(kind)) return true;
    if (kind == TK_STRING && is_string(token.kind)) {
        next_token();
        return true;
    }
    report(mismatch_code(kind), token_display());
    if (token.kind == TK_EOF)
        report(fatal_code(MSG_UNEXPECTED_EOF));
    else if (token.kind != TK_END)
        next_token();
    return false;
}

std::u16string token_display() {
    static const char16_t* const fixed[] = {
        u"",  nullptr, u"\"STRING\"", u"L\"STRING\"", u"'HEXSTRING'", nullptr, u",", u"&",   u"|",
        u"~", u"+",    u"-",          u"*",           u"/",           u"(",    u")", u"EOF",
    };
    int32_t k = token.kind;
    if (k == TK_NAME) return std::u16string(token.text, token.length);
    if (k == TK_NUMBER) return decimal_text(number_value(token));
    if (k >= TK_FIRST_KEYWORD && k <= TK_LAST_KEYWORD) return keywords[k - TK_FIRST_KEYWORD];
    if (k >= 0 && k < TK_FIRST_KEYWORD) return fixed[k];
    return u"";
}

} // namespace tarn
