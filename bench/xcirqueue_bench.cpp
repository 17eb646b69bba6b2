#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include "vorncore/io/xcirqueue.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr size_t capacity = 1024;

struct vorncore_queue {
    xp_xcirqueue queue;
    vorncore_queue() { xp_init_xcirqueue(&queue, capacity); }
    void put(void *item) { xpxcq_put(&queue, item, -1); }
    void *get() {
        void *item;
        xpxcq_get(&queue, &item, -1);
        return item;
    }
};

// What one writes without a library.
struct bounded_deque {
    std::mutex mutex;
    std::condition_variable not_empty, not_full;
    std::deque<void *> items;
    void put(void *item) {
        std::unique_lock lock(mutex);
        not_full.wait(lock, [&] { return items.size() < capacity; });
        items.push_back(item);
        not_empty.notify_one();
    }
    void *get() {
        std::unique_lock lock(mutex);
        not_empty.wait(lock, [&] { return !items.empty(); });
        void *const item = items.front();
        items.pop_front();
        not_full.notify_one();
        return item;
    }
};

// Threads in pairs: one puts, one gets, as many items each.
template <class Queue>
void hand_off(benchmark::State &state) {
    static Queue queue;
    const bool puts = state.thread_index() % 2;
    for (auto _ : state)
        if (puts)
            queue.put(&queue);
        else
            benchmark::DoNotOptimize(queue.get());
}

// Put and get in turn on one thread: the cost without meeting anybody.
template <class Queue>
void alone(benchmark::State &state) {
    Queue queue;
    for (auto _ : state) {
        queue.put(&queue);
        benchmark::DoNotOptimize(queue.get());
    }
}

#define QUEUE_BENCHMARKS(Queue, who)                                                                                   \
    BENCHMARK(hand_off<Queue>)->Name("hand_off/" who)->Threads(2)->Threads(4)->UseRealTime();                          \
    BENCHMARK(alone<Queue>)->Name("put_and_get/" who)
QUEUE_BENCHMARKS(vorncore_queue, "vorncore");
QUEUE_BENCHMARKS(bounded_deque, "mutex and std::deque");

#ifdef HAVE_GLIB
struct glib_queue { // without a bound
    GAsyncQueue *queue = g_async_queue_new();
    void put(void *item) { g_async_queue_push(queue, item); }
    void *get() { return g_async_queue_pop(queue); }
};
QUEUE_BENCHMARKS(glib_queue, "GAsyncQueue");
#endif

} // namespace
