// Heap memory with the library's failure policy: a failed allocation is the
// fatal diagnostic 0x800E and never returns a null pointer.
#include "support/memory.h"

#include "support/text.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace tarn {

namespace {

// Reported as the fatal out-of-memory diagnostic where the exports catch
// it: support sits below the reporter.
[[noreturn]] void out_of_memory() {
    throw std::bad_alloc();
}

} // namespace

void* mem_alloc(size_t size) {
    void* block = std::malloc(size ? size : 1);
    if (!block) out_of_memory();
    std::memset(block, 0xDD, size);
    return block;
}

void* mem_realloc(void* block, size_t size) {
    void* moved = std::realloc(block, size ? size : 1);
    if (!moved) out_of_memory();
    return moved;
}

void mem_free(void* block) {
    std::free(block);
}

char16_t* str_dup(const char16_t* s) {
    return str_dup_n(s, str_len(s), 0);
}

char16_t* str_dup_n(const char16_t* s, size_t n, size_t room) {
    auto* block = static_cast<char16_t*>(mem_alloc((room + n + 1) * sizeof(char16_t)));
    char16_t* copy = block + room;
    if (n) std::memcpy(copy, s, n * sizeof(char16_t));
    copy[n] = 0;
    return copy;
}

} // namespace tarn
