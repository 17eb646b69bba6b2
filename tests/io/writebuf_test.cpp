#include "vorncore/io/writebuf.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

#include <deque>
#include <random>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/base/membuf.h"
#include "vorncore/io/io.h"
#include "vorncore/io/timeutil.h"

using namespace harness;

namespace {

constexpr auto sockets = channel::kind::sockets, pipes = channel::kind::pipe;

/// What has arrived at end 0.
std::string arrived(const channel &c) {
    char bytes[4096];
    std::string all;
    for (int got; (got = xp_read_timeout(c[0], bytes, sizeof bytes, 0)) > 0;)
        all.append(bytes, static_cast<size_t>(got));
    return all;
}

void note(void *log, const char *data, int length) {
    static_cast<std::string *>(log)->append(data, static_cast<size_t>(length)) += '|';
}

int copy(xpwb *wb, const char *text) {
    xp_membuf mb;
    xp_init_membuf(&mb, 16);
    xpmb_add_str(&mb, text);
    xpi_iostream *stream = xpmb_create_iostream(&mb);
    const int64_t copied = xpwb_write_istream(wb, xpio_istream(stream));
    stream->destroy(stream);
    xp_close_membuf(&mb);
    return static_cast<int>(copied);
}

enum { way_str, way_str_v, way_istream, way_data, way_char, way_url, way_printf, ways };
int write_text(xpwb *wb, int way, const std::string &text) {
    switch (way) {
    case way_str: return xpwb_write_str(wb, text.c_str());
    case way_str_v: return xpwb_write_str_v(wb, text.c_str(), "-", text.c_str(), nullptr);
    case way_istream: return copy(wb, text.c_str());
    case way_data: return xpwb_write(wb, text.data(), static_cast<int>(text.size()));
    case way_char: return xpwb_write_char(wb, text[0]);
    case way_url: return xpwb_write_str_url_encode(wb, text.c_str());
    default: return xpwb_printf(wb, "<%s>", text.c_str());
    }
}

/// The buffer as plain rules: every byte on its own. The device takes all of a block, but for the nth attempt.
struct model {
    size_t size;
    int max, status = 1, last_error = 0, nth = 0, error = 0;
    std::deque<std::string> queue = {}; // what is not written of each block
    std::string unwritten = {};         // of the current block, which holds
    size_t used = 0;                    // bytes
    std::string arrived = {}, notified = {};

    int attempt(std::string &block) {
        if (block.empty()) return 1;
        note(&notified, block.data(), static_cast<int>(block.size()));
        const size_t taken = --nth ? block.size() : error ? 0 : 1;
        arrived += block.substr(0, taken);
        block.erase(0, taken);
        if (taken) return block.empty() ? 1 : 2;
        last_error = IOERROR_WRITE;
        return error == EAGAIN ? 2 : 0;
    }
    int flush() {
        if (status == 0) return 0;
        for (; !queue.empty(); queue.pop_front())
            if ((status = attempt(queue.front())) != 1) return status;
        if ((status = attempt(unwritten)) == 1) used = 0;
        return status;
    }
    int make_room() {
        if (const int result = flush(); result != 2) return result ? 1 : -1;
        if (max >= 0 && queue.size() >= static_cast<size_t>(max)) return status = 0;
        queue.push_back(unwritten);
        unwritten.clear();
        used = 0;
        return 1;
    }
    int put(const std::string &bytes, size_t taken, bool plain = true) {
        int result = status ? 1 : -1;
        for (size_t i = 0; i < bytes.size() && result == 1; i++) {
            if (used == size) result = make_room();
            if (result != 1) return plain ? result : -1;
            unwritten += bytes[i];
            if (++used == size && plain) result = make_room();
        }
        return result == 1 ? static_cast<int>(taken) : result;
    }
    int write(int way, const std::string &text) {
        std::string coded;
        if (way == way_printf) return put('<' + text + '>', text.size() + 2, false);
        if (way == way_char) return put(text.substr(0, 1), 1);
        if (way == way_str_v) {
            const int taken[] = {put(text, text.size()), put("-", 1), put(text, text.size())};
            return taken[2] < 0 ? -1 : taken[0] + taken[1] + taken[2];
        }
        for (const char byte : text) {
            const auto c = static_cast<unsigned char>(byte);
            char escape[4];
            snprintf(escape, sizeof escape, c == ' ' ? "+" : isalnum(c) || strchr("*-._", c) ? "%c" : "%%%02X", c);
            coded += escape;
        }
        return put(way == way_url ? coded : text, text.size());
    }
};

} // namespace

TEST(WriteBuf, BehavesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    for (int round = 0; round < 300; round++) {
        const channel c(round % 2 ? sockets : pipes);
        if (round % 2) fcntl(c[1], F_SETFL, O_NONBLOCK);
        model expected{.size = random() % 12 + 1, .max = static_cast<int>(random() % 6) - 1};
        std::string notified, got;
        xpwb wb;
        xp_init_writebuf(&wb, c[1], static_cast<int>(expected.size));
        wb.max_pending = expected.max;
        EXPECT_EQ(xpwb_set_flush_noti(&wb, note, &notified), &wb);
        for (int step = 0; step < 80; step++) {
            std::string text;
            for (size_t i = random() % (random() % 4 ? 6 : 60) + 1; i > 0; i--) text += "a1-._* ~/%\xFF"[random() % 11];
            const int errors[] = {0, EAGAIN, EAGAIN, random() % 2 ? EAGAIN : EIO};
            expected.nth = static_cast<int>(random() % 6) + 1;
            expected.error = errors[random() % 4];
            const int way = static_cast<int>(random() % (ways + 1));
            {
                const fault_io fault(round % 2 ? call::send : call::write, expected.nth, expected.error);
                ASSERT_EQ(way < ways ? write_text(&wb, way, text) : xpwb_flush(&wb),
                          way < ways ? expected.write(way, text) : expected.flush())
                    << "round " << round << " step " << step << " way " << way;
            }
            got += arrived(c);
            ASSERT_EQ(got, expected.arrived);
            ASSERT_EQ(notified, expected.notified);
            ASSERT_EQ(wb.status, expected.status);
            ASSERT_EQ(wb.pending.count, static_cast<int>(expected.queue.size()));
            ASSERT_EQ(wb.last_error, expected.last_error);
            if (expected.status == 0 && random() % 4 == 0) {
                xpwb_reset(&wb, c[1]);
                expected = {.size = expected.size, .max = expected.max, .arrived = got, .notified = notified};
            }
        }
        xpwb_reset(&wb, -1);
        xp_close_writebuf(&wb);
    }
}

TEST(WriteBuf, OneAttemptTellsWhatItMet) {
    signal(SIGPIPE, SIG_DFL); // of sockets there is none
    const struct {
        const char *name, *script;
        int timeout, nth, error, sigsafe, result, code, left;
    } cases[] = {
        {"room", "", 1000, INT_MAX, 0, 0, 1, 0, 0},
        {"short", "", 1000, 1, 0, 0, 2, 0, 3},
        {"would block", "", -1, 1, EAGAIN, 0, 2, IOERROR_WRITE, 4},
        {"interrupted", "", -1, 1, EINTR, 0, 0, IOERROR_WRITE, 4},
        {"interrupted, repeated", "", -1, 1, EINTR, 1, 1, 0, 0},
        {"full", "f", 0, INT_MAX, 0, 0, 0, IOERROR_WRITETIMEOUT, 4},
        {"peer gone", "0", -1, INT_MAX, 0, 0, 0, IOERROR_WRITE, 4},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        const setting tuned(xp_io_sigsafe, row.sigsafe);
        channel c(sockets);
        xpwb *wb = xp_create_writebuf(c.play(row.script)[1], 4);
        wb->timeout = row.timeout;
        char bytes[] = "abcde";
        xpwb_block block = {bytes, bytes + 5, bytes + 1};
        const fault_io fault(call::send, row.nth, row.error);
        EXPECT_EQ(xpwb_flush_anonbuf(wb, &block), row.result);
        EXPECT_EQ(block.write_position - block.flush_position, row.left);
        EXPECT_EQ(wb->last_error, row.code);
        EXPECT_EQ(wb->status, 1);
        xp_destroy_writebuf(wb);
    }
}

TEST(WriteBuf, TheLimitOfPendingBlocksFailsTheBufferUntilReset) {
    channel c(sockets);
    xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
    fcntl(c[1], F_SETFL, O_NONBLOCK);
    xpi_ostream *out = xpwb_create_ostream(wb);
    EXPECT_STREQ(out->lasterrmsg(out), "NO ERROR");
    wb->max_pending = 2;
    EXPECT_EQ(out->write(out, "abcdefgh", 8), 8);
    EXPECT_EQ(out->flush(out), 1);
    EXPECT_EQ(wb->status, 2);
    EXPECT_EQ(xpwb_write_str_v(wb, "ij", "kl", nullptr), 2) << "of the text that was refused, nothing counts";
    for (int way = 0; way < ways; way++) EXPECT_EQ(write_text(wb, way, "a"), -1) << way;
    EXPECT_EQ(xpwb_write_str_v(wb, nullptr) + xpwb_write(wb, "", 0), -2);
    EXPECT_EQ(out->flush(out), 0);
    EXPECT_EQ(out->lasterrcode(out), IOERROR_WRITE);
    EXPECT_STREQ(out->lasterrmsg(out), "IOERROR_WRITE:errno=11<Resource temporarily unavailable>");
    out->destroy(out);
    xpwb_reset(wb, not_open);
    EXPECT_STREQ(xpwb_lasterrmsg(wb), "NO ERROR");
    EXPECT_EQ(xpwb_write_str(wb, "abcd"), -1);
    EXPECT_STREQ(xpwb_lasterrmsg(wb), "IOERROR_WRITE:errno=9<Bad file descriptor>");
    xp_destroy_writebuf(wb);
}

TEST(WriteBuf, CloseTriesAgainUntilEverythingIsOut) {
    struct peer {
        channel c{sockets};
        fault_io first_pause{call::poll, 1, EINTR}; // cut short
        int attempts = 0, pauses = 0;
        static void look(void *self, const char *, int) {
            auto *p = static_cast<peer *>(self);
            if (++p->attempts != 3) return;
            p->pauses = p->first_pause.calls();
            arrived(p->c);
        }
    } p;
    xpwb *wb = xp_create_writebuf(p.c.fill()[1], 4);
    fcntl(p.c[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(xpwb_write_str(wb, "abcdef"), 6);
    xpwb_set_flush_noti(wb, peer::look, &p);
    const auto before = xp_time_ms();
    xp_destroy_writebuf(wb);
    EXPECT_EQ(p.pauses, 2);
    EXPECT_GE(xp_time_ms() - before, 99u);
    EXPECT_EQ(arrived(p.c), "abcdef");
}

TEST(WriteBuf, WithoutMemoryTheBufferFails) {
    oom_sweep([] {
        channel c(sockets);
        xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
        if (!wb) return;
        fcntl(c[1], F_SETFL, O_NONBLOCK);
        const int taken = xpwb_write_str(wb, "abcdefghi");
        EXPECT_EQ(taken, wb->status ? 9 : -1);
        EXPECT_EQ(strncmp(xpwb_lasterrmsg(wb), "IOERROR_WRITE", 13), 0);
        xpwb_reset(wb, c[1]);
        EXPECT_EQ(xpwb_write_str(wb, "abc"), 3);
        if (xpi_ostream *stream = xpwb_create_ostream(wb)) stream->destroy(stream);
        xpwb_reset(wb, -1);
        xp_destroy_writebuf(wb);
    });
}
