/* Circular queue: a ring of pointers of a fixed size, first in, first out.
 *
 *     xp_cirqueue recent;
 *     xp_init_cirqueue(&recent, 100);
 *     void *dropped = xpcq_forced_put(&recent, line);  // keeps the last hundred
 *     if (dropped != line) free(dropped);
 *
 * The queue never owns its items. It allocates when it is made and never again.
 *
 * Threads: a queue belongs to one thread at a time; io/xcirqueue.h is the queue between threads. */
#ifndef VORNCORE_BASE_QUEUE_H
#define VORNCORE_BASE_QUEUE_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_cirqueue {
    void **slots;  /* owned vector of `size` slots */
    uint32_t put;  /* slot that the next item goes to */
    uint32_t get;  /* slot of the oldest item; equal to `put` in a queue that is full or empty, and only then */
    int32_t size;  /* slots in the vector */
    int32_t state; /* 2 empty, 1 full, 0 neither */
} xp_cirqueue;

/* `size` must be positive. */
void xp_init_cirqueue(xp_cirqueue *queue, int size);
/* Null when out of memory. */
xp_cirqueue *xp_create_cirqueue(int size);
/* Items still in the queue are the caller's. */
void xp_close_cirqueue(xp_cirqueue *queue);
void xp_destroy_cirqueue(xp_cirqueue *queue);

/* 1, or 0 when the queue is full. */
int xpcq_put(xp_cirqueue *queue, const void *item);
/* Takes the oldest item out: 1, or 0 when the queue is empty. */
int xpcq_get(xp_cirqueue *queue, void **item);
/* The oldest item without taking it out: 1, or 0 when the queue is empty. */
int xpcq_peek(const xp_cirqueue *queue, void **item);
/* The item at a position, 0 for the oldest, count - 1 for the newest: 1, or 0 when there is none. `item` may be null.
 */
int xpcq_peek_at(const xp_cirqueue *queue, int position, void **item);
/* The number of items. A record that contradicts itself (both indices equal, but neither full nor empty) is reported
 * through the log hook as "Circular Queue is broken.", category "|CQUE|", and the result is -1.
 * Kept for callers: the line reported is always 101. */
int xpcq_count(const xp_cirqueue *queue);
/* Puts an item also into a full queue, which drops its oldest for it. Returns the item that was dropped. Kept for
 * callers: `item` itself when none was dropped, and also when a null one was. */
void *xpcq_forced_put(xp_cirqueue *queue, const void *item);

VORNCORE_END_DECLS

#endif
