// The windres front end's command line: the forms CMake, Meson and hand-made
// Makefiles pass, the format chosen by option or name, the depfile request
// through preprocessor arguments, and what is refused.
#include <gtest/gtest.h>

#include "windres.h"

using namespace tarn_driver;
using Args = std::vector<std::u16string>;

namespace {

WindresCommand parse(const Args& args, Machine machine = Machine::x64) {
    return parse_windres_options(args, machine);
}

// The symbols the user gave, without the predefined ones in front.
std::vector<std::u16string> user_symbols(const Options& o) {
    std::vector<std::u16string> out;
    for (const SymbolAction& s : o.symbols)
        if (!s.text.starts_with(u"__") && s.text != u"_WIN64")
            out.push_back((s.define ? u"D:" : u"U:") + s.text);
    return out;
}

TEST(WindresOptions, CMakeCommandLine) {
    // CMake: -O coff <DEFINES> <INCLUDES> <FLAGS> <SOURCE> <OBJECT>, "-I DIR" apart.
    WindresCommand w = parse({u"-O", u"coff", u"-DNDEBUG", u"-I", u"/src/inc", u"-I", u"/build",
                              u"/src/app.rc", u"CMakeFiles/app.dir/app.rc.res"});
    ASSERT_EQ(w.error, "");
    const Options& o = w.options;
    EXPECT_EQ(o.action, Action::compile);
    EXPECT_EQ(o.input, u"/src/app.rc");
    EXPECT_EQ(o.output, u"CMakeFiles/app.dir/app.rc.res");
    EXPECT_EQ(o.format, OutputFormat::coff); // the option wins over ".res"
    EXPECT_FALSE(o.input_is_res);
    EXPECT_EQ(o.include_paths, (Args{u"/src/inc", u"/build"}));
    EXPECT_EQ(user_symbols(o), (Args{u"D:NDEBUG"}));
    EXPECT_TRUE(o.extended);
    EXPECT_EQ(o.machine, Machine::x64);
    EXPECT_TRUE(o.depfile.empty());
}

TEST(WindresOptions, MesonCommandLine) {
    WindresCommand w =
        parse({u"-I/src/inc", u"../app.rc", u"app_app.o", u"--preprocessor-arg=-MD",
               u"--preprocessor-arg=-MQapp_app.o", u"--preprocessor-arg=-MFapp_app.o.d"});
    ASSERT_EQ(w.error, "");
    EXPECT_EQ(w.options.include_paths, (Args{u"/src/inc"}));
    EXPECT_EQ(w.options.input, u"../app.rc");
    EXPECT_EQ(w.options.output, u"app_app.o");
    EXPECT_EQ(w.options.format, OutputFormat::coff);
    EXPECT_EQ(w.options.depfile, u"app_app.o.d");
    EXPECT_EQ(w.options.depfile_targets, (Args{u"app_app.o"}));
    EXPECT_TRUE(w.notes.empty());
}

TEST(WindresOptions, LongOptionsTakeTheirValueEitherWay) {
    WindresCommand a = parse({u"--input=x.rc", u"--output=x.o", u"--include-dir=inc",
                              u"--define=A=1", u"--undefine=B", u"--language=0x41d",
                              u"--codepage=65001", u"--target=pe-i386", u"--verbose"});
    WindresCommand b = parse({u"--input", u"x.rc", u"--output", u"x.o", u"--include-dir", u"inc",
                              u"--define", u"A=1", u"--undefine", u"B", u"--language", u"0x41d",
                              u"--codepage", u"65001", u"--target", u"pe-i386", u"--verbose"});
    WindresCommand c = parse({u"-i", u"x.rc", u"-ox.o", u"-Iinc", u"-D", u"A=1", u"-UB", u"-l",
                              u"41d", u"-c0xFDE9", u"-Fpe-i386", u"-v"});
    for (const WindresCommand* w : {&a, &b, &c}) {
        ASSERT_EQ(w->error, "");
        const Options& o = w->options;
        EXPECT_EQ(o.input, u"x.rc");
        EXPECT_EQ(o.output, u"x.o");
        EXPECT_EQ(o.include_paths, (Args{u"inc"}));
        EXPECT_EQ(user_symbols(o), (Args{u"D:A=1", u"U:B"}));
        EXPECT_TRUE(o.language_given);
        EXPECT_EQ(o.language, 0x41D);
        EXPECT_TRUE(o.code_page_given);
        EXPECT_EQ(o.code_page, 65001u);
        EXPECT_EQ(o.machine, Machine::x86);
        EXPECT_TRUE(o.verbose);
    }
}

TEST(WindresOptions, FormatsFollowNamesUnlessGiven) {
    const struct {
        Args args;
        OutputFormat format;
        bool input_is_res;
    } cases[] = {
        {{u"a.rc", u"a.o"}, OutputFormat::coff, false},
        {{u"a.rc", u"a.RES"}, OutputFormat::res, false},
        {{u"a.rc", u"a.out"}, OutputFormat::coff, false}, // windres' default
        {{u"a.res", u"a.o"}, OutputFormat::coff, true},
        {{u"-J", u"rc", u"a.res", u"a.o"}, OutputFormat::coff, false},
        {{u"-O", u"res", u"a.rc", u"a.o"}, OutputFormat::res, false},
        {{u"--output-format=coff", u"a.rc", u"a.res"}, OutputFormat::coff, false},
    };
    for (const auto& c : cases) {
        WindresCommand w = parse(c.args);
        ASSERT_EQ(w.error, "") << testing::PrintToString(c.args.size());
        EXPECT_EQ(w.options.format, c.format) << w.options.output.size();
        EXPECT_EQ(w.options.input_is_res, c.input_is_res);
    }
}

TEST(WindresOptions, TargetsAndProgramNames) {
    for (auto [target, machine] : {std::pair{u"pei-x86-64", Machine::x64},
                                   {u"pe-i386", Machine::x86},
                                   {u"pei-aarch64-little", Machine::arm64}}) {
        WindresCommand w = parse({u"-F", target, u"a.rc", u"a.o"});
        EXPECT_EQ(w.error, "");
        EXPECT_EQ(w.options.machine, machine);
    }
    const struct {
        const char* name;
        bool windres;
        Machine machine;
    } names[] = {
        {"/usr/bin/x86_64-w64-mingw32-tarn-windres", true, Machine::x64},
        {"i686-w64-mingw32-windres", true, Machine::x86},
        {"C:\\tools\\aarch64-w64-mingw32-tarn-windres.EXE", true, Machine::arm64},
        {"tarn", false, Machine::x64},
    };
    for (const auto& n : names) {
        Machine m = Machine::x64;
        EXPECT_EQ(is_windres_name(n.name, &m), n.windres) << n.name;
        EXPECT_EQ(m, n.machine) << n.name;
    }
    // The name's machine is the default that --target overrides.
    EXPECT_EQ(parse({u"a.rc", u"a.o"}, Machine::x86).options.machine, Machine::x86);
    EXPECT_EQ(parse({u"-Fpe-x86-64", u"a.rc", u"a.o"}, Machine::x86).options.machine, Machine::x64);
}

TEST(WindresOptions, DependencyFileRequests) {
    // -MD alone: the file is named after the output, as a C compiler does.
    WindresCommand a = parse({u"--preprocessor-arg=-MD", u"a.rc", u"obj/a.o"});
    EXPECT_EQ(a.options.depfile, u"obj/a.d");
    EXPECT_TRUE(a.options.depfile_targets.empty());
    // -MQ escapes for make, -MT does not; -MMD counts like -MD.
    WindresCommand b = parse({u"--preprocessor-arg", u"-MMD", u"--preprocessor-arg=-MQa b.o",
                              u"--preprocessor-arg=-MT$(OBJ)", u"a.rc", u"a b.o"});
    EXPECT_EQ(b.options.depfile, u"a b.d");
    EXPECT_EQ(b.options.depfile_targets, (Args{u"a\\ b.o", u"$(OBJ)"}));
    // A value may come as the next preprocessor argument.
    WindresCommand s =
        parse({u"--preprocessor-arg=-MD", u"--preprocessor-arg=-MF", u"--preprocessor-arg=deps/a.d",
               u"--preprocessor-arg", u"-MT", u"--preprocessor-arg", u"a.o", u"a.rc", u"a.o"});
    EXPECT_EQ(s.options.depfile, u"deps/a.d");
    EXPECT_EQ(s.options.depfile_targets, (Args{u"a.o"}));
    EXPECT_TRUE(s.notes.empty());
    // --depfile works without the preprocessor's spelling.
    EXPECT_EQ(parse({u"--depfile=x.d", u"a.rc", u"a.o"}).options.depfile, u"x.d");
    // Anything else for the preprocessor, and the preprocessor itself, is noted once.
    WindresCommand c = parse({u"--preprocessor=cpp", u"--preprocessor", u"gcc -E",
                              u"--preprocessor-arg=-P", u"a.rc", u"a.o"});
    EXPECT_EQ(c.error, "");
    EXPECT_EQ(c.notes.size(), 2u);
    EXPECT_TRUE(c.options.depfile.empty());
}

TEST(WindresOptions, AcceptedAndIgnored) {
    WindresCommand w = parse({u"--use-temp-file", u"--no-use-temp-file", u"-r", u"a.rc", u"a.o"});
    EXPECT_EQ(w.error, "");
    EXPECT_EQ(w.options.action, Action::compile);
    EXPECT_EQ(parse({u"--version"}).options.action, Action::version);
    EXPECT_EQ(parse({u"--help"}).options.action, Action::help);
    // After "--" a name that starts with "-" is a file.
    EXPECT_EQ(parse({u"--", u"-odd.rc", u"a.o"}).options.input, u"-odd.rc");
}

TEST(WindresOptions, UsageErrors) {
    const struct {
        Args args;
        const char* error;
    } cases[] = {
        {{u"--bogus", u"a.rc", u"a.o"}, "unknown option '--bogus'"},
        {{u"a.rc", u"a.o", u"b.o"}, "too many file names: 'b.o'"},
        {{}, "no input file given"},
        {{u"a.rc"}, "no output file given (use -o FILE)"},
        {{u"-O", u"rc", u"a.rc", u"a.o"}, "unsupported output format 'rc' (res or coff)"},
        {{u"-F", u"elf64-x86-64", u"a.rc", u"a.o"},
         "unsupported target 'elf64-x86-64' (pe-x86-64, pe-i386 or pe-aarch64)"},
        {{u"-l", u"english", u"a.rc", u"a.o"},
         "invalid language 'english' (a hexadecimal id such as 0x409)"},
        {{u"a.rc", u"a.o", u"-I"}, "option '-I' needs a value"},
        {{u"--verbose=yes", u"a.rc", u"a.o"}, "option '--verbose' takes no value"},
    };
    for (const auto& c : cases) {
        WindresCommand w = parse(c.args);
        EXPECT_EQ(w.error, c.error);
        EXPECT_EQ(w.options.action, Action::usage_error) << c.error;
    }
}

// tarn's own command line as build tools give it to an rc-style compiler.
TEST(RcStyleOptions, SlashOptionsWhereNoFileHasTheName) {
    Options o = parse_options({u"/nologo", u"-DX", u"-I", u"inc", u"--format=coff", u"/fo",
                               u"obj/app.rc.res", u"/src/app.rc"},
                              false);
    ASSERT_EQ(o.action, Action::compile);
    EXPECT_EQ(o.output, u"obj/app.rc.res");
    EXPECT_EQ(o.input, u"/src/app.rc"); // no option starts "S"
    EXPECT_EQ(o.include_paths, (Args{u"inc"}));
    EXPECT_EQ(o.format, OutputFormat::coff);
    Options d = parse_options({u"/D", u"X", u"/I/usr/include", u"app.rc"}, false);
    EXPECT_EQ(d.include_paths, (Args{u"/usr/include"}));
    ASSERT_EQ(d.symbols.size(), 1u);
    EXPECT_EQ(d.symbols[0].text, u"X");
#ifndef _WIN32
    // An existing path is a file even where it reads as "/D ev/null".
    EXPECT_EQ(parse_options({u"/dev/null"}, false).input, u"/dev/null.rc");
#endif
}

TEST(RcStyleOptions, DepfileEitherWay) {
    EXPECT_EQ(parse_options({u"--depfile=a.d", u"a.rc"}, false).depfile, u"a.d");
    EXPECT_EQ(parse_options({u"--depfile", u"a.d", u"a.rc"}, false).depfile, u"a.d");
    EXPECT_EQ(parse_options({u"a.rc", u"--depfile"}, false).action, Action::usage_error);
}

} // namespace
