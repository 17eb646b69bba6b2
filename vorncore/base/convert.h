/* Radix conversion: unsigned integers to text and back, in any radix from 2 to 62.
 *
 *     char buffer[8];
 *     char *text = xp_convert(id, buffer, sizeof buffer, 62);                      "4gfFC3" for 4294967295
 *     char *fixed = xp_convert(id, buffer, sizeof buffer, XP_CONVERT_PAD('0') | 62);   "04gfFC3"
 *     uint32_t same = xp_reverse_convert(fixed, 62);
 *
 * Threads: the calls keep no state. */
#ifndef VORNCORE_BASE_CONVERT_H
#define VORNCORE_BASE_CONVERT_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* The digits: 0-9, A-Z, a-z and a NUL; and their values, 255 for a byte that is no digit. */
extern const char xp_conv62_map[63];
extern const uint8_t xp_rconv62_map[256];

/* The flag word: the radix in bits 0-7; with XP_CONVERT_PAD, bit 31 and the pad character in bits 16-23. */
#define XP_CONVERT_PAD(c) (0x80000000u | (uint32_t)(unsigned char)(c) << 16)

/* Write a value backwards from the end of the buffer: buffer[size - 1] becomes the terminating NUL. Return the first
 * digit, inside the buffer; with padding the pad character fills up the front and the result is the buffer itself, size
 * - 1 characters. 0 is "0". Null when the digits do not fit (some may then have been written) and when the radix is 0
 * or over 62; the `ex` form takes digits from an alphabet of the caller's, which must hold as many as the radix says.
 */
char *xp_convert(uint32_t value, char *buffer, int size, uint32_t flags);
char *xp_convertl(uint64_t value, char *buffer, int size, uint32_t flags);
char *xp_convert_ex(uint32_t value, char *buffer, int size, uint32_t flags, const char *alphabet);

/* The value of a text, which wraps silently when it is too large; only the radix of the flags counts. Radix 16 takes
 * the digits A-F in either case, and does so in the `ex` form too, which for every other radix uses the caller's table.
 * Kept for callers: nothing is validated. A byte that is no digit counts as what the table has for it, 255, or in radix
 * 16 as -128, and the scan goes on. */
uint32_t xp_reverse_convert(const char *text, uint32_t flags);
uint64_t xp_reverse_convertl(const char *text, uint32_t flags);
uint32_t xp_reverse_convert_ex(const char *text, uint32_t flags, const uint8_t *table);

/* Fills a table of 256 entries with the values of the first 62 characters of an alphabet, 255 for all other bytes. 0,
 * or -1 when the alphabet is shorter; the table is then filled as far as it goes. */
int xp_gen_rconv62_map(uint8_t *table, const char *alphabet);

VORNCORE_END_DECLS

#endif
