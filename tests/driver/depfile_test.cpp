// Dependency files and -M rules: escaping for make, the file's layout, its
// atomic write, and what the library records for it, end to end.
#include <gtest/gtest.h>

#include <tarn/tarn.h>

#include <filesystem>

#include "harness/harness.h"
#include "makerule.h"
#include "output.h"

using namespace tarn_driver;
using namespace tarn_test;
using Args = std::vector<std::u16string>;

namespace {

TEST(MakeEscape, WhatMakeWouldMisread) {
    for (auto [path, escaped] : {
             std::pair{u"plain/path.rc", u"plain/path.rc"},
             {u"my dir/a b.ico", u"my\\ dir/a\\ b.ico"},
             {u"a#b", u"a\\#b"},
             {u"$x", u"$$x"},
             {u"dir:odd/a.rc", u"dir\\:odd/a.rc"},
             {u"C:\\src\\app.rc", u"C:\\src\\app.rc"}, // a drive letter's colon stays
             {u"x:y:z", u"x\\:y\\:z"},                 // a colon at 1 is a drive only once
             {u"dir\\ x", u"dir\\\\\\ x"},             // the backslash before a space is doubled
             {u"a\\\\#b", u"a\\\\\\\\\\#b"},
             {u"a\\b", u"a\\b"}, // elsewhere a backslash stays one
         })
        EXPECT_EQ(make_escape(path), escaped) << u8(std::u16string(path));
#ifndef _WIN32
    EXPECT_EQ(dependency_path(u"/src\\inc\\a.h"), u"/src/inc/a.h"); // as recorded
#endif
}

TEST(DepfileText, OnePrerequisiteALineAndEmptyRules) {
    std::u16string text = depfile_text({u"obj/app.o", u"$(OBJ)"}, u"app.rc",
                                       {u"res.h", u"app.rc", u"icons/a b.ico", u"res.h"});
    EXPECT_EQ(text, u"obj/app.o $(OBJ): app.rc \\\n"
                    u"  res.h \\\n"
                    u"  icons/a\\ b.ico\n"
                    u"\n"
                    u"res.h:\n"
                    u"\n"
                    u"icons/a\\ b.ico:\n");
    EXPECT_EQ(depfile_text({u"a.o"}, u"a.rc", {}), u"a.o: a.rc\n");
    EXPECT_EQ(make_rule(u"w:x/a.res", u"w:x/a.rc", {u"w:x/a.ico", u"w:x/a.ico"}),
              u"w\\:x/a.res: w\\:x/a.rc w\\:x/a.ico");
}

class DepfileWrite : public FreshLibrary {};

TEST_F(DepfileWrite, ReplacesTheFileWholeAndLeavesNoTemporary) {
    std::filesystem::path target = path_of("app.d");
    write_file("app.d", "old contents that are longer than the new ones\n");
    std::string why;
    ASSERT_TRUE(replace_file(wide(target), "a.o: a.rc\n", &why)) << why;
    std::vector<uint8_t> bytes = read_bytes(target);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "a.o: a.rc\n");
    EXPECT_EQ(files(), std::vector<std::string>{"app.d"});
    // A folder that does not exist: refused, nothing made.
    EXPECT_FALSE(replace_file(wide(path_of("no/such/dir/app.d")), "x", &why));
    EXPECT_FALSE(why.empty());
    EXPECT_FALSE(std::filesystem::exists(path_of("no")));
}

int32_t collect_include(const char16_t* path, uint64_t context) {
    reinterpret_cast<Args*>(uintptr_t(context))->push_back(dependency_path(path));
    return 1;
}

int32_t collect_file(const char16_t*, const char16_t*, uint16_t, const char16_t* path,
                     uint64_t context) {
    return collect_include(path, context);
}

// Every file a compilation reads, as a dependency file names them.
class DependencyRecords : public FreshLibrary {
  protected:
    Args compile_and_collect(bool extended) {
        write_file("inc/outer.h", "#include \"inner.h\"\n#define IDI_APP 1\n");
        write_file("inc/inner.h", "#include <angled.h>\n");
        write_file("sys/angled.h", "#define ANGLED 1\n");
        write_file("app.ico", std::string(ICON));
        write_file("cur.cur", std::string(CURSOR));
        write_file("pic.bmp", std::string("BM") + std::string(60, '\0'));
        write_file("data.bin", "raw");
        write_file("app.manifest", "<assembly/>");
        add_include_path_w(wide(path_of("inc")).c_str());
        add_include_path_w(wide(path_of("sys")).c_str());
        if (extended) set_extended_mode();
        set_error_function_w(nullptr, 1);
        int32_t ok = compile("#include \"outer.h\"\n"
                             "IDI_APP ICON \"app.ico\"\n"
                             "2 CURSOR \"cur.cur\"\n"
                             "3 BITMAP \"pic.bmp\"\n"
                             "4 RCDATA \"data.bin\"\n"
                             "1 24 \"app.manifest\"\n"
                             "5 MYTYPE \"data.bin\"\n");
        EXPECT_EQ(ok, 1) << messages();
        Args deps;
        enum_include_info_w(collect_include, uint64_t(uintptr_t(&deps)));
        enum_file_info_w(collect_file, uint64_t(uintptr_t(&deps)));
        for (std::u16string& d : deps) d = d.substr(d.find_last_of(u"/\\") + 1);
        return deps;
    }

    // One 1x1 image, 32 bits.
    static constexpr char ICON_BYTES[] =
        "\0\0\1\0\1\0\1\1\0\0\1\0\40\0\60\0\0\0\26\0\0\0"
        "\50\0\0\0\1\0\0\0\2\0\0\0\1\0\40\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
        "\377\377\377\377\0\0\0\0";
    static constexpr std::string_view ICON{ICON_BYTES, sizeof ICON_BYTES - 1};
    static constexpr char CURSOR_BYTES[] =
        "\0\0\2\0\1\0\1\1\0\0\0\0\0\0\60\0\0\0\26\0\0\0"
        "\50\0\0\0\1\0\0\0\2\0\0\0\1\0\40\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
        "\377\377\377\377\0\0\0\0";
    static constexpr std::string_view CURSOR{CURSOR_BYTES, sizeof CURSOR_BYTES - 1};
};

// The extended dialect records every include; the default one only quoted
// includes of the script itself.
TEST_F(DependencyRecords, EveryFileReadPerDialect) {
    EXPECT_EQ(compile_and_collect(true),
              (Args{u"outer.h", u"inner.h", u"angled.h", u"app.ico", u"cur.cur", u"pic.bmp",
                    u"data.bin", u"app.manifest", u"data.bin"}));
    reattach();
    EXPECT_EQ(compile_and_collect(false), (Args{u"outer.h", u"app.ico", u"cur.cur", u"pic.bmp",
                                                u"data.bin", u"app.manifest", u"data.bin"}));
}

} // namespace
