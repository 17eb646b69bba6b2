// A client's connection, which goes to and fro between the thread that watches and the workers.
#pragma once

#include <list>
#include <map>
#include <mutex>
#include <string>

#include "programs/quilletd/session.h"

namespace quilletd {

/// While it is armed, the poll will report it once, and nobody is at work on it; from that report on it is a worker's,
/// until that arms it again. Either touches it with `mutex` held. `place` and `timer` are the watcher's alone.
struct connection {
    connection(int descriptor, stores &all, size_t max_line) : fd(descriptor), talk(all, max_line, descriptor) {}

    const int fd;
    std::mutex mutex;
    session talk;
    bool armed = false;
    uint32_t events = 0;      // what the poll has reported
    long long active = 0;     // when bytes have come or gone last
    bool input_ended = false; // no more is read
    int reads = 0;            // since the end has begun
    bool finished = false;    // nothing is left to do but to close it
    std::string why;          // of that; empty when the client has ended it

    std::list<connection>::iterator place;
    std::multimap<long long, connection *>::iterator timer;
};

} // namespace quilletd
