// The listing mode (--dump): a parser of compiled resource files over a byte
// buffer, which checks the framing of every entry and never reads past the
// buffer, and the text of the listing.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tarn_driver {

struct ResName {
    bool is_ordinal = false;
    uint16_t ordinal = 0;
    std::u16string text;
};

struct ResEntry {
    uint64_t offset = 0; // of the header
    uint32_t data_size = 0;
    uint32_t header_size = 0;
    ResName type;
    ResName name;
    uint32_t data_version = 0;
    uint16_t memory_flags = 0;
    uint16_t language = 0;
    uint32_t version = 0;
    uint32_t characteristics = 0;
    uint64_t data_offset = 0;
};

struct ResFile {
    bool ok = false;
    std::string why;               // when not ok: what is wrong
    uint64_t error_offset = 0;     // and where
    std::vector<ResEntry> entries; // the resources, without the leading empty entry
};

ResFile parse_res(std::span<const uint8_t> bytes);

// The listing, UTF-8, one line per resource (each ending in "\n"), with the
// data in hex below each when `hex` is set. `res` must be parsed from `bytes`.
std::string format_listing(const ResFile& res, std::span<const uint8_t> bytes, bool hex);

// "RT_STRING(6)", "256", or "\"NAME\"".
std::string type_text(const ResName& type);
std::string name_text(const ResName& name);
// Rows of 16 bytes: offset within the data, the bytes, an ASCII column.
std::string hex_dump(std::span<const uint8_t> data);

} // namespace tarn_driver
