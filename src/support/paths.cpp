// Path helpers: joining an include directory with a name, the file-name part
// of a path, and the exists test.
#include "support/paths.h"

#include "support/platform.h"

namespace tarn {

namespace {

// Output of path_join: never more than `size` units, zero included.
struct PathOut {
    char16_t* out;
    size_t size;
    size_t len = 0;
    bool overflow = false;
    void put(char16_t c) {
#ifndef _WIN32
        if (c == u'\\') c = NATIVE_SEPARATOR;
#endif
        if (len + 1 < size)
            out[len++] = c;
        else
            overflow = true;
    }
    // Terminates out and gives `result`; a result of 0 or a cut path leaves
    // out empty, since a cut path could name another file.
    size_t close(size_t result) {
        if (overflow) result = 0;
        if (result == 0) len = 0;
        if (size) out[len] = 0;
        return result;
    }
    // ".." drops the last component, keeping the separator or drive colon
    // before it.
    void drop_component() {
        size_t end = len;
        while (end > 0 && is_separator(out[end - 1])) --end;
        if (end == 0) return; // nothing but separators: the root stays
        while (end > 0 && !is_separator(out[end - 1]) && out[end - 1] != u':') --end;
        len = end;
    }
};

bool is_absolute(const char16_t* name) {
    return is_separator(name[0]) || (name[0] && name[1] == u':');
}

} // namespace

size_t path_join(char16_t* out, size_t size, const char16_t* dir, const char16_t* name) {
    PathOut p{out, size};
    if (is_absolute(name) || !dir || !dir[0]) {
        for (const char16_t* s = name; *s; ++s) p.put(*s);
        return p.close(p.len);
    }
    for (const char16_t* s = dir; *s; ++s) p.put(*s);
    size_t base = p.len;
    const char16_t* s = name;
    while (*s) {
        while (is_separator(*s)) ++s;
        const char16_t* start = s;
        while (*s && !is_separator(*s)) ++s;
        size_t n = static_cast<size_t>(s - start);
        if (n == 0) break;
        if (n == 1 && start[0] == u'.') continue;
        if (n == 2 && start[0] == u'.' && start[1] == u'.') {
            p.drop_component();
            continue;
        }
        if (start[0] == u'.') return p.close(0); // .svn, ..x: refused on purpose
        if (p.len > 0 && !is_separator(out[p.len - 1])) p.put(NATIVE_SEPARATOR);
        for (size_t i = 0; i < n; ++i) p.put(start[i]);
    }
    return p.close(base);
}

bool file_exists(const char16_t* path) {
    return plat_exists(path);
}

const char16_t* path_file_part(const char16_t* path) {
    if (!path) return u"";
    const char16_t* part = path;
    for (const char16_t* s = path; *s; ++s)
        if (is_separator(*s) || *s == u':') part = s + 1;
    return part;
}

} // namespace tarn
