// Directives of the format engine, read to their end before an argument is fetched: one that turns out malformed takes
// none.
#pragma once

#include <limits.h>
#include <stdint.h>

#include <algorithm>

namespace vorncore {

enum : uint8_t {
    left_justify = 0x01,
    always_sign = 0x02,
    blank_sign = 0x04,
    fill_zeros = 0x08,
    alternate = 0x10,
    group_digits = 0x20,
    any_flag = 0x3F,
    sized_conversion = 0x40, // may have a length before it
    plain_conversion = 0x80,
};

/// What each byte means within a directive.
struct byte_kinds {
    uint8_t of[256] = {};
    consteval byte_kinds() {
        mark("-", left_justify), mark("+", always_sign), mark(" ", blank_sign);
        mark("0", fill_zeros), mark("#", alternate), mark("'", group_digits);
        mark("diuxXo", sized_conversion), mark("bpcs", plain_conversion);
    }
    consteval void mark(const char *bytes, uint8_t kind) {
        for (; *bytes; bytes++) of[static_cast<unsigned char>(*bytes)] = kind;
    }
};
constexpr byte_kinds kinds;

inline uint8_t kind_of(char c) { return kinds.of[static_cast<unsigned char>(c)]; }

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

struct directive {
    enum source : uint8_t { absent, given, argument };

    uint32_t width = 0;
    uint32_t precision = 0;
    source width_from = absent;
    source precision_from = absent;
    uint8_t flags = 0;
    bool wide = false; // the argument has 64 bits
    char conversion = 0;

    bool left() const { return flags & left_justify; }

    /// Reads what stands behind the "%"; returns where it ends, null when it is malformed.
    const char *parse(const char *p) {
        for (; kind_of(*p) & any_flag; p++) flags |= kind_of(*p);
        if (*p == '*' || is_digit(*p)) p = parse_number(p, width, width_from);
        if (*p == '.') {
            precision_from = given;
            p = parse_number(p + 1, precision, precision_from);
        }
        uint8_t allowed = sized_conversion | plain_conversion;
        if (*p == 'l') {
            p += p[1] == 'l' ? 2 : 1;
            wide = true;
            allowed = sized_conversion;
        }
        conversion = *p;
        return kind_of(*p) & allowed ? p + 1 : nullptr;
    }

  private:
    static const char *parse_number(const char *p, uint32_t &number, source &from) {
        if (*p == '*') {
            from = argument;
            return p + 1;
        }
        for (; is_digit(*p); p++) {
            const uint64_t longer = uint64_t{number} * 10 + static_cast<uint64_t>(*p - '0');
            number = static_cast<uint32_t>(std::min<uint64_t>(longer, INT_MAX));
            from = given;
        }
        return p;
    }
};

} // namespace vorncore
