// Editing token rows: copies, replacement of a run of tokens with the blanks
// that keep neighbours apart, emptying a row, and the persistent copies that
// macro bodies keep. Also the two storage areas of the preprocessor.
#include "cpp/state.h"

#include <algorithm>
#include <cstring>

#include "support/memory.h"

namespace tarn {

namespace {

const char16_t NEWLINE_TEXT[] = u"\n";

// Kinds that never run into a neighbour.
bool stands_apart(uint8_t kind) {
    switch (kind) {
    case PP_END:
    case PP_NEWLINE:
    case PP_OPEN_COMMENT:
    case K_SBRA:
    case K_KET:
    case K_LP:
    case K_RP:
    case K_COMMA:
    case K_SEMIC:
    case K_CBRA:
    case K_CKET:
        return true;
    default:
        return false;
    }
}

bool word_unit(char16_t c) {
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
           c == u'_' || c == u'$' || c > 127;
}

// Whether x followed by y reads as one operator (or opens a comment).
bool joins_operator(char16_t x, char16_t y) {
    switch (x) {
    case u'+':
        return y == u'+' || y == u'=';
    case u'-':
        return y == u'-' || y == u'=' || y == u'>';
    case u'<':
    case u'>':
    case u'&':
    case u'|':
        return y == x || y == u'=';
    case u'=':
    case u'!':
    case u'%':
    case u'*':
    case u'^':
        return y == u'=';
    case u'#':
        return y == u'#';
    case u'/':
        return y == u'=' || y == u'/' || y == u'*';
    default:
        return false;
    }
}

// Whether the two tokens, written next to each other, would be read back
// as other tokens; only then does expansion put a blank between them.
bool would_merge(const PpToken& a, const PpToken& b) {
    if (stands_apart(a.type) || stands_apart(b.type) || !a.len || !b.len) return false;
    char16_t x = a.text[a.len - 1], y = b.text[0];
    if (word_unit(x) && word_unit(y)) return true;
    if (a.type == PP_NUMBER &&
        (y == u'.' || ((x == u'e' || x == u'E') && (y == u'+' || y == u'-'))))
        return true;
    if (x == u'.' && (y == u'.' || (y >= u'0' && y <= u'9'))) return true;
    // Literals never touch: the script lexer reads "a""b" as one string
    // with a quote in it, and a name runs on into a quote.
    bool literal_b = b.type == PP_STRING || b.type == PP_CHAR;
    if (literal_b && (a.type == PP_STRING || a.type == PP_CHAR || a.type == PP_NAME)) return true;
    if (a.type == PP_NUMBER && b.type == PP_CHAR) return true;
    return joins_operator(x, y);
}

// One blank unit in front of the token's text, copying the text when it has
// no room for it.
void blank_in_front(PpToken* tp) {
    if (!(tp->flag & FLAG_ROOM)) {
        char16_t* p = scratch_alloc(tp->len + 1);
        p[0] = u' ';
        std::memcpy(p + 1, tp->text, tp->len * sizeof(char16_t));
        tp->text = p + 1;
        tp->flag |= FLAG_ROOM;
    }
    tp->wslen = 1;
}

} // namespace

void separateToken(TokenRow* row, size_t at) {
    if (at >= rowlen(row)) return;
    PpToken* tp = row->base + at;
    if (tp->wslen && !(tp->flag & FLAG_INSERTED_SPACE)) return; // white space of its own
    bool needed = at > 0 && would_merge(tp[-1], *tp);
    if (tp->wslen) {
        if ((tp->flag & FLAG_INSERTED_SPACE) && !needed) tp->wslen = 0;
        return;
    }
    if (!needed) return;
    blank_in_front(tp);
    tp->flag |= FLAG_INSERTED_SPACE;
}

void giveSpace(PpToken* tp) {
    if (tp->wslen == 0) blank_in_front(tp);
    tp->flag &= ~FLAG_INSERTED_SPACE;
}

void takeSpareRow(size_t capacity, TokenRow* row) {
    std::vector<TokenRow>& spares = cpp.spareRows.rows;
    if (spares.empty()) {
        // Room for every row made, so that giving one back, which may
        // happen while a fatal error unwinds, never allocates.
        spares.reserve(++cpp.spareRows.made);
        makeRow(capacity, row);
        return;
    }
    *row = spares.back();
    spares.pop_back();
    if (row->max < capacity) growRow(capacity, row);
    row->cur = row->last = row->base;
}

void giveBackRow(TokenRow* row) {
    if (!row->base) return; // given back already
    std::vector<TokenRow>& spares = cpp.spareRows.rows;
    if (spares.size() < spares.capacity())
        spares.push_back(*row);
    else
        freeRow(row); // a row from elsewhere that finds no room kept
    *row = TokenRow{};
}

ScopedRow::ScopedRow(size_t capacity) {
    takeSpareRow(capacity, &row);
}

ScopedRow::~ScopedRow() {
    giveBackRow(&row);
}

SpareRows::~SpareRows() {
    for (TokenRow& r : rows) freeRow(&r);
}

void copyRow(TokenRow* dst, const PpToken* from, const PpToken* to) {
    size_t n = static_cast<size_t>(to - from);
    takeSpareRow(std::max<size_t>(n, 3), dst);
    if (n) std::memcpy(dst->base, from, n * sizeof(PpToken));
    dst->last = dst->base + n;
}

void replaceTokens(TokenRow* row, size_t at, size_t n, const PpToken* src, size_t count,
                   bool spaced) {
    size_t len = rowlen(row);
    size_t newlen = len - n + count;
    if (newlen > row->max) growRow(std::max<size_t>(newlen, 2 * row->max), row);
    PpToken* base = row->base;
    if (count != n) // one token for one, the usual macro, moves nothing
        std::memmove(base + at + count, base + at + n, (len - at - n) * sizeof(PpToken));
    if (count == 1)
        base[at] = *src;
    else if (count)
        std::memcpy(base + at, src, count * sizeof(PpToken));
    row->last = base + newlen;
    // The white space in front of what was replaced goes to what replaces
    // it, or to the token after an empty replacement.
    if (spaced && (count || at < newlen))
        giveSpace(base + at);
    else if (count)
        separateToken(row, at);
    separateToken(row, at + count);
}

void eraseTokens(TokenRow* row, size_t at, size_t n) {
    size_t len = rowlen(row);
    std::memmove(row->base + at, row->base + at + n, (len - at - n) * sizeof(PpToken));
    row->last -= n;
}

void emptyRow(TokenRow* row) {
    PpToken* tp = row->base;
    *tp = PpToken{};
    tp->type = PP_NEWLINE;
    tp->len = 1;
    tp->text = NEWLINE_TEXT;
    row->cur = tp;
    row->last = tp + 1;
}

TokenRow* arenaRow(size_t n) {
    static_assert(sizeof(TokenRow) % alignof(PpToken) == 0);
    char* block = static_cast<char*>(cpp.arena.alloc(sizeof(TokenRow) + n * sizeof(PpToken)));
    auto* row = new (block) TokenRow();
    auto* tokens = reinterpret_cast<PpToken*>(block + sizeof(TokenRow));
    row->base = row->cur = tokens;
    row->last = tokens + n;
    row->max = n;
    return row;
}

TokenRow* persistentRow(const PpToken* from, const PpToken* to) {
    size_t n = static_cast<size_t>(to - from);
    size_t units = 0;
    for (const PpToken* tp = from; tp < to; ++tp) units += tp->len + 1;
    // The row, its tokens and their texts in one piece of the arena.
    static_assert(sizeof(TokenRow) % alignof(PpToken) == 0);
    char* block = static_cast<char*>(cpp.arena.alloc(
        sizeof(TokenRow) + n * sizeof(PpToken) + std::max<size_t>(units, 1) * sizeof(char16_t)));
    auto* row = new (block) TokenRow();
    auto* tokens = reinterpret_cast<PpToken*>(block + sizeof(TokenRow));
    auto* texts = reinterpret_cast<char16_t*>(block + sizeof(TokenRow) + n * sizeof(PpToken));
    for (size_t i = 0; i < n; ++i) {
        PpToken t = from[i];
        texts[0] = u' ';
        std::memcpy(texts + 1, t.text, t.len * sizeof(char16_t));
        t.text = texts + 1;
        texts += t.len + 1;
        t.wslen = (t.wslen && i > 0) ? 1 : 0;
        t.flag = FLAG_ROOM;
        t.hideset = 0;
        new (tokens + i) PpToken(t);
    }
    row->base = row->cur = tokens;
    row->last = tokens + n;
    row->max = n;
    return row;
}

// ---- Storage

void* Arena::refill(size_t bytes) {
    constexpr size_t BLOCK = 256 * 1024;
    size_t size = std::max(bytes, BLOCK);
    blocks.emplace_back(new char[size]);
    cur = blocks.back().get();
    left = size;
    void* p = cur;
    cur += bytes;
    left -= bytes;
    return p;
}

char16_t* Arena::copy(const char16_t* s, size_t n) {
    char16_t* p = static_cast<char16_t*>(alloc((n + 1) * sizeof(char16_t)));
    std::memcpy(p, s, n * sizeof(char16_t));
    p[n] = 0;
    return p;
}

char16_t* scratch_alloc(size_t n) {
    constexpr size_t BLOCK = 16384;
    Scratch& s = cpp.scratch;
    while (s.block < s.blocks.size()) {
        if (s.sizes[s.block] - s.used >= n) {
            char16_t* p = s.blocks[s.block].get() + s.used;
            s.used += n;
            return p;
        }
        ++s.block;
        s.used = 0;
    }
    size_t size = std::max(n, BLOCK);
    s.blocks.emplace_back(new char16_t[size]);
    s.sizes.push_back(size);
    s.block = s.blocks.size() - 1;
    s.used = n;
    return s.blocks.back().get();
}

void scratch_reset() {
    cpp.scratch.block = 0;
    cpp.scratch.used = 0;
}

} // namespace tarn
