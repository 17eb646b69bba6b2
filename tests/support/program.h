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

/// A line for the shell in the folder of the programs, its exit code, and what it prints, errors too.
struct command {
    std::string line;
    int code;
    std::string output;
};

/// A folder for files of a test. In commands and what they print, {} stands for it.
class scratch : public temporary_folder {
  public:
    /// Each command is run behind the prelude.
    explicit scratch(std::string prelude = "") : prelude_(std::move(prelude)) {}
    int run(const std::string &line, std::string *output) const {
        const std::string shell = "cd " PROGRAM_DIR " && exec 2>&1 && " + replaced(prelude_ + line, "{}", path());
        FILE *pipe = popen(shell.c_str(), "r");
        output->clear();
        for (int c; (c = fgetc(pipe)) != EOF;) *output += static_cast<char>(c);
        return WEXITSTATUS(pclose(pipe));
    }
    void expect(std::initializer_list<command> commands) const {
        std::string output;
        for (const command &c : commands) {
            EXPECT_EQ(run(c.line, &output), c.code) << c.line;
            EXPECT_EQ(output, replaced(c.output, "{}", path())) << c.line;
        }
    }

  private:
    std::string prelude_;
};

/// A running quilletd; killed at the end unless it was ended before. Its statistics come to the standard output.
struct service : program {
    int port;

    // what a sanitizer holds back after free() would count as the program's memory
    explicit service(const std::string &options = "")
        : program({"/bin/sh", "-c",
                   "ASAN_OPTIONS=quarantine_size_mb=1:$ASAN_OPTIONS exec " PROGRAM_DIR "/quilletd --quiet 2>&1 " +
                       options}) {
        const std::string line = output_until("\n");
        EXPECT_EQ(line.find("listening on 127.0.0.1:"), 0U) << line;
        port = atoi(line.c_str() + line.rfind(':') + 1);
    }
    ~service() {
        if (pid() > 0) end(SIGKILL);
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
    void send(std::string_view bytes) const {
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
