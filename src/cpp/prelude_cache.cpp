// The saved prelude. Reading windows.h and what it includes is the same work
// in every compile that finds it, so in the extended dialect its effect is
// kept in a file of the user's cache folder: the text it writes (with the
// script's name left out), every symbol as it stands afterwards, the guarded
// headers, and each include with where it was found. A later compile with
// the same starting state (library, code page, include folders, macros)
// replays it once every include still finds the same file and every file
// read is unchanged; anything else reads the headers as ever. A prelude that
// reported anything, ran a pragma or used the clock is not kept.
//
// The headers the script includes right after it (a resource.h of thousands
// of IDs) are kept the same way, one file each, keyed by the state they
// begin from: a chain of the saved files' hashes, which holds while the
// script's lines are only blank lines and such includes.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "diag/report.h"
#include "support/state.h"

namespace tarn {

namespace {

// The file is a run of 16-bit units: counts and numbers in two or four, texts
// as their length then their units, so every text read back is in place.
using Units = std::u16string;

constexpr char16_t MAGIC[] = u"tarn prelude 6\n";
constexpr char16_t HEADER_MAGIC[] = u"tarn header 3\n";
constexpr char16_t LAST_LINE[] = u"#line 1\n";
constexpr size_t LAST_LINE_UNITS = 8;
constexpr uint32_t NO_ROW = UINT32_MAX;

// ---- Writing

void put_u32(Units& out, uint32_t v) {
    out += static_cast<char16_t>(v);
    out += static_cast<char16_t>(v >> 16);
}

void put_u64(Units& out, uint64_t v) {
    put_u32(out, static_cast<uint32_t>(v));
    put_u32(out, static_cast<uint32_t>(v >> 32));
}

void put_text(Units& out, const char16_t* text, size_t n) {
    put_u32(out, static_cast<uint32_t>(n));
    out.append(text, n);
}

void put_text(Units& out, std::u16string_view text) {
    put_text(out, text.data(), text.size());
}

void put_row(Units& out, const TokenRow* row) {
    if (!row) {
        put_u32(out, NO_ROW);
        return;
    }
    put_u32(out, static_cast<uint32_t>(rowlen(row)));
    // Each text with a blank in front, as macro bodies keep them, so that a
    // replay uses the texts where they lie.
    for (const PpToken* tp = row->base; tp < row->last; ++tp) {
        out += static_cast<char16_t>(tp->type | (tp->wslen ? 0x100 : 0));
        put_u32(out, static_cast<uint32_t>(tp->len));
        out += u' ';
        out.append(tp->text, tp->len);
    }
}

// The name zero-terminated and with its hash, so that a replay keeps it
// where it lies and need not hash it.
void put_symbol(Units& out, const Symbol* s) {
    put_text(out, s->name, s->len);
    out += u'\0';
    put_u32(out, s->hash);
    out += static_cast<char16_t>(s->value | s->flags << 8);
    put_row(out, s->params);
    put_row(out, s->replacement);
}

// Every symbol, whatever it holds: the state before the prelude is part of
// the key, the state after it is what a replay restores.
void put_symbols(Units& out) {
    put_u64(out, cpp.symbolCount);
    for_each_symbol([&](const Symbol* s) { put_symbol(out, s); });
}

// Four units at a time, in four lanes: a saved prelude is checked whole at
// every start, and one chain of multiplies would wait on itself.
uint64_t hash_units(std::u16string_view t, uint64_t h) {
    constexpr uint64_t K = 0x9E3779B97F4A7C15u;
    uint64_t lane[4] = {h, h ^ 1, h ^ 2, h ^ 3};
    size_t i = 0;
    for (; i + 16 <= t.size(); i += 16)
        for (int k = 0; k < 4; ++k) {
            uint64_t w;
            std::memcpy(&w, t.data() + i + 4 * k, sizeof w);
            lane[k] = (lane[k] ^ w) * K;
            lane[k] ^= lane[k] >> 31;
        }
    h = ((lane[0] * K ^ lane[1]) * K ^ lane[2]) * K ^ lane[3];
    for (; i < t.size(); ++i) h = ((h ^ t[i]) * K) ^ (h >> 29);
    return (h ^ (h >> 32)) * K;
}

// The chain's next link: the state before, and the saved file that took it on.
uint64_t next_link(uint64_t chain, uint64_t saved_hash) {
    uint64_t h =
        hash_units(std::u16string_view(reinterpret_cast<const char16_t*>(&saved_hash), 4), chain);
    return h ? h : 1;
}

uint64_t saved_hash(std::u16string_view file) {
    uint64_t h = 0;
    std::memcpy(&h, file.data() + file.size() - 4, sizeof h);
    return h;
}

// Files in the cache folder at most: a state picks one by its hash, and
// another state that picks the same one replaces it. New folders, include
// paths, definitions or library builds thus never fill the folder.
constexpr uint64_t SLOTS = 16;

// Everything the prelude's reading depends on, besides the files. The
// part before the macros chooses the file: a run with other definitions
// replaces it rather than taking another, so that a build passing a new
// version number each time does not fill the folder.
Units start_state(const char16_t* prelude, size_t units, size_t* place) {
    Units key = MAGIC;
    put_u64(key, plat_library_stamp());
    put_u64(key, host_version());
    put_u32(key, compile_state.code_page);
    put_text(key, prelude, units);
    for (const IncludeDir* d = cpp.includeDirs; d; d = d->next) {
        put_u32(key, d->kind);
        put_text(key, std::u16string_view(d->path));
    }
    *place = key.size();
    put_symbols(key);
    return key;
}

uint64_t slot_of(std::u16string_view choosing) {
    return hash_units(choosing, 1) % SLOTS;
}

// The cache file of a key: one of SLOTS.
std::u16string slot_file(const std::u16string& dir, std::u16string_view stem, uint64_t slot) {
    std::u16string file = dir + u"/";
    file += stem;
    file += static_cast<char16_t>(u'a' + slot);
    file += u".bin";
    return file;
}

// The headers of one chain take different slots: two whose keys chose the
// same one would push each other out at every compile. The same script
// takes the same slots each time.
uint64_t header_slot(std::u16string_view key) {
    static_assert(SLOTS <= 32);
    uint64_t first = slot_of(key);
    for (uint64_t i = 0; i < SLOTS; ++i) {
        uint64_t slot = (first + i) % SLOTS;
        if (!(cpp.headerSlotsTaken >> slot & 1)) {
            cpp.headerSlotsTaken |= uint32_t(1) << slot;
            return slot;
        }
    }
    return first; // a chain of more headers than slots
}

// ---- Reading: every count and length is checked against what is left.

struct Reader {
    const char16_t* at;
    const char16_t* end;
    bool ok = true;

    size_t left() const { return static_cast<size_t>(end - at); }
    char16_t u16() {
        if (!ok || at == end) return ok = false;
        return *at++;
    }
    uint32_t u32() {
        if (ok && end - at >= 2) {
            uint32_t v = at[0] | uint32_t(at[1]) << 16;
            at += 2;
            return v;
        }
        uint32_t low = u16();
        return low | uint32_t(u16()) << 16;
    }
    uint64_t u64() {
        uint64_t low = u32();
        return low | uint64_t(u32()) << 32;
    }
    std::u16string_view text() {
        uint32_t n = u32();
        if (!ok || n > left()) {
            ok = false;
            return {};
        }
        std::u16string_view t(at, n);
        at += n;
        return t;
    }
};

struct SavedSymbol {
    std::u16string_view name; // zero-terminated in the file
    uint32_t hash = 0;
    uint8_t value = 0;
    uint8_t flags = 0;
    // Each row as its tokens lie in the file (checked when read), made
    // into a row only by the replay.
    const char16_t* params = nullptr;
    uint32_t params_n = NO_ROW;
    const char16_t* replacement = nullptr;
    uint32_t replacement_n = NO_ROW;
};

// Views into the file's units, which outlive it.
struct Saved {
    std::vector<IncludeStep> includes;
    std::vector<FileStamp> stamps; // of the includes that opened a file
    std::vector<SavedSymbol> symbols;
    std::vector<std::pair<std::u16string, GuardedHeader>> guarded;
    std::u16string_view text;
    std::vector<uint32_t> main_at;
};

// A saved token: kind (and a blank-before bit), length in two units, the
// blank, the text.
constexpr size_t TOKEN_HEAD = 4;

void read_row(Reader& r, const char16_t** first, uint32_t* count) {
    *count = r.u32();
    *first = r.at;
    if (*count == NO_ROW) return;
    if (*count > r.left()) {
        r.ok = false;
        return;
    }
    const char16_t* p = r.at;
    for (uint32_t i = 0; i < *count; ++i) {
        size_t left = static_cast<size_t>(r.end - p);
        if (left < TOKEN_HEAD || p[3] != u' ') {
            r.ok = false;
            return;
        }
        uint32_t n = p[1] | uint32_t(p[2]) << 16;
        if (n > left - TOKEN_HEAD) {
            r.ok = false;
            return;
        }
        p += TOKEN_HEAD + n;
    }
    r.at = p;
}

bool read_saved(std::u16string_view file, const Units& key, Saved* saved) {
    constexpr size_t SUM = 4; // units of the closing hash
    if (file.size() < key.size() + SUM || file.compare(0, key.size(), key) != 0) return false;
    std::u16string_view body(file.data(), file.size() - SUM);
    Reader sum{body.data() + body.size(), file.data() + file.size()};
    if (sum.u64() != hash_units(body, 0)) return false;
    Reader r{file.data() + key.size(), body.data() + body.size()};
    for (uint32_t n = r.u32(), i = 0; i < n && r.ok; ++i) {
        IncludeStep step;
        step.name = r.text();
        step.includer = r.text();
        step.path = r.text();
        char16_t how = r.u16();
        step.angled = how & 1;
        step.opened = how & 2;
        if (step.opened) {
            FileStamp f;
            f.size = r.u64();
            f.modified = static_cast<int64_t>(r.u64());
            f.id = r.u64();
            saved->stamps.push_back(f);
        }
        saved->includes.push_back(std::move(step));
    }
    uint64_t symbols = r.u64();
    if (symbols > r.left()) return false;
    saved->symbols.reserve(symbols);
    for (uint64_t i = 0; i < symbols && r.ok; ++i) {
        SavedSymbol s;
        s.name = r.text();
        if (r.u16() != 0) r.ok = false;
        s.hash = r.u32();
        char16_t bits = r.u16();
        s.value = static_cast<uint8_t>(bits);
        s.flags = static_cast<uint8_t>(bits >> 8);
        read_row(r, &s.params, &s.params_n);
        read_row(r, &s.replacement, &s.replacement_n);
        if (s.name.empty()) r.ok = false;
        saved->symbols.push_back(s);
    }
    for (uint32_t n = r.u32(), i = 0; i < n && r.ok; ++i) {
        std::u16string path(r.text());
        GuardedHeader g;
        g.macro = r.text();
        g.rows = static_cast<int32_t>(r.u32());
        g.depth = static_cast<int32_t>(r.u32());
        saved->guarded.emplace_back(std::move(path), std::move(g));
    }
    saved->text = r.text();
    for (uint32_t n = r.u32(), i = 0; i < n && r.ok; ++i) {
        uint32_t at = r.u32();
        if (at > saved->text.size() || (!saved->main_at.empty() && at < saved->main_at.back()))
            r.ok = false;
        saved->main_at.push_back(at);
    }
    return r.ok && r.at == r.end;
}

// Every include finds what it found, and every file read is as it was
// (and is not the output this compile replaces, which reading would refuse).
bool still_valid(const Saved& saved) {
    size_t stamp = 0;
    for (const IncludeStep& step : saved.includes) {
        const char16_t* includer = step.includer.empty() ? nullptr : step.includer.c_str();
        if (findInclude(step.name.c_str(), step.angled, includer) != step.path) return false;
        if (!step.opened) continue;
        FileStamp now;
        const FileStamp& then = saved.stamps[stamp++];
        if (!plat_file_stamp(step.path.c_str(), &now) || now.size != then.size ||
            now.modified != then.modified || now.id != then.id || now.replaced_output)
            return false;
    }
    return true;
}

// A macro body as a definition keeps it, its texts left in the saved file
// (which stays loaded), each with the blank in front that a body's texts have.
TokenRow* saved_row(const char16_t* p, uint32_t count) {
    if (count == NO_ROW) return nullptr;
    TokenRow* row = arenaRow(count);
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t n = p[1] | uint32_t(p[2]) << 16;
        PpToken& t = *new (row->base + i) PpToken();
        t.type = static_cast<uint8_t>(p[0]);
        t.flag = FLAG_ROOM;
        t.hideset = 0;
        t.wslen = (p[0] >> 8) && i > 0 ? 1 : 0;
        t.text = p + TOKEN_HEAD;
        t.len = n;
        p += TOKEN_HEAD + n;
    }
    return row;
}

// `recorded`: the includes already recorded (a replayed header's own).
void restore(const Saved& saved, const SourceFile* s, size_t recorded) {
    // Each slot is asked for a few names ahead: the table is large, and a
    // lookup would otherwise wait on memory for each.
    reserve_symbols(saved.symbols.size());
    constexpr size_t AHEAD = 8;
    const size_t count = saved.symbols.size();
    for (size_t i = 0; i < std::min(AHEAD, count); ++i) prefetch_symbol(saved.symbols[i].hash);
    for (size_t i = 0; i < count; ++i) {
        if (i + AHEAD < count) prefetch_symbol(saved.symbols[i + AHEAD].hash);
        const SavedSymbol& saved_sym = saved.symbols[i];
        Symbol* sym = lookup_saved(saved_sym.name.data(), saved_sym.name.size(), saved_sym.hash);
        sym->value = saved_sym.value;
        sym->flags = saved_sym.flags;
        sym->params = saved_row(saved_sym.params, saved_sym.params_n);
        sym->replacement = saved_row(saved_sym.replacement, saved_sym.replacement_n);
    }
    for (const auto& [path, g] : saved.guarded) cpp.guarded[path] = g;
    if (compile_state.collect_dependencies)
        for (size_t i = recorded; i < saved.includes.size(); ++i)
            record_include(saved.includes[i].path);
    std::u16string text;
    size_t from = 0;
    for (uint32_t at : saved.main_at) {
        text.append(saved.text, from, at - from);
        text += s->name;
        from = at;
    }
    text.append(saved.text, from);
    if (cpp.outpos + text.size() >= cpp.outsize)
        grow_output(cpp.outpos + text.size() + OUTPUT_UNITS);
    std::memcpy(cpp.out + cpp.outpos, text.data(), text.size() * sizeof(char16_t));
    cpp.outpos += text.size();
}

void put_stamp(Units& out, const std::u16string& path, bool* ok) {
    FileStamp f;
    *ok = *ok && plat_file_stamp(path.c_str(), &f);
    put_u64(out, f.size);
    put_u64(out, static_cast<uint64_t>(f.modified));
    put_u64(out, f.id);
}

// A saved file that matches the key and whose includes still find the same
// unchanged files.
bool load_saved(const std::u16string& file, const Units& key, std::unique_ptr<char16_t[]>* content,
                size_t* units, Saved* saved) {
    return plat_read_whole(file.c_str(), content, units) &&
           read_saved(std::u16string_view(content->get(), *units), key, saved) &&
           still_valid(*saved);
}

void start_capture(const SourceFile* main, std::u16string file, Units key, bool header,
                   uint64_t chain) {
    auto capture = std::make_unique<PreludeCapture>();
    capture->main = main;
    capture->header = header;
    capture->chain = chain;
    capture->reported = reports_so_far();
    capture->file = std::move(file);
    capture->key = std::move(key);
    cpp.capture = std::move(capture);
}

} // namespace

bool prelude_from_cache(SourceFile* s, const char16_t* prelude, size_t units) {
    if (!compile_state.extended || cpp.capture || !cpp.guarded.empty()) return false;
    std::u16string dir = plat_cache_directory();
    if (dir.empty()) return false;
    size_t place = 0;
    Units key = start_state(prelude, units, &place);
    std::u16string file =
        slot_file(dir, u"prelude-", slot_of(std::u16string_view(key.data(), place)));
    std::unique_ptr<char16_t[]> content;
    size_t units_read = 0;
    Saved saved;
    if (load_saved(file, key, &content, &units_read, &saved)) {
        restore(saved, s, 0);
        cpp.preludeUnits = std::move(content); // the macro bodies' texts
        cpp.preludeReplayed = true;
        cpp.chainAfterLine = next_link(0, saved_hash({cpp.preludeUnits.get(), units_read}));
        std::memcpy(s->end, LAST_LINE, LAST_LINE_UNITS * sizeof(char16_t));
        s->end += LAST_LINE_UNITS;
        for (size_t i = 0; i < MARKER_UNITS; ++i) s->end[i] = BufferEndMark;
        return true;
    }
    start_capture(s, std::move(file), std::move(key), false, 0);
    return false;
}

namespace {

// The capture as a file: its key, what it did, a closing hash. Nothing when
// a header's stamp cannot be taken; the hash otherwise.
bool save_capture(const PreludeCapture& c, uint64_t* hash) {
    std::vector<const Symbol*> symbols;
    if (c.header) {
        symbols.assign(c.changed.begin(), c.changed.end());
        std::sort(symbols.begin(), symbols.end());
        symbols.erase(std::unique(symbols.begin(), symbols.end()), symbols.end());
    } else {
        for_each_symbol([&](const Symbol* sym) { symbols.push_back(sym); });
    }
    Units body;
    bool ok = true;
    put_u32(body, static_cast<uint32_t>(c.includes.size()));
    for (const IncludeStep& step : c.includes) {
        put_text(body, step.name);
        put_text(body, step.includer);
        put_text(body, step.path);
        body += static_cast<char16_t>((step.angled ? 1 : 0) | (step.opened ? 2 : 0));
        if (step.opened) put_stamp(body, step.path, &ok);
    }
    put_u64(body, symbols.size());
    for (const Symbol* sym : symbols) put_symbol(body, sym);
    auto put_guarded = [&](const std::u16string& path, const GuardedHeader& g) {
        put_text(body, path);
        put_text(body, g.macro);
        put_u32(body, static_cast<uint32_t>(g.rows));
        put_u32(body, static_cast<uint32_t>(g.depth));
    };
    if (c.header) {
        std::vector<std::u16string> guarded = c.guarded;
        std::sort(guarded.begin(), guarded.end());
        guarded.erase(std::unique(guarded.begin(), guarded.end()), guarded.end());
        put_u32(body, static_cast<uint32_t>(guarded.size()));
        for (const std::u16string& path : guarded) put_guarded(path, cpp.guarded[path]);
    } else {
        put_u32(body, static_cast<uint32_t>(cpp.guarded.size()));
        for (const auto& [path, g] : cpp.guarded) put_guarded(path, g);
    }
    put_text(body, c.text);
    put_u32(body, static_cast<uint32_t>(c.main_at.size()));
    for (uint32_t at : c.main_at) put_u32(body, at);
    if (!ok) return false;
    Units all = c.key + body;
    *hash = hash_units(all, 0);
    put_u64(all, *hash);
    // A cache that cannot be written is no loss.
    plat_write_whole(c.file.c_str(), std::string_view(reinterpret_cast<const char*>(all.data()),
                                                      all.size() * sizeof(char16_t)));
    return true;
}

} // namespace

void capture_end() {
    std::unique_ptr<PreludeCapture> c = std::move(cpp.capture);
    if (c->spoiled || reports_so_far() != c->reported) return;
    uint64_t hash = 0;
    if (save_capture(*c, &hash)) cpp.headerChain = next_link(c->chain, hash);
}

void header_chain_line(const TokenRow* row) {
    if (cpp.capture || cpp.source->previous) return;
    if (cpp.chainAfterLine) { // the replayed prelude's closing #line
        cpp.headerChain = cpp.chainAfterLine;
        cpp.chainAfterLine = 0;
        return;
    }
    // Blank lines and includes (which doInclude follows) keep the chain.
    const PpToken* tp = row->base;
    bool blank = rowlen(row) == 1 && tp->type == PP_NEWLINE;
    bool include = rowlen(row) > 2 && tp->type == PP_HASH && tp[1].type == PP_NAME &&
                   std::u16string_view(tp[1].text, tp[1].len) == u"include";
    if (!blank && !include) cpp.headerChain = 0;
}

bool header_from_cache(const std::u16string& name, bool angled) {
    uint64_t chain = cpp.headerChain;
    cpp.headerChain = 0;
    std::u16string dir = plat_cache_directory();
    if (dir.empty()) return false;
    Units key = HEADER_MAGIC;
    put_u64(key, chain);
    key += static_cast<char16_t>(angled);
    put_text(key, name);
    std::u16string file = slot_file(dir, u"header-", header_slot(key));
    std::unique_ptr<char16_t[]> content;
    size_t units_read = 0;
    Saved saved;
    if (load_saved(file, key, &content, &units_read, &saved) && saved.main_at.empty() &&
        !saved.includes.empty()) {
        restore(saved, cpp.source, 1); // doInclude recorded the header itself
        cpp.headerChain = next_link(chain, saved_hash({content.get(), units_read}));
        cpp.headerUnits.push_back(std::move(content)); // the macro bodies' texts
        cpp.headersReplayed += 1;
        return true;
    }
    start_capture(cpp.source, std::move(file), std::move(key), true, chain);
    return false;
}

void capture_symbol(Symbol* sym) {
    if (cpp.capture->header) cpp.capture->changed.push_back(sym);
}

void capture_guarded(const char16_t* path) {
    if (cpp.capture->header) cpp.capture->guarded.emplace_back(path);
}

void capture_output(const char16_t* text, size_t n) {
    cpp.capture->text.append(text, n);
}

// A line marker of the main script just went out: its name is left out of
// the saved text (a replay puts in the name of the script at hand).
void capture_main_name(size_t name_units) {
    if (cpp.capture->header) { // a header's text never names the script
        cpp.capture->spoiled = true;
        return;
    }
    std::u16string& t = cpp.capture->text;
    size_t tail = 2; // the closing quote and the newline
    if (t.size() < name_units + tail) {
        cpp.capture->spoiled = true;
        return;
    }
    size_t at = t.size() - tail - name_units;
    t.erase(at, name_units);
    cpp.capture->main_at.push_back(static_cast<uint32_t>(at));
}

void capture_include(const std::u16string& name, bool angled, const char16_t* includer,
                     const std::u16string& path, bool opened) {
    IncludeStep step;
    step.name = name;
    // The main script's name is left out: another script may take it.
    bool main =
        includer && cpp.capture->main && std::u16string_view(includer) == cpp.capture->main->name;
    step.includer = includer && !main ? includer : u"";
    step.path = path;
    step.angled = angled;
    step.opened = opened;
    if (path == cpp.capture->main->name) cpp.capture->spoiled = true;
    cpp.capture->includes.push_back(std::move(step));
}

} // namespace tarn
