// The exported C interface. Every export that can reach a diagnostic runs its
// body inside the fatal-error return point (`guarded`): a fatal report throws
// FatalUnwind, which ends here, counted as one more error. Nothing escapes an
// export.
#include <tarn/tarn.h>

#include <new>

#include "support/state.h"
#include "cpp/preprocessor.h"
#include "diag/report.h"
#include "resfile/writer.h"
#include "resources/rc_main.h"
#include "support/files.h"

using namespace tarn;

namespace {

constexpr int LETTER_DEFINE = 'D';
constexpr int LETTER_UNDEFINE = 'U';

// A report made while unwinding must not unwind again.
void report_quietly(DiagnosticCode code, const char16_t* insert) {
    try {
        report(code, insert);
    } catch (...) {
    }
}

// Runs body; a fatal diagnostic (or anything else thrown) counts one error.
template <class Body> void guarded(Body body) {
    try {
        body();
        return;
    } catch (const FatalUnwind&) {
    } catch (const AbortUnwind&) { // a stop requested by the host: no message of its own
    } catch (const std::bad_alloc&) {
        report_quietly(FATAL_OUT_OF_MEMORY, u"");
    } catch (...) {
        report_quietly(fatal_code(MSG_INTERNAL_ERROR), u"unexpected exception");
    }
    compile_state.error_count += 1;
}

// The clean-up of a failed run: nothing partial is left behind. The writer
// works on a file of its own, which goes; of the named output only the plain
// file this compile held goes: not a script or header named as the output,
// not a device, not a file some other compile is writing.
void clean_up_failed_run() {
    try {
        discard_output();
        close_all_sources();
    } catch (...) {
    }
}

int32_t run(const char16_t* input, const char16_t* output, bool preprocess_only) {
    guarded([&] {
        if (!input) report(fatal_code(MSG_FILE_NOT_FOUND), u"");
        rc_main(input, output, preprocess_only);
        // A stop that came after the last statement still stops: the caller
        // was told nothing would be kept.
        poll_abort();
        if (compile_state.error_count == 0 && output)
            if (uint32_t e = commit_output()) report(fatal_system_code(e), output);
    });
    if (compile_state.error_count == 0) return 1;
    clean_up_failed_run();
    return 0;
}

} // namespace

extern "C" {

TARN_API void set_error_function_w(tarn_error_callback callback, uint32_t collect_dependencies) {
    compile_state.error_callback = callback;
    compile_state.collect_dependencies = collect_dependencies;
}

TARN_API void set_information_function_w(tarn_info_callback callback) {
    compile_state.info_callback = callback;
}

TARN_API int32_t set_codepage(uint32_t code_page) {
    if (!plat_valid_code_page(code_page)) return 0;
    compile_state.code_page = code_page;
    return 1;
}

TARN_API int32_t set_language(uint16_t language) {
    compile_state.default_attributes.language = language;
    return 1;
}

TARN_API void set_null_append_for_strings(void) { compile_state.null_append = 1; }

TARN_API void add_include_path_w(const char16_t* path) {
    if (path) guarded([&] { add_include_path(path); });
}

TARN_API void delete_standard_include_paths(void) {
    guarded([] { delete_standard_include_dirs(); });
}

TARN_API void define_symbol_w(const char16_t* definition) {
    if (definition) guarded([&] { define_from_text(definition, LETTER_DEFINE); });
}

TARN_API void undefine_symbol_w(const char16_t* name) {
    if (name) guarded([&] { define_from_text(name, LETTER_UNDEFINE); });
}

TARN_API int32_t compile_script_w(const char16_t* input, const char16_t* output) {
    return run(input, output, false);
}

TARN_API int32_t preprocess_script_w(const char16_t* input) { return run(input, nullptr, true); }

TARN_API int32_t enum_file_info_w(tarn_file_info_callback callback, uint64_t context) {
    for (const FileInfoRecord& r : compile_state.file_records) {
        if (!callback) return 0;
        if (!callback(r.type.units.c_str(), r.name.units.c_str(), r.language, r.path.c_str(),
                      context))
            return 0;
    }
    return 1;
}

TARN_API int32_t enum_include_info_w(tarn_include_info_callback callback, uint64_t context) {
    for (const IncludeInfoRecord& r : compile_state.include_records) {
        if (!callback) return 0;
        if (!callback(r.path.c_str(), context)) return 0;
    }
    return 1;
}

TARN_API void set_abort_flag(void) { compile_state.abort_requested.store(1); }

TARN_API void set_extended_mode(void) { compile_state.extended = true; }

} // extern "C"
