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

constexpr int32_t usual_buffer_size = 8192;

/// The program's choice of a buffer size, where it is one.
inline int32_t buffer_size() { return xp_io_buffer_size < 1 ? usual_buffer_size : xp_io_buffer_size; }

/// Where bytes are written. A peer that is gone must not kill the process, so a socket is written with send(); what
/// turns out to be no socket gets write() from then on: a loop keeps its sink and pays for the question once. A length
/// that write() refuses is refused here: send() would cut it.
class sink {
  public:
    explicit sink(int descriptor) : descriptor_(descriptor) {}
    int descriptor() const { return descriptor_; }

    /// One system call, whatever interrupts it.
    ssize_t plain_write(const void *data, size_t length) {
        if (length > SSIZE_MAX) {
            errno = EINVAL;
            return -1;
        }
        if (may_be_socket_) {
            const ssize_t sent = send(descriptor_, data, length, MSG_NOSIGNAL);
            if (sent >= 0 || errno != ENOTSOCK) return sent;
            may_be_socket_ = false;
        }
        return write(descriptor_, data, length);
    }

    ssize_t write_once(const void *data, size_t length) {
        return as_configured([=, this] { return plain_write(data, length); });
    }

    /// xp_write_timeout and xp_write_all, on a sink that is kept.
    int write_timeout(const void *data, int length, int timeout);
    int64_t write_all(const void *data, int64_t length, int timeout);

  private:
    int descriptor_;
    bool may_be_socket_ = true;
};

inline int poll_once(pollfd *entries, nfds_t count, int timeout) {
    return as_configured([=] { return poll(entries, count, timeout); });
}

inline ssize_t read_once(int descriptor, void *buffer, size_t length) {
    return as_configured([=] { return read(descriptor, buffer, length); });
}

} // namespace vorncore
