#include "vorncore/io/fdlimit.h"

#include <limits.h>
#include <sys/resource.h>

#include <algorithm>

int xp_extend_fdlimit(void) {
    rlimit64 limits{};
    if (getrlimit64(RLIMIT_NOFILE, &limits) == 0) {
        limits.rlim_cur = limits.rlim_max;
        setrlimit64(RLIMIT_NOFILE, &limits);
    }
    return static_cast<int>(std::min<rlim64_t>(limits.rlim_max, INT_MAX));
}

int xp_set_fdlimit(int limit) {
    rlimit64 limits;
    if (limit < 0 || getrlimit64(RLIMIT_NOFILE, &limits) != 0) return 0;
    limits.rlim_cur = static_cast<rlim64_t>(limit);
    return setrlimit64(RLIMIT_NOFILE, &limits) == 0;
}
