// Lock striping: the buckets of a table share the slots of one reader-writer lock, bucket b the slot b modulo their
// number. The slots of the lock-striped hash table and of the lock-striped LRU hash are taken here and nowhere else.
//
// Order: whoever takes several slots takes them upward, each once. So no two threads can wait for each other.
#pragma once

#include "vorncore/base/array.h"
#include "vorncore/io/rwlock.h"

namespace vorncore {

/// How a slot is held.
enum class hold { none, read, write };

/// What the lock mode means in walks with a callback and in calls with a lock flag.
constexpr hold hold_of_walk(int mode) { return mode == -1 ? hold::none : mode == 0 ? hold::read : hold::write; }

/// What it means in an enumerator.
constexpr hold hold_of_enumerator(int mode) { return mode == 0 ? hold::read : mode == 1 ? hold::write : hold::none; }

inline int __lock_compr(const void *a, const void *b) {
    const auto first = reinterpret_cast<uintptr_t>(a), second = reinterpret_cast<uintptr_t>(b);
    return (first > second) - (first < second);
}

/// The slots of a table, which has buckets, a bucket_count and a hash. The numbers that are handed out for slots held
/// for writing carry the `write_mark`; in numbers that come back it is ignored.
template <class Table>
class stripes {
  public:
    stripes(const Table *table, xp_rwlock *lock, int32_t slots, uint32_t write_mark)
        : table_(table), lock_(lock), slots_(static_cast<uint32_t>(slots)), write_mark_(write_mark) {}

    /// Takes the slot of a bucket; returns the bucket's number.
    uint32_t take(hold kind, uint32_t bucket) const {
        lock(kind, slot_of(bucket));
        return marked(kind, bucket);
    }
    /// The same for a key. Its chain's head is on its way while the slot is locked.
    uint32_t take_key(hold kind, const void *key) const {
        const uint32_t bucket = bucket_of(key);
        __builtin_prefetch(&table_->buckets[bucket]);
        return take(kind, bucket);
    }
    void leave(hold kind, uint32_t bucket) const { unlock(kind, slot_of(bucket)); }

    /// Both return the number of slots.
    int take_all(hold kind) const {
        for (uint32_t slot = 0; slot < slots_; slot++) lock(kind, slot);
        return static_cast<int>(slots_);
    }
    int leave_all(hold kind) const {
        for (uint32_t slot = 0; slot < slots_; slot++) unlock(kind, slot);
        return static_cast<int>(slots_);
    }

    /// Takes the slots of all keys and lists the slots' numbers in `result`, lowest first; returns how many they are.
    int take_keys(hold kind, const xp_array *keys, xp_array *result) const {
        for (int i = 0; i < keys->count; i++)
            xpar_add(result, pointer_of(marked(kind, slot_of(bucket_of(keys->items[i])))));
        xpar_sort(result, __lock_compr);
        xpar_uniq(result, __lock_compr);
        for (int i = 0; i < result->count; i++) lock(kind, listed(result, i));
        return result->count;
    }
    void leave_listed(hold kind, xp_array *result) const {
        for (int i = 0; i < result->count; i++) unlock(kind, listed(result, i));
        xpar_clear(result);
    }

  private:
    static constexpr uint32_t number_bits = 0x7FFFFFFF; // the top bit is the mark's

    uint32_t bucket_of(const void *key) const { return table_->hash(key, static_cast<uint32_t>(table_->bucket_count)); }
    uint32_t slot_of(uint32_t bucket) const { return (bucket & number_bits) % slots_; }
    uint32_t marked(hold kind, uint32_t number) const {
        return (number & number_bits) | (kind == hold::write ? write_mark_ : 0);
    }

    static const void *pointer_of(uint32_t number) { return reinterpret_cast<const void *>(uintptr_t{number}); }
    static uint32_t listed(const xp_array *result, int i) {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(result->items[i])) & number_bits;
    }

    void lock(hold kind, uint32_t slot) const {
        if (kind == hold::read) xprwl_read_lock(lock_, static_cast<int>(slot));
        if (kind == hold::write) xprwl_write_lock(lock_, static_cast<int>(slot));
    }
    void unlock(hold kind, uint32_t slot) const {
        if (kind == hold::read) xprwl_read_unlock(lock_, static_cast<int>(slot));
        if (kind == hold::write) xprwl_write_unlock(lock_, static_cast<int>(slot));
    }

    const Table *table_;
    xp_rwlock *lock_;
    uint32_t slots_;
    uint32_t write_mark_;
};

/// The guard of a walk over buckets: holds the slot of one bucket at a time.
template <class Table>
class slot_guard {
  public:
    slot_guard(const stripes<Table> &slots, hold kind) : slots_(slots), kind_(kind) {}

    void take(int bucket) {
        bucket_ = static_cast<uint32_t>(bucket);
        slots_.take(kind_, bucket_);
    }
    void release() { slots_.leave(kind_, bucket_); }

  private:
    stripes<Table> slots_;
    hold kind_;
    uint32_t bucket_ = 0;
};

} // namespace vorncore
