// The two lists share their code: the random loop runs on both, the rest is what each does with a datum.
#include "vorncore/base/datalist.h"
#include "vorncore/base/list.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

// Both hold numbers: one points to them, the other has them in place.
int values[62];
int value(const void *item) { return *static_cast<const int *>(item); }
int value_in(const xp_listnode *node) { return value(node->datum); }
int value_in(const xp_datanode *node) { return value(node->data); }

int copies;
int copied(const void *source) { return copies++, source ? value(source) + 1 : 0; }
void *copy_pointer(const void *source) { return &values[copied(source)]; }
void copy_block(void *block, const void *source) { *static_cast<int *>(block) = copied(source); }
void record_value(void *item) { released.push_back(value(item)); }

// What of the key is compared shows which argument it is.
int tens(const void *key, const void *item) { return value(key) - value(item) / 10; }

template <auto Head, auto Before, auto After, auto Add, auto Insert, auto Del, auto Rotate, auto Search, auto Clear,
          auto Destroy, auto CreateEnum, auto DestroyEnum, auto Next, auto Prev, auto DelCurrent>
void behave_like_a_vector(auto *list) {
    std::mt19937 random(1);
    numbers model, gone;
    auto *const end = Head(list);
    auto *e = CreateEnum(list);
    EXPECT_EQ(Rotate(list, 1), nullptr);
    for (int step = 0; step < 20'000; step++) {
        const int *const n = random() % 60 ? &values[random() % 60] : nullptr;
        const auto at = static_cast<ptrdiff_t>(random() % (model.size() + 1)); // the end stands for the sentinel
        auto *node = end->next;
        for (ptrdiff_t i = 0; i < at; i++) node = node->next;
        auto *made = end; // the node that a call returns
        ptrdiff_t made_at = at;
        const auto choice = random() % 9;
        if (choice < 4) {
            const fail_allocation failure(random() % 20 == 0);
            copies = 0;
            if (choice == 0) made = Before(list, node, n);
            if (choice == 1) made = After(list, node, n), made_at = node == end ? 0 : at + 1;
            if (choice == 2) made = Add(list, n), made_at = std::ssize(model);
            if (choice == 3) made = Insert(list, n), made_at = 0;
            ASSERT_TRUE(failure.fired() ? !made && copies == 0 : made && copies == 1);
            if (made) model.insert(model.begin() + made_at, n ? *n + 1 : 0);
            if (!made) made_at = -1;
        } else if (model.empty() || (choice < 7 && node == end)) {
            continue;
        } else if (choice < 7) {
            gone.push_back(model[static_cast<size_t>(at)]), model.erase(model.begin() + at), e->current = node;
            const int more = choice < 6 ? (e->current = Del(list, node)) != end : DelCurrent(e);
            ASSERT_EQ(more, at < std::ssize(model));
            made = e->current;
        } else { // several numbers stand for the same direction
            const bool first_to_back = choice == 7;
            made = Rotate(list, first_to_back * (1 + step % 2)), made_at = first_to_back ? std::ssize(model) - 1 : 0;
            std::rotate(model.begin(), first_to_back ? model.begin() + 1 : model.end() - 1, model.end());
        }
        numbers forth, back;
        for (e->current = end; Next(e); forth.push_back(value_in(e->current)))
            ASSERT_EQ(e->current == made, std::ssize(forth) == made_at) << "step " << step;
        while (Prev(e)) back.insert(back.begin(), value_in(e->current));
        ASSERT_TRUE(forth == model && back == model && list->count == std::ssize(model)) << "step " << step;
        const int key = static_cast<int>(random() % 7); // of several matches, the first is found
        auto *hit = Search(list, &key, tens), *expected = end->next;
        while (expected != end && value_in(expected) / 10 != key) expected = expected->next;
        ASSERT_TRUE(hit ? hit == expected : expected == end);
        if (step % 1000 == 999) Clear(list), gone.insert(gone.end(), model.begin(), model.end()), model.clear();
        ASSERT_EQ(std::exchange(released, {}), std::exchange(gone, {})) << "step " << step;
    }
    DestroyEnum(e);
    Destroy(list);
}

TEST(Lists, BehaveLikeAVectorUnderRandomOperations) {
    for (int i = 0; i < 62; i++) values[i] = i;
    behave_like_a_vector<xpls_head, xpls_insert_before, xpls_insert_after, xpls_add, xpls_insert, xpls_del, xpls_rotate,
                         xpls_search, xpls_clear, xp_destroy_list, xp_create_listenum, xp_destroy_listenum, xple_next,
                         xple_prev, xple_del>(xp_create_list(copy_pointer, record_value));
    behave_like_a_vector<xpdl_head, xpdl_insert_before, xpdl_insert_after, xpdl_add, xpdl_insert, xpdl_del, xpdl_rotate,
                         xpdl_search, xpdl_clear, xp_destroy_datalist, xp_create_datalistenum, xp_destroy_datalistenum,
                         xpdle_next, xpdle_prev, xpdle_del>(xp_create_datalist(sizeof(int), copy_block, record_value));
}

TEST(Lists, WithoutHooksKeepThePointerOrTheBytes) {
    xp_list list;
    xp_init_list(&list, nullptr, nullptr);
    xpls_add(&list, item_of(1));
    EXPECT_EQ(xpls_search(&list, item_of(1), nullptr), list.sentinel.first);
    EXPECT_EQ(xpls_search(&list, item_of(2), nullptr), nullptr);
    xpls_reset(&list);
    EXPECT_EQ(list.sentinel.last, xpls_head(&list));

    guard_page bytes("12345");
    xp_datalist blocks;
    xp_init_datalist(&blocks, 5, nullptr, nullptr);
    EXPECT_EQ(std::string_view(xpdl_add(&blocks, bytes.data())->data, 5), "12345");
    EXPECT_EQ(xpdl_insert(&blocks, nullptr), blocks.sentinel.first) << "left to be filled";
    xp_close_datalist(&blocks);
}

} // namespace
