// Fuzz target: one whole compilation per input, from a just-loaded library.
// Beyond the sanitizers it checks what a host relies on (compile_checked):
// the result is 1 exactly when no error was reported; a failed compilation
// leaves no output file; a successful one leaves a well-framed .res file.
#include "fuzz_common.h"

using namespace tarn_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return -1; // long inputs only slow the search down
    fresh_library();
    write_input(data, size);
    compile_checked();
    return 0;
}
