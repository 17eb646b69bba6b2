// Copies and relays of io.h. Their buffers live on the caller's stack: nothing here allocates.
#include <alloca.h>

#include <algorithm>

#include "vorncore/io/internal/syscall.h"
#include "vorncore/io/io.h"

using namespace vorncore;

namespace {

constexpr int largest_copy_buffer = 1 << 20; // it lies on the stack
constexpr int relay_read = 8; // kept: callers depend on the relay's pieces, it does not follow xp_io_buffer_size

int copy_buffer_size() { return std::min(buffer_size(), largest_copy_buffer); }

/// The bytes to write for those read; their number is left in `count`.
char *filtered(xp_iofilter *filter, char *data, int32_t *count, int direction) {
    return filter ? filter->filter(filter, data, count, direction) : data;
}

/// Reads once and writes what the filter makes of it: the bytes written, or the result below 1 that ends the copy.
int64_t copy_piece(int input, sink &to, char *buffer, int limit, int timeout, xp_iofilter *filter) {
    int32_t count = xp_read_timeout(input, buffer, limit, timeout);
    if (count < 0) return count;
    const char *data = filtered(filter, buffer, &count, 0);
    return to.write_all(data, count, timeout);
}

/// One direction of a relay: bytes `next[0 .. pending - 1]` are read and filtered, and not written yet.
struct relay_way {
    int input;
    sink to;
    int direction;
    char *buffer;
    const char *next = nullptr;
    int32_t pending = 0;

    /// 0, or the code that ends the relay.
    int drain(int events) {
        if (pending <= 0 || !(events & POLLOUT)) return 0;
        const ssize_t written = to.write_once(next, static_cast<size_t>(pending));
        if (written < 1) return IOERROR_WRITE;
        next += written;
        pending -= static_cast<int32_t>(written);
        return 0;
    }

    int fill(int events, xp_iofilter *filter) {
        if (pending > 0 || !(events & POLLIN)) return 0;
        const ssize_t got = read_once(input, buffer, relay_read);
        if (got < 1) return got == 0 ? IOERROR_EOF : IOERROR_READ;
        pending = static_cast<int32_t>(got);
        next = filtered(filter, buffer, &pending, direction);
        return 0;
    }
};

/// Waits once and moves what is ready; 0 to go on. Outputs are waited for, both of them, only while bytes are pending.
int relay_pass(relay_way &to_second, relay_way &to_first, int timeout, xp_iofilter *filter) {
    pollfd entries[4] = {
        {to_second.input, POLLIN, 0},
        {to_first.input, POLLIN, 0},
        {to_first.to.descriptor(), POLLOUT, 0},
        {to_second.to.descriptor(), POLLOUT, 0},
    };
    const nfds_t waited_on = to_second.pending > 0 || to_first.pending > 0 ? 4 : 2;
    const int ready = poll_once(entries, waited_on, timeout);
    if (ready < 0) return IOERROR_POLL;
    if (ready == 0) return IOERROR_TIMEOUT;
    int seen = 0;
    for (const pollfd &entry : entries) seen |= entry.revents; // those not waited on hold none

    if (const int code = to_first.drain(entries[2].revents)) return code;
    if (const int code = to_second.drain(entries[3].revents)) return code;
    if (const int code = to_second.fill(entries[0].revents, filter)) return code;
    if (const int code = to_first.fill(entries[1].revents, filter)) return code;
    // After the reads, so that a filter has seen what came with the hang-up.
    if (seen & POLLHUP) return IOERROR_HUP;
    return seen & (POLLERR | POLLNVAL) ? IOERROR_POLLERR : 0;
}

} // namespace

int xp_transfer(int input, int output, int64_t *total, int timeout, xp_iofilter *filter) {
    const int size = copy_buffer_size();
    char *const buffer = static_cast<char *>(alloca(static_cast<size_t>(size)));
    sink to(output);
    int64_t written, sum = 0;
    while ((written = copy_piece(input, to, buffer, size, timeout, filter)) > 0) sum += written;
    if (total) *total = sum;
    return static_cast<int>(written);
}

int64_t xp_transfer_all(int input, int output, int64_t count, int timeout, xp_iofilter *filter) {
    const int size = copy_buffer_size();
    char *const buffer = static_cast<char *>(alloca(static_cast<size_t>(size)));
    sink to(output);
    for (int64_t left = count; left > 0;) {
        const int limit = static_cast<int>(std::min<int64_t>(left, size));
        const int64_t written = copy_piece(input, to, buffer, limit, timeout, filter);
        if (written < 1) return written;
        left -= written;
    }
    return count;
}

int xp_bitransfer_ex(int first_in, int first_out, int second_in, int second_out, int timeout, xp_iofilter *filter) {
    const size_t size =
        static_cast<size_t>(std::max(copy_buffer_size(), relay_read)); // room for filters that fill it up
    relay_way to_second{first_in, sink(second_out), 1, static_cast<char *>(alloca(size))};
    relay_way to_first{second_in, sink(first_out), 0, static_cast<char *>(alloca(size))};
    for (;;)
        if (const int code = relay_pass(to_second, to_first, timeout, filter)) return code;
}
