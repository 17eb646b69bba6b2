#include "vorncore/io/writebuf.h"

#include <errno.h>
#include <limits.h>

#include <deque>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/base/strutil.h"
#include "vorncore/io/io.h"
#include "vorncore/io/timeutil.h"

using namespace harness;

namespace {

constexpr auto sockets = channel::kind::sockets, pipes = channel::kind::pipe;

void note(void *log, const char *data, int length) {
    static_cast<std::string *>(log)->append(data, static_cast<size_t>(length)) += '|';
}

/// A stream of one chunk, which ends with another one that is empty or with none.
struct once : xpi_istream {
    std::string chunk;
    uint32_t left = static_cast<uint32_t>(chunk.size());
    static char *take(void *stream, uint32_t *length) {
        auto *me = static_cast<once *>(stream);
        *length = std::exchange(me->left, 0);
        return *length || me->chunk.size() % 2 ? me->chunk.data() : nullptr;
    }
};

enum { way_str, way_str_v, way_istream, way_data, way_char, way_url, way_printf, ways };
int write_text(xpwb *wb, int way, const std::string &text) {
    once stream = {{nullptr, nullptr, nullptr, once::take, nullptr}, text};
    switch (way) {
    case way_str: return xpwb_write_str(wb, text.c_str());
    case way_str_v: return xpwb_write_str_v(wb, text.c_str(), "-", text.c_str(), nullptr);
    case way_istream: return static_cast<int>(xpwb_write_istream(wb, &stream));
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
    std::deque<std::string> blocks = {""}; // what is not written of each; the last is the current one, which holds
    size_t used = 0;                       // bytes
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
        while (status && (status = attempt(blocks.front())) == 1 && blocks.size() > 1) blocks.pop_front();
        if (status == 1) used = 0;
        return status;
    }
    int make_room() {
        if (const int result = flush(); result != 2) return result ? 1 : -1;
        if (max >= 0 && blocks.size() > static_cast<size_t>(max)) return status = 0;
        blocks.emplace_back();
        used = 0;
        return 1;
    }
    int put(const std::string &bytes, size_t taken, bool plain = true) {
        int result = status ? 1 : -1;
        for (size_t i = 0; i < bytes.size() && result == 1; i++) {
            if (used == size) result = make_room();
            if (result != 1) return plain ? result : -1;
            blocks.back() += bytes[i];
            if (++used == size && plain) result = make_room();
        }
        return result == 1 ? static_cast<int>(taken) : result;
    }
    int write(int way, const std::string &text) {
        std::string coded(3 * text.size(), '\0');
        if (way == way_printf) return put('<' + text + '>', text.size() + 2, false);
        if (way == way_char) return put(text.substr(0, 1), 1);
        if (way == way_url) return put(xp_url_encode(text.c_str(), coded.data()), text.size());
        if (way != way_str_v) return put(text, text.size());
        const int taken[] = {put(text, text.size()), put("-", 1), put(text, text.size())};
        return taken[2] < 0 ? -1 : taken[0] + taken[1] + taken[2];
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
            got += c.arrived();
            ASSERT_EQ(got + '/' + notified, expected.arrived + '/' + expected.notified);
            ASSERT_EQ(wb.status, expected.status);
            ASSERT_EQ(wb.pending.count + 1, ssize(expected.blocks));
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

TEST(WriteBuf, OneAttemptLeavesTheStatus) {
    channel c(sockets);
    char bytes[] = "abcde";
    xpwb_block block = {bytes, bytes + 5, bytes + 1};
    xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
    wb->timeout = 0;
    EXPECT_EQ(xpwb_flush_anonbuf(wb, &block), 0);
    EXPECT_TRUE(wb->last_error == IOERROR_WRITETIMEOUT && wb->status == 1 && block.flush_position == bytes + 1);
    c.arrived();
    EXPECT_EQ(xpwb_flush_anonbuf(wb, &block), 1);
    EXPECT_EQ(c.arrived(), "bcde");
    xp_destroy_writebuf(wb);
}

TEST(WriteBuf, TheLimitOfPendingBlocksFailsTheBufferUntilReset) {
    channel c(sockets);
    xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
    fcntl(c[1], F_SETFL, O_NONBLOCK);
    xpi_ostream *out = xpwb_create_ostream(wb);
    EXPECT_STREQ(out->lasterrmsg(out), "NO ERROR");
    wb->max_pending = 2;
    EXPECT_EQ(out->write(out, "abcdefgh", 8), 8);
    EXPECT_TRUE(out->flush(out) == 1 && wb->status == 2);
    EXPECT_EQ(xpwb_write_str_v(wb, "ij", "kl", nullptr), 2) << "of the text that was refused, nothing counts";
    for (int way = 0; way < ways; way++) EXPECT_EQ(write_text(wb, way, "a"), -1) << way;
    EXPECT_EQ(xpwb_write_str_v(wb, nullptr) + xpwb_write(wb, "", 0), -2);
    EXPECT_TRUE(out->flush(out) == 0 && out->lasterrcode(out) == IOERROR_WRITE);
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
        int attempts = 0;
        static void look(void *self, const char *, int) {
            auto *me = static_cast<peer *>(self);
            if (++me->attempts == 3) me->c.arrived();
        }
    } p;
    xpwb *wb = xp_create_writebuf(p.c.fill()[1], 4);
    fcntl(p.c[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(xpwb_write_str(wb, "abcdef"), 6);
    xpwb_set_flush_noti(wb, peer::look, &p);
    const fault_io first_pause(call::poll, 1, EINTR); // cut short
    const auto before = xp_time_ms();
    xp_destroy_writebuf(wb);
    EXPECT_TRUE(first_pause.calls() == 2 && xp_time_ms() - before >= 99);
    EXPECT_EQ(p.c.arrived(), "abcdef");
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
