// What is formatted does not depend on the areas that it goes through, and ends where no other is given.
#include "tests/fuzz/target.h"

#include <sys/mman.h>

#include "vorncore/base/format.h"

namespace {

// A text at so low an address that it passes for a width as well: one argument for every directive there is.
const char *low_text() {
    void *page = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    require(page != MAP_FAILED);
    return strcpy(static_cast<char *>(page) + 16, "a text for all directives, of forty bytes");
}

/// Areas of one size, one after the other; the byte behind them is watched.
struct areas : xp_fmt_target {
    areas(size_t size, int count) : area(size + 1, '#'), left(count) {
        begin = area.data(), end = begin + size, cursor = nullptr;
        newbuf = [](xp_fmt_target *target) -> int32_t {
            auto *self = static_cast<areas *>(target);
            self->output.append(self->begin, self->end);
            return --self->left > 0;
        };
    }
    int print(const char *format) {
        static const char *const t = low_text();
        const int count = xp_format(this, format, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t);
        require(area.back() == '#' && (cursor != nullptr) == (count >= 0));
        if (cursor) output.append(begin, cursor);
        return count;
    }
    std::string area, output;
    int left;
};

} // namespace

static void check(std::string_view input) {
    if (input.empty()) return;
    const size_t size = 1 + static_cast<unsigned char>(input[0]) % 64;
    const std::string format(input.substr(1, 32)); // it holds no directives for more than 21 arguments
    areas whole(1 << 18, 1), many(size, 1 << 18), few(size, 3);
    const int count = whole.print(format.c_str());
    if (count < 0) return;
    require(many.print(format.c_str()) == count && many.output == whole.output);
    require(count == static_cast<int>(whole.output.size()) && (1 << 18) - many.left == (count - !!count) / int(size));
    require(few.print(format.c_str()) == (whole.output.size() > 3 * size ? -1 : count));
    require(few.output == whole.output.substr(0, 3 * size));
}
