/* Byte tables: how the whole library classifies bytes, folds case, and prints a byte in decimal or hexadecimal.
 *
 * Exported as objects so that programs read them directly. There is no notion of a multi-byte character. All three are
 * constant: any thread may read them.
 *
 * A word of the character type map packs, for the byte that indexes it:
 *     bits  0- 7   the byte in upper case (only a-z change)
 *     bits  8-15   the byte in lower case (only A-Z change)
 *     bits 16-23   value of a hexadecimal digit, 0 to 15; for every other byte 0x80, with 0x20 more for the 32 ASCII
 *                  punctuation characters, 0x40 for the blank, 0x10 for NUL
 *     bits 24-31   the classes below */
#ifndef VORNCORE_BASE_CHARTYPE_H
#define VORNCORE_BASE_CHARTYPE_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

extern const uint32_t xp_char_type_map_7BBFA2C5_3512_48a7_A02F_B87AAC91732A[256];
/* Entry n: the decimal text of n, "0" to "255", filled up with NUL. */
extern const char (*const xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F)[4];
/* Entry n: the two hexadecimal digits of n; 256 upper-case entries, "00" to "FF", then 256 lower-case ones. */
extern const char (*const xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D)[3];

#define XP_CHAR_UPPER     0x01000000u /* A-Z */
#define XP_CHAR_LOWER     0x02000000u /* a-z */
#define XP_CHAR_DIGIT     0x04000000u /* 0-9 */
#define XP_CHAR_SPACE     0x08000000u /* tab, line feed, vertical tab, form feed, carriage return, blank */
#define XP_CHAR_URL_SAFE  0x10000000u /* letters, digits, "*" "-" "." "_" */
#define XP_CHAR_NAME      0x20000000u /* letters, digits, "-" "." ":" "_" */
#define XP_CHAR_HEX_DIGIT 0x40000000u /* 0-9, A-F, a-f */
#define XP_CHAR_NOT_NUL   0x80000000u /* every byte but NUL */

static inline uint32_t xp_char_type(char c) {
    return xp_char_type_map_7BBFA2C5_3512_48a7_A02F_B87AAC91732A[(unsigned char)c];
}
static inline int xp_char_is(char c, uint32_t classes) { return (xp_char_type(c) & classes) != 0; }
static inline unsigned char xp_char_to_upper(char c) { return (unsigned char)xp_char_type(c); }
static inline unsigned char xp_char_to_lower(char c) { return (unsigned char)(xp_char_type(c) >> 8); }
/* 0 to 15, negative for a byte that is no hexadecimal digit. */
static inline int xp_char_hex_value(char c) { return (signed char)(xp_char_type(c) >> 16 & 0x8F); }

VORNCORE_END_DECLS

#endif
