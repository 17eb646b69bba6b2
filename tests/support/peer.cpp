#include "support/peer.h"

#include <gtest/gtest.h>

#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace harness {

namespace {

constexpr int patience_ms = 10'000;

bool readable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return poll(&entry, 1, patience_ms) == 1;
}

bool send_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0) return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

int accept_one(int listener) { return readable(listener) ? ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1; }

} // namespace

scripted_peer::scripted_peer(transport kind) {
    if (kind == transport::tcp) {
        listener_.emplace();
        return;
    }
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    client_ = ends[0];
    server_ = ends[1];
}

scripted_peer::~scripted_peer() {
    join();
    if (server_ >= 0) close(server_);
}

scripted_peer &scripted_peer::then(step s) {
    steps_.push_back(std::move(s));
    return *this;
}

scripted_peer &scripted_peer::expect(std::string_view bytes) {
    return then([wanted = std::string(bytes)](int &fd) {
        std::string got(wanted.size(), '\0');
        size_t have = 0;
        while (have < wanted.size() && readable(fd)) {
            const ssize_t n = ::recv(fd, got.data() + have, wanted.size() - have, 0);
            if (n <= 0) break;
            have += static_cast<size_t>(n);
        }
        got.resize(have);
        return got == wanted ? std::string() : "expected <" + wanted + ">, got <" + got + ">";
    });
}

scripted_peer &scripted_peer::send(std::string_view bytes) { return send_split(bytes, bytes.size() + 1); }

scripted_peer &scripted_peer::send_split(std::string_view bytes, size_t piece) {
    return then([text = std::string(bytes), piece](int &fd) {
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        for (size_t at = 0; at < text.size(); at += piece, std::this_thread::yield())
            if (!send_all(fd, std::string_view(text).substr(at, piece))) return std::string("send: ") + strerror(errno);
        return std::string();
    });
}

scripted_peer &scripted_peer::stall() {
    return then([](int &fd) {
        char sink[4096];
        while (readable(fd))
            if (::recv(fd, sink, sizeof sink, 0) <= 0) return std::string();
        return std::string("the other end never closed");
    });
}

scripted_peer &scripted_peer::reset() {
    return then([](int &fd) {
        const linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
        fd = -1;
        return std::string();
    });
}

scripted_peer &scripted_peer::hang_up_write() {
    return then([](int &fd) { return shutdown(fd, SHUT_WR), std::string(); });
}

scripted_peer &scripted_peer::accept_again() {
    return then([this](int &fd) {
        close(fd);
        fd = accept_one(listener_->fd);
        return fd >= 0 ? std::string() : std::string("nobody connected again");
    });
}

void scripted_peer::start() {
    thread_ = std::thread([this] { run(); });
}

void scripted_peer::run() {
    if (listener_ && (server_ = accept_one(listener_->fd)) < 0) {
        failure_ = "nobody connected";
        return;
    }
    for (size_t i = 0; i < steps_.size() && failure_.empty(); i++) {
        failure_ = steps_[i](server_);
        if (!failure_.empty()) failure_ = "step " + std::to_string(i + 1) + ": " + failure_;
    }
    if (server_ >= 0) close(server_);
    server_ = -1;
}

void scripted_peer::join() {
    if (!thread_.joinable()) return;
    thread_.join();
    EXPECT_EQ(failure_, "") << "the script of the peer";
}

} // namespace harness
