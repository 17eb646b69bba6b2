#include "vorncore/base/xlruhash.h"

#include <atomic>

#include "base/hashcalls.h"

using namespace hashes;

namespace {

constexpr auto gets =
    values<xp_xlruhash, xp_xlruhashiter, xpxlh_get, xpxlh_get_pair, xpxlh_get_all, xpxlh_get_first, xpxlh_get_next>;
constexpr auto peeks = values<xp_xlruhash, xp_xlruhashiter, xpxlh_peek, xpxlh_peek_pair, xpxlh_peek_all,
                              xpxlh_peek_first, xpxlh_peek_next>;
using table_calls = calls<xp_xlruhashenum, gets, peeks, xpxlh_put, xpxlh_update, xpxlh_replace, xpxlh_add, xpxlh_new,
                          xpxlh_del, xpxlh_del_all, xpxlh_contains, xpxlh_count, xpxlh_enumerate_ex, xpxlh_reset,
                          xp_init_xlruhashenum, xpxlhe_next, xpxlhe_del, xp_close_xlruhashenum, xp_destroy_xlruhash,
                          xp_create_xlruhashenum, xp_destroy_xlruhashenum>;
using locks = table_calls::locks<xpxlh_read_lock, xpxlh_write_lock, xpxlh_read_unlock, xpxlh_write_unlock,
                                 xpxlh_read_lock_by_nr, xpxlh_write_lock_by_nr, xpxlh_read_lock_all,
                                 xpxlh_write_lock_all, xpxlh_read_unlock_all, xpxlh_write_unlock_all, xpxlh_read_locks,
                                 xpxlh_write_locks, xpxlh_read_unlocks, xpxlh_write_unlocks>;

TEST(XLruHash, BehavesLikeItsModel) {
    xp_xlruhash *t;
    harness::oom_sweep([&] { t = xp_create_xlruhash(3, 0, 12, 5, nullptr, nullptr, keep, release, keep, release); });
    t->lru.hash = nullptr; // not needed for a bucket that is given
    model m{model::shared_lru, by_length};
    table_calls::expect_like_model(t, m, [&](int step) {
        if (step % 3 == 0) xpxlh_diet(t), m.diet();
    });
}

/// Who holds the slots, and the list behind them.
std::string held(const xp_xlruhash &table) {
    return holders(table.bucket_lock, table.slot_count) + holders(table.list_lock, 1);
}

TEST(XLruHash, StatisticGivesWhatIsEvictedAPositionAndNoMore) {
    xp_xlruhash *const t = xp_create_xlruhash(1, 0, 2, 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    double mean, variance;
    xpxlh_statistic(t, &mean, &variance, 0);
    EXPECT_TRUE(mean == 0 && variance == 0);
    for (const char *key : {"a", "b", "c"}) xpxlh_put(t, key, key, 0), xpxlh_get(t, "a", 0);
    xpxlh_statistic(t, &mean, &variance, 0);
    EXPECT_TRUE(mean == 2 && variance == 1);
    xp_destroy_xlruhash(t);
}

/// Three items, a, b and c, that the enumerator walks while others evict, free, delete and use. Whatever the order:
/// nothing is released by an eviction, or while the enumerator is on it, or twice; and the enumerator meets every item
/// that lasts, in order, unless the one it was on, or that one itself, was moved by a use.
struct encounter {
    xp_xlruhash table;
    xp_xlruhashenum e;
    std::string met, gone, unused = "abc", fresh = "fjnrv"; // those that come anew have b's slot
    bool ended = false, moved = false, deleted = false;

    explicit encounter(int mode) {
        xp_init_xlruhash(&table, 4, XP_RWLOCK_WRITER_FIRST, 3, 26, by_letter, nullptr, keep, release, keep, nullptr);
        for (const char key : unused) put(key);
        xp_init_xlruhashenum(&e, &table, mode);
    }
    void put(char key) {
        const char text[] = {key, 0};
        EXPECT_EQ(xpxlh_put(&table, text, text, by_letter(text, 26)), 1);
    }
    char current() const { return e.current == e.sentinel ? '.' : *text(e.current->key); }
    /// "?" for a result that does not fit, and for an item that is in no bucket.
    char at(int more) const {
        const bool there = e.current->next && e.current->next->previous == e.current;
        return more == (e.current != e.sentinel) && (there || !more) ? current() : '?';
    }

    /// > and X: the enumerator moves on, or deletes; p put, t diet, d del of b, g get of b.
    void act(char what) {
        gone += take_released(); // by diets in other threads
        if (what == '>' && !ended) met += at(xpxlhe_next(&e));
        if (what == 'X' && !ended) met += at(xpxlhe_del(&e));
        ended = met.ends_with('.');
        if (what == 't') xpxlh_diet(&table);
        if (what == 'd') deleted |= xpxlh_del(&table, "b", 1);
        if (what == 'g' && xpxlh_get_pair(&table, "b", 1)) unused = "ac", moved |= !ended && current() == 'b';
        if (what == 'p') put(fresh[0]), fresh.erase(0, 1);
        const std::string now = take_released();
        EXPECT_TRUE(now.empty() || (what != 'p' && what != 'g')) << what;
        gone += now;
        EXPECT_EQ(gone.find(current()), gone.npos) << "released under the enumerator";
    }

    /// Once the enumerator is closed.
    ~encounter() {
        std::string lasting, of_them;
        for (const char key : unused)
            if (xpxlh_contains(&table, std::string(1, key).c_str(), by_letter(&key, 26))) lasting += key;
        for (const char key : met)
            if (lasting.find(key) != lasting.npos) of_them += key;
        EXPECT_EQ(met.find('?'), met.npos);
        EXPECT_TRUE(moved || of_them == lasting) << "met " << met << ", lasting " << lasting;
        EXPECT_EQ(held(table), "00000");
        texts left;
        EXPECT_EQ(xpxlh_enumerate(&table, note_value, &left, 0), xpxlh_count(&table));
        xp_close_xlruhash(&table);
        gone += take_released();
        std::erase(gone, '-');
        std::sort(gone.begin(), gone.end());
        EXPECT_EQ(gone + fresh, "abcfjnrv");
    }
};

/// Calls play(word) with every word of up to so many of the letters.
void in_every_order(const std::string &letters, size_t most, const std::function<void(const std::string &)> &play,
                    const std::string &word = "") {
    SCOPED_TRACE(word);
    play(word);
    for (const char letter : letters)
        if (word.size() < most) in_every_order(letters, most, play, word + letter);
}

TEST(XLruHash, EnumeratorWithoutLocksMeetsOthersInEveryOrder) {
    in_every_order(">Xpdgt", 5, [](const std::string &order) {
        encounter all(2);
        for (const char what : '>' + order) all.act(what);
        while (!all.ended) all.act('>');
        xp_close_xlruhashenum(&all.e);
    });
}

/// The enumerator rests on a and, on its way to b, waits for b's slot, which this thread has. This thread takes steps;
/// where a diet has to wait for the slot, it does so in a thread of its own, and goes before an enumerator that reads.
void meet_between_slots(int mode, const std::string &steps) {
    encounter all(mode);
    std::atomic<size_t> dieted = 0;
    std::atomic<bool> ended = false;
    bool waited = false;
    std::vector<std::thread> threads;
    const auto start = [&](auto work) { // waits until it waits, or is done
        threads.emplace_back(work);
        while (waiters(all.table.bucket_lock, 1) + dieted < threads.size()) std::this_thread::yield();
    };
    all.act('>');
    xpxlh_write_lock_by_nr(&all.table, 1);
    start([&] {
        while (xpxlhe_next(&all.e)) all.met += all.at(1);
        xp_close_xlruhashenum(&all.e);
        ended = true;
    });
    for (const char what : steps) what == 't' ? start([&] { xpxlh_diet(&all.table), dieted++; }) : all.act(what);
    xp_xlruhashenum reader; // with which one that reads shares the list, until it has to take b off
    xp_init_xlruhashenum(&reader, &all.table, mode ? 2 : 0);
    xpxlh_write_unlock(&all.table, 1);
    while (!ended && !waited) waited = waiters(all.table.list_lock, 0), std::this_thread::yield();
    xp_close_xlruhashenum(&reader);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(waited, mode == 0 && all.deleted);
}

TEST(XLruHash, EnumeratorsThatChangeSlotsMeetOthersInEveryOrder) {
    for (const int mode : {0, 1})
        in_every_order("pdgt", 4, [=](const std::string &steps) { meet_between_slots(mode, steps); });
}

TEST(XLruHash, EnumeratorsPassAnItemThatIsBeingDeleted) {
    for (const int mode : {0, 1}) {
        encounter all(mode);
        all.act('>');
        std::thread deleting([&] { // which comes to wait for the list
            xpxlh_write_lock_by_nr(&all.table, 1);
            xpxlh_del(&all.table, "b", 1);
            xpxlh_write_unlock(&all.table, 1);
        });
        while (!waiters(all.table.list_lock, 0)) std::this_thread::yield();
        while (!all.ended) all.act('>');
        xp_close_xlruhashenum(&all.e);
        deleting.join();
        EXPECT_EQ(all.met, "ac.");
    }
}

TEST(XLruHash, TakesTheLocksThatItSays) {
    xp_xlruhash *const t = xp_create_xlruhash(3, 0, 9, 8, by_letter, nullptr, nullptr, nullptr, nullptr, nullptr);
    locks::expect_locks(t, t->bucket_lock, &t->list_lock, 0x80000000);
}

/// Lets others in between a search and what follows from it.
int compare_and_yield(const void *a, const void *b) {
    const int result = strcmp(text(a), text(b));
    if (!result) std::this_thread::yield();
    return result;
}

TEST(XLruHash, LetsThreadsShareIt) {
    for (const int threads : harness::thread_counts) {
        xp_xlruhash *const t = xp_create_xlruhash(8, threads / 2 % 8 /* 1, 2, 0 */, 10, 17, nullptr, compare_and_yield,
                                                  duplicate, free, duplicate, free);
        locks::let_share(t, threads, [=](int n) {
            EXPECT_LE(xpxlh_count(t), 11) << "one is on its way in";
            if (n % 16 == 0) xpxlh_diet(t);
            if (n % 1024 == 0) xpxlh_clear(t, 0);
            double mean, variance;
            if (n % 64 == 1) xpxlh_statistic(t, &mean, &variance, 0);
        });
        EXPECT_EQ(held(*t), "000000000");
        xp_xlruhashenum e;
        int on_list = 0;
        for (xp_init_xlruhashenum(&e, t, 2); xpxlhe_next(&e); on_list++)
            EXPECT_TRUE(e.current->older->newer == e.current && e.current->references == 2);
        EXPECT_EQ(xpxlh_count(t), on_list);
        xp_destroy_xlruhash(t);
    }
}

} // namespace
