/* I/O on descriptors: the error codes of the whole library, time-limited reads and writes, and copies between
 * descriptors.
 *
 * Results are a count of bytes (0 or more) or one of the negative codes below; `errno` stays as the failing system call
 * set it. A call keeps nothing: no record, no heap block, and after a failed loop nobody knows how much went through.
 *
 *     char reply[64];
 *     if (xp_write_str(fd, "PING\r\n", 500) > 0) n = xp_read_timeout(fd, reply, sizeof reply, 500);
 *     if (n < 0) fprintf(stderr, "%s\n", xp_ioerror_str(n));
 *
 * Time-outs are milliseconds for each single wait, so a loop may take one time-out per piece. 0 looks once without
 * waiting. A negative time-out sets no limit and skips the wait: the call goes straight to the system call, which
 * blocks unless the descriptor is non-blocking.
 *
 * Signals: a system call that a signal interrupts fails, unless `xp_io_sigsafe` is set; then it is made again, a wait
 * with its full time-out. A write to a socket raises no SIGPIPE: it is made as send() with MSG_NOSIGNAL, and as write()
 * where send() answers that the descriptor is no socket. So a lost peer is a result (EPIPE in `errno`). A pipe has no
 * such switch, its SIGPIPE remains the program's to ignore.
 *
 * Threads: every call may run on any thread; two threads on one descriptor mix their bytes. */
#ifndef VORNCORE_IO_IO_H
#define VORNCORE_IO_IO_H

#include <netinet/in.h>
#include <poll.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* The codes of all I/O in the library, -999 to -981. The numbers are fixed. */
enum {
    IOERROR_EOF = -999,     /* a read found the end: the peer closed, or the file ends */
    IOERROR_CONNECTTIMEOUT, /* not connected within the time-out */
    IOERROR_WRITETIMEOUT,   /* not writable within the time-out */
    IOERROR_READTIMEOUT,    /* not readable within the time-out */
    IOERROR_TIMEOUT,        /* a relay saw nothing on either side within the time-out */
    IOERROR_SOCKET,         /* no socket could be made */
    IOERROR_BIND,
    IOERROR_CONNECT,   /* `errno` holds the reason */
    IOERROR_WRITE,     /* a write failed */
    IOERROR_READ,      /* a read failed */
    IOERROR_SOCKETOPT, /* a socket option could not be read */
    IOERROR_POLL,      /* the wait failed, or ended with neither the event nor an error */
    IOERROR_FCNTL,     /* descriptor flags could not be changed */
    IOERROR_RESOLVE,   /* unknown host */
    IOERROR_OVERFLOW,  /* a path or a record is longer than its buffer */
    IOERROR_POLLERR,   /* the wait reported an error, or that the descriptor is not open */
    IOERROR_HUP,       /* the wait reported a hang-up */
    IOERROR_SELECT,    /* never raised */
    IOERROR_SELECTERR  /* never raised */
};

/* Tuning, read at every call without a lock: assign at start-up. */
extern int32_t xp_io_sigsafe; /* 0 at start; non-zero: interrupted waits, reads, writes and connects are repeated */
/* Bytes of the buffer that a copy takes from the caller's stack, 8192 at start. Anything below 1 stands for 8192, and
 * 1 MiB for anything above it. */
extern int32_t xp_io_buffer_size;

/* The name of a code as a constant text, "IOERROR_EOF"; "NETERR_UNKNOWN" for any other number. */
const char *xp_ioerror_str(int code);

/* As poll, read and write, repeated while a signal interrupts them, whatever xp_io_sigsafe says. The write raises no
 * SIGPIPE on a socket. */
int xp_sigsafe_poll(struct pollfd *entries, nfds_t count, int timeout);
ssize_t xp_sigsafe_read(int descriptor, void *buffer, size_t length);
ssize_t xp_sigsafe_write(int descriptor, const void *buffer, size_t length);

/* Waits until the descriptor is ready, then makes one system call. The bytes moved may be fewer than asked for; a write
 * may move 0, a read moves at least 1. Codes: IOERROR_WRITETIMEOUT or IOERROR_READTIMEOUT, IOERROR_POLL, IOERROR_HUP,
 * IOERROR_POLLERR, IOERROR_WRITE or IOERROR_READ, and for a read IOERROR_EOF.
 * A peer that closed is told by what the system reports: IOERROR_EOF where a read finds the end (sockets, files, and
 * everything when the time-out is negative), IOERROR_HUP where the wait sees the hang-up alone (pipes). Bytes that
 * arrived before the hang-up are read first. */
int xp_write_timeout(int descriptor, const void *data, int length, int timeout);
int xp_read_timeout(int descriptor, void *buffer, int length, int timeout);

/* Write or read until `length` bytes went through. Return the length, or the result that stopped them: for a write any
 * below 1, for a read any below 0. */
int64_t xp_write_all(int descriptor, const void *data, int64_t length, int timeout);
int64_t xp_read_all(int descriptor, void *buffer, int64_t length, int timeout);
/* xp_write_all of a text without its NUL. */
int64_t xp_write_str(int descriptor, const char *text, int timeout);

/* What a copy does with bytes on their way. A caller embeds the record as the first member of one with its own state.
 * `filter` gets the record, the bytes just read and their count, and the direction in a two-way relay (1 from the first
 * endpoint, 0 from the second, 0 in one-way copies). It returns the bytes to write instead, and their number through
 * `count`: the same buffer, which holds xp_io_buffer_size bytes and may be filled up in place, or memory of its own,
 * which must last until the next call of the filter for that direction. */
typedef struct xp_iofilter xp_iofilter;
struct xp_iofilter {
    char *(*filter)(xp_iofilter *self, char *data, int32_t *count, int direction);
};

/* Copies until the input ends or a wait, read or write fails; returns the code that ended it (IOERROR_EOF or, from a
 * pipe, IOERROR_HUP when all went well) and stores the number of bytes written through `total`, unless that is null. A
 * filter that leaves no bytes ends the copy with 0. A null filter changes nothing. */
int xp_transfer(int input, int output, int64_t *total, int timeout, xp_iofilter *filter);
/* Copies `count` bytes; returns the count, or the code that ended it early. Kept for callers: what the filter returns
 * is counted, not what was read; a filter that leaves no bytes ends the copy with 0. */
int64_t xp_transfer_all(int input, int output, int64_t count, int timeout, xp_iofilter *filter);

/* Relays both ways between two endpoints, each a descriptor to read and one to write (the same for a socket), until
 * something ends it; returns the code, always. IOERROR_EOF: an input ended. IOERROR_TIMEOUT: nothing happened for one
 * time-out (negative: waits for ever). IOERROR_POLL, IOERROR_READ, IOERROR_WRITE: a call failed. IOERROR_HUP,
 * IOERROR_POLLERR: a descriptor reported it; bytes read in the same pass are filtered and then lost.
 * Kept for callers: reads at most 8 bytes at a time; and while bytes wait for an output that takes none, readiness of
 * the other descriptors keeps the loop turning, so that the time-out does not run. */
int xp_bitransfer_ex(int first_in, int first_out, int second_in, int second_out, int timeout, xp_iofilter *filter);

/* Formatted output (base/format.h) through 8192 bytes of the caller's stack. Each full area is written with
 * xp_write_all and the time-out. What is left at the end, less than an area, goes out with one write that does not wait
 * and is not repeated; kept for callers: one that takes only part of it counts as done. The number of characters
 * formatted; the code of a full area that could not be written; -1 when the last write failed. */
int xp_fdprintf(int descriptor, int timeout, const char *format, ...);
int xp_vfdprintf(int descriptor, int timeout, const char *format, va_list arguments);

VORNCORE_END_DECLS

#endif
