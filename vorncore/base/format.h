/* Formatted output: one engine behind every printf-style call of the library.
 *
 * The engine writes into an area that its caller describes and asks through a callback for more room. It allocates
 * nothing and needs little stack, however long the output gets. Strings, standard I/O and streams have their calls
 * here; memory buffers, resource pools, descriptors and write buffers have theirs beside their records.
 *
 * A directive is % FLAGS WIDTH PRECISION LENGTH CONVERSION, of which only the conversion must be there:
 *
 *     flags       -  left-justify            +  always a sign (d, i)         blank  a blank for a plus sign (d, i)
 *                 0  fill up with zeros      #  prefix 0x, 0X or 0           '      group digits (d, i, u, b)
 *     width       digits, or * for an int argument; negative: left-justify
 *     precision   . and digits, or .* for an int argument: least number of digits, or most bytes of a text
 *     length      l or ll: the argument has 64 bits (d, i, u, x, X, o)
 *     conversion  d i signed   u unsigned   x X hexadecimal   o octal   b binary, of an unsigned int
 *                 p pointer    c byte       s text            % the percent sign itself
 *
 *     "%5.3d" of 7 "  007"    "%'d" of 1234567 "1,234,567"    "%'b" of 255 "1111 1111"    "%#x" of 255 "0xff"
 *
 * There is no floating point and no h, z, t, j, n: a directive that does not fit comes out as it stands and takes no
 * argument, not even for a * within. For that reason these calls are not marked printf-like for the compiler.
 *
 * Kept for callers, and unlike printf:
 *   - a negative precision from an argument counts as its absolute value;
 *   - the most negative number of its width prints as a lone "-";
 *   - a null pointer under p prints ")lin(", any other its bare digits, with # a 0x before them;
 *   - the prefix 0 of "%#o" is no digit for the precision, 0 has no prefix and prints "0" even with precision 0;
 *   - grouped digits fill up with blanks although the 0 flag is set, and the zeros of a precision are grouped too.
 * A null text prints "(null)", cut to the precision like any other. Digits of a width or precision that no int holds
 * count as INT_MAX, and so does an output of more bytes.
 *
 * Threads: there is no state but the target's. */
#ifndef VORNCORE_BASE_FORMAT_H
#define VORNCORE_BASE_FORMAT_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "vorncore/base/stream.h"

VORNCORE_BEGIN_DECLS

/* Where output goes. A front end puts its own state right behind these fields, where its callback finds it. */
typedef struct xp_fmt_target xp_fmt_target;
struct xp_fmt_target {
    char *begin;  /* the current free area; may be empty at the start */
    char *end;    /* one past the area */
    char *cursor; /* stored once, at the end of a call that succeeds: one past the last byte written */
    /* Called when there is a byte to write and the whole area is full, not before: output that just fills the area does
     * not call it. It sets `begin` and `end` to a fresh area that is not empty (or leaves them, having taken the bytes
     * away) and returns non-zero; 0 stops the engine. */
    int32_t (*newbuf)(xp_fmt_target *target);
};

/* Formats into a target. The number of bytes written to all its areas, without a terminating NUL; -1 when `newbuf`
 * stopped it: `cursor` is then as it was, and what was written so far stays in the area. */
int xp_vformat(xp_fmt_target *target, const char *format, va_list arguments);
int xp_format(xp_fmt_target *target, const char *format, ...);

/* A new NUL-terminated string, freed with `free`. Null when memory is short. */
char *xp_vsprintf(const char *format, va_list arguments);
char *xp_sprintf(const char *format, ...);

/* The concatenation of texts up to a null pointer, in a new string of just that size, freed with `free`. Null when
 * memory is short. */
char *xp_strdup_v(const char *first, ...);

/* To standard I/O, in pieces of 80 bytes that are each one item of one fwrite. The number of bytes; -1 when a piece was
 * not taken, and then nothing more is written. */
int xp_vfprintf(FILE *file, const char *format, va_list arguments);
int xp_fprintf(FILE *file, const char *format, ...);

/* To an output stream, in pieces of 4096 bytes that are each one `write`, which must take it whole. Does not flush. The
 * number of bytes; -1 when a piece was not taken whole, and then nothing more is written. */
int xp_vosprintf(xpi_ostream *stream, const char *format, va_list arguments);
int xp_osprintf(xpi_ostream *stream, const char *format, ...);

VORNCORE_END_DECLS

#endif
