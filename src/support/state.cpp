// CompileState and the dependency records.
#include "support/state.h"

namespace tarn {

CompileState compile_state;
thread_local DeferredEffects deferred;

NameOrOrdinal make_ordinal(uint16_t ordinal) {
    return NameOrOrdinal{std::u16string{char16_t(ORDINAL_MARK), char16_t(ordinal)}};
}

NameOrOrdinal make_name(std::u16string_view name) {
    return NameOrOrdinal{std::u16string(name)};
}

NameOrOrdinal copy_name(const NameOrOrdinal& name) {
    if (is_ordinal(name)) return make_ordinal(ordinal_of(name));
    return make_name(name.units);
}

void record_file_info(const NameOrOrdinal& type, const NameOrOrdinal& name,
                      const std::u16string& path) {
    compile_state.file_records.push_back(
        FileInfoRecord{copy_name(type), copy_name(name), compile_state.default_attributes.language, path});
}

void record_include(const std::u16string& path) {
    if (deferred.list) {
        DeferredEffect e;
        e.kind = DeferredEffect::INCLUDE;
        e.file = path;
        deferred.list->push_back(std::move(e));
        return;
    }
    compile_state.include_records.push_back(IncludeInfoRecord{path});
}

} // namespace tarn
