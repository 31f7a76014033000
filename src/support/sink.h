// A bounded output buffer shared by the text conversions.
#pragma once

#include <cstddef>

namespace tarn {

// Output units of a conversion; with no buffer it only counts. A result
// that did not fit is 0, as the platform's conversion calls give.
template <class T> struct Sink {
    T* out;
    size_t room;
    size_t count = 0;
    bool full = false;
    void put(T u) {
        if (out) {
            if (count < room)
                out[count] = u;
            else
                full = true;
        }
        ++count;
    }
    size_t result() const { return full ? 0 : count; }
};

} // namespace tarn
