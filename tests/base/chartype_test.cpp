#include "vorncore/base/chartype.h"

#include <ctype.h>
#include <stdio.h>

#include "support/harness.h"

// The oracle is the C library: the tests run in the C locale.
TEST(CharType, MapsAgreeWithTheCLibrary) {
    for (int byte = 0; byte < 256; byte++) {
        SCOPED_TRACE(byte);
        const char c = static_cast<char>(byte);
        const auto is_of = [byte](const char *set) { return byte && strchr(set, byte); };
        const int digit = isxdigit(byte) ? std::stoi(std::string(1, c), nullptr, 16) : -128;
        const int no_digit = 0x80 | (ispunct(byte) ? 0x20 : 0) | (byte == ' ' ? 0x40 : 0) | (byte ? 0 : 0x10);
        const int url_safe = isalnum(byte) || is_of("*-._"), of_names = isalnum(byte) || is_of("-.:_");
        const int classes[] = {isupper(byte), islower(byte), isdigit(byte),  isspace(byte),
                               url_safe,      of_names,      isxdigit(byte), byte};
        auto word = static_cast<uint32_t>(toupper(byte) | tolower(byte) << 8 | (digit < 0 ? no_digit : digit) << 16);
        for (unsigned i = 0; i < 8; i++) word |= uint32_t{classes[i] != 0} << (24 + i);
        EXPECT_EQ(xp_char_type(c), word);
        EXPECT_TRUE(xp_char_to_upper(c) == toupper(byte) && xp_char_to_lower(c) == tolower(byte));
        EXPECT_EQ(xp_char_hex_value(c), digit);
        EXPECT_EQ(xp_char_is(c, XP_CHAR_UPPER | XP_CHAR_SPACE), classes[0] || classes[3]);

        char decimal[4] = {}, hexadecimal[5];
        snprintf(decimal, sizeof decimal, "%d", byte);
        snprintf(hexadecimal, sizeof hexadecimal, "%02X%02x", unsigned(byte), unsigned(byte));
        const auto *const hexas = xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D;
        EXPECT_EQ(memcmp(xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F[byte], decimal, 4), 0);
        EXPECT_EQ(std::string(hexas[byte]) + hexas[256 + byte], hexadecimal);
    }
}
