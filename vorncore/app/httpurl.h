/* Splitting an "http://" URL into host, port and path, in place.
 *
 *     char text[] = "http://alpha:8080/list?n=3";
 *     xp_http_url url;
 *     if (xp_parse_http_url(text, &url)) connect_to(url.host, url.port);    // alpha, 8080; the path is "list?n=3"
 *
 * Threads: nothing is shared. */
#ifndef VORNCORE_APP_HTTPURL_H
#define VORNCORE_APP_HTTPURL_H

#include <stdint.h>

#include "vorncore/base/decls.h"

VORNCORE_BEGIN_DECLS

/* Both texts lie inside the text that was parsed. */
typedef struct xp_http_url {
    char *host;   /* without port */
    int32_t port; /* 80 when the URL names none */
    char *path;   /* with the query string, without the leading "/"; "" when there is none */
} xp_http_url;

/* Cuts `text`, which `url` then borrows. "http://" in any case may be left out. 1, or 0 when the host is empty or the
 * port is 0 or no number; the text is cut and the record filled even so, to no use.
 *
 * User information, fragments and other schemes are not recognised: "https://..." fails, because what follows its colon
 * is an empty port. Kept for callers: the port is what strtol reads, so leading blanks and a sign pass, and the low 32
 * bits of a number that is too large count. */
int xp_parse_http_url(char *text, xp_http_url *url);

VORNCORE_END_DECLS

#endif
