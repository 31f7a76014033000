// tarn: the command-line driver, a host of the library. It parses its
// options, hands them to the library's exports, compiles (or preprocesses)
// one script and prints what the library reports; --dump lists a compiled
// resource file instead.
#include <tarn/tarn.h>

#include <atomic>
#include <cstdio>
#include <filesystem>

#include "console.h"
#include "dump.h"
#include "makerule.h"
#include "messages.h"
#include "mingw.h"
#include "options.h"
#include "output.h"
#include "preflight.h"
#include "usage.h"
#include "utf.h"
#include "windres.h"

#ifdef _WIN32
#define TARN_HOST_EXPORT
#else
#define TARN_HOST_EXPORT __attribute__((visibility("default")))
#endif

// The version the library's __TARN__ reports: 8.0. On Windows the program's
// version resource gives it; elsewhere the library finds this symbol.
extern "C" TARN_HOST_EXPORT const uint32_t tarn_host_file_version = 0x00080000;

using namespace tarn_driver;

#ifndef _WIN32
// The heap is readied before any library starts up: ours allocates as it
// loads (ELF runs the program's pre-initialisers first).
[[gnu::section(".preinit_array"), gnu::used]] static void (*const ready_heap)(int, char**, char**) =
    [](int, char**, char**) { prepare_heap(); };
#endif

namespace {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

std::atomic<bool> abort_requested{false};

// Where the banner and the information lines go: standard error when
// standard output carries the preprocessed text or the make rule.
Stream info_stream = Stream::out;

void print(Stream stream, std::u16string_view line) {
    console_write(stream, std::u16string(line) + u"\n");
}

void on_interrupt() {
    abort_requested.store(true);
    set_abort_flag();
}

void on_error(int32_t severity, const char16_t* file, uint32_t line, const char16_t* text) {
    if (quiet_diagnostic(severity, file)) return;
    print(Stream::err, diagnostic_line(file, line, text));
    std::u16string in_question = severity != 0 ? file_in_question(text) : u"";
    if (!in_question.empty()) print(Stream::err, file_in_question_text(in_question));
}

// Not shown without -v: it only marks where each resource begins.
void on_info_quiet(const char16_t*) {
    note_resource_start();
}

void on_info(const char16_t* text) {
    note_resource_start();
    print(info_stream, as_lines(text));
}

void print_banner(Stream stream) {
    print(stream, message(MSG_BANNER));
    print(stream, message(MSG_BANNER2));
}

void print_usage() {
    print_banner(Stream::out);
    console_write(Stream::out, usage_text(slash_starts_option()));
}

int usage_error(const Options& o) {
    using Problem = Options::Problem;
    // The table's texts take the language and code page as numbers; what was
    // typed is shown instead, since it is no number.
    if (o.problem == Problem::unknown_option)
        print(Stream::err, message_showing(MSG_UNKNOWN_OPTION, u"/%1", o.offending));
    else if (o.problem == Problem::missing_value)
        print(Stream::err, message(MSG_MISSING_VALUE, {o.offending}));
    else if (o.problem == Problem::bad_language)
        print(Stream::err, message_showing(MSG_INVALID_LANGUAGE, u"%1!hd!", o.bad_text));
    else if (o.problem == Problem::bad_code_page)
        print(Stream::err, message_showing(MSG_INVALID_CODEPAGE, u"%1!d!", o.bad_text));
    else
        print_usage();
    return EXIT_USAGE;
}

int dump(const Options& o) {
    std::string name = to_utf8(o.input);
    std::vector<uint8_t> bytes;
    if (!read_file(std::filesystem::path(o.input), &bytes)) {
        print(Stream::err, from_utf8(cat({"tarn: ", name, ": cannot read the file"})));
        return EXIT_FAILED;
    }
    ResFile res = parse_res(bytes);
    if (!res.ok) {
        char offset[32];
        std::snprintf(offset, sizeof offset, "0x%llX",
                      static_cast<unsigned long long>(res.error_offset));
        print(Stream::err, from_utf8(cat({"tarn: ", name, ": malformed resource file: ", res.why,
                                          " at offset ", offset})));
        return EXIT_FAILED;
    }
    size_t n = res.entries.size();
    std::string title =
        cat({name, ": ", std::to_string(n), n == 1 ? " resource\n" : " resources\n"});
    console_write(Stream::out, from_utf8(title + format_listing(res, bytes, o.dump_hex)));
    return EXIT_OK;
}

// Hands the options to the library; false after a bad code page.
bool configure(const Options& o) {
    // Dependency records are kept only when asked for.
    set_error_function_w(on_error, o.make_rule || !o.depfile.empty() ? 1 : 0);
    set_information_function_w(o.verbose ? on_info : on_info_quiet);
    if (o.code_page_given && !set_codepage(o.code_page)) {
        print(Stream::err, message(MSG_INVALID_CODEPAGE, {o.code_page}));
        return false;
    }
    if (o.language_given) set_language(o.language);
    if (o.null_append) set_null_append_for_strings();
    if (o.extended) set_extended_mode();
    if (o.no_standard_includes) delete_standard_include_paths();
    // Before the user's folders and symbols, which so come first and win.
    std::u16string headers = use_system_headers(o);
    if (o.verbose && !headers.empty()) print(info_stream, headers);
    for (const std::u16string& path : o.include_paths) add_include_path_w(path.c_str());
    for (const SymbolAction& s : o.symbols) {
        if (s.define)
            define_symbol_w(s.text.c_str());
        else
            undefine_symbol_w(s.text.c_str());
    }
    return true;
}

int32_t collect_path(const char16_t* path, uint64_t context) {
    reinterpret_cast<std::vector<std::u16string>*>(uintptr_t(context))
        ->push_back(dependency_path(path));
    return 1;
}

int32_t collect_file(const char16_t*, const char16_t*, uint16_t, const char16_t* path,
                     uint64_t context) {
    return collect_path(path, context);
}

std::vector<std::u16string> recorded_dependencies() {
    std::vector<std::u16string> deps;
    uint64_t context = uint64_t(reinterpret_cast<uintptr_t>(&deps));
    enum_include_info_w(collect_path, context);
    enum_file_info_w(collect_file, context);
    return deps;
}

void print_make_rule(const Options& o) {
    print(Stream::out, make_rule(o.output, o.input, recorded_dependencies()));
}

// The dependency file, once the output is in place; a failure here fails the
// run, as a build would otherwise go on with stale dependencies.
bool write_depfile(const Options& o) {
    std::vector<std::u16string> targets = o.depfile_targets;
    if (targets.empty()) targets.push_back(make_escape(o.output));
    std::u16string text = depfile_text(targets, o.input, recorded_dependencies());
    std::string why;
    if (replace_file(o.depfile, to_utf8(text), &why)) return true;
    print(Stream::err, from_utf8(cat({"tarn: ", to_utf8(o.depfile), ": ", why})));
    std::error_code ec;
    std::filesystem::remove(std::filesystem::path(o.output), ec); // rebuilt next time
    return false;
}

// A stop by signal exits as a shell reports one: 128 and the signal.
constexpr int EXIT_SIGNAL_BASE = 128;

int compile(const Options& o) {
    if (o.preprocess_only || o.make_rule) info_stream = Stream::err;
    if (o.verbose) print_banner(info_stream);
    bool to_file = !o.preprocess_only && !o.make_rule;
    if (std::optional<PathProblem> p = check_paths(o.input, to_file ? o.output : u"")) {
        print(Stream::err, path_problem_text(*p, o.input, o.output));
        return EXIT_FAILED;
    }
    if (!configure(o)) return EXIT_USAGE;
    catch_interrupt(on_interrupt);
    if (to_file) hold_replaced_file(o.output);
    int32_t ok = 0;
    if (o.preprocess_only)
        ok = preprocess_script_w(o.input.c_str());
    else if (o.make_rule)
        ok = compile_script_w(o.input.c_str(), nullptr); // rule only, no .res
    else
        ok = write_output(o);
    if (!ok) {
        if (!abort_requested.load()) return EXIT_FAILED;
        print(Stream::err, message(MSG_ABORTED, {o.input}));
        return stop_signal() ? EXIT_SIGNAL_BASE + stop_signal() : EXIT_FAILED;
    }
    if (o.make_rule && !o.preprocess_only) print_make_rule(o);
    if (!o.depfile.empty() && !o.preprocess_only && !o.make_rule && !write_depfile(o))
        return EXIT_FAILED;
    return EXIT_OK;
}

} // namespace

namespace {

int run(const Options& o) {
    switch (o.action) {
    case Action::help:
        print_usage();
        return EXIT_OK;
    case Action::version:
        print_banner(Stream::out);
        return EXIT_OK;
    case Action::usage_error:
        return usage_error(o);
    case Action::dump:
        return dump(o);
    case Action::compile:
        return compile(o);
    }
    return EXIT_USAGE;
}

} // namespace

int main(int argc, char** argv) {
    Options o;
    int status = -1;
    if (!windres_front_end(argc, argv, &o, &status))
        o = parse_options(command_line(argc, argv), slash_starts_option());
    if (status < 0) status = run(o);
    // What was asked for on standard output and not written is no success.
    if (status == EXIT_OK && standard_output_failed()) {
        print(Stream::err, lost_output_text());
        status = EXIT_FAILED;
    }
    end_process(status);
}
