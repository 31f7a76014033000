// Process attach and detach: the one place that sets every subsystem's state
// to that of a just-loaded library.
#include "api/lifecycle.h"

#include "support/state.h"
#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "resfile/writer.h"
#include "resources/rc_main.h"
#include "script/lexer.h"

namespace tarn {

namespace {

void compile_state_reset(void* module_handle) {
    CompileState& s = compile_state;
    s.module_handle = module_handle;
    s.code_page = 0;
    s.error_callback = nullptr;
    s.collect_dependencies = 0;
    s.info_callback = nullptr;
    s.null_append = 0;
    s.extended = false;
    s.abort_requested.store(0);
    s.error_count = 0;
    s.default_attributes = ResourceAttributes{};
    s.default_attributes.language = DEFAULT_LANGUAGE;
    s.output_file = nullptr;
    s.file_records.clear();
    s.include_records.clear();
}

} // namespace

void library_attach(void* module_handle) {
    // A fatal report during start-up cannot happen by design; should one
    // occur anyway, it must not leave the load hook.
    try {
        compile_state_reset(module_handle);
        diag_reset();
        script_reset(); // also empties the lexer's push-back buffer
        resources_reset();
        cpp_reset();
        compile_state.code_page = plat_ansi_code_page();
        cpp_startup();
    } catch (...) {
    }
}

void library_detach() {
    try {
        discard_output(); // a compile cut short by the unload keeps nothing
        close_all_sources();
    } catch (...) {
    }
}

} // namespace tarn
