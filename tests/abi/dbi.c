#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

RECORD(xp_dbi, 64, custom_release, 56);
AT(xp_dbi, custom, 48);
RECORD(xp_dbistmt, 24, custom_release, 16);
AT(xp_dbistmt, custom, 8);

void abi_dbi(void) {
    char text[32];
    CHECK(strcmp(xpdbi_gen_connstr(text, sizeof text, "tcp", "db1", 80, "test", NULL), "!tcp:db1:80:test") == 0);
    CHECK(XP_DBI_SQLITE == 4 && xp_create_dbi(XP_DBI_SQLITE) == NULL);
}
