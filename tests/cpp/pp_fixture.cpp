#include "cpp/pp_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>

#ifdef _WIN32
#include <io.h>
#define dup _dup
#define dup2 _dup2
#define close _close
#else
#include <unistd.h>
#endif

#include "api/lifecycle.h"
#include "cpp/preprocessor.h"
#include "cpp/state.h"
#include "diag/report.h"
#include <tarn/tarn.h>

namespace tarn_test {

void set_env(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value ? value : "");
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

std::string PpTest::pp(const std::string& script, bool* ok) {
    return pp_file(write_file("input.rc", script), ok);
}

std::string PpTest::pp_file(const std::filesystem::path& file, bool* ok) {
    std::u16string out;
    bool fine = true;
    try {
        tarn::cpp_run_setup(wide(file).c_str());
        char16_t piece[4096];
        while (size_t n = tarn::readPreprocessed(piece, 4096)) out.append(piece, n);
        tarn::cpp_run_finish();
    } catch (const tarn::FatalUnwind&) {
        fine = false;
        tarn::close_all_sources();
    }
    if (ok) *ok = fine;
    return u8(out);
}

std::string PpTest::pp_export(const std::string& script, int32_t* result) {
    std::filesystem::path in = write_file("input.rc", script);
    std::filesystem::path captured = path_of("stdout.txt");
    std::fflush(stdout);
    int saved = dup(1);
    FILE* f = std::fopen(captured.string().c_str(), "wb");
    dup2(fileno(f), 1);
    int32_t r = preprocess_script_w(wide(in).c_str());
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    std::fclose(f);
    if (result) *result = r;
    std::vector<uint8_t> bytes = read_bytes(captured);
    return std::string(bytes.begin(), bytes.end());
}

void PpTest::reload() {
    FreshLibrary::TearDown();
    FreshLibrary::SetUp();
    diags.clear();
}

std::string PpTest::marker(int line) const {
    return std::string("#line ")
        .append(std::to_string(line))
        .append(" \"")
        .append(path_of("input.rc").string())
        .append("\"\n");
}

std::vector<std::string> PpTest::texts() const {
    std::vector<std::string> t;
    for (const Diagnostic& d : diags) t.push_back(d.text);
    return t;
}

size_t PpTest::count(const std::string& part) const {
    size_t n = 0;
    for (const Diagnostic& d : diags) n += d.text.find(part) != std::string::npos;
    return n;
}

std::string PpTest::body(const std::string& text) {
    std::istringstream in(text);
    std::string line, out;
    while (std::getline(in, line))
        if (line.rfind("#line ", 0) != 0) out += line + "\n";
    return out;
}

std::string PpTest::lex(const std::u16string& text) {
    using namespace tarn;
    pushSource(u"<test>", text.c_str());
    ScopedRow row(3);
    lexLine(&row.row, true);
    popSource();
    std::string out;
    for (const PpToken* tp = row.row.base; tp < row.row.last; ++tp) {
        if (!out.empty()) out += ' ';
        out += std::to_string(tp->type) + ":";
        if (tp->wslen) out.append("(").append(std::to_string(tp->wslen)).append(")");
        out += u8(std::u16string(tp->text, tp->len));
    }
    return out;
}

} // namespace tarn_test
