// `vorn scramble`: data scrambled under a pass phrase, which never stands on the command line.
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "programs/vorn/files.h"
#include "vorncore/base/crypt.h"

namespace vorn {

namespace {

const char *const help = R"(usage: vorn scramble [-d] --pass-file FILE | --pass-fd N  [FILE]

Scrambles FILE, or standard input, under a pass phrase and writes it to standard
output, 8 bytes longer. It keeps data from being read at a glance, and no secret: it
is no encryption, and nothing tells whether data or pass phrase were right.

  -d                reverses it
  --pass-file FILE  the pass phrase is the first line of FILE ("-": standard input)
  --pass-fd N       ... of an open descriptor, of which nothing behind it is read

Exit codes: 0 done; 1 with -d, the data is too short to have been scrambled; 2 bad
arguments; 3 a file failed or holds no pass phrase.
)";

constexpr size_t longest_phrase = 4096;
constexpr size_t header_size = 8; // of scrambled data

int failed(const char *what, const char *why) {
    fprintf(stderr, "vorn scramble: %s: %s\n", what, why);
    return exit_failure;
}

struct options {
    bool reverse = false;
    const char *phrase_file = nullptr;
    int phrase_fd = -1;
    const char *file = nullptr; // null: standard input
};

/// Reads the first line byte by byte: what is behind it may be the data.
int read_line(const char *name, int fd, std::string *line) {
    for (char c;;) {
        const ssize_t count = read(fd, &c, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return failed(name, strerror(errno));
        if (count == 0 || c == '\n') break;
        if (line->size() == longest_phrase) return failed(name, "the pass phrase is longer than 4096 bytes");
        *line += c;
    }
    return line->empty() ? failed(name, "the pass phrase is empty") : exit_done;
}

int read_phrase(const options &chosen, std::string *phrase) {
    if (!chosen.phrase_file) return read_line("--pass-fd", chosen.phrase_fd, phrase);
    const input file(chosen.phrase_file);
    return file.error() ? failed(chosen.phrase_file, strerror(file.error()))
                        : read_line(chosen.phrase_file, file.fd(), phrase);
}

int run(const options &chosen) {
    std::string phrase;
    if (const int code = read_phrase(chosen, &phrase); code != exit_done) return code;
    uint8_t key[16];
    xp_crypt_init(key, phrase.data(), static_cast<int>(phrase.size()));

    const char *const name = chosen.file ? chosen.file : "standard input";
    input file(chosen.file);
    bytes data, scrambled;
    if (!file.read_all(&data)) return failed(name, strerror(file.error()));
    const int length = static_cast<int>(data.length());
    output out("scramble");
    if (chosen.reverse) {
        const int plain = xp_crypt_decrypt(key, data.data, length, data.data);
        if (plain < 0) {
            fprintf(stderr, "vorn scramble: %s: too short to have been scrambled\n", name);
            return exit_no;
        }
        xpwb_write(&out.buffer, data.data, plain);
    } else {
        if (!xpmb_set_size(&scrambled, data.length() + header_size)) return failed(name, strerror(ENOMEM));
        xpwb_write(&out.buffer, scrambled.data, xp_crypt_encrypt(key, data.data, length, scrambled.data));
    }
    return out.finish();
}

} // namespace

int scramble(int count, char **arguments) {
    static const option names[] = {{"pass-file", required_argument, nullptr, 'f'},
                                   {"pass-fd", required_argument, nullptr, 'n'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {}};
    options chosen;
    for (int c; (c = getopt_long(count, arguments, "d", names, nullptr)) != -1;) switch (c) {
        case 'd': chosen.reverse = true; break;
        case 'f': chosen.phrase_file = optarg; break;
        case 'n': chosen.phrase_fd = program::number_argument("vorn scramble", "pass-fd", optarg, 0, INT_MAX); break;
        case 'h': fputs(help, stdout); return exit_done;
        default: return exit_usage; // getopt said why
        }
    const char *wrong = nullptr;
    if (!chosen.phrase_file == (chosen.phrase_fd < 0))
        wrong = "--pass-file or --pass-fd must say where the pass phrase is";
    if (count - optind > 1) wrong = "more than one FILE";
    if (wrong) {
        fprintf(stderr, "vorn scramble: %s, try --help\n", wrong);
        return exit_usage;
    }
    chosen.file = arguments[optind]; // null when there is none
    return run(chosen);
}

} // namespace vorn
