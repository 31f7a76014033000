// The insert formatter and the message catalogue, without library state.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "diag/catalogue.h"
#include "diag/codes.h"
#include "diag/format.h"
#include "harness/harness.h"

using tarn::format_inserts;
using tarn::MsgArg;
using tarn_test::u16;
using tarn_test::u8;

namespace {

std::string fmt(const char16_t* text, std::initializer_list<MsgArg> args = {}) {
    return u8(format_inserts(text, std::span<const MsgArg>(args.begin(), args.size())));
}

TEST(FormatInserts, StringInsertsInAnyOrder) {
    EXPECT_EQ(fmt(u"File '%1' in '%2'.", {u"a.rc", u"dir"}), "File 'a.rc' in 'dir'.");
    EXPECT_EQ(fmt(u"%2-%1-%2", {u"x", u"y"}), "y-x-y");
    EXPECT_EQ(fmt(u"%1!s!|%1!ls!|%1!ws!|%1!S!", {u"t"}), "t|t|t|t");
    EXPECT_EQ(fmt(u"[%1]", {static_cast<const char16_t*>(nullptr)}), "[(null)]");
}

TEST(FormatInserts, TwoDigitNumbersAtMost) {
    std::vector<MsgArg> args;
    for (int i = 1; i <= 12; ++i) args.emplace_back(i * 10);
    std::span<const MsgArg> s(args);
    EXPECT_EQ(u8(format_inserts(u"%10!d!,%12!d!", s)), "100,120");
    EXPECT_EQ(u8(format_inserts(u"%100", s)), "1000");       // insert 10, then "0"
    EXPECT_EQ(u8(format_inserts(u"%100!d!", s)), "1000!d!"); // the format is text there
}

TEST(FormatInserts, IntegerConversions) {
    EXPECT_EQ(fmt(u"%1!d!", {-42}), "-42");
    EXPECT_EQ(fmt(u"%1!i!", {7}), "7");
    EXPECT_EQ(fmt(u"%1!u!", {-1}), "4294967295");
    EXPECT_EQ(fmt(u"%1!x!/%1!X!", {0xBEEF}), "beef/BEEF");
    EXPECT_EQ(fmt(u"%1!o!", {8}), "10");
    EXPECT_EQ(fmt(u"%1!c!%2!C!", {char16_t(u'ä'), 0x141}), "äA");
}

TEST(FormatInserts, LengthPrefixes) {
    EXPECT_EQ(fmt(u"%1!hd!", {0x8000}), "-32768");
    EXPECT_EQ(fmt(u"%1!hu!", {0x12345}), "9029");
    EXPECT_EQ(fmt(u"%1!d!", {0x100000001LL}), "1"); // plain d is 32 bits
    EXPECT_EQ(fmt(u"%1!lld!", {0x100000001LL}), "4294967297");
    EXPECT_EQ(fmt(u"%1!I64u!", {-1LL}), "18446744073709551615");
    EXPECT_EQ(fmt(u"%1!I64X!", {0x1234567890LL}), "1234567890");
    EXPECT_EQ(fmt(u"%1!I32d!|%1!ld!", {0x1FFFFFFFFLL}), "-1|-1");
}

TEST(FormatInserts, FlagsWidthAndPrecision) {
    EXPECT_EQ(fmt(u"[%1!5d!]", {42}), "[   42]");
    EXPECT_EQ(fmt(u"[%1!-5d!]", {42}), "[42   ]");
    EXPECT_EQ(fmt(u"[%1!05d!]", {-42}), "[-0042]");
    EXPECT_EQ(fmt(u"[%1!+d!][%1! d!]", {42}), "[+42][ 42]");
    EXPECT_EQ(fmt(u"[%1!+d!]", {-42}), "[-42]");
    EXPECT_EQ(fmt(u"[%1!.3d!]", {7}), "[007]");
    EXPECT_EQ(fmt(u"[%1!08.3d!]", {7}), "[     007]"); // precision turns zero fill off
    EXPECT_EQ(fmt(u"[%1!.0d!]", {0}), "[]");
    EXPECT_EQ(fmt(u"[%1!#x!][%1!#X!][%2!#x!]", {255, 0}), "[0xff][0XFF][0]");
    EXPECT_EQ(fmt(u"[%1!#06x!]", {255}), "[0x00ff]");
    EXPECT_EQ(fmt(u"[%1!#o!]", {8}), "[010]");
    EXPECT_EQ(fmt(u"[%1!5s!][%1!-5s!][%2!.2s!]", {u"ab", u"abcdef"}), "[   ab][ab   ][ab]");
    EXPECT_EQ(fmt(u"[%1!3c!]", {char16_t(u'x')}), "[  x]");
}

// What the platform leaves undefined gets a readable text.
TEST(FormatInserts, MismatchedArguments) {
    EXPECT_EQ(fmt(u"%1 and %1!s!", {1234}), "1234 and 1234");
    EXPECT_EQ(fmt(u"%1!s!", {-5}), "-5");
    EXPECT_EQ(fmt(u"%1!d!|%1!X!", {u"text"}), "text|text");
    EXPECT_EQ(fmt(u"<%1!d!>", {static_cast<const tarn::TokenRow*>(nullptr)}), "<>");
}

TEST(FormatInserts, MissingArgumentsExpandToNothing) {
    EXPECT_EQ(fmt(u"a%1b%2!d!c", {}), "abc");
    EXPECT_EQ(fmt(u"a%1b%3c", {u"X", u"Y"}), "aXbc");
}

TEST(FormatInserts, Escapes) {
    EXPECT_EQ(fmt(u"a%%b%nc%rd%te%bf%.g%!h%qi"), "a%b\r\nc\rd\te f.g!hqi");
    EXPECT_EQ(fmt(u"100%% sure"), "100% sure");
    EXPECT_EQ(fmt(u"%%1", {u"X"}), "%1");
    EXPECT_EQ(fmt(u"end%"), "end");
    EXPECT_EQ(fmt(u"line1\r\nline2\nline3\r\n"), "line1\r\nline2\nline3\r\n");
}

TEST(FormatInserts, PercentZeroStopsAtOnce) {
    EXPECT_EQ(fmt(u"abc%0def\r\n"), "abc");
    EXPECT_EQ(fmt(u"Writing %1%0", {u"X"}), "Writing X");
    EXPECT_EQ(fmt(u"%0"), "");
    EXPECT_EQ(fmt(u"%%0%0x"), "%0");
}

TEST(FormatInserts, UnclosedFormatIsText) {
    EXPECT_EQ(fmt(u"%1!d", {u"v"}), "v!d");
    EXPECT_EQ(fmt(u"%1!!", {u"v"}), "v"); // empty format: string
}

TEST(FormatInserts, NoWidthLimit) {
    std::u16string big(5000, u'x');
    MsgArg a(big);
    EXPECT_EQ(format_inserts(u"<%1>", std::span<const MsgArg>(&a, 1)), u"<" + big + u">");
}

// ---- the catalogue ----

// The multiset of "%" sequences of a text.
std::vector<std::string> inserts_of(const std::string& text) {
    static const std::regex seq("%(%[a-z0-9]|[1-9][0-9]?(![^!]*!)?|.)");
    std::vector<std::string> all;
    for (std::sregex_iterator i(text.begin(), text.end(), seq), end; i != end; ++i)
        all.push_back(i->str());
    std::sort(all.begin(), all.end());
    return all;
}

bool well_ended(const std::u16string& t) {
    size_t stop = t.find(u"%0");
    if (stop != std::u16string::npos) return stop + 2 == t.size();
    return t.size() >= 2 && t.ends_with(u"\r\n");
}

TEST(Catalogue, EveryNumberInBothLanguagesWithTheSameInserts) {
    uint32_t count = 0;
    const tarn::CatalogueEntry* e = tarn::catalogue_entries(&count);
    ASSERT_EQ(count, tarn::MSG_LAST);
    for (uint32_t i = 0; i < count; ++i) {
        SCOPED_TRACE(i + 1);
        ASSERT_EQ(e[i].number, i + 1);
        ASSERT_TRUE(e[i].english && e[i].swedish);
        EXPECT_TRUE(well_ended(e[i].english));
        EXPECT_TRUE(well_ended(e[i].swedish));
        EXPECT_EQ(inserts_of(u8(e[i].english)), inserts_of(u8(e[i].swedish)));
        uint32_t id = tarn::CODE_LIBRARY | e[i].number;
        EXPECT_EQ(tarn::catalogue_text(id, tarn::Language::english), e[i].english);
        EXPECT_EQ(tarn::catalogue_text(id, tarn::Language::swedish), e[i].swedish);
    }
}

TEST(Catalogue, OnlyTheExactIdentifiersAreFound) {
    for (uint32_t id : {0x20000000u, 0x20000075u, 0x2000401Du, 0x2000801Du, 0x00000001u,
                        0xE0000001u, 0xA0000072u, 0xFFFFFFFFu})
        EXPECT_EQ(tarn::catalogue_text(id, tarn::Language::english), nullptr) << std::hex << id;
}

TEST(Catalogue, KnownTexts) {
    using tarn::Language;
    auto en = [](uint32_t n) {
        return u8(tarn::catalogue_text(0x20000000 | n, Language::english));
    };
    auto sv = [](uint32_t n) {
        return u8(tarn::catalogue_text(0x20000000 | n, Language::swedish));
    };
    EXPECT_EQ(en(0x01), "File not found: '%1'.\r\n");
    EXPECT_EQ(en(0x1E), "Unterminated #if/#ifdef/#ifndef (started at line %%d).\r\n");
    EXPECT_EQ(en(0x5D), ", language = 0x%1!X!%0");
    EXPECT_EQ(en(0x61), "Syntax:\r\n%1 [options] input[%2]\r\n\r\n");
    EXPECT_EQ(en(0x63),
              "/C<cp>             Define codepage for NLS conversion (default: %1!d!)\r\n");
    EXPECT_EQ(en(0x70), "fatal error: %0");
    EXPECT_EQ(sv(0x03), "Fel vid skrivning till fil.\r\n");
    EXPECT_EQ(sv(0x70), "ödesdigert fel: %0");
    EXPECT_EQ(sv(0x71), "fel: %0");
    EXPECT_EQ(sv(0x72), "varning: %0");
}

} // namespace
