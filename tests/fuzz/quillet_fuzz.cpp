// The replies of a server, whatever they are: results stay within their codes and point into what was read.
#include "tests/fuzz/target.h"
#include "vorncore/app/quillet.h"

static void check(std::string_view input) {
    if (input.empty() || input.size() > 32 * 1024) return;
    const fed_socket server(input);
    xp_quillet *client = xp_create_quillet("", 0, 48, 0);
    client->fd = server.end(), client->state = XPQL_CONNECTED;
    xprb_reset(client->rbuf, server.end());
    int result = 0;
    for (size_t step = 0; step < 64 && result <= 1; step++) {
        char *value = nullptr;
        const char *store;
        const int operation = static_cast<unsigned char>(input[step % input.size()]) % 3;
        result = operation == 0   ? xpql_new(client, &store)
                 : operation == 1 ? xpql_get(client, "k", &value)
                                  : xpql_purge(client);
        require(result >= 0 && result != 2 && result != 5 && result <= 6 && (result <= 1 || client->errmsg));
        require(strlen(client->store_id) <= 7 && (!value || (*value && strlen(value) <= 43)));
    }
    xp_destroy_quillet(client);
}
