// CompileState: the process-wide state of the library, and the resource
// names and attributes it holds. It sits below every subsystem, which all
// read it; nothing here is reset between compilations, and library_attach
// (api/lifecycle.h) sets it to the state of a just-loaded library.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "support/platform.h"
#include <tarn/tarn.h>

namespace tarn {

// A resource type or name as 16-bit units, as on disk: 0xFFFF then the
// ordinal, or the name (the zero terminator is implied; c_str() supplies it).
constexpr uint16_t ORDINAL_MARK = 0xFFFF;

struct NameOrOrdinal {
    std::u16string units;
};

NameOrOrdinal make_ordinal(uint16_t ordinal);
NameOrOrdinal make_name(std::u16string_view name);
inline bool is_ordinal(const NameOrOrdinal& n) {
    return !n.units.empty() && n.units[0] == ORDINAL_MARK;
}
inline uint16_t ordinal_of(const NameOrOrdinal& n) {
    return n.units.size() > 1 ? n.units[1] : 0;
}
NameOrOrdinal copy_name(const NameOrOrdinal& name);

// The trailing fields of a ResourceHeader, in file order.
struct ResourceAttributes {
    uint32_t data_version = 0;
    uint16_t memory_flags = 0;
    uint16_t language = 0;
    uint32_t version = 0;
    uint32_t characteristics = 0;
};

struct FileInfoRecord {
    NameOrOrdinal type;
    NameOrOrdinal name;
    uint16_t language = 0; // default language when recorded, not the resource's
    std::u16string path;
};

struct IncludeInfoRecord {
    std::u16string path;
};

constexpr uint16_t DEFAULT_LANGUAGE = 0x0409;

struct CompileState {
    void* module_handle = nullptr;
    uint32_t code_page = 0;
    tarn_error_callback error_callback = nullptr;
    uint32_t collect_dependencies = 0;
    tarn_info_callback info_callback = nullptr;
    int32_t null_append = 0;
    bool extended = false; // the modern dialect, set_extended_mode
    std::atomic<int32_t> abort_requested{0};
    int32_t error_count = 0;
    ResourceAttributes default_attributes;
    FileHandle output_file = nullptr;
    std::vector<FileInfoRecord> file_records;       // oldest first
    std::vector<IncludeInfoRecord> include_records; // oldest first
};

extern CompileState compile_state;

// What a preprocessor reading ahead on a thread of its own would have told
// the host: a report, or an include record. It keeps them with the text
// they came with, and the main thread delivers them when the script takes
// that text, so that a host sees the same calls, in the same order and on
// the same thread, as from a preprocessor that runs only when asked.
struct DeferredEffect {
    enum Kind : uint8_t { REPORT, SCRIPT_REPORT, INCLUDE };
    Kind kind = REPORT;
    uint32_t code = 0;
    bool has_file = false;
    std::u16string file; // where a REPORT points; the path an INCLUDE records
    uint32_t line = 0;
    std::u16string text; // a report's text (empty without an error callback)
    const char16_t* file_or_null() const { return has_file ? file.c_str() : nullptr; }
};

// The read-ahead thread's keeping; empty (list null) on every other thread.
// `reported` counts the reports it has seen: those made before it started
// and its own.
struct DeferredEffects {
    std::vector<DeferredEffect>* list = nullptr;
    uint32_t reported = 0;
};
extern thread_local DeferredEffects deferred;

// Thrown where a long operation (a file read or write) finds a stop
// requested, so that one huge statement stops as soon as a small one; the
// export takes it like a fatal diagnostic.
struct AbortUnwind {};
inline void poll_abort() {
    if (compile_state.abort_requested.load(std::memory_order_relaxed)) throw AbortUnwind{};
}

// Appends a FileInfoRecord with the current default language.
void record_file_info(const NameOrOrdinal& type, const NameOrOrdinal& name,
                      const std::u16string& path);
void record_include(const std::u16string& path);

} // namespace tarn
