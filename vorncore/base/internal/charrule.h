// The rule behind the character type map (base/chartype.h), for tables that are built when the library is compiled.
#pragma once

#include <stdint.h>

#include <string_view>

#include "vorncore/base/chartype.h"

namespace vorncore {

inline constexpr std::string_view punctuation = "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";

/// By the value of a digit; 16 of either case are the hexadecimal digits.
inline constexpr char upper_digits[] = "0123456789ABCDEF", lower_digits[] = "0123456789abcdef";

consteval bool is_in(char c, std::string_view set) { return set.find(c) != set.npos; }

/// The word of the map for a byte.
consteval uint32_t char_type_of(unsigned byte) {
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

} // namespace vorncore
