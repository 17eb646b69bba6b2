/* Database drivers: loads driver modules, and holds what the connections and statements of all drivers have in common.
 *
 * The library links no database client. Each kind of database has a driver module, a shared object of a fixed name with
 * two entry points:
 *
 *     number          module                  creator             logging setter
 *     XP_DBI_ODBC     vorncore_odbc.so        xp_create_odbc      xpodbc_set_logging
 *     XP_DBI_OCI      vorncore_oci.so         xp_create_oci       xpoci_set_logging
 *     XP_DBI_MYSQL    vorncore_mysql.so       xp_create_mysql     xpmysql_set_logging
 *     XP_DBI_NULLDB   vorncore_nulldb.so      xp_create_nulldb    xpnulldb_set_logging
 *     XP_DBI_SQLITE   vorncore_sqlite.so      xp_create_sqlite    xpsqlite_set_logging
 *
 * What a connection can do beyond the calls below, its end included, is the driver's: its header declares a record that
 * begins with xp_dbi. Who writes a driver reads dbi/driver.h.
 *
 *     xpdbi_modinit(XP_DBI_NULLDB);
 *     xpdbi_set_logging(XP_DBI_NULLDB, 1);
 *     xp_nulldb *db = (xp_nulldb *)xp_create_dbi(XP_DBI_NULLDB);
 *     if (!db) return 0;
 *     db->connect(db, xpdbi_gen_connstr(text, sizeof text, "tcp", "db1", 4100, "stock", NULL));
 *     ...
 *     db->destroy(db);
 *     xpdbi_modfini();
 *
 * Modules are opened by their bare names, so the dynamic loader decides where they lie: LD_LIBRARY_PATH, then the
 * folder vorncore/ beside libvorncore.so.1, then the system's. With the static library that folder is not looked into,
 * and a module's log lines go to the hook of the shared library that it brings along.
 *
 * Driver numbers are not checked. No call tells of a failure to load: it is reported through the log hook, category
 * XP_LOGCATE_DBI, and the driver's connections are then null.
 *
 * Threads: the modules belong to the process and nothing locks them. Load them before the first thread starts, unload
 * them behind the last; create connections on one thread at a time. A connection and its statements belong to one
 * thread at a time, unless the driver says otherwise. */
#ifndef VORNCORE_DBI_DBI_H
#define VORNCORE_DBI_DBI_H

#include "vorncore/base/ptrbag.h"

VORNCORE_BEGIN_DECLS

/* A driver's connection begins with it. */
typedef struct xp_dbi {
    xp_ptrbag statements;         /* the driver's: of xp_dbistmt *, those that are prepared */
    void *custom;                 /* the program's own, see xpdbi_bind_custom; null at first */
    xp_release_fn custom_release; /* gets `custom` when it is replaced or the connection ends; may be null */
} xp_dbi;

/* A driver's statement begins with it. */
typedef struct xp_dbistmt {
    char *name; /* the driver's; null for a statement without one */
    void *custom;
    xp_release_fn custom_release;
} xp_dbistmt;

/* Driver numbers. */
enum { XP_DBI_ODBC = 0, XP_DBI_OCI = 1, XP_DBI_MYSQL = 2, XP_DBI_NULLDB = 3, XP_DBI_SQLITE = 4 };

/* Loads the module of a driver, or of all drivers in the order of their numbers. Does nothing where it is loaded; where
 * that failed, it may be tried again. A module that lacks one of its entry points is closed.
 * Kept for callers: the report on it speaks of the creator, whichever is missing, and ends with a line feed. */
void xpdbi_modinit(int driver);
void xpdbi_modinit_all(void);
/* Unloads all modules. Every connection must have been destroyed: their code goes too. A module can be loaded again.
 * Kept for callers: the module of XP_DBI_OCI is never unloaded and stays in use. */
void xpdbi_modfini(void);

/* Passes a level on to the module of a driver, or of all drivers, where it is loaded. What a level means is the
 * driver's. */
void xpdbi_set_logging(int driver, int level);
void xpdbi_set_logging_all(int level);

/* A new connection, to be destroyed as the driver's header says. Null when the module is not loaded, or cannot make
 * one. */
xp_dbi *xp_create_dbi(int driver);

/* Writes the text that a driver takes to connect to `buffer`, of `size` bytes, and returns the buffer:
 *
 *     !UNIX:LOCATION:DATABASE         for scheme "UNIX" and a location, the path of a socket, that is not empty
 *     !SCHEME:HOST:PORT:DATABASE      else for a host, be it an empty text
 *     LOCATION                        else without a scheme or a database: the whole text, as it is
 *     !SCHEME:DATABASE                else
 *
 * Texts may be null; where one is written after all, it reads "(null)".
 *
 * A text of more than size - 2 bytes is cut. That is not told: of a result of that length some may be missing. Kept for
 * callers: the last byte but one is never part of the text, and the last one is set to NUL however short the text is.
 * So sizes 1 and 2 give the empty text; with 0 or a negative size nothing is written. */
char *xpdbi_gen_connstr(char *buffer, int size, const char *scheme, const char *host, int port, const char *database,
                        const char *location);

/* Attach data of the program's own to a connection or a statement: takes it if there is a release procedure, else
 * borrows it. What was bound before is released first if it is not null and has a procedure, be it the same data. The
 * driver releases what is bound when the connection or statement ends. */
void xpdbi_bind_custom(xp_dbi *connection, void *data, xp_release_fn release);
void xpdbistmt_bind_custom(xp_dbistmt *statement, void *data, xp_release_fn release);

/* The first statement of that name: its position, counted from 0, among the statements in the order of the bag's
 * enumeration (base/ptrbag.h), nameless ones included. -1 when there is none. It is not the statement's slot: each slot
 * freed before it makes it smaller by 1. */
int xpdbi_get_stmtindex(const xp_dbi *connection, const char *name);

VORNCORE_END_DECLS

#endif
