// System calls as the library makes them: repeated after a signal where that is wanted, and without SIGPIPE.
#pragma once

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vorncore/io/io.h"

namespace vorncore {

/// The result of a system call, made again while a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

/// The same, if the program asked for it.
template <class Call>
auto as_configured(Call call) {
    return xp_io_sigsafe ? uninterrupted(call) : call();
}

/// One write. A peer that is gone must not kill the process, so a socket is written with send(); write() comes second
/// because sockets are what servers mostly write to. A length that write() refuses is refused here: send() would cut
/// it.
inline ssize_t plain_write(int descriptor, const void *data, size_t length) {
    if (length > SSIZE_MAX) {
        errno = EINVAL;
        return -1;
    }
    const ssize_t sent = send(descriptor, data, length, MSG_NOSIGNAL);
    return sent >= 0 || errno != ENOTSOCK ? sent : write(descriptor, data, length);
}

inline int poll_once(pollfd *entries, nfds_t count, int timeout) {
    return as_configured([=] { return poll(entries, count, timeout); });
}

inline ssize_t read_once(int descriptor, void *buffer, size_t length) {
    return as_configured([=] { return read(descriptor, buffer, length); });
}

inline ssize_t write_once(int descriptor, const void *data, size_t length) {
    return as_configured([=] { return plain_write(descriptor, data, length); });
}

} // namespace vorncore
