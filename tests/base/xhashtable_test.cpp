#include "vorncore/base/xhashtable.h"

#include <atomic>
#include <functional>
#include <thread>

#include "support/harness.h"
#include "support/items.h"
#include "support/threads.h"

namespace {

using harness::item_of;
using harness::number;

int hashed; // calls of the hash; looked at where there is one thread
uint32_t modulo(const void *key, uint32_t n) { return hashed++, static_cast<uint32_t>(number(key)) % n; }
int difference(const void *a, const void *b) { return static_cast<int>(number(a) - number(b)); }

/// Keys are numbers and values of their own: key k is in bucket k of 16, and bucket b has slot b % 4.
struct XHashTable : testing::Test {
    XHashTable() {
        xp_init_xhashtable(&table, 4, XP_RWLOCK_WRITER_FIRST, 16, modulo, difference, nullptr, nullptr, nullptr,
                           record);
        current = this;
    }
    ~XHashTable() override {
        EXPECT_EQ(held(), "....");
        xp_close_xhashtable(&table);
    }
    void add(std::initializer_list<int> keys) {
        for (const int key : keys) xpxht_add(&table, item_of(key), item_of(key), -1);
        seen.clear();
    }
    std::string held() const {
        std::string slots(4, '.');
        for (size_t i = 0; i < 4; i++)
            slots[i] = table.lock.active_readers[i] ? 'r' : table.lock.active_writers[i] ? 'w' : '.';
        return slots;
    }
    /// A value that goes, or is visited, with the slots held and the count at that moment.
    static void record(void *value) {
        current->seen += std::to_string(number(value)) + current->held();
        current->seen += std::to_string(xpxht_count(&current->table)) + ' ';
    }
    void await(auto condition) {
        for (bool met = false; !met; std::this_thread::yield()) {
            pthread_mutex_lock(&table.lock.mutex);
            met = condition(table.lock);
            pthread_mutex_unlock(&table.lock.mutex);
        }
    }

    static inline XHashTable *current;
    xp_xhashtable table;
    std::string seen;
};

TEST_F(XHashTable, LocksTheSlotsOfBuckets) {
    xp_array keys, slots;
    xp_init_array(&keys, 4, nullptr, nullptr), xp_init_array(&slots, 1, nullptr, nullptr);
    for (const int key : {5, 1, 9, 2, 13}) xpar_add(&keys, item_of(key));
    using t = xp_xhashtable *;
    const struct {
        int result, hashes;
        std::string held;
        std::function<int(t)> lock;
        std::function<void(t)> unlock;
    } cases[] = {
        {7, 1, "...r", [](t x) { return xpxht_read_lock(x, item_of(23)); }, [](t x) { xpxht_read_unlock(x, 7); }},
        {6, 1, "..w.", [](t x) { return xpxht_write_lock(x, item_of(6)); }, [](t x) { xpxht_write_unlock(x, 6); }},
        {5, 0, ".r..", [](t x) { return xpxht_read_lock_by_nr(x, 5); }, [](t x) { xpxht_read_unlock(x, 1); }},
        {12, 0, "w...", [](t x) { return xpxht_write_lock_by_nr(x, 12); }, [](t x) { xpxht_write_unlock(x, 0); }},
        {4, 0, "rrrr", xpxht_read_lock_all, [](t x) { EXPECT_EQ(xpxht_read_unlock_all(x), 4); }},
        {4, 0, "wwww", xpxht_write_lock_all, [](t x) { EXPECT_EQ(xpxht_write_unlock_all(x), 4); }},
        {2, 5, ".rr.", [&](t x) { return xpxht_read_locks(x, &keys, &slots); },
         [&](t x) { xpxht_read_unlocks(x, &slots); }},
        {2, 5, ".ww.", [&](t x) { return xpxht_write_locks(x, &keys, &slots); },
         [&](t x) { xpxht_write_unlocks(x, &slots); }},
    };
    for (const auto &c : cases) {
        hashed = 0;
        EXPECT_EQ(c.lock(&table), c.result) << c.held;
        EXPECT_EQ(hashed, c.hashes) << c.held;
        EXPECT_EQ(held(), c.held);
        EXPECT_TRUE(slots.count == 0 || (slots.items[0] == item_of(1) && slots.items[1] == item_of(2)));
        c.unlock(&table);
        EXPECT_EQ(held(), "....") << c.held;
        EXPECT_EQ(slots.count, 0) << c.held;
    }
    xpxht_read_lock_by_nr(&table, 2);
    std::thread writer([&] { xpxht_write_locks(&table, &keys, &slots), xpxht_write_unlocks(&table, &slots); });
    await([](auto &lock) { return lock.waiting_writers[2] == 1; });
    EXPECT_EQ(held(), ".wr.") << "the lowest slot is taken first";
    xpxht_read_unlock(&table, 2);
    writer.join();
    xp_close_array(&keys), xp_close_array(&slots);
}

TEST_F(XHashTable, CallsOnOneKeyTakeTheBucketGivenOrHashForIt) {
    const void *const k = item_of(3);
    xp_hashiter iterator;
    void *got;
    using t = xp_xhashtable *;
    const struct {
        const char *name;
        intptr_t result;
        std::function<intptr_t(t, int)> call;
    } cases[] = {
        {"put", 1, [&](t x, int b) { return xpxht_put(x, k, item_of(10), b); }},
        {"put again", 0, [&](t x, int b) { return xpxht_put(x, k, item_of(11), b); }},
        {"new, present", 10, [&](t x, int b) { return number(xpxht_new(x, k, item_of(12), nullptr, b)); }},
        {"replace", 1, [&](t x, int b) { return xpxht_replace(x, k, item_of(13), b); }},
        {"update", 1, [&](t x, int b) { return xpxht_update(x, k, item_of(14), b); }},
        {"add", 15, [&](t x, int b) { return xpxht_add(x, k, item_of(15), b), number(xpxht_get(x, k, b)); }},
        {"get all", 2, [&](t x, int b) { return xpxht_get_all(x, k, nullptr, b); }},
        {"get first", 1, [&](t x, int b) { return xpxht_get_first(x, k, &iterator, &got, b); }},
        {"del", 1, [&](t x, int b) { return xpxht_del(x, k, b); }},
        {"get pair", 14, [&](t x, int b) { return number(xpxht_get_pair(x, k, b)->value); }},
        {"del all", 2, [&](t x, int b) { return xpxht_add(x, k, k, b), xpxht_del_all(x, k, b); }},
        {"contains", 0, [&](t x, int b) { return xpxht_contains(x, k, b); }},
        {"replace, absent", 0, [&](t x, int b) { return xpxht_replace(x, k, item_of(16), b); }},
        {"update, absent", 1, [&](t x, int b) { return xpxht_update(x, k, item_of(17), b); }},
        {"new pair", 17, [&](t x, int b) { return number(xpxht_new_pair(x, k, item_of(18), nullptr, b)->value); }},
    };
    for (const int bucket : {8, -1}) { // given one where the key does not belong, which is none of the table's business
        for (const auto &c : cases) {
            hashed = 0;
            EXPECT_EQ(c.call(&table, bucket), c.result) << c.name;
            EXPECT_EQ(hashed > 0, bucket < 0) << c.name;
        }
        EXPECT_EQ(table.table.buckets[bucket < 0 ? 3 : bucket]->value, item_of(17));
    }
    xpxht_add(&table, k, k, 8);
    EXPECT_EQ(xpxht_get_first(&table, k, &iterator, &got, 8) + xpxht_get_next(&table, &iterator, &got), 2);
    EXPECT_EQ(got, item_of(17));
    double mean, variance; // of a chain of one and one of two
    xpxht_statistic(&table, &mean, &variance, 0);
    EXPECT_DOUBLE_EQ(mean + variance, 4 / 3. + 2 / 9.);
    xpxht_clear(&table, 0), xpxht_statistic(&table, &mean, &variance, 0);
    EXPECT_EQ(mean + variance, 0);
}

TEST_F(XHashTable, ClearCountsOffOnceABucketUnderItsSlot) {
    const std::string locked = "17.w..4 1.w..4 2..w.2 7...w1 ", unlocked = "17....4 1....4 2....2 7....1 ";
    for (const int lock : {0, 1, -1}) {
        add({1, 17, 2, 7});
        lock == 1 ? xpxht_reset(&table, lock) : xpxht_clear(&table, lock);
        EXPECT_EQ(seen, lock == -1 ? unlocked : locked);
        EXPECT_EQ(xpxht_count(&table), 0);
    }
}

TEST_F(XHashTable, EnumerationThatIsStoppedKeepsTheSlot) {
    const struct {
        int mode, first, end, stop_at, visited;
        std::string seen, held;
    } cases[] = {
        {0, 0, 16, 0, 4, "17.r..4 1.r..4 2..r.4 7...r4 ", "...."},
        {1, -5, 7, 0, 3, "17.w..4 1.w..4 2..w.4 ", "...."},
        {-1, 2, 99, 0, 2, "2....4 7....4 ", "...."},
        {0, 0, 16, 1, 1, "17.r..4 1.r..4 ", ".r.."},
        {-2, 0, 16, 2, 2, "17.w..4 1.w..4 2..w.4 ", "..w."},
        {-1, 0, 16, 2, 2, "17....4 1....4 2....4 ", "...."},
    };
    add({1, 17, 2, 7});
    for (const auto &c : cases) {
        int key = c.stop_at;
        const auto visit = [](void *stop_at, xp_pair *pair) {
            return record(pair->value), number(pair->key) == *static_cast<int *>(stop_at) ? 0 : 1;
        };
        EXPECT_EQ(xpxht_enumerate_ex(&table, visit, &key, c.first, c.end, c.mode), c.visited);
        EXPECT_EQ(std::exchange(seen, {}), c.seen);
        EXPECT_EQ(held(), c.held);
        if (held().find('r') != std::string::npos) xpxht_read_unlock(&table, key);
        if (held().find('w') != std::string::npos) xpxht_write_unlock(&table, key);
    }
}

TEST_F(XHashTable, EnumeratorHoldsTheSlotOfItsItemAndNoOther) {
    const struct {
        int (*step)(xp_xhashenum *);
        int key, bucket;
        const char *held;
    } steps[] = {{xpxhe_next, 17, 1, ".x.."}, {xpxhe_next, 1, 1, ".x.."}, {xpxhe_del, 5, 5, ".x.."},
                 {xpxhe_next, 7, 7, "...x"},  {xpxhe_del, 0, 7, "...."},  {xpxhe_del, 0, 7, "...."}};
    for (const int mode : {0, 1, 2, -1}) {
        const auto slots = [=](std::string shown) {
            return std::replace(shown.begin(), shown.end(), 'x', "rw."[mode < 0 ? 2 : mode]), shown;
        };
        xpxht_clear(&table, 0);
        add({1, 17, 5, 7});
        xp_xhashenum *e = xp_create_xhashenum(&table, mode);
        EXPECT_TRUE(e->bucket == -1 && !e->current && e->end == 16 && e->locked == -1 && e->mode == mode);
        for (const auto &s : steps) {
            EXPECT_EQ(s.step(e), s.key != 0) << s.key;
            EXPECT_EQ(e->current ? number(e->current->key) : 0, s.key);
            EXPECT_EQ(e->bucket, s.bucket) << s.key;
            EXPECT_EQ(held(), slots(s.held)) << s.key << " in mode " << mode;
        }
        EXPECT_EQ(xpxht_count(&table), 2);
        xp_destroy_xhashenum(e);
        e = xp_create_xhashenum_ex(&table, 5, 6, mode);
        EXPECT_EQ(xpxhe_next(e), 1);
        EXPECT_EQ(held(), slots(".x.."));
        xp_destroy_xhashenum(e);
        EXPECT_EQ(held(), "....");
    }
}

TEST_F(XHashTable, WalksLookAgainOnceTheyHaveTheSlot) {
    const auto never = [](void *, xp_pair *pair) { return number(pair->key) == 1 ? abort(), 0 : 1; };
    for (const int walk : {0, 1, 2}) {
        add({1, 6});
        xpxht_write_lock(&table, item_of(1));
        std::thread walker([&] {
            xp_xhashenum e;
            xp_init_xhashenum(&e, &table, 1);
            if (walk == 0) xpxht_clear(&table, 0);
            if (walk == 1) xpxht_enumerate(&table, never, nullptr, 0);
            while (walk == 2 && xpxhe_next(&e)) EXPECT_EQ(number(e.current->key), 6);
        });
        await([](auto &lock) { return lock.waiting_writers[1] + lock.waiting_readers[1] == 1; });
        xpxht_del(&table, item_of(1), 1);
        xpxht_write_unlock(&table, 1);
        walker.join();
        xpxht_clear(&table, 0);
        EXPECT_EQ(xpxht_count(&table), 0);
    }
}

struct checked {
    intptr_t value, complement;
};
void *new_checked(const void *n) { return new (malloc(sizeof(checked))) checked{number(n), ~number(n)}; }
intptr_t value_of(const void *item) {
    const auto *value = static_cast<const checked *>(item);
    if (value->value != ~value->complement) abort();
    return value->value;
}
int sum_up(void *sum, xp_pair *pair) { return *static_cast<intptr_t *>(sum) += value_of(pair->value), 1; }

constexpr int accounts = 40, names = 400, buckets = 53; // the values of the accounts have a fixed sum, all others are 0
char keys[names][8];

/// Moves 1 from one account to another.
void transfer(xp_xhashtable *table, const char *from, const char *to) {
    const void *both[] = {from, to};
    const xp_array pair = {const_cast<void **>(both), nullptr, nullptr, 2, 2, 2};
    xp_array slots;
    xp_init_array(&slots, 2, nullptr, nullptr);
    xpxht_write_locks(table, &pair, &slots);
    xpxht_update(table, from, item_of(value_of(xpxht_get(table, from, -1)) - 1), -1);
    xpxht_update(table, to, item_of(value_of(xpxht_get(table, to, -1)) + 1), -1);
    xpxht_write_unlocks(table, &slots);
    xp_close_array(&slots);
}

/// A random step of a thread; returns how many items it added or, below 0, dropped.
int step(xp_xhashtable *table, std::mt19937 &random) {
    const char *const key = keys[accounts + random() % (names - accounts)];
    const unsigned choice = random() % 64;
    int more = 0, bucket;
    if (choice == 0) {
        intptr_t total = 0;
        xpxht_read_lock_all(table);
        xpxht_enumerate(table, sum_up, &total, -1);
        xpxht_read_unlock_all(table);
        EXPECT_EQ(total, accounts * 1000);
    } else if (choice == 1) {
        xp_xhashenum e;
        xp_init_xhashenum_ex(&e, table, static_cast<int>(random() % buckets), buckets, 1);
        for (bool more_items = xpxhe_next(&e), drop; more_items; more_items = drop ? xpxhe_del(&e) : xpxhe_next(&e))
            more -= drop = value_of(e.current->value) == 0;
    } else if (choice < 16) {
        transfer(table, keys[random() % accounts], keys[random() % accounts]);
    } else if (choice < 32) {
        bucket = xpxht_read_lock(table, key);
        EXPECT_TRUE(!xpxht_contains(table, key, bucket) || value_of(xpxht_get(table, key, bucket)) == 0);
        xpxht_read_unlock(table, bucket);
    } else {
        bucket = xpxht_write_lock(table, key);
        more = choice < 48 ? xpxht_put(table, key, nullptr, bucket) : -xpxht_del(table, key, bucket);
        xpxht_write_unlock(table, bucket);
    }
    return more;
}

TEST(XHashTableThreads, KeepCountsAndSumsExact) {
    for (int i = 0; i < names; i++) snprintf(keys[i], sizeof keys[i], "key %d", i);
    for (const int mode : {XP_RWLOCK_NOPREF, XP_RWLOCK_WRITER_FIRST, XP_RWLOCK_WRITER_CLAIM})
        for (const int threads : harness::thread_counts) {
            xp_xhashtable table;
            xp_init_xhashtable(&table, 8, mode, buckets, nullptr, nullptr, nullptr, nullptr, new_checked, free);
            for (int i = 0; i < accounts; i++) xpxht_put(&table, keys[i], item_of(1000), -1);
            std::atomic<int> count = accounts;
            harness::in_threads(threads, [&](int n) {
                std::mt19937 random(static_cast<unsigned>(n));
                for (int i = 0; i < 48'000 / threads; i++) count += step(&table, random);
            });
            intptr_t total = 0;
            EXPECT_EQ(xpxht_count(&table), count);
            EXPECT_EQ(xpxht_enumerate(&table, sum_up, &total, 0), count);
            EXPECT_EQ(total, accounts * 1000);
            xp_close_xhashtable(&table);
        }
}

TEST(XHashTableMemory, FailureIsReported) {
    harness::oom_sweep([] {
        xp_xhashtable *table = xp_create_xhashtable(2, 0, 3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (!table) return;
        const int put = xpxht_put(table, "a", "1", -1), added = xpxht_new_pair(table, "b", "2", nullptr, -1) != nullptr;
        EXPECT_EQ(xpxht_count(table), put + added);
        if (xp_xhashenum *e = xp_create_xhashenum(table, 0)) xp_destroy_xhashenum(e);
        xp_destroy_xhashtable(table);
    });
}

} // namespace
