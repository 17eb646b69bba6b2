// Slots of the in-place containers.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "vorncore/base/types.h"

namespace vorncore {

/// Fills a slot as a caller's source asks: by the copy hook, which also gets a null source; without one by copying
/// `size` bytes, and from a null source not at all.
inline void fill_slot(xp_slot_copy_fn copy, char *slot, const void *source, size_t size) {
    if (copy)
        copy(slot, source);
    else if (source && size == sizeof(uint64_t)) // the commonest size, without a call
        memcpy(slot, source, sizeof(uint64_t));
    else if (source)
        memcpy(slot, source, size);
}

} // namespace vorncore
