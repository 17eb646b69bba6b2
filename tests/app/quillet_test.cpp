#include "vorncore/app/quillet.h"

#include <utility>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

struct client : xp_quillet {
    explicit client(int at = 1) { xp_init_quillet(this, "127.0.0.1", at, 64, 5000); }
    ~client() { xp_close_quillet(this); }
    client(const client &) = delete;

    void take(int descriptor) {
        fd = descriptor;
        state = XPQL_CONNECTED;
        xprb_reset(rbuf, descriptor);
        xpql_bind(this, "st");
    }
};

const char *store;
char *value;
xp_hashtable *table;
using operation = int(xp_quillet *);

int make(xp_quillet *c) { return xpql_new(c, &store); }
int put(xp_quillet *c) { return xpql_put(c, "a b=c#", "\r\n"); }
int del(xp_quillet *c) { return xpql_del(c, "k"); }
int get(xp_quillet *c) { return xpql_get(c, "k", &value); }
int get_null(xp_quillet *c) { return xpql_get(c, nullptr, &value); }
int list(xp_quillet *c) {
    const int result = xpql_get_all(c, &table, 7);
    if (result != XPQL_OK) return result;
    EXPECT_EQ(xpht_count(table), 0) << "kept: the first line ends the listing";
    xp_destroy_hashtable(table);
    return result;
}

const std::string long_line(64, 'x');

TEST(Quillet, RequestsRepliesResultsAndErrorTexts) {
    const struct {
        operation *run;
        std::string request, reply;
        int result;
        const char *text; // the value of a get that was answered, else the error text up to "errno="
    } cases[] = {
        {make, "NEW\n", "200 abcdefghij\r\n", 0, "NO ERROR"},
        {make, "NEW\n", "404 full\n", 1, "NO ERROR"},
        {put, "PUT st a#_b#>c##=#r#n\n", "200 stored\n", 0, "NO ERROR"},
        {put, "PUT st a#_b#>c##=#r#n\n", "404 \n", 1, "NO ERROR"},
        {del, "PUT st k=\n", "200\n", 6, "200"},
        {get, "GET st k\n", "200 a#_b\r\n", 0, "a#_b"},
        {get, "GET st k\n", "200 \n", 0, nullptr},
        {get, "GET st k\n", "404 no such key\n", 1, nullptr},
        {get, "GET st k\n", "500 50% of it\n", 6, "500 50% of it"},
        {get, "GET st k\n", "\n", 6, ""},
        {get, "GET st k\n", "200 cut", 4, "IOERROR_EOF:errno="},
        {get, "GET st k\n", long_line, 3, "IOERROR_OVERFLOW:errno="},
        {get_null, "GET st \n", "200 v\n", 0, "v"},
        {list, "LST st\n", "200 follows\na=b\n\n", 0, "NO ERROR"},
        {list, "LST st\n", "200 follows\n\n", 0, "NO ERROR"},
        {list, "LST st\n", "200 follows\n", 4, "IOERROR_EOF:errno="},
        {list, "LST st\n", "200 follows\n" + long_line, 4, "IOERROR_OVERFLOW:errno="},
        {list, "LST st\n", "404 \n", 1, "NO ERROR"},
        {list, "LST st\n", "40 \n", 6, "40 "},
        {xpql_purge, "EXX st\n", "200 \n", 0, "NO ERROR"},
        {xpql_purge, "EXX st\n", "404 \n", 1, "NO ERROR"},
        {xpql_purge, "EXX st\n", "300 \n", 6, "300 "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.request + c.reply);
        harness::scripted_peer peer;
        peer.expect(c.request).send_split(c.reply, 1).start();
        client ql;
        ql.take(peer.fd());
        char other[] = "not assigned";
        value = other;
        table = reinterpret_cast<xp_hashtable *>(other);
        EXPECT_EQ(c.run(&ql), c.result);
        peer.join(); // a listing is left before its end
        EXPECT_EQ(ql.state, c.run == xpql_purge && c.result <= 1 ? 1 : 3);
        EXPECT_STREQ(ql.store_id, c.run == make && c.result == 0 ? "abcdefg" : "st");
        EXPECT_EQ(!table, c.run == list && c.result == 4);
        if (value != other) {
            EXPECT_STREQ(value, c.text);
        } else {
            std::string error = xpql_lasterror(&ql);
            if (const size_t at = error.find("errno="); at != std::string::npos) error.resize(at + 6);
            EXPECT_EQ(error, c.text);
        }
    }
}

TEST(Quillet, OnlyWithNeitherConnectionNorStoreIsTheStateWrong) {
    client ql;
    for (operation *run : {make, put, get, list, xpql_purge, xpql_disconnect}) EXPECT_EQ(run(&ql), 2);
    EXPECT_EQ(ql.fd, -1);
    EXPECT_STREQ(ql.store_id, "");
    xpql_bind(&ql, "12345678");
    EXPECT_STREQ(ql.store_id, "1234567");
    EXPECT_EQ(make(&ql), 2);
    ql.timeout = 0; // nothing ever becomes writable
    for (operation *run : {put, get, list, xpql_purge}) EXPECT_EQ(run(&ql), 4);
    EXPECT_EQ(std::string(xpql_lasterror(&ql)).find("IOERROR_WRITETIMEOUT:errno="), 0U);
}

TEST(Quillet, ConnectsAndGetsOverEveryLostConnection) {
    harness::scripted_peer peer(harness::scripted_peer::transport::tcp);
    peer.expect("NEW\n").send("200 x\n").expect("GET x k\n").reset().accept_again();
    peer.expect("GET x k\n").send("200 v\n").start();
    client ql(peer.port());
    ASSERT_EQ(xpql_connect(&ql), 0);
    EXPECT_EQ(xpql_connect(&ql), 2);
    EXPECT_EQ(make(&ql), 0);
    EXPECT_EQ(store, ql.store_id);
    EXPECT_EQ(get(&ql), 4);
    EXPECT_EQ(get(&ql), 4) << "a write to a lost connection is a result";
    EXPECT_EQ(ql.state, 3) << "only the caller disconnects";
    EXPECT_EQ(xpql_disconnect(&ql), 0);
    EXPECT_EQ(ql.state, 0);
    xpql_bind(&ql, store);
    ASSERT_EQ(xpql_connect(&ql), 0);
    EXPECT_EQ(get(&ql), 0);
    EXPECT_STREQ(value, "v");
    xpql_disconnect(&ql);
    peer.join();
    harness::fault_io refused(harness::call::socket, 1, EMFILE);
    EXPECT_EQ(xpql_connect(&ql), 4);
    EXPECT_STREQ(xpql_lasterror(&ql), "IOERROR_SOCKET:errno=24");
}

TEST(Quillet, LargeAndShortWritesArriveWhole) {
    for (const size_t size : {size_t{2043}, size_t{2044}, size_t{16} << 20}) {
        const std::string text(size, '=');
        std::string sent = "PUT st k=";
        for (size_t i = 0; i < size; i++) sent += "#>";
        harness::scripted_peer peer;
        peer.expect(sent + "\n").send("200 \n").start();
        client ql;
        ql.take(peer.fd());
        harness::fault_io one_byte(harness::call::send, size < 10'000 ? 0 : 1, 0);
        EXPECT_EQ(xpql_put(&ql, "k", text.c_str()), 0) << size;
    }
}

TEST(Quillet, FailedAllocationsAreReported) {
    harness::oom_sweep([] {
        harness::channel pair(harness::channel::kind::sockets);
        pair.with("200 \n200 \n\n");
        xp_quillet *ql = xp_create_quillet("h", 1, 64, 0);
        if (!ql) return;
        ql->fd = std::exchange(pair.ends[0], -1);
        ql->state = 3;
        xprb_reset(ql->rbuf, ql->fd);
        const int result = xpql_put(ql, "k", std::string(5000, 'x').c_str());
        EXPECT_TRUE(result == 0 || result == 4);
        EXPECT_TRUE(result != 0 || list(ql) == 0 || !table);
        xp_destroy_quillet(ql);
    });
}

} // namespace
