// DLGINCLUDE: the name of the header that belongs to the script's dialogs,
// kept as a resource whose data are the name in the OEM code page.
#include <string>
#include <vector>

#include "diag/report.h"
#include "resources/common.h"
#include "resources/resdata.h"
#include "support/platform.h"

namespace tarn {

namespace {

uint32_t write_dlginclude(const ScriptToken& name, const std::u16string& file) {
    uint32_t n = uint32_t(file.size()) + 1; // the terminator included
    std::vector<char> oem(n, 0);
    if (!plat_from_utf16(plat_oem_code_page(), file.c_str(), n, oem.data(), n))
        return fatal_system_code(ERR_WRITE_FAULT); // also when it needs more than n bytes
    ResData data;
    data.raw(reinterpret_cast<const uint8_t*>(oem.data()), n);
    ResourceAttributes attributes = default_attributes_copy();
    attributes.memory_flags = MEM_MOVEABLE | MEM_PURE | MEM_DISCARDABLE;
    return write_resource(n, attributes, make_ordinal(RT_DLGINCLUDE), name_of(name), data);
}

} // namespace

void compile_dlginclude(const ScriptToken& name) {
    if (is_string(token.kind)) report(write_dlginclude(name, token_string()));
    expect(TK_STRING);
}

} // namespace tarn
