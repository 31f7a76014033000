// The driver's messages: the language from the locale variables, insert
// expansion, line breaks and the location prefix of diagnostics.
#include <gtest/gtest.h>

#include "messages.h"

using namespace tarn_driver;

namespace {

TEST(DriverMessages, LanguageFromTheFirstSetLocaleVariable) {
    EXPECT_TRUE(locale_is_swedish(nullptr, nullptr, "sv_SE.UTF-8"));
    EXPECT_TRUE(locale_is_swedish("", "sv_FI", "en_US"));
    EXPECT_FALSE(locale_is_swedish("C", "sv_SE", "sv_SE")); // LC_ALL wins
    EXPECT_FALSE(locale_is_swedish(nullptr, nullptr, nullptr));
    EXPECT_FALSE(locale_is_swedish(nullptr, nullptr, "s"));
}

TEST(DriverMessages, TableLineBreaksBecomeLines) {
    EXPECT_EQ(as_lines(u"Options:\r\n"), u"Options:");
    EXPECT_EQ(as_lines(u"one\n"), u"one");
    EXPECT_EQ(as_lines(u"Syntax:\r\ntarn x\r\n\r\n"), u"Syntax:\ntarn x\n");
    EXPECT_EQ(as_lines(u"no break"), u"no break");
}

TEST(DriverMessages, InsertsExpand) {
    EXPECT_EQ(expand_message(u"Unrecognized option /%1.\r\n", {u"Q"}), u"Unrecognized option /Q.");
    EXPECT_EQ(expand_message(u"/L (default: 0x%1!x!)\r\n", {0x409u}), u"/L (default: 0x409)");
    EXPECT_EQ(expand_message(u"%1: %0", {u"a.rc(3)"}), u"a.rc(3): ");
}

TEST(DriverMessages, EveryDriverMessageHasText) {
    for (uint32_t n = MSG_BANNER; n <= MSG_ABORTED; ++n) EXPECT_FALSE(message(n).empty()) << n;
}

// The table's numeric and "/"-prefixed inserts show the text as typed, in
// either language.
TEST(DriverMessages, OwnMessagesAndTextsShownAsTyped) {
    for (uint32_t n = MSG_DRIVER_FIRST; n < MSG_DRIVER_END; ++n)
        EXPECT_FALSE(message(n).empty()) << n;
    struct {
        uint32_t number;
        std::u16string_view placeholder, typed, end;
    } cases[] = {
        {MSG_UNKNOWN_OPTION, u"/%1", u"--bogus", u" --bogus."},
        {MSG_UNKNOWN_OPTION, u"/%1", u"/Z", u" /Z."},
        {MSG_INVALID_LANGUAGE, u"%1!hd!", u"zz", u": zz."},
        {MSG_INVALID_CODEPAGE, u"%1!d!", u"abc", u": abc."},
    };
    for (const auto& c : cases)
        EXPECT_TRUE(message_showing(c.number, c.placeholder, c.typed).ends_with(c.end)) << c.number;
    EXPECT_TRUE(message(MSG_MISSING_VALUE, {u"-Fo"}).find(u" -Fo ") != std::u16string::npos);
}

TEST(DriverMessages, DiagnosticsCarryTheirLocation) {
    EXPECT_EQ(diagnostic_line(u"app.rc", 12, u"error: Invalid syntax.\r\n"),
              u"app.rc(12): error: Invalid syntax.");
    EXPECT_EQ(diagnostic_line(nullptr, 0, u"fatal error: x\r\n"), u"fatal error: x");
}

} // namespace
