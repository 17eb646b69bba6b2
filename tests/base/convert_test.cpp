#include "vorncore/base/convert.h"

#include <ctype.h>

#include "support/harness.h"

static const std::string digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// Up to radix 36 the oracle is strtoull, which takes letters in either case.
TEST(Convert, EveryRadixRoundTripsAtExactSizes) {
    std::mt19937_64 random(1);
    char buffer[80];
    for (uint32_t radix = 2; radix <= 62; radix++)
        for (int i = 0; i < 60; i++) {
            const uint64_t value = random() >> random() % 64;
            const auto low = static_cast<uint32_t>(value);
            const char *text = xp_convertl(value, buffer, sizeof buffer, radix);
            ASSERT_EQ(xp_reverse_convertl(text, radix), value) << "radix " << radix;
            ASSERT_EQ(xp_reverse_convert(text, radix), low) << "wraps";
            ASSERT_TRUE(radix > 36 || strtoull(text, nullptr, static_cast<int>(radix)) == value);

            const std::string expected(text = xp_convert(low, buffer, sizeof buffer, radix));
            const int fits = static_cast<int>(expected.size()) + 1;
            for (int size = -1; size <= fits + 3; size++) {
                std::string exact(static_cast<size_t>(std::max(size, 0)), '#');
                char *plain = xp_convert_ex(low, exact.data(), size, radix, digits.c_str());
                ASSERT_EQ(plain, size < fits ? nullptr : exact.data() + size - fits);
                ASSERT_STREQ(plain, plain ? expected.c_str() : nullptr);
                char *filled = xp_convert(low, exact.data(), size, XP_CONVERT_PAD('\xFE') | radix);
                ASSERT_EQ(filled, size < fits ? nullptr : exact.data());
                ASSERT_TRUE(!filled || filled == std::string(static_cast<size_t>(size - fits), '\xFE') + expected);
            }
        }
    EXPECT_STREQ(xp_convert(0, buffer, 4, 0x8030003e), "000");
    EXPECT_STREQ(xp_convertl(0, buffer, 8, 2), "0");
    EXPECT_STREQ(xp_convert_ex(10, buffer, 8, 3, "abc"), "bab");
    for (const uint32_t radix : {0u, 63u}) EXPECT_EQ(xp_convert(1, buffer, 8, radix), nullptr);
}

TEST(Convert, TheTablesAreUsedAsTheyAreAndNothingIsValidated) {
    uint8_t table[256];
    for (int byte = 0; byte < 256; byte++)
        EXPECT_EQ(xp_rconv62_map[byte], isalnum(byte) ? digits.find(static_cast<char>(byte)) : 255) << byte;
    EXPECT_EQ(xp_conv62_map, digits);
    EXPECT_EQ(xp_gen_rconv62_map(table, std::string(digits.rbegin(), digits.rend()).c_str()), 0);
    EXPECT_EQ(xp_reverse_convert_ex("yz", 62, table), 62u);
    EXPECT_EQ(xp_reverse_convert_ex("1f", XP_CONVERT_PAD(' ') | 16, table), 31u) << "radix 16 has digits of its own";
    EXPECT_EQ(xp_gen_rconv62_map(table, "\xE9z"), -1);
    EXPECT_TRUE(table[0xE9] == 0 && table[int{'z'}] == 1 && table[int{'0'}] == 255);
    EXPECT_EQ(xp_reverse_convert("1 2", 10), 100u + 10 * 255 + 2);
    EXPECT_EQ(xp_reverse_convert("1g2", 16), 256u - 16 * 128 + 2);
    EXPECT_EQ(xp_reverse_convertl("!", 16), UINT64_MAX - 127);
}
