// The other end of a connection, played from a script on a thread of its own.
#pragma once

#include <optional>
#include <thread>
#include <vector>

#include "support/servers.h"

namespace harness {

/// Steps run in order; a script that is not played to its end, or that reads something unexpected, fails the test.
/// Every wait is bounded by ten seconds. When the script ends the connection is closed.
class scripted_peer {
  public:
    enum class transport { pair, tcp }; // a socket pair, or a listener on 127.0.0.1 with a port of its own

    explicit scripted_peer(transport kind = transport::pair);
    ~scripted_peer(); // waits for the end of the script
    scripted_peer(const scripted_peer &) = delete;

    // Steps. Expected are exactly these bytes; pieces arrive one by one.
    scripted_peer &expect(std::string_view bytes) { return then(act::expect, bytes); }
    scripted_peer &send(std::string_view bytes) { return then(act::send, bytes, bytes.size() + 1); }
    scripted_peer &send_split(std::string_view bytes, size_t piece) { return then(act::send, bytes, piece); }
    /// Sends nothing until the other end closes, then swallows what it had sent.
    scripted_peer &stall() { return then(act::stall); }
    /// Aborts the connection: the other end gets ECONNRESET.
    scripted_peer &reset() { return then(act::reset); }
    /// No more output, input still open.
    scripted_peer &hang_up_write() { return then(act::hang_up_write); }
    /// Closes this connection of a tcp peer and takes the next one.
    scripted_peer &accept_again() { return then(act::accept_again); }

    /// Starts the script. `fd()` of a pair belongs to the caller; connect to `port()` of a tcp peer.
    void start() {
        thread_ = std::thread([this] { run(); });
    }
    int fd() const { return client_; }
    int port() const { return listener_->port; }
    void join();

  private:
    enum class act { expect, send, stall, reset, hang_up_write, accept_again };
    struct step {
        act what;
        std::string bytes;
        size_t piece;
    };
    scripted_peer &then(act what, std::string_view bytes = "", size_t piece = 0) {
        steps_.push_back({what, std::string(bytes), piece});
        return *this;
    }
    void run();
    std::string play(const step &s); // what went wrong
    std::string accept_one();
    void hang_up();

    int client_ = -1, server_ = -1;
    std::optional<loopback_listener> listener_;
    std::vector<step> steps_;
    std::thread thread_;
    std::string failure_;
};

} // namespace harness
