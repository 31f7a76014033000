// The driver's messages: read from the library's message table when it
// carries one, else from the driver's own copy of the catalogue, in the
// user's language, with inserts expanded as the platform formatter does.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "diag/catalogue.h"
#include "diag/format.h"

namespace tarn_driver {

using tarn::MsgArg;

constexpr uint32_t MESSAGE_ID_BASE = 0x20000000;

// The messages of the driver and the ones it shares with the library.
enum DriverMsg : uint32_t {
    MSG_INVALID_CODEPAGE = 0x04,
    MSG_INVALID_LANGUAGE = 0x05,
    MSG_BANNER = 0x5F,
    MSG_BANNER2 = 0x60,
    MSG_USAGE_SYNTAX = 0x61,
    MSG_USAGE_OPTIONS = 0x62,
    MSG_OPTION_FIRST = 0x63, // /C
    MSG_OPTION_C = 0x63,
    MSG_OPTION_FO = 0x66,
    MSG_OPTION_L = 0x68,
    MSG_OPTION_R = 0x6B,
    MSG_OPTION_LAST = 0x6E, // /X
    MSG_LOCATION = 0x6F,
    MSG_UNKNOWN_OPTION = 0x73,
    MSG_ABORTED = 0x74,
};

// Whether the POSIX locale variables ask for Swedish: the first non-empty
// of LC_ALL, LC_MESSAGES and LANG (any may be null) starts with "sv".
bool locale_is_swedish(const char* lc_all, const char* lc_messages, const char* lang);

tarn::Language driver_language();

// The text of a message with its inserts expanded, as one or more lines:
// the table's final line break is dropped and CR LF becomes "\n".
std::u16string message(uint32_t number, std::initializer_list<MsgArg> args = {});
// The same from a raw table text (for the tests).
std::u16string expand_message(std::u16string_view raw, std::initializer_list<MsgArg> args);

// Drops one trailing line break and turns CR LF into "\n".
std::u16string as_lines(std::u16string_view text);

// "file(line): text", or the text alone when there is no file.
std::u16string diagnostic_line(const char16_t* file, uint32_t line, const char16_t* text);

} // namespace tarn_driver
