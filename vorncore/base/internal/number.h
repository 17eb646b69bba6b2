// Numbers as the format engine lays them out: sign or prefix, and digits that are made where they are to stand.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>
#include <limits>

#include "vorncore/base/internal/directive.h"

namespace vorncore {

/// Bytes mostly come in runs too short for a call of memcpy: those are copied in two moves that may overlap. Returns
/// the end of the copy.
inline char *append(char *to, const char *from, size_t length) {
    if (length > 16) {
        memcpy(to, from, length);
    } else if (length >= 8) {
        memcpy(to, from, 8);
        memcpy(to + length - 8, from + length - 8, 8);
    } else if (length >= 4) {
        memcpy(to, from, 4);
        memcpy(to + length - 4, from + length - 4, 4);
    } else if (length) {
        to[0] = from[0];
        to[length / 2] = from[length / 2];
        to[length - 1] = from[length - 1];
    }
    return to + length;
}

/// The same for one byte, repeated.
inline char *append_run(char *to, char byte, size_t count) {
    const uint64_t run = 0x0101010101010101u * static_cast<unsigned char>(byte);
    if (count > 16) {
        memset(to, byte, count);
    } else if (count >= 8) {
        memcpy(to, &run, 8);
        memcpy(to + count - 8, &run, 8);
    } else if (count >= 4) {
        memcpy(to, &run, 4);
        memcpy(to + count - 4, &run, 4);
    } else if (count) {
        to[0] = to[count / 2] = to[count - 1] = byte;
    }
    return to + count;
}

struct decimal_tables {
    char pairs[200];
    uint64_t powers[20]; // of ten
    consteval decimal_tables() : pairs(), powers() {
        for (int i = 0; i < 200; i++) pairs[i] = static_cast<char>('0' + (i % 2 ? i / 2 % 10 : i / 20));
        powers[0] = 1;
        for (int i = 1; i < 20; i++) powers[i] = powers[i - 1] * 10;
    }
};
constexpr decimal_tables decimal;

/// Decimal digits of a value, 0 one of them.
inline uint32_t decimal_length(uint64_t value) {
    const uint32_t log10 = static_cast<uint32_t>(std::bit_width(value | 1)) * 1233 >> 12; // or one too many
    return log10 + (value >= decimal.powers[log10] || !log10);
}

inline char *append_decimal(char *to, uint64_t value, uint32_t length) {
    char *const end = to + length;
    char *first = end;
    for (; value >= 100; value /= 100) memcpy(first -= 2, decimal.pairs + value % 100 * 2, 2);
    if (value >= 10)
        memcpy(to, decimal.pairs + value * 2, 2);
    else
        *to = static_cast<char>('0' + value);
    return end;
}

/// What a number is laid out from. Its digits are made only where they are to stand.
struct number {
    static constexpr size_t longest = 32; // a "%b"

    uint64_t value;
    uint32_t digit_bits = 0; // 0: decimal digits
    uint32_t length = 0;     // digits
    uint32_t prefix_length = 0;
    const char *prefix = "";
    const char *alphabet = nullptr; // of digits that are not decimal
    const char *text = nullptr;     // stands in place of digits

    template <class Signed>
    static number of_signed(Signed value, uint8_t flags) {
        number n{};
        n.prefix = value < 0 ? "-" : flags & always_sign ? "+" : " ";
        n.prefix_length = value < 0 || flags & (always_sign | blank_sign);
        // Kept: the most negative value is negated in its own width, stays what it is and has no digits.
        if (value == std::numeric_limits<Signed>::min()) {
            n.text = "";
            return n;
        }
        n.value = static_cast<uint64_t>(value < 0 ? -value : value);
        n.length = decimal_length(n.value);
        return n;
    }

    static number of_unsigned(uint64_t value, uint8_t flags, char conversion) {
        number n{};
        n.value = value;
        if (conversion == 'u') {
            n.length = decimal_length(value);
            return n;
        }
        n.digit_bits = conversion == 'b' ? 1 : conversion == 'o' ? 3 : 4;
        n.length = (static_cast<uint32_t>(std::bit_width(value | 1)) + n.digit_bits - 1) / n.digit_bits;
        n.alphabet = conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
        if (flags & alternate && value && conversion != 'b') {
            n.prefix = conversion == 'X' ? "0X" : "0x";
            n.prefix_length = conversion == 'o' ? 1 : 2;
        }
        return n;
    }

    static number of_null_pointer() {
        number n{};
        n.text = ")lin("; // Kept: in reverse.
        n.length = 5;
        return n;
    }
};

inline char *append_prefix(char *to, const number &n) {
    if (n.prefix_length > 0) *to++ = n.prefix[0];
    if (n.prefix_length > 1) *to++ = n.prefix[1];
    return to;
}

inline char *append_digits(char *to, const number &n) {
    if (n.text) return append(to, n.text, n.length);
    if (!n.digit_bits) return append_decimal(to, n.value, n.length);
    uint64_t rest = n.value;
    for (char *digit = to + n.length; digit != to; rest >>= n.digit_bits)
        *--digit = n.alphabet[rest & ((1u << n.digit_bits) - 1)];
    return to + n.length;
}

} // namespace vorncore
