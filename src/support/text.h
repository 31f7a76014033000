// UTF-16 string helpers shared by all subsystems.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn {

size_t str_len(const char16_t* s);

// Writes the decimal digits of n and returns the position after the last.
char16_t* int_to_text(char16_t* buffer, uint32_t n);

std::u16string decimal_text(int64_t n);
std::u16string hex_text(uint32_t n, bool upper); // no leading zeros, no prefix

// Exact conversions between UTF-8 and UTF-16 (ill-formed input becomes
// U+FFFD); for hosts, tests and file names, not for script text, which goes
// through the code-page services of the platform layer.
std::u16string utf8_to_utf16(std::string_view s);
std::string utf16_to_utf8(std::u16string_view s);

// The same conversions into a caller's buffer, for the platform layer's code
// page 65001. `out` null: only counts. Returns the units (bytes) written, or
// 0 when they need more than `room`. Each maximal ill-formed part of the
// UTF-8 input becomes one U+FFFD; a lone surrogate is encoded as U+FFFD.
size_t utf8_decode(const char* bytes, size_t n, char16_t* out, size_t room);
size_t utf8_encode(const char16_t* text, size_t n, char* out, size_t room);

// Length of the longest prefix of `bytes` made of whole, well-formed UTF-8
// sequences; a sequence cut off by the end ends the prefix.
size_t utf8_valid_prefix(const unsigned char* bytes, size_t n);

bool equal_ignore_case(std::u16string_view a, std::u16string_view b); // ASCII letters

} // namespace tarn
