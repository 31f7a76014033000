// Placeholder preprocessor: passes the main input through as UTF-8 text
// behind one line marker, with no directives. The real preprocessor replaces
// this file.
#include "cpp/preprocessor.h"

#include <vector>

#include "diag/report.h"
#include "support/files.h"
#include "support/paths.h"
#include "support/text.h"

namespace tarn {

namespace {
FileHandle main_input = nullptr;
std::u16string main_name;
std::u16string text; // what is left to pull
size_t text_pos = 0;

void load_text(FileHandle f) {
    uint32_t size = 0;
    file_size(f, &size);
    std::string bytes(size, '\0');
    if (size) file_read(f, bytes.data(), size);
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
    text = u"#line 1 \"" + main_name + u"\"\n" + utf8_to_utf16(bytes);
    text_pos = 0;
}
} // namespace

void cpp_reset() {
    text.clear();
    text_pos = 0;
}
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
    load_text(main_input);
}

void cpp_run_finish() { close_all_sources(); }

size_t readPreprocessed(char16_t* dest, size_t max) {
    size_t n = std::min(max, text.size() - text_pos);
    text.copy(dest, n, text_pos);
    text_pos += n;
    return n;
}

void define_from_text(const char16_t*, int) {}
void add_include_path(const char16_t*) {}
void delete_standard_include_dirs() {}

std::u16string findInclude(const char16_t* name, bool, const char16_t* current) {
    std::u16string base = current ? current : main_name.c_str();
    size_t cut = base.find_last_of(u"\\/");
    if (cut != std::u16string::npos && !is_separator(name[0])) {
        std::u16string joined = base.substr(0, cut + 1) + name;
        if (file_exists(joined.c_str())) return joined;
    }
    return name;
}

bool pp_location(const char16_t** file, uint32_t* line) {
    *file = main_input ? main_name.c_str() : nullptr;
    *line = main_input ? 1 : 0;
    return main_input != nullptr;
}

} // namespace tarn
