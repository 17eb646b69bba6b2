#include "vorncore/base/chartype.h"

#include <string_view>

#include "vorncore/base/internal/table.h"

namespace {

constexpr std::string_view punctuation = "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";

consteval bool is_in(char c, std::string_view set) { return set.find(c) != set.npos; }

consteval uint32_t type_of(unsigned byte) {
    const char c = static_cast<char>(byte);
    const bool upper = byte >= 'A' && byte <= 'Z', lower = byte >= 'a' && byte <= 'z',
               digit = byte >= '0' && byte <= '9';
    const bool alnum = upper || lower || digit;
    const unsigned folded_up = lower ? byte - 'a' + 'A' : byte;
    const unsigned folded_down = upper ? byte - 'A' + 'a' : byte;
    const bool hex = digit || (folded_down >= 'a' && folded_down <= 'f');

    uint32_t value = 0x80;
    if (hex) value = digit ? byte - '0' : folded_down - 'a' + 10;
    if (is_in(c, punctuation)) value |= 0x20;
    if (c == ' ') value |= 0x40;
    if (c == 0) value |= 0x10;

    uint32_t type = folded_up | folded_down << 8 | value << 16;
    if (upper) type |= XP_CHAR_UPPER;
    if (lower) type |= XP_CHAR_LOWER;
    if (digit) type |= XP_CHAR_DIGIT;
    if (is_in(c, "\t\n\v\f\r ")) type |= XP_CHAR_SPACE;
    if (alnum || is_in(c, "*-._")) type |= XP_CHAR_URL_SAFE;
    if (alnum || is_in(c, "-.:_")) type |= XP_CHAR_NAME;
    if (hex) type |= XP_CHAR_HEX_DIGIT;
    if (c != 0) type |= XP_CHAR_NOT_NUL;
    return type;
}

struct decimal_map {
    char entry[256][4] = {};
    consteval decimal_map() {
        for (int byte = 0; byte < 256; byte++) {
            char *text = entry[byte];
            if (byte > 99) *text++ = static_cast<char>('0' + byte / 100);
            if (byte > 9) *text++ = static_cast<char>('0' + byte / 10 % 10);
            *text = static_cast<char>('0' + byte % 10);
        }
    }
};

struct hexa_map {
    char entry[512][3] = {};
    consteval hexa_map() {
        for (int byte = 0; byte < 256; byte++)
            for (int lower = 0; lower < 2; lower++) {
                const char *digits = lower ? "0123456789abcdef" : "0123456789ABCDEF";
                entry[256 * lower + byte][0] = digits[byte >> 4];
                entry[256 * lower + byte][1] = digits[byte & 15];
            }
    }
};

constexpr decimal_map decimals;
constexpr hexa_map hexas;

} // namespace

const uint32_t xp_char_type_map_7BBFA2C5_3512_48a7_A02F_B87AAC91732A[256] = {VORNCORE_TABLE_256(type_of)};
const char (*const xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F)[4] = decimals.entry;
const char (*const xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D)[3] = hexas.entry;
