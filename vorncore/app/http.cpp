#include "vorncore/app/http.h"

#include <stdarg.h>
#include <stdio.h>

#include "vorncore/app/internal/errortext.h"
#include "vorncore/app/internal/httpclient.h"
#include "vorncore/base/convert.h"
#include "vorncore/io/timeutil.h"

using namespace vorncore;

const char *const XP_HTTP_GET = "GET";
const char *const XP_HTTP_POST = "POST";
const char *const XP_HTTP_HEAD = "HEAD";

int __xphttp_error_log(xp_http *client, const char *format, ...) {
    if (!client->errmsg) client->errmsg = static_cast<char *>(xprp_malloc(&client->pool, error_text_size));
    if (!client->errmsg) return 0; // the pool is to own the text
    va_list arguments;
    va_start(arguments, format);
    keep_error_text(&client->errmsg, format, arguments);
    va_end(arguments);
    return 0;
}

namespace {

/// Of the two ways to make a pool, creating is the one that can fail; the record is then moved into place.
bool init_pool(xp_respool *pool) {
    xp_respool *created = xp_create_respool();
    if (!created) return false;
    *pool = *created;
    free(created);
    return true;
}

bool init(xp_http *client, const char *user_agent) {
    *client = {};
    if (!init_pool(&client->pool)) return false;
    if (!user_agent) user_agent = "Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)";
    client->user_agent = xprp_strcat_v(&client->pool, "User-Agent: ", user_agent, "\r\n", nullptr);
    client->rbuf = pooled<xp_destroy_readbuf>(client, xp_create_readbuf(-1, http_buffer_size));
    client->wbuf = pooled<xp_destroy_writebuf>(client, xp_create_writebuf(-1, http_buffer_size));
    client->timeout = -1;
    client->method = XP_HTTP_GET;
    if (client->user_agent && client->rbuf && client->wbuf) {
        client->wbuf->max_pending = 0;
        return true;
    }
    xp_close_respool(&client->pool);
    return false;
}

// Request headers and cookies.

void update_table(xp_http *client, xp_hashtable **table, int buckets, int32_t *dirty, const char *name,
                  const char *value) {
    if (!*table) *table = pooled_table(client, buckets, nullptr, nullptr);
    if (!*table) out_of_memory("xp_http", sizeof(xp_hashtable));
    xpht_update(*table, name, value);
    *dirty = 1;
}

void delete_entry(xp_hashtable *table, int32_t *dirty, const char *name) {
    if (table && xpht_del(table, name)) *dirty = 1;
}

void clear_table(xp_hashtable *table, int32_t *dirty) {
    if (!table || !xpht_count(table)) return;
    xpht_clear(table);
    *dirty = 1;
}

} // namespace

static int __xphttp_vget(xp_http *client, const xp_http_url *url, va_list pairs) {
    va_list arguments;
    va_copy(arguments, pairs);
    const int result = perform(client, url, {client->method, {nullptr, &arguments}});
    va_end(arguments);
    return result;
}

namespace {

/// "----delimiter-by-quorvane-" and two clocks in base 62.
void make_boundary(char (&boundary)[80]) {
    constexpr uint32_t limit = 916132832; // 62 to the 5th
    constexpr uint32_t flags = XP_CONVERT_PAD('0') | 62;
    char milliseconds[7], microseconds[7];
    xp_convert(xp_time_us() % limit, microseconds, sizeof microseconds, flags);
    xp_convert(xp_time_ms() % limit, milliseconds, sizeof milliseconds, flags);
    snprintf(boundary, sizeof boundary, "----delimiter-by-quorvane-%s%s", milliseconds, microseconds);
}

struct form_part {
    const char *name;
    const char *data;
    int length; // negative: up to the NUL
    const char *file;
    const char *type;
};

/// False when memory is short.
bool append_part(xp_membuf *body, const char *boundary, const form_part &part) {
    if (!xpmb_add_str_v(body, "--", boundary, "\r\nContent-Disposition: form-data; name=\"", part.name, "\"", nullptr))
        return false;
    if (part.file && !xpmb_add_str_v(body, "; filename=\"", part.file, "\"\r\nContent-Type: ",
                                     part.type ? part.type : "application/octet-stream", nullptr))
        return false;
    const uint64_t length = part.length < 0 ? strlen(part.data) : static_cast<uint64_t>(part.length);
    return xpmb_add_str(body, "\r\n\r\n") && xpmb_add_data(body, part.data, length) && xpmb_add_str(body, "\r\n");
}

bool append_parts(xp_membuf *body, const char *boundary, va_list parts) {
    while (const char *name = va_arg(parts, const char *)) {
        const auto *data = va_arg(parts, const char *);
        const int length = va_arg(parts, int);
        const char *file = va_arg(parts, const char *);
        const char *type = va_arg(parts, const char *);
        if (!append_part(body, boundary, {name, data, length, file, type})) return false;
    }
    return xpmb_add_str_v(body, "--", boundary, "--\r\n", nullptr);
}

int post_parts(xp_http *client, const xp_http_url *url, va_list parts) {
    char boundary[80];
    make_boundary(boundary);
    xp_membuf body;
    xp_init_membuf(&body, http_buffer_size);
    const int result =
        append_parts(&body, boundary, parts)
            ? perform(
                  client, url,
                  {XP_HTTP_POST, {}, "multipart/form-data; boundary=", boundary, body.data, body.cursor - body.data})
            : http_out_of_memory(client);
    xp_close_membuf(&body);
    return result;
}

} // namespace

void xp_init_http(xp_http *client, const char *user_agent) {
    if (!init(client, user_agent)) out_of_memory("xp_init_http", 2 * http_buffer_size);
}

xp_http *xp_create_http(const char *user_agent) { return create_record<xp_http>(init, user_agent); }

void xp_close_http(xp_http *client) {
    xp_close_respool(&client->pool);
    free(client->proxy_host);
}

void xp_destroy_http(xp_http *client) { destroy_record(client, xp_close_http); }

void xphttp_set_timeout(xp_http *client, int timeout) { client->timeout = client->wbuf->timeout = timeout; }

void xphttp_set_proxy(xp_http *client, const char *host, int port) {
    char *copy = host ? must_strdup("xphttp_set_proxy", host) : nullptr; // `host` may be the old one
    free(client->proxy_host);
    client->proxy_host = copy;
    client->proxy_port = port;
}

void xphttp_add_header(xp_http *client, const char *name, const char *value) {
    update_table(client, &client->header_table, 23, &client->headers_dirty, name, value);
}

void xphttp_del_header(xp_http *client, const char *name) {
    delete_entry(client->header_table, &client->headers_dirty, name);
}

void xphttp_clear_headers(xp_http *client) { clear_table(client->header_table, &client->headers_dirty); }

void xphttp_add_cookie(xp_http *client, const char *name, const char *value) {
    update_table(client, &client->cookie_table, 41, &client->cookies_dirty, name, value);
}

void xphttp_del_cookie(xp_http *client, const char *name) {
    delete_entry(client->cookie_table, &client->cookies_dirty, name);
}

void xphttp_clear_cookies(xp_http *client) { clear_table(client->cookie_table, &client->cookies_dirty); }

void xphttp_set_response_maxlength(xp_http *client, int length) {
    if (length > client->resp_maxlength && client->resp_body) {
        // The topmost entry is popped: a limit that goes up and down must not fill the pool with empty entries.
        const int index = xprp_search(&client->pool, client->resp_body);
        if (index == xprp_last_index(&client->pool))
            xprp_pop_ex(&client->pool, index - 1);
        else
            xprp_free(&client->pool, index);
        client->resp_body = nullptr;
    }
    client->resp_maxlength = length;
}

int xphttp_get_url(xp_http *client, const xp_http_url *url, const char *const *pairs) {
    return perform(client, url, {client->method, {pairs}});
}

int xphttp_get(xp_http *client, const char *url, const char *const *pairs) {
    return with_parsed_url(client, url,
                           [=](const xp_http_url *parsed) { return xphttp_get_url(client, parsed, pairs); });
}

int xphttp_get_url_v(xp_http *client, const xp_http_url *url, ...) {
    va_list pairs;
    va_start(pairs, url);
    const int result = __xphttp_vget(client, url, pairs);
    va_end(pairs);
    return result;
}

int xphttp_get_v(xp_http *client, const char *url, ...) {
    va_list pairs;
    va_start(pairs, url);
    const int result =
        with_parsed_url(client, url, [&](const xp_http_url *parsed) { return __xphttp_vget(client, parsed, pairs); });
    va_end(pairs);
    return result;
}

int xphttp_post_url(xp_http *client, const xp_http_url *url, const void *data, int length) {
    return perform(
        client, url,
        {XP_HTTP_POST, {}, "application/x-www-form-urlencoded", nullptr, static_cast<const char *>(data), length});
}

int xphttp_post(xp_http *client, const char *url, const void *data, int length) {
    return with_parsed_url(client, url,
                           [=](const xp_http_url *parsed) { return xphttp_post_url(client, parsed, data, length); });
}

int xphttp_post_url_v(xp_http *client, const xp_http_url *url, ...) {
    va_list parts;
    va_start(parts, url);
    const int result = post_parts(client, url, parts);
    va_end(parts);
    return result;
}

int xphttp_post_v(xp_http *client, const char *url, ...) {
    va_list parts;
    va_start(parts, url);
    const int result =
        with_parsed_url(client, url, [&](const xp_http_url *parsed) { return post_parts(client, parsed, parts); });
    va_end(parts);
    return result;
}

int xphttp_response_ncode(const xp_http *client) {
    int code;
    memcpy(&code, client->resp_code, sizeof code);
    return code;
}

const char *xphttp_response_header(const xp_http *client, const char *name) {
    return client->resp_headers ? static_cast<const char *>(xpht_get(client->resp_headers, name)) : nullptr;
}

const char *xphttp_response_location(const xp_http *client) { return xphttp_response_header(client, "Location"); }
