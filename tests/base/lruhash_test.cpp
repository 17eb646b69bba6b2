#include "vorncore/base/lruhash.h"

#include <string.h>

#include <algorithm>
#include <random>

#include "support/harness.h"
#include "vorncore/base/hashtable.h"

namespace {

using texts = std::vector<std::string>;

const char *text(const void *item) { return static_cast<const char *>(item); }
void *duplicate(const void *item) { return strdup(text(item)); }

texts released; // in order, keys before their values
void release(void *item) {
    released.push_back(text(item));
    free(item);
}

uint32_t by_length(const void *key, uint32_t n) { return static_cast<uint32_t>(strlen(text(key))) % n; }

/// What a table must hold: pairs by use, the one unused longest first; of equal keys the one with the highest age is
/// the newest.
struct model {
    static constexpr uint32_t buckets = 5;
    struct pair {
        std::string key, value;
        int age;
    };
    std::vector<pair> pairs;
    size_t capacity = 12;
    int ages = 0;
    texts dropped;

    /// Indices of the equal pairs, newest first; with an empty key of all pairs.
    std::vector<size_t> equal(const std::string &key) const {
        std::vector<size_t> found;
        for (size_t i = 0; i < pairs.size(); i++)
            if (key.empty() || pairs[i].key == key) found.push_back(i);
        std::sort(found.begin(), found.end(), [&](size_t a, size_t b) { return pairs[a].age > pairs[b].age; });
        return found;
    }
    std::vector<size_t> by_bucket(xp_hash_fn hash) const {
        std::vector<size_t> all = equal("");
        const auto bucket = [&](size_t i) { return hash(pairs[i].key.c_str(), buckets); };
        std::stable_sort(all.begin(), all.end(), [&](size_t a, size_t b) { return bucket(a) < bucket(b); });
        return all;
    }
    void rehash(xp_hash_fn before) {
        ages = 0;
        for (const size_t i : by_bucket(before)) pairs[i].age = ++ages;
    }
    void drop(size_t i) {
        dropped.insert(dropped.end(), {pairs[i].key, pairs[i].value});
        pairs.erase(pairs.begin() + static_cast<ptrdiff_t>(i));
    }
    int trim(size_t limit) {
        int count = 0;
        for (; pairs.size() > limit; count++) drop(0);
        return count;
    }
    void add(const std::string &key, const std::string &value) { pairs.push_back({key, value, ++ages}); }
    int put(const std::string &key, const std::string &value, bool inserts, bool overwrites) {
        const auto found = equal(key);
        if (found.empty() && inserts) trim(capacity - 1), add(key, value);
        if (found.empty()) return inserts;
        if (!overwrites) return 0;
        dropped.insert(dropped.end(), {key, pairs[found[0]].value});
        pairs[found[0]].value = value;
        return 1;
    }
    /// The newest `most` values of a key, which are used in that order, if so asked.
    texts values(const std::string &key, bool used, size_t most) {
        texts found;
        for (const size_t i : equal(key))
            if (found.size() < most) found.push_back(pairs[i].value);
        for (size_t n = 0; used && n < found.size(); n++) {
            const auto at = std::find_if(pairs.begin(), pairs.end(), [&](auto &p) { return p.value == found[n]; });
            std::rotate(at, at + 1, pairs.end());
        }
        return found;
    }
};

/// Contents of the table as its walks give them: newest first by bucket, then by use from either end.
texts walked(xp_lruhash *table) {
    texts all;
    const auto note = [](void *list, xp_pair *pair) {
        static_cast<texts *>(list)->push_back(text(pair->value));
        return 1;
    };
    EXPECT_EQ(xplh_enumerate(table, note, &all), xplh_count(table));
    xp_lruhashenum e;
    xp_init_lruhashenum(&e, table);
    while (xplhe_next(&e)) all.push_back(text(e.current->value));
    while (xplhe_prev(&e)) all.push_back(text(e.current->value));
    return all;
}
texts walked(const model &m, xp_hash_fn hash) {
    texts all, by_use;
    for (const size_t i : m.by_bucket(hash)) all.push_back(m.pairs[i].value);
    for (const auto &pair : m.pairs) by_use.push_back(pair.value);
    all.insert(all.end(), by_use.begin(), by_use.end());
    all.insert(all.end(), by_use.rbegin(), by_use.rend());
    return all;
}

texts taken(xp_array &values) {
    texts all;
    for (int i = 0; i < values.count; i++) all.push_back(text(values.items[i]));
    xpar_forget_all(&values);
    return all;
}

TEST(LruHash, BehavesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    model m;
    released.clear();
    xp_lruhash table;
    xp_init_lruhash(&table, static_cast<int>(m.capacity), m.buckets, nullptr, nullptr, duplicate, release, duplicate,
                    release);
    xp_array found;
    xp_init_array(&found, 1, nullptr, nullptr);
    for (int step = 0; step < 20'000; step++) {
        const std::string key(1 + random() % 3, static_cast<char>('a' + random() % 6)), value = std::to_string(step);
        const char *const k = key.c_str(), *const v = value.c_str();
        const auto equal = m.equal(key);
        const size_t at = m.pairs.empty() ? 0 : random() % m.pairs.size();
        const bool used = random() % 2;
        xp_lruhashiter iterator;
        void *one;
        int flag = 9;
        SCOPED_TRACE("step " + value + " key " + key);
        switch (random() % 16) {
        case 0:
        case 1:
        case 2: ASSERT_EQ(xplh_put(&table, k, v), m.put(key, value, true, false)); break;
        case 3: ASSERT_EQ(xplh_update(&table, k, v), m.put(key, value, true, true)); break;
        case 4: ASSERT_EQ(xplh_replace(&table, k, v), m.put(key, value, false, true)); break;
        case 5:
        case 6: xplh_add(&table, k, v), m.add(key, value); break;
        case 7:
            ASSERT_STREQ(text(xplh_new(&table, k, v, &flag)), equal.empty() ? v : m.pairs[equal[0]].value.c_str());
            ASSERT_EQ(flag, equal.empty());
            if (flag) m.add(key, value);
            break;
        case 8:
        case 9:
            one = used ? xplh_get(&table, k) : xplh_peek(&table, k);
            if (one) xpar_add(&found, one);
            ASSERT_EQ(taken(found), m.values(key, used, 1));
            break;
        case 10:
            flag = used ? xplh_get_all(&table, k, &found) : xplh_peek_all(&table, k, &found);
            ASSERT_EQ(flag, static_cast<int>(equal.size()));
            ASSERT_EQ(taken(found), m.values(key, used, 99));
            break;
        case 11:
            flag = used ? xplh_get_first(&table, k, &iterator, &one) : xplh_peek_first(&table, k, &iterator, &one);
            while (flag) {
                xpar_add(&found, one);
                flag = used ? xplh_get_next(&table, &iterator, &one) : xplh_peek_next(&table, &iterator, &one);
            }
            ASSERT_EQ(taken(found), m.values(key, used, 99));
            break;
        case 12:
            ASSERT_EQ(xplh_contains(&table, k), !equal.empty());
            ASSERT_EQ(xplh_del(&table, k), !equal.empty());
            if (!equal.empty()) m.drop(equal[0]);
            break;
        case 13:
            if (step % 4 == 0) {
                ASSERT_EQ(xplh_del_all(&table, k), static_cast<int>(equal.size()));
                for (auto left = equal; !left.empty(); left = m.equal(key)) m.drop(left[0]);
            } else if (!m.pairs.empty()) {
                xplh_remove_lru(&table), m.drop(0);
            }
            break;
        case 14: {
            xp_lruhashenum *e = xp_create_lruhashenum(&table);
            for (size_t i = 0; i <= at; i++) flag = xplhe_next(e);
            ASSERT_EQ(flag, !m.pairs.empty());
            ASSERT_EQ(xplhe_del(e), at + 1 < m.pairs.size());
            if (flag) m.drop(at);
            xp_destroy_lruhashenum(e);
            break;
        }
        case 15:
            if (step % 8 == 0) {
                ASSERT_EQ(xplh_set_capacity(&table, static_cast<int>(at)), m.trim(at));
            } else if (step % 8 == 1) {
                m.rehash(table.hash);
                table.hash = table.hash == by_length ? xp_rotate_hashf : by_length;
                xplh_rehash(&table);
            }
            break;
        }
        ASSERT_EQ(walked(&table), walked(m, table.hash));
        ASSERT_EQ(released, m.dropped);
        released.clear(), m.dropped.clear();
    }
    xp_close_array(&found);
    xp_close_lruhash(&table);
    EXPECT_EQ(released.size(), 2 * m.pairs.size());
}

TEST(LruHash, TheSecondFigureOfTheStatisticIsAProduct) {
    xp_lruhash table;
    double mean = 9, second = 9;
    xp_init_lruhash(&table, 2, 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    xplh_statistic(&table, &mean, &second);
    EXPECT_EQ(mean + second, 0);
    for (const char *key : {"a", "b", "c"}) xplh_add(&table, key, key);
    xplh_statistic(&table, &mean, &second);
    EXPECT_DOUBLE_EQ(mean, 2);
    EXPECT_DOUBLE_EQ(second, 4 * 14.0 / 3);
    xp_close_lruhash(&table);
}

TEST(LruHash, StoredKeysAreTheCopies) {
    xp_lruhash table;
    const xp_copy_fn tail = [](const void *key) -> void * { return const_cast<char *>(text(key)) + 1; };
    xp_init_lruhash(&table, 9, 1, nullptr, nullptr, tail, nullptr, nullptr, nullptr);
    xplh_put(&table, ".ab", "1");
    EXPECT_STREQ(text(xplh_get(&table, "ab")), "1");
    xplh_update(&table, "ab", "2"); // stores "b"
    EXPECT_EQ(xplh_get(&table, "ab"), nullptr);
    EXPECT_STREQ(text(xplh_get_pair(&table, "b")->value), "2");
    const xp_pair_fn count = [](void *calls, xp_pair *) -> int { return ++*static_cast<int *>(calls) < 2; };
    int calls = 0;
    for (int i = 0; i < 3; i++) xplh_add(&table, ".x", "x");
    EXPECT_EQ(xplh_enumerate_ex(&table, count, &calls, -1, 9), 1) << "the item that stops it is not counted";
    EXPECT_EQ(calls, 2);
    xp_close_lruhash(&table);
}

TEST(LruHash, FailedAllocationsLeaveTheTableAsItWas) {
    harness::oom_sweep([] {
        xp_lruhash *table = xp_create_lruhash(1, 3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (!table) return;
        int inserted = 9;
        const bool put = xplh_put(table, "a", "1"), added = xplh_new_pair(table, "b", "2", &inserted);
        EXPECT_EQ(xplh_count(table), put + added);
        EXPECT_EQ(inserted, added);
        if (xp_lruhashenum *e = xp_create_lruhashenum(table)) xp_destroy_lruhashenum(e);
        xp_destroy_lruhash(table);
    });
    xp_lruhash table;
    xp_init_lruhash(&table, 2, 3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    xplh_put(&table, "a", "1"), xplh_add(&table, "b", "2");
    {
        harness::fail_allocation failure(1);
        EXPECT_EQ(xplh_put(&table, "c", "3"), 1) << "into the memory of what it evicts";
    }
    EXPECT_DEATH(
        {
            harness::fail_allocation failure(1);
            xplh_add(&table, "d", "4");
        },
        "vorncore: xplh_add: out of memory");
    xp_close_lruhash(&table);
}

} // namespace
