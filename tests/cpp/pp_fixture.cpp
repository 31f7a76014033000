#include "cpp/pp_fixture.h"

#include <cstdio>
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

#include "cpp/preprocessor.h"
#include "cpp/state.h"
#include "diag/report.h"
#include <tarn/tarn.h>

namespace tarn_test {

std::string PpTest::pp(const std::string& script, bool* ok) {
    return pp_file(write_file("input.rc", script), ok);
}

std::string PpTest::fatal(const std::string& script) {
    diags.clear();
    bool ok = true;
    pp(script, &ok);
    return ok ? "not fatal" : messages();
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

std::string PpTest::marker(int line) const {
    return "#line " + std::to_string(line) + " \"" + path_of("input.rc").string() + "\"\n";
}

void PpTest::check(std::initializer_list<PpCase> cases) {
    for (const PpCase& c : cases) {
        SCOPED_TRACE(c.script);
        reattach();
        diags.clear();
        EXPECT_EQ(lines(pp(c.script)), c.lines);
        EXPECT_EQ(messages(), c.messages);
    }
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

std::string PpTest::lines(const std::string& text) {
    std::istringstream in(body(text));
    std::string line, out;
    while (std::getline(in, line))
        if (!line.empty()) out += (out.empty() ? "" : "\n") + line;
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
