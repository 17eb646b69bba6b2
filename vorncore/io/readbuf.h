/* Read buffer: records out of a descriptor, found in place.
 *
 * Hands out what a peer or a file sends as records: text up to a delimiter byte, up to a pattern such as an empty line,
 * an exact number of bytes, or whatever is there. A record is a pointer into the buffer's own memory, valid until the
 * next call on the buffer; nothing is allocated or copied for it.
 *
 *     xprb in;
 *     xp_init_readbuf(&in, fd, 8192);
 *     in.timeout = 5000;
 *     char *line, *end;
 *     while ((line = xprb_read_line(&in, &end))) handle(line, end - line);
 *     if (in.last_error != IOERROR_EOF) fprintf(stderr, "%s\n", xprb_lasterrmsg(&in));
 *     xp_close_readbuf(&in);
 *
 * Failures: a call that reads gives null and keeps the code and `errno` for xprb_lasterrmsg. Each read is one
 * xp_read_timeout (io/io.h), so `xp_io_sigsafe` decides about signals. What has arrived stays in the buffer after a
 * failed read: after a time-out, make the same call again; at the end of the input, xprb_read_bufdata gives the
 * unfinished record. IOERROR_OVERFLOW from a search, a record that does not fit, leaves the buffer fit for xprb_reset
 * and xp_close_readbuf only. From the other calls, or for a length that cannot be right (negative, above the maximum, a
 * pattern of no bytes), it leaves everything as it was.
 *
 * The descriptor is borrowed: no call closes it. The calls that read block until a byte arrives, at most `timeout` for
 * each wait.
 *
 * io/readbuf2.h does the same with an input area of its own: every record starts at the same place, and what is read at
 * once does not depend on the size of a record.
 *
 * Threads: a buffer belongs to one thread at a time. */
#ifndef VORNCORE_IO_READBUF_H
#define VORNCORE_IO_READBUF_H

#include <stdint.h>

#include "vorncore/base/membuf.h"
#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* block <= data <= scan <= data_end <= block_end. `timeout` may be assigned; the rest may be read. */
typedef struct xprb {
    int32_t fd;         /* where data is read from; borrowed */
    int32_t max_record; /* bytes of the longest record, what ends it included */
    int32_t timeout;    /* milliseconds for each read; -1, no limit, at first */
    char *block;        /* owned, twice max_record bytes */
    char *block_end;
    char *data;          /* first byte not handed out: the start of the next record */
    char *data_end;      /* one past the last byte read */
    char *scan;          /* where the search goes on: no record ends between data and here */
    int32_t last_error;  /* code of the last failure (io/io.h), 0 when there was none */
    char *message;       /* owned, 256 bytes, null until a text is asked for */
    int32_t saved_errno; /* errno at the last failure */
} xprb;

void xp_init_readbuf(xprb *rb, int descriptor, int max_record);
xprb *xp_create_readbuf(int descriptor, int max_record);
void xp_close_readbuf(xprb *rb);
void xp_destroy_readbuf(xprb *rb);

/* Takes another descriptor: drops what is buffered and the last failure, keeps block and time-out. */
void xprb_reset(xprb *rb, int descriptor);

/* The record in front of a delimiter byte, which becomes its NUL. The position of that NUL is stored through `end`,
 * unless that is null. At most max_record - 1 bytes; a longer record fails with IOERROR_OVERFLOW. */
char *xprb_read_to_delimiter(xprb *rb, char **end, int delimiter);
/* The same for a record of any length. It is in place when it had arrived in one piece of less than max_record bytes;
 * otherwise it gathers in `mb`, which the call clears first, and the text of `mb` is returned. A record that `mb`
 * refuses fails with IOERROR_OVERFLOW. A null `mb` makes this xprb_read_to_delimiter.
 * Kept for callers: the beginning of a record that is interrupted by a failed read has moved into `mb`, where the next
 * call drops it; a caller that goes on after a time-out takes it from there first. */
char *xprb_read_to_delimiter_ex(xprb *rb, char **end, int delimiter, xp_membuf *mb);
/* The record in front of `pattern`, 1 to max_record bytes, whose first byte becomes the NUL. Record and pattern
 * together fit in max_record bytes, or the call fails with IOERROR_OVERFLOW. */
char *xprb_read_to_pattern(xprb *rb, char **end, const char *pattern, int length);
/* A line without its "\n" or "\r\n". `*end` means nothing after a failure. */
char *xprb_read_line(xprb *rb, char **end);

/* Exactly `length` bytes, 0 to max_record, without a NUL. */
char *xprb_read_all(xprb *rb, int length);
/* What is buffered; when nothing is, what one read gives, at most max_record bytes. A failure leaves *length alone,
 * but for IOERROR_EOF, which makes it 0. */
char *xprb_read(xprb *rb, int *length);
/* The same, but at most `maximum` bytes; what is left stays buffered. */
char *xprb_read_upto(xprb *rb, int *length, int maximum);
/* What is buffered, or null and length 0; never reads. */
char *xprb_read_bufdata(xprb *rb, int *length);

/* Puts bytes back (copied) in front of what is buffered: 1, or 0 and IOERROR_OVERFLOW when it would be more than
 * max_record bytes. Kept for callers: they go in front of `scan`, so the part of a record that a failed search left
 * behind is dropped. */
int xprb_unread(xprb *rb, const void *data, int length);

/* "NO ERROR", or the last failure as "IOERROR_READ:errno=104<Connection reset by peer>". Valid until the next call. */
const char *xprb_lasterrmsg(xprb *rb);

/* A stream over the buffer (base/stream.h): read is xprb_read. Null when memory is short. */
xpi_istream *xprb_create_istream(xprb *rb);

VORNCORE_END_DECLS

#endif
