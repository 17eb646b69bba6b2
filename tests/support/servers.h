// Servers of others that tests and benchmarks talk to: started on a free loopback port with a configuration and a
// temporary folder of their own, and ended by their process id.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "tests/support/folder.h"

namespace harness {

/// A listening socket on a loopback port that the system picks; closed on exec.
struct loopback_listener {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    int port;
    loopback_listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        const bool bound = bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(fd, 128) == 0 &&
                           getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0;
        port = bound ? ntohs(address.sin_port) : 0;
    }
    ~loopback_listener() { close(fd); }
    loopback_listener(const loopback_listener &) = delete;
};

/// The path of a program, "" when it is not installed.
inline std::string find_program(const std::string &name) {
    const char *path = getenv("PATH");
    const std::string folders = std::string(path ? path : "/usr/bin") + ":/usr/sbin:/usr/local/sbin:";
    for (size_t at = 0, end; (end = folders.find(':', at)) != std::string::npos; at = end + 1)
        if (const std::string file = folders.substr(at, end - at) + "/" + name; access(file.c_str(), X_OK) == 0)
            return file;
    return "";
}

/// A program that runs as long as the object lives, or as the process does.
class program {
  public:
    /// A descriptor that is handed over becomes the program's descriptor 3.
    explicit program(std::vector<std::string> arguments, int handed_over = -1) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            std::vector<char *> vector;
            for (std::string &argument : arguments) vector.push_back(argument.data());
            vector.push_back(nullptr);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(ends[1], STDOUT_FILENO);
            if (handed_over >= 0 && dup2(handed_over, 3) == handed_over) fcntl(3, F_SETFD, 0);
            execv(vector[0], vector.data());
            _exit(127);
        }
        close(ends[1]);
        output_ = ends[0];
    }
    ~program() {
        if (pid_ > 0) end(SIGTERM);
        close(output_);
    }
    program(const program &) = delete;

    /// What it writes to its standard output up to a text; it may end, or take too long, before that.
    std::string output_until(std::string_view text) const {
        std::string seen;
        char byte;
        pollfd entry{output_, POLLIN, 0};
        while (!seen.ends_with(text) && poll(&entry, 1, 10'000) == 1 && read(output_, &byte, 1) == 1) seen += byte;
        return seen;
    }
    bool says(std::string_view text) const { return output_until(text).ends_with(text); }
    /// Its exit code, negative for the signal that ended it.
    int end(int signal) {
        int status = 0;
        kill(pid_, signal);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    int output_ = -1;
};

/// nginx, serving its folder and what `locations` (lines of its configuration) add; "@" stands for its address. It
/// takes over a socket that listens already: nobody has to wait for it, and nobody can take its port.
class nginx {
  public:
    explicit nginx(const std::string &locations = "")
        : address_("127.0.0.1:" + std::to_string(listener_.port)), program_(arguments(locations), listener_.fd) {}
    int port() const { return listener_.port; }
    const std::string &address() const { return address_; }
    const temporary_folder &folder() const { return folder_; }

  private:
    std::vector<std::string> arguments(const std::string &locations) const {
        std::string text = "daemon off; pid nginx.pid; error_log error.log; events { worker_connections 256; }\n";
        if (geteuid() == 0) text += "user root;\n"; // the folder is ours alone
        text += "http { access_log off;\n";
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            text += replaced("*_temp_path *;\n", "*", kind);
        text += "server { listen @; root .;\n" + locations + "}\n}\n";
        folder_.write("nginx.conf", replaced(text, "@", address_));
        return {"/usr/bin/env", "NGINX=3;", find_program("nginx"), "-p", folder_.path(), "-c", "nginx.conf",
                "-e",           "error.log"};
    }

    temporary_folder folder_;
    loopback_listener listener_;
    std::string address_;
    program program_;
};

} // namespace harness
