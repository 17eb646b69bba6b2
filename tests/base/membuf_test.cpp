#include "vorncore/base/membuf.h"

#include <string.h>

#include <random>

#include "support/harness.h"

namespace {

std::string contents(const xp_membuf &mb) { return {mb.data, mb.cursor}; }

// The buffer as plain rules: every byte on its own, one doubling after the other.
struct model {
    std::string bytes;
    uint64_t capacity = 0, initial = 1, max = 0;

    bool add_bytewise(const std::string &text) {
        for (const char c : text) {
            if (max && bytes.size() >= max) return false;
            if (bytes.size() == capacity) capacity = capacity ? capacity * 2 : initial;
            bytes += c;
        }
        return true;
    }
    bool reserve(uint64_t need) {
        if (max && max < need) return false;
        if (need <= capacity) return true;
        capacity = capacity ? capacity : 1;
        do capacity *= 2;
        while (capacity < need);
        return true;
    }
    int add_formatted(const std::string &text) {
        while (bytes.size() + text.size() > capacity) {
            if (max && capacity >= max) return -1;
            capacity = std::max(capacity * 2, initial);
            if (max) capacity = std::min(capacity, max);
        }
        bytes += text;
        return static_cast<int>(text.size());
    }
};

TEST(MemBuf, GrowsByItsThreeRulesUnderRandomOperations) {
    std::mt19937 random(1);
    for (int round = 0; round < 300; round++) {
        model expected;
        xp_membuf mb;
        expected.initial = std::max<uint64_t>(random() % 20, 1);
        xp_init_membuf(&mb, expected.initial == 1 ? 0 : static_cast<uint32_t>(expected.initial));
        for (int step = 0; step < 60; step++) {
            const std::string text(random() % 8 ? random() % 12 : random() % 300, static_cast<char>('a' + step % 26));
            const uint64_t size = random() % (expected.bytes.size() + 20);
            int result = 1, wanted = 1;
            switch (random() % 10) {
            case 0: result = xpmb_add_char(&mb, 'x'), wanted = expected.add_bytewise("x"); break;
            case 1: result = (xpmb_add_char)(&mb, 'y'), wanted = expected.add_bytewise("y"); break;
            case 2: result = xpmb_add_str(&mb, text.c_str()), wanted = expected.add_bytewise(text); break;
            case 3:
                result = xpmb_add_str_url_encode(&mb, (text + " ~\xFF").c_str());
                wanted = expected.add_bytewise(text + "+%7E%FF");
                break;
            case 4:
                result = xpmb_add_data(&mb, text.data(), text.size());
                if ((wanted = expected.reserve(expected.bytes.size() + text.size()))) expected.bytes += text;
                break;
            case 5: result = xpmb_printf(&mb, "%s|", text.c_str()), wanted = expected.add_formatted(text + "|"); break;
            case 6: result = xpmb_ensure(&mb, size), wanted = expected.reserve(size); break;
            case 7:
                result = xpmb_set_size(&mb, size);
                if ((wanted = size <= expected.bytes.size() || expected.reserve(size))) {
                    if (size > expected.bytes.size())
                        memset(mb.cursor - (size - expected.bytes.size()), '?', size - expected.bytes.size());
                    expected.bytes.resize(size, '?');
                }
                break;
            case 8:
                expected.max = random() % 3 ? size + 1 : 0;
                xpmb_set_maxlength(&mb, expected.max);
                if (expected.max && expected.max < expected.bytes.size()) expected.bytes.resize(expected.max);
                break;
            case 9:
                if (random() % 4 == 0) xpmb_clear(&mb), expected.bytes.clear();
                if (random() % 8 == 0) xpmb_reset(&mb), expected.bytes.clear(), expected.capacity = 0;
                break;
            }
            ASSERT_EQ(result, wanted) << "round " << round << " step " << step;
            ASSERT_EQ(contents(mb), expected.bytes) << "round " << round << " step " << step;
            ASSERT_EQ(mb.capacity, expected.capacity) << "round " << round << " step " << step;
            ASSERT_EQ(xpmb_tostr(&mb), mb.data);
            ASSERT_EQ(mb.data[expected.bytes.size()], '\0');
        }
        xp_close_membuf(&mb);
    }
}

TEST(MemBuf, MaximumLengthCutsBytewiseAppendsAndRefusesTheOthers) {
    xp_membuf *mb = xp_create_membuf(1);
    xpmb_set_maxlength(mb, 5);
    EXPECT_EQ(xpmb_add_data(mb, "abcdefg", 7), 0);
    EXPECT_EQ(mb->capacity, 0u);
    EXPECT_EQ(xpmb_printf(mb, "%s", "abcdefg"), -1);
    EXPECT_EQ(mb->capacity, 5u); // 1, 2, 4, 5, then refused
    EXPECT_EQ(contents(*mb), "");
    EXPECT_EQ(xpmb_add_str_v(mb, "ab", "", "cdefg", "h", nullptr), 0);
    EXPECT_EQ(contents(*mb), "abcde");
    EXPECT_EQ(xpmb_add_str(mb, ""), 1);
    for (const char *cut : {"%", "%2", "%2F"}) {
        xpmb_clear(mb);
        xpmb_set_maxlength(mb, strlen(cut));
        EXPECT_EQ(xpmb_add_str_url_encode(mb, "/x"), 0);
        EXPECT_EQ(contents(*mb), cut);
    }
    xp_destroy_membuf(mb);
}

TEST(MemBuf, ABufferWithoutStorageIsAnEmptyText) {
    xp_membuf mb;
    xp_init_membuf(&mb, 10);
    EXPECT_STREQ(xpmb_tostr(&mb), "");
    EXPECT_TRUE(xpmb_add_str_v(&mb, nullptr) && xpmb_add_data(&mb, nullptr, 0) && xpmb_ensure(&mb, 0));
    EXPECT_EQ(mb.capacity, 0u);
}

TEST(MemBuf, TakesItsOwnContentsAndRefusesImpossibleLengths) {
    xp_membuf mb;
    xp_init_membuf(&mb, 4);
    xpmb_add_str(&mb, "abcd");
    EXPECT_EQ(xpmb_add_data(&mb, mb.data + 1, 3), 1);
    EXPECT_EQ(xpmb_add_data(&mb, mb.data + 1, 6), 1);
    EXPECT_EQ(xpmb_add_str(&mb, xpmb_tostr(&mb)), 1);
    EXPECT_EQ(contents(mb), "abcdbcdbcdbcdabcdbcdbcdbcd");
    for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 26, UINT64_MAX / 2, UINT64_MAX / 2 + 2}) {
        EXPECT_EQ(xpmb_add_data(&mb, "x", size), 0);
        EXPECT_EQ(xpmb_set_size(&mb, size), 0);
        EXPECT_EQ(xpmb_ensure(&mb, size), 0);
    }
    EXPECT_EQ(contents(mb).size(), 26u);
    EXPECT_EQ(mb.capacity, 32u);
    xp_close_membuf(&mb);
}

TEST(MemBuf, StreamReadsWhatWasAppendedAndAlwaysTakesWhatIsWritten) {
    xp_membuf mb;
    xp_init_membuf(&mb, 4);
    xpi_iostream *stream = xpmb_create_iostream(&mb);
    xpi_ostream *out = xpio_ostream(stream);
    xpi_istream *in = xpio_istream(stream);
    uint32_t length = 9;
    EXPECT_EQ(in->read(in, &length), nullptr);
    for (const std::string text : {"abc", "de"}) {
        EXPECT_EQ(out->write(out, text.data(), static_cast<uint32_t>(text.size())), static_cast<int>(text.size()));
        const char *chunk = in->read(in, &length);
        EXPECT_EQ(std::string(chunk, length), text);
        EXPECT_EQ(in->read(in, &length), nullptr);
        EXPECT_EQ(length, 0u);
    }
    xpmb_set_maxlength(&mb, 4); // behind what was read
    EXPECT_EQ(out->write(out, "xyz", 3), 3);
    EXPECT_EQ(in->read(in, &length), nullptr);
    EXPECT_EQ(out->flush(out), 1);
    EXPECT_STREQ(in->lasterrmsg(in), "NO ERROR");
    EXPECT_EQ(in->lasterrcode(in), 0);
    out->destroy(out);
    EXPECT_STREQ(xpmb_tostr(&mb), "abcd");
    xp_close_membuf(&mb);
}

TEST(MemBuf, WithoutMemoryTheContentsStay) {
    harness::oom_sweep([] {
        xp_membuf *mb = xp_create_membuf(2);
        if (!mb) return;
        std::string expected;
        if (xpmb_add_str_v(mb, "ab", "cdefg", nullptr)) expected = "abcdefg";
        if (xpmb_add_str_url_encode(mb, "h ////////")) expected += "h+%2F%2F%2F%2F%2F%2F%2F%2F";
        if (xpmb_printf(mb, "%100d", 1) == 100) expected.append(99, ' ') += '1';
        if (xpmb_add_data(mb, "0123456789", 10)) expected += "0123456789";
        if (xpmb_set_size(mb, expected.size() + 1000)) xpmb_set_size(mb, expected.size());
        if (xpi_iostream *stream = xpmb_create_iostream(mb)) stream->destroy(stream);
        EXPECT_EQ(contents(*mb), expected);
        xp_destroy_membuf(mb);
    });
}

} // namespace
