// The saved windows.h prelude of the extended dialect: a replay gives what
// reading the headers gives (text, messages, includes), and anything that
// could change that reading makes the headers be read again.
#include "cpp/pp_fixture.h"

#include "cpp/state.h"

#include <filesystem>
#include <fstream>

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

std::vector<std::string>* include_sink = nullptr;

struct Outcome {
    std::string text, messages, includes;
    bool replayed = false;
    uint32_t headers = 0; // the script's leading headers replayed
    bool operator==(const Outcome& o) const {
        return text == o.text && messages == o.messages && includes == o.includes;
    }
};

} // namespace

class PreludeCache : public PpTest {
  protected:
    void SetUp() override {
        PpTest::SetUp();
        write_file("inc/windows.h", "#ifndef _WINDOWS_\n#define _WINDOWS_\n"
                                    "#include \"a.h\"\n#include <b.h>\n#include \"a.h\"\n"
                                    "#define TWICE(x) ((x) + (x))\n#undef UNDONE\n#endif\n");
        write_file("inc/a.h", "#ifndef A_H\n#define A_H\n#define FROM_A 0x10L\n#endif\n");
        write_file("inc/b.h", "#define FROM_B __FILE__ __LINE__\n#if 0\nskipped\n#endif\n");
        write_file("first/other.h", "");
    }

    std::filesystem::path cache_dir() const { return dir_.string() + "-cache"; }
    size_t saved_files() const {
        if (!std::filesystem::exists(cache_dir())) return 0;
        return size_t(std::distance(std::filesystem::directory_iterator(cache_dir()), {}));
    }

    // One run in a just-loaded library, extended unless `classic`.
    Outcome run(const std::string& script, const std::string& name = "input.rc",
                const char* define = nullptr, bool classic = false) {
        reattach();
        diags.clear();
        if (!classic) set_extended_mode();
        std::vector<std::string> includes;
        include_sink = &includes;
        set_error_function_w(
            [](int32_t, const char16_t*, uint32_t, const char16_t* text) {
                include_sink->push_back("message: " + u8(text));
            },
            1);
        if (define) define_symbol_w(u16(define).c_str());
        // "first" is searched before "inc".
        add_include_path_w(wide(path_of("inc")).c_str());
        add_include_path_w(wide(path_of("first")).c_str());
        Outcome r;
        r.text = pp_file(write_file(name, script));
        r.replayed = tarn::cpp.preludeReplayed;
        r.headers = tarn::cpp.headersReplayed;
        enum_include_info_w(
            [](const char16_t* path, uint64_t) -> int32_t {
                include_sink->push_back(u8(path));
                return 1;
            },
            0);
        for (const std::string& s : includes) r.includes += s + "\n";
        include_sink = nullptr;
        return r;
    }
};

TEST_F(PreludeCache, ReplayGivesWhatReadingGives) {
    const std::string script = "FROM_A FROM_B TWICE(2) __LINE__\n#include <windows.h>\n"
                               "#include \"inc/a.h\"\nFROM_A\n";
    ScopedEnv off("TARN_CACHE_DIR", "");
    Outcome plain = run(script);
    EXPECT_EQ(saved_files(), 0u);
    off.set(cache_dir().string().c_str());
    Outcome cold = run(script);
    EXPECT_FALSE(cold.replayed);
    EXPECT_EQ(saved_files(), 1u);
    Outcome warm = run(script);
    EXPECT_TRUE(warm.replayed);
    EXPECT_EQ(cold, plain);
    EXPECT_EQ(warm, plain) << warm.text << "\n---\n" << plain.text;
    EXPECT_NE(plain.text.find("0x10L"), std::string::npos);

    // Another script replays the same prelude under its own name.
    ScopedEnv none("TARN_CACHE_DIR", "");
    const std::string second = "FROM_A TWICE(1)\n";
    Outcome other_plain = run(second, "sub/other.rc");
    none.set(cache_dir().string().c_str());
    Outcome other = run(second, "sub/other.rc");
    EXPECT_TRUE(other.replayed);
    EXPECT_EQ(other, other_plain);
    EXPECT_NE(other.text.find("other.rc"), std::string::npos) << other.text;
}

TEST_F(PreludeCache, ChangesMakeTheHeadersBeReadAgain) {
    const std::string script = "FROM_A FROM_B\n";
    const struct {
        const char* what;
        const char* file; // written
        const char* text;
        const char* expect; // in the text of the next run
    } changes[] = {
        {"a header edited", "inc/a.h", "#ifndef A_H\n#define A_H\n#define FROM_A 0x200L\n#endif\n",
         "0x200L"},
        {"a header of the same size edited", "inc/a.h",
         "#ifndef A_H\n#define A_H\n#define FROM_A 0x300L\n#endif\n", "0x300L"},
        {"a header found first elsewhere", "first/b.h", "#define FROM_B shadowed\n", "shadowed"},
    };
    for (const auto& c : changes) {
        SCOPED_TRACE(c.what);
        run(script);
        EXPECT_TRUE(run(script).replayed);
        write_file(c.file, c.text);
        Outcome changed = run(script);
        EXPECT_FALSE(changed.replayed);
        EXPECT_NE(changed.text.find(c.expect), std::string::npos) << changed.text;
        EXPECT_TRUE(run(script).replayed); // saved anew
    }
    // Other definitions before it: the saved prelude is replaced, not added to.
    EXPECT_FALSE(run(script, "input.rc", "OTHER=1").replayed);
    EXPECT_TRUE(run(script, "input.rc", "OTHER=1").replayed);
    EXPECT_FALSE(run(script).replayed);
    EXPECT_EQ(saved_files(), 1u);
}

TEST_F(PreludeCache, NotKeptWhenItCannotBeRepeated) {
    const struct {
        const char* what;
        const char* header;
    } cases[] = {
        {"a message", "#define X 1\n#define X 2\n"},
        {"a pragma", "#pragma code_page(1252)\n"},
        {"the date", "#define D __DATE__\nD\n"},
        {"the time", "#define T __TIME__\nT\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(cache_dir());
        write_file("inc/b.h", c.header);
        run("x\n");
        EXPECT_EQ(saved_files(), 0u);
    }
    write_file("inc/b.h", "\n");
    run("x\n", "input.rc", nullptr, true);
    EXPECT_EQ(saved_files(), 0u) << "the classic dialect reads the headers every time";
}

TEST_F(PreludeCache, DamagedFilesAreIgnoredAndReplaced) {
    const std::string script = "FROM_A\n";
    Outcome first = run(script);
    ASSERT_EQ(saved_files(), 1u) << first.includes;
    std::vector<std::filesystem::path> saved(std::filesystem::directory_iterator(cache_dir()), {});
    ASSERT_EQ(saved.size(), 1u);
    for (const std::filesystem::path& f : saved) {
        auto size = std::filesystem::file_size(f);
        for (auto cut : {size / 2, size - 1, uintmax_t(0)}) {
            std::filesystem::resize_file(f, cut);
            Outcome damaged = run(script);
            EXPECT_FALSE(damaged.replayed);
            EXPECT_EQ(damaged, first);
            EXPECT_EQ(std::filesystem::file_size(f), size);
        }
        std::vector<uint8_t> bytes = read_bytes(f);
        bytes[bytes.size() / 3] ^= 0x40;
        std::ofstream(f, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        Outcome flipped = run(script);
        EXPECT_FALSE(flipped.replayed);
        EXPECT_EQ(flipped, first);
    }
    EXPECT_TRUE(run(script).replayed);
}

// A header named as the output is refused as ever, not replayed over.
TEST_F(PreludeCache, AHeaderNamedAsTheOutputStays) {
    run("x\n");
    const std::string header = "#ifndef A_H\n#define A_H\n#define FROM_A 0x10L\n#endif\n";
    for (int i = 0; i < 2; ++i) {
        reattach();
        set_extended_mode();
        add_include_path_w(wide(path_of("inc")).c_str());
        std::filesystem::path in = write_file("input.rc", "1 RCDATA { FROM_A }\n");
        EXPECT_EQ(compile_script_w(wide(in).c_str(), wide(path_of("inc/a.h")).c_str()), 0);
        std::vector<uint8_t> now = read_bytes(path_of("inc/a.h"));
        EXPECT_EQ(std::string(now.begin(), now.end()), header);
    }
}

// However many include folder lists a user compiles with, the cache folder
// keeps a bounded number of files.
TEST_F(PreludeCache, TheFolderStaysSmall) {
    for (int i = 0; i < 40; ++i) {
        reattach();
        set_extended_mode();
        std::string extra = std::string("extra").append(std::to_string(i));
        write_file(extra + "/x.h", "");
        add_include_path_w(wide(path_of("inc")).c_str());
        add_include_path_w(wide(path_of(extra)).c_str());
        pp("x\n");
    }
    EXPECT_GT(saved_files(), 1u);
    EXPECT_LE(saved_files(), 16u);
}

// The headers a script includes before anything else (a resource.h of ten
// thousand IDs) are kept like the prelude, and give what reading them gives.
TEST_F(PreludeCache, LeadingHeadersReplayAsRead) {
    write_file("res.h",
               "#ifndef RES_H\n#define RES_H\n#define ID_ONE 101\n#define ID_TWO (ID_ONE + 1)\n"
               "#define PAIR(a, b) a ## b\n#undef FROM_A\n#define FROM_A 0x20L\n"
               "#include \"nested/inner.h\"\n#include <b.h>\n#include \"inc/a.h\"\n#endif\n");
    write_file("nested/inner.h", "#define INNER __FILE__\n#include \"near.h\"\n");
    write_file("nested/near.h", "#define NEAR 7\n");
    write_file("late.h", "#define LATE 9\n");
    const std::string script = "// the IDs\n\n#include \"res.h\"\n#include <windows.h>\n"
                               "/* twice:\n */ #include \"res.h\"\n"
                               "ID_ONE ID_TWO PAIR(x, y) FROM_A INNER NEAR __LINE__\n"
                               "#include \"late.h\"\nLATE\n";
    ScopedEnv off("TARN_CACHE_DIR", "");
    Outcome plain = run(script);
    off.set(cache_dir().string().c_str());
    Outcome cold = run(script);
    Outcome warm = run(script);
    EXPECT_EQ(cold.headers, 0u);
    EXPECT_TRUE(warm.replayed);
    EXPECT_EQ(warm.headers, 1u) << "res.h once; its second include stands in as guarded";
    EXPECT_EQ(cold, plain);
    EXPECT_EQ(warm, plain) << warm.text << "\n---\n" << plain.text;
    for (const char* expect : {"101", "(101 + 1)", "xy", "0x20L", "inner.h", "7", "9"})
        EXPECT_NE(plain.text.find(expect), std::string::npos) << expect << "\n" << plain.text;
    EXPECT_NE(plain.includes.find("near.h"), std::string::npos) << plain.includes;

    // A nested header edited, and another script's own res.h of the same name.
    write_file("nested/near.h", "#define NEAR 77\n");
    Outcome edited = run(script);
    EXPECT_EQ(edited.headers, 0u);
    EXPECT_NE(edited.text.find(" 77 "), std::string::npos) << edited.text;
    EXPECT_EQ(run(script).headers, 1u);
    write_file("sub/res.h", "#define ID_ONE 202\n");
    Outcome other = run("#include \"res.h\"\nID_ONE\n", "sub/other.rc");
    EXPECT_EQ(other.headers, 0u);
    EXPECT_NE(other.text.find("202"), std::string::npos) << other.text;
    EXPECT_NE(other.text.find("other.rc"), std::string::npos) << other.text;
}

// Twelve headers in a row are all kept, each in a file of its own: two whose
// keys chose the same file used to push each other out at every compile.
TEST_F(PreludeCache, AChainOfHeadersIsKeptWhole) {
    std::string script;
    for (int i = 0; i < 12; ++i) {
        std::string n = std::to_string(i);
        write_file("h" + n + ".h", "#define H" + n + " " + n + "0\n");
        script += "#include \"h" + n + ".h\"\n";
    }
    script += "H0 H5 H11\n";
    ScopedEnv off("TARN_CACHE_DIR", "");
    Outcome plain = run(script);
    off.set(cache_dir().string().c_str());
    run(script);
    for (int again = 0; again < 2; ++again) {
        Outcome warm = run(script);
        EXPECT_EQ(warm.headers, 12u);
        EXPECT_EQ(warm, plain);
    }
    EXPECT_NE(plain.text.find("00 50 110"), std::string::npos) << plain.text;
}

TEST_F(PreludeCache, OnlyTheFirstLinesHeadersAreKept) {
    write_file("res.h", "#ifdef EARLY\n#define ID_ONE 1\n#else\n#define ID_ONE 2\n#endif\n");
    write_file("warns.h", "#define W 1\n#define W 2\n");
    const struct {
        const char* what;
        const char* script;
        const char* expect;
    } cases[] = {
        {"after a definition", "#define EARLY\n#include \"res.h\"\nID_ONE\n", "\n1\n"},
        {"after text", "x\n#include \"res.h\"\nID_ONE\n", "\n2\n"},
        {"inside a conditional", "#if 1\n#include \"res.h\"\n#endif\nID_ONE\n", "\n2\n"},
        {"a header that warns", "#include \"warns.h\"\nW\n", "\n2\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Outcome first = run(c.script);
        Outcome again = run(c.script);
        EXPECT_EQ(again.headers, 0u);
        EXPECT_EQ(again, first);
        EXPECT_NE(again.text.find(c.expect), std::string::npos) << again.text;
    }
    EXPECT_NE(run("#include \"warns.h\"\n").includes.find("message: "), std::string::npos)
        << "the warning comes every time";
}

// Far enough down that the preprocessor has moved to its own thread, a
// header is captured and replayed there, and the compile gives the same bytes.
TEST_F(PreludeCache, LeadingHeadersOnThePreprocessorsThread) {
    std::string ids;
    for (int i = 0; i < 2000; ++i)
        ids += "#define ID_" + std::to_string(i) + " " + std::to_string(100 + i) + "\n";
    write_file("res.h", "#ifndef RES_H\n#define RES_H\n" + ids + "#endif\n");
    std::string script(60000, '\n');
    script += "#include \"res.h\"\n";
    for (int i = 0; i < 2000; i += 7)
        script += "ID_" + std::to_string(i) + " RCDATA { ID_" + std::to_string(i + 1) + " }\n";
    std::filesystem::path in = write_file("long.rc", script);
    std::vector<std::vector<uint8_t>> outputs;
    std::vector<uint32_t> replayed;
    for (const char* cache : {"", "cache", "cache"}) {
        ScopedEnv env("TARN_CACHE_DIR", *cache ? cache_dir().string().c_str() : "");
        reattach();
        set_extended_mode();
        add_include_path_w(wide(path_of("inc")).c_str());
        std::filesystem::path out = path_of("long.res");
        ASSERT_EQ(compile_script_w(wide(in).c_str(), wide(out).c_str()), 1);
        outputs.push_back(read_bytes(out));
        replayed.push_back(tarn::cpp.headersReplayed);
    }
    EXPECT_EQ(replayed, (std::vector<uint32_t>{0, 0, 1}));
    EXPECT_EQ(outputs[1], outputs[0]);
    EXPECT_EQ(outputs[2], outputs[0]);
    EXPECT_GT(outputs[0].size(), 280u * 32u);
}
