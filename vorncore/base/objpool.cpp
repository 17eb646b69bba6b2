// Both pools run the same steps on an xp_objpool; the locked one adds its mutex around them. Its free looks at two
// fields before it locks, so these are stored as atomics everywhere, which costs the unlocked pool nothing.
#include "vorncore/base/objpool.h"

#include <algorithm>

#include "vorncore/base/internal/alloc.h"

using namespace vorncore;

namespace {

void set_cached(xp_objpool *op, uint32_t count) { __atomic_store_n(&op->cached, count, __ATOMIC_RELAXED); }

void set_limit(xp_objpool *op, int limit) { __atomic_store_n(&op->cache_max, limit, __ATOMIC_RELAXED); }

bool may_cache(const xp_objpool *op) {
    return __atomic_load_n(&op->cached, __ATOMIC_RELAXED) <
           static_cast<uint32_t>(__atomic_load_n(&op->cache_max, __ATOMIC_RELAXED));
}

/// Takes the first object off the free list, which must not be empty.
void *take_cached(xp_objpool *op) {
    xp_objnode *node = op->free_list;
    void *object = node->object;
    op->free_list = node->next;
    set_cached(op, op->cached - 1);
    xpmp_free_inline(&op->nodes, node);
    return object;
}

/// False when there is no memory for a node.
bool cache(xp_objpool *op, void *object) {
    auto *node = static_cast<xp_objnode *>(xpmp_alloc_inline(&op->nodes));
    if (!node) {
        xpmp_free_inline(&op->nodes, nullptr); // takes it off the count
        return false;
    }
    *node = {op->free_list, object};
    op->free_list = node;
    set_cached(op, op->cached + 1);
    return true;
}

void trim(xp_objpool *op, uint32_t limit) {
    while (op->cached > limit) op->destroy(take_cached(op));
}

void *hand_out(const xp_objpool *op, void *object) {
    if (op->on_alloc) op->on_alloc(object);
    return object;
}

void take_back(const xp_objpool *op, void *object) {
    if (op->on_free) op->on_free(object);
}

} // namespace

void xp_init_objpool(xp_objpool *op, void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                     xp_release_fn on_free) {
    *op = {nullptr, 0, 0, create, destroy, on_alloc, on_free, {}, -1};
    xp_init_mempool(&op->nodes, sizeof(xp_objnode));
}

xp_objpool *xp_create_objpool(void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                              xp_release_fn on_free) {
    return create_record<xp_objpool>(xp_init_objpool, create, destroy, on_alloc, on_free);
}

void xp_close_objpool(xp_objpool *op) {
    xpop_diet(op);
    xp_close_mempool(&op->nodes);
}

void xp_destroy_objpool(xp_objpool *op) { destroy_record(op, xp_close_objpool); }

void *xpop_alloc(xp_objpool *op) {
    op->in_use++;
    return hand_out(op, op->free_list ? take_cached(op) : op->create());
}

void xpop_free(xp_objpool *op, void *object) {
    take_back(op, object);
    if (!may_cache(op) || !cache(op, object)) op->destroy(object);
    op->in_use--;
}

void xpop_diet(xp_objpool *op) {
    trim(op, 0);
    xpmp_diet(&op->nodes);
}

void xpop_set_cache_max(xp_objpool *op, int limit) {
    if (limit < 0) return;
    set_limit(op, limit);
    trim(op, static_cast<uint32_t>(limit));
    xpmp_set_cache_max(&op->nodes, limit);
}

void xp_init_xobjpool(xp_xobjpool *op, void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                      xp_release_fn on_free) {
    xp_init_objpool(&op->pool, create, destroy, on_alloc, on_free);
    pthread_mutex_init(&op->mutex, nullptr);
}

xp_xobjpool *xp_create_xobjpool(void *(*create)(void), xp_release_fn destroy, xp_release_fn on_alloc,
                                xp_release_fn on_free) {
    return create_record<xp_xobjpool>(xp_init_xobjpool, create, destroy, on_alloc, on_free);
}

void xp_close_xobjpool(xp_xobjpool *op) {
    xp_close_objpool(&op->pool);
    pthread_mutex_destroy(&op->mutex);
}

void xp_destroy_xobjpool(xp_xobjpool *op) { destroy_record(op, xp_close_xobjpool); }

void *xpxop_alloc(xp_xobjpool *op) {
    xp_objpool *pool = &op->pool;
    pthread_mutex_lock(&op->mutex);
    pool->in_use++;
    const bool was_cached = pool->free_list;
    void *object = was_cached ? take_cached(pool) : nullptr;
    pthread_mutex_unlock(&op->mutex);
    return hand_out(pool, was_cached ? object : pool->create());
}

void xpxop_free(xp_xobjpool *op, void *object) {
    xp_objpool *pool = &op->pool;
    take_back(pool, object);
    const bool room = may_cache(pool);
    if (!room) pool->destroy(object);
    pthread_mutex_lock(&op->mutex);
    const bool gone = !room || cache(pool, object);
    pool->in_use--;
    pthread_mutex_unlock(&op->mutex);
    if (!gone) pool->destroy(object);
}

void xpxop_diet(xp_xobjpool *op) {
    pthread_mutex_lock(&op->mutex);
    xpop_diet(&op->pool);
    pthread_mutex_unlock(&op->mutex);
}

void xpxop_set_cache_max(xp_xobjpool *op, int limit) {
    if (limit < 0) return;
    set_limit(&op->pool, limit); // before the lock: threads that free now cache no more than that
    pthread_mutex_lock(&op->mutex);
    xpop_set_cache_max(&op->pool, limit);
    pthread_mutex_unlock(&op->mutex);
}

void xpxop_stat(xp_xobjpool *op, xp_objpool_stat *stats, xp_sizeof_fn size_of, void *argument) {
    *stats = {};
    pthread_mutex_lock(&op->mutex);
    for (const xp_objnode *node = op->pool.free_list; node; node = node->next) {
        const uint64_t size = size_of(node->object, argument);
        stats->largest = std::max(stats->largest, size);
        if (stats->smallest == 0 || size < stats->smallest) stats->smallest = size; // kept: 0 stands for unset
        stats->total += size;
    }
    stats->cached = op->pool.cached;
    stats->in_use = op->pool.in_use;
    pthread_mutex_unlock(&op->mutex);
}
