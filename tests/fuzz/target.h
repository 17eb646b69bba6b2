// A fuzz target is check(input), which aborts at a fault.
#pragma once

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

static void check(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    check({reinterpret_cast<const char *>(data), size});
    return 0;
}

inline void require(bool holds) {
    if (!holds) abort();
}

/// A socket that gives the input and then its end, and takes what is written to it.
struct fed_socket {
    explicit fed_socket(std::string_view input) {
        const auto size = static_cast<ssize_t>(input.size());
        require(!socketpair(AF_UNIX, SOCK_STREAM, 0, ends) && write(ends[1], input.data(), input.size()) == size);
        require(!shutdown(ends[1], SHUT_WR));
    }
    ~fed_socket() { close(ends[1]); }
    int end() const { return ends[0]; } // for its user to close

    int ends[2];
};
