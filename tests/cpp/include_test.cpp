// #include: the search order, names in angle brackets and from macros, the
// depth limit and the windows.h prelude.
#include "cpp/pp_fixture.h"

#include <filesystem>

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
    // fN.h includes fN+1.h, for N below `last`, which holds "deep". (The
    // names are appended: "literal" + a temporary string draws a false
    // -Wrestrict from g++ 12 at -O3.)
    void write_chain(int first, int last) {
        auto name = [](int n) { return std::string("f").append(std::to_string(n)).append(".h"); };
        for (int n = first; n < last; ++n)
            write_file(name(n), std::string("#include \"").append(name(n + 1)).append("\"\n"));
        write_file(name(last), "deep\n");
    }
};

TEST_F(Include, QuotedNamesSearchTheIncludersFolderFirst) {
    write_file("sub/a.h", "#include \"b.h\"\n");
    write_file("sub/b.h", "sub_b\n");
    write_file("b.h", "top_b\n");
    EXPECT_EQ(lines(pp("#include \"sub/a.h\"\n")), "sub_b");
}

TEST_F(Include, SearchOrder) {
    // Quoted names: the includer's folder, then ".", then the added folders,
    // the last added first, then the "include" variable's folders. Angled
    // names skip the first two; not found, a name is opened as it stands,
    // relative to the current directory.
    write_file("main/input.rc",
               "#include \"x.h\"\n#include <y.h>\n#include \"z.h\"\n#include <w.h>\n");
    write_file("main/y.h", "main_y\n");
    write_file("main/z.h", "main_z\n");
    for (const char* name : {"x", "y", "z", "w"})
        write_file(std::string("cwd/") + name + ".h", std::string("cwd_") + name + "\n");
    write_file("d1/x.h", "d1_x\n");
    write_file("d1/y.h", "d1_y\n");
    write_file("d2/y.h", "d2_y\n");
    InFolder here(path_of("cwd"));
    reattach();
    add_include_path_w(wide(path_of("d1")).c_str());
    add_include_path_w(wide(path_of("d2")).c_str());
    EXPECT_EQ(lines(pp_file(path_of("main/input.rc"))), "cwd_x\nd2_y\nmain_z\ncwd_w");
}

TEST_F(Include, EnvironmentFoldersAndTheirRemoval) {
    write_file("std/s.h", "from_std\n");
    std::string value = ";"; // empty parts are skipped
    value += path_of("std").string() + ";;";
    ScopedEnv env("include", value.c_str());
    reattach();
    EXPECT_EQ(lines(pp("#include <s.h>\n")), "from_std");
    reattach();
    delete_standard_include_paths();
    EXPECT_EQ(fatal("#include <s.h>\n"), "fatal error: Can't find include file s.h.");
}

TEST_F(Include, NamesInAngleBracketsAndFromMacros) {
    // A name in angle brackets loses its white space.
    write_file("m.h", "m\n");
    write_file("inc/n.h", "n\n");
    write_file("inc/ab.h", "ab\n");
    add_include_path_w(wide(path_of("inc")).c_str());
    EXPECT_EQ(lines(pp("#define M \"m.h\"\n#define N <n.h>\n#include M\n#include N\n"
                       "#include <a b.h>\n")),
              "m\nn\nab");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Include, SyntaxErrors) {
    write_file("a.h", "a\n");
    EXPECT_EQ(pp("#include\n#include a.h\n#include \"a.h\" x\n#include <a.h\n#include \"\"\n"),
              marker(1));
    EXPECT_EQ(count("error: Syntax error in #include."), 5u);
}

TEST_F(Include, DepthLimit) {
    // 100 nested includes are allowed; the 101st is fatal.
    write_chain(1, 100);
    EXPECT_EQ(lines(pp("#include \"f1.h\"\n")), "deep");
    EXPECT_TRUE(diags.empty());
    write_chain(0, 101);
    reattach();
    EXPECT_EQ(fatal("#include \"f0.h\"\n"), "fatal error: #include too deeply nested.");
}

#ifndef _WIN32
TEST_F(Include, NamesAsAWindowsUserWritesThem) {
    write_file("sub/resource.h", "found\n");
    EXPECT_EQ(lines(pp("#include \"Sub\\Resource.H\"\n")), "found");
}
#endif

TEST_F(Include, WindowsPreludeOnTheFirstRunOnly) {
    EXPECT_EQ(pp("BSS_CAPTION\n"), marker(1) + "BSS_CAPTION\n"); // no windows.h: no prelude
    write_file("inc/windows.h", "#define FROM_WINDOWS_H 1\n");
    reattach();
    add_include_path_w(wide(path_of("inc")).c_str());
    std::string out = pp("__LINE__ BSS_CAPTION FROM_WINDOWS_H\n");
    // The prelude's lines come first; its "#line 1" restarts the count.
    EXPECT_NE(out.find("\n#line 1\n1 0x8000L 1\n"), std::string::npos) << out;
    EXPECT_TRUE(diags.empty());
    // The same load again: no prelude and, indeed, no text at all.
    EXPECT_EQ(pp("x\n"), "");
}

// A header included again while its guard's macro is defined gives the same
// text and diagnostics as reading it would: compared with a copy of it under
// another name, which is read, then named as the original.
TEST_F(Include, GuardedHeadersIncludedAgainAsIfRead) {
    const char* headers[] = {
        "#ifndef G\n#define G 1\nx\n#endif\n",
        "#ifndef G\n#define G\n#if 1\na\n#else\nb\n#endif\n#ifdef Q\nq\n#endif\n#endif\n\n\n",
        "#ifndef G\n#define G\n#else\nsecond\n#endif\n",          // an #else of the guard
        "#ifndef G\n#define G\n#elif 1\nsecond\n#endif\n",        // an #elif of the guard
        "#ifndef G\n#define G\n#endif\n/* after */\n",            // text after the guard
        "/* before */\n#ifndef G\n#define G\n#endif\n",           // text before it
        "#ifndef G\n#define G \\\n 1\n#endif\n",                  // a splice
        "#ifndef G\n#define G\n#undef G\n#endif\n",               // no macro left
        "#ifndef G\n#define G\n#if 0\n#foo\n#endif\n#endif\n",    // skipped, yet said
        "#ifndef G\n#define G\n#endif",                           // no last line end
        "#ifndef G\n#define G\n# 7 \"other.h\"\n#endif\n",        // a line directive
        "#ifndef G\n#define G\n#define F(a) a\nF(\n1)\n#endif\n", // a call over two lines
        "#ifndef G\n#define G\n#endif extra\n",                   // a warning on #endif
        "#ifndef G\n#define G\n#include \"inner.h\"\n#endif\n",
        "#ifndef G\n#define G\n#if 1\n#if 1\n#if 1\ndeep\n#endif\n#endif\n#endif\n#endif\n",
    };
    write_file("inner.h", "inner\n");
    for (const char* header : headers) {
        SCOPED_TRACE(header);
        write_file("h.h", header);
        write_file("c.h", header);
        diags.clear();
        std::string read = pp("#include \"h.h\"\n#include \"c.h\"\nG\n#include \"h.h\"\n");
        std::string said = messages();
        for (std::string* s : {&read, &said})
            for (size_t at; (at = s->find("c.h")) != std::string::npos;) s->replace(at, 3, "h.h");
        reattach();
        diags.clear();
        EXPECT_EQ(pp("#include \"h.h\"\n#include \"h.h\"\nG\n#include \"h.h\"\n"), read);
        EXPECT_EQ(messages(), said);
        reattach();
    }
}
