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

// Gives its bytes in chunks, keeps those that it takes, and fails at one of the calls.
struct stream : xpi_iostream {
    explicit stream(std::string input = "", size_t largest_chunk = 0, size_t failing_call = 0)
        : xpi_iostream{}, bytes(std::move(input)), largest(largest_chunk), failing(failing_call) {
        read = [](void *self, uint32_t *length) -> char * {
            auto *in = static_cast<stream *>(self);
            if (++in->reads == in->failing) return nullptr; // the length is left alone, as the read buffers leave it
            *length = static_cast<uint32_t>(std::min(in->largest, in->bytes.size() - in->at));
            return in->bytes.data() + std::exchange(in->at, in->at + *length);
        };
        write = [](void *self, const void *data, uint32_t length) {
            auto *out = static_cast<stream *>(self);
            out->bytes.append(static_cast<const char *>(data), length);
            out->sizes.push_back(length);
            return out->sizes.size() == out->failing ? -1 : static_cast<int32_t>(length);
        };
    }
    std::string bytes;
    size_t largest, failing, at = 0, reads = 0;
    std::vector<uint32_t> sizes;
};

int encode(stream &in, stream &out) { return xp_base64_encode_stream(xpio_istream(&in), xpio_ostream(&out)); }
int decode(stream &in, stream &out) { return xp_base64_decode_stream(xpio_istream(&in), xpio_ostream(&out)); }

TEST(Base64, AgreesWithPlainRulesWithinExactBuffers) {
    std::mt19937 random(1);
    for (int round = 0; round < 10'000; round++) {
        std::string bytes(random() % 150, '\0'), back;
        for (char &c : bytes) c = static_cast<char>(random());
        const int size = static_cast<int>(bytes.size()), text_size = xp_base64_encoded_size(size);
        guard_page source(bytes), encoded(std::string(static_cast<size_t>(text_size) + 1, '#')), apart(bytes);
        ASSERT_EQ(xp_base64_encode_data(source.data(), size, encoded.data()), text_size);
        std::string text = encoded.data();
        ASSERT_TRUE(model_decode(text, text.size(), back) && back == bytes) << text;
        for (char *to : {apart.data(), encoded.data()}) { // in place, too
            ASSERT_EQ(xp_base64_decode_data(encoded.data(), text_size, to), size);
            ASSERT_EQ(std::string_view(to, bytes.size()), bytes);
        }

        text.resize(text.size() - random() % 4 * (text.size() > 3)); // from here on any text
        for (auto edits = random() % 5; edits; edits--)
            text.insert(random() % 4 ? random() % (text.size() + 1) : text.size(), 1, "\n \xC3-_=A"[random() % 7]);
        guarded_text exact(text.c_str());
        std::string out(text.size() + 4, '#');
        bool good = model_decode(text, text.size(), back);
        ASSERT_EQ(xp_base64_decode(exact.data(), out.data()), good ? out.data() : nullptr) << text;
        ASSERT_TRUE(!good || out.starts_with(back + '\0')) << text;

        stream in(std::string(text).insert(random() % (text.size() + 1), 1, '\0'), 1 + random() % 90), written;
        ASSERT_EQ(decode(in, written), good) << text;
        ASSERT_TRUE(!good || written.bytes == back) << text;

        const auto bound = static_cast<int>(random() % (text.size() + 3));
        good = model_decode(text, static_cast<size_t>(bound), back);
        ASSERT_EQ(xp_base64_decode_data(exact.data(), bound, out.data()), good ? static_cast<int>(back.size()) : -1)
            << text << " up to " << bound;
    }
    char text[16];
    EXPECT_STREQ(xp_base64_encode("\xFB\xEF\xFFz", text), "++//eg==");
    EXPECT_EQ(xp_base64_decode_data("YWJ", -1, nullptr), 0);
    EXPECT_EQ(xp_base64_encoded_size(1'500'000'000), 2'000'000'000);
}

TEST(Base64, StreamsWriteWholeStagingAreas) {
    std::string bytes(5000, '\0'), text(6669, '\0');
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * i >> 3);
    text.resize(static_cast<size_t>(xp_base64_encode_data(bytes.data(), 5000, text.data())));
    for (const size_t size : {1u, 2u, 3u, 5u, 700u, 5000u})
        for (const size_t refused : {0u, 1u, 2u, 4u}) {
            stream plain(bytes, size), coded(text, size), encoded("", 0, refused), decoded("", 0, refused);
            EXPECT_EQ(encode(plain, encoded) + decode(coded, decoded), refused ? 0 : 2) << size;
            std::vector<uint32_t> text_sizes(6, 1020), sizes(4, 1021);
            text_sizes.push_back(548), text_sizes.resize(refused ? refused : 7);
            sizes.push_back(916), sizes.resize(refused ? refused : 5);
            EXPECT_TRUE(encoded.sizes == text_sizes && decoded.sizes == sizes) << size << ' ' << refused;
            EXPECT_TRUE(refused || (encoded.bytes == text && decoded.bytes == bytes)) << size;
        }
    for (auto *coder : {encode, decode}) {
        stream failing("YWJj", 100, 2), out;
        EXPECT_EQ(coder(failing, out), 0);
        EXPECT_EQ(out.bytes, "");
    }
    stream padded("YQ==YWJjYWJj", 4), out;
    EXPECT_EQ(decode(padded, out), 1);
    EXPECT_EQ(padded.at, 4u) << "nothing is read behind the padding";
}

} // namespace
