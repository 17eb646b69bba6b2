// The base64 alphabet, and the tables that follow from it.
#pragma once

#include <array>
#include <stdint.h>

namespace vorncore {

inline constexpr char base64_alphabet[65] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Values of bytes that are no sextet. Both have bit 7 set, which no sextet has.
inline constexpr uint8_t base64_padding = 254, base64_skip = 255;

consteval std::array<uint8_t, 256> make_base64_values() {
    std::array<uint8_t, 256> values{};
    values.fill(base64_skip);
    for (uint8_t sextet = 0; sextet < 64; sextet++) values[static_cast<uint8_t>(base64_alphabet[sextet])] = sextet;
    values['='] = base64_padding;
    return values;
}
inline constexpr std::array<uint8_t, 256> base64_values = make_base64_values();

/// The two characters of twelve bits.
consteval std::array<std::array<char, 2>, 4096> make_base64_pairs() {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (unsigned bits = 0; bits < 4096; bits++) pairs[bits] = {base64_alphabet[bits >> 6], base64_alphabet[bits & 63]};
    return pairs;
}
inline constexpr std::array<std::array<char, 2>, 4096> base64_pairs = make_base64_pairs();

/// The sextet of a byte, shifted to where it belongs among the 24 bits of its group, by place; for a byte that has none
/// a bit beyond those.
inline constexpr uint32_t base64_not_clean = 1u << 24;
using base64_places = std::array<std::array<uint32_t, 256>, 4>;
consteval base64_places make_base64_bits() {
    base64_places bits{};
    for (unsigned place = 0; place < 4; place++)
        for (unsigned byte = 0; byte < 256; byte++)
            bits[place][byte] =
                base64_values[byte] < 64 ? uint32_t{base64_values[byte]} << (18 - 6 * place) : base64_not_clean;
    return bits;
}
inline constexpr base64_places base64_bits = make_base64_bits();

} // namespace vorncore
