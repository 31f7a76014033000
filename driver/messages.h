// The driver's messages: read from the library's message table when it
// carries one, else from the driver's own copy of the catalogue, in the
// user's language, with inserts expanded as the platform formatter does.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "diag/catalogue.h"
#include "diag/codes.h"
#include "diag/format.h"

namespace tarn_driver {

using tarn::MsgArg;

// The message numbers are the library's own (diag/codes.h).
using namespace tarn::message_numbers;
constexpr uint32_t MESSAGE_ID_BASE = tarn::CODE_LIBRARY;

// The driver's own messages, which the library's table does not hold; their
// English and Swedish texts are in messages.cpp. A new option's line in the
// usage is one more number here, its texts there and its row in usage.cpp.
enum DriverMessage : uint32_t {
    MSG_DRIVER_FIRST = 0x101,
    MSG_MISSING_VALUE = MSG_DRIVER_FIRST,
    MSG_HEADERS_USED,
    MSG_HEADERS_NOT_FOUND,
    MSG_OPTION_EXTENDED,
    MSG_OPTION_FORMAT,
    MSG_OPTION_MACHINE,
    MSG_OPTION_DEPFILE,
    MSG_OPTION_DUMP,
    MSG_OPTION_DUMP_HEX,
    MSG_OPTION_HELP,
    MSG_OPTION_VERSION,
    // Checks made before the compile, so that the file is named.
    MSG_INPUT_NOT_A_FILE,
    MSG_OUTPUT_IS_INPUT,
    MSG_OUTPUT_IS_FOLDER,
    MSG_OUTPUT_FOLDER_MISSING,
    MSG_OUTPUT_FOLDER_LOCKED,
    MSG_OUTPUT_READ_ONLY,
    MSG_FILE_IN_QUESTION,
    MSG_LOST_OUTPUT,
    MSG_DRIVER_END // one past the last
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
// A message whose insert is shown as text: the first `placeholder` in the
// table's text (say "/%1" or "%1!hd!") becomes a plain "%1" and takes
// `text`, so that the user sees what was typed.
std::u16string message_showing(uint32_t number, std::u16string_view placeholder,
                               std::u16string_view text);

// Drops one trailing line break and turns CR LF into "\n".
std::u16string as_lines(std::u16string_view text);

// "file(line): text", or the text alone when there is no file.
std::u16string diagnostic_line(const char16_t* file, uint32_t line, const char16_t* text);

} // namespace tarn_driver
