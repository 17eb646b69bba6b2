// The two lists share their code: the random loop runs on both, the rest is what each does with a datum.
#include "vorncore/base/datalist.h"
#include "vorncore/base/list.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

#define CALLS(record, calls, enum_calls)                                                                               \
    using list = xp_##record;                                                                                          \
    static constexpr auto head = calls##_head;                                                                         \
    static constexpr auto before = calls##_insert_before, after = calls##_insert_after;                                \
    static constexpr auto add = calls##_add, insert = calls##_insert;                                                  \
    static constexpr auto del = calls##_del;                                                                           \
    static constexpr auto rotate = calls##_rotate;                                                                     \
    static constexpr auto search = calls##_search;                                                                     \
    static constexpr auto clear = calls##_clear, destroy = xp_destroy_##record;                                        \
    static constexpr auto create_enumerator = xp_create_##record##enum;                                                \
    static constexpr auto destroy_enumerator = xp_destroy_##record##enum;                                              \
    static constexpr auto next = enum_calls##_next, prev = enum_calls##_prev, del_current = enum_calls##_del

struct pointer_list {
    CALLS(list, xpls, xple);
    static list *create(xp_release_fn release) { return xp_create_list(nullptr, release); }
    static int value(const xp_listnode *node) { return *static_cast<int *>(node->datum); }
};

struct data_list {
    CALLS(datalist, xpdl, xpdle);
    static list *create(xp_release_fn release) { return xp_create_datalist(sizeof(int), nullptr, release); }
    static int value(const xp_datanode *node) { return *reinterpret_cast<const int *>(node->data); }
};

void record_value(void *item) { released.push_back(*static_cast<int *>(item)); }

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
    static int values[60];
    for (int i = 0; i < 60; i++) values[i] = i;
    std::mt19937 random(1);
    numbers model, gone;
    auto *list = L::create(record_value);
    auto *const end = L::head(list);
    auto *e = L::create_enumerator(list);
    EXPECT_EQ(L::rotate(list, 1), nullptr);
    for (int step = 0; step < 20'000; step++) {
        int *const n = &values[random() % 60];
        const auto at = static_cast<ptrdiff_t>(random() % (model.size() + 1)); // the end stands for the sentinel
        auto *node = end->next;
        for (ptrdiff_t i = 0; i < at; i++) node = node->next;
        const auto place = model.begin() + at;
        auto *made = end; // the node that a call returns
        ptrdiff_t made_at = at;
        const auto choice = random() % 9;
        if (choice < 4) {
            const fail_allocation failure(random() % 20 == 0);
            if (choice == 0) made = L::before(list, node, n);
            if (choice == 1) made = L::after(list, node, n), made_at = node == end ? 0 : at + 1;
            if (choice == 2) made = L::add(list, n), made_at = std::ssize(model);
            if (choice == 3) made = L::insert(list, n), made_at = 0;
            ASSERT_EQ(made == nullptr, failure.fired());
            if (made) model.insert(model.begin() + made_at, *n);
            if (!made) made_at = -1;
        } else if (model.empty() || (choice < 7 && node == end)) {
            continue;
        } else if (choice < 7) {
            gone.push_back(*place), model.erase(place), e->current = node;
            const int more = choice < 6 ? (e->current = L::del(list, node)) != end : L::del_current(e);
            ASSERT_EQ(more, at < std::ssize(model));
            made = e->current;
        } else { // several numbers stand for the same direction
            const bool first_to_back = choice == 7;
            made = L::rotate(list, first_to_back * (1 + step % 2)), made_at = first_to_back ? std::ssize(model) - 1 : 0;
            std::rotate(model.begin(), first_to_back ? model.begin() + 1 : model.end() - 1, model.end());
        }
        ASSERT_EQ(list->count, std::ssize(model));
        size_t i = 0;
        for (e->current = end; L::next(e); i++)
            ASSERT_TRUE(i < model.size() && L::value(e->current) == model[i] &&
                        (e->current == made) == (static_cast<ptrdiff_t>(i) == made_at))
                << "step " << step;
        ASSERT_EQ(i, model.size());
        while (L::prev(e)) ASSERT_EQ(L::value(e->current), model[--i]);
        ASSERT_EQ(i, 0u);
        const int key = static_cast<int>(random() % 7); // of several matches, the first is found
        const auto found = std::find_if(model.begin(), model.end(), [=](intptr_t each) { return each / 10 == key; });
        auto *hit = L::search(list, &key, tens);
        for (auto each = model.begin(); hit && each != found; ++each) hit = hit->previous;
        ASSERT_TRUE(found == model.end() ? !hit : hit && hit->previous == end);
        if (step % 1000 == 999) {
            L::clear(list);
            gone.insert(gone.end(), model.begin(), model.end()), model.clear();
        }
        ASSERT_EQ(released, gone) << "step " << step;
        released.clear(), gone.clear();
    }
    L::destroy_enumerator(e);
    L::destroy(list);
}

TEST(List, KeepsWhatTheCopyHookGives) {
    xp_list list;
    const auto copy = [](const void *item) { return record_release(one_more(item)), one_more(item); };
    xp_init_list(&list, copy, nullptr);
    EXPECT_EQ(xpls_add(&list, item_of(1))->datum, item_of(2));
    EXPECT_EQ(xpls_search(&list, item_of(1), nullptr), nullptr) << "the pointer that is stored is another";
    EXPECT_EQ(xpls_search(&list, item_of(2), nullptr), list.sentinel.first);
    {
        const fail_allocation failure(1);
        EXPECT_EQ(xpls_add(&list, item_of(3)), nullptr);
    }
    EXPECT_EQ(released, numbers{2}) << "a datum that is not kept is not copied";
    xpls_reset(&list);
    EXPECT_EQ(list.sentinel.last, xpls_head(&list));
}

TEST(DataList, BlocksAreFilledByTheHookTheSourceOrTheCaller) {
    const char source[] = "12345678";
    xp_datalist list;
    const auto copy = [](void *block, const void *from) { released = {number(block), number(from)}; };
    xp_init_datalist(&list, 8, copy, record_release);
    void *const block = xpdl_add(&list, source)->data;
    EXPECT_EQ(released, (numbers{number(block), number(source)}));
    void *const empty = xpdl_add(&list, nullptr)->data;
    EXPECT_EQ(released, (numbers{number(empty), 0}));
    xp_close_datalist(&list);
    EXPECT_EQ(released, (numbers{number(empty), 0, number(block), number(empty)}));

    guard_page bytes(std::string_view(source, 5));
    xp_init_datalist(&list, 5, nullptr, nullptr);
    EXPECT_EQ(std::string_view(xpdl_add(&list, bytes.data())->data, 5), "12345");
    memset(xpdl_insert(&list, nullptr)->data, 'x', 5);
    EXPECT_EQ(list.sentinel.first->data[4], 'x');
    xp_close_datalist(&list);
}

} // namespace
