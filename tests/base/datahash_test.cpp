// The chains are tested with the hash table, which shares them.
#include "vorncore/base/datahash.h"

#include <map>

#include "support/harness.h"
#include "vorncore/base/hashtable.h"

using namespace harness;

namespace {

using texts = std::vector<std::string>;
texts calls; // of the hooks and the comparison

char first(const void *area) { return *static_cast<const char *>(area); }
template <char kind>
void copy(void *area, const void *source) {
    calls.push_back({'+', kind, *static_cast<char *>(area) = source ? first(source) : '0'});
}
template <char kind>
void release(void *area) {
    calls.push_back({'-', kind, first(area)});
}
int compare(const void *key, const void *stored) {
    calls.push_back({first(key), '=', first(stored)});
    return first(key) != first(stored);
}
uint32_t last_bucket(const void *, uint32_t n) { return n - 1; }

uint32_t size; // of the keys
int comparisons;
int compare_whole(const void *key, const void *stored) { return comparisons++, memcmp(key, stored, size); }

TEST(DataHash, HooksFillAndReleaseAreasInOrder) {
    xp_datahash *table =
        xp_create_datahash(3, last_bucket, compare, 1, copy<'k'>, release<'k'>, 1, copy<'v'>, release<'v'>);
    const auto expect = [](int result, int expected, const texts &called) {
        EXPECT_EQ(result, expected) << ::testing::PrintToString(called);
        EXPECT_EQ(std::exchange(calls, {}), called);
    };
    expect(xpdh_put(table, "a", "1"), 1, {"+ka", "+v1"});
    expect(xpdh_put(table, "a", "2"), 0, {"a=a"});
    expect(xpdh_update(table, "b", "3"), 1, {"b=a", "+kb", "+v3"});
    expect(first(xpdh_new(table, "c", nullptr, nullptr)), '0', {"c=b", "c=a", "+kc", "+v0"});
    expect(first(xpdh_new(table, "b", "9", nullptr)), '3', {"b=c", "b=b"});
    expect(xpdh_update(table, "b", "4"), 1, {"b=c", "b=b", "-kb", "-v3", "+kb", "+v4"});
    xp_pair pair;
    expect(xpdh_get_pair(table, "b", &pair), 1, {"b=c", "b=b"});
    char *const data = table->buckets[2]->next->data; // an overwritten item keeps its place
    EXPECT_TRUE(pair.key == data && pair.value == data + 1);
    expect(xpdh_del(table, "b"), 1, {"b=c", "b=b", "-kb", "-v4"});
    {
        const fail_allocation failure(1);
        expect(xpdh_put(table, "d", "5"), 0, {"d=c", "d=a"});
    }
    double mean, variance;
    xpdh_statistic(table, &mean, &variance);
    EXPECT_TRUE(table->count == 2 && mean == 1.5 && variance == 0.25);
    xp_datahashenum *e = xp_create_datahashenum_ex(table, 2, 99);
    EXPECT_TRUE(xpdhe_del(e) == 0 && xpdhe_next(e) == 1);
    expect(xpdhe_del(e), 1, {"-kc", "-v0"});
    xp_destroy_datahashenum(e);
    xp_destroy_datahash(table);
    expect(0, 0, {"-ka", "-v1"});
    EXPECT_EQ(xp_create_datahash(1, nullptr, nullptr, 2, nullptr, nullptr, UINT32_MAX, nullptr, nullptr), nullptr);
    EXPECT_EQ(xp_create_datahash(UINT32_MAX, nullptr, nullptr, 1, nullptr, nullptr, 1, nullptr, nullptr), nullptr);
}

// The default hash byte by byte, over 13 buckets.
int32_t naive_hash(const std::string &key) {
    uint32_t h = xp_hash_randseed[key.empty() ? 0 : static_cast<unsigned char>(key[0])];
    for (const char c : key) h = (h << 4 | h >> 28) ^ static_cast<uint32_t>(static_cast<signed char>(c));
    return static_cast<int32_t>(h % 13);
}

// Keys of every size, under the default functions, a hash or a comparison of their own. They end before an unmapped
// page; most of their bytes are zero, so that they differ late.
TEST(DataHash, BehavesLikeAMapOfWholeKeysUnderRandomOperations) {
    std::mt19937 random(1);
    for (uint32_t round = 0; round < 63; round++) {
        const xp_hash_fn hash = round % 3 == 1 ? last_bucket : nullptr;
        const xp_compare_fn own_compare = round % 3 == 2 ? compare_whole : nullptr;
        size = round / 3, comparisons = 0;
        std::map<std::string, int> model, found;
        xp_datahash table;
        xp_init_datahash(&table, 13, hash, own_compare, size, nullptr, nullptr, sizeof(int), nullptr, nullptr);
        for (int step = 0; step < 300; step++) {
            std::string key(size, '\0');
            if (size) key[random() % size] = static_cast<char>(random() % 5 * 50);
            guard_page page(key);
            const bool known = model.contains(key);
            const int operation = static_cast<int>(random() % 4);
            int result = -1;
            xp_pair pair{};
            if (operation == 0) result = xpdh_put(&table, page.data(), &step);
            if (operation == 1) result = xpdh_new(&table, page.data(), &step, &result) ? result : -1;
            if (operation == 2) result = xpdh_update(&table, page.data(), &step);
            if (operation == 3) result = xpdh_del(&table, page.data());
            ASSERT_EQ(result, operation == 2 || known == (operation == 3));
            if (operation == 2 || (operation < 2 && !known)) model[key] = step;
            if (operation == 3) model.erase(key);
            ASSERT_EQ(xpdh_get_pair(&table, page.data(), &pair), model.contains(key));
            ASSERT_EQ(xpdh_contains(&table, page.data()), model.contains(key));
            ASSERT_EQ(xpdh_get(&table, page.data()), pair.value);
            ASSERT_EQ(table.count, model.size());
        }
        xp_datahashenum e, *const other = xp_create_datahashenum(&table);
        for (xp_init_datahashenum(&e, &table); xpdhe_next(&e);) {
            const std::string key(e.current->data, size);
            EXPECT_EQ(e.bucket, hash ? 12 : naive_hash(key));
            EXPECT_TRUE(xpdhe_next(other) && other->current == e.current);
            memcpy(&found[key], e.current->data + size, sizeof(int));
        }
        xp_close_datahashenum(&e);
        xp_destroy_datahashenum(other);
        EXPECT_EQ(comparisons > 0, own_compare != nullptr);
        EXPECT_EQ(found, model) << "keys of " << size << " bytes";
        const xp_pair_fn go_on_if_given = [](void *argument, xp_pair *) { return argument ? 1 : 0; };
        EXPECT_EQ(xpdh_enumerate(&table, go_on_if_given, &model), static_cast<int>(model.size()));
        EXPECT_EQ(xpdh_enumerate(&table, go_on_if_given, nullptr), 0);
        xp_close_datahash(&table);
    }
}

} // namespace
