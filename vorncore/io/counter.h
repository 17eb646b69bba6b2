/* Counters that threads share, each under a mutex of its own.
 *
 *     interlocked counter    a number that goes up and down
 *     accumulation counter   a sum and how many numbers went into it, for averages between two moments
 *     reference counter      destroys its object when the last reference is released
 *
 * Records of the first two kinds are embedded (init, close), a reference counter is created and ends by itself.
 *
 * Threads: any number may use a counter at once. Nobody may use it during init and close, or after the release of a
 * reference counter that returned 0. */
#ifndef VORNCORE_IO_COUNTER_H
#define VORNCORE_IO_COUNTER_H

#include <pthread.h>
#include <stdint.h>

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_interlocked_counter {
    pthread_mutex_t mutex; /* held by every change */
    int32_t value;         /* may be read without the mutex: what it was a moment ago */
} xp_interlocked_counter;

/* The value is 0. */
void xp_init_interlocked_counter(xp_interlocked_counter *counter);
void xp_close_interlocked_counter(xp_interlocked_counter *counter);
void xpic_inc(xp_interlocked_counter *counter);
void xpic_dec(xp_interlocked_counter *counter);
void xpic_inc_n(xp_interlocked_counter *counter, int n);
void xpic_set(xp_interlocked_counter *counter, int value);

/* The state of an accumulation counter at one moment: a copy of its first two fields. */
typedef struct xp_acounter_snapshot {
    uint32_t sum;
    uint32_t count;
} xp_acounter_snapshot;

/* Sum and count wrap around; averages hold as long as the differences between two snapshots fit 32 bits. */
typedef struct xp_interlocked_accumulation_counter {
    uint32_t sum;   /* of what was added */
    uint32_t count; /* of additions */
    pthread_mutex_t mutex;
} xp_interlocked_accumulation_counter;

typedef struct xp_average {
    uint32_t average; /* rounded down; 0 when nothing was added */
    uint32_t count;   /* additions between the snapshots */
} xp_average;

/* Sum and count are 0. Returns the counter. */
xp_interlocked_accumulation_counter *
xp_init_interlocked_accumulation_counter(xp_interlocked_accumulation_counter *counter);
void xp_close_interlocked_accumulation_counter(xp_interlocked_accumulation_counter *counter);
void xpiac_add(xp_interlocked_accumulation_counter *counter, uint32_t value);
/* Sum and count become 0. */
void xpiac_reset(xp_interlocked_accumulation_counter *counter);
/* What was added between two snapshots. Returns `result`. */
xp_average *xp_avg_acounter(const xp_acounter_snapshot *earlier, const xp_acounter_snapshot *later, xp_average *result);

typedef struct xp_reference_counter {
    void *object;          /* destroyed by the last release */
    xp_release_fn destroy; /* null: the object is let go as it is */
    xp_interlocked_counter references;
} xp_reference_counter;

/* Takes the object, with one reference, which is the caller's. Null when memory is short: the object stays the
 * caller's. */
xp_reference_counter *xp_create_reference_counter(void *object, xp_release_fn destroy);
/* One more reference. Returns the counter. */
xp_reference_counter *xprc_addref(xp_reference_counter *counter);
/* One reference less; returns how many are left. With the last one the object is destroyed (no mutex is held meanwhile)
 * and the counter freed. */
int xprc_release(xp_reference_counter *counter);

VORNCORE_END_DECLS

#endif
