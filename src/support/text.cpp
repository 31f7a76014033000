// UTF-16 string helpers, number texts, and the UTF-8 codec shared by the
// hosts' conversions and the POSIX code page 65001. The well-formedness rules
// are those of the Unicode Standard's table of well-formed UTF-8 sequences.
#include "support/text.h"
#include "support/sink.h"

#include <array>
#include <cstring>
#include <memory>

namespace tarn {

namespace {

// Trailing bytes announced by each lead byte; 4 and 5 (F8 to FF) are never
// well formed, and continuation bytes (80 to BF) count as lone units.
constexpr std::array<uint8_t, 256> TRAIL_BYTES = [] {
    std::array<uint8_t, 256> t{};
    for (int b = 0; b < 256; ++b)
        t[b] = b < 0xC0 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : b < 0xF8 ? 3 : b < 0xFC ? 4 : 5;
    return t;
}();

// Range allowed for the trailing byte at index k (1 to 3) after `lead`.
void trail_range(unsigned char lead, size_t k, unsigned char* lo, unsigned char* hi) {
    *lo = 0x80;
    *hi = 0xBF;
    if (k != 1) return;
    if (lead == 0xE0) *lo = 0xA0;
    if (lead == 0xED) *hi = 0x9F;
    if (lead == 0xF0) *lo = 0x90;
    if (lead == 0xF4) *hi = 0x8F;
}

bool lead_can_start(unsigned char lead) {
    return lead < 0x80 || (lead >= 0xC2 && lead <= 0xF4);
}

bool well_formed(const unsigned char* s, size_t len) {
    if (len > 4 || !lead_can_start(s[0])) return false;
    for (size_t k = 1; k < len; ++k) {
        unsigned char lo, hi;
        trail_range(s[0], k, &lo, &hi);
        if (s[k] < lo || s[k] > hi) return false;
    }
    return true;
}

void put_utf16(Sink<char16_t>& sink, uint32_t cp) {
    if (cp < 0x10000) {
        sink.put(static_cast<char16_t>(cp));
        return;
    }
    cp -= 0x10000;
    sink.put(static_cast<char16_t>(0xD800 + (cp >> 10)));
    sink.put(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
}

void put_utf8(Sink<char>& sink, uint32_t cp) {
    auto put = [&](uint32_t b) { sink.put(static_cast<char>(b)); };
    if (cp < 0x80) {
        put(cp);
    } else if (cp < 0x800) {
        put(0xC0 | cp >> 6);
        put(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        put(0xE0 | cp >> 12);
        put(0x80 | (cp >> 6 & 0x3F));
        put(0x80 | (cp & 0x3F));
    } else {
        put(0xF0 | cp >> 18);
        put(0x80 | (cp >> 12 & 0x3F));
        put(0x80 | (cp >> 6 & 0x3F));
        put(0x80 | (cp & 0x3F));
    }
}

bool is_high_surrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool is_low_surrogate(char16_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

} // namespace

size_t str_len(const char16_t* s) {
    const char16_t* p = s;
    while (*p) ++p;
    return static_cast<size_t>(p - s);
}

char16_t* int_to_text(char16_t* buffer, uint32_t n) {
    char16_t digits[10];
    int count = 0;
    do {
        digits[count++] = static_cast<char16_t>(u'0' + n % 10);
        n /= 10;
    } while (n);
    while (count) *buffer++ = digits[--count];
    return buffer;
}

std::u16string decimal_text(int64_t n) {
    uint64_t magnitude = n < 0 ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);
    std::u16string digits;
    do {
        digits.insert(digits.begin(), static_cast<char16_t>(u'0' + magnitude % 10));
        magnitude /= 10;
    } while (magnitude);
    if (n < 0) digits.insert(digits.begin(), u'-');
    return digits;
}

std::u16string hex_text(uint32_t n, bool upper) {
    const char16_t* digits = upper ? u"0123456789ABCDEF" : u"0123456789abcdef";
    std::u16string text;
    do {
        text.insert(text.begin(), digits[n & 15]);
        n >>= 4;
    } while (n);
    return text;
}

size_t utf8_decode(const char* bytes, size_t n, char16_t* out, size_t room) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes);
    Sink<char16_t> sink{out, room};
    size_t i = 0;
    while (i < n) {
        unsigned char lead = s[i];
        if (lead < 0x80) {
            sink.put(lead);
            ++i;
            continue;
        }
        if (!lead_can_start(lead)) { // a maximal ill-formed part of one byte
            sink.put(0xFFFD);
            ++i;
            continue;
        }
        size_t len = 1 + TRAIL_BYTES[lead];
        uint32_t cp = lead & (0x3Fu >> (len - 1));
        size_t k = 1;
        for (; k < len && i + k < n; ++k) {
            unsigned char lo, hi;
            trail_range(lead, k, &lo, &hi);
            if (s[i + k] < lo || s[i + k] > hi) break;
            cp = cp << 6 | (s[i + k] & 0x3F);
        }
        if (k < len) { // the well-formed start of a sequence is replaced as one
            sink.put(0xFFFD);
            i += k;
            continue;
        }
        put_utf16(sink, cp);
        i += len;
    }
    return sink.result();
}

// Every unit takes at most three bytes (a pair of surrogates four, for two
// units), so a buffer of 3n needs no check per byte; ASCII runs go a unit at a
// time without the surrogate tests.
static size_t encode_unchecked(const char16_t* text, size_t n, char* out) {
    char* o = out;
    for (size_t i = 0; i < n; ++i) {
        // Four ASCII units at once, the common case.
        while (i + 4 <= n) {
            uint64_t four;
            std::memcpy(&four, text + i, sizeof four);
            if (four & 0xFF80FF80FF80FF80u) break;
            o[0] = static_cast<char>(text[i]);
            o[1] = static_cast<char>(text[i + 1]);
            o[2] = static_cast<char>(text[i + 2]);
            o[3] = static_cast<char>(text[i + 3]);
            o += 4;
            i += 4;
        }
        if (i == n) break;
        uint32_t c = text[i];
        if (c < 0x80) {
            *o++ = static_cast<char>(c);
            continue;
        }
        if (c < 0x800) {
            *o++ = static_cast<char>(0xC0 | c >> 6);
            *o++ = static_cast<char>(0x80 | (c & 0x3F));
            continue;
        }
        if (is_high_surrogate(text[i]) && i + 1 < n && is_low_surrogate(text[i + 1])) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00u);
            ++i;
            *o++ = static_cast<char>(0xF0 | c >> 18);
            *o++ = static_cast<char>(0x80 | (c >> 12 & 0x3F));
            *o++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
            *o++ = static_cast<char>(0x80 | (c & 0x3F));
            continue;
        }
        if (is_high_surrogate(text[i]) || is_low_surrogate(text[i])) c = 0xFFFD;
        *o++ = static_cast<char>(0xE0 | c >> 12);
        *o++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        *o++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return static_cast<size_t>(o - out);
}

size_t utf8_encode(const char16_t* text, size_t n, char* out, size_t room) {
    if (out && n && room / 3 >= n) return encode_unchecked(text, n, out);
    Sink<char> sink{out, room};
    for (size_t i = 0; i < n; ++i) {
        uint32_t cp = text[i];
        if (is_high_surrogate(text[i]) && i + 1 < n && is_low_surrogate(text[i + 1])) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (is_high_surrogate(text[i]) || is_low_surrogate(text[i])) {
            cp = 0xFFFD;
        }
        put_utf8(sink, cp);
    }
    return sink.result();
}

std::u16string utf8_to_utf16(std::string_view s) {
    std::u16string text(utf8_decode(s.data(), s.size(), nullptr, 0), u'\0');
    utf8_decode(s.data(), s.size(), text.data(), text.size());
    return text;
}

std::string utf16_to_utf8(std::u16string_view s) {
    // One pass into the most room the text can need, rather than a count
    // first; the room is not cleared, only what was written is copied.
    if (s.empty()) return {};
    std::unique_ptr<char[]> room(new char[3 * s.size()]);
    return std::string(room.get(), encode_unchecked(s.data(), s.size(), room.get()));
}

size_t utf8_valid_prefix(const unsigned char* bytes, size_t n) {
    size_t i = 0;
    while (i < n) {
        size_t len = 1 + TRAIL_BYTES[bytes[i]];
        if (len > n - i || !well_formed(bytes + i, len)) break;
        i += len;
    }
    return i;
}

bool equal_ignore_case(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    auto fold = [](char16_t c) { return c >= u'a' && c <= u'z' ? char16_t(c - 32) : c; };
    for (size_t i = 0; i < a.size(); ++i)
        if (fold(a[i]) != fold(b[i])) return false;
    return true;
}

} // namespace tarn
