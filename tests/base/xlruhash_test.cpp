#include "vorncore/base/xlruhash.h"

#include <string.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <random>
#include <thread>

#include "support/harness.h"
#include "support/threads.h"

namespace {

const char *text(const void *item) { return static_cast<const char *>(item); }
void *duplicate(const void *item) { return strdup(text(item)); }
uint32_t by_letter(const void *key, uint32_t n) { return static_cast<uint32_t>(*text(key) - 'a') % n; }

int note_key(void *keys, xp_pair *pair) { return *static_cast<std::string *>(keys) += text(pair->key), 1; }
int stop(void *, xp_pair *) { return 0; }

std::mutex releasing;
std::string released; // keys, each after a "-"
void release(void *key) {
    const std::lock_guard lock(releasing);
    released += std::string("-") + text(key);
    free(key);
}
std::string take_released() {
    const std::lock_guard lock(releasing);
    return std::exchange(released, {});
}

/// A table whose keys begin with a letter, in a bucket for each, and an enumerator. A step is an operation and its key;
/// it gives its result ("." for no key) and the keys that it releases. What it stores is its number, which "f" and
/// those in capitals show. Steps take no slots.
struct stage {
    xp_xlruhash table;
    xp_xlruhashenum e;
    int steps = 0;

    stage(int capacity, int mode) {
        xp_init_xlruhash(&table, 4, XP_RWLOCK_WRITER_FIRST, capacity, 26, by_letter, nullptr, duplicate, release,
                         nullptr, nullptr);
        xp_init_xlruhashenum(&e, &table, mode);
    }
    std::string current() const { return e.current == e.sentinel ? "." : text(e.current->key); }
    /// "?" for a result that does not fit, and for an item that is in no bucket.
    std::string at(int more) const {
        const bool there = e.current->next && e.current->next->previous == e.current;
        return more == (e.current != e.sentinel) && (there || !more) ? current() : "?";
    }
    static std::string key_of(const xp_pair *pair) { return pair ? text(pair->key) : "."; }

    std::string all(decltype(xpxlh_get_all) *values_of, const char *k, uint32_t b) {
        std::string result;
        xp_array values;
        xp_init_array(&values, 1, nullptr, nullptr);
        EXPECT_EQ(values_of(&table, k, &values, b), values.count);
        for (int i = 0; i < values.count; i++) result += *text(values.items[i]);
        return xp_close_array(&values), result;
    }
    std::string each(decltype(xpxlh_get_first) *first, decltype(xpxlh_get_next) *next, const char *k, uint32_t b) {
        std::string result;
        xp_xlruhashiter i;
        void *value;
        for (int more = first(&table, k, &i, &value, b); more; more = next(&table, &i, &value, b))
            result += *text(value);
        return result;
    }

    std::string result(const std::string &step) {
        const char *const k = step.c_str() + 1, *const v = &"0123456789abcdefghij"[steps++ % 20];
        const uint32_t b = *k >= 'a' ? by_letter(k, 26) : 0;
        int inserted = 9;
        double mean, variance;
        std::string shown;
        switch (step[0]) {
        case 'p': return std::to_string(xpxlh_put(&table, k, v, b));
        case 'u': return std::to_string(xpxlh_update(&table, k, v, b));
        case 'r': return std::to_string(xpxlh_replace(&table, k, v, b));
        case 'n': return shown = *text(xpxlh_new(&table, k, v, &inserted, b)), shown + std::to_string(inserted);
        case 'a': return xpxlh_add(&table, k, v, b), "";
        case 'd': return std::to_string(xpxlh_del(&table, k, b));
        case 'D': return std::to_string(xpxlh_del_all(&table, k, b));
        case 'g': return key_of(xpxlh_get_pair(&table, k, b));
        case 'k': return key_of(xpxlh_peek_pair(&table, k, b));
        case 'G': return all(xpxlh_get_all, k, b);
        case 'K': return all(xpxlh_peek_all, k, b);
        case 'f': return each(xpxlh_get_first, xpxlh_get_next, k, b);
        case 'F': return each(xpxlh_peek_first, xpxlh_peek_next, k, b);
        case '?': return std::to_string(xpxlh_contains(&table, k, b));
        case 'e': return xpxlh_enumerate(&table, note_key, &shown, 0), shown;
        case '#': return std::to_string(xpxlh_count(&table));
        case 's': return xpxlh_statistic(&table, &mean, &variance, -1), std::to_string(int(10 * mean + variance));
        case 't': return xpxlh_diet(&table), "";
        case 'c': return xpxlh_clear(&table, *k - '1'), ""; // "c0" without locks
        case 'z': return table.lru.capacity = *k - '0', "";
        case '>': return at(xpxlhe_next(&e));
        case 'X': return at(xpxlhe_del(&e));
        case 'q': return xp_close_xlruhashenum(&e), xp_init_xlruhashenum(&e, &table, 2), "";
        }
        return "?";
    }
};

TEST(XLruHash, ShowsItsOddRules) {
    const struct {
        const char *name, *steps, *results;
    } cases[] = {
        {"evicted at once, released by diet", "pa pb pc # ga ka t", "1 1 1 2 . . -a"},
        {"peek is no use", "pa pb ka pc ga", "1 1 a 1 ."},
        {"get is a use", "pa pb ga pc ka kb", "1 1 a 1 a ."},
        {"update is no use", "pa pb ua pc ka", "1 1 1-a 1 ."},
        {"new of a present key is a use", "pa pb na pc ?b", "1 1 00 1 0"},
        {"new and add evict", "pa pb nc ab # t", "1 1 21  2 -b-a"},
        {"one eviction goes from the least recently used on", "z3 pa pb pc z1 ga pd t #", " 1 1 1  a 1 -b-c-a 1"},
        {"replace and update go for the newest", "z3 aa aa ra ua rb Ka", "   1-a 1-a 0 41"},
        {"equal keys are used newest first", "z3 aa aa aa Ga pb Ka fa pb Ka", "    321 1 21 21 0 21"},
        {"peek uses none of them", "z2 aa aa Fa pb Ka", "   21 1 2"},
        {"del takes the newest, del_all all", "z4 aa aa aa pab da Da # t", "    1 1-a 2-a-a 1 "},
        {"a key comes back while it is pending", "pa pb pc pa ka t #", "1 1 1 1 a -b-a 2"},
        {"an evicted item is not there to delete", "pa pb pc da db t", "1 1 1 0 1-b -a"},
        {"clear goes by buckets, then frees what is pending", "pa pc pb c1 #", "1 1 1 -b-c-a 0"},
        {"clear without locks", "pa pc pb c0 #", "1 1 1 -b-c-a 0"},
        {"freed when the enumerator moves on", "pa pb > pc t >", "1 1 a 1  b-a"},
        {"freed when the enumerator is closed", "pa pb > pc t q", "1 1 a 1  -a"},
        {"on from an evicted item", "pa pb > pc pd > > > t", "1 1 a 1 1 c d . -b-a"},
        {"on from a deleted item", "pa pb > da # >", "1 1 a 1 1 b-a"},
        {"on from a cleared table", "pa pb > c1 >", "1 1 a -b .-a"},
        {"on from an item that was used", "pa pb > ga >", "1 1 a a ."},
        {"deletes on its way, and starts anew", "pa pb X > X # > > X X #", "1 1 . a b-a 1 . b .-b . 0"},
        {"an evicted item has a position, no more", "s pa pax ga pay s e", "0 1 1 a 1 21 aya"},
        {"an evicted item is not deleted", "pa pb > pc X t q", "1 1 a 1 b -a "},
    };
    for (const auto &c : cases) {
        stage s(2, 2);
        std::string results, steps = std::string(c.steps) + ' ';
        for (size_t end; (end = steps.find(' ')) != steps.npos; steps.erase(0, end + 1))
            results += s.result(steps.substr(0, end)), results += take_released() + ' ';
        results.pop_back();
        EXPECT_EQ(results, c.results) << c.name;
        s.result("q");
        xp_close_xlruhash(&s.table);
        take_released();
    }
}

/// Three items, a, b and c, that the enumerator walks while others evict, free, delete and use. Whatever the order:
/// nothing is released by an eviction, or while the enumerator is on it, or twice; and the enumerator meets every item
/// that lasts, in order, unless the one it was on, or that one itself, was moved by a use.
struct encounter : stage {
    std::string met, gone, unused = "abc", fresh = "fjnr"; // those that come anew have b's slot
    bool ended = false, moved = false, deleted = false;

    explicit encounter(int mode) : stage(3, 2) {
        for (const char *step : {"pa", "pb", "pc"}) EXPECT_EQ(result(step), "1");
        xp_init_xlruhashenum(&e, &table, mode);
    }

    void act(char what) {
        gone += take_released(); // by diets in other threads
        if (ended && (what == '>' || what == 'X')) return;
        if (what == '>' || what == 'X') met += result({what}), ended = met.back() == '.';
        if (what == 't') result("t");
        if (what == 'd') deleted |= result("db") == "1";
        if (what == 'g' && result("gb") == "b") unused = "ac", moved |= !ended && current() == "b";
        if (what == 'p') result(std::string("p") + fresh[0]), fresh.erase(0, 1);
        const std::string now = take_released();
        EXPECT_TRUE(now.empty() || (what != 'p' && what != 'g')) << what;
        gone += now;
        EXPECT_EQ(gone.find(current()), gone.npos) << "released under the enumerator";
    }

    /// Once the enumerator is closed.
    ~encounter() {
        std::string lasting, of_them;
        for (const char key : unused) lasting += result({'k', key});
        std::erase(lasting, '.');
        for (const char key : met)
            if (lasting.find(key) != lasting.npos) of_them += key;
        EXPECT_EQ(met.find('?'), met.npos);
        EXPECT_TRUE(moved || of_them == lasting) << "met " << met << ", lasting " << lasting;
        result("t");
        gone += take_released();
        const std::string live = result("e");
        EXPECT_EQ(result("#"), std::to_string(live.size()));
        EXPECT_EQ(gone.size() / 2 + live.size() + fresh.size(), 7);
        xp_close_xlruhash(&table);
        gone += take_released();
        std::erase(gone, '-');
        std::sort(gone.begin(), gone.end());
        EXPECT_EQ(gone + fresh, "abcfjnr");
    }
};

/// Calls play(order) with every order in which the steps of the actors, each actor's in their own order, can follow one
/// another; returns how many there are.
template <class Play>
int in_every_order(const std::vector<std::string> &actors, const Play &play, const std::string &order = "") {
    int plays = 0;
    for (size_t i = 0; i < actors.size(); i++) {
        if (actors[i].empty()) continue;
        auto rest = actors;
        rest[i].erase(0, 1);
        plays += in_every_order(rest, play, order + actors[i][0]);
    }
    if (!plays) play(order);
    return std::max(plays, 1);
}

TEST(XLruHash, EnumeratorWithoutLocksMeetsOthersInEveryOrder) {
    const struct {
        std::vector<std::string> actors;
        int orders;
    } cases[] = {{{">>>", "ppp", "tdt"}, 1680}, {{">>>>", "pp", "tgt"}, 1260}, {{">X>", "pp", "dt"}, 210},
                 {{">>X>", "pg", "td"}, 420},   {{">X>", "pppp", "tt"}, 1260}, {{">", "pppp", "dgt"}, 280}};
    const auto play = [](const std::string &order) {
        SCOPED_TRACE(order);
        encounter all(2);
        for (const char what : order) all.act(what);
        while (!all.ended) all.act('>');
        xp_close_xlruhashenum(&all.e);
    };
    for (const auto &c : cases) EXPECT_EQ(in_every_order(c.actors, play), c.orders);
}

size_t waiters(xp_rwlock &lock, int slot) {
    pthread_mutex_lock(&lock.mutex);
    const int waiting = lock.waiting_readers[slot] + lock.waiting_writers[slot];
    pthread_mutex_unlock(&lock.mutex);
    return static_cast<size_t>(waiting);
}

/// The enumerator rests on a and, on its way to b, waits for b's slot, which this thread has. This thread takes steps;
/// where a diet has to wait for the slot, it does so in a thread of its own, and goes before an enumerator that reads.
void meet_between_slots(int mode, const std::string &steps) {
    SCOPED_TRACE(std::to_string(mode) + " " + steps);
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
        for (int n = 0; n < 625; n++) { // every word of up to four steps
            std::string steps;
            for (int rest = n; rest; rest /= 5) steps += " pdgt"[rest % 5];
            if (steps.find(' ') == steps.npos) meet_between_slots(mode, steps);
        }
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

/// The holders of the slots and of the list lock: a digit for readers, w for a writer.
std::string held(const xp_xlruhash &table) {
    std::string all;
    const auto add = [&](const xp_rwlock &lock, int slot) {
        all += lock.active_writers[slot] ? "w" : std::to_string(lock.active_readers[slot]);
    };
    for (int slot = 0; slot < table.slot_count; slot++) add(table.bucket_lock, slot);
    add(table.list_lock, 0);
    return all;
}

TEST(XLruHash, TakesTheLocksThatItSays) {
    xp_xlruhash *const t = xp_create_xlruhash(4, 0, 9, 8, by_letter, nullptr, nullptr, nullptr, nullptr, nullptr);
    for (const char *key : {"h", "c"}) xpxlh_put(t, key, key, by_letter(key, 8));
    xp_array *keys = xp_create_array(4, nullptr, nullptr), *slots = xp_create_array(1, nullptr, nullptr);
    for (const char *key : {"h", "b", "d", "f"}) xpar_add(keys, key); // d and h share a slot, b and f another
    xp_xlruhashenum e;
    const auto walk = [&](int mode, int steps) {
        int more = 0;
        for (xp_init_xlruhashenum(&e, t, mode); steps--;) more = xpxlhe_next(&e);
        return more;
    };
    const auto leave = [&] { xp_close_xlruhashenum(&e); };
    const auto stopped = [&](int mode) { return xpxlh_enumerate_ex(t, stop, nullptr, -5, 9, mode); };
    const auto leave_both = [&] { xprwl_write_unlock(&t->list_lock, 0), xpxlh_write_unlock(t, 2); };
    constexpr uint32_t mark = 0x80000000;
    const struct {
        size_t result;
        const char *held;
        std::function<size_t()> take;
        std::function<void()> leave;
    } cases[] = {
        {7, "00010", [&] { return xpxlh_read_lock(t, "h"); }, [&] { xpxlh_read_unlock(t, mark | 7); }},
        {mark | 7, "000w0", [&] { return xpxlh_write_lock(t, "h"); }, [&] { xpxlh_write_unlock(t, 7); }},
        {7, "00010", [&] { return xpxlh_read_lock_by_nr(t, mark | 7); }, [&] { xpxlh_read_unlock(t, 7); }},
        {mark | 7, "000w0", [&] { return xpxlh_write_lock_by_nr(t, 7); }, [&] { xpxlh_write_unlock(t, mark | 7); }},
        {4, "11110", [&] { return xpxlh_read_lock_all(t); }, [&] { EXPECT_EQ(xpxlh_read_unlock_all(t), 4); }},
        {4, "wwww0", [&] { return xpxlh_write_lock_all(t); }, [&] { EXPECT_EQ(xpxlh_write_unlock_all(t), 4); }},
        {2, "01010", [&] { return xpxlh_read_locks(t, keys, slots); }, [&] { xpxlh_read_unlocks(t, slots); }},
        {mark | 3, "0w0w0",
         [&] { return xpxlh_write_locks(t, keys, slots), reinterpret_cast<uintptr_t>(slots->items[1]); },
         [&] { xpxlh_write_unlocks(t, slots); }},
        {0, "00101", [&] { return stopped(0); }, [&] { xprwl_read_unlock(&t->list_lock, 0), xpxlh_read_unlock(t, 2); }},
        {0, "00w0w", [&] { return stopped(1); }, leave_both},
        {0, "00w0w", [&] { return stopped(2); }, leave_both},
        {0, "00000", [&] { return stopped(-1); }, [] {}},
        {0, "00001", [&] { return walk(0, 0); }, leave},
        {1, "00011", [&] { return walk(0, 1); }, leave},
        {1, "00w0w", [&] { return walk(1, 2); }, leave},
        {0, "0000w", [&] { return walk(1, 3); }, leave},
        {1, "00000", [&] { return walk(-1, 1); }, leave},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.take(), c.result) << c.held;
        EXPECT_EQ(held(*t), c.held);
        c.leave();
        EXPECT_EQ(held(*t), "00000") << c.held;
    }
    EXPECT_EQ(slots->count, 0);
    xp_destroy_array(keys), xp_destroy_array(slots);
    xp_destroy_xlruhash(t);
}

std::atomic<int> values, wrong; // a value is a copy of its key
void *make_value(const void *key) { return values++, strdup(text(key)); }
void drop_value(void *value) { values--, *static_cast<char *>(value) = '!', free(value); }
void check(const void *key, const void *value) { wrong += strcmp(text(key), text(value)) != 0; }
int check_pair(void *, xp_pair *pair) { return check(pair->key, pair->value), 1; }

/// Lets others in between a search and what follows from it.
int compare_and_yield(const void *a, const void *b) {
    const int result = strcmp(text(a), text(b));
    if (!result) std::this_thread::yield();
    return result;
}

struct XLruHashThreads : testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(, XLruHashThreads, testing::ValuesIn(harness::thread_counts));

TEST_P(XLruHashThreads, ShareATable) {
    constexpr int capacity = 10;
    xp_xlruhash *const t = xp_create_xlruhash(8, GetParam() / 2 % 8 /* 1, 2, 0 */, capacity, 17, nullptr,
                                              compare_and_yield, duplicate, free, make_value, drop_value);
    const auto walk = [=](int mode, int steps) {
        xp_xlruhashenum e;
        xp_init_xlruhashenum(&e, t, mode);
        for (int more = xpxlhe_next(&e); more && steps--; more = mode && steps % 3 ? xpxlhe_del(&e) : xpxlhe_next(&e))
            check(e.current->key, e.current->value);
        xp_close_xlruhashenum(&e);
    };
    harness::in_threads(GetParam(), [=](int self) {
        std::mt19937 random(static_cast<unsigned>(self));
        for (int n = 0; n < 48'000 / GetParam(); n++) {
            const std::string key = std::to_string(random() % 20 * (random() % 20));
            const char *const k = key.c_str();
            const unsigned what = random() % 64;
            double mean, variance;
            const bool reads = what < 32, writes = !reads && what < 56;
            const uint32_t b = reads ? xpxlh_read_lock(t, k) : writes ? xpxlh_write_lock(t, k) : 0;
            const void *value = what < 12 ? xpxlh_get(t, k, b) : what < 24 ? xpxlh_peek(t, k, b) : nullptr;
            if (reads && !value) xpxlh_get_all(t, k, nullptr, b);
            if (writes && what < 40) xpxlh_put(t, k, k, b);
            if (writes && what >= 40 && what < 44) xpxlh_update(t, k, k, b);
            if (writes && what >= 44 && what < 48) value = xpxlh_new(t, k, k, nullptr, b);
            if (writes && what >= 48) what % 2 ? xpxlh_del(t, k, b) : xpxlh_del_all(t, k, b);
            if (value) check(k, value);
            if (reads) xpxlh_read_unlock(t, b);
            if (writes) xpxlh_write_unlock(t, b);
            if (what == 56 || what == 57) xpxlh_diet(t);
            if (what == 58 || what == 59) walk(what % 2, n % 50);
            if (what == 60) xpxlh_enumerate(t, check_pair, nullptr, n % 2);
            if (what == 61) xpxlh_statistic(t, &mean, &variance, 0);
            if (what == 62 && n % 8 == 0) xpxlh_clear(t, 0);
            wrong += xpxlh_count(t) > capacity + 1; // one is on its way in
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(held(*t), "000000000");
    int on_list = 0, in_buckets = xpxlh_enumerate(t, check_pair, nullptr, -1);
    xp_xlruhashenum e;
    for (xp_init_xlruhashenum(&e, t, 0); xpxlhe_next(&e); on_list++) {
        EXPECT_TRUE(e.current->older->newer == e.current && e.current->next->previous == e.current);
        EXPECT_TRUE(e.current->valid == 1 && e.current->references == 2);
    }
    xp_close_xlruhashenum(&e);
    EXPECT_TRUE(on_list == xpxlh_count(t) && on_list == in_buckets && on_list <= capacity);
    xpxlh_diet(t);
    EXPECT_EQ(values, on_list);
    xp_destroy_xlruhash(t);
    EXPECT_EQ(values, 0);
}

TEST(XLruHash, FailedAllocationsLeaveTheTableAsItWas) {
    harness::oom_sweep([] {
        xp_xlruhash *table = xp_create_xlruhash(2, 0, 9, 3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (!table) return;
        int inserted = 9;
        const bool put = xpxlh_put(table, "a", "1", 0), added = xpxlh_new(table, "b", "2", &inserted, 1);
        EXPECT_EQ(xpxlh_count(table), put + added);
        EXPECT_EQ(inserted, added);
        if (xp_xlruhashenum *e = xp_create_xlruhashenum(table, 0)) xp_destroy_xlruhashenum(e);
        xp_destroy_xlruhash(table);
    });
}

} // namespace
