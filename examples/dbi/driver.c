/* Loads the driver without a database, runs a program's statements through it and unloads it. */
#include <stdarg.h>
#include <stdio.h>
#include <vorncore/vorncore.h>
#include <vorncore_nulldb.h>

static int log_to(void *file, const char *category, const char *source, int line, const char *format, ...) {
    (void)source;
    (void)line;
    va_list arguments;
    va_start(arguments, format);
    fprintf(file, "%s ", category);
    vfprintf(file, format, arguments);
    va_end(arguments);
    return fputc('\n', file);
}

/* Gets what is bound to a statement when that ends. */
static void print_runs(void *runs) { printf("which ran %d times\n", *(int *)runs); }

static int run(xp_nulldbstmt *statement) {
    int rows = 0, *runs = statement->base.custom; /* what main bound to it */
    *runs += statement->connection->execute(statement);
    while (statement->connection->fetch(statement)) rows++;
    return rows;
}

int main(void) {
    xp_set_logproc(log_to, stdout);
    xpdbi_modinit(XP_DBI_NULLDB);
    xpdbi_set_logging(XP_DBI_NULLDB, 2);
    xp_nulldb *db = (xp_nulldb *)xp_create_dbi(XP_DBI_NULLDB);
    if (!db) return 1; /* the log says why */

    char connstr[128];
    db->connect(db, xpdbi_gen_connstr(connstr, sizeof connstr, "tcp", "db1", 4100, "stock", NULL));
    int runs_of_all = 0, runs_of_one = 0, rows = 0;
    xp_nulldbstmt *all = db->prepare(db, "all", "select * from stock");
    xp_nulldbstmt *one = db->prepare(db, "one", "select * from stock where id = ?");
    if (!all || !one) return 1;
    xpdbistmt_bind_custom(&all->base, &runs_of_all, print_runs);
    xpdbistmt_bind_custom(&one->base, &runs_of_one, print_runs);
    for (int i = 0; i < 3; i++) rows += run(one);
    rows += run(all);
    printf("%s: %d rows, \"one\" is statement %d\n", connstr, rows, xpdbi_get_stmtindex(&db->base, "one"));
    db->close(all);
    printf("then it is statement %d\n", xpdbi_get_stmtindex(&db->base, "one"));
    db->destroy(db);

    xpdbi_modfini();
    printf("unloaded, %s\n", xp_create_dbi(XP_DBI_NULLDB) ? "but there is a connection" : "so there is no connection");
    return 0;
}
