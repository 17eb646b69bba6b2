/* Blocking queue: hands pointers from threads that put to threads that get, first in, first out.
 *
 *     xp_xcirqueue jobs;
 *     xp_init_xcirqueue(&jobs, 64);
 *     void *job;                                                             // each worker:
 *     while (xpxcq_get(&jobs, &job, -1) == XP_XCQ_OK) run(job);
 *     xpxcq_put(&jobs, next_job, 500);                                       // whoever has work
 *     xpxcq_shutdown(&jobs);                                                 // the workers finish what is queued
 *
 * The room is fixed when the queue is made; nothing is allocated later. The queue never owns its items.
 *
 * Time-outs are milliseconds: positive waits that long, by the wall clock and counted from the start of the call; 0
 * does not wait (but see xpxcq_get); negative waits without limit.
 *
 * Threads: any number, for every call but init, close and destroy. */
#ifndef VORNCORE_IO_XCIRQUEUE_H
#define VORNCORE_IO_XCIRQUEUE_H

#include <pthread.h>

#include "vorncore/base/queue.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_xcirqueue {
    pthread_mutex_t mutex;    /* guards `queue` */
    pthread_cond_t not_empty; /* those who get wait here */
    pthread_cond_t not_full;  /* those who put wait here */
    xp_cirqueue queue;        /* the items */
    int32_t shutdown;         /* 0; 1 from xpxcq_shutdown on. Set without the mutex: read it atomically */
} xp_xcirqueue;

/* Results of put and get. */
enum {
    XP_XCQ_OK = 0,         /* an item was put or taken */
    XP_XCQ_WOULDBLOCK = 1, /* full or empty, and the time-out was 0 */
    XP_XCQ_TIMEOUT = 2,    /* full or empty until the time was out */
    XP_XCQ_SHUTDOWN = 3    /* shut down; for a get: and empty */
};

/* `capacity`, at least 1, is the number of items the queue has room for. Out of memory: create gives null, init ends
 * the process. */
void xp_init_xcirqueue(xp_xcirqueue *queue, int capacity);
xp_xcirqueue *xp_create_xcirqueue(int capacity);
/* Nobody may use the queue any more. Items that are still in it are the caller's. */
void xp_close_xcirqueue(xp_xcirqueue *queue);
void xp_destroy_xcirqueue(xp_xcirqueue *queue);

/* Puts an item behind all others. After a shutdown XP_XCQ_SHUTDOWN, even when there is room. */
int xpxcq_put(xp_xcirqueue *queue, const void *item, int timeout);

/* Takes the oldest item. `item` is written only with XP_XCQ_OK.
 *
 * Kept for callers: with time-out 0, XP_XCQ_OK and XP_XCQ_WOULDBLOCK leave the mutex locked, and nobody who waits for
 * room has been woken. The caller ends that with xpxcq_get_end(queue, 1), and may call xpxcq_get_next before. With
 * XP_XCQ_SHUTDOWN the mutex is free. */
int xpxcq_get(xp_xcirqueue *queue, void **item, int timeout);

/* Taking several items at once, so that no other thread's get comes between:
 *
 *     int batch;
 *     if (xpxcq_get_first(&jobs, &job, -1, &batch) == XP_XCQ_OK) {
 *         do collect(job);
 *         while (batch < most && xpxcq_get_next(&jobs, &job, &batch) == XP_XCQ_OK);
 *     }
 *     xpxcq_get_end(&jobs, batch);
 *
 * `batch` counts the items taken. From a get_first that gave XP_XCQ_OK until get_end the mutex is locked: other threads
 * wait, and this one may call nothing but get_next. When get_first fails, `batch` is 0 and the mutex free. With
 * time-out 0 it gives XP_XCQ_WOULDBLOCK for an empty queue, be it shut down or not. */
int xpxcq_get_first(xp_xcirqueue *queue, void **item, int timeout, int *batch);
/* XP_XCQ_OK, or XP_XCQ_WOULDBLOCK when the queue is empty. Does not wait. */
int xpxcq_get_next(xp_xcirqueue *queue, void **item, int *batch);
/* Wakes those who wait for room: one for a batch of 1, all for more. A batch of 0 is over already. */
void xpxcq_get_end(xp_xcirqueue *queue, int batch);

/* For good: wakes everybody; puts fail from now on, gets deliver what is queued and then fail. */
void xpxcq_shutdown(xp_xcirqueue *queue);

VORNCORE_END_DECLS

#endif
