// UTF-8 and UTF-16 conversions.
#include "utf.h"

#include <cstdint>

namespace tarn_driver {

namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

void put_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

void put_utf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out += char16_t(c);
        return;
    }
    c -= 0x10000;
    out += char16_t(0xD800 | (c >> 10));
    out += char16_t(0xDC00 | (c & 0x3FF));
}

// Decodes one UTF-8 sequence at s[*i]; advances *i past it (or past one
// byte when it is ill-formed).
char32_t next_utf8(std::string_view s, size_t* i) {
    static const char32_t MIN_OF_LENGTH[5] = {0, 0, 0x80, 0x800, 0x10000};
    uint8_t b = uint8_t(s[*i]);
    size_t length = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    if (length == 0 || *i + length > s.size()) return ++*i, REPLACEMENT;
    if (length == 1) return ++*i, b;
    char32_t c = b & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
        uint8_t t = uint8_t(s[*i + k]);
        if ((t >> 6) != 2) return ++*i, REPLACEMENT;
        c = (c << 6) | (t & 0x3F);
    }
    *i += length;
    bool bad = c < MIN_OF_LENGTH[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF);
    return bad ? REPLACEMENT : c;
}

} // namespace

std::string to_utf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        bool high = c >= 0xD800 && c <= 0xDBFF;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = REPLACEMENT;
        }
        put_utf8(out, c);
    }
    return out;
}

std::u16string from_utf8(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) put_utf16(out, next_utf8(text, &i));
    return out;
}

std::string cat(std::initializer_list<std::string_view> parts) {
    std::string out;
    for (std::string_view p : parts) out += p;
    return out;
}

} // namespace tarn_driver
