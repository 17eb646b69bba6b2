#include "vorncore/base/objpool.h"

#include <atomic>
#include <thread>

#include "support/harness.h"

namespace {

// Objects are numbers, 1, 2, 3, ... as they are made; the log tells what happened to which. Every entry of a locked
// pool says whether the lock was held.
intptr_t last_made;
std::vector<std::string> events;
xp_xobjpool locked;
bool look_at_lock;

intptr_t number(void *object) { return reinterpret_cast<intptr_t>(object); }
void log(const char *what, intptr_t object) {
    std::string event = what + std::to_string(object);
    if (look_at_lock) {
        if (pthread_mutex_trylock(&locked.mutex) == 0)
            pthread_mutex_unlock(&locked.mutex);
        else
            event += '!';
    }
    events.push_back(event);
}
void *create() { return log("create ", last_made + 1), reinterpret_cast<void *>(++last_made); }
void destroy(void *object) { log("destroy ", number(object)); }
void on_alloc(void *object) { log("alloc ", number(object)); }
void on_free(void *object) { log("free ", number(object)); }

struct plain_calls {
    static constexpr auto alloc = xpop_alloc;
    static constexpr auto free = xpop_free;
    static constexpr auto diet = xpop_diet;
    static constexpr auto set_cache_max = xpop_set_cache_max;
    static constexpr const char *mark = "";
};
struct locked_calls {
    static void *alloc(xp_objpool *) { return xpxop_alloc(&locked); }
    static void free(xp_objpool *, void *object) { xpxop_free(&locked, object); }
    static void diet(xp_objpool *) { xpxop_diet(&locked); }
    static void set_cache_max(xp_objpool *, int limit) { xpxop_set_cache_max(&locked, limit); }
    static constexpr const char *mark = "!"; // of what runs under the lock
};

template <class Calls>
class ObjPools : public testing::Test {};
using calls = testing::Types<plain_calls, locked_calls>;
TYPED_TEST_SUITE(ObjPools, calls);

TYPED_TEST(ObjPools, TellTheirProceduresInOrder) {
    using C = TypeParam;
    const std::string mark = C::mark;
    look_at_lock = !mark.empty();
    last_made = 0;
    events.clear();
    xp_init_xobjpool(&locked, create, destroy, on_alloc, on_free);
    xp_objpool *const op = &locked.pool;
    void *held[4];
    struct counters {
        uint32_t in_use, cached, nodes_in_use, nodes_cached;
        bool operator==(const counters &) const = default;
    };
    const auto expect = [&](const char *step, const std::vector<std::string> &expected, counters counts) {
        EXPECT_EQ(events, expected) << step;
        events.clear();
        EXPECT_EQ((counters{op->in_use, op->cached, op->nodes.in_use, op->nodes.cached}), counts) << step;
    };
    for (void *&object : held) object = C::alloc(op);
    expect("new ones", {"create 1", "alloc 1", "create 2", "alloc 2", "create 3", "alloc 3", "create 4", "alloc 4"},
           {4, 0, 0, 0});
    for (void *object : held) C::free(op, object);
    expect("cached", {"free 1", "free 2", "free 3", "free 4"}, {0, 4, 4, 0});
    EXPECT_EQ(C::alloc(op), held[3]);
    expect("the last one again", {"alloc 4"}, {1, 3, 3, 1});
    C::set_cache_max(op, -1);
    EXPECT_EQ(op->cache_max, -1);
    C::set_cache_max(op, 2);
    expect("a limit", {"destroy 3" + mark}, {1, 2, 2, 2});
    EXPECT_EQ(op->nodes.cache_max, 2);
    C::free(op, held[3]);
    expect("over the limit", {"free 4", "destroy 4"}, {0, 2, 2, 2});
    EXPECT_EQ(C::alloc(op), held[1]);
    C::set_cache_max(op, 0);
    expect("no cache", {"alloc 2", "destroy 1" + mark}, {1, 0, 0, 0});
    C::free(op, held[1]);
    held[0] = C::alloc(op);
    expect("made each time", {"free 2", "destroy 2", "create 5", "alloc 5"}, {1, 0, 0, 0});
    C::set_cache_max(op, 9);
    C::free(op, held[0]);
    {
        const harness::fail_allocation failure(1);
        C::free(op, reinterpret_cast<void *>(7));
    }
    expect("no memory for a node", {"free 5", "free 7", "destroy 7"}, {UINT32_MAX, 1, 1, 0});
    C::diet(op);
    expect("diet", {"destroy 5" + mark}, {UINT32_MAX, 0, 0, 0});
    look_at_lock = false;
    xp_close_xobjpool(&locked);
}

TEST(ObjPool, RunsWithoutTheOptionalProcedures) {
    events.clear();
    xp_objpool *op = xp_create_objpool(create, destroy, nullptr, nullptr);
    xpop_free(op, xpop_alloc(op));
    xp_destroy_objpool(op);
    EXPECT_EQ(events.size(), 2u) << "made and destroyed";
}

TEST(ObjPool, CreationReportsAFailedAllocation) {
    harness::oom_sweep([] {
        if (xp_objpool *op = xp_create_objpool(create, destroy, nullptr, nullptr)) xp_destroy_objpool(op);
        if (xp_xobjpool *op = xp_create_xobjpool(create, destroy, nullptr, nullptr)) xp_destroy_xobjpool(op);
    });
}

TEST(XObjPool, MeasuresWhatIsCachedAndTakesZeroForUnset) {
    const struct {
        std::vector<intptr_t> sizes; // in the order of measuring
        uint64_t largest, smallest, total;
    } cases[] = {
        {{}, 0, 0, 0}, {{5, 2, 9}, 9, 2, 16}, {{0, 5, 2}, 5, 2, 7}, {{2, 0, 7}, 7, 7, 9}, {{2, 7, 0}, 7, 0, 9},
    };
    for (const auto &c : cases) {
        xp_xobjpool *op = xp_create_xobjpool(
            create, [](void *) {}, nullptr, nullptr);
        xpxop_alloc(op);
        for (auto size = c.sizes.rbegin(); size != c.sizes.rend(); ++size) {
            op->pool.in_use++;
            xpxop_free(op, reinterpret_cast<void *>(*size));
        }
        xp_objpool_stat stats{1, 1, 1, 1, 1};
        int seen = 0;
        xpxop_stat(
            op, &stats,
            [](void *object, void *count) {
                return ++*static_cast<int *>(count), static_cast<uint64_t>(number(object));
            },
            &seen);
        const std::vector<uint64_t> expected{c.largest, c.smallest, c.total, c.sizes.size(), 1};
        EXPECT_EQ((std::vector<uint64_t>{stats.largest, stats.smallest, stats.total, stats.cached, stats.in_use}),
                  expected);
        EXPECT_EQ(seen, std::ssize(c.sizes));
        xp_destroy_xobjpool(op);
    }
}

std::atomic<int> objects, allocs, frees;
struct object {
    int holder; // not atomic: only one thread may have it
};

TEST(XObjPool, ThreadsShareItWithoutLosingAnObject) {
    constexpr int threads = 4, rounds = 4000;
    objects = allocs = frees = 0;
    xp_xobjpool *op = xp_create_xobjpool([]() -> void * { return objects++, new object{-1}; },
                                         [](void *o) { objects--, delete static_cast<object *>(o); },
                                         [](void *) { allocs++; }, [](void *) { frees++; });
    const auto work = [=](int self) {
        for (int i = 0; i < rounds; i++) {
            auto *first = static_cast<object *>(xpxop_alloc(op)), *second = static_cast<object *>(xpxop_alloc(op));
            first->holder = second->holder = self;
            if (self == 0 && i % 100 == 0) xpxop_set_cache_max(op, i / 100 % 8);
            if (self == 1 && i % 100 == 0) xpxop_diet(op);
            if (first->holder != self || second->holder != self) ADD_FAILURE() << "an object was handed out twice";
            xpxop_free(op, first);
            xpxop_free(op, second);
        }
    };
    std::thread workers[threads];
    for (int i = 0; i < threads; i++) workers[i] = std::thread(work, i);
    for (auto &worker : workers) worker.join();
    xp_objpool_stat stats;
    xpxop_stat(
        op, &stats, [](void *, void *) -> uint64_t { return 1; }, nullptr);
    EXPECT_EQ(stats.in_use, 0u);
    EXPECT_EQ(stats.total, stats.cached);
    EXPECT_EQ(static_cast<int>(stats.cached), objects);
    EXPECT_EQ(allocs, 2 * threads * rounds);
    EXPECT_EQ(frees, allocs);
    xp_destroy_xobjpool(op);
    EXPECT_EQ(objects, 0);
}

} // namespace
