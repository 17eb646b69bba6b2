#include "vorncore/app/marrow.h"

#include <errno.h>
#include <unistd.h>

#include "vorncore/app/internal/errortext.h"
#include "vorncore/app/internal/marrowtext.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

using namespace vorncore;

// Replies are in step with commands as long as every line is read that a command brings. A write or read that fails
// ends that: the error bit then keeps commands away until the connection is gone.

[[gnu::format(printf, 2, 3)]] static void __xpmw_printerr(xp_marrow *client, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_error_text(&client->errmsg, format, arguments);
    va_end(arguments);
}

namespace {

bool init(xp_marrow *client, const char *host, int port, int buffer_size, int timeout) {
    *client = {try_strdup(host),
               port,
               timeout,
               0,
               nullptr,
               -1,
               xp_create_readbuf(-1, buffer_size),
               xp_create_array(32, nullptr, nullptr),
               nullptr,
               nullptr};
    if (client->host && client->rbuf && client->columns) return true;
    free(client->host);
    if (client->rbuf) xp_destroy_readbuf(client->rbuf);
    if (client->columns) xp_destroy_array(client->columns);
    return false;
}

/// Whether of these bits exactly the wanted ones are set.
bool has_state(const xp_marrow *client, int32_t bits, int32_t wanted) { return (client->state & bits) == wanted; }

constexpr int32_t command_bits = XPMW_CONNECTED | XPMW_STMT_OPENED | XPMW_ERROR_PENDING;

void end_statement(xp_marrow *client) { client->state &= ~(XPMW_STMT_OPENED | XPMW_ROW_FETCHED | XPMW_ROW_SPLIT); }

int io_error(xp_marrow *client, const char *what, int error) {
    __xpmw_printerr(client, "%s:errno=%d", what, error);
    return XPMW_IO_ERROR;
}

int memory_error(xp_marrow *client) {
    __xpmw_printerr(client, "%s", strerror(ENOMEM));
    return XPMW_IO_ERROR;
}

int refuse_command(xp_marrow *client) {
    __xpmw_printerr(client, "Cannot Invoke Command on Current State (%s%s%s)",
                    client->state & XPMW_CONNECTED ? "" : "/NOT_CONNECTED/",
                    client->state & XPMW_ERROR_PENDING ? "/ERROR_PENDING/" : "",
                    client->state & XPMW_STMT_OPENED ? "/STMT_OPENED/" : "");
    return XPMW_WRONG_STATE;
}

bool takes_commands(const xp_marrow *client) { return has_state(client, command_bits, XPMW_CONNECTED); }

bool read_line(xp_marrow *client) {
    client->curline = xprb_read_line(client->rbuf, nullptr);
    if (!client->curline) client->state |= XPMW_ERROR_PENDING;
    return client->curline;
}

bool line_too_long(const xp_marrow *client) { return client->rbuf->last_error == IOERROR_OVERFLOW; }

int no_reply(xp_marrow *client) {
    __xpmw_printerr(client, "%s", xprb_lasterrmsg(client->rbuf));
    return line_too_long(client) ? XPMW_TOO_LONG : XPMW_IO_ERROR;
}

} // namespace

static int __xpmw_invoke(xp_marrow *client, const char *command, bool reply_ends_with_empty_line) {
    if (!takes_commands(client)) return refuse_command(client);
    const int64_t written = xp_write_str(client->fd, command, client->timeout);
    if (written < 1) {
        client->state |= XPMW_ERROR_PENDING;
        return io_error(client, xp_ioerror_str(static_cast<int>(written)), errno);
    }
    if (!read_line(client)) return no_reply(client);
    if (strncmp(client->curline, "200 ", 4) != 0) {
        __xpmw_printerr(client, "%s", client->curline);
        return XPMW_SERVER_ERROR;
    }
    if (!reply_ends_with_empty_line) {
        end_statement(client);
        client->state |= XPMW_STMT_OPENED;
        return XPMW_OK;
    }
    do {
        if (!read_line(client)) return no_reply(client);
    } while (*client->curline);
    client->curline = client->errmsg;
    end_statement(client);
    return XPMW_OK;
}

static void __add_param(command_line *line, const char *parameter) {
    if (parameter)
        line->add_escaped(parameter);
    else
        line->add("#0");
}

namespace {

/// `next()` gives the parameters in turn.
template <class Next>
int open_statement(xp_marrow *client, int command, const char *statement, int count, Next next) {
    if (!takes_commands(client)) return refuse_command(client); // before anything in the buffer is overwritten
    xprb *const storage = client->rbuf;
    int dropped; // what is left there would be read as a reply
    xprb_read_bufdata(storage, &dropped);
    command_line line(storage->block, storage->block_end);
    line.add(static_cast<char>(command));
    line.add(statement);
    line.add(' ');
    for (int i = 0; i < count; i++) {
        if (i) line.add(',');
        __add_param(&line, next());
    }
    line.add('\n');
    line.add('\0');
    if (line.fits()) return __xpmw_invoke(client, storage->block, false);
    __xpmw_printerr(client, "COMMAND BUFFER OVERFLOW");
    return XPMW_TOO_LONG;
}

} // namespace

static void __xpmw_parse_curline(xp_marrow *client) {
    xpar_clear(client->columns);
    cut_row(client->curline, [=](char *column) { xpar_add(client->columns, column); });
    client->state |= XPMW_ROW_SPLIT;
}

namespace {

/// The columns of the current row, null without one.
const xp_array *columns_of(xp_marrow *client) {
    if (!has_state(client, command_bits | XPMW_ROW_FETCHED, XPMW_CONNECTED | XPMW_STMT_OPENED | XPMW_ROW_FETCHED))
        return nullptr;
    if (!(client->state & XPMW_ROW_SPLIT)) __xpmw_parse_curline(client);
    return client->columns;
}

/// An empty array for rows; false when memory is short.
bool prepare_rows(xp_marrow *client) {
    const xp_copy_fn copy = [](const void *text) -> void * { return try_strdup(static_cast<const char *>(text)); };
    if (client->rows)
        xpar_clear(client->rows);
    else
        client->rows = xp_create_array(32, copy, free);
    return client->rows;
}

/// Appends copies of `count` columns of the current row; false when memory is short.
bool keep_row(xp_marrow *client, int count) {
    xp_array *const rows = client->rows;
    for (int i = 0; i < count; i++) {
        const char *const column = xpmw_stmt_get_column(client, i);
        if (!xpar_insert(rows, rows->count, column)) return false;
        if (column && !rows->items[rows->count - 1]) return false;
    }
    return true;
}

} // namespace

void xp_init_marrow(xp_marrow *client, const char *host, int port, int buffer_size, int timeout) {
    if (!init(client, host, port, buffer_size, timeout))
        out_of_memory("xp_init_marrow", saturating_product(2, static_cast<size_t>(buffer_size)));
}

xp_marrow *xp_create_marrow(const char *host, int port, int buffer_size, int timeout) {
    return create_record<xp_marrow>(init, host, port, buffer_size, timeout);
}

void xp_close_marrow(xp_marrow *client) {
    xpmw_disconnect(client);
    free(client->host);
    xp_destroy_readbuf(client->rbuf);
    xp_destroy_array(client->columns);
    if (client->rows) xp_destroy_array(client->rows);
    free(client->errmsg);
}

void xp_destroy_marrow(xp_marrow *client) { destroy_record(client, xp_close_marrow); }

int xpmw_connect(xp_marrow *client) {
    if (client->state & XPMW_CONNECTED) return XPMW_WRONG_STATE;
    const int fd = xp_connect_tcp(client->host, client->port, client->timeout);
    if (fd < 0) return io_error(client, xp_ioerror_str(fd), errno);
    client->fd = fd;
    client->state = XPMW_CONNECTED;
    xprb_reset(client->rbuf, fd);
    client->rbuf->timeout = client->timeout;
    return XPMW_OK;
}

int xpmw_disconnect(xp_marrow *client) {
    if (!(client->state & XPMW_CONNECTED)) return XPMW_WRONG_STATE;
    close(client->fd);
    client->fd = -1;
    client->state = 0;
    return XPMW_OK;
}

int xpmw_trans_open(xp_marrow *client) { return __xpmw_invoke(client, "TS\n", true); }

int xpmw_trans_close(xp_marrow *client) { return __xpmw_invoke(client, "TE\n", true); }

int xpmw_trans_rollback(xp_marrow *client) { return __xpmw_invoke(client, "RB\n", true); }

int xpmw_trans_commit(xp_marrow *client) { return __xpmw_invoke(client, "CI\n", true); }

int xpmw_stmt_open(xp_marrow *client, const char *statement, int count, ...) {
    va_list parameters;
    va_start(parameters, count);
    const int result = xpmw_stmt_open_v(client, '*', statement, count, parameters);
    va_end(parameters);
    return result;
}

int xpmw_stmt_open_ex(xp_marrow *client, int command, const char *statement, int count, ...) {
    va_list parameters;
    va_start(parameters, count);
    const int result = xpmw_stmt_open_v(client, command, statement, count, parameters);
    va_end(parameters);
    return result;
}

int xpmw_stmt_open_v(xp_marrow *client, int command, const char *statement, int count, va_list parameters) {
    return open_statement(client, command, statement, count, [&] { return va_arg(parameters, const char *); });
}

int xpmw_stmt_open_ar(xp_marrow *client, int command, const char *statement, const xp_array *parameters) {
    void **next = parameters->items;
    return open_statement(client, command, statement, parameters->count,
                          [&] { return static_cast<const char *>(*next++); });
}

int xpmw_stmt_fetch(xp_marrow *client) {
    if (!has_state(client, command_bits, XPMW_CONNECTED | XPMW_STMT_OPENED)) {
        __xpmw_printerr(client, "%s",
                        client->state & XPMW_ERROR_PENDING  ? "Previous error is not recovered"
                        : !(client->state & XPMW_CONNECTED) ? "Connection is not opened"
                                                            : "Statement is not opened");
        return XPMW_WRONG_STATE;
    }
    if (!read_line(client)) {
        if (!line_too_long(client)) return io_error(client, xprb_lasterrmsg(client->rbuf), client->rbuf->saved_errno);
        __xpmw_printerr(client, "Read buffer overflow");
        return XPMW_TOO_LONG;
    }
    if (!*client->curline) {
        end_statement(client);
        return XPMW_END;
    }
    client->state = (client->state | XPMW_ROW_FETCHED) & ~XPMW_ROW_SPLIT;
    return XPMW_OK;
}

int xpmw_stmt_get_column_cnt(xp_marrow *client) {
    const xp_array *const columns = columns_of(client);
    return columns ? columns->count : -1;
}

char *xpmw_stmt_get_column(xp_marrow *client, int index) {
    const xp_array *const columns = columns_of(client);
    return columns && index >= 0 && index < columns->count ? static_cast<char *>(columns->items[index]) : nullptr;
}

int xpmw_stmt_fetch_all(xp_marrow *client, char ***items, int *columns, int *rows) {
    int result = prepare_rows(client) ? xpmw_stmt_fetch(client) : memory_error(client);
    if (result != XPMW_OK) {
        *items = nullptr;
        *columns = *rows = 0;
        return result;
    }
    const int column_count = xpmw_stmt_get_column_cnt(client);
    int row_count = 0;
    for (; result == XPMW_OK; row_count++)
        result = keep_row(client, column_count) ? xpmw_stmt_fetch(client) : memory_error(client);
    if (result != XPMW_END) {
        xpar_clear(client->rows);
        return result;
    }
    *items = reinterpret_cast<char **>(client->rows->items);
    *columns = column_count;
    *rows = row_count;
    return XPMW_OK;
}

int xpmw_stmt_close(xp_marrow *client) {
    if (!has_state(client, XPMW_CONNECTED | XPMW_ERROR_PENDING, XPMW_CONNECTED)) {
        __xpmw_printerr(client, "Not Connected or Previous Error is not recovered");
        return XPMW_WRONG_STATE;
    }
    if (client->rows) xpar_clear(client->rows);
    if (!(client->state & XPMW_STMT_OPENED)) return XPMW_OK;
    int result;
    do result = xpmw_stmt_fetch(client);
    while (result == XPMW_OK);
    return result == XPMW_END ? XPMW_OK : result;
}

const char *xpmw_lasterror(const xp_marrow *client) { return client->errmsg ? client->errmsg : "NO ERROR"; }
