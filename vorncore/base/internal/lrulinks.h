// The two rings that every item of an LRU table is on: its bucket's, oldest item first, and the table's, by last use.
#pragma once

#include "vorncore/base/internal/ring.h"
#include "vorncore/base/lruhash.h"

namespace vorncore {

/// Item is xp_lruitem, or begins with the same members.
template <class Item>
struct lru_links {
    using chain = ring<Item, &Item::next, &Item::previous>;
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
};

} // namespace vorncore
