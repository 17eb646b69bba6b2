#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "vorncore/io/io.h"

namespace {

struct ends { // a socket pair, a pipe, or two devices
    int in, out;
    ends(int first, int second) : in(first), out(second) {}
    explicit ends(int (*make)(int *)) {
        int pair[2] = {-1, -1};
        make(pair);
        in = pair[0];
        out = pair[1];
    }
    ~ends() {
        close(in);
        close(out);
    }
};
int sockets(int *pair) { return socketpair(AF_UNIX, SOCK_STREAM, 0, pair); }

// A log line to /dev/null: what formatting and the call cost.
template <class Print>
void print_line(benchmark::State &state, Print print) {
    const ends device(-1, open("/dev/null", O_WRONLY));
    int n = 0;
    for (auto _ : state) print(device.out, "%08x %s: %d requests, %u bytes\n", n, "worker", n, 4096u), n++;
}
void vorncore_print(benchmark::State &state) {
    print_line(state, [](int fd, auto... all) { xp_fdprintf(fd, -1, all...); });
}
void libc_print(benchmark::State &state) {
    print_line(state, [](int fd, auto... all) { dprintf(fd, all...); });
}

// 1 MiB from /dev/zero to /dev/null in pieces of 8192 bytes. range: the time-out.
constexpr int64_t mebibyte = 1 << 20;
template <class Copy>
void copy(benchmark::State &state, Copy copy_all) {
    const ends devices(open("/dev/zero", O_RDONLY), open("/dev/null", O_WRONLY));
    for (auto _ : state) copy_all(devices.in, devices.out, static_cast<int>(state.range(0)));
    state.SetBytesProcessed(state.iterations() * mebibyte);
}
void vorncore_copy(benchmark::State &state) {
    copy(state, [](int in, int out, int timeout) { xp_transfer_all(in, out, mebibyte, timeout, nullptr); });
}
void loop_copy(benchmark::State &state) {
    copy(state, [](int in, int out, int timeout) {
        char buffer[8192];
        const auto ready = [=](int fd, short event) {
            pollfd entry{fd, event, 0};
            return timeout < 0 || (poll(&entry, 1, timeout) == 1 && entry.revents & event);
        };
        for (int64_t left = mebibyte; left > 0;) {
            if (!ready(in, POLLIN)) return;
            const ssize_t got = read(in, buffer, static_cast<size_t>(std::min<int64_t>(left, sizeof buffer)));
            if (got <= 0 || !ready(out, POLLOUT) || write(out, buffer, static_cast<size_t>(got)) != got) return;
            left -= got;
        }
    });
}

// One small write, and the read that makes room again. range: 0 a socket, 1 a pipe.
template <class Write, class Read>
void exchange(benchmark::State &state, Write write_one, Read read_one) {
    const ends pair(state.range(0) == 0 ? sockets : static_cast<int (*)(int *)>(pipe));
    state.SetLabel(state.range(0) == 0 ? "socket" : "pipe");
    char bytes[64] = {};
    for (auto _ : state) {
        write_one(pair.out, bytes, 64);
        read_one(pair.in, bytes, 64);
    }
}
void vorncore_exchange(benchmark::State &state) {
    const auto write_one = [](int fd, const char *bytes, int length) { xp_write_timeout(fd, bytes, length, -1); };
    exchange(state, write_one, [](int fd, char *bytes, int length) { xp_read_timeout(fd, bytes, length, -1); });
}
void libc_exchange(benchmark::State &state) {
    const auto write_one = [](int fd, const char *bytes, size_t n) { benchmark::DoNotOptimize(write(fd, bytes, n)); };
    exchange(state, write_one, [](int fd, char *bytes, size_t n) { benchmark::DoNotOptimize(read(fd, bytes, n)); });
}

BENCHMARK(vorncore_print)->Name("print_line/vorncore");
BENCHMARK(libc_print)->Name("print_line/dprintf");
BENCHMARK(vorncore_copy)->Name("copy_1MiB/vorncore")->Arg(-1)->Arg(1000);
BENCHMARK(loop_copy)->Name("copy_1MiB/read+write")->Arg(-1)->Arg(1000);
BENCHMARK(vorncore_exchange)->Name("write_read_64/vorncore")->Arg(0)->Arg(1);
BENCHMARK(libc_exchange)->Name("write_read_64/write+read")->Arg(0)->Arg(1);

} // namespace
