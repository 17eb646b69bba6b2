// The sending half of the HTTP client.
#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "vorncore/app/internal/httpclient.h"
#include "vorncore/app/internal/httphead.h"
#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

using namespace vorncore;

namespace {

constexpr char cookie_prefix[] = "Cookie: ";

int append_cookie(void *block, xp_pair *cookie) {
    auto *line = static_cast<xp_membuf *>(block);
    const bool first = line->cursor - line->data == sizeof cookie_prefix - 1;
    return xpmb_add_str(line, first ? "" : "; ") &&
           xpmb_add_str_url_encode(line, static_cast<const char *>(cookie->key)) && xpmb_add_char(line, '=') &&
           xpmb_add_str_url_encode(line, static_cast<const char *>(cookie->value));
}

int append_header(void *block, xp_pair *header) {
    return xpmb_add_str_v(static_cast<xp_membuf *>(block), static_cast<const char *>(header->key), ": ",
                          static_cast<const char *>(header->value), "\r\n", nullptr);
}

/// Builds a block of lines from a table that has been changed. Kept: one that is empty leaves the block as it was.
bool refresh_block(xp_http *client, xp_membuf **block, xp_hashtable *table, int32_t dirty, const char *prefix,
                   xp_pair_fn append, const char *suffix) {
    if (!dirty || !table || !xpht_count(table)) return true;
    if (!*block) *block = pooled_membuf(client, 128);
    if (!*block) return false;
    xpmb_clear(*block);
    if (xpmb_add_str(*block, prefix) && xpht_enumerate(table, append, *block) == xpht_count(table) &&
        xpmb_add_str(*block, suffix))
        return true;
    xpmb_clear(*block); // half a line must never be sent
    return false;
}

bool refresh_blocks(xp_http *client) {
    return refresh_block(client, &client->cookie_line, client->cookie_table, client->cookies_dirty, cookie_prefix,
                         append_cookie, "\r\n") &&
           refresh_block(client, &client->header_block, client->header_table, client->headers_dirty, "", append_header,
                         "");
}

// Writers do not ask for results: what failed shows when the buffer is flushed.

void write_bytes(xpwb *out, const char *data, int64_t length) {
    while (length > 0) {
        const int piece = static_cast<int>(std::min<int64_t>(length, INT_MAX));
        xpwb_write(out, data, piece);
        data += piece;
        length -= piece;
    }
}

void write_block(xpwb *out, const xp_membuf *block) {
    if (block) write_bytes(out, block->data, block->cursor - block->data);
}

void write_pairs(xpwb *out, http_pairs pairs) {
    const char *separator = "";
    while (const char *name = pairs.next()) {
        xpwb_write_str(out, separator);
        xpwb_write_str_url_encode(out, name);
        xpwb_write_char(out, '=');
        const char *value = pairs.next();
        if (!value) return;
        xpwb_write_str_url_encode(out, value);
        separator = "&";
    }
}

void write_request(xp_http *client, const xp_http_url *url, const http_request &what) {
    xpwb *out = client->wbuf;
    xpwb_write_str(out, what.method);
    if (client->proxy_host)
        xpwb_printf(out, " http://%s:%d/%s", url->host, url->port, url->path);
    else
        xpwb_write_str_v(out, " /", url->path, nullptr);
    write_pairs(out, what.pairs);

    xpwb_write_str_v(out, " HTTP/1.1\r\nHost: ", url->host, nullptr);
    if (url->port != 80) xpwb_printf(out, ":%d", url->port);
    xpwb_write_str_v(out, "\r\nConnection: close\r\n", client->user_agent, nullptr);
    if (what.type) {
        xpwb_write_str_v(out, "Content-Type: ", what.type, what.boundary, nullptr);
        xpwb_printf(out, "\r\nContent-Length: %ld\r\n", what.length);
    }
    write_block(out, client->cookie_line);
    write_block(out, client->header_block);
    xpwb_write_str(out, "\r\n");
    write_bytes(out, what.body, what.length);
}

int send_request(xp_http *client, const xp_http_url *url, const http_request &what, int descriptor) {
    client->redirect_count = 0;
    xpwb_reset(client->wbuf, descriptor);
    if (!refresh_blocks(client)) return http_out_of_memory(client);
    write_request(client, url, what);
    if (xpwb_flush(client->wbuf) == 1) return 1;
    return __xphttp_error_log(client, "xpwb_flush() fail : %s", xpwb_lasterrmsg(client->wbuf));
}

/// One request and its response, over a connection of its own. What the last response left stays until the request is
/// sent: callers build requests from it.
int exchange(xp_http *client, const xp_http_url *url, const http_request &what) {
    const char *host = client->proxy_host ? client->proxy_host : url->host;
    const int fd = xp_connect_tcp(host, client->proxy_host ? client->proxy_port : url->port, client->timeout);
    if (fd < 0)
        __xphttp_error_log(client, "%s : %s <%d=%s>", "xp_connect_tcp() fail", xp_ioerror_str(fd), errno,
                           strerror(errno));
    const bool sent = fd >= 0 && send_request(client, url, what, fd);
    forget_response(client);
    const int result = sent && __xphttp_receive_response(client, fd);
    if (fd < 0) return 0;
    xpwb_reset(client->wbuf, -1); // what a failure left in it must not go to the next owner of the descriptor
    close(fd);
    return result;
}

bool is_redirect(const xp_http *client) {
    return (!strcmp(client->resp_code, "301") || !strcmp(client->resp_code, "302")) && xphttp_response_location(client);
}

} // namespace

static int __xphttp_set_cookie_from_response(xp_http *client) {
    xp_hashiter iterator;
    void *value;
    for (int more = xpht_get_first(client->resp_headers, "Set-Cookie", &iterator, &value); more;
         more = xpht_get_next(client->resp_headers, &iterator, &value)) {
        const auto *text = static_cast<const char *>(value);
        scratch copy(strlen(text) + 1);
        if (!copy.data()) return http_out_of_memory(client);
        const cookie parsed = cut_cookie(strcpy(copy.data(), text));
        if (parsed.value)
            xphttp_add_cookie(client, parsed.name, parsed.value);
        else
            xphttp_del_cookie(client, parsed.name);
    }
    return 1;
}

/// Follows redirects, one after the other. Kept: each request counts from 0 again, so a chain is never cut.
static int __xphttp_redirect_if_needed(xp_http *client) {
    while (is_redirect(client) && ++client->redirect_count <= client->max_redirects) {
        if (!__xphttp_set_cookie_from_response(client)) return 0;
        const int done = with_parsed_url(client, xphttp_response_location(client), [=](const xp_http_url *url) {
            return exchange(client, url, {client->method});
        });
        if (!done) return 0;
    }
    return 1;
}

int vorncore::perform(xp_http *client, const xp_http_url *url, const http_request &what) {
    if (!exchange(client, url, what)) return 0;
    if (client->max_redirects) return __xphttp_redirect_if_needed(client);
    return !client->absorb_cookies || __xphttp_set_cookie_from_response(client);
}
