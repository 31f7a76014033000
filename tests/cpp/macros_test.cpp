// Macros: definitions and their messages, expansion with # and ##,
// rescanning and hidesets, calls across lines, built-in macros and the
// definitions made from outside.
#include "cpp/pp_fixture.h"

#include <regex>

#include "cpp/state.h"
#include <tarn/tarn.h>

using namespace tarn_test;

class Macros : public PpTest {
  protected:
    // The text of the script's last line after preprocessing, each script
    // in a library of its own (later definitions from outside stay).
    std::string last_line(const std::string& script) {
        if (ran_) reload();
        ran_ = true;
        std::string b = body(pp(script));
        if (b.empty()) return "(no text)";
        b.pop_back();
        size_t nl = b.rfind('\n');
        return nl == std::string::npos ? b : b.substr(nl + 1);
    }
    bool ran_ = false;
};

TEST_F(Macros, Stringizing) {
    EXPECT_EQ(last_line("#define f(x) #x\nf(a  \"b\\c\")\n"), "\"a \\\"b\\\\c\\\"\"");
    EXPECT_EQ(last_line("#define f(x) #x\nf(  'q' \\ z  )\n"), "\"'q' \\ z\"");
    EXPECT_EQ(last_line("#define g(x) L#x\ng(abc)\n"), "L\"abc\"");
}

TEST_F(Macros, StringizedArgumentIsLimited) {
    std::string arg(600, 'x'); // counted twice: beyond the limit of 1,013
    EXPECT_EQ(last_line("#define f(x) #x\nf(a " + arg + ")\n"), "\"a\"");
    EXPECT_EQ(count("error: Stringified macro arg is too long."), 1u);
}

TEST_F(Macros, Pasting) {
    EXPECT_EQ(last_line("#define h(a,b) a##b\nh(x,1)\n"), "x1");
    EXPECT_TRUE(diags.empty());
    EXPECT_EQ(last_line("#define h(a,b) a##b\nh(+,-)\n"), "+-");
    EXPECT_EQ(count("warning: Bad token (+-) produced by ##."), 1u);
}

TEST_F(Macros, PastingGoesLeftToRight) {
    EXPECT_EQ(last_line("#define c(a,b,d) a ## b ## d\nc(x, 1, y)\n"), "x1y");
    EXPECT_EQ(last_line("#define p(a) x ## a ## 0x\np(1)\n"), "x10x");
}

TEST_F(Macros, PasteOperatorsOfArgumentsAreText) {
    EXPECT_EQ(last_line("#define id(x) x\nid(a ## b)\n"), "a ## b");
}

TEST_F(Macros, PasteAtTheBorder) {
    last_line("#define f(x) ## x\nf(1)\n");
    EXPECT_EQ(count("error: ## occurs at border of replacement."), 1u);
}

TEST_F(Macros, HashNotFollowedByAParameter) {
    EXPECT_EQ(last_line("#define f(x) #y x\nf(1)\n"), "#y 1");
    EXPECT_EQ(count("error: # not followed by macro parameter."), 1u);
}

TEST_F(Macros, RescanningStopsAtTheHideset) {
    EXPECT_EQ(last_line("#define r r+1\nr\n"), "r+1");
    EXPECT_EQ(last_line("#define a b\n#define b a\na b\n"), "a b");
    EXPECT_EQ(last_line("#define f(x) x(1)\n#define g(y) y+2\nf(g)\n"), "1+2");
    EXPECT_EQ(last_line("#define defined_too defined\ndefined defined_too\n"), "defined defined");
}

TEST_F(Macros, ArgumentsArePreExpanded) {
    EXPECT_EQ(last_line("#define two 2\n#define sq(x) ((x)*(x))\nsq(two)\n"), "((2)*(2))");
    EXPECT_EQ(last_line("#define str(x) #x\n#define xstr(x) str(x)\n#define N 4\nxstr(N) str(N)\n"),
              "\"4\" \"N\"");
}

TEST_F(Macros, SpacingKeepsTokensApart) {
    // A replacement takes the white space of what it replaces; a blank is
    // added only where tokens would run together.
    EXPECT_EQ(last_line("#define X 1\na X b (X) X+X\n"), "a 1 b (1) 1+1");
    EXPECT_EQ(last_line("#define M -\na-M-b\n"), "a- - -b");
    EXPECT_EQ(last_line("#define E\na E+b [E]\n"), "a +b []");
    EXPECT_EQ(last_line("#define DIR res\n#define N 2\nDIR/app.ico xN N.5 N\n"),
              "res/app.ico xN 2 .5 2");
}

TEST_F(Macros, CallAcrossLines) {
    // The line after the call is announced by a marker.
    std::string out = pp("#define f(x, y) [x y]\nf\n(1,\n 2) z\nnext __LINE__\n");
    EXPECT_EQ(out, marker(1) + "\n[1 2] z\n" + marker(5) + "next 5\n");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Macros, NameWithoutCallStaysWithTheLineAfterIt) {
    // Looking for the "(" reads the next line into the same row.
    std::string out = pp("#define f(x) x\nf\n#define g 1\ng\n");
    EXPECT_EQ(out, marker(1) + "\nf\n#define g 1\n" + marker(4) + "g\n");
}

TEST_F(Macros, ArgumentCountMustMatch) {
    EXPECT_EQ(last_line("#define f(a,b) a+b\nf(1) f(1,2)\n"), "f(1) 1+2");
    EXPECT_EQ(count("error: Disagreement in number of macro arguments."), 1u);
    reload();
    // "()" passes no argument to a macro without parameters, one empty
    // argument to a macro with one.
    EXPECT_EQ(last_line("#define z() 0\n#define o(a) [a]\nz() o()\n"), "0 []");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Macros, EndOfFileInArgumentList) {
    EXPECT_EQ(pp("#define f(x) x\nf(1,\n"), marker(1) + "\nf(1,");
    EXPECT_EQ(count("error: End of file in macro arglist."), 1u);
}

TEST_F(Macros, ThirtyTwoArgumentsAreFatal) {
    std::string params = "a0", args = "0";
    for (int i = 1; i < 32; ++i) {
        std::string n = std::to_string(i);
        params += ",a";
        params += n;
        args += ",";
        args += n;
    }
    bool ok = true;
    pp("#define f(" + params + ") a31\nf(" + args + ")\n", &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count("Sorry, too many macro arguments."), 1u);
}

TEST_F(Macros, DefinitionMessages) {
    pp("#define 1\n#define defined 2\n#define __LINE__ 3\n#define f(a,a) a\n#define g(a b) 1\n"
       "#define h(a,) 1\n#define X 1\n#define X 1\n#define X  1 \n#define X 2\n#define X() 2\n");
    EXPECT_EQ(texts(), (std::vector<std::string>{
                           "error: #defined token is not a name.\r\n",
                           "error: #defined token 'defined' can't be redefined.\r\n",
                           "error: #defined token '__LINE__' can't be redefined.\r\n",
                           "error: Duplicate macro argument.\r\n",
                           "error: Syntax error in macro parameters.\r\n",
                           "error: Syntax error in macro parameters.\r\n",
                           "warning: Macro redefinition of 'X'.\r\n",
                           "warning: Macro redefinition of 'X'.\r\n",
                       }));
}

TEST_F(Macros, FunctionLikeOnlyWithAParenthesisRightAfterTheName) {
    EXPECT_EQ(last_line("#define f (x) x\nf\n"), "(x) x");
}

TEST_F(Macros, UndefOfDefined) {
    EXPECT_EQ(body(pp("#undef defined\n#if defined\nyes\n#else\nno\n#endif\n")), "\n\n\n\nno\n\n");
    EXPECT_TRUE(diags.empty());
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

TEST_F(Macros, FileNameBackslashesAreDoubled) {
    std::string out = body(pp("#line 3 \"a\\b.rc\"\n__FILE__\n"));
    EXPECT_EQ(out, "\"a\\\\b.rc\"\n");
}

TEST_F(Macros, PredefinedSymbols) {
    EXPECT_EQ(last_line("RC_INVOKED _WIN32\n"), " 1");
}

TEST_F(Macros, DefinitionsFromOutside) {
    define_symbol_w(u"EMPTY");
    define_symbol_w(u"TWO=2");
    define_symbol_w(u"PAIR=1 2");
    define_symbol_w(u"NONE=");
    undefine_symbol_w(u"_WIN32");
    EXPECT_EQ(last_line("[EMPTY] TWO PAIR [NONE] _WIN32\n"), "[] 2 1 2 [] _WIN32");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Macros, MalformedDefinitionsFromOutside) {
    define_symbol_w(u"1X");
    undefine_symbol_w(u"A B");
    define_symbol_w(u"f(x)=x");
    EXPECT_EQ(texts(),
              (std::vector<std::string>{"fatal error: Illegal -D or -U argument: 1X.\r\n",
                                        "fatal error: Illegal -D or -U argument: A B.\r\n",
                                        "fatal error: Illegal -D or -U argument: f(x)=x.\r\n"}));
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
