#include "vorncore_nulldb.h"

#include <stdlib.h>
#include <string.h>

#include "vorncore/base/log.h"
#include "vorncore/dbi/driver.h"

static const char *const category = "|NLDB|";
enum { LOG_CONNECTIONS = 1, LOG_STATEMENTS = 2 };
static int log_level = 0;

static const char *shown_name(const xp_nulldbstmt *statement) {
    return statement->base.name ? statement->base.name : "";
}

/* The release hook of the bag: every statement ends here. */
static void destroy_statement(void *item) {
    xp_nulldbstmt *statement = item;
    if (log_level >= LOG_STATEMENTS)
        xp_logfn(xp_logparam, category, __FILE__, __LINE__, "closed <%s>", shown_name(statement));
    xpdbistmt_bind_custom(&statement->base, NULL, NULL);
    free(statement->base.name);
    free(statement);
}

static int connect_anywhere(xp_nulldb *db, const char *connstr) {
    (void)db;
    (void)connstr; /* not for the log: it may hold a password */
    if (log_level >= LOG_CONNECTIONS) xp_logfn(xp_logparam, category, __FILE__, __LINE__, "connected");
    return 1;
}

static xp_nulldbstmt *prepare_anything(xp_nulldb *db, const char *name, const char *text) {
    xp_nulldbstmt *statement = calloc(1, sizeof *statement);
    if (!statement) return NULL;
    statement->connection = db;
    statement->base.name = name ? strdup(name) : NULL;
    statement->slot = name && !statement->base.name ? -1 : xppb_add(&db->base.statements, &statement->base);
    if (statement->slot < 0) {
        free(statement->base.name);
        free(statement);
        return NULL;
    }
    if (log_level >= LOG_STATEMENTS)
        xp_logfn(xp_logparam, category, __FILE__, __LINE__, "prepared <%s>: %s", shown_name(statement), text);
    return statement;
}

static int execute_nothing(xp_nulldbstmt *statement) {
    if (log_level >= LOG_STATEMENTS)
        xp_logfn(xp_logparam, category, __FILE__, __LINE__, "executed <%s>", shown_name(statement));
    return 1;
}

static int fetch_no_row(xp_nulldbstmt *statement) {
    (void)statement;
    return 0;
}

static void close_statement(xp_nulldbstmt *statement) {
    xppb_del(&statement->connection->base.statements, statement->slot);
}

static void destroy_connection(xp_nulldb *db) {
    xp_close_ptrbag(&db->base.statements);
    xpdbi_bind_custom(&db->base, NULL, NULL);
    free(db);
    if (log_level >= LOG_CONNECTIONS) xp_logfn(xp_logparam, category, __FILE__, __LINE__, "disconnected");
}

xp_dbi *xp_create_nulldb(void) {
    xp_nulldb *db = calloc(1, sizeof *db);
    if (!db) return NULL;
    xp_init_ptrbag(&db->base.statements, 8, NULL, destroy_statement);
    db->connect = connect_anywhere;
    db->prepare = prepare_anything;
    db->execute = execute_nothing;
    db->fetch = fetch_no_row;
    db->close = close_statement;
    db->destroy = destroy_connection;
    return &db->base;
}

void xpnulldb_set_logging(int level) { log_level = level; }
