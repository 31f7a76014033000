// The white space that macro expansion writes: a substituted argument takes
// the spacing that its parameter had in the replacement list, and tokens
// that the script lexer would read as one (two literals, two names, a name
// and a number, - and -) never come out touching. Each case is checked in
// the preprocessed text and, where it makes a string, in what a string
// table stores.
#include "cpp/pp_fixture.h"
#include "resources/res_reader.h"

using namespace tarn_test;

namespace {

struct SpacingCase {
    std::string defines, use; // the use is the one line of text
    std::string text;         // the line as preprocessed
    std::string stored = "";  // string 1 of a table made of the use, if any
};

const SpacingCase SPACING[] = {
    {"#define CAT(x, y) x y", "CAT(\"a\", \"b\")", "\"a\" \"b\"", "ab"},
    {"#define CAT(x,y) x y", "CAT(\"a\",\"b\")", "\"a\" \"b\"", "ab"},
    {"#define J(x) x\"b\"", "J(\"a\")", "\"a\" \"b\"", "ab"},
    {"#define S(x) #x\n#define T(x, y) S(x)S(y)", "T(a, b)", "\"a\" \"b\"", "ab"},
    // mingw's ntverp.h builds its version strings this way.
    {"#define V2(x,y) #x \".\" #y\n#define V1(x,y) V2(x,y)\n#define MAJ 5",
     "V1(MAJ,2) \".\" V2(3790,1830)", "\"5\" \".\" \"2\" \".\" \"3790\" \".\" \"1830\"",
     "5.2.3790.1830"},
    {"#define E", "\"a\"E\"b\"", "\"a\" \"b\"", "ab"},
    {"#define N(x) x", "N(\"a\")\"b\"", "\"a\" \"b\"", "ab"},
    {"#define W(x) L#x", "W(wide)", "L\"wide\""},
    {"#define Q(x) \"q\" #x", "Q(\"in\")", "\"q\" \"\\\"in\\\"\"", "q\"in\""},
    // Without white space in front of the parameter, the argument has none.
    {"#define P(x, y) x,y", "P(1, 2)", "1,2"},
    {"#define B(x) [x]", "B( 1 )", "[1]"},
    {"#define R(x) x", "a R( b )", "a b"},
    // Neighbours that would run together get a blank.
    {"#define NAME(x, y) x y", "NAME(ab,cd)", "ab cd"},
    {"#define ID(x) x", "ID(a)1 ID(1)a ID(abc)\"s\"", "a 1 1 a abc \"s\""},
    {"#define M(x) -x", "M(-1)", "- -1"},
    {"#define NL(x) x'c'", "NL(abc)", "abc 'c'"},
    // Tokens as written in the source stay as they are.
    {"", "\"a\"\"b\" a-1", "\"a\"\"b\" a-1"},
};

class Spacing : public PpTest {};

// String 1 of the first string table block, as ASCII.
std::string string_one(const std::vector<res_test::Entry>& entries) {
    for (const res_test::Entry& e : entries) {
        if (e.type != "#6" || e.name != "#1") continue;
        size_t at = 2 + 2 * res_test::get16(e.data, 0); // past string 0
        size_t n = res_test::get16(e.data, at);
        std::string s;
        for (size_t i = 0; i < n; ++i) s += char(res_test::get16(e.data, at + 2 + 2 * i));
        return s;
    }
    return "(no table)";
}

} // namespace

// Each row as preprocessed text, then, where it makes a string, as stored.
TEST_F(Spacing, PreprocessedTextAndWhatTheScriptReads) {
    for (const SpacingCase& c : SPACING) {
        SCOPED_TRACE(c.defines + "\n" + c.use);
        reattach();
        diags.clear();
        EXPECT_EQ(lines(pp(c.defines + "\n" + c.use + "\n")), c.text);
        EXPECT_EQ(messages(), "");
        if (c.stored.empty()) continue;
        reattach();
        std::vector<uint8_t> res;
        EXPECT_EQ(compile(c.defines + "\nSTRINGTABLE BEGIN 1 " + c.use + " END\n", &res), 1);
        EXPECT_EQ(string_one(res_test::read_res(res)), c.stored);
        EXPECT_EQ(messages(), "");
    }
}
