// The threads that serve connections.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

#include "programs/quilletd/connection.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/xcirqueue.h"

namespace quilletd {

/// Connections with something to do wait in a queue for the next free thread. It takes one read of input, answers what
/// is complete, sends what the client takes, and hands the connection back to the poll.
class workers {
  public:
    workers();
    ~workers();
    workers(const workers &) = delete;
    workers &operator=(const workers &) = delete;

    /// False when a thread cannot be started.
    bool start(int count, int poll);
    /// Blocks while the queue is full.
    void serve(connection &c) { xpxcq_put(&queue_, &c, -1); }
    /// From now on a client that keeps sending is not listened to for long.
    void begin_drain() { draining_ = true; }
    /// Serves what is queued, then ends the threads.
    void stop();
    long long requests() const { return requests_; }

  private:
    void run();
    void work_on(connection &c, xprb *chunk);
    uint32_t advance(connection &c, xprb *chunk);
    void receive(connection &c, xprb *chunk);

    xp_xcirqueue queue_;
    std::vector<std::thread> threads_;
    int poll_ = -1;
    std::atomic<bool> draining_ = false;
    std::atomic<long long> requests_ = 0;
};

/// Lets the poll report a connection once, for one of these events or a hang-up. `tag` comes with the report.
bool arm(int poll, int operation, int descriptor, uint32_t events, void *tag);
long long now(); // milliseconds

} // namespace quilletd
