#include "vorncore/base/skey.h"

#include "support/harness.h"

namespace {

// Signatures must never change: keys that were handed out carry them. The expected ones come from an independent
// transcription in another language.
TEST(SKey, SignaturesStayWhatTheyAre) {
    for (const std::string expected : {"0000", "yGrUa", "c6oUsession-17", "d8cbA longer key, with blanks",
                                       "wLNlcaf\xE9", "Z5Lo\xE9t\xE9", "Q03X\xFF\x80\x81"}) {
        const char *const raw = expected.c_str() + 4;
        harness::guard_page key(std::string(expected.size() + 1, '#'));
        EXPECT_EQ(xp_encode_rawskey(raw, key.data()), key.data());
        EXPECT_EQ(key.data(), expected);
        EXPECT_EQ(xp_decode_skey(key.data()), key.data() + 4);
        for (size_t i = 0; i < expected.size(); i++) {
            key.data()[i] ^= 1;
            EXPECT_EQ(xp_decode_skey(key.data()), nullptr) << key.data();
            key.data()[i] ^= 1;
        }
    }
    uint32_t all = 0;
    for (int byte = 1; byte < 256; byte++) {
        const char raw[] = {static_cast<char>(byte), '\0'};
        char key[8];
        for (const char c : std::string_view(xp_encode_rawskey(raw, key), 4)) all = all * 31 + static_cast<uint32_t>(c);
    }
    EXPECT_EQ(all, 1773013690U);
    EXPECT_EQ(xp_decode_skey(harness::guarded_text("000").data()), nullptr);
    harness::oom_sweep([] { // what a pool's keys leave behind, the harness sees
        xp_respool *pool = xp_create_respool();
        if (!pool) return;
        const char *key = xprp_encode_rawskey(pool, "session-17"), *empty = xprp_encode_rawskey(pool, nullptr);
        EXPECT_TRUE(!key || std::string(key) == "c6oUsession-17");
        EXPECT_TRUE(!empty || std::string(empty) == "0000");
        xp_destroy_respool(pool);
    });
}

} // namespace
