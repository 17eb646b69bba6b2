#include "vorncore/base/datahash.h"

#include <limits.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/hashchain.h"
#include "vorncore/base/internal/slot.h"

using namespace vorncore;

namespace {

struct items_in_place {
    using item = xp_dataitem;
    static constexpr bool summarised = false;
    xp_datahash *table;

    item *allocate() const {
        void *const block = malloc(saturating_sum(sizeof(item), table->item_size));
        if (block) table->count++;
        return static_cast<item *>(block);
    }
    void discard(item *i) const {
        free(i);
        table->count--;
    }

    bool equal(const sought &k, const item *i) const {
        if (table->compare) return table->compare(k.key, i->data) == 0;
        return table->key_size == 0 || equal_bytes(static_cast<const char *>(k.key), i->data, table->key_size);
    }

    void fill(item *i, const void *key, const void *value) const {
        fill_slot(table->key_copy, i->data, key, table->key_size);
        fill_slot(table->value_copy, value_area(i), value, table->item_size - table->key_size);
    }
    /// Releases before it copies: the old pair and the new one share their areas.
    void overwrite(item *i, const void *key, const void *value) const {
        if (table->key_release) table->key_release(i->data);
        if (table->value_release) table->value_release(value_area(i));
        fill(i, key, value);
    }

    static void *key(item *i) { return i->data; }
    void *value(item *i) const { return value_area(i); }
    xp_pair *pair(item *i, xp_pair *room) const {
        *room = {key(i), value(i)};
        return room;
    }
    char *value_area(item *i) const { return i->data + table->key_size; }
};
using chains = hash_chains<items_in_place>;

/// Items under the default functions whose keys are words: with their size known to the compiler a search is a handful
/// of instructions.
struct items_by_word : items_in_place {
    static constexpr size_t key_size = sizeof(uint64_t);

    static bool fits(const xp_datahash *table) {
        return table->key_size == key_size && !table->hash && !table->compare;
    }
    static bool equal(const sought &k, const item *i) {
        return equal_bytes(static_cast<const char *>(k.key), i->data, key_size);
    }
};

/// The searches change nothing, but what they find may be changed through the result.
chains chains_of(const xp_datahash *table) { return chains(items_in_place{const_cast<xp_datahash *>(table)}); }

[[gnu::always_inline]] inline uint32_t bucket_of(const xp_datahash *table, const void *key, size_t key_size) {
    return reduced(rotate_hash(static_cast<const char *>(key), key_size), table->bucket_count);
}

sought key_in(const xp_datahash *table, const void *key) {
    return {key, table->hash ? table->hash(key, table->bucket_count) : bucket_of(table, key, table->key_size)};
}

template <class Step>
[[gnu::noinline]] auto search_any(const xp_datahash *table, const void *key, Step step) {
    return step(chains_of(table), key_in(table, key));
}

/// Calls step(chains, sought key) for the layout that suits the table.
template <class Step>
[[gnu::always_inline]] inline auto search(const xp_datahash *table, const void *key, Step step) {
    if (!items_by_word::fits(table)) return search_any(table, key, step);
    const items_by_word items{{const_cast<xp_datahash *>(table)}};
    return step(hash_chains(items), sought{key, bucket_of(table, key, items.key_size)});
}

xp_dataitem *find(const xp_datahash *table, const void *key) {
    return search(table, key, [](auto in, const sought &k) { return in.find(k); });
}

int put(xp_datahash *table, const void *key, const void *value, put_mode mode) {
    return search(table, key, [=](auto in, const sought &k) { return in.put(k, value, mode); });
}

void *value_of(const xp_datahash *table, xp_dataitem *item) { return item ? chains_of(table).value(item) : nullptr; }

bool init(xp_datahash *table, uint32_t bucket_count, xp_hash_fn hash, xp_compare_fn compare, uint32_t key_size,
          xp_slot_copy_fn key_copy, xp_release_fn key_release, uint32_t value_size, xp_slot_copy_fn value_copy,
          xp_release_fn value_release) {
    uint32_t item_size;
    if (__builtin_add_overflow(key_size, value_size, &item_size)) return false;
    if (bucket_count > INT_MAX) return false; // walks number the buckets with an int
    auto **buckets = try_zeroed_array<xp_dataitem *>(bucket_count);
    *table = {buckets,     bucket_count, key_size,      item_size, 0,      key_copy,
              key_release, value_copy,   value_release, hash,      compare};
    return buckets;
}

} // namespace

void xp_init_datahash(xp_datahash *table, uint32_t bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                      uint32_t key_size, xp_slot_copy_fn key_copy, xp_release_fn key_release, uint32_t value_size,
                      xp_slot_copy_fn value_copy, xp_release_fn value_release) {
    if (!init(table, bucket_count, hash, compare, key_size, key_copy, key_release, value_size, value_copy,
              value_release))
        out_of_memory("xp_init_datahash", bytes_of<xp_dataitem *>(bucket_count));
}

xp_datahash *xp_create_datahash(uint32_t bucket_count, xp_hash_fn hash, xp_compare_fn compare, uint32_t key_size,
                                xp_slot_copy_fn key_copy, xp_release_fn key_release, uint32_t value_size,
                                xp_slot_copy_fn value_copy, xp_release_fn value_release) {
    return create_record<xp_datahash>(init, bucket_count, hash, compare, key_size, key_copy, key_release, value_size,
                                      value_copy, value_release);
}

void xp_close_datahash(xp_datahash *table) {
    xpdh_clear(table);
    free(table->buckets);
}

void xp_destroy_datahash(xp_datahash *table) { destroy_record(table, xp_close_datahash); }

void xpdh_clear(xp_datahash *table) {
    if (table->count) chains_of(table).clear(no_guard());
}

int xpdh_put(xp_datahash *table, const void *key, const void *value) {
    return put(table, key, value, put_mode::put) > 0;
}

int xpdh_update(xp_datahash *table, const void *key, const void *value) {
    const int result = put(table, key, value, put_mode::update);
    if (result < 0) out_of_memory("xpdh_update", saturating_sum(sizeof(xp_dataitem), table->item_size));
    return result;
}

void *xpdh_new(xp_datahash *table, const void *key, const void *value, int *inserted) {
    return value_of(table,
                    search(table, key, [=](auto in, const sought &k) { return in.find_or_add(k, value, inserted); }));
}

int xpdh_del(xp_datahash *table, const void *key) {
    return search(table, key, [](auto in, const sought &k) { return in.del(k, 1); });
}

void *xpdh_get(const xp_datahash *table, const void *key) { return value_of(table, find(table, key)); }

int xpdh_contains(const xp_datahash *table, const void *key) { return find(table, key) != nullptr; }

int xpdh_get_pair(const xp_datahash *table, const void *key, xp_pair *pair) {
    xp_dataitem *const found = find(table, key);
    if (found) chains_of(table).pair(found, pair);
    return found != nullptr;
}

int xpdh_enumerate(xp_datahash *table, xp_pair_fn callback, void *argument) {
    return xpdh_enumerate_ex(table, callback, argument, 0, INT_MAX);
}

int xpdh_enumerate_ex(xp_datahash *table, xp_pair_fn callback, void *argument, int first, int end) {
    return chains_of(table).enumerate(callback, argument, first, end, no_guard());
}

void xpdh_statistic(const xp_datahash *table, double *mean, double *variance) {
    chains_of(table).statistic(table->count, mean, variance, no_guard());
}

void xp_init_datahashenum(xp_datahashenum *e, xp_datahash *table) { xp_init_datahashenum_ex(e, table, 0, INT_MAX); }

void xp_init_datahashenum_ex(xp_datahashenum *e, xp_datahash *table, int first, int end) {
    e->table = table;
    chains_of(table).start(e, first, end);
}

xp_datahashenum *xp_create_datahashenum(xp_datahash *table) { return xp_create_datahashenum_ex(table, 0, INT_MAX); }

xp_datahashenum *xp_create_datahashenum_ex(xp_datahash *table, int first, int end) {
    return create_record<xp_datahashenum>(xp_init_datahashenum_ex, table, first, end);
}

void xp_close_datahashenum(xp_datahashenum *) {}

void xp_destroy_datahashenum(xp_datahashenum *e) { free(e); }

int xpdhe_next(xp_datahashenum *e) { return chains_of(e->table).next(e, no_guard()); }

int xpdhe_del(xp_datahashenum *e) { return chains_of(e->table).del_current(e, no_guard()); }
