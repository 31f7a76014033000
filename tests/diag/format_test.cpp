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
using tarn_test::u8;

namespace {

// Every row: a text, its inserts and what it expands to. What the platform
// leaves undefined (mismatched inserts) gets a readable text.
TEST(FormatInserts, Expansions) {
    struct Case {
        const char16_t* text;
        std::vector<MsgArg> args;
        const char* want;
    } cases[] = {
        {u"File '%1' in '%2'.", {u"a.rc", u"dir"}, "File 'a.rc' in 'dir'."},
        {u"%2-%1-%2", {u"x", u"y"}, "y-x-y"},
        {u"%1!s!|%1!ls!|%1!ws!|%1!S!", {u"t"}, "t|t|t|t"},
        {u"[%1]", {static_cast<const char16_t*>(nullptr)}, "[(null)]"},
        {u"%1!d!|%1!i!|%1!u!", {-42}, "-42|-42|4294967254"},
        {u"%1!x!/%1!X!/%1!o!", {0xBEEF}, "beef/BEEF/137357"},
        {u"%1!c!%2!C!", {char16_t(u'\u00e4'), 0x141}, "\u00e4A"},
        {u"%1!hd!|%1!hu!", {0x18000}, "-32768|32768"},
        {u"%1!d!|%1!lld!", {0x100000001LL}, "1|4294967297"}, // plain d is 32 bits
        {u"%1!I64u!", {-1LL}, "18446744073709551615"},
        {u"%1!I64X!", {0x1234567890LL}, "1234567890"},
        {u"%1!I32d!|%1!ld!", {0x1FFFFFFFFLL}, "-1|-1"},
        {u"[%1!5d!][%1!-5d!][%1!+d!][%1! d!]", {42}, "[   42][42   ][+42][ 42]"},
        {u"[%1!05d!][%1!+d!]", {-42}, "[-0042][-42]"},
        {u"[%1!.3d!][%1!08.3d!]", {7}, "[007][     007]"}, // precision turns zero fill off
        {u"[%1!.0d!]", {0}, "[]"},
        {u"[%1!#x!][%1!#X!][%2!#x!][%1!#06x!]", {255, 0}, "[0xff][0XFF][0][0x00ff]"},
        {u"[%1!#o!]", {8}, "[010]"},
        {u"[%1!-#8x!][%1!+06d!][%1!#.4o!][%1!#10.5X!]",
         {255},
         "[0xff    ][+00255][0377][   0X000FF]"},
        {u"[%1!5s!][%1!-5s!][%2!.2s!]", {u"ab", u"abcdef"}, "[   ab][ab   ][ab]"},
        {u"[%1!3c!]", {char16_t(u'x')}, "[  x]"},
        {u"%1 and %1!s!", {1234}, "1234 and 1234"},
        {u"%1!s!", {-5}, "-5"},
        {u"%1!d!|%1!X!", {u"text"}, "text|text"},
        {u"<%1!d!>", {static_cast<const tarn::TokenRow*>(nullptr)}, "<>"},
        {u"a%1b%2!d!c", {}, "abc"}, // missing inserts expand to nothing
        {u"a%1b%3c", {u"X", u"Y"}, "aXbc"},
        {u"a%%b%nc%rd%te%bf%.g%!h%qi", {}, "a%b\r\nc\rd\te f.g!hqi"},
        {u"%%1 100%% end%", {u"X"}, "%1 100% end"},
        {u"line1\r\nline2\nline3\r\n", {}, "line1\r\nline2\nline3\r\n"},
        {u"abc%0def\r\n", {}, "abc"}, // %0 stops at once
        {u"Writing %1%0", {u"X"}, "Writing X"},
        {u"%%0%0x", {}, "%0"},
        {u"%1!d", {u"v"}, "v!d"}, // an unclosed format is text
        {u"%1!!", {u"v"}, "v"},   // an empty one: string
    };
    for (const Case& c : cases) {
        EXPECT_EQ(u8(format_inserts(c.text, c.args)), c.want) << u8(c.text);
        std::u16string kept = u"kept:"; // appending leaves what the buffer holds
        tarn::append_inserts(kept, c.text, c.args);
        EXPECT_EQ(u8(kept), std::string("kept:") + c.want) << u8(c.text);
    }
}

TEST(FormatInserts, TwoDigitNumbersAtMostAndNoWidthLimit) {
    std::vector<MsgArg> args;
    for (int i = 1; i <= 12; ++i) args.emplace_back(i * 10);
    EXPECT_EQ(u8(format_inserts(u"%10!d!,%12!d!", args)), "100,120");
    EXPECT_EQ(u8(format_inserts(u"%100", args)), "1000");       // insert 10, then "0"
    EXPECT_EQ(u8(format_inserts(u"%100!d!", args)), "1000!d!"); // the format is text there
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
    for (uint32_t id : {0x20000000u, 0x20000078u, 0x2000401Du, 0x2000801Du, 0x00000001u,
                        0xE0000001u, 0xA0000072u, 0xFFFFFFFFu})
        EXPECT_EQ(tarn::catalogue_text(id, tarn::Language::english), nullptr) << std::hex << id;
}

} // namespace
