// A response means the same however it is cut into pieces; what fails says why.
#include "tests/fuzz/target.h"

#include <errno.h>
#include <sys/syscall.h>

#include <tuple>

#include "vorncore/app/internal/httpclient.h"
#include "vorncore/app/internal/httphead.h"

static size_t piece = SIZE_MAX; // bytes that a read gives at most

extern "C" ssize_t read(int fd, void *to, size_t length) { return syscall(SYS_read, fd, to, std::min(length, piece)); }

static auto receive(std::string_view input, size_t largest_piece, bool head) {
    const fed_socket server(input);
    xp_http client;
    xp_init_http(&client, nullptr);
    if (head) client.method = XP_HTTP_HEAD;
    piece = largest_piece;
    errno = 0; // it is part of error texts
    const int result = __xphttp_receive_response(&client, server.end());
    piece = SIZE_MAX; // inputs are read too
    require(result ? strlen(client.resp_code) == 3 && !client.errmsg : client.errmsg != nullptr);
    std::string body, error = client.errmsg ? client.errmsg : "";
    if (client.resp_body) body.assign(client.resp_body->data, client.resp_body->cursor);
    if (const char *cookie = xphttp_response_header(&client, "Set-Cookie")) vorncore::cut_cookie(strdupa(cookie));
    const int headers = xpht_count(client.resp_headers);
    require(body.size() + static_cast<size_t>(headers) <= input.size());
    std::tuple outcome(result, std::string(client.resp_code), body, error, headers);
    xp_close_http(&client);
    close(server.end());
    return outcome;
}

static void check(std::string_view input) {
    if (input.empty() || input.size() > 1 << 16) return;
    const auto choice = static_cast<unsigned char>(input[0]);
    const bool head = choice >= 0xF0;
    require(receive(input.substr(1), SIZE_MAX, head) == receive(input.substr(1), choice % 32 + 1, head));
}
