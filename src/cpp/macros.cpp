// The symbol table (directive keywords, built-in and user macros) and the
// definitions that fill it: #define, #undef and definitions from outside.
// Expansion lives in expand.cpp.
#include "cpp/state.h"

#include <cstring>

#include "diag/report.h"

namespace tarn {

namespace {

struct Reserved {
    const char16_t* name;
    uint8_t value;
    uint8_t flags;
};

// Installed at load in this order.
constexpr Reserved RESERVED[] = {
    {u"if", KW_IF, SYM_DIRECTIVE},
    {u"ifdef", KW_IFDEF, SYM_DIRECTIVE},
    {u"ifndef", KW_IFNDEF, SYM_DIRECTIVE},
    {u"elif", KW_ELIF, SYM_DIRECTIVE},
    {u"else", KW_ELSE, SYM_DIRECTIVE},
    {u"endif", KW_ENDIF, SYM_DIRECTIVE},
    {u"include", KW_INCLUDE, SYM_DIRECTIVE},
    {u"define", KW_DEFINE, SYM_DIRECTIVE},
    {u"undef", KW_UNDEF, SYM_DIRECTIVE},
    {u"line", KW_LINE, SYM_DIRECTIVE},
    {u"error", KW_ERROR, SYM_DIRECTIVE},
    {u"pragma", KW_PRAGMA, SYM_DIRECTIVE},
    {u"defined", KW_DEFINED, SYM_DEFINED | SYM_UNCHANGEABLE},
    {u"__LINE__", KW_LINE_MACRO, SYM_UNCHANGEABLE | SYM_BUILTIN},
    {u"__FILE__", KW_FILE_MACRO, SYM_UNCHANGEABLE | SYM_BUILTIN},
    {u"__DATE__", KW_DATE_MACRO, SYM_UNCHANGEABLE | SYM_BUILTIN},
    {u"__TIME__", KW_TIME_MACRO, SYM_UNCHANGEABLE | SYM_BUILTIN},
    {u"__TARN__", KW_TARN_MACRO, SYM_UNCHANGEABLE | SYM_BUILTIN},
};

constexpr int DEFINE_LETTER = 'D';

bool same_text(const PpToken& a, const PpToken& b) {
    return a.len == b.len && std::memcmp(a.text, b.text, a.len * sizeof(char16_t)) == 0;
}

bool same_tokens(const TokenRow* a, const TokenRow* b) {
    size_t n = a ? rowlen(a) : 0;
    if (n != (b ? rowlen(b) : 0)) return false;
    for (size_t i = 0; i < n; ++i)
        if (a->base[i].type != b->base[i].type || !same_text(a->base[i], b->base[i])) return false;
    return true;
}

// Differs as the redefinition warning sees it: the body token by token, or
// the parameters (none against some, or different ones).
bool differs(const Symbol* sym, const TokenRow* replacement, const TokenRow* params) {
    if (!same_tokens(sym->replacement, replacement)) return true;
    if ((sym->params == nullptr) != (params == nullptr)) return true;
    return params && !same_tokens(sym->params, params);
}

// The tokens that end a row are no part of a definition.
const PpToken* body_end(const PpToken* from, const PpToken* to) {
    if (to > from && (to[-1].type == PP_NEWLINE || to[-1].type == PP_END)) --to;
    return to;
}

// Reads "(a, b, ...)" after a function-like macro's name; false on a syntax
// error (reported).
bool read_params(PpToken** at, std::vector<PpToken>* params) {
    PpToken* tp = *at + 1; // past "("
    if (tp->type == K_RP) {
        *at = tp + 1;
        return true;
    }
    for (;;) {
        if (tp->type != PP_NAME) break;
        for (const PpToken& p : *params)
            if (same_text(p, *tp)) report_pp(error_code(MSG_DUPLICATE_MACRO_ARG));
        params->push_back(*tp);
        ++tp;
        if (tp->type == K_COMMA) {
            ++tp;
            continue;
        }
        if (tp->type != K_RP) break;
        *at = tp + 1;
        return true;
    }
    report_pp(error_code(MSG_MACRO_PARAM_SYNTAX));
    return false;
}

// The bucket comes from a multiplicative hash of the name: names of one
// pattern (IDC_1000, IDC_1001, ...) have nearly the same sum of units and
// would crowd one stretch of the table.
size_t bucket_of(uint32_t hash) {
    return (hash ^ (hash >> 16)) & (cpp.buckets.size() - 1);
}

// Doubles the table, so that searches stay short however many names the
// headers define.
void grow_table(size_t size) {
    std::vector<SymbolSlot> old = std::move(cpp.buckets);
    cpp.buckets.assign(size, SymbolSlot{});
    size_t mask = cpp.buckets.size() - 1;
    for (const SymbolSlot& slot : old) {
        if (!slot.symbol) continue;
        size_t i = bucket_of(slot.hash);
        while (cpp.buckets[i].symbol) i = (i + 1) & mask;
        cpp.buckets[i] = slot;
    }
}

uint64_t load4(const char16_t* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// Four units a load, eight a round, the last four (which may overlap the
// ones before) in one piece; the last multiply carries every unit into the
// high half, which is what is kept.
[[gnu::always_inline]] inline uint32_t name_hash(const char16_t* name, size_t len) {
    constexpr uint64_t K = 0x9E3779B97F4A7C15u;
    uint64_t h = len * K;
    if (len >= 4) {
        size_t i = 0;
        for (; i + 8 < len; i += 8) {
            h = (h ^ load4(name + i)) * K;
            h = (h ^ load4(name + i + 4) ^ (h >> 29)) * K;
        }
        if (i + 4 < len) h = (h ^ load4(name + i)) * K;
        h = (h ^ load4(name + len - 4)) * K;
    } else {
        uint64_t tail = 0;
        for (size_t i = 0; i < len; ++i) tail = tail << 16 | name[i];
        h = (h ^ tail) * K;
    }
    return static_cast<uint32_t>((h ^ (h >> 29)) * K >> 32);
}

uint32_t slot_len(size_t len) {
    return len < UINT32_MAX ? uint32_t(len) : UINT32_MAX;
}

bool same_units(const char16_t* a, const char16_t* b, size_t len) {
    if (len < 4) {
        for (size_t i = 0; i < len; ++i)
            if (a[i] != b[i]) return false;
        return true;
    }
    for (size_t i = 0; i + 4 < len; i += 4)
        if (load4(a + i) != load4(b + i)) return false;
    return load4(a + len - 4) == load4(b + len - 4);
}

} // namespace

namespace {

// Kept apart from the search, which is the hot path.
// `kept`: the name is zero-terminated and outlives the table (a saved
// file's), so it is not copied.
[[gnu::noinline]] Symbol* install_name(const char16_t* name, size_t len, uint32_t hash,
                                       bool kept = false) {
    if (2 * (cpp.symbolCount + 1) > cpp.buckets.size()) grow_table(2 * cpp.buckets.size());
    size_t mask = cpp.buckets.size() - 1;
    size_t at = bucket_of(hash);
    while (cpp.buckets[at].symbol) at = (at + 1) & mask;
    // The entry and its name in one piece of the arena.
    void* block = cpp.arena.alloc(sizeof(Symbol) + (kept ? 0 : (len + 1) * sizeof(char16_t)));
    Symbol* s = new (block) Symbol();
    if (kept) {
        s->name = name;
    } else {
        auto* copy = reinterpret_cast<char16_t*>(static_cast<char*>(block) + sizeof(Symbol));
        std::memcpy(copy, name, len * sizeof(char16_t));
        copy[len] = 0;
        s->name = copy;
    }
    s->len = len;
    s->hash = hash;
    cpp.buckets[at] = SymbolSlot{s, s->name, hash, slot_len(len)};
    cpp.symbolCount += 1;
    char16_t second = len > 1 ? name[1] : 0;
    cpp.macroBits[name[0] & 63] |= 1u << (second & 31);
    return s;
}

// The entry of a name, or null; the search both lookups share. The symbol
// of a slot whose hash and length match is asked for before the names are
// compared: it is nearly always the one.
[[gnu::always_inline]] inline Symbol* search(const char16_t* name, size_t len, uint32_t hash) {
    size_t mask = cpp.buckets.size() - 1;
    uint32_t kept_len = slot_len(len);
    for (size_t i = bucket_of(hash);; i = (i + 1) & mask) {
        const SymbolSlot& slot = cpp.buckets[i];
        if (!slot.symbol) return nullptr;
        if (slot.hash != hash || slot.len != kept_len) continue;
        __builtin_prefetch(slot.symbol);
        if ((kept_len != UINT32_MAX || slot.symbol->len == len) && same_units(slot.name, name, len))
            return slot.symbol;
    }
}

} // namespace

Symbol* lookup_name(const char16_t* name, size_t len, bool install) {
    uint32_t hash = name_hash(name, len);
    if (Symbol* s = search(name, len, hash)) return s;
    return install ? install_name(name, len, hash) : nullptr;
}

void reserve_symbols(size_t more) {
    size_t size = cpp.buckets.size();
    while (2 * (cpp.symbolCount + more) > size) size *= 2;
    if (size != cpp.buckets.size()) grow_table(size);
}

void prefetch_symbol(uint32_t hash) {
    __builtin_prefetch(&cpp.buckets[bucket_of(hash)]);
}

void prefetch_name(const char16_t* name, size_t len) {
    prefetch_symbol(name_hash(name, len));
}

Symbol* lookup_saved(const char16_t* name, size_t len, uint32_t hash) {
    if (Symbol* s = search(name, len, hash)) return s;
    return install_name(name, len, hash, true);
}

bool symbol_is_defined(const PpToken* tp) {
    Symbol* s = lookupSymbol(tp, false);
    return s && (s->flags & (SYM_DEFINED | SYM_BUILTIN));
}

void seed_symbols() {
    for (const Reserved& r : RESERVED) {
        Symbol* s = lookup_name(r.name, std::char_traits<char16_t>::length(r.name), true);
        s->value = r.value;
        s->flags = r.flags;
        if (r.flags & SYM_DIRECTIVE) cpp.keywords[r.value] = s;
        if (r.value == KW_DEFINED) {
            // `defined` is a defined name that expands to itself; #if lines
            // switch its value to KW_DEFINED while they are expanded.
            cpp.definedSymbol = s;
            s->value = KW_DEFINED_IDLE;
            PpToken self{};
            self.type = PP_NAME;
            self.text = s->name;
            self.len = s->len;
            s->replacement = persistentRow(&self, &self + 1);
        }
    }
}

void defineMacro(TokenRow* row) {
    PpToken* tp = row->cur;
    if (tp->type != PP_NAME) {
        report_pp(error_code(MSG_DEFINE_NOT_NAME));
        return;
    }
    PpToken* name = tp;
    Symbol* sym = lookupSymbol(name, true);
    if (sym->flags & SYM_UNCHANGEABLE) {
        report_pp(error_code(MSG_CANNOT_REDEFINE), name);
        return;
    }
    ++tp;
    bool function_like = tp->type == K_LP && tp->wslen == 0;
    std::vector<PpToken> params;
    if (function_like && !read_params(&tp, &params)) return;
    TokenRow* replacement = persistentRow(tp, body_end(tp, row->last));
    TokenRow* param_row =
        function_like ? persistentRow(params.data(), params.data() + params.size()) : nullptr;
    if ((sym->flags & SYM_DEFINED) && differs(sym, replacement, param_row))
        report_pp(warning_code(MSG_MACRO_REDEFINITION), name);
    sym->replacement = replacement;
    sym->params = param_row;
    sym->flags |= SYM_DEFINED;
    if (cpp.capture) capture_symbol(sym);
}

void undefineMacro(TokenRow* row) {
    PpToken* tp = row->cur;
    if (tp->type != PP_NAME || rowlen(row) != 4) {
        report_pp(error_code(MSG_UNDEF_SYNTAX));
        return;
    }
    if (Symbol* sym = lookupSymbol(tp, false)) {
        sym->flags &= ~SYM_DEFINED;
        if (cpp.capture) capture_symbol(sym);
    }
}

void defineFromArgument(TokenRow* row, int kind) {
    row->cur = row->base;
    PpToken* tp = row->base;
    if (kind != DEFINE_LETTER) {
        if (rowlen(row) != 2 || tp[0].type != PP_NAME || tp[1].type != PP_END)
            report_pp(fatal_code(MSG_ILLEGAL_DU_ARGUMENT), row);
        if (Symbol* sym = lookupSymbol(tp, false)) sym->flags &= ~SYM_DEFINED;
        return;
    }
    if (tp->type != PP_NAME) report_pp(fatal_code(MSG_ILLEGAL_DU_ARGUMENT), row);
    const PpToken* body = tp + 1;
    const PpToken* end = body;
    if (body < row->last && body->type != PP_END) {
        if (body->type != K_ASGN) report_pp(fatal_code(MSG_ILLEGAL_DU_ARGUMENT), row);
        ++body;
        end = body_end(body, row->last);
    }
    Symbol* sym = lookupSymbol(tp, true);
    sym->replacement = persistentRow(body, end);
    sym->params = nullptr;
    sym->flags |= SYM_DEFINED;
}

} // namespace tarn
