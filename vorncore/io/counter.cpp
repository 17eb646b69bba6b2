#include "vorncore/io/counter.h"

#include "vorncore/base/internal/alloc.h"

using namespace vorncore;

namespace {

/// Runs `change` under the mutex and returns what it returns.
template <class Change>
auto locked(pthread_mutex_t &mutex, Change change) {
    pthread_mutex_lock(&mutex);
    const auto result = change();
    pthread_mutex_unlock(&mutex);
    return result;
}

/// The new value; wraps around.
int32_t add(xp_interlocked_counter *counter, int32_t n) {
    return locked(counter->mutex, [=] {
        __builtin_add_overflow(counter->value, n, &counter->value);
        return counter->value;
    });
}

} // namespace

void xp_init_interlocked_counter(xp_interlocked_counter *counter) {
    pthread_mutex_init(&counter->mutex, nullptr);
    counter->value = 0;
}

void xp_close_interlocked_counter(xp_interlocked_counter *counter) { pthread_mutex_destroy(&counter->mutex); }

void xpic_inc(xp_interlocked_counter *counter) { add(counter, 1); }
void xpic_dec(xp_interlocked_counter *counter) { add(counter, -1); }
void xpic_inc_n(xp_interlocked_counter *counter, int n) { add(counter, n); }

void xpic_set(xp_interlocked_counter *counter, int value) {
    locked(counter->mutex, [=] { return counter->value = value; });
}

xp_interlocked_accumulation_counter *
xp_init_interlocked_accumulation_counter(xp_interlocked_accumulation_counter *counter) {
    pthread_mutex_init(&counter->mutex, nullptr);
    counter->sum = counter->count = 0;
    return counter;
}

void xp_close_interlocked_accumulation_counter(xp_interlocked_accumulation_counter *counter) {
    pthread_mutex_destroy(&counter->mutex);
}

void xpiac_add(xp_interlocked_accumulation_counter *counter, uint32_t value) {
    locked(counter->mutex, [=] {
        counter->count++;
        return counter->sum += value;
    });
}

void xpiac_reset(xp_interlocked_accumulation_counter *counter) {
    locked(counter->mutex, [=] { return counter->sum = counter->count = 0; });
}

xp_average *xp_avg_acounter(const xp_acounter_snapshot *earlier, const xp_acounter_snapshot *later,
                            xp_average *result) {
    const uint32_t count = later->count - earlier->count, sum = later->sum - earlier->sum;
    *result = {count ? sum / count : 0, count};
    return result;
}

xp_reference_counter *xp_create_reference_counter(void *object, xp_release_fn destroy) {
    return create_record<xp_reference_counter>([=](xp_reference_counter *counter) {
        counter->object = object;
        counter->destroy = destroy;
        xp_init_interlocked_counter(&counter->references);
        counter->references.value = 1;
        return true;
    });
}

xp_reference_counter *xprc_addref(xp_reference_counter *counter) {
    xpic_inc(&counter->references);
    return counter;
}

int xprc_release(xp_reference_counter *counter) {
    const int left = add(&counter->references, -1); // read under the mutex: only one release sees 0
    if (left != 0) return left;
    if (counter->destroy) counter->destroy(counter->object);
    xp_close_interlocked_counter(&counter->references);
    free(counter);
    return 0;
}
