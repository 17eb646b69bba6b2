#include "vorncore/base/lruhash.h"

#include <algorithm>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/lrulinks.h"
#include "vorncore/base/internal/tryinit.h"

using namespace vorncore;

namespace {

using item = xp_lruitem;
using links = lru_links<item>;

item *find(const xp_lruhash *table, const void *key) { return links::find(table, sought_in(table, key)); }

item *used(xp_lruhash *table, item *found) {
    if (found) links::use(table, found);
    return found;
}

/// Runs the hooks on an item and takes it off the table; its memory is the caller's.
void detach(xp_lruhash *table, item *i) {
    if (table->key_release) table->key_release(i->key);
    if (table->value_release) table->value_release(i->value);
    links::usage::unlink(i);
    links::chain::unlink(i);
    table->count--;
}

void drop(xp_lruhash *table, item *i) {
    detach(table, i);
    free(i);
}

/// Makes room for one item. Returns the memory of an item that went for it, null when none had to go.
item *evict(xp_lruhash *table) {
    item *gone = nullptr;
    while (table->count && table->count >= table->capacity) {
        free(gone);
        detach(table, gone = links::sentinel(table)->newer);
    }
    return gone;
}

/// Inserts into the memory given, or into new memory; null when that is short.
item *add(xp_lruhash *table, const sought &k, const void *value, item *memory = nullptr) {
    item *const added = memory ? memory : static_cast<item *>(malloc(sizeof(item)));
    if (!added) return nullptr;
    links::place(table, k, value, added);
    links::link_used(table, added);
    table->count++;
    return added;
}

} // namespace

bool vorncore::try_init_lruhash(xp_lruhash *table, int capacity, int bucket_count, xp_hash_fn hash,
                                xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                                xp_copy_fn value_copy, xp_release_fn value_release) {
    *table = {try_array<xp_lrubucket>(bucket_count),
              0,
              capacity,
              bucket_count,
              {nullptr, nullptr, nullptr, nullptr, -1},
              hash ? hash : xp_rotate_hashf,
              compare ? compare : compare_texts(),
              key_copy,
              key_release,
              value_copy,
              value_release};
    if (!table->buckets) return false;
    links::make_empty(table);
    return true;
}

/// 1 done, 0 refused by the mode, -1 when memory is short.
static int __xplh_put(xp_lruhash *table, const void *key, const void *value, put_mode mode) {
    const sought k = sought_in(table, key);
    return links::put(table, k, value, mode, [&] { return add(table, k, value, evict(table)); });
}

void xp_init_lruhash(xp_lruhash *table, int capacity, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                     xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                     xp_release_fn value_release) {
    if (!try_init_lruhash(table, capacity, bucket_count, hash, compare, key_copy, key_release, value_copy,
                          value_release))
        out_of_memory("xp_init_lruhash", bytes_of<xp_lrubucket>(bucket_count));
}

xp_lruhash *xp_create_lruhash(int capacity, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                              xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                              xp_release_fn value_release) {
    return create_record<xp_lruhash>(try_init_lruhash, capacity, bucket_count, hash, compare, key_copy, key_release,
                                     value_copy, value_release);
}

void xp_close_lruhash(xp_lruhash *table) {
    xplh_clear(table);
    free(table->buckets);
}

void xp_destroy_lruhash(xp_lruhash *table) { destroy_record(table, xp_close_lruhash); }

void xplh_clear(xp_lruhash *table) {
    for (int bucket = 0; table->count && bucket < table->bucket_count; bucket++) {
        const item *const head = links::head(table, static_cast<uint32_t>(bucket));
        while (!links::chain::is_empty(head)) drop(table, head->previous);
    }
}

void xplh_reset(xp_lruhash *table) { xplh_clear(table); }

int xplh_count(const xp_lruhash *table) { return table->count; }

int xplh_put(xp_lruhash *table, const void *key, const void *value) {
    return __xplh_put(table, key, value, put_mode::put) > 0;
}

int xplh_update(xp_lruhash *table, const void *key, const void *value) {
    const int result = __xplh_put(table, key, value, put_mode::update);
    if (result < 0) out_of_memory("xplh_update", sizeof(item));
    return result;
}

int xplh_replace(xp_lruhash *table, const void *key, const void *value) {
    return __xplh_put(table, key, value, put_mode::replace);
}

void xplh_add(xp_lruhash *table, const void *key, const void *value) {
    if (!add(table, sought_in(table, key), value)) out_of_memory("xplh_add", sizeof(item));
}

xp_pair *xplh_new_pair(xp_lruhash *table, const void *key, const void *value, int *inserted) {
    const sought k = sought_in(table, key);
    item *const found = links::find(table, k);
    item *const result = found ? found : add(table, k, value);
    if (inserted) *inserted = !found && result;
    return links::pair_of(result);
}

void *xplh_new(xp_lruhash *table, const void *key, const void *value, int *inserted) {
    xp_pair *const pair = xplh_new_pair(table, key, value, inserted);
    return pair ? pair->value : nullptr;
}

void *xplh_get(xp_lruhash *table, const void *key) {
    const item *const found = used(table, find(table, key));
    return found ? found->value : nullptr;
}

xp_pair *xplh_get_pair(xp_lruhash *table, const void *key) { return links::pair_of(used(table, find(table, key))); }

int xplh_get_all(xp_lruhash *table, const void *key, xp_array *values) {
    return links::all_values(table, sought_in(table, key), values, [=](item *i) { links::use(table, i); });
}

int xplh_get_first(xp_lruhash *table, const void *key, xp_lruhashiter *iterator, void **value) {
    return used(table, links::first(table, sought_in(table, key), iterator, value)) != nullptr;
}

int xplh_get_next(xp_lruhash *table, xp_lruhashiter *iterator, void **value) {
    return used(table, links::next(table, iterator, value)) != nullptr;
}

void *xplh_peek(const xp_lruhash *table, const void *key) {
    const item *const found = find(table, key);
    return found ? found->value : nullptr;
}

xp_pair *xplh_peek_pair(const xp_lruhash *table, const void *key) { return links::pair_of(find(table, key)); }

int xplh_peek_all(const xp_lruhash *table, const void *key, xp_array *values) {
    return links::all_values(table, sought_in(table, key), values, [](item *) {});
}

int xplh_peek_first(const xp_lruhash *table, const void *key, xp_lruhashiter *iterator, void **value) {
    return links::first(table, sought_in(table, key), iterator, value) != nullptr;
}

int xplh_peek_next(const xp_lruhash *table, xp_lruhashiter *iterator, void **value) {
    return links::next(table, iterator, value) != nullptr;
}

int xplh_contains(const xp_lruhash *table, const void *key) { return find(table, key) != nullptr; }

int xplh_del(xp_lruhash *table, const void *key) {
    item *const found = find(table, key);
    if (found) drop(table, found);
    return found != nullptr;
}

int xplh_del_all(xp_lruhash *table, const void *key) {
    return links::each_equal(table, sought_in(table, key), [=](item *i) { return drop(table, i), true; });
}

void xplh_remove_lru(xp_lruhash *table) { drop(table, links::sentinel(table)->newer); }

int xplh_set_capacity(xp_lruhash *table, int limit) {
    const int excess = std::max(table->count - std::max(limit, 0), 0);
    for (int n = excess; n; n--) xplh_remove_lru(table);
    return excess;
}

int xplh_enumerate(xp_lruhash *table, xp_pair_fn callback, void *argument) {
    return xplh_enumerate_ex(table, callback, argument, 0, table->bucket_count);
}

int xplh_enumerate_ex(xp_lruhash *table, xp_pair_fn callback, void *argument, int first, int end) {
    return links::enumerate(table, callback, argument, first, end, no_guard());
}

void xplh_statistic(const xp_lruhash *table, double *mean, double *second) {
    double square_mean;
    links::positions(table, mean, &square_mean, no_guard());
    *second = *mean * *mean * square_mean; // kept: no variance
}

void xplh_rehash(xp_lruhash *table) {
    item *collected = nullptr, **tail = &collected; // through `next`, in the order of an enumeration
    for (int bucket = 0; bucket < table->bucket_count; bucket++) {
        item *const head = links::head(table, static_cast<uint32_t>(bucket));
        for (item *i = head->previous; i != head; i = i->previous) {
            *tail = i;
            tail = &i->next;
        }
        links::chain::make_empty(head);
    }
    *tail = nullptr;
    while (item *const i = collected) {
        collected = i->next;
        links::append(table, sought_in(table, i->key).bucket, i);
    }
}

void xp_init_lruhashenum(xp_lruhashenum *e, xp_lruhash *table) {
    *e = {table, links::sentinel(table), links::sentinel(table)};
}

xp_lruhashenum *xp_create_lruhashenum(xp_lruhash *table) {
    return create_record<xp_lruhashenum>(xp_init_lruhashenum, table);
}

void xp_close_lruhashenum(xp_lruhashenum *) {}

void xp_destroy_lruhashenum(xp_lruhashenum *e) { free(e); }

int xplhe_next(xp_lruhashenum *e) {
    e->current = e->current->newer;
    return e->current != e->sentinel;
}

int xplhe_prev(xp_lruhashenum *e) {
    e->current = e->current->older;
    return e->current != e->sentinel;
}

int xplhe_del(xp_lruhashenum *e) {
    item *const gone = e->current;
    if (gone == e->sentinel) return 0;
    e->current = gone->newer;
    drop(e->table, gone);
    return e->current != e->sentinel;
}
