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

/// What a module is, seen past the loader: the level it was told last (-1 before) and its connection; -2 and null when
/// it is not loaded.
struct module_state {
    explicit module_state(int driver) {
        void *handle = dlopen(files[driver], RTLD_LAZY | RTLD_NOLOAD);
        if (!handle) return;
        level = *static_cast<int *>(dlsym(handle, "level"));
        connection = static_cast<xp_dbi *>(dlsym(handle, "connection"));
        dlclose(handle);
    }
    int level = -2;
    xp_dbi *connection = nullptr;
};

TEST(Dbi, EntryPointsAreCalledWhileTheirModuleIsLoaded) {
    dlopen(files[3], RTLD_LAZY);
    const std::string why = dlerror();
    const struct {
        const char *name;
        void (*call)();
        std::vector<int> levels;
        std::string log;
    } steps[] = {
        {"nothing is loaded", [] {}, {-2, -2, -2, -2, -2}, ""},
        {"one", [] { xpdbi_modinit(0); }, {-1, -2, -2, -2, -2}, ""},
        {"all, one of them a second time",
         xpdbi_modinit_all,
         {-1, -1, -2, -2, -2},
         "|EDBI|vorncore/dbi/dbi.cpp: Invalid module <vorncore_mysql.so>: unable to find connection creator.\n\n"
         "|EDBI|vorncore/dbi/dbi.cpp: Opening db module <vorncore_nulldb.so> failed: " +
             why +
             "\n"
             "|EDBI|vorncore/dbi/dbi.cpp: Invalid module <vorncore_sqlite.so>: unable to find connection creator.\n\n"},
        {"a level for all", [] { xpdbi_set_logging_all(3); }, {3, 3, -2, -2, -2}, ""},
        {"a level for one", [] { xpdbi_set_logging(0, 7); }, {7, 3, -2, -2, -2}, ""},
        {"a level for a module that was closed", [] { xpdbi_set_logging(4, 9); }, {7, 3, -2, -2, -2}, ""},
        {"unloaded, all but number 1", xpdbi_modfini, {-2, 3, -2, -2, -2}, ""},
        {"a level after that", [] { xpdbi_set_logging_all(5); }, {-2, 5, -2, -2, -2}, ""},
        {"unloaded again", xpdbi_modfini, {-2, 5, -2, -2, -2}, ""},
        {"loaded again", [] { xpdbi_modinit(1), xpdbi_modinit(0); }, {-1, 5, -2, -2, -2}, ""},
        {"and unloaded", xpdbi_modfini, {-2, 5, -2, -2, -2}, ""},
    };
    log_lines log;
    for (const auto &step : steps) {
        step.call();
        EXPECT_EQ(log.take(), step.log) << step.name;
        for (int driver = 0; driver < 5; driver++) {
            const module_state module(driver);
            EXPECT_EQ(module.level, step.levels[static_cast<size_t>(driver)]) << step.name << ", number " << driver;
            EXPECT_EQ(xp_create_dbi(driver), module.connection) << step.name << ", number " << driver;
        }
    }
}

TEST(Dbi, ConnectionStringsAreCutAndTerminatedInAnySize) {
    const struct {
        const char *name, *expected, *scheme, *host;
        int port;
        const char *database, *location;
    } cases[] = {
        {"socket", "!UNIX:/run/db.sock:test", "UNIX", "db1", 80, "test", "/run/db.sock"},
        {"socket, no database", "!UNIX:/s:(null)", "UNIX", nullptr, 80, nullptr, "/s"},
        {"socket without a path", "!UNIX:db1:80:test", "UNIX", "db1", 80, "test", ""},
        {"no host, no path", "!UNIX:test", "UNIX", nullptr, 80, "test", nullptr},
        {"other scheme", "!unix:/s:-1:test", "unix", "/s", -1, "test", "/run/db.sock"},
        {"host", "!tcp:db1:80:test", "tcp", "db1", 80, "test", nullptr},
        {"empty host", "!tcp::80:test", "tcp", "", 80, "test", "whole"},
        {"host alone", "!(null):db1:0:(null)", nullptr, "db1", 0, nullptr, "whole"},
        {"whole", "DSN=%s;UID=x", nullptr, nullptr, 80, "test", "DSN=%s;UID=x"},
        {"whole, with a scheme", "", "tcp", nullptr, 80, nullptr, ""},
        {"nothing", "(null)", nullptr, nullptr, 0, nullptr, nullptr},
        {"scheme and database", "!tcp:test", "tcp", nullptr, 80, "test", "whole"},
    };
    for (const auto &c : cases) {
        const size_t length = strlen(c.expected);
        for (size_t size = 0; size <= length + 4; size++) {
            guard_page buffer(std::string(size, 'x'));
            std::string expected(c.expected, std::min(length, size > 2 ? size - 2 : 0));
            if (size > 1) expected += '\0';
            expected.resize(size, 'x');
            if (size > 0) expected.back() = '\0';
            EXPECT_EQ(xpdbi_gen_connstr(buffer.data(), static_cast<int>(size), c.scheme, c.host, c.port, c.database,
                                        c.location),
                      buffer.data());
            EXPECT_EQ(std::string_view(buffer.data(), size), expected) << c.name << ", size " << size;
        }
    }
    EXPECT_EQ(xpdbi_gen_connstr(nullptr, -1, nullptr, nullptr, 0, nullptr, "whole"), nullptr);
}

template <class Record>
void bind_repeatedly(void (*bind)(Record *, void *, xp_release_fn)) {
    const struct {
        const char *name;
        intptr_t data;
        xp_release_fn release;
        numbers gone;
    } cases[] = {
        {"first", 1, record_release, {}},           {"second", 2, record_release, {1}},
        {"the same again", 2, record_release, {2}}, {"nothing", 0, record_release, {2}},
        {"after nothing", 3, nullptr, {}},          {"after one without a procedure", 4, record_release, {}},
    };
    Record record{};
    for (const auto &c : cases) {
        bind(&record, item_of(c.data), c.release);
        EXPECT_EQ(std::exchange(released, {}), c.gone) << c.name;
        EXPECT_TRUE(record.custom == item_of(c.data) && record.custom_release == c.release) << c.name;
    }
}

TEST(Dbi, BoundDataIsReleasedOnceWhenItIsReplaced) {
    bind_repeatedly(xpdbi_bind_custom);
    bind_repeatedly(xpdbistmt_bind_custom);
}

TEST(Dbi, StatementsAreCountedInTheOrderOfTheBagPastFreedSlots) {
    char a[] = "a", b[] = "b";
    xp_dbistmt statements[] = {{a, nullptr, nullptr}, {nullptr, nullptr, nullptr}, {b, nullptr, nullptr}, {b, a, free}};
    xp_dbi connection{};
    xp_init_ptrbag(&connection.statements, 1, nullptr, nullptr);
    EXPECT_EQ(xpdbi_get_stmtindex(&connection, "a"), -1);
    for (auto &statement : statements) xppb_add(&connection.statements, &statement);
    EXPECT_EQ(xpdbi_get_stmtindex(&connection, "a"), 0);
    EXPECT_EQ(xpdbi_get_stmtindex(&connection, "b"), 2);
    xppb_del(&connection.statements, 0);
    EXPECT_EQ(xpdbi_get_stmtindex(&connection, "a"), -1);
    EXPECT_EQ(xpdbi_get_stmtindex(&connection, "b"), 1);
    xp_close_ptrbag(&connection.statements);
}

} // namespace
