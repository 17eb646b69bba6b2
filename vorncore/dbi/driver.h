/* For authors of driver modules: what a module exports, and what its connections and statements owe to the programs
 * that use them. Programs include dbi/dbi.h and the header of the driver, not this one. drivers/nulldb is the smallest
 * complete driver.
 *
 * The module is a shared object with one of the five file names of dbi/dbi.h. It exports the two entry points of that
 * row. The loader opens it privately, so that programs find no other name of yours: what your connections can do, they
 * reach through pointers to procedures in the record of the connection.
 *
 *     cc -shared -fPIC -o vorncore_nulldb.so nulldb.c $(pkg-config --cflags --libs vorncore)
 *     install vorncore_nulldb.so "$(pkg-config --variable=driverdir vorncore)"
 *
 * A connection is a record of yours that begins with xp_dbi, and that your header declares. The creator makes it whole:
 * `statements` initialised with room for one at least, `custom` and `custom_release` null. The bag then holds a pointer
 * to each statement that is prepared, and no null: xpdbi_get_stmtindex reads it. `custom` is the program's. Before the
 * record is freed, xpdbi_bind_custom(&connection->base, NULL, NULL) releases it. How a connection connects, prepares,
 * fetches and ends is your own affair; all its statements end with it.
 *
 * A statement is a record of yours that begins with xp_dbistmt. Its `name` is null, or a text that stays as it is while
 * the statement is in the bag. `custom` is released as above, by xpdbistmt_bind_custom.
 *
 * Log lines go through the hook of base/log.h: xp_logfn(xp_logparam, category, __FILE__, __LINE__, format, ...),
 * without a line feed at the end. The category is a text of six characters; base/log.h has those of three drivers. Link
 * to the shared library, because its hook is the one that programs set. What a level means is yours to say, but before
 * the first one a driver is silent. Connection strings may hold a password: keep them out of the log.
 *
 * Unloading removes your code once every connection has been destroyed. Leave no thread running, and nothing registered
 * to be called later (atexit, destructors of thread-specific data). A module may be loaded again.
 *
 * Threads: entry points are called on one thread at a time, a connection on the thread that it belongs to. */
#ifndef VORNCORE_DBI_DRIVER_H
#define VORNCORE_DBI_DRIVER_H

#include "vorncore/dbi/dbi.h"

VORNCORE_BEGIN_DECLS

/* The entry points. The library has none of them: define the two of your module.
 *
 * Creator: a new connection, which belongs to the caller; null when it cannot be made. */
xp_dbi *xp_create_odbc(void);
xp_dbi *xp_create_oci(void);
xp_dbi *xp_create_mysql(void);
xp_dbi *xp_create_nulldb(void);
xp_dbi *xp_create_sqlite(void);

/* Logging setter: takes the level that holds from now on, for all connections. */
void xpodbc_set_logging(int level);
void xpoci_set_logging(int level);
void xpmysql_set_logging(int level);
void xpnulldb_set_logging(int level);
void xpsqlite_set_logging(int level);

VORNCORE_END_DECLS

#endif
