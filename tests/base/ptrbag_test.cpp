#include "vorncore/base/ptrbag.h"

#include <iterator>
#include <map>
#include <random>

#include "support/harness.h"

namespace {

using numbers = std::vector<intptr_t>;

numbers released;
void record_release(void *item) { released.push_back(reinterpret_cast<intptr_t>(item)); }

void *item_of(intptr_t n) { return reinterpret_cast<void *>(n); }
void *one_more(const void *item) { return item_of(reinterpret_cast<intptr_t>(item) + 1); }

// The model: which slots hold what, and the free slots in the order of their deletion.
TEST(PtrBag, HandsOutSlotsLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    std::map<int, intptr_t> model;
    std::vector<int> free_slots;
    numbers model_released;
    released.clear();
    xp_ptrbag bag;
    xp_init_ptrbag(&bag, 2, one_more, record_release);
    for (int step = 0; step < 20'000; step++) {
        const auto some = [&] { return std::next(model.begin(), static_cast<ptrdiff_t>(random() % model.size())); };
        if (const auto choice = random() % 100; choice == 0) {
            xppb_clear(&bag);
            for (const auto &[slot, n] : model) model_released.push_back(n);
            model.clear(), free_slots.clear();
            ASSERT_EQ(bag.used, 0);
        } else if (choice < 58 || model.empty()) {
            const intptr_t n = static_cast<intptr_t>(random() % 3) - 1; // stored as null, too
            int expected = static_cast<int>(model.size());
            if (!free_slots.empty()) expected = free_slots.back(), free_slots.pop_back();
            ASSERT_EQ(xppb_add(&bag, item_of(n)), expected) << "step " << step;
            model[expected] = n + 1;
        } else {
            const auto victim = some();
            free_slots.push_back(victim->first);
            if (choice < 80)
                xppb_del(&bag, victim->first), model_released.push_back(victim->second);
            else
                ASSERT_EQ(xppb_forget(&bag, victim->first), &bag);
            model.erase(victim);
        }
        ASSERT_EQ(bag.count, std::ssize(model));
        ASSERT_EQ(bag.used, std::ssize(model) + std::ssize(free_slots));
        for (int slot = 0; slot < bag.used; slot++) {
            void *item = nullptr;
            ASSERT_EQ(xppb_get(&bag, slot, &item), static_cast<int>(model.count(slot))) << "step " << step;
            ASSERT_TRUE(!model.count(slot) || item == item_of(model[slot]));
        }
        ASSERT_EQ(released, model_released);
    }
    released.clear();
    xp_close_ptrbag(&bag);
    EXPECT_EQ(released.size(), model.size());
}

TEST(PtrBag, CapacityDoublesWhenNoSlotIsFree) {
    xp_ptrbag bag;
    xp_init_ptrbag(&bag, 2, nullptr, nullptr);
    xppb_add(&bag, "a"), xppb_add(&bag, "b");
    xppb_del(&bag, 0);
    EXPECT_EQ(xppb_add(&bag, "c"), 0);
    EXPECT_EQ(bag.capacity, 2);
    EXPECT_EQ(xppb_add(&bag, "d"), 2);
    EXPECT_EQ(bag.capacity, 4);
    EXPECT_TRUE(xppb_is_valid_item(&bag, bag.slots + 4));
    EXPECT_TRUE(xppb_is_valid_item(&bag, reinterpret_cast<char *>(bag.slots) - 1));
    EXPECT_FALSE(xppb_is_valid_item(&bag, bag.slots + 3));
    EXPECT_FALSE(xppb_is_valid_item(&bag, bag.free_head)) << "the end of the free list";
    xp_close_ptrbag(&bag);
}

TEST(PtrBag, EnumeratorsSkipFreeSlotsBothWays) {
    xp_ptrbag *bag = xp_create_ptrbag(8, nullptr, nullptr);
    xp_ptrbagenum *e = xp_create_ptrbagenum(bag);
    EXPECT_EQ(xppbe_next(e) + xppbe_prev(e), 0);
    for (intptr_t n = 0; n < 7; n++) xppb_add(bag, item_of(n));
    for (const int slot : {0, 3, 6}) xppb_del(bag, slot);
    std::vector<int> seen;
    for (int more = xppbe_next(e); more;) {
        seen.push_back(e->index);
        more = e->index == 4 ? xppbe_del(e) : xppbe_next(e);
    }
    EXPECT_EQ(xppbe_next(e), 0) << "the end stays the end";
    while (xppbe_prev(e)) seen.push_back(e->index);
    EXPECT_EQ(xppbe_prev(e), 0);
    while (xppbe_next(e)) seen.push_back(e->index);
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 4, 5, 5, 2, 1, 1, 2, 5}));
    xppb_clear(bag);
    EXPECT_EQ(xppbe_prev(e), 0) << "slots of a cleared bag are not looked at";
    xp_destroy_ptrbagenum(e);
    xp_destroy_ptrbag(bag);
}

TEST(PtrBag, FailedAllocationsLeaveTheBagAsItWas) {
    harness::oom_sweep([] {
        xp_ptrbag *bag = xp_create_ptrbag(1, one_more, record_release);
        if (!bag) return;
        EXPECT_EQ(xppb_add(bag, item_of(1)), 0);
        const int second = xppb_add(bag, item_of(2));
        EXPECT_EQ(second, bag->capacity == 2 ? 1 : -1);
        EXPECT_EQ(bag->count, second < 0 ? 1 : 2);
        released.clear();
        xp_destroy_ptrbag(bag);
        EXPECT_EQ(released, second < 0 ? numbers{2} : (numbers{2, 3}));
    });
}

} // namespace
