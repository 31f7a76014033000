// The output in its format. A script bound for an object is compiled into a
// temporary .res file next to the output, which is read back, converted and
// removed; the object goes to a second temporary file, renamed over the
// output at the end, so that a failure at any step leaves the old output as
// it was and no partial file behind.
#include "output.h"

#include <tarn/tarn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>
#include <vector>

#include "coff.h"
#include "console.h"
#include "dump.h"
#include "utf.h"

namespace tarn_driver {

namespace fs = std::filesystem;

namespace {

void report(std::string_view program, std::u16string_view file, std::string_view problem) {
    std::string line = cat({program, ": "});
    if (!file.empty()) line += cat({to_utf8(file), ": "});
    console_write(Stream::err, from_utf8(cat({line, problem, "\n"})));
}

// A name next to `path` that no file has: `path`, a random token, `suffix`.
// Two runs writing the same output at once get different names.
std::u16string unused_name(std::u16string_view path, std::u16string_view suffix) {
    static std::mt19937_64 next{std::random_device{}() ^ uint64_t(std::random_device{}()) << 32};
    for (;;) {
        char token[24];
        std::snprintf(token, sizeof token, ".tarn-%016llx",
                      static_cast<unsigned long long>(next()));
        std::u16string name = std::u16string(path) + from_utf8(token) + std::u16string(suffix);
        std::error_code ec;
        if (!fs::exists(fs::path(name), ec) && !ec) return name;
    }
}

} // namespace

bool read_file(const fs::path& path, std::vector<uint8_t>* bytes) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return false;
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes->assign(std::istreambuf_iterator<char>(in), {});
    return !in.bad();
}

namespace {

// A temporary file that is removed unless it was renamed into place.
struct TemporaryFile {
    std::u16string name;
    ~TemporaryFile() {
        std::error_code ec;
        if (!name.empty()) fs::remove(fs::path(name), ec);
    }
};

// The object file to replace: a symbolic link keeps pointing where it did,
// and the file it names is replaced.
fs::path replaced_file(const std::u16string& output) {
    fs::path path(output);
    std::error_code ec;
    if (fs::is_symlink(path, ec)) {
        fs::path target = fs::weakly_canonical(path, ec);
        if (!ec) return target;
    }
    return path;
}

// Creates the new output next to the one it replaces, before any work, so
// that an output that cannot be written is reported before compiling.
bool open_new_output(const fs::path& target, TemporaryFile* file, std::ofstream* out,
                     std::string* why) {
    file->name = unused_name(target.u16string(), u".tmp");
    errno = 0;
    out->open(fs::path(file->name), std::ios::binary | std::ios::trunc);
    if (*out) return true;
    *why = cat({"cannot create the file: ", errno ? std::strerror(errno) : "unknown error"});
    file->name.clear(); // nothing was created
    return false;
}

// Writes `bytes` and puts the file in place of `target`, with the old
// file's permissions when there was one.
bool finish_output(const fs::path& target, TemporaryFile* file, std::ofstream* out,
                   std::string_view bytes, std::string* why) {
    errno = 0;
    out->write(bytes.data(), std::streamsize(bytes.size()));
    out->close();
    if (!*out) {
        *why = cat({"cannot write the file: ", errno ? std::strerror(errno) : "unknown error"});
        return false;
    }
    std::error_code ec;
    fs::file_status old = fs::status(target, ec);
    if (!ec && fs::is_regular_file(old))
        fs::permissions(fs::path(file->name), old.permissions(), ec);
    fs::rename(fs::path(file->name), target, ec);
    if (ec) {
        *why = cat({"cannot replace the file: ", ec.message()});
        return false;
    }
    file->name.clear(); // in place now
    return true;
}

// The .res bytes of the input: read, or compiled by the library into a
// temporary file next to the output. False when the library failed (it
// reported why) or *why says what went wrong.
bool res_bytes(const Options& o, std::vector<uint8_t>* res, std::string* why) {
    if (input_is_compiled(o)) {
        if (read_file(fs::path(o.input), res)) return true;
        *why = "cannot read the file";
        return false;
    }
    TemporaryFile compiled{unused_name(o.output, u".res")};
    if (!compile_script_w(o.input.c_str(), compiled.name.c_str())) return false;
    if (read_file(fs::path(compiled.name), res)) return true;
    *why = "cannot read the compiled resources back";
    return false;
}

} // namespace

OutputFormat output_format(const Options& o) {
    if (o.format != OutputFormat::by_extension) return o.format;
    std::u16string ext = extension_of(o.output);
    return ext == u".o" || ext == u".obj" ? OutputFormat::coff : OutputFormat::res;
}

bool input_is_compiled(const Options& o) {
    return o.input_is_res || extension_of(o.input) == u".res";
}

bool object_timestamp(uint32_t* timestamp, std::string* why) {
    *timestamp = 0;
    const char* value = std::getenv("SOURCE_DATE_EPOCH");
    if (!value || !*value) return true;
    uint64_t seconds = 0;
    for (const char* p = value; *p; ++p) {
        if (*p < '0' || *p > '9' || seconds > 0xFFFFFFFFu) {
            seconds = UINT64_MAX;
            break;
        }
        seconds = seconds * 10 + uint64_t(*p - '0');
    }
    if (seconds > 0xFFFFFFFFu) {
        *why = cat({"SOURCE_DATE_EPOCH \"", value,
                    "\" is not a count of seconds since 1970 (0 to 4294967295)"});
        return false;
    }
    *timestamp = uint32_t(seconds);
    return true;
}

bool write_output(const Options& o, std::string_view program) {
    OutputFormat format = output_format(o);
    if (format == OutputFormat::res && !input_is_compiled(o))
        return compile_script_w(o.input.c_str(), o.output.c_str()) != 0;

    std::string why;
    uint32_t timestamp = 0;
    if (format == OutputFormat::coff && !object_timestamp(&timestamp, &why))
        return report(program, {}, why), false;
    fs::path target = replaced_file(o.output);
    TemporaryFile file;
    std::ofstream out;
    if (!open_new_output(target, &file, &out, &why)) return report(program, o.output, why), false;
    std::vector<uint8_t> res;
    if (!res_bytes(o, &res, &why)) {
        if (!why.empty()) report(program, o.input, why);
        return false;
    }
    std::vector<uint8_t> bytes;
    if (format == OutputFormat::coff) {
        if (!res_to_coff(res, o.machine, timestamp, &bytes, &why))
            return report(program, o.input, cat({"malformed resource file: ", why})), false;
    } else {
        ResFile parsed = parse_res(res);
        if (!parsed.ok) {
            char offset[32];
            std::snprintf(offset, sizeof offset, " at offset 0x%llX",
                          static_cast<unsigned long long>(parsed.error_offset));
            report(program, o.input, cat({"malformed resource file: ", parsed.why, offset}));
            return false;
        }
        bytes = std::move(res);
    }
    std::string_view data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!finish_output(target, &file, &out, data, &why))
        return report(program, o.output, why), false;
    return true;
}

bool replace_file(const std::u16string& path, std::string_view bytes, std::string* why) {
    fs::path target = replaced_file(path);
    TemporaryFile file;
    std::ofstream out;
    return open_new_output(target, &file, &out, why) &&
           finish_output(target, &file, &out, bytes, why);
}

} // namespace tarn_driver
