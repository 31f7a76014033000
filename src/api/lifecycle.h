// Loading and unloading of the library. The shared library calls these from
// its load hooks; tests call them to give each case a just-loaded library.
#pragma once

namespace tarn {

void library_attach(void* module_handle);
void library_detach();

} // namespace tarn
