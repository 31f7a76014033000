// Writing the output in its format: the .res file the library compiles, or
// that file turned into a COFF object for the linker. An input that is
// already a compiled .res file is converted rather than compiled.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace tarn_driver {

// --format when given, else by the output's extension: ".o" and ".obj"
// (in any case) take an object, anything else a .res file.
OutputFormat output_format(const Options& o);

// Whether the input is a compiled .res file: Options::input_is_res, or the
// extension ".res" in any case.
bool input_is_compiled(const Options& o);

// The object's time stamp: the value of SOURCE_DATE_EPOCH when it is set
// and not empty, else 0. False and *why when the value is not a count of
// seconds that fits the 32-bit field.
bool object_timestamp(uint32_t* timestamp, std::string* why);

// Compiles the input (or reads it, when compiled) and writes the output in
// its format. Anything but a plain .res compilation is written to a new
// file that replaces the output only once all of it is written, keeping the
// old file's permissions; on failure nothing is left behind. The library
// reports its own diagnostics; other problems are printed to standard error
// after "program: ". True on success.
bool write_output(const Options& o, std::string_view program = "tarn");

// The whole of a plain file; false when it is missing, not a plain file or
// cannot be read.
bool read_file(const std::filesystem::path& path, std::vector<uint8_t>* bytes);

// Writes `bytes` to a new file beside `path` and puts it in place of `path`
// (whose permissions it keeps), so that no partial file is ever seen; false
// with *why on failure, and nothing left behind. A symbolic link keeps
// pointing where it did.
bool replace_file(const std::u16string& path, std::string_view bytes, std::string* why);

} // namespace tarn_driver
