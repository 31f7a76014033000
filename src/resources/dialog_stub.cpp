// Temporary stand-ins for the handlers written in the other resource files
// (dialog options, accelerators, dialogs, menus, version information, dialog
// include, icons and cursors), so that the statement loop links before they
// land. Removed when they do.
#include "diag/report.h"
#include "resources/common.h"

namespace tarn {

bool parse_dialog_option(DialogOptions&) {
    return false;
}

namespace {
void not_yet() {
    report(fatal_code(MSG_NOT_IMPLEMENTED));
}
} // namespace

void compile_accelerators(const ScriptToken&) {
    not_yet();
}
void compile_dialog(const ScriptToken&, int) {
    not_yet();
}
void compile_menu(const ScriptToken&, int) {
    not_yet();
}
void compile_versioninfo(const ScriptToken&) {
    not_yet();
}
void compile_dlginclude(const ScriptToken&) {
    not_yet();
}
void compile_icon(const ScriptToken&) {
    not_yet();
}
void compile_cursor(const ScriptToken&) {
    not_yet();
}
void image_counter_reset() {}

} // namespace tarn
