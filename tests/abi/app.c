#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

void abi_app(void) {
    char date[30];
    CHECK(strcmp(xp_make_http_date(0, date), "Thu, 01 Jan 1970 00:00:00 GMT") == 0 && xp_parse_http_date(date) == 0);
}
