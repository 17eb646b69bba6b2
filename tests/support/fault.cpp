#include "support/fault.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

using harness::call;

namespace {

struct plan {
    bool active = false;
    call which{};
    int nth = 0, error = 0, calls = 0;
    bool fired = false;
};
thread_local plan current;
thread_local std::optional<timeval> pinned;

/// Whether a call is to fail; a transfer of `*length` bytes may be cut to 1 byte instead.
bool fails(call which, size_t *length = nullptr) {
    if (!current.active || current.which != which) return false;
    current.calls++;
    if (current.nth != 0 && current.calls != current.nth) return false;
    current.fired = true;
    if (current.error)
        errno = current.error;
    else if (length)
        *length = std::min<size_t>(*length, 1);
    return current.error;
}

} // namespace

// The call under test, or its failure.
#define WRAP(result, name, parameters, failure, arguments)                                                             \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters { return fails failure ? -1 : __real_##name arguments; }

extern "C" {
WRAP(ssize_t, read, (int fd, void *to, size_t n), (call::read, &n), (fd, to, n))
WRAP(ssize_t, write, (int fd, const void *from, size_t n), (call::write, &n), (fd, from, n))
WRAP(ssize_t, recv, (int fd, void *to, size_t n, int flags), (call::recv, &n), (fd, to, n, flags))
WRAP(ssize_t, send, (int fd, const void *from, size_t n, int flags), (call::send, &n), (fd, from, n, flags))
WRAP(int, poll, (pollfd * entries, nfds_t n, int timeout), (call::poll), (entries, n, timeout))
WRAP(int, socket, (int domain, int type, int protocol), (call::socket), (domain, type, protocol))
WRAP(int, connect, (int fd, const sockaddr *to, socklen_t n), (call::connect), (fd, to, n))
WRAP(int, bind, (int fd, const sockaddr *to, socklen_t n), (call::bind), (fd, to, n))
WRAP(int, getsockopt, (int fd, int level, int o, void *to, socklen_t *n), (call::getsockopt), (fd, level, o, to, n))
WRAP(int, setsockopt, (int fd, int level, int o, const void *v, socklen_t n), (call::setsockopt), (fd, level, o, v, n))
WRAP(int, fcntl, (int fd, int command, void *argument), (call::fcntl), (fd, command, argument))
WRAP(int, accept4, (int fd, sockaddr *from, socklen_t *n, int flags), (call::accept), (fd, from, n, flags))

int __real_close(int);
int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return fails(call::close) ? -1 : result;
}
int __real_gettimeofday(timeval *, void *);
int __wrap_gettimeofday(timeval *now, void *zone) {
    if (!pinned) return __real_gettimeofday(now, zone);
    *now = *pinned;
    return 0;
}
}

namespace harness {

fault_io::fault_io(call which, int nth, int error) { current = {true, which, nth, error, 0, false}; }
fault_io::~fault_io() { current.active = false; }
bool fault_io::fired() const { return current.fired; }
int fault_io::calls() const { return current.calls; }

pinned_clock::pinned_clock(timeval moment) { pinned = moment; }
pinned_clock::~pinned_clock() { pinned.reset(); }

} // namespace harness
