// The lines of a gateway, whatever they are: results stay within their codes and columns within what was read.
#include "vorncore/app/marrow.h"

#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int ends[2], columns, rows;
    char **items;
    if (size > 32 * 1024 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) return 0;
    if (write(ends[1], data, size) != static_cast<ssize_t>(size) || shutdown(ends[1], SHUT_WR)) __builtin_trap();
    xp_marrow *client = xp_create_marrow("", 0, 48, 0);
    client->fd = ends[0], client->state = XPMW_CONNECTED;
    xprb_reset(client->rbuf, ends[0]);
    for (size_t step = 0; step < 64 && client->state >= 0; step++) {
        const int operation = size ? data[step % size] % 4 : 0;
        const int result = operation == 0   ? xpmw_stmt_open(client, "s", 1, "p")
                           : operation == 1 ? xpmw_stmt_fetch(client)
                           : operation == 2 ? xpmw_trans_commit(client)
                                            : xpmw_stmt_fetch_all(client, &items, &columns, &rows);
        if (result < 0 || result == 5 || result > 6 || (result > 1 && !client->errmsg)) __builtin_trap();
        for (int i = 0; operation == 3 && result == 0 && i < rows * columns; i++)
            if (items[i] && strlen(items[i]) > 47) __builtin_trap();
        for (int i = xpmw_stmt_get_column_cnt(client); i-- > 0;)
            if (const char *column = xpmw_stmt_get_column(client, i); column && strlen(column) > 47) __builtin_trap();
    }
    xp_destroy_marrow(client);
    close(ends[1]);
    return 0;
}
