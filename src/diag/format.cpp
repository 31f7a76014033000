// The platform message formatter's insert rules, so that messages read the
// same on every platform: "%1".."%99" with an optional "!printf-format!",
// the escapes "%0", "%n", "%r", "%t", "%b" and "%x" for any other x. There is
// no width limit: line breaks in the text are copied as they are.
//
// Beyond what the platform defines: an integer under "%s" gives its decimal
// text, a string under a numeric or character format gives the string itself
// (the platform would print its address), a token or row argument gives
// nothing here, a null string gives "(null)", and a "*" width or precision is
// ignored rather than taken from the next insert.
//
// Self-contained (standard library only): the driver compiles it in too.
#include "diag/format.h"

#include <type_traits>

namespace tarn {

namespace {

enum class Size { half, normal, wide64 };

// One parsed "!printf-format!".
struct Format {
    uint8_t flags = 0; // F_ bits
    int width = -1;
    int precision = -1;
    Size size = Size::normal;
    char16_t conv = u's';
};

bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

int read_number(std::u16string_view f, size_t* i) {
    int n = 0;
    while (*i < f.size() && is_digit(f[*i])) {
        if (n < 100000) n = n * 10 + (f[*i] - u'0');
        ++*i;
    }
    return n;
}

// The flag characters, in the order of their bits in Format::flags.
constexpr std::u16string_view FLAG_CHARS = u"-+ #0";
enum : uint8_t { F_LEFT = 1, F_PLUS = 2, F_SPACE = 4, F_ALT = 8, F_ZERO = 16 };

void read_flags(std::u16string_view f, size_t* i, Format* s) {
    for (size_t k; *i < f.size() && (k = FLAG_CHARS.find(f[*i])) != FLAG_CHARS.npos; ++*i)
        s->flags |= static_cast<uint8_t>(1u << k);
}

// Length prefixes: h, l, ll, I64, I32, I and w. "l" and "w" only make a
// string or character wide, which every text here already is.
void read_size(std::u16string_view f, size_t* i, Format* s) {
    std::u16string_view rest = f.substr(*i);
    if (rest.starts_with(u"ll") || rest.starts_with(u"I64")) {
        s->size = Size::wide64;
        *i += rest[0] == u'l' ? 2 : 3;
    } else if (rest.starts_with(u"I32")) {
        *i += 3;
    } else if (rest.starts_with(u"I")) {
        s->size = Size::wide64; // pointer sized
        *i += 1;
    } else if (rest.starts_with(u"h")) {
        s->size = Size::half;
        *i += 1;
    } else if (rest.starts_with(u"l") || rest.starts_with(u"w")) {
        *i += 1;
    }
}

Format parse_format(std::u16string_view f) {
    Format s;
    size_t i = 0;
    read_flags(f, &i, &s);
    if (i < f.size() && f[i] == u'*')
        ++i;
    else if (i < f.size() && is_digit(f[i]))
        s.width = read_number(f, &i);
    if (i < f.size() && f[i] == u'.') {
        ++i;
        if (i < f.size() && f[i] == u'*')
            ++i;
        else
            s.precision = read_number(f, &i);
    }
    read_size(f, &i, &s);
    if (i < f.size()) s.conv = f[i];
    return s;
}

void pad(std::u16string* out, size_t n, char16_t c) {
    if (n) out->append(n, c);
}

// Places body in a field of the format's width; zeros go after any sign or
// "0x" (the first `lead` units of body).
void put_field(std::u16string* out, const Format& s, std::u16string_view body, bool zero_fill,
               size_t lead = 0) {
    size_t width = s.width > 0 ? static_cast<size_t>(s.width) : 0;
    size_t fill = width > body.size() ? width - body.size() : 0;
    if (s.flags & F_LEFT) {
        *out += body;
        pad(out, fill, u' ');
    } else if (zero_fill) {
        *out += body.substr(0, lead);
        pad(out, fill, u'0');
        *out += body.substr(lead);
    } else {
        pad(out, fill, u' ');
        *out += body;
    }
}

// The digits go at the end of `buffer` (64 units hold any base-8 or wider
// value); returns where they start.
char16_t* digits_of(uint64_t v, unsigned base, bool upper, char16_t* end) {
    const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char16_t* p = end;
    // The usual bases by constants, which spares a division per digit.
    auto put = [&](auto b) {
        do {
            *--p = static_cast<char16_t>(set[v % b]);
            v /= b;
        } while (v);
    };
    if (base == 16)
        put(std::integral_constant<uint64_t, 16>{});
    else if (base == 10)
        put(std::integral_constant<uint64_t, 10>{});
    else
        put(uint64_t(base));
    return p;
}

bool is_signed_conv(char16_t c) {
    return c == u'd' || c == u'i';
}
bool is_integer_conv(char16_t c) {
    return is_signed_conv(c) || c == u'u' || c == u'x' || c == u'X' || c == u'o';
}

std::u16string_view sign_of(const Format& s, bool negative) {
    if (negative) return u"-";
    if (!is_signed_conv(s.conv)) return u"";
    if (s.flags & F_PLUS) return u"+";
    return (s.flags & F_SPACE) ? u" " : u"";
}

void put_integer(std::u16string* out, const Format& s, int64_t raw) {
    bool negative = false;
    uint64_t mag;
    if (is_signed_conv(s.conv)) {
        int64_t v = s.size == Size::half     ? static_cast<int16_t>(raw)
                    : s.size == Size::normal ? static_cast<int32_t>(raw)
                                             : raw;
        negative = v < 0;
        mag = negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    } else {
        uint64_t v = static_cast<uint64_t>(raw);
        mag = s.size == Size::half     ? static_cast<uint16_t>(v)
              : s.size == Size::normal ? static_cast<uint32_t>(v)
                                       : v;
    }
    unsigned base = (s.conv == u'x' || s.conv == u'X') ? 16 : s.conv == u'o' ? 8 : 10;
    char16_t buffer[64];
    char16_t* end = buffer + 64;
    std::u16string_view digits(buffer, 0);
    if (!(s.precision == 0 && mag == 0)) {
        char16_t* first = digits_of(mag, base, s.conv == u'X', end);
        digits = std::u16string_view(first, size_t(end - first));
    }
    size_t zeros = 0; // from the precision, or the "#" of octal
    if (s.precision > 0 && digits.size() < static_cast<size_t>(s.precision))
        zeros = static_cast<size_t>(s.precision) - digits.size();
    else if ((s.flags & F_ALT) && base == 8 && (digits.empty() || digits[0] != u'0'))
        zeros = 1;

    // The sign and "0x" lead; zero fill goes after them.
    char16_t lead_units[3];
    size_t lead = 0;
    for (char16_t c : sign_of(s, negative)) lead_units[lead++] = c;
    if ((s.flags & F_ALT) && base == 16 && mag != 0) {
        lead_units[lead++] = u'0';
        lead_units[lead++] = s.conv == u'X' ? u'X' : u'x';
    }
    std::u16string_view lead_text(lead_units, lead);
    size_t body = lead + zeros + digits.size();
    size_t width = s.width > 0 ? static_cast<size_t>(s.width) : 0;
    size_t fill = width > body ? width - body : 0;
    if (s.flags & F_LEFT) {
        *out += lead_text;
        pad(out, zeros, u'0');
        *out += digits;
        pad(out, fill, u' ');
    } else if ((s.flags & F_ZERO) && s.precision < 0) {
        *out += lead_text;
        pad(out, fill + zeros, u'0');
        *out += digits;
    } else {
        pad(out, fill, u' ');
        *out += lead_text;
        pad(out, zeros, u'0');
        *out += digits;
    }
}

void put_string(std::u16string* out, const Format& s, std::u16string_view text, bool cut) {
    if (cut && s.precision >= 0 && text.size() > static_cast<size_t>(s.precision))
        text = text.substr(0, static_cast<size_t>(s.precision));
    put_field(out, s, text, s.flags & F_ZERO);
}

std::u16string_view text_of(const char16_t* p) {
    return p ? std::u16string_view(p) : u"(null)";
}

std::u16string decimal(int64_t v) {
    Format s;
    s.conv = u'd';
    s.size = Size::wide64;
    std::u16string out;
    put_integer(&out, s, v);
    return out;
}

void put_argument(std::u16string* out, const Format& s, const MsgArg& a) {
    bool string_conv = s.conv == u's' || s.conv == u'S';
    bool char_conv = s.conv == u'c' || s.conv == u'C';
    if (a.kind == MsgArg::string) {
        put_string(out, s, text_of(a.text), string_conv);
    } else if (a.kind != MsgArg::integer) {
        return; // tokens and rows belong to the preprocessor's report
    } else if (is_integer_conv(s.conv)) {
        put_integer(out, s, a.value);
    } else if (char_conv) {
        // "%C" is a narrow character under the wide formatter.
        char16_t c = s.conv == u'C' ? static_cast<char16_t>(a.value & 0xFF)
                                    : static_cast<char16_t>(a.value & 0xFFFF);
        put_string(out, s, std::u16string_view(&c, 1), false);
    } else {
        put_string(out, s, decimal(a.value), false);
    }
}

// At text[i] just past "%n" (one digit read): reads a second digit and an
// optional "!format!", writes the insert and returns the position after it.
size_t put_insert(std::u16string_view text, size_t i, unsigned n, std::span<const MsgArg> args,
                  std::u16string* out) {
    if (i < text.size() && is_digit(text[i])) n = n * 10 + (text[i++] - u'0');
    std::u16string_view format = u"s";
    if (i < text.size() && text[i] == u'!') {
        size_t close = text.find(u'!', i + 1);
        if (close != std::u16string_view::npos) {
            format = text.substr(i + 1, close - i - 1);
            i = close + 1;
        }
    }
    if (n <= args.size()) put_argument(out, parse_format(format), args[n - 1]);
    return i;
}

// "%x" escapes other than inserts; any character not listed stands for
// itself ("%%", "%.", "%!").
struct Escape {
    char16_t letter;
    const char16_t* text;
};
constexpr Escape ESCAPES[] = {{u'n', u"\r\n"}, {u'r', u"\r"}, {u't', u"\t"}, {u'b', u" "}};

void put_escape(char16_t e, std::u16string* out) {
    for (const Escape& x : ESCAPES)
        if (x.letter == e) {
            *out += x.text;
            return;
        }
    *out += e;
}

} // namespace

void append_inserts(std::u16string& out, std::u16string_view text, std::span<const MsgArg> args) {
    size_t i = 0;
    const size_t size = text.size();
    while (i < size) {
        // Plain text up to the next "%" in one piece (a plain loop: the
        // library's search costs a call per piece of a short text).
        size_t percent = i;
        while (percent < size && text[percent] != u'%') ++percent;
        out.append(text.data() + i, percent - i);
        i = percent;
        if (i == size) break;
        if (++i == size) break; // a lone "%" at the end is dropped
        char16_t e = text[i++];
        if (e == u'0') break;
        if (e >= u'1' && e <= u'9')
            i = put_insert(text, i, e - u'0', args, &out);
        else
            put_escape(e, &out);
    }
}

std::u16string format_inserts(std::u16string_view text, std::span<const MsgArg> args) {
    std::u16string out;
    append_inserts(out, text, args);
    return out;
}

} // namespace tarn
