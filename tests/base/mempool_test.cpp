#include "vorncore/base/mempool.h"

#include <algorithm>
#include <random>

#include "support/harness.h"

namespace {

std::vector<void *> made, destroyed;
size_t size_asked;

void *record_allocate(size_t size) {
    size_asked = size;
    made.push_back(malloc(size));
    return made.back();
}
void record_release(void *block) {
    destroyed.push_back(block);
    free(block);
}

// The model: the cached blocks, the last one given back at the end, and those in use.
TEST(MemPool, RecyclesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<void *> cached, in_use, expected;
    uint32_t limit = UINT32_MAX, size = 8;
    const auto trim = [&](size_t most) {
        for (; cached.size() > most; cached.pop_back()) expected.push_back(cached.back());
    };
    made.clear(), destroyed.clear();
    xp_mempool *mp = xp_create_mempool(3);
    const auto give_back = [&](bool inlined) {
        (cached.size() < limit ? cached : expected).push_back(in_use.back());
        (inlined ? xpmp_free_inline : xpmp_free)(mp, in_use.back());
        in_use.pop_back();
    };
    xpmp_set_memory_manager(mp, record_allocate, record_release);
    for (int step = 0; step < 10'000; step++) {
        const bool inlined = random() % 2;
        if (const auto choice = random() % 100; choice < 48) {
            const size_t count = made.size();
            void *block = inlined ? xpmp_alloc_inline(mp) : xpmp_alloc(mp);
            ASSERT_EQ(block, cached.empty() ? made.back() : cached.back());
            ASSERT_EQ(made.size(), count + cached.empty());
            if (cached.empty())
                ASSERT_EQ(size_asked, size);
            else
                cached.pop_back();
            memset(block, 0xFF, 8); // what is in use holds no link
            in_use.push_back(block);
        } else if (choice < 90 && !in_use.empty()) {
            std::swap(in_use[random() % in_use.size()], in_use.back());
            give_back(inlined);
        } else if (choice < 95) {
            const int to = static_cast<int>(random() % 12) - 3;
            xpmp_set_cache_max(mp, to);
            if (to >= 0) trim(limit = static_cast<uint32_t>(to));
        } else if (choice < 97) {
            xpmp_diet(mp), trim(0);
        } else if (choice == 99) {
            while (!in_use.empty()) give_back(inlined);
            const auto asked = static_cast<uint32_t>(random() % 20);
            xpmp_reset(mp, asked), trim(0);
            size = std::max(asked, 8u);
        }
        ASSERT_EQ(destroyed, expected) << "step " << step;
        ASSERT_EQ(mp->in_use, in_use.size());
        ASSERT_EQ(mp->cached, cached.size());
        ASSERT_EQ(mp->block_size, size);
        ASSERT_EQ(mp->cache_max, static_cast<int32_t>(limit));
    }
    while (!in_use.empty()) give_back(false);
    xp_destroy_mempool(mp);
    EXPECT_EQ(destroyed.size(), made.size());
}

TEST(MemPool, ChangingTheManagerReleasesWithTheOldOne) {
    destroyed.clear();
    xp_mempool mp;
    xp_init_mempool(&mp, 100);
    xpmp_free(&mp, xpmp_alloc(&mp));
    EXPECT_EQ(mp.cached, 1u) << "no limit at first";
    xpmp_set_memory_manager(&mp, nullptr, record_release);
    EXPECT_TRUE(destroyed.empty());
    void *const block = xpmp_alloc(&mp);
    xpmp_free(&mp, block);
    xpmp_set_memory_manager(&mp, nullptr, nullptr);
    EXPECT_EQ(destroyed, std::vector<void *>{block});
    xp_close_mempool(&mp);
}

TEST(MemPool, AFailedAllocationIsCountedUntilItIsGivenBack) {
    harness::oom_sweep([] {
        xp_mempool *mp = xp_create_mempool(16);
        if (!mp) return;
        void *const block = xpmp_alloc(mp);
        EXPECT_EQ(mp->in_use, 1u);
        xpmp_free(mp, block);
        EXPECT_EQ(mp->in_use, 0u);
        EXPECT_EQ(mp->cached, block ? 1u : 0u);
        xp_destroy_mempool(mp);
    });
}

} // namespace
