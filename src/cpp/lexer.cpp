// The preprocessor lexer: a 32-state automaton over code units 0 to 255,
// built once from a transition list, that cuts one logical line of the
// current source into a token row. Comments, white space and splices become
// the white-space count in front of the next token.
#include "cpp/state.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "diag/report.h"
#include "support/memory.h"

namespace tarn {

namespace {

// Actions of negative table entries (~(kind * 128 + action), bit 64: check
// for a line splice first).
enum Action : int {
    A_TAKE = 32,   // the token ends with this unit
    A_BEFORE = 33, // the token ends before it
    A_END = 34,    // end of input
    A_NEWLINE = 35,
    A_STRING_END = 36, // end of input in a string or character constant
    A_STRING_NL = 37,  // newline in one
    A_COMMENT_NL = 38,
    A_COMMENT_END = 39, // end of input in a comment
    A_COMMENT_DONE = 40,
    A_REFILL = 41,
    A_SPACE_DONE = 42,
    A_NAME_DONE = 43,
};
constexpr int SPLICE_CHECK = 64;

// Character classes of the transition list.
enum : int16_t { C_ANY = 256, C_LETTER, C_DIGIT, C_SPACE };

constexpr int16_t act(int kind, int action) {
    return static_cast<int16_t>(~(kind * 128 + action));
}

struct Transition {
    uint8_t state;
    int16_t on[4];
    int16_t target;
};

// In order: each state's "any" first, the special cases after it.
constexpr Transition TRANSITIONS[] = {
    {0, {C_ANY}, act(PP_OTHER, A_TAKE)},
    {0, {C_SPACE}, 14},
    {0, {C_DIGIT}, 1},
    {0, {'.'}, 3},
    {0, {C_LETTER}, 4},
    {0, {'L'}, 5},
    {0, {'"'}, 6},
    {0, {'\''}, 12},
    {0, {'/'}, 8},
    {0, {InputEndMark}, act(PP_END, A_END)},
    {0, {'\n'}, act(PP_END, A_NEWLINE)},
    {0, {'-'}, 16},
    {0, {'+'}, 15},
    {0, {'<'}, 23},
    {0, {'>'}, 21},
    {0, {'='}, 27},
    {0, {'!'}, 28},
    {0, {'&'}, 26},
    {0, {'|'}, 25},
    {0, {'#'}, 19},
    {0, {'%'}, 18},
    {0, {'['}, act(K_SBRA, A_TAKE)},
    {0, {']'}, act(K_KET, A_TAKE)},
    {0, {'('}, act(K_LP, A_TAKE)},
    {0, {')'}, act(K_RP, A_TAKE)},
    {0, {'*'}, 17},
    {0, {','}, act(K_COMMA, A_TAKE)},
    {0, {'?'}, act(K_QUEST, A_TAKE)},
    {0, {':'}, act(K_COLON, A_TAKE)},
    {0, {';'}, act(K_SEMIC, A_TAKE)},
    {0, {'{'}, act(K_CBRA, A_TAKE)},
    {0, {'}'}, act(K_CKET, A_TAKE)},
    {0, {'~'}, act(K_TILDE, A_TAKE)},
    {0, {'^'}, 20},
    // numbers: no underscore, so 1_000 is 1 and _000
    {1, {C_ANY}, act(PP_NUMBER, A_BEFORE)},
    {1, {C_DIGIT, C_LETTER, '.'}, 1},
    {1, {'E', 'e'}, 2},
    {1, {'_'}, act(PP_NUMBER, A_BEFORE)},
    {2, {C_ANY}, act(PP_NUMBER, A_BEFORE)},
    {2, {'+', '-'}, 1},
    {2, {C_DIGIT, C_LETTER}, 1},
    {2, {'_'}, act(PP_NUMBER, A_BEFORE)},
    {3, {C_ANY}, act(K_DOT, A_BEFORE)},
    {3, {'.'}, 29},
    {3, {C_DIGIT}, 1},
    {29, {C_ANY}, act(PP_OTHER, A_BEFORE)},
    {29, {C_DIGIT}, 1},
    {29, {'.'}, act(K_ELLIPS, A_TAKE)},
    // names, and the L of wide literals
    {4, {C_ANY}, act(PP_NAME, A_NAME_DONE)},
    {4, {C_LETTER, C_DIGIT}, 4},
    {5, {C_ANY}, act(PP_NAME, A_NAME_DONE)},
    {5, {C_LETTER, C_DIGIT}, 4},
    {5, {'"'}, 6},
    {5, {'\''}, 12},
    // strings and character constants
    {6, {C_ANY}, 6},
    {6, {'"'}, act(PP_STRING, A_TAKE)},
    {6, {'\\'}, 7},
    {6, {'\n'}, act(PP_END, A_STRING_NL)},
    {6, {InputEndMark}, act(PP_END, A_STRING_END)},
    {7, {C_ANY}, 6},
    {7, {'\n'}, act(PP_END, A_STRING_NL)},
    {7, {InputEndMark}, act(PP_END, A_STRING_END)},
    {12, {C_ANY}, 12},
    {12, {'\''}, act(PP_CHAR, A_TAKE)},
    {12, {'\\'}, 13},
    {12, {'\n'}, act(PP_END, A_STRING_NL)},
    {12, {InputEndMark}, act(PP_END, A_STRING_END)},
    {13, {C_ANY}, 12},
    {13, {'\n'}, act(PP_END, A_STRING_NL)},
    {13, {InputEndMark}, act(PP_END, A_STRING_END)},
    // comments
    {8, {C_ANY}, act(K_SLASH, A_BEFORE)},
    {8, {'='}, act(K_ASSLASH, A_TAKE)},
    {8, {'*'}, 9},
    {8, {'/'}, 11},
    {9, {C_ANY}, 9},
    {9, {'\n'}, act(PP_END, A_COMMENT_NL)},
    {9, {'*'}, 10},
    {9, {InputEndMark}, act(PP_END, A_COMMENT_END)},
    {10, {C_ANY}, 9},
    {10, {'\n'}, act(PP_END, A_COMMENT_NL)},
    {10, {'*'}, 10},
    {10, {'/'}, act(PP_END, A_COMMENT_DONE)},
    {11, {C_ANY}, 11},
    {11, {'\n'}, act(PP_END, A_NEWLINE)},
    {11, {InputEndMark}, act(PP_END, A_COMMENT_END)},
    // white space
    {14, {C_ANY}, act(PP_END, A_SPACE_DONE)},
    {14, {C_SPACE}, 14},
    // operators
    {16, {C_ANY}, act(K_MINUS, A_BEFORE)},
    {16, {'-'}, act(K_MMINUS, A_TAKE)},
    {16, {'='}, act(K_ASMINUS, A_TAKE)},
    {16, {'>'}, act(K_ARROW, A_TAKE)},
    {15, {C_ANY}, act(K_PLUS, A_BEFORE)},
    {15, {'+'}, act(K_PPLUS, A_TAKE)},
    {15, {'='}, act(K_ASPLUS, A_TAKE)},
    {23, {C_ANY}, act(K_LT, A_BEFORE)},
    {23, {'<'}, 24},
    {23, {'='}, act(K_LEQ, A_TAKE)},
    {24, {C_ANY}, act(K_LSH, A_BEFORE)},
    {24, {'='}, act(K_ASLSH, A_TAKE)},
    {21, {C_ANY}, act(K_GT, A_BEFORE)},
    {21, {'>'}, 22},
    {21, {'='}, act(K_GEQ, A_TAKE)},
    {22, {C_ANY}, act(K_RSH, A_BEFORE)},
    {22, {'='}, act(K_ASRSH, A_TAKE)},
    {27, {C_ANY}, act(K_ASGN, A_BEFORE)},
    {27, {'='}, act(K_EQ, A_TAKE)},
    {28, {C_ANY}, act(K_NOT, A_BEFORE)},
    {28, {'='}, act(K_NEQ, A_TAKE)},
    {26, {C_ANY}, act(K_AND, A_BEFORE)},
    {26, {'&'}, act(K_LAND, A_TAKE)},
    {26, {'='}, act(K_ASAND, A_TAKE)},
    {25, {C_ANY}, act(K_OR, A_BEFORE)},
    {25, {'|'}, act(K_LOR, A_TAKE)},
    {25, {'='}, act(K_ASOR, A_TAKE)},
    {19, {C_ANY}, act(PP_HASH, A_BEFORE)},
    {19, {'#'}, act(PP_PASTE, A_TAKE)},
    {18, {C_ANY}, act(K_PCT, A_BEFORE)},
    {18, {'='}, act(K_ASPCT, A_TAKE)},
    {17, {C_ANY}, act(K_STAR, A_BEFORE)},
    {17, {'='}, act(K_ASSTAR, A_TAKE)},
    {20, {C_ANY}, act(K_CIRC, A_BEFORE)},
    {20, {'='}, act(K_ASCIRC, A_TAKE)},
};

bool in_class(int16_t cls, int c, const bool* letters) {
    switch (cls) {
    case C_ANY:
        return true;
    case C_DIGIT:
        return c >= '0' && c <= '9';
    case C_SPACE:
        return c == ' ' || c == '\t' || c == '\v' || c == '\r';
    case C_LETTER:
        return letters[c];
    default:
        return c == cls;
    }
}

// Start of a line: start the buffer over when all is read, else move the
// unread text down once three quarters are used.
void start_line(SourceFile* s) {
    if (s->cursor >= s->end) {
        s->end = s->buffer;
        fillbuf(s);
        s->cursor = s->buffer;
    } else if (s->cursor - s->buffer >= static_cast<ptrdiff_t>(LINE_COMPACT_AT)) {
        size_t n = static_cast<size_t>(s->end + MARKER_UNITS - s->cursor);
        std::memmove(s->buffer, s->cursor, n * sizeof(char16_t));
        s->end -= s->cursor - s->buffer;
        s->cursor = s->buffer;
    }
}

// Inside a long comment: drop what was read of it, keeping its first unit.
char16_t* compact_comment(SourceFile* s, char16_t* cp, const char16_t* comment) {
    if (cp - s->buffer < static_cast<ptrdiff_t>(COMMENT_COMPACT_AT)) return cp;
    char16_t* dest = const_cast<char16_t*>(comment) + 1;
    size_t n = static_cast<size_t>(s->end + MARKER_UNITS - cp);
    std::memmove(dest, cp, n * sizeof(char16_t));
    s->end -= cp - dest;
    return dest;
}

// The next slot of the row; `limit` is the end of its room. Kind and
// length are set when the token is complete.
PpToken* fresh_slot(TokenRow* row, PpToken*& limit, const char16_t* cp) {
    if (row->last >= limit) {
        growRow(2 * row->max, row);
        limit = row->base + row->max;
    }
    PpToken* tp = row->last;
    tp->flag = 0;
    tp->hideset = 0;
    tp->wslen = 0;
    tp->text = cp;
    return tp;
}

// States that a run of units leaves unchanged, each with its bit in
// unit_ends: the skip over such a run is exactly what the table would do.
enum State : int {
    S_NUMBER = 1,
    S_NAME = 4,
    S_L = 5,
    S_STRING = 6,
    S_BLOCK = 9,
    S_LINE = 11,
    S_CHAR = 12,
    S_SPACE = 14
};
// The bit of each run state (0 for the others).
constexpr std::array<uint8_t, 32> run_bits() {
    std::array<uint8_t, 32> bits{};
    bits[S_NUMBER] = 1;
    bits[S_NAME] = 2;
    bits[S_STRING] = 4;
    bits[S_BLOCK] = 8;
    bits[S_LINE] = 16;
    bits[S_CHAR] = 32;
    bits[S_SPACE] = 64;
    return bits;
}
constexpr std::array<uint8_t, 32> RUN_BIT = run_bits();

// Per unit, one bit for each run state whose runs it ends, so that a run is
// skipped without a table step per unit. Derived from the table whenever it
// is built; the units above 255 keep every state, so their entries stay 0
// (and cost no filling: the table is static storage).
uint8_t unit_ends[65536];
// Literals and comments: the runs that may be long.
constexpr uint8_t LONG_RUNS =
    RUN_BIT[S_STRING] | RUN_BIT[S_CHAR] | RUN_BIT[S_BLOCK] | RUN_BIT[S_LINE];
// The units below this one (line feed, markers, tab ...) are tested as one
// range by the eight-unit skip.
constexpr int CONTROL_UNITS = 32;

// Past the units from p on that keep the state of `bit`. The markers end
// every run, so four at a time read nothing past them.
inline char16_t* skip_run(char16_t* p, const uint8_t* ends, uint8_t bit) {
    for (;; p += 4) {
        if (ends[p[0]] & bit) return p;
        if (ends[p[1]] & bit) return p + 1;
        if (ends[p[2]] & bit) return p + 2;
        if (ends[p[3]] & bit) return p + 3;
    }
}

// The same over the long runs of literals and comments, eight units at a
// time while eight lie before `end`, by comparing with the units that end
// the state's runs.
inline char16_t* skip_state(char16_t* p, const char16_t* end, int st) {
    const uint8_t* ends = unit_ends;
#if defined(__SSE2__)
    const auto* stops = reinterpret_cast<const __m128i*>(cpp.lexStops[st]);
    if (cpp.lexStops[st][0][0]) {
        // Most literals are short: their first units one by one.
        uint8_t bit = RUN_BIT[st];
        for (int k = 0; k < 2; ++k, p += 4) {
            if (ends[p[0]] & bit) return p;
            if (ends[p[1]] & bit) return p + 1;
            if (ends[p[2]] & bit) return p + 2;
            if (ends[p[3]] & bit) return p + 3;
        }
        // A control unit (the line feed and the markers among them) or
        // one of the two others stops the run; a control unit that does not
        // end it (a tab) only hands a step to the table.
        const __m128i controls = _mm_set1_epi16(CONTROL_UNITS - 1);
        const __m128i zero = _mm_setzero_si128();
        while (end - p >= 8) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            __m128i m = _mm_or_si128(_mm_cmpeq_epi16(_mm_subs_epu16(v, controls), zero),
                                     _mm_or_si128(_mm_cmpeq_epi16(v, _mm_load_si128(stops)),
                                                  _mm_cmpeq_epi16(v, _mm_load_si128(stops + 1))));
            if (int bits = _mm_movemask_epi8(m)) return p + (__builtin_ctz(bits) >> 1);
            p += 8;
        }
    }
#else
    (void)end;
#endif
    return skip_run(p, ends, RUN_BIT[st]);
}

constexpr int16_t NAME_DONE = act(PP_NAME, A_NAME_DONE);
constexpr int16_t NUMBER_DONE = act(PP_NUMBER, A_BEFORE);
constexpr int16_t STRING_DONE = act(PP_STRING, A_TAKE);
constexpr int16_t CHAR_DONE = act(PP_CHAR, A_TAKE);

// The name's bit of macroBits, for the result of lexLine.
uint32_t name_bit(const char16_t* text, const char16_t* end) {
    char16_t second = end - text > 1 ? text[1] : 0;
    return cpp.macroBits[text[0] & 63] & (1u << (second & 31));
}

void end_name(PpToken* tp, const char16_t* end, uint32_t* result) {
    tp->type = PP_NAME;
    tp->len = static_cast<uint64_t>(end - tp->text);
    *result |= name_bit(tp->text, end);
}

// How the common tokens begin, by their first unit (unit_start).
enum Start : uint8_t {
    START_TABLE, // anything else: the table from state 0
    START_SPACE,
    START_NAME,
    START_L,
    START_NUMBER,
    START_STRING,
    START_CHAR,
    START_PUNCT, // a token of this one unit
    START_OP,    // an operator of one or two units
};

// Per unit, how a token that begins with it goes on; like unit_ends, static
// storage whose entries above 255 stay 0 (START_TABLE).
uint8_t unit_start[65536];
static_assert(START_TABLE == 0);

void put_token(PpToken* tp, int kind, uint64_t ws, const char16_t* text, const char16_t* end) {
    // Kind, flag and hideset (0) in one store.
    static_assert(offsetof(PpToken, flag) == 1 && offsetof(PpToken, hideset) == 4 &&
                  offsetof(PpToken, wslen) == 8 && std::endian::native == std::endian::little);
    uint64_t head = static_cast<uint8_t>(kind);
    std::memcpy(static_cast<void*>(tp), &head, sizeof head);
    tp->wslen = ws;
    tp->len = static_cast<uint64_t>(end - text);
    tp->text = text;
}

// The common tokens, at the start of a slot: white space, then a name,
// number, literal or operator, each ended by a unit whose table entry
// plainly ends it. True when the token is complete; otherwise the slot is
// prepared and cp and state are where the table goes on (a splice, a
// refill, a marker, anything rarer).
bool fast_token(PpToken* tp, char16_t*& cp, const int16_t*& state, uint32_t* result,
                const uint8_t* starts, const uint8_t* ends) {
    const auto& table = cpp.lexTable;
    const char16_t* text = cp;
    uint64_t ws = 0;
    char16_t c = *cp;
    uint8_t start = starts[c];
    char16_t* p = cp + 1;
    int next = 0;
    if (start == START_SPACE) {
        // Every unit that starts a token of its own plainly ends white
        // space; the others (a line end, a splice, a refill) are the table's.
        p = skip_run(p, ends, RUN_BIT[S_SPACE]);
        start = starts[*p]; // below 256: the run ends there
        if (start == START_TABLE) {
            next = S_SPACE;
        } else {
            ws = static_cast<uint64_t>(p - cp);
            text = cp = p;
            p = cp + 1;
        }
    }
    switch (start) {
    case START_L:
        if (*p > 255 || table[S_L][*p] != S_NAME * 256) {
            p = cp; // the table from the L
            break;
        }
        ++p;
        [[fallthrough]];
    case START_NAME:
        p = skip_run(p, ends, RUN_BIT[S_NAME]);
        if (table[S_NAME][*p] != NAME_DONE) {
            next = S_NAME;
            break;
        }
        put_token(tp, PP_NAME, ws, text, p);
        if (uint32_t bit = name_bit(text, p)) {
            // A name that may be a macro is looked up once the line is
            // lexed; its slot is asked for now, so that the wait on memory
            // overlaps the rest of the line.
            *result |= bit;
            prefetch_name(text, size_t(p - text));
        }
        cp = p;
        return true;
    case START_NUMBER:
        p = skip_run(p, ends, RUN_BIT[S_NUMBER]);
        if (table[S_NUMBER][*p] != NUMBER_DONE) {
            next = S_NUMBER;
            break;
        }
        put_token(tp, PP_NUMBER, ws, text, p);
        cp = p;
        return true;
    case START_STRING:
    case START_CHAR: {
        int st = start == START_STRING ? S_STRING : S_CHAR;
        p = skip_state(p, cpp.source->end, st);
        if (table[st][*p] != (start == START_STRING ? STRING_DONE : CHAR_DONE)) {
            next = st;
            break;
        }
        ++p;
        put_token(tp, start == START_STRING ? PP_STRING : PP_CHAR, ws, text, p);
        cp = p;
        return true;
    }
    case START_PUNCT:
        put_token(tp, ~table[0][*cp] >> 7, ws, text, p);
        cp = p;
        return true;
    case START_OP: {
        next = table[0][*cp] >> 8;
        int end = *p < 256 ? table[next][*p] : 0;
        int action = ~end & 127;
        if (end < 0 && (action == A_TAKE || action == A_BEFORE)) {
            if (action == A_TAKE) ++p;
            put_token(tp, ~end >> 7, ws, text, p);
            cp = p;
            return true;
        }
        break;
    }
    default:
        if (next == 0) p = cp; // the table from the start
        break;
    }
    tp->flag = 0;
    tp->hideset = 0;
    tp->wslen = ws;
    tp->text = text;
    cp = p;
    state = table[next];
    return false;
}

} // namespace

void build_lexer_table() {
    auto& table = cpp.lexTable;
    std::memset(table, 0, sizeof table);
    // The letters asked of the platform once, not once per transition.
    bool letters[256];
    for (int c = 0; c < 256; ++c)
        letters[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$' ||
                     plat_is_alpha(static_cast<char16_t>(c));
    // The members of the smaller classes, listed once; "any" fills a row.
    char16_t members[3][256];
    size_t counts[3] = {};
    for (int c = 0; c < 256; ++c)
        for (int16_t cls : {C_LETTER, C_DIGIT, C_SPACE})
            if (in_class(cls, c, letters))
                members[cls - C_LETTER][counts[cls - C_LETTER]++] = static_cast<char16_t>(c);
    // A next state is kept as the offset of its row, which spares the
    // inner loop a multiplication.
    auto entry = [](int16_t target) {
        return target >= 0 ? static_cast<int16_t>(target * 256) : target;
    };
    for (const Transition& t : TRANSITIONS)
        for (int16_t cls : t.on) {
            if (cls == 0) break;
            int16_t e = entry(t.target);
            if (cls < C_ANY) { // a single unit
                table[t.state][cls] = e;
            } else if (cls == C_ANY) {
                std::fill(std::begin(table[t.state]), std::end(table[t.state]), e);
            } else {
                for (size_t i = 0; i < counts[cls - C_LETTER]; ++i)
                    table[t.state][members[cls - C_LETTER][i]] = e;
            }
        }
    constexpr int BACKSLASH = '\\';
    for (auto& row : table) {
        int16_t e = row[BACKSLASH];
        int v = e >= 0 ? e / 256 : ~e;
        row[BACKSLASH] = static_cast<int16_t>(~(v | SPLICE_CHECK));
        row[BufferEndMark] = act(PP_END, A_REFILL);
        if (row[InputEndMark] >= 0) row[InputEndMark] = act(PP_END, A_END);
    }
    uint8_t* ends = unit_ends;
    std::memset(ends, 0, 256);
    for (int st = 0; st < 32; ++st)
        if (RUN_BIT[st])
            for (int c = 0; c < 256; ++c)
                if (table[st][c] != st * 256) ends[c] |= RUN_BIT[st];
    // How tokens begin, from state 0's row.
    for (int c = 0; c < 256; ++c) {
        int e = table[0][c];
        uint8_t start = START_TABLE;
        if (e < 0)
            start = (~e & 127) == A_TAKE ? START_PUNCT : START_TABLE;
        else if (e == S_SPACE * 256)
            start = START_SPACE;
        else if (e == S_NAME * 256)
            start = START_NAME;
        else if (e == S_L * 256)
            start = START_L;
        else if (e == S_NUMBER * 256)
            start = START_NUMBER;
        else if (e == S_STRING * 256)
            start = START_STRING;
        else if (e == S_CHAR * 256)
            start = START_CHAR;
        else if (!RUN_BIT[e >> 8])
            start = START_OP;
        unit_start[c] = start;
    }
    // Literals and comments: the units that end their runs, when all but
    // at most two of them are control units (below CONTROL_UNITS).
    std::memset(cpp.lexStops, 0, sizeof cpp.lexStops);
    for (int st : {S_STRING, S_CHAR, S_BLOCK, S_LINE}) {
        char16_t stops[256];
        size_t n = 0;
        for (int c = CONTROL_UNITS; c < 256; ++c)
            if (ends[c] & RUN_BIT[st]) stops[n++] = static_cast<char16_t>(c);
        if (n == 0 || n > LEX_STOPS) continue;
        for (size_t i = 0; i < LEX_STOPS; ++i)
            for (char16_t& u : cpp.lexStops[st][i]) u = stops[i < n ? i : 0];
    }
}

bool continues_name(char16_t c) {
    return !(unit_ends[c] & RUN_BIT[S_NAME]);
}

void makeRow(size_t capacity, TokenRow* row) {
    row->base = static_cast<PpToken*>(mem_alloc(capacity * sizeof(PpToken)));
    row->cur = row->last = row->base;
    row->max = capacity;
}

PpToken* growRow(size_t capacity, TokenRow* row) {
    size_t cur = static_cast<size_t>(row->cur - row->base);
    size_t last = rowlen(row);
    row->base = static_cast<PpToken*>(mem_realloc(row->base, capacity * sizeof(PpToken)));
    row->cur = row->base + cur;
    row->last = row->base + last;
    row->max = capacity;
    return row->last;
}

void freeRow(TokenRow* row) {
    mem_free(row->base);
    *row = TokenRow{};
}

uint32_t lexLine(TokenRow* row, bool reset) {
    SourceFile* s = cpp.source;
    cpp.lexing = row; // its texts move with a buffer that grows
    if (reset) {
        s->lineinc = 0;
        start_line(s);
    }
    const auto& table = cpp.lexTable;
    const int16_t* const rows = table[0];
    char16_t* cp = s->cursor;
    uint32_t result = 0;
    PpToken* limit = row->base + row->max;
    const uint8_t* starts = unit_start;
    const uint8_t* ends = unit_ends;
    for (;;) {
        // The current state's row of the table, rather than its number:
        // the inner loop then costs a load per unit.
        const int16_t* state = table[0];
        // The common tokens one after another, the row's end at hand.
        PpToken* tp = row->last;
        while (tp < limit && fast_token(tp, cp, state, &result, starts, ends)) ++tp;
        row->last = tp;
        if (tp >= limit) {
            growRow(2 * row->max, row);
            limit = row->base + row->max;
            continue;
        }
        for (;;) {
            char16_t c = *cp;
            if (c > 255) { // joins whatever is being built
                ++cp;
                continue;
            }
            int e = state[c];
            if (e >= 0) {
                state = rows + e;
                ++cp;
                if (uint8_t bit = RUN_BIT[e >> 8])
                    cp = bit & LONG_RUNS ? skip_state(cp, s->end, e >> 8) : skip_run(cp, ends, bit);
                continue;
            }
            e = ~e;
            if (e & SPLICE_CHECK) {
                s->cursor = cp;
                if (c != u'\\') {
                    report_pp(warning_code(MSG_LEXICAL_BOTCH));
                    ++cp;
                    continue;
                }
                // Only a line feed, a carriage return or the end of the
                // buffered text after it can make a splice.
                char16_t n = cp[1];
                bool may_fold = n == u'\n' || n == u'\r' || n == BufferEndMark || n == InputEndMark;
                int folded = may_fold ? foldLineSplice(s) : 0;
                cp = s->cursor; // a refill may have moved the buffer
                if (folded) {
                    s->lineinc += 1;
                    continue;
                }
                e &= ~SPLICE_CHECK;
                if (e < A_TAKE) {
                    state = table[e];
                    ++cp;
                    continue;
                }
            }
            int kind = e >> 7;
            switch (e & 127) {
            case A_TAKE:
                ++cp;
                tp->type = static_cast<uint8_t>(kind);
                tp->len = static_cast<uint64_t>(cp - tp->text);
                break;
            case A_BEFORE:
                tp->type = static_cast<uint8_t>(kind);
                tp->len = static_cast<uint64_t>(cp - tp->text);
                break;
            case A_NAME_DONE:
                end_name(tp, cp, &result);
                break;
            case A_SPACE_DONE:
                tp->wslen = static_cast<uint64_t>(cp - tp->text);
                tp->text = cp;
                state = table[0];
                continue;
            case A_COMMENT_DONE:
                ++cp;
                tp->text = cp;
                cp[-1] = u' ';
                tp->wslen = 1;
                state = table[0];
                continue;
            case A_COMMENT_NL:
                s->lineinc += 1;
                ++cp;
                cp = compact_comment(s, cp, tp->text);
                state = table[9];
                continue;
            case A_COMMENT_END:
                s->cursor = cp;
                if (!s->file) {
                    tp->type = PP_OPEN_COMMENT;
                    tp->len = 0;
                    row->last = tp + 1;
                    tp = fresh_slot(row, limit, cp);
                } else {
                    report_pp(warning_code(MSG_EOF_IN_COMMENT));
                }
                tp->text = cp; // closed at the end mark, which ends the row next
                cp[-1] = u' ';
                tp->wslen = 1;
                state = table[0];
                continue;
            case A_REFILL:
                s->cursor = cp;
                fillbuf(s);
                cp = s->cursor;
                continue;
            case A_STRING_END:
                s->cursor = cp;
                report_pp(fatal_code(MSG_EOF_IN_STRING));
                continue;
            case A_STRING_NL:
                s->cursor = cp;
                report_pp(error_code(MSG_UNTERMINATED_STRING));
                [[fallthrough]];
            case A_NEWLINE:
                // The newline keeps the white space before it, but none that
                // would reach back into a line comment or a dropped constant;
                // a carriage return right before it still counts.
                if (state == table[0])
                    tp->wslen += static_cast<uint64_t>(cp - tp->text);
                else
                    tp->wslen = cp[-1] == u'\r' ? 1 : 0;
                tp->type = PP_NEWLINE;
                tp->text = cp;
                tp->len = 1;
                s->lineinc += 1;
                s->cursor = cp + 1;
                row->last = tp + 1;
                return result;
            case A_END:
                tp->type = PP_END;
                tp->len = 0;
                s->cursor = cp;
                if (tp != row->base && tp[-1].type != PP_NEWLINE && s->file)
                    report_pp(warning_code(MSG_NO_NEWLINE_AT_EOF));
                row->last = tp + 1;
                return result;
            }
            break; // the token is complete
        }
        row->last = tp + 1;
    }
}

} // namespace tarn
