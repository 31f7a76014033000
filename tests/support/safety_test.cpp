// Safety of the files a compile touches: a failed compile deletes nothing it
// did not write, the output is whole whenever a compile succeeds, pipes and
// devices are refused as input at once, lost standard output is an error,
// and a requested stop is noticed inside a long statement.
#include "harness/harness.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include "resfile/writer.h"
#include "support/files.h"
#include "support/state.h"
#include <tarn/tarn.h>

#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace tarn;
namespace fs = std::filesystem;
using Names = std::vector<std::string>;

namespace {

class Safety : public tarn_test::FreshLibrary {
  protected:
    std::string contents(const std::string& name) {
        std::ifstream in(path_of(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    int32_t compile_to(const std::string& input, const std::u16string& output) {
        return compile_script_w(wide(path_of(input)).c_str(), output.c_str());
    }
};

constexpr const char* SCRIPT = "1 RCDATA BEGIN 1 END\n";

// The system's text for an error number (wine words them its own way).
std::string system_text(uint32_t error) {
    std::string t = tarn_test::u8(plat_system_message(error));
    return t.substr(0, t.find_last_not_of("\r\n") + 1);
}

// Every case compiles app.rc (which includes res.h) into the output named
// and names the files that must be exactly as they were before.
struct OutputCase {
    const char* what;
    std::function<std::u16string()> output; // sets up, gives the output path
    int32_t result;
    std::string message; // a part of the diagnostics; empty for none
};

TEST_F(Safety, FailedCompilesDeleteNothingTheyDidNotWrite) {
    int held = -1; // a reader's lock, as another compile's include takes it
    const OutputCase cases[] = {
        {"the script itself", [this] { return wide(path_of("app.rc")); }, 0,
         system_text(ERR_SHARING_VIOLATION)},
        {"an included header", [this] { return wide(path_of("res.h")); }, 0,
         system_text(ERR_SHARING_VIOLATION)},
        {"a folder", [this] { return wide(path_of("sub")); }, 0, system_text(ERR_ACCESS_DENIED)},
        {"a file in a missing folder", [this] { return wide(path_of("nodir") / "x.res"); }, 0,
         system_text(ERR_PATH_NOT_FOUND)},
#ifndef _WIN32
        {"a read-only file",
         [this] {
             fs::permissions(path_of("old.res"), fs::perms::owner_read | fs::perms::group_read |
                                                     fs::perms::others_read);
             return wide(path_of("old.res"));
         },
         0, system_text(ERR_ACCESS_DENIED)},
        {"a file another compile holds",
         [&held, this] {
             held = open(path_of("old.res").c_str(), O_RDONLY);
             EXPECT_EQ(flock(held, LOCK_SH), 0);
             return wide(path_of("old.res"));
         },
         0, "being used by another process"},
        {"the null device", [] { return std::u16string(u"/dev/null"); }, 1, ""},
#endif
    };
    for (const OutputCase& c : cases) {
        SCOPED_TRACE(c.what);
        diags.clear();
        reattach();
        write_file("app.rc", std::string("#include \"res.h\"\n") + SCRIPT);
        write_file("res.h", "#define ID 1\n");
        write_file("old.res", "old contents");
        fs::create_directories(path_of("sub"));
        std::u16string output = c.output();
        EXPECT_EQ(compile_to("app.rc", output), c.result);
        EXPECT_NE(messages().find(c.message), std::string::npos) << messages();
        EXPECT_EQ(contents("res.h"), "#define ID 1\n");
        EXPECT_EQ(contents("old.res"), "old contents");
        EXPECT_NE(contents("app.rc"), "");
        EXPECT_TRUE(fs::is_directory(path_of("sub")));
        EXPECT_EQ(files(), (Names{"app.rc", "old.res", "res.h", "sub"}));
        fs::permissions(path_of("old.res"), fs::perms::owner_all);
    }
#ifndef _WIN32
    if (held >= 0) close(held);
#else
    (void)held;
#endif
    // The plain file a failing compile would have replaced goes, as on
    // Windows, so that no stale output looks current to a build.
    reattach();
    write_file("app.rc", "#include \"res.h\"\n1 RCDATA BEGIN x END\n");
    write_file("old.res", "old contents");
    EXPECT_EQ(compile_to("app.rc", wide(path_of("old.res"))), 0);
    EXPECT_FALSE(fs::exists(path_of("old.res")));
    EXPECT_EQ(contents("res.h"), "#define ID 1\n");
}

TEST_F(Safety, SuccessReplacesTheOutputWhole) {
    write_file("app.rc", SCRIPT);
    write_file("out.res", std::string(5000, 'o'));
#ifndef _WIN32
    fs::permissions(path_of("out.res"),
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
#endif
#ifndef _WIN32
    // The old file is swapped out whole, never written over: a reader that
    // had it open still reads it.
    int old_reader = open(path_of("out.res").c_str(), O_RDONLY);
    ASSERT_GE(old_reader, 0);
#endif
    ASSERT_EQ(compile_to("app.rc", wide(path_of("out.res"))), 1);
    EXPECT_EQ(fs::file_size(path_of("out.res")), 32u + 32u + 4u);
#ifndef _WIN32
    char old_bytes[8] = {};
    EXPECT_EQ(pread(old_reader, old_bytes, sizeof old_bytes, 4000), ssize_t(sizeof old_bytes));
    EXPECT_EQ(std::string(old_bytes, sizeof old_bytes), std::string(8, 'o'));
    close(old_reader);
    EXPECT_EQ(fs::status(path_of("out.res")).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
#endif
    EXPECT_EQ(files(), (Names{"app.rc", "out.res"}));
#ifndef _WIN32
    // A symbolic link keeps pointing at its file; a file with other names
    // stays shared with them.
    write_file("target.res", "old");
    fs::create_symlink(path_of("target.res"), path_of("link.res"));
    write_file("shared.res", "old");
    fs::create_hard_link(path_of("shared.res"), path_of("other-name.res"));
    reattach(); // one compile per load of the library
    ASSERT_EQ(compile_to("app.rc", wide(path_of("link.res"))), 1);
    reattach();
    ASSERT_EQ(compile_to("app.rc", wide(path_of("shared.res"))), 1);
    EXPECT_TRUE(fs::is_symlink(path_of("link.res")));
    EXPECT_EQ(fs::file_size(path_of("target.res")), 68u);
    EXPECT_EQ(fs::file_size(path_of("other-name.res")), 68u);
    EXPECT_EQ(files(), (Names{"app.rc", "link.res", "other-name.res", "out.res", "shared.res",
                              "target.res"}));
#endif
}

#ifndef _WIN32
// What Windows refuses to delete, the POSIX layer refuses too.
TEST_F(Safety, DeleteRefusesWhatWindowsRefuses) {
    write_file("open.txt", "x");
    write_file("ro.txt", "x");
    write_file("plain.txt", "x");
    fs::create_directories(path_of("dir"));
    fs::permissions(path_of("ro.txt"), fs::perms::owner_read);
    ASSERT_EQ(mkfifo(path_of("pipe").c_str(), 0666), 0);
    ScopedFile held;
    ASSERT_EQ(file_open_read(wide(path_of("open.txt")).c_str(), &held.handle), 0u);
    const struct {
        const char* name;
        uint32_t error;
    } cases[] = {
        {"open.txt", ERR_SHARING_VIOLATION}, {"ro.txt", ERR_ACCESS_DENIED},
        {"dir", ERR_ACCESS_DENIED},          {"pipe", ERR_ACCESS_DENIED},
        {"missing.txt", ERR_FILE_NOT_FOUND}, {"plain.txt", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        bool existed = fs::exists(fs::symlink_status(path_of(c.name)));
        EXPECT_EQ(file_delete(wide(path_of(c.name)).c_str()), c.error);
        EXPECT_EQ(fs::exists(fs::symlink_status(path_of(c.name))), existed && c.error != 0);
    }
}

// Pipes, devices and files whose size says nothing are refused at once,
// as a script, an include or a resource file.
TEST_F(Safety, SpecialFilesAreRefusedAtOnce) {
    ASSERT_EQ(mkfifo(path_of("pipe").c_str(), 0666), 0);
    fs::create_directories(path_of("dir"));
    const std::string refused = "error: The system cannot open the device or file specified.";
    for (auto [script, message] :
         {std::pair{"1 RCDATA \"pipe\"\n", refused},
          {"1 RCDATA \"/dev/zero\"\n", refused},
          {"1 RCDATA \"/proc/self/maps\"\n", refused},
          {"1 RCDATA \"dir\"\n", std::string("error: Access is denied.")},
          {"#include \"pipe\"\n", std::string("fatal ").append(refused)}}) {
        SCOPED_TRACE(script);
        diags.clear();
        reattach();
        EXPECT_EQ(compile(script), 0);
        EXPECT_EQ(messages(), message);
    }
    FileHandle f = nullptr;
    EXPECT_EQ(file_open_read(wide(path_of("pipe")).c_str(), &f), ERR_OPEN_FAILED);
    EXPECT_EQ(f, nullptr);
}

// A large string table is written by a second thread; a write it fails is
// reported as the compile's own would be, ahead of a duplicate id found
// later, and only once.
TEST_F(Safety, WritesBehindTheCompileFailAsItsOwn) {
    std::string script = "STRINGTABLE BEGIN\n";
    for (int id = 0; id < 20000; ++id)
        script += std::to_string(id) + " \"" + std::string(60, 'x') + "\"\n";
    for (bool duplicate : {false, true}) {
        SCOPED_TRACE(duplicate);
        // The id's block comes soon after the first full buffer (1 MiB), before the second.
        write_file("app.rc",
                   script + (duplicate ? "END\nSTRINGTABLE BEGIN 8645 \"again\" END\n" : "END\n"));
        diags.clear();
        reattach();
        EXPECT_EQ(compile_to("app.rc", u"/dev/full"), 0);
        EXPECT_EQ(messages(), "fatal error: There is not enough space on the disk.");
    }
}

// Standard output that cannot take the preprocessed text fails the run.
TEST_F(Safety, LostStandardOutputIsAnError) {
    write_file("app.rc", std::string(20000, '\n') + SCRIPT);
    struct sigaction ignore = {}, old = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &old);
    const struct {
        const char* what;
        std::function<int()> open_stdout; // the descriptor to put in place of 1
        const char* message;
    } cases[] = {
        {"a full disk", [] { return open("/dev/full", O_WRONLY); },
         "fatal error: There is not enough space on the disk."},
        {"a closed pipe",
         [] {
             int ends[2];
             if (pipe(ends) != 0) return -1;
             close(ends[0]);
             return ends[1];
         },
         "fatal error: The pipe has been ended."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        diags.clear();
        reattach();
        fflush(stdout);
        int saved = dup(1), replacement = c.open_stdout();
        ASSERT_GE(replacement, 0);
        dup2(replacement, 1);
        close(replacement);
        int32_t ok = preprocess_script_w(wide(path_of("app.rc")).c_str());
        dup2(saved, 1);
        close(saved);
        EXPECT_EQ(ok, 0);
        EXPECT_EQ(messages(), c.message);
    }
    sigaction(SIGPIPE, &old, nullptr);
}
#endif

// A stop is noticed by every read and write, not only between statements,
// and the output begun is removed.
TEST_F(Safety, AStopIsNoticedInsideAStatement) {
    write_file("data.bin", std::string(10000, 'd'));
    ScopedFile in;
    ASSERT_EQ(file_open_read(wide(path_of("data.bin")).c_str(), &in.handle), 0u);
    ASSERT_EQ(create_output(wide(path_of("out.res")).c_str()), 0u);
    set_abort_flag();
    char buffer[16];
    uint32_t got = 0;
    EXPECT_THROW(file_read(in.handle, buffer, sizeof buffer), AbortUnwind);
    EXPECT_THROW(file_read_some(in.handle, buffer, sizeof buffer, &got), AbortUnwind);
    EXPECT_THROW(copy_file_rest(in.handle), AbortUnwind);
    discard_output();
    EXPECT_EQ(files(), Names{"data.bin"});
    EXPECT_EQ(compile_to("data.bin", wide(path_of("out.res"))), 0);
    EXPECT_EQ(files(), Names{"data.bin"});
}

} // namespace
