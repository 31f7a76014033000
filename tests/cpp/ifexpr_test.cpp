// #if evaluation: the three value types, operators and their priorities,
// the values of numbers and character constants, and every message.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

class IfExpr : public PpTest {
  protected:
    // A script that gives "yes" when `expr` holds, else "no".
    static std::string when(const std::string& expr) {
        return "#if " + expr + "\nyes\n#else\nno\n#endif\n";
    }
};

TEST_F(IfExpr, Values) {
    check({
        {when("0x80000000 > 0"), "yes"}, // unsigned: not decimal
        {when("2147483648 > 0"), "no"},  // decimal stays signed and wraps
        {when("-1 < 0u"), "no"},         // unsigned comparison
        {when("-1 > 0UL"), "yes"},
        {when("0xFFFFFFFF == -1"), "yes"},
        {when("-8 >> 1 == -4"), "yes"}, // arithmetic shift
        {when("0x80000000 >> 31 == 1"), "yes"},
        {when("1 << 33 == 2"), "yes"}, // shift count modulo 32
        {when("-7 / 2 == -3 && -7 % 2 == -1"), "yes"},
        {when("0xFFFFFFF9 / 2 == 0x7FFFFFFC"), "yes"},
        {when("1 + 2 * 3 == 7 && (1 + 2) * 3 == 9"), "yes"},
        {when("1 || 0 && 0"), "yes"},
        {when("(6 & 3) == 2 && (6 | 3) == 7 && (6 ^ 3) == 5"), "yes"},
        {when("!0 == 1 && ~0 == -1 && - -1 == 1 && +3 == 3"), "yes"},
        {when("1 < 2 && 2 <= 2 && 3 > 2 && 2 >= 2 && 1 != 2"), "yes"},
        {when("(1 ? 2 : 3) == 2 && (0 ? 2 : 3) == 3 && (0 ? 1 : 0 ? 2 : 3) == 3"), "yes"},
        {"#define X\n" + when("defined X || defined(Y)"), "yes"},
        {when("defined(__LINE__) && !defined Y"), "yes"},
        {"#define Y 2\n" + when("Y == 2 && UNKNOWN == 0"), "yes"},
        {when("010 == 8 && 0x1F == 31 && 0X1f == 31 && 10uLLu == 10"), "yes"},
        {when("'a' == 97 && '\\n' == 10 && '\\'' == 39 && '\\\\' == 92 && '\\101' == 65"), "yes"},
        {when("'\\x41' == 65 && '\\?' == 63 && '\\v' == 11"), "yes"},
        {when("0 && (1/0)"), "no"}, // no message: the left side decides
        {when("1 || 5 % 0"), "yes"},
        {when("(-2147483647 - 1) / -1 == 0"), "no"}, // must not trap
    });
}

TEST_F(IfExpr, Messages) {
    const std::string syntax = "error: Syntax error in #ifdef/#ifndef.";
    check({
        {when("1/0"), "yes", "error: Undefined expression value."}, // the left operand stands
        {when("0/0"), "no", "error: Undefined expression value."},
        {when("defined"), "no", "error: Incorrect syntax for 'defined'.\n" + syntax},
        {"#define X\n" + when("X"), "no", syntax}, // an empty expansion: no operand
        {when("1e5 == 245"), "yes", "warning: Bad digit in number: '1e5'."}, // e is a digit
        {when("1.5 == 1"), "yes", "error: Bad number (1.5) in #if/#elif."},
        // "taken as not signed", whose code has no text
        {when("'\\xff' == 255"), "yes", "*** No message for error 0xA000403C ***"},
        {when("'\xE9' == 233"), "yes", "*** No message for error 0xA000403C ***"}, // é
        {when("'ab' == 97"), "yes", "warning: Multibyte character constant undefined."},
        {when("L'a' == 97"), "yes", "warning: Wide char constant value undefined."},
        {when("'\\q' == 0"), "yes", "warning: Undefined escape in character constant."},
        {when("'' == 0"), "yes", "error: Empty character constant."},
        {when("\"s\" == 0"), "yes", "error: String in #if/#elif."},
        {when("(1"), "no", "warning: Syntax error in #ifdef/#ifndef."},
        {when("1 2"), "no", syntax},
        {when("1 +"), "no", syntax},
        {when("1)"), "no", syntax},
        {when("1 (2)"), "no", syntax},
        {when("1 : 2"), "no", "error: Bad ?: in #if/endif."},
        {when("1 ? 2"), "no", "error: Eval botch (unknown operator)."},
        {when("*1"), "no", "error: Illegal operator (* or &) in #if/#elif."},
        {when("1 , 2"), "no", "error: Bad operator (,) in #if/#elif."},
        {when("a = 1"), "no", "error: Bad operator (=) in #if/#elif."},
    });
}
