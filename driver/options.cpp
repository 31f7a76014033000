// Command-line parsing: a table of the option letters and a loop over the
// arguments. Letters are matched without regard to case; a value is either
// attached ("-Ipath") or the next argument ("-I path").
#include "options.h"

#include <filesystem>
#include <string_view>

#include "coff.h"

namespace tarn_driver {

namespace {

using Apply = void (*)(Options&, std::u16string_view value);

struct OptionSpec {
    std::u16string_view letters; // upper case
    bool takes_value;
    Apply apply;
};

void refuse(Options& o, Options::Problem problem, std::u16string_view text) {
    o.action = Action::usage_error;
    o.problem = problem;
    o.bad_text = text;
}

void set_code_page(Options& o, std::u16string_view v) {
    o.code_page_given = true;
    if (!parse_code_page(v, &o.code_page)) refuse(o, Options::Problem::bad_code_page, v);
}

void set_language(Options& o, std::u16string_view v) {
    o.language_given = true;
    if (!parse_language(v, &o.language)) refuse(o, Options::Problem::bad_language, v);
}

const OptionSpec OPTIONS[] = {
    {u"C", true, set_code_page},
    {u"D", true,
     [](Options& o, std::u16string_view v) {
         o.symbols.push_back({true, std::u16string(v)});
     }},
    {u"E", false, [](Options& o, std::u16string_view) { o.preprocess_only = true; }},
    {u"FO", true, [](Options& o, std::u16string_view v) { o.output = v; }},
    {u"I", true, [](Options& o, std::u16string_view v) { o.include_paths.emplace_back(v); }},
    {u"L", true, set_language},
    {u"M", false, [](Options& o, std::u16string_view) { o.make_rule = true; }},
    {u"NOLOGO", false, [](Options&, std::u16string_view) {}}, // there is no logo to keep quiet
    {u"N", false, [](Options& o, std::u16string_view) { o.null_append = true; }},
    {u"R", false, [](Options&, std::u16string_view) {}}, // a .res is what we always make
    {u"U", true,
     [](Options& o, std::u16string_view v) {
         o.symbols.push_back({false, std::u16string(v)});
     }},
    {u"V", false, [](Options& o, std::u16string_view) { o.verbose = true; }},
    {u"X", false, [](Options& o, std::u16string_view) { o.no_standard_includes = true; }},
};

bool stop(Options& o, Options::Problem problem, std::u16string_view typed);

// A long option's value that is none of its choices: shown as "--name=value".
void bad_choice(Options& o, std::u16string_view name, std::u16string_view value) {
    stop(o, Options::Problem::unknown_option,
         std::u16string(u"--") + std::u16string(name) + u"=" + std::u16string(value));
}

void set_format(Options& o, std::u16string_view v) {
    if (v == u"res")
        o.format = OutputFormat::res;
    else if (v == u"coff")
        o.format = OutputFormat::coff;
    else
        bad_choice(o, u"format", v);
}

void set_machine(Options& o, std::u16string_view v) {
    if (!parse_machine(v, &o.machine)) bad_choice(o, u"machine", v);
}

// The long options, which start with "--" everywhere; a value is attached
// ("--name=value") or the next argument.
const struct {
    std::u16string_view name;
    Apply apply;
    bool takes_value = false;
} LONG_OPTIONS[] = {
    {u"help", [](Options& o, std::u16string_view) { o.action = Action::help; }},
    {u"version", [](Options& o, std::u16string_view) { o.action = Action::version; }},
    {u"dump", [](Options& o, std::u16string_view) { o.action = Action::dump; }},
    {u"extended", [](Options& o, std::u16string_view) { o.extended = true; }},
    {u"dump-hex",
     [](Options& o, std::u16string_view) { o.action = Action::dump, o.dump_hex = true; }},
    {u"format", set_format, true},
    {u"machine", set_machine, true},
    {u"depfile", [](Options& o, std::u16string_view v) { o.depfile = v; }, true},
};

char16_t upper(char16_t c) {
    return c >= u'a' && c <= u'z' ? char16_t(c - u'a' + u'A') : c;
}

bool starts_with_letters(std::u16string_view text, std::u16string_view letters) {
    if (text.size() < letters.size()) return false;
    for (size_t i = 0; i < letters.size(); ++i)
        if (upper(text[i]) != letters[i]) return false;
    return true;
}

int hex_digit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (upper(c) >= u'A' && upper(c) <= u'F') return upper(c) - u'A' + 10;
    return -1;
}

// Stops parsing with `problem` about the option `typed`, shown as given.
bool stop(Options& o, Options::Problem problem, std::u16string_view typed) {
    o.action = Action::usage_error;
    o.problem = problem;
    o.offending = typed;
    return false;
}

// One option (`typed` = the whole argument, body = without its "-" or "/");
// may take the next argument as its value. Returns false when parsing must
// stop.
bool take_option(Options& o, std::u16string_view typed, const std::vector<std::u16string>& args,
                 size_t* i) {
    using Problem = Options::Problem;
    std::u16string_view body = typed.substr(1);
    if (body == u"?") return o.action = Action::help, false;
    if (body.starts_with(u"-")) {
        std::u16string_view name = body.substr(1), value;
        size_t equals = name.find(u'=');
        bool attached = equals != std::u16string_view::npos;
        if (attached) value = name.substr(equals + 1), name = name.substr(0, equals);
        for (const auto& l : LONG_OPTIONS) {
            if (name != l.name) continue;
            if (l.takes_value != attached) {
                if (!l.takes_value) break;
                if (*i + 1 >= args.size()) return stop(o, Problem::missing_value, typed);
                value = args[++*i];
            }
            l.apply(o, value);
            return o.action != Action::usage_error;
        }
        return stop(o, Problem::unknown_option, typed);
    }
    for (const OptionSpec& option : OPTIONS) {
        if (!starts_with_letters(body, option.letters)) continue;
        std::u16string_view rest = body.substr(option.letters.size());
        if (!option.takes_value) {
            if (!rest.empty()) break;
            option.apply(o, {});
            return true;
        }
        if (rest.empty()) {
            if (*i + 1 >= args.size()) return stop(o, Problem::missing_value, typed);
            rest = args[++*i];
        }
        option.apply(o, rest);
        return o.action != Action::usage_error;
    }
    return stop(o, Problem::unknown_option, typed);
}

// Returns false when parsing must stop: there is one input only.
bool set_input(Options& o, std::u16string_view arg) {
    if (!o.input.empty()) return o.action = Action::usage_error, false;
    o.input = arg;
    return true;
}

// `windows`: the platform's object extension is ".obj" rather than ".o".
void finish(Options& o, bool windows) {
    if (o.action != Action::compile && o.action != Action::dump) return;
    if (o.input.empty()) {
        o.action = Action::usage_error;
        return;
    }
    if (o.action == Action::dump) return;
    if (!has_extension(o.input)) o.input += u".rc";
    if (o.output.empty() && o.format == OutputFormat::coff)
        o.output = with_extension(o.input, windows ? u".obj" : u".o");
    if (o.output.empty()) o.output = with_extension(o.input, u".res");
}

bool is_separator(char16_t c) {
    return c == u'/' || c == u'\\';
}

} // namespace

bool has_extension(std::u16string_view path) {
    for (size_t i = path.size(); i-- > 0;) {
        if (is_separator(path[i])) return false;
        if (path[i] == u'.') return true;
    }
    return false;
}

std::u16string with_extension(std::u16string_view path, std::u16string_view extension) {
    size_t end = path.size();
    for (size_t i = path.size(); i-- > 0 && !is_separator(path[i]);)
        if (path[i] == u'.') {
            end = i;
            break;
        }
    return std::u16string(path.substr(0, end)) + std::u16string(extension);
}

std::u16string extension_of(std::u16string_view path) {
    for (size_t i = path.size(); i-- > 0 && !is_separator(path[i]);) {
        if (path[i] != u'.') continue;
        std::u16string ext(path.substr(i));
        for (char16_t& c : ext)
            if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
        return ext;
    }
    return {};
}

bool parse_language(std::u16string_view text, uint16_t* language) {
    if (text.size() >= 2 && text[0] == u'0' && upper(text[1]) == u'X') text.remove_prefix(2);
    if (text.empty() || text.size() > 4) return false;
    uint32_t value = 0;
    for (char16_t c : text) {
        int d = hex_digit(c);
        if (d < 0) return false;
        value = value * 16 + uint32_t(d);
    }
    *language = uint16_t(value);
    return true;
}

bool parse_code_page(std::u16string_view text, uint32_t* code_page) {
    uint32_t value = 0;
    bool ok = !text.empty();
    for (char16_t c : text) {
        if (c < u'0' || c > u'9' || value > (0xFFFFFFFFu - 9) / 10) {
            ok = false;
            break;
        }
        value = value * 10 + uint32_t(c - u'0');
    }
    *code_page = value;
    return ok;
}

// Without `slash_options`, "/" still starts one of our options where build
// tools pass rc-style options ("/fo obj", "/nologo"), unless a file or
// folder of that name exists.
static bool slash_option_here(std::u16string_view arg, const std::vector<std::u16string>& args,
                              size_t i) {
    std::error_code ec;
    if (arg.size() < 2 || arg[0] != u'/' || std::filesystem::exists(std::filesystem::path(arg), ec))
        return false;
    Options probe;
    size_t at = i;
    return take_option(probe, arg, args, &at) && probe.action == Action::compile;
}

Options parse_options(const std::vector<std::u16string>& args, bool slash_options) {
    Options o;
    if (args.empty()) {
        o.action = Action::usage_error;
        return o;
    }
    for (size_t i = 0; i < args.size(); ++i) {
        const std::u16string& a = args[i];
        bool option = a.size() > 1 && (a[0] == u'-' || (slash_options && a[0] == u'/'));
        if (!option && !slash_options) option = slash_option_here(a, args, i);
        bool go_on = option ? take_option(o, a, args, &i) : set_input(o, a);
        if (!go_on) return o;
    }
    finish(o, slash_options);
    return o;
}

} // namespace tarn_driver
