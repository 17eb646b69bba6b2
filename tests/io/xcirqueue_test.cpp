#include "vorncore/io/xcirqueue.h"

#include <atomic>
#include <thread>

#include "support/fault.h"
#include "support/harness.h"
#include "support/threads.h"

namespace {

struct BlockingQueue : testing::Test {
    BlockingQueue() { xp_init_xcirqueue(&queue, 3); }
    ~BlockingQueue() override { xp_close_xcirqueue(&queue); }

    int put(intptr_t n, int timeout) { return xpxcq_put(&queue, reinterpret_cast<void *>(n), timeout); }
    /// The item, or else the result below 0.
    intptr_t taken(int result) { return result ? -result : reinterpret_cast<intptr_t>(item); }
    intptr_t get(int timeout) { return taken(xpxcq_get(&queue, &item, timeout)); }
    /// Frees the mutex; says whether it was locked.
    bool unlocks() {
        const bool locked = pthread_mutex_trylock(&queue.mutex) != 0;
        pthread_mutex_unlock(&queue.mutex);
        return locked;
    }

    xp_xcirqueue queue;
    void *item;
    int batch = 9;
};

TEST_F(BlockingQueue, GetWithoutWaitingKeepsTheMutexAndShutdownDeliversWhatIsQueued) {
    EXPECT_EQ(get(0), -XP_XCQ_WOULDBLOCK);
    EXPECT_TRUE(xpxcq_get_next(&queue, &item, &batch) == XP_XCQ_WOULDBLOCK && batch == 9 && unlocks());
    for (const int n : {1, 2, 3}) EXPECT_EQ(put(n, n - 2), XP_XCQ_OK);
    EXPECT_EQ(put(4, 0), XP_XCQ_WOULDBLOCK);
    EXPECT_EQ(put(4, 1), XP_XCQ_TIMEOUT);
    EXPECT_TRUE(get(0) == 1 && unlocks());
    xpxcq_shutdown(&queue);
    EXPECT_EQ(put(4, -1), XP_XCQ_SHUTDOWN) << "although there is room";
    EXPECT_TRUE(get(1000) == 2 && get(-1) == 3);
    for (const int timeout : {0, 1000, -1}) {
        EXPECT_TRUE(get(timeout) == -XP_XCQ_SHUTDOWN && !unlocks());
        EXPECT_EQ(xpxcq_get_first(&queue, &item, timeout, &batch), timeout ? XP_XCQ_SHUTDOWN : XP_XCQ_WOULDBLOCK);
        xpxcq_get_end(&queue, batch);
        EXPECT_TRUE(batch == 0 && !unlocks());
    }
}

TEST_F(BlockingQueue, TheEndOfABatchWakesAllWhoWaitForRoomAndShutdownTheRest) {
    for (const int n : {1, 2, 3}) put(n, 0);
    std::atomic<int> refused = 0;
    std::vector<std::jthread> producers;
    for (const int timeout : {-1, -1, 60'000, 60'000, 60'000})
        producers.emplace_back([&, timeout] { refused += put(4, timeout); });
    const auto await = [&](unsigned waiters) { // the C library's own count, times 8
        const unsigned *const count = &queue.not_full.__data.__wrefs;
        while (__atomic_load_n(count, __ATOMIC_RELAXED) / 8 != waiters) std::this_thread::yield();
    };
    await(5);
    EXPECT_EQ(taken(xpxcq_get_first(&queue, &item, -1, &batch)), 1);
    EXPECT_TRUE(taken(xpxcq_get_next(&queue, &item, &batch)) == 2 && batch == 2);
    xpxcq_get_end(&queue, batch);
    for (bool full = false; !full; pthread_mutex_unlock(&queue.mutex))
        pthread_mutex_lock(&queue.mutex), full = xpcq_count(&queue.queue) == 3;
    await(3); // the others wait again
    xpxcq_shutdown(&queue);
    producers.clear();
    EXPECT_EQ(refused, 3 * XP_XCQ_SHUTDOWN);
}

TEST_F(BlockingQueue, TheDeadlineIsFixedAtTheStartAndCarriesSeconds) {
    const auto now = [] {
        timespec clock;
        clock_gettime(CLOCK_REALTIME, &clock);
        return clock.tv_sec * 1'000'000 + clock.tv_nsec / 1000;
    };
    const int64_t deadline = now() + 10'000, began = deadline - 1'999'000; // microseconds; the fractions add up to more
    const harness::pinned_clock start({began / 1'000'000, began % 1'000'000});
    EXPECT_EQ(get(1999), -XP_XCQ_TIMEOUT);
    EXPECT_TRUE(now() >= deadline && now() < deadline + 900'000 && !unlocks());
}

TEST_F(BlockingQueue, EveryItemArrivesOnceAndInOrder) {
    for (const int pairs : {1, 2, 8}) {
        xp_xcirqueue *many = nullptr;
        harness::oom_sweep([&] { many = xp_create_xcirqueue(16); });
        const intptr_t count = 320'000 / pairs; // of each producer
        std::atomic<intptr_t> sum = 0, producing = pairs;
        const auto produce = [&](int n) {
            for (intptr_t i = 1; i <= count; i++)
                xpxcq_put(many, reinterpret_cast<void *>(pairs * i + n), n % 2 ? -1 : 60'000);
            if (!--producing) xpxcq_shutdown(many);
        };
        const auto consume = [&](bool batches) {
            intptr_t last[8] = {}, got;
            void **const out = reinterpret_cast<void **>(&got);
            for (int size = 1;; xpxcq_get_end(many, batches ? size : 0)) {
                if (batches ? xpxcq_get_first(many, out, -1, &size) : xpxcq_get(many, out, 60'000)) break;
                do {
                    EXPECT_LT(last[got % pairs], got / pairs);
                    sum += last[got % pairs] = got / pairs;
                } while (batches && size < 4 && xpxcq_get_next(many, out, &size) == XP_XCQ_OK);
            }
        };
        harness::in_threads(2 * pairs, [&](int n) { n < pairs ? produce(n) : consume(n % 2); });
        EXPECT_EQ(sum, pairs * (count * (count + 1) / 2));
        xp_destroy_xcirqueue(many);
    }
}

} // namespace
