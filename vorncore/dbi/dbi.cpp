#include "vorncore/dbi/dbi.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <iterator>

#include "vorncore/base/internal/report.h"

using namespace vorncore;

namespace {

/// What the loader looks for, by driver number.
constexpr struct {
    const char *file, *creator, *logging_setter;
} drivers[] = {
    {"vorncore_odbc.so", "xp_create_odbc", "xpodbc_set_logging"},
    {"vorncore_oci.so", "xp_create_oci", "xpoci_set_logging"},
    {"vorncore_mysql.so", "xp_create_mysql", "xpmysql_set_logging"},
    {"vorncore_nulldb.so", "xp_create_nulldb", "xpnulldb_set_logging"},
    {"vorncore_sqlite.so", "xp_create_sqlite", "xpsqlite_set_logging"},
};
constexpr int driver_count = std::size(drivers);

/// A loaded module with both entry points, or nothing at all: no entry point outlives the code that it leads to.
struct driver_module {
    void *handle;
    xp_dbi *(*create)();
    void (*set_logging)(int level);
};

driver_module modules[driver_count];

template <class Procedure>
void look_up(Procedure *&procedure, void *handle, const char *symbol) {
    procedure = reinterpret_cast<Procedure *>(dlsym(handle, symbol));
}

template <class Record>
void bind_custom(Record *record, void *data, xp_release_fn release) {
    if (record->custom && record->custom_release) record->custom_release(record->custom);
    record->custom = data;
    record->custom_release = release;
}

const char *shown(const char *text) { return text ? text : "(null)"; }

} // namespace

void xpdbi_modinit(int driver) {
    if (modules[driver].handle) return;
    const auto &names = drivers[driver];
    driver_module found = {dlopen(names.file, RTLD_LAZY), nullptr, nullptr};
    if (!found.handle) {
        report(XP_LOGCATE_DBI, "Opening db module <%s> failed: %s", names.file, dlerror());
        return;
    }
    look_up(found.create, found.handle, names.creator);
    look_up(found.set_logging, found.handle, names.logging_setter);
    if (found.create && found.set_logging) {
        modules[driver] = found;
        return;
    }
    // Kept: the text, whichever is missing, and its line feed.
    report(XP_LOGCATE_DBI, "Invalid module <%s>: unable to find connection creator.\n", names.file);
    dlclose(found.handle);
}

void xpdbi_modinit_all(void) {
    for (int driver = 0; driver < driver_count; driver++) xpdbi_modinit(driver);
}

void xpdbi_modfini(void) {
    for (int driver = 0; driver < driver_count; driver++) {
        // Kept: this one is never unloaded, and its connections can be created from then on as before.
        if (driver == XP_DBI_OCI || !modules[driver].handle) continue;
        dlclose(modules[driver].handle);
        modules[driver] = {};
    }
}

void xpdbi_set_logging(int driver, int level) {
    if (modules[driver].set_logging) modules[driver].set_logging(level);
}

void xpdbi_set_logging_all(int level) {
    for (int driver = 0; driver < driver_count; driver++) xpdbi_set_logging(driver, level);
}

xp_dbi *xp_create_dbi(int driver) { return modules[driver].create ? modules[driver].create() : nullptr; }

char *xpdbi_gen_connstr(char *buffer, int size, const char *scheme, const char *host, int port, const char *database,
                        const char *location) {
    if (size < 1) return buffer;
    const size_t limit = static_cast<size_t>(size) - 1; // kept: with the NUL, so one byte of the buffer is never used
    if (location && *location && scheme && strcmp(scheme, "UNIX") == 0)
        snprintf(buffer, limit, "!UNIX:%s:%s", location, shown(database));
    else if (host)
        snprintf(buffer, limit, "!%s:%s:%d:%s", shown(scheme), host, port, shown(database));
    else if (!scheme || !database)
        snprintf(buffer, limit, "%s", shown(location));
    else
        snprintf(buffer, limit, "!%s:%s", scheme, database);
    buffer[limit] = '\0';
    return buffer;
}

void xpdbi_bind_custom(xp_dbi *connection, void *data, xp_release_fn release) {
    bind_custom(connection, data, release);
}

void xpdbistmt_bind_custom(xp_dbistmt *statement, void *data, xp_release_fn release) {
    bind_custom(statement, data, release);
}

int xpdbi_get_stmtindex(const xp_dbi *connection, const char *name) {
    xp_ptrbagenum e;
    xp_init_ptrbagenum(&e, const_cast<xp_ptrbag *>(&connection->statements));
    for (int position = 0; xppbe_next(&e); position++) {
        const auto *statement = static_cast<const xp_dbistmt *>(e.bag->slots[e.index]);
        if (statement->name && strcmp(statement->name, name) == 0) return position;
    }
    return -1;
}
