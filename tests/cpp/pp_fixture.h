// Fixture of the preprocessor's tests: runs a script through the
// preprocessor and gives the text it produced, either through the pull that
// the script compiler uses or through preprocess_script_w and standard output.
#pragma once

#include "harness/harness.h"

#include <initializer_list>
#include <string>

namespace tarn_test {

// A script, the lines it gives (see PpTest::lines) and its diagnostics (see
// FreshLibrary::messages).
struct PpCase {
    std::string script, lines;
    std::string messages = "";
};

class PpTest : public FreshLibrary {
  protected:
    // Writes `script` as input.rc and preprocesses it; the text as UTF-8.
    // `ok` receives false when a fatal diagnostic ended the run.
    std::string pp(const std::string& script, bool* ok = nullptr);
    // Drops the diagnostics so far and preprocesses `script`, which must end
    // in a fatal diagnostic; gives messages(), or "not fatal".
    std::string fatal(const std::string& script);
    // The same for an existing file.
    std::string pp_file(const std::filesystem::path& file, bool* ok = nullptr);
    // Through the export, capturing standard output; `result` is its return.
    std::string pp_export(const std::string& script, int32_t* result = nullptr);
    // Runs each case in a just-loaded library of its own (a loaded library
    // serves one run).
    void check(std::initializer_list<PpCase> cases);
    // The first line marker of input.rc.
    std::string marker(int line) const;
    // The number of diagnostics whose text contains `part`.
    size_t count(const std::string& part) const;
    // The text without line markers ("#line n ..." lines).
    static std::string body(const std::string& text);
    // The text's lines that are neither markers nor empty, without the last
    // line end: where a test looks at what was taken, not at the line count.
    static std::string lines(const std::string& text);
    // The tokens of one line lexed from a text input, as "kind:text" words,
    // "kind:(n)text" for a token with n units of white space in front.
    static std::string lex(const std::u16string& text);
};

} // namespace tarn_test
