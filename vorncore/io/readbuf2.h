/* Read buffer of the second kind: records out of a descriptor, gathered at one place.
 *
 * The calls are those of io/readbuf.h, and so are results, ownership, blocking and thread rule; only the memory
 * differs. Input is read into an area of `xp_io_buffer_size` bytes, whatever the size of a record, and each record is
 * copied from there into an area of its own: a record always starts at `record`, and its bytes in front of the next
 * call.
 *
 * Failures: as in io/readbuf.h. What a failed read leaves of a record stays in the record area and is the beginning of
 * the next record that is asked for; after a time-out, make the same call again. xprb2_read and xprb2_read_bufdata give
 * what is behind it. */
#ifndef VORNCORE_IO_READBUF2_H
#define VORNCORE_IO_READBUF2_H

#include <stdint.h>

#include "vorncore/base/membuf.h"
#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* One block: max_record bytes for the record, then input_size bytes of input. `timeout` may be assigned; the rest may
 * be read. */
typedef struct xprb2 {
    int32_t fd;            /* where data is read from; borrowed */
    int32_t timeout;       /* milliseconds for each read; -1, no limit, at first */
    char *input;           /* inside the block */
    char *input_position;  /* first byte of input that is not copied or handed out */
    char *input_end;       /* one past the last byte of input */
    int32_t input_size;    /* xp_io_buffer_size when the buffer was made, or 8192 if that was below 1 */
    char *record;          /* owned, the start of the block */
    char *record_position; /* where the next byte of the record goes: a failed call leaves a part of it */
    int32_t max_record;    /* bytes of the longest record, what ends it included */
    int32_t last_error;    /* code of the last failure (io/io.h), 0 when there was none */
    char *message;         /* owned, 256 bytes, null until a text is asked for */
    int32_t saved_errno;   /* errno at the last failure */
} xprb2;

void xp_init_readbuf2(xprb2 *rb, int descriptor, int max_record);
xprb2 *xp_create_readbuf2(int descriptor, int max_record);
void xp_close_readbuf2(xprb2 *rb);
void xp_destroy_readbuf2(xprb2 *rb);

/* Takes another descriptor: drops what is buffered, the part of a record too, and the last failure. */
void xprb2_reset(xprb2 *rb, int descriptor);

/* As their twins in io/readbuf.h. */
char *xprb2_read_to_delimiter(xprb2 *rb, char **end, int delimiter);
char *xprb2_read_to_pattern(xprb2 *rb, char **end, const char *pattern, int length);
/* As its twin, but only a record of max_record bytes or more gathers in `mb`, and only what has gathered there is lost
 * to the next call after a failed read. */
char *xprb2_read_to_delimiter_ex(xprb2 *rb, char **end, int delimiter, xp_membuf *mb);

/* Exactly `length` bytes, 0 to max_record, without a NUL. Kept for callers: when a failed call left more than that of a
 * record, the rest of it is dropped. */
char *xprb2_read_all(xprb2 *rb, int length);
/* The input that is there; when none is, what one read gives: at most max_record bytes, or input_size if that is more.
 * A failure leaves *length alone, but for IOERROR_EOF, which makes it 0. */
char *xprb2_read(xprb2 *rb, int *length);
/* The input that is there, or null and length 0; never reads, and never gives a part of a record. */
char *xprb2_read_bufdata(xprb2 *rb, int *length);

/* Puts bytes back (copied) in front of the input: 1, or 0 and IOERROR_OVERFLOW when it would be more than input_size
 * bytes. */
int xprb2_unread(xprb2 *rb, const void *data, int length);

/* As xprb_lasterrmsg. */
const char *xprb2_lasterrmsg(xprb2 *rb);

/* A stream over the buffer (base/stream.h): read is xprb2_read. Null when memory is short. */
xpi_istream *xprb2_create_istream(xprb2 *rb);

VORNCORE_END_DECLS

#endif
