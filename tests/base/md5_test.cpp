#include "vorncore/base/md5.h"

#include <string.h>

#include <algorithm>
#include <random>

#include "support/harness.h"

namespace {

void update(xp_md5 *md5, std::string_view bytes) { xp_md5_update(md5, bytes.data(), static_cast<int>(bytes.size())); }

std::string digest(std::string_view bytes) {
    xp_md5 md5;
    xp_md5_init(&md5);
    update(&md5, bytes);
    xp_md5_close(&md5);
    return xp_md5_result_str(&md5);
}

// The first seven are those of RFC 1321; the others, around the ends of a block, come from another implementation.
TEST(Md5, MatchesKnownDigests) {
    const std::pair<std::string, const char *> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
        {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
        {std::string(63, 'x'), "7dc2ca208106a2f703567bdff99d8981"},
        {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
        {std::string(119, 'x'), "ab347a5f68c8a443cfcddc633f12c24f"},
        {std::string(120, 'x'), "fb98667f98096de92620b64f46e1c5b5"},
        {std::string(128, 'x'), "d69cb61a6ee87200676eb0d4b90edbcb"},
    };
    for (const auto &[bytes, expected] : cases) EXPECT_EQ(digest(bytes), expected) << bytes.size() << " bytes";
}

TEST(Md5, PiecesDigestAsTheWhole) {
    std::mt19937 random(1);
    std::string bytes(1000, '\0');
    for (char &c : bytes) c = static_cast<char>(random());
    const std::string expected = digest(bytes);
    for (int round = 0; round < 300; round++) {
        const size_t fixed[] = {1, 63, 64, 65};
        xp_md5 md5;
        xp_md5_init(&md5);
        for (std::string_view left = bytes; !left.empty();) {
            const size_t piece = std::min(left.size(), round < 4 ? fixed[round] : random() % 200);
            harness::guard_page end(left.substr(0, piece));
            xp_md5_update(&md5, end.data(), static_cast<int>(piece));
            left.remove_prefix(piece);
        }
        xp_md5_update(&md5, nullptr, 0);
        xp_md5_update(&md5, nullptr, -1);
        xp_md5_close(&md5);
        ASSERT_EQ(xp_md5_result_str(&md5), expected) << "round " << round;
    }
}

// A context that claims 4 GiB less 64 bytes so far.
TEST(Md5, TheCountCarriesIntoItsUpperHalfAndIsDigestedWhole) {
    xp_md5 narrow, wide;
    xp_md5_init(&narrow);
    narrow.count_low = UINT32_MAX - 63;
    wide = narrow;
    wide.count_high = 1;
    const std::string bytes(100, 'x');
    for (xp_md5 *md5 : {&narrow, &wide}) update(md5, bytes);
    EXPECT_EQ(narrow.count_high, 1u);
    EXPECT_EQ(narrow.count_low, 36u);
    EXPECT_EQ(wide.count_high, 2u);
    xp_md5_close(&narrow), xp_md5_close(&wide);
    EXPECT_STRNE(xp_md5_result_str(&narrow), xp_md5_result_str(&wide));
}

TEST(Md5, TheTextIsBuiltOncePerDigest) {
    xp_md5 md5;
    memset(&md5, 0xFF, sizeof md5);
    xp_md5_init(&md5);
    const uint8_t *bytes = xp_md5_close(&md5);
    EXPECT_EQ(bytes, md5.block);
    EXPECT_EQ(bytes[0], 0xd4);
    EXPECT_EQ(bytes[15], 0x7e);
    const char *text = xp_md5_result_str(&md5);
    EXPECT_STREQ(text, "d41d8cd98f00b204e9800998ecf8427e");
    md5.block[0] = 0;
    EXPECT_EQ(xp_md5_result_str(&md5), text);
    EXPECT_STREQ(text, "d41d8cd98f00b204e9800998ecf8427e") << "not built again";
    xp_md5_init(&md5);
    update(&md5, "abc");
    xp_md5_result_str(&md5); // asked too early
    xp_md5_close(&md5);
    EXPECT_STREQ(xp_md5_result_str(&md5), "900150983cd24fb0d6963f7d28e17f72") << "a new digest, a new text";
}

} // namespace
