// The windres-compatible command line: a table of its options (short letter,
// long name, whether a value follows) and a loop that, like getopt, takes
// options and positional arguments in any order. "-Ivalue" and "-I value",
// "--include-dir=value" and "--include-dir value" mean the same.
#include "windres.h"

#include "console.h"
#include "makerule.h"
#include "utf.h"

namespace tarn_driver {

namespace {

struct Parse {
    WindresCommand command;
    std::vector<std::u16string> positional;
    bool input_format_given = false;
    bool depfile_requested = false; // -MD or -MMD through the preprocessor
    bool preprocessor_noted = false;
    std::u16string pending; // "-MF", "-MT" or "-MQ" given alone: its value comes next
};

using Apply = void (*)(Parse&, std::u16string_view value);

struct WindresOption {
    char16_t letter; // 0: long form only
    std::u16string_view name;
    bool takes_value;
    Apply apply;
};

void fail(Parse& p, std::string text) {
    if (p.command.error.empty()) p.command.error = std::move(text);
}

std::string in_quotes(std::u16string_view text) {
    return cat({"'", to_utf8(text), "'"});
}

void set_input_format(Parse& p, std::u16string_view v) {
    p.input_format_given = true;
    if (v == u"rc")
        p.command.options.input_is_res = false;
    else if (v == u"res")
        p.command.options.input_is_res = true;
    else
        fail(p, cat({"unsupported input format ", in_quotes(v), " (rc or res)"}));
}

void set_output_format(Parse& p, std::u16string_view v) {
    if (v == u"res")
        p.command.options.format = OutputFormat::res;
    else if (v == u"coff")
        p.command.options.format = OutputFormat::coff;
    else
        fail(p, cat({"unsupported output format ", in_quotes(v), " (res or coff)"}));
}

// The object formats binutils names; "pei-" is accepted for "pe-".
const struct {
    std::u16string_view name;
    Machine machine;
} TARGETS[] = {
    {u"pe-x86-64", Machine::x64},           {u"pe-i386", Machine::x86},
    {u"pe-aarch64", Machine::arm64},        {u"pe-arm64", Machine::arm64},
    {u"pe-aarch64-little", Machine::arm64},
};

void set_target(Parse& p, std::u16string_view v) {
    std::u16string name(v);
    if (name.starts_with(u"pei-")) name.erase(2, 1);
    for (const auto& t : TARGETS)
        if (name == t.name) {
            p.command.options.machine = t.machine;
            return;
        }
    fail(p, cat({"unsupported target ", in_quotes(v), " (pe-x86-64, pe-i386 or pe-aarch64)"}));
}

void set_language(Parse& p, std::u16string_view v) {
    Options& o = p.command.options;
    o.language_given = true;
    if (!parse_language(v, &o.language))
        fail(p, cat({"invalid language ", in_quotes(v), " (a hexadecimal id such as 0x409)"}));
}

// Decimal, or hexadecimal after "0x".
void set_code_page(Parse& p, std::u16string_view v) {
    Options& o = p.command.options;
    o.code_page_given = true;
    bool ok = false;
    if (v.size() > 2 && v[0] == u'0' && (v[1] == u'x' || v[1] == u'X')) {
        uint16_t value = 0;
        ok = parse_language(v, &value); // code pages fit four hex digits
        o.code_page = value;
    } else {
        ok = parse_code_page(v, &o.code_page);
    }
    if (!ok) fail(p, cat({"invalid code page ", in_quotes(v)}));
}

// Another preprocessor cannot be run: ours is built in. What it would have
// been asked for a dependency file is honoured.
void preprocessor_arg(Parse& p, std::u16string_view arg) {
    Options& o = p.command.options;
    std::u16string joined = p.pending + std::u16string(arg);
    std::u16string_view v = joined;
    p.pending.clear();
    if (v == u"-MF" || v == u"-MT" || v == u"-MQ") {
        p.pending = v;
        return;
    }
    auto value_of = [&](std::u16string_view flag, std::u16string_view* value) {
        if (!v.starts_with(flag) || v.size() == flag.size()) return false;
        *value = v.substr(flag.size());
        return true;
    };
    std::u16string_view value;
    if (v == u"-MD" || v == u"-MMD")
        p.depfile_requested = true;
    else if (value_of(u"-MF", &value))
        o.depfile = value;
    else if (value_of(u"-MT", &value))
        o.depfile_targets.emplace_back(value);
    else if (value_of(u"-MQ", &value))
        o.depfile_targets.push_back(make_escape(value));
    else
        p.command.notes.push_back(cat({"preprocessor argument ", in_quotes(v), " ignored"}));
}

void preprocessor(Parse& p, std::u16string_view v) {
    if (p.preprocessor_noted) return;
    p.preprocessor_noted = true;
    p.command.notes.push_back(
        cat({"preprocessor ", in_quotes(v), " ignored: the built-in one is used"}));
}

void ignore(Parse&, std::u16string_view) {}

const WindresOption WINDRES_OPTIONS[] = {
    {u'i', u"input", true, [](Parse& p, std::u16string_view v) { p.command.options.input = v; }},
    {u'o', u"output", true, [](Parse& p, std::u16string_view v) { p.command.options.output = v; }},
    {u'J', u"input-format", true, set_input_format},
    {u'O', u"output-format", true, set_output_format},
    {u'F', u"target", true, set_target},
    {u'I', u"include-dir", true,
     [](Parse& p, std::u16string_view v) { p.command.options.include_paths.emplace_back(v); }},
    {u'D', u"define", true,
     [](Parse& p, std::u16string_view v) {
         p.command.options.symbols.push_back({true, std::u16string(v)});
     }},
    {u'U', u"undefine", true,
     [](Parse& p, std::u16string_view v) {
         p.command.options.symbols.push_back({false, std::u16string(v)});
     }},
    {u'l', u"language", true, set_language},
    {u'c', u"codepage", true, set_code_page},
    {u'v', u"verbose", false,
     [](Parse& p, std::u16string_view) { p.command.options.verbose = true; }},
    {u'r', u"", false, ignore}, // "rc compatibility": a .res is what -O res makes anyway
    {0, u"use-temp-file", false, ignore},
    {0, u"no-use-temp-file", false, ignore},
    {0, u"preprocessor", true, preprocessor},
    {0, u"preprocessor-arg", true, preprocessor_arg},
    {0, u"depfile", true, [](Parse& p, std::u16string_view v) { p.command.options.depfile = v; }},
    {u'h', u"help", false,
     [](Parse& p, std::u16string_view) { p.command.options.action = Action::help; }},
    {u'V', u"version", false,
     [](Parse& p, std::u16string_view) { p.command.options.action = Action::version; }},
};

// Takes args[*i]; moves *i past a value that is the next argument.
void take_long(Parse& p, std::u16string_view body, const std::vector<std::u16string>& args,
               size_t* i) {
    size_t eq = body.find(u'=');
    std::u16string_view name = body.substr(0, eq);
    for (const WindresOption& w : WINDRES_OPTIONS) {
        if (w.name.empty() || w.name != name) continue;
        if (!w.takes_value) {
            if (eq != std::u16string_view::npos)
                return fail(p, cat({"option '--", to_utf8(name), "' takes no value"}));
            return w.apply(p, {});
        }
        if (eq != std::u16string_view::npos) return w.apply(p, body.substr(eq + 1));
        if (*i + 1 >= args.size())
            return fail(p, cat({"option '--", to_utf8(name), "' needs a value"}));
        return w.apply(p, args[++*i]);
    }
    fail(p, cat({"unknown option '--", to_utf8(body.substr(0, eq)), "'"}));
}

// Short options: letters may be grouped ("-vr"); a value-taking letter takes
// the rest of the argument or the next one.
void take_short(Parse& p, std::u16string_view body, const std::vector<std::u16string>& args,
                size_t* i) {
    for (size_t at = 0; at < body.size(); ++at) {
        const WindresOption* found = nullptr;
        for (const WindresOption& w : WINDRES_OPTIONS)
            if (w.letter && w.letter == body[at]) found = &w;
        if (!found) return fail(p, cat({"unknown option '-", to_utf8(body.substr(at, 1)), "'"}));
        if (!found->takes_value) {
            found->apply(p, {});
            continue;
        }
        if (at + 1 < body.size()) return found->apply(p, body.substr(at + 1));
        if (*i + 1 >= args.size())
            return fail(p, cat({"option '-", to_utf8(body.substr(at, 1)), "' needs a value"}));
        return found->apply(p, args[++*i]);
    }
}

bool ends_with_ci(std::u16string_view text, std::u16string_view tail) {
    if (text.size() < tail.size()) return false;
    text = text.substr(text.size() - tail.size());
    for (size_t k = 0; k < tail.size(); ++k) {
        char16_t c = text[k];
        if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
        if (c != tail[k]) return false;
    }
    return true;
}

// Positional arguments fill the input, then the output; the format follows
// the names when no option gave it.
void finish(Parse& p) {
    Options& o = p.command.options;
    if (!p.command.error.empty() || o.action != Action::compile) return;
    for (const std::u16string& a : p.positional) {
        if (o.input.empty())
            o.input = a;
        else if (o.output.empty())
            o.output = a;
        else
            return fail(p, cat({"too many file names: ", in_quotes(a)}));
    }
    if (o.input.empty()) return fail(p, "no input file given");
    // Writing a binary to a terminal or pipe is rarely what is meant, and
    // the output is replaced whole or not at all: a file is needed.
    if (o.output.empty()) return fail(p, "no output file given (use -o FILE)");
    if (!p.input_format_given) o.input_is_res = extension_of(o.input) == u".res";
    if (o.format == OutputFormat::by_extension)
        o.format = extension_of(o.output) == u".res" ? OutputFormat::res : OutputFormat::coff;
    if (p.depfile_requested && o.depfile.empty()) o.depfile = with_extension(o.output, u".d");
}

} // namespace

bool is_windres_name(std::string_view program, Machine* machine) {
    size_t slash = program.find_last_of("/\\");
    if (slash != std::string_view::npos) program.remove_prefix(slash + 1);
    std::u16string name = from_utf8(program);
    if (ends_with_ci(name, u".exe")) name.resize(name.size() - 4);
    if (!ends_with_ci(name, u"windres")) return false;
    *machine = Machine::x64;
    const struct {
        std::u16string_view prefix;
        Machine machine;
    } prefixes[] = {{u"i386-", Machine::x86},      {u"i486-", Machine::x86},
                    {u"i586-", Machine::x86},      {u"i686-", Machine::x86},
                    {u"aarch64-", Machine::arm64}, {u"arm64-", Machine::arm64}};
    for (const auto& p : prefixes)
        if (name.starts_with(p.prefix)) *machine = p.machine;
    return true;
}

WindresCommand parse_windres_options(const std::vector<std::u16string>& args, Machine machine) {
    Parse p;
    Options& o = p.command.options;
    o.extended = true;
    o.machine = machine;
    // GNU windres runs the target's C preprocessor, whose predefined names
    // scripts test; the user's -D and -U come after these. The headers
    // themselves are found as for tarn (mingw.h).
    for (std::u16string_view name : {u"__GNUC__=4", u"__MINGW32__"})
        o.symbols.push_back({true, std::u16string(name)});
    bool options_end = false;
    for (size_t i = 0; i < args.size() && p.command.error.empty(); ++i) {
        std::u16string_view a = args[i];
        if (options_end || a.size() < 2 || a[0] != u'-')
            p.positional.emplace_back(a);
        else if (a == u"--")
            options_end = true;
        else if (a[1] == u'-')
            take_long(p, a.substr(2), args, &i);
        else
            take_short(p, a.substr(1), args, &i);
    }
    if (o.machine != Machine::x86)
        o.symbols.insert(o.symbols.begin() + 2, {{true, u"_WIN64"}, {true, u"__MINGW64__"}});
    finish(p);
    if (!p.command.error.empty()) o.action = Action::usage_error;
    return p.command;
}

std::u16string windres_version_line() {
    return u"tarn-windres (tarn 8.0), a resource compiler compatible with GNU windres";
}

namespace {

constexpr int EXIT_OK = 0;
constexpr int EXIT_USAGE = 2;

const char16_t USAGE[] =
    u"Usage: tarn-windres [options] [input-file] [output-file]\n"
    u"Compiles a resource script (or converts a .res) to a COFF object or a .res,\n"
    u"in tarn's modern dialect. Options:\n"
    u"  -i, --input=FILE          the input (also the first file name)\n"
    u"  -o, --output=FILE         the output (also the second file name)\n"
    u"  -J, --input-format=FMT    rc or res (default: by the input's extension)\n"
    u"  -O, --output-format=FMT   res or coff (default: .res gives res, else coff)\n"
    u"  -F, --target=TARGET       pe-x86-64, pe-i386 or pe-aarch64\n"
    u"  -I, --include-dir=DIR     search DIR for includes and resource files\n"
    u"  -D, --define=SYM[=VAL]    define SYM\n"
    u"  -U, --undefine=SYM        undefine SYM\n"
    u"  -l, --language=ID         the default language (hexadecimal)\n"
    u"  -c, --codepage=CP         the code page of the script\n"
    u"  -v, --verbose             say what is done\n"
    u"      --depfile=FILE        write a make rule of every file read\n"
    u"      --preprocessor-arg=A  -MD, -MMD, -MF FILE, -MT and -MQ TARGET are honoured\n"
    u"  -h, --help                this text\n"
    u"  -V, --version             the version";

void say(Stream stream, std::string_view text) {
    console_write(stream, from_utf8(text) + u"\n");
}

} // namespace

std::u16string windres_usage() {
    return USAGE;
}

bool windres_front_end(int argc, char** argv, Options* o, int* exit_code) {
    Machine machine = Machine::x64;
    if (argc < 1 || !is_windres_name(argv[0], &machine)) return false;
    WindresCommand w = parse_windres_options(command_line(argc, argv), machine);
    for (const std::string& note : w.notes) say(Stream::err, cat({"tarn-windres: ", note}));
    *o = w.options;
    *exit_code = -1;
    if (!w.error.empty()) {
        say(Stream::err, cat({"tarn-windres: ", w.error}));
        say(Stream::err, "Try 'tarn-windres --help'.");
        *exit_code = EXIT_USAGE;
    } else if (o->action == Action::help) {
        console_write(Stream::out, windres_usage() + u"\n");
        *exit_code = EXIT_OK;
    } else if (o->action == Action::version) {
        console_write(Stream::out, windres_version_line() + u"\n");
        *exit_code = EXIT_OK;
    }
    return true;
}

} // namespace tarn_driver
