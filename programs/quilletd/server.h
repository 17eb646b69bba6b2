// The poll loop: connections, their flow control, and the way out.
#pragma once

#include <list>
#include <string>

#include "programs/quilletd/session.h"
#include "programs/quilletd/stores.h"
#include "vorncore/io/readbuf.h"

namespace quilletd {

struct options {
    std::string address = "127.0.0.1";
    int port = 0; // 0: any
    limits stored;
    int max_line = 1024 * 1024;
    int idle_timeout = 0; // milliseconds; 0: connections may be idle for ever
    bool quiet = false;
};

/// All connections are served on one thread. A connection costs its record and a block of output while it is idle;
/// at work it holds at most one line and one chunk of input, and about 256 KiB of output: beyond that its requests wait
/// until it reads.
class server {
  public:
    explicit server(const options &chosen);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    /// False, with the reason on standard error, when the service cannot begin.
    bool listen();
    int port() const { return port_; }

    /// Serves until `signals`, a descriptor of signalfd(2), becomes readable. Then everything that has arrived is
    /// answered and every answer sent, for at most five seconds; a second signal cuts that short.
    bool run(int signals);

  private:
    struct connection {
        connection(int descriptor, stores &all, size_t max_line) : fd(descriptor), talk(all, max_line, descriptor) {}
        int fd; // -1 once it is closed
        session talk;
        bool input_ended = false;
        uint32_t events = 0; // what the poll watches
        long long active = 0;
        std::list<connection>::iterator place;
    };

    bool watch(int descriptor, void *tag, uint32_t events, int operation);
    void accept_all();
    bool handle(connection &c, uint32_t events);
    bool receive(connection &c);
    void advance(connection &c);
    bool flush(connection &c);
    void touch(connection &c);
    void drop(connection &c, const char *reason);
    void drop_idle();
    int next_wait() const;
    void begin_drain();

    options options_;
    stores stores_;
    int port_ = 0;
    int poll_ = -1;
    int listener_ = -1;
    bool accepting_ = false;
    long long drain_until_ = 0;         // 0: not draining
    std::list<connection> connections_; // the one that has been silent longest first
    std::list<connection> closed_;      // kept until the events at hand, which may name them, are done
    xprb chunk_;                        // shared: each read is taken over whole at once
    long long served_ = 0, requests_ = 0;
};

} // namespace quilletd
