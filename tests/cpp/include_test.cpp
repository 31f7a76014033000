// #include: the search order, names in angle brackets and from macros, the
// depth limit, the dependency records, and the windows.h prelude.
#include "cpp/pp_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "api/state.h"
#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

// Runs the test from its own folder, so that "." is that folder; restores
// the current directory afterwards.
struct InFolder {
    std::filesystem::path saved = std::filesystem::current_path();
    explicit InFolder(const std::filesystem::path& p) { std::filesystem::current_path(p); }
    ~InFolder() { std::filesystem::current_path(saved); }
};

} // namespace

class Include : public PpTest {
  protected:
    std::string line_of(const std::filesystem::path& p, int line) const {
        return std::string("#line ")
            .append(std::to_string(line))
            .append(" \"")
            .append(p.string())
            .append("\"\n");
    }
    // fN.h includes fN+1.h.
    void write_chain_link(int n) {
        std::string text = "#include \"f";
        text += std::to_string(n + 1) + ".h\"\n";
        std::string name = "f";
        name += std::to_string(n) + ".h";
        write_file(name, text);
    }
    std::string joined(const std::filesystem::path& dir, const std::string& name) const {
        return dir.string() + "\\" + name; // the search joins with a backslash
    }
};

TEST_F(Include, MarkersAroundAnInclude) {
    write_file("a.h", "inside\n");
    std::string out = pp("before\n#include \"a.h\"\nafter\n");
    EXPECT_EQ(out, marker(1) + "before\n" + line_of(joined(dir_, "a.h"), 1) + "inside\n" +
                       marker(3) + "after\n");
}

TEST_F(Include, QuotedNamesSearchTheIncludersFolderFirst) {
    write_file("sub/a.h", "#include \"b.h\"\n");
    write_file("sub/b.h", "sub_b\n");
    write_file("b.h", "top_b\n");
    EXPECT_EQ(body(pp("#include \"sub/a.h\"\n")), "sub_b\n");
}

TEST_F(Include, SearchOrder) {
    // The main file's folder, then ".", then the added folders, the last
    // added first, then the "include" variable's folders.
    write_file("main/input.rc", "#include \"x.h\"\n#include <y.h>\n#include \"z.h\"\n");
    write_file("main/z.h", "main_z\n");
    write_file("cwd/x.h", "cwd_x\n");
    write_file("cwd/y.h", "cwd_y\n");
    write_file("cwd/z.h", "cwd_z\n");
    write_file("d1/x.h", "d1_x\n");
    write_file("d1/y.h", "d1_y\n");
    write_file("d2/y.h", "d2_y\n");
    InFolder here(path_of("cwd"));
    reattach();
    add_include_path_w(wide(path_of("d1")).c_str());
    add_include_path_w(wide(path_of("d2")).c_str());
    EXPECT_EQ(body(pp_file(path_of("main/input.rc"))), "cwd_x\nd2_y\nmain_z\n");
}

TEST_F(Include, AngledNamesSkipTheIncludersFolderAndDot) {
    write_file("main/x.h", "x\n");
    write_file("main/input.rc", "#include \"x.h\"\n#include <x.h>\n");
    write_file("cwd/x.h", "x\n");
    InFolder here(path_of("cwd"));
    reattach();
    bool ok = true;
    pp_file(path_of("main/input.rc"), &ok);
    // Not found, the name is opened as it stands, relative to the current
    // directory: so the angled name finds cwd/x.h all the same.
    EXPECT_TRUE(ok);
    std::filesystem::remove(path_of("cwd/x.h"));
    reattach();
    pp_file(path_of("main/input.rc"), &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count("Can't find include file x.h."), 1u);
}

TEST_F(Include, EnvironmentFoldersAndTheirRemoval) {
    std::filesystem::path std_dir = std::filesystem::temp_directory_path() / "tarn-env-include";
    std::filesystem::create_directories(std_dir);
    { std::ofstream(std_dir / "s.h", std::ios::binary) << "from_std\n"; }
    const char* old = std::getenv("include");
    std::string saved = old ? old : "";
    std::string value = ";";
    value += std_dir.string() + ";;"; // empty parts are skipped
    set_env("include", value.c_str());
    reattach();
    EXPECT_EQ(body(pp("#include <s.h>\n")), "from_std\n");
    reattach();
    delete_standard_include_paths();
    bool ok = true;
    pp("#include <s.h>\n", &ok);
    EXPECT_FALSE(ok);
    set_env("include", old ? saved.c_str() : nullptr);
    std::filesystem::remove_all(std_dir);
}

TEST_F(Include, NameInAngleBracketsLosesItsWhiteSpace) {
    write_file("inc/ab.h", "ab\n");
    add_include_path_w(wide(path_of("inc")).c_str());
    EXPECT_EQ(body(pp("#include <a b.h>\n")), "ab\n");
}

TEST_F(Include, NameFromAMacro) {
    write_file("m.h", "m\n");
    write_file("inc/n.h", "n\n");
    add_include_path_w(wide(path_of("inc")).c_str());
    EXPECT_EQ(body(pp("#define M \"m.h\"\n#define N <n.h>\n#include M\n#include N\n")),
              "\n\nm\nn\n");
}

TEST_F(Include, SyntaxErrors) {
    write_file("a.h", "a\n");
    std::string out =
        pp("#include\n#include a.h\n#include \"a.h\" x\n#include <a.h\n#include \"\"\n");
    EXPECT_EQ(out, marker(1));
    EXPECT_EQ(count("error: Syntax error in #include."), 5u);
}

TEST_F(Include, DepthLimit) {
    // 100 nested includes are allowed; the 101st is fatal.
    for (int i = 0; i < 100; ++i) write_chain_link(i);
    write_file("f100.h", "deep\n");
    EXPECT_EQ(body(pp("#include \"f1.h\"\n")), "deep\n");
    EXPECT_TRUE(diags.empty());
    reload();
    for (int i = 0; i <= 100; ++i) write_chain_link(i);
    bool ok = true;
    pp("#include \"f0.h\"\n", &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count("#include too deeply nested."), 1u);
}

TEST_F(Include, QuotedIncludesOfTheMainFileAreRecorded) {
    write_file("a.h", "#include \"b.h\"\n");
    write_file("b.h", "\n");
    write_file("inc/c.h", "\n");
    add_include_path_w(wide(path_of("inc")).c_str());
    set_error_function_w(nullptr, 1);
    pp("#include \"a.h\"\n#include <c.h>\n#include \"inc/c.h\"\n");
    const auto& records = tarn::compile_state.include_records;
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].path, wide(joined(dir_, "a.h")));
    EXPECT_EQ(records[1].path, wide(joined(dir_, "inc\\c.h")));
}

#ifndef _WIN32
TEST_F(Include, NamesAsAWindowsUserWritesThem) {
    write_file("sub/resource.h", "found\n");
    EXPECT_EQ(body(pp("#include \"Sub\\Resource.H\"\n")), "found\n");
}
#endif

TEST_F(Include, WindowsPreludeOnTheFirstRunOnly) {
    write_file("inc/windows.h", "#define FROM_WINDOWS_H 1\n");
    add_include_path_w(wide(path_of("inc")).c_str());
    std::string out = pp("__LINE__ BSS_CAPTION FROM_WINDOWS_H\n");
    // The prelude's lines come first; its "#line 1" restarts the count.
    EXPECT_NE(out.find("\n#line 1\n1 0x8000L 1\n"), std::string::npos) << out;
    EXPECT_TRUE(diags.empty());
    // The same load again: no prelude and, indeed, no text at all.
    EXPECT_EQ(pp("x\n"), "");
}

TEST_F(Include, NoPreludeWithoutWindowsH) {
    EXPECT_EQ(pp("BSS_CAPTION\n"), marker(1) + "BSS_CAPTION\n");
}
