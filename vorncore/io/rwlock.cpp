#include "vorncore/io/rwlock.h"

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/report.h"
#include "vorncore/base/internal/tryinit.h"

using namespace vorncore;

// Whoever changes a count so that a waiter may go on wakes the waiters, under the mutex and only where a count says
// that there are any. The conditions are shared by all slots, so nothing but a broadcast is sure to reach a waiter of
// the right slot: a signal might wake a waiter of another slot, which would wait on, and leave a free slot with a
// sleeper.

namespace {

/// Waits on a condition while `busy()`, and counts the caller among the waiters for that long.
template <class Busy>
void wait_while(xp_rwlock *lock, pthread_cond_t *condition, uint16_t &waiting, Busy busy) {
    if (!busy()) return;
    waiting++;
    do pthread_cond_wait(condition, &lock->mutex);
    while (busy());
    waiting--;
}

/// Waits until the slot is the caller's alone. A claim counts as a writer from when no other writer has the slot.
[[gnu::noinline]] void wait_to_write(xp_rwlock *lock, int slot) {
    uint16_t &writers = lock->active_writers[slot], &readers = lock->active_readers[slot];
    const bool claim = lock->mode == XP_RWLOCK_WRITER_CLAIM;
    wait_while(lock, &lock->writers, lock->waiting_writers[slot],
               [=, &writers, &readers] { return writers || (!claim && readers); });
    writers = 1;
    while (readers) pthread_cond_wait(&lock->writers, &lock->mutex); // with a claim only
}

/// Wakes those who may have the slot that a writer has left.
[[gnu::noinline]] void wake_waiting(xp_rwlock *lock, int slot) {
    const bool writers = lock->waiting_writers[slot];
    if (lock->waiting_readers[slot] && !(writers && lock->mode == XP_RWLOCK_WRITER_FIRST))
        pthread_cond_broadcast(&lock->readers);
    if (writers) pthread_cond_broadcast(&lock->writers);
}

} // namespace

bool vorncore::try_init_rwlock(xp_rwlock *lock, int slots, int mode) {
    const auto row = static_cast<size_t>(slots);
    auto *counts = try_zeroed_array<uint16_t>(saturating_product(row, 4));
    if (!counts) return false;
    lock->mode = mode;
    lock->mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP; // held for a few instructions: who meets it spins, then sleeps
    pthread_cond_init(&lock->readers, nullptr);
    pthread_cond_init(&lock->writers, nullptr);
    lock->active_readers = counts;
    lock->active_writers = counts + row;
    lock->waiting_writers = counts + 2 * row;
    lock->waiting_readers = counts + 3 * row;
    return true;
}

void xp_init_rwlock(xp_rwlock *lock, int slots, int mode) {
    if (!try_init_rwlock(lock, slots, mode))
        out_of_memory("xp_init_rwlock", saturating_product(bytes_of<uint16_t>(slots), 4));
}

xp_rwlock *xp_create_rwlock(int slots, int mode) { return create_record<xp_rwlock>(try_init_rwlock, slots, mode); }

void xp_close_rwlock(xp_rwlock *lock) {
    pthread_mutex_destroy(&lock->mutex);
    pthread_cond_destroy(&lock->readers);
    pthread_cond_destroy(&lock->writers);
    free(lock->active_readers);
}

void xp_destroy_rwlock(xp_rwlock *lock) { destroy_record(lock, xp_close_rwlock); }

void xprwl_read_lock(xp_rwlock *lock, int slot) {
    uint16_t &active = lock->active_readers[slot];
    pthread_mutex_lock(&lock->mutex);
    wait_while(lock, &lock->readers, lock->waiting_readers[slot], [=] {
        return lock->active_writers[slot] || (lock->mode == XP_RWLOCK_WRITER_FIRST && lock->waiting_writers[slot]);
    });
    active++;
    pthread_mutex_unlock(&lock->mutex);
}

void xprwl_write_lock(xp_rwlock *lock, int slot) {
    pthread_mutex_lock(&lock->mutex);
    if (lock->active_writers[slot] || lock->active_readers[slot]) wait_to_write(lock, slot);
    lock->active_writers[slot] = 1;
    pthread_mutex_unlock(&lock->mutex);
}

void xprwl_read_unlock(xp_rwlock *lock, int slot) {
    uint16_t &active = lock->active_readers[slot];
    pthread_mutex_lock(&lock->mutex);
    if (!active) {
        pthread_mutex_unlock(&lock->mutex);
        report(XP_LOGCATE_RWLK, "Invalid xprwl_read_lock() call"); // kept: names the lock, not the unlock
        return;
    }
    if (--active == 0) {
        const bool claim = lock->mode == XP_RWLOCK_WRITER_CLAIM;
        if (claim ? lock->active_writers[slot] : lock->waiting_writers[slot]) pthread_cond_broadcast(&lock->writers);
    }
    pthread_mutex_unlock(&lock->mutex);
}

void xprwl_write_unlock(xp_rwlock *lock, int slot) {
    uint16_t &active = lock->active_writers[slot];
    pthread_mutex_lock(&lock->mutex);
    if (!active) {
        pthread_mutex_unlock(&lock->mutex);
        report(XP_LOGCATE_RWLK, "Invalid xprwl_write_unlock() call");
        return;
    }
    active--;
    if (lock->waiting_writers[slot] || lock->waiting_readers[slot]) wake_waiting(lock, slot);
    pthread_mutex_unlock(&lock->mutex);
}
