// Runs of units that the lexer skips in one go (white space, names, numbers,
// literals, comments): every length and every place of the unit that ends
// or interrupts a run, at the end of a text input and across the refills of
// a file. Also the names that the symbol table tells apart only by their
// last or middle units, the operator pairs that expansion keeps apart, the
// names that pasting makes, and the line markers' numbers.
#include "cpp/pp_fixture.h"

using namespace tarn_test;

class Runs : public PpTest {};

TEST_F(Runs, LiteralsAndCommentsOfEveryLength) {
    // n units of text with a special unit at k: where it falls in a block
    // of eight, and at the end of the input, must not matter.
    for (size_t n = 0; n < 34; ++n)
        for (size_t k = 0; k <= n; ++k) {
            std::u16string a(n, u'a'), before(k, u'a'), after(n - k, u'a');
            SCOPED_TRACE(std::to_string(n) + " " + std::to_string(k));
            std::string plain(n, 'a'), b(k, 'a'), f(n - k, 'a');
            struct Case {
                std::u16string text;
                std::string tokens;
            } cases[] = {
                {u"\"" + a + u"\"", "4:\"" + plain + "\" 0:"},
                {u"x '" + a + u"'y", "2:x 5:(1)'" + plain + "' 2:y 0:"},
                {u"\"" + before + u"\\\"" + after + u"\"", "4:\"" + b + "\\\"" + f + "\" 0:"},
                {u"\"" + before + u"\u20ac" + after + u"\"", "4:\"" + b + "\u20ac" + f + "\" 0:"},
                {u"\"" + before + u"\\\n" + after + u"\"", "4:\"" + plain + "\" 0:"},
                {u"\"" + before + u"\\z" + after + u"\"", "4:\"" + b + "\\z" + f + "\" 0:"},
                {u"\"" + before + u"\t" + after + u"\"", "4:\"" + b + "\t" + f + "\" 0:"},
                {u"a/*" + before + u"\r" + after + u"*/b", "2:a 2:(1)b 0:"},
                {u"a/*" + before + u"*" + after + u"*/b", "2:a 2:(1)b 0:"},
                {u"a/*" + a + u"*/", "2:a 0:(1)"},
                {u"a//" + a + u"\n", "2:a 6:\n"},
                {u"a /*" + a, "2:a 60:(1) 0:(1)"},
                {before + u"_" + after + u" 1" + a + u"_",
                 "2:" + b + "_" + f + " 3:(1)1" + plain + " 2:_ 0:"},
                {a + u" \t" + a + u"+",
                 (n ? "2:" + plain + " 2:(2)" + plain + " 27:+ 0:" : "27:(2)+ 0:")},
            };
            for (const Case& c : cases) {
                SCOPED_TRACE(u8(c.text));
                ASSERT_EQ(lex(c.text), c.tokens);
            }
        }
    EXPECT_TRUE(diags.empty());
}

TEST_F(Runs, UnterminatedLiteralAtEveryPlace) {
    for (size_t k = 0; k < 20; ++k) {
        diags.clear();
        std::u16string text = std::u16string(u"\"").append(k, u'a').append(u"\nb");
        SCOPED_TRACE(u8(text));
        EXPECT_EQ(lex(text), "6:\n");
        ASSERT_EQ(diags.size(), 1u);
        EXPECT_NE(diags[0].text.find("Unterminated string or char const."), std::string::npos);
    }
}

TEST_F(Runs, LongLiteralsAndCommentsAcrossRefills) {
    // Lines longer than a refill of the file, each cut at another place.
    std::string text, expect;
    int line = 1;
    for (int i = 0; text.size() < 70000; ++i) {
        std::string s(1000 + i * 37 % 900, 'q');
        s[i * 13 % (s.size() - 1)] = '\\'; // never right before the closing quote
        text += "x \"" + s + "\"\n";
        expect += "x \"" + s + "\"\n";
        text += "y /*" + s + "*/ z\n";
        expect += "y z\n";
        line += 2;
    }
    text += "__LINE__\n";
    expect += std::to_string(line) + "\n";
    EXPECT_EQ(pp(text), marker(1) + expect);
    EXPECT_TRUE(diags.empty());
}

TEST_F(Runs, NamesAlikeInAllButOneUnit) {
    // Lengths around the four units that the table compares at a time.
    const char* names[] = {"A",         "B",         "AB",        "AC",           "ABC",
                           "ABD",       "ABCD",      "ABCE",      "XBCD",         "ABCDE",
                           "ABCDF",     "ABXDE",     "ABCDEFGH",  "ABCDEFGI",     "ABCXEFGH",
                           "ABCDEFGHI", "ABCDEFGHJ", "ABCDXFGHI", "ABCDEFGHIJKL", "ABCDEFGHIJKM"};
    std::string script, use, expect;
    int value = 100;
    for (const char* n : names) {
        script.append("#define ").append(n).append(" ").append(std::to_string(value)).append("\n");
        use += std::string(n) + " ";
        expect += std::to_string(value++) + " ";
    }
    use += "ABCDEFGHIJ ABCDEFGHIJK ABCDEFGHIJKLM";
    expect += "ABCDEFGHIJ ABCDEFGHIJK ABCDEFGHIJKLM";
    EXPECT_EQ(lines(pp(script + use + "\n")), expect);
}

TEST_F(Runs, OperatorPairsKeptApart) {
    // Each pair that reads as one operator (or opens a comment) gets a blank
    // where a macro puts its halves together; other pairs stay touching.
    const char* pairs[] = {"++", "+=", "--", "-=", "->", "<<", "<=", ">>", ">=", "==", "!=",
                           "&&", "&=", "||", "|=", "##", "%=", "*=", "/=", "^=", "//", "/*"};
    std::string script = "#define F(x) x\n", expect;
    for (const char* p : pairs) {
        script += "F(" + std::string(1, p[0]) + ")" + p[1] + "\n";
        expect += std::string(1, p[0]) + " " + p[1] + "\n";
    }
    script += "F(+)- F(<)> F(&)| F(=)! F(/)+ F(^)^ F(%)%\n";
    expect += "+- <> &| =! /+ ^^ %%";
    EXPECT_EQ(lines(pp(script)), expect);
}

TEST_F(Runs, PastedNames) {
    // A name joined with units that go on a name is one name, rescanned as
    // such; anything else is read by the lexer, with its warning.
    const std::string h = "#define h(a,b) a##b\n";
    check({
        {h + "#define x1 one\n#define Labc wide\n#define x\xe9 E\n#define x_9 U\n"
             "h(x,1) h(L,abc) h(x,\xe9) h(x,_9) h(1,x) h(x,0x1F) h(L,\"s\")\n",
         "one wide E U 1x x0x1F L\"s\""},
        {h + "#define f1(a) [a]\nh(f,1)(2) h(f,1) (3)\n", "[2] [3]"},
        {h + "h(a,1.5)\n", "a1.5", "warning: Bad token (a1.5) produced by ##."},
        {h + "h(x,1e+5)\n", "x1e+5", "warning: Bad token (x1e+5) produced by ##."},
        {h + "h(+,x)\n", "+x", "warning: Bad token (+x) produced by ##."},
    });
}

TEST_F(Runs, LineMarkersOfEveryCount) {
    // A line number that #line put at the top wraps past it; #line 0 puts
    // the next line at 0.
    EXPECT_EQ(pp("#line 2147483647\na\\\nb\nc /*\n*/ d\n#line 0\ne\\\nf\n"),
              marker(1) + "#line 2147483647\nab\n" + marker(-2147483647) + "c d\n" +
                  marker(-2147483645) + "#line 0\nef\n" + marker(2));
}
