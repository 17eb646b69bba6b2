// The chains are those of the plain table. What is added here is who holds which slot, and when: the calls on one key
// trust the caller, the walks over many buckets take slots through a guard.
#include "vorncore/base/xhashtable.h"

#include <limits.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/hashchain.h"
#include "vorncore/base/internal/stripes.h"
#include "vorncore/base/internal/tryinit.h"

using namespace vorncore;

namespace {

using slots = stripes<xp_hashtable>;

slots slots_of(xp_xhashtable *table) { return {&table->table, &table->lock, table->slot_count, 0}; }

/// Adds to the count; returns what it is then.
int count(xp_xhashtable *table, int more) {
    pthread_mutex_lock(&table->count_mutex);
    const int result = table->table.count += more;
    pthread_mutex_unlock(&table->count_mutex);
    return result;
}

struct shared_items : pointer_pairs<xp_hashtable, xp_hashitem> {
    xp_xhashtable *shared;

    xp_hashitem *allocate() const {
        void *const block = malloc(sizeof(xp_hashitem));
        if (block) count(shared, 1);
        return static_cast<xp_hashitem *>(block);
    }
    void discard(xp_hashitem *i) const {
        free(i);
        count(shared, -1);
    }
};
using chains = hash_chains<shared_items>;

/// The searches change nothing, but what they find may be changed through the result.
chains chains_of(const xp_xhashtable *table) {
    auto *const shared = const_cast<xp_xhashtable *>(table);
    return chains(shared_items{{&shared->table}, shared});
}

xp_hashitem *find(const xp_xhashtable *table, const void *key, int bucket) {
    return chains_of(table).find(sought_in(&table->table, key, bucket));
}

int take(xp_xhashtable *table, hold kind, const void *key) {
    return static_cast<int>(slots_of(table).take_key(kind, key));
}
int take(xp_xhashtable *table, hold kind, int bucket) {
    return static_cast<int>(slots_of(table).take(kind, static_cast<uint32_t>(bucket)));
}
void leave(xp_xhashtable *table, hold kind, int bucket) { slots_of(table).leave(kind, static_cast<uint32_t>(bucket)); }

/// Items of a table that is cleared: they are counted off together, once a bucket.
struct dropped_items : pointer_pairs<xp_hashtable, xp_hashitem> {
    int *dropped;

    void discard(xp_hashitem *i) const {
        free(i);
        ++*dropped;
    }
};

struct clearing_guard : slot_guard<xp_hashtable> {
    xp_xhashtable *shared;
    int *dropped;

    void release() {
        if (*dropped) count(shared, -*dropped);
        *dropped = 0;
        slot_guard::release();
    }
};

/// Holds the slot of one bucket at most, which the enumerator's record names: a walk releases before it takes.
struct enumerator_guard {
    xp_xhashenum *e;

    void take(int bucket) {
        const hold kind = hold_of_enumerator(e->mode);
        if (kind != hold::none) e->locked = ::take(e->table, kind, bucket);
    }
    void release() {
        if (e->locked < 0) return;
        leave(e->table, hold_of_enumerator(e->mode), e->locked);
        e->locked = -1;
    }
};

bool init(xp_xhashtable *table, int slot_count, int lock_mode, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
          xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy, xp_release_fn value_release) {
    if (!try_init_hashtable(&table->table, bucket_count, hash, compare, key_copy, key_release, value_copy,
                            value_release))
        return false;
    if (!try_init_rwlock(&table->lock, slot_count, lock_mode)) {
        xp_close_hashtable(&table->table);
        return false;
    }
    table->slot_count = slot_count;
    table->count_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP; // as that of the lock: held for a moment
    return true;
}

} // namespace

static int __xpxht_put(const char *call, xp_xhashtable *table, const void *key, const void *value, int bucket,
                       put_mode mode) {
    const int result = chains_of(table).put(sought_in(&table->table, key, bucket), value, mode);
    if (result < 0) out_of_memory(call, sizeof(xp_hashitem));
    return result;
}

void xp_init_xhashtable(xp_xhashtable *table, int slot_count, int lock_mode, int bucket_count, xp_hash_fn hash,
                        xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                        xp_release_fn value_release) {
    if (!init(table, slot_count, lock_mode, bucket_count, hash, compare, key_copy, key_release, value_copy,
              value_release))
        out_of_memory("xp_init_xhashtable", bytes_of<xp_hashitem *>(bucket_count));
}

xp_xhashtable *xp_create_xhashtable(int slot_count, int lock_mode, int bucket_count, xp_hash_fn hash,
                                    xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                                    xp_copy_fn value_copy, xp_release_fn value_release) {
    return create_record<xp_xhashtable>(init, slot_count, lock_mode, bucket_count, hash, compare, key_copy, key_release,
                                        value_copy, value_release);
}

void xp_close_xhashtable(xp_xhashtable *table) {
    xp_close_hashtable(&table->table);
    xp_close_rwlock(&table->lock);
    pthread_mutex_destroy(&table->count_mutex);
}

void xp_destroy_xhashtable(xp_xhashtable *table) { destroy_record(table, xp_close_xhashtable); }

int xpxht_read_lock(xp_xhashtable *table, const void *key) { return take(table, hold::read, key); }

int xpxht_write_lock(xp_xhashtable *table, const void *key) { return take(table, hold::write, key); }

void xpxht_read_unlock(xp_xhashtable *table, int bucket) { leave(table, hold::read, bucket); }

void xpxht_write_unlock(xp_xhashtable *table, int bucket) { leave(table, hold::write, bucket); }

int xpxht_read_lock_by_nr(xp_xhashtable *table, int bucket) { return take(table, hold::read, bucket); }

int xpxht_write_lock_by_nr(xp_xhashtable *table, int bucket) { return take(table, hold::write, bucket); }

int xpxht_read_lock_all(xp_xhashtable *table) { return slots_of(table).take_all(hold::read); }

int xpxht_write_lock_all(xp_xhashtable *table) { return slots_of(table).take_all(hold::write); }

int xpxht_read_unlock_all(xp_xhashtable *table) { return slots_of(table).leave_all(hold::read); }

int xpxht_write_unlock_all(xp_xhashtable *table) { return slots_of(table).leave_all(hold::write); }

int xpxht_read_locks(xp_xhashtable *table, const xp_array *keys, xp_array *result) {
    return slots_of(table).take_keys(hold::read, keys, result);
}

int xpxht_write_locks(xp_xhashtable *table, const xp_array *keys, xp_array *result) {
    return slots_of(table).take_keys(hold::write, keys, result);
}

void xpxht_read_unlocks(xp_xhashtable *table, xp_array *result) { slots_of(table).leave_listed(hold::read, result); }

void xpxht_write_unlocks(xp_xhashtable *table, xp_array *result) { slots_of(table).leave_listed(hold::write, result); }

int xpxht_put(xp_xhashtable *table, const void *key, const void *value, int bucket) {
    return chains_of(table).put(sought_in(&table->table, key, bucket), value, put_mode::put) > 0;
}

int xpxht_update(xp_xhashtable *table, const void *key, const void *value, int bucket) {
    return __xpxht_put("xpxht_update", table, key, value, bucket, put_mode::update);
}

int xpxht_replace(xp_xhashtable *table, const void *key, const void *value, int bucket) {
    return __xpxht_put("xpxht_replace", table, key, value, bucket, put_mode::replace);
}

void xpxht_add(xp_xhashtable *table, const void *key, const void *value, int bucket) {
    if (!chains_of(table).add(sought_in(&table->table, key, bucket), value))
        out_of_memory("xpxht_add", sizeof(xp_hashitem));
}

xp_pair *xpxht_new_pair(xp_xhashtable *table, const void *key, const void *value, int *inserted, int bucket) {
    return pair_of(chains_of(table).find_or_add(sought_in(&table->table, key, bucket), value, inserted));
}

void *xpxht_new(xp_xhashtable *table, const void *key, const void *value, int *inserted, int bucket) {
    xp_pair *const pair = xpxht_new_pair(table, key, value, inserted, bucket);
    return pair ? pair->value : nullptr;
}

int xpxht_del(xp_xhashtable *table, const void *key, int bucket) {
    return chains_of(table).del(sought_in(&table->table, key, bucket), 1);
}

int xpxht_del_all(xp_xhashtable *table, const void *key, int bucket) {
    return chains_of(table).del(sought_in(&table->table, key, bucket), INT_MAX);
}

void *xpxht_get(const xp_xhashtable *table, const void *key, int bucket) {
    const xp_hashitem *const found = find(table, key, bucket);
    return found ? found->value : nullptr;
}

xp_pair *xpxht_get_pair(const xp_xhashtable *table, const void *key, int bucket) {
    return pair_of(find(table, key, bucket));
}

int xpxht_contains(const xp_xhashtable *table, const void *key, int bucket) {
    return find(table, key, bucket) != nullptr;
}

int xpxht_get_all(const xp_xhashtable *table, const void *key, xp_array *values, int bucket) {
    return chains_of(table).each_equal(sought_in(&table->table, key, bucket), [=](const xp_hashitem *item) {
        if (values) xpar_add(values, item->value);
    });
}

int xpxht_get_first(const xp_xhashtable *table, const void *key, xp_hashiter *iterator, void **value, int bucket) {
    return step(iterator, key, find(table, key, bucket), value);
}

int xpxht_get_next(const xp_xhashtable *table, xp_hashiter *iterator, void **value) {
    return xpht_get_next(&table->table, iterator, value);
}

int xpxht_count(xp_xhashtable *table) { return count(table, 0); }

void xpxht_clear(xp_xhashtable *table, int lock) {
    if (!xpxht_count(table)) return;
    int dropped = 0;
    hash_chains<dropped_items>({{&table->table}, &dropped})
        .clear(clearing_guard{{slots_of(table), lock == -1 ? hold::none : hold::write}, table, &dropped});
}

void xpxht_reset(xp_xhashtable *table, int lock) { xpxht_clear(table, lock); }

int xpxht_enumerate(xp_xhashtable *table, xp_pair_fn callback, void *argument, int lock_mode) {
    return xpxht_enumerate_ex(table, callback, argument, 0, table->table.bucket_count, lock_mode);
}

int xpxht_enumerate_ex(xp_xhashtable *table, xp_pair_fn callback, void *argument, int first, int end, int lock_mode) {
    return chains_of(table).enumerate(callback, argument, first, end,
                                      slot_guard(slots_of(table), hold_of_walk(lock_mode)));
}

void xpxht_statistic(xp_xhashtable *table, double *mean, double *variance, int lock) {
    chains_of(table).statistic(xpxht_count(table), mean, variance,
                               slot_guard(slots_of(table), lock == -1 ? hold::none : hold::read));
}

void xp_init_xhashenum(xp_xhashenum *e, xp_xhashtable *table, int lock_mode) {
    xp_init_xhashenum_ex(e, table, 0, table->table.bucket_count, lock_mode);
}

void xp_init_xhashenum_ex(xp_xhashenum *e, xp_xhashtable *table, int first, int end, int lock_mode) {
    e->table = table;
    chains_of(table).start(e, first, end);
    e->locked = -1;
    e->mode = lock_mode;
}

xp_xhashenum *xp_create_xhashenum(xp_xhashtable *table, int lock_mode) {
    return xp_create_xhashenum_ex(table, 0, table->table.bucket_count, lock_mode);
}

xp_xhashenum *xp_create_xhashenum_ex(xp_xhashtable *table, int first, int end, int lock_mode) {
    return create_record<xp_xhashenum>(xp_init_xhashenum_ex, table, first, end, lock_mode);
}

void xp_close_xhashenum(xp_xhashenum *e) { enumerator_guard{e}.release(); }

void xp_destroy_xhashenum(xp_xhashenum *e) { destroy_record(e, xp_close_xhashenum); }

int xpxhe_next(xp_xhashenum *e) { return chains_of(e->table).next(e, enumerator_guard{e}); }

int xpxhe_del(xp_xhashenum *e) { return chains_of(e->table).del_current(e, enumerator_guard{e}); }
