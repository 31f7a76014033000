// The driver program as users run it: its usage text, its messages about a
// bad command line, where -V writes when standard output carries the
// product, and scripts around the mingw-w64 headers compiled with no flags.
// Each case runs the built tarn in an empty environment (English messages,
// no "include" variable) unless it says otherwise.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#ifndef _WIN32
#include <sys/wait.h>
#endif

#include "mingw.h"
#include "usage.h"
#include "utf.h"

namespace fs = std::filesystem;

namespace {

std::string u8(const std::u16string& s) {
    return tarn_driver::to_utf8(s);
}

std::string read_text(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

int exit_status(int raw) {
#ifdef _WIN32
    return raw;
#else
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
#endif
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

class DriverProgram : public ::testing::Test {
  protected:
    void SetUp() override {
#ifdef _WIN32
        GTEST_SKIP() << "runs the program through a POSIX shell";
#endif
        dir_ = fs::temp_directory_path() /
               (std::string("tarn-program-") +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    void write(const std::string& name, const std::string& text) {
        std::ofstream(dir_ / name, std::ios::binary) << text;
    }
    // Runs tarn with `args` (shell words) in the case's folder; `env` adds
    // NAME=value words to the empty environment.
    Outcome run(const std::string& args, const std::string& env = "") {
        std::string command = "cd '" + dir_.string() + "' && env -i " + env + " '" + TARN_DRIVER +
                              "' " + args + " >out.txt 2>err.txt";
        Outcome r;
        r.status = exit_status(std::system(command.c_str()));
        r.out = read_text(dir_ / "out.txt");
        r.err = read_text(dir_ / "err.txt");
        return r;
    }
    fs::path dir_;
};

} // namespace

TEST(DriverUsage, OptionsInThePlatformsFormWithTheLongOptions) {
    std::string posix = u8(tarn_driver::usage_text(false));
    std::string windows = u8(tarn_driver::usage_text(true));
    for (const char* row :
         {"C<", "D<", "E ", "Fo<", "I<", "L<", "M ", "N ", "R ", "U<", "V ", "X "}) {
        EXPECT_NE(posix.find(std::string("\n-") + row), std::string::npos) << row;
        EXPECT_NE(windows.find(std::string("\n/") + row), std::string::npos) << row;
    }
    EXPECT_EQ(posix.find("\n/"), std::string::npos);
    for (const char* row : {"--extended ", "--dump <", "--dump-hex <", "--help ", "--version "}) {
        EXPECT_NE(posix.find(std::string("\n") + row), std::string::npos) << row;
        EXPECT_NE(windows.find(std::string("\n") + row), std::string::npos) << row;
    }
    EXPECT_NE(posix.find(" 0x409)"), std::string::npos);
}

TEST_F(DriverProgram, BadCommandLinesSayWhatWasTyped) {
    Outcome help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("\n-Fo<file>"), std::string::npos) << help.out;

    struct {
        const char *args, *env, *message;
    } cases[] = {
        {"-Z app.rc", "", "Unrecognized option -Z.\n"},
        {"--bogus app.rc", "", "Unrecognized option --bogus.\n"},
        {"app.rc -Fo", "", "Option -Fo needs a value.\n"},
        {"app.rc -I", "", "Option -I needs a value.\n"},
        {"-Lzz app.rc", "", "Invalid language: zz.\n"},
        {"-Cabc app.rc", "", "Invalid codepage: abc.\n"},
        {"app.rc -Fo", "LANG=sv_SE.UTF-8", "Alternativet -Fo behöver ett värde.\n"},
        {"-Z app.rc", "LANG=sv_SE.UTF-8", "Okänt alternativ -Z.\n"},
    };
    for (const auto& c : cases) {
        Outcome r = run(c.args, c.env);
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_EQ(r.err, c.message) << c.args;
        EXPECT_EQ(r.out, "") << c.args;
    }
}

// With -E standard output is the preprocessed text, with -M the make rule:
// the banner and the information lines go to standard error then.
TEST_F(DriverProgram, VerboseKeepsTheProductAlone) {
    write("app.rc", "1 RCDATA { 1 }\n");
    Outcome e = run("-X -V -E app.rc");
    EXPECT_EQ(e.status, 0) << e.err;
    EXPECT_EQ(e.out.rfind("#line 1 \"app.rc\"", 0), 0u) << e.out;
    EXPECT_EQ(e.out.find("Resource Compiler"), std::string::npos) << e.out;
    EXPECT_NE(e.err.find("Resource Compiler"), std::string::npos) << e.err;
    EXPECT_NE(e.err.find("Using codepage 1252."), std::string::npos) << e.err;

    Outcome m = run("-X -V -M app.rc");
    EXPECT_EQ(m.status, 0) << m.err;
    EXPECT_EQ(m.out, "app.res: app.rc\n");
    EXPECT_NE(m.err.find("Using codepage 1252."), std::string::npos) << m.err;

    Outcome v = run("-X -V app.rc");
    EXPECT_EQ(v.status, 0) << v.err;
    EXPECT_NE(v.out.find("Resource Compiler"), std::string::npos) << v.out;
    EXPECT_NE(v.out.find("Writing RCDATA"), std::string::npos) << v.out;
    EXPECT_EQ(v.err, "");
}

// The scripts: #include <windows.h>, <commctrl.h> and <winver.h>,
// with no flags, with -I to the headers, and what turns the help off.
TEST_F(DriverProgram, MingwHeadersWithNoFlags) {
    std::string headers;
    for (std::u16string_view f : tarn_driver::mingw_header_folders())
        if (tarn_driver::is_mingw_folder(f)) {
            headers = u8(std::u16string(f));
            break;
        }
    if (headers.empty())
        GTEST_SKIP() << "no mingw-w64 headers installed (Debian: mingw-w64-x86-64-dev)";
    write("app.rc", "#include <windows.h>\n#include <commctrl.h>\n#include <winver.h>\n"
                    "1 DIALOGEX 0, 0, 100, 50\nBEGIN\n"
                    "    CONTROL \"\", 10, WC_LISTVIEW, LVS_REPORT, 5, 5, 90, 40\nEND\n"
                    "1 VERSIONINFO\nFILEVERSION 1,0,0,0\nFILEOS VOS_NT_WINDOWS32\n"
                    "FILETYPE VFT_APP\nBEGIN\nEND\n");
    write("plain.rc", "1 RCDATA { 1 }\n");
    struct {
        std::string args, env;
        int status;
        std::string err; // a part of it; "" for none at all
    } cases[] = {
        {"app.rc", "", 0, ""},
        {"plain.rc", "", 0, ""},
        {"-I " + headers + " app.rc", "", 0, ""},
        {"app.rc", "include=" + headers, 0, ""},
        {"app.rc", "INCLUDE=/no/such/folder", 1, "Can't find include file windows.h."},
        {"-X app.rc", "", 1, "Can't find include file windows.h."},
        {"-U_INC_VADEFS plain.rc", "", 1, "VARARGS not implemented"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.env + " tarn " + c.args);
        fs::remove(dir_ / "app.res");
        Outcome r = run(c.args, c.env);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (c.err.empty())
            EXPECT_EQ(r.err, "");
        else
            EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    }
    Outcome v = run("-V app.rc");
    EXPECT_NE(v.out.find("Using the mingw-w64 headers in " + headers + ".\n"), std::string::npos)
        << v.out;
    EXPECT_NE(v.err.find("warning: Macro redefinition of 'UDS_HORZ'"), std::string::npos) << v.err;
}
