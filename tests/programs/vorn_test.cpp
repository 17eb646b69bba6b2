#include "support/harness.h"
#include "support/peer.h"
#include "support/program.h"
#include "vorncore/base/version.h"

namespace {

TEST(Vorn, KeepsAndShowsEntries) {
    harness::service running;
    const std::string at = "127.0.0.1:" + std::to_string(running.port);
    std::string id, output;
    ASSERT_EQ(harness::run("./vorn kv " + at + " new", &id), 0);
    id.pop_back();
    const std::string kv = "./vorn kv --store " + id + " " + at + " ";
    const harness::scratch folder;
    const struct {
        std::string command;
        int code;
        std::string output;
    } cases[] = {
        {kv + "put 'a b=c#' 'x\ty\n\r'", 0, ""},
        {kv + "get 'a b=c#'", 0, "x\ty\n\r\n"},
        {kv + "list", 0, "a b=c#\tx\ty\n\r\n"},
        {kv + "del 'a b=c#'", 0, ""},
        {kv + "get 'a b=c#'", 1, "vorn kv: get: no such key or store\n"},
        {kv + "list", 0, ""},
        {"printf 'k=1\\n=\\tequals\\n\\nbad\\n=x\\ny=\\nk=2\\r\\na\\0b=c\\n' > {}/f; " + kv + "load {}/f", 1,
         "{}/f:4: neither a tab nor '='\n{}/f:5: no key\n{}/f:6: no value\n{}/f:8: a NUL byte\n"
         "3 entries stored, 4 lines left out\n"},
        {kv + "list | sort", 0, "=\tequals\nk\t2\n"},
        {kv + "list | " + kv + "check -", 0, "2 entries compared, 0 differ\n"},
        {"printf 'k=3\\nnone=x\\n' | " + kv + "check -", 1,
         "-:1: has another value in the store\n-:2: not in the store\n2 entries compared, 2 differ\n"},
        {"head -c 2000000 /dev/zero | tr '\\0' x | sed 's/^/k=/' | " + kv + "load -", 1,
         "-:1: 500 request too long\n0 entries stored, 1 lines left out\n"},
        {kv + "load no-such-file", 3,
         "vorn kv: no-such-file: No such file or directory\n0 entries stored, 0 lines left out\n"},
        {kv + "get k > /dev/full", 3, "vorn: cannot write to standard output\n"},
        {kv + "purge", 0, ""},
        {kv + "purge", 1, "vorn kv: purge: no such store\n"},
        {kv + "list", 1, "vorn kv: list: no such store\n"},
        {"./vorn kv " + at + " get k", 2,
         "vorn kv: --store with an id of at most 7 characters is needed for get, try --help\n"},
        {"./vorn kv --store 12345678 " + at + " purge", 2,
         "vorn kv: --store with an id of at most 7 characters is needed for purge, try --help\n"},
        {kv + "put k", 2, "vorn kv: wrong number of arguments for put, try --help\n"},
        {"./vorn kv nowhere new", 2, "vorn kv: no HOST:PORT: nowhere, try --help\n"},
    };
    for (const auto &c : cases) folder.expect(c.command, c.code, c.output);
    EXPECT_EQ(harness::run("./vorn kv bench --connections 2 --seconds 1 --ratio 1:1 " + at, &output), 0);
    EXPECT_NE(output.find("\nall "), std::string::npos) << output;
    EXPECT_EQ(running.end(SIGTERM), 0);
    EXPECT_EQ(harness::run(kv + "get k", &output), 3);
    EXPECT_NE(output.find("IOERROR_CONNECT:errno=111 (Connection refused)"), std::string::npos) << output;
}

TEST(Vorn, CodesFilesOfAnyBytesAndTellsAboutItself) {
    const harness::scratch folder;
    const struct {
        const char *command;
        int code;
        const char *output;
    } cases[] = {
        {"head -c 200000 /dev/urandom > {}/f; ./vorn base64 {}/f | base64 -d | cmp - {}/f", 0, ""},
        {"base64 {}/f | ./vorn base64 -d | cmp - {}/f", 0, ""},
        {"./vorn urlencode {}/f | ./vorn urlencode -d | cmp - {}/f", 0, ""},
        {"printf 'a b\\0/%%' | ./vorn urlencode", 0, "a+b%00%2F%25"},
        {"printf '%%4' | ./vorn urlencode -d -", 0, "%4"},
        {"printf 'YW' | ./vorn base64 -d", 1, "vorn base64: the input is no base64\n"},
        {"./vorn base64 no-such-file", 3, "vorn base64: no-such-file: No such file or directory\n"},
        {"./vorn urlencode -x", 2, "vorn urlencode: unexpected '-x', try --help\n"},
        {"./vorn date 0 'Sun Nov 06 08:49:37 1994' x | cat", 0,
         "vorn date: 'x' is neither a number nor an HTTP date since 1970\nThu, 01 Jan 1970 00:00:00 GMT\n784111777\n"},
        {"./vorn kv --help | grep -o '^Exit codes'", 0, "Exit codes\n"},
        {"./vorn --version | cut -b -20", 0, "Vorncore Library 1.1\n"},
        {"./vorn 2> /dev/null", 2, ""},
        {"{ ./vorn nonsense; echo $?; } 2>&1 | sed -n '1p;$p'", 0, "vorn: no command 'nonsense'\n2\n"},
    };
    for (const auto &c : cases) folder.expect(c.command, c.code, c.output);
}

TEST(Vorn, FetchesAndFollowsRedirectsAsFarAsAllowed) {
    const struct {
        const char *options;
        bool follows;
        int code;
        const char *output;
    } cases[] = {
        {"-L 1 -H 'X-A: 1' -b 'c=2'", true, 0, "hello"},
        {"-L 1 --max 4 -H X-A:1 -b c=2", true, 3, "the body is longer than --max"},
        {"-H X-A:1 -b c=2", false, 1, "moved"},
    };
    for (const auto &c : cases) {
        harness::scripted_peer peer(harness::scripted_peer::transport::tcp);
        const std::string at = "127.0.0.1:" + std::to_string(peer.port());
        const auto request = [&](const char *path) {
            return std::string("GET ") + path + " HTTP/1.1\r\nHost: " + at +
                   "\r\nConnection: close\r\nUser-Agent: vorn-fetch/" VORNCORE_VERSION_STRING
                   "\r\nCookie: c=2\r\nX-A: 1\r\n\r\n";
        };
        std::string output;
        peer.expect(request("/a")).send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 5\r\n\r\nmoved");
        if (c.follows) peer.accept_again().expect(request("/b")).send("HTTP/1.1 200 OK\r\n\r\nhello");
        peer.start();
        EXPECT_EQ(harness::run("./vorn fetch " + std::string(c.options) + " http://" + at + "/a", &output), c.code);
        EXPECT_NE(output.find(c.output), std::string::npos) << output;
    }
}

} // namespace
