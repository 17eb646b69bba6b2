/* Signed keys: four signature characters in front of a key, by which a program recognises keys that another handed out.
 *
 * The signature keeps out misspelt and made-up keys. It is no secret and no protection against forgery.
 *
 *     char handed_out[64];
 *     xp_encode_rawskey("session-17", handed_out);
 *     const char *raw = xp_decode_skey(received);     null: not one of ours
 *
 * Threads: the calls keep no state. */
#ifndef VORNCORE_BASE_SKEY_H
#define VORNCORE_BASE_SKEY_H

#include "vorncore/base/decls.h"
#include "vorncore/base/respool.h"

VORNCORE_BEGIN_DECLS

/* Writes the signed form of a raw key and a NUL: its length and 5 bytes. Returns the destination. The empty key, and
 * null, which stands for it, has the signature "0000". */
char *xp_encode_rawskey(const char *raw, char *destination);
/* The signed form of a raw key in memory that the pool owns; null when memory is short. */
char *xprp_encode_rawskey(xp_respool *rp, const char *raw);

/* The raw key, inside the argument, or null when the signature does not match. */
char *xp_decode_skey(const char *key);

VORNCORE_END_DECLS

#endif
