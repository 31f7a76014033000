// The platform layer's code pages, character classes, environment, system
// texts, console and clock, with the behaviour of the Windows calls.
#include "support/platform.h"

#include "harness/harness.h"

#include <gtest/gtest.h>

#include <bit>
#include <string>

#ifndef _WIN32
#include <iconv.h>
#endif

using namespace tarn;
using tarn_test::ScopedEnv;

namespace {

std::u16string to16(uint32_t cp, const std::string& bytes) {
    size_t n = plat_to_utf16(cp, bytes.data(), bytes.size(), nullptr, 0);
    std::u16string text(n, u'\0');
    EXPECT_EQ(plat_to_utf16(cp, bytes.data(), bytes.size(), text.data(), n), n);
    return text;
}

std::string from16(uint32_t cp, const std::u16string& text) {
    size_t n = plat_from_utf16(cp, text.data(), text.size(), nullptr, 0);
    std::string bytes(n, '\0');
    EXPECT_EQ(plat_from_utf16(cp, text.data(), text.size(), bytes.data(), n), n);
    return bytes;
}

} // namespace

TEST(CodePages, TheWindowsPagesAreValid) {
    for (uint32_t cp : {437u, 866u, 932u, 936u, 949u, 950u, 1250u, 1258u, 20127u, 28605u, 65001u})
        EXPECT_TRUE(plat_valid_code_page(cp)) << cp;
    for (uint32_t cp : {0u, 1u, 1249u, 12345u, 70000u})
        EXPECT_FALSE(plat_valid_code_page(cp)) << cp;
#ifndef _WIN32
    EXPECT_EQ(plat_ansi_code_page(), 1252u);
    EXPECT_EQ(plat_oem_code_page(), 437u);
#endif
}

TEST(CodePages, RoundTrips) {
    struct Case {
        uint32_t cp;
        std::string bytes;
        std::u16string text;
    } cases[] = {
        {1252, "caf\xE9 \x80 \x9F", u"caf\u00E9 \u20AC \u0178"},
        {1252, "\x81\x8D\x8F\x90\x9D", u"\u0081\u008D\u008F\u0090\u009D"}, // undefined: kept
        {437, "\x82\xE1\x9B\xB0", u"\u00E9\u00DF\u00A2\u2591"},
        {866, "\x8F\x90\xA8\xF0", u"\u041F\u0420\u0438\u0401"},
        {932, "a\x82\xA0\x93\xFA\x96\x7B\xB1", u"a\u3042\u65E5\u672C\uFF71"},
        {65001, "\xE6\x97\xA5\xF0\x9F\x98\x80", u"\u65E5\U0001F600"},
        {28605, "\xA4", u"\u20AC"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(to16(c.cp, c.bytes), c.text) << c.cp;
        EXPECT_EQ(from16(c.cp, c.text), c.bytes) << c.cp;
    }
}

// Every byte of a single-byte page comes back from its character; for the
// built-in ANSI page, the characters are also those of the C library's
// converter wherever it defines the byte.
TEST(CodePages, EveryByteOfASingleBytePageRoundTrips) {
    std::string all;
    for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
    for (uint32_t cp : {1252u, 437u, 866u, 1250u, 28605u}) {
        std::u16string text = to16(cp, all);
        ASSERT_EQ(text.size(), 256u) << cp;
        EXPECT_EQ(from16(cp, text), all) << cp;
    }
#ifndef _WIN32
    std::u16string ours = to16(1252, all);
    iconv_t cd =
        iconv_open(std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE", "CP1252");
    ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1));
    for (int b = 0; b < 256; ++b) {
        char in = static_cast<char>(b), *in_p = &in;
        char16_t out = 0;
        char* out_p = reinterpret_cast<char*>(&out);
        size_t in_left = 1, out_left = sizeof out;
        if (iconv(cd, &in_p, &in_left, &out_p, &out_left) != static_cast<size_t>(-1)) {
            EXPECT_EQ(ours[b], out) << "byte " << b;
        }
    }
    iconv_close(cd);
#endif
}

// Runs of ASCII are widened in blocks: a high byte at any place in a block,
// and a tail shorter than one, still decode one by one.
TEST(CodePages, HighBytesAmongAsciiRunsDecodeInPlace) {
    for (size_t at = 0; at < 40; ++at) {
        std::string bytes;
        for (size_t i = 0; i < 45; ++i) bytes += static_cast<char>('A' + i % 26);
        bytes[at] = '\x80';
        std::u16string want(bytes.begin(), bytes.end());
        want[at] = u'\u20AC';
        EXPECT_EQ(to16(1252, bytes), want) << "at " << at;
    }
}

TEST(CodePages, UnmappableCharactersBecomeTheDefault) {
    EXPECT_EQ(from16(1252, u"a\u4E00b"), "a?b");
    EXPECT_EQ(from16(866, u"\u4E00"), "?");
    EXPECT_EQ(from16(932, u"a\U0001F600b"), "a??b"); // one default per unit
    EXPECT_EQ(from16(1252, u"\U0001F600"), "??");
    EXPECT_EQ(from16(65001, u"a\xD800"
                            u"b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(to16(65001, "a\xFF"
                          "b\xE2\x82"),
              u"a\uFFFDb\uFFFD");
    // A lead byte takes its bad trail byte with it; one alone at the end too.
    EXPECT_EQ(to16(932, "\x82\x20z\x82"), u"\u30FBz\u30FB");
    EXPECT_EQ(to16(936, "\x81\x20z"), u"?z");
    EXPECT_EQ(to16(20127, "a\xE9"), u"ai"); // the top bit cleared
}

TEST(CodePages, RoomTooSmallGivesZero) {
    char16_t units[2];
    EXPECT_EQ(plat_to_utf16(1252, "abc", 3, units, 2), 0u);
    EXPECT_EQ(plat_to_utf16(932, "abc", 3, units, 2), 0u);
    EXPECT_EQ(plat_to_utf16(65001, "abc", 3, units, 2), 0u);
    char bytes[2];
    EXPECT_EQ(plat_from_utf16(1252, u"abc", 3, bytes, 2), 0u);
    EXPECT_EQ(plat_from_utf16(932, u"\u3042", 1, bytes, 1), 0u);
    EXPECT_EQ(plat_from_utf16(932, u"\u3042", 1, bytes, 2), 2u);
    EXPECT_EQ(plat_to_utf16(1252, "", 0, units, 2), 0u);
    EXPECT_EQ(plat_to_utf16(12345, "a", 1, units, 2), 0u);
}

TEST(CharacterClasses, LettersDigitsAndUpperCase) {
    for (char16_t c : {u'a', u'Z', char16_t(0xAA), char16_t(0xB5), char16_t(0xC0), char16_t(0xDF),
                       char16_t(0xFF), char16_t(0x436), char16_t(0x3B1)})
        EXPECT_TRUE(plat_is_alpha(c)) << int(c);
    for (char16_t c : {u'1', u'_', u'$', char16_t(0xD7), char16_t(0xF7), char16_t(0xA0),
                       char16_t(0x2013), char16_t(0xD800)})
        EXPECT_FALSE(plat_is_alpha(c)) << int(c);
    EXPECT_TRUE(plat_is_alphanumeric(u'7'));
    EXPECT_TRUE(plat_is_alphanumeric(char16_t(0xE9)));
    EXPECT_FALSE(plat_is_alphanumeric(u'.'));
    // Sharp s, the micro sign and the division sign stay; y diaeresis does not.
    std::u16string from = u"q\u00E9\u00DF\u00FF\u00B5\u00F7\u04361",
                   to = u"Q\u00C9\u00DF\u0178\u00B5\u00F7\u04161";
    for (size_t i = 0; i < from.size(); ++i) EXPECT_EQ(plat_upper(from[i]), to[i]) << int(from[i]);
}

TEST(Environment, NamesMatchInAnyCase) {
    ScopedEnv env("TARN_Test_Include", "a;b");
    std::u16string value;
    EXPECT_TRUE(plat_getenv(u"tarn_test_include", &value));
    EXPECT_EQ(value, u"a;b");
    EXPECT_TRUE(plat_getenv(u"TARN_TEST_INCLUDE", &value));
    EXPECT_FALSE(plat_getenv(u"TARN_TEST_INCLUDE_NOT_SET", &value));
}

#ifndef _WIN32
TEST(SystemMessages, EnglishOrSwedishByTheUsersLanguage) {
    ScopedEnv all("LC_ALL", nullptr), messages("LC_MESSAGES", ""), lang("LANG", "en_US.UTF-8");
    EXPECT_FALSE(plat_user_language_swedish());
    EXPECT_EQ(plat_system_message(2), u"The system cannot find the file specified.\r\n");
    EXPECT_EQ(plat_system_message(3), u"The system cannot find the path specified.\r\n");
    EXPECT_EQ(plat_system_message(99999), u"");
    std::u16string english = plat_system_message(5);
    lang.set("sv");
    EXPECT_TRUE(plat_user_language_swedish());
    EXPECT_EQ(plat_system_message(5), u"\u00C5tkomst nekad.\r\n");
    for (uint32_t e :
         {2u, 3u, 4u, 6u, 14u, 19u, 29u, 30u, 31u, 32u, 38u, 80u, 87u, 112u, 131u, 206u, 1113u}) {
        std::u16string text = plat_system_message(e);
        EXPECT_EQ(text.substr(text.size() - 2), u"\r\n") << e;
    }
    all.set("en_GB");
    EXPECT_FALSE(plat_user_language_swedish()); // LC_ALL decides first
    all.set("sv_SE.UTF-8");
    EXPECT_TRUE(plat_user_language_swedish());
}
#endif

TEST(Console, EmptyTextAndUnknownHandles) {
    EXPECT_EQ(console_write(1, u""), 0u);
    EXPECT_EQ(console_write(7, u"x"), ERR_INVALID_HANDLE);
}

TEST(Clock, TextHasTheCLibraryForm) {
    std::string t = time_text(time_now());
    ASSERT_EQ(t.size(), 25u);
    EXPECT_EQ(t[3], ' ');
    EXPECT_EQ(t[7], ' ');
    EXPECT_EQ(t[13], ':');
    EXPECT_EQ(t[24], '\n');
    EXPECT_GT(time_now(), 1600000000);
}
