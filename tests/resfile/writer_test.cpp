// The .res writer: the leading entry, header layout and its padding, data
// alignment, file copies and the writes that vanish when dependencies are
// collected without an output.
#include "harness/harness.h"

#include "api/state.h"
#include "resfile/writer.h"
#include "support/files.h"

using namespace tarn;
using tarn_test::read_bytes;
using Bytes = std::vector<uint8_t>;

namespace {

class Writer : public tarn_test::FreshLibrary {
  protected:
    // Opens out.res, runs `body`, closes and returns the file's bytes.
    template <class Body> Bytes written(Body body) {
        std::u16string out = wide(path_of("out.res"));
        EXPECT_EQ(create_output(out.c_str()), 0u);
        EXPECT_NE(compile_state.output_file, nullptr);
        body();
        close_output();
        EXPECT_EQ(compile_state.output_file, nullptr);
        return read_bytes(path_of("out.res"));
    }
};

const Bytes LEADING_ENTRY = {0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0x00,
                             0x00, 0xFF, 0xFF, 0x00, 0x00, 0,    0,    0,    0,    0,    0,
                             0,    0,    0,    0,    0,    0,    0,    0,    0,    0};

TEST_F(Writer, LeadingEntryIsExactly32Bytes) {
    EXPECT_EQ(written([] { EXPECT_EQ(write_leading_entry(), 0u); }), LEADING_ENTRY);
}

TEST_F(Writer, NamesAndOrdinals) {
    NameOrOrdinal ordinal = make_ordinal(7);
    NameOrOrdinal name = make_name(u"AB");
    EXPECT_TRUE(is_ordinal(ordinal));
    EXPECT_EQ(ordinal_of(ordinal), 7);
    EXPECT_FALSE(is_ordinal(name));
    EXPECT_EQ(name_size(ordinal), 4u);
    EXPECT_EQ(name_size(name), 6u);
    EXPECT_EQ(name_size(make_name(u"")), 2u);
    EXPECT_EQ(copy_name(ordinal).units, ordinal.units);
    EXPECT_EQ(copy_name(name).units, name.units);
    // Ordinal 0xFFFF is still the ordinal form, not a string.
    EXPECT_EQ(name_size(make_ordinal(0xFFFF)), 4u);
}

TEST_F(Writer, HeaderSizeIsPaddedToFour) {
    EXPECT_EQ(header_size(make_name(u"AB"), make_ordinal(1)), 36u);  // 34 padded
    EXPECT_EQ(header_size(make_name(u"ABC"), make_ordinal(1)), 36u); // exact
    EXPECT_EQ(header_size(make_ordinal(6), make_ordinal(1)), 32u);
    EXPECT_EQ(header_size(make_name(u"A"), make_name(u"B")), 32u);
}

TEST_F(Writer, HeaderIsWrittenFieldByField) {
    ResourceAttributes a;
    a.data_version = 0x01020304;
    a.memory_flags = 0x1030;
    a.language = 0x041D;
    a.version = 0x05060708;
    a.characteristics = 0x090A0B0C;
    Bytes got = written(
        [&] { EXPECT_EQ(write_resource_header(5, a, make_name(u"AB"), make_ordinal(1)), 0u); });
    const Bytes want = {
        0x05, 0x00, 0x00, 0x00, 0x24, 0x00, 0x00, 0x00, // DataSize 5, HeaderSize 36
        'A',  0x00, 'B',  0x00, 0x00, 0x00,             // TYPE "AB"
        0xFF, 0xFF, 0x01, 0x00,                         // NAME 1
        0x00, 0x00,                                     // padding
        0x04, 0x03, 0x02, 0x01, 0x30, 0x10, 0x1D, 0x04, // DataVersion, flags, language
        0x08, 0x07, 0x06, 0x05, 0x0C, 0x0B, 0x0A, 0x09, // Version, Characteristics
    };
    EXPECT_EQ(got, want);
}

TEST_F(Writer, UnpaddedHeaderHasNoPadding) {
    Bytes got = written(
        [] { EXPECT_EQ(write_resource_header(0, {}, make_name(u"ABC"), make_ordinal(2)), 0u); });
    ASSERT_EQ(got.size(), 36u);
    EXPECT_EQ(got[4], 36);
    EXPECT_EQ(Bytes(got.begin() + 8, got.begin() + 20),
              (Bytes{'A', 0, 'B', 0, 'C', 0, 0, 0, 0xFF, 0xFF, 2, 0}));
}

TEST_F(Writer, DataIsPaddedToFourFromTheFileStart) {
    const uint8_t data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    Bytes five = written([&] {
        EXPECT_EQ(write_leading_entry(), 0u);
        EXPECT_EQ(write_bytes(data, 5), 0u);
        EXPECT_EQ(output_position(), 37u);
        EXPECT_EQ(pad_to_4(output_position()), 0u);
        EXPECT_EQ(output_position(), 40u);
    });
    EXPECT_EQ(Bytes(five.begin() + 32, five.end()), (Bytes{1, 2, 3, 4, 5, 0, 0, 0}));
    Bytes eight = written([&] {
        EXPECT_EQ(write_leading_entry(), 0u);
        EXPECT_EQ(write_bytes(data, 8), 0u);
        EXPECT_EQ(pad_to_4(output_position()), 0u);
    });
    EXPECT_EQ(eight.size(), 40u);
}

TEST_F(Writer, LittleEndianIntegers) {
    Bytes got = written([] {
        EXPECT_EQ(write_u16(0xABCD), 0u);
        EXPECT_EQ(write_u32(0x12345678), 0u);
    });
    EXPECT_EQ(got, (Bytes{0xCD, 0xAB, 0x78, 0x56, 0x34, 0x12}));
}

TEST_F(Writer, CopiesTheRestOfAFile) {
    std::string content(2 * COPY_BUFFER_SIZE + 100, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = char(i * 7);
    std::u16string in = wide(write_file("in.bin", content));
    Bytes got = written([&] {
        ScopedFile f;
        ASSERT_EQ(file_open_read(in.c_str(), &f.handle), 0u);
        ASSERT_EQ(file_seek(f.handle, 10, SeekOrigin::begin), 0u);
        EXPECT_EQ(copy_file_rest(f.handle), 0u);
    });
    EXPECT_EQ(got, Bytes(content.begin() + 10, content.end()));
}

TEST_F(Writer, CopyOfNothingWritesNothing) {
    std::u16string empty = wide(write_file("empty.bin", ""));
    std::u16string four = wide(write_file("four.bin", "abcd"));
    Bytes got = written([&] {
        ScopedFile e, f;
        ASSERT_EQ(file_open_read(empty.c_str(), &e.handle), 0u);
        EXPECT_EQ(copy_file_rest(e.handle), 0u);
        ASSERT_EQ(file_open_read(four.c_str(), &f.handle), 0u);
        ASSERT_EQ(file_seek(f.handle, 0, SeekOrigin::end), 0u);
        EXPECT_EQ(copy_file_rest(f.handle), 0u);
    });
    EXPECT_TRUE(got.empty());
}

TEST_F(Writer, NullPathOpensNothing) {
    EXPECT_EQ(create_output(nullptr), 0u);
    EXPECT_EQ(compile_state.output_file, nullptr);
    close_output(); // closing nothing is harmless
}

TEST_F(Writer, CreateFailureReturnsThePlatformError) {
    std::u16string bad = wide(path_of("no-such-folder") / "out.res");
    EXPECT_NE(create_output(bad.c_str()), 0u);
    EXPECT_EQ(compile_state.output_file, nullptr);
}

TEST_F(Writer, NullHandleInDependencyModeWritesNothing) {
    compile_state.collect_dependencies = 1;
    std::u16string in = wide(write_file("in.bin", "some data"));
    ScopedFile f;
    ASSERT_EQ(file_open_read(in.c_str(), &f.handle), 0u);
    const uint8_t data[3] = {1, 2, 3};
    EXPECT_EQ(write_leading_entry(), 0u);
    EXPECT_EQ(write_bytes(data, 3), 0u);
    EXPECT_EQ(write_resource_header(3, {}, make_name(u"AB"), make_ordinal(1)), 0u);
    EXPECT_EQ(pad_to_4(3), 0u);
    EXPECT_EQ(output_position(), 0u);
    EXPECT_EQ(copy_file_rest(f.handle), 0u);
    // The input was not consumed.
    uint32_t position = 1;
    EXPECT_EQ(file_position(f.handle, &position), 0u);
    EXPECT_EQ(position, 0u);
}

TEST_F(Writer, NullHandleOutsideDependencyModeFails) {
    const uint8_t data[1] = {0};
    EXPECT_EQ(write_bytes(data, 1), 6u);
    EXPECT_EQ(write_u32(1), 6u);
    EXPECT_EQ(write_resource_header(0, {}, make_ordinal(1), make_ordinal(1)), 6u);
    EXPECT_EQ(output_position(), 0u);
}

// Through the export: an empty script gives just the leading entry, and a
// compile without an output path in dependency mode creates nothing.
TEST_F(Writer, EmptyScriptGivesTheLeadingEntryOnly) {
    Bytes res;
    ASSERT_EQ(compile("", &res), 1);
    EXPECT_EQ(res, LEADING_ENTRY);
}

TEST_F(Writer, DependencyCompileWithoutOutputCreatesNothing) {
    set_error_function_w(nullptr, 1);
    std::u16string in = wide(write_file("deps.rc", ""));
    EXPECT_EQ(compile_script_w(in.c_str(), nullptr), 1);
    EXPECT_FALSE(std::filesystem::exists(path_of("deps.res")));
}

} // namespace
