// Heap memory with the library's failure policy: running out of memory is a
// fatal diagnostic (platform error 14), never a null pointer. New blocks are
// filled with 0xDD so that reads of unset memory stand out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarn {

void* mem_alloc(size_t size);
void* mem_realloc(void* block, size_t size);
void mem_free(void* block); // null is ignored

char16_t* str_dup(const char16_t* s);
// n units of s, zero-terminated, with `room` free units in front of the copy;
// returns the start of the copy (the block starts `room` units earlier).
char16_t* str_dup_n(const char16_t* s, size_t n, size_t room);

// Copies n units. Runs as short as most tokens are copied here by two
// overlapping moves of one width, which costs less than a call; neither
// move reaches outside either run.
inline void copy_units(char16_t* to, const char16_t* from, size_t n) {
    struct Wide {
        uint64_t a, b;
    };
    auto ends = [&](auto word) {
        size_t tail = 2 * n - sizeof word;
        decltype(word) head, last;
        std::memcpy(&head, from, sizeof head);
        std::memcpy(&last, reinterpret_cast<const char*>(from) + tail, sizeof last);
        std::memcpy(to, &head, sizeof head);
        std::memcpy(reinterpret_cast<char*>(to) + tail, &last, sizeof last);
    };
    if (n > 16)
        std::memcpy(to, from, 2 * n);
    else if (n >= 8)
        ends(Wide{});
    else if (n >= 4)
        ends(uint64_t{});
    else if (n >= 2)
        ends(uint32_t{});
    else if (n == 1)
        *to = *from;
}

} // namespace tarn
