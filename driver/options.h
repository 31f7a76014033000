// The driver's command line: parsed into a plain record first, applied to
// the library afterwards, so that parsing can be tested without it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn_driver {

enum class Action { compile, help, version, dump, usage_error };

// What the output holds: chosen by --format, else by the output's extension
// (".o" and ".obj" take an object, anything else a .res).
enum class OutputFormat { by_extension, res, coff };
// The object's machine (--machine; windres' --target).
enum class Machine { x64, x86, arm64 };

// -D and -U act in command-line order on one symbol table.
struct SymbolAction {
    bool define = true;
    std::u16string text;
};

struct Options {
    Action action = Action::compile;
    std::u16string input;  // ".rc" added when it has no extension
    std::u16string output; // defaults to the input with ".res"
    bool code_page_given = false;
    uint32_t code_page = 0;
    bool language_given = false;
    uint16_t language = 0;
    std::vector<SymbolAction> symbols;
    std::vector<std::u16string> include_paths;
    bool preprocess_only = false;                     // -E
    bool make_rule = false;                           // -M
    bool null_append = false;                         // -N
    bool verbose = false;                             // -V
    bool no_standard_includes = false;                // -X
    bool dump_hex = false;                            // --dump-hex
    bool extended = false;                            // --extended: the modern dialect
    OutputFormat format = OutputFormat::by_extension; // --format=res|coff
    Machine machine = Machine::x64;                   // --machine=x64|x86|arm64
    bool input_is_res = false; // the input is a compiled .res to convert, not a script
    std::u16string depfile;    // --depfile: a make rule of every file read, on success
    std::vector<std::u16string> depfile_targets; // its targets; empty: the output

    // For Action::usage_error, what to report (none: print the usage).
    enum class Problem {
        none,
        unknown_option,
        missing_value,
        bad_language,
        bad_code_page
    } problem = Problem::none;
    std::u16string offending; // the option as typed, with its "-", "--" or "/"
    std::u16string bad_text;  // the language or code page as typed
};

// `slash_options`: whether "/" starts an option too (Windows).
Options parse_options(const std::vector<std::u16string>& args, bool slash_options);

// Helpers, exposed for the tests.
bool has_extension(std::u16string_view path);
std::u16string with_extension(std::u16string_view path, std::u16string_view extension);
// The extension after the last dot of the last path component, with its dot,
// lower-cased; empty when there is none.
std::u16string extension_of(std::u16string_view path);
bool parse_language(std::u16string_view text, uint16_t* language);
bool parse_code_page(std::u16string_view text, uint32_t* code_page);

} // namespace tarn_driver
