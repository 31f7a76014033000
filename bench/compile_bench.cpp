// Whole-compilation throughput: generated scripts of the usual shapes (a
// large string table, many dialogs, many raw-data blocks, a small script
// that includes windows.h) are compiled by the `tarn` driver, one child
// process per compilation since one load of the library serves one
// compilation. The other resource compilers packaged for Debian (GNU
// windres, llvm-rc, Wine's wrc) compile the same scripts in the same run
// as the reference; they are timed only, their output is not looked at.
// The scripts keep to what all of them accept (no expressions inside raw
// data). Each figure is the median of several repetitions; peak memory is
// the child's ru_maxrss from wait4 (for windres and llvm-rc it is the
// largest of the tool and the preprocessor it waits for).
//
// Usage: compile_bench [repetitions] [include-folder] [tarn-driver]
// With TARN_BENCH_KEEP set in the environment the scripts are kept.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int STRINGS = 50000;
constexpr int DIALOGS = 2000;
constexpr int RCDATA_BLOCKS = 5000;
// Only for the list of headers a script reads.
constexpr const char* GNU_CPP = "x86_64-w64-mingw32-cpp";

std::string num(long n) {
    return std::to_string(n);
}

// The platform constants the generated scripts use, as a script's own
// header does when it is built without windows.h.
const char* const STYLE_DEFINES = "#ifndef WS_POPUP\n"
                                  "#define WS_POPUP 0x80000000L\n"
                                  "#define WS_CAPTION 0x00C00000L\n"
                                  "#define WS_SYSMENU 0x00080000L\n"
                                  "#define WS_TABSTOP 0x00010000L\n"
                                  "#define WS_GROUP 0x00020000L\n"
                                  "#define WS_VSCROLL 0x00200000L\n"
                                  "#define WS_BORDER 0x00800000L\n"
                                  "#define DS_MODALFRAME 0x0080L\n"
                                  "#define DS_SHELLFONT 0x0048L\n"
                                  "#define ES_AUTOHSCROLL 0x0080L\n"
                                  "#define ES_NUMBER 0x2000L\n"
                                  "#define CBS_DROPDOWNLIST 0x0003L\n"
                                  "#define BS_AUTOCHECKBOX 0x0003L\n"
                                  "#define SS_ICON 0x0003L\n"
                                  "#define WS_EX_CLIENTEDGE 0x00000200L\n"
                                  "#define IDOK 1\n"
                                  "#define IDCANCEL 2\n"
                                  "#endif\n";

const char* const WORDS[] = {"file",   "could not", "be opened", "the",     "settings",
                             "window", "is",        "saved",     "account", "balance",
                             "report", "of",        "month",     "%s",      "%d items"};

std::string sentence(int i) {
    std::string s;
    int n = 3 + i % 6;
    for (int k = 0; k < n; ++k) {
        if (k) s += ' ';
        s += WORDS[(i * 7 + k * 3) % std::size(WORDS)];
    }
    if (i % 5 == 0) s += ".\\n";
    if (i % 11 == 0) s += " \"\"quoted\"\"";
    if (i % 13 == 0) s += "\\tend";
    return s;
}

// (a) A header of string identifiers and string tables of 100 entries each,
// some under another language, some identifiers written as expressions.
std::string make_strings(std::string* header) {
    *header = "#define IDS_BASE 1000\n";
    for (int i = 0; i < STRINGS; i += 2)
        *header += "#define IDS_S" + num(i) + " " + num(1000 + i) + "\n";
    std::string s = "#include \"strings.h\"\n\n";
    for (int i = 0; i < STRINGS; ++i) {
        if (i % 100 == 0) {
            if (i) s += "END\n\n";
            s += i % 1000 == 500 ? "STRINGTABLE LANGUAGE 0x07, 0x01\nBEGIN\n"
                                 : "STRINGTABLE\nBEGIN\n";
        }
        std::string id = i % 2 ? "IDS_BASE + " + num(i) : "IDS_S" + num(i);
        s += "    " + id + (i % 3 ? ", \"" : " \"") + sentence(i) + "\"\n";
    }
    return s + "END\n";
}

// One control line of a dialog, cycling through the usual kinds.
std::string control(int d, int c, int id) {
    std::string y = num(10 + c * 16), sid = "IDC_" + num(id);
    switch (c % 8) {
    case 0:
        return "    LTEXT \"&Name of item " + num(d) + ":\", -1, 7, " + y + ", 60, 8\n";
    case 1:
        return "    EDITTEXT " + sid + ", 70, " + y + ", 120, 14, ES_AUTOHSCROLL | WS_TABSTOP\n";
    case 2:
        return "    COMBOBOX " + sid + ", 70, " + y +
               ", 120, 80, CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP\n";
    case 3:
        return "    CONTROL \"Enable option " + num(c) + "\", " + sid +
               ", \"Button\", BS_AUTOCHECKBOX | WS_TABSTOP, 7, " + y + ", 100, 10\n";
    case 4:
        return "    GROUPBOX \"Details\", -1, 4, " + y + ", 200, 40, WS_GROUP\n";
    case 5:
        return "    EDITTEXT " + sid + ", 70, " + y +
               ", 40, 14, ES_NUMBER | WS_TABSTOP, WS_EX_CLIENTEDGE\n";
    case 6:
        return "    DEFPUSHBUTTON \"OK\", IDOK, 100, " + y + ", 50, 14\n";
    default:
        return "    PUSHBUTTON \"Cancel\", IDCANCEL, 154, " + y + ", 50, 14\n";
    }
}

// (b) DIALOGEX templates of ten controls each; control identifiers come
// from the header.
std::string make_dialogs(std::string* header) {
    *header = STYLE_DEFINES;
    for (int d = 0; d < DIALOGS; ++d)
        *header += "#define IDD_DLG" + num(d) + " " + num(100 + d) + "\n";
    for (int i = 0; i < 10 * 16; ++i)
        *header += "#define IDC_" + num(i) + " " + num(2000 + i) + "\n";
    std::string s = "#include \"dialogs.h\"\n\n";
    for (int d = 0; d < DIALOGS; ++d) {
        s += "IDD_DLG" + num(d) + " DIALOGEX 0, 0, 210, 190\n";
        s += "STYLE DS_SHELLFONT | DS_MODALFRAME | WS_POPUP | WS_CAPTION | WS_SYSMENU\n";
        s += "CAPTION \"Settings page " + num(d) + "\"\n";
        s += "FONT 8, \"MS Shell Dlg\", 400, 0, 0x1\nBEGIN\n";
        for (int c = 0; c < 10; ++c) s += control(d, c, (d % 16) * 10 + c);
        s += "END\n\n";
    }
    return s;
}

// (c) RCDATA blocks of numbers, long numbers, narrow and wide strings.
std::string make_rcdata(std::string* header) {
    *header = "#define RECORD_VERSION 3\n#define FLAG_AB 0x0210\n";
    std::string s = "#include \"rcdata.h\"\n\n";
    for (int i = 0; i < RCDATA_BLOCKS; ++i) {
        s += num(1 + i) + " RCDATA\nBEGIN\n";
        s += "    RECORD_VERSION, " + num(i * 37 % 65536) + ", FLAG_AB, 0x" +
             num(i % 9000 + 1000) + "L,\n";
        s += "    \"record " + num(i) + "\\0\", L\"wide text " + num(i) + "\\0\",\n";
        s += "    " + num(i % 256) + ", " + num((i * 3) % 256) + ", " + num((i * 5) % 256) + ", " +
             num(i * 11) + "L, " + num(i * 2 + 2) + "\n";
        s += "END\n\n";
    }
    return s;
}

// (d) A small script on top of windows.h.
std::string make_windows_h(std::string* header) {
    header->clear();
    return "#include <windows.h>\n\n"
           "#define IDS_TITLE 1\n"
           "#define IDD_MAIN 100\n"
           "#define IDR_DATA 10\n\n"
           "LANGUAGE LANG_ENGLISH, SUBLANG_ENGLISH_US\n\n"
           "STRINGTABLE\nBEGIN\n"
           "    IDS_TITLE, \"Ledger\"\n"
           "    IDS_TITLE + 1, \"Ready\"\n"
           "END\n\n"
           "IDD_MAIN DIALOGEX 0, 0, 200, 80\n"
           "STYLE DS_SHELLFONT | DS_MODALFRAME | WS_POPUP | WS_CAPTION | WS_SYSMENU\n"
           "CAPTION \"Ledger\"\n"
           "FONT 8, \"MS Shell Dlg\", 400, 0, 0x1\n"
           "BEGIN\n"
           "    EDITTEXT 1001, 7, 7, 120, 14, ES_AUTOHSCROLL | WS_TABSTOP\n"
           "    DEFPUSHBUTTON \"OK\", IDOK, 143, 7, 50, 14\n"
           "    PUSHBUTTON \"Cancel\", IDCANCEL, 143, 24, 50, 14\n"
           "END\n\n"
           "IDR_DATA RCDATA\nBEGIN\n"
           "    1, 2L, \"x\\0\", L\"y\\0\"\n"
           "END\n";
}

struct Workload {
    std::string name;
    std::string (*make)(std::string* header);
    const char* header_name;
    fs::path script;
    double mb = 0; // the script and its own header, not windows.h
};

struct Sample {
    double seconds = 0;
    long maxrss_kb = 0;
    int status = -1;
};

double seconds_since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

// Runs one child with standard output to /dev/null and standard error to
// err; its time from start to reaping and its peak resident set. The child
// is forked, not spawned with vfork: a child that shares this process's
// memory until exec carries this process's peak into its own.
Sample run_child(const std::vector<std::string>& args, const fs::path& err) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    Sample s;
    Clock::time_point t = Clock::now();
    pid_t pid = fork();
    if (pid < 0) return s;
    if (pid == 0) {
        int out = open("/dev/null", O_WRONLY);
        int fd2 = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || fd2 < 0 || dup2(out, 1) < 0 || dup2(fd2, 2) < 0) _exit(126);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage ru{};
    if (wait4(pid, &status, 0, &ru) != pid) return s;
    s.seconds = seconds_since(t);
    s.maxrss_kb = ru.ru_maxrss;
    s.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return s;
}

// The first error a failed child wrote (warnings may come before it).
std::string first_error(const fs::path& p) {
    std::ifstream in(p);
    std::string line, first;
    while (std::getline(in, line)) {
        if (first.empty()) first = line;
        if (line.find("error") != std::string::npos) return line;
    }
    return first;
}

struct Summary {
    double median_s = 0;
    long peak_kb = 0;
    bool ok = false;
    std::string why; // the first diagnostic when it failed
};

Summary measure(const std::vector<std::string>& args, const fs::path& err, int reps) {
    Summary r;
    std::vector<double> times;
    for (int i = 0; i < reps; ++i) {
        Sample s = run_child(args, err);
        if (s.status != 0) {
            r.why = s.status < 0 || s.status == 127 ? "could not start " + args[0] : first_error(err);
            return r;
        }
        times.push_back(s.seconds);
        r.peak_kb = std::max(r.peak_kb, s.maxrss_kb);
    }
    std::sort(times.begin(), times.end());
    size_t n = times.size();
    r.median_s = n % 2 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2;
    r.ok = true;
    return r;
}

void write_workload(Workload& w, const fs::path& dir) {
    std::string header;
    std::string text = w.make(&header);
    w.script = dir / (w.name + ".rc");
    std::ofstream(w.script, std::ios::binary) << text;
    if (!header.empty()) std::ofstream(dir / w.header_name, std::ios::binary) << header;
    w.mb = static_cast<double>(text.size() + header.size()) / 1e6;
}

// Bytes of the headers a script brings in, from GNU cpp's dependency list.
double header_mb(const std::string& include, const fs::path& script) {
    std::string cmd = std::string(GNU_CPP) + " -DRC_INVOKED -I'" + include + "' -M '" +
                      script.string() + "' 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return 0;
    std::string word, list;
    for (int c; (c = std::fgetc(p)) != EOF;) list += static_cast<char>(c);
    pclose(p);
    uintmax_t bytes = 0;
    std::istringstream in(list);
    while (in >> word) {
        if (word == "\\" || word.back() == ':' || word == script.string()) continue;
        std::error_code ec;
        uintmax_t n = fs::file_size(word, ec);
        if (!ec) bytes += n;
    }
    return static_cast<double>(bytes) / 1e6;
}

void print_row(const char* tool, const Summary& s, double mb) {
    if (!s.ok) {
        std::printf("  %-8s skipped: %s\n", tool, s.why.c_str());
        return;
    }
    std::printf("  %-8s %9.1f ms %9.1f ms/MB %8.1f MB/s %9.1f MB peak RSS\n", tool,
                s.median_s * 1e3, s.median_s * 1e3 / mb, mb / s.median_s, s.peak_kb / 1024.0);
}

// How each compiler is asked to compile `script` to `out`. windres runs
// gcc as its preprocessor, which defines __GNUC__ itself; the others are
// given it because mingw-w64's vadefs.h insists on it.
struct Tool {
    const char* name;
    std::vector<std::string> (*command)(const std::string& include, const std::string& script,
                                        const std::string& out);
};

const Tool PEERS[] = {
    {"windres",
     [](const std::string& include, const std::string& script, const std::string& out) {
         return std::vector<std::string>{"x86_64-w64-mingw32-windres", "-I" + include, "-O", "res",
                                         "-i", script, "-o", out};
     }},
    {"llvm-rc",
     [](const std::string& include, const std::string& script, const std::string& out) {
         return std::vector<std::string>{"llvm-rc", "-D__GNUC__=4", "-I", include, "-fo", out,
                                         script};
     }},
    {"wrc",
     [](const std::string& include, const std::string& script, const std::string& out) {
         return std::vector<std::string>{"wrc", "-D__GNUC__=4", "-I" + include, "-o", out, script};
     }},
};

} // namespace

int main(int argc, char** argv) {
    int reps = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    std::string include = argc > 2 ? argv[2] : "/usr/x86_64-w64-mingw32/include";
    std::string driver = argc > 3 ? argv[3] : TARN_DRIVER;
    if (!fs::exists(fs::path(include) / "windows.h")) {
        std::fprintf(stderr, "compile_bench: no windows.h in %s\n", include.c_str());
        return 2;
    }
    // The library's include search reads this variable; the others get -I.
    setenv("include", include.c_str(), 1);
    fs::path dir = fs::temp_directory_path() / ("tarn-compile-bench-" + num(getpid()));
    fs::create_directories(dir);
    fs::path err = dir / "stderr.txt";

    std::vector<Workload> loads = {{"strings", make_strings, "strings.h", {}},
                                   {"dialogs", make_dialogs, "dialogs.h", {}},
                                   {"rcdata", make_rcdata, "rcdata.h", {}},
                                   {"windows_h", make_windows_h, "", {}}};
    std::printf("tarn: %s\nmedian of %d runs, one process per compilation; "
                "speed-up = fastest other compiler's time / tarn's time\n",
                driver.c_str(), reps);
    for (Workload& w : loads) {
        write_workload(w, dir);
        // The last script is a few lines on top of windows.h: its rates are
        // taken over the headers it reads as well.
        double headers = &w == &loads.back() ? header_mb(include, w.script) : 0;
        if (headers > 0)
            std::printf("\n%s: %.4f MB of script + %.2f MB of headers\n", w.name.c_str(), w.mb,
                        headers);
        else
            std::printf("\n%s: %.2f MB of script\n", w.name.c_str(), w.mb);
        std::string out = (dir / (w.name + ".res")).string();
        Summary t = measure({driver, "-D__GNUC__=4", "-Fo" + out, w.script.string()}, err, reps);
        print_row("tarn", t, w.mb + headers);
        const Tool* fastest = nullptr;
        Summary best;
        for (const Tool& peer : PEERS) {
            Summary p = measure(peer.command(include, w.script.string(), out + ".peer"), err, reps);
            print_row(peer.name, p, w.mb + headers);
            if (p.ok && (!fastest || p.median_s < best.median_s)) {
                fastest = &peer;
                best = p;
            }
        }
        if (t.ok && fastest)
            std::printf("  speed-up %.2fx over %s\n", best.median_s / t.median_s, fastest->name);
    }
    // Kept on request, for profiling one compilation by hand.
    if (std::getenv("TARN_BENCH_KEEP"))
        std::printf("scripts kept in %s\n", dir.c_str());
    else
        fs::remove_all(dir);
    return 0;
}
