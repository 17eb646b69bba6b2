#include "vorncore/app/quillet.h"

#include "support/fault.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

using harness::scripted_peer;
constexpr auto tcp = scripted_peer::transport::tcp;

struct client : xp_quillet {
    explicit client(int at = 0) { xp_init_quillet(this, "127.0.0.1", at, 64, 5000); }
    ~client() { xp_close_quillet(this); }
    client(const client &) = delete;
};

const char *store;
char *value;
xp_hashtable *table;
using operation = int(xp_quillet *);

int make(xp_quillet *c) { return xpql_new(c, &store); }
int put(xp_quillet *c) { return xpql_put(c, "a b=c#", "\r\n"); }
int put_large(xp_quillet *c) { return xpql_put(c, "k", std::string(16 << 20, '=').c_str()); }
int del(xp_quillet *c) { return xpql_del(c, "k"); }
int get(xp_quillet *c) { return xpql_get(c, "k", &value); }
int list(xp_quillet *c) {
    const int result = xpql_get_all(c, &table, 7);
    if (result != XPQL_OK) return result;
    EXPECT_EQ(xpht_count(table), 0) << "kept: the first line ends the listing";
    xp_destroy_hashtable(table);
    return result;
}

TEST(Quillet, RequestsRepliesResultsAndErrorTexts) {
    const std::string long_line(64, 'x');
    const struct {
        operation *run;
        std::string request, reply;
        int result;
        const char *text; // the value of a get that was answered, else how the error text begins
        int state = 3;
    } cases[] = {
        {make, "NEW\n", "200 abcdefghij\r\n", 0, "NO ERROR"},
        {make, "NEW\n", "404 full\n", 1, "NO ERROR"},
        {put, "PUT st a#_b#>c##=#r#n\n", "200 stored\n", 0, "NO ERROR"},
        {del, "PUT st k=\n", "200\n", 6, "200"},
        {get, "GET st k\n", "200 a#_b\r\n", 0, "a#_b"},
        {get, "GET st k\n", "200 \n", 0, "(null)"},
        {get, "GET st k\n", "404 no such key\n", 1, "(null)"},
        {get, "GET st k\n", "500 50% of it\n", 6, "500 50% of it"},
        {get, "GET st k\n", "200 cut", 4, "IOERROR_EOF:errno="},
        {get, "GET st k\n", long_line, 3, "IOERROR_OVERFLOW:errno="},
        {list, "LST st\n", "200 follows\na=b\n\n", 0, "NO ERROR"},
        {list, "LST st\n", "200 follows\n", 4, "IOERROR_EOF:errno="},
        {list, "LST st\n", "200 follows\n" + long_line, 4, "IOERROR_OVERFLOW:errno="},
        {list, "LST st\n", "404 \n", 1, "NO ERROR"},
        {xpql_purge, "EXX st\n", "200 \n", 0, "NO ERROR", 1},
        {xpql_purge, "EXX st\n", "404 \n", 1, "NO ERROR", 1},
        {xpql_purge, "EXX st\n", "300 \n", 6, "300 "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.request + c.reply);
        scripted_peer peer(tcp);
        peer.expect(c.request).send_split(c.reply, 1).start();
        client ql(peer.port());
        EXPECT_EQ(xpql_connect(&ql), 0);
        xpql_bind(&ql, "st");
        char other[] = "not assigned";
        value = other;
        table = reinterpret_cast<xp_hashtable *>(other);
        const harness::fault_io one_byte(harness::call::send, 0, 0);
        EXPECT_EQ(c.run(&ql), c.result);
        peer.join(); // a listing is left before its end
        EXPECT_EQ(ql.state, c.state);
        EXPECT_STREQ(ql.store_id, c.run == make && c.result == 0 ? "abcdefg" : "st");
        EXPECT_EQ(!table, c.run == list && c.result == 4);
        const char *text = value == other ? xpql_lasterror(&ql) : value ? value : "(null)";
        EXPECT_EQ(std::string_view(text).substr(0, strlen(c.text)), c.text);
    }
}

TEST(Quillet, GetsOverEveryLostConnection) {
    std::string large_put = "PUT x k=";
    for (int i = 0; i < 16 << 20; i++) large_put += "#>";
    scripted_peer peer(tcp);
    peer.expect("NEW\n").send("200 x\n").expect("GET x k\n").reset().accept_again();
    peer.expect("GET x k\n").send("200 v\n").expect(large_put + "\n").send("200 \n").start();
    client ql(peer.port());
    std::vector<int> results; // a write to a lost connection is one too, and nothing but the caller disconnects
    for (operation *run :
         {xpql_connect, xpql_connect, make, get, get, xpql_disconnect, get, xpql_connect, get, put_large})
        results.push_back(run(&ql));
    EXPECT_EQ(results, (std::vector{0, 2, 0, 4, 4, 0, 2, 0, 0, 0}));
    EXPECT_EQ(store, ql.store_id);
}

TEST(Quillet, OnlyWithNeitherConnectionNorStoreIsTheStateWrong) {
    client ql;
    for (operation *run : {make, put, get, list, xpql_purge, xpql_disconnect}) EXPECT_EQ(run(&ql), 2);
    EXPECT_EQ(xpql_connect(&ql), 4);
    EXPECT_STREQ(xpql_lasterror(&ql), "IOERROR_CONNECT:errno=111");
    xpql_bind(&ql, "x");
    EXPECT_EQ(make(&ql), 2);
    ql.timeout = 0; // nothing ever becomes writable
    for (operation *run : {put, get, list, xpql_purge}) EXPECT_EQ(run(&ql), 4);
    EXPECT_EQ(strncmp(xpql_lasterror(&ql), "IOERROR_WRITETIMEOUT:errno=", 27), 0);
}

TEST(Quillet, FailedAllocationsAreReported) {
    harness::oom_sweep([] {
        scripted_peer peer(tcp);
        xp_quillet *ql = xp_create_quillet("127.0.0.1", peer.port(), 64, 5000);
        if (!ql) return;
        peer.send("200 \n200 \n\n").stall().start();
        EXPECT_EQ(xpql_connect(ql), 0);
        const int result = xpql_put(ql, "k", std::string(5000, 'x').c_str());
        EXPECT_TRUE(result == 4 || (result == 0 && (list(ql) == 0 || !table))) << result;
        xp_destroy_quillet(ql);
    });
}

} // namespace
