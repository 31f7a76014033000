// Text helpers of the driver (it cannot use the library's internals):
// UTF-8 and UTF-16 conversions, where ill-formed input becomes U+FFFD, and
// string joining.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace tarn_driver {

std::string to_utf8(std::u16string_view text);
std::u16string from_utf8(std::string_view text);

// Joins its parts. Used instead of operator+ chains, which draw false
// -Wrestrict warnings from g++ 12 at -O3.
std::string cat(std::initializer_list<std::string_view> parts);

} // namespace tarn_driver
