#include "vorncore/io/rwlock.h"

#include <atomic>
#include <numeric>
#include <thread>

#include "support/harness.h"
#include "support/log_lines.h"
#include "support/threads.h"

namespace {

struct RwLockMode : testing::TestWithParam<int> {
    void read(int slot, auto work) { xprwl_read_lock(lock, slot), work(), xprwl_read_unlock(lock, slot); }
    void write(int slot, auto work) { xprwl_write_lock(lock, slot), work(), xprwl_write_unlock(lock, slot); }
    /// Yields until a count of a slot is what is awaited.
    void await(const uint16_t *counts, int slot, int expected) {
        for (bool met = false; !met; std::this_thread::yield())
            pthread_mutex_lock(&lock->mutex), met = counts[slot] == expected, pthread_mutex_unlock(&lock->mutex);
    }
    ~RwLockMode() override { xp_destroy_rwlock(lock); }

    static constexpr int slots = 16;
    xp_rwlock *const lock = xp_create_rwlock(slots, GetParam());
};
INSTANTIATE_TEST_SUITE_P(, RwLockMode,
                         testing::Values(XP_RWLOCK_NOPREF, XP_RWLOCK_WRITER_FIRST, XP_RWLOCK_WRITER_CLAIM, 9));

TEST_P(RwLockMode, DecidesWhetherReadersWaitBehindAWriter) {
    const bool claim = GetParam() == XP_RWLOCK_WRITER_CLAIM,
               writer_first = claim || GetParam() == XP_RWLOCK_WRITER_FIRST;
    std::string order; // guarded by slot 3
    xprwl_read_lock(lock, 3);
    std::jthread writer([&] { write(3, [&] { order += 'w'; }); });
    await(claim ? lock->active_writers : lock->waiting_writers, 3, 1);
    std::jthread reader([&] { read(3, [&] { order += 'r'; }); });
    writer_first ? await(lock->waiting_readers, 3, 1) : reader.join();
    write(4, [&] { EXPECT_EQ(lock->active_readers[3], 1); }); // another slot is free
    xprwl_read_unlock(lock, 3);
    writer.join();
    if (writer_first) reader.join();
    EXPECT_EQ(order, writer_first ? "wr" : "rw");
}

TEST_P(RwLockMode, LosesNoWakeUpToWritersOfOtherSlots) {
    std::jthread writers[slots];
    for (int slot = 0; slot < slots; slot++) {
        xprwl_write_lock(lock, slot);
        writers[slot] = std::jthread([=, this] { write(slot, [] {}); });
        await(lock->waiting_writers, slot, 1);
    }
    for (int slot = slots; slot-- > 0;) { // those that wait longest last
        xprwl_write_unlock(lock, slot);
        await(lock->waiting_writers, slot, 0), await(lock->active_writers, slot, 0);
    }
}

TEST_P(RwLockMode, KeepsWritersAloneWhateverTheNumberOfThreads) {
    int written[2][2] = {};
    std::atomic<int> torn = 0;
    for (const int threads : harness::thread_counts)
        harness::in_threads(threads, [&](int n) {
            for (int i = 0; i < 32'000 / threads; i++) {
                int(&mine)[2] = written[(i + n) % 2];
                if (i % 4 < 2) read((i + n) % 2, [&] { torn += mine[0] != mine[1]; });
                if (i % 4 >= 2) write((i + n) % 2, [&] { mine[0]++, mine[1]++; });
            }
        });
    EXPECT_EQ(written[0][0] + written[1][1], 3 * 16'000);
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(std::accumulate(lock->active_readers, lock->active_readers + 4 * slots, 0), 0); // one block of counts
}

TEST(RwLock, MisuseIsReportedAndChangesNothing) {
    harness::log_lines log;
    xp_rwlock lock;
    xp_init_rwlock(&lock, 2, XP_RWLOCK_NOPREF);
    xprwl_read_lock(&lock, 0), xprwl_write_unlock(&lock, 0);
    xprwl_write_lock(&lock, 1), xprwl_read_unlock(&lock, 1);
    EXPECT_EQ(log.take(), "|RWLK|vorncore/io/rwlock.cpp: Invalid xprwl_write_unlock() call\n"
                          "|RWLK|vorncore/io/rwlock.cpp: Invalid xprwl_read_lock() call\n");
    const uint16_t expected[] = {1, 0, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(lock.active_readers, expected, sizeof expected), 0);
    xp_close_rwlock(&lock);
    harness::oom_sweep([] {
        if (xp_rwlock *created = xp_create_rwlock(4, 0)) xp_destroy_rwlock(created);
    });
}

} // namespace
