// tarn-msgtable: writes the message catalogue in one language as the binary
// data of a MESSAGETABLE resource, for the resource script of the Windows
// build (a MESSAGETABLE statement copies the file as it stands).
//
//   tarn-msgtable en|sv OUTPUT
//
// Layout, little-endian: the number of blocks; per block of consecutive
// message ids its lowest id, highest id and the offset of its entries from
// the start of the data; then the entries, each its length in bytes (a
// multiple of 4), flags 1 (UTF-16 text), and the text with a zero unit,
// padded with zeros.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "diag/catalogue.h"

namespace {

constexpr uint32_t ID_BASE = 0x20000000; // the library's own messages
constexpr uint16_t ENTRY_UNICODE = 1;

struct Out {
    std::vector<uint8_t> bytes;
    void u16(uint16_t v) {
        bytes.push_back(uint8_t(v));
        bytes.push_back(uint8_t(v >> 8));
    }
    void u32(uint32_t v) {
        u16(uint16_t(v));
        u16(uint16_t(v >> 16));
    }
    void set_u32(size_t at, uint32_t v) {
        for (int i = 0; i < 4; i++) bytes[at + i] = uint8_t(v >> (8 * i));
    }
};

size_t units(const char16_t* s) {
    size_t n = 0;
    while (s[n]) n++;
    return n;
}

void put_entry(Out& out, const char16_t* text) {
    size_t n = units(text) + 1; // with its zero unit
    uint16_t length = uint16_t((4 + 2 * n + 3) / 4 * 4);
    out.u16(length);
    out.u16(ENTRY_UNICODE);
    for (size_t i = 0; i < n; i++) out.u16(i + 1 < n ? text[i] : 0);
    while (out.bytes.size() % 4) out.bytes.push_back(0);
}

std::vector<uint8_t> message_table(bool swedish) {
    uint32_t count = 0;
    const tarn::CatalogueEntry* entries = tarn::catalogue_entries(&count);
    // Runs of consecutive numbers become blocks.
    std::vector<std::pair<uint32_t, uint32_t>> blocks; // first and last index
    for (uint32_t i = 0; i < count; i++) {
        if (i && entries[i].number == entries[i - 1].number + 1)
            blocks.back().second = i;
        else
            blocks.push_back({i, i});
    }
    Out out;
    out.u32(uint32_t(blocks.size()));
    for (const auto& b : blocks) {
        out.u32(ID_BASE | entries[b.first].number);
        out.u32(ID_BASE | entries[b.second].number);
        out.u32(0); // set below
    }
    for (size_t k = 0; k < blocks.size(); k++) {
        out.set_u32(4 + 12 * k + 8, uint32_t(out.bytes.size()));
        for (uint32_t i = blocks[k].first; i <= blocks[k].second; i++) {
            const char16_t* text =
                swedish && entries[i].swedish ? entries[i].swedish : entries[i].english;
            put_entry(out, text);
        }
    }
    return out.bytes;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3 || (std::strcmp(argv[1], "en") && std::strcmp(argv[1], "sv"))) {
        std::fprintf(stderr, "usage: tarn-msgtable en|sv OUTPUT\n");
        return 2;
    }
    std::vector<uint8_t> table = message_table(std::strcmp(argv[1], "sv") == 0);
    std::FILE* f = std::fopen(argv[2], "wb");
    if (!f || std::fwrite(table.data(), 1, table.size(), f) != table.size() || std::fclose(f)) {
        std::fprintf(stderr, "tarn-msgtable: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
