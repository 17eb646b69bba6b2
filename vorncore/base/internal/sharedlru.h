// The items of the lock-striped LRU hash: how they come and go among threads.
//
// An item is reached along its bucket, under the bucket's slot, and along the list of all items by last use, under the
// list lock. Its reference count and its valid flag are changed under its item mutex alone. It goes through these
// states:
//
//     live       valid; in its bucket, on the list; one reference is the table's, others those of enumerators
//     evicted    not valid; in its bucket, off the list (`older` is null) and pending, through `newer`, for diet
//     dieted     not valid; out of its bucket (`next` is null), off the list; enumerators alone have references
//     deleted    not valid; out of its bucket, still on the list; enumerators alone have references
//
// Eviction and deletion meet on the valid flag: whoever clears it counts the item off and gives the table's reference
// up, an eviction by way of diet. Nobody takes a reference to an item that is not valid, so a reference count that
// reaches 0 stays there, and whoever brought it there has the item to himself, but for those who pass it on the list.
//
// Order of locks: bucket slot, list lock, item mutex, count mutex.
#pragma once

#include <limits.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/lrulinks.h"
#include "vorncore/base/internal/stripes.h"
#include "vorncore/base/xlruhash.h"

namespace vorncore::shared_lru {

using item = xp_xlruitem;
using links = lru_links<item>;
using lock_row = stripes<xp_lruhash>;

inline constexpr uint32_t write_mark = 0x80000000;
inline constexpr int item_mutex_count = 23;

inline lock_row slots_of(xp_xlruhash *table) {
    return {&table->lru, &table->bucket_lock, table->slot_count, write_mark};
}

/// The one lock of the list, as a row of one slot.
inline lock_row list_of(xp_xlruhash *table) { return {&table->lru, &table->list_lock, 1, 0}; }

/// Has the list to itself for a few steps, as a writer of the list lock. When nobody holds that, keeping its mutex
/// comes to the same for half the price, and others queue at the mutex instead of going to sleep on a condition.
class list_writer {
  public:
    explicit list_writer(xp_xlruhash *table) : lock_(&table->list_lock) {
        pthread_mutex_lock(&lock_->mutex);
        if (!lock_->active_readers[0] && !lock_->active_writers[0]) return;
        pthread_mutex_unlock(&lock_->mutex);
        xprwl_write_lock(lock_, 0);
        held_ = true;
    }
    ~list_writer() { held_ ? xprwl_write_unlock(lock_, 0) : (void)pthread_mutex_unlock(&lock_->mutex); }
    list_writer(const list_writer &) = delete;

  private:
    xp_rwlock *lock_;
    bool held_ = false;
};

/// Holds a mutex for as long as it lives.
class mutex_holder {
  public:
    explicit mutex_holder(pthread_mutex_t *mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
    ~mutex_holder() { pthread_mutex_unlock(mutex_); }
    mutex_holder(const mutex_holder &) = delete;

  private:
    pthread_mutex_t *mutex_;
};

inline pthread_mutex_t *mutex_of(xp_xlruhash *table, const item *i) {
    return table->item_mutexes + i->bucket % item_mutex_count;
}

/// Adds to the live count; returns what it is then.
inline int counted(xp_xlruhash *table, int more) {
    const mutex_holder count(&table->count_mutex);
    return table->live_count += more;
}

/// Takes a reference to an item on the list, under the list lock; false when it is not valid.
inline bool refer(xp_xlruhash *table, item *i) {
    const mutex_holder references(mutex_of(table, i));
    if (!i->valid) return false;
    i->references++;
    return true;
}

/// Takes an item off the list. `list` is how the list lock is held; hold::write is also for those who need no lock.
inline void unlist(xp_xlruhash *table, item *i, hold list) {
    if (list == hold::write) return links::usage::unlink(i);
    list_of(table).leave(list, 0);
    {
        const list_writer alone(table);
        links::usage::unlink(i);
    }
    list_of(table).take(list, 0);
}

/// Gives up a reference. With the last one the item goes: its record is freed, then its key and its value are released.
/// Who does not hold the list lock has deleted the item, which is on the list then; the others may look.
inline void release(xp_xlruhash *table, item *i, hold list) {
    {
        const mutex_holder references(mutex_of(table, i));
        if (--i->references) return;
    }
    if (list == hold::none || i->older) unlist(table, i, list);
    void *const key = i->key, *const value = i->value;
    free(i);
    if (table->lru.key_release) table->lru.key_release(key);
    if (table->lru.value_release) table->lru.value_release(value);
}

/// Puts an item out of sight and counts it off, if it is valid and more than `limit` items are live; if so, the table's
/// reference to it is the caller's to give up. `live` is what the live count is then.
inline bool retire(xp_xlruhash *table, item *i, int limit, int &live) {
    const mutex_holder references(mutex_of(table, i));
    if (!i->valid) return false;
    const mutex_holder count(&table->count_mutex);
    live = table->live_count;
    if (live <= limit) return false;
    __atomic_store_n(&i->valid, 0, __ATOMIC_RELAXED);
    live = --table->live_count;
    return true;
}

inline void leave_bucket(item *i) {
    links::chain::unlink(i);
    i->next = nullptr;
}

/// Deletes an item whose slot is held for writing; false when an eviction was faster.
inline bool del_item(xp_xlruhash *table, item *i, hold list) {
    int live;
    if (!retire(table, i, INT_MIN, live)) return false;
    leave_bucket(i);
    release(table, i, list);
    return true;
}

/// Evicts the items unused longest while there are more live ones than the capacity. Under the list lock.
inline void shrink(xp_xlruhash *table, int live) {
    const int capacity = table->lru.capacity;
    const item *const sentinel = links::sentinel(&table->lru);
    item *run = nullptr, **tail = &run;
    for (item *i = sentinel->newer, *next; i != sentinel && live > capacity; i = next) {
        next = i->newer;
        if (!retire(table, i, capacity, live)) continue; // deleted: goes with its last reference
        links::usage::unlink(i);
        i->older = nullptr;
        *tail = i;
        tail = &i->newer;
    }
    if (!run) return;
    *tail = table->pending;
    __atomic_store_n(&table->pending, run, __ATOMIC_RELAXED);
}

/// A new item; null when memory is short.
inline item *add(xp_xlruhash *table, const sought &k, const void *value) {
    auto *const added = static_cast<item *>(malloc(sizeof(item)));
    if (!added) return nullptr;
    added->references = added->valid = 1;
    links::place(&table->lru, k, value, added);
    const list_writer alone(table);
    links::link_used(&table->lru, added);
    shrink(table, counted(table, 1));
    return added;
}

/// Frees the pending items; `kind` is how the slot of each is taken for that. That nothing is pending is seen without
/// the list lock: what was evicted before the call is not missed.
inline void diet(xp_xlruhash *table, hold kind) {
    if (!__atomic_load_n(&table->pending, __ATOMIC_RELAXED)) return;
    item *pending;
    {
        const list_writer alone(table);
        pending = table->pending;
        __atomic_store_n(&table->pending, nullptr, __ATOMIC_RELAXED);
    }
    const auto slots = slots_of(table);
    while (item *const i = pending) {
        const auto bucket = static_cast<uint32_t>(i->bucket);
        pending = i->newer;
        slots.take(kind, bucket);
        leave_bucket(i);
        release(table, i, hold::write);
        slots.leave(kind, bucket);
    }
}

} // namespace vorncore::shared_lru
