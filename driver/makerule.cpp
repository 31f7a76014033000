// Make-rule composition for -M.
#include "makerule.h"

#include <algorithm>

namespace tarn_driver {

std::u16string make_escape(std::u16string_view path) {
    std::u16string out;
    out.reserve(path.size());
    for (char16_t c : path) {
        if (c == u' ')
            out += u"\\ ";
        else if (c == u'$')
            out += u"$$";
        else if (c == u'#')
            out += u"\\#";
        else
            out += c;
    }
    return out;
}

std::u16string make_rule(std::u16string_view output, std::u16string_view input,
                         const std::vector<std::u16string>& dependencies) {
    std::u16string rule = make_escape(output);
    rule += u": ";
    rule += make_escape(input);
    std::vector<std::u16string_view> seen{input};
    for (const std::u16string& d : dependencies) {
        if (std::find(seen.begin(), seen.end(), d) != seen.end()) continue;
        seen.push_back(d);
        rule += u' ';
        rule += make_escape(d);
    }
    return rule;
}

} // namespace tarn_driver
