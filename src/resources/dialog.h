// The dialog being parsed: the options that the optional statements fill
// (CAPTION, CLASS, EXSTYLE, FONT, MENU, STYLE) and the controls.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "resfile/writer.h"

namespace tarn {

// A control's text: an ordinal, or units kept in its dialog's `texts`
// (one buffer for all of them, so that a control costs no allocation).
struct ControlText {
    bool is_ordinal = false;
    uint16_t ordinal = 0;
    uint32_t at = 0, length = 0;
};

struct DialogControl {
    uint32_t extended_style = 0;
    uint32_t style = 0;
    int16_t x = 0, y = 0, cx = 0, cy = 0;
    uint32_t id = 0; // 16 bits but in the extended dialect's DIALOGEX
    uint32_t help_id = 0;
    NameOrOrdinal class_name;           // empty: written as the empty string
    ControlText text;                   // none: the empty string
    std::vector<uint8_t> creation_data; // DIALOGEX only
};

struct DialogOptions {
    std::vector<DialogControl> controls;
    std::u16string texts; // the controls' texts, one after another
    bool extended = false;
    bool style_given = false;
    uint32_t extended_style = 0;
    uint32_t style = 0;
    int16_t x = 0, y = 0, cx = 0, cy = 0;
    uint32_t help_id = 0;
    std::optional<std::u16string> font_face;
    uint16_t point_size = 0;
    uint16_t weight = 0;
    uint8_t italic = 0;
    uint8_t character_set = 1;
    NameOrOrdinal menu; // empty: none
    NameOrOrdinal class_name;
    std::optional<std::u16string> caption;
};

} // namespace tarn
