#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "support/threads.h"
#include "vorncore/io/counter.h"
#include "vorncore/io/fdlimit.h"
#include "vorncore/io/file.h"
#include "vorncore/io/rand.h"
#include "vorncore/io/timeutil.h"

using namespace harness;

TEST(File, LocksKeepOtherProcessesOut) {
    const owned file(memfd_create("lock", 0));
    const struct {
        int (*lock)(int);
        int others_may; // 1 read, 2 write
    } cases[] = {
        {xp_file_rlock, 1}, {xp_file_wlock, 0}, {xp_file_unlock, 3}, {xp_file_try_wlock, 0}, {xp_file_try_rlock, 1}};
    for (const auto &row : cases) {
        const fault_io fault(call::fcntl, 1, EINTR);
        EXPECT_EQ(row.lock(file.fd), 1);
        const pid_t child = fork();
        if (child == 0) _exit(xp_file_try_rlock(file.fd) + 2 * xp_file_try_wlock(file.fd));
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WEXITSTATUS(status), row.others_may) << "row " << &row - cases;
        EXPECT_EQ(row.lock(not_open), 0);
    }
}

TEST(File, FlagsCountAsSetWhenOneIs) {
    const owned file(memfd_create("flags", 0));
    const int one = O_NONBLOCK, other = O_APPEND, both = one | other;
    const struct {
        int (*change)(int, int);
        int flags, expected;
    } cases[] = {{xp_file_unset_flag, both, 0},   {xp_file_set_flag, one, one},     {xp_file_set_flag, both, one},
                 {xp_file_set_flag, other, both}, {xp_file_unset_flag, one, other}, {xp_file_unset_flag, both, 0}};
    for (const auto &row : cases) {
        EXPECT_EQ(row.change(file.fd, row.flags), 1);
        EXPECT_EQ(fcntl(file.fd, F_GETFL) & both, row.expected) << "row " << &row - cases;
        EXPECT_EQ(row.change(not_open, row.flags), 0);
    }
    const fault_io second(call::fcntl, 2, EPERM);
    EXPECT_EQ(xp_file_set_flag(file.fd, other), 0);
}

TEST(Counter, ManyThreads) {
    xp_interlocked_counter number;
    xp_interlocked_accumulation_counter sum;
    xp_init_interlocked_counter(&number);
    EXPECT_EQ(xp_init_interlocked_accumulation_counter(&sum), &sum);
    int destroyed = 0;
    const auto destroy = [](void *object) { ++*static_cast<int *>(object); };
    xp_reference_counter *references = xp_create_reference_counter(&destroyed, destroy);
    for (const int threads : harness::thread_counts)
        harness::in_threads(threads, [&](int) {
            xp_reference_counter *const mine = xprc_addref(references);
            for (uint32_t i = 0; i < 2000; i++) {
                xpic_inc(&number), xpic_inc_n(&number, 5), xpic_dec(&number);
                xpiac_add(&sum, i);
                xprc_release(xprc_addref(mine));
            }
            EXPECT_GT(xprc_release(mine), 0);
        });
    EXPECT_EQ(number.value, 22 * 10'000);
    EXPECT_TRUE(sum.count == 22 * 2000 && sum.sum == 22 * 1'999'000);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(xprc_release(references), 0);
    EXPECT_EQ(destroyed, 1);
    xpic_set(&number, -3);
    xpiac_reset(&sum);
    EXPECT_EQ(number.value, -3);
    EXPECT_EQ(sum.count + sum.sum, 0u);
    xp_close_interlocked_counter(&number);
    xp_close_interlocked_accumulation_counter(&sum);
}

TEST(Counter, Averages) {
    const xp_acounter_snapshot zero = {0, 0}, some = {62, 3}, high = {0xFFFFFFF0, 0xFFFFFFFF}, wrapped = {16, 1};
    const auto between = [](const xp_acounter_snapshot &earlier, const xp_acounter_snapshot &later) {
        xp_average result;
        EXPECT_EQ(xp_avg_acounter(&earlier, &later, &result), &result);
        return std::pair(result.average, result.count);
    };
    EXPECT_EQ(between(zero, some), std::pair(20u, 3u));
    EXPECT_EQ(between(high, wrapped), std::pair(16u, 2u));
    EXPECT_EQ(between(some, some), std::pair(0u, 0u));
}

TEST(Time, OneMomentInAllShapes) {
    setenv("TZ", "XYZ-3:30", 1);
    tzset();
    const timeval noon = {1709210096, 789012}, mark = {noon.tv_sec - 5000, 789013}; // 2024-02-29 12:34:56 UTC
    const pinned_clock clock(noon);
    int now[6], parts[6], weekday, untouched = -1;
    xp_now(now, now + 1, now + 2, now + 3, now + 4, now + 5);
    xp_today(parts, parts + 1, parts + 2, nullptr);
    xp_curtime(parts + 3, parts + 4, parts + 5);
    const int expected[] = {2024, 2, 29, 16, 4, 56};
    for (int i = 0; i < 6; i++) EXPECT_TRUE(now[i] == expected[i] && parts[i] == expected[i]) << "field " << i;
    xp_today(nullptr, nullptr, &weekday, &untouched);
    EXPECT_TRUE(weekday == 4 && untouched == -1) << "the weekday pointer is never written through";
    xp_today(nullptr, nullptr, nullptr, &untouched);

    EXPECT_TRUE(xp_time_usl() == 1709210096789012 && xp_time_us() == static_cast<uint32_t>(1709210096789012));
    EXPECT_TRUE(xp_time_msl() == 1709210096789 && xp_time_ms() == static_cast<uint32_t>(1709210096789));
    EXPECT_EQ(xp_diff_timel(&mark), 4'999'999'999u); // more than 32 bits
    EXPECT_EQ(xp_diff_time(&mark), static_cast<uint32_t>(4'999'999'999));
    timeval marked;
    xp_mark_time(&marked);
    EXPECT_EQ(xp_diff_timel(&marked), 0u);
    const fault_io signal(call::poll, 1, EINTR);
    xp_psleep(-1); // until a signal comes
}

TEST(Random, FollowsThePlatformsGeneratorFromItsRecord) {
    xp_random generator;
    xp_rand32_init(&generator, 0x12345678);
    EXPECT_EQ(generator.seed, 0x12345678u);
    unsigned short words[3];
    memcpy(words, &generator, sizeof words);
    for (int i = 0; i < 100; i++) {
        const auto expected = static_cast<int32_t>(jrand48(words));
        EXPECT_EQ(i % 2 ? xp_rand32(&generator) : static_cast<int32_t>(xp_rand32u(&generator)), expected);
    }
}

TEST(FdLimit, MovesBelowTheHardLimit) {
    rlimit before, now;
    getrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(xp_set_fdlimit(64), 1);
    getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_TRUE(now.rlim_cur == 64 && now.rlim_max == before.rlim_max);
    EXPECT_EQ(xp_extend_fdlimit(), static_cast<int>(std::min<rlim_t>(before.rlim_max, INT_MAX)));
    getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_EQ(now.rlim_cur, before.rlim_max);
    EXPECT_EQ(xp_set_fdlimit(-1), 0);
    setrlimit(RLIMIT_NOFILE, &before);
}
