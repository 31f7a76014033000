// Hidesets: the sets of macros whose expansion made a token. Every set of a
// run is interned once and named by a 16-bit index (0 = the empty set); a
// set holds its members in address order. Sets stop growing at 30 members,
// so runaway expansions cannot grow them without bound.
#include "cpp/state.h"

#include <algorithm>
#include <functional>

#include "diag/report.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr size_t MAX_SETS = 65536; // the index is 16 bits

size_t set_size(const HidesetTable& t, size_t hs) {
    size_t n = 0;
    while (t.members[t.start[hs] + n]) ++n;
    return n;
}

uint64_t hash_members(const Symbol* const* m, size_t n) {
    uint64_t h = n;
    for (size_t i = 0; i < n; ++i) {
        h += reinterpret_cast<uintptr_t>(m[i]) + 0x9E3779B97F4A7C15ull;
        h = (h ^ (h >> 30)) * 0xBF58476D1CE4E5B9ull;
        h = (h ^ (h >> 27)) * 0x94D049BB133111EBull;
        h ^= h >> 31;
    }
    return h;
}

bool same_set(const HidesetTable& t, size_t hs, const Symbol* const* m, size_t n) {
    const Symbol* const* p = &t.members[t.start[hs]];
    for (size_t i = 0; i < n; ++i)
        if (p[i] != m[i]) return false;
    return p[n] == nullptr;
}

// The slot that holds the set m (of hash h), or the empty slot where it belongs.
size_t find_slot(const HidesetTable& t, const Symbol* const* m, size_t n, uint64_t h) {
    size_t mask = t.slots.size() - 1;
    for (size_t i = h & mask;; i = (i + 1) & mask) {
        int32_t hs = t.slots[i];
        if (hs < 0) return i;
        auto index = static_cast<size_t>(hs);
        if (t.hashes[index] == h && same_set(t, index, m, n)) return i;
    }
}

void rehash(HidesetTable& t) {
    std::vector<int32_t> old = std::move(t.slots);
    t.slots.assign(old.size() * 2, -1);
    for (int32_t hs : old) {
        if (hs < 0) continue;
        auto index = static_cast<size_t>(hs);
        const Symbol* const* m = &t.members[t.start[index]];
        t.slots[find_slot(t, m, set_size(t, index), t.hashes[index])] = hs;
    }
}

uint32_t intern(HidesetTable& t, const Symbol* const* m, size_t n) {
    uint64_t h = hash_members(m, n);
    size_t slot = find_slot(t, m, n, h);
    if (t.slots[slot] >= 0) return static_cast<uint32_t>(t.slots[slot]);
    // The extended dialect names sets by 32-bit indexes; the slots hold 31 bits.
    size_t limit = compile_state.extended ? size_t{INT32_MAX} : MAX_SETS;
    if (t.start.size() >= limit) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"new_hideset");
    auto index = static_cast<int32_t>(t.start.size());
    t.start.push_back(static_cast<uint32_t>(t.members.size()));
    t.members.insert(t.members.end(), m, m + n);
    t.members.push_back(nullptr);
    t.hashes.push_back(h);
    t.slots[slot] = index;
    if (t.start.size() * 4 > t.slots.size() * 3) rehash(t);
    return static_cast<uint32_t>(index);
}

// A set of one member is only ever made here, once per symbol and run (the
// symbol keeps its index), so it is new and needs no place in the index of
// the sets, which only the larger sets are looked up by.
uint32_t intern_alone(HidesetTable& t, const Symbol* sym) {
    size_t limit = compile_state.extended ? size_t{INT32_MAX} : MAX_SETS;
    if (t.start.size() >= limit) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"new_hideset");
    auto index = static_cast<uint32_t>(t.start.size());
    t.start.push_back(static_cast<uint32_t>(t.members.size()));
    t.members.push_back(sym);
    t.members.push_back(nullptr);
    t.hashes.push_back(0); // never compared
    return index;
}

} // namespace

void hideset_start() {
    HidesetTable& t = cpp.hidesets;
    t.start.assign(1, 0);
    t.members.assign(1, nullptr);
    t.hashes.assign(1, hash_members(nullptr, 0));
    t.slots.assign(1024, -1);
    t.slots[find_slot(t, nullptr, 0, t.hashes[0])] = 0;
    t.run += 1;
}

uint32_t new_hideset(uint32_t hs, const Symbol* sym) {
    HidesetTable& t = cpp.hidesets;
    if (hs >= t.start.size()) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"new_hideset");
    // A name from the source gets the set of its macro alone, the most
    // common set by far; the symbol remembers it for the run.
    if (hs == 0 && sym->alone_run == t.run) return sym->alone;
    if (hs == 0) {
        sym->alone = intern_alone(t, sym);
        sym->alone_run = t.run;
        return sym->alone;
    }
    std::vector<const Symbol*>& set = t.work;
    set.clear();
    bool placed = false;
    for (size_t i = t.start[hs]; const Symbol* p = t.members[i]; ++i) {
        if (p == sym) return hs;
        if (!placed && std::less<const Symbol*>()(sym, p)) {
            set.push_back(sym);
            placed = true;
        }
        set.push_back(p);
    }
    if (!placed) set.push_back(sym);
    // Deliberately dropped, but for the extended dialect, where a chain of
    // more than 30 macros must not expand for ever.
    if (set.size() > HIDESET_MAX_MEMBERS && !compile_state.extended) return hs;
    return intern(t, set.data(), set.size());
}

bool check_hideset(uint32_t hs, const Symbol* sym) {
    const HidesetTable& t = cpp.hidesets;
    if (hs >= t.start.size()) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"check_hideset");
    for (const Symbol* const* p = &t.members[t.start[hs]]; *p; ++p)
        if (*p == sym) return true;
    return false;
}

uint32_t unionHidesets(uint32_t a, uint32_t b) {
    const HidesetTable& t = cpp.hidesets;
    if (b >= t.start.size()) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"new_hideset");
    // The members are read by index: interning may move the table.
    for (size_t i = t.start[b]; t.members[i]; ++i) a = new_hideset(a, t.members[i]);
    return a;
}

} // namespace tarn
