#include "vorncore/base/md5.h"

#include "support/harness.h"

namespace {

void update(xp_md5 *md5, std::string_view bytes) {
    xp_md5_update(md5, harness::guard_page(bytes).data(), static_cast<int>(bytes.size()));
}

/// The digest of bytes that come in pieces.
std::string digest(std::string_view bytes, size_t piece = SIZE_MAX) {
    xp_md5 md5;
    xp_md5_init(&md5);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) update(&md5, bytes.substr(0, piece));
    xp_md5_close(&md5);
    return xp_md5_result_str(&md5);
}

// From RFC 1321, but for the last: 200 digests, digested by another implementation.
TEST(Md5, MatchesKnownDigestsInPiecesOfAnySize) {
    std::string ends_of_blocks;
    for (size_t length = 0; length < 200; length++) ends_of_blocks += digest(std::string(length, 'x'));
    const std::pair<std::string, const char *> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {ends_of_blocks, "0f0e2ac786e6a42eac7e7de3a518cd0c"},
    };
    for (const auto &[bytes, expected] : cases) EXPECT_EQ(digest(bytes), expected) << bytes.size() << " bytes";
    for (size_t piece = 1; piece < 150; piece++) EXPECT_EQ(digest(ends_of_blocks, piece), cases[4].second) << piece;
}

// Contexts that claim 4 GiB more, and less 64 bytes, so far.
TEST(Md5, TheCountCarriesIntoItsUpperHalfAndIsDigestedWhole) {
    xp_md5 narrow, wide;
    xp_md5_init(&narrow);
    narrow.count_low = UINT32_MAX - 63;
    wide = narrow;
    wide.count_high = 1;
    for (xp_md5 *md5 : {&narrow, &wide}) update(md5, std::string(100, 'x')), xp_md5_close(md5);
    EXPECT_EQ(narrow.count_high + wide.count_high, 3u);
    EXPECT_STRNE(xp_md5_result_str(&narrow), xp_md5_result_str(&wide));
}

TEST(Md5, TheTextIsBuiltOncePerDigest) {
    xp_md5 md5;
    memset(&md5, 0xFF, sizeof md5);
    xp_md5_init(&md5);
    xp_md5_update(&md5, nullptr, -1);
    EXPECT_EQ(xp_md5_close(&md5), md5.block);
    EXPECT_EQ(memcmp(md5.block, "\xd4\x1d\x8c\xd9", 4), 0);
    const std::string text = xp_md5_result_str(&md5);
    md5.block[0] = 0;
    EXPECT_EQ(xp_md5_result_str(&md5), text) << "not built again";
    xp_md5_close(&md5);
    EXPECT_NE(xp_md5_result_str(&md5), text) << "a new digest, a new text";
}

} // namespace
