// A listening socket on a loopback port that the system picks; closed on exec.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace harness {

struct loopback_listener {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    int port;
    loopback_listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        const bool bound = bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(fd, 128) == 0 &&
                           getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0;
        port = bound ? ntohs(address.sin_port) : 0;
    }
    ~loopback_listener() { close(fd); }
    loopback_listener(const loopback_listener &) = delete;
};

} // namespace harness
