// Formatted output to a device that takes bytes, through a fixed area on the caller's stack.
#pragma once

#include "vorncore/base/format.h"

namespace vorncore {

/// A target with `Size` bytes of its own and the device behind them. `full`, its newbuf, hands the whole area to the
/// device and leaves `begin` and `end` as they are.
template <uint32_t Size, class Device>
struct staging : xp_fmt_target {
    static constexpr uint32_t size = Size;

    staging(Device to, int32_t (*full)(xp_fmt_target *)) : device(to) {
        begin = area;
        end = area + Size;
        newbuf = full;
    }

    /// Formats, then hands over what is left: an area that is just full the way of all full areas, part of one through
    /// `rest(*this, length)`. The engine's count, or -1 once the device has refused.
    template <class Rest>
    int format(const char *text, va_list arguments, Rest rest) {
        const int count = xp_vformat(this, text, arguments);
        if (count < 0) return -1;
        if (cursor == end) return newbuf(this) ? count : -1;
        return cursor == begin || rest(*this, static_cast<uint32_t>(cursor - begin)) ? count : -1;
    }

    char area[Size];
    Device device;
};

} // namespace vorncore
