// The built driver end to end, in an empty environment (English messages, no
// "include" variable): a stop by signal in the middle of one huge statement,
// compiles racing into one output, standard output that cannot be written,
// bad command lines, where -V writes, the messages that name a file the
// library could not use, and scripts around the mingw-w64 headers.
#ifndef _WIN32
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "mingw.h"
#include "utf.h"

namespace {

namespace fs = std::filesystem;

struct Process {
    pid_t pid = -1;
    int status = -1;      // the exit status, or 128 + the signal that ended it
    std::string out, err; // standard output (when sent to out.txt) and error
};

std::string read_text(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class Driver : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               std::string("tarn-e2e-")
                   .append(std::to_string(getpid()) + "-")
                   .append(::testing::UnitTest::GetInstance()->current_test_info()->name());
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

    // Starts the driver in the test folder with `args` (words apart by
    // spaces) and `env` (NAME=value words) as its only environment;
    // standard output goes to `out`, standard error to a file.
    Process start(const std::string& args, const std::string& out = "out.txt",
                  const std::string& env = "") {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        std::string out_path = out[0] == '/' ? out : (dir_ / out).string();
        posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, (dir_ / "err.txt").c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        std::vector<std::string> words = {"/bin/sh",     "-c",  "cd \"$0\" && exec \"$@\"",
                                          dir_.string(), "env", "-i"};
        std::istringstream split(env + " " + TARN_DRIVER_PATH + " " + args);
        for (std::string w; split >> w;) words.push_back(w);
        std::vector<char*> argv;
        for (std::string& a : words) argv.push_back(a.data());
        argv.push_back(nullptr);
        Process r;
        EXPECT_EQ(posix_spawn(&r.pid, "/bin/sh", &actions, nullptr, argv.data(), nullptr), 0);
        posix_spawn_file_actions_destroy(&actions);
        return r;
    }
    void finish(Process* r, const std::string& out = "out.txt") {
        int status = 0;
        waitpid(r->pid, &status, 0);
        r->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (out[0] != '/') r->out = read_text(dir_ / out);
        r->err = read_text(dir_ / "err.txt");
    }
    Process run(const std::string& args, const std::string& env = "",
                const std::string& out = "out.txt") {
        Process r = start(args, out, env);
        finish(&r, out);
        return r;
    }
    // Whether the compile has begun its output: its own file beside out.res.
    bool output_begun() {
        for (const fs::directory_entry& e : fs::directory_iterator(dir_))
            if (e.path().filename().string().rfind(".out.res.tarn-", 0) == 0) return true;
        return false;
    }
    size_t entries() { return size_t(std::distance(fs::directory_iterator(dir_), {})); }

    fs::path dir_;
};

// One statement copies a file far larger than a compile takes to stop: the
// signal, sent once the output is begun, must end it there, with the
// shell's status for the signal, and leave nothing behind.
TEST_F(Driver, ASignalStopsOneHugeStatementAndRemovesTheOutput) {
    { std::ofstream big(dir_ / "huge.bin", std::ios::binary); }
    fs::resize_file(dir_ / "huge.bin", uint64_t(2) << 30); // sparse: no disk used
    write("app.rc", "1 RCDATA \"huge.bin\"\n");
    for (int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal_number);
        Process r = start("-Fo out.res app.rc", "/dev/null");
        while (!output_begun() && waitpid(r.pid, nullptr, WNOHANG) == 0) std::this_thread::yield();
        ASSERT_TRUE(output_begun());
        kill(r.pid, signal_number);
        finish(&r, "/dev/null");
        EXPECT_EQ(r.status, 128 + signal_number);
        EXPECT_EQ(r.err, "app.rc: aborted by user.\n");
        EXPECT_FALSE(output_begun());
        EXPECT_FALSE(fs::exists(dir_ / "out.res"));
        EXPECT_EQ(entries(), 3u); // app.rc, huge.bin, err.txt
    }
}

// Compiles racing into one output: whenever one reports success, the
// output is there and whole.
TEST_F(Driver, ConcurrentCompilesIntoOneOutput) {
    write("data.bin", std::string(size_t(3) << 20, 'd'));
    write("app.rc", "1 RCDATA \"data.bin\"\n2 RCDATA \"data.bin\"\n");
    ASSERT_EQ(run("-Fo ref.res app.rc").status, 0);
    uint64_t whole = fs::file_size(dir_ / "ref.res");
    for (int trial = 0; trial < 5; ++trial) {
        SCOPED_TRACE(trial);
        write("out.res", "an earlier output");
        std::vector<Process> runs;
        for (int i = 0; i < 8; ++i) runs.push_back(start("-Fo out.res app.rc", "/dev/null"));
        int succeeded = 0;
        for (Process& r : runs) {
            finish(&r, "/dev/null");
            succeeded += r.status == 0;
            EXPECT_TRUE(r.status == 0 || r.status == 1) << r.status;
        }
        ASSERT_TRUE(fs::exists(dir_ / "out.res"));
        EXPECT_EQ(fs::file_size(dir_ / "out.res"), succeeded ? whole : 17u);
        EXPECT_EQ(entries(), 6u); // app.rc, data.bin, ref.res, out.res, out.txt, err.txt
    }
}

// A large output replaced is let go of by a child that outlives the
// driver: what the driver leaves must be what it always left, the new
// output whole beside nothing else, or no output after a failure, and a
// reader of the old file keeps reading it whole.
TEST_F(Driver, ALargeOutputReplacedOrRemoved) {
    write("data.bin", std::string(size_t(1) << 20, 'd'));
    write("app.rc", "1 RCDATA \"data.bin\"\n");
    write("bad.rc", "1 RCDATA \"data.bin\"\n2 RCDATA \"missing.bin\"\n");
    ASSERT_EQ(run("-Fo ref.res app.rc").status, 0);
    std::string whole = read_text(dir_ / "ref.res");
    std::string old(size_t(3) << 20, 'o');
    for (const char* script : {"app.rc", "bad.rc"}) {
        SCOPED_TRACE(script);
        write("out.res", old);
        std::ifstream reader(dir_ / "out.res", std::ios::binary);
        Process r = run(std::string("-Fo out.res ") + script, "", "/dev/null");
        bool good = script == std::string("app.rc");
        EXPECT_EQ(r.status, good ? 0 : 1);
        if (good)
            EXPECT_EQ(read_text(dir_ / "out.res"), whole);
        else
            EXPECT_FALSE(fs::exists(dir_ / "out.res"));
        // app.rc, bad.rc, data.bin, ref.res, out.txt, err.txt and out.res
        EXPECT_EQ(entries(), good ? 7u : 6u);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), old);
    }
}

// Valgrind cannot follow a child that shares the driver's memory: under it
// the replaced output goes to a copy, and the compile must still end well.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TARN_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TARN_SANITIZED 1
#endif
#endif
TEST_F(Driver, ReplacingAnOutputUnderValgrind) {
#ifdef TARN_SANITIZED
    GTEST_SKIP() << "a sanitized driver does not run under valgrind";
#endif
    if (!fs::exists("/usr/bin/valgrind")) GTEST_SKIP() << "no valgrind";
    // The driver under valgrind with `args` (words apart by spaces); its exit status.
    auto under_valgrind = [&](const std::string& args) {
        std::vector<std::string> words = {"/usr/bin/valgrind", "-q", "--tool=none",
                                          "--error-exitcode=9", TARN_DRIVER_PATH};
        std::istringstream split(args);
        for (std::string w; split >> w;) words.push_back(w);
        std::vector<char*> argv;
        for (std::string& w : words) argv.push_back(w.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, (dir_ / "err.txt").c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = -1;
        int status = -1;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0)
            waitpid(pid, &status, 0);
        posix_spawn_file_actions_destroy(&actions);
        return status;
    };
    // Some valgrind cannot read some compilers' debugging data at all.
    if (under_valgrind("-?") != 0) GTEST_SKIP() << "valgrind cannot run this build";
    write("app.rc", "1 RCDATA { 1, 2, 3 }\n");
    ASSERT_EQ(run("-Fo ref.res app.rc").status, 0);
    write("out.res", "an earlier output");
    int status =
        under_valgrind("-Fo " + (dir_ / "out.res").string() + " " + (dir_ / "app.rc").string());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << status << " " << read_text(dir_ / "err.txt");
    EXPECT_EQ(read_text(dir_ / "out.res"), read_text(dir_ / "ref.res"));
}

TEST_F(Driver, LostStandardOutputFails) {
    write("app.rc", "#define X 1\n1 RCDATA BEGIN X END\n");
    for (auto [args, message] :
         {std::pair{"-E app.rc", "fatal error: There is not enough space on the disk.\n"},
          {"-M app.rc", "Cannot write to standard output: the output is incomplete.\n"},
          {"-?", "Cannot write to standard output: the output is incomplete.\n"}}) {
        SCOPED_TRACE(args);
        Process r = run(args, "", "/dev/full");
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, message);
    }
}

TEST_F(Driver, BadCommandLinesSayWhatWasTyped) {
    Process help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("\n-Fo<file>"), std::string::npos) << help.out;
    const struct {
        const char *args, *env, *message;
    } cases[] = {
        {"--bogus app.rc", "", "Unrecognized option --bogus.\n"},
        {"app.rc -Fo", "", "Option -Fo needs a value.\n"},
        {"-Lzz app.rc", "", "Invalid language: zz.\n"},
        {"-Cabc app.rc", "", "Invalid codepage: abc.\n"},
        {"app.rc -Fo", "LANG=sv_SE.UTF-8", "Alternativet -Fo behöver ett värde.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        Process r = run(c.args, c.env);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, c.message);
        EXPECT_EQ(r.out, "");
    }
}

// With -E standard output is the preprocessed text, with -M the make rule:
// the banner and the information lines go to standard error then.
TEST_F(Driver, VerboseKeepsTheProductAlone) {
    write("app.rc", "1 RCDATA { 1 }\n");
    Process e = run("-X -V -E app.rc");
    EXPECT_EQ(e.status, 0) << e.err;
    EXPECT_EQ(e.out.rfind("#line 1 \"app.rc\"", 0), 0u) << e.out;
    EXPECT_EQ(e.out.find("Resource Compiler"), std::string::npos) << e.out;
    EXPECT_NE(e.err.find("Resource Compiler"), std::string::npos) << e.err;
    EXPECT_NE(e.err.find("Using codepage 1252."), std::string::npos) << e.err;

    Process m = run("-X -V -M app.rc");
    EXPECT_EQ(m.status, 0) << m.err;
    EXPECT_EQ(m.out, "app.res: app.rc\n");
    EXPECT_NE(m.err.find("Using codepage 1252."), std::string::npos) << m.err;

    Process v = run("-X -V app.rc");
    EXPECT_EQ(v.status, 0) << v.err;
    EXPECT_NE(v.out.find("Writing RCDATA"), std::string::npos) << v.out;
    EXPECT_EQ(v.err, "");
}

// Failures whose system text names no file are preceded by a check that
// does.
TEST_F(Driver, FailuresNameTheFile) {
    write("app.rc", "1 RCDATA BEGIN 1 END\n");
    write("ro.res", "old");
    fs::permissions(dir_ / "ro.res", fs::perms::owner_read);
    fs::create_directories(dir_ / "folder");
    ASSERT_EQ(mkfifo((dir_ / "pipe.rc").c_str(), 0666), 0);
    write("icon.rc", "1 ICON \"cut.ico\"\n2 ICON \"missing.ico\"\n");
    write("cut.ico", std::string("\0\0\1\0\1\0", 6)); // one image, but no entry for it
    std::string icon_message =
        std::string("icon.rc(1): error: The system cannot read from the "
                    "specified device.\nThis concerns the file '")
            .append((dir_ / "cut.ico").string())
            .append("'.\nicon.rc(2): error: File not found: 'missing.ico'.\n");
    // After a resource that read a file well, the file in question is the
    // failing resource's own.
    fs::copy_file(fs::path(TARN_SOURCE_DIR) / "examples" / "app.ico", dir_ / "good.ico");
    write("icons.rc", "1 ICON \"good.ico\"\n2 ICON \"cut.ico\"\n");
    std::string icons_message = std::string("icons.rc(2): error: The system cannot read from the "
                                            "specified device.\nThis concerns the file '")
                                    .append((dir_ / "cut.ico").string())
                                    .append("'.\n");
    const struct {
        const char* args;
        std::string message;
    } cases[] = {
        {"-Fo nodir/x.res app.rc",
         "Cannot write the output file 'nodir/x.res': its folder does not exist.\n"},
        {"-Fo folder app.rc", "Cannot write the output file 'folder': it is a folder.\n"},
        {"-Fo ro.res app.rc", "Cannot write the output file 'ro.res': the file is read-only.\n"},
        {"pipe.rc", "Cannot read 'pipe.rc': it is not a file.\n"},
        {"icon.rc", icon_message},
        {"icons.rc", icons_message},
        {"-Fo ./app.rc app.rc", "Cannot write the output file './app.rc': it is the script.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        Process r = run(c.args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, c.message);
    }
    EXPECT_EQ(run("-Fo /dev/null app.rc").status, 0);
}

// The scripts: #include <windows.h>, <commctrl.h> and <winver.h>,
// with no flags, with -I to the headers, and what turns the help off.
TEST_F(Driver, MingwHeadersWithNoFlags) {
    std::string headers;
    for (std::u16string_view f : tarn_driver::mingw_header_folders())
        if (tarn_driver::is_mingw_folder(f)) {
            headers = tarn_driver::to_utf8(std::u16string(f));
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
    const struct {
        std::string args, env;
        int status;
        std::string err; // a part of it; "" for none at all
    } cases[] = {
        {"app.rc", "", 0, ""},
        {"plain.rc", "", 0, ""},
        {std::string("-I ").append(headers).append(" app.rc"), "", 0, ""},
        {"app.rc", std::string("include=").append(headers), 0, ""},
        {"app.rc", "INCLUDE=/no/such/folder", 1, "Can't find include file windows.h."},
        {"-X app.rc", "", 1, "Can't find include file windows.h."},
        {"-U_INC_VADEFS plain.rc", "", 1, "VARARGS not implemented"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.env).append(" tarn ").append(c.args));
        fs::remove(dir_ / "app.res");
        Process r = run(c.args, c.env);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (c.err.empty())
            EXPECT_EQ(r.err, "");
        else
            EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    }
    Process v = run("-V app.rc");
    EXPECT_NE(
        v.out.find(std::string("Using the mingw-w64 headers in ").append(headers).append(".\n")),
        std::string::npos)
        << v.out;
    EXPECT_NE(v.err.find("warning: Macro redefinition of 'UDS_HORZ'"), std::string::npos) << v.err;
}

} // namespace
#endif
