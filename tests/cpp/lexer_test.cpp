// The preprocessor lexer: token kinds and texts, the white space in front of
// tokens, and the messages that only file inputs draw.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

class Lexer : public PpTest {};

TEST_F(Lexer, CommentIsOneUnitOfWhiteSpace) {
    EXPECT_EQ(lex(u"a/**/b\n"), "2:a 2:(1)b 6:\n");
    // White space before a comment is not counted, white space after it is.
    EXPECT_EQ(lex(u"a   /* c */b"), "2:a 2:(1)b 0:");
    EXPECT_EQ(lex(u"a /* c */  b"), "2:a 2:(2)b 0:");
}

TEST_F(Lexer, NumbersEndBeforeAnUnderscore) {
    EXPECT_EQ(lex(u"x = 1_0;"), "2:x 39:(1)= 3:(1)1 2:_0 42:; 0:");
    EXPECT_EQ(lex(u"1e+5 0x1fUL 1.2.3 .5e-2"), "3:1e+5 3:(1)0x1fUL 3:(1)1.2.3 3:(1).5e-2 0:");
}

TEST_F(Lexer, DotsAndOperators) {
    EXPECT_EQ(lex(u"a..b ... ..5 ."), "2:a 1:.. 2:b 55:(1)... 3:(1)..5 24:(1). 0:");
    EXPECT_EQ(lex(u"<<= >>= -> ## # %= ^= |= &= != =="),
              "51:<<= 52:(1)>>= 19:(1)-> 8:(1)## 41:(1)# 49:(1)%= 50:(1)^= 53:(1)|= "
              "54:(1)&= 10:(1)!= 9:(1)== 0:");
    EXPECT_EQ(lex(u"a+++b--c"), "2:a 17:++ 27:+ 2:b 18:-- 2:c 0:");
}

TEST_F(Lexer, WideLiteralsAndTheLetterL) {
    EXPECT_EQ(lex(u"L\"abc\" L'a' Lx L"), "4:L\"abc\" 5:(1)L'a' 2:(1)Lx 2:(1)L 0:");
    EXPECT_EQ(lex(u"\"a\\\"b\" 'x\\''"), "4:\"a\\\"b\" 5:(1)'x\\'' 0:");
}

TEST_F(Lexer, LettersBelow256AndUnitsAbove) {
    // é and ß are letters; units above 255 join whatever is being built.
    EXPECT_EQ(lex(u"\u00e9t\u00e9 stra\u00dfe"), "2:\u00e9t\u00e9 2:(1)stra\u00dfe 0:");
    EXPECT_EQ(lex(u"a\u20acb \u20acx"), "2:a\u20acb 2:(2)x 0:");
    EXPECT_EQ(lex(u"a \u20ac b"), "2:a 2:(3)b 0:");
}

TEST_F(Lexer, FormFeedIsNoWhiteSpace) {
    EXPECT_EQ(lex(u"a\fb"), "2:a 1:\f 2:b 0:");
}

TEST_F(Lexer, SplicesContinueTokens) {
    EXPECT_EQ(lex(u"AB\\\r\nC\n"), "2:ABC 6:\n");
    EXPECT_EQ(lex(u"AB\\\nC \"x\\\ny\""), "2:ABC 4:(1)\"xy\" 0:");
    // A backslash before a lone carriage return is no splice.
    EXPECT_EQ(lex(u"a\\\rb"), "2:a 1:\\ 2:(1)b 0:");
}

TEST_F(Lexer, LineCommentVanishes) {
    // The newline ends the comment and takes none of its text as white
    // space, except a carriage return right before it.
    EXPECT_EQ(lex(u"a // c\n"), "2:a 6:\n");
    EXPECT_EQ(lex(u"a // c\r\n"), "2:a 6:(1)\n");
    EXPECT_EQ(lex(u"a  \r\n"), "2:a 6:(3)\n");
}

TEST_F(Lexer, TextInputEndingInACommentGivesTheOpenCommentToken) {
    EXPECT_EQ(lex(u"a /* x"), "2:a 60:(1) 0:(1)");
    EXPECT_TRUE(diags.empty());
}

TEST_F(Lexer, FileEndingInACommentIsWarnedAndClosed) {
    // The comment stands as one blank before the end of the input; the line
    // lacks its newline, and the marker counts the comment's two.
    std::string after = marker(4);
    EXPECT_EQ(pp("a\nb /* open\n\n"), marker(1) + "a\nb " + after);
    EXPECT_EQ(texts(), (std::vector<std::string>{"warning: End of file inside comment.\r\n",
                                                 "warning: No newline at end of file.\r\n"}));
}

TEST_F(Lexer, MissingFinalNewlineIsWarnedOnceForFilesOnly) {
    EXPECT_EQ(body(pp("a\nb")), "a\nb\n");
    EXPECT_EQ(count("No newline at end of file."), 1u);
    define_symbol_w(u"X=1");
    EXPECT_EQ(count("No newline at end of file."), 1u);
}

TEST_F(Lexer, NewlineInStringIsAnErrorAndEndsTheLine) {
    EXPECT_EQ(body(pp("a \"abc\nb\n")), "a\nb\n");
    ASSERT_EQ(count("error: Unterminated string or char const."), 1u);
    EXPECT_EQ(diags[0].line, 1u);
}

TEST_F(Lexer, EndOfFileInStringIsFatal) {
    bool ok = true;
    pp("a \"abc", &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count("End of file in string or char constant."), 1u);
}
