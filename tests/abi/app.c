#include "abi.h"

#include <string.h>

#include "vorncore/vorncore.h"

SIZE_IS(xp_filedata, 16);
AT(xp_filedata, length, 8);
SIZE_IS(xp_http_url, 24);
AT(xp_http_url, port, 8);
AT(xp_http_url, path, 16);
SIZE_IS(xp_http, 160);
AT(xp_http, timeout, 16);
AT(xp_http, resp_stream, 24);
AT(xp_http, cookie_table, 32);
AT(xp_http, header_table, 40);
AT(xp_http, user_agent, 48);
AT(xp_http, cookie_line, 56);
AT(xp_http, header_block, 64);
AT(xp_http, cookies_dirty, 72);
AT(xp_http, headers_dirty, 76);
AT(xp_http, errmsg, 80);
AT(xp_http, wbuf, 88);
AT(xp_http, rbuf, 96);
AT(xp_http, resp_code, 104);
AT(xp_http, resp_headers, 112);
AT(xp_http, resp_body, 120);
AT(xp_http, method, 128);
AT(xp_http, max_redirects, 136);
AT(xp_http, redirect_count, 138);
AT(xp_http, absorb_cookies, 140);
AT(xp_http, proxy_host, 144);
AT(xp_http, proxy_port, 152);
AT(xp_http, resp_maxlength, 156);
SIZE_IS(xp_marrow, 72);
AT(xp_marrow, port, 8);
AT(xp_marrow, timeout, 12);
AT(xp_marrow, state, 16);
AT(xp_marrow, curline, 24);
AT(xp_marrow, fd, 32);
AT(xp_marrow, rbuf, 40);
AT(xp_marrow, columns, 48);
AT(xp_marrow, errmsg, 56);
AT(xp_marrow, rows, 64);

SIZE_IS(xp_quillet, 48);
AT(xp_quillet, port, 8);
AT(xp_quillet, timeout, 12);
AT(xp_quillet, state, 16);
AT(xp_quillet, fd, 20);
AT(xp_quillet, rbuf, 24);
AT(xp_quillet, store_id, 32);
AT(xp_quillet, errmsg, 40);

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

    xp_http client;
    xp_init_http(&client, NULL);
    CHECK(xphttp_get(&client, "https://alpha", NULL) == 0 &&
          strcmp(client.errmsg, "Malformed URL <https://alpha>") == 0);
    xp_close_http(&client);

    {
        xp_quillet *ql = xp_create_quillet("127.0.0.1", 1, 64, 0);
        CHECK(xpql_del(ql, "k") == XPQL_WRONG_STATE && strcmp(xpql_lasterror(ql), "NO ERROR") == 0);
        xp_destroy_quillet(ql);
    }
    xp_marrow gateway;
    xp_init_marrow(&gateway, "alpha", 4000, 64, 0);
    CHECK(xpmw_stmt_fetch(&gateway) == XPMW_WRONG_STATE &&
          strcmp(xpmw_lasterror(&gateway), "Connection is not opened") == 0);
    xp_close_marrow(&gateway);
}
