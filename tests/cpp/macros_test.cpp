// Macros: definitions and their messages, expansion with # and ##,
// rescanning and hidesets, calls across lines, built-in macros and the
// definitions made from outside.
#include "cpp/pp_fixture.h"

#include <regex>
#include <unordered_map>
#include <vector>

#include "cpp/state.h"
#include <tarn/tarn.h>

using namespace tarn_test;

class Macros : public PpTest {};

TEST_F(Macros, Expansion) {
    check({
        {"#define f(x) #x\nf(a  \"b\\c\")\n", "\"a \\\"b\\\\c\\\"\""},
        {"#define f(x) #x\nf(  'q' \\ z  )\n", "\"'q' \\ z\""},
        {"#define g(x) L#x\ng(abc)\n", "L\"abc\""},
        {"#define h(a,b) a##b\nh(x,1)\n", "x1"},
        {"#define c(a,b,d) a ## b ## d\nc(x, 1, y)\n", "x1y"}, // left to right
        {"#define p(a) x ## a ## 0x\np(1)\n", "x10x"},
        {"#define id(x) x\nid(a ## b)\n", "a ## b"}, // the arguments' ## are text
        // Rescanning stops at the hideset.
        {"#define r r+1\nr\n", "r+1"},
        {"#define a b\n#define b a\na b\n", "a b"},
        {"#define f(x) x(1)\n#define g(y) y+2\nf(g)\n", "1+2"},
        {"#define defined_too defined\ndefined defined_too\n", "defined defined"},
        // Arguments are expanded first, except where # takes them.
        {"#define two 2\n#define sq(x) ((x)*(x))\nsq(two)\n", "((2)*(2))"},
        {"#define str(x) #x\n#define xstr(x) str(x)\n#define N 4\nxstr(N) str(N)\n", "\"4\" \"N\""},
        // A replacement takes the white space of what it replaces; a blank
        // is added only where tokens would run together.
        {"#define X 1\na X b (X) X+X\n", "a 1 b (1) 1+1"},
        {"#define M -\na-M-b\n", "a- - -b"},
        {"#define E\na E+b [E]\n", "a +b []"},
        {"#define DIR res\n#define N 2\nDIR/app.ico xN N.5 N\n", "res/app.ico xN 2 .5 2"},
        // "()" passes no argument to a macro without parameters, one empty
        // argument to a macro with one.
        {"#define z() 0\n#define o(a) [a]\nz() o()\n", "0 []"},
        {"#define f (x) x\nf\n", "(x) x"}, // function-like only with "(" right after
        {"#undef defined\n#if defined\nyes\n#else\nno\n#endif\n", "no"},
        {"RC_INVOKED _WIN32\n", " 1"},
        {"#line 3 \"a\\b.rc\"\n__FILE__\n", "\"a\\\\b.rc\""},
    });
}

TEST_F(Macros, Messages) {
    std::string arg(600, 'x'); // counted twice: beyond the limit of 1,013
    check({
        {"#define f(x) #x\nf(a " + arg + ")\n", "\"a\"",
         "error: Stringified macro arg is too long."},
        {"#define h(a,b) a##b\nh(+,-)\n", "+-", "warning: Bad token (+-) produced by ##."},
        {"#define f(x) ## x\nf(1)\n", "## 1", "error: ## occurs at border of replacement."},
        {"#define f(x) #y x\nf(1)\n", "#y 1", "error: # not followed by macro parameter."},
        {"#define f(a,b) a+b\nf(1) f(1,2)\n", "f(1) 1+2",
         "error: Disagreement in number of macro arguments."},
        {"#define 1\n#define defined 2\n#define __LINE__ 3\n#define f(a,a) a\n#define g(a b) 1\n"
         "#define h(a,) 1\n#define X 1\n#define X 1\n#define X  1 \n#define X 2\n#define X() 2\n",
         "",
         "error: #defined token is not a name.\n"
         "error: #defined token 'defined' can't be redefined.\n"
         "error: #defined token '__LINE__' can't be redefined.\n"
         "error: Duplicate macro argument.\n"
         "error: Syntax error in macro parameters.\n"
         "error: Syntax error in macro parameters.\n"
         "warning: Macro redefinition of 'X'.\n"
         "warning: Macro redefinition of 'X'."},
    });
}

TEST_F(Macros, CallAcrossLines) {
    // The line after the call is announced by a marker.
    EXPECT_EQ(pp("#define f(x, y) [x y]\nf\n(1,\n 2) z\nnext __LINE__\n"),
              marker(1) + "\n[1 2] z\n" + marker(5) + "next 5\n");
    EXPECT_TRUE(diags.empty());
    // Looking for the "(" reads the next line into the same row.
    reattach();
    EXPECT_EQ(pp("#define f(x) x\nf\n#define g 1\ng\n"),
              marker(1) + "\nf\n#define g 1\n" + marker(4) + "g\n");
}

TEST_F(Macros, BrokenCalls) {
    EXPECT_EQ(pp("#define f(x) x\nf(1,\n"), marker(1) + "\nf(1,");
    EXPECT_EQ(count("error: End of file in macro arglist."), 1u);
    reattach();
    std::string params = "a0", args = "0";
    for (int i = 1; i < 32; ++i) {
        params.append(",a").append(std::to_string(i));
        args.append(",").append(std::to_string(i));
    }
    EXPECT_EQ(fatal("#define f(" + params + ") a31\nf(" + args + ")\n"),
              "fatal error: Sorry, too many macro arguments.");
}

TEST_F(Macros, OpenCommentMacroCutsTheLine) {
    define_symbol_w(u"CMT=/*");
    EXPECT_EQ(body(pp("a CMT b\nc\n")), "a\nc\n");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Macros, BuiltIns) {
    std::string out = body(pp("__LINE__ __FILE__\n__DATE__ __TIME__ __TARN__\n"));
    std::string file = path_of("input.rc").string();
    std::string escaped = std::regex_replace(file, std::regex(R"(\\)"), R"(\\)");
    EXPECT_EQ(out.substr(0, out.find('\n')), "1 \"" + escaped + "\"");
    std::string second = out.substr(out.find('\n') + 1);
    EXPECT_TRUE(std::regex_match(
        second,
        std::regex(R"("[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4}" "[0-9]{2}:[0-9]{2}:[0-9]{2}" 0\n)")))
        << second;
}

TEST_F(Macros, DefinitionsFromOutside) {
    define_symbol_w(u"EMPTY");
    define_symbol_w(u"TWO=2");
    define_symbol_w(u"PAIR=1 2");
    define_symbol_w(u"NONE=");
    undefine_symbol_w(u"_WIN32");
    EXPECT_EQ(lines(pp("[EMPTY] TWO PAIR [NONE] _WIN32\n")), "[] 2 1 2 [] _WIN32");
    EXPECT_TRUE(diags.empty());
    define_symbol_w(u"1X");
    undefine_symbol_w(u"A B");
    define_symbol_w(u"f(x)=x");
    EXPECT_EQ(messages(), "fatal error: Illegal -D or -U argument: 1X.\n"
                          "fatal error: Illegal -D or -U argument: A B.\n"
                          "fatal error: Illegal -D or -U argument: f(x)=x.");
    for (const Diagnostic& d : diags) EXPECT_FALSE(d.has_file);
}

TEST_F(Macros, HidesetsStopGrowingAtThirty) {
    using namespace tarn;
    hideset_start();
    Symbol symbols[31];
    uint16_t hs = 0;
    for (Symbol& s : symbols) hs = new_hideset(hs, &s);
    for (int i = 0; i < 30; ++i) EXPECT_TRUE(check_hideset(hs, &symbols[i]));
    EXPECT_FALSE(check_hideset(hs, &symbols[30]));
    // Sets are interned: the same members in any order give the same index.
    EXPECT_EQ(new_hideset(new_hideset(0, &symbols[1]), &symbols[0]),
              new_hideset(new_hideset(0, &symbols[0]), &symbols[1]));
}

// The table compares a name only where its hash and length match another's:
// among this many names of one length some hashes are equal, and each name
// must still find its own symbol.
TEST_F(Macros, NamesWithOneHashKeepTheirOwnSymbols) {
    using namespace tarn;
    constexpr int COUNT = 200000;
    std::vector<std::u16string> names;
    for (int i = 0; i < COUNT; ++i) {
        std::string digits = std::to_string(1000000 + i);
        // Appended apart: g++ 12 warns falsely on u"N" + string.
        std::u16string& name = names.emplace_back(u"N");
        name.append(digits.begin(), digits.end());
    }
    std::vector<Symbol*> installed;
    for (const std::u16string& n : names)
        installed.push_back(lookup_name(n.data(), n.size(), true));
    std::unordered_map<uint32_t, int> by_hash;
    int shared = 0;
    for (Symbol* s : installed) shared += by_hash[s->hash]++ > 0;
    ASSERT_GT(shared, 0) << "no two names share a hash: the test tests nothing";
    for (int i = 0; i < COUNT; ++i) {
        Symbol* s = lookup_name(names[i].data(), names[i].size(), false);
        ASSERT_EQ(s, installed[i]) << i;
        EXPECT_EQ(std::u16string(s->name, s->len), names[i]);
    }
}
