// What the two read buffers share: reading, the searches for the end of a record, pushing bytes back, the stream.
//
// A search runs on a window: the positions of one buffer in local copies, which reach the record when the search ends
// or a read fails, and not when a record is too long. A window offers:
//     holds(n)         whether a record that ends with n bytes can fit at all
//     await(n)         reads until there is an unscanned byte that may be the last of such an end; false on failure
//     scan(ending)     first byte of the ending or null; what it passed over is scanned and part of the record
//     record(), scanned(), full()    the record so far, its length, and whether it has reached the maximum
//     spills()         whether the scanned bytes are to leave for the memory buffer
//     drop(), take()   forget the scanned bytes; the same and save the positions, giving the record
//     overflow()       the failure of a record that does not fit
#pragma once

#include <limits.h>
#include <string.h>

#include <algorithm>

#include "vorncore/base/membuf.h"
#include "vorncore/base/stream.h"
#include "vorncore/io/internal/lasterror.h"

namespace vorncore {

/// What ends a record. `matches(last)`: whether an occurrence of last_byte() completes the ending; everything before
/// it, back to the start of the record, lies in front of it.
struct byte_ending {
    char byte;

    static constexpr int length() { return 1; }
    char last_byte() const { return byte; }
    static bool matches(const char *) { return true; }
};

struct pattern_ending {
    const char *bytes;
    int count;

    int length() const { return count; }
    char last_byte() const { return bytes[count - 1]; }
    bool matches(const char *last) const {
        return memcmp(last - (count - 1), bytes, static_cast<size_t>(count - 1)) == 0;
    }
};

constexpr size_t readbuf_message_size = 256;

inline char *find_byte(char *from, char byte, ptrdiff_t length) {
    return static_cast<char *>(memchr(from, byte, static_cast<size_t>(length)));
}

/// One read into `room` bytes: the count, or the code of the failure, which the buffer then holds. A buffer without
/// room, one of record size 0, fails without reading: a read of nothing would look like the end of the input.
template <class Buffer>
int read_into(Buffer *rb, char *to, ptrdiff_t room) {
    const int length = static_cast<int>(std::min<ptrdiff_t>(room, INT_MAX));
    const int got = length > 0 ? xp_read_timeout(rb->fd, to, length, rb->timeout) : IOERROR_OVERFLOW;
    if (got < 0) set_failure(rb, got);
    return got;
}

template <class Buffer>
char *refuse(Buffer *rb) {
    set_failure(rb, IOERROR_OVERFLOW);
    return nullptr;
}

inline char *give(char *record, char **end, char *record_end) {
    if (end) *end = record_end;
    return record;
}

template <class Window, class Ending>
char *read_until(Window window, char **end, const Ending &ending) {
    if (!window.holds(ending.length())) return window.overflow();
    while (window.await(ending.length())) {
        if (char *record_end = window.scan(ending)) {
            *record_end = '\0';
            return give(window.take(), end, record_end);
        }
        if (window.full()) return window.overflow();
    }
    return nullptr;
}

/// A record of any length: what does not end in place gathers in `mb`.
template <class Window>
char *read_until_into(Window window, char **end, byte_ending ending, xp_membuf *mb) {
    xpmb_clear(mb);
    if (!window.holds(ending.length())) return window.overflow();
    const auto spill = [&](ptrdiff_t count) {
        return xpmb_add_data(mb, window.record(), static_cast<uint64_t>(count)) != 0;
    };
    while (window.await(ending.length())) {
        if (char *record_end = window.scan(ending)) {
            *record_end = '\0';
            if (mb->cursor == mb->data) return give(window.take(), end, record_end);
            if (!spill(record_end - window.record())) return window.overflow();
            window.take();
            char *text = xpmb_tostr(mb);
            return give(text, end, mb->cursor);
        }
        if (window.spills()) {
            if (!spill(window.scanned())) return window.overflow();
            window.drop();
        }
    }
    return nullptr;
}

/// Puts `length` bytes in front of those from `position` to `end`, all in an area of `limit` bytes or more.
/// The data may be what the buffer itself handed out.
template <class Buffer>
bool push_back(Buffer *rb, char *area, int limit, char *&position, char *&end, const void *data, int length) {
    const ptrdiff_t pending = end - position;
    if (length < 0 || pending + length > limit) {
        refuse(rb);
        return false;
    }
    if (pending == 0) {
        end = area + length;
        position = area;
    } else if (position - area < length) {
        memmove(area + length, position, static_cast<size_t>(pending));
        end = area + length + pending;
        position = area;
    } else {
        position -= length;
    }
    if (length > 0) memmove(position, data, static_cast<size_t>(length));
    return true;
}

template <class Buffer>
Buffer *buffer_behind(void *stream) {
    return static_cast<Buffer *>(static_cast<xpi_istream *>(stream)->context);
}

/// An input stream over a read buffer, made of the buffer's own operations.
template <auto lasterrmsg, auto read, class Buffer>
xpi_istream *create_istream(Buffer *rb) {
    return create_record<xpi_istream>([=](xpi_istream *stream) {
        *stream = {
            free,
            [](void *s) { return lasterrmsg(buffer_behind<Buffer>(s)); },
            [](void *s) { return buffer_behind<Buffer>(s)->last_error; },
            [](void *s, uint32_t *length) { return read(buffer_behind<Buffer>(s), reinterpret_cast<int *>(length)); },
            rb,
        };
        return true;
    });
}

} // namespace vorncore
