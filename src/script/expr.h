// Constant expressions of the script: 32-bit wrapping arithmetic over
// numbers; `required` 0 makes a missing operand a silent 0.
#pragma once

#include <cstdint>

namespace tarn {

uint32_t parse_expr(bool required);
int16_t parse_expr16(bool required); // warns outside -32768..65535; low 16 bits
uint32_t parse_style(uint32_t start); // "|"-joined numbers, NOT clears
} // namespace tarn
