// The built driver end to end: a stop by signal in the middle of one huge
// statement, standard output that cannot be written, and the messages that
// name a file the library could not use.
#ifndef _WIN32
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Process {
    pid_t pid = -1;
    int status = -1; // the exit status, or 128 + the signal that ended it
    std::string err; // standard error
};

class DriverSafety : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("tarn-e2e-" +
                std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    void write(const std::string& name, const std::string& text) {
        std::ofstream(dir_ / name, std::ios::binary) << text;
    }

    // Starts the driver in the test folder with `args`; standard output goes
    // to `out`, standard error to a file read back by finish.
    Process start(std::vector<std::string> args, const std::string& out = "/dev/null") {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, (dir_ / "stderr.txt").c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        std::string program = TARN_DRIVER_PATH, cwd = dir_.string();
        std::vector<std::string> shell = {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", cwd,
                                          program};
        shell.insert(shell.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : shell) argv.push_back(a.data());
        argv.push_back(nullptr);
        Process r;
        EXPECT_EQ(posix_spawn(&r.pid, "/bin/sh", &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return r;
    }
    void finish(Process* r) {
        int status = 0;
        waitpid(r->pid, &status, 0);
        r->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        std::ifstream in(dir_ / "stderr.txt", std::ios::binary);
        r->err = std::string(std::istreambuf_iterator<char>(in), {});
    }
    Process run(std::vector<std::string> args, const std::string& out = "/dev/null") {
        Process r = start(std::move(args), out);
        finish(&r);
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
TEST_F(DriverSafety, ASignalStopsOneHugeStatementAndRemovesTheOutput) {
    { std::ofstream big(dir_ / "huge.bin", std::ios::binary); }
    fs::resize_file(dir_ / "huge.bin", uint64_t(2) << 30); // sparse: no disk used
    write("app.rc", "1 RCDATA \"huge.bin\"\n");
    for (int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal_number);
        Process r = start({"-Fo", "out.res", "app.rc"});
        while (!output_begun() && waitpid(r.pid, nullptr, WNOHANG) == 0) std::this_thread::yield();
        ASSERT_TRUE(output_begun());
        kill(r.pid, signal_number);
        finish(&r);
        EXPECT_EQ(r.status, 128 + signal_number);
        EXPECT_EQ(r.err, "app.rc: aborted by user.\n");
        EXPECT_FALSE(output_begun());
        EXPECT_FALSE(fs::exists(dir_ / "out.res"));
        EXPECT_EQ(entries(), 3u); // app.rc, huge.bin, stderr.txt
    }
}

// Compiles racing into one output: whenever one reports success, the
// output is there and whole.
TEST_F(DriverSafety, ConcurrentCompilesIntoOneOutput) {
    write("data.bin", std::string(size_t(3) << 20, 'd'));
    write("app.rc", "1 RCDATA \"data.bin\"\n2 RCDATA \"data.bin\"\n");
    ASSERT_EQ(run({"-Fo", "ref.res", "app.rc"}).status, 0);
    uint64_t whole = fs::file_size(dir_ / "ref.res");
    for (int trial = 0; trial < 5; ++trial) {
        SCOPED_TRACE(trial);
        write("out.res", "an earlier output");
        std::vector<Process> runs;
        for (int i = 0; i < 8; ++i) runs.push_back(start({"-Fo", "out.res", "app.rc"}));
        int succeeded = 0;
        for (Process& r : runs) {
            finish(&r);
            succeeded += r.status == 0;
            EXPECT_TRUE(r.status == 0 || r.status == 1) << r.status;
        }
        ASSERT_TRUE(fs::exists(dir_ / "out.res"));
        EXPECT_EQ(fs::file_size(dir_ / "out.res"), succeeded ? whole : 17u);
        EXPECT_EQ(entries(), 5u); // app.rc, data.bin, ref.res, out.res, stderr.txt
    }
}

TEST_F(DriverSafety, LostStandardOutputFails) {
    write("app.rc", "#define X 1\n1 RCDATA BEGIN X END\n");
    const struct {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"-E", "app.rc"}, "fatal error: There is not enough space on the disk.\n"},
        {{"-M", "app.rc"}, "Cannot write to standard output: the output is incomplete.\n"},
        {{"-?"}, "Cannot write to standard output: the output is incomplete.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0]);
        Process r = run(c.args, "/dev/full");
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, c.message);
    }
}

// Failures whose system text names no file are preceded by a check that
// does.
TEST_F(DriverSafety, FailuresNameTheFile) {
    write("app.rc", "1 RCDATA BEGIN 1 END\n");
    write("ro.res", "old");
    fs::permissions(dir_ / "ro.res", fs::perms::owner_read);
    fs::create_directories(dir_ / "folder");
    ASSERT_EQ(mkfifo((dir_ / "pipe.rc").c_str(), 0666), 0);
    write("icon.rc", "1 ICON \"cut.ico\"\n2 ICON \"missing.ico\"\n");
    write("cut.ico", std::string("\0\0\1\0\1\0", 6)); // one image, but no entry for it
    std::string icon_message = "icon.rc(1): error: The system cannot read from the specified "
                               "device.\nThis concerns the file '" +
                               (dir_ / "cut.ico").string() +
                               "'.\nicon.rc(2): error: File not found: 'missing.ico'.\n";
    const struct {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"-Fo", "nodir/x.res", "app.rc"},
         "Cannot write the output file 'nodir/x.res': its folder does not exist.\n"},
        {{"-Fo", "folder", "app.rc"}, "Cannot write the output file 'folder': it is a folder.\n"},
        {{"-Fo", "ro.res", "app.rc"},
         "Cannot write the output file 'ro.res': the file is read-only.\n"},
        {{"pipe.rc"}, "Cannot read 'pipe.rc': it is not a file.\n"},
        {{"icon.rc"}, ""},
        {{"-Fo", "./app.rc", "app.rc"},
         "Cannot write the output file './app.rc': it is the script.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0]);
        Process r = run(c.args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, *c.message ? c.message : icon_message);
    }
    EXPECT_EQ(run({"-Fo", "/dev/null", "app.rc"}).status, 0);
}

} // namespace
#endif
