/* Base64 (RFC 4648, section 4): over texts, byte ranges and streams.
 *
 * The alphabet is "A"-"Z", "a"-"z", "0"-"9", "+", "/", with "=" as padding; no line breaks are written. The decoders
 * skip every byte outside it, so text with line feeds or blanks decodes as it is; skipped bytes may also stand at the
 * end. A group of four that the end cuts off is malformed, and so is one with "=" in its first or second place. Padding
 * ends the text: what follows it is not looked at.
 *
 *     char text[64];
 *     xp_base64_encode_data(digest, 16, text);
 *
 * Nothing is allocated. Decoding may be in place (destination equal to text).
 *
 * Threads: the calls keep no state. */
#ifndef VORNCORE_BASE_BASE64_H
#define VORNCORE_BASE_BASE64_H

#include "vorncore/base/decls.h"
#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* Characters that `length` bytes encode to, without a terminator. */
int xp_base64_encoded_size(int length);

/* Encodes a text, or a range of bytes, and terminates the destination, which must hold the encoded size and one byte
 * more. The text form returns the destination, the other the number of characters. */
char *xp_base64_encode(const char *text, char *destination);
int xp_base64_encode_data(const void *bytes, int length, char *destination);

/* Decodes a text and terminates the destination, which must hold three bytes for every four of the text and one more.
 * Returns the destination, or null when the text is malformed; some bytes may then have been written. */
char *xp_base64_decode(const char *text, char *destination);
/* Decodes the groups that begin among the first `length` bytes of a text. Returns the number of bytes, -1 when the text
 * is malformed. No terminator is written.
 * Kept for callers: the bound is tested only between groups. A group that has begun runs on past it up to the NUL that
 * must follow the text, so a text cut inside a group is completed by what stands behind the cut. */
int xp_base64_decode_data(const char *text, int length, void *destination);

/* Encode or decode all that an input stream gives and write it to an output stream, in pieces of 1020 characters or
 * 1021 bytes and a last shorter one. The decoder stops reading at padding, and skips NUL bytes like any other. Neither
 * flushes. 1 on success; 0 when reading or writing failed or the input is malformed: some output may then have been
 * written. */
int xp_base64_encode_stream(xpi_istream *in, xpi_ostream *out);
int xp_base64_decode_stream(xpi_istream *in, xpi_ostream *out);

VORNCORE_END_DECLS

#endif
