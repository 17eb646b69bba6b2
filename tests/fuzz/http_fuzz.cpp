// A response means the same however it is cut into pieces; what fails says why.
#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "vorncore/app/internal/httpclient.h"
#include "vorncore/app/internal/httphead.h"

static size_t piece = SIZE_MAX; // bytes that a read gives at most

extern "C" ssize_t read(int fd, void *to, size_t length) { return syscall(SYS_read, fd, to, std::min(length, piece)); }

static auto receive(const uint8_t *data, size_t size, size_t largest_piece, bool head) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) || write(ends[1], data, size) != static_cast<ssize_t>(size)) abort();
    close(ends[1]);
    xp_http client;
    xp_init_http(&client, nullptr);
    if (head) client.method = XP_HTTP_HEAD;
    piece = largest_piece;
    errno = 0; // it is part of error texts
    const int result = __xphttp_receive_response(&client, ends[0]);
    piece = SIZE_MAX; // inputs are read too
    if (result ? strlen(client.resp_code) != 3 || client.errmsg : !client.errmsg) abort();
    std::string body, error = client.errmsg ? client.errmsg : "";
    if (client.resp_body) body.assign(client.resp_body->data, client.resp_body->cursor);
    if (const char *cookie = xphttp_response_header(&client, "Set-Cookie")) vorncore::cut_cookie(strdupa(cookie));
    const int headers = xpht_count(client.resp_headers);
    if (body.size() + static_cast<size_t>(headers) > size) abort();
    std::tuple outcome(result, std::string(client.resp_code), body, error, headers);
    xp_close_http(&client);
    close(ends[0]);
    return outcome;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 1 << 16) return 0;
    const bool head = *data >= 0xF0;
    if (receive(data + 1, size - 1, SIZE_MAX, head) != receive(data + 1, size - 1, *data % 32 + 1, head)) abort();
    return 0;
}
