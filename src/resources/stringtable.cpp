// STRINGTABLE: every statement adds its strings to one collection for the
// whole compilation; at the end the collection is cut into blocks of 16 ids
// per language, one RT_STRING resource each, in the order in which each
// (block, language) pair first appeared.
#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <new>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "resources/stringtable.h"
#include "script/expr.h"
#include "support/state.h"

namespace tarn {

StringTableState string_tables;
// A 100 MB script holds about 100,000 blocks, seven to each 512-byte node of
// the deque; a larger block would fit only six.
static_assert(sizeof(StringBlock) <= 72);

namespace {

constexpr uint16_t STRINGTABLE_FLAGS = 0x1030;
// Room for the longest string (65,535 units kept wide and their header), so
// that every text lies in one chunk.
constexpr size_t STRING_CHUNK_BYTES = 256 * 1024;
// A text's header: its flags and its unit count. Under SHORT_LENGTHS units
// (nearly every string) the count's high bits share the flags' byte and its
// low byte follows; otherwise the whole count follows the flags.
constexpr uint8_t TEXT_ZERO = 1;   // a zero unit follows the units
constexpr uint8_t TEXT_NARROW = 2; // the units are kept a byte each
constexpr uint8_t TEXT_LONG = 4;   // the count in the two bytes after the flags
constexpr size_t SHORT_LENGTHS = 8192;
constexpr size_t SHORT_HEADER = 2, LONG_HEADER = 3;
// From about 1 MiB of texts (2 MiB written), a writing thread pays for itself.
constexpr size_t WRITE_BEHIND_CHUNKS = 4;
// From 16 MiB of texts it starts once this many chunks are given back: room
// for its two buffers of 1 MiB (BEHIND_BUFFER_SIZE) with some to spare.
constexpr size_t WRITE_BEHIND_LATER = 64;
constexpr size_t RELEASED_FOR_BUFFERS = 12;

uint8_t* text_at(uint32_t offset) {
    const StringTableState& st = string_tables;
    return st.chunks[offset / STRING_CHUNK_BYTES].get() + offset % STRING_CHUNK_BYTES;
}

struct KeptText {
    size_t length;
    bool zero, narrow;
    const uint8_t* units;
};

KeptText read_text(uint32_t offset) {
    const uint8_t* t = text_at(offset);
    bool long_form = t[0] & TEXT_LONG;
    size_t length = long_form ? size_t(t[1] | t[2] << 8) : size_t(t[0] >> 3) << 8 | t[1];
    return {length, bool(t[0] & TEXT_ZERO), bool(t[0] & TEXT_NARROW),
            t + (long_form ? LONG_HEADER : SHORT_HEADER)};
}

// Copies units to bytes; returns whether every unit fitted in one. Sixteen
// units at a time: a string table is mostly its texts. A text of 16 units
// or more ends with the 16 that end it, some of them copied twice, instead
// of one at a time.
bool narrow_units(uint8_t* to, const char16_t* units, size_t length) {
    size_t i = 0;
    uint16_t high = 0;
#if defined(__SSE2__)
    if (length >= 16) {
        __m128i any = _mm_setzero_si128();
        const __m128i low = _mm_set1_epi16(0x00FF);
        for (size_t at = 0;; at += 16) {
            if (at + 16 > length) at = length - 16;
            __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + at));
            __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + at + 8));
            any = _mm_or_si128(any, _mm_or_si128(a, b));
            // Masked first: the pack saturates, and a wide unit is copied again anyway.
            __m128i bytes = _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), bytes);
            if (at + 16 == length) break;
        }
        __m128i highs = _mm_andnot_si128(low, any); // the high bytes of the units packed
        return _mm_movemask_epi8(_mm_cmpeq_epi8(highs, _mm_setzero_si128())) == 0xFFFF;
    }
#endif
    for (; i < length; ++i) {
        to[i] = uint8_t(units[i]);
        high |= units[i];
    }
    return high < 256;
}

// Bytes back to little-endian units, ending as narrow_units does.
void widen_bytes(uint8_t* out, const uint8_t* bytes, size_t length) {
    size_t i = 0;
#if defined(__SSE2__)
    if (length >= 16) {
        const __m128i zero = _mm_setzero_si128();
        for (size_t at = 0;; at += 16) {
            if (at + 16 > length) at = length - 16;
            __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + at));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * at), _mm_unpacklo_epi8(b, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * at + 16),
                             _mm_unpackhi_epi8(b, zero));
            if (at + 16 == length) return;
        }
    }
#endif
    for (; i < length; ++i) {
        out[2 * i] = bytes[i];
        out[2 * i + 1] = 0;
    }
}

// The current string, packed; returns its offset. Offsets are 32-bit: a
// compilation holding 4 GiB of strings runs out of memory instead.
uint32_t keep_text() {
    StringTableState& st = string_tables;
    const char16_t* units = token.text.data();
    size_t length = token.length;
    size_t header = length < SHORT_LENGTHS ? SHORT_HEADER : LONG_HEADER;
    size_t most = header + length * sizeof(char16_t); // room for the units kept wide
    if (st.chunks.empty() || st.chunk_used + most > STRING_CHUNK_BYTES) {
        if (st.chunks.size() >= UINT32_MAX / STRING_CHUNK_BYTES) throw std::bad_alloc();
        st.chunks.emplace_back(new uint8_t[STRING_CHUNK_BYTES]);
        st.chunk_texts.push_back(0);
        st.chunk_used = 0;
    }
    st.chunk_texts.back() += 1;
    auto offset = uint32_t((st.chunks.size() - 1) * STRING_CHUNK_BYTES + st.chunk_used);
    uint8_t* at = st.chunks.back().get() + st.chunk_used;
    // Copied as bytes while the high bits are gathered, in one pass; copied
    // again whole in the rare case that a unit does not fit.
    bool narrow = narrow_units(at + header, units, length);
    if (!narrow) std::memcpy(at + header, units, length * sizeof(char16_t));
    st.chunk_used += narrow ? header + length : most;
    uint8_t flags =
        uint8_t((compile_state.null_append ? TEXT_ZERO : 0) | (narrow ? TEXT_NARROW : 0));
    if (header == SHORT_HEADER) {
        at[0] = uint8_t(flags | (length >> 8) << 3);
        at[1] = uint8_t(length);
    } else {
        at[0] = flags | TEXT_LONG;
        at[1] = uint8_t(length);
        at[2] = uint8_t(length >> 8);
    }
    return offset;
}

// Files the string in its block, opening the block where its pair is new.
void add_string(uint16_t id, uint32_t statement, uint32_t offset, size_t units) {
    StringTableState& st = string_tables;
    auto block_id = uint16_t((id >> 4) + 1); // 4096 for ids from 0xFFF0: 16 bits hold it
    uint32_t key = uint32_t(block_id) << 16 | st.statements[statement].language;
    uint32_t* index = st.block_index.find(key);
    if (!index) {
        index = &st.block_index.insert(key, uint32_t(st.blocks.size()));
        StringBlock& b = st.blocks.emplace_back();
        b.statement = statement;
        b.block_id = block_id;
    }
    StringBlock& b = st.blocks[*index];
    uint32_t& slot = b.slots[id & 15u];
    if (slot) b.duplicate = true;
    slot = offset + 1;
    b.odd ^= (units & 1) != 0;
    st.units += units;
}

// A filled slot is its length word and that many units (the zero when a
// null is appended); an empty one a zero length word. Units go out
// little-endian, as the file keeps them.
uint32_t write_block(const StringBlock& b, std::vector<uint8_t>& data) {
    size_t total = 0;
    for (uint32_t slot : b.slots) {
        if (!slot) {
            total += 2;
            continue;
        }
        KeptText t = read_text(slot - 1);
        total += 2 * (1 + t.length + (t.zero ? 1 : 0));
    }
    data.resize(total);
    uint8_t* out = data.data();
    for (uint32_t slot : b.slots) {
        if (!slot) {
            out[0] = out[1] = 0;
            out += 2;
            continue;
        }
        KeptText t = read_text(slot - 1);
        size_t word = t.length + (t.zero ? 1 : 0);
        out[0] = uint8_t(word);
        out[1] = uint8_t(word >> 8);
        out += 2;
        if (t.narrow) {
            widen_bytes(out, t.units, t.length);
        } else {
            static_assert(std::endian::native == std::endian::little);
            std::memcpy(out, t.units, 2 * t.length);
        }
        out += 2 * t.length;
        if (t.zero) {
            out[0] = out[1] = 0;
            out += 2;
        }
    }
    uint32_t size = uint32_t(data.size());
    const ResourceAttributes& attributes = string_tables.statements[b.statement];
    uint32_t e = write_header_checked(size, attributes, make_ordinal(RT_STRING),
                                      make_ordinal(b.block_id), true);
    if (!e) e = write_bytes(data.data(), size);
    if (!e) e = pad_to_4(output_position());
    return e ? fatal_system_code(e) : 0;
}

// What the blocks will write: each a header, a length word per slot, the
// units, and a last unit of padding after an odd number of them.
uint64_t written_size() {
    const StringTableState& st = string_tables;
    uint64_t header = header_size(make_ordinal(RT_STRING), make_ordinal(1));
    uint64_t size = st.blocks.size() * (header + 2 * 16) + 2 * st.units;
    for (const StringBlock& b : st.blocks) size += b.odd ? 2 : 0;
    return size;
}

// Gives back each chunk whose texts have all been written out; how many.
// Every text is written once, in its block: no chunk is read after this.
size_t release_written(const StringBlock& b) {
    StringTableState& st = string_tables;
    size_t released = 0;
    for (uint32_t slot : b.slots) {
        if (!slot) continue;
        size_t chunk = (slot - 1) / STRING_CHUNK_BYTES;
        if (--st.chunk_texts[chunk] == 0) {
            st.chunks[chunk].reset();
            released += 1;
        }
    }
    return released;
}

} // namespace

void compile_string_table() {
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = parse_memory_flags(STRINGTABLE_FLAGS);
    parse_optional_statements(attributes, nullptr);
    show_writing(u"STRINGTABLE", nullptr, &attributes);
    expect(TK_BEGIN);
    StringTableState& st = string_tables;
    uint32_t statement = uint32_t(st.statements.size());
    st.statements.push_back(attributes);
    do {
        uint16_t id = uint16_t(parse_expr16(true));
        accept(TK_COMMA);
        size_t units = token.length + (compile_state.null_append ? 1 : 0);
        if (is_string(token.kind) && fits_16(units, u"STRINGTABLE string length"))
            add_string(id, statement, keep_text(), units);
        expect(TK_STRING);
    } while (!accept(TK_END));
}

uint32_t flush_string_tables() {
    // Large collections are written out by a second thread while the next
    // blocks are laid out; the preprocessor's thread has ended by now. The
    // largest start it once the chunks written out can hold its buffers,
    // so that the peak of memory stays that of the texts. A failed write is
    // reported where it would be without the thread: before any duplicate
    // found after it.
    // Starting and stopping twice does nothing more; the thread ends on
    // every path out, a fatal error's included.
    struct StopBehind {
        ~StopBehind() { stop_writing_behind(); }
    } ends_behind;
    auto stop_behind = [] {
        uint32_t e = stop_writing_behind();
        return e ? fatal_system_code(e) : 0;
    };
    size_t chunks = string_tables.chunks.size(), released = 0;
    uint64_t reserved = chunks >= WRITE_BEHIND_CHUNKS ? written_size() : 0;
    [[maybe_unused]] uint32_t from = output_position();
    reserve_output(reserved);
    if (chunks >= WRITE_BEHIND_CHUNKS && chunks < WRITE_BEHIND_LATER) start_writing_behind();
    std::vector<uint8_t> data;
    for (const StringBlock& b : string_tables.blocks) {
        if (b.duplicate) {
            if (uint32_t e = stop_behind()) return e;
            return fatal_code(MSG_DUPLICATE_STRING_ID);
        }
        if (uint32_t e = write_block(b, data)) return e;
        released += release_written(b);
        if (chunks >= WRITE_BEHIND_LATER && released >= RELEASED_FOR_BUFFERS)
            start_writing_behind();
    }
    assert(!reserved || !compile_state.output_file || output_position() - from == reserved);
    return stop_behind();
}

void flush_string_tables_and_report() {
    report(flush_string_tables());
}

void string_tables_reset() {
    string_tables = StringTableState{};
}

} // namespace tarn
