// Code pages and character classes on POSIX, emulating MultiByteToWideChar,
// WideCharToMultiByte (flags 0), IsCharAlphaW, IsCharAlphaNumericW and
// CharUpperW. Conversions go through glibc's iconv, but for the ANSI page,
// which is built in. Single-byte pages become a 256-entry table and its
// inverse on first use, because every input file without a Unicode
// signature is converted through here; other pages keep one iconv
// descriptor per direction. The caches are not observable state.
#include "support/platform.h"
#include "support/sink.h"

#include "support/text.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <iconv.h>
#include <locale.h>
#include <map>
#include <memory>
#include <vector>
#include <wctype.h>

namespace tarn {

namespace {

constexpr uint32_t CP_ANSI = 1252;
constexpr uint32_t CP_OEM = 437;
constexpr uint32_t CP_US_ASCII = 20127;
constexpr uint32_t CP_UTF8 = 65001;
constexpr char DEFAULT_CHAR = '?';
constexpr char16_t DEFAULT_WIDE = u'?';
constexpr char16_t DEFAULT_WIDE_932 = 0x30FB; // what 932 decodes bad bytes to
constexpr uint16_t UNMAPPED = 0xFFFF;

struct CodePageName {
    uint32_t code_page;
    const char* iconv_name;
    bool single_byte;
    char16_t default_wide; // for undecodable bytes of a multi-byte page
};

// The pages Windows accepts and glibc provides. 28600 to 28602 and 28604
// are missing as on Windows.
// clang-format off
constexpr CodePageName CODE_PAGES[] = {
    {437, "CP437", true, 0}, {737, "CP737", true, 0}, {775, "CP775", true, 0},
    {850, "CP850", true, 0}, {852, "CP852", true, 0}, {855, "CP855", true, 0},
    {857, "CP857", true, 0}, {858, "CP858", true, 0}, {860, "CP860", true, 0},
    {861, "CP861", true, 0}, {862, "CP862", true, 0}, {863, "CP863", true, 0},
    {864, "CP864", true, 0}, {865, "CP865", true, 0}, {866, "CP866", true, 0},
    {869, "CP869", true, 0}, {874, "CP874", true, 0}, {932, "CP932", false, DEFAULT_WIDE_932},
    {936, "CP936", false, DEFAULT_WIDE}, {949, "CP949", false, DEFAULT_WIDE},
    {950, "CP950", false, DEFAULT_WIDE}, {1250, "CP1250", true, 0}, {1251, "CP1251", true, 0},
    {1252, "CP1252", true, 0}, {1253, "CP1253", true, 0}, {1254, "CP1254", true, 0},
    {1255, "CP1255", true, 0}, {1256, "CP1256", true, 0}, {1257, "CP1257", true, 0},
    {1258, "CP1258", true, 0}, {1361, "JOHAB", false, DEFAULT_WIDE}, {10000, "MACINTOSH", true, 0},
    {20866, "KOI8-R", true, 0}, {21866, "KOI8-U", true, 0}, {28591, "ISO-8859-1", true, 0},
    {28592, "ISO-8859-2", true, 0}, {28593, "ISO-8859-3", true, 0}, {28594, "ISO-8859-4", true, 0},
    {28595, "ISO-8859-5", true, 0}, {28596, "ISO-8859-6", true, 0}, {28597, "ISO-8859-7", true, 0},
    {28598, "ISO-8859-8", true, 0}, {28599, "ISO-8859-9", true, 0},
    {28603, "ISO-8859-13", true, 0}, {28605, "ISO-8859-15", true, 0},
    {54936, "GB18030", false, DEFAULT_WIDE},
};
// clang-format on

const char* const UTF16_NATIVE =
    std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
const iconv_t NO_ICONV = reinterpret_cast<iconv_t>(-1);

// The ANSI page's bytes 0x80-0x9F; the others are Latin-1. Built in, as
// every compilation decodes through it and loading glibc's converter
// modules costs more than a small script's whole compilation. Undefined
// bytes map to the code point of the same value, as for the other pages.
constexpr char16_t CP1252_HIGH[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

struct Codec {
    const CodePageName* page = nullptr;
    char16_t to_unicode[256] = {}; // single-byte pages
    // Single-byte pages, the inverse: a 256-entry page of bytes (or
    // UNMAPPED) per high byte of the unit that occurs; page 0 is all
    // UNMAPPED and stands for every high byte that does not.
    uint8_t page_of_high[256] = {};
    bool ascii_as_is = false; // bytes below 0x80 decode to themselves
    std::vector<std::array<uint16_t, 256>> pages;
    iconv_t decoder = NO_ICONV; // multi-byte pages
    iconv_t encoder = NO_ICONV;
    ~Codec() {
        if (decoder != NO_ICONV) iconv_close(decoder);
        if (encoder != NO_ICONV) iconv_close(encoder);
    }
};

// One byte through iconv, with the descriptor's pending state flushed (some
// pages hold a base letter back for a combining mark). Bytes the table lacks
// decode to the code point of the same value, as Windows does for 1252's
// 0x81, 0x8D, 0x8F, 0x90 and 0x9D.
char16_t decode_byte(iconv_t cd, unsigned char b) {
    char in = static_cast<char>(b);
    char* in_p = &in;
    size_t in_left = 1;
    char16_t out[4];
    char* out_p = reinterpret_cast<char*>(out);
    size_t out_left = sizeof out;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &in_p, &in_left, &out_p, &out_left) == static_cast<size_t>(-1)) return b;
    iconv(cd, nullptr, nullptr, &out_p, &out_left);
    return out_left == sizeof out - sizeof(char16_t) ? out[0] : b;
}

bool build_single_byte(Codec* c) {
    if (c->page->code_page == CP_ANSI) {
        for (int b = 0; b < 256; ++b)
            c->to_unicode[b] = b >= 0x80 && b < 0xA0 ? CP1252_HIGH[b - 0x80] : char16_t(b);
    } else {
        iconv_t cd = iconv_open(UTF16_NATIVE, c->page->iconv_name);
        if (cd == NO_ICONV) return false;
        for (int b = 0; b < 256; ++b)
            c->to_unicode[b] = decode_byte(cd, static_cast<unsigned char>(b));
        iconv_close(cd);
    }
    c->ascii_as_is = true;
    for (int b = 0; b < 0x80; ++b) c->ascii_as_is &= c->to_unicode[b] == b;
    std::array<uint16_t, 256> unmapped;
    unmapped.fill(UNMAPPED);
    c->pages.assign(1, unmapped);
    // Downwards, so that of two bytes decoding alike the lower one encodes.
    for (int b = 255; b >= 0; --b) {
        char16_t u = c->to_unicode[b];
        uint8_t& page = c->page_of_high[u >> 8];
        if (page == 0) {
            page = static_cast<uint8_t>(c->pages.size());
            c->pages.push_back(unmapped);
        }
        c->pages[page][u & 0xFF] = static_cast<uint16_t>(b);
    }
    return true;
}

std::unique_ptr<Codec> make_codec(uint32_t code_page) {
    for (const CodePageName& page : CODE_PAGES) {
        if (page.code_page != code_page) continue;
        auto c = std::make_unique<Codec>();
        c->page = &page;
        if (page.single_byte) return build_single_byte(c.get()) ? std::move(c) : nullptr;
        c->decoder = iconv_open(UTF16_NATIVE, page.iconv_name);
        c->encoder = iconv_open(page.iconv_name, UTF16_NATIVE);
        if (c->decoder == NO_ICONV || c->encoder == NO_ICONV) return nullptr;
        return c;
    }
    return nullptr;
}

// Null when the page is unknown or glibc lacks it; a failure is remembered.
// Each thread has its own: an iconv descriptor serves one at a time.
Codec* codec_for(uint32_t code_page) {
    thread_local std::map<uint32_t, std::unique_ptr<Codec>> cache;
    auto it = cache.find(code_page);
    if (it == cache.end()) it = cache.emplace(code_page, make_codec(code_page)).first;
    return it->second.get();
}

// Runs iconv over the whole input. A byte or unit it cannot convert is
// replaced by `replacement` and skipped: `skip` gives the input bytes to
// step over at the failing position.
template <class Out, class Skip>
bool run_iconv(iconv_t cd, const char* in, size_t in_bytes, Sink<Out>& sink, Out replacement,
               Skip skip) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* in_p = const_cast<char*>(in);
    size_t in_left = in_bytes;
    bool input_done = false;
    for (;;) { // the input, then the flush of any state held back
        Out piece[256];
        char* out_p = reinterpret_cast<char*>(piece);
        size_t out_left = sizeof piece;
        size_t r = input_done ? iconv(cd, nullptr, nullptr, &out_p, &out_left)
                              : iconv(cd, &in_p, &in_left, &out_p, &out_left);
        int e = errno;
        for (size_t i = 0; i < (sizeof piece - out_left) / sizeof(Out); ++i) sink.put(piece[i]);
        if (r != static_cast<size_t>(-1)) {
            if (input_done) return true;
            input_done = true;
            continue;
        }
        if (e == E2BIG) continue;
        if (input_done || (e != EILSEQ && e != EINVAL)) return false;
        sink.put(replacement);
        size_t step = skip(in_p, in_left);
        in_p += step;
        in_left -= step;
    }
}

// Bytes that one default character replaces where decoding fails: a lead
// byte takes its (invalid) trail byte with it, as Windows' tables do, so a
// lead byte alone is what iconv finds incomplete.
size_t undecodable_length(iconv_t cd, const char* at, size_t left) {
    char* in = const_cast<char*>(at);
    size_t in_left = 1;
    char16_t out[4];
    char* out_p = reinterpret_cast<char*>(out);
    size_t out_left = sizeof out;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    bool lead =
        iconv(cd, &in, &in_left, &out_p, &out_left) == static_cast<size_t>(-1) && errno == EINVAL;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    return lead && left >= 2 ? 2 : 1;
}

// One unit per byte, so the room is known before converting. Runs of
// ASCII, most of any script, are widened sixteen or eight bytes at a time
// where the page keeps ASCII as it is.
size_t decode_single_byte(const Codec& c, const unsigned char* bytes, size_t n, char16_t* out,
                          size_t room) {
    if (!out) return n;
    if (room < n) return 0;
    size_t i = 0;
#if defined(__SSE2__)
    // Sixteen at a time where the machine has the instructions for it.
    const __m128i zero = _mm_setzero_si128();
    for (; c.ascii_as_is && i + 16 <= n; i += 16) {
        __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        if (_mm_movemask_epi8(sixteen) != 0) { // a high byte: these through the table
            for (size_t k = 0; k < 16; ++k) out[i + k] = c.to_unicode[bytes[i + k]];
            continue;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(sixteen, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(sixteen, zero));
    }
#endif
    for (; c.ascii_as_is && i + 8 <= n; i += 8) {
        uint64_t eight;
        std::memcpy(&eight, bytes + i, sizeof eight);
        if (eight & 0x8080808080808080u) {
            for (size_t k = 0; k < 8; ++k) out[i + k] = c.to_unicode[bytes[i + k]];
        } else {
            for (size_t k = 0; k < 8; ++k) out[i + k] = bytes[i + k];
        }
    }
    for (; i < n; ++i) out[i] = c.to_unicode[bytes[i]];
    return n;
}

// Unit by unit, as Windows does: a surrogate pair becomes two defaults.
size_t encode_single_byte(const Codec& c, const char16_t* text, size_t n, Sink<char>& s) {
    for (size_t i = 0; i < n; ++i) {
        uint16_t b = c.pages[c.page_of_high[text[i] >> 8]][text[i] & 0xFF];
        s.put(b == UNMAPPED ? DEFAULT_CHAR : static_cast<char>(b));
    }
    return s.result();
}

} // namespace

uint32_t plat_ansi_code_page() {
    return CP_ANSI;
}
uint32_t plat_oem_code_page() {
    return CP_OEM;
}

bool plat_valid_code_page(uint32_t code_page) {
    return code_page == CP_UTF8 || code_page == CP_US_ASCII || codec_for(code_page) != nullptr;
}

size_t plat_to_utf16(uint32_t code_page, const char* bytes, size_t n, char16_t* out, size_t room) {
    if (n == 0 || (out && room == 0)) return 0;
    if (code_page == CP_UTF8) return utf8_decode(bytes, n, out, room);
    Sink<char16_t> sink{out, room};
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    if (code_page == CP_US_ASCII) { // Windows clears the top bit of other bytes
        for (size_t i = 0; i < n; ++i) sink.put(b[i] & 0x7F);
        return sink.result();
    }
    Codec* c = codec_for(code_page);
    if (!c) return 0;
    if (c->page->single_byte) return decode_single_byte(*c, b, n, out, room);
    iconv_t cd = c->decoder;
    auto bad_sequence = [cd](const char* at, size_t left) {
        return undecodable_length(cd, at, left);
    };
    if (!run_iconv(cd, bytes, n, sink, c->page->default_wide, bad_sequence)) return 0;
    return sink.result();
}

size_t plat_from_utf16(uint32_t code_page, const char16_t* text, size_t n, char* out, size_t room) {
    if (n == 0 || (out && room == 0)) return 0;
    if (code_page == CP_UTF8) return utf8_encode(text, n, out, room);
    Sink<char> sink{out, room};
    if (code_page == CP_US_ASCII) {
        for (size_t i = 0; i < n; ++i)
            sink.put(text[i] < 0x80 ? static_cast<char>(text[i]) : DEFAULT_CHAR);
        return sink.result();
    }
    Codec* c = codec_for(code_page);
    if (!c) return 0;
    if (c->page->single_byte) return encode_single_byte(*c, text, n, sink);
    auto one_unit = [](const char*, size_t) { return sizeof(char16_t); };
    if (!run_iconv(c->encoder, reinterpret_cast<const char*>(text), n * sizeof(char16_t), sink,
                   DEFAULT_CHAR, one_unit))
        return 0;
    return sink.result();
}

namespace {

// The C library's wide classification for characters beyond Latin-1, from a
// locale object of its own: the process's locale is the host's business.
locale_t unicode_locale() {
    static locale_t loc = [] {
        locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
        return l ? l : newlocale(LC_CTYPE_MASK, "en_US.UTF-8", locale_t(nullptr));
    }();
    return loc;
}

bool is_surrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

bool latin1_letter(char16_t c) {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
    return c == 0xAA || c == 0xB5 || c == 0xBA || (c >= 0xC0 && c != 0xD7 && c != 0xF7);
}

// Windows counts the superscript digits as digits.
bool latin1_digit(char16_t c) {
    return (c >= u'0' && c <= u'9') || c == 0xB2 || c == 0xB3 || c == 0xB9;
}

} // namespace

bool plat_is_alpha(char16_t c) {
    if (c <= 0xFF) return latin1_letter(c);
    locale_t loc = unicode_locale();
    return !is_surrogate(c) && loc && iswalpha_l(c, loc);
}

bool plat_is_alphanumeric(char16_t c) {
    if (c <= 0xFF) return latin1_letter(c) || latin1_digit(c);
    locale_t loc = unicode_locale();
    return !is_surrogate(c) && loc && iswalnum_l(c, loc);
}

char16_t plat_upper(char16_t c) {
    if (c < 0x80) return c >= u'a' && c <= u'z' ? char16_t(c - 32) : c;
    if (c <= 0xFF) { // ß and µ have no single upper-case unit and stay
        if (c == 0xFF) return 0x178;
        return c >= 0xE0 && c != 0xF7 ? char16_t(c - 32) : c;
    }
    locale_t loc = unicode_locale();
    if (is_surrogate(c) || !loc) return c;
    wint_t u = towupper_l(c, loc);
    return u <= 0xFFFF ? static_cast<char16_t>(u) : c;
}

} // namespace tarn
