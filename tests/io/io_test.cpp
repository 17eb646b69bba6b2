#include "vorncore/io/io.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>

#include <random>
#include <string>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"

using namespace harness;

namespace {

constexpr auto sockets = channel::kind::sockets, pipes = channel::kind::pipe;

std::string random_bytes(size_t length) {
    std::mt19937 random(1);
    std::string bytes(length, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

/// What has arrived at end 0, or the name of the code that tells why nothing has.
std::string arrived(const channel &c, int end = 0) {
    char bytes[4096];
    const int got = xp_read_timeout(c[end], bytes, sizeof bytes, 0);
    return got < 0 ? xp_ioerror_str(got) : std::string(bytes, static_cast<size_t>(got));
}

/// d: 9 bytes are sent; w: the writer closes; r: the reader closes; f: no room is left.
void prepare(const char *script, channel &in, channel &out) {
    for (; *script; script++) {
        if (*script == 'd') in.with("abcdefghi");
        if (*script == 'w') in.drop(1);
        if (*script == 'r') out.drop(0);
        if (*script == 'f') out.fill();
    }
}

/// Notes what it sees, and leaves every byte `times` times, in place.
struct repeater {
    xp_iofilter base = {run};
    int times = 1;
    std::string seen = {};
    static char *run(xp_iofilter *self, char *data, int32_t *count, int direction) {
        auto *me = reinterpret_cast<repeater *>(self);
        me->seen += std::to_string(*count) + (direction ? "> " : "< ");
        for (int32_t i = *count - 1; i >= 0; i--) memset(data + i * me->times, data[i], static_cast<size_t>(me->times));
        *count *= me->times;
        return data;
    }
};

class Io : public testing::Test { // ignores SIGPIPE, which pipes raise
  protected:
    void SetUp() override { signal(SIGPIPE, SIG_IGN); }
    void TearDown() override { signal(SIGPIPE, SIG_DFL); }
};

} // namespace

TEST_F(Io, NamesOfCodes) {
    const char *const names[] = {"EOF",      "CONNECTTIMEOUT", "WRITETIMEOUT", "READTIMEOUT", "TIMEOUT",   "SOCKET",
                                 "BIND",     "CONNECT",        "WRITE",        "READ",        "SOCKETOPT", "POLL",
                                 "FCNTL",    "RESOLVE",        "OVERFLOW",     "POLLERR",     "HUP",       "SELECT",
                                 "SELECTERR"};
    int code = -999;
    for (const char *name : names) EXPECT_EQ(xp_ioerror_str(code++), std::string("IOERROR_") + name);
    EXPECT_EQ(code, IOERROR_SELECTERR + 1);
    for (const int other : {-1000, -980, 0, 1, INT_MIN}) EXPECT_STREQ(xp_ioerror_str(other), "NETERR_UNKNOWN");
}

TEST_F(Io, OneReadOrWriteTellsWhatItMet) {
    const struct {
        const char *name;
        channel::kind kind;
        const char *script;
        bool write;
        int end; // of the channel, or a descriptor when it is larger
        int timeout, expected;
    } cases[] = {
        {"silent", sockets, "", false, 0, 0, IOERROR_READTIMEOUT},
        {"data", sockets, "d", false, 0, 0, 9},
        {"peer closed", sockets, "w", false, 0, 0, IOERROR_EOF},
        {"hang-up alone", pipes, "w", false, 0, 0, IOERROR_HUP},
        {"hang-up, no wait", pipes, "w", false, 0, -1, IOERROR_EOF},
        {"data with hang-up", pipes, "dw", false, 0, 0, 9},
        {"read of an output", pipes, "", false, 1, -1, IOERROR_READ},
        {"read, not open", pipes, "", false, not_open, 0, IOERROR_POLLERR},
        {"room", pipes, "", true, 1, 0, 1},
        {"full", pipes, "f", true, 1, 0, IOERROR_WRITETIMEOUT},
        {"pipe without reader", pipes, "r", true, 1, 0, IOERROR_WRITE},
        {"socket without reader", sockets, "r", true, 1, -1, IOERROR_WRITE},
        {"write, not open", pipes, "", true, not_open, 0, IOERROR_POLLERR},
        {"write, not open, no wait", pipes, "", true, not_open, -1, IOERROR_WRITE},
    };
    for (const auto &row : cases) {
        channel c(row.kind);
        prepare(row.script, c, c);
        char bytes[16];
        const int fd = row.end < 2 ? c[row.end] : row.end;
        const int got =
            row.write ? xp_write_timeout(fd, "a", 1, row.timeout) : xp_read_timeout(fd, bytes, 16, row.timeout);
        EXPECT_EQ(got, row.expected) << row.name;
    }
    EXPECT_EQ(xp_write_timeout(not_open, "a", -1, -1), IOERROR_WRITE);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Io, LostPeerOfASocketRaisesNoSignal) {
    signal(SIGPIPE, SIG_DFL); // would end the test
    channel c(sockets);
    c.drop(0);
    EXPECT_EQ(xp_sigsafe_write(c[1], "a", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(xp_write_str(c[1], "a", 0), IOERROR_WRITE);
}

TEST_F(Io, InterruptionsFailUnlessSigsafe) {
    channel c(sockets);
    char byte = 'a';
    const struct {
        call which;
        bool write;
        int code;
    } cases[] = {{call::poll, true, IOERROR_POLL},
                 {call::send, true, IOERROR_WRITE},
                 {call::poll, false, IOERROR_POLL},
                 {call::read, false, IOERROR_READ}};
    for (const auto &row : cases)
        for (const int sigsafe : {0, 1}) {
            c.with("a");
            const setting tuned(xp_io_sigsafe, sigsafe);
            const fault_io fault(row.which, 1, EINTR);
            const int got = row.write ? xp_write_timeout(c[1], &byte, 1, 1000) : xp_read_timeout(c[0], &byte, 1, 1000);
            EXPECT_EQ(got, sigsafe ? 1 : row.code) << "writes: " << row.write;
            EXPECT_EQ(fault.calls(), 1 + sigsafe);
        }
    const fault_io waits(call::poll, 0, EBADF);
    EXPECT_EQ(xp_write_timeout(c[1], &byte, 1, -1) + xp_read_timeout(c[0], &byte, 1, -1), 2);
    EXPECT_EQ(waits.calls(), 0) << "without a limit there is no wait";
}

TEST_F(Io, LoopsMoveEverything) {
    channel c(sockets);
    const std::string sent = random_bytes(60);
    std::string got(60, '\0');
    {
        const fault_io short_writes(call::send, 0, 0);
        EXPECT_EQ(xp_write_all(c[1], sent.data(), 60, 1000), 60);
        EXPECT_EQ(short_writes.calls(), 60);
    }
    {
        const fault_io short_reads(call::read, 0, 0);
        EXPECT_EQ(xp_read_all(c[0], got.data(), 60, 1000), 60);
    }
    EXPECT_EQ(got, sent);
    EXPECT_EQ(xp_read_all(not_open, got.data(), 0, 0) + xp_write_str(not_open, "", 0), 0);
    c.with("abc").drop(1);
    EXPECT_EQ(xp_read_all(c[0], got.data(), 4, 1000), IOERROR_EOF);
}

TEST_F(Io, TransferWithAnyBufferSize) {
    const std::string bytes = random_bytes(20'000);
    const struct {
        int size, reads; // the one that finds the end included
    } cases[] = {{INT_MIN, 4}, {0, 4}, {1, 20'001}, {6'000, 5}, {INT_MAX, 2}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.size);
        const setting tuned(xp_io_buffer_size, row.size);
        channel files(memfd_create("in", 0), memfd_create("out", 0));
        EXPECT_EQ(pwrite(files[0], bytes.data(), bytes.size(), 0), 20'000);
        int64_t total = -1;
        const fault_io count(call::read, INT_MAX, EIO);
        EXPECT_EQ(xp_transfer(files[0], files[1], &total, 1000, nullptr), IOERROR_EOF);
        EXPECT_EQ(total, 20'000);
        EXPECT_EQ(count.calls(), row.reads);
        std::string got(20'001, '\0');
        EXPECT_EQ(pread(files[1], got.data(), 20'001, 0), 20'000);
        EXPECT_EQ(got.compare(0, 20'000, bytes), 0);
    }
}

TEST_F(Io, TransferCountsWhatTheFilterLeaves) {
    channel in(sockets), out(sockets);
    in.with("abcdefgh");
    repeater doubled{.times = 2}, dropped{.times = 0};
    EXPECT_EQ(xp_transfer_all(in[0], out[1], 3, 0, &doubled.base), 3);
    EXPECT_EQ(arrived(out), "aabbcc");
    EXPECT_EQ(xp_transfer_all(in[0], out[1], 2, 0, &dropped.base), 0);
    EXPECT_EQ(xp_transfer_all(in[0], out[1], 9, 0, nullptr), IOERROR_READTIMEOUT);
    EXPECT_EQ(arrived(out), "fgh");
    int64_t total = 0;
    EXPECT_EQ(xp_transfer(in.with("xy")[0], out[1], &total, 0, &doubled.base), IOERROR_READTIMEOUT);
    EXPECT_EQ(total, 4);
    EXPECT_EQ(xp_transfer(in.with("z")[0], not_open, nullptr, 0, nullptr), IOERROR_POLLERR);
    EXPECT_EQ(xp_transfer(in.with("z")[0], out[1], nullptr, 0, &dropped.base), 0);
    EXPECT_EQ(doubled.seen + dropped.seen, "3< 2< 2< 1< ");
}

TEST_F(Io, RelayMovesEightBytesAtATime) {
    channel first(sockets), second(sockets);
    repeater filter;
    first.with("a message of 20 byte");
    second.with("hello");
    EXPECT_EQ(xp_bitransfer_ex(first[0], first[0], second[0], second[0], 0, &filter.base), IOERROR_TIMEOUT);
    EXPECT_EQ(filter.seen, "8> 5< 8> 4> ");
    EXPECT_EQ(arrived(first, 1) + "|" + arrived(second, 1), "hello|a message of 20 byte");
}

TEST_F(Io, RelayEnds) {
    const struct {
        const char *name;
        channel::kind kind;
        const char *script;
        call failing;
        int nth, expected;
        const char *seen, *passed_on;
    } cases[] = {
        {"closed", sockets, "w", call::poll, 0, IOERROR_EOF, "", "IOERROR_READTIMEOUT"},
        {"hang-up alone", pipes, "w", call::poll, 0, IOERROR_HUP, "", "IOERROR_READTIMEOUT"},
        {"hang-up with data", pipes, "dw", call::poll, 0, IOERROR_HUP, "8> ", "IOERROR_READTIMEOUT"},
        {"reader gone", pipes, "dr", call::poll, 0, IOERROR_WRITE, "8> ", nullptr},
        {"wait fails", pipes, "d", call::poll, 1, IOERROR_POLL, "", "IOERROR_READTIMEOUT"},
        {"read fails", pipes, "d", call::read, 1, IOERROR_READ, "", "IOERROR_READTIMEOUT"},
        {"stuck: polls on and on", pipes, "df", call::poll, 50, IOERROR_POLL, "8> ", nullptr},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        channel in(row.kind), out(pipes), idle(pipes);
        prepare(row.script, in, out);
        repeater filter;
        {
            const fault_io fault(row.failing, row.nth ? row.nth : INT_MAX, EINTR);
            EXPECT_EQ(xp_bitransfer_ex(in[0], idle[1], idle[0], out[1], 10'000, &filter.base), row.expected);
            EXPECT_EQ(fault.fired(), row.nth != 0);
        }
        EXPECT_EQ(filter.seen, row.seen);
        if (row.passed_on) {
            EXPECT_EQ(arrived(out), row.passed_on);
        }
    }
    channel idle(pipes);
    EXPECT_EQ(xp_bitransfer_ex(not_open, idle[1], idle[0], idle[1], 0, nullptr), IOERROR_POLLERR);
}
