// Placeholder preprocessor: opens the main input and yields no text. The
// real preprocessor replaces this file.
#include "cpp/preprocessor.h"

#include "diag/report.h"
#include "support/files.h"

namespace tarn {

namespace {
FileHandle main_input = nullptr;
std::u16string main_name;
} // namespace

void cpp_reset() {}
void cpp_startup() {}

void close_all_sources() {
    if (main_input) file_close(main_input);
    main_input = nullptr;
}

void cpp_run_setup(const char16_t* input) {
    main_name = input;
    uint32_t e = file_open_read(input, &main_input);
    if (e == ERR_FILE_NOT_FOUND || e == ERR_PATH_NOT_FOUND)
        report_pp(fatal_code(MSG_FILE_NOT_FOUND), input);
    if (e) report_pp(fatal_system_code(e));
}

void cpp_run_finish() { close_all_sources(); }

size_t readPreprocessed(char16_t*, size_t) { return 0; }

void define_from_text(const char16_t*, int) {}
void add_include_path(const char16_t*) {}
void delete_standard_include_dirs() {}
std::u16string findInclude(const char16_t* name, bool) { return name; }

bool pp_location(const char16_t** file, uint32_t* line) {
    *file = main_input ? main_name.c_str() : nullptr;
    *line = main_input ? 1 : 0;
    return main_input != nullptr;
}

} // namespace tarn
