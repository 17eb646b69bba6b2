#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>

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
    // What others may: 1 read, 2 write.
    const std::pair<int (*)(int), int> locks[] = {
        {xp_file_rlock, 1}, {xp_file_wlock, 0}, {xp_file_unlock, 3}, {xp_file_try_wlock, 0}, {xp_file_try_rlock, 1}};
    for (const auto &[lock, others_may] : locks) {
        EXPECT_EQ((fault_io(call::fcntl, 1, EINTR), lock(file.fd)), 1);
        const pid_t child = fork();
        if (child == 0) _exit(xp_file_try_rlock(file.fd) + 2 * xp_file_try_wlock(file.fd));
        int status = -1;
        EXPECT_TRUE(waitpid(child, &status, 0) == child && WEXITSTATUS(status) == others_may) << others_may;
        EXPECT_EQ(lock(not_open), 0);
    }
}

TEST(File, FlagsCountAsSetWhenOneIs) {
    const owned file(memfd_create("flags", 0));
    const int one = O_NONBLOCK, other = O_APPEND, both = one | other;
    const int steps[][3] = {{0, both, 0},     {1, one, one},   {1, both, one},
                            {1, other, both}, {0, one, other}, {0, both, 0}}; // set?, flags, what is set then
    for (const auto &[set, flags, expected] : steps) {
        const auto change = set ? xp_file_set_flag : xp_file_unset_flag;
        EXPECT_TRUE(change(file.fd, flags) == 1 && change(not_open, flags) == 0);
        EXPECT_EQ(fcntl(file.fd, F_GETFL) & both, expected);
    }
    EXPECT_EQ((fault_io(call::fcntl, 2, EPERM), xp_file_set_flag(file.fd, other)), 0);
}

TEST(Counter, ManyThreads) {
    xp_interlocked_counter number;
    xp_interlocked_accumulation_counter sum;
    xp_init_interlocked_counter(&number);
    EXPECT_EQ(xp_init_interlocked_accumulation_counter(&sum), &sum);
    int destroyed = 0;
    const auto destroy = [](void *object) { ++*static_cast<int *>(object); };
    xp_reference_counter *references = xp_create_reference_counter(&destroyed, destroy);
    for (const int threads : thread_counts)
        in_threads(threads, [&](int) {
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
    EXPECT_TRUE(destroyed == 0 && xprc_release(references) == 0 && destroyed == 1);
    xpic_set(&number, -3);
    xpiac_reset(&sum);
    EXPECT_TRUE(number.value == -3 && sum.count == 0 && sum.sum == 0);
    xp_close_interlocked_counter(&number);
    xp_close_interlocked_accumulation_counter(&sum);
}

TEST(Counter, Averages) {
    const xp_acounter_snapshot zero = {0, 0}, some = {62, 3}, high = {0xFFFFFFF0, 0xFFFFFFFF}, wrapped = {16, 1};
    xp_average result;
    EXPECT_TRUE(xp_avg_acounter(&zero, &some, &result) == &result && result.average == 20 && result.count == 3);
    EXPECT_TRUE(xp_avg_acounter(&high, &wrapped, &result)->average == 16 && result.count == 2);
    EXPECT_TRUE(xp_avg_acounter(&some, &some, &result)->average == 0 && result.count == 0);
}

TEST(Time, OneMomentInAllShapes) {
    setenv("TZ", "XYZ-3:30", 1);
    tzset();
    const timeval noon = {1709210096, 789012}, mark = {noon.tv_sec - 5000, 789013}; // 2024-02-29 12:34:56 UTC
    const pinned_clock clock(noon);
    std::array<int, 6> now, parts;
    int weekday, untouched = -1;
    xp_now(&now[0], &now[1], &now[2], &now[3], &now[4], &now[5]);
    xp_today(&parts[0], &parts[1], &parts[2], nullptr);
    xp_curtime(&parts[3], &parts[4], &parts[5]);
    EXPECT_TRUE(now == (std::array{2024, 2, 29, 16, 4, 56}) && now == parts);
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
    EXPECT_TRUE(xp_set_fdlimit(64) == 1 && getrlimit(RLIMIT_NOFILE, &now) == 0);
    EXPECT_TRUE(now.rlim_cur == 64 && now.rlim_max == before.rlim_max);
    EXPECT_EQ(xp_extend_fdlimit(), static_cast<int>(std::min<rlim_t>(before.rlim_max, INT_MAX)));
    EXPECT_TRUE(getrlimit(RLIMIT_NOFILE, &now) == 0 && now.rlim_cur == before.rlim_max && xp_set_fdlimit(-1) == 0);
    setrlimit(RLIMIT_NOFILE, &before);
}
