// Source input: encodings and byte-order marks, the marker units 26 and 27
// in text, splices, and the buffer rules for long inputs.
#include "cpp/pp_fixture.h"

#include <algorithm>

#include <tarn/tarn.h>

using namespace tarn_test;

class Source : public PpTest {};

TEST_F(Source, Utf8SequenceSplitAtTheReadBoundary) {
    // The first 4,096-byte read after the mark ends inside "é" and "€".
    std::string text =
        std::string(4095, 'a') + "\xC3\xA9\n" + std::string(4094, 'b') + "\xE2\x82\xAC\n";
    EXPECT_EQ(pp("\xEF\xBB\xBF" + text), marker(1) + text);
    EXPECT_TRUE(diags.empty());
    reattach();
    EXPECT_EQ(fatal("\xEF\xBB\xBFgood\n\xFF bad\n"),
              "fatal error: Failed converting input using codepage 65001.");
}

TEST_F(Source, Utf16LittleEndian) {
    std::u16string text = u"x \u00e9\u4e2d\n";
    std::string bytes = "\xFF\xFE";
    for (char16_t c : text) bytes += {char(c & 0xFF), char(c >> 8)};
    bytes += 'z'; // an odd last byte is dropped
    EXPECT_EQ(pp(bytes), marker(1) + u8(text));
}

TEST_F(Source, TextWithoutAMarkIsInTheCodePage) {
    EXPECT_EQ(pp(std::string("a\0b\0\n\0", 6)), marker(1) + std::string("a\0b\0\n\0", 6));
    reattach();
    ASSERT_EQ(set_codepage(1252), 1);
    EXPECT_EQ(pp("caf\xE9 \x80\n"), marker(1) + "caf\xC3\xA9 \xE2\x82\xAC\n");
}

TEST_F(Source, UnsupportedSignaturesAreFatal) {
    struct Case {
        std::string bytes, word;
    } cases[] = {{std::string("\xFE\xFF\0a", 4), "UTF-16BE"},
                 {std::string("\xFF\xFE\0\0", 4), "UTF-32LE"}, // even when meant as UTF-16
                 {std::string("\0\0\xFE\xFF", 4), "UTF-32BE"}};
    for (const Case& c : cases)
        EXPECT_EQ(
            fatal(c.bytes).rfind("fatal error: Unsupported encoding '" + c.word + "' in file", 0),
            0u);
}

TEST_F(Source, ControlZAndEscapeEndTheText) {
    EXPECT_EQ(pp("a\nb\x1A\nc\n"), marker(1) + "a\nb");
    EXPECT_EQ(messages(), "warning: No newline at end of file.");
    reattach();
    EXPECT_EQ(pp("a\nb\x1B\nc\n"), marker(1) + "a\nb");
}

TEST_F(Source, SplicesKeepTheLineCount) {
    EXPECT_EQ(pp("a\\\nb\nc\\\r\nd\ne __LINE__\n"),
              marker(1) + "ab\n" + marker(3) + "cd\n" + marker(5) + "e 5\n");
}

TEST_F(Source, MissingMainFileIsFatal) {
    bool ok = true;
    pp_file(path_of("absent.rc"), &ok);
    EXPECT_FALSE(ok);
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].text.rfind("fatal error: File not found: '", 0), 0u);
}

TEST_F(Source, LongInputPassesThroughTheBuffer) {
    // Far more text than one buffer holds, with lines of many lengths, so
    // that the buffer starts over and is compacted many times, and the
    // output is pulled in many pieces.
    std::string text;
    for (int i = 0; text.size() < 300000; ++i)
        text.append(i % 97, ' ')
            .append("x")
            .append(std::to_string(i))
            .append(" \"s\" y")
            .append(i % 13 * 40, '+')
            .append("\n");
    EXPECT_EQ(pp(text), marker(1) + text);
    EXPECT_TRUE(diags.empty());
}

TEST_F(Source, LongCommentIsSkipped) {
    std::string comment = "/*";
    while (comment.size() < 200000) comment += std::string(70, '*') + "\n";
    comment += "*/";
    int next = 2 + static_cast<int>(std::count(comment.begin(), comment.end(), '\n'));
    EXPECT_EQ(pp("a " + comment + "b\nc __LINE__\n"),
              marker(1) + "a b\n" + marker(next) + "c " + std::to_string(next) + "\n");
}

TEST_F(Source, OverlongLineIsFatal) {
    EXPECT_EQ(fatal(std::string(40000, 'x') + "\n"), "fatal error: Input buffer overflow.");
}
