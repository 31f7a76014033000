// Finding and preparing the mingw-w64 headers (see mingw.h).
#include "mingw.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "messages.h"
#include "utf.h"

#include <tarn/tarn.h>

#ifndef _WIN32
extern char** environ;
#endif

namespace tarn_driver {

namespace fs = std::filesystem;

namespace {

// The folders of the usual packages: the 64-bit ones first, then Debian's
// architecture-neutral copy, then 32-bit-only installations (for resources
// the headers of the two are the same).
const std::u16string_view FOLDERS[] = {
    // Debian and Ubuntu (mingw-w64-x86-64-dev), Arch
    u"/usr/x86_64-w64-mingw32/include",
    // Fedora, openSUSE
    u"/usr/x86_64-w64-mingw32/sys-root/mingw/include",
    // a toolchain built from source
    u"/usr/local/x86_64-w64-mingw32/include",
    // Homebrew on arm64 and on x86-64
    u"/opt/homebrew/opt/mingw-w64/toolchain-x86_64/x86_64-w64-mingw32/include",
    u"/usr/local/opt/mingw-w64/toolchain-x86_64/x86_64-w64-mingw32/include",
    // Debian and Ubuntu (mingw-w64-common)
    u"/usr/share/mingw-w64/include",
    u"/usr/i686-w64-mingw32/include",
    u"/usr/i686-w64-mingw32/sys-root/mingw/include",
};

// The headers are written for a C compiler. _mingw.h includes vadefs.h,
// which stops at "#error VARARGS not implemented for this compiler" unless
// __GNUC__ or _MSC_VER is defined, and malloc.h (which stdlib.h, ole2.h,
// richedit.h and others include) includes the compiler's own mm_malloc.h,
// which mingw-w64 does not ship. Neither header declares anything a
// resource needs, so their include guards are defined: both are then taken
// as read. No compiler's macro is defined, so a script's own tests of
// __GNUC__ or _MSC_VER see a resource compiler, as they would elsewhere.
const std::u16string_view DEFINITIONS[] = {
    u"_INC_VADEFS", // vadefs.h
    u"_MALLOC_H_",  // malloc.h
};

// The folders whose warnings are not shown (apply_system_headers).
std::vector<std::u16string> quiet_folders;

fs::path to_path(std::u16string_view text) {
#ifdef _WIN32
    return fs::path(std::u16string(text));
#else
    return fs::path(to_utf8(text));
#endif
}

// An absolute path with "." and ".." resolved and "/" between names. Links
// are not followed: the library names a file by the folder it was found in.
std::u16string normal_form(std::u16string_view path) {
    std::u16string text(path);
#ifndef _WIN32
    std::replace(text.begin(), text.end(), u'\\', u'/'); // the library joins names with "\"
#endif
    std::error_code ec;
    fs::path p = fs::absolute(to_path(text), ec);
    if (ec) p = to_path(text);
#ifdef _WIN32
    std::u16string normal = p.lexically_normal().generic_u16string();
#else
    std::u16string normal = from_utf8(p.lexically_normal().generic_string());
#endif
    while (normal.size() > 1 && normal.ends_with(u'/')) normal.pop_back();
    return normal;
}

// The name a -D or -U text defines or undefines.
std::u16string_view symbol_name(std::u16string_view text) {
    size_t end = text.find_first_of(u"=(");
    return text.substr(0, end);
}

bool user_names(const Options& o, std::u16string_view name) {
    for (const SymbolAction& s : o.symbols)
        if (symbol_name(s.text) == name) return true;
    return false;
}

void add_if_mingw(std::vector<std::u16string>* folders, std::u16string_view folder) {
    if (!folder.empty() && is_mingw_folder(folder)) folders->emplace_back(folder);
}

// Both in normal form.
bool below(const std::u16string& file, const std::u16string& folder) {
    if (file.size() <= folder.size() || !file.starts_with(folder)) return false;
    return folder.ends_with(u'/') || file[folder.size()] == u'/';
}

#ifndef _WIN32
bool ascii_equal_ignore_case(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
        return lower(x) == lower(y);
    });
}

// The "include" variable in any letter case, the exact spelling first, as
// the library reads it.
std::optional<std::u16string> include_variable() {
    const char* inexact = nullptr;
    for (char** e = environ; e && *e; ++e) {
        const char* eq = std::strchr(*e, '=');
        if (!eq) continue;
        std::string_view name(*e, size_t(eq - *e));
        if (name == "include") return from_utf8(eq + 1);
        if (!inexact && ascii_equal_ignore_case(name, "include")) inexact = eq + 1;
    }
    if (!inexact) return std::nullopt;
    return from_utf8(inexact);
}
#endif

} // namespace

std::span<const std::u16string_view> mingw_header_folders() {
    return FOLDERS;
}

bool is_mingw_folder(std::u16string_view folder) {
    std::error_code ec;
    fs::path p = to_path(folder);
    return fs::is_regular_file(p / "_mingw.h", ec) && fs::is_regular_file(p / "windows.h", ec);
}

SystemHeaders plan_system_headers(const Options& o,
                                  const std::optional<std::u16string>& include_variable,
                                  std::span<const std::u16string_view> candidates) {
    SystemHeaders h;
    // An empty variable gives the library no folder, so it says nothing.
    bool variable_set = include_variable && !include_variable->empty();
    h.searched = !o.no_standard_includes && !variable_set;
    if (h.searched) {
        for (std::u16string_view c : candidates)
            if (is_mingw_folder(c)) {
                h.found = c;
                break;
            }
    }
    if (!h.found.empty()) h.folders.push_back(h.found);
    for (const std::u16string& p : o.include_paths) add_if_mingw(&h.folders, p);
    if (variable_set && !o.no_standard_includes) {
        std::u16string_view rest = *include_variable;
        while (!rest.empty()) {
            size_t end = std::min(rest.find(u';'), rest.size());
            add_if_mingw(&h.folders, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    if (h.folders.empty()) return h;
    for (std::u16string_view d : DEFINITIONS)
        if (!user_names(o, d)) h.definitions.emplace_back(d);
    return h;
}

void apply_system_headers(const SystemHeaders& h, bool quiet) {
    if (!h.found.empty()) add_include_path_w(h.found.c_str());
    for (const std::u16string& d : h.definitions) define_symbol_w(d.c_str());
    quiet_folders.clear();
    if (quiet)
        for (const std::u16string& f : h.folders) quiet_folders.push_back(normal_form(f));
}

std::u16string system_headers_line(const SystemHeaders& h) {
    if (!h.searched) return u"";
    if (h.found.empty()) return message(MSG_HEADERS_NOT_FOUND);
    return message(MSG_HEADERS_USED, {h.found});
}

std::u16string use_system_headers(const Options& o) {
#ifdef _WIN32
    (void)o;
    return u"";
#else
    SystemHeaders h = plan_system_headers(o, include_variable(), FOLDERS);
    apply_system_headers(h, !o.verbose);
    return system_headers_line(h);
#endif
}

bool in_folder(std::u16string_view file, std::u16string_view folder) {
    return below(normal_form(file), normal_form(folder));
}

bool quiet_diagnostic(int32_t severity, const char16_t* file) {
    if (severity != 0 || !file || quiet_folders.empty()) return false;
    std::u16string f = normal_form(file);
    return std::any_of(quiet_folders.begin(), quiet_folders.end(),
                       [&](const std::u16string& d) { return below(f, d); });
}

} // namespace tarn_driver
