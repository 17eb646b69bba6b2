#include "vorncore/base/hashtable.h"

#include <limits.h>

#include "base/hashcalls.h"

using namespace hashes;

namespace {

TEST(HashTable, DefaultHashFoldsSignExtendedBytes) {
    const uint32_t seeds[] = {0x4420C1B7, 0xAF54B6F3, 0x41438558, 0x4E394EBD,
                              0x6482447F, 0x607CACD2, 0x31E1458F, 0x7A2D33BE};
    EXPECT_TRUE(std::equal(std::begin(seeds), std::end(seeds), xp_hash_randseed));
    uint32_t all = 0;
    for (const uint32_t word : xp_hash_randseed) all = all * 31 + word;
    EXPECT_EQ(all, 2808084141u);
    std::mt19937 random(1);
    for (size_t length = 0; length <= 100; length++) {
        std::string key(length, 'x');
        for (char &c : key) c = static_cast<char>(random() % 255 + 1);
        uint32_t h = xp_hash_randseed[static_cast<unsigned char>(key[0])];
        for (const char c : key) h = (h << 4 | h >> 28) ^ static_cast<uint32_t>(static_cast<signed char>(c));
        harness::guarded_text at_the_end(key.c_str());
        EXPECT_EQ(xp_rotate_hashf((key + '\0' + "behind").c_str(), 0), h) << length << " bytes";
        for (const uint32_t n : {1u, 7u, 1009u, 0x80000001u})
            EXPECT_EQ(xp_rotate_hashf(at_the_end.data(), n), h % n) << length << " bytes, " << n << " buckets";
    }
}

TEST(HashTable, PrimesIncludeTheSquaresOfOddPrimes) {
    // a number, whether it is prime, the next above, the next below
    const int cases[][4] = {{INT_MIN, 0, 3, -1},
                            {2, 1, 3, -1},
                            {3, 1, 5, -1},
                            {4, 0, 5, 3},
                            {7, 1, 9, 5},
                            {9, 1, 11, 7},
                            {11, 1, 13, 9},
                            {15, 0, 17, 13},
                            {1000, 0, 1009, 997},
                            {46337 * 46337, 1, 2147117617, 2147117563},
                            {INT_MAX - 1, 0, INT_MAX, 2147483629},
                            {INT_MAX, 1, -1, 2147483629}};
    for (const auto &[n, prime, over, under] : cases) {
        EXPECT_EQ(xp_isprime(n), prime) << n;
        EXPECT_EQ(xp_getprime_over(n), over) << n;
        EXPECT_EQ(xp_getprime_under(n), under) << n;
    }
}

TEST(HashTable, BehavesLikeItsModel) {
    xp_hashtable *t;
    harness::oom_sweep([&] { t = xp_create_hashtable(5, nullptr, nullptr, keep, release, keep, release); });
    model m{model::chained, xp_rotate_hashf};
    constexpr auto reads =
        values<xp_hashtable, xp_hashiter, xpht_get, xpht_get_pair, xpht_get_all, xpht_get_first, xpht_get_next>;
    using table_calls =
        calls<xp_hashenum, reads, reads, xpht_put, xpht_update, xpht_replace, xpht_add, xpht_new, xpht_del,
              xpht_del_all, xpht_contains, xpht_count, xpht_enumerate_ex, xpht_reset, xp_init_hashenum, xphe_next,
              xphe_del, xp_close_hashenum, xp_destroy_hashtable, xp_create_hashenum, xp_destroy_hashenum>;
    table_calls::expect_like_model(t, m, [&](int step) {
        if (step % 16) return;
        m.rehash(t->hash = step % 32 ? by_length : xp_rotate_hashf);
        xpht_rehash(t);
    });
}

void *copy(const void *item) { // without a dot in front of it
    released += std::string("+") + text(item);
    return const_cast<char *>(text(item)) + (*text(item) == '.');
}
/// Searched keys have one character more than stored ones.
int compare(const void *key, const void *stored) {
    released += text(key) + std::string("=") + text(stored);
    return strcmp(text(key) + 1, text(stored));
}

TEST(HashTable, HooksAndComparisonAreCalledInOrder) {
    const auto expect = [](int result, int expected, const std::string &called) {
        EXPECT_EQ(result, expected) << called;
        EXPECT_EQ(take_released(), called);
    };
    xp_hashtable *t = xp_create_hashtable(8, by_length, compare, copy, release, copy, release);
    expect(xpht_put(t, ".a", "1"), 1, "+.a+1");
    expect(xpht_put(t, "-a", "9"), 0, "-a=a");
    expect(xpht_update(t, ".b", "2"), 1, ".b=a+.b+2");
    expect(xpht_update(t, ".a", "3"), 1, ".a=b.a=a+.a+3-a-1");
    expect(xpht_del_all(t, ".a"), 1, ".a=b.a=a-a-3");
    EXPECT_DEATH((harness::fail_allocation(1), xpht_update(t, ".c", "8")), "vorncore: xpht_update: out of memory");
    xp_destroy_hashtable(t);
    expect(0, 0, "-b-2");
    t = xp_create_hashtable(1, nullptr, nullptr, copy, release, nullptr, nullptr);
    xpht_put(t, "..b", "1"), xpht_replace(t, ".b", "2"); // what is found is what the hook stored
    expect(xpht_contains(t, ".b") + 2 * xpht_contains(t, "b"), 2, "+..b+.b-.b");
    xp_destroy_hashtable(t);
    t = xp_create_hashtable(1, nullptr, nullptr, nullptr, nullptr, nullptr, release);
    xpht_put(t, "a", "1"), xp_destroy_hashtable(t);
    expect(0, 0, "-b-1");
}

TEST(HashTable, PositionsAndEnumeratorStatesAreExact) {
    xp_hashtable table;
    xp_init_hashtable(&table, 8, by_length, nullptr, nullptr, nullptr, nullptr, nullptr);
    xp_hashitem **const heads = table.buckets;
    xp_hashenum e;
    const auto stands = [&](int bucket, const xp_hashitem *current, const xp_hashitem *previous, int end = 8) {
        return e.bucket == bucket && e.current == current && e.previous == previous && e.end == end;
    };
    for (const char *key : {"xxx", "bb", "aa"}) xpht_add(&table, key, key);
    texts seen;
    EXPECT_EQ(xpht_enumerate(&table, note_value, &seen), 3);
    double mean, variance;
    xpht_statistic(&table, &mean, &variance);
    EXPECT_DOUBLE_EQ(mean, 4.0 / 3);
    EXPECT_DOUBLE_EQ(variance, 2 - 16.0 / 9);
    xp_init_hashenum_ex(&e, &table, INT_MIN, INT_MAX);
    EXPECT_TRUE(xphe_del(&e) == 0 && stands(-1, nullptr, nullptr));
    EXPECT_TRUE(xphe_next(&e) == 1 && stands(2, heads[2], nullptr));
    EXPECT_TRUE(xphe_next(&e) == 1 && stands(2, heads[2]->next, heads[2]));
    EXPECT_TRUE(xphe_del(&e) == 1 && stands(3, heads[3], nullptr)) << "the last of a chain: on to the next one";
    EXPECT_TRUE(xphe_del(&e) == 0 && xpht_count(&table) == 1 && !heads[2]->next);
    xp_init_hashenum_ex(&e, &table, 2, 2);
    EXPECT_TRUE(xphe_next(&e) == 0 && stands(1, nullptr, nullptr, 2));
    xp_close_hashtable(&table);
}

} // namespace
