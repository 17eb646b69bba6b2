#include "vorncore/io/io.h"

#include <string.h>

#include <algorithm>
#include <iterator>

#include "vorncore/base/internal/staging.h"
#include "vorncore/io/internal/syscall.h"

using namespace vorncore;

int32_t xp_io_sigsafe = 0;
int32_t xp_io_buffer_size = usual_buffer_size;

namespace {

constexpr const char *code_names[] = {
    "IOERROR_EOF",     "IOERROR_CONNECTTIMEOUT", "IOERROR_WRITETIMEOUT", "IOERROR_READTIMEOUT",
    "IOERROR_TIMEOUT", "IOERROR_SOCKET",         "IOERROR_BIND",         "IOERROR_CONNECT",
    "IOERROR_WRITE",   "IOERROR_READ",           "IOERROR_SOCKETOPT",    "IOERROR_POLL",
    "IOERROR_FCNTL",   "IOERROR_RESOLVE",        "IOERROR_OVERFLOW",     "IOERROR_POLLERR",
    "IOERROR_HUP",     "IOERROR_SELECT",         "IOERROR_SELECTERR",
};
static_assert(std::size(code_names) == IOERROR_SELECTERR - IOERROR_EOF + 1);

/// 0 when the descriptor is ready, or when nobody limits the time; else the code.
int wait_until(short event, int descriptor, int timeout, int timeout_code) {
    if (timeout < 0) return 0;
    pollfd entry{descriptor, event, 0};
    const int ready = poll_once(&entry, 1, timeout);
    if (ready == 0) return timeout_code;
    if (ready < 0) return IOERROR_POLL;
    if (entry.revents & event) return 0;
    if (entry.revents & POLLHUP) return IOERROR_HUP;
    return entry.revents & (POLLERR | POLLNVAL) ? IOERROR_POLLERR : IOERROR_POLL;
}

/// Where formatted output goes, and how the last full area fared.
struct formatted_to {
    sink out;
    int timeout;
    int64_t result = 0;
};
using descriptor_staging = staging<8192, formatted_to>;

/// What one time-limited call is asked to move of a count that may not fit an int.
int one_piece(int64_t left) { return static_cast<int>(std::min<int64_t>(left, INT_MAX)); }

} // namespace

int sink::write_timeout(const void *data, int length, int timeout) {
    if (const int code = wait_until(POLLOUT, descriptor_, timeout, IOERROR_WRITETIMEOUT)) return code;
    const ssize_t written = write_once(data, static_cast<size_t>(length));
    return written < 0 ? IOERROR_WRITE : static_cast<int>(written);
}

int64_t sink::write_all(const void *data, int64_t length, int timeout) {
    const char *next = static_cast<const char *>(data);
    for (int64_t left = length; left > 0;) {
        const int written = write_timeout(next, one_piece(left), timeout);
        if (written < 1) return written;
        next += written;
        left -= written;
    }
    return length;
}

const char *xp_ioerror_str(int code) {
    if (code < IOERROR_EOF || code > IOERROR_SELECTERR) return "NETERR_UNKNOWN";
    return code_names[code - IOERROR_EOF];
}

int xp_sigsafe_poll(struct pollfd *entries, nfds_t count, int timeout) {
    return uninterrupted([=] { return poll(entries, count, timeout); });
}

ssize_t xp_sigsafe_read(int descriptor, void *buffer, size_t length) {
    return uninterrupted([=] { return read(descriptor, buffer, length); });
}

ssize_t xp_sigsafe_write(int descriptor, const void *buffer, size_t length) {
    return uninterrupted([=, out = sink(descriptor)]() mutable { return out.plain_write(buffer, length); });
}

int xp_write_timeout(int descriptor, const void *data, int length, int timeout) {
    return sink(descriptor).write_timeout(data, length, timeout);
}

int xp_read_timeout(int descriptor, void *buffer, int length, int timeout) {
    if (const int code = wait_until(POLLIN, descriptor, timeout, IOERROR_READTIMEOUT)) return code;
    const ssize_t got = read_once(descriptor, buffer, static_cast<size_t>(length));
    if (got == 0) return IOERROR_EOF;
    return got < 0 ? IOERROR_READ : static_cast<int>(got);
}

int64_t xp_write_all(int descriptor, const void *data, int64_t length, int timeout) {
    return sink(descriptor).write_all(data, length, timeout);
}

int64_t xp_read_all(int descriptor, void *buffer, int64_t length, int timeout) {
    char *next = static_cast<char *>(buffer);
    for (int64_t left = length; left > 0;) {
        const int got = xp_read_timeout(descriptor, next, one_piece(left), timeout);
        if (got < 0) return got;
        next += got;
        left -= got;
    }
    return length;
}

int64_t xp_write_str(int descriptor, const char *text, int timeout) {
    return xp_write_all(descriptor, text, static_cast<int64_t>(strlen(text)), timeout);
}

static int32_t __fdout_newbuf__(xp_fmt_target *target) {
    auto &[out, timeout, result] = static_cast<descriptor_staging *>(target)->device;
    result = out.write_all(target->begin, descriptor_staging::size, timeout);
    return result > 0;
}

int xp_vfdprintf(int descriptor, int timeout, const char *format, va_list arguments) {
    descriptor_staging staged({sink(descriptor), timeout}, __fdout_newbuf__);
    const int count = staged.format(format, arguments, [](descriptor_staging &to, uint32_t length) {
        return to.device.out.plain_write(to.area, length) >= 0;
    });
    return staged.device.result < 0 ? static_cast<int>(staged.device.result) : count;
}

int xp_fdprintf(int descriptor, int timeout, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xp_vfdprintf(descriptor, timeout, format, arguments);
    va_end(arguments);
    return count;
}
