#include "vorncore/base/convert.h"

#include "support/harness.h"

// That every radix leads back to the value, at every size of the buffer, is what convert_fuzz looks at.
TEST(Convert, TheTablesAreUsedAsTheyAreAndNothingIsValidated) {
    const std::string digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    char buffer[8];
    uint8_t table[256];
    EXPECT_EQ(xp_conv62_map, digits);
    EXPECT_EQ(xp_gen_rconv62_map(table, xp_conv62_map) | memcmp(table, xp_rconv62_map, sizeof table), 0);
    for (const uint32_t radix : {0u, 63u}) EXPECT_EQ(xp_convert(1, buffer, 8, radix), nullptr);
    EXPECT_STREQ(xp_convert(0, buffer, 4, 0x8030003e), "000");
    EXPECT_STREQ(xp_convert_ex(10, buffer, 8, 3, "abc"), "bab");
    xp_gen_rconv62_map(table, std::string(digits.rbegin(), digits.rend()).c_str());
    EXPECT_EQ(xp_reverse_convert_ex("yz", 62, table), 62u);
    EXPECT_EQ(xp_reverse_convert_ex("1f", XP_CONVERT_PAD(' ') | 16, table), 31u) << "radix 16 has digits of its own";
    EXPECT_EQ(xp_gen_rconv62_map(table, "\xE9z"), -1);
    EXPECT_TRUE(table[0xE9] == 0 && table[int{'z'}] == 1 && table[int{'0'}] == 255);
    EXPECT_EQ(xp_reverse_convert("1 2", 10), 100u + 10 * 255 + 2);
    EXPECT_EQ(xp_reverse_convert("1g2", 16), 256u - 16 * 128 + 2);
    EXPECT_EQ(xp_reverse_convertl("!", 16), UINT64_MAX - 127);
}
