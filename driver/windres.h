// The windres-compatible front end: tarn run under a name that ends in
// "windres" (tarn-windres, x86_64-w64-mingw32-tarn-windres) takes the
// command line that build tools give GNU windres and fills the same Options
// record as tarn's own command line. It compiles in the modern dialect.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace tarn_driver {

struct WindresCommand {
    Options options;
    std::string error;              // non-empty: a usage error, to print as is
    std::vector<std::string> notes; // what was accepted but ignored, said once
};

// Whether the program name (argv[0], any folder and ".exe" removed) asks for
// this front end; `machine` receives the machine its target prefix names
// ("i686-" and the like: x86, "aarch64-": arm64, else x64).
bool is_windres_name(std::string_view program, Machine* machine);

// `machine`: the default for the object, from the program name.
WindresCommand parse_windres_options(const std::vector<std::u16string>& args, Machine machine);

// The --version line; build tools look for "GNU windres" in it.
std::u16string windres_version_line();

std::u16string windres_usage();

// When the program name asks for this front end: parses the arguments into
// `o`, prints its notes, and its errors, help or version; `exit_code` is
// then the program's result, or -1 when `o` is to be compiled.
bool windres_front_end(int argc, char** argv, Options* o, int* exit_code);

} // namespace tarn_driver
