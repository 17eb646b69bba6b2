/* Reader-writer lock for striping: one object holds a row of independent locks, its slots.
 *
 * A slot is held by any number of readers or by one writer. All slots share one mutex, which is taken only inside the
 * calls, and two conditions: a waiter may be woken on behalf of another slot, and waits on. The mode decides who goes
 * first when readers and writers meet on a slot.
 *
 * A slot has no owner: the thread that unlocks need not be the one that locked, a reader that locks again counts as a
 * second reader, a writer that locks again waits for ever. Slot indices are not checked. Out of memory: create gives
 * null, init ends the process.
 *
 * Threads: any number, for every call but init, close and destroy. */
#ifndef VORNCORE_IO_RWLOCK_H
#define VORNCORE_IO_RWLOCK_H

#include <pthread.h>
#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

enum {
    XP_RWLOCK_NOPREF = 0,       /* readers wait for the writer that holds the slot only: a stream of readers can keep
                                   writers out for ever */
    XP_RWLOCK_WRITER_FIRST = 1, /* new readers wait behind waiting writers too, and a writer that leaves lets waiting
                                   writers go first: a stream of writers can keep readers out for ever */
    XP_RWLOCK_WRITER_CLAIM = 2  /* one writer claims the slot, which holds new readers back, then waits for the present
                                   ones to leave; when it leaves, readers and writers compete */
};

/* One count per slot in each array, guarded by `mutex`. 16 bits: at most 65535 readers or waiters of a kind on a slot.
 */
typedef struct xp_rwlock {
    int32_t mode;              /* a value that is none of the above works as XP_RWLOCK_NOPREF */
    pthread_mutex_t mutex;     /* guards the counts of all slots */
    pthread_cond_t readers;    /* waiting readers of all slots */
    pthread_cond_t writers;    /* waiting writers of all slots */
    uint16_t *active_readers;  /* owned, and with it the three below: one block */
    uint16_t *active_writers;  /* 0 or 1; a claim counts */
    uint16_t *waiting_writers; /* without those that have their claim */
    uint16_t *waiting_readers;
} xp_rwlock;

void xp_init_rwlock(xp_rwlock *lock, int slots, int mode);
xp_rwlock *xp_create_rwlock(int slots, int mode);
/* Nobody may hold or wait for a slot. */
void xp_close_rwlock(xp_rwlock *lock);
void xp_destroy_rwlock(xp_rwlock *lock);

/* Take a slot, shared or alone; they block until it is free. */
void xprwl_read_lock(xp_rwlock *lock, int slot);
void xprwl_write_lock(xp_rwlock *lock, int slot);

/* Leave a slot, and wake whom that lets in. Unlocking a slot that is not held that way changes nothing and is reported
 * through the log hook, category "|RWLK|", as "Invalid xprwl_read_lock() call" (kept: it names the lock) or "Invalid
 * xprwl_write_unlock() call". */
void xprwl_read_unlock(xp_rwlock *lock, int slot);
void xprwl_write_unlock(xp_rwlock *lock, int slot);

VORNCORE_END_DECLS

#endif
