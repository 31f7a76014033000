// Joining include directories with names, and the file-name part of a path.
#include "support/paths.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarn;

namespace {

struct Joined {
    std::u16string text;
    size_t result;
};

Joined join(const char16_t* dir, const char16_t* name, size_t size = MAX_PATH_UNITS) {
    char16_t out[MAX_PATH_UNITS];
    size_t r = path_join(out, size, dir, name);
    return {out, r};
}

} // namespace

TEST(PathJoin, NameStandsAloneWhenAbsoluteOrWithoutDirectory) {
    EXPECT_EQ(join(u"inc", u"c:\\x.h").text, u"c:\\x.h");
    EXPECT_EQ(join(u"inc", u"c:x.h").text, u"c:x.h");
    EXPECT_EQ(join(u"inc", u"\\x.h").text, u"\\x.h");
    EXPECT_EQ(join(u"inc", u"/x.h").text, u"/x.h");
    EXPECT_EQ(join(nullptr, u"x.h").text, u"x.h");
    Joined j = join(u"", u"sub\\x.h");
    EXPECT_EQ(j.text, u"sub\\x.h");
    EXPECT_NE(j.result, 0u);
}

TEST(PathJoin, ComponentsFollowOneSeparator) {
    Joined j = join(u"inc", u"x.h");
    EXPECT_EQ(j.text, u"inc\\x.h");
    EXPECT_EQ(j.result, 3u);
    j = join(u"inc\\", u"x.h");
    EXPECT_EQ(j.text, u"inc\\x.h");
    EXPECT_EQ(j.result, 4u);
    EXPECT_EQ(join(u"inc/", u"sys/x.h").text, u"inc/sys\\x.h");
    EXPECT_EQ(join(u"inc", u".\\sys\\\\.\\x.h").text, u"inc\\sys\\x.h");
}

TEST(PathJoin, DotDotDropsTheLastComponent) {
    Joined j = join(u"inc", u"..\\x.h");
    EXPECT_EQ(j.text, u"x.h");
    EXPECT_EQ(j.result, 3u);
    EXPECT_EQ(join(u"a\\b", u"..\\x.h").text, u"a\\x.h");
    EXPECT_EQ(join(u"a\\b\\", u"..\\x.h").text, u"a\\x.h");
    EXPECT_EQ(join(u"c:\\a\\b", u"..\\..\\x.h").text, u"c:\\x.h");
    EXPECT_EQ(join(u"\\", u"..\\x.h").text, u"\\x.h");
}

TEST(PathJoin, OtherComponentsStartingWithDotGiveZero) {
    for (const char16_t* name : {u".svn", u"..x", u"sub\\.hidden\\x.h", u"...\\x.h"}) {
        Joined j = join(u"inc", name);
        EXPECT_EQ(j.result, 0u) << j.text.size();
        EXPECT_EQ(j.text, u"");
    }
}

TEST(PathJoin, NeverWritesBeyondSize) {
    char16_t out[16];
    std::fill(std::begin(out), std::end(out), u'#');
    EXPECT_EQ(path_join(out, 8, u"include", u"windows.h"), 0u);
    EXPECT_EQ(out[0], 0);
    for (int i = 8; i < 16; ++i) EXPECT_EQ(out[i], u'#');
    std::fill(std::begin(out), std::end(out), u'#');
    EXPECT_EQ(path_join(out, 8, nullptr, u"windows.h"), 0u);
    for (int i = 8; i < 16; ++i) EXPECT_EQ(out[i], u'#');
    // Exactly fitting: seven units and the zero.
    EXPECT_EQ(path_join(out, 8, u"inc", u"x.h"), 3u);
    EXPECT_EQ(std::u16string(out), u"inc\\x.h");
}

TEST(PathFilePart, PartAfterLastSeparatorOrColon) {
    EXPECT_EQ(std::u16string(path_file_part(u"a\\b/c.rc")), u"c.rc");
    EXPECT_EQ(std::u16string(path_file_part(u"c:x.rc")), u"x.rc");
    EXPECT_EQ(std::u16string(path_file_part(u"x.rc")), u"x.rc");
    EXPECT_EQ(std::u16string(path_file_part(u"dir\\")), u"");
    EXPECT_EQ(std::u16string(path_file_part(nullptr)), u"");
}
