// Programs of this project, run by their tests.
#pragma once

#include <gtest/gtest.h>

#include <stdio.h>

#include "support/channel.h"
#include "support/servers.h"
#include "vorncore/io/io.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/socket.h"

namespace harness {

/// Runs a shell command in the folder of the programs; what it prints, errors too, is stored.
inline int run(const std::string &command, std::string *output) {
    FILE *pipe = popen(("cd " PROGRAM_DIR " && exec 2>&1 && " + command).c_str(), "r");
    output->clear();
    for (int c; (c = fgetc(pipe)) != EOF;) *output += static_cast<char>(c);
    return WEXITSTATUS(pclose(pipe));
}

/// A folder for files of a test. In commands and what they print, {} stands for it.
class scratch : public temporary_folder {
  public:
    int run(const std::string &command, std::string *output) const {
        return harness::run(replaced(command, "{}", path()), output);
    }
    void expect(const std::string &command, int code, const std::string &expected) const {
        std::string output;
        EXPECT_EQ(run(command, &output), code) << command;
        EXPECT_EQ(output, replaced(expected, "{}", path())) << command;
    }
};

/// A running quilletd; killed at the end unless it was ended before.
struct service : program {
    int port;

    // what a sanitizer holds back after free() would count as the program's memory
    explicit service(const std::string &options = "")
        : program(
              {"/bin/sh", "-c",
               "ASAN_OPTIONS=quarantine_size_mb=1:$ASAN_OPTIONS exec " PROGRAM_DIR "/quilletd --quiet " + options}) {
        const std::string line = output_until("\n");
        EXPECT_EQ(line.find("listening on 127.0.0.1:"), 0U) << line;
        port = atoi(line.c_str() + line.rfind(':') + 1);
    }
    ~service() {
        if (pid() > 0) end(SIGKILL);
    }
    /// Stops it where it is, until a SIGCONT.
    void pause() const {
        kill(pid(), SIGSTOP);
        EXPECT_EQ(waitpid(pid(), nullptr, WUNTRACED), pid());
    }
};

/// A connection that sends bytes as they are and reads lines; every wait is bounded.
struct raw_client : owned {
    xprb input;

    explicit raw_client(int port) : owned(xp_connect_tcp("127.0.0.1", port, 10'000)) {
        xp_init_readbuf(&input, fd, 256 * 1024);
        input.timeout = 10'000;
    }
    ~raw_client() { xp_close_readbuf(&input); }
    void send(std::string_view bytes) {
        EXPECT_EQ(xp_write_all(fd, bytes.data(), static_cast<int64_t>(bytes.size()), 10'000),
                  static_cast<int64_t>(bytes.size()));
    }
    std::string line() {
        const char *text = xprb_read_line(&input, nullptr);
        return text ? text : xprb_lasterrmsg(&input);
    }
    std::string ask(std::string_view request) {
        send(request);
        return line();
    }
    bool ended() { return !xprb_read_line(&input, nullptr) && input.last_error == IOERROR_EOF; }
};

} // namespace harness
