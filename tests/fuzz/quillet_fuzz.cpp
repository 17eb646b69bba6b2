// The replies of a server, whatever they are: results stay within their codes and point into what was read.
#include "vorncore/app/quillet.h"

#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int ends[2], result = 0;
    if (size < 1 || size > 32 * 1024 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) return 0;
    if (write(ends[1], data, size) != static_cast<ssize_t>(size) || shutdown(ends[1], SHUT_WR)) __builtin_trap();
    xp_quillet *client = xp_create_quillet("", 0, 48, 0);
    client->fd = ends[0];
    client->state = XPQL_CONNECTED;
    xprb_reset(client->rbuf, ends[0]);
    for (size_t step = 0; step < 64 && result <= 1; step++) {
        char *value = nullptr;
        const char *store;
        const int operation = data[step % size] % 3;
        result = operation == 0   ? xpql_new(client, &store)
                 : operation == 1 ? xpql_get(client, "k", &value)
                                  : xpql_purge(client);
        if (result < 0 || result == 2 || result == 5 || result > 6 || (result > 1 && !client->errmsg)) __builtin_trap();
        if (strlen(client->store_id) > 7 || (value && (!*value || strlen(value) > 43))) __builtin_trap();
    }
    xp_destroy_quillet(client);
    return close(ends[1]);
}
