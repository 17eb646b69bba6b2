#include "vorncore/io/timeutil.h"

#include <poll.h>
#include <time.h>

namespace {

timeval wall_clock() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

uint64_t microseconds(const timeval &time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000 + static_cast<uint64_t>(time.tv_usec);
}

tm local_time() {
    const time_t now = wall_clock().tv_sec;
    tm local;
    localtime_r(&now, &local);
    return local;
}

void store(int *where, int value) {
    if (where) *where = value;
}

void store_date(const tm &local, int *year, int *month, int *day) {
    store(year, local.tm_year + 1900);
    store(month, local.tm_mon + 1);
    store(day, local.tm_mday);
}

void store_time(const tm &local, int *hour, int *minute, int *second) {
    store(hour, local.tm_hour);
    store(minute, local.tm_min);
    store(second, local.tm_sec);
}

} // namespace

void xp_mark_time(struct timeval *mark) { *mark = wall_clock(); }

uint32_t xp_diff_time(const struct timeval *mark) { return static_cast<uint32_t>(xp_diff_timel(mark)); }

uint64_t xp_diff_timel(const struct timeval *mark) { return xp_time_usl() - microseconds(*mark); }

void xp_today(int *year, int *month, int *day, int *weekday) {
    const tm local = local_time();
    store_date(local, year, month, day);
    if (weekday) store(day, local.tm_wday); // kept: callers read the weekday there
}

void xp_curtime(int *hour, int *minute, int *second) { store_time(local_time(), hour, minute, second); }

void xp_now(int *year, int *month, int *day, int *hour, int *minute, int *second) {
    const tm local = local_time();
    store_date(local, year, month, day);
    store_time(local, hour, minute, second);
}

uint32_t xp_time_ms(void) { return static_cast<uint32_t>(xp_time_msl()); }
uint32_t xp_time_us(void) { return static_cast<uint32_t>(xp_time_usl()); }
uint64_t xp_time_msl(void) { return xp_time_usl() / 1000; }
uint64_t xp_time_usl(void) { return microseconds(wall_clock()); }

void xp_psleep(int milliseconds) { poll(nullptr, 0, milliseconds); }
