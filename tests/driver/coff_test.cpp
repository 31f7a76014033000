// Resources as a COFF object: the object read back (header, section,
// relocations, symbols, and the directory they describe) for each machine,
// linked by GNU ld and lld into programs whose resource directory is walked,
// the options that ask for it, and the output written whole or not at all.
#include "harness/harness.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <thread>

#include "coff.h"
#include "options.h"
#include "output.h"
#include "resources/res_reader.h"

using namespace tarn_driver;
using Bytes = std::vector<uint8_t>;

namespace {

uint16_t u16_at(const Bytes& b, size_t at) {
    return at + 2 <= b.size() ? uint16_t(b[at] | b[at + 1] << 8) : 0xDEAD;
}
uint32_t u32_at(const Bytes& b, size_t at) {
    return uint32_t(u16_at(b, at)) | uint32_t(u16_at(b, at + 2)) << 16;
}

struct Name {
    bool ordinal;
    uint16_t id;
    std::u16string text;
    bool operator==(const Name&) const = default;
};
Name id(uint16_t n) {
    return {true, n, {}};
}
Name str(std::u16string t) {
    return {false, 0, std::move(t)};
}

struct Resource {
    Name type, name;
    uint16_t language;
    std::string data;
    bool operator==(const Resource&) const = default;
};

// A .res file of the resources in the given order.
Bytes res_file(const std::vector<Resource>& resources) {
    res_test::Bytes b;
    b.u32(0, 32).ord(0).ord(0).u32(0, 0, 0, 0);
    auto name = [&](const Name& n) {
        if (n.ordinal) return void(b.ord(n.id));
        for (char16_t c : n.text) b.u16(c);
        b.u16(0);
    };
    auto size = [](const Name& n) { return n.ordinal ? 4u : 2 * uint32_t(n.text.size() + 1); };
    for (const Resource& r : resources) {
        b.u32(r.data.size(), (size(r.type) + size(r.name) + 3) / 4 * 4 + 24);
        name(r.type), name(r.name);
        b.pad4().u32(0).u16(0x30, r.language).u32(0, 0).text(r.data).pad4();
    }
    return b;
}

// Walks a resource directory (type, name, language tables) that starts at
// `dir` of `image`; `data_at` maps a data entry's address to bytes.
std::vector<Resource> walk(const Bytes& image, size_t dir,
                           const std::function<std::string(uint32_t, uint32_t)>& data_at) {
    std::vector<Resource> out;
    auto name_of = [&](uint32_t field) {
        if (!(field & 0x80000000)) return id(uint16_t(field));
        size_t at = dir + (field & 0x7FFFFFFF);
        std::u16string t;
        for (uint32_t k = 0; k < u16_at(image, at); ++k)
            t += char16_t(u16_at(image, at + 2 + 2 * k));
        return str(t);
    };
    auto entries = [&](uint32_t table, auto&& visit) {
        size_t at = dir + (table & 0x7FFFFFFF);
        uint32_t n = u16_at(image, at + 12) + u16_at(image, at + 14);
        for (uint32_t k = 0; k < n && k < 10000; ++k)
            visit(u32_at(image, at + 16 + 8 * k), u32_at(image, at + 20 + 8 * k));
    };
    entries(0, [&](uint32_t type, uint32_t names) {
        entries(names, [&](uint32_t name, uint32_t languages) {
            entries(languages, [&](uint32_t language, uint32_t leaf) {
                size_t at = dir + leaf;
                out.push_back({name_of(type), name_of(name), uint16_t(language),
                               data_at(u32_at(image, at), u32_at(image, at + 4))});
            });
        });
    });
    return out;
}

// Given in no order; the directory sorts named entries first, then numbers.
const std::vector<Resource> GIVEN = {
    {str(u"MYTYPE"), id(2), 0x41D, "five!"},
    {id(10), str(u"B"), 0x409, "abc"},
    {id(10), id(1), 0x409, "one"},
    {id(6), id(1), 0x41D, "sv"},
    {id(6), id(1), 0x409, "en"},
    {id(10), str(u"A"), 0x409, ""},
    {str(u"ANOTHER"), str(u"X"), 0x409, "12345678"},
};
const std::vector<Resource> IN_DIRECTORY_ORDER = {
    {str(u"ANOTHER"), str(u"X"), 0x409, "12345678"},
    {str(u"MYTYPE"), id(2), 0x41D, "five!"},
    {id(6), id(1), 0x409, "en"},
    {id(6), id(1), 0x41D, "sv"},
    {id(10), str(u"A"), 0x409, ""},
    {id(10), str(u"B"), 0x409, "abc"},
    {id(10), id(1), 0x409, "one"},
};

const struct {
    Machine machine;
    uint16_t code, relocation;
    uint32_t symbols; // x86 adds the safe-exception-handler mark
} MACHINES[] = {
    {Machine::x64, 0x8664, 3, 2}, {Machine::x86, 0x14C, 7, 3}, {Machine::arm64, 0xAA64, 2, 2}};

Bytes object_of(const std::vector<Resource>& resources, Machine machine, uint32_t stamp = 0) {
    Bytes object;
    std::string why;
    EXPECT_TRUE(res_to_coff(res_file(resources), machine, stamp, &object, &why)) << why;
    return object;
}

TEST(DriverCoff, ObjectReadsBackForEachMachine) {
    for (const auto& m : MACHINES) {
        SCOPED_TRACE(m.code);
        Bytes o = object_of(GIVEN, m.machine, 0x12345678);
        EXPECT_EQ(u16_at(o, 0), m.code);
        EXPECT_EQ(u16_at(o, 2), 1);           // one section
        EXPECT_EQ(u32_at(o, 4), 0x12345678u); // time stamp
        EXPECT_EQ(u16_at(o, 16), 0);          // no optional header
        EXPECT_EQ(std::string(o.begin() + 20, o.begin() + 28), std::string(".rsrc\0\0\0", 8));
        uint32_t size = u32_at(o, 36), raw = u32_at(o, 40), relocs = u32_at(o, 44);
        uint16_t count = u16_at(o, 52);
        EXPECT_EQ(u32_at(o, 56), 0x40400040u); // initialized data, readable, 8-aligned
        ASSERT_EQ(count, GIVEN.size());
        ASSERT_LE(size_t(raw) + size, o.size());
        Bytes section(o.begin() + raw, o.begin() + raw + size);
        // Image-relative against symbol 0, the section; at the data entries
        // (the linked programs below show they are at the right places).
        for (uint32_t k = 0; k < count; ++k) {
            EXPECT_LE(u32_at(o, relocs + 10 * k) + 4, size);
            EXPECT_EQ(u32_at(o, relocs + 10 * k + 4), 0u);
            EXPECT_EQ(u16_at(o, relocs + 10 * k + 8), m.relocation);
        }
        // The section symbol with its definition, then only the x86 mark.
        uint32_t symbols = u32_at(o, 8);
        ASSERT_EQ(u32_at(o, 12), m.symbols);
        EXPECT_EQ(std::string(o.begin() + symbols, o.begin() + symbols + 8),
                  std::string(".rsrc\0\0\0", 8));
        EXPECT_EQ(u16_at(o, symbols + 12), 1);     // section 1
        EXPECT_EQ(o[symbols + 16], 3);             // static
        EXPECT_EQ(o[symbols + 17], 1);             // one auxiliary record
        EXPECT_EQ(u32_at(o, symbols + 18), size);  // its length
        EXPECT_EQ(u16_at(o, symbols + 22), count); // its relocations
        if (m.symbols == 3) {
            EXPECT_EQ(std::string(o.begin() + symbols + 36, o.begin() + symbols + 44), "@feat.00");
            EXPECT_EQ(u32_at(o, symbols + 44), 1u);     // safe exception handlers
            EXPECT_EQ(u16_at(o, symbols + 48), 0xFFFF); // absolute
        }
        EXPECT_EQ(o.size(), symbols + 18 * m.symbols + 4); // and an empty string table
        auto at = [&](uint32_t offset, uint32_t n) {
            EXPECT_EQ(offset % 8, 0u);
            return std::string(section.begin() + offset, section.begin() + offset + n);
        };
        EXPECT_EQ(walk(section, 0, at), IN_DIRECTORY_ORDER);
    }
}

TEST(DriverCoff, ManyRelocationsCarryTheirCountInTheFirst) {
    std::vector<Resource> many;
    for (uint32_t k = 0; k < 70000; ++k)
        many.push_back({id(10), id(uint16_t(k / 2 + 1)), uint16_t(k % 2), ""});
    Bytes o = object_of(many, Machine::x64);
    EXPECT_EQ(u16_at(o, 52), 0xFFFF);
    EXPECT_EQ(u32_at(o, 56) & 0x01000000, 0x01000000u);
    EXPECT_EQ(u32_at(o, u32_at(o, 44)), 70001u);
    EXPECT_EQ(u32_at(o, 8) - u32_at(o, 44), 10u * 70001);
}

TEST(DriverCoff, MalformedOrDuplicateResourcesAreRefused) {
    Bytes good = res_file(GIVEN);
    Bytes twice = res_file({{id(10), id(1), 0x409, "a"}, {id(10), id(1), 0x409, "b"}});
    Bytes cut(good.begin(), good.end() - 5);
    Bytes no_leading(good.begin() + 32, good.end());
    // clang-format off
    for (auto [bytes, why] : {std::pair{twice, "appears twice"}, {cut, "at offset 0x"},
                              {no_leading, "first entry"}, {Bytes{}, "leading"}}) {
        // clang-format on
        Bytes object = {1};
        std::string text;
        EXPECT_FALSE(res_to_coff(bytes, Machine::x64, 0, &object, &text));
        EXPECT_NE(text.find(why), std::string::npos) << text;
    }
}

TEST(DriverCoff, MachineAndFormatOptions) {
    // clang-format off
    for (auto [text, machine] :
         {std::pair{u"AMD64", Machine::x64}, {u"i386", Machine::x86}, {u"AArch64", Machine::arm64}}) {
        // clang-format on
        Machine m = Machine::x64;
        EXPECT_TRUE(parse_machine(text, &m) && m == machine) << tarn_test::u8(text);
    }
    for (std::u16string_view bad : {u"", u"arm", u"x64 "}) {
        Machine m = Machine::arm64;
        EXPECT_FALSE(parse_machine(bad, &m) || m != Machine::arm64);
    }

    Options a = parse_options({u"--format=coff", u"--machine", u"x86", u"app.rc"}, false);
    EXPECT_EQ(a.format, OutputFormat::coff);
    EXPECT_EQ(a.machine, Machine::x86);
    EXPECT_EQ(a.output, u"app.o");
    EXPECT_EQ(parse_options({u"--format", u"coff", u"app.rc"}, true).output, u"app.obj");
    Options bad = parse_options({u"--machine=mips", u"a.rc"}, false);
    EXPECT_EQ(bad.problem, Options::Problem::unknown_option);
    EXPECT_EQ(bad.offending, u"--machine=mips");

    for (auto [input, output, format, compiled, by_res] :
         {std::tuple{u"a.rc", u"a.o", OutputFormat::coff, false, false},
          {u"a.RES", u"a.res", OutputFormat::res, true, false},
          {u"a.txt", u"a.o.res", OutputFormat::res, true, true},
          {u"res", u"a", OutputFormat::res, false, false}}) {
        Options o;
        o.input = input, o.output = output, o.input_is_res = by_res;
        EXPECT_EQ(output_format(o), format) << tarn_test::u8(output);
        EXPECT_EQ(input_is_compiled(o), compiled) << tarn_test::u8(input);
    }
}

TEST(DriverCoff, TimeStampFromSourceDateEpoch) {
    tarn_test::ScopedEnv env("SOURCE_DATE_EPOCH", nullptr);
    // clang-format off
    for (auto [value, ok, stamp] :
         {std::tuple{(const char*)nullptr, true, 0u}, {"", true, 0u}, {"17", true, 17u},
          {"4294967295", true, 4294967295u}, {"4294967296", false, 0u}, {"-1", false, 0u},
          {"12a", false, 0u}, {"99999999999999999999999", false, 0u}}) {
        // clang-format on
        env.set(value);
        uint32_t got = 7;
        std::string why;
        EXPECT_EQ(object_timestamp(&got, &why), ok) << (value ? value : "unset");
        EXPECT_EQ(got, stamp);
        EXPECT_EQ(why.empty(), ok) << why;
    }
}

class DriverCoffOutput : public tarn_test::FreshLibrary {
  protected:
    Options options(const std::string& input, const std::string& output) {
        Options o;
        o.input = wide(path_of(input));
        o.output = wide(path_of(output));
        return o;
    }
};

const char* SCRIPT = "1 RCDATA { \"hello\" }\nNAMED RCDATA { 1, 2 }\n";

TEST_F(DriverCoffOutput, ScriptBecomesTheSameObjectEachTime) {
    write_file("app.rc", SCRIPT);
    Bytes runs[2];
    for (Bytes& run : runs) {
        reattach();
        ASSERT_TRUE(write_output(options("app.rc", "app.o"))) << messages();
        run = tarn_test::read_bytes(path_of("app.o"));
        if (&run == runs) std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_EQ(files(), (std::vector<std::string>{"app.o", "app.rc"})); // no temporary left
    EXPECT_EQ(u32_at(runs[0], 4), 0u);
    std::string text(runs[0].begin(), runs[0].end());
    EXPECT_EQ(text.find(dir_.filename().string()), std::string::npos); // no paths inside

    // Converting the compiled .res gives the same object; a stamp when asked.
    reattach();
    ASSERT_TRUE(write_output(options("app.rc", "app.res")));
    tarn_test::ScopedEnv env("SOURCE_DATE_EPOCH", "1234");
    Options convert = options("app.res", "app.bin");
    convert.format = OutputFormat::coff;
    ASSERT_TRUE(write_output(convert));
    Bytes converted = tarn_test::read_bytes(path_of("app.bin"));
    EXPECT_EQ(u32_at(converted, 4), 1234u);
    converted[4] = converted[5] = 0;
    EXPECT_EQ(converted, runs[0]);
}

TEST_F(DriverCoffOutput, FailuresLeaveTheOldOutputAndNoTemporaries) {
    write_file("bad.rc", "1 RCDATA { \"unterminated }\n");
    write_file("bad.res", "not a resource file at all, but long enough to look at");
    write_file("app.o", "old");
    for (std::string input : {"bad.rc", "bad.res", "missing.res"}) {
        reattach();
        EXPECT_FALSE(write_output(options(input, "app.o"))) << input;
        EXPECT_EQ(tarn_test::read_bytes(path_of("app.o")), (Bytes{'o', 'l', 'd'}));
    }
    {
        tarn_test::ScopedEnv env("SOURCE_DATE_EPOCH", "yesterday");
        write_file("app.rc", SCRIPT);
        EXPECT_FALSE(write_output(options("app.rc", "app.o")));
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"app.o", "app.rc", "bad.rc", "bad.res"}));
#ifndef _WIN32
    namespace fs = std::filesystem;
    fs::permissions(path_of("app.o"), fs::perms::owner_read | fs::perms::owner_write);
    reattach();
    ASSERT_TRUE(write_output(options("app.rc", "app.o")));
    EXPECT_EQ(fs::status(path_of("app.o")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
#endif
}

#ifndef _WIN32 // the cross toolchains are run from the native build

// A PE image's resources: the resource data directory's tables walked.
std::vector<Resource> pe_resources(const Bytes& pe) {
    uint32_t header = u32_at(pe, 0x3C);
    uint16_t sections = u16_at(pe, header + 6);
    size_t optional = header + 24;
    size_t directories = optional + (u16_at(pe, optional) == 0x20B ? 112 : 96);
    size_t table = optional + u16_at(pe, header + 20);
    auto offset_of = [&](uint32_t rva) -> size_t {
        for (uint16_t k = 0; k < sections; ++k) {
            size_t s = table + 40 * k;
            uint32_t address = u32_at(pe, s + 12), size = u32_at(pe, s + 16);
            if (rva >= address && rva - address < size) return u32_at(pe, s + 20) + rva - address;
        }
        ADD_FAILURE() << "address outside the sections";
        return 0;
    };
    uint32_t resources = u32_at(pe, directories + 2 * 8);
    if (!resources) return {};
    return walk(pe, offset_of(resources), [&](uint32_t rva, uint32_t n) {
        size_t at = offset_of(rva);
        return at + n <= pe.size() ? std::string(pe.begin() + at, pe.begin() + at + n) : "";
    });
}

TEST_F(DriverCoffOutput, LinkersPutTheResourcesIntoPrograms) {
    write_file("main.c", "int main(void) { return 0; }\n");
    std::string d = "'" + dir_.string() + "/";
    const struct {
        Machine machine;
        const char* tool; // checked for, then run with the object and the program
        const char* link;
    } LINKS[] = {
        {Machine::x64, "x86_64-w64-mingw32-gcc",
         "x86_64-w64-mingw32-gcc -o {exe} {dir}main.c' {obj}"},
        {Machine::x86, "i686-w64-mingw32-gcc", "i686-w64-mingw32-gcc -o {exe} {dir}main.c' {obj}"},
        {Machine::arm64, "lld-link", "lld-link /dll /noentry /machine:arm64 /out:{exe} {obj}"},
    };
    int linked = 0;
    for (const auto& l : LINKS) {
        SCOPED_TRACE(l.link);
        if (std::system((std::string(l.tool) + " --version >/dev/null 2>&1").c_str()) != 0)
            continue;
        Bytes object = object_of(GIVEN, l.machine);
        std::ofstream(path_of("r.obj"), std::ios::binary)
            .write(reinterpret_cast<const char*>(object.data()), std::streamsize(object.size()));
        std::string command = l.link;
        for (auto [key, value] :
             {std::pair{"{exe}", d + "out.exe'"}, {"{obj}", d + "r.obj'"}, {"{dir}", d}})
            if (size_t at = command.find(key); at != std::string::npos)
                command.replace(at, std::string(key).size(), value);
        std::filesystem::remove(path_of("out.exe"));
        ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0);
        EXPECT_EQ(pe_resources(tarn_test::read_bytes(path_of("out.exe"))), IN_DIRECTORY_ORDER);
        ++linked;
    }
    if (!linked) GTEST_SKIP() << "no linker for Windows programs";
}

#endif

} // namespace
