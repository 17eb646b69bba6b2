#include "vorncore/base/hashtable.h"

#include <limits.h>

#include <deque>

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

using texts = std::vector<std::string>;

const char *text(const void *item) { return static_cast<const char *>(item); }
void *duplicate(const void *item) { return strdup(text(item)); }
uint32_t by_length(const void *key, uint32_t n) { return static_cast<uint32_t>(strlen(text(key))) % n; }

/// The default hash, byte by byte.
uint32_t naive_hash(const std::string &key, uint32_t n) {
    uint32_t h = xp_hash_randseed[key.empty() ? 0 : static_cast<unsigned char>(key[0])];
    for (const char c : key) h = (h << 4 | h >> 28) ^ static_cast<uint32_t>(static_cast<signed char>(c));
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
            guarded_text at_the_end(key.c_str());
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
    } cases[] = {{INT_MIN, 0, 3, -1},
                 {2, 1, 3, -1},
                 {3, 1, 5, -1},
                 {4, 0, 5, 3},
                 {7, 1, 9, 5},
                 {9, 1, 11, 7},
                 {15, 0, 17, 13},
                 {1000, 0, 1009, 997},
                 {2147117569, 1, 2147117617, 2147117563}, // 46337 squared
                 {INT_MAX - 1, 0, INT_MAX, 2147483629},
                 {INT_MAX, 1, -1, 2147483629}};
    for (const auto &c : cases) {
        EXPECT_EQ(xp_isprime(c.n), c.prime) << c.n;
        EXPECT_EQ(xp_getprime_over(c.n), c.over) << c.n;
        EXPECT_EQ(xp_getprime_under(c.n), c.under) << c.n;
    }
}

texts calls; // of the hooks and the comparison
int note(std::string call) { return calls.push_back(std::move(call)), 0; }
template <char kind, int cut>
void *copy(const void *item) {
    return note(std::string{'+', kind} + text(item)), const_cast<char *>(text(item)) + cut;
}
template <char kind>
void release(void *item) {
    note(std::string{'-', kind} + text(item));
}
/// Searched keys have one character more than stored ones.
int compare(const void *key, const void *stored) {
    return note(text(key) + std::string("=") + text(stored)) + strcmp(text(key) + 1, text(stored));
}

TEST(HashTable, HooksAndComparisonAreCalledInOrder) {
    xp_hashtable *t =
        xp_create_hashtable(8, by_length, compare, copy<'k', 1>, release<'k'>, copy<'v', 0>, release<'v'>);
    void *value;
    int inserted;
    const auto expect = [](int result, int expected, const texts &called) {
        EXPECT_EQ(result, expected) << testing::PrintToString(called);
        EXPECT_EQ(std::exchange(calls, {}), called);
    };
    expect(xpht_put(t, ".a", "1"), 1, {"+k.a", "+v1"});
    expect(xpht_put(t, "-a", "9"), 0, {"-a=a"});
    expect(xpht_replace(t, ".b", "9"), 0, {".b=a"});
    expect(xpht_update(t, ".b", "2"), 1, {".b=a", "+k.b", "+v2"});
    expect(xpht_update(t, ".a", "3"), 1, {".a=b", ".a=a", "+k.a", "+v3", "-ka", "-v1"});
    expect(xpht_replace(t, ".b", "4"), 1, {".b=b", "+k.b", "+v4", "-kb", "-v2"});
    expect((xpht_add(t, ".a", "5"), xpht_count(t)), 3, {"+k.a", "+v5"});
    expect(*text(xpht_get(t, ".a")), '5', {".a=a"});
    expect(*text(xpht_new_pair(t, ".a", "6", &inserted)->value), '5', {".a=a"});
    expect(inserted, 0, {});
    expect(*text(xpht_new(t, ".long", "7", nullptr)), '7', {"+k.long", "+v7"});
    expect(xpht_get_first(t, ".b", nullptr, &value), 1, {".b=a", ".b=b"});
    expect(xpht_del(t, ".a"), 1, {".a=a", "-ka", "-v5"});
    expect(xpht_del(t, ".absent"), 0, {});
    expect(xpht_del_all(t, ".a"), 1, {".a=b", ".a=a", "-ka", "-v3"});
    EXPECT_DEATH((fail_allocation(1), xpht_update(t, ".c", "8")), "vorncore: xpht_update: out of memory");
    xp_destroy_hashtable(t);
    expect(0, 0, {"-kb", "-v4", "-klong", "-v7"});
    t = xp_create_hashtable(1, nullptr, nullptr, copy<'k', 1>, nullptr, nullptr, nullptr);
    xpht_put(t, ".ab", "1"), xpht_replace(t, "ab", "2"); // what is found is what the hook stored
    expect(xpht_contains(t, "ab") + 2 * xpht_contains(t, "b"), 2, {"+k.ab", "+kab"});
    xp_destroy_hashtable(t);
}

TEST(HashTable, CountsPositionsAndCallsTheReleaseHooksThatAreSet) {
    const texts each[] = {{}, {"-kbb", "-kc", "-ka"}, {"-v1", "-v1", "-v1"}};
    for (int set = 0; set < 3; set++) {
        xp_hashtable table;
        xp_init_hashtable(&table, 2, by_length, nullptr, nullptr, set == 1 ? release<'k'> : nullptr, nullptr,
                          set == 2 ? release<'v'> : nullptr);
        double mean = 9, variance = 9;
        xpht_statistic(&table, &mean, &variance);
        EXPECT_EQ(mean + variance, 0);
        for (const char *key : {"a", "bb", "c"}) xpht_add(&table, key, "1");
        xpht_statistic(&table, &mean, &variance);
        EXPECT_DOUBLE_EQ(mean, 4.0 / 3);
        EXPECT_DOUBLE_EQ(variance, 2 - 16.0 / 9);
        EXPECT_EQ(xpht_enumerate(
                      &table, [](void *, xp_pair *) { return 1; }, nullptr),
                  3);
        xpht_reset(&table);
        EXPECT_EQ(std::exchange(calls, {}), each[set]);
        xp_close_hashtable(&table);
    }
}

/// Buckets of pairs, newest first.
struct model {
    using pair = std::pair<std::string, intptr_t>;
    static constexpr int count = 5;
    std::deque<pair> chains[count];
    xp_hash_fn hash = xp_rotate_hashf;

    std::deque<pair> &of(const std::string &key) { return chains[hash(key.c_str(), count)]; }
    numbers all(const std::string &key) {
        numbers values;
        for (const pair &p : of(key))
            if (p.first == key) values.push_back(p.second);
        return values;
    }
    auto find(const std::string &key) {
        return std::find_if(of(key).begin(), of(key).end(), [&](const pair &p) { return p.first == key; });
    }
    int put(const std::string &key, intptr_t value, bool insert, bool overwrite) {
        const auto found = find(key);
        const bool present = found != of(key).end();
        if (present && overwrite) found->second = value;
        if (!present && insert) of(key).emplace_front(key, value);
        return present ? overwrite : insert;
    }
    std::vector<pair> pairs(int first, int end) const {
        std::vector<pair> found;
        for (int b = std::max(first, 0); b < std::min(end, count); b++)
            found.insert(found.end(), chains[b].begin(), chains[b].end());
        return found;
    }
    void rehash(xp_hash_fn to) {
        std::vector<pair> moved;
        for (int b = count; b-- > 0; chains[b].clear()) moved.insert(moved.end(), chains[b].begin(), chains[b].end());
        hash = to;
        for (const pair &p : moved) of(p.first).push_front(p);
    }
};

model::pair pair_of(const xp_hashitem *item) { return {text(item->key), number(item->value)}; }

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
    model m;
    xp_hashtable table;
    xp_init_hashtable(&table, m.count, nullptr, nullptr, duplicate, free, nullptr, nullptr);
    xp_array found;
    xp_init_array(&found, 4, nullptr, nullptr);
    for (int step = 0; step < 30'000; step++) {
        SCOPED_TRACE(step);
        const std::string key = "key \xE9 " + std::to_string(random() % 20);
        const char *const k = key.c_str();
        const intptr_t n = step + 1;
        const int first = static_cast<int>(random() % 8) - 1, end = static_cast<int>(random() % 8) - 1;
        const numbers values = m.all(key);
        const bool known = !values.empty();
        switch (random() % 14) {
        default: xpht_add(&table, k, item_of(n)), m.of(key).emplace_front(key, n); break;
        case 0: {
            const fail_allocation failure(step % 4 == 0);
            const int result = xpht_put(&table, k, item_of(n));
            ASSERT_EQ(result, !failure.fired() && m.put(key, n, true, false));
            break;
        }
        case 1: ASSERT_EQ(xpht_update(&table, k, item_of(n)), m.put(key, n, true, true)); break;
        case 2: ASSERT_EQ(xpht_replace(&table, k, item_of(n)), m.put(key, n, false, true)); break;
        case 3: {
            int inserted = 9;
            const fail_allocation failure(step % 4 == 0);
            const intptr_t value = number(xpht_new(&table, k, item_of(n), &inserted));
            ASSERT_EQ(inserted, !failure.fired() && m.put(key, n, true, false));
            ASSERT_EQ(value, known ? values[0] : inserted ? n : 0);
            break;
        }
        case 4:
        case 5:
            ASSERT_EQ(xpht_del(&table, k), known);
            if (known) m.of(key).erase(m.find(key));
            break;
        case 6:
            ASSERT_EQ(xpht_del_all(&table, k), std::ssize(values));
            std::erase_if(m.of(key), [&](auto &p) { return p.first == key; });
            break;
        case 7: {
            xp_hashiter iterator;
            void *value;
            numbers stepwise;
            for (int more = xpht_get_first(&table, k, &iterator, &value); more;
                 more = xpht_get_next(&table, &iterator, &value))
                stepwise.push_back(number(value));
            ASSERT_EQ(stepwise, values);
            ASSERT_EQ(xpht_get_all(&table, k, nullptr), std::ssize(values));
            ASSERT_EQ(xpht_get_all(&table, k, &found), found.count);
            const auto *items = reinterpret_cast<const intptr_t *>(found.items);
            ASSERT_EQ(numbers(items, items + found.count), values);
            xpar_clear(&found);
            break;
        }
        case 8: { // deletes a part of a range of buckets
            xp_hashenum *e = xp_create_hashenum_ex(&table, first, end);
            int more = xphe_next(e);
            for (const auto &each : m.pairs(first, end)) {
                ASSERT_TRUE(more && pair_of(e->current) == each);
                const bool del = random() % 4 == 0;
                if (del) std::erase(m.of(each.first), each);
                more = del ? xphe_del(e) : xphe_next(e);
            }
            ASSERT_TRUE(!more && !e->current);
            xp_destroy_hashenum(e);
            break;
        }
        case 9: {
            auto all = m.pairs(first, end);
            visitor v{{}, random() % 30};
            if (all.size() > v.stop_at) all.resize(v.stop_at);
            ASSERT_EQ(xpht_enumerate_ex(&table, visit, &v, first, end), std::ssize(all));
            ASSERT_EQ(v.seen, all);
            break;
        }
        case 10:
            m.rehash(table.hash = random() % 2 ? xp_rotate_hashf : by_length);
            xpht_rehash(&table);
            break;
        case 11:
            if (step % 16 == 0) xpht_clear(&table), m = {}, table.hash = m.hash;
        }
        xp_hashenum e;
        std::vector<model::pair> all;
        for (xp_init_hashenum(&e, &table); xphe_next(&e);) all.push_back(pair_of(e.current));
        ASSERT_EQ(all, m.pairs(0, INT_MAX));
        ASSERT_EQ(xpht_count(&table), std::ssize(all));
        const auto at = m.find(key);
        ASSERT_EQ(number(xpht_get(&table, k)), at != m.of(key).end() ? at->second : 0);
        ASSERT_EQ(xpht_contains(&table, k), at != m.of(key).end());
    }
    xp_close_array(&found);
    xp_close_hashtable(&table);
}

TEST(HashTable, EnumeratorStatesAreExact) {
    xp_hashtable table;
    xp_init_hashtable(&table, 8, by_length, nullptr, nullptr, nullptr, nullptr, nullptr);
    xp_hashitem **const heads = table.buckets;
    xp_hashenum e;
    const auto stands = [&](int bucket, const xp_hashitem *current, const xp_hashitem *previous, int end = 8) {
        return e.bucket == bucket && e.current == current && e.previous == previous && e.end == end;
    };
    xp_init_hashenum(&e, &table);
    EXPECT_TRUE(xphe_next(&e) + xphe_del(&e) == 0 && stands(-1, nullptr, nullptr));
    for (const char *key : {"xxx", "bb", "aa"}) xpht_add(&table, key, nullptr);
    xp_init_hashenum_ex(&e, &table, INT_MIN, INT_MAX);
    EXPECT_TRUE(stands(-1, nullptr, nullptr));
    EXPECT_TRUE(xphe_next(&e) == 1 && stands(2, heads[2], nullptr));
    EXPECT_TRUE(xphe_next(&e) == 1 && stands(2, heads[2]->next, heads[2]));
    EXPECT_TRUE(xphe_del(&e) == 1 && stands(3, heads[3], nullptr)) << "the last of a chain: on to the next one";
    EXPECT_TRUE(xphe_del(&e) == 0 && xpht_count(&table) == 1 && !heads[2]->next);
    xp_init_hashenum_ex(&e, &table, 2, 2);
    EXPECT_TRUE(xphe_next(&e) == 0 && stands(1, nullptr, nullptr, 2));
    xp_close_hashenum(&e);
    xp_close_hashtable(&table);
}

TEST(HashTable, IsNotMadeWithoutMemory) {
    oom_sweep([] {
        xp_hashtable *table = xp_create_hashtable(3, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (!table) return;
        if (xp_hashenum *e = xp_create_hashenum(table)) xp_destroy_hashenum(e);
        xp_destroy_hashtable(table);
    });
}

} // namespace
