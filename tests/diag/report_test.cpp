// The two report paths: severity and prefix, counting and unwinding, the
// fallback text, the preprocessor's own inserts, locations and language.
#include "harness/harness.h"

#include <string>
#include <vector>

#include "support/state.h"
#include "cpp/tokens.h"
#include "cpp/report_pp.h"
#include "diag/report.h"
#include "script/lexer.h"
#include "support/platform.h"

using namespace tarn;
using tarn_test::u8;

namespace {

class Report : public tarn_test::FreshLibrary {
  protected:
    int errors() const { return compile_state.error_count; }
    // The text each path hands to the host for one report.
    template <class... A> std::string script(DiagnosticCode code, const A&... inserts) {
        report(code, inserts...);
        return diags.empty() ? "(none)" : diags.back().text;
    }
    template <class... A> std::string pp(DiagnosticCode code, const A&... inserts) {
        report_pp(code, inserts...);
        return diags.back().text;
    }
};

// A token row built by hand: each entry is its text and white space before.
struct Row {
    std::vector<PpToken> tokens;
    TokenRow row;

    Row(std::vector<std::pair<const char16_t*, int>> list) {
        for (auto [text, ws] : list) {
            tokens.emplace_back();
            tokens.back().type = text[0] == u'\n' ? PP_NEWLINE : PP_NAME;
            tokens.back().wslen = static_cast<uint64_t>(ws);
            tokens.back().text = text;
            tokens.back().len = std::char_traits<char16_t>::length(text);
        }
        row = {tokens.data(), tokens.data(), tokens.data() + tokens.size(), tokens.size()};
    }
};

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
    for (const Case& c : cases)
        for (bool on_pp : {false, true}) {
            SCOPED_TRACE(std::to_string(c.code) + (on_pp ? " preprocessor" : " script"));
            diags.clear();
            compile_state.error_count = 0;
            bool threw = false;
            try {
                on_pp ? (void)report_pp(c.code) : report(c.code);
            } catch (const FatalUnwind&) {
                threw = true;
            }
            EXPECT_EQ(threw, c.fatal);
            EXPECT_EQ(errors(), c.counted);
            EXPECT_EQ(diags.at(0).text, c.prefix + std::string("Invalid syntax.\r\n"));
            EXPECT_EQ(diags[0].severity, c.severity);
        }
}

TEST_F(Report, FallbackTexts) {
    // Bit 14 stays in the preprocessor's lookup, which then fails; that path
    // has no system texts either.
    EXPECT_EQ(pp(WARN_UNTERMINATED_COND_INCLUDE), "*** No message for error 0xA000401D ***\n");
    EXPECT_EQ(diags[0].severity, 0);
    EXPECT_FALSE(diags[0].has_file); // no source open
    EXPECT_EQ(pp(ERR_WRITE_FAULT | SEVERITY_WARNING), "*** No message for error 0x8000001D ***\n");
    EXPECT_EQ(script(error_code(static_cast<Msg>(MSG_LAST + 1))),
              "*** No message for error 0xE0000078 ***\n");
    EXPECT_EQ(diags.back().severity, 1);
    EXPECT_EQ(errors(), 1);
}

TEST_F(Report, CountingAndUnwinding) {
    // A script report of no message does nothing, not even unwind.
    EXPECT_EQ(script(0), "(none)");
    EXPECT_EQ(script(SEVERITY_ERROR | CODE_FATAL), "(none)");
    EXPECT_EQ(script(SEVERITY_WARNING | 0x4000), "(none)");
    set_error_function_w(nullptr, 0); // counted all the same
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
    EXPECT_EQ(diags.at(0).text, "fatal error: " + u8(system));
    EXPECT_EQ(u8(diagnostic_text(error_system_code(ERR_ACCESS_DENIED), {})),
              "error: " + u8(system));
}

TEST_F(Report, ScriptInsertsAndLocation) {
    EXPECT_EQ(script(error_code(MSG_INVALID_LANGUAGE), 0x18000),
              "error: Invalid language: -32768.\r\n");
    EXPECT_FALSE(diags.back().has_file);
    std::u16string name = u"dir\\a.rc";
    name.copy(script_location.script_file, name.size());
    script(warning_code(MSG_UNKNOWN_KEYWORD), u"FOO");
    EXPECT_FALSE(diags.back().has_file); // line 0: no file either
    script_location.script_line = 17;
    EXPECT_EQ(script(warning_code(MSG_UNKNOWN_KEYWORD), u"FOO"),
              "warning: Unknown keyword: 'FOO'.\r\n");
    EXPECT_EQ(diags.back().file + "(" + std::to_string(diags.back().line) + ")", "dir\\a.rc(17)");
    script_location = ScriptLocation{};
}

TEST_F(Report, PreprocessorInserts) {
    PpToken tok;
    tok.text = u"pragmatic";
    tok.len = 6;
    EXPECT_EQ(pp(error_code(MSG_UNKNOWN_CONTROL), &tok),
              "error: Unknown preprocessor control: 'pragma'.\r\n");
    EXPECT_EQ(pp(warning_code(MSG_UNTERMINATED_IF), 0xFFFFFFFFu),
              "warning: Unterminated #if/#ifdef/#ifndef (started at line -1).\r\n");
    EXPECT_EQ(pp(note_code(MSG_INCLUDE_NOT_FOUND), u"x.h"), "Can't find include file x.h.\r\n");
    EXPECT_EQ(pp(note_code(MSG_CANNOT_OPEN_INPUT)), "Can't open input file ''.\r\n"); // missing

    // A row from its cursor: the first token's white space is not written,
    // nor anything from a newline on.
    Row spaced({{u"a", 0}, {u"+", 1}, {u"b", 0}, {u"\n", 0}, {u"c", 1}});
    EXPECT_EQ(pp(error_code(MSG_ERROR_DIRECTIVE), &spaced.row), "error: #error: a +b.\r\n");
    spaced.row.cur = spaced.tokens.data() + 1;
    EXPECT_EQ(pp(error_code(MSG_ERROR_DIRECTIVE), &spaced.row), "error: #error: +b.\r\n");
    Row tight({{u"x", 2}, {u"##", 0}, {u"y", 0}});
    EXPECT_EQ(pp(error_code(MSG_BAD_PASTE), &tight.row),
              "error: Bad token (x##y) produced by ##.\r\n");
    Row newline_first({{u"\n", 0}, {u"z", 1}});
    EXPECT_EQ(pp(error_code(MSG_ILLEGAL_DU_ARGUMENT), &newline_first.row),
              "error: Illegal -D or -U argument: .\r\n");
}

TEST_F(Report, LongTextsAreCutAtTheBuffer) {
    std::u16string big(3000, u'x');
    EXPECT_EQ(script(error_code(MSG_FILE_NOT_FOUND), big),
              "error: File not found: '" + std::string(511 - 24, 'x'));
    EXPECT_EQ(pp(error_code(MSG_CANNOT_OPEN_INPUT), big),
              "error: Can't open input file '" + std::string(511 - 30, 'x'));
    Row many(std::vector<std::pair<const char16_t*, int>>(400, {u"tok", 1}));
    std::string text = pp(error_code(MSG_ERROR_DIRECTIVE), &many.row);
    EXPECT_EQ(text.size(), 511u);
    EXPECT_EQ(text.substr(0, 26), "error: #error: tok tok tok");
}

TEST_F(Report, SwedishTexts) {
    diag_state.language = Language::swedish;
    EXPECT_EQ(script(error_code(MSG_WRITE_ERROR)), "fel: Fel vid skrivning till fil.\r\n");
    EXPECT_EQ(pp(warning_code(MSG_NO_NEWLINE_AT_EOF)),
              "varning: Ingen radbrytning i slutet av filen.\r\n");
    EXPECT_THROW(report(fatal_code(MSG_WRITE_ERROR)), FatalUnwind);
    EXPECT_EQ(diags.back().text, "ödesdigert fel: Fel vid skrivning till fil.\r\n");
    EXPECT_EQ(u8(format_message(MSG_USING_CODEPAGE, 1252u)), "Använder teckentabell 1252.\r\n");
}

TEST_F(Report, FormatMessageAndInformationLines) {
    EXPECT_EQ(u8(format_message(MSG_USING_CODEPAGE, 65001u)), "Using codepage 65001.\r\n");
    std::u16string line =
        format_message(MSG_WRITING, u"DIALOG") + format_message(MSG_WRITING_ID, 7) +
        format_message(MSG_WRITING_LANGUAGE, 0x409) + format_message(MSG_WRITING_OFFSET, 0x20);
    EXPECT_EQ(u8(line), "Writing DIALOG, id = 7, language = 0x409, offset = 0x20");
    EXPECT_TRUE(format_message(MSG_LAST + 1).empty());
    send_info(line);
    set_information_function_w(nullptr);
    send_info(line);
    EXPECT_EQ(info, std::vector<std::string>{u8(line)});
}

} // namespace
