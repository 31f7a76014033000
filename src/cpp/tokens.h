// Preprocessor tokens and token rows. Token texts point into an input buffer
// or into storage of the part that made the token; a row is a growable array
// of tokens with a cursor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {

enum PpKind : uint8_t {
    PP_END = 0,
    PP_OTHER = 1,
    PP_NAME = 2,
    PP_NUMBER = 3,
    PP_STRING = 4,
    PP_CHAR = 5,
    PP_NEWLINE = 6,
    PP_PASTE = 8,
    PP_HASH = 41,
    PP_PASTE_ARG = 56,     // "##" inside a macro argument: no operator
    PP_NOEXPAND_NAME = 57, // operand of `defined`
    PP_DEFINED = 58,       // the `defined` operator
    PP_NEGATE = 59,        // unary minus in #if
    PP_OPEN_COMMENT = 60,  // a text input ended inside a comment
};

struct PpToken {
    uint8_t type = PP_END;
    uint8_t flag = 0;     // bit 0: the space before it was inserted by expansion
    uint32_t hideset = 0; // 0 = empty
    uint64_t wslen = 0;   // white-space units in front of text
    uint64_t len = 0;
    const char16_t* text = nullptr;
};

struct TokenRow {
    PpToken* cur = nullptr;
    PpToken* base = nullptr;
    PpToken* last = nullptr;
    uint64_t max = 0;
};

} // namespace tarn
