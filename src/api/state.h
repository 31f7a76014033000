// CompileState: the process-wide state of the library. Nothing here is reset
// between compilations; library_attach (lifecycle.h) sets it to the state of
// a just-loaded library.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "resfile/writer.h"
#include "support/platform.h"
#include <tarn/tarn.h>

namespace tarn {

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
    std::atomic<int32_t> abort_requested{0};
    int32_t error_count = 0;
    ResourceAttributes default_attributes;
    FileHandle output_file = nullptr;
    std::vector<FileInfoRecord> file_records;       // oldest first
    std::vector<IncludeInfoRecord> include_records; // oldest first
};

extern CompileState compile_state;

// Appends a FileInfoRecord with the current default language.
void record_file_info(const NameOrOrdinal& type, const NameOrOrdinal& name,
                      const std::u16string& path);
void record_include(const std::u16string& path);

} // namespace tarn
