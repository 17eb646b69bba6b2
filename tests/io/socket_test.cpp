#include "vorncore/io/socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/un.h>

#include <functional>

#include "support/channel.h"
#include "support/fault.h"
#include "support/harness.h"
#include "vorncore/io/io.h"

using namespace harness;

namespace {

const uint32_t loopback = htonl(INADDR_LOOPBACK);

int port_of(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length), 0);
    return ntohs(address.sin_port);
}

struct listener : owned {
    int port;
    explicit listener(int backlog) : owned(xp_bind_tcp(loopback, 0, 0)), port(port_of(fd)) {
        EXPECT_EQ(listen(fd, backlog), 0);
    }
};

int option(int fd, int level, int name) {
    int value[2] = {-1, -1}; // a linger record has two
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, value, &length), 0);
    return length == sizeof value ? value[0] * 1000 + value[1] : value[0];
}

} // namespace

TEST(Socket, ConnectedDescriptorsBlockAndCloseOnExec) {
    const listener server(8);
    for (const int timeout : {-1, 1000}) {
        const owned client(xp_connect_tcp("localhost", server.port, timeout));
        EXPECT_EQ(fcntl(client.fd, F_GETFL) & O_NONBLOCK, 0);
        const owned accepted(xp_sigsafe_accept(server.fd, nullptr, nullptr));
        EXPECT_EQ(fcntl(client.fd, F_GETFD) & fcntl(accepted.fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    const fault_io interrupted(call::accept, 1, EINTR);
    EXPECT_EQ(xp_sigsafe_accept(server.fd, nullptr, nullptr), -1);
    EXPECT_EQ(interrupted.calls(), 1);
}

TEST(Socket, FailuresLeaveTheirReasonAndNoSocket) {
    const listener server(8);
    using run = std::function<int()>;
    const run tcp = [&] { return xp_connect_tcp("127.0.0.1", server.port, 1000); };
    const run tcp_blocking = [&] { return xp_connect_tcp("127.0.0.1", server.port, -1); };
    const run udp = [&] { return xp_connect_udp("127.0.0.1", server.port); };
    const struct {
        run open;
        call failing;
        int nth, expected;
    } cases[] = {
        {tcp, call::connect, 1, IOERROR_CONNECT},
        {tcp, call::fcntl, 1, IOERROR_FCNTL},
        {tcp, call::fcntl, 2, IOERROR_FCNTL},
        {tcp, call::fcntl, 3, IOERROR_FCNTL}, // back to blocking
        {tcp, call::fcntl, 4, IOERROR_FCNTL},
        {tcp, call::poll, 1, IOERROR_POLL},
        {tcp, call::getsockopt, 1, IOERROR_SOCKETOPT},
        {tcp_blocking, call::connect, 1, IOERROR_CONNECT},
        {udp, call::connect, 1, IOERROR_CONNECT},
        {[] { return xp_bind_tcp(loopback, 0, XP_SOCKOPT_NODELAY); }, call::bind, 1, IOERROR_BIND},
        {[] { return xp_bind_udp(loopback, 0); }, call::bind, 1, IOERROR_BIND},
        {[] { return xp_connect_unix("", SOCK_STREAM); }, call::connect, 1, IOERROR_CONNECT},
        {[] { return xp_bind_unix(""); }, call::bind, 1, IOERROR_BIND},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        const auto expect = [&](call failing, int nth, int error, int result) {
            const fault_io fault(failing, nth, error);
            EXPECT_EQ(row.open(), result);
            EXPECT_EQ(errno, error);
            EXPECT_TRUE(fault.fired());
        };
        expect(row.failing, row.nth, ENOBUFS, row.expected);
        expect(call::socket, 1, EMFILE, IOERROR_SOCKET);
    }
    const setting tuned(xp_io_sigsafe, 1);
    for (const run &open : {tcp, tcp_blocking, udp}) {
        const fault_io fault(call::connect, 1, EINTR);
        const owned connected(open());
        EXPECT_EQ(fault.calls(), 2);
    }
}

TEST(Socket, RefusedConnectionKeepsErrnoOverClose) {
    const int port = port_of(owned(xp_bind_tcp(loopback, 0, 0)).fd); // nobody's again
    for (const int timeout : {-1, 0, 1000}) {
        const fault_io fault(call::close, 1, EIO);
        EXPECT_EQ(xp_connect_tcp("127.0.0.1", port, timeout), IOERROR_CONNECT);
        EXPECT_EQ(errno, ECONNREFUSED);
        EXPECT_TRUE(fault.fired());
    }
}

TEST(Socket, UnansweredConnectTimesOut) {
    const listener server(0); // a full backlog drops what comes
    std::vector<int> accepted;
    int fd;
    while ((fd = xp_connect_tcp("127.0.0.1", server.port, 0)) >= 0 && accepted.size() < 16) accepted.push_back(fd);
    EXPECT_EQ(fd, IOERROR_CONNECTTIMEOUT);
    EXPECT_EQ(errno, ETIMEDOUT);
    for (const int taken : accepted) close(taken);
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
    const fault_io sockets(call::socket, 0, EMFILE);
    EXPECT_EQ(xp_connect_tcp(unknown, 80, 0), IOERROR_RESOLVE);
    EXPECT_EQ(xp_connect_udp(unknown, 80), IOERROR_RESOLVE);
    EXPECT_FALSE(sockets.fired());
}

TEST(Socket, BindTakesAddressPortAndOptions) {
    const owned tcp(xp_bind_tcp(XP_INADDR_ANY, 0, XP_SOCKOPT_REUSEADDR | XP_SOCKOPT_NODELAY));
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_REUSEADDR) + option(tcp.fd, IPPROTO_TCP, TCP_NODELAY), 2);
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_ACCEPTCONN), 0);
    EXPECT_EQ(xp_bind_tcp(loopback, port_of(tcp.fd), 0), IOERROR_BIND);
    EXPECT_EQ(errno, EADDRINUSE);

    const owned receiver(xp_bind_udp(loopback, 0)), sender(xp_connect_udp("127.0.0.1", port_of(receiver.fd)));
    EXPECT_EQ(xp_write_str(sender.fd, "datagram", 1000), 8);
    char got[16];
    EXPECT_EQ(xp_read_timeout(receiver.fd, got, sizeof got, 1000), 8);
}

TEST(Socket, LocalPaths) {
    char folder[] = "/tmp/vorncore.XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    const std::string path = folder + std::string(106 - strlen(folder), '/') + 's'; // 107 bytes
    {
        const owned server(xp_bind_unix(path.c_str()));
        EXPECT_EQ(option(server.fd, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(listen(server.fd, 1), 0);
        const owned client(xp_connect_unix(path.c_str(), SOCK_STREAM));
        EXPECT_EQ(xp_connect_unix(path.c_str(), SOCK_DGRAM), IOERROR_CONNECT);
        EXPECT_EQ(errno, EPROTOTYPE);
        EXPECT_EQ(xp_bind_unix(path.c_str()), IOERROR_BIND);
    }
    EXPECT_EQ(xp_bind_unix((path + "s").c_str()), IOERROR_OVERFLOW);
    EXPECT_EQ(xp_connect_unix((path + "s").c_str(), SOCK_STREAM), IOERROR_OVERFLOW);
    unlink(path.c_str());
    rmdir(folder);

    const owned unnamed(xp_bind_unix("")); // the kernel keeps the length it was given for a name without a file
    sockaddr_un address;
    socklen_t length = sizeof address;
    getsockname(unnamed.fd, reinterpret_cast<sockaddr *>(&address), &length);
    EXPECT_EQ(length, 110u);
}

TEST(Socket, StateOfAConnection) {
    const struct {
        const char *script;
        int end;
        call failing;
        int error, expected;
    } cases[] = {{"", 0, call::poll, 0, 64},       {"d", 0, call::poll, 0, 96},
                 {"f", 1, call::poll, 0, 0},       {"1", 0, call::poll, 0, 16},
                 {"d1", 0, call::poll, 0, 96},     {"u1", 0, call::poll, 0, 16}, // reset
                 {"d", 0, call::recv, ENOMEM, 96}, {"", 0, call::poll, EINTR, 128}};
    for (const auto &row : cases) {
        channel c(channel::kind::sockets);
        c.play(row.script);
        const fault_io fault(row.failing, row.error ? 0 : 1000, row.error);
        EXPECT_EQ(xp_check_sock_state(c[row.end]), row.expected) << "row " << &row - cases;
        char left[10];
        EXPECT_TRUE(*row.script != 'd' || read(c[0], left, 10) == 9) << "a check reads nothing";
    }
    EXPECT_EQ(xp_check_sock_state(not_open), 0);
}

TEST(Socket, OptionsInOrderUpToTheFirstFailure) {
    const owned tcp(xp_bind_tcp(loopback, 0, 0));
    using values = std::vector<int>;
    const auto options = [&] {
        return values{option(tcp.fd, SOL_SOCKET, SO_REUSEADDR), option(tcp.fd, SOL_SOCKET, SO_LINGER),
                      option(tcp.fd, IPPROTO_TCP, TCP_NODELAY)};
    };
    const values after_failure[] = {{}, {0, 0, 0}, {1, 0, 0}, {1, 1000, 0}};
    for (int nth = 1; nth <= 3; nth++) {
        const fault_io fault(call::setsockopt, nth, EINVAL);
        EXPECT_EQ(xp_set_sock_opt(tcp.fd, 15, 1), 0);
        EXPECT_EQ(options(), after_failure[nth]);
    }
    for (const int on : {4, 0}) {
        EXPECT_EQ(xp_set_sock_opt(tcp.fd, 13, on), 1);
        EXPECT_EQ(options(), on ? (values{1, 1000, 1}) : (values{0, 0, 0}));
    }
    EXPECT_EQ(xp_set_sock_recv_buf(tcp.fd, 10'000) + xp_set_sock_send_buf(tcp.fd, 20'000), 2);
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_RCVBUF), 20'000);
    EXPECT_EQ(option(tcp.fd, SOL_SOCKET, SO_SNDBUF), 40'000);
}

TEST(Socket, AddressTextAgreesWithThePlatform) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; i++) {
        const auto address = static_cast<uint32_t>(random());
        char ours[16], theirs[16];
        EXPECT_STREQ(xp_inet_ntoa(address, ours), inet_ntop(AF_INET, &address, theirs, sizeof theirs));
    }
}
