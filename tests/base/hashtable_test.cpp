#include "vorncore/base/hashtable.h"

#include <limits.h>
#include <string.h>

#include <algorithm>
#include <deque>
#include <random>

#include "support/harness.h"

namespace {

using texts = std::vector<std::string>;

const char *text(const void *item) { return static_cast<const char *>(item); }
intptr_t number(const void *item) { return reinterpret_cast<intptr_t>(item); }
const void *item_of(intptr_t n) { return reinterpret_cast<const void *>(n); }
void *duplicate(const void *item) { return strdup(text(item)); }

/// The default hash, byte by byte.
uint32_t naive_hash(const std::string &key, uint32_t n) {
    uint32_t h = xp_hash_randseed[key.empty() ? 0 : static_cast<unsigned char>(key[0])];
    for (const char c : key)
        h = (h << 4 | h >> 28) ^ static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    return n ? h % n : h;
}

TEST(HashTable, DefaultHashFoldsSignExtendedBytes) {
    const uint32_t seeds[] = {0x4420C1B7, 0xAF54B6F3, 0x41438558, 0x4E394EBD,
                              0x6482447F, 0x607CACD2, 0x31E1458F, 0x7A2D33BE};
    EXPECT_TRUE(std::equal(std::begin(seeds), std::end(seeds), xp_hash_randseed));
    EXPECT_EQ(xp_hash_randseed[255], 0x24F21893u);
    std::mt19937 random(1);
    for (size_t length = 0; length <= 100; length++)
        for (const uint32_t n : {0u, 1u, 7u, 1009u, 0x80000001u}) {
            std::string key(length, 'x');
            for (char &c : key) c = static_cast<char>(random() % 255 + 1);
            const uint32_t expected = naive_hash(key, n);
            harness::guard_page at_the_end(std::string_view(key.c_str(), length + 1));
            ASSERT_EQ(xp_rotate_hashf(at_the_end.data(), n), expected) << length << " bytes, " << n << " buckets";
            for (size_t offset = 0; offset < 8; offset++) {
                const std::string shifted = std::string(offset, '\xAA') + key + '\0' + "beyond the end";
                ASSERT_EQ(xp_rotate_hashf(shifted.c_str() + offset, n), expected) << length << " bytes at " << offset;
            }
        }
}

TEST(HashTable, PrimesIncludeTheSquaresOfOddPrimes) {
    const struct {
        int n, prime, over, under;
    } cases[] = {
        {INT_MIN, 0, 3, -1},
        {0, 0, 3, -1},
        {1, 0, 3, -1},
        {2, 1, 3, -1},
        {3, 1, 5, -1},
        {4, 0, 5, 3},
        {5, 1, 7, 3},
        {7, 1, 9, 5},
        {9, 1, 11, 7},
        {10, 0, 11, 9},
        {15, 0, 17, 13},
        {24, 0, 25, 23},
        {49, 1, 53, 47},
        {121, 1, 127, 113},
        {1000, 0, 1009, 997},
        {2147117569, 1, 2147117617, 2147117563}, // 46337 squared
        {INT_MAX - 1, 0, INT_MAX, 2147483629},
        {INT_MAX, 1, -1, 2147483629},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(xp_isprime(c.n), c.prime) << c.n;
        EXPECT_EQ(xp_getprime_over(c.n), c.over) << c.n;
        EXPECT_EQ(xp_getprime_under(c.n), c.under) << c.n;
    }
}

texts calls; // of the hooks and the comparison
void *key_copy(const void *key) {
    return calls.push_back(std::string("+k") + text(key)), const_cast<char *>(text(key)) + 1;
}
void key_release(void *key) { calls.push_back(std::string("-k") + text(key)); }
void *value_copy(const void *value) {
    return calls.push_back(std::string("+v") + text(value)), const_cast<void *>(value);
}
void value_release(void *value) { calls.push_back(std::string("-v") + text(value)); }
int compare_from_second(const void *key, const void *stored) {
    calls.push_back(text(key) + std::string("=") + text(stored));
    return strcmp(text(key) + 1, text(stored));
}
uint32_t hash_length(const void *key, uint32_t n) { return static_cast<uint32_t>(strlen(text(key))) % n; }

TEST(HashTable, HooksAndComparisonAreCalledInOrder) {
    xp_hashtable *table =
        xp_create_hashtable(8, hash_length, compare_from_second, key_copy, key_release, value_copy, value_release);
    xp_hashiter iterator;
    void *value;
    int inserted;
    const struct {
        const char *name;
        int result;
        texts calls;
        int (*run)(xp_hashtable *);
    } cases[] = {
        {"put", 1, {"+k.a", "+v1"}, [](xp_hashtable *t) { return xpht_put(t, ".a", "1"); }},
        {"put again", 0, {"-a=a"}, [](xp_hashtable *t) { return xpht_put(t, "-a", "9"); }},
        {"replace absent", 0, {".b=a"}, [](xp_hashtable *t) { return xpht_replace(t, ".b", "9"); }},
        {"update absent", 1, {".b=a", "+k.b", "+v2"}, [](xp_hashtable *t) { return xpht_update(t, ".b", "2"); }},
        {"update",
         1,
         {".a=b", ".a=a", "+k.a", "+v3", "-ka", "-v1"},
         [](xp_hashtable *t) { return xpht_update(t, ".a", "3"); }},
        {"replace",
         1,
         {".b=b", "+k.b", "+v4", "-kb", "-v2"},
         [](xp_hashtable *t) { return xpht_replace(t, ".b", "4"); }},
        {"add", 3, {"+k.a", "+v5"}, [](xp_hashtable *t) { return xpht_add(t, ".a", "5"), xpht_count(t); }},
        {"get", '5', {".a=a"}, [](xp_hashtable *t) { return int(*text(xpht_get(t, ".a"))); }},
        {"del", 1, {".a=a", "-ka", "-v5"}, [](xp_hashtable *t) { return xpht_del(t, ".a"); }},
        {"del absent", 0, {}, [](xp_hashtable *t) { return xpht_del(t, ".long"); }},
        {"del all", 1, {".a=b", ".a=a", "-ka", "-v3"}, [](xp_hashtable *t) { return xpht_del_all(t, ".a"); }},
        {"clear", 0, {"-kb", "-v4"}, [](xp_hashtable *t) { return xpht_clear(t), xpht_count(t); }},
    };
    for (const auto &c : cases) {
        calls.clear();
        EXPECT_EQ(c.run(table), c.result) << c.name;
        EXPECT_EQ(calls, c.calls) << c.name;
    }
    EXPECT_STREQ(text(xpht_new(table, ".a", "6", &inserted)), "6");
    EXPECT_EQ(inserted, 1);
    calls.clear();
    EXPECT_STREQ(text(xpht_new_pair(table, ".a", "7", &inserted)->value), "6");
    EXPECT_EQ(inserted, 0);
    EXPECT_STREQ(text(xpht_new(table, ".a", "7", nullptr)), "6");
    EXPECT_EQ(xpht_get_first(table, ".a", nullptr, &value), 1);
    EXPECT_EQ(xpht_get_first(table, ".b", &iterator, &value), 0);
    EXPECT_EQ(calls, (texts{".a=a", ".a=a", ".a=a", ".b=a"}));
    xp_destroy_hashtable(table);
}

TEST(HashTable, ClearCallsTheReleaseHooksThatAreSet) {
    for (const bool keys : {false, true})
        for (const bool values : {false, true}) {
            xp_hashtable table;
            xp_init_hashtable(&table, 2, hash_length, nullptr, nullptr, keys ? key_release : nullptr, nullptr,
                              values ? value_release : nullptr);
            for (const char *key : {"a", "bb", "c"}) xpht_add(&table, key, "1");
            texts expected;
            for (const char *key : {"bb", "c", "a"}) {
                if (keys) expected.push_back(std::string("-k") + key);
                if (values) expected.push_back("-v1");
            }
            calls.clear();
            xp_close_hashtable(&table);
            EXPECT_EQ(calls, expected);
        }
}

TEST(HashTable, UpdateMayReuseTheOldPair) {
    xp_hashtable table;
    xp_init_hashtable(&table, 1, nullptr, nullptr, duplicate, free, duplicate, free);
    xpht_put(&table, "key", "a value");
    const xp_pair old = *xpht_get_pair(&table, "key");
    xpht_update(&table, old.key, text(old.value) + 2);
    EXPECT_STREQ(text(xpht_get(&table, "key")), "value");
    xp_close_hashtable(&table);
}

/// Buckets of pairs, newest first.
struct model {
    using pair = std::pair<std::string, intptr_t>;
    std::vector<std::deque<pair>> buckets = std::vector<std::deque<pair>>(buckets_count);
    static constexpr uint32_t buckets_count = 5;

    std::deque<pair> &of(const std::string &key) { return buckets[naive_hash(key, buckets_count)]; }
    auto find(const std::string &key) {
        return std::find_if(of(key).begin(), of(key).end(), [&](const pair &p) { return p.first == key; });
    }
    bool has(const std::string &key) { return find(key) != of(key).end(); }
    std::vector<intptr_t> all(const std::string &key) {
        std::vector<intptr_t> values;
        for (const pair &p : of(key))
            if (p.first == key) values.push_back(p.second);
        return values;
    }
    int put(const std::string &key, intptr_t value, bool insert, bool overwrite) {
        const bool present = has(key);
        if (present && overwrite) find(key)->second = value;
        if (!present && insert) of(key).emplace_front(key, value);
        return present ? overwrite : insert;
    }
    int del(const std::string &key) { return has(key) && (of(key).erase(find(key)), true); }
    int del_all(const std::string &key) {
        return static_cast<int>(std::erase_if(of(key), [&](auto &p) { return p.first == key; }));
    }
    void rehash() {
        std::vector<pair> moved;
        for (size_t b = buckets_count; b-- > 0; buckets[b].clear())
            moved.insert(moved.end(), buckets[b].begin(), buckets[b].end());
        for (const pair &p : moved) of(p.first).push_front(p);
    }
    std::vector<pair> pairs(int first, int end) const {
        std::vector<pair> all;
        for (int b = std::max(first, 0); b < std::min<int>(end, buckets_count); b++)
            all.insert(all.end(), buckets[static_cast<size_t>(b)].begin(), buckets[static_cast<size_t>(b)].end());
        return all;
    }
    void statistic(double *mean, double *variance) const {
        double n = 0, sum = 0, squares = 0;
        for (const auto &chain : buckets)
            for (size_t k = 1; k <= chain.size(); k++, n++) sum += double(k), squares += double(k * k);
        *mean = n > 0 ? sum / n : 0;
        *variance = n > 0 ? squares / n - *mean * *mean : 0;
    }
};

std::vector<intptr_t> stepwise(const xp_hashtable *table, const char *key) {
    std::vector<intptr_t> values;
    xp_hashiter iterator;
    void *value;
    for (int more = xpht_get_first(table, key, &iterator, &value); more; more = xpht_get_next(table, &iterator, &value))
        values.push_back(number(value));
    return values;
}

uint32_t like_the_default(const void *key, uint32_t n) { return xp_rotate_hashf(key, n); }

struct visitor {
    std::vector<model::pair> seen;
    size_t stop_at;
};
int visit(void *argument, xp_pair *pair) {
    auto *v = static_cast<visitor *>(argument);
    if (v->seen.size() == v->stop_at) return 0;
    v->seen.emplace_back(text(pair->key), number(pair->value));
    return 1;
}

TEST(HashTable, BehavesLikeListsOfPairsUnderRandomOperations) {
    std::mt19937 random(3);
    model expected;
    xp_hashtable table;
    xp_init_hashtable(&table, model::buckets_count, nullptr, nullptr, duplicate, free, nullptr, nullptr);
    xp_array found;
    xp_init_array(&found, 4, nullptr, nullptr);
    for (int step = 0; step < 30'000; step++) {
        SCOPED_TRACE(step);
        const std::string key = "key \xE9 " + std::to_string(random() % 20);
        const char *const k = key.c_str();
        const intptr_t n = step + 1;
        const int first = static_cast<int>(random() % 8) - 1, end = static_cast<int>(random() % 8) - 1;
        int inserted = -1;
        if (step % 100 == 0)
            table.hash = random() % 2 ? xp_rotate_hashf : like_the_default; // what is found stays the same
        switch (random() % 14) {
        case 0: ASSERT_EQ(xpht_put(&table, k, item_of(n)), expected.put(key, n, true, false)); break;
        case 1: ASSERT_EQ(xpht_update(&table, k, item_of(n)), expected.put(key, n, true, true)); break;
        case 2: ASSERT_EQ(xpht_replace(&table, k, item_of(n)), expected.put(key, n, false, true)); break;
        case 3:
        case 4: xpht_add(&table, k, item_of(n)), expected.of(key).emplace_front(key, n); break;
        case 5: {
            const int absent = expected.put(key, n, true, false);
            ASSERT_EQ(number(xpht_new(&table, k, item_of(n), &inserted)), expected.find(key)->second);
            ASSERT_EQ(inserted, absent);
            break;
        }
        case 6:
        case 7: ASSERT_EQ(xpht_del(&table, k), expected.del(key)); break;
        case 8: ASSERT_EQ(xpht_del_all(&table, k), expected.del_all(key)); break;
        case 9: {
            const auto values = expected.all(key);
            ASSERT_EQ(xpht_get_all(&table, k, nullptr), static_cast<int>(values.size()));
            ASSERT_EQ(xpht_get_all(&table, k, &found), found.count);
            ASSERT_EQ(stepwise(&table, k), values);
            std::vector<intptr_t> collected;
            for (int i = 0; i < found.count; i++) collected.push_back(number(found.items[i]));
            ASSERT_EQ(collected, values);
            xpar_clear(&found);
            break;
        }
        case 10: { // deletes a part of a range of buckets
            xp_hashenum *e = xp_create_hashenum_ex(&table, first, end);
            for (int more = xphe_next(e); more;) {
                const model::pair current(text(e->current->key), number(e->current->value));
                auto &chain = expected.of(current.first);
                ASSERT_EQ(chain[static_cast<size_t>(std::find(chain.begin(), chain.end(), current) - chain.begin())],
                          current);
                const bool del = random() % 4 == 0;
                if (del) chain.erase(std::find(chain.begin(), chain.end(), current));
                more = del ? xphe_del(e) : xphe_next(e);
            }
            ASSERT_EQ(e->current, nullptr);
            xp_destroy_hashenum(e);
            break;
        }
        case 11: {
            auto all = expected.pairs(first, end);
            visitor v{{}, random() % 30};
            if (all.size() > v.stop_at) all.resize(v.stop_at);
            ASSERT_EQ(xpht_enumerate_ex(&table, visit, &v, first, end), static_cast<int>(all.size()));
            ASSERT_EQ(v.seen, all);
            break;
        }
        case 12: xpht_rehash(&table), expected.rehash(); break;
        case 13:
            if (step % 16 == 0) xpht_clear(&table), expected = model();
            break;
        }
        xp_hashenum e;
        std::vector<model::pair> all;
        for (xp_init_hashenum(&e, &table); xphe_next(&e);)
            all.emplace_back(text(e.current->key), number(e.current->value));
        ASSERT_EQ(all, expected.pairs(0, INT_MAX));
        ASSERT_EQ(xpht_count(&table), static_cast<int>(all.size()));
        ASSERT_EQ(number(xpht_get(&table, k)), expected.has(key) ? expected.find(key)->second : 0);
        ASSERT_EQ(xpht_contains(&table, k), expected.has(key));
        double mean, variance, expected_mean, expected_variance;
        xpht_statistic(&table, &mean, &variance);
        expected.statistic(&expected_mean, &expected_variance);
        ASSERT_EQ(mean, expected_mean);
        ASSERT_EQ(variance, expected_variance);
    }
    xp_close_array(&found);
    xp_close_hashtable(&table);
}

TEST(HashTable, RehashFollowsANewHashFunction) {
    xp_hashtable table;
    xp_init_hashtable(
        &table, 3, [](const void *, uint32_t) { return 2u; }, nullptr, nullptr, nullptr, nullptr, nullptr);
    for (const char *key : {"a", "bb", "ccc", "dddd"}) xpht_put(&table, key, key);
    double mean, variance;
    xpht_statistic(&table, &mean, &variance);
    EXPECT_EQ(mean, 2.5);
    table.hash = hash_length;
    xpht_rehash(&table);
    EXPECT_STREQ(text(table.buckets[1]->key), "a") << "the chain a, dddd is turned round";
    EXPECT_STREQ(text(table.buckets[1]->next->key), "dddd");
    EXPECT_STREQ(text(xpht_get(&table, "bb")), "bb");
    xp_close_hashtable(&table);
}

TEST(HashTable, EnumeratorStatesAreExact) {
    xp_hashtable table;
    xp_init_hashtable(&table, 8, hash_length, nullptr, nullptr, nullptr, nullptr, nullptr);
    xp_hashenum e;
    xp_init_hashenum(&e, &table);
    EXPECT_TRUE(e.bucket == -1 && !e.current && !e.previous && e.end == 8);
    EXPECT_EQ(xphe_next(&e), 0);
    EXPECT_EQ(xphe_del(&e), 0);
    for (const char *key : {"xxx", "bb", "aa"}) xpht_add(&table, key, nullptr);
    xp_init_hashenum_ex(&e, &table, INT_MIN, INT_MAX);
    EXPECT_TRUE(e.bucket == -1 && e.end == 8);
    EXPECT_EQ(xphe_next(&e), 1);
    EXPECT_TRUE(e.bucket == 2 && e.current == table.buckets[2] && !e.previous);
    EXPECT_EQ(xphe_next(&e), 1);
    EXPECT_TRUE(e.bucket == 2 && e.current == table.buckets[2]->next && e.previous == table.buckets[2]);
    EXPECT_EQ(xphe_del(&e), 1) << "the last of a chain: on to the next one";
    EXPECT_TRUE(e.bucket == 3 && e.current == table.buckets[3] && !e.previous && !table.buckets[2]->next);
    EXPECT_EQ(xphe_del(&e), 0);
    EXPECT_EQ(xpht_count(&table), 1);
    xp_init_hashenum_ex(&e, &table, 2, 2);
    EXPECT_TRUE(e.bucket == 1 && e.end == 2);
    EXPECT_EQ(xphe_next(&e), 0);
    xp_close_hashenum(&e);
    xp_close_hashtable(&table);
}

TEST(HashTable, FailedAllocationsAreReportedOrEndTheProcess) {
    harness::oom_sweep([] {
        xp_hashtable *table = xp_create_hashtable(3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (!table) return;
        int inserted = -1;
        const int put = xpht_put(table, "a", "1");
        const bool is_new = xpht_new_pair(table, "b", "2", &inserted);
        EXPECT_EQ(inserted, is_new);
        EXPECT_EQ(xpht_count(table), put + is_new);
        EXPECT_EQ(xpht_contains(table, "a"), put);
        if (xp_hashenum *e = xp_create_hashenum(table)) xp_destroy_hashenum(e);
        xpht_rehash(table); // needs no memory
        xp_destroy_hashtable(table);
    });
    xp_hashtable table;
    xp_init_hashtable(&table, 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_DEATH(
        {
            harness::fail_allocation failure(1);
            xpht_update(&table, "a", "1");
        },
        "vorncore: xpht_update: out of memory");
    xp_close_hashtable(&table);
}

} // namespace
