/* String utilities: operations on NUL-terminated byte strings, most of them in place.
 *
 *     char *pieces[4];
 *     int n = xp_tokenize(pieces, 4, line, ",", XP_TOKENIZE_TRIM);     "a, b" gives "a" and "b", both inside line
 *
 * White space, letter case and hexadecimal digits are those of base/chartype.h. Nothing is allocated. Texts must not be
 * null unless a call says otherwise, and the sizes of buffers are not checked beyond what is said here.
 *
 * Threads: the calls keep no state. */
#ifndef VORNCORE_BASE_STRUTIL_H
#define VORNCORE_BASE_STRUTIL_H

#include "vorncore/base/decls.h"
#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

/* Cuts white space off both ends, in place: a NUL is written behind the last byte that stays. Returns the first byte
 * that stays, inside `text`; the terminating NUL if there is none. */
char *xp_trim(char *text);
/* The same with the bytes of the text `set` in place of white space. */
char *xp_trim_ex(char *text, const char *set);
/* Replaces every byte `from` by `to`, in place. Returns the text. */
char *xp_tr(char *text, int from, int to);

/* Cuts `text` in place at every delimiter byte and stores pointers to the pieces, which lie inside the text.
 * `delimiters` is a text, or with XP_TOKENIZE_TABLE a table of 256 bytes whose entry 0 must be non-zero. Adjacent
 * delimiters, and one at the end, make empty pieces. Returns the number of pieces; 0 for a null or empty text; -1 when
 * there are more than `capacity`: the first `capacity` are then stored and the text is cut up to the end of the next
 * one. */
int xp_tokenize(char **pieces, int capacity, char *text, const void *delimiters, int flags);

/* 1 if the text begins with the prefix, else 0; then `*rest`, unless `rest` is null, is set to what follows the prefix.
 * The empty prefix begins every text. The `case` form takes letters as equal in either case. */
int xp_starts_with(const char *text, const char *prefix, const char **rest);
int xp_case_starts_with(const char *text, const char *prefix, const char **rest);
/* 1 if the text ends with the suffix, else 0; then `*begin`, unless `begin` is null, is set to where the suffix begins.
 */
int xp_ends_with(const char *text, const char *suffix, const char **begin);
int xp_case_ends_with(const char *text, const char *suffix, const char **begin);

/* Writes a value in decimal, backwards from the end of the buffer: buffer[size - 1] becomes the terminating NUL. With
 * `grouping` a "," stands between groups of three digits. Returns the first character, inside the buffer, or null when
 * the text does not fit; some of it may then have been written.
 * Kept for callers: 0 gives a constant "0" of the library, whatever the buffer; INT_MIN gives null. */
const char *xp_int_to_str(int value, char *buffer, int size, int grouping);

/* Encodes a text as application/x-www-form-urlencoded: a blank becomes "+", every byte that is not XP_CHAR_URL_SAFE "%"
 * and two upper-case hexadecimal digits. The destination must hold three bytes for each byte of the source and one
 * more; all of that may be written to. Returns the destination. */
char *xp_url_encode(const char *source, char *destination);
/* Decodes "+" and "%XX", digits in either case, in place; a "%" that two hexadecimal digits do not follow stays. "%00"
 * becomes a NUL inside the text. Returns the text. */
char *xp_url_decode(char *text);

/* Copies at most size - 1 bytes, and at most `limit` unless that is negative, and terminates the destination. Returns
 * the number of bytes copied. A size of 0 or less copies nothing and writes nothing. Both copies may overlap. */
int xp_strncpy(char *destination, const char *source, int size, int limit);
/* Copies a text with its terminator. Returns its length. */
int xp_strcpy(char *destination, const char *source);

VORNCORE_END_DECLS

#endif
