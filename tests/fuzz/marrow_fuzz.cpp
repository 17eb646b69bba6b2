// The lines of a gateway, whatever they are: results stay within their codes and columns within what was read.
#include "tests/fuzz/target.h"
#include "vorncore/app/marrow.h"

static void check(std::string_view input) {
    if (input.size() > 32 * 1024) return;
    const fed_socket server(input);
    xp_marrow *client = xp_create_marrow("", 0, 48, 0);
    client->fd = server.end(), client->state = XPMW_CONNECTED;
    xprb_reset(client->rbuf, server.end());
    for (size_t step = 0; step < 64 && client->state >= 0; step++) {
        const int operation = input.empty() ? 0 : input[step % input.size()] & 3;
        char **items;
        int columns, rows;
        const int result = operation == 0   ? xpmw_stmt_open(client, "s", 1, "p")
                           : operation == 1 ? xpmw_stmt_fetch(client)
                           : operation == 2 ? xpmw_trans_commit(client)
                                            : xpmw_stmt_fetch_all(client, &items, &columns, &rows);
        require(result >= 0 && result != 5 && result <= 6 && (result <= 1 || client->errmsg));
        for (int i = 0; operation == 3 && result == 0 && i < rows * columns; i++)
            require(!items[i] || strlen(items[i]) <= 47);
        for (int i = xpmw_stmt_get_column_cnt(client); i-- > 0;) {
            const char *const column = xpmw_stmt_get_column(client, i);
            require(!column || strlen(column) <= 47);
        }
    }
    xp_destroy_marrow(client);
}
