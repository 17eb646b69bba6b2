// System calls that fail on demand, and a clock that stands still.
#pragma once

#include <sys/time.h>

namespace harness {

enum class call { read, write, recv, send, poll, socket, connect, bind, fcntl, getsockopt, setsockopt, accept, close };

/// While it lives, the nth call (0: every call) of one kind that this thread makes, from now on, fails with `error`;
/// with error 0 a read or write moves at most one byte instead. A failing close closes. One fault at a time a thread.
class fault_io {
  public:
    fault_io(call which, int nth, int error);
    ~fault_io();
    bool fired() const;
    int calls() const; // calls of that kind so far
};

/// While it lives, this thread's gettimeofday gives one moment.
class pinned_clock {
  public:
    explicit pinned_clock(timeval moment);
    ~pinned_clock();
};

} // namespace harness
