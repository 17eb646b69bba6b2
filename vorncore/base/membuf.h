/* Memory buffer: a growable byte string with an optional maximum length.
 *
 * What the clients collect bodies and build requests in. The contents may hold any bytes and are not kept terminated;
 * xpmb_tostr terminates them on demand.
 *
 *     xp_membuf mb;
 *     xp_init_membuf(&mb, 64);
 *     xpmb_add_str(&mb, "q=");
 *     xpmb_add_str_url_encode(&mb, query);
 *     puts(xpmb_tostr(&mb));
 *     xp_close_membuf(&mb);
 *
 * Appends return 1, or 0 when the maximum length or the memory is reached. Out of memory leaves the contents as they
 * were. What an append does at the maximum, and how it grows the storage, depends on its kind:
 *
 *     add_char, add_str, add_str_url_encode   keep the bytes that fit; the capacity starts at the initial capacity and
 *                                             doubles
 *     add_data, set_size, ensure              all or nothing; the capacity becomes the first of the doublings of what
 *                                             it was (of 1, when nothing is owned) that holds the contents
 *     printf                                  all or nothing; the capacity doubles, to the initial capacity at least
 *                                             and the maximum at most
 *
 * Any call that appends may move the contents.
 *
 * Threads: a buffer belongs to one thread at a time. */
#ifndef VORNCORE_BASE_MEMBUF_H
#define VORNCORE_BASE_MEMBUF_H

#include <stdarg.h>
#include <stdint.h>

#include "vorncore/base/decls.h"
#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* The contents are data .. cursor - 1 and may be read and changed in place. */
typedef struct xp_membuf {
    char *data;                /* owned storage, or an empty byte shared by all buffers while the capacity is 0 */
    uint64_t capacity;         /* bytes of the storage, one more for a terminator not counted; 0: none is owned */
    char *cursor;              /* one past the last byte: the length is cursor - data */
    uint32_t initial_capacity; /* bytes; at least 1 */
    uint64_t max_length;       /* bytes; 0: unlimited */
} xp_membuf;

/* Nothing is allocated before the first append. An initial capacity of 0 counts as 1. */
void xp_init_membuf(xp_membuf *mb, uint32_t initial);
xp_membuf *xp_create_membuf(uint32_t initial);
void xp_close_membuf(xp_membuf *mb);
void xp_destroy_membuf(xp_membuf *mb);

/* Drops the contents; the storage stays. */
void xpmb_clear(xp_membuf *mb);
/* Drops the contents and frees the storage. The maximum length stays. */
void xpmb_reset(xp_membuf *mb);
/* 0 removes the limit. Contents that are longer are cut. */
void xpmb_set_maxlength(xp_membuf *mb, uint64_t max);

/* Appends a byte. Where there is room and no maximum length, programs do it without a call. */
int xpmb_add_char(xp_membuf *mb, int byte);
static inline int xpmb_add_char_inline(xp_membuf *mb, int byte) {
    if (mb->max_length || mb->cursor == mb->data + mb->capacity) return xpmb_add_char(mb, byte);
    *mb->cursor++ = (char)byte;
    return 1;
}
#define xpmb_add_char(mb, byte) xpmb_add_char_inline(mb, byte)
/* Appends a text. At the maximum length its beginning is kept and the result is 0. */
int xpmb_add_str(xp_membuf *mb, const char *text);
/* Appends the texts of a list that a null pointer ends, up to the first that does not fit. */
int xpmb_add_str_v(xp_membuf *mb, const char *text, ...);
/* Appends a text encoded as by xp_url_encode (base/strutil.h). At the maximum length what fits is kept, and that may be
 * a part of an escape: "%" or "%2". */
int xpmb_add_str_url_encode(xp_membuf *mb, const char *text);
/* Appends `length` bytes, all or none. The bytes, like the text of xpmb_add_str, may lie in the buffer itself. */
int xpmb_add_data(xp_membuf *mb, const void *bytes, uint64_t length);
/* Appends formatted text (base/format.h). Returns the number of bytes, or -1: then nothing is appended, though the
 * capacity may have grown. Kept for callers: room that other appends have made beyond the maximum length is used.
 * Texts among the arguments must not lie in the buffer. */
int xpmb_vprintf(xp_membuf *mb, const char *format, va_list arguments);
int xpmb_printf(xp_membuf *mb, const char *format, ...);

/* Makes the length `size`: cuts the contents, or adds uninitialised bytes. 0: nothing is changed. */
int xpmb_set_size(xp_membuf *mb, uint64_t size);
/* Makes the capacity at least `size`. 0: nothing is changed; also when `size` is over the maximum length. */
int xpmb_ensure(xp_membuf *mb, uint64_t size);

/* The contents as a text: writes a NUL behind them, which is not counted in the length. Valid until the next append. */
char *xpmb_tostr(xp_membuf *mb);

/* A combined stream over the buffer, which it borrows; release it with its own `destroy`. Null when out of memory.
 * `read` gives all that was appended since the last read, in one piece; null with length 0 when there is nothing.
 * Within one stream 4 GiB - 1 bytes can be read. `write` appends as xpmb_add_data does. Its last error is always
 * "NO ERROR" and 0. Kept for callers: `write` reports the full length whatever came of it, so a buffer at its maximum
 * length drops bytes silently; and the place of `read`, counted from the first byte, stays when the contents are
 * cleared or cut: what is appended in front of that place is never read. */
xpi_iostream *xpmb_create_iostream(xp_membuf *mb);

VORNCORE_END_DECLS

#endif
