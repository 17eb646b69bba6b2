#include "vorncore/base/mempool.h"

#include <algorithm>

#include "vorncore/base/internal/alloc.h"

using namespace vorncore;

namespace {

uint32_t with_room_for_link(uint32_t size) { return std::max<uint32_t>(size, sizeof(void *)); }

/// Releases blocks from the head of the free list until no more than `limit` are cached.
void trim(xp_mempool *mp, uint32_t limit) {
    const xp_release_fn release = mp->release ? mp->release : free;
    while (mp->cached > limit) {
        void *block = mp->free_list;
        memcpy(&mp->free_list, block, sizeof mp->free_list);
        mp->cached--;
        release(block);
    }
}

} // namespace

void xp_init_mempool(xp_mempool *mp, uint32_t size) {
    *mp = {nullptr, with_room_for_link(size), 0, 0, nullptr, nullptr, -1};
}

xp_mempool *xp_create_mempool(uint32_t size) { return create_record<xp_mempool>(xp_init_mempool, size); }

void xp_close_mempool(xp_mempool *mp) { xpmp_diet(mp); }

void xp_destroy_mempool(xp_mempool *mp) { destroy_record(mp, xp_close_mempool); }

void *xpmp_alloc(xp_mempool *mp) { return xpmp_alloc_inline(mp); }

void xpmp_free(xp_mempool *mp, void *block) { xpmp_free_inline(mp, block); }

void xpmp_diet(xp_mempool *mp) { trim(mp, 0); }

void xpmp_reset(xp_mempool *mp, uint32_t size) {
    xpmp_diet(mp);
    mp->block_size = with_room_for_link(size);
}

void xpmp_set_cache_max(xp_mempool *mp, int limit) {
    if (limit < 0) return;
    mp->cache_max = limit;
    trim(mp, static_cast<uint32_t>(limit));
}

void xpmp_set_memory_manager(xp_mempool *mp, xp_alloc_fn allocate, xp_release_fn release) {
    xpmp_diet(mp);
    mp->allocate = allocate;
    mp->release = release;
}
