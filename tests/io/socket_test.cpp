#include "vorncore/io/socket.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/un.h>

#include <functional>

#include "support/channel.h"
#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/servers.h"
#include "vorncore/io/io.h"

using namespace harness;

namespace {

const uint32_t loopback = htonl(INADDR_LOOPBACK);

int option(int fd, int level, int name) {
    int value[2] = {};
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, value, &length), 0);
    return value[0] + 1000 * value[1]; // the second of a linger record: seconds
}

/// SO_REUSEADDR, SO_LINGER and TCP_NODELAY, a digit each.
int options(int fd) {
    return 100 * option(fd, SOL_SOCKET, SO_REUSEADDR) + 10 * option(fd, SOL_SOCKET, SO_LINGER) +
           option(fd, IPPROTO_TCP, TCP_NODELAY);
}

} // namespace

TEST(Socket, EveryFailureLeavesItsReasonAndNoSocket) {
    const loopback_listener server;
    const std::function<int()> openers[] = {
        [&] { return xp_connect_tcp("127.0.0.1", server.port, 1000); },
        [&] { return xp_connect_tcp("localhost", server.port, -1); },
        [&] { return xp_connect_udp("127.0.0.1", server.port); },
        [] { return xp_bind_tcp(loopback, 0, XP_SOCKOPT_NODELAY); },
        [] { return xp_bind_udp(loopback, 0); },
        [] { return xp_connect_unix("", SOCK_STREAM); },
        [] { return xp_bind_unix(""); },
    };
    const std::pair<call, int> codes[] = {{call::socket, IOERROR_SOCKET},        {call::bind, IOERROR_BIND},
                                          {call::connect, IOERROR_CONNECT},      {call::fcntl, IOERROR_FCNTL},
                                          {call::getsockopt, IOERROR_SOCKETOPT}, {call::poll, IOERROR_POLL}};
    int failures = 0;
    for (const auto &open : openers)
        for (const auto &[failing, code] : codes)
            for (int nth = 1, fired = 1; fired; nth++) {
                const fault_io fault(failing, nth, ENOBUFS);
                const int result = open();
                failures += fired = fault.fired();
                EXPECT_TRUE(!fired || (result == code && errno == ENOBUFS)) << result << ' ' << code;
                if (result >= 0) close(result);
            }
    EXPECT_EQ(failures, 8 + 6 * 2); // the socket of a connection with a time-out has eight chances to fail
}

TEST(Socket, ConnectsInTimeOrSaysWhyNot) {
    const loopback_listener server;
    const setting tuned(xp_io_sigsafe, 1);
    for (const int timeout : {-1, 1000}) {
        const fault_io interrupted(call::connect, 1, EINTR);
        const owned client(xp_connect_tcp("127.0.0.1", server.port, timeout));
        const owned accepted(xp_sigsafe_accept(server.fd, nullptr, nullptr));
        EXPECT_EQ(fcntl(client.fd, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(fcntl(client.fd, F_GETFD) & fcntl(accepted.fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(interrupted.calls(), 2);
    }
    const int closed = loopback_listener().port;
    for (const int timeout : {-1, 0, 1000}) {
        const fault_io close(call::close, 1, EIO); // must not show
        EXPECT_TRUE(xp_connect_tcp("127.0.0.1", closed, timeout) == IOERROR_CONNECT && errno == ECONNREFUSED);
    }
    listen(server.fd, 0); // a full backlog drops what comes
    std::vector<int> waiting;
    int fd;
    while ((fd = xp_connect_tcp("127.0.0.1", server.port, 0)) >= 0 && waiting.size() < 16) waiting.push_back(fd);
    EXPECT_TRUE(fd == IOERROR_CONNECTTIMEOUT && errno == ETIMEDOUT);
    EXPECT_EQ((fault_io(call::accept, 1, EINTR), xp_sigsafe_accept(server.fd, nullptr, nullptr)), -1) << "tried once";
    const fault_io interrupted(call::connect, 1, EINTR);
    EXPECT_TRUE(xp_sigsafe_connect(not_open, nullptr, 0) == -1 && interrupted.calls() == 2);
    for (const int one : waiting) close(one);
}

TEST(Socket, ResolvesIntoTheAddressFieldAlone) {
    sockaddr_in address, expected;
    memset(&address, 0xAB, sizeof address);
    expected = address;
    expected.sin_addr.s_addr = xp_inet_addr(192, 0, 2, 1);
    EXPECT_EQ(xp_resolve_host(&address, "192.0.2.1"), 0);
    EXPECT_EQ(memcmp(&address, &expected, sizeof address), 0);
    const char *const unknown = "999.0.0.1"; // answered without asking a name server
    EXPECT_EQ(xp_resolve_host(&address, unknown), HOST_NOT_FOUND);
    EXPECT_STREQ(xp_hstrerror(HOST_NOT_FOUND), strerror(EPERM));
    EXPECT_EQ(xp_connect_tcp(unknown, 80, 0) + xp_connect_udp(unknown, 80), 2 * IOERROR_RESOLVE);
    for (int octet = 0; octet < 256; octet++) {
        const uint32_t any = xp_inet_addr(octet, 255 - octet, octet / 2, octet / 3);
        char ours[16], theirs[16];
        EXPECT_STREQ(xp_inet_ntoa(any, ours), inet_ntop(AF_INET, &any, theirs, sizeof theirs));
    }
}

TEST(Socket, LocalPaths) {
    const temporary_folder folder;
    const std::string path = folder.path() + std::string(106 - folder.path().size(), '/') + 's'; // 107 bytes
    const owned server(xp_bind_unix(path.c_str()));
    EXPECT_TRUE(option(server.fd, SOL_SOCKET, SO_REUSEADDR) == 1 && listen(server.fd, 1) == 0);
    const owned client(xp_connect_unix(path.c_str(), SOCK_STREAM));
    EXPECT_TRUE(xp_connect_unix(path.c_str(), SOCK_DGRAM) == IOERROR_CONNECT && errno == EPROTOTYPE);
    EXPECT_EQ(xp_bind_unix(path.c_str()), IOERROR_BIND);
    EXPECT_EQ(xp_bind_unix((path + "s").c_str()), IOERROR_OVERFLOW);
    EXPECT_EQ(xp_connect_unix((path + "s").c_str(), SOCK_STREAM), IOERROR_OVERFLOW);
    const owned unnamed(xp_bind_unix("")); // the kernel keeps the length it was given for a name without a file
    sockaddr_un address;
    socklen_t length = sizeof address;
    getsockname(unnamed.fd, reinterpret_cast<sockaddr *>(&address), &length);
    EXPECT_EQ(length, 110u);
}

TEST(Socket, StateOfAConnection) {
    const struct {
        const char *script;
        int end, expected;
        call failing;
    } cases[] = {{"", 0, 64, call::bind},  {"d", 0, 96, call::bind},  {"f", 1, 0, call::bind},
                 {"1", 0, 16, call::bind}, {"d1", 0, 96, call::bind}, {"u1", 0, 16, call::bind}, // the last: reset
                 {"d", 0, 96, call::recv}, {"d", 0, 128, call::poll}};
    for (const auto &row : cases) {
        channel c(channel::kind::sockets);
        const fault_io fault((c.play(row.script), row.failing), 1, ENOMEM);
        EXPECT_EQ(xp_check_sock_state(c[row.end]), row.expected) << row.script;
        EXPECT_TRUE(row.expected != 96 || c.arrived() == "abcdefgh!") << "a check reads nothing";
    }
    EXPECT_EQ(xp_check_sock_state(not_open), 0);
}

TEST(Socket, BindTakesAddressPortAndOptionsInOrderUpToTheFirstFailure) {
    const owned tcp(xp_bind_tcp(XP_INADDR_ANY, 0, 13));
    EXPECT_EQ(options(tcp.fd), 111);
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_ACCEPTCONN), 0);
    const loopback_listener taken;
    EXPECT_TRUE(xp_bind_tcp(loopback, taken.port, 0) == IOERROR_BIND && errno == EADDRINUSE);
    EXPECT_EQ(xp_set_sock_opt(tcp.fd, 15, 0), 1);
    const int after_failure[] = {0, 0, 100, 110};
    for (int nth = 1; nth <= 3; nth++) {
        const fault_io fault(call::setsockopt, nth, EINVAL);
        EXPECT_EQ(xp_set_sock_opt(tcp.fd, 15, 4), 0);
        EXPECT_EQ(options(tcp.fd), after_failure[nth]);
    }
    EXPECT_EQ(xp_set_sock_recv_buf(tcp.fd, 10'000) + xp_set_sock_send_buf(tcp.fd, 20'000), 2);
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_RCVBUF) + option(tcp.fd, SOL_SOCKET, SO_SNDBUF) / 2, 40'000);
    const owned receiver(xp_bind_udp(loopback, 0));
    sockaddr_in address;
    socklen_t length = sizeof address;
    getsockname(receiver.fd, reinterpret_cast<sockaddr *>(&address), &length);
    const owned sender(xp_connect_udp("127.0.0.1", ntohs(address.sin_port)));
    char got[16];
    EXPECT_EQ(xp_write_str(sender.fd, "datagram", 1000), 8);
    EXPECT_EQ(xp_read_timeout(receiver.fd, got, sizeof got, 1000), 8);
}
