#include "vorncore/base/datahash.h"

#include <string.h>

#include <map>
#include <random>

#include "support/harness.h"
#include "vorncore/base/hashtable.h"

namespace {

using texts = std::vector<std::string>;
texts calls; // of the hooks and the comparison

char first(const void *area) { return *static_cast<const char *>(area); }
template <char kind>
void copy(void *area, const void *source) {
    calls.push_back(std::string{'+', kind, source ? first(source) : '0'});
    *static_cast<char *>(area) = source ? first(source) : '0';
}
template <char kind>
void release(void *area) {
    calls.push_back(std::string{'-', kind, first(area)});
}
int compare(const void *key, const void *stored) {
    calls.push_back(std::string{first(key), '=', first(stored)});
    return first(key) != first(stored);
}
uint32_t by_case(const void *key, uint32_t n) { return (first(key) < 'a' ? 1 : 2) % n; }

TEST(DataHash, HooksFillAndReleaseAreasInOrder) {
    xp_datahash *table =
        xp_create_datahash(4, by_case, compare, 1, copy<'k'>, release<'k'>, 1, copy<'v'>, release<'v'>);
    int inserted;
    xp_pair pair;
    const auto expect = [](int result, int expected, const texts &called) {
        EXPECT_EQ(result, expected) << ::testing::PrintToString(called);
        EXPECT_EQ(calls, called);
        calls.clear();
    };
    expect(xpdh_put(table, "a", "1"), 1, {"+ka", "+v1"});
    expect(xpdh_put(table, "a", "2"), 0, {"a=a"});
    expect(xpdh_update(table, "b", "3"), 1, {"b=a", "+kb", "+v3"});
    expect(first(xpdh_new(table, "c", nullptr, &inserted)), '0', {"c=b", "c=a", "+kc", "+v0"});
    EXPECT_EQ(inserted, 1);
    expect(first(xpdh_new(table, "b", "9", &inserted)), '3', {"b=c", "b=b"});
    EXPECT_EQ(inserted, 0);
    expect(xpdh_update(table, "b", "4"), 1, {"b=c", "b=b", "-kb", "-v3", "+kb", "+v4"});
    EXPECT_EQ(first(table->buckets[2]->next->data), 'b') << "an overwritten item keeps its place";
    expect(xpdh_get_pair(table, "b", &pair), 1, {"b=c", "b=b"});
    EXPECT_TRUE(pair.key == table->buckets[2]->next->data && pair.value == table->buckets[2]->next->data + 1);
    expect(xpdh_del(table, "b"), 1, {"b=c", "b=b", "-kb", "-v4"});
    expect(xpdh_put(table, "X", "5"), 1, {"+kX", "+v5"});
    {
        harness::fail_allocation failure(1);
        expect(xpdh_put(table, "Y", "6"), 0, {"Y=X"});
    }
    EXPECT_EQ(table->count, 3u);
    EXPECT_EQ(xp_create_datahash(1, by_case, compare, 2, nullptr, nullptr, UINT32_MAX, nullptr, nullptr), nullptr);
    EXPECT_EQ(xp_create_datahash(UINT32_MAX, by_case, compare, 1, nullptr, nullptr, 1, nullptr, nullptr), nullptr);
    double mean, variance;
    xpdh_statistic(table, &mean, &variance);
    EXPECT_DOUBLE_EQ(mean, 4.0 / 3);
    EXPECT_DOUBLE_EQ(variance, 2 - 16.0 / 9);
    xp_datahashenum *e = xp_create_datahashenum_ex(table, 2, 99);
    EXPECT_TRUE(xpdhe_del(e) == 0 && e->bucket == 1 && e->end == 4);
    EXPECT_EQ(xpdhe_next(e), 1);
    expect(xpdhe_del(e), 1, {"-kc", "-v0"});
    expect(xpdhe_next(e), 0, {});
    xp_destroy_datahashenum(e);
    expect((xpdh_clear(table), static_cast<int>(table->count)), 0, {"-kX", "-v5", "-ka", "-v1"});
    xp_destroy_datahash(table);
}

TEST(DataHash, KeysOfAWordGoThroughFunctionsOfTheirOwn) {
    xp_datahash one, four;
    xp_init_datahash(&one, 1, nullptr, compare, 8, nullptr, nullptr, 0, nullptr, nullptr);
    xp_init_datahash(&four, 4, by_case, nullptr, 8, nullptr, nullptr, 0, nullptr, nullptr);
    EXPECT_TRUE(xpdh_put(&one, "a1234567", nullptr) && !xpdh_put(&one, "a7654321", nullptr));
    for (const char *key : {"a1234567", "b7654321", "c1726354"}) EXPECT_TRUE(xpdh_put(&four, key, nullptr));
    EXPECT_TRUE(four.buckets[2]->next->next && calls == texts{"a=a"});
    calls.clear();
    xp_close_datahash(&one);
    xp_close_datahash(&four);
}

// The default hash byte by byte, over 13 buckets.
int32_t naive_hash(const std::string &key) {
    uint32_t h = xp_hash_randseed[key.empty() ? 0 : static_cast<unsigned char>(key[0])];
    for (const char c : key) h = (h << 4 | h >> 28) ^ static_cast<uint32_t>(static_cast<signed char>(c));
    return static_cast<int32_t>(h % 13);
}

// Keys of every size end before an unmapped page; most of their bytes are zero, so that they differ late.
TEST(DataHash, BehavesLikeAMapOfWholeKeysUnderRandomOperations) {
    std::mt19937 random(1);
    for (uint32_t size = 0; size <= 20; size++) {
        std::map<std::string, int> model;
        xp_datahash table;
        xp_init_datahash(&table, 13, nullptr, nullptr, size, nullptr, nullptr, sizeof(int), nullptr, nullptr);
        for (int step = 0; step < 300; step++) {
            std::string key(size, '\0');
            if (size) key[random() % size] = static_cast<char>(random() % 5 * 50);
            harness::guard_page page(key);
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
            ASSERT_EQ(xpdh_contains(&table, page.data()), model.contains(key));
            ASSERT_EQ(xpdh_get_pair(&table, page.data(), &pair), model.contains(key));
            ASSERT_EQ(xpdh_get(&table, page.data()), pair.value);
            ASSERT_EQ(table.count, model.size());
        }
        std::map<std::string, int> found;
        xp_datahashenum e, *const other = xp_create_datahashenum(&table);
        for (xp_init_datahashenum(&e, &table); xpdhe_next(&e);) {
            EXPECT_TRUE(xpdhe_next(other) && other->current == e.current);
            const std::string key(e.current->data, size);
            EXPECT_EQ(naive_hash(key), e.bucket);
            memcpy(&found[key], e.current->data + size, sizeof(int));
        }
        xp_close_datahashenum(&e);
        xp_destroy_datahashenum(other);
        EXPECT_EQ(found, model) << "keys of " << size << " bytes";
        const xp_pair_fn go_on_if_given = [](void *argument, xp_pair *) { return argument ? 1 : 0; };
        EXPECT_EQ(xpdh_enumerate(&table, go_on_if_given, &model), static_cast<int>(model.size()));
        EXPECT_EQ(xpdh_enumerate(&table, go_on_if_given, nullptr), 0);
        xp_close_datahash(&table);
    }
}

} // namespace
