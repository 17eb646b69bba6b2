/* Adds up what each client of a web server was sent. The table's keys are the addresses in binary, of 16 bytes, so that
 * 192.0.2.7 and ::ffff:192.0.2.7, or 2001:db8::1 and 2001:DB8:0:0::1, are one client. */
#include <arpa/inet.h>
#include <stdio.h>
#include <vorncore/vorncore.h>

/* An item of the table: the key area, and the value area behind it. */
typedef struct client {
    struct in6_addr address;
    uint64_t bytes;
    uint64_t transfers;
} client;

static int parse_address(const char *text, struct in6_addr *address) {
    if (inet_pton(AF_INET6, text, address) == 1) return 1;
    char mapped[64];
    snprintf(mapped, sizeof mapped, "::ffff:%s", text);
    return inet_pton(AF_INET6, mapped, address);
}

static void print(const client *c) {
    char text[INET6_ADDRSTRLEN];
    const int mapped = IN6_IS_ADDR_V4MAPPED(&c->address);
    inet_ntop(mapped ? AF_INET : AF_INET6, c->address.s6_addr + (mapped ? 12 : 0), text, sizeof text);
    printf("%8lu bytes in %2lu transfers to %s\n", (unsigned long)c->bytes, (unsigned long)c->transfers, text);
}

/* A line is "ADDRESS BYTES". */
static int count(xp_datahash *clients, const char *line) {
    char text[46];
    unsigned long bytes;
    struct in6_addr address;
    if (sscanf(line, "%45s %lu", text, &bytes) != 2 || parse_address(text, &address) != 1) return 0;
    static const uint64_t nothing[2] = {0, 0};
    uint64_t *sums = xpdh_new(clients, &address, nothing, NULL);
    if (!sums) return 0;
    sums[0] += bytes;
    sums[1]++;
    return 1;
}

static int most_bytes_first(const void *a, const void *b) {
    const client *x = a, *y = b;
    return (x->bytes < y->bytes) - (x->bytes > y->bytes);
}

int main(int arguments, char **argument) {
    FILE *log = arguments == 2 ? fopen(argument[1], "re") : NULL;
    if (!log) return fprintf(stderr, "usage: addresses LOG\n"), 2;
    xp_datahash clients;
    xp_init_datahash(&clients, 1009, NULL, NULL, sizeof(struct in6_addr), NULL, NULL, 2 * sizeof(uint64_t), NULL, NULL);
    char line[256];
    for (int number = 1; fgets(line, sizeof line, log); number++)
        if (!count(&clients, line)) printf("line %d is not understood\n", number);
    fclose(log);

    xp_array order;
    xp_init_array(&order, 16, NULL, NULL);
    xp_datahashenum e;
    xp_init_datahashenum(&e, &clients);
    while (xpdhe_next(&e)) xpar_add(&order, e.current->data);
    xpar_sort(&order, most_bytes_first);
    for (int i = 0; i < order.count; i++) print(order.items[i]);
    xp_close_array(&order);
    xp_close_datahash(&clients);
    return 0;
}
