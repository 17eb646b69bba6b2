#include "vorncore/base/ptrbag.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

/// The occupied slots, in both directions; at both ends an enumerator stays where it is.
numbers walk(xp_ptrbag *bag) {
    numbers forth, back;
    xp_ptrbagenum *e = xp_create_ptrbagenum(bag);
    while (xppbe_next(e)) forth.push_back(e->index);
    EXPECT_EQ(xppbe_next(e), 0);
    while (xppbe_prev(e)) back.insert(back.begin(), e->index);
    EXPECT_EQ(xppbe_prev(e), 0);
    EXPECT_EQ(e->index, -1);
    EXPECT_EQ(forth, back);
    xp_destroy_ptrbagenum(e);
    return forth;
}

// Items are one more than what was given.
TEST(PtrBag, HandsOutTheSlotFreedLastAndDoublesWhenNoneIsFree) {
    xp_ptrbag *bag;
    oom_sweep([&] { bag = xp_create_ptrbag(2, one_more, record_release); });
    const auto add = [&](intptr_t n) { return xppb_add(bag, item_of(n - 1)); };
    EXPECT_EQ((numbers{add(5), add(0)}), (numbers{0, 1})) << "null is an item, too";
    {
        const fail_allocation failure(1);
        EXPECT_EQ(add(6), -1);
    }
    EXPECT_EQ((numbers{bag->count, bag->used, bag->capacity}), (numbers{2, 2, 2}));
    EXPECT_EQ((numbers{add(6), bag->capacity}), (numbers{2, 4}));
    EXPECT_EQ(walk(bag), (numbers{0, 1, 2}));
    xppb_del(bag, 0), xppb_del(xppb_forget(bag, 2), 1);
    EXPECT_EQ(walk(bag), numbers());
    EXPECT_EQ((numbers{add(1), add(2), add(3), add(4), add(7)}), (numbers{1, 2, 0, 3, 4}));
    xppb_del(bag, 3);
    EXPECT_EQ(walk(bag), (numbers{0, 1, 2, 4}));
    EXPECT_EQ((numbers{bag->count, bag->used, bag->capacity}), (numbers{4, 5, 8}));
    void *item = bag;
    EXPECT_TRUE(!xppb_get(bag, 3, &item) && item == bag && xppb_get(bag, 4, &item) && item == item_of(7));
    xp_ptrbagenum e{bag, 2};
    EXPECT_TRUE(xppbe_del(&e) && e.index == 4 && !xppbe_del(&e));
    EXPECT_EQ(std::exchange(released, {}), (numbers{5, 0, 4, 2, 7}));
    xppb_clear(bag);
    EXPECT_EQ(std::exchange(released, {}), (numbers{3, 1})) << "in the order of their slots";
    EXPECT_EQ((numbers{xppbe_prev(&e), bag->count, bag->capacity, add(8)}), (numbers{0, 0, 8, 0}));
    for (const auto content : {bag->slots - 1, bag->slots, bag->slots + 7, bag->slots + 8})
        EXPECT_EQ(xppb_is_valid_item(bag, content), content < bag->slots || content >= bag->slots + 8);
    xp_destroy_ptrbag(bag);
    EXPECT_EQ(released, numbers{8});
}

} // namespace
