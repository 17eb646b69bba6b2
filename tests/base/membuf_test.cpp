#include "vorncore/base/membuf.h"

#include "support/harness.h"

namespace {

const struct {
    int (*call)(xp_membuf *);
    int result;
    std::string contents;
    uint64_t capacity;
} steps[] = {
    // byte by byte: from the first capacity, doubled
    {[](xp_membuf *mb) { return xpmb_add_str_v(mb, "", nullptr); }, 1, "", 0},
    {[](xp_membuf *mb) { return xpmb_add_str_v(mb, "x", "", "yz", nullptr); }, 1, "xyz", 3},
    {[](xp_membuf *mb) { return xpmb_add_char(mb, 'a') ? xpmb_add_char(mb, 'b') : 0; }, 1, "xyzab", 6},
    {[](xp_membuf *mb) { return xpmb_add_str_url_encode(mb, "~"); }, 1, "xyzab%7E", 12},
    {[](xp_membuf *mb) { return xpmb_add_str_url_encode(mb, " \xFF!~"); }, 1, "xyzab%7E+%FF%21%7E", 24},
    {[](xp_membuf *mb) { return xpmb_add_str(mb, "123456"); }, 1, "xyzab%7E+%FF%21%7E123456", 24},
    {[](xp_membuf *mb) { return (xpmb_add_char)(mb, '7'); }, 1, "xyzab%7E+%FF%21%7E1234567", 48},
    {[](xp_membuf *mb) { return xpmb_reset(mb), xpmb_reset(mb), 1; }, 1, "", 0},
    // reserved: from 2, doubled
    {[](xp_membuf *mb) { return xpmb_add_data(mb, nullptr, 0) & xpmb_ensure(mb, 0); }, 1, "", 0},
    {[](xp_membuf *mb) { return xpmb_ensure(mb, 1); }, 1, "", 2},
    {[](xp_membuf *mb) { return xpmb_add_data(mb, "abcdefg", 7); }, 1, "abcdefg", 8},
    {[](xp_membuf *mb) { return xpmb_add_data(mb, mb->data + 1, 6); }, 1, "abcdefgbcdefg", 16},
    {[](xp_membuf *mb) { return xpmb_add_data(mb, "x", UINT64_MAX - 3); }, 0, "abcdefgbcdefg", 16},
    {[](xp_membuf *mb) { return xpmb_ensure(mb, UINT64_MAX / 2 + 2); }, 0, "abcdefgbcdefg", 16},
    {[](xp_membuf *mb) { return xpmb_add_str(mb, xpmb_tostr(mb)); }, 1, "abcdefgbcdefgabcdefgbcdefg", 32},
    {[](xp_membuf *mb) { return xpmb_set_size(mb, 33) ? xpmb_set_size(mb, 2) : 0; }, 1, "ab", 64},
    {[](xp_membuf *mb) { return xpmb_reset(mb), 1; }, 1, "", 0},
    // formatted: from the first capacity, doubled
    {[](xp_membuf *mb) { return xpmb_printf(mb, "%s", ""); }, 0, "", 0},
    {[](xp_membuf *mb) { return xpmb_printf(mb, "%s|", "abc"); }, 4, "abc|", 6},
    {[](xp_membuf *mb) { return xpmb_printf(mb, "%d-", 12); }, 3, "abc|12-", 12},
    {[](xp_membuf *mb) { return xpmb_clear(mb), 1; }, 1, "", 12},
    // no longer than that: what fits, all or nothing, nothing
    {[](xp_membuf *mb) { return xpmb_set_maxlength(mb, 5), 1; }, 1, "", 12},
    {[](xp_membuf *mb) { return xpmb_add_str_url_encode(mb, "!!!"); }, 0, "%21%2", 12},
    {[](xp_membuf *mb) { return xpmb_set_size(mb, 3); }, 1, "%21", 12},
    {[](xp_membuf *mb) { return xpmb_add_str(mb, "abc"); }, 0, "%21ab", 12},
    {[](xp_membuf *mb) { return xpmb_add_char(mb, 'c') | (xpmb_add_char)(mb, 'c'); }, 0, "%21ab", 12},
    {[](xp_membuf *mb) { return xpmb_add_str_v(mb, "c", "", nullptr); }, 0, "%21ab", 12},
    {[](xp_membuf *mb) { return xpmb_add_str(mb, "") & xpmb_add_data(mb, "", 0); }, 1, "%21ab", 12},
    {[](xp_membuf *mb) { return xpmb_set_maxlength(mb, 2), 1; }, 1, "%2", 12},
    {[](xp_membuf *mb) { return xpmb_set_maxlength(mb, 5), xpmb_reset(mb), 1; }, 1, "", 0},
    {[](xp_membuf *mb) { return xpmb_add_str_url_encode(mb, "a ~~"); }, 0, "a+%7E", 6},
    {[](xp_membuf *mb) { return xpmb_printf(mb, "x"); }, 1, "a+%7Ex", 6}, // there was storage
    {[](xp_membuf *mb) { return xpmb_printf(mb, "x"); }, -1, "a+%7Ex", 6},
    {[](xp_membuf *mb) { return xpmb_add_char(mb, 'x'); }, 0, "a+%7Ex", 6},
    {[](xp_membuf *mb) { return xpmb_set_size(mb, 6); }, 1, "a+%7Ex", 6},
    {[](xp_membuf *mb) { return xpmb_reset(mb), 1; }, 1, "", 0},
    {[](xp_membuf *mb) { return xpmb_printf(mb, "1234567"); }, -1, "", 5},
    {[](xp_membuf *mb) { return xpmb_set_size(mb, 6) | xpmb_ensure(mb, 6) | xpmb_add_data(mb, "123456", 6); }, 0, "",
     5},
    {[](xp_membuf *mb) { return xpmb_add_data(mb, "12345", 5); }, 1, "12345", 5},
};

TEST(MemBuf, GrowsByItsThreeRulesAndStaysAsItWasWithoutMemory) {
    for (int nth = 1, fired = 1; fired; nth++) {
        const harness::fail_allocation failure(nth);
        xp_membuf mb;
        xp_init_membuf(&mb, 3);
        for (const auto &step : steps) {
            SCOPED_TRACE("step " + std::to_string(&step - steps) + ", failing allocation " + std::to_string(nth));
            const std::string before(mb.data, mb.cursor);
            fired = failure.fired();
            int result = step.call(&mb);
            if (failure.fired() && !fired) {
                EXPECT_TRUE(result <= 0 && before == std::string(mb.data, mb.cursor));
                result = step.call(&mb);
            }
            EXPECT_EQ(result, step.result);
            EXPECT_EQ(std::string(mb.data, mb.cursor), step.contents);
            EXPECT_EQ(mb.capacity, step.capacity);
            EXPECT_TRUE(xpmb_tostr(&mb) == mb.data && !*mb.cursor);
        }
        fired = failure.fired();
        xp_close_membuf(&mb);
    }
}

TEST(MemBuf, StreamReadsWhatWasAppendedAndAlwaysTakesWhatIsWritten) {
    xp_membuf *mb;
    xpi_iostream *stream;
    harness::oom_sweep([&] { mb = xp_create_membuf(0); });
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
    xpmb_reset(mb);
    EXPECT_TRUE(xpmb_add_char(mb, 'x') && mb->capacity == 1 && !xpmb_tostr(mb)[1]) << "the least first capacity";
    xp_destroy_membuf(mb);
}

} // namespace
