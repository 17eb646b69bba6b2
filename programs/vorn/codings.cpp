// `vorn base64`, `vorn urlencode` and `vorn date`: the text codings, on files or standard input of any size.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "programs/vorn/command.h"
#include "programs/vorn/files.h"
#include "vorncore/app/httpdate.h"
#include "vorncore/base/base64.h"
#include "vorncore/base/strutil.h"
#include "vorncore/io/io.h"

namespace vorn {

namespace {

/// From a file or standard input to standard output, both buffered by the library.
class filter {
  public:
    filter(const char *name, const char *file) : out(name), file_(file), name_(name) {
        xp_init_readbuf(&in, file_.fd(), chunk_size);
        if (file_.error()) failed(file, strerror(file_.error()));
    }
    ~filter() { xp_close_readbuf(&in); }
    filter(const filter &) = delete;
    filter &operator=(const filter &) = delete;

    bool is_open() const { return !file_.error(); }

    /// The exit code once all input is done: told when reading or writing failed.
    int finish() {
        if (in.last_error != 0 && in.last_error != IOERROR_EOF) return failed("read", xprb_lasterrmsg(&in));
        return out.finish();
    }

    xprb in;
    output out;

  private:
    int failed(const char *what, const char *why) {
        fprintf(stderr, "vorn %s: %s: %s\n", name_, what, why);
        return exit_failure;
    }

    input file_;
    const char *name_;
};

/// The common command line: [-d] [FILE]. An exit code, or -1 to go on.
int parse(int count, char **arguments, const char *help, bool *decode, const char **file) {
    *decode = false;
    *file = nullptr;
    for (int i = 1; i < count; i++) {
        if (!strcmp(arguments[i], "--help")) {
            fputs(help, stdout);
            return exit_done;
        }
        if (!strcmp(arguments[i], "-d"))
            *decode = true;
        else if (!*file && (arguments[i][0] != '-' || !arguments[i][1]))
            *file = arguments[i];
        else {
            fprintf(stderr, "vorn %s: unexpected '%s', try --help\n", arguments[0], arguments[i]);
            return exit_usage;
        }
    }
    return -1;
}

/// Encodes bytes; the writer of texts stops at a NUL, which is a byte like any other here.
void encode(xpwb *out, std::string &bytes) {
    for (size_t at = 0; at < bytes.size(); at++) {
        const char *text = bytes.c_str() + at;
        xpwb_write_str_url_encode(out, text);
        at += strlen(text);
        if (at < bytes.size()) xpwb_write_str(out, "%00");
    }
}

/// Decodes bytes in pieces without a NUL, be it one of the input or the meaning of "%00".
void decode(xpwb *out, std::string &bytes) {
    for (char *text = bytes.data(), *const end = text + bytes.size(); text < end;) {
        char *const nul = text + strlen(text), *const escape = strstr(text, "%00");
        char *const stop = escape ? escape : nul;
        const bool more = stop < end; // a NUL follows
        *stop = '\0';
        xpwb_write_str(out, xp_url_decode(text));
        if (more) xpwb_write_char(out, '\0');
        text = stop + (escape ? 3 : 1);
    }
}

/// The bytes at the end of a chunk that may be the beginning of an escape.
size_t open_escape(const std::string &bytes) {
    const size_t percent = bytes.rfind('%');
    return percent != bytes.npos && bytes.size() - percent < 3 ? bytes.size() - percent : 0;
}

} // namespace

int base64(int count, char **arguments) {
    bool decoding;
    const char *file;
    const int code =
        parse(count, arguments,
              "usage: vorn base64 [-d] [FILE]\n\nEncodes FILE, or standard input, in base64 on one line; -d "
              "decodes and\nskips what is no base64. Exit codes: 0 done, 1 malformed, 2 bad arguments,\n"
              "3 a file failed.\n",
              &decoding, &file);
    if (code >= 0) return code;
    filter f("base64", file);
    if (!f.is_open()) return exit_failure;
    xpi_istream *in = xprb_create_istream(&f.in);
    xpi_ostream *out = xpwb_create_ostream(&f.out.buffer);
    const int done = decoding ? xp_base64_decode_stream(in, out) : xp_base64_encode_stream(in, out);
    in->destroy(in);
    out->destroy(out);
    if (done && !decoding) xpwb_write_char(&f.out.buffer, '\n');
    const int result = f.finish();
    if (result != exit_done || done) return result;
    fprintf(stderr, "vorn base64: the input is no base64\n");
    return exit_no;
}

int urlencode(int count, char **arguments) {
    bool decoding;
    const char *file;
    const int code =
        parse(count, arguments,
              "usage: vorn urlencode [-d] [FILE]\n\nEncodes every byte of FILE, or standard input, for a URL; "
              "-d decodes and\nkeeps what is no escape. Exit codes: 0 done, 2 bad arguments, 3 a file "
              "failed.\n",
              &decoding, &file);
    if (code >= 0) return code;
    filter f("urlencode", file);
    if (!f.is_open()) return exit_failure;
    std::string bytes;
    int length;
    while (const char *chunk = xprb_read(&f.in, &length)) {
        bytes.append(chunk, static_cast<size_t>(length));
        const std::string rest = decoding ? bytes.substr(bytes.size() - open_escape(bytes)) : std::string();
        bytes.resize(bytes.size() - rest.size());
        decoding ? decode(&f.out.buffer, bytes) : encode(&f.out.buffer, bytes);
        if (f.out.failed()) break;
        bytes = rest;
    }
    if (decoding) decode(&f.out.buffer, bytes);
    return f.finish();
}

int date(int count, char **arguments) {
    char text[30];
    if (count == 1) {
        puts(xp_make_http_date(time(nullptr), text));
        return exit_done;
    }
    if (!strcmp(arguments[1], "--help")) {
        puts("usage: vorn date [SECONDS | DATE]...\n\nPrints the time as an HTTP date; seconds since 1970 as a date, a "
             "date\n"
             "of any of the three HTTP forms as seconds. Exit codes: 0 done, 1 for what\nis neither.");
        return exit_done;
    }
    int result = exit_done;
    for (int i = 1; i < count; i++) {
        const char *const end = arguments[i] + strlen(arguments[i]);
        int64_t seconds;
        const auto [last, error] = std::from_chars(arguments[i], end, seconds);
        if (error == std::errc() && last == end && *xp_make_http_date(seconds, text)) {
            puts(text);
        } else if ((seconds = xp_parse_http_date(arguments[i])) >= 0) {
            printf("%lld\n", static_cast<long long>(seconds));
        } else {
            fprintf(stderr, "vorn date: '%s' is neither a number nor an HTTP date since 1970\n", arguments[i]);
            result = exit_no;
        }
    }
    return result;
}

} // namespace vorn
