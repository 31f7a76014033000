// Source input: the stack of open inputs (files and short texts), the refill
// that turns each file's encoding into UTF-16, line splices, and the one-time
// windows.h prelude. Every buffer ends in marker units (27: refill due, 26:
// end of input), so the lexer never tests a length.
//
// Messages whose inserts only the platform formatter expands ("%1!d!", "%2",
// a system error's own text) go through the script report; the others
// through the preprocessor report, which names the file and line at hand.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include <cstring>

#include "diag/report.h"
#include "support/files.h"
#include "support/paths.h"
#include "support/state.h"
#include "support/text.h"

namespace tarn {

namespace {

constexpr char16_t WindowsPrelude[] =
    u"#include <windows.h>\n#define BSS_GROUP 1L\n#define BSS_HDIP 2L\n#define BSS_VDIP 3L\n"
    u"#define BSS_HBUMP 4L\n#define BSS_VBUMP 5L\n#define BSS_RGROUP 6L\n"
    u"#define BSS_CAPTION 0x8000L\n#define BSS_CTLCOLOR 0x4000L\n#define BSS_NOPREFIX 0x2000L\n"
    u"#define BSS_LEFT 0x0000L\n#define BSS_CENTER 0x0100L\n#define BSS_RIGHT 0x0200L\n"
    u"#define BSS_ALIGNMASK 0x0300L\n#line 1\n";
constexpr size_t PRELUDE_UNITS = sizeof(WindowsPrelude) / sizeof(char16_t) - 1;
static_assert(PRELUDE_UNITS == 348);

constexpr uint32_t UTF8_CODE_PAGE = 65001;

void put_marks(char16_t* at, char16_t mark) {
    for (size_t i = 0; i < MARKER_UNITS; ++i) at[i] = mark;
}

const char16_t* encoding_word(SourceEncoding e) {
    switch (e) {
    case EncodingUtf16BE:
        return u"UTF-16BE";
    case EncodingUtf32LE:
        return u"UTF-32LE";
    default:
        return u"UTF-32BE";
    }
}

void keep_chunk(SourceFile* s, size_t bytes, size_t units) {
    s->raw_pos += bytes;
    s->chunk_bytes = static_cast<uint32_t>(bytes);
    s->chunk_units = units;
}

// A line longer than the buffer, in the extended dialect: twice the room,
// and the texts of the row being lexed moved along.
void grow_buffer(SourceFile* s) {
    size_t capacity = 2 * s->capacity;
    char16_t* fresh = new char16_t[capacity + MARKER_UNITS];
    auto used = static_cast<size_t>(s->end - s->buffer) + MARKER_UNITS;
    std::memcpy(fresh, s->buffer, used * sizeof(char16_t));
    auto from = reinterpret_cast<uintptr_t>(s->buffer);
    auto to = reinterpret_cast<uintptr_t>(s->buffer + s->capacity + MARKER_UNITS);
    auto moved = [&](const char16_t* p) { return fresh + (p - s->buffer); };
    if (TokenRow* r = cpp.lexing) {
        // The slots past `last` too: the lexer fills the one at `last`.
        for (PpToken* tp = r->base; tp < r->base + r->max; ++tp) {
            auto at = reinterpret_cast<uintptr_t>(tp->text);
            if (at >= from && at < to) tp->text = moved(tp->text);
        }
    }
    s->cursor = moved(s->cursor);
    s->end = moved(s->end);
    delete[] s->buffer;
    s->buffer = fresh;
    s->capacity = capacity;
}

// Reads a UTF-8 chunk; a sequence cut by the chunk's end is read again next time.
size_t read_utf8(SourceFile* s, size_t room) {
    uint32_t got = 0;
    if (file_read_some(s->file, cpp.staging_utf8, STAGING_BYTES, &got) || got == 0) return 0;
    size_t whole = utf8_valid_prefix(cpp.staging_utf8, got);
    if (whole < got && file_seek(s->file, -static_cast<int64_t>(got - whole), SeekOrigin::current))
        report_pp(fatal_code(MSG_READ_ERROR));
    size_t n = plat_to_utf16(UTF8_CODE_PAGE, reinterpret_cast<const char*>(cpp.staging_utf8), whole,
                             s->end, room);
    if (n == 0) report(fatal_code(MSG_CONVERSION_FAILED), UTF8_CODE_PAGE);
    keep_chunk(s, whole, n);
    return n;
}

size_t read_code_page(SourceFile* s, size_t room) {
    uint32_t got = 0;
    if (file_read_some(s->file, cpp.staging_cp, STAGING_BYTES, &got) || got == 0) return 0;
    uint32_t cp = s->code_page;
    size_t n = plat_to_utf16(cp, reinterpret_cast<const char*>(cpp.staging_cp), got, s->end, room);
    if (n == 0) report(fatal_code(MSG_CONVERSION_FAILED), cp);
    keep_chunk(s, got, n);
    return n;
}

size_t read_utf16(SourceFile* s) {
    uint32_t got = 0;
    if (file_read_some(s->file, s->end, FILL_UNITS * 2, &got)) return 0;
    return got / 2; // an odd last byte is dropped
}

// The prelude goes in front of the first file text read after loading, when
// windows.h can be found; either way the chance passes.
bool inject_prelude(SourceFile* s) {
    if (!cpp.preludePending) return false;
    std::u16string path = findInclude(u"windows.h", true);
    cpp.preludePending = file_exists(path.c_str()) ? 1 : 0;
    if (!cpp.preludePending) return false;
    cpp.preludePending = 0;
    if (prelude_from_cache(s, WindowsPrelude, PRELUDE_UNITS)) return true;
    std::memcpy(s->end, WindowsPrelude, PRELUDE_UNITS * sizeof(char16_t));
    s->end += PRELUDE_UNITS;
    put_marks(s->end, BufferEndMark);
    return true;
}

} // namespace

SourceEncoding detectEncoding(FileHandle f) {
    return static_cast<SourceEncoding>(detect_signature(f));
}

SourceFile* pushSource(const char16_t* name, const char16_t* text) {
    SourceFile* s = new SourceFile;
    s->name = name;
    s->previous = cpp.source;
    cpp.source = s;
    if (text) {
        size_t n = str_len(text);
        s->buffer = scratch_alloc(n + MARKER_UNITS);
        std::memcpy(s->buffer, text, n * sizeof(char16_t));
        s->cursor = s->buffer;
        s->end = s->buffer + n;
        put_marks(s->end, BufferEndMark);
        s->guard = GUARD_OFF;
        return s;
    }
    s->buffer = new char16_t[INPUT_BUFFER_UNITS + MARKER_UNITS];
    s->cursor = s->buffer;
    s->end = s->buffer;
    put_marks(s->end, BufferEndMark);
    FileHandle f = nullptr;
    if (uint32_t e = file_open_read(name, &f)) {
        delete[] s->buffer;
        cpp.source = s->previous;
        delete s;
        if (e == ERR_FILE_NOT_FOUND || e == ERR_PATH_NOT_FOUND)
            report_pp(fatal_code(cpp.source ? MSG_INCLUDE_NOT_FOUND : MSG_FILE_NOT_FOUND), name);
        report(fatal_system_code(e), name);
    }
    s->file = f;
    s->guard_reports = reports_so_far();
    SourceEncoding e = detectEncoding(f);
    s->encoding = e;
    s->code_page = compile_state.code_page;
    s->signature = e != EncodingCodePage; // narrow text starts at byte 0
    if (e == EncodingUtf16BE || e == EncodingUtf32LE || e == EncodingUtf32BE)
        report(fatal_code(MSG_UNSUPPORTED_ENCODING), name, encoding_word(e));
    return s;
}

void popSource() {
    SourceFile* s = cpp.source;
    if (!s) return;
    if (s->file) {
        file_close(s->file);
        delete[] s->buffer; // a text input's buffer stays with the line's scratch texts
    }
    cpp.source = s->previous;
    delete s;
}

int32_t fillbuf(SourceFile* s) {
    size_t count = 0;
    if (s->file) {
        if (inject_prelude(s)) return 0;
        if (s->end + FILL_UNITS > s->buffer + s->capacity) {
            if (!compile_state.extended) report_pp(fatal_code(MSG_INPUT_BUFFER_OVERFLOW));
            grow_buffer(s);
        }
        char16_t* limit = s->buffer + s->capacity;
        size_t room = static_cast<size_t>(limit - s->end);
        switch (s->encoding) {
        case EncodingUtf16LE:
            count = read_utf16(s);
            break;
        case EncodingCodePage:
            count = read_code_page(s, room);
            break;
        case EncodingUtf8:
            count = read_utf8(s, room);
            break;
        default:
            report_pp(fatal_code(MSG_INTERNAL_ERROR), u"fillbuf");
        }
    }
    // A 27 at the cursor ends the input: in a file it was text; in a text
    // input it would otherwise be met again and again.
    if (*s->cursor == BufferEndMark) *s->cursor = InputEndMark;
    if (count) {
        s->end += count;
        put_marks(s->end, BufferEndMark);
        return 0;
    }
    put_marks(s->end, InputEndMark);
    return -1;
}

int foldLineSplice(SourceFile* s) {
    while (s->end - (s->cursor + 1) < 2)
        if (fillbuf(s) == -1) break;
    char16_t* bs = s->cursor;
    size_t drop = 0;
    if (bs[1] == u'\r' && bs[2] == u'\n')
        drop = 3;
    else if (bs[1] == u'\n')
        drop = 2;
    if (!drop) return 0;
    size_t rest = static_cast<size_t>(s->end + MARKER_UNITS - (bs + drop));
    std::memmove(bs, bs + drop, rest * sizeof(char16_t));
    s->end -= drop;
    return 1;
}

namespace {

size_t units_of(uint32_t code_page, const char* bytes, size_t n) {
    return n ? plat_to_utf16(code_page, bytes, n, nullptr, 0) : 0;
}

// Where in the chunk's bytes the text still buffered begins: the bytes
// before decode to the units already read, those after to the `left`
// units. The unit count grows with the prefix, so a binary search finds
// the candidates. SIZE_MAX when there is no such place.
size_t remainder_start(uint32_t code_page, const char* bytes, size_t n, size_t units, size_t left) {
    size_t read = units - left, lo = 0, hi = n;
    while (lo < hi) {
        size_t mid = lo + (hi - lo) / 2;
        if (units_of(code_page, bytes, mid) < read)
            lo = mid + 1;
        else
            hi = mid;
    }
    constexpr size_t LONGEST_CHARACTER = 4;
    for (size_t b = lo; b <= n && b < lo + LONGEST_CHARACTER; ++b)
        if (units_of(code_page, bytes, b) == read && units_of(code_page, bytes + b, n - b) == left)
            return b;
    return SIZE_MAX;
}

} // namespace

void switch_code_page(SourceFile* s, uint32_t code_page) {
    if (!s->file || s->signature) return;
    uint32_t old = s->encoding == EncodingUtf8 ? UTF8_CODE_PAGE : s->code_page;
    s->code_page = code_page;
    s->encoding = code_page == UTF8_CODE_PAGE ? EncodingUtf8 : EncodingCodePage;
    // The refill only ever adds to text that is all read, so what is
    // buffered beyond the cursor is the tail of the last chunk.
    auto left = static_cast<size_t>(s->end - s->cursor);
    if (left == 0 || left > s->chunk_units) return;
    std::vector<char> bytes(s->chunk_bytes);
    uint64_t start = s->raw_pos - s->chunk_bytes;
    uint32_t got = 0;
    if (file_seek(s->file, static_cast<int64_t>(start), SeekOrigin::begin) ||
        file_read_some(s->file, bytes.data(), s->chunk_bytes, &got) || got != s->chunk_bytes)
        report_pp(fatal_code(MSG_READ_ERROR));
    size_t b = remainder_start(old, bytes.data(), got, s->chunk_units, left);
    if (b == SIZE_MAX) b = got; // the buffered text stays as it was decoded
    if (file_seek(s->file, static_cast<int64_t>(start + b), SeekOrigin::begin))
        report_pp(fatal_code(MSG_READ_ERROR));
    s->raw_pos = start + b;
    s->chunk_bytes = 0;
    s->chunk_units = 0;
    if (b == got) return;
    s->end = s->cursor; // read again at the next refill
    put_marks(s->end, BufferEndMark);
}

} // namespace tarn
