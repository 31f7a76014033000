// #pragma code_page in the extended dialect: the rest of the file is read in
// the page it names, also when that rest is already buffered; DEFAULT goes
// back to the run's page; a page the platform lacks is an error at the
// pragma's line. Without the extended dialect the pragma is ignored.
#include "cpp/pp_fixture.h"

#include <tarn/tarn.h>

using namespace tarn_test;

namespace {

const std::string CYRILLIC_1251 = "\xC0\xC1\xC2";             // АБВ in 1251
const std::string CYRILLIC_UTF8 = "\xD0\x90\xD0\x91\xD0\x92"; // АБВ
const std::string LATIN_UTF8 = "\xC3\x80\xC3\x81\xC3\x82";    // ÀÁÂ: the same bytes in 1252

} // namespace

class CodePage : public PpTest {
  protected:
    void SetUp() override {
        PpTest::SetUp();
        start(1252);
    }
    // A just-loaded library in the extended dialect, reading narrow text in `page`.
    void start(uint32_t page) {
        reattach();
        diags.clear();
        set_extended_mode();
        ASSERT_EQ(set_codepage(page), 1);
    }
};

TEST_F(CodePage, SwitchesFromTheNextLine) {
    std::string script = CYRILLIC_1251 + "\n#pragma code_page(1251)\n" + CYRILLIC_1251 +
                         "\n#pragma code_page(65001)\n\xE2\x82\xAC \xF0\x9F\x98\x80\n"
                         "#pragma code_page(DEFAULT)\n" +
                         CYRILLIC_1251 + "\n";
    EXPECT_EQ(lines(pp(script)),
              LATIN_UTF8 + "\n" + CYRILLIC_UTF8 + "\n\xE2\x82\xAC \xF0\x9F\x98\x80\n" + LATIN_UTF8);
    EXPECT_EQ(messages(), "");
    // Spaces inside, and the name in any case.
    start(1252);
    EXPECT_EQ(lines(pp("#pragma code_page ( 1251 )\n" + CYRILLIC_1251 +
                       "\n#pragma CODE_PAGE(default)\n" + CYRILLIC_1251 + "\n")),
              CYRILLIC_UTF8 + "\n" + LATIN_UTF8);
}

TEST_F(CodePage, BufferedRestIsReadAgain) {
    // The pragma stands at every place around the end of the first 4,096
    // bytes, so that the text after it is in the buffer, cut at the read
    // boundary, or not read yet; the UTF-8 after it has sequences of 2 to 4
    // bytes that the reads cut as well.
    std::string tail;
    for (int i = 0; i < 700; ++i)
        tail += "\xD0\x96\xE2\x82\xAC\xF0\x9F\x98\x80" + std::to_string(i) + "\n";
    std::string want;
    for (size_t filler = 4040; filler < 4110; filler += 3) {
        SCOPED_TRACE(filler);
        start(1252);
        std::string head = std::string(filler, 'a') + "\n";
        std::string out = body(pp(head + "#pragma code_page(65001)\n" + tail));
        EXPECT_EQ(out, head + "\n" + tail);
        EXPECT_EQ(messages(), "");
    }
}

TEST_F(CodePage, DoubleByteTextBeforeThePragma) {
    // 936 before the pragma: what is buffered after it must be found behind
    // characters of two bytes, in the first read or a later one. No
    // character straddles a read boundary: 936 text cut there is read wrong.
    const std::string chinese = "\xD6\xD0\xCE\xC4"; // 中文
    for (int count : {500, 1100}) {
        for (int ascii : {0, 2}) {
            SCOPED_TRACE(std::to_string(count) + " " + std::to_string(ascii));
            start(936);
            std::string head = std::string(ascii, 'x');
            for (int i = 0; i < count; ++i) head += chinese;
            std::string out =
                lines(pp(head + "\n#pragma code_page(1251)\n" + CYRILLIC_1251 + "\n"));
            EXPECT_EQ(out.substr(out.rfind('\n') + 1), CYRILLIC_UTF8);
            EXPECT_EQ(messages(), "");
        }
    }
}

TEST_F(CodePage, Errors) {
    pp("a\n#pragma code_page(12345)\n" + CYRILLIC_1251 +
       "\n#pragma code_page(1251\n"
       "#pragma code_page 1251\n#pragma code_page(x)\n#pragma code_page(1251) x\n");
    EXPECT_EQ(messages(), "error: Invalid codepage: 12345.\nerror: Invalid syntax.\n"
                          "error: Invalid syntax.\nerror: Invalid syntax.\nerror: Invalid syntax.");
    ASSERT_EQ(diags.size(), 5u);
    EXPECT_EQ(diags[0].line, 2u);
    EXPECT_EQ(diags[0].file, path_of("input.rc").string());
    EXPECT_EQ(diags[4].line, 7u);
    // The file goes on in the page it had.
    start(1252);
    EXPECT_EQ(lines(pp("#pragma code_page(99)\n" + CYRILLIC_1251 + "\n")), LATIN_UTF8);
}

TEST_F(CodePage, WhereThePragmaDoesNothing) {
    // Other pragmas.
    EXPECT_EQ(lines(pp("#pragma once\n#pragma pack(1)\nx\n")), "x");
    // A byte-order mark names the encoding of the whole file.
    start(1252);
    EXPECT_EQ(lines(pp("\xEF\xBB\xBF#pragma code_page(1251)\n" + CYRILLIC_UTF8 + "\n")),
              CYRILLIC_UTF8);
    // The default dialect ignores the pragma, whatever it says.
    reattach();
    ASSERT_EQ(set_codepage(1252), 1);
    EXPECT_EQ(pp("#pragma code_page(1251)\n" + CYRILLIC_1251 + "\n"),
              marker(1) + "\n" + LATIN_UTF8 + "\n");
    reattach();
    EXPECT_EQ(pp_export("#pragma code_page(nonsense)\n"), marker(1) + "\n");
    EXPECT_EQ(messages(), "");
    // In an included file, only the rest of that file.
    start(1252);
    write_file("inc.h", "#pragma code_page(1251)\n" + CYRILLIC_1251 + "\n");
    EXPECT_EQ(lines(pp("#include \"inc.h\"\n" + CYRILLIC_1251 + "\n")),
              CYRILLIC_UTF8 + "\n" + LATIN_UTF8);
    EXPECT_EQ(messages(), "");
}
