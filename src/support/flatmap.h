// A map from nonzero integer keys to small values, open-addressed: a key
// and a value a slot, at most half of the slots used, where a node-based
// map takes a node and a bucket for every entry. For tables that grow with
// the script (a string block, a written resource each).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn {

template <class Key, class Value> struct FlatMap {
    std::vector<Key> keys; // 0: a free slot
    std::vector<Value> values;
    size_t count = 0;

    // The key's value, or null.
    Value* find(Key key) {
        if (keys.empty()) return nullptr;
        size_t i = slot(key);
        return keys[i] ? &values[i] : nullptr;
    }
    // Adds a key that is not there yet.
    Value& insert(Key key, const Value& value) {
        if (2 * (count + 1) > keys.size()) grow();
        size_t i = slot(key);
        keys[i] = key;
        values[i] = value;
        count += 1;
        return values[i];
    }

  private:
    // The key's slot, or the free one where it would go.
    size_t slot(Key key) const {
        size_t mask = keys.size() - 1;
        size_t i = (uint64_t(key) * 0x9E3779B97F4A7C15u >> 32) & mask;
        while (keys[i] && keys[i] != key) i = (i + 1) & mask;
        return i;
    }
    void grow() {
        std::vector<Key> old_keys = std::move(keys);
        std::vector<Value> old_values = std::move(values);
        keys.assign(std::max<size_t>(64, 2 * old_keys.size()), Key{});
        values.assign(keys.size(), Value{});
        for (size_t i = 0; i < old_keys.size(); ++i)
            if (old_keys[i]) {
                size_t at = slot(old_keys[i]);
                keys[at] = old_keys[i];
                values[at] = old_values[i];
            }
    }
};

} // namespace tarn
