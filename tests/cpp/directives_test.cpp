// Directives: conditional inclusion with its counts across files, #line,
// #error, #pragma, and which directive lines reach the output.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

class Directives : public PpTest {};

TEST_F(Directives, HandledDirectivesLeaveEmptyLines) {
    // The consumer's line count stays in step without markers.
    EXPECT_EQ(body(pp("#define A 1\n#ifdef A\nA\n#else\nB\n#endif\n#pragma once\n#undef A\nA\n")),
              "\n\n1\n\n\n\n\n\nA\n");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Directives, ElifChain) {
    std::string script = "#if 0\na\n#elif 1\nb\n#elif 1\nc\n#else\nd\n#endif\n"
                         "#if 0\ne\n#elif 0\nf\n#else\ng\n#endif\n";
    EXPECT_EQ(body(pp(script)), std::string("\n\n\nb\n").append(10, '\n').append("g\n\n"));
}

TEST_F(Directives, NestingLimit) {
    std::string open, close;
    for (int i = 0; i < 31; ++i) open += "#if 1\n", close += "#endif\n";
    EXPECT_EQ(body(pp(open + "x\n" + close)), std::string(31, '\n').append("x\n").append(31, '\n'));
    EXPECT_TRUE(diags.empty());
    reload();
    bool ok = true;
    pp(open + "#if 1\n" + close + "#endif\n", &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count("#if too deeply nested."), 1u);
}

TEST_F(Directives, SkippedRegionsOnlyCountConditionals) {
    // #elif and #else of an inner #if are ignored; nothing is evaluated.
    std::string script = "#if 0\n#if 1/0\n#else\nno\n#endif\n#elif 1\nyes\n#endif\n";
    EXPECT_EQ(body(pp(script)), "\n\n\n\n\n\nyes\n\n");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Directives, KnownNameInSkippedRegionOpensAConditional) {
    // X is a known name (value 0), so "#X" counts as a nested #if there and
    // the first #endif closes it: "still" is skipped.
    std::string script = "#define X\n#if 0\n#X\n#endif\nstill\n#endif\nafter\n";
    EXPECT_EQ(body(pp(script)), "\n\n\n\n\n\nafter\n");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Directives, UnknownDirectives) {
    // Written out as they stand, also an unknown name in a skipped region.
    EXPECT_EQ(body(pp("#foo bar\n#if 0\n#warning x\n#endif\n#!\n#\n")), "#foo bar\n\n\n\n#!\n#\n");
    EXPECT_EQ(count("warning: Unknown preprocessor control: 'foo'."), 1u);
    EXPECT_EQ(count("warning: Unknown preprocessor control: 'warning'."), 1u);
    EXPECT_EQ(count("error: Unidentifiable control line."), 1u);
    EXPECT_EQ(diags.size(), 3u);
}

TEST_F(Directives, ElseAndEndifErrors) {
    // Those that find no #if stay as written; the others act all the same.
    std::string script = "#else\n#endif\n#elif 1\n#if 1\n#else junk\n#else\n#elif 1\n#endif\n"
                         "#if 1\n#endif junk\n";
    EXPECT_EQ(body(pp(script)), std::string("#else\n#endif\n#elif 1\n").append(7, '\n'));
    EXPECT_EQ(texts(), (std::vector<std::string>{
                           "error: #else with no #if.\r\n", "error: #endif with no #if.\r\n",
                           "error: #elif with no #if.\r\n", "error: Syntax error in #else.\r\n",
                           "error: #else after #else.\r\n", "error: #elif after #else.\r\n",
                           "warning: Syntax error in #endif.\r\n"}));
}

TEST_F(Directives, ElseJunkStillActsAsElse) {
    EXPECT_EQ(body(pp("#if 0\na\n#else junk\nb\n#endif\n")), "\n\n\nb\n\n");
}

TEST_F(Directives, ConditionalsDoNotCrossFiles) {
    write_file("inc.h", "#else\n#endif\n");
    std::string out = body(pp("#if 1\n#include \"inc.h\"\nx\n#endif\n"));
    EXPECT_EQ(out, "\n#else\n#endif\nx\n\n");
    EXPECT_EQ(count("#else with no #if."), 1u);
    EXPECT_EQ(count("#endif with no #if."), 1u);
}

TEST_F(Directives, UnterminatedConditional) {
    write_file("inc.h", "#if 1\n#if 0\n");
    std::string out = body(pp("#include \"inc.h\"\nx\n#if 0\n#if 1\n"));
    EXPECT_EQ(out, "\n\nx\n\n\n");
    ASSERT_EQ(diags.size(), 2u);
    // The included file's warning carries bit 14 and so has no text.
    EXPECT_EQ(diags[0].severity, 0);
    EXPECT_NE(diags[0].text.find("A000401D"), std::string::npos);
    EXPECT_EQ(diags[1].text, "error: Unterminated #if/#ifdef/#ifndef (started at line 4).\r\n");
}

TEST_F(Directives, LineDirective) {
    // The directives themselves are written out, next to the markers.
    std::string out =
        pp("#line 7 \"other.rc\"\n__LINE__ __FILE__\n# 20\n__LINE__\n#line 40000\n__LINE__\n");
    EXPECT_EQ(out,
              marker(1) + "#line 7 \"other.rc\"\n7 \"other.rc\"\n# 20\n20\n#line 40000\n40000\n");
    EXPECT_EQ(texts(),
              std::vector<std::string>{"warning: #line specifies number out of range.\r\n"});
}

TEST_F(Directives, LineDirectiveIsExpandedAndChecked) {
    std::string out =
        pp("#define N 12\n#line N\n__LINE__\n#line 5 L\"w\"\n#line x\n#line 3 \"a\" b\n");
    EXPECT_EQ(out, marker(1) + "\n#line 12\n12\n#line 5 L\"w\"\n#line x\n#line 3 \"a\" b\n");
    EXPECT_EQ(count("error: Syntax error in #line."), 3u);
}

TEST_F(Directives, ErrorDirective) {
    EXPECT_EQ(body(pp("#error a  b \"c\"\nx\n")), "\nx\n");
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].severity, 1);
    EXPECT_EQ(diags[0].text, "error: #error: a b \"c\".\r\n");
    EXPECT_EQ(diags[0].line, 1u);
}

TEST_F(Directives, UndefSyntax) {
    pp("#undef\n#undef a b\n#undef __LINE__\n#undef nothing\n");
    EXPECT_EQ(count("Syntax error in #undef."), 2u);
    EXPECT_EQ(diags.size(), 2u);
}

TEST_F(Directives, IfdefSyntax) {
    EXPECT_EQ(body(pp("#ifdef\na\n#endif\n#ifndef 1\nb\n#endif\n#ifdef __FILE__\nc\n#endif\n")),
              "\n\n\n\n\n\n\nc\n\n");
    EXPECT_EQ(count("Syntax error in #ifdef/#ifndef."), 2u);
}
