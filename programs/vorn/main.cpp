// vorn: the services and formats of vorncore from the command line.
#include <csignal>
#include <cstdio>
#include <cstring>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "vorncore/base/log.h"

namespace {

const vorn::command commands[] = {
    {"base64", "encode and decode base64", vorn::base64},
    {"date", "read and write HTTP dates", vorn::date},
    {"fetch", "get, post and store over HTTP", vorn::fetch},
    {"kv", "talk to the key-value service: new, put, get, del, list, purge, load, check, bench", vorn::kv},
    {"md5", "print and check MD5 digests, as md5sum", vorn::md5},
    {"scramble", "scramble data under a pass phrase, and reverse it", vorn::scramble},
    {"sql", "run statements on the database gateway", vorn::sql},
    {"urlencode", "encode and decode for URLs", vorn::urlencode},
    {"xml", "show XML documents and what paths find in them", vorn::xml},
};

int usage(FILE *out, int code) {
    fputs("usage: vorn COMMAND [ARGUMENT]...\n       vorn COMMAND --help\n       vorn --version\n\n", out);
    for (const auto &command : commands) fprintf(out, "  %-10s %s\n", command.name, command.summary);
    return code;
}

} // namespace

int main(int count, char **arguments) {
    signal(SIGPIPE, SIG_IGN); // a reader that goes away shows as a failed write
    if (count < 2) return usage(stderr, vorn::exit_usage);
    if (!strcmp(arguments[1], "--help")) return program::checked_exit("vorn", usage(stdout, vorn::exit_done));
    if (!strcmp(arguments[1], "--version")) return program::checked_exit("vorn", puts(vorncore_name) < 0);
    for (const auto &command : commands)
        if (!strcmp(arguments[1], command.name))
            return program::checked_exit("vorn", command.run(count - 1, arguments + 1));
    fprintf(stderr, "vorn: no command '%s'\n", arguments[1]);
    return usage(stderr, vorn::exit_usage);
}
