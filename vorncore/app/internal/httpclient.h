// What the parts of the HTTP client share: the client (http.cpp), requests (http_request.cpp), responses
// (http_response.cpp).
#pragma once

#include <errno.h>
#include <stdarg.h>
#include <string.h>

#include "vorncore/app/http.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/scratch.h"

/// Keeps the text of a failure and returns 0, the result of a failed call.
__attribute__((format(printf, 2, 3))) int __xphttp_error_log(xp_http *client, const char *format, ...);

/// Reads a whole response from a connection, after forget_response(); 1, or 0 with the failure noted.
int __xphttp_receive_response(xp_http *client, int descriptor);

namespace vorncore {

constexpr int http_buffer_size = 8192; // of the read and the write buffer, and of a multipart body at first

/// Gives an object to the client's pool, which destroys it when the client is closed. Null when memory is short.
template <auto destroy, class Object>
Object *pooled(xp_http *client, Object *object) {
    const auto release = [](void *p) { destroy(static_cast<Object *>(p)); };
    if (!object || xprp_add(&client->pool, object, release)) return object;
    destroy(object);
    return nullptr;
}

inline xp_membuf *pooled_membuf(xp_http *client, uint32_t initial) {
    return pooled<xp_destroy_membuf>(client, xp_create_membuf(initial));
}

/// A table that keeps copies of texts. No hook can report failure, so a copy that finds no memory ends the process.
inline xp_hashtable *pooled_table(xp_http *client, int buckets, xp_hash_fn hash, xp_compare_fn compare) {
    const xp_copy_fn copy = [](const void *text) -> void * {
        return must_strdup("xp_http", static_cast<const char *>(text));
    };
    return pooled<xp_destroy_hashtable>(client, xp_create_hashtable(buckets, hash, compare, copy, free, copy, free));
}

/// Drops the last response; its buffers stay.
inline void forget_response(xp_http *client) {
    memset(client->resp_code, 0, sizeof client->resp_code);
    if (client->resp_headers) xpht_clear(client->resp_headers);
    if (client->resp_body) xpmb_clear(client->resp_body);
}

/// GET pairs, from an array or from the arguments of a call; neither: none.
struct http_pairs {
    const char *const *array = nullptr;
    va_list *arguments = nullptr;

    /// Names and values in turn, then null.
    const char *next() {
        if (array) return *array++;
        return arguments ? va_arg(*arguments, const char *) : nullptr;
    }
};

/// What a request says besides the client's own lines: a GET its pairs, a POST the rest.
struct http_request {
    const char *method;
    http_pairs pairs = {};
    const char *type = nullptr;
    const char *boundary = nullptr; // written behind the type
    const char *body = nullptr;
    int64_t length = 0;
};

/// A request with its redirects and cookies; 1, or 0 with the failure noted.
int perform(xp_http *client, const xp_http_url *url, const http_request &what);

inline int http_out_of_memory(xp_http *client) { return __xphttp_error_log(client, "%s", strerror(ENOMEM)); }

/// Parses a copy of a URL and hands it to `use(url)`.
template <class Use>
int with_parsed_url(xp_http *client, const char *text, Use use) {
    scratch copy(strlen(text) + 1);
    if (!copy.data()) return http_out_of_memory(client);
    xp_http_url url;
    if (!xp_parse_http_url(strcpy(copy.data(), text), &url))
        return __xphttp_error_log(client, "Malformed URL <%s>", text);
    return use(&url);
}

} // namespace vorncore
