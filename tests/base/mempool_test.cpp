#include "vorncore/base/mempool.h"

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

size_t size_asked;
void *record_and_make(size_t size) { return malloc(size_asked = size); }
void record_and_free(void *block) { record_release(block), free(block); }

// The model: the cached blocks, the last one given back at the end, and those in use, nulls included.
TEST(MemPool, RecyclesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<void *> cached, in_use;
    numbers gone;
    uint32_t limit = UINT32_MAX, size = 8;
    const auto trim = [&](size_t most) {
        for (; cached.size() > most; cached.pop_back()) gone.push_back(number(cached.back()));
    };
    xp_mempool *mp = xp_create_mempool(3);
    xpmp_free(mp, xpmp_alloc(mp));
    xpmp_set_memory_manager(mp, record_and_make, record_and_free); // what is cached goes to free()
    for (int step = 0; step < 10'000; step++) {
        const auto choice = random() % 98;
        const int n = static_cast<int>(random() % 20);
        if (choice < 48) {
            const fail_allocation failure(n < 3);
            size_asked = 0;
            void *const block = n % 2 ? xpmp_alloc_inline(mp) : xpmp_alloc(mp);
            ASSERT_EQ(size_asked, cached.empty() ? size : 0);
            ASSERT_TRUE(cached.empty() || block == cached.back());
            if (!cached.empty()) cached.pop_back();
            if (block) memset(block, 0xFF, 8); // what is in use holds no link
            in_use.push_back(block);
        } else if (choice < 90 && !in_use.empty()) {
            std::swap(in_use[random() % in_use.size()], in_use.back());
            (n % 2 ? xpmp_free_inline : xpmp_free)(mp, in_use.back());
            if (in_use.back()) cached.push_back(in_use.back()), trim(std::max<size_t>(limit, cached.size() - 1));
            in_use.pop_back();
        } else if (choice < 95) {
            xpmp_set_cache_max(mp, n - 9);
            if (n >= 9) trim(limit = static_cast<uint32_t>(n - 9));
        } else if (choice < 97) {
            xpmp_diet(mp), trim(0);
        } else {
            xpmp_reset(mp, static_cast<uint32_t>(n)), trim(0), size = static_cast<uint32_t>(std::max(n, 8));
        }
        ASSERT_EQ(released, gone) << "step " << step;
        ASSERT_EQ((numbers{mp->in_use, mp->cached, mp->block_size, mp->cache_max}),
                  (numbers{std::ssize(in_use), std::ssize(cached), size, static_cast<int32_t>(limit)}));
    }
    xpmp_set_memory_manager(mp, nullptr, nullptr), trim(0);
    EXPECT_EQ(released, gone) << "the old manager's";
    for (void *block : in_use) xpmp_free(mp, block);
    xp_destroy_mempool(mp);
}

} // namespace
