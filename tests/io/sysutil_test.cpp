#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <thread>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/io/counter.h"
#include "vorncore/io/fdlimit.h"
#include "vorncore/io/file.h"
#include "vorncore/io/rand.h"
#include "vorncore/io/timeutil.h"

using namespace harness;

namespace {

/// What a call answers in another process.
int elsewhere(int (*lock)(int), int fd) {
    const pid_t child = fork();
    if (child == 0) _exit(lock(fd));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
}

int destroyed = 0;
void destroy(void *object) { destroyed += *static_cast<int *>(object); }

} // namespace

TEST(File, LocksKeepOtherProcessesOut) {
    const owned file(memfd_create("lock", 0));
    const struct {
        int (*lock)(int);
        int other_reads, other_writes;
    } cases[] = {{xp_file_rlock, 1, 0},
                 {xp_file_wlock, 0, 0},
                 {xp_file_unlock, 1, 1},
                 {xp_file_try_wlock, 0, 0},
                 {xp_file_try_rlock, 1, 0}};
    for (const auto &row : cases) {
        const fault_io fault(call::fcntl, 1, EINTR);
        EXPECT_EQ(row.lock(file.fd), 1);
        EXPECT_EQ(fault.calls(), 2);
        EXPECT_EQ(elsewhere(xp_file_try_rlock, file.fd), row.other_reads) << "row " << &row - cases;
        EXPECT_EQ(elsewhere(xp_file_try_wlock, file.fd), row.other_writes) << "row " << &row - cases;
        EXPECT_EQ(row.lock(not_open), 0);
    }
}

TEST(File, FlagsCountAsSetWhenOneIs) {
    const owned file(memfd_create("flags", 0));
    const struct {
        int (*change)(int, int);
        int flags, expected;
    } cases[] = {{xp_file_unset_flag, O_NONBLOCK | O_APPEND, 0},
                 {xp_file_set_flag, O_NONBLOCK, O_NONBLOCK},
                 {xp_file_set_flag, O_NONBLOCK | O_APPEND, O_NONBLOCK},
                 {xp_file_set_flag, O_APPEND, O_NONBLOCK | O_APPEND},
                 {xp_file_unset_flag, O_NONBLOCK, O_APPEND},
                 {xp_file_unset_flag, O_NONBLOCK | O_APPEND, 0}};
    for (const auto &row : cases) {
        EXPECT_EQ(row.change(file.fd, row.flags), 1);
        EXPECT_EQ(fcntl(file.fd, F_GETFL) & (O_NONBLOCK | O_APPEND), row.expected) << "row " << &row - cases;
        EXPECT_EQ(row.change(not_open, row.flags), 0);
    }
    const fault_io second(call::fcntl, 2, EPERM);
    EXPECT_EQ(xp_file_set_flag(file.fd, O_APPEND), 0);
}

TEST(Counter, ManyThreads) {
    xp_interlocked_counter number;
    xp_interlocked_accumulation_counter sum;
    xp_init_interlocked_counter(&number);
    EXPECT_EQ(xp_init_interlocked_accumulation_counter(&sum), &sum);
    int object = 1;
    xp_reference_counter *references = xp_create_reference_counter(&object, destroy);
    std::thread threads[4];
    for (std::thread &thread : threads)
        thread = std::thread([&, mine = xprc_addref(references)] {
            for (uint32_t i = 0; i < 1000; i++) {
                xpic_inc(&number);
                xpic_inc_n(&number, 5);
                xpic_dec(&number);
                xpiac_add(&sum, i);
                xprc_release(xprc_addref(mine));
            }
            EXPECT_GT(xprc_release(mine), 0);
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(number.value, 20'000);
    EXPECT_EQ(sum.count, 4000u);
    EXPECT_EQ(sum.sum, 4u * 499'500u);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(xprc_release(references), 0);
    EXPECT_EQ(destroyed, 1);
    xpic_set(&number, -3);
    xpiac_reset(&sum);
    EXPECT_EQ(number.value, -3);
    EXPECT_EQ(sum.count + sum.sum, 0u);
    xp_close_interlocked_counter(&number);
    xp_close_interlocked_accumulation_counter(&sum);
    const fail_allocation failure(1);
    EXPECT_EQ(xp_create_reference_counter(&object, destroy), nullptr);
}

TEST(Counter, Averages) {
    const xp_acounter_snapshot zero = {0, 0}, some = {62, 3}, high = {0xFFFFFFF0, 0xFFFFFFFF}, wrapped = {16, 1};
    xp_average result;
    EXPECT_EQ(xp_avg_acounter(&zero, &some, &result), &result);
    EXPECT_EQ(result.average * 10 + result.count, 203u);
    xp_avg_acounter(&high, &wrapped, &result);
    EXPECT_EQ(result.average * 10 + result.count, 162u);
    xp_avg_acounter(&some, &some, &result);
    EXPECT_EQ(result.average + result.count, 0u);
}

TEST(Time, LocalTimeAgreesWithThePlatform) {
    const auto now = [] { return static_cast<time_t>(xp_time_usl() / 1'000'000); };
    time_t before;
    tm t;
    int year, month, day, hour, minute, second, y, m, d, w = -1, wday, h, mi, s;
    do { // until it all happens within one second
        before = now();
        localtime_r(&before, &t);
        xp_now(&year, &month, &day, &hour, &minute, &second);
        xp_today(&y, &m, &d, nullptr);
        xp_today(nullptr, nullptr, &wday, &w);
        xp_curtime(&h, &mi, &s);
    } while (now() != before);
    const std::vector<int> expected = {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
    EXPECT_EQ((std::vector<int>{year, month, day, hour, minute, second}), expected);
    EXPECT_EQ((std::vector<int>{y, m, d, h, mi, s}), expected);
    EXPECT_EQ(wday, t.tm_wday);
    EXPECT_EQ(w, -1) << "the weekday pointer is never written through";
    xp_today(nullptr, nullptr, nullptr, &w);
    xp_now(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(Time, ShortClocksAreTheLowBitsOfTheLongOnes) {
    const auto within = [](uint64_t from, uint32_t value, uint64_t to) {
        return value - static_cast<uint32_t>(from) <= to - from;
    };
    timespec clock;
    clock_gettime(CLOCK_REALTIME_COARSE, &clock);
    const uint64_t us = xp_time_usl(), ms = xp_time_msl();
    EXPECT_LT(us / 1000 - static_cast<uint64_t>(clock.tv_sec * 1000 + clock.tv_nsec / 1'000'000), 60'000u);
    EXPECT_LT(ms - us / 1000, 60'000u);
    EXPECT_TRUE(within(us, xp_time_us(), us + 60'000'000));
    EXPECT_TRUE(within(ms, xp_time_ms(), ms + 60'000));
    timeval mark;
    xp_mark_time(&mark);
    mark.tv_sec -= 5000; // longer ago than 32 bits of microseconds
    const uint64_t since = xp_diff_timel(&mark);
    EXPECT_TRUE(within(5'000'000'000, static_cast<uint32_t>(since), 5'060'000'000));
    EXPECT_TRUE(within(since, xp_diff_time(&mark), since + 60'000'000));
    xp_psleep(1);
    EXPECT_GE(xp_diff_timel(&mark), since + 1000);
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
    EXPECT_EQ(now.rlim_cur, 64u);
    EXPECT_EQ(now.rlim_max, before.rlim_max);
    EXPECT_EQ(xp_extend_fdlimit(), static_cast<int>(std::min<rlim_t>(before.rlim_max, INT_MAX)));
    getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_EQ(now.rlim_cur, before.rlim_max);
    EXPECT_EQ(xp_set_fdlimit(-1), 0);
    setrlimit(RLIMIT_NOFILE, &before);
}
