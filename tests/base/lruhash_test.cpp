#include "vorncore/base/lruhash.h"

#include <set>

#include "support/harness.h"
#include "vorncore/base/hashtable.h"

using harness::fail_allocation;

namespace {

using texts = std::vector<std::string>;

const char *text(const void *item) { return static_cast<const char *>(item); }
uint32_t by_length(const void *key, uint32_t n) { return static_cast<uint32_t>(strlen(text(key))) % n; }

// The hooks keep every text for good and note what is dropped, keys before their values.
void *keep(const void *item) {
    static std::set<std::string> all;
    return const_cast<char *>(all.insert(text(item)).first->c_str());
}
texts dropped;
void release(void *item) { dropped.push_back(text(item)); }

/// What a table must hold: pairs by use, the one unused longest first; of equal keys the one with the highest age is
/// the newest. Values differ.
struct model {
    static constexpr int buckets = 5, capacity = 12;
    struct pair {
        std::string key, value;
        int age;
    };
    std::vector<pair> pairs;
    int ages = 0;
    xp_hash_fn hash = xp_rotate_hashf;
    texts dropped;

    int bucket(size_t i) const { return static_cast<int>(hash(pairs[i].key.c_str(), buckets)); }
    /// Indices by bucket, newest first in each.
    std::vector<size_t> by_bucket(int first, int end) const {
        std::vector<size_t> found;
        for (size_t i = 0; i < pairs.size(); i++)
            if (bucket(i) >= first && bucket(i) < end) found.push_back(i);
        std::sort(found.begin(), found.end(), [&](size_t a, size_t b) {
            return bucket(a) != bucket(b) ? bucket(a) < bucket(b) : pairs[a].age > pairs[b].age;
        });
        return found;
    }
    std::vector<size_t> equal(const std::string &key) const {
        auto found = by_bucket(0, buckets);
        std::erase_if(found, [&](size_t i) { return pairs[i].key != key; });
        return found;
    }
    void rehash(xp_hash_fn to) {
        ages = 0;
        for (const size_t i : by_bucket(0, buckets)) pairs[i].age = ++ages;
        hash = to;
    }
    void drop(size_t i) {
        dropped.insert(dropped.end(), {pairs[i].key, pairs[i].value});
        pairs.erase(pairs.begin() + static_cast<ptrdiff_t>(i));
    }
    int trim(size_t limit) {
        const size_t before = pairs.size();
        while (pairs.size() > limit) drop(0);
        return static_cast<int>(before - pairs.size());
    }
    void add(const std::string &key, const std::string &value) { pairs.push_back({key, value, ++ages}); }
    int put(const std::string &key, const std::string &value, bool inserts, bool overwrites) {
        const auto found = equal(key);
        if (found.empty() && inserts) trim(capacity - 1), add(key, value);
        if (found.empty() || !overwrites) return found.empty() && inserts;
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

/// Stops an enumeration that has used up what is expected, the last item first.
int next_is_expected(void *argument, xp_pair *pair) {
    auto *left = static_cast<texts *>(argument);
    EXPECT_EQ(text(pair->value), left->back());
    left->pop_back();
    return !left->empty();
}

void expect_same(xp_lruhash *table, const model &m, int first, int end, int left_out) {
    texts left{"what is left when all was visited"};
    const auto all = m.by_bucket(first, end);
    for (auto i = all.rbegin(); i != all.rend(); ++i) left.push_back(m.pairs[*i].value);
    left.erase(left.begin(), left.begin() + std::min<ptrdiff_t>(left_out, std::ssize(left) - 1));
    const auto visited = std::ssize(left) - 1;
    ASSERT_EQ(xplh_enumerate_ex(table, next_is_expected, &left, first, end), visited);
    ASSERT_EQ(xplh_count(table), std::ssize(m.pairs));
    xp_lruhashenum e;
    xp_init_lruhashenum(&e, table);
    for (const auto &pair : m.pairs) ASSERT_TRUE(xplhe_next(&e) && text(e.current->value) == pair.value);
    ASSERT_EQ(xplhe_next(&e), 0);
    for (auto pair = m.pairs.rbegin(); pair != m.pairs.rend(); ++pair)
        ASSERT_TRUE(xplhe_prev(&e) && text(e.current->value) == pair->value);
    ASSERT_EQ(xplhe_prev(&e), 0);
    ASSERT_EQ(dropped, m.dropped);
}

TEST(LruHash, BehavesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    model m;
    xp_lruhash *table;
    harness::oom_sweep(
        [&] { table = xp_create_lruhash(m.capacity, m.buckets, nullptr, nullptr, keep, release, keep, release); });
    xp_lruhashenum *e;
    harness::oom_sweep([&] { e = xp_create_lruhashenum(table); });
    xp_array found;
    xp_init_array(&found, 1, nullptr, nullptr);
    for (int step = 0; step < 20'000 && !HasFatalFailure(); step++) {
        const std::string key(1 + random() % 3, static_cast<char>('a' + random() % 6)), value = std::to_string(step);
        const char *const k = key.c_str(), *const v = value.c_str();
        const auto equal = m.equal(key);
        const size_t at = m.pairs.empty() ? 0 : random() % m.pairs.size();
        const bool used = random() % 2;
        texts values;
        xp_lruhashiter iterator;
        void *one;
        int flag = 9;
        SCOPED_TRACE("step " + value + " key " + key);
        switch (random() % 16) {
        default: { // a full table needs no memory
            const fail_allocation failure(step % 4 == 0);
            flag = xplh_put(table, k, v);
            ASSERT_EQ(flag, !failure.fired() && m.put(key, value, true, false));
            break;
        }
        case 0: ASSERT_EQ(xplh_update(table, k, v), m.put(key, value, true, true)); break;
        case 1: ASSERT_EQ(xplh_replace(table, k, v), m.put(key, value, false, true)); break;
        case 2:
        case 3: xplh_add(table, k, v), m.add(key, value); break;
        case 4: {
            const fail_allocation failure(step % 4 == 0);
            const void *const stored = xplh_new(table, k, v, &flag);
            ASSERT_EQ(flag, equal.empty() && !failure.fired());
            ASSERT_EQ(stored == nullptr, failure.fired());
            if (flag) m.add(key, value);
            ASSERT_TRUE(!stored || text(stored) == m.pairs[m.equal(key)[0]].value);
            break;
        }
        case 5:
            one = used ? xplh_get(table, k) : xplh_peek(table, k);
            ASSERT_EQ(texts(one != nullptr, one ? text(one) : ""), m.values(key, used, 1));
            break;
        case 6:
            flag = used ? xplh_get_first(table, k, &iterator, &one) : xplh_peek_first(table, k, &iterator, &one);
            for (; flag; flag = used ? xplh_get_next(table, &iterator, &one) : xplh_peek_next(table, &iterator, &one))
                values.push_back(text(one));
            ASSERT_EQ(values, m.values(key, used, 99));
            break;
        case 7:
            flag = used ? xplh_get_all(table, k, &found) : xplh_peek_all(table, k, &found);
            ASSERT_EQ(flag, found.count);
            for (int i = 0; i < flag; i++) values.push_back(text(found.items[i]));
            ASSERT_EQ(values, m.values(key, used, 99));
            xpar_clear(&found);
            break;
        case 8:
            ASSERT_EQ(xplh_contains(table, k), !equal.empty());
            ASSERT_EQ(xplh_del(table, k), !equal.empty());
            if (!equal.empty()) m.drop(equal[0]);
            break;
        case 9:
            if (step % 4 && !m.pairs.empty()) xplh_remove_lru(table), m.drop(0);
            if (step % 4) break;
            ASSERT_EQ(xplh_del_all(table, k), std::ssize(equal));
            for (auto left = equal; !left.empty(); left = m.equal(key)) m.drop(left[0]);
            break;
        case 10:
            xp_init_lruhashenum(e, table);
            for (size_t i = 0; i <= at; i++) flag = xplhe_next(e);
            ASSERT_EQ(flag, !m.pairs.empty());
            ASSERT_EQ(xplhe_del(e), at + 1 < m.pairs.size());
            if (flag) m.drop(at);
            break;
        case 11:
            if (step % 8) break;
            ASSERT_EQ(xplh_set_capacity(table, static_cast<int>(at)), m.trim(at));
            break;
        case 12:
            if (step % 8) break;
            m.rehash(table->hash = m.hash == by_length ? xp_rotate_hashf : by_length);
            xplh_rehash(table);
        }
        expect_same(table, m, step % 7 - 3, 2 + step % 5, step % 3 ? 0 : step % 8);
        dropped.clear(), m.dropped.clear();
    }
    xp_close_array(&found);
    xp_destroy_lruhashenum(e);
    xplh_reset(table);
    for (const size_t i : m.by_bucket(0, m.buckets))
        m.dropped.insert(m.dropped.end(), {m.pairs[i].key, m.pairs[i].value});
    EXPECT_EQ(dropped, m.dropped);
    xp_destroy_lruhash(table);
}

TEST(LruHash, StoredKeysAreTheCopiesAndTheSecondFigureIsAProduct) {
    const xp_copy_fn tail = [](const void *key) -> void * { return const_cast<char *>(text(key)) + 1; };
    xp_lruhash table;
    xp_init_lruhash(&table, 2, 1, nullptr, nullptr, tail, nullptr, nullptr, nullptr);
    double mean = 9, second = 9;
    xplh_statistic(&table, &mean, &second);
    EXPECT_EQ(mean + second, 0);
    for (const char *key : {".ab", ".b", ".c"}) xplh_add(&table, key, key);
    xplh_statistic(&table, &mean, &second);
    EXPECT_DOUBLE_EQ(mean, 2);
    EXPECT_DOUBLE_EQ(second, 4 * 14.0 / 3);
    EXPECT_EQ(xplh_replace(&table, "ab", "2"), 1); // stores "b"
    EXPECT_EQ(xplh_get_pair(&table, "ab"), nullptr);
    EXPECT_STREQ(text(xplh_peek_pair(&table, "b")->value), ".b");
    texts left{"", "2", ".b", ".c"};
    EXPECT_EQ(xplh_enumerate(&table, next_is_expected, &left), 3);
    EXPECT_DEATH((fail_allocation(1), xplh_add(&table, "d", "4")), "vorncore: xplh_add: out of memory");
    xp_close_lruhash(&table);
}

} // namespace
