#include "vorncore/base/crypt.h"

#include <limits.h>

#include "support/fault.h"
#include "support/harness.h"

namespace {

// Scrambled by another program, written from the description of the format and of the generator alone.
TEST(Crypt, ScramblesAndUnscramblesAsOtherBuildsDo) {
    const struct {
        timeval now; // makes the salt
        const char *phrase, *text, *scrambled;
    } cases[] = {
        {{0, 0}, "x", "", "ce01d687341e9b76"},
        {{1234567890, 123456}, "secret", "at dawn", "f3d89344a00d9437dc8575136ee8f9"},
        {{1234567890, 123457}, "secret", "at dawn", "40da866ca1bc99edd6694b756404c7"},
        {{1700000000, 999999},
         "pass phrase",
         "0123456789abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopq",
         "52cc5edc531987d67c5737f1551a2b7e7275756909158c1469b626352caaa91a4bbff7266a468a46c1ecab039e2ecb299368ef10621dd"
         "c"
         "ea9f6d91f6104afef35e6ec70a231674"},
    };
    for (const auto &[now, phrase, text, scrambled] : cases) {
        std::string bytes;
        for (const char *p = scrambled; *p; p += 2)
            bytes += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
        const int length = static_cast<int>(strlen(text));
        harness::guard_page plain({text, strlen(text)}), coded(std::string(bytes.size(), '#'));
        uint8_t key[16];
        xp_crypt_init(key, phrase, static_cast<int>(strlen(phrase)));
        const harness::pinned_clock clock(now);
        EXPECT_EQ(xp_crypt_encrypt(key, plain.data(), length, coded.data()), length + 8);
        EXPECT_EQ(std::string_view(coded.data(), bytes.size()), bytes) << text;
        key[15]++;                                      // takes no part
        for (char *to : {plain.data(), coded.data()}) { // elsewhere, then in place
            EXPECT_EQ(xp_crypt_decrypt(key, coded.data(), length + 8, to), length);
            EXPECT_EQ(std::string_view(to, strlen(text)), text);
        }
    }
    for (const int wrong : {-1, INT_MIN, INT_MAX - 7})
        EXPECT_EQ(xp_crypt_encrypt(nullptr, nullptr, wrong, nullptr), -1);
    for (const int wrong : {-1, INT_MIN, 7}) EXPECT_EQ(xp_crypt_decrypt(nullptr, nullptr, wrong, nullptr), -1);
}

} // namespace
