// `vorn fetch`: one HTTP request, its response to standard output or a file.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "vorncore/app/http.h"
#include "vorncore/app/rputil.h"
#include "vorncore/base/version.h"

namespace vorn {

namespace {

const char *const help = R"(usage: vorn fetch [OPTION]... URL

Gets an http:// URL; the body goes to standard output.

  -o FILE           the body goes to FILE
  -I                asks for the headers alone and prints them to standard output
  -v                status and headers on standard error
  -H NAME:VALUE     a request header           (may be repeated, as -b, -d and -F)
  -b NAME=VALUE     a cookie
  -d DATA           posts DATA as it is, as a form that is URL-encoded
  -F NAME=VALUE     posts a multipart form with this field, at most 16
  -F NAME=@FILE     ... with the contents of FILE
  -L N              follows at most N redirects
  -x HOST:PORT      through a proxy
  -t MS             time-out of connecting and of each wait (30000; negative: none)
  --max BYTES       fails when the body is longer

Exit codes: 0 done, 1 the status is 400 or more or a redirect is left, 2 bad
arguments, 3 the network, the server or a file failed.
)";

constexpr size_t most_parts = 16;

struct part {
    const char *name = nullptr; // null behind the last one
    const char *data = nullptr;
    int length = 0;
    const char *file = nullptr;
};

struct options {
    std::string url;
    const char *output = nullptr;
    bool head = false, verbose = false;
    std::string data; // of -d, joined
    bool post = false;
    std::array<part, most_parts> parts;
    size_t part_count = 0;
    int redirects = 0;
    long long most = LLONG_MAX;
};

/// The client, the output stream that the body goes through, and what they need.
class fetcher {
  public:
    fetcher() { xp_init_http(&client_, "vorn-fetch/" VORNCORE_VERSION_STRING); }
    ~fetcher() {
        xp_close_http(&client_);
        if (fd_ > STDOUT_FILENO) close(fd_);
    }
    fetcher(const fetcher &) = delete;
    fetcher &operator=(const fetcher &) = delete;

    /// An exit code, or -1 to go on.
    int parse(int count, char **arguments);
    int run();

  private:
    int bad_usage(const char *what, const char *why) const {
        fprintf(stderr, "vorn fetch: %s: %s, try --help\n", what, why);
        return exit_usage;
    }
    int failed(const char *what, const char *why) const {
        fprintf(stderr, "%svorn fetch: %s: %s\n", shown_ ? "\r\033[K" : "", what, why);
        return exit_failure;
    }
    int parse_one(int option, char *argument);
    int add_part(char *name);
    bool set_proxy(char *text);
    void set_timeout(int timeout);

    bool send(const char *url);
    template <size_t... i>
    int post_parts(const char *url, std::index_sequence<i...>);
    const char *next_url(std::string *current) const;
    int finish(xpwb *out);
    void show_head(FILE *to) const;

    bool is_redirect() const { return redirects_left_ > 0 && next_url(nullptr); }
    static int32_t write_body(void *stream, const void *data, uint32_t length);
    static int32_t flush_body(void *) { return 1; } // once, at the end
    void show_progress();

    xp_http client_;
    options chosen_;
    int redirects_left_ = 0;
    int fd_ = STDOUT_FILENO;
    xpi_ostream *file_ = nullptr; // the write buffer's stream
    long long received_ = 0, shown_at_ = 0;
    bool shown_ = false;
    bool too_long_ = false;
};

int fetcher::add_part(char *name) {
    char *value = strchr(name, '=');
    if (!value) return bad_usage(name, "-F takes NAME=VALUE or NAME=@FILE");
    if (chosen_.part_count == most_parts) return bad_usage(name, "more than 16 fields");
    *value++ = '\0';
    part &added = chosen_.parts[chosen_.part_count++];
    added = {name, value, -1, nullptr};
    if (*value != '@') return -1;
    xp_filedata file;
    if (!xprp_load_file(&client_.pool, value + 1, &file)) return exit_failure; // it said why
    if (file.length > INT_MAX) return failed(value + 1, "longer than 2 GiB");
    const char *slash = strrchr(value, '/');
    added = {name, file.data, static_cast<int>(file.length), slash ? slash + 1 : value + 1};
    return -1;
}

bool fetcher::set_proxy(char *text) {
    char *port = strrchr(text, ':');
    if (!port) return false;
    *port++ = '\0';
    xphttp_set_proxy(&client_, text, program::number_argument("vorn fetch", "-x", port, 1, 65535));
    return true;
}

/// The library waits for responses without limit; a tool should not.
void fetcher::set_timeout(int timeout) {
    xphttp_set_timeout(&client_, timeout);
    client_.rbuf->timeout = timeout;
}

int fetcher::parse_one(int option, char *argument) {
    const auto number = [argument](const char *name, auto least, auto most) {
        return program::number_argument("vorn fetch", name, argument, least, most);
    };
    switch (option) {
    case 'o': chosen_.output = argument; return -1;
    case 'I': chosen_.head = true; return -1;
    case 'v': chosen_.verbose = true; return -1;
    case 'H':
    case 'b': {
        char *value = strchr(argument, option == 'H' ? ':' : '=');
        if (!value) return bad_usage(argument, option == 'H' ? "-H takes NAME:VALUE" : "-b takes NAME=VALUE");
        *value++ = '\0';
        if (option == 'H')
            xphttp_add_header(&client_, argument, value + strspn(value, " "));
        else
            xphttp_add_cookie(&client_, argument, value);
        return -1;
    }
    case 'd':
        if (chosen_.post) chosen_.data += '&';
        chosen_.data += argument;
        chosen_.post = true;
        return -1;
    case 'F': return add_part(argument);
    case 'L': chosen_.redirects = number("-L", 0, 65535); return -1;
    case 'x': return set_proxy(argument) ? -1 : bad_usage(argument, "-x takes HOST:PORT");
    case 't': set_timeout(number("-t", INT_MIN, INT_MAX)); return -1;
    case 'm': chosen_.most = number("--max", 0LL, LLONG_MAX); return -1;
    case 'h': fputs(help, stdout); return exit_done;
    default: return exit_usage; // getopt said why
    }
}

int fetcher::parse(int count, char **arguments) {
    static const option names[] = {{"max", required_argument, nullptr, 'm'}, {"help", no_argument, nullptr, 'h'}, {}};
    set_timeout(30'000);
    for (int c; (c = getopt_long(count, arguments, "o:IvH:b:d:F:L:x:t:", names, nullptr)) != -1;)
        if (const int code = parse_one(c, optarg); code >= 0) return code;
    if (optind != count - 1) return bad_usage("URL", optind == count ? "missing" : "more than one");
    if (chosen_.post && chosen_.part_count) return bad_usage("-d", "not together with -F");
    if (chosen_.head && (chosen_.post || chosen_.part_count)) return bad_usage("-I", "not together with -d or -F");
    chosen_.url = arguments[optind];
    return -1;
}

/// Where a redirect leads: the Location, made absolute with the host of the current URL. Null when there is none.
const char *fetcher::next_url(std::string *current) const {
    if (strcmp(client_.resp_code, "301") != 0 && strcmp(client_.resp_code, "302") != 0) return nullptr;
    const char *location = xphttp_response_location(&client_);
    if (!location || !current) return location;
    if (*location != '/') {
        *current = location;
    } else {
        const size_t scheme = current->find("://"), host = scheme == current->npos ? 0 : scheme + 3;
        *current = current->substr(0, current->find('/', host)) + location;
    }
    return current->c_str();
}

int32_t fetcher::write_body(void *stream, const void *data, uint32_t length) {
    auto *self = static_cast<fetcher *>(static_cast<xpi_ostream *>(stream)->context);
    if (self->is_redirect()) return static_cast<int32_t>(length); // the page in its place is not wanted
    self->received_ += length;
    self->too_long_ = self->received_ > self->chosen_.most;
    if (self->too_long_) return -1;
    self->show_progress();
    return self->file_->write(self->file_, data, length);
}

void fetcher::show_progress() {
    if (!isatty(STDERR_FILENO) || (fd_ == STDOUT_FILENO && isatty(fd_)) || received_ - shown_at_ < 1 << 20) return;
    shown_at_ = received_;
    shown_ = true;
    const char *length = xphttp_response_header(&client_, "Content-Length");
    fprintf(stderr, "\r%lld of %s bytes", received_, length ? length : "?");
}

void fetcher::show_head(FILE *to) const {
    fprintf(to, "status: %s\n", client_.resp_code);
    xpht_enumerate(
        client_.resp_headers,
        [](void *out, xp_pair *header) {
            return fprintf(static_cast<FILE *>(out), "%s: %s\n", static_cast<char *>(header->key),
                           static_cast<char *>(header->value)) > 0
                       ? 1
                       : 0;
        },
        to);
}

template <size_t... i>
int fetcher::post_parts(const char *url, std::index_sequence<i...>) {
    const char *const none = nullptr;
    const auto &p = chosen_.parts;
    return std::apply([&](auto... all) { return xphttp_post_v(&client_, url, all..., none); },
                      std::tuple_cat(std::make_tuple(p[i].name, p[i].data, p[i].length, p[i].file, none)...));
}

/// The first request posts; what a redirect leads to is always got.
bool fetcher::send(const char *url) {
    const bool first = redirects_left_ == chosen_.redirects;
    if (first && chosen_.part_count) return post_parts(url, std::make_index_sequence<most_parts>());
    if (first && chosen_.post)
        return xphttp_post(&client_, url, chosen_.data.data(), static_cast<int>(chosen_.data.size()));
    return xphttp_get(&client_, url, nullptr);
}

int fetcher::finish(xpwb *out) {
    if (shown_) fputs("\r\033[K", stderr);
    if (chosen_.head) show_head(stdout);
    if (xpwb_flush(out) != 1) return failed(chosen_.output ? chosen_.output : "standard output", xpwb_lasterrmsg(out));
    return client_.resp_code[0] >= '4' || next_url(nullptr) ? exit_no : exit_done;
}

int fetcher::run() {
    if (chosen_.output) fd_ = open(chosen_.output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd_ < 0) return failed(chosen_.output, strerror(errno));
    if (chosen_.head) client_.method = XP_HTTP_HEAD;
    client_.absorb_cookies = 1;

    xpwb *out = xp_create_writebuf(fd_, 64 * 1024);
    file_ = xpwb_create_ostream(out);
    xpi_ostream body = *file_;
    body.write = write_body;
    body.flush = flush_body;
    body.lasterrmsg = [](void *stream) {
        auto *self = static_cast<fetcher *>(static_cast<xpi_ostream *>(stream)->context);
        return self->too_long_ ? "the body is longer than --max" : self->file_->lasterrmsg(self->file_);
    };
    body.context = this;
    client_.resp_stream = &body;

    int code = exit_done;
    redirects_left_ = chosen_.redirects;
    for (std::string url = chosen_.url;; redirects_left_--) {
        if (!send(url.c_str())) {
            xpwb_flush(out); // what has arrived is kept
            code = failed(url.c_str(), client_.errmsg ? client_.errmsg : "out of memory");
            break;
        }
        if (chosen_.verbose) show_head(stderr);
        if (!is_redirect()) {
            code = finish(out);
            break;
        }
        next_url(&url);
    }
    if (out->status == 0) xpwb_reset(out, -1);
    file_->destroy(file_);
    xp_destroy_writebuf(out);
    return code;
}

} // namespace

int fetch(int count, char **arguments) {
    fetcher f;
    const int code = f.parse(count, arguments);
    return code >= 0 ? code : f.run();
}

} // namespace vorn
