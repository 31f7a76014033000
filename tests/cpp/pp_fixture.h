// Fixture of the preprocessor's tests: runs a script through the
// preprocessor and gives the text it produced, either through the pull that
// the script compiler uses or through preprocess_script_w and standard output.
#pragma once

#include "harness/harness.h"

#include <string>
#include <vector>

namespace tarn_test {

class PpTest : public FreshLibrary {
  protected:
    // Writes `script` as input.rc and preprocesses it; the text as UTF-8.
    // `ok` receives false when a fatal diagnostic ended the run.
    std::string pp(const std::string& script, bool* ok = nullptr);
    // The same for an existing file.
    std::string pp_file(const std::filesystem::path& file, bool* ok = nullptr);
    // Through the export, capturing standard output; `result` is its return.
    std::string pp_export(const std::string& script, int32_t* result = nullptr);
    // A just-loaded library again (and a new temporary folder), for a second
    // run: a loaded library serves one.
    void reload();
    // The first line marker of input.rc.
    std::string marker(int line) const;
    // The texts of the diagnostics so far, one per entry.
    std::vector<std::string> texts() const;
    // The number of diagnostics whose text contains `part`.
    size_t count(const std::string& part) const;
    // The text without line markers ("#line n ..." lines).
    static std::string body(const std::string& text);
    // The tokens of one line lexed from a text input, as "kind:text" words,
    // "kind:(n)text" for a token with n units of white space in front.
    static std::string lex(const std::u16string& text);
};

// Sets (value non-null) or removes an environment variable.
void set_env(const char* name, const char* value);

} // namespace tarn_test
