// The preprocessor's thread: a compile whose text is made ahead on a thread
// of its own gives what the same compile gives without one: the output, the
// messages (with their order, files and lines, all on the calling thread),
// the include records and the exit, whatever ends the run and wherever.
#include "harness/harness.h"

#include "cpp/state.h"

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

std::vector<std::string>* include_sink = nullptr;

struct Outcome {
    int32_t result = 0;
    std::vector<uint8_t> res;
    std::string messages, includes;
    bool all_on_caller = true;
};

std::string lines(size_t from, size_t to, const char* format) {
    std::string s;
    char line[200];
    for (size_t i = from; i < to; ++i) {
        std::snprintf(line, sizeof line, format, i, i, i);
        s += line;
    }
    return s;
}

} // namespace

class ReadAhead : public FreshLibrary {
  protected:
    enum Mode { NO_THREAD, THREAD_AT_ONCE, THREAD_LATER };

    Outcome run(const std::string& script, Mode mode, bool extended = true) {
        reattach(true);
        diags.clear();
        if (extended) set_extended_mode();
        add_include_path_w(wide(path_of("inc")).c_str());
        tarn::cpp.readAhead.after = mode == NO_THREAD ? UINT32_MAX : mode == THREAD_AT_ONCE ? 0 : 5;
        Outcome r;
        r.result = compile(script, &r.res);
        for (const Diagnostic& d : diags) {
            r.messages += d.file + ":" + std::to_string(d.line) + ": " + d.text;
            r.all_on_caller = r.all_on_caller && d.on_caller;
        }
        std::vector<std::string> includes;
        include_sink = &includes;
        enum_include_info_w(
            [](const char16_t* path, uint64_t) -> int32_t {
                include_sink->push_back(u8(path));
                return 1;
            },
            0);
        include_sink = nullptr;
        for (const std::string& s : includes) r.includes += s + "\n";
        return r;
    }

    // The script with and without the thread (at once, and after a few
    // pieces), in both dialects where asked; the plain run is returned.
    Outcome same_each_way(const std::string& script, bool classic_too = true) {
        Outcome plain;
        for (bool extended : {true, false}) {
            if (!extended && !classic_too) break;
            Outcome without = run(script, NO_THREAD, extended);
            for (Mode mode : {THREAD_AT_ONCE, THREAD_LATER}) {
                Outcome with = run(script, mode, extended);
                EXPECT_EQ(with.result, without.result);
                EXPECT_TRUE(with.res == without.res) << "extended " << extended;
                EXPECT_EQ(with.messages, without.messages) << "extended " << extended;
                EXPECT_EQ(with.includes, without.includes);
                EXPECT_TRUE(with.all_on_caller);
            }
            if (extended) plain = without;
        }
        return plain;
    }

    void SetUp() override {
        FreshLibrary::SetUp();
        write_file("inc/a.h", "#define FROM_A 7\n#define TWICE(x) ((x) + (x))\n");
        write_file("inc/b.h", "#ifndef B_H\n#define B_H\n#define FROM_B 9\n#endif\n");
        write_file("inc/warn.h", "#define FROM_A 8\n"); // redefined: a warning
    }
};

// Messages from both sides, interleaved, and includes all along a script
// long enough for every slot to be filled and reused several times.
TEST_F(ReadAhead, MessagesAndIncludesComeAsWithout) {
    std::string script = "#include \"a.h\"\n";
    for (int part = 0; part < 6; ++part) {
        script += lines(part * 400, part * 400 + 400,
                        "%zu RCDATA { TWICE(%zu), \"text of resource %zu\" }\n");
        script += "#include \"b.h\"\n#include \"warn.h\"\n#include \"a.h\"\n";
        script += "UNKNOWN_STATEMENT\n";         // the script's own warning
        script += "#define ODD(x\n";             // the preprocessor's error
        script += "STRINGTABLE { 1, FROM_B }\n"; // the script's error
    }
    Outcome r = same_each_way(script);
    EXPECT_EQ(r.result, 0);
    EXPECT_NE(r.messages.find("warn.h:1"), std::string::npos) << r.messages;
    EXPECT_NE(r.includes.find("b.h"), std::string::npos);
}

TEST_F(ReadAhead, CleanLongScript) {
    std::string script = "#include \"a.h\"\n" +
                         lines(0, 5000, "STRINGTABLE { %zu, \"string %zu\" }\n%zu RCDATA { 1 }\n");
    Outcome r = same_each_way(script);
    EXPECT_EQ(r.result, 1);
    EXPECT_FALSE(r.res.empty());
}

// A fatal report of the preprocessor's far on: what came before it is
// reported, nothing after, and nothing is kept.
TEST_F(ReadAhead, PreprocessorFatalLate) {
    std::string script = lines(0, 3000, "%zu RCDATA { %zu, %zu }\n") + "#include \"missing.h\"\n" +
                         lines(3000, 3100, "%zu RCDATA { %zu, %zu }\n#define TWICE\n");
    Outcome r = same_each_way(script);
    EXPECT_EQ(r.result, 0);
    EXPECT_TRUE(r.res.empty());
    EXPECT_NE(r.messages.find("missing.h"), std::string::npos) << r.messages;
}

// The script ends early while the thread reads far ahead into lines that
// would report: only those of the first piece (made before the script took
// it, as ever) reach the host.
TEST_F(ReadAhead, ScriptFatalEarly) {
    // Expressions nested past the parser's depth end the compile.
    std::string script = "1 RCDATA { 1 }\n2 RCDATA { " + std::string(1100, '(') + "1 }\n" +
                         lines(0, 4000, "#define REDEFINED %zu\n%zu RCDATA { %zu }\n");
    Outcome r = same_each_way(script);
    EXPECT_EQ(r.result, 0);
    EXPECT_NE(r.messages.find("input.rc:2: fatal"), std::string::npos) << r.messages;
    EXPECT_EQ(r.messages.find("input.rc:7999:"), std::string::npos);
}

// Lines longer than the script lexer's block (the modern dialect's lifted
// limits): the output's room grows while the thread fills a slot, and the
// text is handed over in parts, the same with and without.
TEST_F(ReadAhead, PiecesLongerThanTheLexersBlock) {
    std::string numbers;
    for (int i = 0; i < 20000; ++i) numbers += std::to_string(i % 10) + ",";
    std::string script = lines(0, 200, "%zu RCDATA { %zu, %zu }\n") + "5000 RCDATA { " + numbers +
                         "1 }\n" + lines(200, 400, "%zu RCDATA { %zu, %zu }\n") + "5001 RCDATA { " +
                         numbers + numbers + "2 }\n" +
                         lines(400, 3000, "%zu RCDATA { %zu, %zu }\n");
    Outcome r = same_each_way(script, false);
    EXPECT_EQ(r.result, 1);
}

// A loaded library serves one run: a second compile in the same load gets
// no text, with or without the thread in the first.
TEST_F(ReadAhead, SecondRunInOneLoad) {
    std::string script = lines(0, 3000, "%zu RCDATA { %zu, %zu }\n");
    Outcome first[2];
    std::vector<uint8_t> second[2];
    for (int with : {0, 1}) {
        first[with] = run(script, with ? THREAD_AT_ONCE : NO_THREAD);
        compile("1 RCDATA { 2 }\n", &second[with]);
    }
    EXPECT_EQ(first[0].res, first[1].res);
    EXPECT_EQ(first[0].messages, first[1].messages);
    EXPECT_EQ(second[0], second[1]);
}
