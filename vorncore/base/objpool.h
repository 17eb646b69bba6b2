/* Object pools: recycle objects that are dear to make.
 *
 * An object that is given back stays constructed and is handed out again; only what is cached beyond a limit is
 * destroyed. Objects are pointers that the caller's procedures make and destroy. Two more procedures, which may be
 * null, are told of every object on its way out and in, new or cached, so that it can be made ready for use and
 * stripped after it.
 *
 *     xp_init_objpool(&connections, connect, disconnect, NULL, rollback);
 *     connection *c = xpop_alloc(&connections);
 *     ...
 *     xpop_free(&connections, c);
 *
 * Null is an object like any other: a `create` that fails counts as in use, and its null goes through `on_alloc`.
 *
 * Threads: an object pool (xpop) belongs to one thread at a time; a locked object pool (xpxop) is shared between any
 * number of them. */
#ifndef VORNCORE_BASE_OBJPOOL_H
#define VORNCORE_BASE_OBJPOOL_H

#include <pthread.h>

#include "vorncore/base/mempool.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_objnode {
    struct xp_objnode *next;
    void *object;
} xp_objnode;

typedef struct xp_objpool {
    xp_objnode *free_list; /* cached objects, owned, the one given back last first */
    uint32_t in_use;       /* objects handed out and not given back */
    uint32_t cached;       /* objects on the free list */
    void *(*create)(void);
    xp_release_fn destroy;
    xp_release_fn on_alloc; /* gets each object that is handed out; may be null */
    xp_release_fn on_free;  /* gets each object that is given back; may be null */
    xp_mempool nodes;       /* of the free list; its limit follows the pool's */
    int32_t cache_max;      /* most objects to cache, compared unsigned: -1, the value at start, is no limit */
} xp_objpool;

/* Allocates nothing. */
void xp_init_objpool(xp_objpool *op, void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                     xp_release_fn on_free);
/* Null when out of memory. */
xp_objpool *xp_create_objpool(void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                              xp_release_fn on_free);
/* Destroy the cached objects; those in use stay the caller's. */
void xp_close_objpool(xp_objpool *op);
void xp_destroy_objpool(xp_objpool *op);

/* The object that was given back last, or a new one; `on_alloc` has been called with it. */
void *xpop_alloc(xp_objpool *op);
/* Takes an object: calls `on_free` with it, then caches it below the limit, destroys it otherwise (also when there is
 * no memory for a node). */
void xpop_free(xp_objpool *op, void *object);
/* Destroys every cached object and releases the memory that held them together. */
void xpop_diet(xp_objpool *op);
/* Sets the limit and destroys what is cached beyond it, the object given back last first. A negative limit is ignored.
 */
void xpop_set_cache_max(xp_objpool *op, int limit);

/* Locked object pool. Alloc and free call the caller's procedures outside the lock, so these may take other locks, use
 * other pools and this one too. Diet, set_cache_max and stat call them under the lock: there they must not come back to
 * the pool.
 * The cache may exceed its limit by a few objects: a thread looks at the count before it locks. */
typedef struct xp_xobjpool {
    xp_objpool pool;
    pthread_mutex_t mutex; /* guards `pool`; `cached` is read and `cache_max` read and set without it too, as atomics */
} xp_xobjpool;

typedef struct xp_objpool_stat {
    uint64_t largest;  /* sizes of cached objects, in the caller's unit; 0 when none is cached */
    uint64_t smallest; /* kept for callers: 0 counts as unset, so a size of 0 is only seen when it comes last */
    uint64_t total;
    uint64_t cached;
    uint64_t in_use;
} xp_objpool_stat;

typedef uint64_t (*xp_sizeof_fn)(void *object, void *argument);

void xp_init_xobjpool(xp_xobjpool *op, void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                      xp_release_fn on_free);
xp_xobjpool *xp_create_xobjpool(void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                                xp_release_fn on_free);
/* No thread may be using the pool any more. */
void xp_close_xobjpool(xp_xobjpool *op);
void xp_destroy_xobjpool(xp_xobjpool *op);
void *xpxop_alloc(xp_xobjpool *op);
void xpxop_free(xp_xobjpool *op, void *object);
void xpxop_diet(xp_xobjpool *op);
void xpxop_set_cache_max(xp_xobjpool *op, int limit);
/* Measures every cached object with size_of(object, argument), the one given back last first. */
void xpxop_stat(xp_xobjpool *op, xp_objpool_stat *stats, xp_sizeof_fn size_of, void *argument);

VORNCORE_END_DECLS

#endif
