// What the fuzz targets share: a temporary folder per process holding the
// script, the small image and data files a script may name and a tiny
// windows.h (found through the "include" variable, so the library's windows.h
// prelude is read too), the reset to a just-loaded library before each input,
// and a diagnostics callback that checks what the library hands the host.
//
// With TARN_FUZZ_VERBOSE set the diagnostics are printed, for reading what
// one input does. An input is a script, optionally followed by a line "@@" and the bytes of
// "blob.bin", a file the script may name in any resource statement.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <signal.h>
#include <unistd.h>

#include "api/lifecycle.h"
#include "support/text.h"
#include <tarn/tarn.h>

namespace tarn_fuzz {

namespace fs = std::filesystem;

// Stops the run with a message; libFuzzer saves the input that led here.
[[noreturn]] inline void fail(const char* what) {
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}

inline void put_u16(std::string& s, unsigned v) {
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>(v >> 8 & 0xFF);
}
inline void put_u32(std::string& s, uint32_t v) {
    put_u16(s, v & 0xFFFF);
    put_u16(s, v >> 16);
}

// A 16x16 32-bit image in icon form: header, pixels, mask.
inline std::string dib_16x16() {
    std::string s;
    put_u32(s, 40);
    put_u32(s, 16);
    put_u32(s, 32); // height of pixels and mask together
    put_u16(s, 1);
    put_u16(s, 32);
    for (int i = 0; i < 6; ++i) put_u32(s, 0);
    for (int i = 0; i < 16 * 16; ++i) put_u32(s, 0xFF000000u | (i * 997u));
    s.append(16 * 4, '\0');
    return s;
}

// An icon (type 1) or cursor (type 2) file of one 16x16 image.
inline std::string image_file(unsigned type) {
    std::string dib = dib_16x16(), s;
    put_u16(s, 0);
    put_u16(s, type);
    put_u16(s, 1);
    s += std::string("\x10\x10\x00\x00", 4);
    put_u16(s, type == 1 ? 1 : 3);  // planes, or the hot spot's x
    put_u16(s, type == 1 ? 32 : 5); // bit count, or the hot spot's y
    put_u32(s, static_cast<uint32_t>(dib.size()));
    put_u32(s, 22);
    return s + dib;
}

// A 2x2 24-bit bitmap file.
inline std::string bitmap_file() {
    std::string s = "BM";
    put_u32(s, 14 + 40 + 16);
    put_u32(s, 0);
    put_u32(s, 14 + 40);
    put_u32(s, 40);
    put_u32(s, 2);
    put_u32(s, 2);
    put_u16(s, 1);
    put_u16(s, 24);
    for (int i = 0; i < 6; ++i) put_u32(s, 0);
    s += std::string("\x00\x00\xff\x00\xff\x00\x00\x00\xff\x00\x00\xff\xff\xff\x00\x00", 16);
    return s;
}

inline void write_file(const fs::path& p, std::string_view bytes) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) fail("cannot write a file in the temporary folder");
}

struct Folder {
    fs::path dir;
    std::u16string script, output;
    fs::path script_path, output_path, blob_path;
};

// libFuzzer often ends a process without running exit handlers (time limit,
// a crash, fork mode's jobs), so the folders of processes that have gone are
// removed when a new one starts.
// In memory where the system offers it: every run rewrites its files, and on
// a disk file system closing a file truncated and written again starts its
// write-back, which costs more than the compilation.
inline fs::path temp_base() {
    std::error_code ec;
    return fs::is_directory("/dev/shm", ec) && access("/dev/shm", W_OK) == 0
               ? fs::path("/dev/shm")
               : fs::temp_directory_path();
}

inline void remove_stale_folders() {
    std::error_code ec;
    for (const fs::directory_entry& e : fs::directory_iterator(temp_base(), ec)) {
        std::string name = e.path().filename().string();
        if (name.rfind("tarn-fuzz-", 0) != 0) continue;
        long pid = std::atol(name.c_str() + 10);
        if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
            fs::remove_all(e.path(), ec);
    }
}

// Created on first use and removed at exit.
inline const Folder& folder() {
    static Folder f = [] {
        remove_stale_folders();
        Folder f;
        f.dir = temp_base() / ("tarn-fuzz-" + std::to_string(getpid()));
        fs::create_directories(f.dir);
        write_file(f.dir / "icon.ico", image_file(1));
        write_file(f.dir / "cursor.cur", image_file(2));
        write_file(f.dir / "bitmap.bmp", bitmap_file());
        write_file(f.dir / "data.bin", std::string("\x01\x02\x03\x04\x05\x06\x07", 7));
        write_file(f.dir / "windows.h",
                   "#pragma once\n#define WS_VISIBLE 0x10000000L\n"
                   "#define WS_CHILD 0x40000000L\n#define WS_TABSTOP 0x00010000L\n"
                   "#define IDOK 1\n");
        write_file(f.dir / "res.h", "#define IDS_ONE 1\n#define IDI_APP 100\n");
        setenv("include", f.dir.c_str(), 1);
        f.script_path = f.dir / "input.rc";
        f.output_path = f.dir / "input.res";
        f.blob_path = f.dir / "blob.bin";
        f.script = tarn::utf8_to_utf16(f.script_path.string());
        f.output = tarn::utf8_to_utf16(f.output_path.string());
        std::atexit([] { fs::remove_all(folder().dir); });
        return f;
    }();
    return f;
}

// Splits the input at its first "\n@@\n" into the script and blob.bin.
inline void write_input(const uint8_t* data, size_t size) {
    std::string_view all(reinterpret_cast<const char*>(data), size);
    size_t cut = all.find("\n@@\n");
    const Folder& f = folder();
    write_file(f.script_path, all.substr(0, cut == all.npos ? all.size() : cut + 1));
    write_file(f.blob_path, cut == all.npos ? std::string_view() : all.substr(cut + 4));
}

// What the host was told during one run.
struct Seen {
    int errors = 0; // error and fatal diagnostics
    int diagnostics = 0;
};
inline Seen seen;

inline void on_error(int32_t severity, const char16_t*, uint32_t, const char16_t* text) {
    if (severity < 0 || severity > 2) fail("diagnostic severity out of range");
    if (!text) fail("diagnostic without text");
    seen.diagnostics += 1;
    static const bool verbose = std::getenv("TARN_FUZZ_VERBOSE") != nullptr;
    if (verbose) {
        std::string line = tarn::utf16_to_utf8(std::u16string_view(text));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        std::fprintf(stderr, "[%d] %s\n", severity, line.c_str());
    }
    if (severity > 0) seen.errors += 1;
}

inline void on_info(const char16_t* text) {
    if (!text) fail("information line without text");
}

inline int32_t on_file(const char16_t* type, const char16_t* name, uint16_t, const char16_t* path,
                       uint64_t) {
    if (!type || !name || !path) fail("file record with a null field");
    return 1;
}

inline int32_t on_include(const char16_t* path, uint64_t) {
    if (!path) fail("include record without a path");
    return 1;
}

// The library as just loaded, with the callbacks above, dependency records
// on and the tiny windows.h found through "include".
inline void fresh_library() {
    folder();
    tarn::library_detach();
    tarn::library_attach(nullptr);
    seen = Seen{};
    set_error_function_w(on_error, 1);
    set_information_function_w(on_info);
}

inline std::vector<uint8_t> read_all(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

inline uint32_t u16_at(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8;
}
inline uint32_t u32_at(const std::vector<uint8_t>& b, size_t at) {
    return u16_at(b, at) | u16_at(b, at + 2) << 16;
}

// Size of the name or ordinal at `at` within [at, end), or 0 if it runs past.
inline size_t name_size_at(const std::vector<uint8_t>& b, size_t at, size_t end) {
    if (at + 2 > end) return 0;
    if (u16_at(b, at) == 0xFFFF) return at + 4 <= end ? 4 : 0;
    for (size_t p = at; p + 2 <= end; p += 2)
        if (u16_at(b, p) == 0) return p + 2 - at;
    return 0;
}

// One entry of a well-framed .res file; type and name are -1 when a string.
struct Entry {
    long type = -1, name = -1;
    size_t data = 0, size = 0;
};

// What is wrong with the framing of a .res file, or null when it is framed
// as the writer promises: the 32-byte leading entry, header sizes that match
// the names they hold, every entry on a multiple of 4, nothing after the
// last. Written apart from the driver's reader, so that each checks the other.
inline const char* res_framing_fault(const std::vector<uint8_t>& b,
                                     std::vector<Entry>* entries = nullptr) {
    static const uint8_t leading[16] = {0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF};
    if (b.size() < 32 || std::memcmp(b.data(), leading, 16) != 0)
        return "output does not start with the leading empty entry";
    for (size_t i = 16; i < 32; ++i)
        if (b[i]) return "leading entry has non-zero attributes";
    size_t pos = 32;
    while (pos < b.size()) {
        if (pos % 4 || pos + 8 > b.size()) return "entry not aligned or cut short";
        size_t data = u32_at(b, pos), header = u32_at(b, pos + 4);
        if (header > b.size() - pos) return "header runs past the end of the file";
        size_t type = name_size_at(b, pos + 8, pos + header);
        size_t name = type ? name_size_at(b, pos + 8 + type, pos + header) : 0;
        if (!type || !name) return "type or name runs past its header";
        size_t expect = 8 + type + name + 16;
        if (header != (expect + 3) / 4 * 4) return "header size does not match its names";
        if (data > b.size() - pos - header) return "data runs past the end of the file";
        if (entries) {
            auto ordinal = [&](size_t at) {
                return u16_at(b, at) == 0xFFFF ? long(u16_at(b, at + 2)) : -1;
            };
            entries->push_back({ordinal(pos + 8), ordinal(pos + 8 + type), pos + header, data});
        }
        pos += (header + data + 3) / 4 * 4;
        if (pos > b.size()) return "last entry is not padded to 4";
    }
    return nullptr;
}

// Compiles the folder's input.rc to input.res and checks what a host relies
// on: the result is 1 exactly when no error was reported, a failed
// compilation leaves no output file, a successful one a well-framed file
// (whose entries come back in `entries`), and the records have no null fields.
inline bool compile_checked(std::vector<Entry>* entries = nullptr,
                            std::vector<uint8_t>* bytes = nullptr) {
    const Folder& f = folder();
    std::error_code ec;
    fs::remove(f.output_path, ec);
    int32_t ok = compile_script_w(f.script.c_str(), f.output.c_str());
    if (ok != 0 && ok != 1) fail("compile_script_w returned neither 0 nor 1");
    if (ok == (seen.errors > 0)) fail("result disagrees with the errors reported");
    bool left = fs::exists(f.output_path);
    if (!ok && left) fail("a failed compilation left its output file");
    if (ok && !left) fail("a successful compilation wrote no output file");
    if (ok) {
        std::vector<uint8_t> out = read_all(f.output_path);
        if (const char* why = res_framing_fault(out, entries)) fail(why);
        if (bytes) *bytes = std::move(out);
    }
    enum_file_info_w(on_file, 0);
    enum_include_info_w(on_include, 0);
    return ok;
}

} // namespace tarn_fuzz
