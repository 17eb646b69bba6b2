// The HTTP client against servers and a proxy that others have written.
#include <memory>
#include <random>

#include "support/harness.h"
#include "support/servers.h"
#include "vorncore/app/http.h"

namespace {

constexpr size_t sizes[] = {0, 1 << 10, 1 << 16, 16 << 20};

/// nginx with files of some sizes, before a backend that tells what it has read, and a forward proxy.
struct servers {
    harness::temporary_folder folder;
    harness::program backend{
        {harness::find_program("python3"), TEST_DATA "/http_backend.py", folder.path() + "/socket"}};
    harness::nginx web{
        "location = /old { add_header Set-Cookie 'hop=a%20b; path=/' always; return 302 http://@/older; }\n"
        "location = /older { return 301 http://@/backend/show?x; }\n"
        "location /backend/ { proxy_http_version 1.1; proxy_pass http://unix:" +
        folder.path() + "/socket:/; }\n"};
    std::string bytes = std::string(16 << 20, '\0');
    std::unique_ptr<harness::program> proxy;
    int proxy_port = 0;

    servers() {
        std::mt19937 random(1);
        for (char &byte : bytes) byte = static_cast<char>(random());
        for (const size_t size : sizes) web.folder().write(std::to_string(size), bytes.substr(0, size));
    }
    bool start() {
        if (!backend.says("ready\n")) return false;
        for (int attempt = 0; attempt < 5; attempt++) { // another program may take the port first
            proxy_port = harness::loopback_listener().port;
            folder.write("tinyproxy.conf",
                         "Port " + std::to_string(proxy_port) + "\nListen 127.0.0.1\nAllow 127.0.0.1\nLogLevel Info\n");
            proxy.reset(new harness::program(
                {harness::find_program("tinyproxy"), "-d", "-c", folder.path() + "/tinyproxy.conf"}));
            if (proxy->says("Accepting connections.")) return true;
        }
        return false;
    }
};

std::unique_ptr<servers> running;

class HttpServers : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        for (const char *name : {"nginx", "tinyproxy", "python3"})
            if (harness::find_program(name).empty()) return;
        running.reset(new servers);
        ASSERT_TRUE(running->start());
    }
    static void TearDownTestSuite() { running.reset(); }
    void SetUp() override {
        if (!running) GTEST_SKIP() << "needs nginx, tinyproxy and python3";
        xp_init_http(&client_, nullptr);
    }
    void TearDown() override {
        if (running) xp_close_http(&client_);
    }
    static std::string url(const std::string &path) { return "http://" + running->web.address() + "/" + path; }
    int get(const std::string &path) { return xphttp_get(&client_, url(path).c_str(), nullptr); }
    bool body_is(std::string_view expected) {
        const xp_membuf *body = client_.resp_body;
        return std::string_view(body->data, static_cast<size_t>(body->cursor - body->data)) == expected;
    }
    std::string text() { return xpmb_tostr(client_.resp_body); }
    xp_http client_;
};

TEST_F(HttpServers, FilesArriveWhole) {
    for (const size_t size : sizes) {
        ASSERT_EQ(get(std::to_string(size)), 1) << client_.errmsg;
        EXPECT_TRUE(body_is(std::string_view(running->bytes).substr(0, size))) << size;
    }
    client_.method = XP_HTTP_HEAD;
    EXPECT_EQ(get("16777216"), 1);
    EXPECT_STREQ(xphttp_response_header(&client_, "content-length"), "16777216");
    EXPECT_TRUE(body_is(""));
    client_.method = XP_HTTP_GET;
    EXPECT_EQ(get("absent"), 1);
    EXPECT_STREQ(client_.resp_code, "404");
}

TEST_F(HttpServers, ChunksArriveInAStream) {
    std::string expected;
    for (int64_t i = 0; i < 200'000; i++) expected += static_cast<char>(i * i / 7 % 251);
    xp_membuf body;
    xp_init_membuf(&body, 1024);
    xpi_iostream *stream = xpmb_create_iostream(&body);
    client_.resp_stream = xpio_ostream(stream);
    EXPECT_EQ(get("backend/chunked"), 1) << client_.errmsg;
    EXPECT_STREQ(xphttp_response_header(&client_, "Transfer-Encoding"), "chunked");
    EXPECT_TRUE(std::string(body.data, body.cursor) == expected);
    stream->destroy(stream);
    xp_close_membuf(&body);
}

TEST_F(HttpServers, RedirectsCarryCookies) {
    client_.max_redirects = 5;
    EXPECT_EQ(get("old"), 1);
    EXPECT_EQ(text(), "GET /show [('x', '')]\ncookie hop=a+b");
}

TEST_F(HttpServers, FormsAreUnderstood) {
    const char *const pairs[] = {"a b", "\xC3\xA4&=?", "", "+", nullptr};
    EXPECT_EQ(xphttp_get(&client_, url("backend/g?").c_str(), pairs), 1);
    EXPECT_EQ(text(), "GET /g [('a b', '\xC3\xA4&=?'), ('', '+')]");
    EXPECT_EQ(xphttp_post(&client_, url("backend/f").c_str(), "a=1&b=%26+x&c=", 14), 1);
    EXPECT_EQ(text(), "POST /f []\na|||31\nb|||262078\nc|||");
    EXPECT_EQ(xphttp_post_v(&client_, url("backend/m").c_str(), "text", "a\r\n\r\nb", -1, nullptr, nullptr, "file",
                            "\0\xFF\r\n-", 5, "f.bin", nullptr, "empty", "", 0, "t", "text/x", nullptr),
              1);
    EXPECT_EQ(
        text(),
        "POST /m []\ntext||text/plain|610d0a0d0a62\nfile|f.bin|application/octet-stream|00ff0d0a2d\nempty|t|text/x|");
}

TEST_F(HttpServers, AProxyForwards) {
    xphttp_set_proxy(&client_, "127.0.0.1", running->proxy_port);
    EXPECT_EQ(get("65536"), 1) << client_.errmsg;
    EXPECT_NE(xphttp_response_header(&client_, "Via"), nullptr);
    EXPECT_TRUE(body_is(running->bytes.substr(0, 65536)));
    EXPECT_EQ(xphttp_post(&client_, url("backend/f").c_str(), "a=1", 3), 1);
    EXPECT_EQ(text(), "POST /f []\na|||31");
    xphttp_set_proxy(&client_, nullptr, 0);
    EXPECT_EQ(get("1024"), 1);
    EXPECT_EQ(xphttp_response_header(&client_, "Via"), nullptr);
}

TEST_F(HttpServers, ManyRequestsLeaveNothingBehind) {
    EXPECT_EQ(get("1024"), 1);
    const long blocks = harness::live_blocks();
    const int descriptors = harness::open_descriptors();
    for (int i = 0; i < 2000; i++) ASSERT_EQ(get("1024"), 1) << client_.errmsg;
    EXPECT_EQ(harness::live_blocks(), blocks);
    EXPECT_EQ(harness::open_descriptors(), descriptors);
}

} // namespace
