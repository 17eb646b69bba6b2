#include "vorncore/base/mempool.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

std::vector<void *> made;
size_t size_asked;

void *record_allocate(size_t size) { return made.push_back(malloc(size_asked = size)), made.back(); }
void record_and_free(void *block) { record_release(block), free(block); }

// The model: the cached blocks, the last one given back at the end, and those in use.
TEST(MemPool, RecyclesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<void *> cached, in_use;
    numbers gone;
    uint32_t limit = UINT32_MAX, size = 8;
    const auto trim = [&](size_t most) {
        for (; cached.size() > most; cached.pop_back()) gone.push_back(number(cached.back()));
    };
    made.clear();
    xp_mempool *mp = xp_create_mempool(3);
    const auto give_back = [&](bool inlined) {
        void *const block = in_use.back();
        if (block) cached.push_back(block), trim(std::max<size_t>(limit, cached.size() - 1));
        (inlined ? xpmp_free_inline : xpmp_free)(mp, block);
        in_use.pop_back();
    };
    xpmp_set_memory_manager(mp, record_allocate, record_and_free);
    for (int step = 0; step < 10'000; step++) {
        const bool inlined = random() % 2;
        if (const auto choice = random() % 100; choice < 48) {
            const size_t count = made.size() + cached.empty();
            const fail_allocation failure(random() % 8 == 0); // counted as a block until the null is given back
            void *block = inlined ? xpmp_alloc_inline(mp) : xpmp_alloc(mp);
            ASSERT_EQ(block, cached.empty() ? made.back() : cached.back());
            ASSERT_EQ(made.size(), count);
            ASSERT_TRUE(!cached.empty() || size_asked == size);
            if (!cached.empty()) cached.pop_back();
            if (block) memset(block, 0xFF, 8); // what is in use holds no link
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
        ASSERT_EQ(released, gone) << "step " << step;
        ASSERT_EQ((numbers{mp->in_use, mp->cached, mp->block_size, mp->cache_max}),
                  (numbers{std::ssize(in_use), std::ssize(cached), size, static_cast<int32_t>(limit)}));
    }
    while (!in_use.empty()) give_back(false);
    xp_destroy_mempool(mp);
    EXPECT_EQ(released.size() + static_cast<size_t>(std::count(made.begin(), made.end(), nullptr)), made.size());
}

TEST(MemPool, ChangingTheManagerReleasesWithTheOldOne) {
    xp_mempool mp;
    xp_init_mempool(&mp, 100);
    xpmp_free(&mp, xpmp_alloc(&mp));
    xpmp_set_memory_manager(&mp, nullptr, record_and_free);
    EXPECT_EQ(released, numbers{});
    void *const block = xpmp_alloc(&mp);
    xpmp_free(&mp, block);
    xpmp_set_memory_manager(&mp, nullptr, nullptr);
    EXPECT_EQ(released, numbers{number(block)});
    xp_close_mempool(&mp);
}

} // namespace
