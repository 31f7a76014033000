// Load hooks of the shared library: attach on load, detach on unload. Only
// the shared library has them; the static library used by the tests lets
// each test attach and detach itself.
#include "api/lifecycle.h"

#ifdef _WIN32
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) tarn::library_attach(instance);
    if (reason == DLL_PROCESS_DETACH) tarn::library_detach();
    return TRUE;
}
#else
namespace {
__attribute__((constructor)) void on_load() { tarn::library_attach(nullptr); }
__attribute__((destructor)) void on_unload() { tarn::library_detach(); }
} // namespace
#endif
