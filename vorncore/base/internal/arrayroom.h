// Arrays whose first vector lies right behind their record: one block for both, where many small arrays are made.
#pragma once

#include <stdint.h>

#include "vorncore/base/array.h"

namespace vorncore {

/// Is put at a multiple of 16. The array is one for every call: when it grows, the items move to a vector from malloc,
/// and closing it frees no more than that. The block itself belongs to whoever made it.
template <int32_t capacity>
struct array_with_room {
    xp_array array;
    void *room[capacity];

    xp_array *init() {
        array = {room, nullptr, nullptr, capacity, capacity, 0};
        return &array;
    }
};

/// Whether the vector is such a room. What malloc gives lies at a multiple of 16, and never there.
inline bool is_in_room(const xp_array *array) {
    return array->items == reinterpret_cast<void *const *>(array + 1) &&
           reinterpret_cast<uintptr_t>(array->items) % 16 != 0;
}

} // namespace vorncore
