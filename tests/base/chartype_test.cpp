#include "vorncore/base/chartype.h"

#include <ctype.h>
#include <stdio.h>

#include "support/harness.h"

// The oracle is <ctype.h>: the tests run in the C locale.
TEST(CharType, MapAgreesWithTheCLibrary) {
    for (int byte = 0; byte < 256; byte++) {
        const char c = static_cast<char>(byte);
        const auto digit = std::string("0123456789abcdef").find(static_cast<char>(tolower(byte)));
        const uint32_t field = isxdigit(byte)  ? static_cast<uint32_t>(digit)
                               : ispunct(byte) ? 0xA0
                               : byte == ' '   ? 0xC0
                               : byte == 0     ? 0x90
                                               : 0x80;
        auto expected = static_cast<uint32_t>(toupper(byte) | tolower(byte) << 8) | field << 16;
        if (isupper(byte)) expected |= XP_CHAR_UPPER;
        if (islower(byte)) expected |= XP_CHAR_LOWER;
        if (isdigit(byte)) expected |= XP_CHAR_DIGIT;
        if (isspace(byte)) expected |= XP_CHAR_SPACE;
        if (isalnum(byte) || (byte && strchr("*-._", byte))) expected |= XP_CHAR_URL_SAFE;
        if (isalnum(byte) || (byte && strchr("-.:_", byte))) expected |= XP_CHAR_NAME;
        if (isxdigit(byte)) expected |= XP_CHAR_HEX_DIGIT;
        if (byte) expected |= XP_CHAR_NOT_NUL;
        EXPECT_EQ(xp_char_type(c), expected) << byte;
        EXPECT_TRUE(xp_char_to_upper(c) == toupper(byte) && xp_char_to_lower(c) == tolower(byte)) << byte;
        EXPECT_EQ(xp_char_hex_value(c), isxdigit(byte) ? static_cast<int>(digit) : -128) << byte;
        EXPECT_EQ(xp_char_is(c, XP_CHAR_UPPER | XP_CHAR_SPACE), isupper(byte) || isspace(byte)) << byte;
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
