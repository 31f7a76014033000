// Scripts made of random fragments (directives, macro definitions and
// calls, literals, comments, splices, marker units, stray bytes) must never
// crash or read out of bounds, whatever they report. Deterministic seeds; the
// sanitizer build is where this earns its keep.
#include "cpp/pp_fixture.h"

#include <cstdlib>
#include <random>

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

// clang-format off
const char* const FRAGMENTS[] = {
    "#define ", "#undef ", "#if ", "#ifdef ", "#ifndef ", "#elif ", "#else", "#endif", "#line ",
    "#include ", "#error ", "#pragma ", "# ", "#", "##", " ## ", "f(", "g(", ")", "(", ",", "f",
    "g", "X", "Y", "defined", "defined(", "__LINE__", "__FILE__", "__DATE__", "1", "0x7f",
    "'a'", "'\\x", "L'", "\"s\"", "L\"w\"", "\"", "'", "/*", "*/", "//", "\\\n", "\\\r\n", "\\",
    "\n", "\r\n", " ", "\t", "+", "-", "*", "/", "%", "<<", ">>", "?", ":", "&&", "||", "!",
    "~", "<", ">", "=", "==", ".", "..", "...", "1_0", "\x1a", "\x1b", "\xff", "\xc3\xa9",
    "\x80", "\f", "#define f(a,b) a##b #a b\n", "#define g(x) f(x,x) g\n", "#define X X Y\n",
    "#define Y (X+1)\n", "#if defined(X) && X\n", "#include \"self.rc\"\n", "#include <none.h>\n",
};
// clang-format on

std::string random_script(std::mt19937& rng) {
    std::uniform_int_distribution<size_t> pick(0, std::size(FRAGMENTS) - 1);
    std::uniform_int_distribution<int> length(1, 120);
    std::string s;
    for (int i = length(rng); i > 0; --i) s += FRAGMENTS[pick(rng)];
    return s;
}

} // namespace

class Robustness : public PpTest {};

TEST_F(Robustness, RandomScripts) {
    // TARN_FUZZ_RUNS and TARN_FUZZ_SEED make longer runs by hand.
    const char* runs_text = std::getenv("TARN_FUZZ_RUNS");
    const char* seed_text = std::getenv("TARN_FUZZ_SEED");
    int runs = runs_text ? std::atoi(runs_text) : 200;
    std::mt19937 rng(seed_text ? static_cast<unsigned>(std::atoi(seed_text)) : 20261122u);
    for (int i = 0; i < runs; ++i) {
        std::string script = random_script(rng);
        reattach();
        write_file("self.rc", "#include \"self.rc\"\n");
        std::string out = pp(script);
        if (i % 2) {
            reattach();
            pp("\xEF\xBB\xBF" + script);
        }
    }
    SUCCEED();
}

// Inputs the fuzzer found; each once ended in undefined behaviour.
TEST_F(Robustness, FuzzerFindings) {
    const char* const scripts[] = {
        "#line 2147483647\nx\ny\n", // the line count after it overflowed
        "# 2147483647\nx\n",
    };
    for (const char* script : scripts) {
        SCOPED_TRACE(script);
        reattach();
        bool ok = false;
        std::string out = pp(script, &ok);
        EXPECT_TRUE(ok);
        EXPECT_NE(out.find("\nx\n"), std::string::npos);
    }
}
