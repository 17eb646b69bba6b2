// Chained hash tables: the one set of algorithms behind the plain, the lock-striped and the in-place table.
//
// A table is a vector of chain heads, `buckets`; a new item goes to the head of its chain, so the newest of several
// equal keys is found first. What differs between the tables is their Layout, a class with
//
//     using item                           has a member `next`
//     Table *table                         has buckets, bucket_count, key_release and value_release
//     static constexpr bool summarised     chain summaries follow the heads in the same block (see below)
//     item *allocate()                     an item, counted; null when memory is short
//     void discard(item *)                 frees it and counts it off
//     bool equal(sought, item)             compare(key, stored key) == 0
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
#include <bit>
#include <stdint.h>
#include <stdlib.h>

#include "vorncore/base/internal/keypairs.h"

namespace vorncore {

/// What is known of a chain without touching it: the tags of its first four items, that of the head in the lowest byte.
/// Behind the last item stands `end`; `unknown` says nothing of the item there, nor whether there is one. An empty
/// chain has only ends.
///
/// A search that looks here knows in most cases whether and where it will find its key, from one cache line that does
/// not depend on the head's; without it, every item on the way costs two lines, one behind the other.
class chain_summary {
  public:
    /// The first position where an item of that tag may be, 4 if it is none of the first four.
    int candidate(uint8_t tag) const {
        const uint32_t same = tags_ ^ tag * each;
        const uint32_t below_two = (tags_ - 2 * each) & ~tags_, zero = (same - each) & ~same; // in the top of a byte
        return std::countr_zero((below_two | zero) & 0x80808080) / 8;
    }
    bool ends_at(int position) const { return position < 4 && (tags_ >> 8 * position & 0xFF) == sought::end; }

    void push(uint8_t tag) { tags_ = tags_ << 8 | tag; }
    void erase(int position, bool last) {
        if (position >= 4) return;
        const uint32_t before = (1u << 8 * position) - 1;
        const uint32_t behind = tags_ >> 8 | (tags_ >> 24 ? uint32_t{sought::unknown} << 24 : 0);
        tags_ = (tags_ & before) | (last ? 0 : behind & ~before);
    }
    void replace(int position, uint8_t tag) {
        if (position < 4) tags_ = (tags_ & ~(0xFFu << 8 * position)) | static_cast<uint32_t>(tag) << 8 * position;
    }
    void clear() { tags_ = 0; }

  private:
    static constexpr uint32_t each = 0x01010101;
    uint32_t tags_;
};

/// The zeroed block of a summarised table: the heads, then a summary for each. Null when memory is short.
template <class Item>
Item **try_buckets(int count) {
    return static_cast<Item **>(calloc(static_cast<size_t>(count), sizeof(Item *) + sizeof(chain_summary)));
}

/// The same as part of another block, which the table then does not free.
template <class Item, int count>
struct bucket_room {
    Item *heads[count];
    chain_summary summaries[count];
};

/// The pair of what was found, if anything was.
inline xp_pair *pair_of(xp_hashitem *found) { return found ? reinterpret_cast<xp_pair *>(&found->key) : nullptr; }

/// Hands out the value of an item that an iterator found, and leaves the iterator behind it.
inline int step(xp_hashiter *iterator, const void *key, const xp_hashitem *found, void **value) {
    if (!found) return 0;
    *value = found->value;
    if (iterator) *iterator = {key, found->next};
    return 1;
}

/// condition ? a : b without a branch, which for tags would go wrong every third time.
template <class T>
T *chosen(bool condition, T *a, T *b) {
    uintptr_t mask = -static_cast<uintptr_t>(condition);
    asm("" : "+r"(mask)); // or the compiler makes it a branch again
    return reinterpret_cast<T *>((reinterpret_cast<uintptr_t>(a) & mask) | (reinterpret_cast<uintptr_t>(b) & ~mask));
}

template <class Layout>
class hash_chains : public Layout {
  public:
    using item = typename Layout::item;

    explicit hash_chains(const Layout &layout) : Layout(layout) {}

    item *head(uint32_t bucket) const { return __atomic_load_n(&this->table->buckets[bucket], __ATOMIC_RELAXED); }

    /// The rare way through a summarised table, kept out of line.
    [[gnu::noinline]] item *first_equal(item *i, sought k) const { return walk(i, k); }

    [[gnu::always_inline]] item *find(const sought &k) const {
        if constexpr (!Layout::summarised) return walk(head(k.bucket), k);
        if (k.tag == sought::unknown) return first_equal(head(k.bucket), k);
        const chain_summary known = summary(k.bucket);
        const int position = known.candidate(k.tag);
        if (known.ends_at(position)) return nullptr;
        item *const first = head(k.bucket);
        item *i = chosen(position != 0, first->next, first);
        for (int n = position; n > 1; n--) i = i->next;
        return !i || this->equal(k, i) ? i : first_equal(i->next, k);
    }

    /// Makes an item the head of its chain.
    void push(uint32_t bucket, uint8_t tag, item *i) {
        i->next = head(bucket);
        set_head(bucket, i);
        if constexpr (Layout::summarised) summary(bucket).push(tag);
    }

    /// Empties a bucket; returns what its head was.
    item *detach(uint32_t bucket) {
        item *const first = head(bucket);
        set_head(bucket, nullptr);
        if constexpr (Layout::summarised) summary(bucket).clear();
        return first;
    }

    /// A new item in front of all others; null when memory is short.
    item *add(const sought &k, const void *value) {
        item *const added = this->allocate();
        if (!added) return nullptr;
        this->fill(added, k.key, value);
        push(k.bucket, stored_tag(k, added), added);
        return added;
    }

    /// 1 done, 0 refused by the mode, -1 when memory is short.
    int put(const sought &k, const void *value, put_mode mode) {
        item *const found = find(k);
        if (!found) return mode == put_mode::replace ? 0 : add(k, value) ? 1 : -1;
        if (mode == put_mode::put) return 0;
        this->overwrite(found, k.key, value);
        if constexpr (Layout::summarised) summary(k.bucket).replace(position_of(k.bucket, found), stored_tag(k, found));
        return 1;
    }

    /// The first equal item, or a new one; null when memory is short. `inserted` may be null.
    item *find_or_add(const sought &k, const void *value, int *inserted) {
        item *const found = find(k);
        item *const result = found ? found : add(k, value);
        if (inserted) *inserted = !found && result;
        return result;
    }

    /// Calls take(item) for each equal item, newest first; returns how many there are.
    template <class Take>
    int each_equal(const sought &k, Take take) const {
        int count = 0;
        for (item *i = find(k); i; i = first_equal(i->next, k), count++) take(i);
        return count;
    }

    /// Removes the newest `limit` equal items; returns how many there were.
    int del(const sought &k, int limit) {
        int count = 0;
        for (item *i = find(k), *next; i; i = first_equal(next, k)) {
            next = i->next;
            release(i);
            unlink(k.bucket, i);
            this->discard(i);
            if (++count == limit) break;
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
        unlink(static_cast<uint32_t>(e->bucket), gone);
        e->current = gone->next;
        const int more = e->current ? 1 : next_chain(e, guard);
        this->discard(gone);
        return more;
    }

  private:
    [[gnu::always_inline]] item *walk(item *i, const sought &k) const {
        while (i && !this->equal(k, i)) i = i->next;
        return i;
    }

    int end_bucket(int end) const {
        return static_cast<int>(std::min<int64_t>(end, static_cast<int64_t>(this->table->bucket_count)));
    }

    void release(item *i) {
        if (this->table->key_release) this->table->key_release(this->key(i));
        if (this->table->value_release) this->table->value_release(this->value(i));
    }

    void set_head(uint32_t bucket, item *i) { __atomic_store_n(&this->table->buckets[bucket], i, __ATOMIC_RELAXED); }

    chain_summary &summary(uint32_t bucket) const {
        return reinterpret_cast<chain_summary *>(this->table->buckets + this->table->bucket_count)[bucket];
    }

    /// The tag of the key in a new or overwritten item: a copy hook may have stored another one than was searched for.
    uint8_t stored_tag(const sought &k, [[maybe_unused]] const item *i) const {
        if constexpr (Layout::summarised)
            if (k.tag != sought::unknown && this->table->key_copy) return sought_in(this->table, this->key(i)).tag;
        return k.tag;
    }

    int position_of(uint32_t bucket, const item *i) const {
        int position = 0;
        for (const item *other = head(bucket); other != i; other = other->next) position++;
        return position;
    }

    void unlink(uint32_t bucket, item *i) {
        int position = 0;
        if (head(bucket) == i) {
            set_head(bucket, i->next);
        } else {
            item *previous = head(bucket);
            for (position = 1; previous->next != i; position++) previous = previous->next;
            previous->next = i->next;
        }
        if constexpr (Layout::summarised) summary(bucket).erase(position, !i->next);
    }

    template <bool Keys, bool Values, class Guard>
    void drop_all(Guard &&guard) {
        const int end = end_bucket(INT32_MAX);
        for (int bucket = 0; bucket < end; bucket++) {
            if (!head(static_cast<uint32_t>(bucket))) continue;
            guard.take(bucket);
            item *next = detach(static_cast<uint32_t>(bucket));
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
