#include "vorncore/io/xcirqueue.h"

#include <errno.h>
#include <sys/time.h>
#include <time.h>

#include "vorncore/base/internal/alloc.h"

using namespace vorncore;

/// The moment `milliseconds` from now, by the clock that the conditions go by.
static timespec __make_timespec(int milliseconds) {
    timeval now;
    gettimeofday(&now, nullptr);
    const long nanoseconds = (milliseconds % 1000 * 1000L + now.tv_usec) * 1000;
    return {now.tv_sec + milliseconds / 1000 + nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
}

namespace {

bool init(xp_xcirqueue *queue, int capacity) {
    xp_cirqueue *ring = xp_create_cirqueue(capacity); // not xp_init_cirqueue, which cannot report failure
    if (!ring) return false;
    queue->queue = *ring;
    free(ring);
    pthread_mutex_init(&queue->mutex, nullptr);
    pthread_cond_init(&queue->not_empty, nullptr);
    pthread_cond_init(&queue->not_full, nullptr);
    queue->shutdown = 0;
    return true;
}

bool is_shut_down(const xp_xcirqueue *queue) { return __atomic_load_n(&queue->shutdown, __ATOMIC_ACQUIRE); }

int try_put(xp_xcirqueue *queue, const void *item) {
    if (is_shut_down(queue)) return XP_XCQ_SHUTDOWN;
    return xpcq_put(&queue->queue, item) ? XP_XCQ_OK : XP_XCQ_WOULDBLOCK;
}

/// Takes an item before it looks at the flag: what is queued is delivered.
int try_get(xp_xcirqueue *queue, void **item) {
    if (xpcq_get(&queue->queue, item)) return XP_XCQ_OK;
    return is_shut_down(queue) ? XP_XCQ_SHUTDOWN : XP_XCQ_WOULDBLOCK;
}

/// Locks the mutex, and repeats an attempt that would block until the time is out.
template <class Attempt>
int lock_and_try(xp_xcirqueue *queue, pthread_cond_t *condition, int timeout, Attempt attempt) {
    const timespec deadline = timeout > 0 ? __make_timespec(timeout) : timespec{};
    pthread_mutex_lock(&queue->mutex);
    for (;;) {
        const int result = attempt();
        if (result != XP_XCQ_WOULDBLOCK || timeout == 0) return result;
        if (timeout < 0)
            pthread_cond_wait(condition, &queue->mutex);
        else if (pthread_cond_timedwait(condition, &queue->mutex, &deadline) == ETIMEDOUT)
            return XP_XCQ_TIMEOUT;
    }
}

int lock_and_get(xp_xcirqueue *queue, void **item, int timeout) {
    return lock_and_try(queue, &queue->not_empty, timeout, [=] { return try_get(queue, item); });
}

} // namespace

void xp_init_xcirqueue(xp_xcirqueue *queue, int capacity) {
    if (!init(queue, capacity)) out_of_memory("xp_init_xcirqueue", bytes_of<void *>(capacity));
}

xp_xcirqueue *xp_create_xcirqueue(int capacity) { return create_record<xp_xcirqueue>(init, capacity); }

void xp_close_xcirqueue(xp_xcirqueue *queue) {
    xp_close_cirqueue(&queue->queue);
    pthread_mutex_destroy(&queue->mutex);
    pthread_cond_destroy(&queue->not_empty);
    pthread_cond_destroy(&queue->not_full);
}

void xp_destroy_xcirqueue(xp_xcirqueue *queue) { destroy_record(queue, xp_close_xcirqueue); }

int xpxcq_put(xp_xcirqueue *queue, const void *item, int timeout) {
    const int result = lock_and_try(queue, &queue->not_full, timeout, [=] { return try_put(queue, item); });
    if (result == XP_XCQ_OK) pthread_cond_signal(&queue->not_empty);
    pthread_mutex_unlock(&queue->mutex);
    return result;
}

int xpxcq_get(xp_xcirqueue *queue, void **item, int timeout) {
    const int result = lock_and_get(queue, item, timeout);
    if (timeout == 0 && result != XP_XCQ_SHUTDOWN) return result; // kept: the mutex stays locked
    if (result == XP_XCQ_OK) pthread_cond_signal(&queue->not_full);
    pthread_mutex_unlock(&queue->mutex);
    return result;
}

int xpxcq_get_first(xp_xcirqueue *queue, void **item, int timeout, int *batch) {
    const int result = lock_and_get(queue, item, timeout);
    *batch = result == XP_XCQ_OK;
    if (result == XP_XCQ_OK) return result; // the mutex stays locked until xpxcq_get_end
    pthread_mutex_unlock(&queue->mutex);
    return timeout == 0 ? XP_XCQ_WOULDBLOCK : result;
}

int xpxcq_get_next(xp_xcirqueue *queue, void **item, int *batch) {
    if (!xpcq_get(&queue->queue, item)) return XP_XCQ_WOULDBLOCK;
    ++*batch;
    return XP_XCQ_OK;
}

void xpxcq_get_end(xp_xcirqueue *queue, int batch) {
    if (batch == 0) return;
    if (batch == 1)
        pthread_cond_signal(&queue->not_full);
    else
        pthread_cond_broadcast(&queue->not_full);
    pthread_mutex_unlock(&queue->mutex);
}

void xpxcq_shutdown(xp_xcirqueue *queue) {
    __atomic_store_n(&queue->shutdown, 1, __ATOMIC_RELEASE);
    pthread_mutex_lock(&queue->mutex);
    pthread_cond_broadcast(&queue->not_empty);
    pthread_cond_broadcast(&queue->not_full);
    pthread_mutex_unlock(&queue->mutex);
}
