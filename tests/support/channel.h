// Two connected descriptors, and tuning variables set for the length of a test.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <string_view>

namespace harness {

constexpr int not_open = 9999; // a descriptor that no test has open

/// A pipe (end 0 reads, end 1 writes), a pair of stream sockets, or any two descriptors; closed at the end.
struct channel {
    enum class kind { pipe, sockets };
    int ends[2];

    explicit channel(kind k) {
        EXPECT_EQ(k == kind::sockets ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
    }
    channel(int first, int second) : ends{first, second} {}
    ~channel() {
        drop(0);
        drop(1);
    }
    channel(const channel &) = delete;

    int operator[](int end) const { return ends[end]; }
    void drop(int end) {
        if (ends[end] >= 0) close(ends[end]);
        ends[end] = -1;
    }
    /// Sends from end 1.
    channel &with(std::string_view bytes) {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        return *this;
    }
    /// What has arrived at an end and has not been read: all of it is taken.
    std::string arrived(int end = 0) const {
        int count = 0;
        EXPECT_EQ(ioctl(ends[end], FIONREAD, &count), 0);
        std::string bytes(static_cast<size_t>(count), '\0');
        EXPECT_EQ(read(ends[end], bytes.data(), bytes.size()), count);
        return bytes;
    }
    /// Leaves no room for another byte at end 1.
    channel &fill() {
        const int flags = fcntl(ends[1], F_GETFL);
        fcntl(ends[1], F_SETFL, flags | O_NONBLOCK);
        while (write(ends[1], "x", 1) == 1) {
        }
        fcntl(ends[1], F_SETFL, flags);
        return *this;
    }
    /// Steps of a table's row: d sends "abcdefgh!", u leaves a byte unread at end 1, f fills, 0 and 1 close that end.
    channel &play(std::string_view script) {
        for (const char step : script) {
            if (step == 'u' && write(ends[0], "u", 1) != 1) ADD_FAILURE();
            if (step == 'd') with("abcdefgh!");
            if (step == 'f') fill();
            if (step == '0' || step == '1') drop(step - '0');
        }
        return *this;
    }
};

/// A descriptor, closed at the end.
struct owned {
    int fd;
    explicit owned(int descriptor) : fd(descriptor) { EXPECT_GE(fd, 0); }
    ~owned() { close(fd); }
    owned(const owned &) = delete;
};

struct setting {
    int32_t &variable, before = variable;
    setting(int32_t &which, int32_t value) : variable(which) { variable = value; }
    ~setting() { variable = before; }
};

} // namespace harness
