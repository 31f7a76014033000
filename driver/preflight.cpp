// Checks of the script and output paths before a compile, and the driver's
// own messages for what they find, in English and Swedish.
#include "preflight.h"

#include <filesystem>

#ifndef _WIN32
#include <unistd.h>
#endif

#include <tarn/tarn.h>

#include "messages.h"
#include "utf.h"

namespace tarn_driver {

namespace fs = std::filesystem;

namespace {

// Each problem's message; it names the file.
constexpr struct {
    PathProblem problem;
    uint32_t message;
} PROBLEM_MESSAGES[] = {
    {PathProblem::input_not_a_file, MSG_INPUT_NOT_A_FILE},
    {PathProblem::output_is_input, MSG_OUTPUT_IS_INPUT},
    {PathProblem::output_is_folder, MSG_OUTPUT_IS_FOLDER},
    {PathProblem::output_folder_missing, MSG_OUTPUT_FOLDER_MISSING},
    {PathProblem::output_folder_locked, MSG_OUTPUT_FOLDER_LOCKED},
    {PathProblem::output_read_only, MSG_OUTPUT_READ_ONLY},
};

size_t records_at_resource_start = 0;

// Every resource start counts the records, so counting copies nothing.
size_t file_record_count() {
    size_t count = 0;
    tarn_file_info_callback take = [](const char16_t*, const char16_t*, uint16_t, const char16_t*,
                                      uint64_t context) -> int32_t {
        *reinterpret_cast<size_t*>(uintptr_t(context)) += 1;
        return 1;
    };
    enum_file_info_w(take, uint64_t(reinterpret_cast<uintptr_t>(&count)));
    return count;
}

// The path of the record at `index`, copied only once the walk gets there.
std::u16string file_record_path(size_t index) {
    struct Walk {
        size_t left;
        std::u16string path;
    } walk{index, {}};
    tarn_file_info_callback take = [](const char16_t*, const char16_t*, uint16_t,
                                      const char16_t* path, uint64_t context) -> int32_t {
        Walk* w = reinterpret_cast<Walk*>(uintptr_t(context));
        if (w->left-- > 0) return 1;
        w->path = path ? path : u"";
        return 0;
    };
    enum_file_info_w(take, uint64_t(reinterpret_cast<uintptr_t>(&walk)));
    return walk.path;
}

// The path as the library takes it: on POSIX "\" separates too.
fs::path native_path(std::u16string path) {
#ifndef _WIN32
    for (char16_t& c : path)
        if (c == u'\\') c = u'/';
#endif
    return fs::path(path);
}

bool folder_writable(const fs::path& folder) {
#ifdef _WIN32
    (void)folder; // Windows refuses per file, which the library reports
    return true;
#else
    return access(folder.c_str(), W_OK) == 0;
#endif
}

std::optional<PathProblem> check_output(const fs::path& out) {
    std::error_code ec;
    fs::file_status st = fs::status(out, ec);
    if (fs::is_directory(st)) return PathProblem::output_is_folder;
    if (fs::is_regular_file(st) && (st.permissions() & fs::perms::all &
                                    (fs::perms::owner_write | fs::perms::group_write |
                                     fs::perms::others_write)) == fs::perms::none)
        return PathProblem::output_read_only;
    if (fs::exists(st)) { // a device or pipe takes the output as it is
        if (!fs::is_regular_file(st)) return std::nullopt;
    }
    fs::path folder = out.parent_path();
    if (folder.empty()) folder = ".";
    if (!fs::is_directory(folder, ec)) return PathProblem::output_folder_missing;
    if (!folder_writable(folder)) return PathProblem::output_folder_locked;
    return std::nullopt;
}

} // namespace

std::optional<PathProblem> check_paths(const std::u16string& input, const std::u16string& output) {
    std::error_code ec;
    fs::file_status in = fs::status(native_path(input), ec);
    if (fs::exists(in) && !fs::is_regular_file(in)) return PathProblem::input_not_a_file;
    if (output.empty()) return std::nullopt;
    if (fs::equivalent(native_path(input), native_path(output), ec))
        return PathProblem::output_is_input;
    return check_output(native_path(output));
}

std::u16string path_problem_text(PathProblem problem, const std::u16string& input,
                                 const std::u16string& output) {
    for (const auto& p : PROBLEM_MESSAGES)
        if (p.problem == problem)
            return message(p.message, {problem == PathProblem::input_not_a_file ? input : output});
    return std::u16string();
}

void note_resource_start() {
    records_at_resource_start = file_record_count();
}

std::u16string file_in_question(std::u16string_view text) {
    size_t count = file_record_count();
    if (count <= records_at_resource_start) return std::u16string();
    std::u16string last = file_record_path(count - 1);
    size_t part = last.find_last_of(u"\\/:");
    std::u16string_view name = std::u16string_view(last).substr(part + 1); // npos + 1 is 0
    return text.find(name) == std::u16string_view::npos ? last : std::u16string();
}

std::u16string file_in_question_text(const std::u16string& path) {
    return message(MSG_FILE_IN_QUESTION, {path});
}

std::u16string lost_output_text() {
    return message(MSG_LOST_OUTPUT);
}

} // namespace tarn_driver
