// Any text has a value, and the value's own text leads back to it; the 32-bit form gives its low half.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "vorncore/base/convert.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const uint32_t radix = 2 + data[0] % 61u;
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const uint64_t value = xp_reverse_convertl(text.c_str(), radix);
    if (xp_reverse_convert(text.c_str(), radix) != static_cast<uint32_t>(value)) abort();

    char buffer[66];
    const char *written = xp_convertl(value, buffer, 1 + data[1] % 66, radix);
    const char *whole = xp_convertl(value, buffer, sizeof buffer, radix);
    if (xp_reverse_convertl(whole, radix) != value) abort();
    if (!written != (strlen(whole) > data[1] % 66u)) abort();
    return 0;
}
