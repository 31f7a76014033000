// Token output: rows are written as UTF-16 text, each token with the white
// space that stood before it, into one output buffer from which the script
// lexer or the preprocess-only run pulls. Line markers (#line n "name") tell
// the consumer where the text comes from.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "diag/report.h"
#include "support/memory.h"
#include "support/state.h"

namespace tarn {

int put_tokens(TokenRow* row) {
    const PpToken* tp = row->base;
    const PpToken* last = row->last;
    // Kept in locals: the copies could otherwise change them, as far as the
    // compiler knows, and each piece would load them again.
    char16_t* out = cpp.out;
    size_t pos = cpp.outpos;
    size_t size = cpp.outsize;
    while (tp < last) {
        const char16_t* from = tp->text - tp->wslen;
        const char16_t* to = tp->text + tp->len;
        // Text that comes straight from one buffer is copied in one piece.
        for (++tp; tp < last && tp->text - tp->wslen == to; ++tp) to = tp->text + tp->len;
        auto n = static_cast<size_t>(to - from);
        if (pos + n >= size) {
            if (!compile_state.extended) report_pp(fatal_code(MSG_INTERNAL_ERROR), u"put_tokens");
            cpp.outpos = pos; // kept as the room grows
            grow_output(std::max(2 * size, pos + n + 1));
            out = cpp.out;
            size = cpp.outsize;
        }
        copy_units(out + pos, from, n);
        pos += n;
        if (cpp.capture) capture_output(from, n);
    }
    cpp.outpos = pos;
    row->cur = row->last;
    return pos < OUTPUT_WORKING;
}

void grow_output(size_t units) {
    if (cpp.readAhead.filling) return grow_slot_output(units);
    cpp.outbuf.resize(units);
    cpp.out = cpp.outbuf.data();
    cpp.outsize = units;
}

int writeLineMarker() {
    const SourceFile* s = cpp.source;
    // The line number's digits, backwards; the sign of a line that #line
    // set below 1 included.
    char16_t digits[16];
    size_t nd = 0;
    int64_t line = s->line;
    uint64_t v = static_cast<uint64_t>(line < 0 ? -line : line);
    do {
        digits[nd++] = static_cast<char16_t>(u'0' + v % 10);
        v /= 10;
    } while (v);
    if (line < 0) digits[nd++] = u'-';
    size_t name_len = std::char_traits<char16_t>::length(s->name);
    constexpr std::u16string_view HEAD = u"#line ";
    size_t n = HEAD.size() + nd + 2 + name_len + 2;
    char16_t* text = scratch_alloc(n);
    char16_t* p = std::copy(HEAD.begin(), HEAD.end(), text);
    while (nd) *p++ = digits[--nd];
    *p++ = u' ';
    *p++ = u'"';
    p = std::copy(s->name, s->name + name_len, p);
    *p++ = u'"';
    *p++ = u'\n';
    PpToken marker{};
    marker.type = PP_OTHER;
    marker.text = text;
    marker.len = n;
    TokenRow row{&marker, &marker, &marker + 1, 1};
    int room = put_tokens(&row);
    if (cpp.capture && s == cpp.capture->main) capture_main_name(name_len);
    return room;
}

void fill_output() {
    while (!cpp.preprocessDone && cpp.outpos < OUTPUT_WORKING && cpp.source)
        if (processLines(&cpp.mainRow)) cpp.preprocessDone = true;
}

void drop_output(size_t n) {
    size_t rest = cpp.outpos - n;
    if (rest) std::memmove(cpp.out, cpp.out + n, rest * sizeof(char16_t));
    cpp.outpos = rest;
}

} // namespace tarn
