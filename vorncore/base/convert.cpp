#include "vorncore/base/convert.h"

#include <string.h>

#include "vorncore/base/chartype.h"
#include "vorncore/base/internal/table.h"

constexpr char xp_conv62_map[63] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

namespace {

constexpr uint32_t padded = 0x80000000u;
constexpr uint8_t no_digit = 255;

consteval uint8_t digit_value(unsigned byte) {
    for (uint8_t value = 0; value < 62; value++)
        if (xp_conv62_map[value] == static_cast<char>(byte)) return value;
    return no_digit;
}

uint32_t radix_of(uint32_t flags) { return flags & 0xFF; }

template <class Value>
char *convert(Value value, char *buffer, int size, uint32_t flags, const char *alphabet) {
    const uint32_t radix = radix_of(flags);
    if (size <= 0 || radix == 0) return nullptr;
    char *first = buffer + size - 1;
    *first = '\0';
    do {
        if (first == buffer) return nullptr;
        *--first = alphabet[value % radix];
        value /= radix;
    } while (value);
    if (!(flags & padded)) return first;
    memset(buffer, static_cast<int>(flags >> 16 & 0xFF), static_cast<size_t>(first - buffer));
    return buffer;
}

template <class Value>
char *convert62(Value value, char *buffer, int size, uint32_t flags) {
    return radix_of(flags) <= 62 ? convert(value, buffer, size, flags, xp_conv62_map) : nullptr;
}

template <class Value>
Value reverse_convert(const char *text, uint32_t flags, const uint8_t *table) {
    const uint32_t radix = radix_of(flags);
    Value value = 0;
    for (; *text; text++) {
        const int digit = radix == 16 ? xp_char_hex_value(*text) : table[static_cast<unsigned char>(*text)];
        value = value * radix + static_cast<Value>(digit); // a negative digit wraps, too
    }
    return value;
}

} // namespace

const uint8_t xp_rconv62_map[256] = {VORNCORE_TABLE_256(digit_value)};

char *xp_convert(uint32_t value, char *buffer, int size, uint32_t flags) {
    return convert62(value, buffer, size, flags);
}

char *xp_convertl(uint64_t value, char *buffer, int size, uint32_t flags) {
    return convert62(value, buffer, size, flags);
}

char *xp_convert_ex(uint32_t value, char *buffer, int size, uint32_t flags, const char *alphabet) {
    return convert(value, buffer, size, flags, alphabet);
}

uint32_t xp_reverse_convert(const char *text, uint32_t flags) {
    return reverse_convert<uint32_t>(text, flags, xp_rconv62_map);
}

uint64_t xp_reverse_convertl(const char *text, uint32_t flags) {
    return reverse_convert<uint64_t>(text, flags, xp_rconv62_map);
}

uint32_t xp_reverse_convert_ex(const char *text, uint32_t flags, const uint8_t *table) {
    return reverse_convert<uint32_t>(text, flags, table);
}

int xp_gen_rconv62_map(uint8_t *table, const char *alphabet) {
    memset(table, no_digit, 256);
    for (uint8_t value = 0; value < 62; value++) {
        if (!alphabet[value]) return -1;
        table[static_cast<unsigned char>(alphabet[value])] = value;
    }
    return 0;
}
