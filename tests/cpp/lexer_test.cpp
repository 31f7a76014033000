// The preprocessor lexer: token kinds and texts, the white space in front of
// tokens, and the messages that only file inputs draw.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

class Lexer : public PpTest {};

TEST_F(Lexer, TokensAndTheWhiteSpaceBeforeThem) {
    struct Case {
        std::u16string text;
        std::string tokens;
    } cases[] = {
        // A comment is one unit of white space; white space before it does
        // not count, white space after it does.
        {u"a/**/b\n", "2:a 2:(1)b 6:\n"},
        {u"a   /* c */b", "2:a 2:(1)b 0:"},
        {u"a /* c */  b", "2:a 2:(2)b 0:"},
        // Numbers end before an underscore.
        {u"x = 1_0;", "2:x 39:(1)= 3:(1)1 2:_0 42:; 0:"},
        {u"1e+5 0x1fUL 1.2.3 .5e-2", "3:1e+5 3:(1)0x1fUL 3:(1)1.2.3 3:(1).5e-2 0:"},
        {u"a..b ... ..5 .", "2:a 1:.. 2:b 55:(1)... 3:(1)..5 24:(1). 0:"},
        {u"<<= >>= -> ## # %= ^= |= &= != ==",
         "51:<<= 52:(1)>>= 19:(1)-> 8:(1)## 41:(1)# 49:(1)%= 50:(1)^= 53:(1)|= 54:(1)&= "
         "10:(1)!= 9:(1)== 0:"},
        {u"a+++b--c", "2:a 17:++ 27:+ 2:b 18:-- 2:c 0:"},
        {u"L\"abc\" L'a' Lx L", "4:L\"abc\" 5:(1)L'a' 2:(1)Lx 2:(1)L 0:"},
        {u"\"a\\\"b\" 'x\\''", "4:\"a\\\"b\" 5:(1)'x\\'' 0:"},
        // é and ß are letters; units above 255 join whatever is being built,
        // or else count as white space.
        {u"\u00e9t\u00e9 stra\u00dfe", "2:\u00e9t\u00e9 2:(1)stra\u00dfe 0:"},
        {u"a\u20acb \u20acx", "2:a\u20acb 2:(2)x 0:"},
        {u"a \u20ac b", "2:a 2:(3)b 0:"},
        {u"a\fb", "2:a 1:\f 2:b 0:"}, // a form feed is no white space
        // Splices continue tokens; a backslash before a lone carriage return
        // is no splice.
        {u"AB\\\r\nC\n", "2:ABC 6:\n"},
        {u"AB\\\nC \"x\\\ny\"", "2:ABC 4:(1)\"xy\" 0:"},
        {u"a\\\rb", "2:a 1:\\ 2:(1)b 0:"},
        // The newline ends a line comment and takes none of its text as
        // white space, except a carriage return right before it.
        {u"a // c\n", "2:a 6:\n"},
        {u"a // c\r\n", "2:a 6:(1)\n"},
        {u"a  \r\n", "2:a 6:(3)\n"},
        // A text input ending in a comment gives the open-comment token.
        {u"a /* x", "2:a 60:(1) 0:(1)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(u8(c.text));
        EXPECT_EQ(lex(c.text), c.tokens);
    }
    EXPECT_TRUE(diags.empty());
}

TEST_F(Lexer, FileEndingInACommentIsWarnedAndClosed) {
    // The comment stands as one blank before the end of the input; the line
    // lacks its newline, and the marker counts the comment's two. Text
    // inputs do not draw the warnings.
    std::string after = marker(4);
    EXPECT_EQ(pp("a\nb /* open\n\n"), marker(1) + "a\nb " + after);
    define_symbol_w(u"X=1 /* open");
    EXPECT_EQ(messages(), "warning: End of file inside comment.\n"
                          "warning: No newline at end of file.");
}

TEST_F(Lexer, BrokenStrings) {
    // A newline in a string is an error and ends the line; the end of the
    // file is fatal.
    EXPECT_EQ(body(pp("a \"abc\nb\n")), "a\nb\n");
    EXPECT_EQ(messages(), "error: Unterminated string or char const.");
    EXPECT_EQ(diags[0].line, 1u);
    reattach();
    EXPECT_EQ(fatal("a \"abc"), "fatal error: End of file in string or char constant.");
}
