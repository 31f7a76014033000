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

TEST_F(Directives, ConditionalGroups) {
    write_file("else.h", "#else\n#endif\n");
    write_file("open.h", "#if 1\n#if 0\n");
    check({
        {"#if 0\na\n#elif 1\nb\n#elif 1\nc\n#else\nd\n#endif\n"
         "#if 0\ne\n#elif 0\nf\n#else\ng\n#endif\n",
         "b\ng"},
        {"#define A 2\n#if A == 1\none\n#elif A == 2\ntwo\n#endif\n", "two"},
        // In a skipped region #elif and #else of an inner #if are ignored and
        // nothing is evaluated.
        {"#if 0\n#if 1/0\n#else\nno\n#endif\n#elif 1\nyes\n#endif\n", "yes"},
        // X is a known name (value 0), so "#X" counts as a nested #if there
        // and the first #endif closes it: "still" is skipped.
        {"#define X\n#if 0\n#X\n#endif\nstill\n#endif\nafter\n", "after"},
        {"#if 0\na\n#else junk\nb\n#endif\n", "b", "error: Syntax error in #else."},
        {"#ifdef\na\n#endif\n#ifndef 1\nb\n#endif\n#ifdef __FILE__\nc\n#endif\n", "c",
         "error: Syntax error in #ifdef/#ifndef.\nerror: Syntax error in #ifdef/#ifndef."},
        // Conditionals do not cross files; the included file's warning
        // carries bit 14 and so has no text.
        {"#if 1\n#include \"else.h\"\nx\n#endif\n", "#else\n#endif\nx",
         "error: #else with no #if.\nerror: #endif with no #if."},
        {"#include \"open.h\"\nx\n#if 0\n#if 1\n", "x",
         "*** No message for error 0xA000401D ***\n"
         "error: Unterminated #if/#ifdef/#ifndef (started at line 4)."},
    });
}

TEST_F(Directives, NestingLimit) {
    std::string open, close;
    for (int i = 0; i < 31; ++i) open += "#if 1\n", close += "#endif\n";
    check({{open + "x\n" + close, "x"}});
    reattach();
    EXPECT_EQ(fatal(open + "#if 1\n" + close + "#endif\n"), "fatal error: #if too deeply nested.");
}

TEST_F(Directives, Messages) {
    check({
        // Unknown directives are written out as they stand, also an unknown
        // name in a skipped region; so are #else and #endif without an #if.
        {"#foo bar\n#if 0\n#warning x\n#endif\n#!\n#\n", "#foo bar\n#!\n#",
         "warning: Unknown preprocessor control: 'foo'.\n"
         "warning: Unknown preprocessor control: 'warning'.\n"
         "error: Unidentifiable control line."},
        {"#else\n#endif\n#elif 1\n#if 1\n#else junk\n#else\n#elif 1\n#endif\n#if 1\n#endif junk\n",
         "#else\n#endif\n#elif 1",
         "error: #else with no #if.\nerror: #endif with no #if.\nerror: #elif with no #if.\n"
         "error: Syntax error in #else.\nerror: #else after #else.\nerror: #elif after #else.\n"
         "warning: Syntax error in #endif."},
        {"#error a  b \"c\"\nx\n", "x", "error: #error: a b \"c\"."},
        {"#undef\n#undef a b\n#undef __LINE__\n#undef nothing\n", "",
         "error: Syntax error in #undef.\nerror: Syntax error in #undef."},
    });
}

TEST_F(Directives, LineDirective) {
    // The directives themselves are written out, next to the markers, also
    // the bad ones.
    EXPECT_EQ(
        pp("#line 7 \"other.rc\"\n__LINE__ __FILE__\n# 20\n__LINE__\n#line 40000\n__LINE__\n"),
        marker(1) + "#line 7 \"other.rc\"\n7 \"other.rc\"\n# 20\n20\n#line 40000\n40000\n");
    EXPECT_EQ(messages(), "warning: #line specifies number out of range.");
    reattach();
    diags.clear();
    EXPECT_EQ(pp("#define N 12\n#line N\n__LINE__\n#line 5 L\"w\"\n#line x\n#line 3 \"a\" b\n"),
              marker(1) + "\n#line 12\n12\n#line 5 L\"w\"\n#line x\n#line 3 \"a\" b\n");
    EXPECT_EQ(count("error: Syntax error in #line."), 3u);
}
