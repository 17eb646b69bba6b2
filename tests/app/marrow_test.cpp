#include "vorncore/app/marrow.h"

#include <errno.h>
#include <string.h>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

constexpr int failed = XPMW_ERROR_PENDING;
const char *const null = nullptr;

struct client : xp_marrow {
    explicit client(int at = 1, int size = 32) { xp_init_marrow(this, "127.0.0.1", at, size, 5000); }
    ~client() { xp_close_marrow(this); }
    client(const client &) = delete;

    void take(int descriptor, int bits) {
        fd = descriptor;
        state = bits;
        xprb_reset(rbuf, descriptor);
    }
};

std::string columns_of(xp_marrow *c) { // "a|b|(null)|"
    std::string all;
    for (int i = 0, n = xpmw_stmt_get_column_cnt(c); i < n; i++)
        all.append(xpmw_stmt_get_column(c, i) ? xpmw_stmt_get_column(c, i) : "(null)").append("|");
    return all;
}

int open_plain(xp_marrow *c) { return xpmw_stmt_open_ex(c, '!', "S", 0); }
int open_unsent(xp_marrow *c) {
    const harness::fault_io broken(harness::call::send, 1, EPIPE);
    return open_plain(c);
}
int open_five(xp_marrow *c) { return xpmw_stmt_open(c, "a#,", 5, "a,b#c", null, "#0", "", "x\ny"); }
char *untouched, **items;
int columns, rows;
int fetch_all(xp_marrow *c) {
    items = &untouched, columns = rows = -7;
    return xpmw_stmt_fetch_all(c, &items, &columns, &rows);
}

const std::string long_line(32, 'x');

TEST(Marrow, CommandsRepliesResultsAndErrorTexts) {
    const struct {
        int (*run)(xp_marrow *);
        int before;
        std::string sent, reply;
        int result;
        const char *text;
        int after;
    } cases[] = {
        {xpmw_trans_open, 1 | 24, "TS\n", "200 ok\nnoise\n\n", 0, "NO ERROR", 1},
        {xpmw_trans_close, 1, "TE\n", "200 \r\n\r\n", 0, "NO ERROR", 1},
        {xpmw_trans_rollback, 1, "RB\n", "200%d\n", 6, "200%d", 1},
        {xpmw_trans_commit, 1, "CI\n", "200 ok\ncut", 4, "IOERROR_EOF:errno=0<Success>", failed | 1},
        {xpmw_trans_commit, 1, "CI\n", "200 ok\n" + long_line, 3, "IOERROR_OVERFLOW:errno=0<Success>", failed | 1},
        {xpmw_trans_commit, 1, "CI\n", long_line, 3, "IOERROR_OVERFLOW:errno=0<Success>", failed | 1},
        {open_five, 1 | 24, "*a#, a#/b##c,#0,##0,,x#ny\n", "200 \n", 0, "NO ERROR", 5},
        {open_plain, 1, "!S \n", "400 syntax\n", 6, "400 syntax", 1},
        {open_plain, 1, "!S \n", "", 4, "IOERROR_EOF:errno=0<Success>", failed | 1},
        {open_unsent, 1, "", "", 4, "IOERROR_WRITE:errno=32", failed | 1},
        {xpmw_stmt_fetch, 5, "", "\r\n", 1, "NO ERROR", 1},
        {xpmw_stmt_fetch, 5 | 16, "", "x\n", 0, "NO ERROR", 13},
        {xpmw_stmt_fetch, 13, "", "cut", 4, "IOERROR_EOF:errno=0<Success>:errno=0", failed | 13},
        {xpmw_stmt_fetch, 5, "", long_line.substr(1) + "\n", 0, "NO ERROR", 13},
        {xpmw_stmt_fetch, 5, "", long_line, 3, "Read buffer overflow", failed | 5},
        {xpmw_stmt_close, 29, "", "a\nb\n\n", 0, "NO ERROR", 1},
        {xpmw_stmt_close, 5, "", "a\nb", 4, "IOERROR_EOF:errno=0<Success>:errno=0", failed | 13},
        {xpmw_stmt_close, 1, "", "", 0, "NO ERROR", 1},
        {open_plain, 0, "", "", 2, "Cannot Invoke Command on Current State (/NOT_CONNECTED/)", 0},
        {open_plain, 29, "", "", 2, "Cannot Invoke Command on Current State (/STMT_OPENED/)", 29},
        {xpmw_trans_open, failed | 4, "", "", 2,
         "Cannot Invoke Command on Current State (/NOT_CONNECTED//ERROR_PENDING//STMT_OPENED/)", failed | 4},
        {xpmw_stmt_fetch, failed, "", "", 2, "Previous error is not recovered", failed},
        {xpmw_stmt_fetch, 4, "", "", 2, "Connection is not opened", 4},
        {xpmw_stmt_fetch, 1 | 24, "", "", 2, "Statement is not opened", 1 | 24},
        {xpmw_stmt_close, 4, "", "", 2, "Not Connected or Previous Error is not recovered", 4},
        {xpmw_stmt_close, failed | 5, "", "", 2, "Not Connected or Previous Error is not recovered", failed | 5},
        {xpmw_stmt_get_column_cnt, 5 | 16, "", "", -1, "NO ERROR", 5 | 16},
        {xpmw_connect, 1, "", "", 2, "NO ERROR", 1},
        {xpmw_disconnect, 0, "", "", 2, "NO ERROR", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.sent + c.reply + c.text);
        harness::scripted_peer peer;
        peer.expect(c.sent).send_split(c.reply, 1).start();
        const harness::owned descriptor(peer.fd());
        client mw;
        mw.take(peer.fd(), c.before);
        errno = 0;
        EXPECT_EQ(c.run(&mw), c.result);
        EXPECT_STREQ(xpmw_lasterror(&mw), c.text);
        EXPECT_EQ(mw.state, c.after);
        mw.state = 0; // leaves the descriptor to its owner
    }
}

TEST(Marrow, ColumnsAreCutAndUnescapedWhereverTheyLie) {
    const char *const pieces[][2] = {{"0", "0"}, {"eight at", "eight at"}, {"##", "#"}, {"#/", ","}, {"#n", "\n"},
                                     {"#q", "q"}};
    std::mt19937 random(1);
    harness::channel sockets(harness::channel::kind::sockets);
    client mw(1, 512);
    mw.take(sockets[0], 5);
    for (int round = 0; round < 500; round++) {
        std::string row = "r", expected = "r";
        for (size_t column = 0, count = random() % 8; column <= count; column++) {
            if (column) row += ',';
            for (size_t left = random() % 6; left; left--) {
                const auto &[sent, meant] = pieces[random() % 6];
                row += sent, expected += meant;
            }
            const char *const nulls[] = {"", "#", ",#0"}; // a lone "#" is dropped
            const auto chosen = random() % 3;
            row += nulls[chosen], expected += chosen == 2 ? "|(null)|" : "|";
        }
        sockets.with(row + '\n');
        ASSERT_EQ(xpmw_stmt_fetch(&mw), 0);
        ASSERT_EQ(columns_of(&mw), expected) << row;
    }
    mw.state = 0;
}

TEST(Marrow, ASessionOverSeveralConnections) {
    harness::scripted_peer peer(harness::scripted_peer::transport::tcp);
    peer.expect("*S \n").send("200 \nx,#0,,y\n,\n\nnoise\n").expect("?T p,#0\n").send("200 \n").reset();
    peer.accept_again().expect("TS\n").send("200 \n\n").start();
    client mw(peer.port());
    ASSERT_EQ(xpmw_connect(&mw), 0);
    EXPECT_EQ(mw.rbuf->timeout, 5000);
    ASSERT_EQ(xpmw_stmt_open(&mw, "S", 0), 0);
    EXPECT_EQ(xpmw_stmt_fetch(&mw), 0);
    EXPECT_EQ(open_plain(&mw), 2);
    EXPECT_EQ(columns_of(&mw), "x|(null)||y|") << "the refused statement leaves the row alone";
    EXPECT_TRUE(mw.state == 29 && !xpmw_stmt_get_column(&mw, 4) && !xpmw_stmt_get_column(&mw, -1));
    EXPECT_EQ(xpmw_stmt_fetch(&mw), 0);
    EXPECT_EQ(columns_of(&mw), "||");
    EXPECT_EQ(xpmw_stmt_fetch(&mw), 1);
    const void *texts[] = {"p", nullptr};
    xp_array parameters = {const_cast<void **>(texts), nullptr, nullptr, 2, 2, 2};
    EXPECT_EQ(xpmw_stmt_open_ar(&mw, '?', "T", &parameters), 0) << "noise is not taken for the reply";
    EXPECT_EQ(xpmw_stmt_close(&mw), 4);
    EXPECT_EQ(xpmw_disconnect(&mw), 0);
    EXPECT_EQ(mw.state, 0);
    ASSERT_EQ(xpmw_connect(&mw), 0);
    EXPECT_EQ(xpmw_trans_open(&mw), 0);
    EXPECT_EQ(mw.curline, mw.errmsg);
    xpmw_disconnect(&mw);
    harness::fault_io refused(harness::call::socket, 1, EMFILE);
    EXPECT_EQ(xpmw_connect(&mw), 4);
    EXPECT_STREQ(xpmw_lasterror(&mw), "IOERROR_SOCKET:errno=24");
}

TEST(Marrow, FetchAllGathersRowsOrSaysWhatItLeaves) {
    const struct {
        std::string reply;
        int result, columns, rows;
        std::vector<std::string> items;
    } cases[] = {
        {"\n", 1, 0, 0, {}},
        {"cut", 4, 0, 0, {}},
        {"a,b\n#0,#n\nc\nd,e,f\n\n", 0, 2, 4, {"a", "b", "(null)", "\n", "c", "(null)", "d", "e"}},
        {"a\nb\ncut", 4, -7, -7, {}},
        {"a\n" + long_line, 3, -7, -7, {}},
    };
    for (const auto &c : cases)
        harness::oom_sweep([&] {
            xp_marrow *mw = xp_create_marrow("h", 1, 32, 5000);
            if (!mw) return;
            harness::channel sockets(harness::channel::kind::sockets);
            sockets.with(c.reply).drop(1);
            mw->fd = sockets[0], mw->state = 5;
            xprb_reset(mw->rbuf, sockets[0]);
            const int result = fetch_all(mw);
            const auto kept = mw->rows ? static_cast<size_t>(mw->rows->count) : 0;
            EXPECT_TRUE(result == 4 || (result == c.result && columns == c.columns && rows == c.rows)) << c.reply;
            EXPECT_EQ(kept, result == 0 ? c.items.size() : 0) << c.reply;
            EXPECT_TRUE(items == (columns == -7 ? &untouched : columns ? items : nullptr)) << c.reply;
            for (size_t i = 0; i < kept; i++) EXPECT_EQ(items[i] ? items[i] : "(null)", c.items[i]);
            EXPECT_TRUE(c.result > 1 || xpmw_stmt_close(mw) == 0) << "short memory loses no line";
            EXPECT_TRUE(c.result > 1 || !mw->rows || !mw->rows->count);
            mw->state = 0;
            xp_destroy_marrow(mw);
        });
}

TEST(Marrow, ACommandMayFillTheStorageButForItsNul) {
    const std::string statement(28, 's'), half(16, '#');
    harness::scripted_peer peer;
    peer.expect("*ssssssssssssssssssssssssssss ################################\n")
        .send("200 \n\n")
        .expect("CI\n")
        .send("200 \n\n")
        .start();
    client mw;
    mw.take(peer.fd(), 1);
    EXPECT_EQ(xpmw_stmt_open(&mw, statement.c_str(), 1, half.c_str()), 0);
    EXPECT_EQ(xpmw_stmt_close(&mw), 0);
    EXPECT_EQ(xpmw_stmt_open(&mw, statement.c_str(), 1, std::string(17, '#').c_str()), 3);
    EXPECT_EQ(xpmw_stmt_open(&mw, statement.c_str(), 2, half.c_str(), long_line.c_str()), 3);
    EXPECT_STREQ(xpmw_lasterror(&mw), "COMMAND BUFFER OVERFLOW");
    EXPECT_EQ(xpmw_trans_commit(&mw), 0) << "the connection is usable";
}

} // namespace
