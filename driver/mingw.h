// The mingw-w64 headers as the driver's standard headers where Windows'
// own are absent: found in the usual folders of the toolchain's packages,
// put on the #include search path, and made parseable for a resource
// compile. The library keeps its own configuration: all of this goes
// through the exports, and on Windows (where the "include" variable serves)
// the driver does none of it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace tarn_driver {

// Where the driver looks, in order (mingw.cpp says which package puts the
// headers where); the first folder that holds the headers is taken.
std::span<const std::u16string_view> mingw_header_folders();

struct SystemHeaders {
    bool searched = false; // neither -X nor the "include" variable said otherwise
    std::u16string found;  // the folder found and added; empty: none
    // Every mingw-w64 header folder on the search path: the one found, and
    // those given by -I or the "include" variable.
    std::vector<std::u16string> folders;
    // What the headers need to parse in a resource compile (see mingw.cpp),
    // defined before the user's -D and -U; a name the user defines or
    // undefines is left to the user. Empty unless `folders` has one.
    std::vector<std::u16string> definitions;
};

// Whether `folder` holds the mingw-w64 headers.
bool is_mingw_folder(std::u16string_view folder);

// The plan for one run, from the options, the "include" variable (if set)
// and the folders to search; on any platform (the tests use it so).
SystemHeaders plan_system_headers(const Options& o,
                                  const std::optional<std::u16string>& include_variable,
                                  std::span<const std::u16string_view> candidates);

// Hands the plan to the library. With `quiet`, warnings whose file lies in
// one of its folders are not shown afterwards (see quiet_diagnostic).
void apply_system_headers(const SystemHeaders& headers, bool quiet);

// The line -V prints about the headers; empty when there was no search.
std::u16string system_headers_line(const SystemHeaders& headers);

// Plans for this run and applies; returns the line for -V. Does nothing
// on Windows.
std::u16string use_system_headers(const Options& o);

// Whether a diagnostic is a warning from a quiet folder: the mingw-w64
// headers redefine in their .h files what their .rh files define, in other
// spellings, and a C compiler says nothing of that in its system headers.
bool quiet_diagnostic(int32_t severity, const char16_t* file);

// Whether `file`, as the library names it, lies below `folder`.
bool in_folder(std::u16string_view file, std::u16string_view folder);

} // namespace tarn_driver
