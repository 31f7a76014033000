// UTF-8 and UTF-16 conversions of the driver (it cannot use the library's
// internals). Ill-formed input becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace tarn_driver {

std::string to_utf8(std::u16string_view text);
std::u16string from_utf8(std::string_view text);

} // namespace tarn_driver
