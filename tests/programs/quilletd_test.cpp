#include <sys/resource.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <thread>

#include "support/harness.h"
#include "support/program.h"

namespace {

using harness::raw_client;
using harness::service;

TEST(Quilletd, AnswersEachRequestAndStaysUsable) {
    service running("--max-stores 2 --max-line 64");
    raw_client client(running.port);
    const std::string id = client.ask("NEW\n").substr(4);
    ASSERT_FALSE(id.empty() || id.size() > 7) << id;
    const std::string too_long(65, 'x'), longest(64 - 7 - id.size(), 'x');
    const struct {
        std::string request; // S stands for the store, N for a NUL byte
        std::string reply;   // "404 ...": begins with "404 "
    } cases[] = {
        {"NEW\n", "200 ..."},
        {"NEW\n", "500 too many stores"},
        {"PUT S a#_b=1##\r\n", "200 stored"},
        {"GET S a#_b\n", "200 1##"},
        {"PUT S a#_b=2\n", "200 stored"},
        {"GET S a#_b\n", "200 2"},
        {"GET S b\n", "404 no such key"},
        {"GET x a\n", "404 no such store"},
        {"GET 12345678 a\n", "404 ..."},
        {"PUT x a=\n", "404 no such store"},
        {"PUT S b=\n", "200 ..."},
        {"PUT S k=" + longest + "\n", "200 stored"},
        {"PUT S k=\n", "200 ..."},
        {"PUT S =e\n", "200 stored"},
        {"GET S \n", "200 e"},
        {"PUT S c\n", "500 ..."},
        {"PUT S c=d=e\n", "500 ..."},
        {"PUT S c d=e\n", "500 ..."},
        {"PUT\n", "500 ..."},
        {"NEW now\n", "500 ..."},
        {"\n", "500 ..."},
        {"GET S N\n", "500 ..."},
        {too_long + "\n", "500 request too long"},
        {too_long + too_long, "500 request too long"},
        {"tail\nGET S a#_b\n", "200 2"},
        {"LST x\n", "404 ..."},
        {"EXX x\n", "404 ..."},
    };
    for (const auto &c : cases) {
        std::string request;
        for (const char byte : c.request)
            request += byte == 'S' && c.request[0] != 'L'
                           ? id
                           : std::string(1, byte == 'N' && c.request[0] == 'G' ? '\0' : byte);
        const std::string reply = client.ask(request);
        const bool prefix = c.reply.ends_with("...");
        EXPECT_EQ(prefix ? reply.substr(0, 4) + "..." : reply, c.reply) << c.request;
    }
    EXPECT_EQ(client.ask("LST " + id + "\n").substr(0, 4), "200 ");
    std::vector<std::string> entries{client.line(), client.line()};
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, (std::vector<std::string>{"=e", "a#_b=2"}));
    EXPECT_EQ(client.line(), "");
    EXPECT_EQ(client.ask("EXX " + id + "\n").substr(0, 4), "200 ");
    EXPECT_EQ(client.ask("GET " + id + " a#_b\n"), "404 no such store");
    EXPECT_EQ(client.ask("NEW\n").substr(0, 4), "200 ");
    shutdown(client.fd, SHUT_WR);
    EXPECT_TRUE(client.ended());
}

TEST(Quilletd, GivesBackTheMemoryOfWhatIsReplacedDeletedOrPurged) {
    service running("--max-bytes 200"); // for one entry, with what it costs beside its text
    raw_client client(running.port);
    const std::string value(50, 'v');
    for (int i = 1; i <= 3; i++) {
        const std::string id = client.ask("NEW\n").substr(4), put = "PUT " + id + " ";
        for (int j = 0; j < 3; j++) EXPECT_EQ(client.ask(put + "k=" + value + "\n"), "200 stored");
        EXPECT_EQ(client.ask(put + "l=" + value + "\n"), "500 no room");
        EXPECT_EQ(client.ask(put + "k=\n"), "200 deleted");
        EXPECT_EQ(client.ask(put + "l=" + value + "\n"), "200 stored");
        EXPECT_EQ(client.ask("EXX " + id + "\n"), "200 purged");
    }
}

TEST(Quilletd, HoldsAThousandIdleConnections) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit raised{std::min<rlim_t>(limit.rlim_max, 4096), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    ASSERT_GE(raised.rlim_cur, 1100U);
    service running;
    std::deque<harness::owned> idle;
    for (int i = 0; i < 1000; i++) idle.emplace_back(xp_connect_tcp("127.0.0.1", running.port, 10'000));
    raw_client(running.port).ask("NEW\n");
    for (const auto &c : idle) {
        char reply[64];
        ASSERT_EQ(xp_write_str(c.fd, "GET 1 k\n", 10'000), 8);
        ASSERT_GT(xp_read_timeout(c.fd, reply, sizeof reply, 10'000), 4);
    }
    EXPECT_EQ(running.end(SIGTERM), 0);
    char byte;
    for (const auto &c : idle) ASSERT_EQ(xp_read_timeout(c.fd, &byte, 1, 10'000), IOERROR_EOF);
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// What a service says on standard error, line by line.
struct error_lines : harness::channel {
    error_lines() : channel(kind::pipe) {
        xp_init_readbuf(&input, (*this)[0], 4096);
        input.timeout = 10'000;
    }
    ~error_lines() { xp_close_readbuf(&input); }
    std::string option() { return " 2>/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string((*this)[1]); }
    std::string line() {
        const char *text = xprb_read_line(&input, nullptr);
        return text ? text : xprb_lasterrmsg(&input);
    }
    xprb input;
};

/// Puts keys N * count .. from a connection of its own, all of them before it reads the replies.
void put_many(int port, int n, int count) {
    raw_client client(port);
    std::string requests;
    for (int i = 0; i < count; i++) requests += "PUT 1 k" + std::to_string(100'000 + n * count + i) + "=v\n";
    std::thread sender([&] { client.send(requests); });
    for (int i = 0; i < count; i++) EXPECT_EQ(client.line(), "200 stored");
    sender.join();
}

TEST(Quilletd, CountsExactlyWhateverTheNumberOfWorkers) {
    const struct {
        const char *options;
        int keys; // of each of four clients
        const char *reply, *statistics;
    } cases[] = {
        {"--workers 1", 25'000, "500 no room", "1 stores, 100000 entries, 7200000 bytes, 0 evicted"},
        {"--workers 4", 25'000, "500 no room", "1 stores, 100000 entries, 7200000 bytes, 0 evicted"},
        {"--workers 1 --max-entries 10", 5000, "200 stored", "1 stores, 10 entries, 721 bytes, 19991 evicted"},
        {"--workers 4 --max-entries 10", 5000, "200 stored", "1 stores, 10 entries, 721 bytes, 19991 evicted"},
    };
    for (const auto &c : cases) {
        error_lines errors;
        service running(c.options + errors.option());
        raw_client client(running.port);
        EXPECT_EQ(client.ask("NEW\n"), "200 1");
        std::vector<std::thread> clients;
        for (int n = 0; n < 4; n++) clients.emplace_back(put_many, running.port, n, c.keys);
        for (auto &thread : clients) thread.join();
        EXPECT_EQ(client.ask("PUT 1 one_more=v\n"), c.reply) << c.options;
        kill(running.pid(), SIGUSR1);
        const std::string line = errors.line();
        EXPECT_EQ(line.substr(line.find(" requests, ") + 11), c.statistics) << c.options;
    }
}

TEST(Quilletd, DropsTheEntryThatWasNotReadForLongest) {
    service running("--max-entries 2");
    raw_client client(running.port);
    for (const char *request : {"NEW", "PUT 1 a=1", "PUT 1 b=2", "GET 1 a", "PUT 1 b=3", "PUT 1 c=4"})
        EXPECT_EQ(client.ask(std::string(request) + "\n").substr(0, 4), "200 ") << request;
    EXPECT_EQ(client.ask("GET 1 b\n"), "404 no such key");
    EXPECT_EQ(client.ask("GET 1 a\n"), "200 1");
    EXPECT_EQ(client.ask("GET 1 c\n"), "200 4");
}

long peak_kilobytes(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; file >> word;)
        if (long peak; word == "VmHWM:" && file >> peak) return peak;
    return -1;
}

TEST(Quilletd, APeerThatNeverReadsFillsNoMemoryAndDelaysNobody) {
    constexpr int requests = 5000; // for 100 MB of replies
    service running;
    raw_client flood(running.port), other(running.port);
    const std::string id = flood.ask("NEW\n").substr(4), value(20'000, 'v');
    flood.ask("PUT " + id + " k=" + value + "\n");
    const long before = peak_kilobytes(running.pid());
    ASSERT_GT(before, 0);
    std::string many;
    for (int i = 0; i < requests; i++) many += i % 2 ? "LST " + id + "\n" : "GET " + id + " k\n";
    flood.send(many);
    for (int i = 0; i < 200; i++) ASSERT_EQ(other.ask("GET " + id + " none\n"), "404 no such key");
    EXPECT_LT(peak_kilobytes(running.pid()) - before, 30'000);
    for (int i = 0; i < requests; i++) {
        if (i % 2) {
            ASSERT_EQ(flood.line().substr(0, 4), "200 ");
        }
        ASSERT_EQ(flood.line(), i % 2 ? "k=" + value : "200 " + value) << i;
        if (i % 2) {
            ASSERT_EQ(flood.line(), "");
        }
    }
    many.clear();
    for (int i = 0; i < requests; i++) many += "PUT " + id + " k=" + value + "\n";
    flood.send(many);
    for (int i = 0; i < requests; i++) ASSERT_EQ(flood.line(), "200 stored");
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
        running.pause(); // the signal comes first, and the requests have arrived when it is looked at
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
    const struct {
        std::string arguments;
        int code;
        const char *says;
    } cases[] = {
        {"--help", 0, "usage: quilletd"},
        {"--version", 0, "Vorncore Library"},
        {"--port x", 2, "--port: 'x' is no number from 0 to 65535"},
        {"--port 65536", 2, "--port"},
        {"--max-line 1e3", 2, "--max-line"},
        {"--what", 2, "--help"},
        {"here", 2, "unexpected 'here'"},
        {"--address no.such.host.invalid", 1, "unknown address"},
        {"--port " + std::to_string(running.port), 1, "IOERROR_BIND (Address already in use)"},
    };
    for (const auto &c : cases) {
        std::string output;
        EXPECT_EQ(harness::run("./quilletd " + c.arguments, &output), c.code) << c.arguments;
        EXPECT_NE(output.find(c.says), std::string::npos) << output;
    }
}

} // namespace
