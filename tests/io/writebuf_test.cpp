#include "vorncore/io/writebuf.h"

#include <errno.h>
#include <limits.h>

#include <sstream>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/io/io.h"
#include "vorncore/io/timeutil.h"

using namespace harness;

namespace {

constexpr auto sockets = channel::kind::sockets;

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

int play(xpwb *wb, char letter, const std::string &text) {
    once stream = {{nullptr, nullptr, nullptr, once::take, nullptr}, text};
    switch (letter) {
    case 's': return xpwb_write_str(wb, text.c_str());
    case 'v': return xpwb_write_str_v(wb, text.c_str(), "-", text.c_str(), nullptr);
    case 'i': return static_cast<int>(xpwb_write_istream(wb, &stream));
    case 'w': return xpwb_write(wb, text.data(), static_cast<int>(text.size()));
    case 'c': return xpwb_write_char(wb, text[0]);
    case 'u': return xpwb_write_str_url_encode(wb, text.c_str());
    case 'p': return xpwb_printf(wb, "<%s>", text.c_str());
    case 'f': return xpwb_flush(wb);
    default: return xpwb_reset(wb, wb->fd), 7;
    }
}

} // namespace

TEST(WriteBuf, WritesFullBlocksAndQueuesWhatTheDeviceDoesNotTake) {
    // A step is what the device does, the call and its text: + takes all, - nothing for now, 1 one byte of the first
    // block it is shown, 2 not the second, ! fails. A report: the attempts, and the result.
    const struct {
        const char *name;
        int size, max;
        const char *steps, *report, *arrived;
    } cases[] = {
        {"full blocks", 4, -1, "+sabcdefghij;+f;+f", "abcd|efgh|=10 ij|=1 =1 ", "abcdefghij"},
        {"just full", 4, -1, "+wabcd;+ce", "abcd|=4 =1 ", "abcd"},
        {"bytes", 0, -1, "+wab;+cc", "a|b|=2 c|=1 ", "abc"},
        {"texts", 4, -1, "+vabc;+f", "abc-|=7 abc|=1 ", "abc-abc"},
        {"streams", 4, -1, "+iabcde;+ifg;+f", "abcd|=5 =2 efg|=1 ", "abcdefg"},
        {"coded", 4, -1, "+ua b/c;+f", "a+b%|=5 2Fc|=1 ", "a+b%2Fc"},
        {"coded with room", 8, -1, "+ua b/c;+f", "=5 a+b%2Fc|=1 ", "a+b%2Fc"},
        {"formatted", 4, -1, "+pabcd;+cx;+pab;+f", "<abc|=6 =1 d>x<|=4 ab>|=1 ", "<abcd>x<ab>"},
        {"formatted, just full", 4, -1, "+pab;+pc;+pde;+cx", "=4 <ab>|=3 <c><|=4 de>x|=1 ", "<ab><c><de>x"},
        {"formatted, then text", 4, -1, "+pab;+sx;+f", "=4 <ab>|=1 x|=1 ", "<ab>x"},
        {"blocked", 4, -1, "-sabcdefghij;+f", "abcd|abcd|=10 abcd|efgh|ij|=1 ", "abcdefghij"},
        {"blocked, formatted", 4, -1, "-pabcdef;+f", "<abc|=8 <abc|def>|=1 ", "<abcdef>"},
        {"blocked later", 4, -1, "-sabcdefgh;2f;+f", "abcd|abcd|=8 abcd|efgh|=2 efgh|=1 ", "abcdefgh"},
        {"short", 4, -1, "1sabcde;+f", "abcd|=5 bcd|e|=1 ", "abcde"},
        {"short flush", 4, -1, "+sabc;1f;+sde;+f", "=3 abc|=2 bcd|=2 e|=1 ", "abcde"},
        {"limit", 4, 1, "-sabcd;-sefgh;+sx;+f", "abcd|=4 abcd|=0 =-1 =0 ", ""},
        {"limit, bytes", 1, 0, "-ca;+R;-wa;+R;-ia;+R;-ua", "a|=0 =7 a|=0 =7 a|=0 =7 a|=0 ", ""},
        {"limit, formatted", 4, 0, "-pabcd;+sx", "<abc|=-1 =-1 ", ""},
        {"limit, texts", 4, 0, "-vabc", "abc-|=-1 ", ""},
        {"limit, last text", 4, 0, "-vab", "ab-a|=3 ", ""}, // of which nothing counts
        {"failed", 4, -1, "!sabcdef;+s;+v;+i;+w;+ca;+u;+p;+f", "abcd|=-1 =-1 =-1 =-1 =-1 =-1 =-1 =-1 =0 ", ""},
        {"failed flush", 4, -1, "+sab;!f;+sx;+R;+scd;+f", "=2 ab|=0 =-1 =7 =2 cd|=1 ", "cd"},
        {"failed in the queue", 4, -1, "-sabcde;!f;+sx", "abcd|=5 abcd|=0 =-1 ", ""},
        {"dropped", 4, -1, "-sabcdef;+R;+f", "abcd|=6 =7 =1 ", ""},
    };
    for (const auto &row : cases) {
        const channel c(sockets);
        xpwb wb;
        xp_init_writebuf(&wb, c[1], row.size);
        wb.max_pending = row.max;
        std::string report;
        EXPECT_EQ(xpwb_set_flush_noti(&wb, note, &report), &wb);
        std::istringstream steps(row.steps);
        for (std::string step; std::getline(steps, step, ';');) {
            const size_t device = std::string("+-12!").find(step[0]);
            const int nth[] = {INT_MAX, 0, 1, 2, 1}, errors[] = {0, EAGAIN, 0, EAGAIN, EIO};
            const fault_io fault(call::send, nth[device], errors[device]);
            report += '=' + std::to_string(play(&wb, step[1], step.substr(2))) + ' ';
        }
        EXPECT_EQ(report, row.report) << row.name;
        EXPECT_EQ(c.arrived(), row.arrived) << row.name;
        xpwb_reset(&wb, -1);
        xp_close_writebuf(&wb);
    }
}

TEST(WriteBuf, StreamAndMessages) {
    channel c(sockets);
    xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
    xpi_ostream *out = xpwb_create_ostream(wb);
    EXPECT_STREQ(out->lasterrmsg(out), "NO ERROR");
    EXPECT_EQ(out->write(out, "ab", 2), 2);
    wb->timeout = 0;
    EXPECT_EQ(xpwb_flush_anonbuf(wb, &wb->current), 0);
    EXPECT_TRUE(wb->status == 1 && out->lasterrcode(out) == IOERROR_WRITETIMEOUT) << "one attempt leaves the status";
    wb->timeout = -1;
    fcntl(c[1], F_SETFL, O_NONBLOCK);
    EXPECT_TRUE(out->flush(out) == 1 && wb->status == 2) << "pending";
    c.arrived();
    EXPECT_TRUE(out->flush(out) == 1 && wb->status == 1) << "all is out, and the text stays";
    EXPECT_STREQ(out->lasterrmsg(out), "IOERROR_WRITE:errno=11<Resource temporarily unavailable>");
    xpwb_reset(wb, not_open);
    EXPECT_STREQ(xpwb_lasterrmsg(wb), "NO ERROR");
    EXPECT_TRUE(xpwb_write_str(wb, "abcd") == -1 && out->flush(out) == 0);
    EXPECT_EQ(xpwb_write_str_v(wb, nullptr) + xpwb_write(wb, "", 0), -2);
    EXPECT_STREQ(xpwb_lasterrmsg(wb), "IOERROR_WRITE:errno=9<Bad file descriptor>");
    out->destroy(out);
    xp_destroy_writebuf(wb);
}

TEST(WriteBuf, CloseTriesAgainUntilEverythingIsOut) {
    channel c(sockets);
    xpwb *wb = xp_create_writebuf(c.fill()[1], 4);
    fcntl(c[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(xpwb_write_str(wb, "abcdef"), 6);
    const auto read_before_the_third = [](void *peer, const char *, int) {
        static int attempts;
        if (++attempts % 4 == 3) static_cast<channel *>(peer)->arrived();
    };
    xpwb_set_flush_noti(wb, read_before_the_third, &c);
    const fault_io first_pause(call::poll, 1, EINTR); // cut short
    const auto before = xp_time_ms();
    xp_destroy_writebuf(wb);
    EXPECT_TRUE(first_pause.calls() == 2 && xp_time_ms() - before >= 99);
    EXPECT_EQ(c.arrived(), "abcdef");
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
        xpwb_reset(wb, -1);
        if (xpi_ostream *stream = xpwb_create_ostream(wb)) stream->destroy(stream);
        xp_destroy_writebuf(wb);
    });
}
