// quilletd: the key-value service quillet.
#include <getopt.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>

#include <climits>
#include <cstdio>

#include "programs/arguments.h"
#include "programs/quilletd/server.h"
#include "vorncore/base/log.h"

namespace {

const char *const help = R"(usage: quilletd [OPTION]...

The key-value service quillet: named stores of texts by key, kept in memory, over
a line protocol on TCP. Prints "listening on ADDRESS:PORT" when it is ready.

  --address ADDRESS    where to listen (127.0.0.1)
  --port N             0 for any free port, the default
  --workers N          threads that serve connections (one a core)
  --max-stores N       stores at a time (1000)
  --max-entries N      entries of one store; a store that is full drops the one that
                       has not been read for longest. Without this option it takes
                       no new entry beyond 100000
  --max-bytes N        memory for the entries of all stores (268435456)
  --max-line BYTES     longest request (1048576); longer ones are refused
  --idle-timeout MS    close connections that are silent that long (0: never)
  --quiet              nothing on standard error but what keeps it from running, and
                       the statistics
  --help, --version

SIGTERM and SIGINT: what has arrived is answered, then it ends. SIGUSR1: a line of
statistics on standard error. Exit codes: 0 after a signal to end, 1 when it cannot
listen or run, 2 for bad arguments.
)";

int number(const char *option, int least, int most) {
    return program::number_argument("quilletd", option, optarg, least, most);
}

quilletd::options parse(int count, char **arguments) {
    static const option names[] = {{"address", required_argument, nullptr, 'a'},
                                   {"port", required_argument, nullptr, 'p'},
                                   {"workers", required_argument, nullptr, 'w'},
                                   {"max-stores", required_argument, nullptr, 's'},
                                   {"max-entries", required_argument, nullptr, 'e'},
                                   {"max-bytes", required_argument, nullptr, 'b'},
                                   {"max-line", required_argument, nullptr, 'l'},
                                   {"idle-timeout", required_argument, nullptr, 'i'},
                                   {"quiet", no_argument, nullptr, 'q'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, 'v'},
                                   {}};
    quilletd::options chosen;
    for (int c; (c = getopt_long(count, arguments, "", names, nullptr)) != -1;) switch (c) {
        case 'a': chosen.address = optarg; break;
        case 'p': chosen.port = number("port", 0, 65535); break;
        case 'w': chosen.workers = number("workers", 1, 1024); break;
        case 's': chosen.stored.stores = number("max-stores", 1, INT_MAX); break;
        case 'e':
            chosen.stored.entries = number("max-entries", 1, INT_MAX);
            chosen.stored.evicts = true;
            break;
        case 'b':
            chosen.stored.bytes = program::number_argument("quilletd", "max-bytes", optarg, 1LL, LLONG_MAX / 2);
            break;
        case 'l': chosen.max_line = number("max-line", 16, 1 << 30); break;
        case 'i': chosen.idle_timeout = number("idle-timeout", 0, INT_MAX); break;
        case 'q': chosen.quiet = true; break;
        case 'h': fputs(help, stdout); exit(program::checked_exit("quilletd", 0));
        case 'v': puts(vorncore_name); exit(program::checked_exit("quilletd", 0));
        default: fputs("quilletd: try --help\n", stderr); exit(program::usage_error);
        }
    if (optind == count) return chosen;
    fprintf(stderr, "quilletd: unexpected '%s', try --help\n", arguments[optind]);
    exit(program::usage_error);
}

void raise_descriptor_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit); // when refused, fewer connections are served at a time
}

/// A descriptor that reports the signals the service listens to, in all of its threads.
int signal_reports() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN); // whoever reads our output may go
    return signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

} // namespace

int main(int count, char **arguments) {
    const quilletd::options chosen = parse(count, arguments);
    raise_descriptor_limit();
    const int signals = signal_reports();
    quilletd::server server(chosen);
    if (!server.listen()) return 1;
    printf("listening on %s:%d\n", chosen.address.c_str(), server.port());
    fflush(stdout);
    return server.run(signals) ? 0 : 1;
}
