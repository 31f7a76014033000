// The script lexer: token kinds, names, numbers, string literals, line
// markers, block refills and expect's recovery.
#include "harness/harness.h"

#include <string>
#include <vector>

#include "diag/report.h"
#include "script/lexer.h"

using namespace tarn;
using namespace tarn_test;

namespace {

std::u16string feed_text;
size_t feed_pos = 0;
size_t feed_piece = 32768;

size_t feed(char16_t* dest, size_t max) {
    size_t n = std::min({max, feed_piece, feed_text.size() - feed_pos});
    feed_text.copy(dest, n, feed_pos);
    feed_pos += n;
    return n;
}

class ScriptLexer : public FreshLibrary {
  protected:
    void lex(const std::u16string& text, size_t piece = 32768) {
        feed_text = text;
        feed_pos = 0;
        feed_piece = piece;
        script_set_source(feed);
    }
    void lex(const std::string& text, size_t piece = 32768) { lex(u16(text), piece); }

    static std::string text() { return u8(std::u16string(token.text, token.length)); }

    // Every token up to the end, in a form that is easy to compare.
    std::vector<std::string> tokens() {
        std::vector<std::string> out;
        while (next_token() != TK_EOF) {
            switch (token.kind) {
            case TK_NAME:
                out.push_back("name " + text());
                break;
            case TK_STRING:
                out.push_back("str " + text());
                break;
            case TK_WSTRING:
                out.push_back("wstr " + text());
                break;
            case TK_HEXSTRING:
                out.push_back("hex " + text());
                break;
            case TK_NUMBER:
                out.push_back("num " + std::to_string(number_value(token)) +
                              (token.is_long ? "L" : ""));
                break;
            default:
                out.push_back(std::to_string(token.kind) + " " + u8(token_display()));
            }
        }
        return out;
    }
    using V = std::vector<std::string>;
};

TEST_F(ScriptLexer, EmptyInputIsTheEndAtOnceAndStaysSo) {
    lex("");
    EXPECT_EQ(next_token(), TK_EOF);
    EXPECT_EQ(next_token(), TK_EOF);
    EXPECT_EQ(u8(token_display()), "EOF");
}

TEST_F(ScriptLexer, PunctuationAndBraces) {
    lex(", & | ~ + - * / ( ) { } ?");
    EXPECT_EQ(tokens(), (V{"6 ,", "7 &", "8 |", "9 ~", "10 +", "11 -", "12 *", "13 /", "14 (",
                           "15 )", "25 begin", "43 end", "0 "}));
}

TEST_F(ScriptLexer, EveryKeywordInAnyCase) {
    // Each keyword's display is its table name; finding it again in three
    // spellings proves the table sorted for the binary search.
    for (int32_t kind = TK_FIRST_KEYWORD; kind <= TK_LAST_KEYWORD; ++kind) {
        token.kind = kind;
        std::string lower = u8(token_display()), upper = lower;
        for (char& c : upper) c = char(toupper(c));
        lex(lower + " " + upper + " " + char(tolower(upper[0])) + upper.substr(1));
        for (int n = 0; n < 3; ++n) ASSERT_EQ(next_token(), kind) << lower;
    }
    lex("accelerators auto3state DialogEx LANGUAGE state3 VXD dialogs dialo vxdx a zzz");
    EXPECT_EQ(tokens(),
              (V{"17 accelerators", "22 auto3state", "39 dialogex", "60 language", "87 state3",
                 "94 vxd", "name dialogs", "name dialo", "name vxdx", "name a", "name zzz"}));
}

TEST_F(ScriptLexer, NamesTakeTheExtraCharacters) {
    lex("res/app.ico ..\\icons\\x.ico a!#$%':;<=>[]^_@`b x?y \"q\" a&b /c #x");
    EXPECT_EQ(tokens(),
              (V{"name res/app.ico", "name ..\\icons\\x.ico", "name a!#$%':;<=>[]^_@`b", "name x",
                 "0 ", "name y", "str q", "name a", "7 &", "name b", "13 /", "name c"}));
}

TEST_F(ScriptLexer, NamesAreCutAfter256Units) {
    lex(std::string(300, 'n') + " z");
    ASSERT_EQ(next_token(), TK_NAME);
    EXPECT_EQ(token.length, 256u);
    ASSERT_EQ(next_token(), TK_NAME);
    EXPECT_EQ(token.length, 44u);
    EXPECT_EQ(tokens(), (V{"name z"}));
}

TEST_F(ScriptLexer, LStartsANameUnlessAQuoteFollows) {
    lex("L LANGUAGE Lx L\"w\" L");
    EXPECT_EQ(tokens(), (V{"name L", "60 language", "name Lx", "wstr w", "name L"}));
}

TEST_F(ScriptLexer, NumbersWithBasesAndSuffixes) {
    lex("0 7 019 12f 0o17 0O17 0x1G 0X1f 10UL 10l 10u 10U 4294967296 4294967295 0x");
    EXPECT_EQ(tokens(), (V{"num 0", "num 7", "num 17", "num 135", "num 15", "num 0", "name O17",
                           "num 1", "name G", "num 31", "num 10", "name L", "num 10L", "num 10",
                           "num 10", "num 0", "num 4294967295", "num 0"}));
}

TEST_F(ScriptLexer, TheLongMarkStaysUntilTheNextNumber) {
    lex("1L , x \"s\" 2");
    next_token();
    EXPECT_EQ(token.is_long, 1);
    next_token();
    next_token();
    next_token();
    EXPECT_EQ(token.kind, TK_STRING);
    EXPECT_EQ(token.is_long, 1);
    next_token();
    EXPECT_EQ(token.is_long, 0);
}

TEST_F(ScriptLexer, StringEscapes) {
    lex(u"\"\\a\\b\\f\\n\\r\\t\\v\\?\\\"\\'\\\\\\q\"");
    ASSERT_EQ(next_token(), TK_STRING);
    EXPECT_EQ(std::u16string(token.text, token.length),
              (std::u16string{8, 8, 12, 10, 13, 9, 11, 63, 34, 39, 92, u'\\', u'q'}));
    lex(u"\"\\101\\1011\\7a\\x41g\\x10041\\xZ\" L\"\\x263a\"");
    ASSERT_EQ(next_token(), TK_STRING);
    EXPECT_EQ(std::u16string(token.text, token.length),
              (std::u16string{u'A', u'A', u'1', 7, u'a', u'A', u'g', 0x0041, 0, u'Z'}));
    ASSERT_EQ(next_token(), TK_WSTRING);
    EXPECT_EQ(std::u16string(token.text, token.length), std::u16string{0x263a});
}

TEST_F(ScriptLexer, DoubledQuotesAndJoining) {
    lex("\"a\"\"b\"\n\"abc\" \t \"def\"\"\" \"\"\n\"x\"\n\"y\" L\"p\" L\"q\" L\"r\"\"s\" \"k\" "
        "L\"w\"");
    EXPECT_EQ(tokens(), (V{"str a\"b", "str abcdef\"", "str x", "str y", "wstr p", "wstr q",
                           "wstr r\"s", "str k", "wstr w"}));
}

TEST_F(ScriptLexer, UnterminatedLiteralsEndAtTheEnd) {
    lex("\"abc");
    EXPECT_EQ(tokens(), (V{"str abc"}));
    lex("'12 34");
    EXPECT_EQ(tokens(), (V{"hex 12 34"}));
    lex("\"ab\\");
    EXPECT_EQ(tokens(), (V{"str ab\\"}));
    EXPECT_TRUE(diags.empty());
}

TEST_F(ScriptLexer, SingleQuotedLiteralsHaveNoEscapes) {
    lex("'a\\n\"b' 'c'");
    EXPECT_EQ(tokens(), (V{"hex a\\n\"b", "hex c"}));
}

TEST_F(ScriptLexer, LiteralsAreCutAt4095UnitsWithOneWarning) {
    lex("\"" + std::string(4095, 'a') + "\" '" + std::string(4095, 'b') + "'");
    ASSERT_EQ(next_token(), TK_STRING);
    EXPECT_EQ(token.length, 4095u);
    ASSERT_EQ(next_token(), TK_HEXSTRING);
    EXPECT_EQ(token.length, 4095u);
    EXPECT_TRUE(diags.empty());

    lex("\"" + std::string(3000, 'a') + "\" \"" + std::string(3000, 'b') + "\" '" +
        std::string(5000, 'c') + "' x");
    ASSERT_EQ(next_token(), TK_STRING);
    EXPECT_EQ(token.length, 4095u);
    EXPECT_EQ(token.text[4094], u'b');
    EXPECT_EQ(token.text[4095], 0);
    ASSERT_EQ(next_token(), TK_HEXSTRING);
    EXPECT_EQ(token.length, 4095u);
    EXPECT_EQ(tokens(), (V{"name x"}));
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].severity, 0);
    EXPECT_EQ(diags[0].text.rfind("warning: String too long; truncated.", 0), 0u);
}

TEST_F(ScriptLexer, LineMarkersSetFileLineAndScriptFlag) {
    lex("#line 10 \"dir\\x.H\"\nA\n\nB\n#line 3 \"y.rc\"\nC\n#line 1 \"a\"\nD\n"
        "#line 7 \"z.c\"\nE #line 2 \"q.hh\"\nF");
    EXPECT_EQ(script_location.in_script, 0);
    next_token();
    EXPECT_EQ(u8(script_location.script_file), "dir\\x.H");
    EXPECT_EQ(script_location.script_line, 10u);
    EXPECT_EQ(script_location.in_script, 0);
    next_token();
    EXPECT_EQ(script_location.script_line, 12u);
    next_token();
    EXPECT_EQ(u8(script_location.script_file), "y.rc");
    EXPECT_EQ(script_location.script_line, 3u);
    EXPECT_EQ(script_location.in_script, 1);
    next_token(); // a name shorter than 3 units is a script
    EXPECT_EQ(text(), "D");
    EXPECT_EQ(script_location.in_script, 1);
    next_token();
    EXPECT_EQ(text(), "E");
    EXPECT_EQ(script_location.in_script, 0);
    next_token();
    EXPECT_EQ(text(), "F");
    EXPECT_EQ(script_location.in_script, 1);
    EXPECT_EQ(script_location.script_line, 2u);
}

TEST_F(ScriptLexer, OtherHashLinesLoseWhatWasRead) {
    // "#" and the letters that matched "line" so far are dropped, and the
    // first one that did not match with them.
    lex("#define X 1\n#lin 5\n# 7 \"f\"\n#line\t12\n");
    EXPECT_EQ(tokens(), (V{"name efine", "name X", "num 1", "num 5", "num 7", "str f"}));
    EXPECT_EQ(script_location.script_line, 12u);
}

TEST_F(ScriptLexer, TheMarkerFileNameIsBounded) {
    lex("#line 1 \"" + std::string(400, 'f') + ".rc\"\nx");
    next_token();
    EXPECT_EQ(std::char_traits<char16_t>::length(script_location.script_file), 259u);
}

TEST_F(ScriptLexer, TokensSpanBlockRefills) {
    std::string text =
        "0x1G 10UL L\"ab\" \"cd\"  \"ef\" \\x #line 4 \"k.rc\"\nname\\a.b 'x y' \"\\101\"";
    lex(text);
    V whole = tokens();
    for (size_t piece : {1u, 2u, 3u, 5u}) {
        lex(text, piece);
        EXPECT_EQ(tokens(), whole) << piece;
        EXPECT_EQ(script_location.script_line, 4u);
    }
}

TEST_F(ScriptLexer, ExpectReportsByKindAndSkipsOneToken) {
    struct Case {
        const char* text;
        int32_t kind;
        const char* message;
        const char* next; // display of the token after the recovery
    };
    const Case cases[] = {
        {"x y", TK_STRING, "error: String literal expected (found: x).", "y"},
        {"abc y", TK_NUMBER, "error: Unknown keyword: 'abc'.", "y"},
        {"\"s\" y", TK_NUMBER, "error: Number expected (found: \"STRING\").", "y"},
        {"L\"s\" y", TK_STRING, "error: String literal expected (found: L\"STRING\").", "y"},
        {"'s' y", TK_COMMA, "error: Comma expected (found: 'HEXSTRING').", "y"},
        {"12 y", TK_BEGIN, "error: BEGIN keyword or { character expected (found: 12).", "y"},
        {"begin y", TK_END, "error: END keyword or } character expected (found: begin).", "y"},
        {"? y", TK_RPAREN, "error: Invalid syntax.", "y"},
        {"} y", TK_NUMBER, "error: Number expected (found: end).", "end"},
    };
    for (const Case& c : cases) {
        diags.clear();
        lex(c.text);
        next_token();
        EXPECT_FALSE(expect(c.kind));
        ASSERT_EQ(diags.size(), 1u) << c.text;
        EXPECT_EQ(diags[0].text.substr(0, std::string(c.message).size()), c.message);
        EXPECT_EQ(diags[0].severity, 1);
        EXPECT_EQ(u8(token_display()), c.next);
    }
}

TEST_F(ScriptLexer, ExpectAtTheEndIsFatal) {
    lex("");
    next_token();
    EXPECT_THROW(expect(TK_COMMA), FatalUnwind);
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].text.rfind("error: Comma expected (found: EOF).", 0), 0u);
    EXPECT_EQ(diags[1].text.rfind("fatal error: Unexpected end of file.", 0), 0u);
    EXPECT_EQ(diags[1].severity, 2);
}

TEST_F(ScriptLexer, DiagnosticsCarryTheMarkerLocation) {
    lex("#line 5 \"m.rc\"\n\n x");
    next_token();
    expect(TK_COMMA);
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].file, "m.rc");
    EXPECT_EQ(diags[0].line, 6u);
}

} // namespace
