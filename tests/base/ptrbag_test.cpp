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
    xp_ptrbag *bag;
    xp_ptrbagenum *e; // at the end but for the deletion of what it stands at
    oom_sweep([&] { bag = xp_create_ptrbag(capacity, one_more, record_release); });
    oom_sweep([&] { e = xp_create_ptrbagenum(bag); });
    for (int step = 0; step < 20'000; step++) {
        if (const auto choice = random() % 100; choice == 0) {
            xppb_clear(bag);
            for (const auto &[slot, n] : model) gone.push_back(n);
            model.clear(), free_slots.clear();
        } else if (choice < 58 || model.empty()) {
            const intptr_t n = static_cast<intptr_t>(random() % 3) - 1; // stored as null, too
            int expected = static_cast<int>(model.size());
            if (!free_slots.empty()) expected = free_slots.back(), free_slots.pop_back();
            const fail_allocation failure(step % 4 == 0);
            const int slot = xppb_add(bag, item_of(n));
            ASSERT_EQ(slot, failure.fired() ? -1 : expected) << "step " << step;
            if (slot >= 0) model[slot] = n + 1;
        } else {
            const auto victim = std::next(model.begin(), static_cast<ptrdiff_t>(random() % model.size()));
            free_slots.push_back(victim->first);
            EXPECT_TRUE(choice < 80 || xppb_forget(bag, victim->first) == bag);
            if (choice < 80) gone.push_back(victim->second);
            if (choice < 70) xppb_del(bag, victim->first);
            if (choice >= 70 && choice < 80) {
                const auto next = std::next(victim);
                e->index = victim->first;
                ASSERT_EQ(xppbe_del(e), next != model.end());
                ASSERT_TRUE(next == model.end() || e->index == next->first);
            }
            model.erase(victim);
        }
        ASSERT_EQ(bag->count, std::ssize(model));
        ASSERT_EQ(bag->used, std::ssize(model) + std::ssize(free_slots));
        ASSERT_EQ(bag->capacity, capacity = bag->used > capacity ? 2 * capacity : capacity);
        for (int slot = 0; slot < bag->used; slot++) {
            void *item = nullptr;
            ASSERT_EQ(xppb_get(bag, slot, &item), static_cast<int>(model.count(slot))) << "step " << step;
            ASSERT_TRUE(!model.count(slot) || item == item_of(model[slot]));
        }
        while (xppbe_next(e)) {
        }
        ASSERT_EQ(xppbe_next(e), 0) << "the end stays the end";
        for (auto slot = model.rbegin(); slot != model.rend(); ++slot)
            ASSERT_TRUE(xppbe_prev(e) && e->index == slot->first) << "step " << step;
        ASSERT_EQ(xppbe_prev(e) + xppbe_prev(e), 0);
        for (const auto &[slot, n] : model) ASSERT_TRUE(xppbe_next(e) && e->index == slot) << "step " << step;
        ASSERT_EQ(released, gone);
        released.clear(), gone.clear();
    }
    for (const auto content : {bag->slots + bag->capacity, bag->slots - 1, bag->slots, bag->slots + bag->capacity - 1})
        EXPECT_EQ(xppb_is_valid_item(bag, content), content < bag->slots || content >= bag->slots + bag->capacity);
    xp_destroy_ptrbagenum(e);
    xp_destroy_ptrbag(bag);
    EXPECT_EQ(released.size(), model.size());
}

} // namespace
