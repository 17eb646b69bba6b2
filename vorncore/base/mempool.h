/* Memory pool: recycles blocks of one size.
 *
 * A block that is given back is kept on a free list, up to a limit, and handed out again without a visit to the
 * allocator. Blocks in use are the caller's; the pool holds only what is cached.
 *
 *     xp_mempool requests;
 *     xp_init_mempool(&requests, sizeof(request));
 *     request *r = xpmp_alloc(&requests);
 *     ...
 *     xpmp_free(&requests, r);
 *     xp_close_mempool(&requests);
 *
 * Threads: a pool belongs to one thread at a time. */
#ifndef VORNCORE_BASE_MEMPOOL_H
#define VORNCORE_BASE_MEMPOOL_H

#include <stdlib.h>
#include <string.h>

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

/* Gives a block of `size` bytes, null when out of memory. */
typedef void *(*xp_alloc_fn)(size_t size);

typedef struct xp_mempool {
    void *free_list;       /* cached blocks, owned: each begins with the address of the next */
    uint32_t block_size;   /* bytes, at least 8: room for the link */
    uint32_t in_use;       /* blocks handed out and not given back */
    uint32_t cached;       /* blocks on the free list */
    xp_alloc_fn allocate;  /* makes blocks; null: malloc */
    xp_release_fn release; /* destroys blocks; null: free */
    int32_t cache_max;     /* most blocks to cache, compared unsigned: -1, the value at start, is no limit */
} xp_mempool;

/* Blocks of `size` bytes, 8 when that is less. Allocates nothing. */
void xp_init_mempool(xp_mempool *mp, uint32_t size);
/* Null when out of memory. */
xp_mempool *xp_create_mempool(uint32_t size);
/* Release the cached blocks; those in use stay the caller's. */
void xp_close_mempool(xp_mempool *mp);
void xp_destroy_mempool(xp_mempool *mp);

/* The block that was given back last; a new one when none is cached. Its content is undefined. Null when out of memory,
 * and then it is counted as in use all the same: give the null back, as a block. */
void *xpmp_alloc(xp_mempool *mp);
/* Takes a block of this pool: caches it below the limit, releases it otherwise. */
void xpmp_free(xp_mempool *mp, void *block);

/* Releases every cached block. */
void xpmp_diet(xp_mempool *mp);
/* Releases every cached block; blocks made from now on have another size. Give those in use back before. */
void xpmp_reset(xp_mempool *mp, uint32_t size);
/* Sets the limit and releases what is cached beyond it, the block given back last first. A negative limit is ignored.
 */
void xpmp_set_cache_max(xp_mempool *mp, int limit);
/* Releases every cached block, then changes the procedures that make and destroy blocks; null stands for malloc and
 * free. Blocks in use go to the new procedure: give them back before. */
void xpmp_set_memory_manager(xp_mempool *mp, xp_alloc_fn allocate, xp_release_fn release);

/* xpmp_alloc and xpmp_free, compiled into the caller. */
static inline void *xpmp_alloc_inline(xp_mempool *mp) {
    void *block = mp->free_list;
    mp->in_use++;
    if (!block) return mp->allocate ? mp->allocate(mp->block_size) : malloc(mp->block_size);
    memcpy(&mp->free_list, block, sizeof mp->free_list);
    mp->cached--;
    return block;
}
static inline void xpmp_free_inline(xp_mempool *mp, void *block) {
    mp->in_use--;
    if (!block) return;
    if (mp->cached < (uint32_t)mp->cache_max) {
        memcpy(block, &mp->free_list, sizeof mp->free_list);
        mp->free_list = block;
        mp->cached++;
    } else if (mp->release) {
        mp->release(block);
    } else {
        free(block);
    }
}

VORNCORE_END_DECLS

#endif
