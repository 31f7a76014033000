// Path helpers; "\" and "/" are both separators everywhere.
#pragma once

#include <cstddef>

namespace tarn {

constexpr size_t MAX_PATH_UNITS = 260;

inline bool is_separator(char16_t c) { return c == u'\\' || c == u'/'; }

// The separator of the paths tarn forms: what the system's own tools show.
#ifdef _WIN32
constexpr char16_t NATIVE_SEPARATOR = u'\\';
#else
constexpr char16_t NATIVE_SEPARATOR = u'/';
#endif

// Joins dir and name into out (at most `size` units including the zero):
// name alone when it is absolute (leading separator or drive colon) or dir
// is empty; else dir, then name's components ("." skipped, ".." drops the
// last component, others appended after one separator). On POSIX every
// separator of the result is "/", as its tools write paths. Returns the length of out
// before the components were added (the name's length when it stands
// alone), or 0 when a component starts with "." but is neither "." nor ".."
// or when the result does not fit: callers take 0 for "not found".
size_t path_join(char16_t* out, size_t size, const char16_t* dir, const char16_t* name);

// 1 when something exists under the path (see plat_exists).
bool file_exists(const char16_t* path);

// The part after the last "\", "/" or ":"; the empty string for null.
const char16_t* path_file_part(const char16_t* path);

} // namespace tarn
