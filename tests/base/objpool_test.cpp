#include "vorncore/base/objpool.h"

#include <ctype.h>

#include <atomic>
#include <deque>
#include <thread>

#include "support/harness.h"
#include "support/items.h"

using namespace harness;

namespace {

// Objects are numbers, 1, 2, 3, ... as they are made; the log tells what happened to which: Created, Destroyed, on its
// way Out or In. Every entry of a locked pool says whether the lock was held.
intptr_t last_made;
std::string events;
xp_xobjpool locked;
bool look_at_lock;

template <char what>
void log(void *object) {
    events += what + std::to_string(number(object));
    if (!look_at_lock) return;
    if (pthread_mutex_trylock(&locked.mutex) != 0) events += '!';
    if (events.back() != '!') pthread_mutex_unlock(&locked.mutex);
}
void *create() { return log<'C'>(item_of(++last_made)), item_of(last_made); }

// Steps: a allocates, f frees what was allocated first, d diets, a digit sets the limit, - a negative one, x frees an
// object 7 without memory for its node.
struct calls {
    void *(*alloc)();
    void (*free)(void *);
    void (*diet)();
    void (*set_cache_max)(int);

    void play(const char *steps, std::deque<void *> &held) const {
        for (; *steps; steps++) {
            const fail_allocation failure(*steps == 'x');
            if (*steps == 'a') held.push_back(alloc());
            if (*steps == 'f') free(held.front()), held.pop_front();
            if (*steps == 'd') diet();
            if (*steps == '-') set_cache_max(-1);
            if (*steps == 'x') free(item_of(7));
            if (isdigit(*steps)) set_cache_max(*steps - '0');
        }
    }
};

TEST(ObjPools, TellTheirProceduresInOrder) {
    const calls pools[] = {{[] { return xpop_alloc(&locked.pool); }, [](void *o) { xpop_free(&locked.pool, o); },
                            [] { xpop_diet(&locked.pool); }, [](int n) { xpop_set_cache_max(&locked.pool, n); }},
                           {[] { return xpxop_alloc(&locked); }, [](void *o) { xpxop_free(&locked, o); },
                            [] { xpxop_diet(&locked); }, [](int n) { xpxop_set_cache_max(&locked, n); }}};
    const struct {
        const char *steps, *events;
        numbers counts; // objects in use and cached, nodes in use and cached
    } cases[] = {{"aaaa", "C1O1C2O2C3O3C4O4", {4, 0, 0, 0}},
                 {"ffff", "I1I2I3I4", {0, 4, 4, 0}},
                 {"a", "O4", {1, 3, 3, 1}},
                 {"-2", "D3!", {1, 2, 2, 2}},
                 {"f", "I4D4", {0, 2, 2, 2}},
                 {"a0", "O2D1!", {1, 0, 0, 0}},
                 {"fa", "I2D2C5O5", {1, 0, 0, 0}},
                 {"9fx", "I5I7D7", {UINT32_MAX, 1, 1, 0}}, // over-freed: the count wraps
                 {"d", "D5!", {UINT32_MAX, 0, 0, 0}}};
    xp_destroy_objpool(xp_create_objpool(create, log<'D'>, nullptr, nullptr));
    for (const calls &pool : pools) {
        look_at_lock = &pool != pools;
        last_made = 0;
        std::deque<void *> held;
        xp_init_xobjpool(&locked, create, log<'D'>, log<'O'>, log<'I'>);
        const xp_objpool &op = locked.pool;
        for (const auto &c : cases) {
            std::string expected = c.events;
            if (!look_at_lock) std::erase(expected, '!');
            pool.play(c.steps, held);
            EXPECT_EQ(std::exchange(events, {}), expected) << c.steps;
            EXPECT_EQ((numbers{op.in_use, op.cached, op.nodes.in_use, op.nodes.cached}), c.counts) << c.steps;
        }
        look_at_lock = false;
        xp_close_xobjpool(&locked);
    }
}

TEST(XObjPool, MeasuresWhatIsCachedAndTakesZeroForUnset) {
    const struct {
        numbers sizes; // in the order of measuring
        uint64_t largest, smallest, total;
    } cases[] = {
        {{}, 0, 0, 0}, {{5, 2, 9}, 9, 2, 16}, {{0, 5, 2}, 5, 2, 7}, {{2, 0, 7}, 7, 7, 9}, {{2, 7, 0}, 7, 0, 9}};
    for (const auto &c : cases) {
        xp_xobjpool *op = xp_create_xobjpool(create, record_release, nullptr, nullptr); // no hooks
        xpxop_alloc(op);
        for (auto size = c.sizes.rbegin(); size != c.sizes.rend(); ++size) xpxop_free(op, item_of(*size));
        xp_objpool_stat stats{1, 1, 1, 1, 1};
        numbers seen;
        const auto measure = [](void *object, void *all) {
            return static_cast<numbers *>(all)->push_back(number(object)), static_cast<uint64_t>(number(object));
        };
        xpxop_stat(op, &stats, measure, &seen);
        EXPECT_EQ(seen, c.sizes);
        const std::vector<uint64_t> expected{c.largest, c.smallest, c.total, seen.size(), op->pool.in_use};
        EXPECT_EQ((std::vector{stats.largest, stats.smallest, stats.total, stats.cached, stats.in_use}), expected);
        xp_destroy_xobjpool(op);
    }
}

std::atomic<int> objects;

TEST(XObjPool, ThreadsShareItWithoutLosingAnObject) {
    xp_xobjpool *op = xp_create_xobjpool([]() -> void * { return objects++, new int; },
                                         [](void *object) { objects--, delete static_cast<int *>(object); },
                                         [](void *) { objects += 1000; }, [](void *) { objects -= 1000; });
    const auto work = [=](int self) {
        for (int i = 0; i < 4000; i++) {
            int *const held[] = {static_cast<int *>(xpxop_alloc(op)), static_cast<int *>(xpxop_alloc(op))};
            *held[0] = *held[1] = self; // not atomic: only one thread may have it
            if (self == 0 && i % 100 == 0) xpxop_set_cache_max(op, i / 100 % 8);
            if (self == 1 && i % 100 == 0) xpxop_diet(op);
            EXPECT_TRUE(*held[0] == self && *held[1] == self) << "an object was handed out twice";
            for (int *object : held) xpxop_free(op, object);
        }
    };
    std::thread workers[4];
    for (int i = 0; i < 4; i++) workers[i] = std::thread(work, i);
    for (auto &worker : workers) worker.join();
    EXPECT_EQ(op->pool.in_use, 0u);
    EXPECT_EQ(static_cast<int>(op->pool.cached), objects);
    xp_destroy_xobjpool(op);
    EXPECT_EQ(objects, 0);
}

} // namespace
