#include "vorncore/io/readbuf.h"

#include <errno.h>
#include <string.h>

#include <random>

#include "support/fault.h"
#include "support/harness.h"
#include "tests/io/readbuf_model.h"

namespace {

using harness::call;

/// A read buffer without patience on a socket whose other end the test plays.
template <class Record>
struct connection {
    int ends[2];
    Record rb;

    explicit connection(int max_record, std::string_view sent = "") {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        calls<Record>.init(&rb, ends[0], max_record);
        rb.timeout = 0;
        send(sent);
    }
    ~connection() {
        calls<Record>.close(&rb);
        close(ends[0]);
        close(ends[1]);
    }
    connection(const connection &) = delete;
    void send(std::string_view bytes) {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void hang_up() { shutdown(ends[1], SHUT_WR); }
};

template <class Record>
class ReadBuffers : public testing::Test {
  public:
    static constexpr const readbuf_calls<Record> &on = calls<Record>;
};
using Kinds = testing::Types<xprb, xprb2>;
TYPED_TEST_SUITE(ReadBuffers, Kinds, );

TYPED_TEST(ReadBuffers, BehaveLikeAStringUnderRandomOperations) {
    std::mt19937 random(1);
    for (int round = 0; round < 600; round++) {
        std::string choices;
        for (int i = 0; i < 1500; i++) choices += static_cast<char>(random());
        readbuf_model<TypeParam> model(choices);
        // Every third peer sends one byte at a time.
        harness::fault_io one_byte(call::read, round % 3 == 0 ? 0 : INT_MAX, 0);
        ASSERT_EQ(model.run(), "") << "round " << round;
    }
}

TYPED_TEST(ReadBuffers, FailedReadKeepsWhatHasArrivedAndSaysWhy) {
    const struct {
        const char *sent; // null: the peer hangs up
        call which;
        int error;
        int timeout;
        bool closed;
        int code;
        const char *text;
    } cases[] = {
        {"", call::bind, 0, 0, false, IOERROR_READTIMEOUT, "IOERROR_READTIMEOUT:errno=0<Success>"},
        {nullptr, call::bind, 0, 0, false, IOERROR_EOF, "IOERROR_EOF:errno=0<Success>"},
        {"cd", call::read, ECONNRESET, 0, false, IOERROR_READ, "IOERROR_READ:errno=104<Connection reset by peer>"},
        {"cd", call::read, EINTR, -1, false, IOERROR_READ, "IOERROR_READ:errno=4<Interrupted system call>"},
        {"cd", call::read, 4095, 0, false, IOERROR_READ, "IOERROR_READ:errno=4095<Unknown error 4095>"},
        {"cd", call::poll, ENOMEM, 0, false, IOERROR_POLL, "IOERROR_POLL:errno=12<Cannot allocate memory>"},
        {"cd", call::bind, 0, 0, true, IOERROR_POLLERR, "IOERROR_POLLERR:errno=0<Success>"},
        {"cd", call::bind, 0, -1, true, IOERROR_READ, "IOERROR_READ:errno=9<Bad file descriptor>"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        connection<TypeParam> peer(8, "ab");
        auto &rb = peer.rb;
        EXPECT_STREQ(this->on.lasterrmsg(&rb), "NO ERROR");
        EXPECT_EQ(this->on.to_delimiter(&rb, nullptr, '\n'), nullptr);
        EXPECT_EQ(this->on.lasterrmsg(&rb), this->on.lasterrmsg(&rb));
        c.sent ? peer.send(c.sent) : peer.hang_up();
        {
            harness::fault_io fault(c.which, 1, c.error);
            rb.timeout = c.timeout;
            if (c.closed) rb.fd = 1 << 20;
            errno = 0;
            EXPECT_EQ(this->on.to_delimiter(&rb, nullptr, '\n'), nullptr);
        }
        EXPECT_EQ(rb.last_error, c.code);
        EXPECT_STREQ(this->on.lasterrmsg(&rb), c.text);
        if (!c.sent) continue;
        rb.fd = peer.ends[0];
        peer.send("\n");
        EXPECT_STREQ(this->on.to_delimiter(&rb, nullptr, '\n'), (std::string("ab") + c.sent).c_str());
    }
}

TYPED_TEST(ReadBuffers, RecordThatDoesNotFitLeavesThePositionsAsTheyWere) {
    const struct {
        const char *sent;
        std::string ending;
        const char *record; // null: it does not fit
    } cases[] = {
        {"abc\n", "\n", "abc"}, {"abcd\n", "\n", nullptr}, {"abcdefghijk\n", "\n", nullptr},
        {"a|-|", "|-|", "a"},   {"ab|-|", "|-|", nullptr}, {"|-||-|", "|-|", ""},
    };
    xp_membuf mb;
    xp_init_membuf(&mb, 1);
    xpmb_set_maxlength(&mb, 3);
    for (const auto &c : cases)
        for (const bool gathering : {false, true}) {
            SCOPED_TRACE(c.sent);
            connection<TypeParam> peer(4, c.sent);
            auto &rb = peer.rb;
            const auto before = rb;
            const int length = static_cast<int>(c.ending.size());
            EXPECT_STREQ(gathering && length == 1 ? this->on.to_delimiter_ex(&rb, nullptr, '\n', &mb)
                                                  : this->on.to_pattern(&rb, nullptr, c.ending.data(), length),
                         c.record);
            if (c.record) continue;
            EXPECT_EQ(rb.last_error, IOERROR_OVERFLOW);
            rb.last_error = before.last_error;
            rb.saved_errno = before.saved_errno;
            EXPECT_EQ(memcmp(&rb, &before, sizeof rb), 0);
            this->on.reset(&rb, peer.ends[0]);
            EXPECT_STREQ(this->on.lasterrmsg(&rb), "NO ERROR");
        }
    xp_close_membuf(&mb);
}

TYPED_TEST(ReadBuffers, StreamForwardsToTheBuffer) {
    connection<TypeParam> peer(8, "chunk");
    xpi_istream *stream = this->on.istream(&peer.rb);
    uint32_t length = 99;
    const char *chunk = stream->read(stream, &length);
    EXPECT_EQ(std::string_view(chunk, length), "chunk");
    EXPECT_EQ(stream->read(stream, &length), nullptr);
    EXPECT_EQ(length, 5u) << "a failure stores no length";
    peer.hang_up();
    EXPECT_EQ(stream->read(stream, &length), nullptr);
    EXPECT_EQ(length, 0u) << "but for the end";
    EXPECT_EQ(stream->lasterrcode(stream), IOERROR_EOF);
    EXPECT_EQ(stream->lasterrmsg(stream), this->on.lasterrmsg(&peer.rb));
    stream->destroy(stream);
    EXPECT_EQ(this->on.unread(&peer.rb, "x", 1), 1);
    EXPECT_EQ(this->on.unread(&peer.rb, "x", -1), 0);
}

TYPED_TEST(ReadBuffers, FailedAllocationsAreReportedOrEndTheProcess) {
    EXPECT_EQ(this->on.create(-1, -5), nullptr);
    harness::oom_sweep([] {
        auto *rb = calls<TypeParam>.create(-1, 16);
        if (!rb) return;
        EXPECT_EQ(calls<TypeParam>.all(rb, 17), nullptr);
        EXPECT_EQ(strncmp(calls<TypeParam>.lasterrmsg(rb), "IOERROR_OVERFLOW", 16), 0);
        if (xpi_istream *stream = calls<TypeParam>.istream(rb)) stream->destroy(stream);
        calls<TypeParam>.destroy(rb);
    });
    EXPECT_DEATH(
        {
            harness::fail_allocation failure(1);
            connection<TypeParam> peer(16);
        },
        "vorncore: xp_init_readbuf2?: out of memory");
}

TEST(ReadBuffer, MakesNoReadMoreThanItNeeds) {
    connection<xprb> peer(60, std::string(100, 'x') + "a\r\n\r\nbb\n");
    harness::fault_io reads(call::read, INT_MAX, 0);
    int length;
    for (int i = 0; i < 6; i++) {
        EXPECT_TRUE(xprb_read_upto(&peer.rb, &length, 10));
        EXPECT_EQ(length, 10);
        EXPECT_EQ(reads.calls(), 1);
    }
    EXPECT_TRUE(xprb_read_all(&peer.rb, 40));
    EXPECT_STREQ(xprb_read_line(&peer.rb, nullptr), "a");
    char *end, *line = xprb_read_line(&peer.rb, &end);
    EXPECT_TRUE(line == end && !*end);
    EXPECT_STREQ(xprb_read_line(&peer.rb, &end), "bb");
    EXPECT_EQ(reads.calls(), 2);
}

TEST(ReadBuffer, ReadsIntoAllTheRoomThatItCanMake) {
    connection<xprb> peer(4, "abcdefg"); // a block of 8
    EXPECT_TRUE(xprb_read_all(&peer.rb, 4));
    EXPECT_TRUE(xprb_read_all(&peer.rb, 2));
    peer.send("hijklmn");
    harness::fault_io reads(call::read, INT_MAX, 0);
    EXPECT_EQ(memcmp(xprb_read_all(&peer.rb, 4), "ghij", 4), 0);
    EXPECT_EQ(memcmp(xprb_read_all(&peer.rb, 4), "klmn", 4), 0);
    EXPECT_EQ(reads.calls(), 1) << "what was left moved to the front before the read";
    peer.send("op");
    EXPECT_TRUE(xprb_read_all(&peer.rb, 2));
    peer.send("opqrstuvw");
    EXPECT_TRUE(xprb_read_all(&peer.rb, 1));
    EXPECT_EQ(peer.rb.data_end - peer.rb.data, 7) << "an empty buffer reads a whole block";
}

} // namespace
