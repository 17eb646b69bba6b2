#include "vorncore/base/xlruhash.h"

#include "vorncore/base/internal/sharedlru.h"
#include "vorncore/base/internal/tryinit.h"

using namespace vorncore;
using namespace vorncore::shared_lru;

namespace {

/// The key of a call, in the bucket that the caller has locked. It was hashed when he did, and is not again.
sought sought_at(const void *key, uint32_t bucket) { return {key, bucket & ~write_mark}; }

item *find(const xp_xlruhash *table, const void *key, uint32_t bucket) {
    return links::find(&table->lru, sought_at(key, bucket));
}

/// Makes an item the one used last, unless it was evicted meanwhile.
item *used(xp_xlruhash *table, item *found) {
    if (!found) return nullptr;
    const list_writer alone(table);
    if (found->older) links::use(&table->lru, found);
    return found;
}

/// Deletes the newest `limit` equal items; returns how many there were.
int del(xp_xlruhash *table, const void *key, uint32_t bucket, int limit) {
    const auto del_one = [=](item *i) { return del_item(table, i, hold::none); };
    return links::each_equal(&table->lru, sought_at(key, bucket), del_one, limit);
}

/// The guard of a walk with a callback: the slot of a bucket, then the list.
class bucket_and_list_guard {
  public:
    bucket_and_list_guard(xp_xlruhash *table, hold kind)
        : slot_(slots_of(table), kind), list_(list_of(table)), kind_(kind) {}

    void take(int bucket) {
        slot_.take(bucket);
        list_.take(kind_, 0);
    }
    void release() {
        list_.leave(kind_, 0);
        slot_.release();
    }

  private:
    slot_guard<xp_lruhash> slot_;
    lock_row list_;
    hold kind_;
};

bool init(xp_xlruhash *table, int slot_count, int lock_mode, int capacity, int bucket_count, xp_hash_fn hash,
          xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
          xp_release_fn value_release) {
    if (!try_init_lruhash(&table->lru, capacity, bucket_count, hash, compare, key_copy, key_release, value_copy,
                          value_release))
        return false;
    table->item_mutexes = try_array<pthread_mutex_t>(item_mutex_count);
    const bool bucket_lock = table->item_mutexes && try_init_rwlock(&table->bucket_lock, slot_count, lock_mode);
    if (!bucket_lock || !try_init_rwlock(&table->list_lock, 1, lock_mode)) {
        if (bucket_lock) xp_close_rwlock(&table->bucket_lock);
        free(table->item_mutexes);
        free(table->lru.buckets);
        return false;
    }
    for (int i = 0; i < item_mutex_count; i++) pthread_mutex_init(table->item_mutexes + i, nullptr);
    table->count_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP; // as that of the lock: held for a moment
    table->slot_count = slot_count;
    table->live_count = 0;
    table->pending = nullptr;
    return true;
}

/// How an enumerator has the list lock; with none, its user sees to it that he needs none.
hold list_hold(const xp_xlruhashenum *e) { return e->mode ? hold::write : hold::read; }

/// The next valid item toward the one used last, referenced, or the sentinel. An item that was evicted is not on the
/// list any more; those that were unused even longer are not either, so the way leads on from the end of the list.
item *following(const xp_xlruhashenum *e) {
    item *i = (e->current->older ? e->current : e->sentinel)->newer;
    while (i != e->sentinel && !refer(e->table, i)) i = i->newer;
    return i;
}

/// Leaves one bucket for another; -1 is none. The list comes after the slots in the order of locks.
void change_slot(const xp_xlruhashenum *e, int32_t from, int32_t to) {
    const hold kind = hold_of_enumerator(e->mode);
    const auto slots = slots_of(e->table), list = list_of(e->table);
    list.leave(kind, 0);
    if (from >= 0) slots.leave(kind, static_cast<uint32_t>(from));
    if (to >= 0) slots.take(kind, static_cast<uint32_t>(to));
    list.take(kind, 0);
}

void release_current(const xp_xlruhashenum *e, item *current) {
    if (current != e->sentinel) release(e->table, current, list_hold(e));
}

} // namespace

/// 1 done, 0 refused by the mode, -1 when memory is short.
static int __xpxlh_put(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket, put_mode mode) {
    const sought k = sought_at(key, bucket);
    return links::put(&table->lru, k, value, mode, [&] { return add(table, k, value); });
}

void xp_init_xlruhash(xp_xlruhash *table, int slot_count, int lock_mode, int capacity, int bucket_count,
                      xp_hash_fn hash, xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                      xp_copy_fn value_copy, xp_release_fn value_release) {
    if (!init(table, slot_count, lock_mode, capacity, bucket_count, hash, compare, key_copy, key_release, value_copy,
              value_release))
        out_of_memory("xp_init_xlruhash", bytes_of<xp_lrubucket>(bucket_count));
}

xp_xlruhash *xp_create_xlruhash(int slot_count, int lock_mode, int capacity, int bucket_count, xp_hash_fn hash,
                                xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                                xp_copy_fn value_copy, xp_release_fn value_release) {
    return create_record<xp_xlruhash>(init, slot_count, lock_mode, capacity, bucket_count, hash, compare, key_copy,
                                      key_release, value_copy, value_release);
}

void xp_close_xlruhash(xp_xlruhash *table) {
    xpxlh_clear(table, -1);
    free(table->lru.buckets);
    xp_close_rwlock(&table->bucket_lock);
    xp_close_rwlock(&table->list_lock);
    pthread_mutex_destroy(&table->count_mutex);
    for (int i = 0; i < item_mutex_count; i++) pthread_mutex_destroy(table->item_mutexes + i);
    free(table->item_mutexes);
}

void xp_destroy_xlruhash(xp_xlruhash *table) { destroy_record(table, xp_close_xlruhash); }

uint32_t xpxlh_read_lock(xp_xlruhash *table, const void *key) { return slots_of(table).take_key(hold::read, key); }

uint32_t xpxlh_write_lock(xp_xlruhash *table, const void *key) { return slots_of(table).take_key(hold::write, key); }

void xpxlh_read_unlock(xp_xlruhash *table, uint32_t bucket) { slots_of(table).leave(hold::read, bucket); }

void xpxlh_write_unlock(xp_xlruhash *table, uint32_t bucket) { slots_of(table).leave(hold::write, bucket); }

uint32_t xpxlh_read_lock_by_nr(xp_xlruhash *table, uint32_t bucket) { return slots_of(table).take(hold::read, bucket); }

uint32_t xpxlh_write_lock_by_nr(xp_xlruhash *table, uint32_t bucket) {
    return slots_of(table).take(hold::write, bucket);
}

int xpxlh_read_lock_all(xp_xlruhash *table) { return slots_of(table).take_all(hold::read); }

int xpxlh_write_lock_all(xp_xlruhash *table) { return slots_of(table).take_all(hold::write); }

int xpxlh_read_unlock_all(xp_xlruhash *table) { return slots_of(table).leave_all(hold::read); }

int xpxlh_write_unlock_all(xp_xlruhash *table) { return slots_of(table).leave_all(hold::write); }

int xpxlh_read_locks(xp_xlruhash *table, const xp_array *keys, xp_array *result) {
    return slots_of(table).take_keys(hold::read, keys, result);
}

int xpxlh_write_locks(xp_xlruhash *table, const xp_array *keys, xp_array *result) {
    return slots_of(table).take_keys(hold::write, keys, result);
}

void xpxlh_read_unlocks(xp_xlruhash *table, xp_array *result) { slots_of(table).leave_listed(hold::read, result); }

void xpxlh_write_unlocks(xp_xlruhash *table, xp_array *result) { slots_of(table).leave_listed(hold::write, result); }

int xpxlh_put(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket) {
    return __xpxlh_put(table, key, value, bucket, put_mode::put) > 0;
}

int xpxlh_update(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket) {
    const int result = __xpxlh_put(table, key, value, bucket, put_mode::update);
    if (result < 0) out_of_memory("xpxlh_update", sizeof(item));
    return result;
}

int xpxlh_replace(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket) {
    return __xpxlh_put(table, key, value, bucket, put_mode::replace);
}

void xpxlh_add(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket) {
    if (!add(table, sought_at(key, bucket), value)) out_of_memory("xpxlh_add", sizeof(item));
}

xp_pair *xpxlh_new_pair(xp_xlruhash *table, const void *key, const void *value, int *inserted, uint32_t bucket) {
    const sought k = sought_at(key, bucket);
    item *const found = used(table, links::find(&table->lru, k));
    item *const result = found ? found : add(table, k, value);
    if (inserted) *inserted = !found && result;
    return links::pair_of(result);
}

void *xpxlh_new(xp_xlruhash *table, const void *key, const void *value, int *inserted, uint32_t bucket) {
    xp_pair *const pair = xpxlh_new_pair(table, key, value, inserted, bucket);
    return pair ? pair->value : nullptr;
}

void *xpxlh_get(xp_xlruhash *table, const void *key, uint32_t bucket) {
    const item *const found = used(table, find(table, key, bucket));
    return found ? found->value : nullptr;
}

xp_pair *xpxlh_get_pair(xp_xlruhash *table, const void *key, uint32_t bucket) {
    return links::pair_of(used(table, find(table, key, bucket)));
}

int xpxlh_get_all(xp_xlruhash *table, const void *key, xp_array *values, uint32_t bucket) {
    const auto use = [=](item *i) { used(table, i); };
    return links::all_values(&table->lru, sought_at(key, bucket), values, use);
}

int xpxlh_get_first(xp_xlruhash *table, const void *key, xp_xlruhashiter *iterator, void **value, uint32_t bucket) {
    return used(table, links::first(&table->lru, sought_at(key, bucket), iterator, value)) != nullptr;
}

int xpxlh_get_next(xp_xlruhash *table, xp_xlruhashiter *iterator, void **value, uint32_t) {
    return used(table, links::next(&table->lru, iterator, value)) != nullptr;
}

void *xpxlh_peek(xp_xlruhash *table, const void *key, uint32_t bucket) {
    const item *const found = find(table, key, bucket);
    return found ? found->value : nullptr;
}

xp_pair *xpxlh_peek_pair(xp_xlruhash *table, const void *key, uint32_t bucket) {
    return links::pair_of(find(table, key, bucket));
}

int xpxlh_peek_all(xp_xlruhash *table, const void *key, xp_array *values, uint32_t bucket) {
    return links::all_values(&table->lru, sought_at(key, bucket), values, [](item *) {});
}

int xpxlh_peek_first(xp_xlruhash *table, const void *key, xp_xlruhashiter *iterator, void **value, uint32_t bucket) {
    return links::first(&table->lru, sought_at(key, bucket), iterator, value) != nullptr;
}

int xpxlh_peek_next(xp_xlruhash *table, xp_xlruhashiter *iterator, void **value, uint32_t) {
    return links::next(&table->lru, iterator, value) != nullptr;
}

int xpxlh_contains(xp_xlruhash *table, const void *key, uint32_t bucket) { return find(table, key, bucket) != nullptr; }

int xpxlh_del(xp_xlruhash *table, const void *key, uint32_t bucket) { return del(table, key, bucket, 1); }

int xpxlh_del_all(xp_xlruhash *table, const void *key, uint32_t bucket) { return del(table, key, bucket, INT_MAX); }

int xpxlh_count(xp_xlruhash *table) { return counted(table, 0); }

void xpxlh_clear(xp_xlruhash *table, int lock) {
    const hold kind = lock == -1 ? hold::none : hold::write;
    bucket_and_list_guard guard(table, kind);
    for (int bucket = 0; bucket < table->lru.bucket_count; bucket++) {
        guard.take(bucket);
        const item *const head = links::head(&table->lru, static_cast<uint32_t>(bucket));
        for (item *i = head->previous, *next; i != head; i = next) {
            next = i->previous;
            del_item(table, i, hold::write); // those that are pending stay
        }
        guard.release();
    }
    diet(table, kind);
}

void xpxlh_reset(xp_xlruhash *table, int lock) { xpxlh_clear(table, lock); }

void xpxlh_diet(xp_xlruhash *table) { diet(table, hold::write); }

int xpxlh_enumerate(xp_xlruhash *table, xp_pair_fn callback, void *argument, int lock_mode) {
    return xpxlh_enumerate_ex(table, callback, argument, 0, table->lru.bucket_count, lock_mode);
}

int xpxlh_enumerate_ex(xp_xlruhash *table, xp_pair_fn callback, void *argument, int first, int end, int lock_mode) {
    bucket_and_list_guard guard(table, hold_of_walk(lock_mode));
    return links::enumerate(&table->lru, callback, argument, first, end, guard);
}

void xpxlh_statistic(xp_xlruhash *table, double *mean, double *variance, int lock) {
    *mean = *variance = 0;
    if (!xpxlh_count(table)) return;
    const hold kind = lock == -1 ? hold::none : hold::read;
    links::positions(&table->lru, mean, variance, slot_guard(slots_of(table), kind));
    *variance -= *mean * *mean;
}

void xp_init_xlruhashenum(xp_xlruhashenum *e, xp_xlruhash *table, int lock_mode) {
    item *const sentinel = links::sentinel(&table->lru);
    *e = {table, sentinel, sentinel, lock_mode};
    list_of(table).take(hold_of_enumerator(lock_mode), 0);
}

xp_xlruhashenum *xp_create_xlruhashenum(xp_xlruhash *table, int lock_mode) {
    return create_record<xp_xlruhashenum>(xp_init_xlruhashenum, table, lock_mode);
}

void xp_close_xlruhashenum(xp_xlruhashenum *e) {
    const int32_t bucket = e->current->bucket;
    const hold kind = hold_of_enumerator(e->mode);
    release_current(e, e->current);
    list_of(e->table).leave(kind, 0);
    if (bucket >= 0) slots_of(e->table).leave(kind, static_cast<uint32_t>(bucket));
}

void xp_destroy_xlruhashenum(xp_xlruhashenum *e) { destroy_record(e, xp_close_xlruhashenum); }

int xpxlhe_next(xp_xlruhashenum *e) {
    do {
        item *const left = e->current;
        const int32_t bucket = left->bucket;
        e->current = following(e);
        release_current(e, left);
        if (e->current->bucket != bucket) change_slot(e, bucket, e->current->bucket);
    } while (e->current != e->sentinel && !e->current->next);
    return e->current != e->sentinel;
}

int xpxlhe_del(xp_xlruhashenum *e) {
    if (e->current == e->sentinel) return 0;
    del_item(e->table, e->current, list_hold(e));
    return xpxlhe_next(e);
}
