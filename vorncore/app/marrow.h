/* Client of the database gateway marrow.
 *
 * The gateway runs statements against a database and sends the rows of their results as lines of text. One client holds
 * one TCP connection with at most one open statement; rows are read one at a time and cut into columns on demand.
 *
 *     xp_marrow client;
 *     xp_init_marrow(&client, "127.0.0.1", 4000, 64 * 1024, 5000);
 *     int result = xpmw_connect(&client);
 *     if (result == XPMW_OK) result = xpmw_stmt_open(&client, "select id, name from person where city = ?", 1, "Rome");
 *     while (result == XPMW_OK && (result = xpmw_stmt_fetch(&client)) == XPMW_OK)
 *         printf("%s %s\n", xpmw_stmt_get_column(&client, 0), xpmw_stmt_get_column(&client, 1));
 *     if (result != XPMW_END) fprintf(stderr, "%s\n", xpmw_lasterror(&client));
 *     xp_close_marrow(&client);
 *
 * Calls return one of the codes below and block: for each wait of connecting, writing and reading up to `timeout`.
 *
 * After a write or a read that failed nobody knows what the connection will bring next: XPMW_ERROR_PENDING is set, and
 * every call is refused until xpmw_disconnect and a new xpmw_connect. An answer of the gateway that refuses a command
 * (XPMW_SERVER_ERROR) leaves the connection usable, and so does a command that does not fit.
 *
 * Parameters may hold any bytes but NUL; "#", "," and line feed travel as "##" "#/" "#n", null as "#0". The command
 * character and the statement go out as they are: a line feed in a statement would begin another command, so never pass
 * one on unchecked.
 *
 * A connection that the gateway has closed is a result and raises no signal (io/io.h).
 *
 * Threads: a client belongs to one thread at a time. */
#ifndef VORNCORE_APP_MARROW_H
#define VORNCORE_APP_MARROW_H

#include <stdarg.h>

#include "vorncore/base/array.h"
#include "vorncore/io/readbuf.h"

VORNCORE_BEGIN_DECLS

/* Results of the calls. */
enum {
    XPMW_OK = 0,
    XPMW_END = 1,         /* no more rows */
    XPMW_WRONG_STATE = 2, /* nothing was sent or read */
    XPMW_TOO_LONG = 3,    /* a command does not fit the buffer, or a line of the gateway does not */
    XPMW_IO_ERROR = 4,    /* connecting, writing or reading failed, or memory is short */
    XPMW_SERVER_ERROR = 6 /* the gateway refused: its line is the error text */
};

/* Bits of `state`. */
enum {
    XPMW_CONNECTED = 1,
    XPMW_STMT_OPENED = 4,                /* rows may follow */
    XPMW_ROW_FETCHED = 8,                /* `curline` is a row */
    XPMW_ROW_SPLIT = 16,                 /* it has been cut into `columns` */
    XPMW_ERROR_PENDING = -2147483647 - 1 /* writing or reading failed */
};

/* Fields are for reading, except where they say otherwise. */
typedef struct xp_marrow {
    char *host;      /* owned copy */
    int32_t port;    /* host byte order */
    int32_t timeout; /* milliseconds for connecting and for each wait of a write; that of reads is rbuf->timeout, which
                      * xpmw_connect sets to this. May be assigned; negative is no limit */
    int32_t state;   /* the bits above */
    char *curline;   /* the last line read; lies in `rbuf`, after a transaction command in `errmsg`. May be null */
    int32_t fd;      /* owned while connected, else -1 */
    xprb *rbuf;      /* owned; lines are read into its block, and commands are composed there */
    xp_array *columns; /* owned; pointers to the columns of the row, valid with XPMW_ROW_SPLIT, null for null */
    char *errmsg;      /* owned text of the last failure, 4096 bytes; null before the first */
    xp_array *rows;    /* owned; what xpmw_stmt_fetch_all gathered, null before the first */
} xp_marrow;

/* Copies `host`. Lines of the gateway may have up to buffer_size bytes, a command one byte less than twice as many,
 * line feeds included. Does not connect. */
void xp_init_marrow(xp_marrow *client, const char *host, int port, int buffer_size, int timeout);
/* Null when out of memory. */
xp_marrow *xp_create_marrow(const char *host, int port, int buffer_size, int timeout);
/* Disconnects and frees; an open statement is not drained. */
void xp_close_marrow(xp_marrow *client);
void xp_destroy_marrow(xp_marrow *client);

/* XPMW_WRONG_STATE, without a text: there is a connection already, or none. */
int xpmw_connect(xp_marrow *client);
int xpmw_disconnect(xp_marrow *client);

/* Begin and end a transaction, roll back, commit. Like opening a statement they need a connection without an open
 * statement; else XPMW_WRONG_STATE, and the text names all that is wrong: "Cannot Invoke Command on Current State
 * (/STMT_OPENED/)", "/NOT_CONNECTED/" and "/ERROR_PENDING/" before it. */
int xpmw_trans_open(xp_marrow *client);
int xpmw_trans_close(xp_marrow *client);
int xpmw_trans_rollback(xp_marrow *client);
int xpmw_trans_commit(xp_marrow *client);

/* Opens a statement with `count` parameters, texts or null, by the command character "*" or the caller's. The command
 * is composed where lines are read, so no text may be a column of an earlier row, and lines that nobody asked for are
 * dropped. A command that does not fit, its line feed and a NUL included, gives XPMW_TOO_LONG and is not sent. */
int xpmw_stmt_open(xp_marrow *client, const char *statement, int count, ...);
int xpmw_stmt_open_ex(xp_marrow *client, int command, const char *statement, int count, ...);
int xpmw_stmt_open_v(xp_marrow *client, int command, const char *statement, int count, va_list parameters);
/* The same with all items of an array. */
int xpmw_stmt_open_ar(xp_marrow *client, int command, const char *statement, const xp_array *parameters);

/* Reads the next row. XPMW_END closes the statement. */
int xpmw_stmt_fetch(xp_marrow *client);
/* Columns of the current row; -1 without one. */
int xpmw_stmt_get_column_cnt(xp_marrow *client);
/* A column of the current row, valid until the next row is read. Null for a null column, an index that is not there,
 * and without a row. */
char *xpmw_stmt_get_column(xp_marrow *client, int index);

/* Reads all rows that are left and stores them as copies, row by row: column c of row r is items[r * columns + c]. The
 * copies are the client's, valid until the next xpmw_stmt_fetch_all or xpmw_stmt_close. Every row has as many columns
 * as the first: others are cut, or filled up with null. When the first row cannot be had, be it that there is none
 * (XPMW_END), the three results are set to 0. Kept for callers: when a later one fails they are not assigned, and what
 * was gathered is dropped. When memory runs short (XPMW_IO_ERROR) the statement stays open. */
int xpmw_stmt_fetch_all(xp_marrow *client, char ***items, int *columns, int *rows);

/* Reads and drops the rows that are left, and drops what xpmw_stmt_fetch_all gathered. Without an open statement
 * XPMW_OK. */
int xpmw_stmt_close(xp_marrow *client);

/* What failed last, "NO ERROR" before any failure. The text is the client's; the next failure overwrites it. */
const char *xpmw_lasterror(const xp_marrow *client);

VORNCORE_END_DECLS

#endif
