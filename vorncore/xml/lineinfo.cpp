#include "vorncore/xml/lineinfo.h"

#include <string.h>

#include <algorithm>

#include "vorncore/base/internal/alloc.h"

namespace {

constexpr int initial_lines = 1024;

using namespace vorncore;

bool add(xp_array *starts, ptrdiff_t offset) {
    return xpar_insert(starts, starts->count, reinterpret_cast<void *>(offset));
}

bool init(xp_lineinfo *info, const char *text) {
    xp_array *const starts = &info->starts;
    *starts = {try_array<void *>(initial_lines), nullptr, nullptr, initial_lines, initial_lines, 0};
    bool done = starts->items && add(starts, 0);
    for (const char *feed = text; done && (feed = strchr(feed, '\n'));) done = add(starts, ++feed - text);
    if (!done) xp_close_array(starts);
    return done;
}

int offset_of(const void *start) { return static_cast<int>(reinterpret_cast<intptr_t>(start)); }

} // namespace

void xp_init_lineinfo(xp_lineinfo *info, const char *text) {
    if (!init(info, text)) out_of_memory("xp_init_lineinfo", bytes_of<void *>(initial_lines));
}

xp_lineinfo *xp_create_lineinfo(const char *text) { return create_record<xp_lineinfo>(init, text); }

void xp_close_lineinfo(xp_lineinfo *info) { xp_close_array(&info->starts); }

void xp_destroy_lineinfo(xp_lineinfo *info) { destroy_record(info, xp_close_lineinfo); }

void xpli_resolve_pos(const xp_lineinfo *info, int offset, int *line, int *column) {
    void *const *const starts = info->starts.items, *const *const end = starts + info->starts.count;
    void *const *const next = // the line behind
        std::upper_bound(starts, end, offset, [](int at, const void *start) { return at < offset_of(start); });
    const int index = static_cast<int>(next - starts);
    const int from = index ? offset_of(starts[index - 1]) : -1;
    // Kept: the last line counts otherwise.
    const bool last = next == end;
    if (line) *line = last ? index - 1 : index;
    if (column) *column = last ? offset - from + 1 : offset - (from + 1);
}
