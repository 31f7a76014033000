// rc_main: the body of one compilation. It announces the code page, sets up
// the run, opens the output, then reads the script statement by statement
// and hands each to the handler of its type; at the end of the input it
// writes the collected string tables and closes the files.
#include "resources/rc_main.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "resfile/writer.h"
#include "resources/common.h"
#include "resources/stringtable.h"
#include "script/lexer.h"
#include "support/state.h"

namespace tarn {

ResourcesState resources_state;

namespace {

constexpr size_t PREPROCESS_PIECE = 4096;

using Handler = void (*)(const ScriptToken& name);
struct TypeHandler {
    int32_t kind;
    Handler handler;
};

void font_not_implemented(const ScriptToken&) {
    report(fatal_code(MSG_NOT_IMPLEMENTED));
}

// The type keywords with a handler of their own; every other keyword, a
// name or a number is a user-defined type.
const TypeHandler type_handlers[] = {
    {TK_ACCELERATORS, compile_accelerators},
    {TK_ANICURSOR, [](const ScriptToken& n) { compile_file_resource(n, RT_ANICURSOR); }},
    {TK_ANIICON, [](const ScriptToken& n) { compile_file_resource(n, RT_ANIICON); }},
    {TK_BITMAP, compile_bitmap},
    {TK_CURSOR, compile_cursor},
    {TK_DIALOG, [](const ScriptToken& n) { compile_dialog(n, 0); }},
    {TK_DIALOGEX, [](const ScriptToken& n) { compile_dialog(n, 1); }},
    {TK_DLGINCLUDE, compile_dlginclude},
    {TK_FONT, font_not_implemented},
    {TK_HTML, [](const ScriptToken& n) { compile_file_resource(n, RT_HTML); }},
    {TK_ICON, compile_icon},
    {TK_MANIFEST, [](const ScriptToken& n) { compile_file_resource(n, RT_MANIFEST); }},
    {TK_MENU, [](const ScriptToken& n) { compile_menu(n, 0); }},
    {TK_MENUEX, [](const ScriptToken& n) { compile_menu(n, 1); }},
    {TK_MESSAGETABLE, [](const ScriptToken& n) { compile_file_resource(n, RT_MESSAGETABLE); }},
    {TK_PLUGPLAY, [](const ScriptToken& n) { compile_file_resource(n, RT_PLUGPLAY); }},
    {TK_RCDATA, compile_rcdata},
    {TK_VERSIONINFO, compile_versioninfo},
    {TK_VXD, [](const ScriptToken& n) { compile_file_resource(n, RT_VXD); }},
};

Handler find_handler(int32_t kind) {
    for (const TypeHandler& h : type_handlers)
        if (h.kind == kind) return h.handler;
    return nullptr;
}

// String literals, punctuation, BEGIN, END and the end of input.
bool can_be_type(int32_t kind) {
    return kind == TK_NAME || kind == TK_NUMBER ||
           (kind >= TK_FIRST_KEYWORD && kind != TK_BEGIN && kind != TK_END);
}

// Once an error has been counted these warnings are no longer given.
void warn_unrecognized() {
    if (compile_state.error_count == 0)
        report(warning_code(MSG_UNRECOGNIZED_TOKEN), token_display());
}

void upper_case(ScriptToken& t) {
    for (size_t i = 0; i < t.length; ++i) t.text[i] = plat_upper(t.text[i]);
}

// A copy of the units in use only: a token holds 8 KiB, and a statement's
// name and type are kept once per resource. A number's value occupies the
// first two units.
void keep_token(ScriptToken& kept, const ScriptToken& t) {
    kept.kind = t.kind;
    kept.length = t.length;
    kept.is_long = t.is_long;
    size_t units = std::max<size_t>(t.length, 2) + 1;
    kept.text.ensure(units);
    std::memcpy(kept.text, t.text, units * sizeof(char16_t));
}

// "name type ...": the current token is the name. Statements do not nest,
// so one place each serves every statement.
void named_statement() {
    static ScriptToken name, type;
    if (compile_state.extended) { // the place of its name, for the duplicate check
        resources_state.statement_place.file.assign(script_location.script_file); // room kept
        resources_state.statement_place.line = script_location.script_line;
    }
    keep_token(name, token);
    if (name.kind == TK_NAME) upper_case(name);
    next_token();
    if (Handler handler = find_handler(token.kind)) {
        next_token();
        handler(name);
        return;
    }
    if (compile_state.extended && is_toolbar_type(token)) {
        next_token();
        compile_toolbar(name);
        return;
    }
    if (!can_be_type(token.kind)) {
        warn_unrecognized(); // the token starts the next statement
        return;
    }
    keep_token(type, token);
    if (type.kind != TK_NUMBER) {
        type.kind = TK_NAME; // a keyword names a type by its own text
        upper_case(type);
    }
    next_token();
    compile_user_resource(name, type);
}

void statement() {
    switch (token.kind) {
    case TK_LANGUAGE:
        next_token();
        parse_language(compile_state.default_attributes);
        return;
    case TK_STRINGTABLE:
        next_token();
        compile_string_table();
        return;
    case TK_NAME:
    case TK_NUMBER:
        named_statement();
        return;
    default:
        warn_unrecognized();
        next_token();
    }
}

void statement_loop() {
    next_token();
    while (token.kind != TK_EOF) {
        if (compile_state.abort_requested.load()) throw FatalUnwind{};
        if (!script_location.in_script) {
            next_token(); // a C header's declarations are skipped
            continue;
        }
        statement();
    }
}

void copy_preprocessed_to_stdout() {
    std::vector<char16_t> piece(PREPROCESS_PIECE);
    while (size_t n = readPreprocessed(piece.data(), piece.size()))
        if (uint32_t e = console_write(1, std::u16string_view(piece.data(), n)))
            report(fatal_system_code(e)); // lost text is no success
}

void open_output(const char16_t* output) {
    if (!output) return;
    if (uint32_t e = create_output(output)) report(fatal_system_code(e), output);
    if (uint32_t e = write_leading_entry()) report(fatal_system_code(e));
}

} // namespace

void resources_reset() {
    resources_state = ResourcesState{};
    string_tables_reset();
    image_counter_reset();
}

void rc_main(const char16_t* input, const char16_t* output, bool preprocess_only) {
    if (compile_state.info_callback)
        send_info(format_message(MSG_USING_CODEPAGE, compile_state.code_page));
    resources_state.main_input = input;
    cpp_run_setup(input);
    if (preprocess_only) {
        copy_preprocessed_to_stdout();
        cpp_run_finish();
        return;
    }
    // Whatever ends the compile, the preprocessor's thread ends first.
    struct ReadAheadScope {
        ReadAheadScope() { read_ahead_allow(); }
        ~ReadAheadScope() { read_ahead_stop(); }
    } read_ahead;
    open_output(output);
    statement_loop();

    // End of the script: what follows carries no location.
    script_location.script_file[0] = 0;
    script_location.script_line = 0;
    flush_string_tables_and_report();
    if (uint32_t e = flush_output()) report(fatal_system_code(e));
    close_output();
    cpp_run_finish();
}

} // namespace tarn
