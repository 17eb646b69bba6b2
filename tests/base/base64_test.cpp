#include "vorncore/base/base64.h"

#include "support/harness.h"

using namespace harness;

namespace {

// The decoder as plain rules. `bound` is tested between groups only. False: malformed.
bool model_decode(const std::string &text, size_t bound, std::string &bytes) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    bytes.clear();
    for (size_t at = 0; at < bound;) {
        std::string group;
        for (; at < text.size() && group.size() < 4; at++)
            if (text[at] == '=' || alphabet.find(text[at]) != alphabet.npos) group += text[at];
        if (group.empty()) return true;
        if (group.size() < 4 || group[0] == '=' || group[1] == '=') return false;
        uint32_t bits = 0;
        for (const char c : group) bits = bits << 6 | static_cast<uint32_t>(alphabet.find(c) & 63);
        const size_t count = group[2] == '=' ? 1 : group[3] == '=' ? 2 : 3;
        for (size_t i = 0; i < count; i++) bytes += static_cast<char>(bits >> (16 - 8 * i));
        if (count < 3) return true;
    }
    return true;
}

// A stream of chunks of one size that ends, or fails, behind the last; and one that collects.
struct chunks : xpi_istream {
    std::string bytes;
    size_t size, at = 0;
    bool fails = false;
    chunks(std::string input, size_t largest) : xpi_istream{}, bytes(std::move(input)), size(largest) { read = give; }
    static char *give(void *stream, uint32_t *length) {
        auto *in = static_cast<chunks *>(stream);
        char *const chunk = in->bytes.data() + in->at;
        const size_t count = std::min(in->size, in->bytes.size() - in->at);
        in->at += count;
        if (!count && in->fails) return nullptr; // the length is left alone, as the read buffers leave it
        *length = static_cast<uint32_t>(count);
        return chunk;
    }
};

struct collector : xpi_ostream {
    std::string bytes;
    std::vector<uint32_t> sizes;
    size_t refused; // the number of the write that fails
    explicit collector(size_t nth = 0) : xpi_ostream{}, refused(nth) { write = take; }
    static int32_t take(void *stream, const void *data, uint32_t length) {
        auto *out = static_cast<collector *>(stream);
        out->sizes.push_back(length);
        out->bytes.append(static_cast<const char *>(data), length);
        return out->sizes.size() == out->refused ? -1 : static_cast<int32_t>(length);
    }
};

TEST(Base64, EveryLengthRoundTripsWithinExactBuffers) {
    std::mt19937 random(1);
    for (size_t length = 0; length < 200; length++) {
        std::string bytes(length, '\0'), back;
        for (char &c : bytes) c = static_cast<char>(random());
        const int size = static_cast<int>(length), encoded_size = xp_base64_encoded_size(size);
        guard_page source(bytes), text(std::string(static_cast<size_t>(encoded_size) + 1, '#')), decoded(bytes);
        ASSERT_EQ(xp_base64_encode_data(source.data(), size, text.data()), encoded_size);
        ASSERT_EQ(text.data()[encoded_size], '\0');
        ASSERT_TRUE(model_decode(text.data(), strlen(text.data()), back));
        ASSERT_EQ(back, bytes) << length;
        memset(decoded.data(), '#', length);
        for (char *to : {decoded.data(), text.data()}) { // in place, too
            ASSERT_EQ(xp_base64_decode_data(text.data(), encoded_size, to), size);
            ASSERT_EQ(std::string(to, length), bytes);
        }
    }
    char text[16];
    EXPECT_STREQ(xp_base64_encode("\xFB\xEF\xFFz", text), "++//eg==");
    EXPECT_EQ(xp_base64_encoded_size(1'500'000'000), 2'000'000'000);
}

TEST(Base64, DecodersAgreeWithPlainRulesOnAnyText) {
    std::mt19937 random(2);
    const std::string clean = "ABCXYZabcxyz0189+/", any = clean + "\n \xC3-_", ends = any + "====";
    for (int round = 0; round < 6000; round++) {
        const size_t length = random() % 150, clean_until = random() % 150, bound = random() % (length + 3);
        std::string text, bytes;
        for (size_t i = 0; i < length; i++) {
            const std::string &set = i < clean_until ? clean : i + 8 < length ? any : ends;
            text += set[random() % set.size()];
        }
        guarded_text exact(text.c_str());
        std::vector<char> out(length + 4);
        bool good = model_decode(text, length, bytes);
        ASSERT_EQ(xp_base64_decode(exact.data(), out.data()), good ? out.data() : nullptr) << text;
        ASSERT_TRUE(!good || memcmp(out.data(), bytes.c_str(), bytes.size() + 1) == 0) << text;

        chunks in(std::string(text).insert(random() % (length + 1), 1, '\0'), 1 + random() % 90);
        collector written;
        ASSERT_EQ(xp_base64_decode_stream(&in, &written), good) << text;
        ASSERT_TRUE(!good || written.bytes == bytes) << text;

        good = model_decode(text, bound, bytes);
        ASSERT_EQ(xp_base64_decode_data(exact.data(), static_cast<int>(bound), out.data()),
                  good ? static_cast<int>(bytes.size()) : -1)
            << text << " up to " << bound;
    }
    EXPECT_EQ(xp_base64_decode_data("YWJ", -1, nullptr), 0);
}

TEST(Base64, StreamsWriteWholeStagingAreas) {
    std::string bytes(5000, '\0'), text(6669, '\0');
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * i >> 3);
    text.resize(static_cast<size_t>(xp_base64_encode_data(bytes.data(), 5000, text.data())));
    for (const size_t size : {1u, 2u, 3u, 5u, 700u, 5000u}) {
        collector encoded, decoded;
        chunks plain(bytes, size), coded(text, size);
        EXPECT_EQ(xp_base64_encode_stream(&plain, &encoded) + xp_base64_decode_stream(&coded, &decoded), 2);
        EXPECT_TRUE(encoded.bytes == text && decoded.bytes == bytes) << size;
        EXPECT_EQ(encoded.sizes, (std::vector<uint32_t>{1020, 1020, 1020, 1020, 1020, 1020, 548}));
        EXPECT_EQ(decoded.sizes, (std::vector<uint32_t>{1021, 1021, 1021, 1021, 916}));
    }
    for (auto *coder : {xp_base64_encode_stream, xp_base64_decode_stream})
        for (const size_t refused : {1u, 2u, 4u, 0u}) { // 0: the input fails
            chunks in(refused ? text : "YWJj", 100);
            in.fails = !refused;
            collector out(refused);
            EXPECT_EQ(coder(&in, &out), 0);
            EXPECT_EQ(out.sizes.size(), refused);
        }
    chunks padded("YQ==YWJjYWJj", 4);
    collector out;
    EXPECT_EQ(xp_base64_decode_stream(&padded, &out), 1);
    EXPECT_EQ(padded.at, 4u) << "nothing is read behind the padding";
}

} // namespace
