#include "vorncore/io/socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/un.h>

#include <algorithm>

#include "vorncore/base/chartype.h"
#include "vorncore/io/internal/syscall.h"

using namespace vorncore;

const uint32_t XP_INADDR_ANY = 0;

namespace {

/// Gives up a socket: returns `code`, and `errno` keeps the reason that closing it might overwrite.
int abandon(int descriptor, int code) {
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return code;
}

int new_socket(int domain, int type) {
    const int descriptor = socket(domain, type | SOCK_CLOEXEC, 0);
    return descriptor < 0 ? IOERROR_SOCKET : descriptor;
}

template <class Address>
int connect_once(int descriptor, const Address &address) {
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    return as_configured([=] { return connect(descriptor, generic, sizeof(Address)); });
}

/// The connected or bound socket, or the code after closing it.
template <class Address>
int connected(int descriptor, const Address &address) {
    return connect_once(descriptor, address) < 0 ? abandon(descriptor, IOERROR_CONNECT) : descriptor;
}

template <class Address>
int bound(int descriptor, const Address &address) {
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    return bind(descriptor, generic, sizeof(Address)) < 0 ? abandon(descriptor, IOERROR_BIND) : descriptor;
}

sockaddr_in inet_address(uint32_t address, int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    result.sin_addr.s_addr = address;
    return result;
}

/// False when the path is too long. The rest of the record is zero, as all of it is handed to the system.
bool unix_address(sockaddr_un &address, const char *path) {
    const size_t length = strlen(path);
    if (length >= sizeof address.sun_path) return false;
    address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, length);
    return true;
}

/// The outcome of a connect that has ended, told by the socket's pending error: `otherwise` when there is none.
int connect_outcome(int descriptor, int otherwise) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) < 0) return IOERROR_SOCKETOPT;
    if (error == 0) return otherwise;
    errno = error;
    return IOERROR_CONNECT;
}

/// 0, or the code when a connected socket cannot be made blocking: then the peer, who knows of it, is told of the end.
int make_blocking(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags >= 0 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) >= 0) return 0;
    const int reason = errno;
    shutdown(descriptor, SHUT_RDWR);
    errno = reason;
    return IOERROR_FCNTL;
}

bool set_option(int descriptor, int level, int option, int value) {
    return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

bool set_linger(int descriptor, int on) {
    const linger value{on, 0};
    return setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &value, sizeof value) == 0;
}

} // namespace

static int resolve_host(sockaddr_in *address, const char *host) { return xp_resolve_host(address, host) == 0; }

/// 0 when the non-blocking socket got connected, or a code.
static int try_to_connect_tcp_nb(int descriptor, const sockaddr_in &address, int timeout) {
    if (connect_once(descriptor, address) == 0) return 0;
    if (errno != EINPROGRESS && errno != EAGAIN) return IOERROR_CONNECT;
    pollfd entry{descriptor, POLLOUT, 0};
    const int ready = poll_once(&entry, 1, timeout);
    if (ready < 0) return IOERROR_POLL;
    if (ready == 0) {
        errno = ETIMEDOUT;
        return IOERROR_CONNECTTIMEOUT;
    }
    if (entry.revents & POLLERR) return connect_outcome(descriptor, IOERROR_POLLERR);
    if (entry.revents & POLLHUP) return IOERROR_HUP;
    if (!(entry.revents & POLLOUT)) {
        errno = EBADF;
        return IOERROR_POLL;
    }
    return connect_outcome(descriptor, 0);
}

int xp_resolve_host(struct sockaddr_in *address, const char *host) {
    hostent entry, *found = nullptr;
    char work[8192];
    int error = 0;
    if (gethostbyname_r(host, &entry, work, sizeof work, &found, &error) != 0 || !found) return error;
    const size_t length = static_cast<size_t>(found->h_length);
    memcpy(&address->sin_addr, found->h_addr_list[0], std::min(length, sizeof address->sin_addr));
    return 0;
}

const char *xp_hstrerror(int error) { return strerror(error); }

int xp_connect_tcp(const char *host, int port, int timeout) {
    sockaddr_in address = inet_address(XP_INADDR_ANY, port);
    if (!resolve_host(&address, host)) return IOERROR_RESOLVE;
    const int descriptor = new_socket(AF_INET, SOCK_STREAM);
    if (descriptor < 0 || timeout < 0) return descriptor < 0 ? descriptor : connected(descriptor, address);

    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) < 0) return abandon(descriptor, IOERROR_FCNTL);
    int code = try_to_connect_tcp_nb(descriptor, address, timeout);
    if (code == 0 && (code = make_blocking(descriptor)) == 0) return descriptor;
    const int reason = errno;
    fcntl(descriptor, F_SETFL, flags); // a forked child may share the socket
    errno = reason;
    return abandon(descriptor, code);
}

int xp_connect_udp(const char *host, int port) {
    sockaddr_in address = inet_address(XP_INADDR_ANY, port);
    if (!resolve_host(&address, host)) return IOERROR_RESOLVE;
    const int descriptor = new_socket(AF_INET, SOCK_DGRAM);
    return descriptor < 0 ? descriptor : connected(descriptor, address);
}

int xp_bind_tcp(uint32_t address, int port, int flags) {
    const int descriptor = new_socket(AF_INET, SOCK_STREAM);
    if (descriptor < 0) return descriptor;
    xp_set_sock_opt(descriptor, flags, 1);
    return bound(descriptor, inet_address(address, port));
}

int xp_bind_udp(uint32_t address, int port) {
    const int descriptor = new_socket(AF_INET, SOCK_DGRAM);
    return descriptor < 0 ? descriptor : bound(descriptor, inet_address(address, port));
}

int xp_connect_unix(const char *path, int type) {
    sockaddr_un address;
    if (!unix_address(address, path)) return IOERROR_OVERFLOW;
    const int descriptor = new_socket(AF_UNIX, type);
    return descriptor < 0 ? descriptor : connected(descriptor, address);
}

int xp_bind_unix(const char *path) {
    sockaddr_un address;
    if (!unix_address(address, path)) return IOERROR_OVERFLOW;
    const int descriptor = new_socket(AF_UNIX, SOCK_STREAM);
    if (descriptor < 0) return descriptor;
    xp_set_sock_opt(descriptor, XP_SOCKOPT_REUSEADDR, 1);
    return bound(descriptor, address);
}

int xp_check_sock_state(int descriptor) {
    pollfd entry{descriptor, POLLIN | POLLOUT, 0};
    const int ready = poll_once(&entry, 1, 0);
    if (ready < 0) return XP_SOCKSTATE_ERROR;
    int state = 0;
    if (entry.revents & POLLIN) {
        char byte;
        // Another reader may have been faster, or the kernel may have dropped a bad datagram: never wait for the next.
        const ssize_t got = recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno == ECONNRESET)) return XP_SOCKSTATE_CLOSED;
        state |= XP_SOCKSTATE_READABLE;
    }
    if (entry.revents & POLLOUT) state |= XP_SOCKSTATE_WRITABLE;
    return state;
}

int xp_set_sock_opt(int descriptor, int flags, int on) {
    const int value = on != 0;
    if ((flags & XP_SOCKOPT_REUSEADDR) && !set_option(descriptor, SOL_SOCKET, SO_REUSEADDR, value)) return 0;
    if ((flags & XP_SOCKOPT_LINGER) && !set_linger(descriptor, value)) return 0;
    if ((flags & XP_SOCKOPT_NODELAY) && !set_option(descriptor, IPPROTO_TCP, TCP_NODELAY, value)) return 0;
    return 1;
}

int xp_set_sock_recv_buf(int descriptor, int size) { return set_option(descriptor, SOL_SOCKET, SO_RCVBUF, size); }

int xp_set_sock_send_buf(int descriptor, int size) { return set_option(descriptor, SOL_SOCKET, SO_SNDBUF, size); }

uint32_t xp_inet_addr(int a, int b, int c, int d) {
    const uint8_t octets[4] = {static_cast<uint8_t>(a), static_cast<uint8_t>(b), static_cast<uint8_t>(c),
                               static_cast<uint8_t>(d)};
    uint32_t address;
    memcpy(&address, octets, sizeof address);
    return address;
}

char *xp_inet_ntoa(uint32_t address, char *buffer) {
    uint8_t octets[4];
    memcpy(octets, &address, sizeof octets);
    char *next = buffer;
    for (const uint8_t octet : octets) {
        next = stpcpy(next, xp_byte_decimal_str_map_CD65406F_9873_423e_8CD4_6D3BD8EEBA8F[octet]);
        *next++ = '.';
    }
    next[-1] = '\0';
    return buffer;
}

int xp_sigsafe_connect(int descriptor, const struct sockaddr *address, socklen_t length) {
    return uninterrupted([=] { return connect(descriptor, address, length); });
}

int xp_sigsafe_accept(int descriptor, struct sockaddr *address, socklen_t *length) {
    return accept4(descriptor, address, length, SOCK_CLOEXEC);
}
