// What the processor can do beyond the x86-64 every program may count on.
#pragma once

#include <atomic>
#include <cpuid.h>

namespace vorncore {

/// AVX2, in the processor and enabled by the system. Asked for with cpuid at the first call, not with
/// __builtin_cpu_supports, which would bring in a load-time constructor.
inline bool has_avx2() {
    enum { unknown, absent, present };
    static std::atomic<int> answer{unknown};
    int known = answer.load(std::memory_order_relaxed);
    if (known == unknown) {
        unsigned a, b, c, d;
        known = absent;
        if (__get_cpuid(1, &a, &b, &c, &d) && c & bit_OSXSAVE) {
            unsigned enabled, high;
            asm("xgetbv" : "=a"(enabled), "=d"(high) : "c"(0));
            const bool saves_ymm = (enabled & 6) == 6;
            if (saves_ymm && __get_cpuid_count(7, 0, &a, &b, &c, &d) && b & bit_AVX2) known = present;
        }
        answer.store(known, std::memory_order_relaxed);
    }
    return known == present;
}

} // namespace vorncore
