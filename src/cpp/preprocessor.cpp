// The preprocessor's life: the state of a just-loaded library, start-up at
// load, one run's set-up and end, definitions from outside, and the location
// that the preprocessor report names.
#include "cpp/preprocessor.h"
#include "cpp/state.h"

#include "diag/report.h"
#include "support/platform.h"
#include "support/state.h"
#include "support/text.h"

#include <cstdio>

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

// The latest second that still has a four-digit year (9999-12-31 23:59:59).
constexpr int64_t LAST_EPOCH_SECOND = 253402300799;

// The standard date-and-time text ("Www Mmm dd hh:mm:ss yyyy\n") of a UTC
// time, computed rather than asked of the platform, whose text is local.
std::string utc_time_text(int64_t t) {
    static const char* const WEEKDAYS[] = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
    static const char* const MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    int64_t days = t / 86400, secs = t % 86400;
    // Civil date from days since 1970-01-01, in 400-year eras from March.
    int64_t z = days + 719468, era = z / 146097, doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100), mp = (5 * doy + 2) / 153;
    int64_t day = doy - (153 * mp + 2) / 5 + 1, month = mp < 10 ? mp + 3 : mp - 9;
    int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    char text[64];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d\n", WEEKDAYS[days % 7],
                  MONTHS[month - 1], int(day), int(secs / 3600), int(secs / 60 % 60),
                  int(secs % 60), int(year));
    return text;
}

// The run's time for __DATE__ and __TIME__: the clock's local time, or in the
// extended dialect SOURCE_DATE_EPOCH (UTC) when it is set, so that builds
// can be reproduced.
void start_run_time() {
    cpp.startTime.clear();
    cpp.startClock = time_now();
    std::u16string epoch;
    if (!compile_state.extended || !plat_getenv(u"SOURCE_DATE_EPOCH", &epoch)) return;
    int64_t t = 0;
    bool ok = !epoch.empty() && epoch.size() <= 12;
    for (char16_t c : epoch) {
        ok = ok && c >= u'0' && c <= u'9';
        t = t * 10 + (c - u'0');
    }
    if (ok && t <= LAST_EPOCH_SECOND)
        cpp.startTime = utc_time_text(t);
    else
        report(warning_code(MSG_BAD_SOURCE_DATE_EPOCH), epoch);
}

} // namespace

const std::string& run_time_text() {
    if (cpp.startTime.empty()) cpp.startTime = time_text(cpp.startClock);
    return cpp.startTime;
}

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
    read_ahead_stop();
    while (cpp.source) popSource();
}

void cpp_run_setup(const char16_t* input) {
    start_run_time();
    freeRow(&cpp.mainRow);
    makeRow(MAIN_ROW_TOKENS, &cpp.mainRow);
    hideset_start();
    pushSource(cpp.arena.copy(input, str_len(input)), nullptr);
    // A loaded library serves one run; later runs get no text at all.
    if (!cpp.preprocessDone) writeLineMarker();
}

void cpp_run_finish() {
    read_ahead_stop();
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
