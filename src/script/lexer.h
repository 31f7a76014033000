// The script lexer's state that the rest of the library sees: the script
// location attached to diagnostics.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {

constexpr size_t SCRIPT_FILE_UNITS = 260;

struct ScriptLocation {
    char16_t script_file[SCRIPT_FILE_UNITS] = {}; // named by the last line marker
    uint32_t script_line = 0;
    int32_t in_script = 0;
};
extern ScriptLocation script_location;

void script_reset();

} // namespace tarn
