#include <benchmark/benchmark.h>

#include <pthread.h>

#include <thread>

#include "vorncore/io/rwlock.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

struct vorncore_lock {
    xp_rwlock lock;
    vorncore_lock() { xp_init_rwlock(&lock, 1, XP_RWLOCK_WRITER_FIRST); }
    ~vorncore_lock() { xp_close_rwlock(&lock); }
    void read_lock() { xprwl_read_lock(&lock, 0); }
    void read_unlock() { xprwl_read_unlock(&lock, 0); }
    void write_lock() { xprwl_write_lock(&lock, 0); }
    void write_unlock() { xprwl_write_unlock(&lock, 0); }
};
struct posix_lock {
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    void read_lock() { pthread_rwlock_rdlock(&lock); }
    void read_unlock() { pthread_rwlock_unlock(&lock); }
    void write_lock() { pthread_rwlock_wrlock(&lock); }
    void write_unlock() { pthread_rwlock_unlock(&lock); }
};
struct mutex {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    void read_lock() { pthread_mutex_lock(&lock); }
    void read_unlock() { pthread_mutex_unlock(&lock); }
    void write_lock() { pthread_mutex_lock(&lock); }
    void write_unlock() { pthread_mutex_unlock(&lock); }
};

// A process that never had a second thread gets cheaper mutexes from the C library; nobody needs locks in one.
const bool threaded = (std::thread([] {}).join(), true);

template <class Lock>
void uncontended_read(benchmark::State &state) {
    Lock lock;
    for (auto _ : state) lock.read_lock(), lock.read_unlock();
}
template <class Lock>
void uncontended_write(benchmark::State &state) {
    Lock lock;
    for (auto _ : state) lock.write_lock(), lock.write_unlock();
}

// Every thread: one write for every 15 reads of a few words.
template <class Lock>
void contended(benchmark::State &state) {
    static Lock lock;
    static volatile int words[8];
    for (unsigned i = 0; state.KeepRunning(); i++)
        if (i % 16 == 0) {
            lock.write_lock();
            for (volatile int &word : words) word = word + 1;
            lock.write_unlock();
        } else {
            lock.read_lock();
            for (volatile int &word : words) benchmark::DoNotOptimize(word);
            lock.read_unlock();
        }
}

#define LOCK_BENCHMARKS(Lock, who)                                                                                     \
    BENCHMARK(uncontended_read<Lock>)->Name("uncontended_read/" who);                                                  \
    BENCHMARK(uncontended_write<Lock>)->Name("uncontended_write/" who)
#define CONTENDED(Lock, who) BENCHMARK(contended<Lock>)->Name("contended/" who)->Threads(2)->Threads(4)->UseRealTime()
LOCK_BENCHMARKS(vorncore_lock, "vorncore");
LOCK_BENCHMARKS(mutex, "pthread_mutex");
LOCK_BENCHMARKS(posix_lock, "pthread_rwlock");
CONTENDED(vorncore_lock, "vorncore");
CONTENDED(mutex, "pthread_mutex");
CONTENDED(posix_lock, "pthread_rwlock");

#ifdef HAVE_GLIB
struct glib_lock {
    GRWLock lock;
    glib_lock() { g_rw_lock_init(&lock); }
    ~glib_lock() { g_rw_lock_clear(&lock); }
    void read_lock() { g_rw_lock_reader_lock(&lock); }
    void read_unlock() { g_rw_lock_reader_unlock(&lock); }
    void write_lock() { g_rw_lock_writer_lock(&lock); }
    void write_unlock() { g_rw_lock_writer_unlock(&lock); }
};
LOCK_BENCHMARKS(glib_lock, "GRWLock");
CONTENDED(glib_lock, "GRWLock");
#endif

} // namespace
