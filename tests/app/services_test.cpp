// The clients of the two services that are spoken to in lines.
#include <errno.h>

#include "support/fault.h"
#include "support/harness.h"
#include "support/peer.h"
#include "vorncore/app/marrow.h"
#include "vorncore/app/quillet.h"

namespace {

using harness::call;
using harness::scripted_peer;

// Calls of the key-value client, and what they have assigned.
const char *store;
char unassigned[1], *value;
xp_hashtable *table;

void create(xp_quillet **c, int port) { *c = xp_create_quillet("127.0.0.1", port, 64, 5000); }
int connect(xp_quillet *c) {
    store = value = unassigned;
    table = reinterpret_cast<xp_hashtable *>(unassigned);
    xpql_bind(c, "st");
    return xpql_connect(c);
}
int make(xp_quillet *c) { return xpql_new(c, &store); }
int put(xp_quillet *c) { return xpql_put(c, "a b=c#", ("\r\n" + std::string(5000, '=')).c_str()); }
int del(xp_quillet *c) { return xpql_del(c, "k"); }
int get(xp_quillet *c) {
    EXPECT_EQ(c->rbuf->timeout, -1) << "replies are awaited without limit";
    return xpql_get(c, "k", &value);
}
int list(xp_quillet *c) {
    const int result = xpql_get_all(c, &table, 7);
    if (result != XPQL_OK) return result;
    EXPECT_EQ(xpht_count(table), 0) << "kept: the first line ends the listing";
    xp_destroy_hashtable(table);
    return result;
}
std::string shown(const xp_quillet *c) {
    if (store != unassigned) return store == c->store_id ? store : "another store";
    if (value != unassigned) return value ? value : "(null)";
    return (table ? "" : "no table, ") + std::string(xpql_lasterror(c));
}

// Calls of the gateway's client, and the rows that they have gathered.
const std::string statement(60, 's'), hashes(32, '#');
const char *const null = nullptr;
std::string gathered;

void create(xp_marrow **c, int port) { *c = xp_create_marrow("127.0.0.1", port, 64, 5000); }
int connect(xp_marrow *c) { return gathered.clear(), xpmw_connect(c); }
int open_plain(xp_marrow *c) { return xpmw_stmt_open_ex(c, '!', "S", 0); }
int open_five(xp_marrow *c) { return xpmw_stmt_open(c, "a#,\n", 5, "a,b#c", null, "#0", "", "x\ny"); }
int open_full(xp_marrow *c) { return xpmw_stmt_open(c, statement.c_str(), 1, hashes.c_str()); }
int open_too_long(xp_marrow *c) { return xpmw_stmt_open(c, statement.c_str(), 2, hashes.c_str(), ""); }
int open_array(xp_marrow *c) {
    const void *texts[] = {"p", nullptr};
    const xp_array parameters = {const_cast<void **>(texts), nullptr, nullptr, 2, 2, 2};
    return xpmw_stmt_open_ar(c, '?', "T", &parameters);
}
void gather(const char *column) { gathered.append(column ? column : "(null)").append("|"); }
int columns(xp_marrow *c) {
    const int count = xpmw_stmt_get_column_cnt(c);
    EXPECT_FALSE(xpmw_stmt_get_column(c, -1) || xpmw_stmt_get_column(c, count));
    for (int i = 0; i < count; i++) gather(xpmw_stmt_get_column(c, i));
    return count;
}
int fetch_all(xp_marrow *c) {
    char **items = reinterpret_cast<char **>(unassigned);
    int columns = -7, rows = -7;
    const int result = xpmw_stmt_fetch_all(c, &items, &columns, &rows), count = result ? 0 : columns * rows;
    const char *const found = !items ? "null" : static_cast<void *>(items) == unassigned ? "as it was" : "items";
    gathered = std::string(found) + " " + std::to_string(columns) + "x" + std::to_string(rows) + " ";
    for (int i = 0; i < count; i++) gather(items[i]);
    EXPECT_EQ(c->rows ? c->rows->count : 0, count);
    return result;
}
std::string shown(const xp_marrow *c) { return gathered.empty() ? xpmw_lasterror(c) : gathered; }

/// A call whose first system call of a kind fails.
template <auto run, call what, int error>
constexpr auto failing = [](auto *c) {
    const harness::fault_io broken(what, 1, error);
    return run(c);
};

/// A call, the state before it, what it sends and gets, its result, what is shown of it, the state after it.
template <class Record>
using exchange = std::tuple<int (*)(Record *), int, std::string, std::string, int, std::string, int>;

template <class Record>
void play(const exchange<Record> &row, void (*destroy)(Record *), bool short_of_memory) {
    const auto &[run, before, sent, reply, result, text, after] = row;
    scripted_peer peer(scripted_peer::transport::tcp);
    if (short_of_memory) // it may come to no request
        peer.send(reply).hang_up_write().stall();
    else
        peer.expect(sent).send_split(reply, 1);
    Record *c;
    create(&c, peer.port());
    if (!c) return;
    peer.start();
    EXPECT_EQ(connect(c), 0);
    c->state = before;
    const harness::fault_io one_byte(call::send, 0, 0);
    errno = 0;
    const int got = run(c);
    const bool failed = short_of_memory && got == 4;
    EXPECT_TRUE(got == result || failed) << got;
    EXPECT_TRUE(shown(c) == text || (short_of_memory && got > 1)) << shown(c);
    EXPECT_TRUE(c->state == after || (failed && c->state >= 0)) << c->state;
    c->state = c->fd >= 0; // what is connected will be closed
    if (!short_of_memory) peer.join();
    destroy(c);
}

template <class Record, size_t count>
void play(const exchange<Record> (&rows)[count], void (*destroy)(Record *)) {
    for (const auto &row : rows) {
        SCOPED_TRACE(std::get<2>(row) + std::get<3>(row) + std::get<5>(row));
        play(row, destroy, false);
        harness::oom_sweep([&] { play(row, destroy, true); });
    }
}

const std::string long_line(64, 'x');

TEST(Quillet, RequestsRepliesResultsAndErrorTexts) {
    std::string signs;
    while (signs.size() < 10'000) signs += "#>";
    const exchange<xp_quillet> rows[] = {
        {make, 1, "NEW\n", "200 abcdefghij\r\n", 0, "abcdefg", 3},
        {make, 1, "NEW\n", "404 full\n", 1, "NO ERROR", 1},
        {put, 3, "PUT st a#_b#>c##=#r#n" + signs + "\n", "200 stored\n", 0, "NO ERROR", 3},
        {del, 3, "PUT st k=\n", "200\n", 6, "200", 3},
        {get, 1, "GET st k\n", "200 a#_b\r\n", 0, "a#_b", 1},
        {get, 3, "GET st k\n", "200 \n", 0, "(null)", 3},
        {get, 3, "GET st k\n", "404 no such key\n", 1, "(null)", 3},
        {get, 3, "GET st k\n", "500 50% of it\n", 6, "500 50% of it", 3},
        {get, 3, "GET st k\n", "200 cut", 4, "IOERROR_EOF:errno=0<Success>", 3},
        {get, 3, "GET st k\n", long_line, 3, "IOERROR_OVERFLOW:errno=0<Success>", 3},
        {failing<get, call::read, ECONNRESET>, 3, "GET st k\n", "", 4,
         "IOERROR_READ:errno=104<Connection reset by peer>", 3},
        {failing<get, call::poll, EINTR>, 3, "", "", 4, "IOERROR_POLL:errno=4", 3},
        {list, 2, "LST st\n", "200 follows\na=b\n\n", 0, "NO ERROR", 2},
        {list, 3, "LST st\n", "200 follows\n" + long_line, 4, "no table, IOERROR_OVERFLOW:errno=0<Success>", 3},
        {list, 3, "LST st\n", "404 \n", 1, "NO ERROR", 3},
        {xpql_purge, 3, "EXX st\n", "200 \n", 0, "NO ERROR", 1},
        {xpql_purge, 2, "EXX st\n", "404 \n", 1, "NO ERROR", 0},
        {xpql_purge, 3, "EXX st\n", "300 \n", 6, "300 ", 3},
        {make, 2, "", "", 2, "NO ERROR", 2},
        {put, 0, "", "", 2, "NO ERROR", 0},
        {get, 0, "", "", 2, "NO ERROR", 0},
        {list, 0, "", "", 2, "NO ERROR", 0},
        {xpql_purge, 0, "", "", 2, "NO ERROR", 0},
        {failing<xpql_connect, call::socket, EMFILE>, 0, "", "", 4, "IOERROR_SOCKET:errno=24", 0},
        {xpql_connect, 1, "", "", 2, "NO ERROR", 1},
        {xpql_disconnect, 2, "", "", 2, "NO ERROR", 2},
        {xpql_disconnect, 3, "", "", 0, "NO ERROR", 0},
    };
    play(rows, xp_destroy_quillet);
}

TEST(Marrow, CommandsRepliesResultsAndErrorTexts) {
    constexpr int failed = XPMW_ERROR_PENDING;
    const exchange<xp_marrow> rows[] = {
        {xpmw_trans_open, 1 | 24, "TS\n", "200 ok\n\n", 0, "NO ERROR", 1},
        {xpmw_trans_close, 1, "TE\n", "200 \r\n\r\n", 0, "NO ERROR", 1},
        {xpmw_trans_rollback, 1, "RB\n", "200%d\n", 6, "200%d", 1},
        {xpmw_trans_commit, 1, "CI\n", "200 ok\nnoise\ncut", 4, "IOERROR_EOF:errno=0<Success>", failed | 1},
        {xpmw_trans_commit, 1, "CI\n", long_line, 3, "IOERROR_OVERFLOW:errno=0<Success>", failed | 1},
        {open_five, 1 | 24, "*a#,\n a#/b##c,#0,##0,,x#ny\n", "200 \n", 0, "NO ERROR", 5},
        {open_full, 1, "*" + statement + " " + hashes + hashes + "\n", "200 \n", 0, "NO ERROR", 5},
        {open_too_long, 1, "", "", 3, "COMMAND BUFFER OVERFLOW", 1},
        {open_plain, 1, "!S \n", "400 syntax\n", 6, "400 syntax", 1},
        {failing<open_plain, call::send, EPIPE>, 1, "", "", 4, "IOERROR_WRITE:errno=32", failed | 1},
        {open_plain, 0, "", "", 2, "Cannot Invoke Command on Current State (/NOT_CONNECTED/)", 0},
        {xpmw_trans_open, failed | 4, "", "", 2,
         "Cannot Invoke Command on Current State (/NOT_CONNECTED//ERROR_PENDING//STMT_OPENED/)", failed | 4},
        {xpmw_stmt_fetch, 5, "", "\r\n", 1, "NO ERROR", 1},
        {xpmw_stmt_fetch, 5 | 16, "", "x\n", 0, "NO ERROR", 13},
        {xpmw_stmt_fetch, 13, "", "cut", 4, "IOERROR_EOF:errno=0<Success>:errno=0", failed | 13},
        {xpmw_stmt_fetch, 5, "", long_line, 3, "Read buffer overflow", failed | 5},
        {xpmw_stmt_fetch, failed, "", "", 2, "Previous error is not recovered", failed},
        {xpmw_stmt_fetch, 4, "", "", 2, "Connection is not opened", 4},
        {xpmw_stmt_fetch, 1 | 24, "", "", 2, "Statement is not opened", 1 | 24},
        {columns, 5 | 16, "", "", -1, "NO ERROR", 5 | 16},
        {fetch_all, 5, "", "\n", 1, "null 0x0 ", 1},
        {fetch_all, 5, "", "a,b\n#0,#n\nc\nd,e,f\n\n", 0, "items 2x4 a|b|(null)|\n|c|(null)|d|e|", 1},
        {fetch_all, 5, "", "a\nb\ncut", 4, "as it was -7x-7 ", failed | 29},
        {xpmw_stmt_close, 29, "", "a\nb\n\n", 0, "NO ERROR", 1},
        {xpmw_stmt_close, 5, "", "a\nb", 4, "IOERROR_EOF:errno=0<Success>:errno=0", failed | 13},
        {xpmw_stmt_close, 1, "", "", 0, "NO ERROR", 1},
        {xpmw_stmt_close, 4, "", "", 2, "Not Connected or Previous Error is not recovered", 4},
        {xpmw_stmt_close, failed | 5, "", "", 2, "Not Connected or Previous Error is not recovered", failed | 5},
        {xpmw_connect, 1, "", "", 2, "NO ERROR", 1},
        {failing<xpmw_connect, call::socket, EMFILE>, 0, "", "", 4, "IOERROR_SOCKET:errno=24", 0},
        {xpmw_disconnect, 4, "", "", 2, "NO ERROR", 4},
        {xpmw_disconnect, failed | 29, "", "", 0, "NO ERROR", 0},
    };
    play(rows, xp_destroy_marrow);
}

TEST(Marrow, RowsAreCutWhereverTheyLie) {
    const std::string row = ",eight at,#0,##,x#/#n,#q,0,#00,#", cut = "|eight at|(null)|#|x,\n|q|0|00||";
    std::string rows; // with fewer and fewer columns before these
    for (size_t n = 16; n-- > 0;) rows += std::string(n, ',') + row + '\n';
    scripted_peer peer(scripted_peer::transport::tcp);
    peer.expect("!S \n").send("200 \n" + rows + "\nnoise\n").expect("?T p,#0\n").send("200 \nz\n\n");
    peer.expect("TS\n").send("200 \n\n").start();
    xp_marrow mw;
    xp_init_marrow(&mw, "127.0.0.1", peer.port(), 64, 5000);
    EXPECT_EQ(connect(&mw), 0);
    EXPECT_EQ(mw.rbuf->timeout, 5000);
    EXPECT_EQ(open_plain(&mw), 0);
    for (size_t n = 16; n-- > 0; gathered.clear()) {
        EXPECT_EQ(xpmw_stmt_fetch(&mw), 0);
        EXPECT_EQ(open_plain(&mw), 2);
        columns(&mw);
        EXPECT_EQ(gathered, std::string(n, '|') + cut) << "the refused statement leaves the row alone";
    }
    EXPECT_EQ(xpmw_stmt_fetch(&mw), 1);
    EXPECT_EQ(open_array(&mw), 0) << "noise is not taken for the reply";
    EXPECT_EQ(fetch_all(&mw), 0);
    EXPECT_EQ(xpmw_stmt_close(&mw), 0);
    EXPECT_EQ(mw.rows->count, 0);
    EXPECT_EQ(xpmw_trans_open(&mw), 0);
    EXPECT_EQ(mw.curline, mw.errmsg);
    xp_close_marrow(&mw);
}

} // namespace
