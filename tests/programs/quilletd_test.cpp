#include <deque>
#include <fstream>
#include <thread>

#include "support/harness.h"
#include "support/program.h"
#include "support/threads.h"

namespace {

using harness::raw_client;
using harness::service;

TEST(Quilletd, AnswersEachRequestAndStaysUsable) {
    const std::string too_long(65, 'x'), longest(64 - 8, 'x');
    const struct {
        const char *name, *options;
        std::string requests, replies;
    } sessions[] = {
        {"from beginning to end", "",
         "NEW\nPUT 1 a#_b=1##\r\nGET 1 a#_b\nPUT 1 a#_b=2\nGET 1 a#_b\nLST 1\nEXX 1\nGET 1 a#_b\nNEW\n",
         "200 1\n200 stored\n200 1##\n200 stored\n200 2\n200 entries follow\na#_b=2\n\n200 purged\n404 no such store\n"
         "200 2\n"},
        {"nothing as key and value", "", "NEW\nPUT 1 =e\nGET 1 \nPUT 1 =\nGET 1 \nPUT 1 b=\n",
         "200 1\n200 stored\n200 e\n200 deleted\n404 no such key\n200 deleted\n"},
        {"no store", "", "GET x a\nGET 12345678 a\nPUT x a=\nLST x\nEXX x\n",
         "404 no such store\n404 no such store\n404 no such store\n404 no such store\n404 no such store\n"},
        {"malformed", "", "PUT 1 c\nPUT 1 c=d=e\nPUT 1 c=d e\nPUT 1 c d=e\nGET 1\n",
         "500 malformed request\n500 malformed request\n500 malformed request\n500 malformed request\n"
         "500 malformed request\n"},
        {"unknown",
         "",
         {"PUT\nNEW now\n\nGET 1 \0\n", 22},
         "500 unknown request\n500 unknown request\n500 unknown request\n500 request holds a NUL byte\n"},
        {"too long", "--max-line 64",
         "NEW\nPUT 1 k=" + longest + "\n" + too_long + "\n" + too_long + too_long + "tail\nPUT 1 k=\n",
         "200 1\n200 stored\n500 request too long\n500 request too long\n200 deleted\n"},
        {"too long, with no end", "--max-line 64", too_long, "500 request too long\n"},
        {"too many stores", "--max-stores 2", "NEW\nNEW\nNEW\nEXX 1\nNEW\n",
         "200 1\n200 2\n500 too many stores\n200 purged\n200 3\n"},
        {"memory for one entry", "--max-bytes 100",
         "NEW\nPUT 1 k=v\nPUT 1 k=w\nPUT 1 l=v\nPUT 1 k=\nPUT 1 l=v\nEXX 1\nNEW\nPUT 2 k=v\n",
         "200 1\n200 stored\n200 stored\n500 no room\n200 deleted\n200 stored\n200 purged\n200 2\n200 stored\n"},
        {"the entry unread for longest goes", "--max-entries 2",
         "NEW\nPUT 1 a=1\nPUT 1 b=2\nGET 1 a\nPUT 1 b=3\nPUT 1 c=4\nGET 1 b\nGET 1 a\nGET 1 c\n",
         "200 1\n200 stored\n200 stored\n200 1\n200 stored\n200 stored\n404 no such key\n200 1\n200 4\n"},
    };
    for (const auto &session : sessions) {
        service running(session.options);
        raw_client client(running.port);
        client.send(session.requests);
        std::string replies;
        while (replies.size() < session.replies.size() && client.input.last_error == 0) replies += client.line() + '\n';
        EXPECT_EQ(replies, session.replies) << session.name;
        shutdown(client.fd, SHUT_WR);
        EXPECT_TRUE(client.ended()) << session.name;
    }
}

TEST(Quilletd, HoldsAThousandIdleConnections) {
    service running;
    std::deque<raw_client> idle;
    for (int i = 0; i < 1000; i++) idle.emplace_back(running.port);
    for (auto &client : idle) ASSERT_EQ(client.ask("GET 1 k\n"), "404 no such store");
    EXPECT_EQ(running.end(SIGTERM), 0);
    for (auto &client : idle) ASSERT_TRUE(client.ended());
}

TEST(Quilletd, CountsExactlyWithManyWorkers) {
    const struct {
        const char *options;
        int keys; // of each of four clients
        const char *reply, *statistics;
    } cases[] = {
        {"--workers 4", 25'000, "500 no room", "1 stores, 100000 entries, 7200000 bytes, 0 evicted\n"},
        {"--workers 4 --max-entries 10", 5000, "200 stored", "1 stores, 10 entries, 721 bytes, 19991 evicted\n"},
    };
    for (const auto &c : cases) {
        service running(c.options);
        raw_client client(running.port);
        EXPECT_EQ(client.ask("NEW\n"), "200 1");
        harness::in_threads(4, [&](int n) { // all requests before the replies are read
            raw_client putter(running.port);
            std::string requests;
            for (int i = 0; i < c.keys; i++) requests += "PUT 1 k" + std::to_string(100'000 + n * c.keys + i) + "=v\n";
            std::thread sender([&] { putter.send(requests); });
            for (int i = 0; i < c.keys; i++) EXPECT_EQ(putter.line(), "200 stored");
            sender.join();
        });
        EXPECT_EQ(client.ask("PUT 1 one_more=v\n"), c.reply) << c.options;
        kill(running.pid(), SIGUSR1);
        const std::string line = running.output_until("\n");
        EXPECT_EQ(line.substr(line.find(" requests, ") + 11), c.statistics) << c.options;
    }
}

long peak_kilobytes(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; file >> word;)
        if (long peak; word == "VmHWM:" && file >> peak) return peak;
    return -1;
}

TEST(Quilletd, APeerThatNeverReadsFillsNoMemoryAndDelaysNobody) {
    constexpr int count = 2500; // for 100 MB of replies
    service running;
    raw_client flood(running.port), other(running.port);
    const std::string value(20'000, 'v'), put = "PUT 1 k=" + value + "\n";
    flood.ask("NEW\n");
    flood.ask(put);
    const long before = peak_kilobytes(running.pid());
    ASSERT_GT(before, 0);
    std::string gets, puts;
    for (int i = 0; i < count; i++) gets += "GET 1 k\nLST 1\n";
    flood.send(gets);
    for (int i = 0; i < 200; i++) ASSERT_EQ(other.ask("GET 1 none\n"), "404 no such key");
    EXPECT_LT(peak_kilobytes(running.pid()) - before, 30'000);
    for (int i = 0; i < count; i++)
        for (const std::string &line : {"200 " + value, std::string("200 entries follow"), "k=" + value, std::string()})
            ASSERT_EQ(flood.line(), line) << i;
    for (int i = 0; i < 2 * count; i++) puts += put;
    flood.send(puts);
    for (int i = 0; i < 2 * count; i++) ASSERT_EQ(flood.line(), "200 stored");
    EXPECT_LT(peak_kilobytes(running.pid()) - before, 30'000) << "after 100 MB of requests";
}

TEST(Quilletd, SurvivesPeersThatResetOrStall) {
    service running("--idle-timeout 500");
    for (int i = 0; i < 50; i++) {
        raw_client gone(running.port);
        gone.ask("NEW\n");
        gone.send("LST 1\nGET 1 k\nPUT 1 k=" + std::string(5000, 'x'));
        xp_set_sock_opt(gone.fd, XP_SOCKOPT_LINGER, 1); // closing resets
    }
    raw_client stalled(running.port);
    stalled.send("GET 1 ");
    EXPECT_TRUE(stalled.ended()) << "silent for too long";
    EXPECT_EQ(raw_client(running.port).ask("GET 1 k\n"), "404 no such key");
}

TEST(Quilletd, AnswersWhatHasArrivedBeforeItEnds) {
    for (const int signal : {SIGTERM, SIGINT}) {
        service running;
        raw_client client(running.port);
        client.ask("NEW\n");
        std::string requests;
        for (int i = 0; i < 3000; i++) requests += "PUT 1 k" + std::to_string(i) + "=v\n";
        kill(running.pid(), SIGSTOP); // the signal comes first, and the requests have arrived when it is looked at
        EXPECT_EQ(waitpid(running.pid(), nullptr, WUNTRACED), running.pid());
        kill(running.pid(), signal);
        client.send(requests + "LST 1\nGET 1 k");
        EXPECT_EQ(running.end(SIGCONT), 0);
        int lines = 0;
        while (xprb_read_line(&client.input, nullptr)) lines++;
        EXPECT_EQ(lines, 3000 + 1 + 3000 + 1);
        EXPECT_EQ(client.input.last_error, IOERROR_EOF);
        EXPECT_EQ(xp_connect_tcp("127.0.0.1", running.port, 1000), IOERROR_CONNECT);
    }
}

TEST(Quilletd, RefusesArgumentsThatMakeNoSense) {
    service running;
    const std::string port = std::to_string(running.port);
    harness::scratch("q() { timeout 20 ./quilletd \"$@\"; }; ")
        .expect({
            {"q --help > {}/out && q --version >> {}/out && sed -n '1p;$p' {}/out | cut -b -16", 0,
             "usage: quilletd \nVorncore Library\n"},
            {"q --port x", 2, "quilletd: --port: 'x' is no number from 0 to 65535\n"},
            {"q --port 65536", 2, "quilletd: --port: '65536' is no number from 0 to 65535\n"},
            {"q --max-line 1e3", 2, "quilletd: --max-line: '1e3' is no number from 16 to 1073741824\n"},
            {"q --what", 2, "./quilletd: unrecognized option '--what'\nquilletd: try --help\n"},
            {"q here", 2, "quilletd: unexpected 'here', try --help\n"},
            {"q --address no.such.host.invalid", 1, "quilletd: unknown address 'no.such.host.invalid'\n"},
            {"q --port " + port, 1,
             "quilletd: cannot listen on 127.0.0.1:" + port + ": IOERROR_BIND (Address already in use)\n"},
        });
}

} // namespace
