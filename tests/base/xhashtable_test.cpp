#include "vorncore/base/xhashtable.h"

#include "base/hashcalls.h"

using namespace hashes;

namespace {

constexpr auto reads =
    values<xp_xhashtable, xp_hashiter, xpxht_get, xpxht_get_pair, xpxht_get_all, xpxht_get_first, xpxht_get_next>;
using table_calls =
    calls<xp_xhashenum, reads, reads, xpxht_put, xpxht_update, xpxht_replace, xpxht_add, xpxht_new, xpxht_del,
          xpxht_del_all, xpxht_contains, xpxht_count, xpxht_enumerate_ex, xpxht_reset, xp_init_xhashenum, xpxhe_next,
          xpxhe_del, xp_close_xhashenum, xp_destroy_xhashtable, xp_create_xhashenum, xp_destroy_xhashenum>;
using locks = table_calls::locks<xpxht_read_lock, xpxht_write_lock, xpxht_read_unlock, xpxht_write_unlock,
                                 xpxht_read_lock_by_nr, xpxht_write_lock_by_nr, xpxht_read_lock_all,
                                 xpxht_write_lock_all, xpxht_read_unlock_all, xpxht_write_unlock_all, xpxht_read_locks,
                                 xpxht_write_locks, xpxht_read_unlocks, xpxht_write_unlocks>;

TEST(XHashTable, BehavesLikeItsModel) {
    xp_xhashtable *t;
    harness::oom_sweep([&] { t = xp_create_xhashtable(2, 0, 5, nullptr, nullptr, keep, release, keep, release); });
    model m{model::chained, by_length};
    table_calls::expect_like_model(t, m, [&](int step) {
        t->table.hash = step % 2 ? by_length : nullptr; // not needed for a bucket that is given
    });
}

TEST(XHashTable, TakesTheSlotsThatItSays) {
    xp_xhashtable *const t = xp_create_xhashtable(3, 0, 8, by_letter, nullptr, nullptr, nullptr, nullptr, nullptr);
    locks::expect_locks(t, t->lock, nullptr, 0);
}

TEST(XHashTable, LetsThreadsShareIt) {
    for (const int threads : harness::thread_counts) {
        xp_xhashtable *const t = xp_create_xhashtable(8, threads / 2 % 8 /* 1, 2, 0 */, 17, nullptr, nullptr, duplicate,
                                                      free, duplicate, free);
        locks::let_share(t, threads, [](int) {});
        EXPECT_EQ(holders(t->lock, 8), "00000000");
        xp_destroy_xhashtable(t);
    }
}

xp_xhashtable table, *const t = &table; // its keys are letters: "a" to "h" are in buckets 0 to 7, which share 4 slots
std::string held() { return holders(t->lock, 4); }
std::string dropped; // values, each with the slots held and the count then
void drop(void *value) { dropped += text(value) + held() + std::to_string(xpxht_count(t)) + ' '; }

struct XHashTableSlots : testing::Test {
    XHashTableSlots() { xp_init_xhashtable(t, 4, 1, 8, by_letter, nullptr, nullptr, nullptr, nullptr, drop); }
    ~XHashTableSlots() override { xp_close_xhashtable(t); }
};

TEST_F(XHashTableSlots, AreHeldWhileClearCountsOffOnceABucket) {
    for (const int lock : {0, 1, -1}) {
        dropped.clear();
        for (const char *key : {"b", "b", "f", "d"}) xpxht_add(t, key, key, -1);
        xpxht_clear(t, lock);
        EXPECT_EQ(dropped, lock < 0 ? "b00004 b00004 d00002 f00001 " : "b0w004 b0w004 d000w2 f0w001 ");
        EXPECT_EQ(xpxht_count(t), 0);
    }
}

TEST_F(XHashTableSlots, AreWaitedForByWalksThatLookAgainThen) {
    const auto never = [](void *, xp_pair *pair) { return *text(pair->key) == 'b' ? abort(), 0 : 1; };
    const std::function<void()> walks[] = {
        [&] { xpxht_clear(t, 0); },
        [&] { xpxht_enumerate(t, never, nullptr, 0); },
        [&] {
            double mean, variance;
            xpxht_statistic(t, &mean, &variance, 0);
            EXPECT_EQ(mean, 0.5) << "of two that were";
        },
        [&] {
            xp_xhashenum e;
            for (xp_init_xhashenum(&e, t, 1); xpxhe_next(&e);) EXPECT_STREQ(text(e.current->key), "g");
        },
    };
    for (const auto &walk : walks) {
        for (const char *key : {"b", "g"}) xpxht_put(t, key, key, -1);
        xpxht_write_lock(t, "b");
        std::thread walker(walk);
        while (!waiters(t->lock, 1)) std::this_thread::yield();
        EXPECT_EQ(xpxht_del(t, "b", 1), 1);
        xpxht_write_unlock(t, 1);
        walker.join();
        EXPECT_EQ(held(), "0000");
        xpxht_clear(t, 0);
        EXPECT_EQ(xpxht_count(t), 0);
    }
}

} // namespace
