// LRU tables: the two rings that every item is on, its bucket's, oldest item first, and the table's, by last use; and
// the walks through buckets, newest item first, that the plain and the lock-striped table share.
#pragma once

#include <limits.h>
#include <stdlib.h>

#include <algorithm>

#include "vorncore/base/internal/keypairs.h"
#include "vorncore/base/internal/ring.h"
#include "vorncore/base/lruhash.h"

namespace vorncore {

/// Item is xp_lruitem, or begins with the same members. One that has a `valid` flag is shared between threads, and
/// searches pass it by once another thread has cleared the flag.
template <class Item>
struct lru_links {
    static constexpr bool shared = requires(Item i) { i.valid; };
    using chain = ring<Item, &Item::next, &Item::previous, shared>;
    using usage = ring<Item, &Item::older, &Item::newer>; // from the sentinel: the item used last comes first

    static Item *head(const xp_lruhash *table, uint32_t bucket) { return as_node<Item>(table->buckets + bucket); }
    static Item *sentinel(xp_lruhash *table) { return as_node<Item>(&table->recency); }

    static void make_empty(xp_lruhash *table) {
        for (int bucket = 0; bucket < table->bucket_count; bucket++)
            chain::make_empty(head(table, static_cast<uint32_t>(bucket)));
        usage::make_empty(sentinel(table));
    }

    /// Makes an item the newest of its bucket.
    static void append(xp_lruhash *table, uint32_t bucket, Item *item) {
        item->bucket = static_cast<int32_t>(bucket);
        chain::link_before(head(table, bucket), item);
    }

    /// Makes an item that is on no usage ring, or one that is, the one used last.
    static void link_used(xp_lruhash *table, Item *item) { usage::link_after(sentinel(table), item); }
    static void use(xp_lruhash *table, Item *item) {
        usage::unlink(item);
        link_used(table, item);
    }

    /// Searches change nothing, but what they find may be changed through the result.
    static pointer_pairs<xp_lruhash, Item> pairs_of(const xp_lruhash *table) {
        return {const_cast<xp_lruhash *>(table)};
    }
    static xp_pair *pair_of(Item *i) { return i ? pointer_pairs<xp_lruhash, Item>::pair(i, nullptr) : nullptr; }

    static bool is_visible(const Item *i) {
        if constexpr (shared) return __atomic_load_n(&i->valid, __ATOMIC_RELAXED);
        return true;
    }

    /// From an item on toward the oldest of its bucket.
    static Item *first_equal(const xp_lruhash *table, Item *i, const Item *head, const sought &k) {
        const auto pairs = pairs_of(table);
        for (; i != head; i = i->previous)
            if (is_visible(i) && pairs.equal(k, i)) return i;
        return nullptr;
    }

    static Item *find(const xp_lruhash *table, const sought &k) {
        const Item *const end = head(table, k.bucket);
        return first_equal(table, end->previous, end, k);
    }

    /// Calls take(item) for each equal item, newest first, until it has returned true `limit` times; returns how often
    /// it did.
    template <class Take>
    static int each_equal(const xp_lruhash *table, const sought &k, Take take, int limit = INT_MAX) {
        const Item *const end = head(table, k.bucket);
        int count = 0;
        for (Item *i = end->previous, *next; count < limit && (i = first_equal(table, i, end, k)); i = next) {
            next = i->previous;
            count += take(i);
        }
        return count;
    }

    /// Appends the value of each equal item, newest first, to `values` (may be null), then calls use(item); returns how
    /// many there are.
    template <class Use>
    static int all_values(const xp_lruhash *table, const sought &k, xp_array *values, Use use) {
        return each_equal(table, k, [=](Item *i) {
            if (values) xpar_add(values, i->value);
            use(i);
            return true;
        });
    }

    /// Stores a pair in an item that is in no bucket and makes it the newest of its bucket.
    static void place(xp_lruhash *table, const sought &k, const void *value, Item *i) {
        pairs_of(table).fill(i, k.key, value);
        append(table, k.bucket, i);
    }

    /// 1 done, 0 refused by the mode, -1 when insert(), which makes an item of an absent pair, has no memory.
    template <class Insert>
    static int put(const xp_lruhash *table, const sought &k, const void *value, put_mode mode, Insert insert) {
        Item *const found = find(table, k);
        if (!found) return mode == put_mode::replace ? 0 : insert() ? 1 : -1;
        if (mode == put_mode::put) return 0;
        pairs_of(table).overwrite(found, k.key, value); // kept: which is no use of it
        return 1;
    }

    /// Begin and go on with an iterator (none for null): the item found, null when there is none.
    static Item *first(const xp_lruhash *table, const sought &k, xp_lruhashiter *iterator, void **value) {
        return step(iterator, k.key, table->buckets + k.bucket, find(table, k), value);
    }
    static Item *next(const xp_lruhash *table, xp_lruhashiter *iterator, void **value) {
        const sought k = {iterator->key, 0}; // the bucket does not matter any more
        Item *const from = reinterpret_cast<Item *>(iterator->next);
        return step(iterator, k.key, iterator->head, first_equal(table, from, as_node<Item>(iterator->head), k), value);
    }

    /// Calls callback(argument, pair) for the items of buckets first .. end - 1 until it returns 0: then the guard of
    /// that bucket stays taken. Returns how many items were visited, the one that stopped the walk not counted.
    template <class Guard>
    static int enumerate(const xp_lruhash *table, xp_pair_fn callback, void *argument, int first, int end,
                         Guard &&guard) {
        int visited = 0;
        end = std::min(end, table->bucket_count);
        for (int bucket = std::max(first, 0); bucket < end; bucket++) {
            const Item *const stop = head(table, static_cast<uint32_t>(bucket));
            if (chain::is_empty(stop)) continue;
            guard.take(bucket);
            for (Item *i = stop->previous; i != stop; i = i->previous) {
                if (!is_visible(i)) continue;
                if (!callback(argument, pair_of(i))) return visited;
                visited++;
            }
            guard.release();
        }
        return visited;
    }

    /// Mean of the items' positions in their buckets, counted from 1, and mean of the squares; both 0 without an item.
    template <class Guard>
    static void positions(const xp_lruhash *table, double *mean, double *square_mean, Guard &&guard) {
        double items = 0, sum = 0, squares = 0;
        for (int bucket = 0; bucket < table->bucket_count; bucket++) {
            const Item *const stop = head(table, static_cast<uint32_t>(bucket));
            if (chain::is_empty(stop)) continue;
            guard.take(bucket);
            double position = 1;
            for (const Item *i = stop->previous; i != stop; i = i->previous, position++) {
                if (!is_visible(i)) continue;
                items++;
                sum += position;
                squares += position * position;
            }
            guard.release();
        }
        *mean = items > 0 ? sum / items : 0;
        *square_mean = items > 0 ? squares / items : 0;
    }

  private:
    /// Hands out the value of an item that an iterator found, and leaves the iterator behind it.
    static Item *step(xp_lruhashiter *iterator, const void *key, xp_lrubucket *head, Item *found, void **value) {
        if (!found) return nullptr;
        *value = found->value;
        if (iterator) *iterator = {key, reinterpret_cast<xp_lruitem *>(found->previous), head};
        return found;
    }
};

} // namespace vorncore
