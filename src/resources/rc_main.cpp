// rc_main: the body of one compilation. It announces the code page, sets up
// the run, opens the output, runs the statement loop and at the end of the
// input flushes what was collected and closes the files.
#include "resources/rc_main.h"

#include <vector>

#include "api/state.h"
#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "resfile/writer.h"
#include "script/lexer.h"

namespace tarn {

namespace {

constexpr size_t PREPROCESS_PIECE = 4096;

void copy_preprocessed_to_stdout() {
    std::vector<char16_t> piece(PREPROCESS_PIECE);
    while (size_t n = readPreprocessed(piece.data(), piece.size()))
        console_write(1, std::u16string_view(piece.data(), n));
}

void open_output(const char16_t* output) {
    if (!output) return;
    if (uint32_t e = create_output(output)) report(fatal_system_code(e), output);
    if (uint32_t e = write_leading_entry()) report(fatal_system_code(e));
}

} // namespace

void resources_reset() {}

void rc_main(const char16_t* input, const char16_t* output, bool preprocess_only) {
    if (compile_state.info_callback)
        send_info(format_message(MSG_USING_CODEPAGE, compile_state.code_page));
    cpp_run_setup(input);
    if (preprocess_only) {
        copy_preprocessed_to_stdout();
        cpp_run_finish();
        return;
    }
    open_output(output);

    // End of the script: what follows carries no location.
    script_location.script_file[0] = 0;
    script_location.script_line = 0;
    close_output();
    cpp_run_finish();
}

} // namespace tarn
