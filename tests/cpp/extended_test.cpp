// The extended dialect of the preprocessor: __DATE__ and __TIME__ from
// SOURCE_DATE_EPOCH, and the fixed limits that it lifts (line and string
// lengths, macro expansions, arguments and nesting), each against the
// specified limit and message that the dialect as specified keeps.
#include "cpp/pp_fixture.h"

#include <regex>

#include <tarn/tarn.h>

using namespace tarn_test;

class Extended : public PpTest {
  protected:
    void extended() {
        reattach();
        diags.clear();
        set_extended_mode();
    }
};

TEST_F(Extended, SourceDateEpoch) {
    struct Case {
        const char* epoch;
        std::string text;
    } cases[] = {
        {"0", "\"Jan  1 1970\" \"00:00:00\""},
        {"1700000000", "\"Nov 14 2023\" \"22:13:20\""},
        {"951782400", "\"Feb 29 2000\" \"00:00:00\""},
        {"253402300799", "\"Dec 31 9999\" \"23:59:59\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.epoch);
        ScopedEnv env("SOURCE_DATE_EPOCH", c.epoch);
        extended();
        EXPECT_EQ(lines(pp("__DATE__ __TIME__\n")), c.text);
        EXPECT_EQ(messages(), "");
    }
    // A value that is no such number: a warning, and the clock.
    const std::regex clock(
        "\"[A-Z][a-z][a-z] [ 0-9][0-9] [0-9]{4}\" \"[0-9]{2}:[0-9]{2}:[0-9]{2}\"");
    for (const char* bad : {"-1", "12x", "253402300800", " 5"}) {
        SCOPED_TRACE(bad);
        ScopedEnv env("SOURCE_DATE_EPOCH", bad);
        extended();
        std::string out = lines(pp("__DATE__ __TIME__\n"));
        EXPECT_TRUE(std::regex_match(out, clock)) << out;
        EXPECT_EQ(messages(), std::string("warning: SOURCE_DATE_EPOCH is not a number of seconds "
                                          "since 1970: '") +
                                  bad + "'; the clock is used.");
    }
    // The dialect as specified takes the clock.
    ScopedEnv env("SOURCE_DATE_EPOCH", "0");
    reattach();
    diags.clear();
    std::string out = lines(pp("__DATE__ __TIME__\n"));
    EXPECT_TRUE(std::regex_match(out, clock)) << out;
    EXPECT_NE(out, cases[0].text);
    EXPECT_EQ(messages(), "");
}
