// Fuzz target: one whole compilation per input, from a just-loaded library.
// Beyond the sanitizers it checks what a host relies on: the result is 1
// exactly when no error was reported; a failed compilation leaves no output
// file; a successful one leaves a .res file whose entries are framed as the
// writer promises (the 32-byte leading entry, header sizes that match the
// names they hold, every entry on a multiple of 4, nothing after the last).
#include "fuzz_common.h"

namespace {

using namespace tarn_fuzz;

std::vector<uint8_t> read_all(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

uint32_t u16_at(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8;
}
uint32_t u32_at(const std::vector<uint8_t>& b, size_t at) {
    return u16_at(b, at) | u16_at(b, at + 2) << 16;
}

// Size of the name or ordinal at `at` within [at, end), or 0 if it runs past.
size_t name_size_at(const std::vector<uint8_t>& b, size_t at, size_t end) {
    if (at + 2 > end) return 0;
    if (u16_at(b, at) == 0xFFFF) return at + 4 <= end ? 4 : 0;
    for (size_t p = at; p + 2 <= end; p += 2)
        if (u16_at(b, p) == 0) return p + 2 - at;
    return 0;
}

void check_res_framing(const std::vector<uint8_t>& b) {
    static const uint8_t leading[16] = {0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF};
    if (b.size() < 32 || std::memcmp(b.data(), leading, 16) != 0)
        fail("output does not start with the leading empty entry");
    for (size_t i = 16; i < 32; ++i)
        if (b[i]) fail("leading entry has non-zero attributes");
    size_t pos = 32;
    while (pos < b.size()) {
        if (pos % 4 || pos + 8 > b.size()) fail("entry not aligned or cut short");
        size_t data = u32_at(b, pos), header = u32_at(b, pos + 4);
        if (header > b.size() - pos) fail("header runs past the end of the file");
        size_t type = name_size_at(b, pos + 8, pos + header);
        size_t name = type ? name_size_at(b, pos + 8 + type, pos + header) : 0;
        if (!type || !name) fail("type or name runs past its header");
        size_t expect = 8 + type + name + 16;
        if (header != (expect + 3) / 4 * 4) fail("header size does not match its names");
        if (data > b.size() - pos - header) fail("data runs past the end of the file");
        pos += (header + data + 3) / 4 * 4;
        if (pos > b.size()) fail("last entry is not padded to 4");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return -1; // long inputs only slow the search down
    fresh_library();
    write_input(data, size);
    const Folder& f = folder();
    std::error_code ec;
    fs::remove(f.output_path, ec);

    int32_t ok = compile_script_w(f.script.c_str(), f.output.c_str());
    if (ok != 0 && ok != 1) fail("compile_script_w returned neither 0 nor 1");
    if (ok == (seen.errors > 0)) fail("result disagrees with the errors reported");
    bool left = fs::exists(f.output_path);
    if (!ok && left) fail("a failed compilation left its output file");
    if (ok && !left) fail("a successful compilation wrote no output file");
    if (ok) check_res_framing(read_all(f.output_path));
    enum_file_info_w(on_file, 0);
    enum_include_info_w(on_include, 0);
    return 0;
}
