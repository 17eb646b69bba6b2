/* HTTP/1.1 client: one request, one connection, the whole response.
 *
 *     xp_http *client = xp_create_http("my-program/1.0");
 *     xphttp_set_timeout(client, 5000);
 *     if (xphttp_get(client, "http://127.0.0.1:8080/status", NULL))
 *         printf("%s %s\n", client->resp_code, client->resp_body ? xpmb_tostr(client->resp_body) : "");
 *     else
 *         fprintf(stderr, "%s\n", client->errmsg);
 *     xp_destroy_http(client);
 *
 * A request opens a connection, sends "Connection: close", reads the response and closes the connection, on every path.
 * It blocks until the response is there. The HTTP status is never a failure: calls return 1 when a response was
 * received and 0 otherwise, and then `errmsg` holds the reason and what had arrived of the response can be read.
 * Request headers, cookies, proxy and time-out stay from request to request; code, headers and body of a response stay
 * until the next request has been sent or could not be: it may be made of them.
 *
 * The time-out covers connecting and each write. Reading has none: a server that stalls holds the call for ever, unless
 * `rbuf->timeout` (io/readbuf.h) is assigned.
 *
 * What a caller hands in as URL, header or field name goes out as it is, line breaks included: never pass on unchecked
 * input there. Names and values of cookies and GET pairs are URL-encoded.
 *
 * Threads: a client belongs to one thread at a time. */
#ifndef VORNCORE_APP_HTTP_H
#define VORNCORE_APP_HTTP_H

#include "vorncore/app/httpurl.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/base/membuf.h"
#include "vorncore/base/respool.h"
#include "vorncore/base/stream.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/writebuf.h"

VORNCORE_BEGIN_DECLS

/* Methods for `xp_http.method`; compared by address. */
extern const char *const XP_HTTP_GET;
extern const char *const XP_HTTP_POST;
extern const char *const XP_HTTP_HEAD;

typedef struct xp_http {
    xp_respool pool;            /* owns everything below but resp_stream and proxy_host */
    int32_t timeout;            /* ms for connecting, -1 no limit; set with xphttp_set_timeout */
    xpi_ostream *resp_stream;   /* borrowed, may be assigned: bodies go there; null: into resp_body */
    xp_hashtable *cookie_table; /* name -> value, null before the first cookie */
    xp_hashtable *header_table; /* name -> value, null before the first header */
    char *user_agent;           /* the whole header line with its CR LF */
    xp_membuf *cookie_line;     /* the Cookie line last sent */
    xp_membuf *header_block;    /* the extra header lines last sent */
    int32_t cookies_dirty;      /* 1 after any change of a cookie, for ever */
    int32_t headers_dirty;      /* 1 after any change of a header, for ever */
    char *errmsg;               /* text of the last failure, at most 4095 bytes; null before the first */
    xpwb *wbuf;                 /* request output */
    xprb *rbuf;                 /* response input */
    char resp_code[4];          /* the status as text, "" when no status line was read */
    xp_hashtable *resp_headers; /* response headers, names in any case, repeated ones kept */
    xp_membuf *resp_body; /* response body without resp_stream; null before the first, then empty when there is none */
    const char *method;   /* may be assigned: XP_HTTP_GET (at first) or XP_HTTP_HEAD for the get calls. Kept: while it
                           * is XP_HTTP_HEAD no response has a body, that of a POST neither */
    uint16_t max_redirects;  /* may be assigned: 0 (at first) follows none, any other value all of them */
    uint16_t redirect_count; /* 0 or 1: set back by every request, those of a redirect included */
    int32_t absorb_cookies;  /* may be assigned: take cookies from responses also when redirects are not followed */
    char *proxy_host;        /* owned, null: no proxy */
    int32_t proxy_port;
    int32_t resp_maxlength; /* bytes of a body in memory, 0 no limit */
} xp_http;

/* The user agent is copied; null gives the library's own line. */
void xp_init_http(xp_http *client, const char *user_agent);
xp_http *xp_create_http(const char *user_agent);
void xp_close_http(xp_http *client);
void xp_destroy_http(xp_http *client);

/* Milliseconds for connecting and for each write; -1 (at first): no limit. */
void xphttp_set_timeout(xp_http *client, int timeout);
/* Requests go to the proxy, with the whole URL in the request line. The host is copied; null: no proxy. */
void xphttp_set_proxy(xp_http *client, const char *host, int port);

/* Extra request headers and cookies, one value a name; names and values are copied.
 * Kept: when the last of them is deleted, the lines of the last request are still sent. */
void xphttp_add_header(xp_http *client, const char *name, const char *value);
void xphttp_del_header(xp_http *client, const char *name);
void xphttp_clear_headers(xp_http *client);
void xphttp_add_cookie(xp_http *client, const char *name, const char *value);
void xphttp_del_cookie(xp_http *client, const char *name);
void xphttp_clear_cookies(xp_http *client);

/* Limits bodies held in memory: what does not fit is read and dropped, piece by piece.
 * Kept: the limit takes hold when the body's buffer is made, so a lower one, or 0, does not change an existing buffer;
 * a higher one drops the buffer (and the last body with it). */
void xphttp_set_response_maxlength(xp_http *client, int length);

/* GET, or HEAD when `method` says so. `pairs` is an array of names and values that ends with a null, or null; they are
 * written encoded right behind the path, with no "?" of their own: end the path with one. */
int xphttp_get_url(xp_http *client, const xp_http_url *url, const char *const *pairs);
int xphttp_get(xp_http *client, const char *url, const char *const *pairs);
/* The same with name, value, ..., NULL as arguments. Kept: a null value ends the list behind "name=". */
int xphttp_get_url_v(xp_http *client, const xp_http_url *url, ...);
int xphttp_get_v(xp_http *client, const char *url, ...);

/* POST of `length` bytes as application/x-www-form-urlencoded; the caller has encoded them. */
int xphttp_post_url(xp_http *client, const xp_http_url *url, const void *data, int length);
int xphttp_post(xp_http *client, const char *url, const void *data, int length);
/* POST of multipart/form-data. Five arguments a part: field name (null ends the list), data (const void *), its length
 * (int; negative: the data is a text), file name or null, content type or null. */
int xphttp_post_url_v(xp_http *client, const xp_http_url *url, ...);
int xphttp_post_v(xp_http *client, const char *url, ...);

/* The four bytes of resp_code as one integer in memory order: 0x303032 for "200". */
int xphttp_response_ncode(const xp_http *client);
/* Value of a header, its name in any case; of repeated ones the last. Null when absent. Borrowed until the next
 * request. */
const char *xphttp_response_header(const xp_http *client, const char *name);
const char *xphttp_response_location(const xp_http *client);

VORNCORE_END_DECLS

#endif
