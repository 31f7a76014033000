// The .res writer: the leading entry, header layout and its padding, data
// alignment, file copies and the writes that vanish when dependencies are
// collected without an output.
#include "harness/harness.h"

#include <filesystem>

#include "resfile/writer.h"
#include "support/files.h"
#include "support/state.h"
#include <tarn/tarn.h>

using namespace tarn;
using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

namespace {

class Writer : public tarn_test::FreshLibrary {
  protected:
    // Opens out.res, runs `body`, puts the output in place and returns its bytes.
    template <class Body> Bytes written(Body body) {
        EXPECT_EQ(create_output(wide(path_of("out.res")).c_str()), 0u);
        body();
        EXPECT_EQ(flush_output(), 0u);
        EXPECT_EQ(commit_output(), 0u);
        EXPECT_EQ(compile_state.output_file, nullptr);
        return tarn_test::read_bytes(path_of("out.res"));
    }
};

TEST_F(Writer, EmptyScriptGivesTheLeadingEntryOnly) {
    Bytes res, want = {0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0};
    want.resize(32);
    ASSERT_EQ(compile("", &res), 1);
    EXPECT_EQ(res, want);
}

TEST_F(Writer, HeaderIsWrittenFieldByFieldAndPaddedToFour) {
    EXPECT_EQ(header_size(make_name(u"ABC"), make_ordinal(0xFFFF)), 36u); // no padding
    EXPECT_EQ(header_size(make_name(u"A"), make_name(u"")), 32u);
    ResourceAttributes a{0x01020304, 0x1030, 0x041D, 0x05060708, 0x090A0B0C};
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

TEST_F(Writer, DataIsPaddedToFourFromTheFileStart) {
    Bytes got = written([] {
        EXPECT_EQ(write_leading_entry(), 0u);
        EXPECT_EQ(write_bytes("\1\2\3\4\5", 5), 0u);
        EXPECT_EQ(pad_to_4(output_position()), 0u);
        EXPECT_EQ(output_position(), 40u);
        EXPECT_EQ(pad_to_4(output_position()), 0u); // aligned: nothing
        EXPECT_EQ(write_bytes("\6\7\10", 3), 0u);
        EXPECT_EQ(pad_to_4(output_position()), 0u);
    });
    EXPECT_EQ(Bytes(got.begin() + 32, got.end()), (Bytes{1, 2, 3, 4, 5, 0, 0, 0, 6, 7, 8, 0}));
}

TEST_F(Writer, CopiesTheRestOfAFile) {
    std::string content(2 * COPY_BUFFER_SIZE + 100, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = char(i * 7);
    std::u16string in = wide(write_file("in.bin", content)), empty = wide(write_file("e.bin", ""));
    Bytes got = written([&] {
        ScopedFile f, e;
        ASSERT_EQ(file_open_read(in.c_str(), &f.handle), 0u);
        ASSERT_EQ(file_open_read(empty.c_str(), &e.handle), 0u);
        EXPECT_EQ(copy_file_rest(e.handle), 0u);
        ASSERT_EQ(file_seek(f.handle, 10, SeekOrigin::begin), 0u);
        EXPECT_EQ(copy_file_rest(f.handle), 0u);
        EXPECT_EQ(copy_file_rest(f.handle), 0u); // at the end: nothing more
    });
    EXPECT_EQ(got, Bytes(content.begin() + 10, content.end()));
}

// Written behind by a second thread, the bytes come out whole and in order,
// whether buffered or too large to buffer; a stop asked for is noticed by
// the caller, as a write of its own would notice it.
TEST_F(Writer, WritesBehindComeOutInOrder) {
    Bytes want;
    Bytes got = written([&] {
        start_writing_behind();
        for (uint32_t size : {1000u, 700000u, 3u, 2500000u, 900000u, 64u, 1048576u, 5u}) {
            Bytes piece(size);
            for (uint32_t i = 0; i < size; ++i) piece[i] = uint8_t(i * 13 + size);
            EXPECT_EQ(write_bytes(piece.data(), size), 0u);
            want.insert(want.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(stop_writing_behind(), 0u);
        EXPECT_EQ(output_position(), want.size());
    });
    EXPECT_EQ(got, want);

    reattach();
    ASSERT_EQ(create_output(wide(path_of("stopped.res")).c_str()), 0u);
    start_writing_behind();
    Bytes piece(600000, 'p');
    EXPECT_EQ(write_bytes(piece.data(), uint32_t(piece.size())), 0u);
    EXPECT_EQ(write_bytes(piece.data(), uint32_t(piece.size())), 0u); // the first handed over
    set_abort_flag();
    EXPECT_THROW(write_bytes(piece.data(), uint32_t(piece.size())), AbortUnwind);
    discard_output(); // ends the thread
    EXPECT_FALSE(fs::exists(path_of("stopped.res")));
}

TEST_F(Writer, WithoutAnOutputOnlyDependencyModeSucceeds) {
    EXPECT_EQ(create_output(wide(path_of("no-such-folder") / "out.res").c_str()),
              ERR_PATH_NOT_FOUND);
    EXPECT_EQ(compile_state.output_file, nullptr);
    const uint8_t data[3] = {1, 2, 3};
    EXPECT_EQ(create_output(nullptr), 0u); // opens nothing
    EXPECT_EQ(write_bytes(data, 1), ERR_INVALID_HANDLE);
    EXPECT_EQ(write_resource_header(0, {}, make_ordinal(1), make_ordinal(1)), ERR_INVALID_HANDLE);
    compile_state.collect_dependencies = 1;
    EXPECT_EQ(write_leading_entry(), 0u);
    EXPECT_EQ(write_bytes(data, 3), 0u);
    EXPECT_EQ(pad_to_4(3), 0u);
    EXPECT_EQ(output_position(), 0u);
    ScopedFile f; // a copy does not consume its input
    ASSERT_EQ(file_open_read(wide(write_file("in.bin", "data")).c_str(), &f.handle), 0u);
    EXPECT_EQ(copy_file_rest(f.handle), 0u);
    uint32_t position = 1;
    EXPECT_EQ(file_position(f.handle, &position), 0u);
    EXPECT_EQ(position, 0u);
}

} // namespace
