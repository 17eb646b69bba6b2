// What the tests of containers share: numbers as items, and a log of what a container lets go.
#pragma once

#include <stdint.h>

#include <vector>

namespace harness {

using numbers = std::vector<intptr_t>;

inline intptr_t number(const void *item) { return reinterpret_cast<intptr_t>(item); }
inline void *item_of(intptr_t n) { return reinterpret_cast<void *>(n); }

/// A copy hook: tells what is kept from what was handed in.
inline void *one_more(const void *item) { return item_of(number(item) + 1); }

inline numbers released; // empty at the start of each test
inline void record_release(void *item) { released.push_back(number(item)); }

} // namespace harness
