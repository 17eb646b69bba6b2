#include "vorncore/base/ptrbag.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

constexpr intptr_t none = -1; // in a slot that is free

// The model: what the used slots hold, and the free ones in the order of their deletion.
TEST(PtrBag, HandsOutSlotsLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    numbers model, gone, free_slots;
    int capacity = 2;
    xp_ptrbag *bag;
    oom_sweep([&] { bag = xp_create_ptrbag(2, one_more, record_release); });
    xp_ptrbagenum *e = xp_create_ptrbagenum(bag); // at the end but for the deletion of what it stands at
    for (int step = 0; step < 20'000; step++) {
        const auto choice = random() % 100;
        const int used = static_cast<int>(model.size()), slot = static_cast<int>(random() % (model.size() + 1));
        const auto place = model.begin() + slot;
        if (choice == 0) {
            xppb_clear(bag);
            std::remove_copy(model.begin(), model.end(), std::back_inserter(gone), none);
            model.clear(), free_slots.clear();
        } else if (choice < 50) {
            const intptr_t n = random() % 3, expected = free_slots.empty() ? used : free_slots.back(); // null, too
            const fail_allocation failure(step % 2);
            const int added = xppb_add(bag, item_of(n - 1));
            ASSERT_EQ(added, failure.fired() ? -1 : expected) << "step " << step;
            if (expected < used) free_slots.pop_back(), model[static_cast<size_t>(expected)] = n;
            if (added == used) model.push_back(n);
        } else if (slot < used && *place != none) {
            if (choice >= 60) gone.push_back(*place);
            *place = none, free_slots.push_back(slot), e->index = slot;
            const auto next = std::find_if(place, model.end(), [](intptr_t n) { return n != none; });
            if (choice < 60) bag = xppb_forget(bag, slot);
            if (choice >= 60 && choice < 80) xppb_del(bag, slot);
            const int more = choice < 80 || xppbe_del(e);
            ASSERT_TRUE(choice < 80 || (more == (next != model.end()) && e->index == next - model.begin()));
        }
        numbers contents, forth, back;
        while (xppbe_next(e)) continue;
        while (xppbe_prev(e)) back.insert(back.begin(), e->index);
        ASSERT_EQ(xppbe_prev(e), 0) << "the front stays the front";
        while (xppbe_next(e)) forth.push_back(e->index);
        ASSERT_EQ(xppbe_next(e), 0) << "the end stays the end";
        for (int i = 0; i < bag->used; i++) {
            void *item = item_of(none);
            ASSERT_EQ(xppb_get(bag, i, &item), std::count(forth.begin(), forth.end(), i));
            contents.push_back(number(item));
        }
        if (std::ssize(model) > capacity) capacity *= 2;
        ASSERT_EQ(contents, model) << "step " << step;
        ASSERT_TRUE(back == forth && bag->capacity == capacity && bag->count == std::ssize(forth)) << "step " << step;
        ASSERT_EQ(std::exchange(released, {}), std::exchange(gone, {})) << "step " << step;
    }
    for (const auto content : {bag->slots - 1, bag->slots, bag->slots + capacity - 1, bag->slots + capacity})
        EXPECT_EQ(xppb_is_valid_item(bag, content), content < bag->slots || content >= bag->slots + capacity);
    xp_destroy_ptrbagenum(e);
    xp_destroy_ptrbag(bag);
    EXPECT_EQ(std::ssize(released), std::ssize(model) - std::ssize(free_slots));
}

} // namespace
