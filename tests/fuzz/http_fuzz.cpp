#include <errno.h>
#include <stdint.h>
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
    piece = SIZE_MAX;
    const auto text = [](const char *t) { return std::string(t ? t : ""); };
    std::string body, cookie_text = text(xphttp_response_header(&client, "Set-Cookie"));
    if (client.resp_body) body.assign(client.resp_body->data, client.resp_body->cursor);
    vorncore::cut_cookie(cookie_text.data());
    std::tuple outcome(result, text(client.resp_code), body, text(client.errmsg), xpht_count(client.resp_headers));
    xp_close_http(&client);
    close(ends[0]);
    return outcome;
}

// A response means the same however it is cut into pieces; what fails says why.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 1 << 16) return 0;
    const size_t cut = *data % 32 + 1;
    const bool head = *data >= 0xF0;
    const auto whole = receive(data + 1, size - 1, SIZE_MAX, head);
    if (whole != receive(data + 1, size - 1, cut, head)) abort();
    const auto &[result, code, body, error, headers] = whole;
    if (result ? code.size() != 3 || !error.empty() : error.empty()) abort();
    if (body.size() + static_cast<size_t>(headers) > size) abort();
    return 0;
}
