// What every table of pairs shares, however it strings its items together: the key that is searched for, and the pairs
// of pointers that go through the hooks.
#pragma once

#include <stdint.h>
#include <string.h>

#include "vorncore/base/internal/keyhash.h"
#include "vorncore/base/internal/textscan.h"

namespace vorncore {

/// The comparison that a null one stands for: strcmp.
inline xp_compare_fn compare_texts() { return reinterpret_cast<xp_compare_fn>(reinterpret_cast<void (*)()>(strcmp)); }

enum class put_mode { put, update, replace };

/// A key that is searched for. Of a text under the default hash and comparison the hash leaves its length, which makes
/// comparing cheaper, and a tag: a small hash, by which most other items are passed by. Of other keys nothing but the
/// bucket is known.
struct sought {
    const void *key;
    uint32_t bucket;
    uint8_t tag = unknown;
    size_t length = 0;

    static constexpr uint8_t end = 0, unknown = 1;
    static uint8_t tag_of(uint32_t hash) { return static_cast<uint8_t>(hash * 0x9E3779B1 >> 24 | 2); }
};

template <class Table>
bool has_default_functions(const Table *table) {
    return table->hash == xp_rotate_hashf && table->compare == compare_texts();
}

/// A key in its bucket; a negative number stands for the bucket that the hash gives. Where the bucket is known, texts
/// are hashed all the same: finding them by their tags costs less than it saves.
template <class Table>
[[gnu::always_inline]] inline sought sought_in(const Table *table, const void *key, int32_t bucket = -1) {
    const auto bucket_count = static_cast<uint32_t>(table->bucket_count), known = static_cast<uint32_t>(bucket);
    if (!has_default_functions(table)) return {key, bucket < 0 ? table->hash(key, bucket_count) : known};
    const char *const text = static_cast<const char *>(key);
    const size_t length = text_length(text);
    const uint32_t hash = rotate_hash(text, length);
    return {key, bucket < 0 ? reduced(hash, bucket_count) : known, sought::tag_of(hash), length};
}

/// What tables do with items that hold a key and a value pointer; the main part of such a table's Layout (hashchain.h).
template <class Table, class Item>
struct pointer_pairs {
    using item = Item;
    static constexpr bool summarised = true;
    Table *table;

    bool equal(const sought &k, const Item *i) const {
        if (k.tag == sought::unknown) return table->compare(k.key, i->key) == 0;
        return equal_texts(static_cast<const char *>(k.key), k.length, static_cast<const char *>(i->key));
    }

    void fill(Item *i, const void *key, const void *value) const {
        i->key = copied(table->key_copy, key);
        i->value = copied(table->value_copy, value);
    }

    /// Copies before it releases: the new pair may be made of parts of the old one.
    void overwrite(Item *i, const void *key, const void *value) const {
        void *const new_key = copied(table->key_copy, key);
        void *const new_value = copied(table->value_copy, value);
        if (table->key_release) table->key_release(i->key);
        if (table->value_release) table->value_release(i->value);
        i->key = new_key;
        i->value = new_value;
    }

    static void *key(const Item *i) { return i->key; }
    static void *value(const Item *i) { return i->value; }
    static xp_pair *pair(Item *i, xp_pair *) { return reinterpret_cast<xp_pair *>(&i->key); }

    static void *copied(xp_copy_fn copy, const void *what) { return copy ? copy(what) : const_cast<void *>(what); }
};

/// Holds the bucket under a walk: nothing, for tables of one thread.
struct no_guard {
    void take(int) {}
    void release() {}
};

} // namespace vorncore
