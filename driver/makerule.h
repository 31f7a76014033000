// The make rule that -M writes: "output: input deps...", each path escaped
// as make reads it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarn_driver {

// " " becomes "\ ", "$" becomes "$$" and "#" becomes "\#".
std::u16string make_escape(std::u16string_view path);

// The rule's one line (without its line break). Dependencies named twice
// are listed once, at their first place.
std::u16string make_rule(std::u16string_view output, std::u16string_view input,
                         const std::vector<std::u16string>& dependencies);

} // namespace tarn_driver
