#include "vorncore/dbi/dbi.h"

#include <dlfcn.h>

#include "support/harness.h"
#include "support/items.h"
#include "support/log_lines.h"

using namespace harness;

namespace {

// In the folder that this program's modules are found in: two whole ones, one without a setter, one without a creator;
// of number 3 there is none.
const char *const files[] = {"vorncore_odbc.so", "vorncore_oci.so", "vorncore_mysql.so", "vorncore_nulldb.so",
                             "vorncore_sqlite.so"};

/// The level that a module was told last (-1 before) and its connection, seen past the loader; -2 and null when it is
/// not loaded.
std::pair<int, void *> state_of(int driver) {
    void *const handle = dlopen(files[driver], RTLD_LAZY | RTLD_NOLOAD);
    if (!handle) return {-2, nullptr};
    const std::pair<int, void *> state = {*static_cast<int *>(dlsym(handle, "level")), dlsym(handle, "connection")};
    dlclose(handle);
    return state;
}

TEST(Dbi, EntryPointsAreCalledWhileTheirModuleIsLoaded) {
    const struct {
        const char *name;
        void (*call)();
        int levels[5];
    } steps[] = {
        {"one", [] { xpdbi_modinit(0); }, {-1, -2, -2, -2, -2}},
        {"all, one of them a second time", xpdbi_modinit_all, {-1, -1, -2, -2, -2}},
        {"a level for all", [] { xpdbi_set_logging_all(3); }, {3, 3, -2, -2, -2}},
        {"for one, and for none", [] { xpdbi_set_logging(0, 7), xpdbi_set_logging(4, 9); }, {7, 3, -2, -2, -2}},
        {"all but number 1 unloaded, twice", [] { xpdbi_modfini(), xpdbi_modfini(); }, {-2, 3, -2, -2, -2}},
        {"a level after that", [] { xpdbi_set_logging_all(5); }, {-2, 5, -2, -2, -2}},
        {"loaded again", [] { xpdbi_modinit(1), xpdbi_modinit(0); }, {-1, 5, -2, -2, -2}},
        {"and unloaded", xpdbi_modfini, {-2, 5, -2, -2, -2}},
    };
    log_lines log;
    for (const auto &step : steps) {
        step.call();
        for (int driver = 0; driver < 5; driver++) {
            const auto [level, connection] = state_of(driver);
            EXPECT_EQ(level, step.levels[driver]) << step.name << ", number " << driver;
            EXPECT_EQ(xp_create_dbi(driver), connection) << step.name << ", number " << driver;
        }
    }
    dlopen(files[3], RTLD_LAZY);
    const std::string why = dlerror(),
                      head = "|EDBI|vorncore/dbi/dbi.cpp: ", end = ".so>: unable to find connection creator.\n\n";
    EXPECT_EQ(log.take(), head + "Invalid module <vorncore_mysql" + end + head +
                              "Opening db module <vorncore_nulldb.so> failed: " + why + "\n" + head +
                              "Invalid module <vorncore_sqlite" + end);
}

TEST(Dbi, ConnectionStringsAreCutAndTerminatedInAnySize) {
    const struct {
        const char *expected, *scheme, *host;
        int port;
        const char *database, *location;
    } cases[] = {
        {"!UNIX:/run/db.sock:test", "UNIX", "db1", 80, "test", "/run/db.sock"},
        {"!UNIX:/s:(null)", "UNIX", nullptr, 80, nullptr, "/s"},
        {"!UNIX:db1:80:test", "UNIX", "db1", 80, "test", ""},
        {"!UNIX:test", "UNIX", nullptr, 80, "test", nullptr},
        {"!unix:/s:-1:test", "unix", "/s", -1, "test", "/run/db.sock"},
        {"!(null)::0:(null)", nullptr, "", 0, nullptr, "whole"},
        {"DSN=%s;UID=x", nullptr, nullptr, 80, "test", "DSN=%s;UID=x"},
        {"(null)", "tcp", nullptr, 0, nullptr, nullptr},
    };
    for (const auto &c : cases)
        for (int size = -1; size <= 30; size++) {
            const auto length = static_cast<size_t>(std::max(size, 0));
            std::string expected(length, 'x');
            if (size > 0) snprintf(expected.data(), length - 1, "%s", c.expected), expected.back() = '\0';
            guard_page text(std::string(length, 'x'));
            EXPECT_EQ(xpdbi_gen_connstr(text.data(), size, c.scheme, c.host, c.port, c.database, c.location),
                      text.data());
            EXPECT_EQ(std::string_view(text.data(), length), expected) << c.expected << ", size " << size;
        }
}

TEST(Dbi, BoundDataIsReleasedOnceWhenItIsReplaced) {
    xp_dbi connection{};
    xp_dbistmt statement{};
    const std::pair<intptr_t, xp_release_fn> bound[] = {
        {1, record_release}, {2, record_release}, {0, record_release}, {3, nullptr}, {4, record_release}};
    for (const auto &[data, release] : bound) {
        xpdbi_bind_custom(&connection, item_of(data), release);
        EXPECT_TRUE(connection.custom == item_of(data) && connection.custom_release == release) << data;
        xpdbistmt_bind_custom(&statement, item_of(data), release);
        EXPECT_TRUE(statement.custom == item_of(data) && statement.custom_release == release) << data;
    }
    EXPECT_EQ(released, (numbers{1, 1, 2, 2}));
}

TEST(Dbi, StatementsAreCountedInTheOrderOfTheBagPastFreedSlots) {
    char a[] = "a", b[] = "b";
    xp_dbistmt statements[] = {{a, nullptr, nullptr}, {nullptr, nullptr, nullptr}, {b, nullptr, nullptr}, {b, a, free}};
    xp_dbi connection{};
    xp_init_ptrbag(&connection.statements, 1, nullptr, nullptr);
    for (auto &statement : statements) xppb_add(&connection.statements, &statement);
    for (const auto &expected : {numbers{0, 2, -1}, numbers{-1, 1, -1}}) {
        numbers found;
        for (const char *name : {"a", "b", ""}) found.push_back(xpdbi_get_stmtindex(&connection, name));
        EXPECT_EQ(found, expected);
        xppb_del(&connection.statements, 0);
    }
    xp_close_ptrbag(&connection.statements);
}

} // namespace
