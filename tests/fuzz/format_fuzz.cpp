// What is formatted does not depend on the areas that it goes through.
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <string>

#include "vorncore/base/membuf.h"

namespace {

// A text at so low an address that it passes for a width as well: one argument for every directive there is.
const char *low_text() {
    void *page = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (page == MAP_FAILED) abort();
    return strcpy(static_cast<char *>(page) + 16, "a text for every directive");
}

std::string formatted(const char *format, uint32_t area) {
    static const char *const t = low_text();
    xp_membuf mb;
    xp_init_membuf(&mb, area);
    xpmb_set_maxlength(&mb, 1 << 18);
    const int count = xpmb_printf(&mb, format, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t);
    const std::string output(mb.data, mb.cursor);
    xp_close_membuf(&mb);
    if (count != (count < 0 ? -1 : static_cast<int>(output.size()))) abort();
    return count < 0 ? "refused" : "done " + output;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // These hold no directives for more than 21 arguments.
    const std::string format(reinterpret_cast<const char *>(data + 1), std::min<size_t>(size - 1, 32));
    if (formatted(format.c_str(), 1 + data[0]) != formatted(format.c_str(), 1 << 18)) abort();
    return 0;
}
