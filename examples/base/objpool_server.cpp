// A server that adds numbers on a few threads, and its clients. Every connection needs a read buffer; the threads
// share a pool of them, so that no more are made than are in use at the same time.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <vorncore/vorncore.h>

#include <atomic>
#include <thread>

static constexpr int workers = 3, clients = 4, calls_each = 25, timeout = 10'000;

static void *make_buffer() {
    xprb *buffer = xp_create_readbuf(-1, 4096);
    if (buffer) buffer->timeout = timeout;
    return buffer;
}
static void destroy_buffer(void *buffer) { xp_destroy_readbuf(static_cast<xprb *>(buffer)); }

static void serve(xprb *input, int connection) {
    int a, b;
    xprb_reset(input, connection);
    while (const char *line = xprb_read_line(input, nullptr))
        if (sscanf(line, "%d %d", &a, &b) != 2 || xp_fdprintf(connection, timeout, "%d\n", a + b) < 0) break;
}

static void work(xp_xcirqueue *accepted, xp_xobjpool *buffers) {
    for (void *item; xpxcq_get(accepted, &item, -1) == XP_XCQ_OK;) {
        const int connection = static_cast<int>(reinterpret_cast<intptr_t>(item));
        if (auto *buffer = static_cast<xprb *>(xpxop_alloc(buffers))) {
            serve(buffer, connection);
            xpxop_free(buffers, buffer);
        }
        close(connection);
    }
}

static int count_right_answers(int port) {
    int right = 0;
    for (int n = 1; n <= calls_each; n++) {
        char reply[16] = {};
        const int connection = xp_connect_tcp("127.0.0.1", port, timeout);
        xp_fdprintf(connection, timeout, "%d %d\n", n, 2 * n);
        shutdown(connection, SHUT_WR);
        xp_read_all(connection, reply, sizeof reply - 1, timeout);
        close(connection);
        right += atoi(reply) == 3 * n;
    }
    return right;
}

int main() {
    sockaddr_in address;
    socklen_t length = sizeof address;
    const int listener = xp_bind_tcp(xp_inet_addr(127, 0, 0, 1), 0, 0);
    if (listen(listener, 16) != 0 || getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return 1;
    xp_xcirqueue accepted;
    xp_xobjpool buffers;
    xp_init_xcirqueue(&accepted, workers); // those that do not fit wait in the system
    xp_init_xobjpool(&buffers, make_buffer, destroy_buffer, nullptr, nullptr);
    std::atomic<int> right{0};
    std::thread serving[workers], asking[clients], accepting([&] {
        for (int fd; (fd = xp_sigsafe_accept(listener, nullptr, nullptr)) >= 0;)
            xpxcq_put(&accepted, reinterpret_cast<void *>(static_cast<intptr_t>(fd)), -1);
        xpxcq_shutdown(&accepted);
    });
    for (auto &thread : serving) thread = std::thread(work, &accepted, &buffers);
    for (auto &thread : asking) thread = std::thread([&] { right += count_right_answers(ntohs(address.sin_port)); });
    for (auto &thread : asking) thread.join();
    shutdown(listener, SHUT_RDWR); // ends the accepting, and with it the rest
    accepting.join();
    for (auto &thread : serving) thread.join();
    printf("%d of %d sums right, %u buffers made\n", right.load(), clients * calls_each, buffers.pool.cached);
    xp_close_xobjpool(&buffers);
    xp_close_xcirqueue(&accepted);
    close(listener);
}
