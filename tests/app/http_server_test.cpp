// The HTTP client against servers and a proxy that others have written.
#include <memory>
#include <random>

#include "support/harness.h"
#include "support/servers.h"
#include "vorncore/app/http.h"

namespace {

using harness::find_program;

constexpr size_t sizes[] = {0, 1 << 10, 1 << 16, 16 << 20};

/// nginx with files of some sizes, before a backend that tells what it has read, and a forward proxy.
struct servers {
    harness::temporary_folder folder;
    harness::program backend{{find_program("python3"), TEST_DATA "/http_backend.py", folder.path() + "/socket"}};
    harness::nginx web{
        "location = /old { add_header Set-Cookie 'hop=a%20b; path=/' always; return 302 http://@/older; }\n"
        "location = /older { return 301 http://@/backend/show?x; }\n"
        "location /backend/ { proxy_http_version 1.1; proxy_pass http://unix:" +
        folder.path() + "/socket:/; }\n"};
    std::string bytes = std::string(16 << 20, '\0');
    std::unique_ptr<harness::program> proxy;
    int proxy_port = 0;

    bool start() {
        std::generate(bytes.begin(), bytes.end(), std::mt19937(1));
        for (const size_t size : sizes) web.folder().write(std::to_string(size), bytes.substr(0, size));
        for (int attempt = 0; attempt < 5; attempt++) { // another program may take the port first
            proxy_port = harness::loopback_listener().port;
            folder.write("conf", "Port " + std::to_string(proxy_port) + "\nListen 127.0.0.1\nLogLevel Info\n");
            proxy.reset(new harness::program({find_program("tinyproxy"), "-d", "-c", folder.path() + "/conf"}));
            if (proxy->says("Accepting connections.")) return backend.says("ready\n");
        }
        return false;
    }
};

std::unique_ptr<servers> running;

struct HttpServers : testing::Test {
    xp_http client;

    HttpServers() { xp_init_http(&client, nullptr); }
    ~HttpServers() override { xp_close_http(&client); }
    static void SetUpTestSuite() {
        for (const char *name : {"nginx", "tinyproxy", "python3"})
            if (find_program(name).empty()) return;
        running.reset(new servers);
        ASSERT_TRUE(running->start());
    }
    static void TearDownTestSuite() { running.reset(); }
    void SetUp() override {
        if (!running) GTEST_SKIP() << "needs nginx, tinyproxy and python3";
    }

    static std::string at(const std::string &path) { return "http://" + running->web.address() + "/" + path; }
    std::string get(const std::string &path, const char *const *pairs = nullptr) {
        return text(xphttp_get(&client, at(path).c_str(), pairs));
    }
    std::string text(int result) const {
        return result ? std::string(client.resp_body->data, client.resp_body->cursor) : client.errmsg;
    }
};

TEST_F(HttpServers, FilesArriveWholeAndRequestsLeaveNothingBehind) {
    for (const size_t size : sizes) EXPECT_TRUE(get(std::to_string(size)) == running->bytes.substr(0, size)) << size;
    const long blocks = harness::live_blocks();
    const int descriptors = harness::open_descriptors();
    for (int i = 0; i < 2000; i++) ASSERT_EQ(get("1024").size(), 1024U);
    EXPECT_EQ(harness::live_blocks(), blocks);
    EXPECT_EQ(harness::open_descriptors(), descriptors);
    client.method = XP_HTTP_HEAD;
    EXPECT_EQ(get("16777216"), "");
    EXPECT_STREQ(xphttp_response_header(&client, "content-length"), "16777216");
    EXPECT_EQ(get("absent"), "");
    EXPECT_STREQ(client.resp_code, "404");
}

TEST_F(HttpServers, ChunksArriveInAStream) {
    std::string expected;
    for (int64_t i = 0; i < 200'000; i++) expected += static_cast<char>(i * i / 7 % 251);
    xp_membuf body;
    xp_init_membuf(&body, 1024);
    xpi_iostream *stream = xpmb_create_iostream(&body);
    client.resp_stream = xpio_ostream(stream);
    EXPECT_EQ(xphttp_get(&client, at("backend/chunked").c_str(), nullptr), 1) << client.errmsg;
    EXPECT_STREQ(xphttp_response_header(&client, "Transfer-Encoding"), "chunked");
    EXPECT_TRUE(std::string(body.data, body.cursor) == expected);
    stream->destroy(stream);
    xp_close_membuf(&body);
}

TEST_F(HttpServers, FormsCookiesRedirectsAndAProxyAreUnderstood) {
    const char *const pairs[] = {"a b", "\xC3\xA4&=?", "", "+", nullptr};
    EXPECT_EQ(get("backend/g?", pairs), "GET /g [('a b', '\xC3\xA4&=?'), ('', '+')]");
    EXPECT_EQ(text(xphttp_post(&client, at("backend/f").c_str(), "a=1&b=%26+x&c=", 14)),
              "POST /f []\na|||31\nb|||262078\nc|||");
    EXPECT_EQ(text(xphttp_post_v(&client, at("backend/m").c_str(), "text", "a\r\n\r\nb", -1, nullptr, nullptr, "file",
                                 "\0\xFF\r\n-", 5, "f.bin", nullptr, "empty", "", 0, "t", "text/x", nullptr)),
              "POST /m []\ntext||text/plain|610d0a0d0a62\nfile|f.bin|application/octet-stream|00ff0d0a2d\n"
              "empty|t|text/x|");
    client.max_redirects = 5;
    EXPECT_EQ(get("old"), "GET /show [('x', '')]\ncookie hop=a+b");
    EXPECT_EQ(xphttp_response_header(&client, "Via"), nullptr);
    xphttp_set_proxy(&client, "127.0.0.1", running->proxy_port);
    EXPECT_TRUE(get("65536") == running->bytes.substr(0, 65536));
    EXPECT_NE(xphttp_response_header(&client, "Via"), nullptr);
}

} // namespace
