// The pools have most of their calls in common: one table of steps runs on all three.
#include "vorncore/base/objpool.h"

#include <atomic>
#include <deque>

#include "support/harness.h"
#include "support/items.h"
#include "support/threads.h"

using namespace harness;

namespace {

// Objects are told apart by their index, 1, 2, 3, ... as they are made; the log says what happened to which: Created,
// Destroyed, on its way Out or In, and for a pool with a lock whether it was held.
intptr_t objects[20];
int made;
size_t size_asked;
std::string events;
pthread_mutex_t *mutex;

template <char what>
void log(void *object) {
    events += what + std::to_string(object ? static_cast<intptr_t *>(object) - objects : 0);
    if (mutex && pthread_mutex_trylock(mutex)) events += '!';
    if (mutex && events.back() != '!') pthread_mutex_unlock(mutex);
}
void *create() { return log<'C'>(&objects[++made]), &objects[made]; }
void *create_block(size_t size) { return size_asked = size, create(); }

numbers counts(const xp_mempool *mp) { return {mp->in_use, mp->cached}; }
numbers counts(const xp_objpool *op) { return {op->in_use, op->cached, op->nodes.in_use, op->nodes.cached}; }
numbers counts(const xp_xobjpool *op) { return counts(&op->pool); }

/// Of the events of an object pool with a lock, what another pool leaves out: the marks of the lock, if it has none;
/// what is on its way, and a null that is not destroyed, if it is a memory pool.
enum class kind { locked, unlocked, memory };
std::string events_of(kind pool, std::string expected) {
    if (pool != kind::locked) std::erase(expected, '!');
    if (pool != kind::memory) return expected;
    std::string made_and_gone;
    for (size_t i = 0; i + 1 < expected.size(); i += 2)
        if (strchr("CD", expected[i]) && expected[i + 1] != '0') made_and_gone += expected.substr(i, 2);
    return made_and_gone;
}

// Steps: a allocates, f frees what was allocated first, d diets, a digit sets the limit, - a negative one,
// x frees a null without memory for its node.
template <auto Alloc, auto Free, auto Diet, auto SetMax, auto Destroy>
void tell_in_order(auto *pool, kind of) {
    const struct {
        std::string steps, events;
        numbers counts; // objects in use and cached, nodes in use and cached
    } cases[] = {{"aaaaffffa", "C1O1C2O2C3O3C4O4I1I2I3I4O4", {1, 3, 3, 1}},
                 {"2-", "D3!", {1, 2, 2, 2}},
                 {"fa", "I4D4O2", {1, 1, 1, 2}},
                 {"0fa", "D1!I2D2C5O5", {1, 0, 0, 0}},
                 {"9fda", "I5D5!C6O6", {1, 0, 0, 0}},
                 {"fx", "I6I0D0", {UINT32_MAX, 1, 1, 0}}}; // over-freed: the count wraps
    std::deque<void *> held;
    made = 0;
    for (const auto &c : cases) {
        for (const char step : c.steps) {
            const fail_allocation failure(step == 'x');
            if (step == 'a') held.push_back(Alloc(pool));
            if (step == 'x') Free(pool, nullptr);
            if (step == 'f') Free(pool, held.front()), held.pop_front();
            if (step == 'd') Diet(pool);
            if (step <= '9') SetMax(pool, step - '0');
        }
        EXPECT_EQ(std::exchange(events, {}), events_of(of, c.events)) << c.steps;
        const numbers counted = counts(pool);
        EXPECT_TRUE(std::equal(counted.begin(), counted.end(), c.counts.begin())) << c.steps;
    }
    mutex = nullptr;
    Destroy(pool);
    EXPECT_EQ(std::exchange(events, {}), "D6");
}

TEST(Pools, TellTheirProceduresInOrder) {
    tell_in_order<xpop_alloc, xpop_free, xpop_diet, xpop_set_cache_max, xp_destroy_objpool>(
        xp_create_objpool(create, log<'D'>, log<'O'>, log<'I'>), kind::unlocked);
    xp_xobjpool *locked = xp_create_xobjpool(create, log<'D'>, log<'O'>, log<'I'>);
    mutex = &locked->mutex;
    tell_in_order<xpxop_alloc, xpxop_free, xpxop_diet, xpxop_set_cache_max, xp_destroy_xobjpool>(locked, kind::locked);
    xp_mempool *mp = xp_create_mempool(3);
    xpmp_set_memory_manager(mp, create_block, log<'D'>);
    tell_in_order<xpmp_alloc, xpmp_free, xpmp_diet, xpmp_set_cache_max, xp_destroy_mempool>(mp, kind::memory);
}

TEST(MemPool, ChangesItsSizeAndItsManagerOnceNothingIsCached) {
    made = 0;
    xp_mempool mp;
    xp_init_mempool(&mp, 3);
    EXPECT_TRUE(mp.block_size == 8 && mp.cache_max == -1) << "room for a link, no limit";
    xpmp_free(&mp, xpmp_alloc(&mp));
    xpmp_set_memory_manager(&mp, create_block, log<'D'>); // what is cached goes to free()
    for (const uint32_t size : {9U, 5U}) {
        xpmp_reset(&mp, size);
        xpmp_free(&mp, xpmp_alloc(&mp));
        EXPECT_EQ(size_asked, std::max(size, 8U));
    }
    xpmp_set_memory_manager(&mp, nullptr, nullptr);
    EXPECT_EQ(std::exchange(events, {}), "C1D1C2D2");
    xpmp_set_cache_max(&mp, 0);
    xpmp_free(&mp, xpmp_alloc(&mp));
    const fail_allocation failure(1);
    EXPECT_TRUE(!xpmp_alloc(&mp) && mp.in_use == 1) << "a null counts, too";
}

TEST(XObjPool, MeasuresWhatIsCachedAndTakesZeroForUnset) {
    const numbers cases[][2] = {// sizes in the order of measuring; the fields of the result
                                {{5, 2, 9}, {90, 20, 160, 3, UINT32_MAX - 2}},
                                {{2, 0, 7}, {70, 70, 90, 3, UINT32_MAX - 2}},
                                {{2, 7, 0}, {70, 0, 90, 3, UINT32_MAX - 2}}};
    for (const auto &[sizes, expected] : cases) {
        xp_xobjpool *op = xp_create_xobjpool(create, record_release, nullptr, nullptr);
        mutex = &op->mutex;
        for (auto size = sizes.rbegin(); size != sizes.rend(); ++size) xpxop_free(op, item_of(*size));
        xp_objpool_stat s{1, 1, 1, 1, 1};
        const auto measure = [](void *o, void *unit) {
            EXPECT_NE(pthread_mutex_trylock(mutex), 0) << "under the lock";
            return static_cast<uint64_t>(number(o) * number(unit));
        };
        xpxop_stat(op, &s, measure, item_of(10));
        mutex = nullptr;
        EXPECT_EQ(memcmp(&s, expected.data(), sizeof s), 0) << expected[2];
        xp_destroy_xobjpool(op);
    }
}

TEST(XObjPool, CountsANullAndLooksAtItsLimitBeforeItLocks) {
    xp_xobjpool *op = xp_create_xobjpool([]() -> void * { return nullptr; }, free, record_release, nullptr);
    EXPECT_TRUE(!xpxop_alloc(op) && !xpxop_alloc(op) && op->pool.in_use == 2);
    EXPECT_EQ(std::exchange(released, {}), (numbers{0, 0})) << "on its way out like any other";
    xpxop_set_cache_max(op, 1);
    pthread_mutex_lock(&op->mutex);
    std::thread other([=] { xpxop_free(op, nullptr); });
    while (__atomic_load_n(&op->mutex.__data.__lock, __ATOMIC_RELAXED) != 2) std::this_thread::yield();
    xpop_free(&op->pool, nullptr);
    pthread_mutex_unlock(&op->mutex);
    other.join();
    EXPECT_EQ(op->pool.cached, 2U) << "one more than the limit";
    xp_destroy_xobjpool(op);
}

TEST(XObjPool, ThreadsShareItWithoutLosingAnObject) {
    static std::atomic<int> alive;
    xp_xobjpool *op =
        xp_create_xobjpool([]() -> void * { return alive++, new int; },
                           [](void *object) { alive--, delete static_cast<int *>(object); }, nullptr, nullptr);
    const auto work = [=](int self) {
        for (int i = 0; i < 2000; i++) {
            int *const held[] = {static_cast<int *>(xpxop_alloc(op)), static_cast<int *>(xpxop_alloc(op))};
            *held[0] = *held[1] = self; // not atomic: only one thread may have it
            if (i % 100 == self) self % 2 ? xpxop_diet(op) : xpxop_set_cache_max(op, i / 100 % 8);
            EXPECT_TRUE(*held[0] == self && *held[1] == self) << "an object was handed out twice";
            for (int *object : held) xpxop_free(op, object);
        }
    };
    for (const int threads : thread_counts) in_threads(threads, work);
    EXPECT_TRUE(op->pool.in_use == 0 && static_cast<int>(op->pool.cached) == alive);
    xp_destroy_xobjpool(op);
    EXPECT_EQ(alive, 0);
}

} // namespace
