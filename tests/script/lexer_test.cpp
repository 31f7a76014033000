// The script lexer: token kinds, names, numbers, string literals, line
// markers, block refills and expect's recovery.
#include "script/script_fixture.h"

#include "diag/report.h"
#include "script/lexer.h"
#include "support/state.h"

using namespace tarn;
using namespace tarn_test;

namespace {

class ScriptLexer : public ScriptTest {};

TEST_F(ScriptLexer, Tokens) {
    struct Case {
        std::string text, tokens;
    } cases[] = {
        {"", ""},
        {", & | ~ + - * / ( ) { } ?", "6 , | 7 & | 8 | | 9 ~ | 10 + | 11 - | 12 * | 13 / | 14 ( | "
                                      "15 ) | 25 begin | 43 end | 0 "},
        {"accelerators auto3state DialogEx LANGUAGE state3 VXD dialogs dialo vxdx a zzz",
         "17 accelerators | 22 auto3state | 39 dialogex | 60 language | 87 state3 | 94 vxd | "
         "name dialogs | name dialo | name vxdx | name a | name zzz"},
        // Names take the characters that start no other token.
        {"res/app.ico ..\\icons\\x.ico a!#$%':;<=>[]^_@`b x?y \"q\" a&b /c",
         "name res/app.ico | name ..\\icons\\x.ico | name a!#$%':;<=>[]^_@`b | name x | 0  | "
         "name y | str q | name a | 7 & | name b | 13 / | name c"},
        {"L LANGUAGE Lx L\"w\" L", "name L | 60 language | name Lx | wstr w | name L"},
        {"0 7 019 12f 0o17 0O17 0x1G 0X1f 10UL 10l 10u 10U 4294967296 4294967295 0x",
         "num 0 | num 7 | num 17 | num 135 | num 15 | num 0 | name O17 | num 1 | name G | num 31 | "
         "num 10 | name L | num 10L | num 10 | num 10 | num 0 | num 4294967295 | num 0"},
        // Doubled quotes and literals joined across white space and lines.
        {"\"a\"\"b\"\n\"abc\" \t \"def\"\"\" \"\"\n\"x\"\n\"y\" L\"p\" L\"q\" L\"r\"\"s\" \"k\" "
         "L\"w\"",
         "str a\"b | str abcdef\" | str x | str y | wstr p | wstr q | wstr r\"s | str k | wstr w"},
        // "\a" gives 8; an octal escape takes three digits at most, a hex
        // escape any number (keeping the low 16 bits) and none at all gives 0.
        {"\"\\a\\b\\f\\n\\r\\t\\v\\?\\\"\\'\\\\\\q\"", "str \b\b\f\n\r\t\v?\"'\\\\q"},
        {"\"\\101\\1011\\7a\\x41g\\x10041\\xZ\" L\"\\x263a\"",
         std::string("str AA1\aaAgA\0Z | wstr \u263a", 25)},
        {"'a\\n\"b' 'c'", "hex a\\n\"b | hex c"}, // no escapes in single quotes
        {"\"abc", "str abc"},                     // unterminated literals end at the end
        {"'12 34", "hex 12 34"},
        {"1L , x \"s\" 2", "num 1L | 6 ,L | name xL | str sL | num 2"}, // the long mark stays
        {"\"ab\\", "str ab\\"},
        // Other "#" lines lose the "#", the letters that matched "line" so
        // far and the first one that did not.
        {"#define X 1\n#lin 5\n# 7 \"f\"\n#line\t12\n#x",
         "name efine | name X | num 1 | num 5 | num 7 | str f"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tokens(c.text), c.tokens);
        EXPECT_EQ(next_token(), TK_EOF); // and stays there
    }
    EXPECT_EQ(u8(token_display()), "EOF");
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptLexer, EveryKeywordInAnyCase) {
    // Each keyword's display is its table name; finding it again in three
    // spellings proves every keyword reachable through the lookup.
    for (int32_t kind = TK_FIRST_KEYWORD; kind <= TK_LAST_KEYWORD; ++kind) {
        token.kind = kind;
        std::string lower = u8(token_display()), upper = lower;
        for (char& c : upper) c = char(toupper(c));
        source(lower + " " + upper + " " + char(tolower(upper[0])) + upper.substr(1));
        for (int n = 0; n < 3; ++n) ASSERT_EQ(next_token(), kind) << lower;
    }
}

TEST_F(ScriptLexer, NamesNextToKeywordsAreNames) {
    // Each keyword with a unit added, dropped or changed, and with a
    // character above ASCII or a name character that differs from a letter
    // only in the case bit: a name unless that spelling is itself a keyword.
    std::vector<std::string> keywords;
    for (int32_t kind = TK_FIRST_KEYWORD; kind <= TK_LAST_KEYWORD; ++kind) {
        token.kind = kind;
        keywords.push_back(u8(token_display()));
    }
    auto kind_of = [&](const std::string& name) {
        for (size_t i = 0; i < keywords.size(); ++i)
            if (keywords[i] == name) return TK_FIRST_KEYWORD + int32_t(i);
        return int32_t(TK_NAME);
    };
    for (const std::string& k : keywords) {
        std::string dropped = k.substr(0, k.size() - 1), changed = k;
        changed[changed.size() / 2] = changed[changed.size() / 2] == 'q' ? 'z' : 'q';
        std::string at = k; // '@' | 0x20 is '`', '[' | 0x20 is '{': never a letter
        at[0] = '@';
        for (const std::string& name : {k + "x", "x" + k, dropped, changed, at, k + k}) {
            source(name + " ");
            EXPECT_EQ(next_token(), kind_of(name)) << name;
        }
        source(k.substr(0, 2) + "\xc3\xa9" + k.substr(2) + " "); // "é" inside
        EXPECT_EQ(next_token(), TK_NAME) << k;
    }
}

TEST_F(ScriptLexer, EveryPieceSizeCutsTheSameTokens) {
    // Tokens cut straight from a whole block must read as those read unit by
    // unit, which is what a block ending inside each token forces: names of
    // the longest lengths, numbers with their marks, literals with escapes,
    // doubled quotes and joins, names above ASCII, blanks and line ends.
    std::string n255(255, 'n'), n256(256, 'm'), s4095(4095, 's');
    std::string text =
        "BEGIN\r\n  CONTROL \"a\\tb\\\\c\\x41\\101\\q\", 0x7fL, 017u, 0o17, 99,\t-1\n" + n255 +
        " " + n256 + "x Ldialog L\"w\\n\" L \"j\"  \"k\" \"d\"\"q\"\n" + "\"" + s4095 + "\" \"" +
        s4095 + "\\n\" caf\xc3\xa9 na\xc3\xafve x\xe2\x80\x94y " +
        "\"\" \"\\\"\" ,{}|~+*/() 'h' #line 40 \"f.rc\"\nEND";
    for (bool extended : {false, true}) {
        compile_state.extended = extended;
        diags.clear();
        std::string whole = tokens(text);
        uint32_t line = script_location.script_line;
        size_t warnings = diags.size();
        for (size_t piece = 1; piece <= 40; ++piece) {
            SCOPED_TRACE(std::to_string(piece) + (extended ? " extended" : ""));
            diags.clear();
            EXPECT_EQ(tokens(text, piece), whole);
            EXPECT_EQ(script_location.script_line, line);
            EXPECT_EQ(diags.size(), warnings);
        }
    }
}

TEST_F(ScriptLexer, LongTokensAreCut) {
    // Names after 256 units, literals after 4,095 with one warning each.
    std::string n(256, 'n'), a(3000, 'a'), b(4095, 'b'), c(4095, 'c');
    EXPECT_EQ(tokens(n + n.substr(0, 44) + " z"),
              "name " + n + " | name " + n.substr(0, 44) + " | name z");
    EXPECT_EQ(tokens("\"" + b + "\" '" + c + "'"), "str " + b + " | hex " + c);
    EXPECT_TRUE(diags.empty());
    EXPECT_EQ(tokens("\"" + a + "\" \"" + b.substr(0, 3000) + "\" '" + c + "ccc' x"),
              "str " + a + b.substr(0, 1095) + " | hex " + c + " | name x");
    EXPECT_EQ(messages(),
              "warning: String too long; truncated.\nwarning: String too long; truncated.");
}

TEST_F(ScriptLexer, ExtendedLiteralsJoinAcrossWidths) {
    compile_state.extended = true;
    struct Case {
        std::string text, tokens;
    } cases[] = {
        // Literals of either width join; a wide piece makes the whole wide;
        // a line break still ends the joining.
        {"\"a\" L\"b\" \"c\"\nL\"5.\" L\"2.3790.\" \"x\"\nL\"p\" Lq",
         "wstr abc | wstr 5.2.3790.x | wstr p | name Lq"},
        {"\"a\"  L", "str a | name L"},
        // In a wide piece "\x" takes four digits at most, in a narrow one any
        // number; octal is the same in both.
        {"L\"\\x263a9\"\n\"\\x263a9\"\nL\"\\251\\x41g\"",
         "wstr \u263a9 | str \u63a9 | wstr \u00a9Ag"},
        {"L\"\\x4142\" \"\\x4142\"", "wstr \u4142\u4142"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tokens(c.text), c.tokens);
    }
    // Where a string is expected, a wide one will do.
    start("L\"s\" y");
    EXPECT_TRUE(expect(TK_STRING));
    EXPECT_EQ(left(), "@y");
}

TEST_F(ScriptLexer, ExtendedTokensHaveNoLengthLimit) {
    compile_state.extended = true;
    std::string n(300, 'n'), s(70000, 's');
    std::string want = "name " + n + " | str " + s + " | wstr " + s + " | hex " + s;
    EXPECT_TRUE(tokens(n + " \"" + s + "\"\nL\"" + s + "\"\n'" + s + "'") == want);
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptLexer, LineMarkersSetFileLineAndScriptFlag) {
    source("#line 10 \"dir\\x.H\"\nA\n\nB\n#line 3 \"y.rc\"\nC\n#line 1 \"a\"\nD\n"
           "#line 7 \"z.c\"\nE #line 2 \"q.hh\"\nF\n#line 1 \"" +
           std::string(400, 'f') + ".rc\"\nG");
    EXPECT_EQ(script_location.in_script, 0);
    // A file is a script unless its name ends in ".h" or ".c" (any case);
    // a name shorter than three units is a script. The name is bounded.
    for (const char* want : {"A dir\\x.H(10) header", "B dir\\x.H(12) header", "C y.rc(3)",
                             "D a(1)", "E z.c(7) header", "F q.hh(2)"}) {
        next_token();
        EXPECT_EQ(text() + " " + u8(script_location.script_file) + "(" +
                      std::to_string(script_location.script_line) + ")" +
                      (script_location.in_script ? "" : " header"),
                  want);
    }
    next_token();
    EXPECT_EQ(std::char_traits<char16_t>::length(script_location.script_file), 259u);
}

TEST_F(ScriptLexer, TokensSpanBlockRefills) {
    std::string text =
        "0x1G 10UL L\"ab\" \"cd\"  \"ef\" \\x #line 4 \"k.rc\"\nname\\a.b 'x y' \"\\101\"";
    std::string whole = tokens(text);
    for (size_t piece : {1u, 2u, 3u, 5u}) {
        EXPECT_EQ(tokens(text, piece), whole) << piece;
        EXPECT_EQ(script_location.script_line, 4u);
    }
}

TEST_F(ScriptLexer, ExpectReportsByKindAndSkipsOneToken) {
    struct Case {
        const char* text;
        int32_t kind;
        const char* left;
    } cases[] = {
        {"x y", TK_STRING, "error: String literal expected (found: x). @y"},
        {"abc y", TK_NUMBER, "error: Unknown keyword: 'abc'. @y"},
        {"\"s\" y", TK_NUMBER, "error: Number expected (found: \"STRING\"). @y"},
        {"L\"s\" y", TK_STRING, "error: String literal expected (found: L\"STRING\"). @y"},
        {"'s' y", TK_COMMA, "error: Comma expected (found: 'HEXSTRING'). @y"},
        {"12 y", TK_BEGIN, "error: BEGIN keyword or { character expected (found: 12). @y"},
        {"begin y", TK_END, "error: END keyword or } character expected (found: begin). @y"},
        {"? y", TK_RPAREN, "error: Invalid syntax. @y"},
        {"} y", TK_NUMBER, "error: Number expected (found: end). @end"}, // an end stays
    };
    for (const Case& c : cases) {
        diags.clear();
        start(c.text);
        EXPECT_FALSE(expect(c.kind)) << c.text;
        EXPECT_EQ(left(), c.left);
    }
}

TEST_F(ScriptLexer, ExpectAtTheEndIsFatalAndDiagnosticsCarryTheMarker) {
    start("#line 5 \"m.rc\"\n\n x");
    expect(TK_COMMA);
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].file + "(" + std::to_string(diags[0].line) + ")", "m.rc(6)");
    EXPECT_THROW(expect(TK_COMMA), FatalUnwind);
    EXPECT_EQ(diags.back().severity, 2);
    EXPECT_EQ(messages(), "error: Comma expected (found: x).\n"
                          "error: Comma expected (found: EOF).\n"
                          "fatal error: Unexpected end of file.");
}

} // namespace
