#include "vorncore/app/httpurl.h"

#include <stdlib.h>
#include <string.h>

#include "vorncore/base/strutil.h"

int xp_parse_http_url(char *text, xp_http_url *url) {
    const char *behind_scheme = text;
    xp_case_starts_with(text, "http://", &behind_scheme);
    url->host = text + (behind_scheme - text);
    url->port = 80;
    url->path = strchrnul(url->host, '/');
    if (*url->path) *url->path++ = '\0';

    if (char *colon = strchr(url->host, ':')) {
        *colon = '\0';
        char *end;
        url->port = static_cast<int32_t>(strtol(colon + 1, &end, 10));
        if (*end) return 0;
    }
    return *url->host && url->port != 0;
}
