#include "vorncore/app/quillet.h"

#include <errno.h>
#include <unistd.h>

#include <initializer_list>

#include "vorncore/app/internal/errortext.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/scratch.h"
#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

using namespace vorncore;

namespace {

bool init(xp_quillet *client, const char *host, int port, int buffer_size, int timeout) {
    *client = {try_strdup(host), port, timeout, 0, -1, xp_create_readbuf(-1, buffer_size), {}, nullptr};
    if (client->host && client->rbuf) return true;
    free(client->host);
    if (client->rbuf) xp_destroy_readbuf(client->rbuf);
    return false;
}

} // namespace

[[gnu::format(printf, 2, 3)]] static void _seterrmsgf(xp_quillet *client, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_error_text(&client->errmsg, format, arguments);
    va_end(arguments);
}

// In a request line the bytes that have a meaning there are written as "#" and a letter.

namespace {

/// What follows "#" in place of a byte; 0 for a byte that stands for itself.
constexpr char letter_of(char c) {
    switch (c) {
    case '\n': return 'n';
    case '\r': return 'r';
    case ' ': return '_';
    case '#': return '#';
    case '=': return '>';
    default: return '\0';
    }
}

/// Bytes of the escaped text, without a terminator. A null text is an empty one.
size_t escaped_size(const char *text) {
    size_t size = 0;
    for (; text && *text; text++) size += letter_of(*text) ? 2 : 1;
    return size;
}

} // namespace

/// Writes the escaped text to `out`, unterminated. Returns the end of what it wrote.
static char *_escape(char *out, const char *text) {
    for (; text && *text; text++) {
        const char letter = letter_of(*text);
        if (letter) *out++ = '#';
        *out++ = letter ? letter : *text;
    }
    return out;
}

namespace {

int io_error(xp_quillet *client, int code) {
    const int error = errno;
    _seterrmsgf(client, "%s:errno=%d", xp_ioerror_str(code), error);
    return XPQL_IO_ERROR;
}

/// A part of a request line: keys and values are escaped, the rest goes out as it is.
struct piece {
    const char *text;
    bool escaped = false;

    size_t size() const { return escaped ? escaped_size(text) : strlen(text); }
    char *write(char *out) const {
        return escaped ? _escape(out, text) : static_cast<char *>(mempcpy(out, text, strlen(text)));
    }
};
using request = std::initializer_list<piece>;

piece escaped(const char *text) { return {text, true}; }

/// Adds the line feed. The line is made in one piece and sent by a loop: a request longer than the socket's buffer
/// arrives whole.
int send_request(xp_quillet *client, request pieces) {
    size_t size = 1;
    for (const piece &part : pieces) size = saturating_sum(size, part.size());
    scratch line(size);
    if (!line.data()) return io_error(client, IOERROR_WRITE); // errno says ENOMEM
    char *end = line.data();
    for (const piece &part : pieces) end = part.write(end);
    *end++ = '\n';
    const int64_t sent = xp_write_all(client->fd, line.data(), end - line.data(), client->timeout);
    return sent < 1 ? io_error(client, static_cast<int>(sent)) : XPQL_OK;
}

int no_line(xp_quillet *client) {
    _seterrmsgf(client, "%s", xprb_lasterrmsg(client->rbuf));
    return client->rbuf->last_error == IOERROR_OVERFLOW ? XPQL_TOO_LONG : XPQL_IO_ERROR;
}

/// Sends a request and reads its reply; *text is what stands behind the status.
int exchange(xp_quillet *client, request pieces, char **text) {
    if (const int failure = send_request(client, pieces)) return failure;
    char *const line = xprb_read_line(client->rbuf, nullptr);
    if (!line) return no_line(client);
    const bool found = strncmp(line, "200 ", 4) == 0;
    if (!found && strncmp(line, "404 ", 4) != 0) {
        _seterrmsgf(client, "%s", line);
        return XPQL_SERVER_ERROR;
    }
    *text = line + 4;
    return found ? XPQL_OK : XPQL_NOT_FOUND;
}

bool connected(const xp_quillet *client) { return client->state & XPQL_CONNECTED; }

/// Kept: either bit will do.
bool connected_or_bound(const xp_quillet *client) { return client->state & (XPQL_CONNECTED | XPQL_BOUND); }

void *copy_text(const void *text) { return strdup(static_cast<const char *>(text)); }

} // namespace

void xp_init_quillet(xp_quillet *client, const char *host, int port, int buffer_size, int timeout) {
    if (!init(client, host, port, buffer_size, timeout))
        out_of_memory("xp_init_quillet", saturating_product(2, static_cast<size_t>(buffer_size)));
}

xp_quillet *xp_create_quillet(const char *host, int port, int buffer_size, int timeout) {
    return create_record<xp_quillet>(
        [=](xp_quillet *client) { return init(client, host, port, buffer_size, timeout); });
}

void xp_close_quillet(xp_quillet *client) {
    xpql_disconnect(client);
    free(client->host);
    xp_destroy_readbuf(client->rbuf);
    free(client->errmsg);
}

void xp_destroy_quillet(xp_quillet *client) { destroy_record(client, xp_close_quillet); }

int xpql_connect(xp_quillet *client) {
    if (connected(client)) return XPQL_WRONG_STATE;
    const int fd = xp_connect_tcp(client->host, client->port, client->timeout);
    if (fd < 0) return io_error(client, fd);
    client->fd = fd;
    client->state |= XPQL_CONNECTED;
    xprb_reset(client->rbuf, fd);
    return XPQL_OK;
}

int xpql_disconnect(xp_quillet *client) {
    if (!connected(client)) return XPQL_WRONG_STATE;
    close(client->fd);
    client->fd = -1; // a request that gets past the state test must not reach a descriptor of somebody else
    client->state &= ~(XPQL_CONNECTED | XPQL_BOUND);
    return XPQL_OK;
}

int xpql_new(xp_quillet *client, const char **store) {
    if (!connected(client)) return XPQL_WRONG_STATE;
    char *id;
    const int result = exchange(client, {{"NEW"}}, &id);
    if (result != XPQL_OK) return result;
    xpql_bind(client, id);
    *store = client->store_id;
    return XPQL_OK;
}

void xpql_bind(xp_quillet *client, const char *store) {
    const size_t length = strnlen(store, sizeof client->store_id - 1);
    memmove(client->store_id, store, length); // the caller may hand in the client's own field
    client->store_id[length] = '\0';
    client->state |= XPQL_BOUND;
}

int xpql_purge(xp_quillet *client) {
    if (!connected_or_bound(client)) return XPQL_WRONG_STATE;
    char *text;
    const int result = exchange(client, {{"EXX "}, {client->store_id}}, &text);
    if (result == XPQL_OK || result == XPQL_NOT_FOUND) client->state &= ~XPQL_BOUND;
    return result;
}

int xpql_put(xp_quillet *client, const char *key, const char *value) {
    if (!connected_or_bound(client)) return XPQL_WRONG_STATE;
    char *text;
    return exchange(client, {{"PUT "}, {client->store_id}, {" "}, escaped(key), {"="}, escaped(value)}, &text);
}

int xpql_del(xp_quillet *client, const char *key) { return xpql_put(client, key, nullptr); }

int xpql_get(xp_quillet *client, const char *key, char **value) {
    if (!connected_or_bound(client)) return XPQL_WRONG_STATE;
    char *text;
    const int result = exchange(client, {{"GET "}, {client->store_id}, {" "}, escaped(key)}, &text);
    if (result == XPQL_OK || result == XPQL_NOT_FOUND) *value = result == XPQL_OK && *text ? text : nullptr;
    return result;
}

int xpql_get_all(xp_quillet *client, xp_hashtable **table, int bucket_count) {
    if (!connected_or_bound(client)) return XPQL_WRONG_STATE;
    char *text;
    const int result = exchange(client, {{"LST "}, {client->store_id}}, &text);
    if (result != XPQL_OK) return result;
    *table = xp_create_hashtable(bucket_count, nullptr, nullptr, copy_text, free, copy_text, free);
    if (!*table) return io_error(client, IOERROR_READ);
    // Kept: the end test is inverted. The first line, be it an entry or the empty one, ends the listing.
    if (xprb_read_line(client->rbuf, nullptr)) return XPQL_OK;
    no_line(client);
    xp_destroy_hashtable(*table);
    *table = nullptr;
    return XPQL_IO_ERROR;
}

const char *xpql_lasterror(const xp_quillet *client) { return client->errmsg ? client->errmsg : "NO ERROR"; }
