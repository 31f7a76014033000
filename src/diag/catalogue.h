// The message catalogue: messages 0x01..0x77 in English and Swedish, kept as
// the platform's message table holds them (each text ends in CR LF unless
// "%0" stops it first). This one source feeds the library, the driver and
// the message-table resource of the Windows build.
#pragma once

#include <cstdint>

namespace tarn {

enum class Language { english, swedish };

struct CatalogueEntry {
    uint32_t number; // 0x01..MSG_LAST
    const char16_t* english;
    const char16_t* swedish;
};

// All entries, in ascending order of number.
const CatalogueEntry* catalogue_entries(uint32_t* count);

// The text for a full message identifier (0x20000000 | number), or null when
// the table has none: only 0x20000001..0x20000000 + MSG_LAST are found.
const char16_t* catalogue_text(uint32_t id, Language language);

} // namespace tarn
