// Fuzz target: the driver's reader of compiled resource files (--dump). Each
// input is parsed as a .res file and, when it parses, listed with and
// without the hex dump. Beyond the sanitizers: the reader accepts exactly
// the files that the fuzz targets' own framing check accepts, its entries
// lie within the input, a failure says what and where, and the listing is
// well-formed UTF-8 of one line per resource (and one per 16 data bytes).
#include "fuzz_common.h"

#include "dump.h"
#include "utf.h"

using namespace tarn_fuzz;

namespace {

size_t lines(const std::string& text) {
    size_t n = 0;
    for (char c : text) n += c == '\n';
    return n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return -1;
    std::vector<uint8_t> bytes(data, data + size);
    tarn_driver::ResFile res = tarn_driver::parse_res(bytes);
    std::vector<Entry> framed;
    bool well_framed = res_framing_fault(bytes, &framed) == nullptr;
    if (res.ok != well_framed) fail("the reader and the framing check disagree");
    if (!res.ok) {
        if (res.why.empty() || res.error_offset > size) fail("a failure without a reason or place");
        if (!res.entries.empty()) fail("a failure with entries");
        return 0;
    }
    if (res.entries.size() != framed.size()) fail("the reader found another number of entries");
    size_t data_lines = 0;
    for (size_t i = 0; i < res.entries.size(); ++i) {
        const tarn_driver::ResEntry& e = res.entries[i];
        if (e.data_offset != framed[i].data || e.data_size != framed[i].size)
            fail("an entry's data is not where the framing puts it");
        if (e.offset % 4 || e.data_offset != e.offset + e.header_size)
            fail("an entry's header is misplaced");
        if ((e.type.is_ordinal ? long(e.type.ordinal) : -1) != framed[i].type ||
            (e.name.is_ordinal ? long(e.name.ordinal) : -1) != framed[i].name)
            fail("an entry's type or name differs from the framing's");
        data_lines += (e.data_size + 15) / 16;
    }
    std::string plain = tarn_driver::format_listing(res, bytes, false);
    std::string hex = tarn_driver::format_listing(res, bytes, true);
    if (lines(plain) != res.entries.size()) fail("the listing is not one line per resource");
    if (lines(hex) != res.entries.size() + data_lines) fail("the hex dump has the wrong rows");
    if (tarn_driver::to_utf8(tarn_driver::from_utf8(hex)) != hex) fail("the listing is not UTF-8");
    return 0;
}
