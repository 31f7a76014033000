// Make rules: the one line that -M prints ("output: input deps...") and the
// dependency file that --depfile writes, each path escaped as make reads it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarn_driver {

// " " becomes "\ " (and the backslashes before it are doubled), "#" becomes
// "\#", "$" becomes "$$", and ":" becomes "\:" unless it is a drive's
// ("C:\", "C:/").
std::u16string make_escape(std::u16string_view path);

// The rule's one line (without its line break). Dependencies named twice
// are listed once, at their first place.
std::u16string make_rule(std::u16string_view output, std::u16string_view input,
                         const std::vector<std::u16string>& dependencies);

// A dependency file: "targets: input deps..." with one prerequisite a line,
// then an empty rule for each dependency other than the input, so that make
// does not stop when a header has gone away. Targets come escaped already
// (-MQ escapes, -MT does not). Ends with a line break.
std::u16string depfile_text(const std::vector<std::u16string>& targets, std::u16string_view input,
                            const std::vector<std::u16string>& dependencies);

// A path the library recorded, as make should see it: the library joins
// paths with "\", which POSIX systems take as "/".
std::u16string dependency_path(std::u16string_view recorded);


} // namespace tarn_driver
