// Diagnostic codes: bits 31-30 the severity (10 warning, 11 error), bit 29
// the library's own message table, bit 15 fatal, the low bits a message
// number of the catalogue or a platform error number. Every code the library
// reports is built here from a named message number.
#pragma once

#include <cstdint>

namespace tarn {

using DiagnosticCode = uint32_t;

constexpr DiagnosticCode SEVERITY_MASK = 0xC0000000;
constexpr DiagnosticCode SEVERITY_WARNING = 0x80000000;
constexpr DiagnosticCode SEVERITY_ERROR = 0xC0000000;
constexpr DiagnosticCode CODE_LIBRARY = 0x20000000;
constexpr DiagnosticCode CODE_FATAL = 0x8000;
// Bit 14 is no part of any message number; the preprocessor masks keep it, so
// a code carrying it finds no text (see QUIRK_NO_TEXT below).
constexpr DiagnosticCode CODE_BIT14 = 0x4000;

// In a namespace of their own too, so that a host-side program (the driver)
// can take the numbers without the rest of the library's names.
inline namespace message_numbers {
enum Msg : uint32_t {
    MSG_FILE_NOT_FOUND = 0x01,
    MSG_READ_ERROR = 0x02,
    MSG_WRITE_ERROR = 0x03,
    MSG_INVALID_CODEPAGE = 0x04,
    MSG_INVALID_LANGUAGE = 0x05,
    MSG_UNSUPPORTED_ENCODING = 0x06,
    MSG_CONVERSION_FAILED = 0x07,
    MSG_NOT_IMPLEMENTED = 0x08,
    MSG_INVALID_CONTROL_CHAR = 0x09,
    MSG_INVALID_ACCEL_KEY = 0x0A,
    MSG_ACCEL_TYPE_NEEDED = 0x0B,
    MSG_INVALID_SYNTAX = 0x0C,
    MSG_UNRECOGNIZED_TOKEN = 0x0D,
    MSG_ADDITION_NOT_ALLOWED = 0x0E,
    MSG_DUPLICATE_STRING_ID = 0x0F,
    MSG_INVALID_FILE = 0x10,
    MSG_DIVISION_BY_ZERO = 0x11,
    MSG_VALUE_OUT_OF_BOUNDS = 0x12,
    MSG_STRING_TOO_LONG = 0x13,
    MSG_NAME_ORDINAL_BOUNDS = 0x14,
    MSG_TYPE_ORDINAL_BOUNDS = 0x15,
    MSG_UNKNOWN_KEYWORD = 0x16,
    MSG_NUMBER_EXPECTED = 0x17,
    MSG_STRING_EXPECTED = 0x18,
    MSG_BEGIN_EXPECTED = 0x19,
    MSG_END_EXPECTED = 0x1A,
    MSG_COMMA_EXPECTED = 0x1B,
    MSG_UNEXPECTED_EOF = 0x1C,
    MSG_UNTERMINATED_COND_INCLUDE = 0x1D,
    MSG_UNTERMINATED_IF = 0x1E,
    MSG_UNIDENTIFIABLE_CONTROL = 0x1F,
    MSG_UNKNOWN_CONTROL = 0x20,
    MSG_IF_TOO_DEEP = 0x21,
    MSG_UNDEF_SYNTAX = 0x22,
    MSG_ELIF_WITHOUT_IF = 0x23,
    MSG_ELIF_AFTER_ELSE = 0x24,
    MSG_ELSE_WITHOUT_IF = 0x25,
    MSG_ELSE_AFTER_ELSE = 0x26,
    MSG_ELSE_SYNTAX = 0x27,
    MSG_ENDIF_WITHOUT_IF = 0x28,
    MSG_ENDIF_SYNTAX = 0x29,
    MSG_ERROR_DIRECTIVE = 0x2A,
    MSG_LINE_SYNTAX = 0x2B,
    MSG_LINE_OUT_OF_RANGE = 0x2C,
    MSG_BAD_CONTROL_SYNTAX = 0x2D,
    MSG_CONTROL_NOT_IMPLEMENTED = 0x2E,
    MSG_IFDEF_SYNTAX = 0x2F,
    MSG_IF_ILLEGAL_OPERATOR = 0x30,
    MSG_IF_BAD_OPERATOR = 0x31,
    MSG_IF_BOTCH = 0x32,
    MSG_UNDEFINED_VALUE = 0x33,
    MSG_BAD_CONDITIONAL = 0x34,
    MSG_EVAL_BOTCH = 0x35,
    MSG_BAD_DIGIT = 0x36,
    MSG_BAD_NUMBER = 0x37,
    MSG_WIDE_CHAR_UNDEFINED = 0x38,
    MSG_UNDEFINED_ESCAPE = 0x39,
    MSG_EMPTY_CHAR_CONST = 0x3A,
    MSG_MULTIBYTE_CHAR_CONST = 0x3B,
    MSG_CHAR_NOT_SIGNED = 0x3C,
    MSG_STRING_IN_IF = 0x3D,
    MSG_INCLUDE_TOO_DEEP = 0x3E,
    MSG_INCLUDE_NOT_FOUND = 0x3F,
    MSG_INCLUDE_SYNTAX = 0x40,
    MSG_LEXICAL_BOTCH = 0x41,
    MSG_NO_NEWLINE_AT_EOF = 0x42,
    MSG_UNTERMINATED_STRING = 0x43,
    MSG_EOF_IN_STRING = 0x44,
    MSG_EOF_IN_COMMENT = 0x45,
    MSG_INPUT_BUFFER_OVERFLOW = 0x46,
    MSG_DEFINE_NOT_NAME = 0x47,
    MSG_CANNOT_REDEFINE = 0x48,
    MSG_DUPLICATE_MACRO_ARG = 0x49,
    MSG_MACRO_PARAM_SYNTAX = 0x4A,
    MSG_MACRO_REDEFINITION = 0x4B,
    MSG_ILLEGAL_DU_ARGUMENT = 0x4C,
    MSG_DEFINED_SYNTAX = 0x4D,
    MSG_MACRO_ARG_COUNT = 0x4E,
    MSG_EOF_IN_ARGLIST = 0x4F,
    MSG_TOO_MANY_MACRO_ARGS = 0x50,
    MSG_HASH_NOT_PARAM = 0x51,
    MSG_PASTE_AT_BORDER = 0x52,
    MSG_BAD_PASTE = 0x53,
    MSG_STRINGIZE_TOO_LONG = 0x54,
    MSG_UNKNOWN_INTERNAL_MACRO = 0x55,
    MSG_CANNOT_OPEN_INPUT = 0x56,
    MSG_CANNOT_OPEN_OUTPUT = 0x57,
    MSG_INTERNAL_ERROR = 0x58,
    MSG_USING_CODEPAGE = 0x59,
    MSG_WRITING = 0x5A,
    MSG_WRITING_ID = 0x5B,
    MSG_WRITING_NAME = 0x5C,
    MSG_WRITING_LANGUAGE = 0x5D,
    MSG_WRITING_OFFSET = 0x5E,
    MSG_BANNER = 0x5F,
    MSG_BANNER2 = 0x60,
    MSG_USAGE_SYNTAX = 0x61,
    MSG_USAGE_OPTIONS = 0x62,
    MSG_OPTION_C = 0x63,
    MSG_OPTION_D = 0x64,
    MSG_OPTION_E = 0x65,
    MSG_OPTION_FO = 0x66,
    MSG_OPTION_I = 0x67,
    MSG_OPTION_L = 0x68,
    MSG_OPTION_M = 0x69,
    MSG_OPTION_N = 0x6A,
    MSG_OPTION_R = 0x6B,
    MSG_OPTION_U = 0x6C,
    MSG_OPTION_V = 0x6D,
    MSG_OPTION_X = 0x6E,
    MSG_LOCATION = 0x6F,
    MSG_PREFIX_FATAL = 0x70,
    MSG_PREFIX_ERROR = 0x71,
    MSG_PREFIX_WARNING = 0x72,
    MSG_UNKNOWN_OPTION = 0x73,
    MSG_ABORTED = 0x74,
    // Later additions: checks of both dialects, and the modern dialect's.
    MSG_DUPLICATE_RESOURCE = 0x75,
    MSG_FIELD_TOO_LARGE = 0x76,
    MSG_BAD_SOURCE_DATE_EPOCH = 0x77,
};
} // namespace message_numbers

constexpr uint32_t MSG_FIRST = 0x01;
constexpr uint32_t MSG_LAST = 0x77;

constexpr DiagnosticCode error_code(Msg m) { return SEVERITY_ERROR | CODE_LIBRARY | m; }
constexpr DiagnosticCode warning_code(Msg m) { return SEVERITY_WARNING | CODE_LIBRARY | m; }
constexpr DiagnosticCode fatal_code(Msg m) { return CODE_LIBRARY | CODE_FATAL | m; }
constexpr DiagnosticCode note_code(Msg m) { return CODE_LIBRARY | m; }
// A platform failure (an error number) that ends the run.
constexpr DiagnosticCode fatal_system_code(uint32_t error) { return error | CODE_FATAL; }
// An error number reported as a plain error.
constexpr DiagnosticCode error_system_code(uint32_t error) { return error | SEVERITY_ERROR; }

// Codes kept as the original reports them: they carry bit 14, find no
// message text and reach the host as the fallback text.
constexpr DiagnosticCode WARN_UNTERMINATED_COND_INCLUDE =
    warning_code(MSG_UNTERMINATED_COND_INCLUDE) | CODE_BIT14; // 0xA000401D
constexpr DiagnosticCode WARN_CHAR_NOT_SIGNED = warning_code(MSG_CHAR_NOT_SIGNED) | CODE_BIT14;

constexpr DiagnosticCode FATAL_OUT_OF_MEMORY = 0x800E;

// Severity class passed to the error callback: 0 warning or note, 1 error,
// 2 fatal.
constexpr int32_t severity_class(DiagnosticCode code) {
    int32_t s = (code & CODE_FATAL) ? 2 : 0;
    if ((code & SEVERITY_MASK) == SEVERITY_ERROR) s = 1;
    if ((code & SEVERITY_MASK) == SEVERITY_WARNING) s = 0;
    return s;
}

} // namespace tarn
