#include "vorncore/app/http.h"

#include <limits.h>

#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

using harness::replaced;
using harness::scripted_peer;
using url = const xp_http_url *;

std::string address_of(int port) { return "127.0.0.1:" + std::to_string(port); }

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
    std::string body() { return resp_stream ? xpmb_tostr(&streamed) : resp_body ? xpmb_tostr(resp_body) : "(none)"; }
    std::string error() const { return errmsg ? errmsg : ""; }

    /// Makes a call against a server that gives these answers, one a connection. "!": it resets after a request. "?":
    /// it stalls, and the client does not wait.
    int run(const std::vector<std::string> &answers, int (*call)(xp_http *, url)) {
        scripted_peer peer(scripted_peer::transport::tcp);
        const std::string address = address_of(peer.port());
        for (size_t i = 0; i < answers.size(); i++) {
            if (i > 0) peer.accept_again();
            rbuf->timeout = answers[i] == "?" ? 0 : -1;
            if (answers[i] == "?")
                peer.stall();
            else if (answers[i] == "!")
                peer.expect("GET").reset();
            else
                peer.send(replaced(answers[i], "@", address)).hang_up_write().stall();
        }
        peer.start();
        std::string host = "127.0.0.1", path = "p";
        const xp_http_url parts = {host.data(), peer.port(), path.data()};
        const int result = call(this, &parts);
        sent = replaced(sent, address, "@");
        return result;
    }
};

int get(xp_http *c, url u) { return xphttp_get_url(c, u, nullptr); }
std::string url_of(url u, const std::string &path) { return address_of(u->port) + "/" + path; }

const std::string head = "HTTP/1.1 200 OK\r\n", ok = head + "Content-Length: 0\r\n\r\n";
const std::string moved = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nSet-Cookie: s=1\r\nLocation: ";

TEST(Http, RequestsAreSentToTheByte) {
    static const char *const pairs[] = {"a b", "1&2", "c", "", nullptr}, *const no_pairs[] = {nullptr};
    static const std::string long_path(100'000, 'x');
    const struct {
        const char *name;
        std::string request; // "#": the usual end of the first line and the lines after it; "~": the boundary
        int (*call)(xp_http *, url);
        std::vector<std::string> answers = {ok};
    } cases[] = {
        {"no pairs", "GET /p#\r\n", [](xp_http *c, url u) { return xphttp_get_url(c, u, no_pairs); }},
        {"pairs", "GET /pa+b=1%262&c=#\r\n", [](xp_http *c, url u) { return xphttp_get_url(c, u, pairs); }},
        {"null value", "GET /pa=1&b=#\r\n",
         [](xp_http *c, url u) { return xphttp_get_url_v(c, u, "a", "1", "b", nullptr); }},
        {"null name", "GET /x?a=1#\r\n",
         [](xp_http *c, url u) { return xphttp_get_v(c, url_of(u, "x?").c_str(), "a", "1", nullptr); }},
        {"head", "HEAD /px=y#\r\n",
         [](xp_http *c, url u) { return c->method = XP_HTTP_HEAD, xphttp_get_url_v(c, u, "x", "y", nullptr); }},
        {"long url", "GET /" + long_path + "#\r\n",
         [](xp_http *c, url u) { return xphttp_get(c, url_of(u, long_path).c_str(), nullptr); }},
        {"post", "POST /p#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n\r\na\nb",
         [](xp_http *c, url u) {
             c->method = XP_HTTP_HEAD;
             return xphttp_post_url(c, u, "a\nbc", 3) && !c->resp_body ? 1 : 0;
         }},
        {"post of nothing", "POST /f#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: -1\r\n\r\n",
         [](xp_http *c, url u) { return xphttp_post(c, url_of(u, "f").c_str(), nullptr, -1); }},
        {"multipart",
         "POST /p#Content-Type: multipart/form-data; boundary=~\r\nContent-Length: 420\r\n\r\n"
         "--~\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\nvalue\r\n"
         "--~\r\nContent-Disposition: form-data; name=\"file\"; filename=\"f.bin\"\r\n"
         "Content-Type: application/octet-stream\r\n\r\na-b\r\n"
         "--~\r\nContent-Disposition: form-data; name=\"typed\"; filename=\"t\"\r\nContent-Type: text/x\r\n\r\n\r\n"
         "--~--\r\n",
         [](xp_http *c, url u) {
             return xphttp_post_url_v(c, u, "text", "value", -1, nullptr, "ignored", "file", "a-bc", 3, "f.bin",
                                      nullptr, "typed", "not sent", 0, "t", "text/x", nullptr);
         }},
        {"proxy", "GET http://far:80/x?y HTTP/1.1\r\nHost: far\r\nConnection: close\r\nUser-Agent: t\r\n\r\n",
         [](xp_http *c, url u) {
             return xphttp_set_proxy(c, u->host, u->port), xphttp_get(c, "http://far/x?y", nullptr);
         }},
        {"cookies and headers; lines outlive their emptied table",
         "GET /p#Cookie: a+1=b%3B; b=\r\nX-Y: z w\r\n\r\nGET /p#Cookie: c=d\r\nX-Y: z w\r\n\r\n",
         [](xp_http *c, url u) {
             for (const char *value : {"old", "b;"}) xphttp_add_cookie(c, "a 1", value);
             xphttp_add_cookie(c, "b", "");
             for (const char *name : {"X-Y", "gone"}) xphttp_add_header(c, name, "z w");
             xphttp_del_header(c, "gone");
             if (!get(c, u)) return 0;
             xphttp_clear_cookies(c);
             xphttp_add_cookie(c, "c", "d");
             xphttp_clear_headers(c);
             return get(c, u);
         },
         {ok, ok}},
        {"cookies of responses",
         "GET /p#Cookie: old=1\r\n\r\nGET /p#Cookie: old=1\r\n\r\nGET /p#Cookie: e+f=g+h; odd=%3Bx%3D1; k=1\r\n\r\n",
         [](xp_http *c, url u) {
             xphttp_add_cookie(c, "old", "1");
             if (!get(c, u)) return 0;
             c->absorb_cookies = 1;
             return get(c, u) && get(c, u) ? 1 : 0;
         },
         std::vector(3, head + "Set-Cookie: k=1; path=/\r\nset-cookie: e%20f=g+h\r\nSet-Cookie: k=2\r\n"
                               "Set-Cookie: odd=;x=1\r\nSet-Cookie: old; path=/\r\n\r\n")},
        {"redirects of a post, to the end of the chain",
         "POST /p#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 1\r\n\r\nx"
         "GET /1#Cookie: s=1\r\n\r\nGET /#Cookie: s=1\r\n\r\n",
         [](xp_http *c, url u) {
             c->max_redirects = 1;
             return xphttp_post_url(c, u, "x", 1) && c->redirect_count == 0 && *c->resp_body->data == '.' ? 1 : 0;
         },
         {moved + "http://@/1\r\n\r\n", moved + "@\r\n\r\n", "HTTP/1.1 301 Moved\r\nSet-Cookie: s=2\r\n\r\n."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        test_client client;
        EXPECT_EQ(client.run(c.answers, c.call), 1) << client.error();
        const size_t boundary = client.sent.find("----delimiter-by-quorvane-");
        if (boundary != client.sent.npos) client.sent = replaced(client.sent, client.sent.substr(boundary, 38), "~");
        EXPECT_EQ(client.sent,
                  replaced(c.request, "#", " HTTP/1.1\r\nHost: @\r\nConnection: close\r\nUser-Agent: t\r\n"));
    }
}

TEST(Http, ResponsesAreReadHoweverTheyArrive) {
    const std::string many(3'000'000, 'm');
    const struct {
        const char *name;
        std::string response;
        const char *code;
        std::string body;
        const char *error = "";
        const char *streamed = nullptr; // where a stream gets more than the last chunk
    } cases[] = {
        {"content length", head + "Content-Length:   5\r\n\r\nhello, and more", "200", "hello"},
        {"to the end", "HTTP/1.0 404 no\n\nhello\n", "404", "hello\n"},
        {"long, to the end", head + "\r\n" + many, "200", many},
        {"long, announced", head + "Content-Length: 3000000\r\n\r\n" + many, "200", many},
        {"no line", "X 500", "", "", "xprb_read_line() fail : IOERROR_EOF:errno="},
        {"long line", head + std::string(8192, 'x') + ":\r\n\r\n", "200", "",
         "xprb_read_line() fail : IOERROR_OVERFLOW:errno="},
        {"code cut off", "HTTP/1.1 20\r\n\r\n", "20", "", "Invalid Response line <HTTP/1.1 20>"},
        {"no blank", "200\r\n\r\n", "", "", "Invalid Response line <200>"},
        {"bad header", head + "nonsense\r\n\r\n", "200", "", "Invalid Header <nonsense>"},
        {"bad length", head + "Content-Length: 12x\r\n\r\n", "200", "", "Invalid Content-Length value  <12x>"},
        {"negative length", head + "Content-Length: -3\r\n\r\nabc", "200", ""},
        {"of repeated headers the last", head + "Content-Length: 9\r\ncontent-LENGTH: 2\r\n\r\nabc", "200", "ab"},
        {"reset", "!", "", "", "xprb_read_line() fail : IOERROR_READ:errno=104<"},
        {"stall", "?", "", "", "xprb_read_line() fail : IOERROR_READTIMEOUT:errno="},
        {"short", head + "Content-Length: 4611686018427387904\r\n\r\nabcd", "200", "abcd",
         "Short response : 4611686018427387904 bytes are required. 4 bytes are received"},
        {"chunks",
         head + "transfer-encoding: x\r\nContent-Length: 1\r\n\r\n3\r\nabc\r\n\r\n A \r\n0123456789\r\n-1\r\n0\r\n\r\n",
         "200", "0123456789", "", "abc0123456789"},
        {"chunk 0a", head + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0a\r\n0123456789", "200", "ab"},
        {"no chunk", head + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "200", ""},
        {"chunks cut off", head + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", "200", "ab"},
        {"chunk cut off", head + "Transfer-Encoding: chunked\r\n\r\n7FFFFFFF\r\nab\r\n", "200", "ab\r\n",
         "Short response : 2147483647 bytes are required. 4 bytes are received"},
    };
    for (const auto &c : cases)
        for (const char *way : {"whole", "byte by byte", "to a stream"}) {
            if (*way == 'b' && c.response.size() > 10'000) continue;
            SCOPED_TRACE(std::string(c.name) + ", " + way);
            test_client client;
            ASSERT_EQ(client.run({head + "\r\nleft by an earlier request"}, get), 1);
            if (*way == 't') client.resp_stream = xpio_ostream(client.stream);
            const harness::fault_io pieces(harness::call::read, *way == 'b' ? 0 : INT_MAX, 0);
            EXPECT_EQ(client.run({c.response}, get), !*c.error);
            EXPECT_STREQ(client.resp_code, c.code);
            EXPECT_TRUE(client.body() == (*way == 't' && c.streamed ? c.streamed : c.body))
                << client.body().substr(0, 99);
            EXPECT_EQ(client.error().substr(0, strlen(c.error)), c.error);
            EXPECT_LE(client.resp_body->capacity, std::max(2 * c.response.size(), size_t{2} << 20));
            EXPECT_EQ(client.run({ok}, get), 1) << "still usable";
        }
}

TEST(Http, TheMaximumLengthTakesHoldWithTheBuffer) {
    test_client client;
    const auto body_of = [&](const std::string &body) {
        EXPECT_EQ(client.run({head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body}, get), 1);
        EXPECT_EQ(xphttp_response_ncode(&client), 0x303032);
        return client.body();
    };
    xphttp_set_response_maxlength(&client, 4);
    EXPECT_EQ(body_of("12345"), "");
    const int entries = xprp_last_index(&client.pool);
    for (const int limit : {4, 2, 0}) {
        xphttp_set_response_maxlength(&client, limit);
        ASSERT_NE(client.resp_body, nullptr);
        EXPECT_EQ(body_of("1234"), "1234") << "a lower limit, or none, leaves the buffer as it is";
        EXPECT_EQ(body_of("12345"), "");
    }
    xphttp_set_response_maxlength(&client, 5);
    EXPECT_EQ(client.resp_body, nullptr);
    EXPECT_EQ(body_of("12345"), "12345");
    EXPECT_EQ(xprp_last_index(&client.pool), entries);
    xprp_malloc(&client.pool, 1);
    xphttp_set_response_maxlength(&client, 6); // the body is not the last that the pool took
    EXPECT_EQ(client.resp_body, nullptr);
}

TEST(Http, FailedRequestsAreTold) {
    test_client client;
    const scripted_peer deaf(scripted_peer::transport::tcp); // it never accepts
    xphttp_set_timeout(&client, 100);
    EXPECT_EQ(xphttp_post(&client, address_of(deaf.port()).c_str(), std::string(1 << 24, 'x').data(), 1 << 24), 0);
    EXPECT_EQ(client.error().find("xpwb_flush() fail : IOERROR_WRITETIMEOUT:errno="), 0u) << client.error();
    EXPECT_EQ(client.wbuf->fd, -1) << "what is left of the request must not reach the next owner of the descriptor";
    xphttp_set_timeout(&client, -1);
    client.max_redirects = 1;
    EXPECT_EQ(client.run({moved + "/relative\r\n\r\n"}, get), 0);
    EXPECT_EQ(client.error(), "Malformed URL </relative>");
    EXPECT_STREQ(xphttp_response_location(&client), "/relative");
    EXPECT_EQ(client.redirect_count, 1);
    EXPECT_EQ(xphttp_get(&client, "127.0.0.1:65536", nullptr), 0); // nobody listens on 0
    EXPECT_EQ(client.error(), "xp_connect_tcp() fail : IOERROR_CONNECT <111=Connection refused>");
    EXPECT_EQ(xphttp_response_location(&client), nullptr);
    client.resp_stream = xpio_ostream(client.stream);
    client.stream->flush = [](void *) { return 0; };
    EXPECT_EQ(client.run({ok}, get), 0);
    EXPECT_EQ(client.error(), "xpi_ostream.flush() fail : NO ERROR");
    client.stream->write = [](void *, const void *, uint32_t) { return -1; };
    EXPECT_EQ(client.run({head + "\r\nx"}, get), 0);
    EXPECT_EQ(client.error(), "xpi_ostream.write() fail : NO ERROR");
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
