#include "vorncore/base/lruhash.h"

#include "base/hashcalls.h"

using namespace hashes;

namespace {

TEST(LruHash, BehavesLikeItsModel) {
    xp_lruhash *t;
    harness::oom_sweep([&] { t = xp_create_lruhash(12, 5, nullptr, nullptr, keep, release, keep, release); });
    model m{model::lru, xp_rotate_hashf};
    constexpr auto gets =
        values<xp_lruhash, xp_lruhashiter, xplh_get, xplh_get_pair, xplh_get_all, xplh_get_first, xplh_get_next>;
    constexpr auto peeks =
        values<xp_lruhash, xp_lruhashiter, xplh_peek, xplh_peek_pair, xplh_peek_all, xplh_peek_first, xplh_peek_next>;
    using table_calls =
        calls<xp_lruhashenum, gets, peeks, xplh_put, xplh_update, xplh_replace, xplh_add, xplh_new, xplh_del,
              xplh_del_all, xplh_contains, xplh_count, xplh_enumerate_ex, xplh_reset, xp_init_lruhashenum, xplhe_next,
              xplhe_del, xp_close_lruhashenum, xp_destroy_lruhash, xp_create_lruhashenum, xp_destroy_lruhashenum>;
    table_calls::expect_like_model(t, m, [&](int step) {
        if (step % 16 == 0) m.rehash(t->hash = step % 32 ? by_length : xp_rotate_hashf), xplh_rehash(t);
        if (step % 8 == 4 && t->count) xplh_remove_lru(t), m.drop({m.usage[0]});
        const int limit = step % 13 - 1;
        EXPECT_EQ(step % 32 == 1 ? xplh_set_capacity(t, limit) : 0,
                  step % 32 == 1 ? m.trim(static_cast<size_t>(std::max(limit, 0))) : 0);
    });
}

TEST(LruHash, SearchesForTheKeysItStoresAndWalksBack) {
    const xp_copy_fn tail = [](const void *key) -> void * { return const_cast<char *>(text(key)) + 1; };
    xp_lruhash table;
    xp_init_lruhash(&table, 2, 1, nullptr, nullptr, tail, nullptr, nullptr, nullptr);
    for (const char *key : {".ab", ".b", ".c"}) xplh_add(&table, key, key);
    EXPECT_EQ(xplh_replace(&table, "ab", "2"), 1); // stores "b"
    EXPECT_EQ(xplh_get_pair(&table, "ab"), nullptr);
    EXPECT_STREQ(text(xplh_peek(&table, "b")), ".b");
    texts back;
    xp_lruhashenum e;
    for (xp_init_lruhashenum(&e, &table); xplhe_prev(&e);) back.push_back(text(e.current->value));
    EXPECT_TRUE(xplhe_prev(&e) && text(e.current->value) == back[0]) << "begins anew";
    EXPECT_EQ(xplh_enumerate(&table, note_value, &back), 3);
    EXPECT_EQ(back, (texts{".c", ".b", "2", ".c", ".b", "2"}));
    double mean, second;
    xplh_statistic(&table, &mean, &second);
    EXPECT_DOUBLE_EQ(mean, 2);
    EXPECT_DOUBLE_EQ(second, 4 * 14.0 / 3) << "a product";
    xplh_clear(&table), xplh_statistic(&table, &mean, &second);
    EXPECT_EQ(mean + second, 0);
    EXPECT_DEATH((harness::fail_allocation(1), xplh_add(&table, "d", "4")), "vorncore: xplh_add: out of memory");
    xp_close_lruhash(&table);
}

} // namespace
