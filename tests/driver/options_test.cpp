// The driver's command line: option letters and their values, the input's
// extension and the default output, and what counts as a usage error.
#include <gtest/gtest.h>

#include "options.h"

using namespace tarn_driver;
using Args = std::vector<std::u16string>;
using Problem = Options::Problem;

namespace {

Options posix(const Args& args) {
    return parse_options(args, false);
}
Options windows(const Args& args) {
    return parse_options(args, true);
}

TEST(DriverOptions, ValuesAttachedOrNextAndLettersInAnyCase) {
    Options o = posix({u"-Iinc", u"-i", u"two", u"-fo", u"out.res", u"-DX=1", u"-u", u"Y",
                       u"-c1250", u"-L", u"0x41d", u"-n", u"-v", u"-x", u"-r", u"app"});
    ASSERT_EQ(o.action, Action::compile);
    EXPECT_EQ(o.include_paths, (Args{u"inc", u"two"}));
    EXPECT_EQ(o.output, u"out.res");
    ASSERT_EQ(o.symbols.size(), 2u);
    EXPECT_TRUE(o.symbols[0].define);
    EXPECT_EQ(o.symbols[0].text, u"X=1");
    EXPECT_FALSE(o.symbols[1].define);
    EXPECT_EQ(o.symbols[1].text, u"Y");
    EXPECT_TRUE(o.code_page_given);
    EXPECT_EQ(o.code_page, 1250u);
    EXPECT_TRUE(o.language_given);
    EXPECT_EQ(o.language, 0x41D);
    EXPECT_TRUE(o.null_append && o.verbose && o.no_standard_includes);
    EXPECT_FALSE(o.preprocess_only || o.make_rule);
    EXPECT_EQ(o.input, u"app.rc");
}

TEST(DriverOptions, SlashStartsAnOptionOnlyOnWindows) {
    Options w = windows({u"/E", u"/FOx.res", u"in.rc"});
    EXPECT_TRUE(w.preprocess_only);
    EXPECT_EQ(w.output, u"x.res");
    Options p = posix({u"/home/me/app.rc"});
    EXPECT_EQ(p.action, Action::compile);
    EXPECT_EQ(p.input, u"/home/me/app.rc");
    EXPECT_EQ(p.output, u"/home/me/app.res");
}

TEST(DriverOptions, InputExtensionAndDefaultOutput) {
    for (auto [arg, input, output] : {std::tuple{u"app", u"app.rc", u"app.res"},
                                      {u"app.txt", u"app.txt", u"app.res"},
                                      {u"dir.d/app", u"dir.d/app.rc", u"dir.d/app.res"},
                                      {u"dir.d\\app", u"dir.d\\app.rc", u"dir.d\\app.res"},
                                      {u"a.b.rc", u"a.b.rc", u"a.b.res"}}) {
        Options o = posix({arg});
        EXPECT_EQ(o.input, input);
        EXPECT_EQ(o.output, output);
    }
}

TEST(DriverOptions, HelpVersionAndDump) {
    EXPECT_EQ(posix({u"-?"}).action, Action::help);
    EXPECT_EQ(windows({u"/?"}).action, Action::help);
    EXPECT_EQ(posix({u"app.rc", u"--help"}).action, Action::help);
    EXPECT_EQ(posix({u"--version"}).action, Action::version);
    Options d = posix({u"--dump", u"app.res"});
    EXPECT_EQ(d.action, Action::dump);
    EXPECT_EQ(d.input, u"app.res"); // no ".rc" here
    EXPECT_FALSE(d.dump_hex);
    Options h = posix({u"--dump-hex", u"app.res"});
    EXPECT_EQ(h.action, Action::dump);
    EXPECT_TRUE(h.dump_hex);
    EXPECT_EQ(posix({u"--dump"}).action, Action::usage_error);
}

TEST(DriverOptions, BadOptionsAreShownAsTyped) {
    struct {
        Args args;
        bool slash;
        Problem problem;
        std::u16string shown;
    } cases[] = {
        {{u"-Q", u"a.rc"}, false, Problem::unknown_option, u"-Q"},
        {{u"/Z", u"a.rc"}, true, Problem::unknown_option, u"/Z"},
        {{u"-Vx", u"a.rc"}, false, Problem::unknown_option, u"-Vx"}, // a flag takes no value
        {{u"-F", u"a.rc"}, false, Problem::unknown_option, u"-F"},   // only "Fo" starts with F
        {{u"--bogus", u"a.rc"}, true, Problem::unknown_option, u"--bogus"},
        {{u"a.rc", u"-I"}, false, Problem::missing_value, u"-I"},
        {{u"a.rc", u"/fo"}, true, Problem::missing_value, u"/fo"},
        {{u"-C"}, false, Problem::missing_value, u"-C"},
    };
    for (const auto& c : cases) {
        Options o = parse_options(c.args, c.slash);
        EXPECT_EQ(o.action, Action::usage_error);
        EXPECT_EQ(o.problem, c.problem);
        EXPECT_EQ(o.offending, c.shown);
    }
}

TEST(DriverOptions, UsageErrorsWithoutAMessage) {
    EXPECT_EQ(posix({}).action, Action::usage_error);
    EXPECT_EQ(posix({}).problem, Problem::none);
    EXPECT_EQ(posix({u"-E"}).action, Action::usage_error); // no input
    Options two = posix({u"a.rc", u"b.rc"});
    EXPECT_EQ(two.action, Action::usage_error);
    EXPECT_EQ(two.problem, Problem::none);
}

TEST(DriverOptions, LanguageIsHexWithOptionalPrefix) {
    uint16_t language = 0;
    for (auto [text, value] : {std::pair{u"0x0409", 0x409}, {u"41d", 0x41D}, {u"0XFFFF", 0xFFFF}}) {
        EXPECT_TRUE(parse_language(text, &language));
        EXPECT_EQ(language, value);
    }
    for (std::u16string_view bad : {u"", u"0x", u"zz", u"12345", u"4 09", u"-1"})
        EXPECT_FALSE(parse_language(bad, &language)) << std::string(bad.begin(), bad.end());
}

// The text given is kept for the message, whatever part of it was read.
TEST(DriverOptions, BadLanguageAndCodePageKeepTheirText) {
    struct {
        Args args;
        Problem problem;
        std::u16string text;
    } cases[] = {
        {{u"-Lzz", u"a.rc"}, Problem::bad_language, u"zz"},
        {{u"-L", u"12345", u"a.rc"}, Problem::bad_language, u"12345"},
        {{u"-Cabc", u"a.rc"}, Problem::bad_code_page, u"abc"},
        {{u"-C", u"12a", u"a.rc"}, Problem::bad_code_page, u"12a"},
        {{u"-C99999999999", u"a.rc"}, Problem::bad_code_page, u"99999999999"},
    };
    for (const auto& c : cases) {
        Options o = posix(c.args);
        EXPECT_EQ(o.action, Action::usage_error);
        EXPECT_EQ(o.problem, c.problem);
        EXPECT_EQ(o.bad_text, c.text);
    }
}

TEST(DriverOptions, CodePageIsDecimal) {
    uint32_t cp = 0;
    EXPECT_TRUE(parse_code_page(u"65001", &cp));
    EXPECT_EQ(cp, 65001u);
    for (std::u16string_view bad : {u"", u"0x4e4", u"12a", u"99999999999"})
        EXPECT_FALSE(parse_code_page(bad, &cp));
}

} // namespace
