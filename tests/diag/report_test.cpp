// The two report paths: severity and prefix, counting and unwinding, the
// fallback text, the preprocessor's own inserts, locations and language.
#include "harness/harness.h"

#include <string>
#include <vector>

#include "api/state.h"
#include "cpp/tokens.h"
#include "diag/report.h"
#include "script/lexer.h"
#include "support/platform.h"

using namespace tarn;
using tarn_test::u16;
using tarn_test::u8;

namespace {

class Report : public tarn_test::FreshLibrary {
  protected:
    int errors() const { return compile_state.error_count; }
    const std::string& last_text() const { return diags.back().text; }
};

// A token row built by hand: each entry is its text and white space before.
struct Row {
    std::vector<std::u16string> texts;
    std::vector<PpToken> tokens;
    TokenRow row;

    Row(std::initializer_list<std::pair<const char16_t*, int>> list) {
        for (auto& [text, ws] : list) texts.emplace_back(text);
        size_t i = 0;
        for (auto& [text, ws] : list) {
            PpToken t;
            t.type = texts[i] == u"\n" ? PP_NEWLINE : PP_NAME;
            t.wslen = static_cast<uint64_t>(ws);
            t.text = texts[i].c_str();
            t.len = texts[i].size();
            tokens.push_back(t);
            ++i;
        }
        row.base = row.cur = tokens.data();
        row.last = tokens.data() + tokens.size();
        row.max = tokens.size();
    }
};

TEST_F(Report, FallbackTextForTheUnterminatedConditionalWarning) {
    EXPECT_EQ(report_pp(WARN_UNTERMINATED_COND_INCLUDE), SEVERITY_WARNING);
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].severity, 0);
    EXPECT_EQ(diags[0].text, "*** No message for error 0xA000401D ***\n");
    EXPECT_FALSE(diags[0].has_file); // no source open
    EXPECT_EQ(diags[0].line, 0u);
    EXPECT_EQ(errors(), 0);
}

TEST_F(Report, SeverityAndPrefixByBits) {
    struct Case {
        DiagnosticCode code;
        int severity;
        const char* prefix;
        bool fatal;
        int counted;
    } cases[] = {
        {warning_code(MSG_INVALID_SYNTAX), 0, "warning: ", false, 0},
        {error_code(MSG_INVALID_SYNTAX), 1, "error: ", false, 1},
        {fatal_code(MSG_INVALID_SYNTAX), 2, "fatal error: ", true, 0},
        {note_code(MSG_INVALID_SYNTAX), 0, "", false, 0},
        {error_code(MSG_INVALID_SYNTAX) | CODE_FATAL, 1, "error: ", true, 0},
        {warning_code(MSG_INVALID_SYNTAX) | CODE_FATAL, 0, "warning: ", true, 0},
        {0x40000000 | fatal_code(MSG_INVALID_SYNTAX), 2, "fatal error: ", true, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        for (int path = 0; path < 2; ++path) {
            diags.clear();
            compile_state.error_count = 0;
            bool threw = false;
            try {
                if (path == 0)
                    report(c.code);
                else
                    report_pp(c.code);
            } catch (const FatalUnwind&) {
                threw = true;
            }
            EXPECT_EQ(threw, c.fatal);
            EXPECT_EQ(errors(), c.counted);
            ASSERT_EQ(diags.size(), 1u);
            EXPECT_EQ(diags[0].severity, c.severity);
            EXPECT_EQ(diags[0].text, std::string(c.prefix) + "Invalid syntax.\r\n");
        }
    }
}

TEST_F(Report, ScriptReportOfNoMessageDoesNothing) {
    report(0);
    report(SEVERITY_ERROR | CODE_FATAL); // masks to 0: not even fatal
    report(SEVERITY_WARNING | 0x4000);
    EXPECT_TRUE(diags.empty());
    EXPECT_EQ(errors(), 0);
}

TEST_F(Report, CountingAndUnwindingWithoutCallback) {
    set_error_function_w(nullptr, 0);
    report(error_code(MSG_INVALID_SYNTAX));
    report(warning_code(MSG_INVALID_SYNTAX));
    EXPECT_EQ(report_pp(error_code(MSG_UNDEF_SYNTAX)), SEVERITY_ERROR);
    report_pp(note_code(MSG_UNDEF_SYNTAX));
    EXPECT_EQ(errors(), 2);
    EXPECT_THROW(report(fatal_code(MSG_INVALID_SYNTAX)), FatalUnwind);
    EXPECT_THROW(report_pp(fatal_code(MSG_LEXICAL_BOTCH)), FatalUnwind);
    EXPECT_EQ(errors(), 2);
}

TEST_F(Report, PlatformErrorGetsTheSystemText) {
    std::u16string system = plat_system_message(ERR_ACCESS_DENIED);
    ASSERT_FALSE(system.empty());
    EXPECT_THROW(report(fatal_system_code(ERR_ACCESS_DENIED), u"out.res"), FatalUnwind);
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].severity, 2);
    EXPECT_EQ(diags[0].text, "fatal error: " + u8(system));
    EXPECT_EQ(u8(diagnostic_text(error_system_code(ERR_ACCESS_DENIED), {})),
              "error: " + u8(system));
}

TEST_F(Report, UnknownNumbersGetTheFallbackWithTheFullCode) {
    report(error_code(static_cast<Msg>(0x75)));
    EXPECT_EQ(last_text(), "*** No message for error 0xE0000075 ***\n");
    EXPECT_EQ(diags.back().severity, 1);
    report_pp(ERR_WRITE_FAULT | SEVERITY_WARNING); // no system texts on this path
    EXPECT_EQ(last_text(), "*** No message for error 0x8000001D ***\n");
}

TEST_F(Report, ScriptInsertsAndLocation) {
    report(error_code(MSG_INVALID_LANGUAGE), 0x18000);
    EXPECT_EQ(last_text(), "error: Invalid language: -32768.\r\n");
    EXPECT_FALSE(diags.back().has_file);
    EXPECT_EQ(diags.back().line, 0u);

    std::u16string name = u"dir\\a.rc";
    name.copy(script_location.script_file, name.size());
    script_location.script_line = 0;
    report(warning_code(MSG_UNKNOWN_KEYWORD), u"FOO");
    EXPECT_FALSE(diags.back().has_file); // line 0: no file either
    script_location.script_line = 17;
    report(warning_code(MSG_UNKNOWN_KEYWORD), u"FOO");
    EXPECT_EQ(last_text(), "warning: Unknown keyword: 'FOO'.\r\n");
    EXPECT_EQ(diags.back().file, "dir\\a.rc");
    EXPECT_EQ(diags.back().line, 17u);
    script_location = ScriptLocation{};
}

TEST_F(Report, PreprocessorInserts) {
    PpToken tok;
    const char16_t* src = u"pragmatic";
    tok.text = src;
    tok.len = 6;
    report_pp(error_code(MSG_UNKNOWN_CONTROL), &tok);
    EXPECT_EQ(last_text(), "error: Unknown preprocessor control: 'pragma'.\r\n");
    report_pp(error_code(MSG_UNTERMINATED_IF), 12);
    EXPECT_EQ(last_text(), "error: Unterminated #if/#ifdef/#ifndef (started at line 12).\r\n");
    report_pp(warning_code(MSG_UNTERMINATED_IF), 0xFFFFFFFFu);
    EXPECT_EQ(last_text(), "warning: Unterminated #if/#ifdef/#ifndef (started at line -1).\r\n");
    report_pp(error_code(MSG_CANNOT_OPEN_INPUT), u"in.rc");
    EXPECT_EQ(last_text(), "error: Can't open input file 'in.rc'.\r\n");
    report_pp(note_code(MSG_INCLUDE_NOT_FOUND), u"x.h");
    EXPECT_EQ(last_text(), "Can't find include file x.h.\r\n");
    EXPECT_EQ(report_pp(note_code(MSG_CANNOT_OPEN_INPUT)), 0u); // missing insert
    EXPECT_EQ(last_text(), "Can't open input file ''.\r\n");
}

TEST_F(Report, RowInsertSpacingAndNewline) {
    Row spaced({{u"a", 0}, {u"+", 1}, {u"b", 0}, {u"\n", 0}, {u"c", 1}});
    report_pp(error_code(MSG_ERROR_DIRECTIVE), &spaced.row);
    EXPECT_EQ(last_text(), "error: #error: a +b.\r\n");

    spaced.row.cur = spaced.tokens.data() + 1; // the first token's space is not written
    report_pp(error_code(MSG_ERROR_DIRECTIVE), &spaced.row);
    EXPECT_EQ(last_text(), "error: #error: +b.\r\n");

    Row tight({{u"x", 2}, {u"##", 0}, {u"y", 0}});
    report_pp(error_code(MSG_BAD_PASTE), &tight.row);
    EXPECT_EQ(last_text(), "error: Bad token (x##y) produced by ##.\r\n");

    Row newline_first({{u"\n", 0}, {u"z", 1}});
    report_pp(error_code(MSG_ILLEGAL_DU_ARGUMENT), &newline_first.row);
    EXPECT_EQ(last_text(), "error: Illegal -D or -U argument: .\r\n");
}

TEST_F(Report, LongTextsAreCutAtTheBuffer) {
    std::u16string big(3000, u'x');
    report(error_code(MSG_FILE_NOT_FOUND), big);
    EXPECT_EQ(last_text(), "error: File not found: '" + std::string(511 - 24, 'x'));

    report_pp(error_code(MSG_CANNOT_OPEN_INPUT), big);
    EXPECT_EQ(last_text().size(), 511u);
    EXPECT_EQ(last_text().substr(0, 31), "error: Can't open input file 'x");

    std::vector<std::u16string> texts(400, u"tok");
    std::vector<PpToken> toks(400);
    for (size_t i = 0; i < toks.size(); ++i) {
        toks[i].text = texts[i].c_str();
        toks[i].len = 3;
        toks[i].wslen = 1;
    }
    TokenRow row{toks.data(), toks.data(), toks.data() + toks.size(), toks.size()};
    report_pp(error_code(MSG_ERROR_DIRECTIVE), &row);
    EXPECT_EQ(last_text().size(), 511u);
    EXPECT_EQ(last_text().substr(0, 26), "error: #error: tok tok tok");
}

TEST_F(Report, SwedishTexts) {
    diag_state.language = Language::swedish;
    report(error_code(MSG_WRITE_ERROR));
    EXPECT_EQ(last_text(), "fel: Fel vid skrivning till fil.\r\n");
    report_pp(warning_code(MSG_NO_NEWLINE_AT_EOF));
    EXPECT_EQ(last_text(), "varning: Ingen radbrytning i slutet av filen.\r\n");
    EXPECT_THROW(report(fatal_code(MSG_WRITE_ERROR)), FatalUnwind);
    EXPECT_EQ(last_text(), "ödesdigert fel: Fel vid skrivning till fil.\r\n");
    EXPECT_EQ(u8(format_message(MSG_USING_CODEPAGE, 1252u)), "Använder teckentabell 1252.\r\n");
}

TEST_F(Report, FormatMessageAndInformationLines) {
    EXPECT_EQ(u8(format_message(MSG_USING_CODEPAGE, 65001u)), "Using codepage 65001.\r\n");
    std::u16string line =
        format_message(MSG_WRITING, u"DIALOG") + format_message(MSG_WRITING_ID, 7) +
        format_message(MSG_WRITING_LANGUAGE, 0x409) + format_message(MSG_WRITING_OFFSET, 0x20);
    EXPECT_EQ(u8(line), "Writing DIALOG, id = 7, language = 0x409, offset = 0x20");
    EXPECT_TRUE(format_message(0x75).empty());
    EXPECT_TRUE(format_message(0).empty());

    send_info(line);
    ASSERT_EQ(info.size(), 1u);
    EXPECT_EQ(info[0], u8(line));
    set_information_function_w(nullptr);
    send_info(line);
    EXPECT_EQ(info.size(), 1u);
}

} // namespace
