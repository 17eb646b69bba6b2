#include "vorncore/base/membuf.h"

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
        if (need > capacity) capacity = capacity ? capacity : 2;
        while (need > capacity) capacity *= 2;
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
            const uint64_t length = expected.bytes.size(), size = random() % (length + 20);
            const model before = expected;
            const harness::fail_allocation failure(random() % 8 ? 0 : 1 + static_cast<int>(random() % 2));
            int result = 1, wanted = 1;
            switch (random() % 9) {
            case 0:
                result = (random() % 2 ? (xpmb_add_char) : xpmb_add_char_inline)(&mb, 'x');
                wanted = expected.add_bytewise("x");
                break;
            case 1:
                result = xpmb_add_str_v(&mb, text.c_str(), "", "yz", nullptr);
                wanted = expected.add_bytewise(text + "yz");
                break;
            case 2:
                result = xpmb_add_str_url_encode(&mb, (text + " ~\xFF").c_str());
                wanted = expected.add_bytewise(text + "+%7E%FF");
                break;
            case 3:
                result = xpmb_add_data(&mb, text.data(), text.size());
                if ((wanted = expected.reserve(length + text.size()))) expected.bytes += text;
                break;
            default: result = xpmb_printf(&mb, "%s|", text.c_str()), wanted = expected.add_formatted(text + "|"); break;
            case 4: result = xpmb_ensure(&mb, size), wanted = expected.reserve(size); break;
            case 5:
                result = xpmb_set_size(&mb, size);
                if (!(wanted = size <= length || expected.reserve(size))) break;
                if (result && size > length) memset(mb.data + length, '?', size - length);
                expected.bytes.resize(size, '?');
                break;
            case 6:
                xpmb_set_maxlength(&mb, expected.max = random() % 3 ? size + 1 : 0);
                if (expected.max) expected.bytes.resize(std::min(length, expected.max));
                break;
            case 7:
                if (random() % 4 == 0) xpmb_clear(&mb), expected.bytes.clear();
                if (random() % 8 == 0) xpmb_reset(&mb), expected.bytes.clear(), expected.capacity = 0;
            }
            if (failure.fired()) { // a call that grows the storage in steps keeps the first ones
                ASSERT_TRUE(result <= 0 && mb.capacity >= before.capacity);
                wanted = result, expected = before, expected.capacity = mb.capacity;
            }
            SCOPED_TRACE(step);
            ASSERT_EQ(result, wanted);
            ASSERT_EQ(contents(mb), expected.bytes);
            ASSERT_EQ(mb.capacity, expected.capacity);
            ASSERT_TRUE(xpmb_tostr(&mb) == mb.data && !*mb.cursor);
        }
        xp_close_membuf(&mb);
    }
}

TEST(MemBuf, TakesItsOwnContentsAndRefusesImpossibleLengths) {
    xp_membuf mb;
    xp_init_membuf(&mb, 4);
    EXPECT_TRUE(xpmb_add_str_v(&mb, nullptr) && xpmb_add_data(&mb, nullptr, 0) && xpmb_ensure(&mb, 0));
    EXPECT_EQ(mb.capacity, 0u);
    xpmb_add_str(&mb, "abcd");
    EXPECT_EQ(xpmb_add_data(&mb, mb.data + 1, 3), 1);
    EXPECT_EQ(xpmb_add_data(&mb, mb.data + 1, 6), 1);
    EXPECT_EQ(xpmb_add_str(&mb, xpmb_tostr(&mb)), 1);
    for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 26, UINT64_MAX / 2, UINT64_MAX / 2 + 2})
        EXPECT_EQ(xpmb_add_data(&mb, "x", size) + xpmb_set_size(&mb, size) + xpmb_ensure(&mb, size), 0);
    EXPECT_EQ(contents(mb), "abcdbcdbcdbcdabcdbcdbcdbcd");
    EXPECT_EQ(mb.capacity, 32u);
    xp_close_membuf(&mb);
}

TEST(MemBuf, StreamReadsWhatWasAppendedAndAlwaysTakesWhatIsWritten) {
    xp_membuf *mb;
    xpi_iostream *stream;
    harness::oom_sweep([&] { mb = xp_create_membuf(4); });
    harness::oom_sweep([&] { stream = xpmb_create_iostream(mb); });
    xpi_ostream *out = xpio_ostream(stream);
    xpi_istream *in = xpio_istream(stream);
    const auto pass = [=](const char *text) {
        uint32_t size = static_cast<uint32_t>(strlen(text));
        EXPECT_EQ(out->write(out, text, size), static_cast<int32_t>(size));
        const char *const chunk = in->read(in, &size);
        EXPECT_EQ(chunk == nullptr, size == 0);
        return std::string(chunk ? chunk : "", size);
    };
    for (const char *text : {"abc", "", "de"}) EXPECT_EQ(pass(text), text);
    xpmb_set_maxlength(mb, 6);
    EXPECT_EQ(pass("fgh"), "") << "dropped without a word";
    EXPECT_EQ(pass("f"), "f");
    xpmb_clear(mb);
    EXPECT_EQ(pass("12345"), "") << "the place of the reader stays";
    xpmb_set_maxlength(mb, 0);
    EXPECT_EQ(pass("678"), "78");
    EXPECT_TRUE(out->flush(out) == 1 && in->lasterrcode(in) == 0 && in->lasterrmsg(in) == std::string("NO ERROR"));
    out->destroy(out);
    EXPECT_STREQ(xpmb_tostr(mb), "12345678");
    xp_destroy_membuf(mb);
}

} // namespace
