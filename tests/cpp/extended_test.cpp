// The extended dialect of the preprocessor: __DATE__ and __TIME__ from
// SOURCE_DATE_EPOCH, and the fixed limits that it lifts (line and string
// lengths, macro expansions, arguments and nesting), each against the
// fixed limit and message that the default dialect keeps.
#include "cpp/pp_fixture.h"

#include <regex>

#include <tarn/tarn.h>

using namespace tarn_test;

class Extended : public PpTest {
  protected:
    void extended() {
        reattach();
        diags.clear();
        set_extended_mode();
    }
};

TEST_F(Extended, SourceDateEpoch) {
    struct Case {
        const char* epoch;
        std::string text;
    } cases[] = {
        {"0", "\"Jan  1 1970\" \"00:00:00\""},
        {"951782400", "\"Feb 29 2000\" \"00:00:00\""},
        {"253402300799", "\"Dec 31 9999\" \"23:59:59\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.epoch);
        ScopedEnv env("SOURCE_DATE_EPOCH", c.epoch);
        extended();
        EXPECT_EQ(lines(pp("__DATE__ __TIME__\n")), c.text);
        EXPECT_EQ(messages(), "");
    }
    // A value that is no such number: a warning, and the clock.
    const std::regex clock(
        "\"[A-Z][a-z][a-z] [ 0-9][0-9] [0-9]{4}\" \"[0-9]{2}:[0-9]{2}:[0-9]{2}\"");
    for (const char* bad : {"-1", "12x", "253402300800"}) {
        SCOPED_TRACE(bad);
        ScopedEnv env("SOURCE_DATE_EPOCH", bad);
        extended();
        std::string out = lines(pp("__DATE__ __TIME__\n"));
        EXPECT_TRUE(std::regex_match(out, clock)) << out;
        EXPECT_EQ(messages(), std::string("warning: SOURCE_DATE_EPOCH is not a number of seconds "
                                          "since 1970: '") +
                                  bad + "'; the clock is used.");
    }
    // The default dialect takes the clock.
    ScopedEnv env("SOURCE_DATE_EPOCH", "0");
    reattach();
    diags.clear();
    std::string out = lines(pp("__DATE__ __TIME__\n"));
    EXPECT_TRUE(std::regex_match(out, clock)) << out;
    EXPECT_NE(out, cases[0].text);
    EXPECT_EQ(messages(), "");
}

namespace {

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

// A script beyond one fixed limit; what the default dialect says of it,
// and the text the extended dialect makes of it.
struct LimitCase {
    std::string name, script, fixed, text;
};

std::vector<LimitCase> limit_cases() {
    std::string defines, uses, chain, params, args;
    for (int i = 0; i < 70000; ++i) {
        defines += "#define M" + std::to_string(i) + " " + std::to_string(i % 10) + "\n";
        uses += " M" + std::to_string(i) + (i % 10 == 9 ? "\n" : "");
    }
    for (int i = 0; i < 31; ++i)
        chain += "#define A" + std::to_string(i) + " A" + std::to_string(i + 1) + "\n";
    for (int i = 0; i < 40; ++i) {
        params += (i ? ",p" : "p") + std::to_string(i);
        args += i ? "," : ""; // appended apart: g++ 12 warns falsely on "," + string
        args += std::to_string(i);
    }
    std::string line(40000, 'x');
    return {
        {"line", line + "\n", "fatal error: Input buffer overflow.", line},
        {"output", "#define B " + std::string(1000, 'x') + "\n" + repeat(" B", 13) + "\n",
         "fatal error: Internal error (put_tokens).", repeat(" " + std::string(1000, 'x'), 13)},
        {"string", "#define S(x) #x\nS(" + std::string(600, 'y') + ")\n",
         "error: Stringified macro arg is too long.", "\"" + std::string(600, 'y') + "\""},
        {"hidesets", defines + uses, "fatal error: Internal error (new_hideset).",
         repeat(" 0 1 2 3 4 5 6 7 8 9\n", 6999) + " 0 1 2 3 4 5 6 7 8 9"},
        // Past 30 members, the two last macros would expand each other for ever.
        {"hideset members", chain + "#define A31 A30\nA0\n", "", "A30"},
        {"arguments", "#define F(" + params + ") p39\n#define G(a) a\nG(F(" + args + "))\n",
         "fatal error: Sorry, too many macro arguments.", "39"},
        {"#if", repeat("#if 1\n", 40) + "in\n" + repeat("#endif\n", 40),
         "fatal error: #if too deeply nested.", "in"},
    };
}

} // namespace

TEST_F(Extended, LimitsLifted) {
    for (const LimitCase& c : limit_cases()) {
        SCOPED_TRACE(c.name);
        if (!c.fixed.empty()) {
            reattach();
            diags.clear();
            pp(c.script);
            EXPECT_EQ(messages().substr(0, c.fixed.size()), c.fixed);
        }
        extended();
        bool ok = false;
        std::string out = lines(pp(c.script, &ok));
        EXPECT_TRUE(ok);
        EXPECT_TRUE(out == c.text) << out.substr(0, 200); // the texts are long
        EXPECT_EQ(messages(), "");
    }
}

TEST_F(Extended, IncludesAsDeepAsMemoryHolds) {
    constexpr int DEPTH = 150;
    auto name = [](int i) { return std::string("i").append(std::to_string(i)).append(".h"); };
    for (int i = 0; i < DEPTH; ++i)
        write_file(name(i), i + 1 < DEPTH
                                ? std::string("#include \"").append(name(i + 1)).append("\"\n")
                                : std::string("deep\n"));
    EXPECT_EQ(fatal("#include \"i0.h\"\n"), "fatal error: #include too deeply nested.");
    extended();
    EXPECT_EQ(lines(pp("#include \"i0.h\"\n")), "deep");
    EXPECT_EQ(messages(), "");
}
