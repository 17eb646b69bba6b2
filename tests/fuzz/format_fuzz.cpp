#include "vorncore/base/format.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <string>

namespace {

constexpr size_t limit = 1 << 18; // bytes of output that are looked at

struct fuzz_target : xp_fmt_target {
    std::string area, output;
};

int32_t collect(xp_fmt_target *target) {
    std::string &output = static_cast<fuzz_target *>(target)->output;
    return output.append(target->begin, target->end).size() < limit;
}

// A text at so low an address that it passes for a width as well: one argument for every directive there is.
const char *low_text() {
    void *page = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (page == MAP_FAILED) abort();
    return strcpy(static_cast<char *>(page) + 16, "a text for every directive");
}

std::string formatted(const char *format, size_t area) {
    static const char *const t = low_text();
    fuzz_target target{{}, std::string(area, '\0'), {}};
    target.begin = target.area.data();
    target.end = target.begin + area;
    target.newbuf = collect;
    const int count = xp_format(&target, format, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t);
    if (count >= 0) target.output.append(target.begin, target.cursor);
    if (count >= 0 ? target.output.size() != static_cast<size_t>(count) : target.output.size() < limit) abort();
    return target.output.substr(0, limit);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // These hold no directives for more than 21 arguments.
    const std::string format(reinterpret_cast<const char *>(data + 1), std::min<size_t>(size - 1, 32));
    if (formatted(format.c_str(), 1 + data[0]) != formatted(format.c_str(), limit)) abort();
    return 0;
}
