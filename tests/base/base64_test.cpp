#include "vorncore/base/base64.h"

#include <string.h>

#include <algorithm>
#include <random>

#include "support/harness.h"

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

// A stream of chunks of 1, 2, ... `largest` bytes that ends, or fails, behind the last; and one that collects.
struct chunks : xpi_istream {
    std::string bytes;
    size_t largest, at = 0, next = 0;
    bool fails = false;
    chunks(std::string input, size_t most) : xpi_istream{}, bytes(std::move(input)), largest(most) {
        read = [](void *stream, uint32_t *length) -> char * {
            auto *in = static_cast<chunks *>(stream);
            const size_t count = std::min(in->next++ % in->largest + 1, in->bytes.size() - in->at);
            if (!count && in->fails) return nullptr; // the length is left alone, as the read buffers leave it
            *length = static_cast<uint32_t>(count);
            in->at += count;
            return count ? in->bytes.data() + in->at - count : nullptr;
        };
    }
};

struct collector : xpi_ostream {
    std::string bytes;
    std::vector<uint32_t> sizes;
    size_t refused = 0; // the number of the write that fails
    collector() : xpi_ostream{} {
        write = [](void *stream, const void *data, uint32_t length) -> int32_t {
            auto *out = static_cast<collector *>(stream);
            out->sizes.push_back(length);
            if (out->sizes.size() == out->refused) return -1;
            out->bytes.append(static_cast<const char *>(data), length);
            return static_cast<int32_t>(length);
        };
    }
};

TEST(Base64, VectorsOfTheStandard) {
    const char *const cases[][2] = {{"", ""},
                                    {"f", "Zg=="},
                                    {"fo", "Zm8="},
                                    {"foo", "Zm9v"},
                                    {"foob", "Zm9vYg=="},
                                    {"fooba", "Zm9vYmE="},
                                    {"foobar", "Zm9vYmFy"},
                                    {"\xFB\xEF\xFF", "++//"}};
    for (const auto &[bytes, text] : cases) {
        char out[16];
        const int length = static_cast<int>(strlen(bytes));
        EXPECT_EQ(xp_base64_encode(bytes, out), out);
        EXPECT_STREQ(out, text);
        EXPECT_EQ(xp_base64_encoded_size(length), static_cast<int>(strlen(text)));
        EXPECT_EQ(xp_base64_decode(text, out), out);
        EXPECT_STREQ(out, bytes);
        EXPECT_EQ(xp_base64_decode_data(text, static_cast<int>(strlen(text)), out), length);
    }
    EXPECT_EQ(xp_base64_encoded_size(1'500'000'000), 2'000'000'000);
}

TEST(Base64, EveryLengthRoundTripsWithinExactBuffers) {
    std::mt19937 random(1);
    for (size_t length = 0; length < 200; length++) {
        std::string bytes(length, '\0'), back;
        for (char &c : bytes) c = static_cast<char>(random());
        const int size = static_cast<int>(length), encoded_size = xp_base64_encoded_size(size);
        harness::guard_page source(bytes), text(std::string(static_cast<size_t>(encoded_size) + 1, '#'));
        ASSERT_EQ(xp_base64_encode_data(source.data(), size, text.data()), encoded_size);
        ASSERT_EQ(text.data()[encoded_size], '\0');
        ASSERT_TRUE(model_decode(text.data(), strlen(text.data()), back));
        ASSERT_EQ(back, bytes) << length;
        harness::guard_page decoded(std::string(length, '#'));
        ASSERT_EQ(xp_base64_decode_data(text.data(), encoded_size, decoded.data()), size);
        ASSERT_EQ(std::string(decoded.data(), length), bytes);
        ASSERT_EQ(xp_base64_decode_data(text.data(), encoded_size, text.data()), size) << "in place";
        ASSERT_EQ(std::string(text.data(), length), bytes);
    }
}

TEST(Base64, DecodersAgreeWithPlainRulesOnAnyText) {
    std::mt19937 random(2);
    const std::string clean = "ABCXYZabcxyz0189+/", any = clean + "\n \xC3-_", ends = any + "====";
    for (int round = 0; round < 6000; round++) {
        const size_t length = random() % 150, clean_until = random() % 150;
        std::string text, bytes;
        for (size_t i = 0; i < length; i++) {
            const std::string &set = i < clean_until ? clean : i + 8 < length ? any : ends;
            text += set[random() % set.size()];
        }
        const size_t bound = random() % (length + 3);
        std::vector<char> out(length + 4);
        bool good = model_decode(text, length, bytes);
        ASSERT_EQ(xp_base64_decode(text.c_str(), out.data()), good ? out.data() : nullptr) << text;
        ASSERT_TRUE(!good || memcmp(out.data(), bytes.c_str(), bytes.size() + 1) == 0) << text;

        chunks in(std::string(text).insert(random() % (length + 1), 1, '\0'), 1 + random() % 90);
        collector written;
        ASSERT_EQ(xp_base64_decode_stream(&in, &written), good) << text;
        ASSERT_TRUE(!good || written.bytes == bytes) << text;

        good = model_decode(text, bound, bytes);
        ASSERT_EQ(xp_base64_decode_data(text.c_str(), static_cast<int>(bound), out.data()),
                  good ? static_cast<int>(bytes.size()) : -1)
            << text << " up to " << bound;
    }
}

TEST(Base64, WhatEndsAText) {
    const struct {
        const char *text;
        int length, result;
    } cases[] = {{"YWJj\n", 5, 3}, {"YWJjZGVm", 5, 6}, {"YWJjZGV", 5, -1}, {"YWJj\nZGVm", 5, 6}, {"YWJjZGVm", 4, 3},
                 {"YWJj", 400, 3}, {"YQ==YWJj", 8, 1}, {"YQ=x", 4, 1},     {"YQ=", 3, -1},       {"=YWJ", 4, -1},
                 {"Y=WJ", 4, -1},  {"YWJ", 3, -1},     {"YWJ", -1, 0},     {"\n", 1, 0}};
    for (const auto &c : cases) {
        harness::guard_page text(std::string_view(c.text, strlen(c.text) + 1));
        char out[16];
        EXPECT_EQ(xp_base64_decode_data(text.data(), c.length, out), c.result) << c.text << ' ' << c.length;
    }
}

TEST(Base64, StreamsWriteWholeStagingAreas) {
    std::string bytes(5000, '\0'), text(6669, '\0');
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * i >> 3);
    text.resize(static_cast<size_t>(xp_base64_encode_data(bytes.data(), 5000, text.data())));
    for (const size_t largest : {1u, 2u, 3u, 5u, 700u, 5000u}) {
        collector encoded, decoded;
        chunks plain(bytes, largest), coded(text, largest);
        plain.next = coded.next = largest - 1;
        EXPECT_EQ(xp_base64_encode_stream(&plain, &encoded), 1);
        EXPECT_EQ(encoded.bytes, text);
        EXPECT_EQ(encoded.sizes, (std::vector<uint32_t>{1020, 1020, 1020, 1020, 1020, 1020, 548}));
        EXPECT_EQ(xp_base64_decode_stream(&coded, &decoded), 1);
        EXPECT_EQ(decoded.bytes, bytes);
        EXPECT_EQ(decoded.sizes, (std::vector<uint32_t>{1021, 1021, 1021, 1021, 916}));
    }
    for (auto *coder : {xp_base64_encode_stream, xp_base64_decode_stream}) {
        for (const size_t refused : {1u, 2u, 4u}) {
            chunks in(text, 100);
            collector out;
            out.refused = refused;
            EXPECT_EQ(coder(&in, &out), 0);
            EXPECT_EQ(out.sizes.size(), refused);
        }
        chunks failing("YWJj", 9);
        failing.fails = true;
        collector out;
        EXPECT_EQ(coder(&failing, &out), 0);
    }
    chunks padded("YQ==YWJjYWJj", 4);
    padded.next = 3;
    collector out;
    EXPECT_EQ(xp_base64_decode_stream(&padded, &out), 1);
    EXPECT_EQ(padded.at, 4u) << "nothing is read behind the padding";
}

} // namespace
