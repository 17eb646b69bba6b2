// The two lists share their code: the random loop runs on both, the rest is what each does with a datum.
#include "vorncore/base/datalist.h"
#include "vorncore/base/list.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <random>

#include "support/harness.h"

namespace {

struct pointer_list {
    using list = xp_list;
    using enumerator = xp_listenum;
    static constexpr auto head = xpls_head;
    static constexpr auto before = xpls_insert_before;
    static constexpr auto after = xpls_insert_after;
    static constexpr auto add = xpls_add;
    static constexpr auto insert = xpls_insert;
    static constexpr auto del = xpls_del;
    static constexpr auto rotate = xpls_rotate;
    static constexpr auto search = xpls_search;
    static constexpr auto clear = xpls_clear;
    static constexpr auto destroy = xp_destroy_list;
    static constexpr auto create_enumerator = xp_create_listenum;
    static constexpr auto destroy_enumerator = xp_destroy_listenum;
    static constexpr auto next = xple_next;
    static constexpr auto prev = xple_prev;
    static constexpr auto del_current = xple_del;
    static list *create(xp_release_fn release) { return xp_create_list(nullptr, release); }
    static int value(const xp_listnode *node) { return *static_cast<int *>(node->datum); }
};

struct data_list {
    using list = xp_datalist;
    using enumerator = xp_datalistenum;
    static constexpr auto head = xpdl_head;
    static constexpr auto before = xpdl_insert_before;
    static constexpr auto after = xpdl_insert_after;
    static constexpr auto add = xpdl_add;
    static constexpr auto insert = xpdl_insert;
    static constexpr auto del = xpdl_del;
    static constexpr auto rotate = xpdl_rotate;
    static constexpr auto search = xpdl_search;
    static constexpr auto clear = xpdl_clear;
    static constexpr auto destroy = xp_destroy_datalist;
    static constexpr auto create_enumerator = xp_create_datalistenum;
    static constexpr auto destroy_enumerator = xp_destroy_datalistenum;
    static constexpr auto next = xpdle_next;
    static constexpr auto prev = xpdle_prev;
    static constexpr auto del_current = xpdle_del;
    static list *create(xp_release_fn release) { return xp_create_datalist(sizeof(int), nullptr, release); }
    static int value(const xp_datanode *node) { return *reinterpret_cast<const int *>(node->data); }
};

std::vector<int> released;
void record_release(void *item) { released.push_back(*static_cast<int *>(item)); }

// What of the key is compared shows which argument it is.
int tens(const void *key, const void *item) {
    return *static_cast<const int *>(key) - *static_cast<const int *>(item) / 10;
}

template <class Kind>
class Lists : public testing::Test {};
using kinds = testing::Types<pointer_list, data_list>;
TYPED_TEST_SUITE(Lists, kinds);

TYPED_TEST(Lists, BehaveLikeAVectorUnderRandomOperations) {
    using L = TypeParam;
    static int numbers[60];
    for (int i = 0; i < 60; i++) numbers[i] = i;
    std::mt19937 random(1);
    std::vector<int> model, model_released;
    released.clear();
    auto *list = L::create(record_release);
    auto *const end = L::head(list);
    EXPECT_EQ(L::rotate(list, 1), nullptr);
    for (int step = 0; step < 20'000; step++) {
        int *const n = &numbers[random() % 60];
        const auto at = static_cast<ptrdiff_t>(random() % (model.size() + 1)); // the end stands for the sentinel
        auto *node = end->next;
        for (ptrdiff_t i = 0; i < at; i++) node = node->next;
        const auto place = model.begin() + at;
        auto *made = end; // the node that a call returns
        ptrdiff_t made_at = at;
        switch (random() % 9) {
        case 0: made = L::before(list, node, n), model.insert(place, *n); break;
        case 1:
            made = L::after(list, node, n), made_at = node == end ? 0 : at + 1;
            model.insert(model.begin() + made_at, *n);
            break;
        case 2: made = L::add(list, n), made_at = std::ssize(model), model.push_back(*n); break;
        case 3: made = L::insert(list, n), made_at = 0, model.insert(model.begin(), *n); break;
        case 4:
        case 5:
        case 6:
            if (node == end) continue;
            made = L::del(list, node), model_released.push_back(*place), model.erase(place);
            break;
        case 7:
            if (model.empty()) continue;
            made = L::rotate(list, 1 + static_cast<int>(random() % 2)), made_at = std::ssize(model) - 1;
            std::rotate(model.begin(), model.begin() + 1, model.end());
            break;
        case 8:
            if (model.empty()) continue;
            made = L::rotate(list, 0), made_at = 0;
            std::rotate(model.begin(), model.end() - 1, model.end());
            break;
        }
        ASSERT_EQ(list->count, std::ssize(model));
        auto *walk = end, *back = end;
        for (size_t i = 0; i < model.size(); i++) {
            walk = walk->next, back = back->previous;
            ASSERT_EQ(L::value(walk), model[i]) << "step " << step;
            ASSERT_EQ(L::value(back), model[model.size() - 1 - i]) << "step " << step;
            ASSERT_EQ(walk == made, static_cast<ptrdiff_t>(i) == made_at) << "step " << step;
        }
        ASSERT_TRUE(walk->next == end && back->previous == end);
        const int key = static_cast<int>(random() % 7);
        const auto found = std::find_if(model.begin(), model.end(), [=](int i) { return i / 10 == key; });
        auto *hit = L::search(list, &key, tens);
        ASSERT_EQ(hit == nullptr, found == model.end());
        for (auto i = model.begin(); hit && i != found; ++i) hit = hit->previous;
        ASSERT_TRUE(!hit || hit->previous == end) << "of several matches, the first";
        if (step % 1000 == 999) {
            L::clear(list);
            model_released.insert(model_released.end(), model.begin(), model.end());
            model.clear();
            ASSERT_EQ(list->count, 0);
        }
        ASSERT_EQ(released, model_released) << "step " << step;
    }
    L::destroy(list);
}

TYPED_TEST(Lists, EnumeratorsWalkBothWaysAndDelete) {
    using L = TypeParam;
    const int numbers[] = {10, 11, 12, 13};
    auto *list = L::create(nullptr);
    auto *e = L::create_enumerator(list);
    EXPECT_EQ(L::next(e) + L::prev(e), 0) << "nothing to walk over";
    for (const int &n : numbers) L::add(list, &n);
    std::vector<int> seen;
    while (L::prev(e)) seen.push_back(L::value(e->current));
    for (int more = L::next(e); more;) {
        const int n = L::value(e->current);
        seen.push_back(n);
        more = n % 2 ? L::del_current(e) : L::next(e);
    }
    EXPECT_EQ(e->current, L::head(list)) << "the last node was deleted";
    while (L::next(e)) seen.push_back(L::value(e->current));
    EXPECT_EQ(seen, (std::vector<int>{13, 12, 11, 10, 10, 11, 12, 13, 10, 12}));
    EXPECT_EQ(list->count, 2);
    L::destroy_enumerator(e);
    L::destroy(list);
}

TYPED_TEST(Lists, FailedAllocationsLeaveTheListAsItWas) {
    using L = TypeParam;
    harness::oom_sweep([] {
        const int n = 1;
        auto *list = L::create(nullptr);
        if (!list) return;
        auto *e = L::create_enumerator(list);
        const int added = L::add(list, &n) != nullptr;
        EXPECT_EQ(list->count, added);
        EXPECT_EQ(list->sentinel.first == L::head(list), !added);
        if (e) L::destroy_enumerator(e);
        L::destroy(list);
    });
}

TEST(List, KeepsWhatTheCopyHookGives) {
    static int copied;
    const char text[] = "abc";
    xp_list list;
    xp_init_list(
        &list, [](const void *datum) -> void * { return copied++, static_cast<char *>(const_cast<void *>(datum)) + 1; },
        nullptr);
    EXPECT_EQ(xpls_add(&list, text)->datum, text + 1);
    EXPECT_EQ(xpls_search(&list, text, nullptr), nullptr) << "the pointer that is stored is another";
    EXPECT_EQ(xpls_search(&list, text + 1, nullptr), list.sentinel.first);
    {
        harness::fail_allocation failure(1);
        EXPECT_EQ(xpls_add(&list, text), nullptr);
    }
    EXPECT_EQ(copied, 1) << "a datum that is not kept is not copied";
    xpls_reset(&list);
    EXPECT_EQ(list.sentinel.last, xpls_head(&list));
    xp_close_list(&list);
}

TEST(DataList, BlocksAreFilledByTheHookTheSourceOrTheCaller) {
    static std::vector<std::pair<void *, const void *>> copies;
    static std::vector<void *> dropped;
    copies.clear(), dropped.clear();
    const char source[] = "12345678";
    xp_datalist list;
    xp_init_datalist(
        &list, 8, [](void *block, const void *from) { copies.emplace_back(block, from); },
        [](void *block) { dropped.push_back(block); });
    void *const first = xpdl_add(&list, source)->data;
    void *const second = xpdl_add(&list, nullptr)->data;
    EXPECT_EQ(copies, (std::vector<std::pair<void *, const void *>>{{first, source}, {second, nullptr}}));
    xp_close_datalist(&list);
    EXPECT_EQ(dropped, (std::vector<void *>{first, second}));

    harness::guard_page bytes(std::string_view(source, 5));
    xp_init_datalist(&list, 5, nullptr, nullptr);
    EXPECT_EQ(std::string_view(xpdl_add(&list, bytes.data())->data, 5), "12345");
    memset(xpdl_insert(&list, nullptr)->data, 'x', 5);
    EXPECT_EQ(std::string_view(list.sentinel.first->data, 5), "xxxxx");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(list.sentinel.first->data) % alignof(max_align_t), 0u);
    xp_close_datalist(&list);
}

} // namespace
