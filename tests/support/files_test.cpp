// File services: signatures, exact reads and writes, Windows error numbers,
// and names given with "\" in any letter case.
#include "support/files.h"
#include "support/paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#endif

#include "harness/harness.h"

using namespace tarn;
namespace fs = std::filesystem;

namespace {

// Names as a script would give them: with "\".
class FileTest : public tarn_test::FreshLibrary {
  protected:
    std::u16string script_path(const std::u16string& name) const {
        std::u16string p = dir_.u16string() + u"\\" + name;
        std::replace(p.begin(), p.end(), u'/', u'\\');
        return p;
    }
    std::string read_all(const std::u16string& name) {
        ScopedFile f;
        if (file_open_read(script_path(name).c_str(), &f.handle)) return "<open failed>";
        char buffer[256];
        uint32_t got = 0;
        if (file_read_some(f.handle, buffer, sizeof buffer, &got)) return "<read failed>";
        return std::string(buffer, got);
    }
};

} // namespace

TEST_F(FileTest, SignaturesAndThePositionAfterThem) {
    struct Case {
        std::string bytes;
        SignatureEncoding encoding;
        uint32_t position;
    } cases[] = {
        {std::string("\xFF\xFE\0\0", 4), SIG_UTF32LE, 4},
        {std::string("\0\0\xFE\xFF", 4), SIG_UTF32BE, 4},
        {"\xEF\xBB\xBFxy", SIG_UTF8, 3},
        {"\xEF\xBB\xBF", SIG_UTF8, 3},
        {std::string("\xFF\xFEx\0", 4), SIG_UTF16LE, 2},
        {std::string("\xFF\xFE\0", 3), SIG_UTF16LE, 2}, // three bytes: no UTF-32 test
        {"\xFF\xFE", SIG_UTF16LE, 2},
        {std::string("\xFE\xFF\0x", 4), SIG_UTF16BE, 2},
        {"\xEF\xBBx", SIG_NONE, 0},
        {"\xFF", SIG_NONE, 0},
        {"abcd", SIG_NONE, 0},
        {"", SIG_NONE, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        write_file("sig.txt", c.bytes);
        ScopedFile f;
        ASSERT_EQ(file_open_read(script_path(u"sig.txt").c_str(), &f.handle), 0u);
        EXPECT_EQ(detect_signature(f.handle), c.encoding);
        uint32_t at = 99;
        EXPECT_EQ(file_position(f.handle, &at), 0u);
        EXPECT_EQ(at, c.position); // reading goes on after the signature
    }
    EXPECT_EQ(detect_signature(nullptr), SIG_READ_FAILED);
}

TEST_F(FileTest, ReadsAndWritesAreExact) {
    std::u16string name = script_path(u"out.bin");
    FileHandle f = nullptr;
    ASSERT_EQ(file_create(name.c_str(), &f), 0u);
    ScopedFile closer(f);
    EXPECT_EQ(file_write(f, "hello", 5), 0u);
    uint32_t size = 0, at = 0;
    EXPECT_EQ(file_size(f, &size), 0u);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(file_seek(f, -2, SeekOrigin::end), 0u);
    EXPECT_EQ(file_position(f, &at), 0u);
    EXPECT_EQ(at, 3u);
    char buffer[8] = {};
    EXPECT_EQ(file_read(f, buffer, 2), 0u);
    EXPECT_EQ(std::string(buffer, 2), "lo");
    EXPECT_EQ(file_seek(f, 1, SeekOrigin::begin), 0u);
    EXPECT_EQ(file_read(f, buffer, 8), ERR_READ_FAULT); // only four remain
    uint32_t got = 9;
    EXPECT_EQ(file_read_some(f, buffer, 8, &got), 0u);
    EXPECT_EQ(got, 0u); // at the end
    EXPECT_NE(file_seek(f, -10, SeekOrigin::begin), 0u);
}

// A file read in small pieces, with moves back and forth between them, as
// the preprocessor and the resource statements read: every byte comes from
// where the position says, whatever is buffered on the way.
TEST_F(FileTest, PositionsHoldAcrossSmallAndLargeReads) {
    std::string content(200000, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = char(i * 7 + i / 251);
    std::ofstream(dir_ / "big.bin", std::ios::binary) << content;
    FileHandle f = nullptr;
    ASSERT_EQ(file_open_read(script_path(u"big.bin").c_str(), &f), 0u);
    ScopedFile closer(f);
    std::string piece(200000, '\0');
    uint32_t at = 0, got = 0;
    auto expect_piece = [&](uint32_t from, uint32_t n) {
        ASSERT_EQ(file_read_some(f, piece.data(), n, &got), 0u);
        ASSERT_EQ(got, std::min<uint32_t>(n, uint32_t(content.size()) - from));
        EXPECT_EQ(piece.substr(0, got), content.substr(from, got)) << from;
    };
    expect_piece(0, 4096);
    ASSERT_EQ(file_seek(f, -10, SeekOrigin::current), 0u);
    ASSERT_EQ(file_position(f, &at), 0u);
    EXPECT_EQ(at, 4086u);
    expect_piece(4086, 4096);
    expect_piece(8182, 90000); // large: partly buffered, partly straight
    ASSERT_EQ(file_position(f, &at), 0u);
    EXPECT_EQ(at, 98182u);
    ASSERT_EQ(file_seek(f, -100, SeekOrigin::current), 0u); // among the bytes read ahead
    expect_piece(98082, 200);
    ASSERT_EQ(file_seek(f, 5, SeekOrigin::begin), 0u);
    expect_piece(5, 3);
    expect_piece(8, 150000); // mostly straight, past what was read ahead
    ASSERT_EQ(file_position(f, &at), 0u);
    EXPECT_EQ(at, 150008u);
    ASSERT_EQ(file_seek(f, -10, SeekOrigin::current), 0u);
    expect_piece(149998, 20);
    ASSERT_EQ(file_seek(f, 3, SeekOrigin::begin), 0u);
    expect_piece(3, 2);
    ASSERT_EQ(file_seek(f, -4, SeekOrigin::end), 0u);
    expect_piece(199996, 4096); // short at the end
    expect_piece(200000, 16);   // nothing more
    EXPECT_EQ(got, 0u);
}

// Creating over a file leaves exactly the new contents, keeps the file's
// permissions, and keeps the contents shared with any other name the file
// has.
TEST_F(FileTest, CreatingReplacesTheContents) {
    auto create_with = [&](const std::u16string& name, const std::string& text) {
        FileHandle f = nullptr;
        ASSERT_EQ(file_create(script_path(name).c_str(), &f), 0u);
        ScopedFile closer(f);
        EXPECT_EQ(file_write(f, text.data(), uint32_t(text.size())), 0u);
    };
    std::ofstream(dir_ / "old.res", std::ios::binary) << std::string(5000, 'o');
    create_with(u"old.res", "new");
    EXPECT_EQ(read_all(u"old.res"), "new");
    create_with(u"old.res", "");
    EXPECT_EQ(read_all(u"old.res"), "");
#ifndef _WIN32
    std::ofstream(dir_ / "kept.res", std::ios::binary) << "old contents";
    fs::permissions(dir_ / "kept.res",
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    create_with(u"kept.res", "x");
    EXPECT_EQ(read_all(u"kept.res"), "x");
    EXPECT_EQ(fs::status(dir_ / "kept.res").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    std::ofstream(dir_ / "linked.res", std::ios::binary) << "old contents";
    fs::create_hard_link(dir_ / "linked.res", dir_ / "other-name.res");
    create_with(u"linked.res", "y");
    EXPECT_EQ(read_all(u"other-name.res"), "y");
    std::ofstream(dir_ / "target.res", std::ios::binary) << "old contents";
    fs::create_symlink(dir_ / "target.res", dir_ / "symbolic.res");
    create_with(u"symbolic.res", "z");
    EXPECT_TRUE(fs::is_symlink(dir_ / "symbolic.res"));
    EXPECT_EQ(read_all(u"target.res"), "z");
#endif
}

TEST_F(FileTest, CreatedFileIsSharedWithNobody) {
    std::u16string name = script_path(u"out.res");
    FileHandle out = nullptr, in = nullptr, other = nullptr;
    ASSERT_EQ(file_create(name.c_str(), &out), 0u);
    EXPECT_EQ(file_write(out, "data", 4), 0u);
    EXPECT_EQ(file_open_read(name.c_str(), &in), ERR_SHARING_VIOLATION);
    EXPECT_EQ(file_create(name.c_str(), &other), ERR_SHARING_VIOLATION);
    file_close(out);
    // Readers share with each other, and a refused create leaves the file whole.
    ASSERT_EQ(file_open_read(name.c_str(), &in), 0u);
    ScopedFile closer(in);
    ASSERT_EQ(file_open_read(name.c_str(), &other), 0u);
    file_close(other);
    EXPECT_EQ(file_create(name.c_str(), &other), ERR_SHARING_VIOLATION);
    uint32_t size = 0;
    EXPECT_EQ(file_size(in, &size), 0u);
    EXPECT_EQ(size, 4u);
    file_close(closer.release());
    // Created again: replaced.
    ASSERT_EQ(file_create(name.c_str(), &out), 0u);
    EXPECT_EQ(file_size(out, &size), 0u);
    EXPECT_EQ(size, 0u);
    file_close(out);
}

TEST_F(FileTest, FailuresHaveTheWindowsNumbers) {
    FileHandle f = reinterpret_cast<FileHandle>(1);
    EXPECT_EQ(file_open_read(script_path(u"missing.rc").c_str(), &f), ERR_FILE_NOT_FOUND);
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(file_open_read(script_path(u"nodir\\missing.rc").c_str(), &f), ERR_PATH_NOT_FOUND);
    EXPECT_EQ(file_create(script_path(u"nodir\\new.res").c_str(), &f), ERR_PATH_NOT_FOUND);
    EXPECT_EQ(file_delete(script_path(u"missing.rc").c_str()), ERR_FILE_NOT_FOUND);
    write_file("plain.txt", "x");
    EXPECT_EQ(file_open_read(script_path(u"plain.txt\\x.rc").c_str(), &f), ERR_PATH_NOT_FOUND);
    EXPECT_FALSE(file_exists(script_path(u"missing.rc").c_str()));
    // A folder exists but is no file to open.
    write_file("sub/x", "");
    EXPECT_EQ(file_open_read(script_path(u"sub").c_str(), &f), ERR_ACCESS_DENIED);
    EXPECT_EQ(file_create(script_path(u"sub").c_str(), &f), ERR_ACCESS_DENIED);
    EXPECT_TRUE(file_exists(script_path(u"sub").c_str()));
}

TEST_F(FileTest, NullHandleIsInvalid) {
    char b[4];
    uint32_t n = 0;
    EXPECT_EQ(plat_read(nullptr, b, 4, &n), ERR_INVALID_HANDLE);
    EXPECT_EQ(plat_write(nullptr, b, 4, &n), ERR_INVALID_HANDLE);
    EXPECT_EQ(plat_seek(nullptr, 0, SeekOrigin::begin, &n), ERR_INVALID_HANDLE);
    EXPECT_EQ(plat_size(nullptr, &n), ERR_INVALID_HANDLE);
    EXPECT_EQ(file_read(nullptr, b, 4), ERR_INVALID_HANDLE);
    file_close(nullptr);
}

TEST_F(FileTest, NamesMatchInAnyLetterCase) {
    write_file("Include/Sys/Header.H", "found");
    std::ofstream(dir_ / fs::path(u8"Include/Sys/\u00C4pple.h"), std::ios::binary) << "latin";
    EXPECT_TRUE(file_exists(script_path(u"include\\SYS\\header.h").c_str()));
    EXPECT_TRUE(file_exists(script_path(u"INCLUDE/sys\\Header.h").c_str()));
    EXPECT_EQ(read_all(u"include\\sys\\HEADER.h"), "found");
    EXPECT_EQ(read_all(u"include\\sys\\\u00E4PPLE.H"), "latin");
    EXPECT_FALSE(file_exists(script_path(u"include\\sys\\other.h").c_str()));
#ifndef _WIN32
    EXPECT_EQ(plat_resolve(script_path(u"include\\sys\\header.h").c_str()),
              dir_.u16string() + u"/Include/Sys/Header.H");
#endif
}

#ifndef _WIN32
// Searches in any letter case keep a folder's names while it is unchanged:
// a name added or renamed there must be seen at once, also in a folder
// whose time stamp was old when its names were kept.
TEST_F(FileTest, SearchesSeeAChangedFolder) {
    write_file("Inc/Old.h", "old");
    auto age = [&] {
        struct timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 60, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, (dir_ / "Inc").c_str(), times, 0), 0);
    };
    age();
    EXPECT_EQ(read_all(u"Inc\\OLD.H"), "old");
    EXPECT_FALSE(file_exists(script_path(u"Inc\\new.h").c_str()));
    write_file("Inc/New.H", "new");
    EXPECT_EQ(read_all(u"Inc\\new.h"), "new");
    age();
    EXPECT_EQ(read_all(u"inc\\new.h"), "new");
    fs::rename(dir_ / "Inc/Old.h", dir_ / "Inc/Gone.h");
    EXPECT_FALSE(file_exists(script_path(u"Inc\\old.h").c_str()));
    EXPECT_EQ(read_all(u"Inc\\GONE.h"), "old");
}

// Only a case-sensitive file system can hold both spellings.
TEST_F(FileTest, ExactSpellingIsPreferred) {
    write_file("a.h", "lower");
    write_file("A.h", "upper");
    EXPECT_EQ(read_all(u"a.h"), "lower");
    EXPECT_EQ(read_all(u"A.h"), "upper");
    EXPECT_EQ(read_all(u"a.H"), "upper"); // the first of the variants in byte order
}
#endif
