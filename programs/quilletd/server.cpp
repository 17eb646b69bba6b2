#include "programs/quilletd/server.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

namespace quilletd {

namespace {

constexpr int drain_limit = 5000;
constexpr int accept_pause = 100; // milliseconds to wait for a descriptor when there is none left

bool failed(const char *what) {
    perror(what);
    return false;
}

} // namespace

server::server(const options &chosen) : options_(chosen), stores_(chosen.stored) {}

server::~server() {
    workers_.stop();
    for (connection &c : connections_) close(c.fd);
    if (listener_ >= 0) close(listener_);
    if (poll_ >= 0) close(poll_);
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
    accepting_ = poll_ >= 0 && arm(poll_, EPOLL_CTL_ADD, listener_, EPOLLIN, &listener_);
    if (!accepting_) return failed("quilletd: epoll");
    return workers_.start(std::max(options_.workers, 1), poll_) || failed("quilletd: threads");
}

bool server::run(int signals) {
    if (!arm(poll_, EPOLL_CTL_ADD, signals, EPOLLIN, nullptr)) return failed("quilletd: epoll");
    for (;;) {
        epoll_event events[256];
        const int count = epoll_wait(poll_, events, 256, next_wait());
        if (count < 0 && errno != EINTR) return failed("quilletd: epoll_wait");
        for (int i = 0; i < count; i++) {
            void *tag = events[i].data.ptr;
            if (tag == &listener_)
                accept_all();
            else if (tag)
                handle(*static_cast<connection *>(tag), events[i].events);
            else if (!handle_signal(signals))
                return true;
        }
        drop_idle();
        if (drain_until_ && (connections_.empty() || now() >= drain_until_)) break;
        if (!accepting_ && !drain_until_) accepting_ = arm(poll_, EPOLL_CTL_MOD, listener_, EPOLLIN, &listener_);
    }
    workers_.stop();
    if (!options_.quiet)
        fprintf(stderr, "quilletd: stopped after %lld requests on %lld connections\n", workers_.requests(), served_);
    return true;
}

/// False for the second signal that asks for the end.
bool server::handle_signal(int signals) {
    signalfd_siginfo got;
    while (read(signals, &got, sizeof got) == sizeof got) {
        if (got.ssi_signo == SIGUSR1) {
            print_statistics();
            continue;
        }
        if (drain_until_) return false;
        begin_drain();
    }
    arm(poll_, EPOLL_CTL_MOD, signals, EPOLLIN, nullptr);
    return true;
}

void server::accept_all() {
    for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) accept(fd);
    accepting_ = false; // not before the pause when there is no descriptor left
    const bool short_of_descriptors = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (!short_of_descriptors) accepting_ = arm(poll_, EPOLL_CTL_MOD, listener_, EPOLLIN, &listener_);
}

void server::accept(int fd) {
    xp_set_sock_opt(fd, XP_SOCKOPT_NODELAY, 1);
    connection &c = connections_.emplace_back(fd, stores_, static_cast<size_t>(options_.max_line));
    c.place = std::prev(connections_.end());
    c.active = now();
    if (options_.idle_timeout) c.timer = timers_.emplace(c.active + options_.idle_timeout, &c);
    c.armed = true;
    served_++;
    if (!arm(poll_, EPOLL_CTL_ADD, fd, EPOLLIN, &c)) drop(c, "epoll");
}

void server::handle(connection &c, uint32_t events) {
    {
        const std::lock_guard held(c.mutex);
        c.armed = false;
        c.events = events;
    }
    if (c.finished)
        drop(c, c.why);
    else
        workers_.serve(c);
}

void server::drop(connection &c, std::string_view why) {
    if (!why.empty() && !options_.quiet)
        fprintf(stderr, "quilletd: connection dropped: %.*s\n", static_cast<int>(why.size()), why.data());
    if (options_.idle_timeout) timers_.erase(c.timer);
    close(c.fd);
    connections_.erase(c.place);
}

/// The timers are not moved whenever bytes come or go: one that is due is set anew if there were some meanwhile.
void server::drop_idle() {
    const long long time = now();
    while (!timers_.empty() && timers_.begin()->first <= time) {
        connection &c = *timers_.begin()->second;
        std::unique_lock held(c.mutex, std::try_to_lock);
        const bool at_work = !held || !c.armed;
        const long long idle_at = (at_work ? time : c.active) + options_.idle_timeout;
        held = {};
        if (idle_at <= time) {
            drop(c, "idle");
        } else {
            timers_.erase(c.timer);
            c.timer = timers_.emplace(idle_at, &c);
        }
    }
}

/// Milliseconds until something has to be done without an event, -1 for never.
int server::next_wait() const {
    const long long time = now();
    long long until = -1;
    const auto wait_until = [&](long long moment) { until = until < 0 ? moment : std::min(until, moment); };
    if (drain_until_) wait_until(drain_until_);
    if (!accepting_ && !drain_until_) wait_until(time + accept_pause);
    if (!timers_.empty()) wait_until(timers_.begin()->first);
    return until < 0 ? -1 : static_cast<int>(std::clamp(until - time, 0LL, 1'000'000LL));
}

/// What has reached this machine counts as sent in time. Behind it every connection reads the end of its input.
void server::begin_drain() {
    accept_all();
    close(listener_);
    listener_ = -1;
    accepting_ = false;
    drain_until_ = now() + drain_limit;
    workers_.begin_drain();
    for (connection &c : connections_) shutdown(c.fd, SHUT_RD);
}

void server::print_statistics() {
    const statistics s = stores_.take_statistics();
    fprintf(stderr, "quilletd: %zu connections, %lld requests, %d stores, %lld entries, %lld bytes, %lld evicted\n",
            connections_.size(), workers_.requests(), s.stores, s.entries, s.bytes, s.evicted);
}

} // namespace quilletd
