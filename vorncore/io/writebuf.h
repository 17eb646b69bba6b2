/* Write buffer: output for one descriptor, collected in blocks.
 *
 *     xpwb *wb = xp_create_writebuf(fd, 8192);
 *     xpwb_printf(wb, "GET /%s?q=", path);
 *     xpwb_write_str_url_encode(wb, query);
 *     if (xpwb_flush(wb) != 1) puts(xpwb_lasterrmsg(wb));
 *     xp_destroy_writebuf(wb);
 *
 * Bytes go into the current block; when it is full, and on xpwb_flush, it is written out. Only then is the descriptor
 * touched. A blocking descriptor blocks there, for the time-out at most. When a non-blocking one cannot take more, the
 * full block is queued and output goes on into a new one, up to `max_pending` queued blocks; flush again once the
 * descriptor is writable.
 *
 * Writers return what they took, 0 when the limit of pending blocks was hit, and -1 when the buffer has failed: after
 * either, status is 0, what the buffer still holds is never written, and every call fails until xpwb_reset. A text that
 * is empty gives 0 too: the status tells. Sockets raise no SIGPIPE (io/io.h).
 *
 * Threads: a buffer belongs to one thread at a time. */
#ifndef VORNCORE_IO_WRITEBUF_H
#define VORNCORE_IO_WRITEBUF_H

#include <stdarg.h>
#include <stdint.h>

#include "vorncore/base/datalist.h"
#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* start <= flush_position <= write_position <= start + block_size. */
typedef struct xpwb_block {
    char *start;          /* owned */
    char *write_position; /* end of the bytes in it */
    char *flush_position; /* the first byte that is not written to the descriptor yet */
} xpwb_block;

/* Sees bytes right before every attempt to write them, on the thread that writes: what is not taken is shown again with
 * the next attempt. It must not write to the buffer. */
typedef void (*xp_flush_noti_fn)(void *argument, const char *data, int length);

typedef struct xpwb {
    int32_t last_error;          /* code of io/io.h, 0 when none */
    char *message;               /* owned: text of the last error, made when asked for */
    int32_t saved_errno;         /* errno at the last error */
    int32_t status;              /* 1 all written or in the current block, 2 output pending, 0 failed */
    int32_t fd;                  /* borrowed: never closed */
    int32_t block_size;          /* bytes */
    xpwb_block current;          /* the block being filled */
    xp_datalist pending;         /* of xpwb_block: full blocks, oldest first */
    int32_t timeout;             /* may be assigned: ms for each write, -1 (at first) no limit */
    int32_t max_pending;         /* may be assigned: blocks in the queue, -1 (at first) no limit */
    xp_flush_noti_fn flush_noti; /* null: none */
    void *noti_argument;
} xpwb;

/* A block size below 1 counts as 1. */
void xp_init_writebuf(xpwb *wb, int descriptor, int block_size);
xpwb *xp_create_writebuf(int descriptor, int block_size);
/* Writes what is still there, trying again every 100 ms while the descriptor would block: it may wait for ever. A
 * failed buffer drops it, and so does an xpwb_reset(wb, -1) right before. */
void xp_close_writebuf(xpwb *wb);
void xp_destroy_writebuf(xpwb *wb);

/* Drops everything and starts again on a descriptor, without error. */
void xpwb_reset(xpwb *wb, int descriptor);
/* Installs a flush notification, or none; borrows the argument. Returns the buffer. */
xpwb *xpwb_set_flush_noti(xpwb *wb, xp_flush_noti_fn function, void *argument);

/* `length` bytes; of a negative length none, and it is given back. */
int xpwb_write(xpwb *wb, const void *data, int length);
/* A text, without its NUL. */
int xpwb_write_str(xpwb *wb, const char *text);
/* Texts up to a null; the sum of what was taken, or -1. Kept for callers: when the last text hits the limit, the sum of
 * those before it. */
int xpwb_write_str_v(xpwb *wb, const char *text, ...);
int xpwb_write_char(xpwb *wb, int character);
/* A text URL-encoded (base/strutil.h). The result counts characters of the text, not bytes of the output. */
int xpwb_write_str_url_encode(xpwb *wb, const char *text);
/* Everything that a stream gives; its failure ends the copy like its end does. The result counts bytes. */
int64_t xpwb_write_istream(xpwb *wb, xpi_istream *stream);
/* Formats (base/format.h) straight into the blocks. The number of bytes, or -1, also when the limit was hit. Output
 * that just fills a block leaves it full: the next byte writes it. */
int xpwb_vprintf(xpwb *wb, const char *format, va_list arguments);
int xpwb_printf(xpwb *wb, const char *format, ...);

/* Writes the queue and the current block: 1 all written, 2 the descriptor would block, 0 failed. */
int xpwb_flush(xpwb *wb);
/* One attempt to write one block, which the caller owns or the buffer holds: the same results; status is not changed.
 */
int xpwb_flush_anonbuf(xpwb *wb, xpwb_block *block);

/* "CODE:errno=N<system text>", at most 2047 bytes; "NO ERROR" before a failure. Valid until the next failure. A write
 * that would block counts as one, and its text stays although a later flush succeeds. */
const char *xpwb_lasterrmsg(xpwb *wb);

/* An output stream over the buffer, which must outlive it. Its flush succeeds also when output stays pending. */
xpi_ostream *xpwb_create_ostream(xpwb *wb);

VORNCORE_END_DECLS

#endif
