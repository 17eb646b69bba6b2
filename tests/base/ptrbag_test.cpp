#include "vorncore/base/ptrbag.h"

#include <map>

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

// The model: which slots hold what, and the free slots in the order of their deletion.
TEST(PtrBag, HandsOutSlotsLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    std::map<int, intptr_t> model;
    std::vector<int> free_slots;
    numbers gone;
    int capacity = 2;
    xp_ptrbag bag;
    xp_init_ptrbag(&bag, capacity, one_more, record_release);
    for (int step = 0; step < 20'000; step++) {
        if (const auto choice = random() % 100; choice == 0) {
            xppb_clear(&bag);
            for (const auto &[slot, n] : model) gone.push_back(n);
            model.clear(), free_slots.clear();
        } else if (choice < 58 || model.empty()) {
            const intptr_t n = static_cast<intptr_t>(random() % 3) - 1; // stored as null, too
            int expected = static_cast<int>(model.size());
            if (!free_slots.empty()) expected = free_slots.back(), free_slots.pop_back();
            const fail_allocation failure(step % 4 == 0);
            const int slot = xppb_add(&bag, item_of(n));
            ASSERT_EQ(slot, failure.fired() ? -1 : expected) << "step " << step;
            if (slot >= 0) model[slot] = n + 1;
        } else {
            const auto victim = std::next(model.begin(), static_cast<ptrdiff_t>(random() % model.size()));
            free_slots.push_back(victim->first);
            if (choice < 80)
                xppb_del(&bag, victim->first), gone.push_back(victim->second);
            else
                ASSERT_EQ(xppb_forget(&bag, victim->first), &bag);
            model.erase(victim);
        }
        ASSERT_EQ(bag.count, std::ssize(model));
        ASSERT_EQ(bag.used, std::ssize(model) + std::ssize(free_slots));
        ASSERT_EQ(bag.capacity, capacity = bag.used > capacity ? 2 * capacity : capacity);
        for (int slot = 0; slot < bag.used; slot++) {
            void *item = nullptr;
            ASSERT_EQ(xppb_get(&bag, slot, &item), static_cast<int>(model.count(slot))) << "step " << step;
            ASSERT_TRUE(!model.count(slot) || item == item_of(model[slot]));
        }
        ASSERT_EQ(released, gone);
        released.clear(), gone.clear();
    }
    for (const auto content : {bag.slots + bag.capacity, bag.slots - 1, bag.slots, bag.slots + bag.capacity - 1})
        EXPECT_EQ(xppb_is_valid_item(&bag, content), content < bag.slots || content >= bag.slots + bag.capacity);
    xp_close_ptrbag(&bag);
    EXPECT_EQ(released.size(), model.size());
}

TEST(PtrBag, EnumeratorsSkipFreeSlotsBothWays) {
    xp_ptrbag *bag = xp_create_ptrbag(8, nullptr, nullptr);
    xp_ptrbagenum *e = xp_create_ptrbagenum(bag);
    EXPECT_EQ(xppbe_next(e) + xppbe_prev(e), 0);
    for (intptr_t n = 0; n < 7; n++) xppb_add(bag, item_of(n));
    for (const int slot : {0, 3, 6}) xppb_del(bag, slot);
    std::vector<int> seen;
    for (int more = xppbe_next(e); more; more = e->index == 4 ? xppbe_del(e) : xppbe_next(e)) seen.push_back(e->index);
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

} // namespace
