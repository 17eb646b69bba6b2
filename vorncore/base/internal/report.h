// Reports through the logging hook: `report(XP_LOGCATE_RWLK)("Invalid %s() call", name)`.
#pragma once

#include "vorncore/base/log.h"

namespace vorncore {

/// Remembers where it was made, so that the hook is told the file and line of the reporter.
class report {
  public:
    explicit report(const char *category, const char *file = __builtin_FILE(), int line = __builtin_LINE())
        : category_(category), file_(file), line_(line) {}

    /// Loads the hook now: it may have been replaced since the last report.
    template <class... Arguments>
    void operator()(const char *format, Arguments... arguments) const {
        xp_logfn(xp_logparam, category_, file_, line_, format, arguments...);
    }

  private:
    const char *category_;
    const char *file_;
    int line_;
};

} // namespace vorncore
