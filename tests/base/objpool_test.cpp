#include "vorncore/base/objpool.h"

#include <atomic>
#include <deque>

#include "support/harness.h"
#include "support/items.h"
#include "support/threads.h"

using namespace harness;

namespace {

// Objects are numbers, 1, 2, 3, ... as they are made; the log tells what happened to which: Created, Destroyed, on its
// way Out or In. Every entry of a locked pool says whether the lock was held.
intptr_t last_made;
std::string events;
xp_xobjpool locked;
bool shared;

template <char what>
void log(void *object) {
    events += what + std::to_string(number(object));
    if (shared && pthread_mutex_trylock(&locked.mutex)) events += '!';
    if (shared && events.back() != '!') pthread_mutex_unlock(&locked.mutex);
}
void *create() { return log<'C'>(item_of(++last_made)), item_of(last_made); }

// Steps: a allocates, f frees what was allocated first, d diets, a digit sets the limit, - (before 0) a negative one,
// x frees an object 7 without memory for its node.
void play(char step) {
    static std::deque<void *> held;
    xp_objpool *const op = &locked.pool;
    const fail_allocation failure(step == 'x');
    if (step == 'a') held.push_back(shared ? xpxop_alloc(&locked) : xpop_alloc(op));
    if (step == 'x') held.push_front(item_of(7));
    if (strchr("fx", step)) shared ? xpxop_free(&locked, held.front()) : xpop_free(op, held.front()), held.pop_front();
    if (step == 'd') shared ? xpxop_diet(&locked) : xpop_diet(op);
    if (step <= '9') shared ? xpxop_set_cache_max(&locked, step - '0') : xpop_set_cache_max(op, step - '0');
}

TEST(ObjPools, TellTheirProceduresInOrder) {
    const struct {
        std::string steps, events;
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
    for (const bool other : {false, true}) {
        last_made = 0;
        xp_init_xobjpool(&locked, create, log<'D'>, log<'O'>, log<'I'>);
        shared = other;
        const xp_objpool &op = locked.pool;
        for (const auto &c : cases) {
            for (const char step : c.steps) play(step);
            std::string expected = c.events;
            if (!shared) std::erase(expected, '!');
            EXPECT_EQ(std::exchange(events, {}), expected) << c.steps;
            EXPECT_EQ((numbers{op.in_use, op.cached, op.nodes.in_use, op.nodes.cached}), c.counts) << c.steps;
        }
        xp_close_xobjpool(&locked);
    }
}

TEST(XObjPool, MeasuresWhatIsCachedAndTakesZeroForUnset) {
    const struct {
        numbers sizes; // in the order of measuring
        uint64_t largest, smallest, total;
    } cases[] = {{{}, 0, 0, 0}, {{5, 2, 9}, 9, 2, 16}, {{2, 0, 7}, 7, 7, 9}, {{2, 7, 0}, 7, 0, 9}};
    for (const auto &c : cases) {
        xp_xobjpool *op = xp_create_xobjpool(create, record_release, nullptr, nullptr); // no hooks
        for (auto size = c.sizes.rbegin(); size != c.sizes.rend(); ++size) xpxop_free(op, item_of(*size));
        xp_objpool_stat s{1, 1, 1, 1, 1};
        const auto measure = [](void *o, void *unit) { return static_cast<uint64_t>(number(o) * number(unit)); };
        xpxop_stat(op, &s, measure, item_of(10));
        EXPECT_TRUE(s.largest == 10 * c.largest && s.smallest == 10 * c.smallest && s.total == 10 * c.total) << c.total;
        EXPECT_TRUE(s.cached == c.sizes.size() && s.in_use == op->pool.in_use) << c.total;
        xp_destroy_xobjpool(op);
    }
}

std::atomic<int> objects;

TEST(XObjPool, ThreadsShareItWithoutLosingAnObject) {
    xp_xobjpool *op = xp_create_xobjpool([]() -> void * { return objects++, new int; },
                                         [](void *object) { objects--, delete static_cast<int *>(object); },
                                         [](void *) { objects += 1000; }, [](void *) { objects -= 1000; });
    const auto work = [=](int self) {
        for (int i = 0; i < 2000; i++) {
            int *const held[] = {static_cast<int *>(xpxop_alloc(op)), static_cast<int *>(xpxop_alloc(op))};
            *held[0] = *held[1] = self; // not atomic: only one thread may have it
            if (i % 100 == self) self % 2 ? xpxop_diet(op) : xpxop_set_cache_max(op, i / 100 % 8);
            EXPECT_TRUE(*held[0] == self && *held[1] == self) << "an object was handed out twice";
            for (int *object : held) xpxop_free(op, object);
        }
    };
    for (const int threads : harness::thread_counts) harness::in_threads(threads, work);
    EXPECT_TRUE(op->pool.in_use == 0 && static_cast<int>(op->pool.cached) == objects);
    xp_destroy_xobjpool(op);
    EXPECT_EQ(objects, 0);
}

} // namespace
