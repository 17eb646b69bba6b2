/* Client of the key-value service quillet.
 *
 * The service keeps named stores, small tables of texts by key. One client holds one TCP connection and at most one
 * bound store; every operation writes one request line and reads its reply.
 *
 *     xp_quillet client;
 *     const char *store;
 *     char *value;
 *     xp_init_quillet(&client, "127.0.0.1", 4071, 64 * 1024, 5000);
 *     if (xpql_connect(&client) || xpql_new(&client, &store) || xpql_put(&client, "colour", "dark red") ||
 *         xpql_get(&client, "colour", &value))
 *         fprintf(stderr, "%s\n", xpql_lasterror(&client));
 *     else
 *         puts(value);                                        (prints dark#_red: see xpql_get)
 *     xp_close_quillet(&client);
 *
 * Requests return one of the codes below. They block: for each wait of the connect and of writing a request up to
 * `timeout`, for a reply as long as `rbuf->timeout` says, which is without limit until the caller assigns another.
 * Nothing reconnects by itself: after XPQL_IO_ERROR and XPQL_TOO_LONG disconnect and connect again, then bind the
 * store.
 *
 * In requests, line feed, carriage return, blank, "#" and "=" of a key or value are written as "#n" "#r" "#_" "##"
 * "#>", so both may hold any bytes but NUL. Texts have no length limit on the way out.
 *
 * A connection that the server has closed is a result and raises no signal (io/io.h).
 *
 * Threads: a client belongs to one thread at a time. */
#ifndef VORNCORE_APP_QUILLET_H
#define VORNCORE_APP_QUILLET_H

#include "vorncore/base/hashtable.h"
#include "vorncore/io/readbuf.h"

VORNCORE_BEGIN_DECLS

/* Results of the requests. */
enum {
    XPQL_OK = 0,
    XPQL_NOT_FOUND = 1,        /* the server answered "404 " */
    XPQL_WRONG_STATE = 2,      /* no connection or store; connect: there is one already. Nothing was sent. */
    XPQL_TOO_LONG = 3,         /* the reply line does not fit the read buffer */
    XPQL_IO_ERROR = 4,         /* connecting, writing or reading failed, or memory for the request is short */
    XPQL_INVALID_RESPONSE = 5, /* reserved for a line of a listing without "="; never returned */
    XPQL_SERVER_ERROR = 6      /* any other answer: that line is the error text */
};

/* Bits of `state`. */
enum { XPQL_CONNECTED = 1, XPQL_BOUND = 2 };

/* Fields are for reading, except where they say otherwise. */
typedef struct xp_quillet {
    char *host;      /* owned copy */
    int32_t port;    /* host byte order */
    int32_t timeout; /* milliseconds for connecting and for each wait while a request is written; may be assigned */
    int32_t state;   /* XPQL_CONNECTED, XPQL_BOUND */
    int32_t fd;      /* owned while connected, else -1 */
    xprb *rbuf;      /* owned; holds the last reply. Its `timeout`, at first -1, may be assigned and limits each read */
    char store_id[8]; /* the store bound last, cut to 7 characters; empty at first */
    char *errmsg;     /* owned text of the last failure, 4096 bytes; null before the first */
} xp_quillet;

/* Copies `host`. Replies may have up to buffer_size - 1 bytes, end of line included. Does not connect. */
void xp_init_quillet(xp_quillet *client, const char *host, int port, int buffer_size, int timeout);
xp_quillet *xp_create_quillet(const char *host, int port, int buffer_size, int timeout);
/* Disconnects. The store stays on the server. */
void xp_close_quillet(xp_quillet *client);
void xp_destroy_quillet(xp_quillet *client);

int xpql_connect(xp_quillet *client);
/* Closes the connection and unbinds the store. */
int xpql_disconnect(xp_quillet *client);

/* Makes a store on the server and binds it. *store, assigned on success, points to the client's `store_id`. */
int xpql_new(xp_quillet *client, const char **store);
/* Binds a store without asking the server, and without looking at the connection: it may precede xpql_connect. The id
 * is cut to 7 characters and sent as it is. */
void xpql_bind(xp_quillet *client, const char *store);
/* Deletes the store on the server; it is unbound whether it was known there or not. */
int xpql_purge(xp_quillet *client);

/* Kept for callers: the calls from xpql_purge on need a connection and a store, but return XPQL_WRONG_STATE only when
 * both are missing. Without a connection they fail with XPQL_IO_ERROR (after `timeout`, for nothing becomes writable);
 * without a store they name `store_id` as it is. */

/* A null text is an empty one. An empty value deletes the key. */
int xpql_put(xp_quillet *client, const char *key, const char *value);
int xpql_del(xp_quillet *client, const char *key);
/* *value lies in the read buffer, valid until the next request. It is the text that the server stores, that is as
 * xpql_put sent it, with its "#" pairs: kept for callers. Null when the value is empty and when the key or the store is
 * not there; on other failures it is not assigned. */
int xpql_get(xp_quillet *client, const char *key, char **value);
/* Asks for a listing and makes a table with copies of keys and values, owned by the caller (xp_destroy_hashtable).
 * Kept for callers: the table is always empty, because the listing is taken as ended at its first line. Lines behind
 * that stay unread in the connection and would be taken for the replies to later requests: disconnect afterwards. When
 * no line follows the "200 " line, for whatever reason, the result is XPQL_IO_ERROR and *table null; on other failures
 * *table is not assigned. */
int xpql_get_all(xp_quillet *client, xp_hashtable **table, int bucket_count);

/* What failed last, "NO ERROR" before any failure with a text. Success, XPQL_NOT_FOUND and XPQL_WRONG_STATE leave it.
 * The text is the client's; the next failure overwrites it. */
const char *xpql_lasterror(const xp_quillet *client);

VORNCORE_END_DECLS

#endif
