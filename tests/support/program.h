// Programs of this project, run by their tests.
#pragma once

#include <gtest/gtest.h>

#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/channel.h"
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

/// A folder for files of a test, gone at its end. In commands and what they print, {} stands for it.
class scratch {
  public:
    scratch() : path_(testing::TempDir() + "vorn." + std::to_string(getpid())) {
        std::filesystem::create_directory(path_);
    }
    ~scratch() { std::filesystem::remove_all(path_); }
    scratch(const scratch &) = delete;

    void write(const std::string &name, const std::string &contents) const {
        FILE *const file = fopen((path_ + '/' + name).c_str(), "w");
        fwrite(contents.data(), 1, contents.size(), file);
        fclose(file);
    }
    int run(const std::string &command, std::string *output) const { return harness::run(filled(command), output); }
    void expect(const std::string &command, int code, const std::string &expected) const {
        std::string output;
        EXPECT_EQ(run(command, &output), code) << command;
        EXPECT_EQ(output, filled(expected)) << command;
    }

  private:
    std::string filled(std::string text) const {
        for (size_t i; (i = text.find("{}")) != text.npos;) text.replace(i, 2, path_);
        return text;
    }

    std::string path_;
};

/// A running quilletd; killed at the end unless it was ended before.
class service {
  public:
    explicit service(const std::string &options = "") {
        channel out(channel::kind::pipe);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            // what a sanitizer holds back after free() would count as the program's memory
            const std::string command =
                "ASAN_OPTIONS=quarantine_size_mb=1:$ASAN_OPTIONS exec " PROGRAM_DIR "/quilletd --quiet " + options;
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        out.drop(1);
        std::string line;
        for (char c; read(out[0], &c, 1) == 1 && c != '\n';) line += c;
        EXPECT_EQ(line.find("listening on 127.0.0.1:"), 0U) << line;
        port = atoi(line.c_str() + line.rfind(':') + 1);
    }
    ~service() {
        if (pid_ > 0) end(SIGKILL);
    }
    service(const service &) = delete;

    /// Stops it where it is, until a SIGCONT.
    void pause() {
        kill(pid_, SIGSTOP);
        EXPECT_EQ(waitpid(pid_, nullptr, WUNTRACED), pid_);
    }
    /// Its exit code, negative for the signal that ended it.
    int end(int signal) {
        int status = 0;
        kill(pid_, signal);
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int pid() const { return pid_; }

    int port = 0;

  private:
    pid_t pid_;
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
