// The thread that accepts and watches connections, and the way out.
#pragma once

#include "programs/quilletd/workers.h"

namespace quilletd {

struct options {
    std::string address = "127.0.0.1";
    int port = 0; // 0: any
    limits stored;
    int workers = static_cast<int>(std::thread::hardware_concurrency()); // 0: the system does not tell
    int max_line = 1024 * 1024;
    int idle_timeout = 0; // milliseconds; 0: connections may be idle for ever
    bool quiet = false;
};

/// One thread accepts and polls; it hands each connection that is ready to the workers, of whom one at a time is at
/// work on it. A connection costs its record and a block of output while it is idle; at work it holds at most one line
/// and one chunk of input, and about 256 KiB of output: beyond that its requests wait until it reads.
class server {
  public:
    explicit server(const options &chosen);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    /// False, with the reason on standard error, when the service cannot begin.
    bool listen();
    int port() const { return port_; }

    /// Serves until `signals`, a descriptor of signalfd(2), reports one to end. Then everything that has arrived is
    /// answered and every answer sent, for at most five seconds; a second signal cuts that short. SIGUSR1 has it write
    /// a line of statistics to standard error.
    bool run(int signals);

  private:
    bool handle_signal(int signals);
    void accept_all();
    void accept(int fd);
    void handle(connection &c, uint32_t events);
    void drop(connection &c, std::string_view why);
    void drop_idle();
    int next_wait() const;
    void begin_drain();
    void print_statistics();

    options options_;
    stores stores_;
    workers workers_;
    int port_ = 0;
    int poll_ = -1;
    int listener_ = -1;
    bool accepting_ = false;
    long long drain_until_ = 0; // 0: not draining
    std::list<connection> connections_;
    std::multimap<long long, connection *> timers_; // by when to look whether they are idle
    long long served_ = 0;
};

} // namespace quilletd
