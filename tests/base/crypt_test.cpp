#include "vorncore/base/crypt.h"

#include <limits.h>

#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/base/md5.h"

TEST(Crypt, ScramblesAndUnscramblesAsOtherBuildsDo) {
    xp_md5 all;
    xp_md5_init(&all);
    std::string text;
    for (int length = 0; length < 200; text += "at dawn "[length++ % 8]) {
        harness::guard_page plain(text), coded(text + "12345678");
        const harness::pinned_clock clock({1700000000 + length, 5001 * length}); // makes the salt
        uint8_t key[16];
        xp_crypt_init(key, text.data(), length % 20);
        ASSERT_EQ(xp_crypt_encrypt(key, plain.data(), length, coded.data()), length + 8);
        xp_md5_update(&all, coded.data(), length + 8);
        key[15]++;                                      // takes no part
        for (char *to : {plain.data(), coded.data()}) { // elsewhere, then in place
            ASSERT_EQ(xp_crypt_decrypt(key, coded.data(), length + 8, to), length);
            ASSERT_EQ(std::string_view(to, text.size()), text);
        }
    }
    // By another program, written from the description of the format and of the generator alone.
    xp_md5_close(&all);
    EXPECT_STREQ(xp_md5_result_str(&all), "03cba12bd4ffd4ca18acf6514afac066");
    for (const int wrong : {-1, INT_MIN, INT_MAX - 7})
        EXPECT_EQ(xp_crypt_encrypt(nullptr, nullptr, wrong, nullptr), -1);
    for (const int wrong : {-1, INT_MIN, 7}) EXPECT_EQ(xp_crypt_decrypt(nullptr, nullptr, wrong, nullptr), -1);
}
