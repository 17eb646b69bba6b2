#include "vorncore/io/io.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <sys/mman.h>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"

using namespace harness;

namespace {

constexpr auto sockets = channel::kind::sockets, pipes = channel::kind::pipe;

/// Notes what it sees, and leaves every byte `times` times, in place.
struct repeater {
    xp_iofilter base = {run};
    int times = 1;
    std::string seen = {};
    static char *run(xp_iofilter *self, char *data, int32_t *count, int direction) {
        auto *me = reinterpret_cast<repeater *>(self);
        me->seen += std::to_string(*count) + (direction == 1 ? "> " : direction == 0 ? "< " : "? ");
        for (int32_t i = *count - 1; i >= 0; i--) memset(data + i * me->times, data[i], static_cast<size_t>(me->times));
        *count *= me->times;
        return data;
    }
};

} // namespace

TEST(Io, NamesOfCodes) {
    std::string names;
    for (int code = -1000; code <= -980; code++) names += xp_ioerror_str(code) + (code < -999 || code > -981 ? 0 : 7);
    EXPECT_EQ(names, "NETERR_UNKNOWN_EOF_CONNECTTIMEOUT_WRITETIMEOUT_READTIMEOUT_TIMEOUT_SOCKET_BIND_CONNECT_WRITE_READ"
                     "_SOCKETOPT_POLL_FCNTL_RESOLVE_OVERFLOW_POLLERR_HUP_SELECT_SELECTERRNETERR_UNKNOWN");
}

TEST(Io, OneReadOrWriteTellsWhatItMet) {
    const struct {
        const char *name, *script;
        channel::kind kind;
        char what; // r(ead) or w(rite) of 9 bytes
        int end;   // of the channel, or a descriptor when it is larger
        int timeout, expected;
        call failing = call::bind; // once, by a signal
        int sigsafe = 0;
    } cases[] = {
        {"silent", "", sockets, 'r', 0, 0, IOERROR_READTIMEOUT},
        {"peer closed", "1", sockets, 'r', 0, 0, IOERROR_EOF},
        {"hang-up alone", "1", pipes, 'r', 0, 0, IOERROR_HUP},
        {"hang-up, no wait", "1", pipes, 'r', 0, -1, IOERROR_EOF},
        {"data with hang-up", "d1", pipes, 'r', 0, 0, 9},
        {"read of an output", "", pipes, 'r', 1, -1, IOERROR_READ},
        {"read, not open", "", pipes, 'r', not_open, 0, IOERROR_POLLERR},
        {"read interrupted", "d", pipes, 'r', 0, 9, IOERROR_READ, call::read},
        {"read again", "d", pipes, 'r', 0, 9, 9, call::read, 1},
        {"wait interrupted", "d", sockets, 'r', 0, 9, IOERROR_POLL, call::poll},
        {"wait again", "d", sockets, 'r', 0, 9, 9, call::poll, 1},
        {"no limit, no wait", "d", sockets, 'r', 0, -1, 9, call::poll},
        {"full", "f", pipes, 'w', 1, 0, IOERROR_WRITETIMEOUT},
        {"pipe without reader", "0", pipes, 'w', 1, 0, IOERROR_WRITE},
        {"socket without reader", "0", sockets, 'w', 1, -1, IOERROR_WRITE},
        {"write interrupted", "", sockets, 'w', 1, 9, IOERROR_WRITE, call::send},
        {"write again", "", sockets, 'w', 1, 9, 9, call::send, 1},
    };
    for (const auto &row : cases) {
        signal(SIGPIPE, row.kind == pipes ? SIG_IGN : SIG_DFL); // a lost peer of a socket must not raise it
        channel c(row.kind);
        const int fd = row.end < 2 ? c.play(row.script)[row.end] : row.end;
        char bytes[9] = "abcdefgh";
        const setting tuned(xp_io_sigsafe, row.sigsafe);
        const fault_io fault(row.failing, 1, EINTR);
        const auto run = [&](auto call) { return call(fd, bytes, 9, row.timeout); };
        EXPECT_EQ(row.what == 'r' ? run(xp_read_timeout) : run(xp_write_timeout), row.expected) << row.name;
    }
    channel lost(sockets);
    EXPECT_EQ(xp_sigsafe_write(lost.play("0")[1], "a", 1) + xp_fdprintf(lost[1], 0, "a"), -2);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_TRUE(xp_write_timeout(not_open, "a", -1, -1) == IOERROR_WRITE && errno == EINVAL);
}

TEST(Io, LoopsMoveEverythingAndSigsafeCallsGoOnAfterASignal) {
    channel c(sockets);
    const std::string sent = "0123456789 abcdefghijklmnopqrstuvwxyz";
    for (const call moves_one_byte : {call::send, call::read}) {
        const fault_io each(moves_one_byte, 0, 0);
        std::string got(37, '\0');
        EXPECT_EQ(xp_write_all(c[1], sent.data(), 37, 1000), 37);
        EXPECT_TRUE(xp_read_all(c[0], got.data(), 37, 1000) == 37 && got == sent);
    }
    char got[20];
    EXPECT_EQ(xp_read_all(not_open, got, 0, 0) + xp_write_str(not_open, "", 0) + xp_write_timeout(c[1], "", 0, 0), 0);
    pollfd entry = {c.with("ab")[0], POLLIN, 0};
    for (const call interrupted : {call::poll, call::read, call::send}) {
        const fault_io once(interrupted, 1, EINTR);
        EXPECT_EQ(xp_sigsafe_poll(&entry, 1, 0) + xp_sigsafe_read(c[0], got, 1) + xp_sigsafe_write(c[1], "c", 1), 3);
        EXPECT_EQ(once.calls(), 2);
    }
    EXPECT_EQ(xp_read_all(c.play("d1")[0], got, 20, 1000), IOERROR_EOF);
}

TEST(Io, TransferWithAnyBufferSize) {
    std::string bytes, got(20'001, '\0');
    for (int i = 0; i < 20'000; i++) bytes += static_cast<char>(i / 251 + i % 251);
    const int sizes_and_reads[][2] = {{0, 4}, {1, 20'001}, {6'000, 5}, {INT_MAX, 2}}; // with the end's
    for (const auto &[size, reads] : sizes_and_reads) {
        const setting tuned(xp_io_buffer_size, size);
        const channel files(memfd_create("in", 0), memfd_create("out", 0));
        EXPECT_EQ(pwrite(files[0], bytes.data(), bytes.size(), 0), 20'000);
        int64_t total = -1;
        const fault_io count(call::read, INT_MAX, EIO);
        EXPECT_EQ(xp_transfer(files[0], files[1], &total, 1000, nullptr), IOERROR_EOF);
        EXPECT_TRUE(total == 20'000 && count.calls() == reads) << size;
        EXPECT_TRUE(pread(files[1], got.data(), 20'001, 0) == 20'000 && got.starts_with(bytes));
    }
}

TEST(Io, TransferCountsWhatTheFilterLeaves) {
    channel in(sockets), out(sockets);
    repeater doubled{.times = 2}, dropped{.times = 0};
    EXPECT_EQ(xp_transfer_all(in.with("abcdefgh")[0], out[1], 3, 0, &doubled.base), 3);
    EXPECT_EQ(xp_transfer_all(in[0], out[1], 2, 0, &dropped.base), 0);
    EXPECT_EQ(xp_transfer_all(not_open, not_open, 0, 0, nullptr), 0);
    EXPECT_EQ(xp_transfer_all(in[0], out[1], 9, 0, nullptr), IOERROR_READTIMEOUT);
    int64_t total = 0;
    EXPECT_EQ(xp_transfer(in.with("xy")[0], out[1], &total, 0, &doubled.base), IOERROR_READTIMEOUT);
    EXPECT_EQ(total, 4);
    EXPECT_EQ(xp_transfer(in.with("z")[0], not_open, nullptr, 0, nullptr), IOERROR_POLLERR);
    EXPECT_EQ(xp_transfer(in.with("z")[0], out[1], nullptr, 0, &dropped.base), 0);
    EXPECT_EQ(doubled.seen + dropped.seen + out.arrived(), "3< 2< 2< 1< aabbccfghxxyy");
}

TEST(Io, RelayMovesEightBytesAtATimeUntilSomethingEndsIt) {
    channel first(sockets), second(sockets);
    repeater seen;
    first.with("seventeen letters"), second.with("with nine");
    EXPECT_EQ(xp_bitransfer_ex(first[0], first[0], second[0], second[0], 0, &seen.base), IOERROR_TIMEOUT);
    EXPECT_EQ(seen.seen + first.arrived(1) + second.arrived(1), "8> 8< 8> 1< 1> with nineseventeen letters");
    EXPECT_EQ(xp_bitransfer_ex(not_open, first[0], first[0], first[0], 0, nullptr), IOERROR_POLLERR);
    signal(SIGPIPE, SIG_IGN); // pipes raise it
    const struct {
        const char *name, *in, *out; // what happened at the input and the output of one direction
        channel::kind kind;
        call failing;
        int nth, expected;
        const char *seen;
    } cases[] = {
        {"closed", "1", "", sockets, call::poll, 0, IOERROR_EOF, ""},
        {"hang-up alone", "1", "", pipes, call::poll, 0, IOERROR_HUP, ""},
        {"hang-up with data", "d1", "", pipes, call::write, 1, IOERROR_HUP, "8> "}, // and no write
        {"reader gone", "d", "0", pipes, call::poll, 0, IOERROR_WRITE, "8> "},
        {"wait fails", "d", "", pipes, call::poll, 1, IOERROR_POLL, ""},
        {"read fails", "d", "", pipes, call::read, 1, IOERROR_READ, ""},
        {"stuck: polls on and on", "d", "f", pipes, call::poll, 50, IOERROR_POLL, "8> "},
    };
    for (const auto &row : cases)
        for (const bool back : {false, true}) { // from the second endpoint to the first
            channel in(row.kind), out(pipes), idle(pipes);
            in.play(row.in), out.play(row.out);
            repeater filter;
            const fault_io fault(row.failing, row.nth ? row.nth : INT_MAX, EINTR);
            EXPECT_EQ(back ? xp_bitransfer_ex(idle[0], out[1], in[0], idle[1], 10'000, &filter.base)
                           : xp_bitransfer_ex(in[0], idle[1], idle[0], out[1], 10'000, &filter.base),
                      row.expected)
                << row.name;
            EXPECT_EQ(fault.fired(), row.nth && row.failing != call::write) << row.name;
            EXPECT_EQ(filter.seen, *row.seen && back ? "8< " : row.seen) << row.name;
        }
}

TEST(Io, FormattedOutputGoesOutInAreas) {
    const int lengths_waits_and_writes[][3] = {{0, 0, 0}, {8191, 0, 1}, {8192, 1, 1}, {8193, 1, 2}, {16384, 2, 2}};
    for (const auto &[length, waits, writes] : lengths_waits_and_writes) // a wait for each full area
        for (const call counted : {call::poll, call::write}) {
            const owned file(memfd_create("out", 0));
            const fault_io count(counted, INT_MAX, EIO);
            EXPECT_EQ(xp_fdprintf(file.fd, 1000, "%*s", length, ""), length);
            EXPECT_EQ(count.calls(), counted == call::poll ? waits : writes) << length;
            EXPECT_EQ(lseek(file.fd, 0, SEEK_CUR), length);
        }
    const setting tuned(xp_io_sigsafe, 1);
    channel c(pipes);
    for (const int error : {EINTR, 0}) { // not repeated, and short
        const fault_io last_write(call::write, 1, error);
        EXPECT_TRUE(xp_fdprintf(c[1], 1000, "ab%s", "c") == (error ? -1 : 3) && last_write.calls() == 1);
    }
    EXPECT_EQ(c.arrived(), "a");
    for (const int length : {8192, 8193})
        EXPECT_EQ(xp_fdprintf(c.fill()[1], 0, "%*s", length, ""), IOERROR_WRITETIMEOUT);
}
