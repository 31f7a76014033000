// What every resource statement shares: memory options, optional
// statements, name and type ordinals, the verbose line, the handlers the
// statement loop dispatches to, and the whole-file copy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resfile/writer.h"
#include "script/lexer.h"

namespace tarn {

// Memory-flag bits.
constexpr uint16_t MEM_MOVEABLE = 0x0010;
constexpr uint16_t MEM_PURE = 0x0020;
constexpr uint16_t MEM_PRELOAD = 0x0040;
constexpr uint16_t MEM_DISCARDABLE = 0x1000;

// Standard resource types.
enum ResourceType : uint16_t {
    RT_CURSOR = 1,
    RT_BITMAP = 2,
    RT_ICON = 3,
    RT_MENU = 4,
    RT_DIALOG = 5,
    RT_STRING = 6,
    RT_ACCELERATOR = 9,
    RT_RCDATA = 10,
    RT_MESSAGETABLE = 11,
    RT_GROUP_CURSOR = 12,
    RT_GROUP_ICON = 14,
    RT_VERSION = 16,
    RT_DLGINCLUDE = 17,
    RT_PLUGPLAY = 19,
    RT_VXD = 20,
    RT_ANICURSOR = 21,
    RT_ANIICON = 22,
    RT_HTML = 23,
    RT_MANIFEST = 24,
};

struct DialogOptions; // resources/dialog.h

// A statement's attributes start from CompileState's default.
ResourceAttributes default_attributes_copy();
uint16_t parse_memory_flags(uint16_t flags);
// CHARACTERISTICS, LANGUAGE, VERSION; and with a dialog's options record
// also CAPTION, CLASS, EXSTYLE, FONT, MENU and STYLE.
void parse_optional_statements(ResourceAttributes& attributes, DialogOptions* dialog);
// Reads one dialog option if the current token starts one (resources/dialog.cpp).
bool parse_dialog_option(DialogOptions& dialog);
void parse_language(ResourceAttributes& attributes);

NameOrOrdinal name_ordinal(uint32_t value); // warns above 65535
NameOrOrdinal type_ordinal(uint32_t value);
// The name token of a statement as a NameOrOrdinal (number through
// name_ordinal, identifier as its upper-cased text).
NameOrOrdinal name_of(const ScriptToken& name);

// Whether a count or length fits its 16-bit field; if not, an error says
// which (`what`) and how large it is, rather than a wrapped value.
bool fits_16(uint64_t value, const char16_t* what);

// The verbose "Writing ..." line; name and attributes may be null.
void show_writing(const std::u16string& type_text, const ScriptToken* name,
                  const ResourceAttributes* attributes);

// Writes a resource whose data are the bytes of a file and records the
// dependency; returns 0 or a DiagnosticCode.
uint32_t copy_file_resource(const NameOrOrdinal& name, const NameOrOrdinal& type,
                            const std::u16string& path, uint16_t memory_flags);

// A string item of raw data (RCDATA, a control's creation data), which it
// consumes: a narrow string as the low byte of each unit, no terminator; a
// wide one as the low byte and a zero, deliberately dropping the high byte,
// except in the extended dialect, which keeps whole UTF-16 units.
void append_string_item(std::vector<uint8_t>& data);

// A statement's file operand: a string literal or a name.
bool names_file(const ScriptToken& t);
// Locates a file named by a statement as a quoted #include name is found,
// searching the main script's directory first, whatever file the
// preprocessor happens to be reading ahead in.
std::u16string find_resource_file(const std::u16string& name);
// The file form of the whole-file statements: copies the file named by the
// current token, reports a failure (a missing file by the name as written)
// and reads the next token.
void copy_named_file(const NameOrOrdinal& name, const NameOrOrdinal& type, uint16_t memory_flags);

// Statement handlers: the type keyword is consumed; each returns with the
// current token on the first token of the next statement.
void compile_string_table();
void flush_string_tables_and_report();
void compile_accelerators(const ScriptToken& name);
void compile_dialog(const ScriptToken& name, int extended);
void compile_menu(const ScriptToken& name, int extended);
void compile_rcdata(const ScriptToken& name);
void compile_user_resource(const ScriptToken& name, const ScriptToken& type);
void compile_versioninfo(const ScriptToken& name);
void compile_dlginclude(const ScriptToken& name);
void compile_icon(const ScriptToken& name);
void compile_cursor(const ScriptToken& name);
void compile_bitmap(const ScriptToken& name);
void compile_file_resource(const ScriptToken& name, uint16_t type); // ANICURSOR, HTML, ...
// TOOLBAR, of the extended dialect: its type is a name, not a keyword.
bool is_toolbar_type(const ScriptToken& type);
void compile_toolbar(const ScriptToken& name);

// Icons and cursors (resources/icon.cpp): the process-wide image ordinal
// counter back to its just-loaded 0 (for resources_reset only), and the bit
// count a cursor group lists for a colour count.
void image_counter_reset();
uint32_t bits_for_colors(uint32_t n);

} // namespace tarn
