/* Stream interfaces: how families hand bytes to one another without knowing each other's records.
 *
 * A stream record is a table of operations followed by the object behind them. The families that implement one make it
 * with a constructor (xprb_create_istream, xprb2_create_istream, xpwb_create_ostream, xpmb_create_iostream); its
 * consumer calls through it, with the record itself as first argument, and releases it with its own `destroy`:
 *
 *     in->destroy(in);      frees the record alone; the object behind it stays its owner's, and must outlive the record
 *
 * The three records share the order of their slots, so a combined stream can be used as either of the others
 * (xpio_istream, xpio_ostream). `context` of an input stream lies where `write` of the others lies: use the view that
 * fits.
 *
 * Threads: a stream belongs to the thread that its object belongs to. */
#ifndef VORNCORE_BASE_STREAM_H
#define VORNCORE_BASE_STREAM_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

typedef struct xpi_istream xpi_istream;
struct __attribute__((may_alias)) xpi_istream {
    void (*destroy)(void *stream);
    const char *(*lasterrmsg)(void *stream); /* text of the object's last failure, "NO ERROR" before one */
    int32_t (*lasterrcode)(void *stream);    /* code of the object's last failure (io/io.h), 0 before one */
    /* The next chunk, in place, and its length in bytes; valid until the next call. Null at the end and on failure:
     * lasterrcode tells which. */
    char *(*read)(void *stream, uint32_t *length);
    void *context;
};

typedef struct xpi_ostream xpi_ostream;
struct __attribute__((may_alias)) xpi_ostream {
    void (*destroy)(void *stream);
    const char *(*lasterrmsg)(void *stream);
    int32_t (*lasterrcode)(void *stream);
    char *(*read)(void *stream, uint32_t *length); /* unset in a pure output stream */
    /* Takes `length` bytes; the number taken, negative on failure. */
    int32_t (*write)(void *stream, const void *data, uint32_t length);
    int32_t (*flush)(void *stream); /* non-zero on success */
    void *context;
};

typedef struct xpi_iostream xpi_iostream;
struct __attribute__((may_alias)) xpi_iostream {
    void (*destroy)(void *stream);
    const char *(*lasterrmsg)(void *stream);
    int32_t (*lasterrcode)(void *stream);
    char *(*read)(void *stream, uint32_t *length);
    int32_t (*write)(void *stream, const void *data, uint32_t length);
    int32_t (*flush)(void *stream);
    void *context;
    uint32_t read_offset; /* the implementation's: bytes already read */
};

/* The views of a combined stream: the same record under another name, released once. */
static inline xpi_istream *xpio_istream(xpi_iostream *stream) { return (xpi_istream *)(void *)stream; }
static inline xpi_ostream *xpio_ostream(xpi_iostream *stream) { return (xpi_ostream *)(void *)stream; }

VORNCORE_END_DECLS

#endif
