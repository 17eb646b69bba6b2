#include "vorncore/app/http.h"

#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

using namespace std::string_literals;
using harness::replaced;
using harness::scripted_peer;
using url = const xp_http_url *;

std::string address_of(int port) { return "127.0.0.1:" + std::to_string(port); }
int get(xp_http *c, url u) { return xphttp_get_url(c, u, nullptr); }

/// A client that notes what it sends, with a stream to choose. In texts "@" stands for the address of the server.
struct test_client : xp_http {
    std::string sent;
    xp_membuf streamed;
    xpi_iostream *stream = xpmb_create_iostream(&streamed);

    test_client() {
        xp_init_http(this, "t");
        xp_init_membuf(&streamed, 16);
        const auto note = [](void *to, const char *data, int length) {
            static_cast<std::string *>(to)->append(data, static_cast<size_t>(length));
        };
        xpwb_set_flush_noti(wbuf, note, &sent);
    }
    ~test_client() {
        xp_close_http(this);
        stream->destroy(stream);
        xp_close_membuf(&streamed);
    }
    std::string body() const {
        const xp_membuf *body = resp_stream ? &streamed : resp_body;
        return body ? std::string(body->data, body->cursor) : "(none)";
    }

    /// Makes a call against a server that gives these answers, one a connection.
    int run(const std::vector<std::string> &answers, int (*call)(xp_http *, url) = get) {
        scripted_peer peer(scripted_peer::transport::tcp);
        const std::string address = address_of(peer.port());
        for (size_t i = 0; i < answers.size(); i++) {
            if (i > 0) peer.accept_again();
            peer.send(replaced(answers[i], "@", address)).hang_up_write().stall();
        }
        peer.start();
        std::string host = "127.0.0.1", path = "p";
        const xp_http_url parts = {host.data(), peer.port(), path.data()};
        const int result = call(this, &parts);
        sent = replaced(sent, address, "@");
        return result;
    }
    void fails(int result, const std::string &text) const {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(std::string(errmsg ? errmsg : "(none)").substr(0, text.size()), text);
    }
};

const std::string head = "HTTP/1.1 200 OK\r\n", ok = head + "Content-Length: 0\r\n\r\n";
const std::string moved = "\r\nContent-Length: 0\r\nSet-Cookie: s=1\r\nLocation: ";

TEST(Http, RequestsAreSentToTheByte) {
    static const char *const pairs[] = {"a b", "1&\xC3", "c", "", nullptr};
    const std::string form = "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: ",
                      parts = "Content-Type: multipart/form-data; boundary=~\r\nContent-Length: ", long_path(5000, 'x'),
                      part = "--~\r\nContent-Disposition: form-data; name=";
    const struct {
        std::string request; // "#": the usual end of the first line and the lines after it; "~": the boundary
        int (*call)(xp_http *, url);
        std::vector<std::string> answers = {ok};
    } cases[] = {
        {"GET /pa+b=1%26%C3&c=#\r\n", [](auto c, auto u) { return xphttp_get_url(c, u, pairs); }},
        {"GET /p#\r\n", [](auto c, auto u) { return xphttp_get_url_v(c, u, nullptr); }},
        {"HEAD /a=1&b=#\r\n", // a null value ends the list
         [](auto c, auto u) {
             c->method = XP_HTTP_HEAD;
             return xphttp_get_v(c, address_of(u->port).c_str(), "a", "1", "b", nullptr);
         }},
        {"POST /p#" + form + "3\r\n\r\na\nb", // with the response of a HEAD
         [](auto c, auto u) {
             return c->method = XP_HTTP_HEAD, xphttp_post_url(c, u, "a\nbc", 3) && !c->resp_body ? 1 : 0;
         }},
        {"POST /#" + form + "-1\r\n\r\n",
         [](auto c, auto u) { return xphttp_post(c, address_of(u->port).c_str(), nullptr, -1); }},
        {"POST /p#" + parts + "44\r\n\r\n--~--\r\n", [](auto c, auto u) { return xphttp_post_url_v(c, u, nullptr); }},
        {"POST /#" + parts + "420\r\n\r\n" + part + "\"t\"\nt\"\r\n\r\nvalue\r\n" + part +
             "\"file\"; filename=\"f\"\nin\"\r\nContent-Type: application/octet-stream\r\n\r\na\0b\r\n"s + part +
             "\"typed\"; filename=\"t\"\r\nContent-Type: text/x\r\n\r\n\r\n--~--\r\n",
         [](auto c, auto u) {
             return xphttp_post_v(c, address_of(u->port).c_str(), "t\"\nt", "value", -1, nullptr, "ignored", "file",
                                  "a\0bc", 3, "f\"\nin", nullptr, "typed", "not sent", 0, "t", "text/x", nullptr);
         }},
        {"GET http://f\nar:80/x\r\n?y HTTP/1.1\r\nHost: f\nar\r\nConnection: close\r\nUser-Agent: t\r\n\r\n",
         [](auto c, auto u) {
             xphttp_set_proxy(c, u->host, u->port);
             return xphttp_get(c, "http://f\nar/x\r\n?y", nullptr);
         }},
        {"GET /p#Cookie: a+1=b%3B; b=\r\nX\nY: z\nw\r\n\r\nGET /p#Cookie: old=1\r\nX\nY: z\nw\r\n\r\n"
         "GET /p#Cookie: e+f=g+h; odd=%3Bx%3D1; k=1\r\nX\nY: z\nw\r\n\r\n",
         [](auto c, auto u) {
             xphttp_add_cookie(c, "gone", "1");
             xphttp_clear_cookies(c);
             for (const char *value : {"former", "b;"}) xphttp_add_cookie(c, "a 1", value);
             xphttp_add_cookie(c, "b", "");
             for (const char *name : {"X\nY", "gone"}) xphttp_add_header(c, name, "z\nw");
             xphttp_del_header(c, "gone");
             if (!get(c, u)) return 0;
             for (const char *name : {"a 1", "b"}) xphttp_del_cookie(c, name);
             xphttp_add_cookie(c, "old", "1");
             xphttp_clear_headers(c); // the lines outlive their emptied table
             c->absorb_cookies = 1;
             return get(c, u) && get(c, u) ? 1 : 0;
         },
         std::vector(3, head + "Set-Cookie: k=1; path=/\r\nset-cookie: e%20f=g+h\r\nSet-Cookie: k=2\r\n"
                               "Set-Cookie: odd=;x=1\r\nSet-Cookie: old; path=/\r\n\r\n")},
        {"GET /pa+b=1%26%C3&c=#\r\nGET /x#Cookie: s=1\r\n\r\n",
         [](auto c, auto u) { return c->max_redirects = 1, xphttp_get_url(c, u, pairs); },
         {"HTTP/1.1 302 Found" + moved + "@/x\r\n\r\n", ok}},
        {"GET http://one:80/ HTTP/1.1\r\nHost: one\r\nConnection: close\r\nUser-Agent: t\r\n\r\n"
         "GET http://two:80/ HTTP/1.1\r\nHost: two\r\nConnection: close\r\nUser-Agent: t\r\nCookie: k=1\r\n\r\n",
         [](auto c, auto u) { // to every host, for ever
             xphttp_set_proxy(c, u->host, u->port), c->absorb_cookies = 1;
             return xphttp_get(c, "http://one", nullptr) && xphttp_get(c, "http://two", nullptr) ? 1 : 0;
         },
         {head + "Set-Cookie: k=1; Max-Age=0; Domain=one; Secure\r\n\r\n", ok}},
        {"GET /p#X: 1\r\n\r\nGET /p#X: 2\r\n\r\n", // the lines are built anew each time
         [](auto c, auto u) {
             xphttp_add_header(c, "X", "1");
             return get(c, u) && xpht_update(c->header_table, "X", "2") && get(c, u) ? 1 : 0;
         },
         {ok, ok}},
        {"POST /p#" + form + "1\r\n\r\nxGET /" + long_path + "#Cookie: s=1\r\n\r\nGET /#Cookie: s=1\r\n\r\n",
         [](auto c, auto u) {                             // to the end of the chain
             c->max_redirects = 1, c->absorb_cookies = 1; // those of the redirecting responses alone
             return xphttp_post_url(c, u, "x", 1) && c->redirect_count == 0 && *c->resp_body->data == '.' &&
                            !strcmp(static_cast<const char *>(xpht_get(c->cookie_table, "s")), "1")
                        ? 1
                        : 0;
         },
         {"HTTP/1.1 302 Found" + moved + "http://@/" + long_path + "\r\n\r\n",
          "HTTP/1.1 301 Moved" + moved + "@\r\n\r\n", "HTTP/1.1 301 Moved\r\nSet-Cookie: s=2\r\n\r\n."}},
    };
    for (const auto &c : cases) {
        const harness::pinned_clock a_second_later({1, 0}); // in boundaries: milliseconds, then microseconds
        test_client client;
        EXPECT_EQ(client.run(c.answers, c.call), 1) << client.errmsg;
        const char *const usual = " HTTP/1.1\r\nHost: @\r\nConnection: close\r\nUser-Agent: t\r\n";
        EXPECT_EQ(client.sent,
                  replaced(replaced(c.request, "#", usual), "~", "----delimiter-by-quorvane-0000G8004C92"));
    }
}

TEST(Http, ResponsesAreReadIntoMemoryOrAStream) {
    const std::string many(3'000'000, 'm'), chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
    const struct {
        std::string response;
        const char *code;
        std::string body;
        std::string error = "";
        const char *streamed = nullptr; // where a stream gets more than the last chunk
    } cases[] = {
        {head + "Content-Length:   5\r\n\r\nhello, and more", "200", "hello"},
        {"HTTP/1.0 404 no\n\nhello\n", "404", "hello\n"},
        {head + "\r\n" + many, "200", many},
        {head + "Content-Length: 3000000\r\n\r\n" + many, "200", many},
        {"X 500", "", "", "xprb_read_line() fail : IOERROR_EOF:errno="},
        {head + std::string(8192, 'x') + ":\r\n\r\n", "200", "", "xprb_read_line() fail : IOERROR_OVERFLOW:errno="},
        {"HTTP/1.1 20\r\n\r\n", "20", "", "Invalid Response line <HTTP/1.1 20>"},
        {"200\r\n\r\n", "", "", "Invalid Response line <200>"},
        {head + "nonsense\r\n\r\n", "200", "", "Invalid Header <nonsense>"},
        {"HTTP/1.1 302 Found" + moved + "/relative\r\n\r\n", "302", "", "Malformed URL </relative>"},
        {head + "Content-Length: 12x\r\n\r\n", "200", "", "Invalid Content-Length value  <12x>"},
        {head + "Content-Length: -3\r\n\r\nabc", "200", ""},
        {head + "Content-Length: 9\r\ncontent-LENGTH: 2\r\n\r\nabc", "200", "ab"},
        {head + "Content-Length: 4611686018427387904\r\n\r\nabcd", "200", "abcd",
         "Short response : 4611686018427387904 bytes are required. 4 bytes are received"},
        {head + "transfer-encoding: x\r\nContent-Length: 1\r\n\r\n3\r\nabc\r\n\r\n A \r\n0123456789\r\n-1\r\n0\r\n\r\n",
         "200", "0123456789", "", "abc0123456789"},
        {chunked + "2\r\nab\r\n0a\r\n0123456789", "200", "ab"},
        {chunked + "0\r\n\r\n", "200", ""},
        {chunked + "100000002\r\nab\r\n0\r\n", "200", "ab"},     // the low 32 bits count
        {chunked + "2;x\r\n4\r\nabcd\r\n0\r\n", "200", "abcd"},  // an extension: more digits
        {chunked + "80000000\r\n2\r\nab\r\n0\r\n", "200", "ab"}, // passed over
        {"HTTP/1.1 100 Continue\r\n\r\n" + ok, "100", ok},
        {chunked + "2\r\nab\r\n", "200", "ab"}, // the end between chunks
        {chunked + "7FFFFFFF\r\nab\r\n", "200", "ab\r\n",
         "Short response : 2147483647 bytes are required. 4 bytes are received"},
    };
    for (const auto &c : cases)
        for (const bool streaming : {false, true}) {
            SCOPED_TRACE(c.response.substr(0, 99) + (streaming ? ", to a stream" : ""));
            test_client client;
            client.max_redirects = 1;
            ASSERT_EQ(client.run({head + "\r\nleft by an earlier request"}), 1);
            if (streaming) client.resp_stream = xpio_ostream(client.stream);
            const int result = client.run({c.response});
            if (!c.error.empty()) client.fails(result, c.error);
            EXPECT_TRUE(!c.error.empty() || (result == 1 && !client.errmsg)) << client.errmsg;
            EXPECT_STREQ(client.resp_code, c.code);
            EXPECT_TRUE(client.body() == (streaming && c.streamed ? c.streamed : c.body))
                << client.body().substr(0, 99);
            EXPECT_LE(client.resp_body->capacity, std::max(2 * c.response.size(), size_t{2} << 20));
            EXPECT_EQ(client.run({ok}), 1) << "still usable";
        }
}

TEST(Http, TheMaximumLengthTakesHoldWithTheBuffer) {
    test_client client;
    const std::tuple<int, bool, std::string, std::string> steps[] = {
        {4, true, "12345", ""},  {4, false, "1234", "1234"},  {2, false, "1234", "1234"},
        {0, false, "12345", ""}, {5, true, "12345", "12345"},
    };
    for (const auto &[limit, raised, sent, kept] : steps) {
        xphttp_set_response_maxlength(&client, limit);
        EXPECT_EQ(!client.resp_body, raised) << "a lower limit, or none, leaves the buffer as it is";
        EXPECT_EQ(client.run({std::string(head).append("\r\n").append(sent)}), 1);
        EXPECT_EQ(client.body(), kept) << limit;
        EXPECT_EQ(client.pool.count, 5) << "buffers do not pile up";
    }
    xprp_malloc(&client.pool, 1);
    xphttp_set_response_maxlength(&client, 6); // the body is not the last that the pool took
    EXPECT_TRUE(!client.resp_body && client.pool.count == 6);
}

TEST(Http, FailedRequestsAreTold) {
    test_client client;
    const scripted_peer deaf(scripted_peer::transport::tcp); // it never accepts
    const std::string at = address_of(deaf.port()), large(1 << 24, 'x');
    xphttp_set_timeout(&client, 100);
    client.fails(xphttp_post(&client, at.c_str(), large.data(), 1 << 24),
                 "xpwb_flush() fail : IOERROR_WRITETIMEOUT:errno=");
    EXPECT_EQ(client.wbuf->fd, -1) << "what is left of the request must not reach the next owner of the descriptor";
    EXPECT_EQ(client.rbuf->timeout, -1) << "not of reading";
    client.rbuf->timeout = 0;
    client.fails(xphttp_get(&client, at.c_str(), nullptr), "xprb_read_line() fail : IOERROR_READTIMEOUT:errno=");
    client.rbuf->timeout = client.timeout = -1;
    for (const char *kind : {"\r\n.", "Transfer-Encoding: chunked\r\n\r\n"}) {
        const harness::fault_io reset(harness::call::read, 2, ECONNRESET);
        client.fails(client.run({head + kind}), *kind == 'T' ? "xprb_read_line() fail : IOERROR_READ:errno=104<"
                                                             : "xprb_read() fail : IOERROR_READ:errno=104<");
    }
    EXPECT_EQ(xphttp_response_ncode(&client), 0x303032);
    client.fails(xphttp_get(&client, "127.0.0.1:65536", nullptr), // nobody listens on 0
                 "xp_connect_tcp() fail : IOERROR_CONNECT <111=Connection refused>");
    EXPECT_EQ(xphttp_response_ncode(&client), 0) << "a request that cannot be sent leaves nothing of the last response";
    client.resp_stream = xpio_ostream(client.stream);
    client.stream->flush = [](void *) { return 0; };
    client.fails(client.run({ok}), "xpi_ostream.flush() fail : NO ERROR");
    client.stream->write = [](void *, const void *, uint32_t) { return -1; };
    client.fails(client.run({head + "\r\nx"}), "xpi_ostream.write() fail : NO ERROR");
}

TEST(Http, MemoryShortnessFailsTheRequestOnly) {
    harness::oom_sweep([] {
        xp_http *client = xp_create_http(nullptr);
        if (!client) return;
        EXPECT_STREQ(client->user_agent, "User-Agent: Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)\r\n");
        scripted_peer peer(scripted_peer::transport::tcp);
        peer.send(head + "\r\nok").hang_up_write().stall().start();
        const int done = xphttp_get(client, address_of(peer.port()).c_str(), nullptr);
        EXPECT_TRUE(done == 0 || strcmp(xpmb_tostr(client->resp_body), "ok") == 0);
        xp_destroy_http(client);
    });
}

} // namespace
