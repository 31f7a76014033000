// The mingw-w64 headers as the driver's standard headers: which folder it
// takes and when, what it defines, whose warnings it keeps quiet, and
// (where the Debian package mingw-w64-x86-64-dev is installed) that the
// scripts users write around those headers compile with that set-up alone.
#include "cpp/pp_fixture.h"

#include <filesystem>
#include <optional>

#include "messages.h"
#include "mingw.h"
#include <tarn/tarn.h>

using namespace tarn_test;
using namespace tarn_driver;

namespace {

using Strings = std::vector<std::u16string>;

SymbolAction define(const char16_t* text) {
    return {true, text};
}
SymbolAction undefine(const char16_t* text) {
    return {false, text};
}

// The first folder of the driver's list that holds the headers here.
[[maybe_unused]] std::u16string installed_headers() {
    for (std::u16string_view folder : mingw_header_folders())
        if (is_mingw_folder(folder)) return std::u16string(folder);
    return u"";
}

} // namespace

class DriverMingwPlan : public FreshLibrary {
  protected:
    void SetUp() override {
        FreshLibrary::SetUp();
        // Folders that look like the headers' (both marker files) and two
        // that do not.
        for (const char* folder : {"a", "b", "c"}) {
            write_file(std::string(folder) + "/_mingw.h", "");
            write_file(std::string(folder) + "/windows.h", "");
        }
        write_file("half/windows.h", "");
        std::filesystem::create_directories(path_of("empty"));
        folder_half = folder("half"), folder_a = folder("a"), folder_b = folder("b");
    }
    std::u16string folder(const char* name) const { return wide(path_of(name)); }
    SystemHeaders plan(const Options& o, std::optional<std::u16string> variable = std::nullopt) {
        std::u16string_view candidates[] = {u"/no/such/folder", folder_half, folder_a, folder_b};
        return plan_system_headers(o, variable, candidates);
    }
    std::u16string folder_half, folder_a, folder_b;
};

TEST_F(DriverMingwPlan, FirstFolderHoldingTheHeadersUnlessToldOtherwise) {
    const Strings both = {u"_INC_VADEFS", u"_MALLOC_H_"};
    struct Case {
        const char* what;
        Options options;
        std::optional<std::u16string> variable;
        bool searched;
        std::u16string found;
        Strings folders, definitions;
    };
    Options x;
    x.no_standard_includes = true;
    Options x_with_c = x;
    x_with_c.include_paths = {folder("c"), folder("empty")};
    Options with_b;
    with_b.include_paths = {folder_b};
    Case cases[] = {
        {"no options", {}, std::nullopt, true, folder_a, {folder_a}, both},
        {"-X", x, std::nullopt, false, u"", {}, {}},
        {"an include variable", {}, u"/usr/include;/x", false, u"", {}, {}},
        {"-X and -I to the headers", x_with_c, std::nullopt, false, u"", {folder("c")}, both},
        {"-I to the headers as well",
         with_b,
         std::nullopt,
         true,
         folder_a,
         {folder_a, folder_b},
         both},
        {"the variable names the headers",
         {},
         std::u16string(u";").append(folder("c")).append(u";;").append(folder("empty")),
         false,
         u"",
         {folder("c")},
         both},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SystemHeaders h = plan(c.options, c.variable);
        EXPECT_EQ(h.searched, c.searched);
        EXPECT_EQ(h.found, c.found);
        EXPECT_EQ(h.folders, c.folders);
        EXPECT_EQ(h.definitions, c.definitions);
    }
}

TEST_F(DriverMingwPlan, NothingFoundNothingDefined) {
    std::u16string_view candidates[] = {folder_half, u"/no/such/folder"};
    SystemHeaders h = plan_system_headers({}, std::nullopt, candidates);
    EXPECT_TRUE(h.searched);
    EXPECT_EQ(h.found, u"");
    EXPECT_TRUE(h.folders.empty() && h.definitions.empty());
    EXPECT_EQ(system_headers_line(h), message(MSG_HEADERS_NOT_FOUND));
    EXPECT_EQ(system_headers_line(plan({})), message(MSG_HEADERS_USED, {folder_a}));
    Options x;
    x.no_standard_includes = true;
    EXPECT_EQ(system_headers_line(plan(x)), u"");
}

// A name the user defines or undefines is the user's: -U undoes a
// definition, and -D gives its own value without a redefinition warning.
TEST_F(DriverMingwPlan, TheUsersSymbolsWin) {
    struct {
        std::vector<SymbolAction> symbols;
        Strings definitions;
    } cases[] = {
        {{undefine(u"_INC_VADEFS")}, {u"_MALLOC_H_"}},
        {{define(u"_MALLOC_H_=1"), define(u"OTHER")}, {u"_INC_VADEFS"}},
        {{define(u"_MALLOC_H_(x)=x"), undefine(u"_INC_VADEFS")}, {}},
    };
    for (const auto& c : cases) {
        Options o;
        o.symbols = c.symbols;
        EXPECT_EQ(plan(o).definitions, c.definitions);
    }
}

TEST_F(DriverMingwPlan, FilesBelowAFolder) {
    struct {
        const char16_t *file, *folder;
        bool below;
    } cases[] = {
        {u"/usr/inc\\windows.h", u"/usr/inc", true}, // joined as the library joins
        {u"/usr/inc/../inc/x.h", u"/usr/inc", true},
        {u"/usr/include2/x.h", u"/usr/inc", false},
        {u"/usr/inc", u"/usr/inc", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(in_folder(c.file, c.folder), c.below) << u8(c.file) << " in " << u8(c.folder);
}

// Only warnings are kept quiet, only from those folders, and only when
// asked (-V shows them); the folder found is searched after the user's.
TEST_F(DriverMingwPlan, QuietWarningsFromTheHeadersOnly) {
    write_file("a/both.h", "#define X 1\n#define X 2\n");
    write_file("a/only.h", "#define Z 1\n#define Z 2\n");
    write_file("mine/both.h", "#define Y 1\n#define Y 2\n");
    SystemHeaders h = plan({});
    apply_system_headers(h, true);
    add_include_path_w(folder("mine").c_str());
    ASSERT_EQ(compile("#include <both.h>\n#include <only.h>\n"), 1) << messages();
    ASSERT_EQ(diags.size(), 2u) << messages();
    EXPECT_NE(diags[0].text.find("'Y'"), std::string::npos) << diags[0].text;
    EXPECT_NE(diags[1].text.find("'Z'"), std::string::npos) << diags[1].text;
    std::u16string mine = u16(diags[0].file), theirs = u16(diags[1].file);
    EXPECT_FALSE(quiet_diagnostic(0, mine.c_str()));
    EXPECT_TRUE(quiet_diagnostic(0, theirs.c_str()));
    EXPECT_FALSE(quiet_diagnostic(1, theirs.c_str()));
    EXPECT_FALSE(quiet_diagnostic(2, theirs.c_str()));
    EXPECT_FALSE(quiet_diagnostic(0, nullptr));
    apply_system_headers(h, false);
    EXPECT_FALSE(quiet_diagnostic(0, theirs.c_str()));
}

// The installed headers, with the driver's set-up and nothing else.
class DriverMingwHeaders : public PpTest {
  protected:
    void SetUp() override {
        PpTest::SetUp();
#ifdef _WIN32
        GTEST_SKIP() << "the driver uses the headers on other systems only";
#else
        headers_ = installed_headers();
        if (headers_.empty())
            GTEST_SKIP() << "no mingw-w64 headers installed (Debian: mingw-w64-x86-64-dev)";
#endif
    }
    // A just-loaded library set up as the driver sets it up by default.
    void prepare() {
        reattach();
        diags.clear();
        apply_system_headers(plan_system_headers({}, std::nullopt, mingw_header_folders()), true);
    }
    // The diagnostics that the driver would show.
    std::string shown() const {
        std::string all;
        for (const Diagnostic& d : diags)
            if (!quiet_diagnostic(d.severity, d.has_file ? u16(d.file).c_str() : nullptr))
                all += d.text;
        return all;
    }
    std::u16string headers_;
};

// Beyond windows.h, commctrl.h and winver.h (run end to end): the other
// headers scripts include, and common.ver.
TEST_F(DriverMingwHeaders, CommonScriptsCompile) {
    const std::string dialog = "1 DIALOGEX 0, 0, 200, 100\nBEGIN\n"
                               "    DEFPUSHBUTTON \"OK\", IDOK, 140, 80, 50, 14\nEND\n";
    const char* cases[] = {
        "#include <winres.h>\n#include <afxres.h>\n2 DIALOG 0, 0, 100, 50\nBEGIN\n"
        "    LTEXT \"x\", IDC_STATIC, 5, 5, 50, 10\nEND\n",
        "#include <stdlib.h>\n#include <malloc.h>\n#include <string.h>\n"
        "#include <tchar.h>\n#include <stdio.h>\n1 RCDATA { 1 }\n",
        "#include <windows.h>\n#include <shellapi.h>\n#include <richedit.h>\n#include <ole2.h>\n"
        "#include <commdlg.h>\n#include <dlgs.h>\n#include <prsht.h>\n#include <windowsx.h>\n"
        "#include <shlobj.h>\n#include <winsock2.h>\n",
        "#include <windows.h>\n"
        "#define VER_FILETYPE VFT_APP\n#define VER_FILESUBTYPE VFT2_UNKNOWN\n"
        "#define VER_FILEFLAGSMASK VS_FFI_FILEFLAGSMASK\n#define VER_FILEFLAGS 0\n"
        "#define VER_FILEOS VOS_NT_WINDOWS32\n#define VER_COMPANYNAME_STR \"Example\"\n"
        "#define VER_FILEDESCRIPTION_STR \"Example application\"\n"
        "#define VER_INTERNALNAME_STR \"app\"\n#define VER_ORIGINALFILENAME_STR \"app.exe\"\n"
        "#define VER_LEGALCOPYRIGHT_STR \"(C) Example\"\n#define VER_PRODUCTNAME_STR "
        "\"Example\"\n#define VER_PRODUCTVERSION 1,2,3,4\n"
        "#define VER_PRODUCTVERSION_STR \"1.2.3.4\"\n#include <common.ver>\n",
    };
    for (const char* script : cases) {
        SCOPED_TRACE(script);
        prepare();
        std::vector<uint8_t> res;
        EXPECT_EQ(compile(std::string(script).append(dialog), &res), 1) << messages();
        EXPECT_EQ(shown(), "");
        EXPECT_GT(res.size(), 32u);
    }
}

// ntverp.h with common.ver, as the system's own version resources use them:
// the headers parse (their L"..." strings are the script compiler's part).
TEST_F(DriverMingwHeaders, NtverpAndCommonVerPreprocess) {
    prepare();
    std::string out = pp("#include <windows.h>\n#include <ntverp.h>\n"
                         "#define VER_FILETYPE VFT_APP\n#define VER_FILESUBTYPE VFT2_UNKNOWN\n"
                         "#define VER_FILEDESCRIPTION_STR \"Example\"\n"
                         "#define VER_INTERNALNAME_STR \"app\"\n"
                         "#include <common.ver>\n");
    EXPECT_EQ(shown(), "");
    EXPECT_NE(out.find("VALUE \"FileDescription\",\"Example\""), std::string::npos);
}
