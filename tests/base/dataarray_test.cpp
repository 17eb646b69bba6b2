#include "vorncore/base/dataarray.h"

#include <algorithm>
#include <random>

#include "support/harness.h"

namespace {

std::vector<int> released;
void record(void *slot) { released.push_back(*static_cast<int *>(slot)); }
void copy(void *slot, const void *source) { *static_cast<int *>(slot) = *static_cast<const int *>(source) + 1; }
int by_number(const void *a, const void *b) { return *static_cast<const int *>(a) - *static_cast<const int *>(b); }

TEST(DataArray, NothingIsAllocatedBeforeTheFirstItemAndAfterAReset) {
    xp_dataarray array;
    xp_init_dataarray(&array, 4, sizeof(int), nullptr, nullptr);
    for (int round = 0; round < 2; round++) {
        EXPECT_TRUE(!array.data && array.capacity == 0 && array.count == 0 && array.initial_capacity == 4);
        EXPECT_EQ(xpda_bsearch(&array, &round, by_number), -1);
        for (int i = 0; i < 4; i++) EXPECT_EQ(*static_cast<int *>(xpda_add(&array, &i)), i);
        EXPECT_EQ(array.capacity, 4u);
        memset(array.data, '!', 16);
        EXPECT_EQ(xpda_insert(&array, 0, nullptr), array.data);
        EXPECT_EQ(memcmp(array.data, "!!!!", 4), 0) << "left for the caller to set";
        EXPECT_TRUE(array.capacity == 8 && array.count == 5);
        EXPECT_EQ(xpda_reset(&array), &array);
    }
    harness::fail_allocation failure(1);
    EXPECT_EQ(xpda_add(&array, nullptr), nullptr);
    array.initial_capacity = 0;
    EXPECT_EQ(xpda_add(&array, nullptr), nullptr) << "there is nothing to double";
    EXPECT_TRUE(!array.data && array.capacity == 0 && array.count == 0);
}

// Sources are one less than what is stored.
TEST(DataArray, BehavesLikeAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<int> model, gone;
    xp_dataarray *array = xp_create_dataarray(1, sizeof(int), copy, record);
    for (int step = 0; step < 20'000; step++) {
        const int n = static_cast<int>(random() % 50), source = n - 1;
        const uint32_t at = static_cast<uint32_t>(random() % (model.size() + 1));
        const auto place = model.begin() + at;
        const int operation = static_cast<int>(random() % 6) + (at == model.size()) * 10;
        if (operation % 10 < 2) xpda_insert(array, at, &source), model.insert(place, n);
        if (operation == 2) xpda_del(array, at), gone.push_back(*place), model.erase(place);
        if (operation == 3) xpda_replace(array, at, &source), gone.push_back(*place), *place = n;
        if (operation == 4) xpda_sort(array, by_number), std::sort(model.begin(), model.end());
        if (operation == 4) {
            const int found = xpda_bsearch(array, &n, by_number);
            ASSERT_EQ(found >= 0, std::binary_search(model.begin(), model.end(), n));
            ASSERT_TRUE(found < 0 || model[static_cast<size_t>(found)] == n);
        }
        if (operation == 5 && step % 64 == 0) {
            std::vector<int> kept;
            for (const int i : model) (kept.empty() || kept.back() != i ? kept : gone).push_back(i);
            ASSERT_EQ(xpda_uniq(array, by_number), array);
            model = kept;
        }
        ASSERT_EQ(array->count, model.size());
        ASSERT_TRUE(std::equal(model.begin(), model.end(), reinterpret_cast<int *>(array->data))) << "step " << step;
    }
    xp_destroy_dataarray(array);
    gone.insert(gone.end(), model.begin(), model.end());
    EXPECT_EQ(released, gone);
}

} // namespace
