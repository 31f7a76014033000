// Make rules for -M and --depfile, and the atomic write of a dependency file.
#include "makerule.h"

#include <algorithm>

#include "utf.h"

namespace tarn_driver {

namespace {

bool is_letter(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

// Appends each dependency not seen before (the input counts as seen).
std::vector<std::u16string_view> unique_dependencies(std::u16string_view input,
                                                     const std::vector<std::u16string>& deps) {
    std::vector<std::u16string_view> seen{input}, out;
    for (const std::u16string& d : deps) {
        if (std::find(seen.begin(), seen.end(), d) != seen.end()) continue;
        seen.push_back(d);
        out.push_back(d);
    }
    return out;
}

// "C:\" and "C:/" at the start name a drive; any other colon is make's.
bool is_drive_colon(std::u16string_view path, size_t i) {
    return i == 1 && is_letter(path[0]) && path.size() > 2 && (path[2] == u'\\' || path[2] == u'/');
}

} // namespace

std::u16string make_escape(std::u16string_view path) {
    std::u16string out;
    out.reserve(path.size());
    size_t backslashes = 0; // the run of them just copied
    for (size_t i = 0; i < path.size(); ++i) {
        char16_t c = path[i];
        // A backslash run before " " or "#" would otherwise eat the escape.
        if (c == u' ' || c == u'#') out.append(backslashes, u'\\');
        if (c == u' ')
            out += u"\\ ";
        else if (c == u'#')
            out += u"\\#";
        else if (c == u'$')
            out += u"$$";
        else if (c == u':' && !is_drive_colon(path, i))
            out += u"\\:";
        else
            out += c;
        backslashes = c == u'\\' ? backslashes + 1 : 0;
    }
    return out;
}

std::u16string make_rule(std::u16string_view output, std::u16string_view input,
                         const std::vector<std::u16string>& dependencies) {
    std::u16string rule = make_escape(output);
    rule += u": ";
    rule += make_escape(input);
    for (std::u16string_view d : unique_dependencies(input, dependencies)) {
        rule += u' ';
        rule += make_escape(d);
    }
    return rule;
}

std::u16string depfile_text(const std::vector<std::u16string>& targets, std::u16string_view input,
                            const std::vector<std::u16string>& dependencies) {
    std::u16string text;
    for (const std::u16string& t : targets) {
        if (!text.empty()) text += u' ';
        text += t;
    }
    text += u": ";
    text += make_escape(input);
    std::vector<std::u16string_view> deps = unique_dependencies(input, dependencies);
    for (std::u16string_view d : deps) {
        text += u" \\\n  ";
        text += make_escape(d);
    }
    text += u'\n';
    for (std::u16string_view d : deps) {
        text += u'\n';
        text += make_escape(d);
        text += u":\n";
    }
    return text;
}

std::u16string dependency_path(std::u16string_view recorded) {
    std::u16string p(recorded);
#ifndef _WIN32
    std::replace(p.begin(), p.end(), u'\\', u'/');
#endif
    return p;
}

} // namespace tarn_driver
