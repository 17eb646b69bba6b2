/* The wall clock in the shapes that servers want, and a sleep.
 *
 * All of it follows the system's clock, which may be set back or forth. Local time is that of the process (TZ).
 *
 *     struct timeval start;
 *     xp_mark_time(&start);
 *     ...
 *     log_duration(xp_diff_timel(&start));
 *
 * Threads: any. */
#ifndef VORNCORE_IO_TIMEUTIL_H
#define VORNCORE_IO_TIMEUTIL_H

#include <stdint.h>
#include <sys/time.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Stores the time of now. */
void xp_mark_time(struct timeval *mark);
/* Microseconds since a mark; the 32-bit form wraps around after about 71 minutes. */
uint32_t xp_diff_time(const struct timeval *mark);
uint64_t xp_diff_timel(const struct timeval *mark);

/* Local date and time; any pointer may be null. Years have four digits, months are 1 to 12, days 1 to 31, hours 0 to
 * 23, minutes 0 to 59, seconds 0 to 60. Kept for callers: with a weekday pointer, xp_today stores the weekday (0 is
 * Sunday) through `day` in place of the day, and nothing through `weekday`. */
void xp_today(int *year, int *month, int *day, int *weekday);
void xp_curtime(int *hour, int *minute, int *second);
void xp_now(int *year, int *month, int *day, int *hour, int *minute, int *second);

/* Time since the epoch; the 32-bit forms are its low bits, and wrap around. */
uint32_t xp_time_ms(void);
uint32_t xp_time_us(void);
uint64_t xp_time_msl(void);
uint64_t xp_time_usl(void);

/* Sleeps for that long or until a signal arrives; when negative, until a signal arrives. */
void xp_psleep(int milliseconds);

VORNCORE_END_DECLS

#endif
