#include "support/peer.h"

#include <gtest/gtest.h>

#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/time.h>

namespace harness {

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
    hang_up(); // of a pair that was never started
}

void scripted_peer::join() {
    if (!thread_.joinable()) return;
    thread_.join();
    EXPECT_EQ(failure_, "") << "the script of the peer";
}

void scripted_peer::run() {
    if (listener_) failure_ = accept_one();
    for (size_t i = 0; i < steps_.size() && failure_.empty(); i++) {
        const timeval patience{10, 0};
        for (const int wait : {SO_RCVTIMEO, SO_SNDTIMEO})
            setsockopt(server_, SOL_SOCKET, wait, &patience, sizeof patience);
        if (const std::string fault = play(steps_[i]); !fault.empty())
            failure_ = "step " + std::to_string(i + 1) + ": " + fault;
    }
    hang_up();
}

std::string scripted_peer::play(const step &s) {
    switch (s.what) {
    case act::expect: {
        std::string got(s.bytes.size(), '\0');
        const ssize_t count = got.empty() ? 0 : recv(server_, got.data(), got.size(), MSG_WAITALL);
        got.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return got == s.bytes ? "" : "expected <" + s.bytes + ">, got <" + got + ">";
    }
    case act::send:
        for (size_t at = 0; at < s.bytes.size(); at += s.piece, std::this_thread::yield()) {
            const std::string_view part = std::string_view(s.bytes).substr(at, s.piece);
            if (::send(server_, part.data(), part.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(part.size()))
                return std::string("send: ") + strerror(errno);
        }
        return "";
    case act::stall:
        for (char sink[4096];;)
            if (const ssize_t count = recv(server_, sink, sizeof sink, 0); count <= 0)
                return count < 0 && errno == EAGAIN ? "the other end never closed" : "";
    case act::reset: {
        const linger abort{1, 0};
        setsockopt(server_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        hang_up();
        return "";
    }
    case act::hang_up_write: shutdown(server_, SHUT_WR); return "";
    case act::accept_again: hang_up(); return accept_one();
    }
    return "";
}

std::string scripted_peer::accept_one() {
    pollfd entry{listener_->fd, POLLIN, 0};
    if (poll(&entry, 1, 10'000) == 1) server_ = accept4(listener_->fd, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    return setsockopt(server_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 ? "" : "nobody connected";
}

void scripted_peer::hang_up() {
    if (server_ >= 0) close(server_);
    server_ = -1;
}

} // namespace harness
