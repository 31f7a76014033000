// Joining include directories with names, and the file-name part of a path.
#include "support/paths.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarn;

namespace {

// The joined path in the form this system writes: "/" throughout on POSIX.
std::u16string native(std::u16string path) {
#ifndef _WIN32
    for (char16_t& c : path)
        if (c == u'\\') c = u'/';
#endif
    return path;
}

} // namespace

TEST(PathJoin, Cases) {
    struct Case {
        const char16_t *dir, *name, *joined;
        size_t result; // the length before the components, 0 for "not found"
    } cases[] = {
        // A name stands alone when absolute or without a directory.
        {u"inc", u"c:\\x.h", u"c:\\x.h", 6},
        {u"inc", u"c:x.h", u"c:x.h", 5},
        {u"inc", u"\\x.h", u"\\x.h", 4},
        {u"inc", u"/x.h", u"/x.h", 4},
        {nullptr, u"x.h", u"x.h", 3},
        {u"", u"sub\\x.h", u"sub\\x.h", 7},
        // Components follow one separator; "." is skipped, ".." drops the
        // last component, others starting with "." give nothing.
        {u"inc", u"x.h", u"inc\\x.h", 3},
        {u"inc\\", u"x.h", u"inc\\x.h", 4},
        {u"inc/", u"sys/x.h", u"inc/sys\\x.h", 4},
        {u"inc", u".\\sys\\\\.\\x.h", u"inc\\sys\\x.h", 3},
        {u"inc", u"..\\x.h", u"x.h", 3},
        {u"a\\b", u"..\\x.h", u"a\\x.h", 3},
        {u"a\\b\\", u"..\\x.h", u"a\\x.h", 4},
        {u"c:\\a\\b", u"..\\..\\x.h", u"c:\\x.h", 6},
        {u"\\", u"..\\x.h", u"\\x.h", 1},
        {u"inc", u".svn", u"", 0},
        {u"inc", u"..x", u"", 0},
        {u"inc", u"sub\\.hidden\\x.h", u"", 0},
        {u"inc", u"...\\x.h", u"", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        char16_t out[MAX_PATH_UNITS] = {u'#'};
        size_t result = path_join(out, MAX_PATH_UNITS, c.dir, c.name);
        EXPECT_EQ(std::u16string(out), native(c.joined));
        EXPECT_EQ(result, c.result);
    }
}

TEST(PathJoin, NeverWritesBeyondSize) {
    char16_t out[16];
    for (const char16_t* dir : {u"include", static_cast<const char16_t*>(nullptr)}) {
        std::fill(std::begin(out), std::end(out), u'#');
        EXPECT_EQ(path_join(out, 8, dir, u"windows.h"), 0u);
        EXPECT_EQ(std::u16string(out + 8, 8), std::u16string(8, u'#'));
    }
    EXPECT_EQ(path_join(out, 8, u"inc", u"x.h"), 3u); // exactly fitting: seven units and the zero
    EXPECT_EQ(std::u16string(out), native(u"inc\\x.h"));
}

#ifndef _WIN32
// An include written for Windows names a POSIX path: no "\" is left in it.
TEST(PathJoin, PosixPathsUseSlashOnly) {
    char16_t out[MAX_PATH_UNITS];
    EXPECT_EQ(path_join(out, MAX_PATH_UNITS, u"/tmp/src", u"ext\\self.rc"), 8u);
    EXPECT_EQ(std::u16string(out), u"/tmp/src/ext/self.rc");
    EXPECT_EQ(path_join(out, MAX_PATH_UNITS, u"", u"sub\\x.h"), 7u);
    EXPECT_EQ(std::u16string(out), u"sub/x.h");
}
#endif

TEST(PathFilePart, PartAfterLastSeparatorOrColon) {
    for (auto [path, part] : {std::pair{u"a\\b/c.rc", u"c.rc"},
                              {u"c:x.rc", u"x.rc"},
                              {u"x.rc", u"x.rc"},
                              {u"dir\\", u""}})
        EXPECT_EQ(std::u16string(path_file_part(path)), part);
    EXPECT_EQ(std::u16string(path_file_part(nullptr)), u"");
}
