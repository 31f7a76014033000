// Fuzz target: image files as the ICON, CURSOR, BITMAP, ANICURSOR and
// ANIICON statements read them. The first input byte picks the statement and
// whether the rest of the input is a file the statement names or, for ICON,
// CURSOR and BITMAP, its inline hex strings. Each input is one one-line
// compilation from a just-loaded library, checked as fuzz_compile checks
// them (compile_checked); a successful one must also hold exactly the
// resources the input describes, with the bytes taken from it.
#include "fuzz_common.h"

using namespace tarn_fuzz;

namespace {

struct Kind {
    const char* keyword;
    const char* file; // empty: inline hex strings
    long image_type;  // of the one resource or of each image
    long group_type;  // 0 when there is no group
};

const Kind KINDS[] = {
    {"ICON", "f.ico", 3, 14},      {"CURSOR", "f.cur", 1, 12},  {"BITMAP", "f.bmp", 2, 0},
    {"ANICURSOR", "f.ani", 21, 0}, {"ANIICON", "f.ani", 22, 0}, {"ICON", "", 3, 14},
    {"CURSOR", "", 1, 12},         {"BITMAP", "", 2, 0},
};

using Bytes = std::vector<uint8_t>;

uint32_t get16(const Bytes& b, size_t at) {
    return at + 2 <= b.size() ? u16_at(b, at) : 0;
}

bool starts_with(const Bytes& b, size_t at, const char* text) {
    size_t n = std::strlen(text);
    return at + n <= b.size() && std::memcmp(b.data() + at, text, n) == 0;
}

bool same_bytes(const Bytes& out, const Entry& e, const Bytes& in, size_t from) {
    return from <= in.size() && e.size == in.size() - from &&
           std::memcmp(out.data() + e.data, in.data() + from, e.size) == 0;
}

// The script: one statement naming the file, or the bytes as hex strings.
std::string script_for(const Kind& kind, const Bytes& in) {
    std::string s = std::string("1 ") + kind.keyword;
    if (*kind.file) return s + " \"" + (folder().dir / kind.file).string() + "\"\n";
    s += " BEGIN\n";
    static const char digits[] = "0123456789ABCDEF";
    for (size_t i = 0; i < in.size(); i += 32) {
        s += '\'';
        for (size_t k = i; k < i + 32 && k < in.size(); ++k) {
            if (k > i) s += ' ';
            s += digits[in[k] >> 4];
            s += digits[in[k] & 15];
        }
        s += "'\n";
    }
    return s + "END\n";
}

// An icon or cursor: the images in directory order, each the bytes the
// directory points at, then the group listing them by ordinal.
void check_images(const Kind& kind, const Bytes& in, const Bytes& out,
                  const std::vector<Entry>& entries) {
    bool cursor = kind.image_type == 1;
    if (get16(in, 2) != (cursor ? 2u : 1u)) fail("an image file of the wrong type was accepted");
    size_t count = get16(in, 4);
    if (*kind.file && (count == 0 || count > 4096))
        fail("an image count out of range was accepted");
    if (entries.size() != count + 1) fail("not one resource per image and a group");
    const Entry& group = entries.back();
    if (group.type != kind.group_type || group.size != 6 + 14 * count)
        fail("the group is not last or has the wrong size");
    for (size_t i = 0; i < count; ++i) {
        const Entry& image = entries[i];
        size_t dir = 6 + 16 * i, size = u32_at(in, dir + 8), offset = u32_at(in, dir + 12);
        size_t prefix = cursor ? 4 : 0;
        if (image.type != kind.image_type || image.name != long(i + 1))
            fail("an image resource has the wrong type or ordinal");
        if (image.size != size + prefix || offset + size > in.size() ||
            std::memcmp(out.data() + image.data + prefix, in.data() + offset, size) != 0)
            fail("an image resource is not the bytes its directory entry names");
        if (cursor && std::memcmp(out.data() + image.data, in.data() + dir + 4, 4) != 0)
            fail("a cursor's hot spot is not the one of its directory entry");
        if (u16_at(out, group.data + 6 + 14 * i + 12) != i + 1)
            fail("a group entry names the wrong image");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    folder();
    // No windows.h to find: its prelude would be most of each run's cost.
    unsetenv("include");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 16384) return -1;
    const Kind& kind = KINDS[data[0] % (sizeof KINDS / sizeof KINDS[0])];
    Bytes in(data + 1, data + size);
    fresh_library();
    const Folder& f = folder();
    if (*kind.file)
        write_file(f.dir / kind.file,
                   std::string_view(reinterpret_cast<const char*>(in.data()), in.size()));
    write_file(f.script_path, script_for(kind, in));

    std::vector<Entry> entries;
    Bytes out;
    bool ok = compile_checked(&entries, &out);
    bool bitmap = kind.image_type == 2, animated = kind.image_type >= 21;
    bool valid_bitmap = in.size() >= 14 && starts_with(in, 0, "BM");
    bool valid_riff = starts_with(in, 0, "RIFF") && starts_with(in, 8, "ACON");
    if (bitmap && *kind.file && ok != valid_bitmap) fail("a bitmap file judged wrongly");
    if (animated && ok != valid_riff) fail("an animated file judged wrongly");
    if (!ok) return 0;
    if (kind.group_type) {
        check_images(kind, in, out, entries);
        return 0;
    }
    if (entries.size() != 1 || entries[0].type != kind.image_type || entries[0].name != 1)
        fail("not exactly the one resource");
    if (!same_bytes(out, entries[0], in, bitmap ? 14 : 0))
        fail("the resource is not the file's bytes");
    if (bitmap && !valid_bitmap) fail("inline bytes that are no bitmap were accepted");
    return 0;
}
