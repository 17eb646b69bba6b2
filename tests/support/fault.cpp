#include "support/fault.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <unistd.h>

using harness::call;

namespace {

struct plan {
    bool active = false;
    call which{};
    int nth = 0;
    int error = 0;
    int calls = 0;
    bool fired = false;
};
thread_local plan current;

bool hit(call which) {
    if (!current.active || current.which != which) return false;
    current.calls++;
    if (current.nth != 0 && current.calls != current.nth) return false;
    current.fired = true;
    return true;
}

bool fails(call which) {
    if (!hit(which) || current.error == 0) return false;
    errno = current.error;
    return true;
}

/// Runs a transfer of `length` bytes, of 1 byte, or not at all.
template <class Transfer>
ssize_t transfer(call which, size_t length, Transfer run) {
    if (!hit(which)) return run(length);
    if (current.error == 0) return run(length ? 1 : 0);
    errno = current.error;
    return -1;
}

} // namespace

extern "C" {
ssize_t __real_read(int, void *, size_t);
ssize_t __real_write(int, const void *, size_t);
ssize_t __real_recv(int, void *, size_t, int);
ssize_t __real_send(int, const void *, size_t, int);
int __real_poll(struct pollfd *, nfds_t, int);
int __real_socket(int, int, int);
int __real_connect(int, const struct sockaddr *, socklen_t);
int __real_bind(int, const struct sockaddr *, socklen_t);
int __real_fcntl(int, int, ...);
int __real_getsockopt(int, int, int, void *, socklen_t *);
int __real_setsockopt(int, int, int, const void *, socklen_t);
int __real_accept4(int, struct sockaddr *, socklen_t *, int);
int __real_close(int);

ssize_t __wrap_read(int fd, void *buffer, size_t length) {
    return transfer(call::read, length, [=](size_t n) { return __real_read(fd, buffer, n); });
}
ssize_t __wrap_write(int fd, const void *buffer, size_t length) {
    return transfer(call::write, length, [=](size_t n) { return __real_write(fd, buffer, n); });
}
ssize_t __wrap_recv(int fd, void *buffer, size_t length, int flags) {
    return transfer(call::recv, length, [=](size_t n) { return __real_recv(fd, buffer, n, flags); });
}
ssize_t __wrap_send(int fd, const void *buffer, size_t length, int flags) {
    return transfer(call::send, length, [=](size_t n) { return __real_send(fd, buffer, n, flags); });
}
int __wrap_poll(struct pollfd *entries, nfds_t count, int timeout) {
    return fails(call::poll) ? -1 : __real_poll(entries, count, timeout);
}
int __wrap_socket(int domain, int type, int protocol) {
    return fails(call::socket) ? -1 : __real_socket(domain, type, protocol);
}
int __wrap_connect(int fd, const struct sockaddr *address, socklen_t length) {
    return fails(call::connect) ? -1 : __real_connect(fd, address, length);
}
int __wrap_bind(int fd, const struct sockaddr *address, socklen_t length) {
    return fails(call::bind) ? -1 : __real_bind(fd, address, length);
}
int __wrap_fcntl(int fd, int command, ...) {
    if (fails(call::fcntl)) return -1;
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return __real_fcntl(fd, command, argument);
}
int __wrap_getsockopt(int fd, int level, int option, void *value, socklen_t *length) {
    return fails(call::getsockopt) ? -1 : __real_getsockopt(fd, level, option, value, length);
}
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t length) {
    return fails(call::setsockopt) ? -1 : __real_setsockopt(fd, level, option, value, length);
}
int __wrap_accept4(int fd, struct sockaddr *address, socklen_t *length, int flags) {
    return fails(call::accept) ? -1 : __real_accept4(fd, address, length, flags);
}
int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return fails(call::close) ? -1 : result;
}
}

namespace harness {

fault_io::fault_io(call which, int nth, int error) { current = {true, which, nth, error, 0, false}; }
fault_io::~fault_io() { current.active = false; }
bool fault_io::fired() const { return current.fired; }
int fault_io::calls() const { return current.calls; }

} // namespace harness
