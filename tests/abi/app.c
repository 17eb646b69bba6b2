#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

SIZE_IS(xp_filedata, 16);
AT(xp_filedata, length, 8);
SIZE_IS(xp_http_url, 24);
AT(xp_http_url, port, 8);
AT(xp_http_url, path, 16);

void abi_app(void) {
    char date[30];
    CHECK(strcmp(xp_make_http_date(0, date), "Thu, 01 Jan 1970 00:00:00 GMT") == 0 && xp_parse_http_date(date) == 0);
    {
        xp_respool pool;
        xp_init_respool(&pool);
        CHECK(xprp_fopen(&pool, "/", "w") == NULL && pool.count == 0);
        xp_close_respool(&pool);
    }

    char text[] = "alpha:81/x";
    xp_http_url url;
    CHECK(xp_parse_http_url(text, &url) == 1 && url.port == 81 && strcmp(url.path, "x") == 0);
}
