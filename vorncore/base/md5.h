/* MD5 digest (RFC 1321) of bytes that arrive in pieces.
 *
 *     xp_md5 md5;
 *     xp_md5_init(&md5);
 *     while ((n = read(fd, buffer, sizeof buffer)) > 0) xp_md5_update(&md5, buffer, n);
 *     xp_md5_close(&md5);
 *     puts(xp_md5_result_str(&md5));
 *
 * For checksums and for formats that ask for it: MD5 resists no attacker. A context owns nothing and needs no release;
 * it may be copied at any time, to digest two texts with the same beginning.
 *
 * Threads: a context belongs to one thread at a time. */
#ifndef VORNCORE_BASE_MD5_H
#define VORNCORE_BASE_MD5_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_md5 {
    uint32_t state[4];   /* chaining words A, B, C, D */
    uint32_t count_high; /* bytes digested so far, upper and lower half */
    uint32_t count_low;
    uint8_t block[64]; /* bytes of the block that is not complete yet; after close the digest is its first 16 bytes */
    uint8_t has_text;  /* 1 once `text` has been made */
    char text[33];     /* the digest in 32 lower-case hexadecimal digits */
} xp_md5;

/* 0x80 followed by 63 zero bytes. */
extern const uint8_t xp_md5_padding[64];

/* Starts a digest, also in a context that has been closed. */
void xp_md5_init(xp_md5 *md5);
/* Adds `length` bytes; none when it is not positive. */
void xp_md5_update(xp_md5 *md5, const void *bytes, int length);
/* Ends the digest. Returns its 16 bytes, which lie in the context. */
const uint8_t *xp_md5_close(xp_md5 *md5);
/* The digest of a closed context as text, made by the first call and kept in the context. */
const char *xp_md5_result_str(xp_md5 *md5);

VORNCORE_END_DECLS

#endif
