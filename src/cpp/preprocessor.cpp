// The preprocessor's life: the state of a just-loaded library, start-up at
// load, one run's set-up and end, definitions from outside, and the location
// that the preprocessor report names.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include "diag/report.h"
#include "support/platform.h"
#include "support/text.h"

namespace tarn {

CppState cpp;

namespace {

constexpr size_t MAIN_ROW_TOKENS = 3;

// Pops what was pushed above `below` on every path out of a scope.
struct SourceScope {
    SourceFile* below;
    ~SourceScope() {
        while (cpp.source && cpp.source != below) popSource();
    }
};

} // namespace

void cpp_reset() {
    close_all_sources();
    freeRow(&cpp.mainRow);
    cpp.~CppState();
    new (&cpp) CppState();
    hideset_start();
}

void cpp_startup() {
    seed_symbols();
    setup_include_dirs();
    build_lexer_table();
    define_from_text(u"RC_INVOKED", 'D');
    define_from_text(u"_WIN32=1", 'D');
}

void close_all_sources() {
    while (cpp.source) popSource();
}

void cpp_run_setup(const char16_t* input) {
    cpp.startTime = time_text(time_now());
    freeRow(&cpp.mainRow);
    makeRow(MAIN_ROW_TOKENS, &cpp.mainRow);
    hideset_start();
    pushSource(cpp.arena.copy(input, str_len(input)), nullptr);
    // A loaded library serves one run; later runs get no text at all.
    if (!cpp.preprocessDone) writeLineMarker();
}

void cpp_run_finish() {
    popSource();
}

void define_from_text(const char16_t* text, int kind) {
    SourceScope scope{cpp.source};
    pushSource(u"<cmdarg>", text);
    ScopedRow row(MAIN_ROW_TOKENS);
    lexLine(&row.row, true);
    defineFromArgument(&row.row, kind);
}

bool pp_location(const char16_t** file, uint32_t* line) {
    for (const SourceFile* s = cpp.source; s; s = s->previous) {
        if (!s->file) continue;
        *file = s->name;
        *line = static_cast<uint32_t>(s->line);
        return true;
    }
    *file = nullptr;
    *line = 0;
    return false;
}

} // namespace tarn
