// Checks the driver makes before it hands files to the library, so that a
// file the library could not use is named in the message: the library's
// own texts for such failures are the system's, which name no file. Also
// the driver's last word on standard output that could not be written.
#pragma once

#include <optional>
#include <string>

namespace tarn_driver {

enum class PathProblem {
    input_not_a_file,      // a folder, pipe or device named as the script
    output_is_input,       // -Fo names the script itself
    output_is_folder,      // -Fo names a folder
    output_folder_missing, // -Fo names a file in a folder that does not exist
    output_folder_locked,  // the folder may not be written
    output_read_only,      // the file exists and may not be written
};

// The first problem with the script `input` and the output file `output`
// (empty when nothing is written to a file).
std::optional<PathProblem> check_paths(const std::u16string& input, const std::u16string& output);

// The driver's message for the problem, in the user's language.
std::u16string path_problem_text(PathProblem problem, const std::u16string& input,
                                 const std::u16string& output);

// Which file a failure concerns, when its text (the system's) names none:
// the library records each file a resource is copied from as the
// statement begins, and announces each resource on the information
// callback. A record made since the last announcement belongs to the
// statement that failed.
void note_resource_start(); // from the information callback
// From the error callback: the file, when the diagnostic's text does not
// name it already; else empty.
std::u16string file_in_question(std::u16string_view text);
// The line naming it.
std::u16string file_in_question_text(const std::u16string& path);

// The message for standard output that could not be written all.
std::u16string lost_output_text();

} // namespace tarn_driver
