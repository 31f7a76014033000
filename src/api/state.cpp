// CompileState and the dependency records.
#include "api/state.h"

namespace tarn {

CompileState compile_state;

void record_file_info(const NameOrOrdinal& type, const NameOrOrdinal& name,
                      const std::u16string& path) {
    compile_state.file_records.push_back(
        FileInfoRecord{copy_name(type), copy_name(name), compile_state.default_attributes.language, path});
}

void record_include(const std::u16string& path) {
    compile_state.include_records.push_back(IncludeInfoRecord{path});
}

} // namespace tarn
