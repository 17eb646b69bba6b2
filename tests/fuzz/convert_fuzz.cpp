// Any text has a value in every radix, and the value's own text leads back to it. Up to radix 36 strtoull is the
// oracle, which takes letters in either case.
#include "tests/fuzz/target.h"
#include "vorncore/base/convert.h"

static void check(std::string_view input) {
    const std::string text(input);
    for (uint32_t radix = 2; radix <= 62; radix++) {
        const uint64_t value = xp_reverse_convertl(text.c_str(), radix);
        const auto low = static_cast<uint32_t>(value);
        char buffer[65];
        const char *own = xp_convertl(value, buffer, sizeof buffer, radix);
        require(xp_reverse_convertl(own, radix) == value && xp_reverse_convert(own, radix) == low);
        require(radix > 36 || strtoull(own, nullptr, static_cast<int>(radix)) == value);

        const std::string expected(own = xp_convert(low, buffer, sizeof buffer, radix));
        require(xp_reverse_convertl(own, radix) == low);
        const int fits = static_cast<int>(expected.size()) + 1;
        for (int size = -1; size <= fits + 3; size++) {
            std::string exact(static_cast<size_t>(std::max(size, 0)), '#');
            const char *const plain = xp_convert_ex(low, exact.data(), size, radix, xp_conv62_map);
            require(plain == (size < fits ? nullptr : exact.data() + size - fits) && (!plain || plain == expected));
            const char *const filled = xp_convert(low, exact.data(), size, XP_CONVERT_PAD('\xFE') | radix);
            require(filled == (size < fits ? nullptr : exact.data()));
            require(!filled || filled == std::string(static_cast<size_t>(size - fits), '\xFE') + expected);
        }
    }
}
