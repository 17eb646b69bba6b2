// `vorn sql`: statements for the database gateway, the rows of their results to standard output.
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "programs/vorn/files.h"
#include "vorncore/app/marrow.h"
#include "vorncore/base/strutil.h"
#include "vorncore/io/io.h"

namespace vorn {

namespace {

constexpr int longest_row = 1024 * 1024;

const char *const help = R"(usage: vorn sql [OPTION]... HOST:PORT [STATEMENT [PARAMETER]...]

Runs a statement on the database gateway and prints the rows of its result. Without
one, reads statements from standard input, one a line, up to the first that fails;
at a terminal it prompts for them, tells how many rows there were, and goes on after
a failure. These words are commands instead of statements:

  begin, end         the beginning and the end of a transaction
  commit, rollback   what is done with it

  -t             rows as lines, columns apart by tabs
  -l             each column on a line of its own, an empty line behind each row
  -n TEXT        TEXT shows a null, and is null as a PARAMETER
  --timeout MS   for connecting and for each wait (30000; negative: none)

Without -t and -l rows are shown as a table: a null is "NULL", control characters
are "\n", "\t", "\r" and "\x1B". With them a null is "\N", line feed, tab, carriage
return and backslash are "\n", "\t", "\r" and "\\", and all other bytes are as they
are. Nothing but -n makes a PARAMETER null.

Exit codes: 0 done; 1 a statement was refused; 2 bad arguments; 3 the network or the
gateway failed.
)";

enum class layout { table, tabs, lines };

struct options {
    std::string host;
    int port = 0;
    int timeout = 30'000;
    layout rows = layout::table;
    const char *null_text = nullptr; // of -n
};

/// The characters of a text in UTF-8.
size_t width_of(const std::string &text) {
    size_t width = 0;
    for (const char c : text) width += (c & 0xC0) != 0x80;
    return width;
}

class session {
  public:
    explicit session(const options &chosen) : chosen_(chosen), terminal_(isatty(STDIN_FILENO)) {
        xp_init_marrow(&client_, chosen.host.c_str(), chosen.port, longest_row, chosen.timeout);
        xp_init_array(&parameters_, 16, nullptr, nullptr);
    }
    ~session() {
        xp_close_array(&parameters_);
        xp_close_marrow(&client_);
    }
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    bool connect();
    /// A statement and its parameters.
    int run(int count, char **arguments);
    int run_standard_input();

  private:
    int run_text(const char *text);
    int print_rows();
    int print_table(int *row_count);
    void print_row();
    std::string shown(const char *column) const;
    int told(int result) const;
    int refused(const char *why) const;

    const options &chosen_;
    bool terminal_;
    long line_ = 0; // of standard input
    xp_marrow client_;
    xp_array parameters_;
};

bool session::connect() {
    if (xpmw_connect(&client_) == XPMW_OK) return true;
    fprintf(stderr, "vorn sql: cannot connect to %s:%d: %s (%s)\n", client_.host, client_.port,
            xpmw_lasterror(&client_), strerror(errno));
    return false;
}

int session::refused(const char *why) const {
    fflush(stdout); // the rows that came before
    if (line_ && !terminal_)
        fprintf(stderr, "vorn sql: line %ld: %s\n", line_, why);
    else
        fprintf(stderr, "vorn sql: %s\n", why);
    return exit_no;
}

int session::told(int result) const {
    if (result == XPMW_OK || result == XPMW_END) return exit_done;
    const bool lost = client_.state & XPMW_ERROR_PENDING;
    refused(lost && client_.rbuf->last_error == IOERROR_EOF ? "the gateway closed the connection"
                                                            : xpmw_lasterror(&client_));
    return lost ? exit_failure : exit_no;
}

std::string session::shown(const char *column) const {
    static constexpr char bytes[] = "\n\t\r\\", letters[] = "ntr\\";
    const bool exact = chosen_.rows != layout::table;
    if (!column) return chosen_.null_text ? chosen_.null_text : exact ? "\\N" : "NULL";
    std::string out;
    for (; *column; column++) {
        const char *const known = strchr(bytes, *column);
        char code[8];
        if (known && (exact || *known != '\\')) {
            out += '\\';
            out += letters[known - bytes];
        } else if (!exact && (static_cast<unsigned char>(*column) < ' ' || *column == '\x7F')) {
            snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(*column));
            out += code;
        } else {
            out += *column;
        }
    }
    return out;
}

void session::print_row() {
    const int count = xpmw_stmt_get_column_cnt(&client_);
    const bool tabs = chosen_.rows == layout::tabs;
    std::string out;
    for (int i = 0; i < count; i++) {
        out += shown(xpmw_stmt_get_column(&client_, i));
        out += tabs && i < count - 1 ? '\t' : '\n';
    }
    if (!tabs) out += '\n';
    fwrite(out.data(), 1, out.size(), stdout);
}

/// All rows at once: the longest text of a column makes its width.
int session::print_table(int *row_count) {
    char **items;
    int columns;
    const int result = xpmw_stmt_fetch_all(&client_, &items, &columns, row_count);
    if (result != XPMW_OK) return result;
    const auto width = static_cast<size_t>(columns), count = width * static_cast<size_t>(*row_count);
    std::vector<size_t> widths(width);
    for (size_t i = 0; i < count; i++) widths[i % width] = std::max(widths[i % width], width_of(shown(items[i])));
    for (size_t i = 0; i < count; i++) {
        std::string cell = shown(items[i]);
        const bool last = (i + 1) % width == 0;
        cell += last ? "\n" : std::string(widths[i % width] - width_of(cell), ' ') + " | ";
        fwrite(cell.data(), 1, cell.size(), stdout);
    }
    return xpmw_stmt_close(&client_);
}

int session::print_rows() {
    int row_count = 0, result;
    if (chosen_.rows == layout::table)
        result = print_table(&row_count);
    else
        for (; (result = xpmw_stmt_fetch(&client_)) == XPMW_OK && !ferror(stdout); row_count++) print_row();
    const int code = told(result);
    if (terminal_ && line_ && code == exit_done) printf("(%d row%s)\n", row_count, row_count == 1 ? "" : "s");
    return code;
}

/// A command, or a statement with the parameters that have been gathered.
int session::run_text(const char *text) {
    static constexpr struct {
        const char *name;
        int (*run)(xp_marrow *client);
    } commands[] = {{"begin", xpmw_trans_open},
                    {"end", xpmw_trans_close},
                    {"commit", xpmw_trans_commit},
                    {"rollback", xpmw_trans_rollback}};
    for (const auto &command : commands)
        if (parameters_.count == 0 && !strcmp(text, command.name)) return told(command.run(&client_));
    const int result = xpmw_stmt_open_ar(&client_, '*', text, &parameters_);
    return result == XPMW_OK ? print_rows() : told(result);
}

int session::run(int count, char **arguments) {
    for (int i = 1; i < count; i++) {
        const bool is_null = chosen_.null_text && !strcmp(arguments[i], chosen_.null_text);
        xpar_add(&parameters_, is_null ? nullptr : arguments[i]);
    }
    return run_text(arguments[0]);
}

int session::run_standard_input() {
    line_reader input("-");
    size_t length;
    for (;;) {
        if (terminal_) fputs("marrow> ", stdout);
        fflush(stdout);
        char *const line = input.next(&length);
        if (!line) break;
        line_++;
        const bool whole = strlen(line) == length;
        const char *const text = xp_trim(line);
        if (whole && !*text) continue;
        const int code = whole ? run_text(text) : refused("a NUL byte");
        if (code == exit_failure || (code != exit_done && !terminal_) || ferror(stdout)) return code;
    }
    if (terminal_) fputs("\n", stdout);
    if (!input.failure()) return exit_done;
    fprintf(stderr, "vorn sql: standard input: %s\n", input.failure());
    return exit_failure;
}

int bad_usage(const char *message, const char *what = "") {
    fprintf(stderr, "vorn sql: %s%s, try --help\n", message, what);
    return exit_usage;
}

} // namespace

int sql(int count, char **arguments) {
    static const option names[] = {
        {"timeout", required_argument, nullptr, 'T'}, {"help", no_argument, nullptr, 'h'}, {}};
    options chosen;
    for (int c; (c = getopt_long(count, arguments, "+tln:", names, nullptr)) != -1;) switch (c) {
        case 't': chosen.rows = layout::tabs; break;
        case 'l': chosen.rows = layout::lines; break;
        case 'n': chosen.null_text = optarg; break;
        case 'T': chosen.timeout = program::number_argument("vorn sql", "timeout", optarg, -1, INT_MAX); break;
        case 'h': fputs(help, stdout); return exit_done;
        default: return bad_usage("bad option");
        }
    arguments += optind;
    count -= optind;
    if (count < 1) return bad_usage("HOST:PORT is needed");
    if (!program::address_argument("vorn sql", arguments[0], &chosen.host, &chosen.port))
        return bad_usage("no HOST:PORT: ", arguments[0]);
    if (count > 1 && strchr(arguments[1], '\n')) return bad_usage("a statement is one line");
    session client(chosen);
    if (!client.connect()) return exit_failure;
    return count > 1 ? client.run(count - 1, arguments + 1) : client.run_standard_input();
}

} // namespace vorn
