#include "programs/quilletd/server.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

namespace quilletd {

namespace {

constexpr int chunk_size = 64 * 1024;
constexpr size_t output_limit = 256 * 1024;
constexpr int drain_limit = 5000;
constexpr int drain_reads = 128;  // of one connection: a peer that floods cannot hold up the end
constexpr int accept_pause = 100; // milliseconds to wait for a descriptor when there is none left

long long now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

bool failed(const char *what) {
    perror(what);
    return false;
}

} // namespace

server::server(const options &chosen) : options_(chosen), stores_(chosen.stored) {
    xp_init_readbuf(&chunk_, -1, chunk_size);
}

server::~server() {
    for (connection &c : connections_) close(c.fd);
    if (listener_ >= 0) close(listener_);
    if (poll_ >= 0) close(poll_);
    xp_close_readbuf(&chunk_);
}

bool server::listen() {
    sockaddr_in address{};
    if (xp_resolve_host(&address, options_.address.c_str()) != 0) {
        fprintf(stderr, "quilletd: unknown address '%s'\n", options_.address.c_str());
        return false;
    }
    listener_ = xp_bind_tcp(address.sin_addr.s_addr, options_.port, XP_SOCKOPT_REUSEADDR);
    if (listener_ < 0) {
        fprintf(stderr, "quilletd: cannot listen on %s:%d: %s (%s)\n", options_.address.c_str(), options_.port,
                xp_ioerror_str(listener_), strerror(errno));
        return false;
    }
    socklen_t length = sizeof address;
    if (::listen(listener_, SOMAXCONN) != 0 || fcntl(listener_, F_SETFL, O_NONBLOCK) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return failed("quilletd: listen");
    port_ = ntohs(address.sin_port);
    poll_ = epoll_create1(EPOLL_CLOEXEC);
    accepting_ = poll_ >= 0 && watch(listener_, &listener_, EPOLLIN, EPOLL_CTL_ADD);
    return accepting_ || failed("quilletd: epoll");
}

bool server::run(int signals) {
    if (!watch(signals, nullptr, EPOLLIN, EPOLL_CTL_ADD)) return failed("quilletd: epoll");
    for (;;) {
        epoll_event events[256];
        const int count = epoll_wait(poll_, events, 256, next_wait());
        if (count < 0 && errno != EINTR) return failed("quilletd: epoll_wait");
        for (int i = 0; i < count; i++) {
            void *tag = events[i].data.ptr;
            if (tag == &listener_) {
                accept_all();
            } else if (tag) {
                handle(*static_cast<connection *>(tag), events[i].events);
            } else {
                if (drain_until_) return true;
                char sink[128]; // one record of the signal descriptor
                if (read(signals, sink, sizeof sink) > 0) begin_drain();
            }
        }
        closed_.clear();
        drop_idle();
        if (drain_until_ && (connections_.empty() || now() >= drain_until_)) break;
        if (!accepting_ && !drain_until_) accepting_ = watch(listener_, &listener_, EPOLLIN, EPOLL_CTL_MOD);
    }
    if (!options_.quiet)
        fprintf(stderr, "quilletd: stopped after %lld requests on %lld connections\n", requests_, served_);
    return true;
}

bool server::watch(int descriptor, void *tag, uint32_t events, int operation) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = tag;
    return epoll_ctl(poll_, operation, descriptor, &event) == 0;
}

void server::accept_all() {
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) { // connections wait a while
                watch(listener_, &listener_, 0, EPOLL_CTL_MOD);
                accepting_ = false;
            }
            return;
        }
        xp_set_sock_opt(fd, XP_SOCKOPT_NODELAY, 1);
        connection &c = connections_.emplace_back(fd, stores_, static_cast<size_t>(options_.max_line));
        c.place = std::prev(connections_.end());
        c.active = now();
        c.events = EPOLLIN;
        served_++;
        if (!watch(fd, &c, EPOLLIN, EPOLL_CTL_ADD)) drop(c, "epoll");
    }
}

/// True when there was input, so that there may be more.
bool server::handle(connection &c, uint32_t events) {
    if (c.fd < 0) return false; // closed by an event before this one
    try {
        const bool received = events & EPOLLIN && receive(c);
        if (c.fd < 0) return false;
        if (events & (EPOLLERR | EPOLLHUP))
            drop(c, "reset by peer"); // nothing can be sent any more
        else
            advance(c);
        return received && c.fd >= 0;
    } catch (const std::bad_alloc &) {
        drop(c, "out of memory");
        return false;
    }
}

/// One read, which the session takes over whole: the chunk is free for the next connection.
bool server::receive(connection &c) {
    xprb_reset(&chunk_, c.fd);
    int length = 0;
    const char *bytes = xprb_read(&chunk_, &length);
    if (bytes) {
        touch(c);
        if (!c.talk.feed({bytes, static_cast<size_t>(length)})) throw std::bad_alloc();
        return true;
    }
    if (chunk_.last_error == IOERROR_EOF) {
        c.input_ended = true; // what it has sent is still answered
    } else if (!would_block(chunk_.saved_errno)) {
        drop(c, xprb_lasterrmsg(&chunk_));
    }
    return false;
}

/// Answers, sends, and chooses what to wait for. Input is read only while the client takes its output.
void server::advance(connection &c) {
    const bool more = c.talk.answer(output_limit);
    if (!flush(c)) return;
    const bool sending = more || c.talk.waiting() > 0;
    if (c.input_ended && !sending) return drop(c, nullptr);
    uint32_t events = 0;
    if (!c.input_ended && !more) events |= EPOLLIN;
    if (sending) events |= EPOLLOUT;
    if (events == c.events) return;
    c.events = events;
    if (!watch(c.fd, &c, events, EPOLL_CTL_MOD)) drop(c, "epoll");
}

/// Sends what the socket takes. False when the connection is gone.
bool server::flush(connection &c) {
    const size_t before = c.talk.waiting();
    xpwb *output = c.talk.output();
    if (xpwb_flush(output) == 0) {
        drop(c, strerror(output->saved_errno));
        return false;
    }
    if (c.talk.waiting() < before) touch(c);
    return true;
}

void server::touch(connection &c) {
    c.active = now();
    connections_.splice(connections_.end(), connections_, c.place);
}

void server::drop(connection &c, const char *reason) {
    if (reason && !options_.quiet) fprintf(stderr, "quilletd: connection dropped: %s\n", reason);
    requests_ += c.talk.requests();
    close(c.fd);
    c.fd = -1;
    closed_.splice(closed_.end(), connections_, c.place);
}

void server::drop_idle() {
    if (!options_.idle_timeout) return;
    while (!connections_.empty() && now() - connections_.front().active >= options_.idle_timeout)
        drop(connections_.front(), "idle");
    closed_.clear();
}

/// Milliseconds until something has to be done without an event, -1 for never.
int server::next_wait() const {
    const long long time = now();
    long long until = -1;
    const auto wait_until = [&](long long moment) { until = until < 0 ? moment : std::min(until, moment); };
    if (drain_until_) wait_until(drain_until_);
    if (!accepting_ && !drain_until_) wait_until(time + accept_pause);
    if (options_.idle_timeout && !connections_.empty()) wait_until(connections_.front().active + options_.idle_timeout);
    return until < 0 ? -1 : static_cast<int>(std::clamp(until - time, 0LL, 1'000'000LL));
}

/// What has reached this machine counts as sent in time: it is read, then nothing more is.
void server::begin_drain() {
    accept_all();
    close(listener_);
    listener_ = -1;
    accepting_ = false;
    drain_until_ = now() + drain_limit;
    std::vector<connection *> all;
    for (connection &c : connections_) all.push_back(&c);
    for (connection *c : all) {
        for (int reads = 0; reads < drain_reads && handle(*c, EPOLLIN); reads++) {
        }
        c->input_ended = true;
        handle(*c, 0);
    }
}

} // namespace quilletd
