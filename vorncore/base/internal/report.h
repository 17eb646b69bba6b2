// Reports through the logging hook: `report(XP_LOGCATE_RWLK, "Invalid %s() call", name)`.
#pragma once

#include "vorncore/base/log.h"

namespace vorncore {

/// A category, and the place in the source that converts it to this type: the reporter's.
struct reporter {
    reporter(const char *tag, const char *from = __builtin_FILE(), int at = __builtin_LINE())
        : category(tag), file(from), line(at) {}
    const char *category;
    const char *file;
    int line;
};

/// Loads the hook now: it may have been replaced since the last report.
template <class... Arguments>
void report(reporter who, const char *format, Arguments... arguments) {
    xp_logfn(xp_logparam, who.category, who.file, who.line, format, arguments...);
}

} // namespace vorncore
