#include "vorncore/base/chartype.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include "support/harness.h"

namespace {

// The oracle is <ctype.h>: the tests run in the C locale.
TEST(CharType, MapAgreesWithTheCLibrary) {
    for (int byte = 0; byte < 256; byte++) {
        SCOPED_TRACE(byte);
        const char c = static_cast<char>(byte);
        EXPECT_EQ(xp_char_to_upper(c), toupper(byte));
        EXPECT_EQ(xp_char_to_lower(c), tolower(byte));
        const struct {
            uint32_t flag;
            bool member;
        } classes[] = {
            {XP_CHAR_UPPER, isupper(byte) != 0},
            {XP_CHAR_LOWER, islower(byte) != 0},
            {XP_CHAR_DIGIT, isdigit(byte) != 0},
            {XP_CHAR_SPACE, isspace(byte) != 0},
            {XP_CHAR_URL_SAFE, isalnum(byte) || (byte && strchr("*-._", byte))},
            {XP_CHAR_NAME, isalnum(byte) || (byte && strchr("-.:_", byte))},
            {XP_CHAR_HEX_DIGIT, isxdigit(byte) != 0},
            {XP_CHAR_NOT_NUL, byte != 0},
        };
        for (const auto &[flag, member] : classes) EXPECT_EQ(xp_char_is(c, flag), member) << std::hex << flag;

        const char digit[] = {c, '\0'};
        unsigned field = 0;
        if (!isxdigit(byte) || sscanf(digit, "%x", &field) != 1)
            field = 0x80u + (ispunct(byte) ? 0x20 : byte == ' ' ? 0x40 : byte == 0 ? 0x10 : 0);
        EXPECT_EQ(xp_char_type(c) >> 16 & 0xFF, field);
        EXPECT_EQ(xp_char_hex_value(c) >= 0, isxdigit(byte) != 0);
    }
}

TEST(CharType, BytesPrintAsPrintfPrintsThem) {
    for (unsigned byte = 0; byte < 256; byte++) {
        char decimal[4] = {}, upper[3], lower[3];
        snprintf(decimal, sizeof decimal, "%u", byte);
        snprintf(upper, sizeof upper, "%02X", byte);
        snprintf(lower, sizeof lower, "%02x", byte);
        EXPECT_EQ(memcmp(xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F[byte], decimal, 4), 0) << byte;
        EXPECT_STREQ(xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D[byte], upper);
        EXPECT_STREQ(xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D[256 + byte], lower);
    }
}

} // namespace
