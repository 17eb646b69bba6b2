/* Scrambler for short byte strings: cookies, tokens, whatever a user should not read at a glance.
 *
 *     uint8_t key[16];
 *     xp_crypt_init(key, phrase, strlen(phrase));
 *     int n = xp_crypt_encrypt(key, text, length, scrambled);      room for length + 8 bytes
 *     n = xp_crypt_decrypt(key, scrambled, n, text);
 *
 * It is obfuscation, not cryptography: it keeps no secret from who wants to know it, and nobody notices when scrambled
 * bytes are changed. The format never changes, so what one build scrambles another one unscrambles: a header of 8 bytes
 * that hides a random salt, then a byte for each byte of the input, XORed with a byte of the salt and one of the key.
 *
 * Threads: any; nothing is shared. */
#ifndef VORNCORE_BASE_CRYPT_H
#define VORNCORE_BASE_CRYPT_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Makes the 16 bytes of a key: the MD5 digest of a pass phrase of `length` bytes. Kept for callers: the last byte of a
 * key is never used. */
void xp_crypt_init(uint8_t *key, const void *phrase, int length);

/* Scramble `length` bytes into length + 8; unscramble `length` bytes, header included, into length - 8. Return how many
 * were written. A length that cannot be right (negative, one whose result is no int, a scrambled text shorter than its
 * header) gives -1, and nothing is read or written. The output may lie elsewhere or, to unscramble, at the input.
 * Each call scrambles with a salt of its own, which it makes from the clock. */
int xp_crypt_encrypt(const uint8_t *key, const void *input, int length, void *output);
int xp_crypt_decrypt(const uint8_t *key, const void *input, int length, void *output);

VORNCORE_END_DECLS

#endif
