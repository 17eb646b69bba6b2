#include "programs/quilletd/workers.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <system_error>

#include "vorncore/io/io.h"

namespace quilletd {

namespace {

constexpr int chunk_size = 64 * 1024;
constexpr int queue_size = 1024;
constexpr size_t output_limit = 256 * 1024;
constexpr int drain_reads = 128; // of one connection: a peer that floods cannot hold up the end

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

/// Returns what to wait for then: nothing.
uint32_t finish(connection &c, const char *why) {
    c.finished = true;
    c.why = why;
    return 0;
}

} // namespace

long long now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

bool arm(int poll, int operation, int descriptor, uint32_t events, void *tag) {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.ptr = tag;
    return epoll_ctl(poll, operation, descriptor, &event) == 0;
}

workers::workers() { xp_init_xcirqueue(&queue_, queue_size); }

workers::~workers() {
    stop();
    xp_close_xcirqueue(&queue_);
}

bool workers::start(int count, int poll) {
    poll_ = poll;
    try {
        while (static_cast<int>(threads_.size()) < count) threads_.emplace_back([this] { run(); });
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

void workers::stop() {
    xpxcq_shutdown(&queue_);
    for (std::thread &thread : threads_) thread.join();
    threads_.clear();
}

void workers::run() {
    xprb chunk;
    xp_init_readbuf(&chunk, -1, chunk_size);
    void *next;
    while (xpxcq_get(&queue_, &next, -1) == XP_XCQ_OK) work_on(*static_cast<connection *>(next), &chunk);
    xp_close_readbuf(&chunk);
}

/// When the connection is armed and its mutex free, it may be gone at once.
void workers::work_on(connection &c, xprb *chunk) {
    const std::lock_guard held(c.mutex);
    const long long before = c.talk.requests();
    uint32_t awaited = 0;
    try {
        awaited = advance(c, chunk);
    } catch (const std::bad_alloc &) {
        awaited = finish(c, "out of memory");
    }
    requests_ += c.talk.requests() - before;
    if (c.finished) shutdown(c.fd, SHUT_RDWR); // which the poll reports, so that the watcher closes it
    c.armed = true;
    arm(poll_, EPOLL_CTL_MOD, c.fd, awaited, &c);
}

/// Reads, answers, sends; returns what to wait for. Input is read only while the client takes its output.
uint32_t workers::advance(connection &c, xprb *chunk) {
    if (c.events & EPOLLIN && !c.input_ended) receive(c, chunk);
    if (c.finished) return 0;
    if (c.events & (EPOLLERR | EPOLLHUP)) return finish(c, "reset by peer"); // nothing can be sent any more
    const bool more = c.talk.answer(output_limit);
    const size_t before = c.talk.waiting();
    xpwb *const output = c.talk.output();
    if (xpwb_flush(output) == 0) return finish(c, strerror(output->saved_errno));
    if (c.talk.waiting() < before) c.active = now();
    const bool sending = more || c.talk.waiting() > 0;
    if (c.input_ended && !sending) return finish(c, "");
    uint32_t awaited = 0;
    if (!c.input_ended && !more) awaited |= EPOLLIN;
    if (sending) awaited |= EPOLLOUT;
    return awaited;
}

/// One read, which the session takes over whole: the chunk is free for the next connection.
void workers::receive(connection &c, xprb *chunk) {
    xprb_reset(chunk, c.fd);
    int length = 0;
    const char *const bytes = xprb_read(chunk, &length);
    if (bytes) {
        c.active = now();
        if (!c.talk.feed({bytes, static_cast<size_t>(length)})) throw std::bad_alloc();
        c.input_ended = draining_ && ++c.reads >= drain_reads;
    } else if (chunk->last_error == IOERROR_EOF) {
        c.input_ended = true; // what it has sent is still answered
    } else if (!would_block(chunk->saved_errno)) {
        finish(c, xprb_lasterrmsg(chunk));
    }
}

} // namespace quilletd
