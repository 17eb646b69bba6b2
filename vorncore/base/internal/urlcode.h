// URL coding (application/x-www-form-urlencoded) for texts, memory buffers and write buffers.
#pragma once

#include <array>
#include <string.h>

#include "vorncore/base/internal/charrule.h"

namespace vorncore {

/// What one byte becomes: itself, "+", or "%" and two digits. Four bytes, so that a whole code is stored at once where
/// there is room for it and only `length` of them count.
struct url_code {
    char text[3];
    unsigned char length;
};

consteval std::array<url_code, 256> make_url_codes() {
    std::array<url_code, 256> codes{};
    for (unsigned byte = 0; byte < 256; byte++) {
        if (char_type_of(byte) & XP_CHAR_URL_SAFE)
            codes[byte] = {{static_cast<char>(byte)}, 1};
        else if (byte == ' ')
            codes[byte] = {{'+'}, 1};
        else
            codes[byte] = {{'%', upper_digits[byte >> 4], upper_digits[byte & 15]}, 3};
    }
    return codes;
}
inline constexpr std::array<url_code, 256> url_codes = make_url_codes();

/// Hands the code of every byte of a text to `put(code)` until that refuses one. Returns the byte whose code was
/// refused, or else the terminating NUL.
template <class Put>
const char *url_encode(const char *text, Put put) {
    while (*text && put(url_codes[static_cast<unsigned char>(*text)])) text++;
    return text;
}

/// Decodes a text in place. The result is never longer.
inline char *url_decode(char *text) {
    char *out = text;
    for (const char *in = text; *in; in++) {
        char c = *in;
        if (c == '+')
            c = ' ';
        else if (c == '%' && xp_char_is(in[1], XP_CHAR_HEX_DIGIT) && xp_char_is(in[2], XP_CHAR_HEX_DIGIT)) {
            c = static_cast<char>(xp_char_hex_value(in[1]) << 4 | xp_char_hex_value(in[2]));
            in += 2;
        }
        *out++ = c;
    }
    *out = '\0';
    return text;
}

} // namespace vorncore
