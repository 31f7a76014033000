// Compiled resources as a COFF object, the form linkers take: one ".rsrc"
// section holding the resource directory of a PE image, with a relocation
// for each data entry's address, which only the linker knows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace tarn_driver {

// Converts the bytes of a .res file into a COFF object; false and *why on malformed input.
bool res_to_coff(const std::vector<uint8_t>& res, Machine machine, uint32_t timestamp,
                 std::vector<uint8_t>* object, std::string* why);

// x64|x86|arm64 (also amd64, i386, aarch64), in any case.
bool parse_machine(std::u16string_view text, Machine* machine);

} // namespace tarn_driver
