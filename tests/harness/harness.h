// Test harness: every case starts from a just-loaded library (detach, then
// attach) with callbacks that record what the library reports, and a fresh
// temporary folder for its files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarn_test {

struct Diagnostic {
    int32_t severity = 0;
    std::string file; // empty when the library passed null
    bool has_file = false;
    uint32_t line = 0;
    std::string text; // UTF-8
    bool on_caller = true; // reported on the thread that called the export
};

std::u16string u16(const std::string& utf8);
std::string u8(const std::u16string& utf16);
std::vector<uint8_t> read_bytes(const std::filesystem::path& p);

// Sets (value non-null) or removes an environment variable; the old value
// comes back at the end of the scope.
struct ScopedEnv {
    ScopedEnv(const char* name, const char* value);
    ~ScopedEnv();
    void set(const char* value);
    std::string name, old;
    bool had = false;
};

class FreshLibrary : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // A just-loaded library in the same folder, with the recording callbacks
    // (and dependency collection when asked).
    void reattach(bool collect_dependencies = false);

    // Writes a file below the temporary folder; returns its full path.
    std::filesystem::path write_file(const std::string& name, const std::string& bytes);
    std::filesystem::path path_of(const std::string& name) const { return dir_ / name; }
    // The path as the library wants it.
    static std::u16string wide(const std::filesystem::path& p);
    // The names in the temporary folder, sorted: what a compile left there.
    std::vector<std::string> files() const;
    // The diagnostics' texts without their line ends, one a line.
    std::string messages() const;

    // Writes `script` as input.rc and compiles it to input.res; returns the
    // export's result. `res` receives the output bytes (empty if none).
    int32_t compile(const std::string& script, std::vector<uint8_t>* res = nullptr);

    std::filesystem::path dir_;
    ScopedEnv cache_env_{"TARN_CACHE_DIR", nullptr};
    std::vector<Diagnostic> diags;
    std::vector<std::string> info;
};

} // namespace tarn_test
