// The other end of a connection, played from a script on a thread of its own.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/listener.h"

namespace harness {

/// Steps run in order; a script that is not played to its end, or that reads something unexpected, fails the test.
/// Every wait is bounded by ten seconds. When the script ends the connection is closed.
class scripted_peer {
  public:
    enum class transport { pair, tcp }; // a socket pair, or a listener on 127.0.0.1 with a port of its own

    scripted_peer &expect(std::string_view bytes); // reads exactly these
    scripted_peer &send(std::string_view bytes);
    scripted_peer &send_split(std::string_view bytes, size_t piece); // in pieces that arrive one by one
    scripted_peer &stall();         // sends nothing until the other end closes, then swallows what it had sent
    scripted_peer &reset();         // aborts the connection: the other end gets ECONNRESET
    scripted_peer &hang_up_write(); // no more output, input still open
    scripted_peer &accept_again();  // tcp: closes this connection and takes the next one

    explicit scripted_peer(transport kind = transport::pair);
    ~scripted_peer(); // waits for the end of the script
    scripted_peer(const scripted_peer &) = delete;

    /// Starts the script. `fd()` of a pair belongs to the caller; connect to `port()` of a tcp peer.
    void start();
    int fd() const { return client_; }
    int port() const { return listener_->port; }
    void join();

  private:
    using step = std::function<std::string(int &fd)>; // an empty text when it went well
    scripted_peer &then(step s);
    void run();

    int client_ = -1;
    int server_ = -1;
    std::optional<loopback_listener> listener_;
    std::vector<step> steps_;
    std::thread thread_;
    std::string failure_;
};

} // namespace harness
