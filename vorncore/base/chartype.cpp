#include "vorncore/base/chartype.h"

#include "vorncore/base/internal/charrule.h"
#include "vorncore/base/internal/table.h"

using namespace vorncore;

namespace {

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
                const char *digits = lower ? lower_digits : upper_digits;
                entry[256 * lower + byte][0] = digits[byte >> 4];
                entry[256 * lower + byte][1] = digits[byte & 15];
            }
    }
};

constexpr decimal_map decimals;
constexpr hexa_map hexas;

} // namespace

const uint32_t xp_char_type_map_7BBFA2C5_3512_48a7_A02F_B87AAC91732A[256] = {VORNCORE_TABLE_256(char_type_of)};
const char (*const xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F)[4] = decimals.entry;
const char (*const xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D)[3] = hexas.entry;
