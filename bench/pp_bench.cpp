// Preprocessor throughput: a large script (windows.h from the mingw-w64
// headers, 10,000 #define lines and 50,000 lines of text that use them) is
// preprocessed by the library and by GNU cpp (x86_64-w64-mingw32-cpp
// -DRC_INVOKED) in the same run; the best of several rounds of each is
// printed with the ratio. Both write their text to /dev/null.
//
// Usage: pp_bench [rounds] [include-folder]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "api/lifecycle.h"
#include "support/text.h"
#include <tarn/tarn.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int DEFINES = 10000;
constexpr int TEXT_LINES = 50000;

std::string make_input() {
    std::string s = "#include <windows.h>\n";
    for (int i = 0; i < DEFINES; ++i) {
        switch (i % 4) {
        case 0:
            s += "#define IDC_" + std::to_string(i) + " " + std::to_string(1000 + i) + "\n";
            break;
        case 1:
            s += "#define IDS_" + std::to_string(i) + " (IDC_" + std::to_string(i - 1) + " + 1)\n";
            break;
        case 2:
            s += "#define STYLE_" + std::to_string(i) + " (WS_CHILD | WS_VISIBLE | WS_TABSTOP)\n";
            break;
        default:
            s += "#define POS_" + std::to_string(i) + "(x, y) (x) * 2 + IDC_" +
                 std::to_string(i - 3) + ", (y) + 4 /* position */\n";
        }
    }
    s += "IDD_MAIN DIALOGEX 0, 0, 300, 200\nBEGIN\n";
    for (int i = 0; i < TEXT_LINES; ++i) {
        int k = (i * 7919) % DEFINES / 4 * 4;
        s += "    CONTROL \"Item " + std::to_string(i) + "\", IDS_" + std::to_string(k + 1) +
             ", \"Button\", STYLE_" + std::to_string(k + 2) + " | BS_AUTOCHECKBOX, POS_" +
             std::to_string(k + 3) + "(" + std::to_string(i % 300) + ", " +
             std::to_string(i % 200) + "), 50, 14\n";
    }
    s += "END\n";
    return s;
}

double seconds_since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

// Runs body with standard output sent to /dev/null.
template <class Body> double timed_quietly(Body body) {
    std::fflush(stdout);
    int saved = dup(1);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    close(null);
    Clock::time_point t = Clock::now();
    bool ok = body();
    double s = seconds_since(t);
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    return ok ? s : -1;
}

// The mingw-w64 headers stop at an #error unless a known compiler is
// defined; GNU cpp defines __GNUC__ itself, and so does this host for tarn.
double run_tarn(const fs::path& input) {
    return timed_quietly([&] {
        tarn::library_detach();
        tarn::library_attach(nullptr);
        set_error_function_w(nullptr, 0);
        define_symbol_w(u"__GNUC__=4");
        return preprocess_script_w(tarn::utf8_to_utf16(input.string()).c_str()) == 1;
    });
}

double run_gnu(const fs::path& input, const std::string& include) {
    std::string cmd = "x86_64-w64-mingw32-cpp -DRC_INVOKED -I'" + include + "' '" + input.string() +
                      "' -o /dev/null 2>/dev/null";
    return timed_quietly([&] { return std::system(cmd.c_str()) == 0; });
}

} // namespace

int main(int argc, char** argv) {
    int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    std::string include = argc > 2 ? argv[2] : "/usr/x86_64-w64-mingw32/include";
    if (!fs::exists(fs::path(include) / "windows.h")) {
        std::fprintf(stderr, "pp_bench: no windows.h in %s\n", include.c_str());
        return 2;
    }
    setenv("include", include.c_str(), 1);
    fs::path dir = fs::temp_directory_path() / "tarn-pp-bench";
    fs::create_directories(dir);
    fs::path input = dir / "bench.rc";
    std::string text = make_input();
    std::ofstream(input, std::ios::binary) << text;

    double best_tarn = 1e9, best_gnu = 1e9;
    for (int i = 0; i < rounds; ++i) {
        double t = run_tarn(input), g = run_gnu(input, include);
        if (t < 0 || g < 0) {
            std::fprintf(stderr, "pp_bench: a preprocessor failed (tarn %g, cpp %g)\n", t, g);
            return 1;
        }
        best_tarn = std::min(best_tarn, t);
        best_gnu = std::min(best_gnu, g);
    }
    double mb = static_cast<double>(text.size()) / 1e6;
    std::printf("input: %.1f MB, %d defines, %d lines of text, best of %d rounds\n", mb, DEFINES,
                TEXT_LINES, rounds);
    std::printf("tarn     %8.1f ms  %7.1f MB/s\n", best_tarn * 1e3, mb / best_tarn);
    std::printf("GNU cpp  %8.1f ms  %7.1f MB/s\n", best_gnu * 1e3, mb / best_gnu);
    std::printf("ratio (GNU cpp time / tarn time): %.2fx\n", best_gnu / best_tarn);
    fs::remove_all(dir);
    return 0;
}
