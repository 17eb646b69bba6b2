#include "vorncore/app/http.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

#include <functional>

#include "support/fault.h"
#include "support/folder.h"
#include "support/harness.h"
#include "support/peer.h"

namespace {

using harness::replaced;
using harness::scripted_peer;

/// A client that notes what it sends. In texts "@" stands for the address of the server.
struct test_client : xp_http {
    std::string sent;

    test_client() {
        xp_init_http(this, "t");
        const auto note = [](void *to, const char *data, int length) {
            static_cast<std::string *>(to)->append(data, static_cast<size_t>(length));
        };
        xpwb_set_flush_noti(wbuf, note, &sent);
    }
    ~test_client() { xp_close_http(this); }

    std::string body() const { return resp_body ? xpmb_tostr(resp_body) : "(none)"; }
    std::string error() const { return errmsg ? errmsg : ""; }

    /// Makes a call against a server that gives these answers, one a connection.
    template <class Call>
    int run(const std::vector<std::string> &answers, Call call) {
        scripted_peer peer(scripted_peer::transport::tcp);
        const std::string address = "127.0.0.1:" + std::to_string(peer.port());
        for (size_t i = 0; i < answers.size(); i++) {
            if (i > 0) peer.accept_again();
            peer.send(replaced(answers[i], "@", address)).hang_up_write().stall();
        }
        peer.start();
        std::string host = "127.0.0.1", path = "p";
        const xp_http_url url = {host.data(), peer.port(), path.data()};
        const int result = call(this, &url);
        sent = replaced(sent, address, "@");
        return result;
    }
    int get(const std::string &answer) {
        return run({answer}, [](xp_http *c, const xp_http_url *url) { return xphttp_get_url(c, url, nullptr); });
    }
};

std::string url_of(const xp_http_url *url, const std::string &path) {
    return "127.0.0.1:" + std::to_string(url->port) + "/" + path;
}

constexpr char ok[] = "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n";
constexpr char host_lines[] = " HTTP/1.1\r\nHost: @\r\nConnection: close\r\nUser-Agent: t\r\n";

TEST(Http, RequestsAreSentToTheByte) {
    static const char *const pairs[] = {"a b", "1&2", "c", "", nullptr}, *const no_pairs[] = {nullptr};
    static const std::string long_path(100'000, 'x');
    using url = const xp_http_url *;
    const struct {
        const char *name;
        std::string request; // "#" stands for the usual end of the first line and the lines after it
        int (*call)(xp_http *, url);
        size_t connections = 1;
    } cases[] = {
        {"get", "GET /p#\r\n", [](xp_http *c, url u) { return xphttp_get_url(c, u, nullptr); }},
        {"no pairs", "GET /p#\r\n", [](xp_http *c, url u) { return xphttp_get_url(c, u, no_pairs); }},
        {"pairs", "GET /pa+b=1%262&c=#\r\n", [](xp_http *c, url u) { return xphttp_get_url(c, u, pairs); }},
        {"null value", "GET /pa=1&b=#\r\n",
         [](xp_http *c, url u) { return xphttp_get_url_v(c, u, "a", "1", "b", nullptr); }},
        {"null name", "GET /x?a=1#\r\n",
         [](xp_http *c, url u) { return xphttp_get_v(c, url_of(u, "x?").c_str(), "a", "1", nullptr); }},
        {"head", "HEAD /px=y#\r\n",
         [](xp_http *c, url u) {
             c->method = XP_HTTP_HEAD;
             return xphttp_get_url_v(c, u, "x", "y", nullptr);
         }},
        {"long url", "GET /" + long_path + "#\r\n",
         [](xp_http *c, url u) { return xphttp_get(c, url_of(u, long_path).c_str(), nullptr); }},
        {"post", "POST /p#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n\r\na\nb",
         [](xp_http *c, url u) {
             c->method = XP_HTTP_HEAD;
             return xphttp_post_url(c, u, "a\nbc", 3) && !c->resp_body ? 1 : 0;
         }},
        {"empty post", "POST /f#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 0\r\n\r\n",
         [](xp_http *c, url u) { return xphttp_post(c, url_of(u, "f").c_str(), nullptr, 0); }},
        {"proxy", "GET http://far:80/x?y HTTP/1.1\r\nHost: far\r\nConnection: close\r\nUser-Agent: t\r\n\r\n",
         [](xp_http *c, url u) {
             xphttp_set_proxy(c, "127.0.0.1", u->port);
             return xphttp_get(c, "http://far/x?y", nullptr);
         }},
        {"cookies and headers", "GET /p#Cookie: a+1=b%3B; b=\r\nX-Y: z w\r\n\r\n",
         [](xp_http *c, url u) {
             for (const char *value : {"old", "b;"}) xphttp_add_cookie(c, "a 1", value);
             xphttp_add_cookie(c, "b", "");
             for (const char *name : {"X-Y", "gone"}) xphttp_add_header(c, name, "z w");
             xphttp_del_header(c, "gone");
             return xphttp_get_url(c, u, nullptr);
         }},
        {"lines outlive their emptied table", "GET /p#Cookie: a=b\r\n\r\nGET /p#Cookie: a=b\r\nh: v\r\n\r\n",
         [](xp_http *c, url u) {
             xphttp_add_cookie(c, "a", "b");
             if (!xphttp_get_url(c, u, nullptr)) return 0;
             xphttp_clear_cookies(c);
             xphttp_add_header(c, "h", "v");
             return xphttp_get_url(c, u, nullptr);
         },
         2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        test_client client;
        EXPECT_EQ(client.run(std::vector<std::string>(c.connections, ok), c.call), 1) << client.error();
        EXPECT_EQ(client.sent, replaced(c.request, "#", host_lines));
        EXPECT_EQ(xphttp_response_ncode(&client), 0x343032);
    }
}

TEST(Http, MultipartBodiesHoldEveryPart) {
    test_client client;
    const auto post = [](xp_http *c, const xp_http_url *url) {
        return xphttp_post_url_v(c, url, "text", "value", -1, nullptr, "ignored", "file", "a\0b", 3, "f.bin", nullptr,
                                 "typed", "", 0, "t", "text/x", nullptr);
    };
    EXPECT_EQ(client.run({ok}, post), 1) << client.error();
    const size_t at = client.sent.find("boundary=") + 9;
    const std::string boundary = client.sent.substr(at, strlen("----delimiter-by-quorvane-") + 12);
    const std::string body =
        replaced("--#\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\nvalue\r\n--#\r\nContent-Disposition: "
                 "form-data; name=\"file\"; filename=\"f.bin\"\r\nContent-Type: application/octet-stream\r\n\r\n" +
                     std::string("a\0b", 3) +
                     "\r\n--#\r\nContent-Disposition: form-data; name=\"typed\"; filename=\"t\"\r\nContent-Type: "
                     "text/x\r\n\r\n\r\n--#--\r\n",
                 "#", boundary);
    EXPECT_EQ(boundary.find("----delimiter-by-quorvane-"), 0u);
    EXPECT_EQ(client.sent, std::string("POST /p") + host_lines + "Content-Type: multipart/form-data; boundary=" +
                               boundary + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

TEST(Http, ResponsesAreReadHoweverTheyArrive) {
    static const std::string head = "HTTP/1.1 200 OK\r\n", many(3'000'000, 'm');
    const struct {
        const char *name;
        std::string response;
        const char *code;
        std::string body;
        const char *error = nullptr;
        const char *method = XP_HTTP_GET;
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
        {"short", head + "Content-Length: 9\r\n\r\nabcd", "200", "abcd",
         "Short response : 9 bytes are required. 4 bytes are received"},
        {"short of what nobody can hold", head + "Content-Length: 4611686018427387904\r\n\r\nabcd", "200", "abcd",
         "Short response : 4611686018427387904 bytes are required. 4 bytes are received"},
        {"head", head + "Content-Length: 9\r\n\r\n", "200", "", nullptr, XP_HTTP_HEAD},
        {"chunks",
         head + "transfer-encoding: x\r\nContent-Length: 1\r\n\r\n3\r\nabc\r\n\r\n A \r\n0123456789\r\n-1\r\n0\r\n\r\n",
         "200", "0123456789"},
        {"chunk 0a", head + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0a\r\n0123456789", "200", "ab"},
        {"no chunk", head + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "200", ""},
        {"chunks cut off", head + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", "200", "ab"},
        {"chunk cut off", head + "Transfer-Encoding: chunked\r\n\r\n7FFFFFFF\r\nab\r\n", "200", "ab\r\n",
         "Short response : 2147483647 bytes are required. 4 bytes are received"},
    };
    for (const auto &c : cases)
        for (const int one_byte : {INT_MAX, 0}) { // 0: every read gives one byte
            if (one_byte == 0 && c.response.size() > 10'000) continue;
            SCOPED_TRACE(c.name);
            test_client client;
            ASSERT_EQ(client.get("HTTP/1.1 200 OK\r\n\r\nleft by an earlier request"), 1);
            client.method = c.method;
            const harness::fault_io pieces(harness::call::read, one_byte, 0);
            EXPECT_EQ(client.get(c.response), !c.error);
            EXPECT_STREQ(client.resp_code, c.code);
            EXPECT_TRUE(client.body() == c.body) << client.body().substr(0, 100);
            EXPECT_EQ(client.error().find(c.error ? c.error : ""), 0u) << client.error();
            EXPECT_LE(client.resp_body->capacity, std::max(2 * c.response.size(), size_t{2} << 20));
        }
}

TEST(Http, AStreamGetsEveryChunkAndItsFailuresAreTold) {
    const std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n";
    xp_membuf collected;
    xp_init_membuf(&collected, 16);
    xpi_iostream *stream = xpmb_create_iostream(&collected);
    test_client client;
    client.resp_stream = xpio_ostream(stream);
    EXPECT_EQ(client.get(chunks), 1);
    EXPECT_EQ(client.get("HTTP/1.1 200 OK\r\n\r\nto the end"), 1);
    EXPECT_STREQ(xpmb_tostr(&collected), "abcdeto the end");
    EXPECT_EQ(client.resp_body, nullptr);
    stream->flush = [](void *) -> int32_t { return 0; };
    EXPECT_EQ(client.get(chunks), 0);
    EXPECT_EQ(client.error(), "xpi_ostream.flush() fail : NO ERROR");
    stream->write = [](void *, const void *, uint32_t) -> int32_t { return -1; };
    EXPECT_EQ(client.get(chunks), 0);
    EXPECT_EQ(client.error(), "xpi_ostream.write() fail : NO ERROR");
    stream->destroy(stream);
    xp_close_membuf(&collected);
}

TEST(Http, CookiesAreTakenFromResponsesWhenAsked) {
    const char *const response =
        "HTTP/1.1 200 OK\r\nSet-Cookie: k=1; path=/\r\nset-cookie: e%20f=g+h\r\nSet-Cookie: k=2\r\n"
        "Set-Cookie: odd=;x=1\r\nSet-Cookie: old; path=/\r\nContent-Length: 0\r\n\r\n";
    test_client client;
    xphttp_add_cookie(&client, "old", "1");
    const auto value = [&](const char *name) {
        const char *text = static_cast<const char *>(xpht_get(client.cookie_table, name));
        return std::string(text ? text : "(none)");
    };
    EXPECT_EQ(client.get(response), 1);
    EXPECT_EQ(value("old"), "1");
    client.absorb_cookies = 1;
    EXPECT_EQ(client.get(response), 1);
    EXPECT_EQ(value("k"), "1") << "taken last, as it was received first";
    EXPECT_EQ(value("e f"), "g h");
    EXPECT_EQ(value("odd"), ";x=1");
    EXPECT_EQ(value("old"), "(none)");
    EXPECT_STREQ(xphttp_response_header(&client, "SET-COOKIE"), "old; path=/");
}

TEST(Http, RedirectsAreFollowedToTheEnd) {
    test_client client;
    client.max_redirects = 1;
    const auto post = [](xp_http *c, const xp_http_url *url) { return xphttp_post_url(c, url, "x", 1); };
    const std::string moved = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nSet-Cookie: s=1\r\nLocation: ";
    const std::string end = "HTTP/1.1 301 Moved\r\nSet-Cookie: s=2\r\nContent-Length: 1\r\n\r\n.";
    EXPECT_EQ(client.run({moved + "http://@/1\r\n\r\n", moved + "@\r\n\r\n", end}, post), 1);
    EXPECT_EQ(client.sent,
              replaced("POST /p#Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 1\r\n\r\nxGET "
                       "/1#Cookie: s=1\r\n\r\nGET /#Cookie: s=1\r\n\r\n",
                       "#", host_lines));
    EXPECT_EQ(client.body(), ".");
    EXPECT_EQ(client.redirect_count, 0);
    EXPECT_STREQ(static_cast<const char *>(xpht_get(client.cookie_table, "s")), "1");

    EXPECT_EQ(client.get(moved + "/relative\r\n\r\n"), 0);
    EXPECT_EQ(client.error(), "Malformed URL </relative>");
    EXPECT_EQ(client.redirect_count, 1);
    EXPECT_STREQ(xphttp_response_location(&client), "/relative");
}

TEST(Http, TheMaximumLengthTakesHoldWithTheBuffer) {
    test_client client;
    const auto get = [&](const std::string &body) {
        EXPECT_EQ(client.get("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body),
                  1);
        return client.body();
    };
    xphttp_set_response_maxlength(&client, 4);
    EXPECT_EQ(get("1234"), "1234");
    EXPECT_EQ(get("12345"), "");
    const int entries = xprp_last_index(&client.pool);
    for (const int limit : {2, 0}) {
        xphttp_set_response_maxlength(&client, limit);
        EXPECT_EQ(get("1234"), "1234") << "a lower limit, or none, leaves the buffer as it is";
        EXPECT_EQ(get("12345"), "");
    }
    xphttp_set_response_maxlength(&client, 5);
    EXPECT_EQ(client.resp_body, nullptr);
    EXPECT_EQ(get("12345"), "12345");
    EXPECT_EQ(xprp_last_index(&client.pool), entries);
}

TEST(Http, FailedRequestsAreToldAndLeaveTheClientUsable) {
    test_client client;
    EXPECT_EQ(xphttp_get(&client, "https://x/", nullptr), 0);
    EXPECT_EQ(client.error(), "Malformed URL <https://x/>");
    const auto fail = [&](scripted_peer &peer, const std::string &data, const char *error) {
        peer.start();
        const std::string url = "127.0.0.1:" + std::to_string(peer.port());
        EXPECT_EQ(xphttp_post(&client, url.c_str(), data.data(), static_cast<int>(data.size())), 0);
        EXPECT_EQ(client.error().find(error), 0u) << client.error();
        client.rbuf->timeout = -1;
        EXPECT_EQ(client.get("HTTP/1.1 200 OK\r\n\r\nfine"), 1) << client.error();
        EXPECT_EQ(client.body(), "fine");
    };
    int free_port;
    {
        scripted_peer stalling(scripted_peer::transport::tcp), resetting(scripted_peer::transport::tcp),
            deaf(scripted_peer::transport::tcp);
        free_port = stalling.port();
        fail(resetting.expect("POST").reset(), "", "xprb_read_line() fail : IOERROR_READ:errno=104<");
        fail(deaf.expect("POST").reset(), std::string(16 << 20, 'x'), "xpwb_flush() fail : IOERROR_WRITE:errno=");
        client.rbuf->timeout = 0;
        fail(stalling.stall(), "", "xprb_read_line() fail : IOERROR_READTIMEOUT:errno=");
    }
    const std::string url = "127.0.0.1:" + std::to_string(free_port);
    EXPECT_EQ(xphttp_get(&client, url.c_str(), nullptr), 0);
    EXPECT_EQ(client.error(), "xp_connect_tcp() fail : IOERROR_CONNECT <111=Connection refused>");
    EXPECT_EQ(client.body(), "");
    EXPECT_STREQ(client.resp_code, "");
}

TEST(Http, MemoryShortnessFailsTheRequestOnly) {
    harness::oom_sweep([] {
        xp_http *client = xp_create_http(nullptr);
        if (!client) return;
        EXPECT_STREQ(client->user_agent, "User-Agent: Mozilla/4.0 (compatible; MSIE 5.01; Windows NT 5.0)\r\n");
        scripted_peer peer(scripted_peer::transport::tcp);
        peer.send("HTTP/1.1 200 OK\r\n\r\nok").hang_up_write().stall();
        peer.start();
        const std::string url = "127.0.0.1:" + std::to_string(peer.port());
        const int done = xphttp_get(client, url.c_str(), nullptr);
        EXPECT_TRUE(done == 0 || strcmp(xpmb_tostr(client->resp_body), "ok") == 0);
        xp_destroy_http(client);
    });
}

} // namespace
