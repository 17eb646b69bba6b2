#include "programs/vorn/kv.h"

#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

namespace vorn {

namespace {

constexpr int longest_reply = 16 * 1024 * 1024;

const char *const help = R"(usage: vorn kv [--store ID] [--timeout MS] HOST:PORT new
       vorn kv --store ID [--timeout MS] HOST:PORT put KEY VALUE
                                                   get KEY | del KEY | list | purge
                                                   load FILE | check FILE
       vorn kv bench [--connections C] [--seconds S] [--ratio GET:PUT] HOST:PORT

  new      makes a store and prints its id
  put      stores a value; an empty one deletes the key
  get      prints the value
  list     prints every entry as KEY<TAB>VALUE, in no order
  purge    removes the store
  load     stores each line of FILE ("-": standard input): KEY<TAB>VALUE, or KEY=VALUE
           when it has no tab. Bad lines are reported by number and left out.
  check    gets the key of each such line and compares the value; of a key that occurs
           twice the last one counts. Bad lines are left out.
  bench    one thread and one store a connection (8), for S seconds (5), gets and puts
           in a given ratio (9:1) on 1000 keys: operations a second and latency

  --timeout MS   for connecting and for each wait (10000; negative: no limit)

Exit codes: 0 done; 1 no such key or store, bad lines, or values that differ;
2 bad arguments; 3 the service, the network or a file failed.
)";

int bad_usage(const char *message, const char *what = "") {
    fprintf(stderr, "vorn kv: %s%s, try --help\n", message, what);
    return exit_usage;
}

int failed(const char *what, const char *why) {
    fprintf(stderr, "vorn kv: %s: %s\n", what, why);
    return exit_failure;
}

int no_store(const char *what) {
    fprintf(stderr, "vorn kv: %s: no such store\n", what);
    return exit_no;
}

int make_store(kv_client &client) {
    const char *id = nullptr;
    const int result = xpql_new(client, &id);
    if (result == XPQL_OK) puts(id);
    return client.told("new", result);
}

int get(kv_client &client, const char *key) {
    char *value = nullptr;
    const int result = xpql_get(client, key, &value);
    if (result == XPQL_NOT_FOUND) {
        fprintf(stderr, "vorn kv: get: no such key or store\n");
        return exit_no;
    }
    if (result == XPQL_OK) {
        const std::string text = kv_unescaped(value ? value : "") + '\n';
        fwrite(text.data(), 1, text.size(), stdout);
    }
    return client.told("get", result);
}

int list_over(xprb *input, const kv_options &options) {
    const std::string request = "LST " + options.store + "\n";
    if (xp_write_str(input->fd, request.c_str(), options.timeout) < 1) return failed("list", strerror(errno));
    char *line = xprb_read_line(input, nullptr);
    if (!line) return failed("list", xprb_lasterrmsg(input));
    if (!strncmp(line, "404 ", 4)) return no_store("list");
    if (strncmp(line, "200 ", 4) != 0) return failed("list: the service answered", line);
    while ((line = xprb_read_line(input, nullptr)) && *line) {
        char *value = strchr(line, '=');
        if (!value) return failed("list: no entry", line);
        *value++ = '\0';
        const std::string entry = kv_unescaped(line) + '\t' + kv_unescaped(value) + '\n';
        fwrite(entry.data(), 1, entry.size(), stdout);
    }
    return line ? exit_done : failed("list: cut short", xprb_lasterrmsg(input));
}

/// Speaks the request itself: the client's own listing ends at the first entry.
int list(const kv_options &options) {
    const int fd = xp_connect_tcp(options.host.c_str(), options.port, options.timeout);
    if (fd < 0) return failed("list: cannot connect", fd == IOERROR_RESOLVE ? "unknown host" : strerror(errno));
    xprb *input = xp_create_readbuf(fd, longest_reply);
    input->timeout = options.timeout;
    const int code = list_over(input, options);
    xp_destroy_readbuf(input);
    close(fd);
    return code;
}

struct operation {
    const char *name;
    int arguments;
    bool needs_store;
    int (*run)(kv_client &client, const kv_options &options, char **arguments);
};

const operation operations[] = {
    {"new", 0, false, [](kv_client &c, const kv_options &, char **) { return make_store(c); }},
    {"put", 2, true, [](kv_client &c, const kv_options &, char **a) { return c.told("put", xpql_put(c, a[0], a[1])); }},
    {"get", 1, true, [](kv_client &c, const kv_options &, char **a) { return get(c, a[0]); }},
    {"del", 1, true, [](kv_client &c, const kv_options &, char **a) { return c.told("del", xpql_del(c, a[0])); }},
    {"purge", 0, true, [](kv_client &c, const kv_options &, char **) { return c.told("purge", xpql_purge(c)); }},
    {"list", 0, true, [](kv_client &, const kv_options &o, char **) { return list(o); }},
    {"load", 1, true, [](kv_client &c, const kv_options &, char **a) { return kv_load(c, a[0]); }},
    {"check", 1, true, [](kv_client &c, const kv_options &, char **a) { return kv_check(c, a[0]); }},
};

/// A longer id would be cut to that of another store.
bool is_store_id(const std::string &id) {
    return !id.empty() && id.size() <= 7 && id.find_first_of(" =\t\r\n") == std::string::npos;
}

} // namespace

kv_client::kv_client(const kv_options &options) {
    xp_init_quillet(&client_, options.host.c_str(), options.port, longest_reply, options.timeout);
    client_.rbuf->timeout = options.timeout;
}

bool kv_client::connect() {
    if (xpql_connect(&client_) == XPQL_OK) return true;
    fprintf(stderr, "vorn kv: cannot connect to %s:%d: %s (%s)\n", client_.host, client_.port, xpql_lasterror(&client_),
            strerror(errno));
    return false;
}

int kv_client::told(const char *what, int result) const {
    switch (result) {
    case XPQL_OK: return exit_done;
    case XPQL_NOT_FOUND: return no_store(what);
    case XPQL_TOO_LONG: return failed(what, "the reply is too long");
    case XPQL_IO_ERROR:
        if (client_.rbuf->last_error == IOERROR_EOF) return failed(what, "the service closed the connection");
        [[fallthrough]];
    default: return failed(what, xpql_lasterror(&client_));
    }
}

std::string kv_unescaped(std::string_view text) {
    static constexpr char letters[] = "nr_#>0";
    static constexpr char bytes[] = "\n\r #=";
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        const char *letter = text[i] == '#' && i + 1 < text.size() ? strchr(letters, text[i + 1]) : nullptr;
        if (letter) i++;
        out += letter ? bytes[letter - letters] : text[i];
    }
    return out;
}

bool kv_address(const char *text, kv_options *options) {
    return program::address_argument("vorn kv", text, &options->host, &options->port);
}

int kv(int count, char **arguments) {
    static const option names[] = {{"store", required_argument, nullptr, 's'},
                                   {"timeout", required_argument, nullptr, 't'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {}};
    kv_options options;
    for (int c; (c = getopt_long(count, arguments, "+", names, nullptr)) != -1;) switch (c) {
        case 's': options.store = optarg; break;
        case 't': options.timeout = program::number_argument("vorn kv", "timeout", optarg, -1, INT_MAX); break;
        case 'h': fputs(help, stdout); return exit_done;
        default: return bad_usage("bad option");
        }
    arguments += optind;
    count -= optind;
    if (count > 0 && !strcmp(arguments[0], "bench")) return kv_bench(count, arguments);
    if (count < 2) return bad_usage("HOST:PORT and an operation are needed");
    if (!kv_address(arguments[0], &options)) return bad_usage("no HOST:PORT: ", arguments[0]);
    for (const operation &o : operations) {
        if (strcmp(o.name, arguments[1]) != 0) continue;
        if (count - 2 != o.arguments) return bad_usage("wrong number of arguments for ", o.name);
        if (o.needs_store && !is_store_id(options.store))
            return bad_usage("--store with an id of at most 7 characters is needed for ", o.name);
        kv_client client(options);
        if (!client.connect()) return exit_failure;
        if (o.needs_store) xpql_bind(client, options.store.c_str());
        return o.run(client, options, arguments + 2);
    }
    return bad_usage("no operation ", arguments[1]);
}

} // namespace vorn
