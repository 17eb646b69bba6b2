#include "tests/io/readbuf_model.h"

#include <errno.h>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"

namespace {

using harness::call, harness::fault_io;

/// A read buffer without patience on a socket whose other end the test plays.
template <class Record>
struct ReadBuffers : testing::Test, calls<Record> {
    using on = calls<Record>;
    ReadBuffers() { open(8); }
    ~ReadBuffers() override { on::close(&rb); }
    void open(int max_record) {
        on::init(&rb, peer[0], max_record);
        rb.timeout = 0;
    }
    char *line() { return on::to_delimiter(&rb, nullptr, '\n'); }

    harness::channel peer{harness::channel::kind::sockets};
    Record rb;
};
using Kinds = testing::Types<xprb, xprb2>;
TYPED_TEST_SUITE(ReadBuffers, Kinds, );

TYPED_TEST(ReadBuffers, BehaveLikeAStringUnderRandomOperations) {
    std::mt19937 random(1);
    for (int round = 0; round < 600; round++) {
        std::string choices;
        for (int i = 0; i < 1500; i++) choices += static_cast<char>(random());
        readbuf_model<TypeParam> model(choices);
        fault_io one_byte(call::read, round % 3 == 0 ? 0 : INT_MAX, 0); // at a time, from every third peer
        ASSERT_EQ(model.run(), "") << "round " << round;
    }
}

TYPED_TEST(ReadBuffers, FailedReadKeepsWhatHasArrivedAndSaysWhy) {
    const std::pair<int, const char *> errors[] = {{ECONNRESET, "IOERROR_READ:errno=104<Connection reset by peer>"},
                                                   {4095, "IOERROR_READ:errno=4095<Unknown error 4095>"}};
    for (const auto &[error, text] : errors) {
        EXPECT_STREQ(this->lasterrmsg(&this->rb), "NO ERROR");
        this->peer.with("ab");
        EXPECT_EQ(this->line(), nullptr);
        this->peer.with("cd\n");
        {
            const fault_io fault(call::read, 1, error);
            EXPECT_EQ(this->line(), nullptr);
        }
        for (int time = 0; time < 2; time++) EXPECT_STREQ(this->lasterrmsg(&this->rb), text);
        EXPECT_STREQ(this->line(), "abcd");
        this->reset(&this->rb, this->peer[0]);
    }
}

TYPED_TEST(ReadBuffers, MemoryBufferMayRefuseARecord) {
    xp_membuf mb;
    xp_init_membuf(&mb, 1);
    xpmb_set_maxlength(&mb, 12);
    this->peer.with("0123456789ab\n0123456789abc\n");
    EXPECT_STREQ(this->to_delimiter_ex(&this->rb, nullptr, '\n', &mb), "0123456789ab");
    EXPECT_EQ(this->to_delimiter_ex(&this->rb, nullptr, '\n', &mb), nullptr);
    EXPECT_EQ(this->rb.last_error, IOERROR_OVERFLOW);
    xp_close_membuf(&mb);
}

TYPED_TEST(ReadBuffers, StreamForwardsToABufferMadeWithOrWithoutMemory) {
    harness::oom_sweep([this] {
        harness::channel sender(harness::channel::kind::sockets);
        auto *made = this->create(sender.with("chunk")[0], 8);
        if (!made) return;
        if (xpi_istream *stream = this->istream(made)) {
            uint32_t length = 99;
            EXPECT_EQ(memcmp(stream->read(stream, &length), "chunk", 5), 0);
            made->timeout = 0;
            EXPECT_TRUE(!stream->read(stream, &length) && length == 5) << "a failure stores no length";
            sender.drop(1);
            EXPECT_TRUE(!stream->read(stream, &length) && length == 0) << "but for the end";
            EXPECT_EQ(stream->lasterrcode(stream), IOERROR_EOF);
            EXPECT_EQ(strncmp(stream->lasterrmsg(stream), "IOERROR_EOF", 11), 0);
            stream->destroy(stream);
        }
        this->destroy(made);
    });
    EXPECT_EQ(this->create(-1, -5), nullptr);
    EXPECT_DEATH(this->open(-1), "vorncore: xp_init_readbuf2?: out of memory");
    EXPECT_EQ(this->unread(&this->rb, "x", -1), 0);
}

using ReadBuffer = ReadBuffers<xprb>;

TEST_F(ReadBuffer, ReadsAsSeldomAndAsMuchAsItCan) {
    peer.with("\r\n\r\nbb\n34567890"); // 15 bytes of the 16 that fit
    const fault_io reads(call::read, INT_MAX, 0);
    char *end, *line;
    int length;
    EXPECT_TRUE((line = xprb_read_line(&rb, &end)) && line == end && !*end);
    EXPECT_EQ(*xprb_read_all(&rb, 1), '\r');
    EXPECT_TRUE((line = xprb_read_line(&rb, &end)) && line == end) << "what is in front of a line is not of it";
    EXPECT_STREQ(xprb_read_line(&rb, nullptr), "bb");
    EXPECT_TRUE(xprb_read_upto(&rb, &length, 2) && length == 2 && xprb_read_upto(&rb, &length, 2) && length == 2);
    EXPECT_EQ(reads.calls(), 1);
    peer.with("abcdefgh");
    EXPECT_EQ(memcmp(xprb_read_all(&rb, 8), "7890abcd", 8), 0);
    EXPECT_EQ(reads.calls(), 2) << "what was left moved to the front before the read";
    peer.with("0123456789abcdefgh");
    EXPECT_TRUE(xprb_read_all(&rb, 4) && xprb_read_all(&rb, 1));
    EXPECT_EQ(rb.data_end - rb.data, 15) << "an empty buffer reads a whole block";
}

} // namespace
