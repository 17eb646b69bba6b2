#include "vorncore/base/crypt.h"

#include <limits.h>

#include "support/harness.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/io/rand.h"
#include "vorncore/io/timeutil.h"

namespace {

// Scrambled by another program, written from the description of the format alone.
TEST(Crypt, UnscramblesWhatOtherBuildsScrambled) {
    const struct {
        const char *phrase, *text, *scrambled;
    } cases[] = {
        {"secret", "attack at dawn, by the river",
         "f8783c0b116b6514be2d18000e5c8e647b6c5c04242f8c8b5dbcfa6d39629e0943e7bb55"},
        {"pass phrase", "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz",
         "00181e886002d297d032027af97f1ef5de101bbbfa29e2c6e2fa3897afe6b7b8c0e3f994f91a84f44aa0b5a1562f9ac65361b6f7aa1cd"
         "65c"
         "300da378bf22c475f10ef5848c6e5e26bd3b5ab1925c57f7be6da6"},
        {"x", "any other first byte", "9c3efe35acaf91fde30be1625649947298594c04789e6f9ea92c6960"},
    };
    for (const auto &c : cases) {
        std::string bytes;
        for (const char *p = c.scrambled; *p; p += 2)
            bytes += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
        harness::guard_page input(bytes), output(std::string_view(c.text));
        uint8_t key[16];
        const int length = static_cast<int>(bytes.size());
        xp_crypt_init(key, c.phrase, static_cast<int>(strlen(c.phrase)));
        for (char *to : {output.data(), input.data()}) { // elsewhere, then in place
            EXPECT_EQ(xp_crypt_decrypt(key, input.data(), length, to), length - 8);
            EXPECT_EQ(memcmp(to, c.text, strlen(c.text)), 0) << c.text;
        }
    }
}

// The generator's clock and seed are tried out: one of them must give the salt, the first byte and the nibbles.
TEST(Crypt, ScramblesWithTheGeneratorsNumbersAndBack) {
    uint8_t key[16];
    xp_crypt_init(key, "k", 1);
    for (const size_t length : std::initializer_list<size_t>{0, 1, 3, 4, 5, 59, 60, 61, 100}) {
        const std::string text(length, 't');
        harness::guard_page input(text), output(text + "8 bytes!");
        const uint32_t before = xp_time_ms();
        ASSERT_EQ(xp_crypt_encrypt(key, input.data(), static_cast<int>(length), output.data()), length + 8);
        const auto *const header = reinterpret_cast<uint8_t *>(output.data());
        int matches = 0;
        for (uint32_t n = 0, clocks = xp_time_ms() - before + 1; n < 256 * clocks; n++) {
            xp_random random = {xp_hash_randseed[n % 256], before + n / 256, {}};
            const uint32_t salt = xp_rand32u(&random);
            bool same = header[0] == (xp_rand32u(&random) & 255);
            for (int i = 2; i < 8 && same; i++) same = header[i] >> 4 == (xp_rand32u(&random) & 15);
            for (size_t i = 0; i < length && same; i++)
                same = header[8 + i] == uint8_t('t' ^ key[i % 15] ^ salt >> (24 - i % 4 * 8));
            matches += same;
        }
        EXPECT_EQ(matches, 1) << length;
        key[15]++; // takes no part
        EXPECT_EQ(xp_crypt_decrypt(key, output.data(), static_cast<int>(length) + 8, input.data()), length);
        EXPECT_EQ(std::string_view(input.data(), length), text);
    }
}

TEST(Crypt, LengthsThatCannotBeRightTouchNothing) {
    for (const int length : {-1, -8, INT_MIN, INT_MAX, INT_MAX - 7})
        EXPECT_EQ(xp_crypt_encrypt(nullptr, nullptr, length, nullptr), -1) << length;
    for (const int length : {INT_MIN, -1, 0, 7}) EXPECT_EQ(xp_crypt_decrypt(nullptr, nullptr, length, nullptr), -1);
}

} // namespace
