// #include: reading the name, the search through the includer's directory,
// "." and the include directory list, the depth limit, and the list itself
// ("." and the "include" environment variable at load, then the directories
// the host adds, each searched before those added earlier).
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include <algorithm>
#include <string_view>

#include "diag/report.h"
#include "support/paths.h"
#include "support/state.h"

namespace tarn {

namespace {

constexpr size_t NAME_UNITS = 260; // the name buffer, zero included

// The file name of the line at the row's cursor; false on a syntax error.
bool include_name(TokenRow* row, std::u16string* name, bool* angled) {
    PpToken* tp = row->cur;
    if (tp->type == PP_STRING) {
        size_t len = tp->len >= 2 ? tp->len - 2 : 0;
        if (len > NAME_UNITS - 1) len = NAME_UNITS - 1;
        name->assign(tp->text + 1, len);
        *angled = false;
    } else {
        // <a b.h> names ab.h: the texts are joined without their white space.
        for (++tp; tp->type != K_GT; ++tp) {
            if (tp->type == PP_NEWLINE || tp->type == PP_END) return false;
            if (name->size() + tp->len + 2 >= NAME_UNITS) return false;
            name->append(tp->text, tp->len);
        }
        *angled = true;
    }
    return tp + 2 >= row->last && !name->empty();
}

bool is_name_start(const PpToken* tp) {
    return tp->type == PP_STRING || tp->type == K_LT;
}

// dir joined with name, when the result names something that exists.
bool try_path(const char16_t* dir, const char16_t* name, std::u16string* found) {
    char16_t out[MAX_PATH_UNITS];
    if (path_join(out, MAX_PATH_UNITS, dir, name) == 0 || !out[0]) return false;
    if (!file_exists(out)) return false;
    *found = out;
    return true;
}

bool has_separator(const char16_t* s) {
    for (; *s; ++s)
        if (is_separator(*s)) return true;
    return false;
}

// Quoted names: first the directory of the file that includes them.
bool search_includer(const char16_t* includer, const char16_t* name, std::u16string* found) {
    std::u16string current = includer;
    size_t sep = current.find_last_of(u"\\/");
    if (sep == std::u16string::npos) {
        if (!has_separator(name)) return false;
        return try_path(plat_current_directory().c_str(), name, found);
    }
    std::u16string dir = current.substr(0, sep + 1);
    bool keep = dir.size() == 1 || (sep > 0 && current[sep - 1] == u':');
    if (!keep) dir.pop_back();
    std::u16string absolute = plat_absolute(dir.c_str());
    if (!absolute.empty()) dir = absolute;
    return try_path(dir.c_str(), name, found);
}

bool is_word(const PpToken* tp, std::u16string_view word) {
    return tp->type == PP_NAME && std::u16string_view(tp->text, tp->len) == word;
}

// Reading a guarded header while its macro is defined would skip every line
// of it: its line marker, an empty line per row, and the includer's marker
// after. That text is written instead of opening the file again, when it is
// sure to be the same (the nesting limit, the output's room).
bool skip_guarded(const char16_t* path) {
    auto at = cpp.guarded.find(path);
    if (at == cpp.guarded.end()) return false;
    const GuardedHeader& g = at->second;
    PpToken name{};
    name.type = PP_NAME;
    name.text = g.macro.data();
    name.len = g.macro.size();
    if (!symbol_is_defined(&name)) return false;
    if (!compile_state.extended && cpp.ifDepth + g.depth > MAX_IF_DEPTH) return false;
    std::u16string text = u"#line 1 \"";
    text += path;
    text += u"\"\n";
    text.append(static_cast<size_t>(g.rows), u'\n');
    if (cpp.outpos + text.size() >= cpp.outsize) return false;
    std::copy(text.begin(), text.end(), cpp.out + cpp.outpos);
    cpp.outpos += text.size();
    if (cpp.capture) capture_output(text.data(), text.size());
    cpp.guardSkipped = true; // the includer's marker follows its line, as after the file's end
    return true;
}

} // namespace

void guard_watch(SourceFile* s, const TokenRow* row) {
    s->guard_rows += 1;
    const PpToken* tp = row->cur;
    bool directive = tp->type == PP_HASH;
    switch (s->guard) {
    case GUARD_FIRST:
        // The first line opens the guard: # ifndef X, nothing more.
        if (directive && rowlen(row) == 4 && is_word(tp + 1, u"ifndef") && tp[2].type == PP_NAME &&
            tp[3].type == PP_NEWLINE) {
            s->guard = GUARD_INSIDE;
            s->guard_len = tp[2].len;
            s->guard_name = cpp.arena.copy(tp[2].text, tp[2].len);
            s->guard_depth = 1;
        } else {
            s->guard = GUARD_OFF;
        }
        return;
    case GUARD_INSIDE: {
        if (!directive) return;
        const PpToken* word = tp + 1;
        if (word->type == PP_NEWLINE) return; // a lone #
        // Lines that act even where text is skipped, or that change how
        // the rest is read, make a skipped reading differ.
        if (word->type != PP_NAME || is_word(word, u"line") || is_word(word, u"pragma")) {
            s->guard = GUARD_OFF;
            return;
        }
        bool outer = s->ifdepth == 1;
        if (outer && (is_word(word, u"else") || is_word(word, u"elif"))) {
            s->guard = GUARD_OFF;
        } else if (outer && is_word(word, u"endif")) {
            s->guard = GUARD_AFTER;
        } else if (is_word(word, u"if") || is_word(word, u"ifdef") || is_word(word, u"ifndef")) {
            s->guard_depth = std::max(s->guard_depth, s->ifdepth + 1);
        }
        return;
    }
    default: // after the guard: only empty lines
        if (tp->type != PP_NEWLINE || tp->wslen != 0 || rowlen(row) != 1) s->guard = GUARD_OFF;
        return;
    }
}

void guardFileDone(SourceFile* s) {
    if (s->guard != GUARD_AFTER || s->ifdepth != 0 || !s->file ||
        reports_so_far() != s->guard_reports)
        return;
    GuardedHeader& g = cpp.guarded[s->name];
    g.macro.assign(s->guard_name, s->guard_len);
    g.rows = s->guard_rows;
    g.depth = s->guard_depth;
    if (cpp.capture) capture_guarded(s->name);
}

std::u16string findInclude(const char16_t* name, bool angled, const char16_t* current) {
    std::u16string found;
    if (!current && cpp.source) current = cpp.source->name;
    if (!angled && current && search_includer(current, name, &found)) return found;
    for (const IncludeDir* d = cpp.includeDirs; d; d = d->next) {
        if (angled && !(d->kind & DIR_ANGLED)) continue; // "." serves quoted names only
        if (try_path(d->path, name, &found)) return found;
    }
    return name; // the open fails and says so
}

void doInclude(TokenRow* row) {
    size_t at = static_cast<size_t>(row->cur - row->base);
    if (row->cur->type == PP_NEWLINE || row->cur->type == PP_END) {
        report_pp(error_code(MSG_INCLUDE_SYNTAX));
        return;
    }
    if (!is_name_start(row->cur)) {
        expandRow(row, u"<include>");
        row->cur = row->base + at;
    }
    // The chain of saved headers goes on only through an include that is
    // replayed, captured or stood in for.
    uint64_t chain = cpp.headerChain;
    cpp.headerChain = 0;
    std::u16string name;
    bool angled = false;
    if (!is_name_start(row->cur) || !include_name(row, &name, &angled)) {
        report_pp(error_code(MSG_INCLUDE_SYNTAX));
        return;
    }
    std::u16string path = findInclude(name.c_str(), angled);
    const char16_t* kept = cpp.arena.copy(path.data(), path.size());
    // The modern dialect records every include, for complete dependency
    // files; the classic one only quoted names in the main script.
    if (compile_state.collect_dependencies &&
        (compile_state.extended || (!angled && cpp.includeDepth == 0)))
        record_include(path);
    if (++cpp.includeDepth > MAX_INCLUDE_DEPTH && !compile_state.extended)
        report_pp(fatal_code(MSG_INCLUDE_TOO_DEEP));
    bool skipped = skip_guarded(kept);
    if (skipped) {
        cpp.headerChain = chain;
    } else if (chain && !cpp.capture && !cpp.source->previous) {
        cpp.headerChain = chain;
        if (header_from_cache(name, angled)) {
            cpp.includeDepth -= 1;
            cpp.guardSkipped = true; // the includer's marker follows, as after the file's end
            return;
        }
    }
    if (cpp.capture) capture_include(name, angled, cpp.source->name, path, !skipped);
    if (skipped) {
        cpp.includeDepth -= 1;
        return;
    }
    pushSource(kept, nullptr);
    if (cpp.capture && cpp.capture->header && !cpp.capture->source)
        cpp.capture->source = cpp.source;
    writeLineMarker();
}

void addIncludeDir(const char16_t* path, uint32_t kind, bool append) {
    IncludeDir* d = cpp.arena.make<IncludeDir>();
    std::u16string absolute = plat_absolute(path);
    const std::u16string& chosen = absolute.empty() ? std::u16string(path) : absolute;
    d->path = cpp.arena.copy(chosen.data(), chosen.size());
    d->kind = kind;
    IncludeDir** at = &cpp.includeDirs;
    if (*at) {
        if (append) {
            while (*at) at = &(*at)->next;
        } else {
            at = &(*at)->next; // right after the first entry
        }
    }
    d->next = *at;
    *at = d;
}

void setup_include_dirs() {
    addIncludeDir(u".", 0, true);
    std::u16string env;
    if (!plat_getenv(u"include", &env)) return;
    size_t from = 0;
    while (from <= env.size()) {
        size_t to = env.find(u';', from);
        if (to == std::u16string::npos) to = env.size();
        if (to > from)
            addIncludeDir(env.substr(from, to - from).c_str(), DIR_ANGLED | DIR_STANDARD, true);
        from = to + 1;
    }
}

void add_include_path(const char16_t* path) {
    addIncludeDir(path, DIR_ANGLED, false);
}

void delete_standard_include_dirs() {
    for (IncludeDir** at = &cpp.includeDirs; *at;) {
        if ((*at)->kind & DIR_STANDARD)
            *at = (*at)->next; // arena storage: nothing to free
        else
            at = &(*at)->next;
    }
}

} // namespace tarn
