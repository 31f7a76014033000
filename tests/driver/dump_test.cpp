// The .res listing: a file made by the library's writer parses back field
// for field, every kind of damage is reported with its offset, and no input
// (truncated, bit-flipped, with huge sizes) makes the parser read outside.
#include "harness/harness.h"

#include "dump.h"
#include "resfile/writer.h"
#include "resources/res_reader.h"
#include "support/state.h"

using namespace tarn_driver;
using Bytes = std::vector<uint8_t>;

namespace {

const Bytes LEADING = res_test::Bytes().u32(0, 32).ord(0).ord(0).u32(0, 0, 0, 0);

// Entry of type "AB", name 1, language 0x0409 and 5 data bytes, padded.
const Bytes ENTRY = res_test::Bytes()
                        .u32(5, 36)
                        .str("AB")
                        .ord(1)
                        .pad4()
                        .u32(0)
                        .u16(0x1030, 0x409)
                        .u32(0, 0)
                        .text("hello")
                        .pad4();

Bytes file_of(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

void put_u32(Bytes& b, size_t at, uint32_t v) {
    ASSERT_LE(at + 4, b.size());
    for (int k = 0; k < 4; ++k) b.at(at + k) = uint8_t(v >> (8 * k));
}

// Expects a malformed file whose reason contains `why`, at `offset`.
void expect_malformed(const Bytes& b, const std::string& why, uint64_t offset) {
    ResFile r = parse_res(b);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.why.find(why), std::string::npos) << r.why;
    EXPECT_EQ(r.error_offset, offset) << r.why;
}

class DriverDump : public tarn_test::FreshLibrary {};

TEST_F(DriverDump, ReadsBackWhatTheWriterWrote) {
    using namespace tarn;
    std::u16string out = wide(path_of("w.res"));
    ASSERT_EQ(create_output(out.c_str()), 0u);
    ASSERT_EQ(write_leading_entry(), 0u);
    ResourceAttributes a;
    a.memory_flags = 0x1030;
    a.language = 0x041D;
    a.version = 7;
    ASSERT_EQ(write_resource_header(3, a, make_ordinal(6), make_name(u"MY\"NAME")), 0u);
    ASSERT_EQ(write_bytes("abc", 3), 0u);
    ASSERT_EQ(pad_to_4(output_position()), 0u);
    ASSERT_EQ(write_resource_header(0, {}, make_name(u"TYPÉ"), make_ordinal(2)), 0u);
    ASSERT_EQ(flush_output(), 0u);
    ASSERT_EQ(commit_output(), 0u);

    Bytes bytes = tarn_test::read_bytes(path_of("w.res"));
    ResFile r = parse_res(bytes);
    ASSERT_TRUE(r.ok) << r.why;
    ASSERT_EQ(r.entries.size(), 2u);
    EXPECT_EQ(format_listing(r, bytes, true),
              "#1  type=RT_STRING(6)  name=\"MY\\\"NAME\"  language=0x041D  flags=0x1030"
              "  version=0x00000007  size=3\n"
              "    00000000  61 62 63                                          |abc|\n"
              "#2  type=\"TYP\xC3\x89\"  name=2  language=0x0000  flags=0x0000  size=0\n");
}

TEST(DriverDumpFields, OffsetsAndSizes) {
    ResFile r = parse_res(file_of({LEADING, ENTRY}));
    ASSERT_TRUE(r.ok) << r.why;
    ASSERT_EQ(r.entries.size(), 1u);
    const ResEntry& e = r.entries[0];
    EXPECT_EQ(std::tuple(e.offset, e.header_size, e.data_offset, e.data_size),
              std::tuple(32u, 36u, 68u, 5u));
    EXPECT_EQ(std::tuple(e.language, e.memory_flags), std::tuple(0x409, 0x1030));
    EXPECT_TRUE(parse_res(LEADING).ok && parse_res(LEADING).entries.empty());
}

TEST(DriverDumpText, TypesAndHexRows) {
    EXPECT_EQ(type_text(ResName{true, 24, {}}), "RT_MANIFEST(24)");
    EXPECT_EQ(type_text(ResName{true, 256, {}}), "256");
    EXPECT_EQ(name_text(ResName{false, 0, u"A\\B"}), "\"A\\\\B\"");
    Bytes data(17);
    for (size_t i = 0; i < data.size(); ++i) data[i] = uint8_t('@' + i);
    EXPECT_EQ(hex_dump(data),
              "    00000000  40 41 42 43 44 45 46 47  48 49 4A 4B 4C 4D 4E 4F  |@ABCDEFGHIJKLMNO|\n"
              "    00000010  50                                                |P|\n");
    EXPECT_EQ(hex_dump(Bytes{0x00, 0x7F}),
              "    00000000  00 7F                                             |..|\n");
}

TEST(DriverDumpMalformed, TheLeadingEntry) {
    expect_malformed({}, "ends inside the leading empty entry", 0);
    expect_malformed(Bytes(LEADING.begin(), LEADING.begin() + 20), "ends inside the leading", 20);
    Bytes b = LEADING;
    b[4] = 0x24;
    expect_malformed(b, "not the 32-byte empty entry", 4);
    b = LEADING;
    b[31] = 1; // attributes of the empty entry are zero too
    expect_malformed(b, "not the 32-byte empty entry", 31);
}

TEST(DriverDumpMalformed, HeadersAndData) {
    Bytes b = file_of({LEADING, ENTRY});
    expect_malformed(Bytes(b.begin(), b.begin() + 36), "ends inside a resource header", 32);

    Bytes odd = b;
    put_u32(odd, 36, 34);
    expect_malformed(odd, "not a multiple of 4", 36);

    Bytes big = b;
    put_u32(big, 36, 0xFFFFFFFC);
    expect_malformed(big, "runs past the end of the file", 36);

    Bytes wrong = b;
    put_u32(wrong, 36, 40); // the names and attributes need 36
    expect_malformed(wrong, "does not match its fields (0x24)", 36);

    Bytes small = b;
    put_u32(small, 36, 8); // no room for the type
    expect_malformed(small, "type runs past the end of its header", 40);

    Bytes data = b;
    put_u32(data, 32, 0xFFFFFFFF);
    expect_malformed(data, "data size 0xFFFFFFFF runs past", 32);

    expect_malformed(Bytes(b.begin(), b.end() - 1), "inside the padding after the data", 73);
}

TEST(DriverDumpMalformed, UnterminatedName) {
    // HeaderSize 32: TYPE "ABCDEFGHIJ" fills the 24 bytes before the
    // attributes' place without a terminator.
    Bytes b = LEADING;
    Bytes h = {0, 0, 0, 0, 32, 0, 0, 0};
    for (char c : std::string("ABCDEFGHIJKL")) h.insert(h.end(), {uint8_t(c), 0});
    b.insert(b.end(), h.begin(), h.end());
    expect_malformed(b, "type name has no terminator", 40);
}

// Every prefix and every single-byte corruption of a valid file parses or
// fails cleanly; under the sanitizers this also proves no read outside.
TEST(DriverDumpMalformed, NoInputCrashesTheParser) {
    Bytes b = file_of({LEADING, ENTRY, ENTRY});
    size_t ok_prefixes = 0;
    for (size_t n = 0; n <= b.size(); ++n) {
        Bytes prefix(b.begin(), b.begin() + n);
        ResFile r = parse_res(prefix);
        if (r.ok) {
            ++ok_prefixes;
            format_listing(r, prefix, true);
        }
        EXPECT_LE(r.error_offset, n);
    }
    EXPECT_EQ(ok_prefixes, 3u); // at the end of each entry
    for (size_t i = 0; i < b.size(); ++i)
        for (uint8_t v : {uint8_t(0x00), uint8_t(0xFF), uint8_t(0x80), uint8_t(0x03)}) {
            Bytes c = b;
            c[i] = v;
            ResFile r = parse_res(c);
            if (r.ok) format_listing(r, c, true);
        }
}

} // namespace
