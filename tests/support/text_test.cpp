// UTF-8 well-formedness and conversion, number texts and string copies.
#include "diag/report.h"
#include "support/memory.h"
#include "support/text.h"

#include <new>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

using namespace tarn;

namespace {

size_t prefix(const std::string& bytes) {
    return utf8_valid_prefix(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

} // namespace

TEST(Utf8Prefix, EndsBeforeTheFirstCutOrIllFormedSequence) {
    struct Case {
        const char* bytes;
        size_t valid;
    } cases[] = {
        {"", 0},
        {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 10},            // every length
        {"\xE0\xA0\x80\xED\x9F\xBF\xF4\x8F\xBF\xBF\xC2\x80", 12}, // at the bounds
        {"ab\xE2\x82", 2},                                        // cut at the end
        {"a\xC3", 1},
        {"\xF0\x9F\x98", 0},
        {"ab\xFC", 2},                // a five-trail lead near the end
        {"ab\x80z", 2},               // lone continuation byte
        {"x\xC0\xAF", 1},             // overlong lead C0
        {"x\xC1\xBF", 1},             // overlong lead C1
        {"x\xE0\x9F\x80", 1},         // E0 needs A0 or more
        {"x\xED\xA0\x80", 1},         // surrogate
        {"x\xF0\x8F\xBF\xBF", 1},     // F0 needs 90 or more
        {"x\xF4\x90\x80\x80", 1},     // beyond U+10FFFF
        {"x\xF5\x80\x80\x80", 1},     // lead above F4
        {"x\xF8\x88\x80\x80\x80", 1}, // five-byte form
        {"x\xE2\x28\xA1", 1},         // bad second byte
        {"x\xE2\x82\x28", 1},         // bad third byte
    };
    for (const Case& c : cases) EXPECT_EQ(prefix(c.bytes), c.valid) << c.bytes;
}

TEST(Utf8Conversion, EachIllFormedPartBecomesOneReplacement) {
    EXPECT_EQ(utf8_to_utf16("a\xE2\x82z"), u"a\uFFFDz");
    EXPECT_EQ(utf8_to_utf16("\xC0\xAF"), u"\uFFFD\uFFFD");
    EXPECT_EQ(utf8_to_utf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(utf8_to_utf16("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(utf8_to_utf16("\xF0\x9F\x98"), u"\uFFFD");
    EXPECT_EQ(utf8_to_utf16("\xF0\x9F\x98\x80\xC3\xA9"), u"\U0001F600\u00E9");
    // Lone surrogates encode as the replacement.
    EXPECT_EQ(utf16_to_utf8(u"\xD800x"), "\xEF\xBF\xBDx");
    EXPECT_EQ(utf16_to_utf8(std::u16string(1, char16_t(0xDC00))), "\xEF\xBF\xBD");
    EXPECT_EQ(utf16_to_utf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
}

TEST(Utf8Conversion, RoomTooSmallGivesZeroAndNullCounts) {
    char16_t units[4];
    EXPECT_EQ(utf8_decode("abc\xF0\x9F\x98\x80", 7, nullptr, 0), 5u);
    EXPECT_EQ(utf8_decode("abc\xF0\x9F\x98\x80", 7, units, 4), 0u);
    char bytes[3];
    EXPECT_EQ(utf8_encode(u"\u20AC", 1, bytes, 3), 3u);
    EXPECT_EQ(utf8_encode(u"a\u20AC", 2, bytes, 3), 0u);
}

// Ample room takes the unchecked path, exact room the checked one: the same bytes.
TEST(Utf8Conversion, AmpleAndExactRoomAgree) {
    const std::u16string texts[] = {
        u"plain",
        u"\u00E9\u07FF\u0800\uFFFF",
        u"a\U0001F600b",
        std::u16string(1, char16_t(0xD83D)),
        std::u16string(u"x") + char16_t(0xDE00) + char16_t(0xD83D),
        u"\U0010FFFF\u0080",
    };
    for (const std::u16string& t : texts) {
        size_t n = utf8_encode(t.data(), t.size(), nullptr, 0);
        std::string exact(n, '\0'), ample(3 * t.size(), '\0');
        EXPECT_EQ(utf8_encode(t.data(), t.size(), exact.data(), n), n);
        EXPECT_EQ(utf8_encode(t.data(), t.size(), ample.data(), ample.size()), n);
        EXPECT_EQ(ample.substr(0, n), exact);
        EXPECT_EQ(utf16_to_utf8(t), exact);
    }
}

TEST(NumberText, DecimalAndHex) {
    EXPECT_EQ(decimal_text(0), u"0");
    EXPECT_EQ(decimal_text(-42), u"-42");
    EXPECT_EQ(decimal_text(INT64_MIN), u"-9223372036854775808");
    EXPECT_EQ(hex_text(0, true), u"0");
    EXPECT_EQ(hex_text(0xABC0, true), u"ABC0");
    EXPECT_EQ(hex_text(0xFFFFFFFF, false), u"ffffffff");
    char16_t buffer[12] = {};
    char16_t* end = int_to_text(buffer, 4294967295u);
    EXPECT_EQ(std::u16string(buffer, end), u"4294967295");
    EXPECT_EQ(int_to_text(buffer, 0) - buffer, 1);
}

TEST(Strings, CaseIgnoredForAsciiOnly) {
    EXPECT_TRUE(equal_ignore_case(u"Include", u"iNCLUDE"));
    EXPECT_FALSE(equal_ignore_case(u"\u00E9", u"\u00C9"));
    EXPECT_FALSE(equal_ignore_case(u"inc", u"include"));
}

TEST(Strings, CopyWithRoomInFront) {
    char16_t* copy = str_dup_n(u"abcdef", 3, 2);
    EXPECT_EQ(std::u16string(copy), u"abc");
    copy[-2] = u' '; // the room belongs to the block
    copy[-1] = u' ';
    mem_free(copy - 2);
    char16_t* whole = str_dup(u"xyz");
    EXPECT_EQ(std::u16string(whole), u"xyz");
    mem_free(whole);
    auto* block = static_cast<unsigned char*>(mem_alloc(3));
    EXPECT_EQ(block[0], 0xDD);
    EXPECT_EQ(block[2], 0xDD);
    mem_free(block);
    mem_free(nullptr);
}

// AddressSanitizer stops the process on an impossible request instead of
// returning null, so the failure path is only exercised without it.
#if defined(__SANITIZE_ADDRESS__)
#define TARN_NO_HUGE_ALLOCATION 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_NO_HUGE_ALLOCATION 1
#endif
#endif

#ifndef TARN_NO_HUGE_ALLOCATION
// The exports report it as the fatal out-of-memory diagnostic.
TEST(Memory, FailedAllocationIsFatal) {
    EXPECT_THROW(mem_alloc(SIZE_MAX - 64), std::bad_alloc);
    void* block = mem_alloc(8);
    EXPECT_THROW(mem_realloc(block, SIZE_MAX - 64), std::bad_alloc);
    mem_free(block); // still the caller's after a failed resize
}
#endif
