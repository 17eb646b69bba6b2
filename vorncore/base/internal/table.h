// Exported tables are plain arrays, which no function can return: `const T table[256] = {VORNCORE_TABLE_256(rule)};`
// fills one from a consteval rule(index).
#pragma once

#define VORNCORE_TABLE_4(rule, n) rule(n), rule((n) + 1), rule((n) + 2), rule((n) + 3)
#define VORNCORE_TABLE_16(rule, n)                                                                                     \
    VORNCORE_TABLE_4(rule, n), VORNCORE_TABLE_4(rule, (n) + 4), VORNCORE_TABLE_4(rule, (n) + 8),                       \
        VORNCORE_TABLE_4(rule, (n) + 12)
#define VORNCORE_TABLE_64(rule, n)                                                                                     \
    VORNCORE_TABLE_16(rule, n), VORNCORE_TABLE_16(rule, (n) + 16), VORNCORE_TABLE_16(rule, (n) + 32),                  \
        VORNCORE_TABLE_16(rule, (n) + 48)
#define VORNCORE_TABLE_256(rule)                                                                                       \
    VORNCORE_TABLE_64(rule, 0), VORNCORE_TABLE_64(rule, 64), VORNCORE_TABLE_64(rule, 128), VORNCORE_TABLE_64(rule, 192)
