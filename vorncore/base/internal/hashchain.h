// Chained hash tables: the one set of algorithms behind the plain, the lock-striped and the in-place table.
//
// A table is a vector of chain heads, `buckets`; a new item goes to the head of its chain, so the newest of several
// equal keys is found first. What differs between the tables is their Layout, a class with
//
//     using item                           has a member `next`
//     Table *table                         has buckets, bucket_count, key_release and value_release
//     item *allocate()                     an item, counted; null when memory is short
//     void discard(item *)                 frees it and counts it off
//     bool equal(key, item)                compare(key, stored key) == 0
//     void fill(item, key, value)          stores a new pair through the copy hooks
//     void overwrite(item, key, value)     replaces a stored pair through all hooks, in the table's order
//     void *key(item), void *value(item)   what the release hooks get
//     xp_pair *pair(item, room)            what a callback gets; `room` is a pair it may fill
//
// and, for walks over many buckets, the Guard that holds the bucket under the walk:
//
//     void take(int bucket)                before a bucket that was seen non-empty is read
//     void release()                       the walk leaves it
//
// A bucket is looked at for emptiness without its guard, which is why heads are read and written atomically.
#pragma once

#include <algorithm>
#include <stdint.h>

#include "vorncore/base/internal/keyhash.h"

namespace vorncore {

enum class put_mode { put, update, replace };

/// For tables of one thread.
struct no_guard {
    void take(int) {}
    void release() {}
};

/// The part of a Layout for items that hold a key and a value pointer.
template <class Table, class Item>
struct pointer_pairs {
    using item = Item;
    Table *table;

    bool equal(const void *key, const Item *i) const { return equal_keys(table->compare, key, i->key); }

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

template <class Layout>
class hash_chains : public Layout {
  public:
    using item = typename Layout::item;

    explicit hash_chains(const Layout &layout) : Layout(layout) {}

    item *head(uint32_t bucket) const { return __atomic_load_n(&this->table->buckets[bucket], __ATOMIC_RELAXED); }

    item *first_equal(item *i, const void *key) const {
        while (i && !this->equal(key, i)) i = i->next;
        return i;
    }

    item *find(uint32_t bucket, const void *key) const { return first_equal(head(bucket), key); }

    /// A new item in front of all others; null when memory is short.
    item *add(uint32_t bucket, const void *key, const void *value) {
        item *const added = this->allocate();
        if (!added) return nullptr;
        push(bucket, added);
        this->fill(added, key, value);
        return added;
    }

    /// 1 done, 0 refused by the mode, -1 when memory is short.
    int put(uint32_t bucket, const void *key, const void *value, put_mode mode) {
        if (item *const found = find(bucket, key)) {
            if (mode == put_mode::put) return 0;
            this->overwrite(found, key, value);
            return 1;
        }
        if (mode == put_mode::replace) return 0;
        return add(bucket, key, value) ? 1 : -1;
    }

    /// The first equal item, or a new one; null when memory is short. `inserted` may be null.
    item *find_or_add(uint32_t bucket, const void *key, const void *value, int *inserted) {
        item *const found = find(bucket, key);
        item *const result = found ? found : add(bucket, key, value);
        if (inserted) *inserted = !found && result;
        return result;
    }

    /// Calls take(item) for each equal item, newest first; returns how many there are.
    template <class Take>
    int each_equal(uint32_t bucket, const void *key, Take take) const {
        int count = 0;
        for (item *i = find(bucket, key); i; i = first_equal(i->next, key), count++) take(i);
        return count;
    }

    /// Removes the newest `limit` equal items; returns how many there were.
    int del(uint32_t bucket, const void *key, int limit) {
        int count = 0;
        item *previous = nullptr;
        for (item *i = head(bucket), *next; i && count < limit; i = next) {
            next = i->next;
            if (!this->equal(key, i)) {
                previous = i;
                continue;
            }
            release(i);
            unlink(bucket, previous, i);
            this->discard(i);
            count++;
        }
        return count;
    }

    /// Drops every item. Which hooks are set is asked once, so that a table without hooks is freed without a call.
    template <class Guard>
    void clear(Guard &&guard) {
        if (this->table->key_release)
            this->table->value_release ? drop_all<true, true>(guard) : drop_all<true, false>(guard);
        else
            this->table->value_release ? drop_all<false, true>(guard) : drop_all<false, false>(guard);
    }

    /// Calls callback(argument, pair) for the items of buckets first .. end - 1 until it returns 0: then the guard of
    /// that bucket stays taken. Returns how many items were visited, the one that stopped the walk not counted.
    template <class Guard>
    int enumerate(xp_pair_fn callback, void *argument, int first, int end, Guard &&guard) const {
        int visited = 0;
        xp_pair room;
        end = end_bucket(end);
        for (int bucket = std::max(first, 0); bucket < end; bucket++) {
            if (!head(static_cast<uint32_t>(bucket))) continue;
            guard.take(bucket);
            for (item *i = head(static_cast<uint32_t>(bucket)); i; i = i->next, visited++)
                if (!callback(argument, this->pair(i, &room))) return visited;
            guard.release();
        }
        return visited;
    }

    /// Mean and variance of the positions of `count` items in their chains, counted from 1.
    template <class Guard>
    void statistic(double count, double *mean, double *variance, Guard &&guard) const {
        double sum = 0, squares = 0;
        const int end = end_bucket(INT32_MAX);
        for (int bucket = 0; count > 0 && bucket < end; bucket++) {
            if (!head(static_cast<uint32_t>(bucket))) continue;
            guard.take(bucket);
            double position = 1;
            for (const item *i = head(static_cast<uint32_t>(bucket)); i; i = i->next, position++) {
                sum += position;
                squares += position * position;
            }
            guard.release();
        }
        *mean = count > 0 ? sum / count : 0;
        *variance = count > 0 ? squares / count - *mean * *mean : 0;
    }

    /// Sets an enumerator before the first item of buckets first .. end - 1.
    template <class Enumerator>
    void start(Enumerator *e, int first, int end) const {
        e->bucket = std::max(first, 0) - 1;
        e->current = e->previous = nullptr;
        e->end = end_bucket(end);
    }

    template <class Enumerator, class Guard>
    int next(Enumerator *e, Guard &&guard) const {
        if (!e->current || !e->current->next) return next_chain(e, guard);
        e->previous = e->current;
        e->current = e->current->next;
        return 1;
    }

    /// Removes the current item; the one behind it becomes the current one.
    template <class Enumerator, class Guard>
    int del_current(Enumerator *e, Guard &&guard) {
        item *const gone = e->current;
        if (!gone) return 0;
        release(gone);
        unlink(static_cast<uint32_t>(e->bucket), e->previous, gone);
        e->current = gone->next;
        const int more = e->current ? 1 : next_chain(e, guard);
        this->discard(gone);
        return more;
    }

    /// Makes an item the head of a chain.
    void push(uint32_t bucket, item *i) {
        i->next = head(bucket);
        set_head(bucket, i);
    }

    void set_head(uint32_t bucket, item *i) { __atomic_store_n(&this->table->buckets[bucket], i, __ATOMIC_RELAXED); }

  private:
    int end_bucket(int end) const {
        return static_cast<int>(std::min<int64_t>(end, static_cast<int64_t>(this->table->bucket_count)));
    }

    void release(item *i) {
        if (this->table->key_release) this->table->key_release(this->key(i));
        if (this->table->value_release) this->table->value_release(this->value(i));
    }

    void unlink(uint32_t bucket, item *previous, item *i) {
        if (previous)
            previous->next = i->next;
        else
            set_head(bucket, i->next);
    }

    template <bool Keys, bool Values, class Guard>
    void drop_all(Guard &&guard) {
        const int end = end_bucket(INT32_MAX);
        for (int bucket = 0; bucket < end; bucket++) {
            if (!head(static_cast<uint32_t>(bucket))) continue;
            guard.take(bucket);
            item *next = head(static_cast<uint32_t>(bucket));
            set_head(static_cast<uint32_t>(bucket), nullptr);
            while (item *const i = next) {
                next = i->next;
                if constexpr (Keys) this->table->key_release(this->key(i));
                if constexpr (Values) this->table->value_release(this->value(i));
                this->discard(i);
            }
            guard.release();
        }
    }

    /// Moves to the head of the next non-empty chain. At the end nothing is current and nothing is held.
    template <class Enumerator, class Guard>
    int next_chain(Enumerator *e, Guard &&guard) const {
        guard.release();
        e->previous = nullptr;
        for (int bucket = e->bucket + 1; bucket < e->end; bucket++) {
            if (!head(static_cast<uint32_t>(bucket))) continue;
            guard.take(bucket);
            e->current = head(static_cast<uint32_t>(bucket));
            if (e->current) {
                e->bucket = bucket;
                return 1;
            }
            guard.release();
        }
        e->current = nullptr;
        return 0;
    }
};

} // namespace vorncore
