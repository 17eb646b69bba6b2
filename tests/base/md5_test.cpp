#include "vorncore/base/md5.h"

#include "support/harness.h"

namespace {

/// The digest of bytes that come in pieces.
std::string digest(const std::string &bytes, size_t piece = SIZE_MAX) {
    xp_md5 md5;
    xp_md5_init(&md5);
    for (size_t at = 0, size; at < bytes.size(); at += size) {
        size = std::min(piece, bytes.size() - at);
        xp_md5_update(&md5, harness::guard_page({&bytes[at], size}).data(), static_cast<int>(size));
    }
    xp_md5_close(&md5);
    return xp_md5_result_str(&md5);
}

TEST(Md5, MatchesKnownDigestsInPiecesOfAnySize) {
    EXPECT_EQ(digest("abc"), "900150983cd24fb0d6963f7d28e17f72"); // from RFC 1321
    std::string digests;
    for (size_t length = 0; length < 200; length++) digests += digest(std::string(length, 'x'));
    for (size_t piece = 1; piece < 10'000; piece += piece < 150 ? 1 : 9'000) // digested by another implementation
        EXPECT_EQ(digest(digests, piece), "0f0e2ac786e6a42eac7e7de3a518cd0c") << piece;
}

TEST(Md5, TheCountIsDigestedWholeAndTheTextBuiltOncePerDigest) {
    std::string texts[2]; // of what is longer than 4 GiB, and 8 GiB
    for (uint32_t high = 0; high < 2; high++) {
        xp_md5 md5;
        xp_md5_init(&md5);
        md5.count_low = UINT32_MAX - 63, md5.count_high = high;
        xp_md5_update(&md5, std::string(100, 'x').data(), 100);
        xp_md5_update(&md5, nullptr, -1);
        EXPECT_EQ(xp_md5_close(&md5), md5.block);
        EXPECT_EQ(md5.count_high, high + 1);
        texts[high] = xp_md5_result_str(&md5);
        md5.block[0]++;
        EXPECT_EQ(xp_md5_result_str(&md5), texts[high]) << "not built again";
        xp_md5_close(&md5);
        EXPECT_NE(xp_md5_result_str(&md5), texts[high]) << "a new digest, a new text";
    }
    EXPECT_NE(texts[0], texts[1]);
}

} // namespace
