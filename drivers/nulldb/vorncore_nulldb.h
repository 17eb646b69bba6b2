/* nulldb: the driver without a database. It accepts every connection string and every statement, and no statement has
 * rows: for dry runs of a program, for measuring what a program costs without its database, and for driver authors to
 * begin with.
 *
 *     xp_nulldb *db = (xp_nulldb *)xp_create_dbi(XP_DBI_NULLDB);
 *     db->connect(db, "!tcp:db1:80:test");
 *     xp_nulldbstmt *all = db->prepare(db, "all", "select * from stock");
 *     for (db->execute(all); db->fetch(all);) ...
 *     db->destroy(db);
 *
 * Log levels, category "|NLDB|": 0, the level at start, is silent; 1 reports connections; 2 statements too.
 *
 * Threads: a connection and its statements belong to one thread at a time. */
#ifndef VORNCORE_NULLDB_H
#define VORNCORE_NULLDB_H

#include "vorncore/dbi/dbi.h"

typedef struct xp_nulldb xp_nulldb;
typedef struct xp_nulldbstmt xp_nulldbstmt;

/* A connection, and what it can do. */
struct xp_nulldb {
    xp_dbi base;
    /* Always 1. */
    int (*connect)(xp_nulldb *db, const char *connstr);
    /* A statement, which the connection owns. Copies the name, which may be null. Null when out of memory. */
    xp_nulldbstmt *(*prepare)(xp_nulldb *db, const char *name, const char *text);
    /* Always 1. */
    int (*execute)(xp_nulldbstmt *statement);
    /* The next row: always 0, there is none. */
    int (*fetch)(xp_nulldbstmt *statement);
    /* Ends a statement. */
    void (*close)(xp_nulldbstmt *statement);
    /* Ends the connection, and the statements that it still has. */
    void (*destroy)(xp_nulldb *db);
};

struct xp_nulldbstmt {
    xp_dbistmt base;
    xp_nulldb *connection; /* borrowed */
    int32_t slot;          /* in the bag of the connection */
};

#endif
