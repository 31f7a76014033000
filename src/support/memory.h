// Heap memory with the library's failure policy: running out of memory is a
// fatal diagnostic (platform error 14), never a null pointer. New blocks are
// filled with 0xDD so that reads of unset memory stand out.
#pragma once

#include <cstddef>

namespace tarn {

void* mem_alloc(size_t size);
void* mem_realloc(void* block, size_t size);
void mem_free(void* block); // null is ignored

char16_t* str_dup(const char16_t* s);
// n units of s, zero-terminated, with `room` free units in front of the copy;
// returns the start of the copy (the block starts `room` units earlier).
char16_t* str_dup_n(const char16_t* s, size_t n, size_t room);

} // namespace tarn
