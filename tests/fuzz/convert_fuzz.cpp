// Any text has a value, and the value's own text leads back to it.
#include <stdlib.h>

#include <string>

#include "vorncore/base/convert.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint32_t radix = 2 + data[0] % 61u;
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const uint64_t value = xp_reverse_convertl(text.c_str(), radix);
    char longest[65];
    if (xp_reverse_convertl(xp_convertl(value, longest, sizeof longest, radix), radix) != value) abort();
    return 0;
}
