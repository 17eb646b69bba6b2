#include "programs/quilletd/store.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "programs/quilletd/heldslot.h"
#include "vorncore/base/xhashtable.h"
#include "vorncore/base/xlruhash.h"

namespace quilletd {

namespace {

/// Key and value lie one behind the other in one block, which belongs to the key.
struct entry {
    budget *bytes; // gets back what the entry takes when it goes; null when that is settled

    static constexpr long long overhead = 64; // this record, the table's item, what the allocator adds, terminators
    static entry *of(void *key) { return static_cast<entry *>(key) - 1; }
    char *key() { return reinterpret_cast<char *>(this + 1); }
    char *value() { return key() + strlen(key()) + 1; }
    long long cost() { return overhead + static_cast<long long>(strlen(key()) + strlen(value())); }
};

std::unique_ptr<entry, decltype(&free)> new_entry(const char *key, const char *value, budget &bytes) {
    const size_t key_size = strlen(key) + 1, value_size = strlen(value) + 1;
    auto *made = static_cast<entry *>(malloc(sizeof(entry) + key_size + value_size));
    if (!made) throw std::bad_alloc();
    made->bytes = &bytes;
    memcpy(made->key(), key, key_size);
    memcpy(made->key() + key_size, value, value_size);
    return {made, free};
}

/// The table's hook: key and value go with it.
void release_key(void *key) {
    entry *const gone = entry::of(key);
    if (gone->bytes) gone->bytes->give_back(gone->cost());
    free(gone);
}

constexpr int slots = 64;

/// The calls of the two tables that a store makes.
struct plain_table {
    using record = xp_xhashtable;
    static constexpr bool evicts = false;
    static record *create(int, int buckets) {
        return xp_create_xhashtable(slots, XP_RWLOCK_WRITER_FIRST, buckets, nullptr, nullptr, nullptr, release_key,
                                    nullptr, nullptr);
    }
    static constexpr auto destroy = xp_destroy_xhashtable;
    static constexpr auto read_lock = xpxht_read_lock;
    static constexpr auto read_unlock = xpxht_read_unlock;
    static constexpr auto write_lock = xpxht_write_lock;
    static constexpr auto write_unlock = xpxht_write_unlock;
    static constexpr auto get = xpxht_get;
    static constexpr auto peek_pair = xpxht_get_pair;
    static constexpr auto put = xpxht_put;
    static constexpr auto replace = xpxht_replace;
    static constexpr auto del = xpxht_del;
    static constexpr auto enumerate = xpxht_enumerate_ex;
    static constexpr auto count = xpxht_count;
    static void free_evicted(record *) {}
};

struct bounded_table {
    using record = xp_xlruhash;
    static constexpr bool evicts = true;
    static record *create(int capacity, int buckets) {
        return xp_create_xlruhash(slots, XP_RWLOCK_WRITER_FIRST, capacity, buckets, nullptr, nullptr, nullptr,
                                  release_key, nullptr, nullptr);
    }
    static constexpr auto destroy = xp_destroy_xlruhash;
    static constexpr auto read_lock = xpxlh_read_lock;
    static constexpr auto read_unlock = xpxlh_read_unlock;
    static constexpr auto write_lock = xpxlh_write_lock;
    static constexpr auto write_unlock = xpxlh_write_unlock;
    static constexpr auto get = xpxlh_get;
    static constexpr auto peek_pair = xpxlh_peek_pair;
    static constexpr auto put = xpxlh_put;
    static constexpr auto replace = xpxlh_replace;
    static constexpr auto del = xpxlh_del;
    static constexpr auto enumerate = xpxlh_enumerate_ex;
    static constexpr auto count = xpxlh_count;
    static constexpr auto free_evicted = xpxlh_diet;
};

struct listing {
    std::string *lines;
    bool failed;
};
int append_line(void *argument, xp_pair *pair) {
    auto *to = static_cast<listing *>(argument);
    try {
        to->lines->append(static_cast<char *>(pair->key)).append(1, '=');
        to->lines->append(static_cast<char *>(pair->value)).append(1, '\n');
    } catch (const std::bad_alloc &) { // which must not pass through the table, nor stop it with its slot locked
        to->failed = true;
    }
    return 1;
}

template <class Table>
class store_in final : public store {
  public:
    store_in(int max_entries, budget &bytes)
        : table_(Table::create(max_entries, buckets_for(max_entries))), buckets_(buckets_for(max_entries)),
          entries_(Table::evicts ? LLONG_MAX : max_entries), bytes_(bytes) {
        if (!table_) throw std::bad_alloc();
    }
    ~store_in() override { Table::destroy(table_); }
    store_in(const store_in &) = delete;

    result put(const char *key, const char *value) override {
        auto made = new_entry(key, value, bytes_);
        const result done = put_locked(made.get());
        if (done == result::done) static_cast<void>(made.release()); // the table has it
        Table::free_evicted(table_);
        return done;
    }

    void del(const char *key) override {
        const held_slot slot(table_, key, Table::write_lock, Table::write_unlock);
        entries_.give_back(Table::del(table_, key, slot.bucket));
    }

    bool get(const char *key, std::string *value) override {
        const held_slot slot(table_, key, Table::read_lock, Table::read_unlock);
        const auto *const found = static_cast<const char *>(Table::get(table_, key, slot.bucket));
        if (found) *value = found;
        return found;
    }

    int list_bucket(int bucket, std::string *lines) override {
        listing to{lines, false};
        while (bucket < buckets_ && !Table::enumerate(table_, append_line, &to, bucket, bucket + 1, 0)) bucket++;
        if (to.failed) throw std::bad_alloc();
        return bucket + 1 < buckets_ ? bucket + 1 : 0;
    }

    int count() override { return Table::count(table_); }
    long long evicted() override { return Table::evicts ? entries_.used() - count() : 0; }

  private:
    static int buckets_for(int entries) { return xp_getprime_over(std::clamp(entries / 8, 60, 100'000)); }

    result put_locked(entry *made) {
        const held_slot slot(table_, made->key(), Table::write_lock, Table::write_unlock);
        const xp_pair *const pair = Table::peek_pair(table_, made->key(), slot.bucket);
        return pair ? overwrite(slot.bucket, entry::of(pair->key), made) : insert(slot.bucket, made);
    }

    template <class Number>
    result overwrite(Number bucket, entry *old, entry *made) {
        if (!bytes_.take(made->cost(), old->cost())) return result::full;
        old->bytes = nullptr; // settled
        if (Table::replace(table_, made->key(), made->value(), bucket)) return result::done;
        bytes_.give_back(made->cost());
        return insert(bucket, made); // another thread has evicted the old one just now
    }

    template <class Number>
    result insert(Number bucket, entry *made) {
        if (!entries_.take(1)) return result::full;
        const bool paid = bytes_.take(made->cost());
        if (paid && Table::put(table_, made->key(), made->value(), bucket)) return result::done;
        entries_.give_back(1);
        if (!paid) return result::full;
        bytes_.give_back(made->cost());
        throw std::bad_alloc();
    }

    typename Table::record *table_;
    const int buckets_;
    budget entries_; // those that are there, and those that were evicted
    budget &bytes_;
};

} // namespace

std::unique_ptr<store> new_store(int max_entries, bool evicts, budget &bytes) {
    if (evicts) return std::make_unique<store_in<bounded_table>>(max_entries, bytes);
    return std::make_unique<store_in<plain_table>>(max_entries, bytes);
}

} // namespace quilletd
