#include <sstream>

#include "support/harness.h"
#include "support/peer.h"
#include "support/program.h"
#include "vorncore/base/version.h"

namespace {

TEST(Vorn, KeepsAndShowsEntries) {
    harness::service running;
    const std::string at = "127.0.0.1:" + std::to_string(running.port);
    const harness::scratch folder("at=" + at + "; kv() { ./vorn kv --store 1 $at \"$@\"; }; ");
    folder.expect({
        {"./vorn kv $at new", 0, "1\n"},
        {"kv put 'a b=c#' 'x\ty\n\r' && kv get 'a b=c#' && kv list && kv del 'a b=c#' && kv list", 0,
         "x\ty\n\r\na b=c#\tx\ty\n\r\n"},
        {"kv get 'a b=c#'", 1, "vorn kv: get: no such key or store\n"},
        {"printf 'k=1\\n=\\tequals\\n\\nbad\\n=x\\ny=\\nk=2\\r\\na\\0b=c\\n' | kv load -", 1,
         "-:4: neither a tab nor '='\n-:5: no key\n-:6: no value\n-:8: a NUL byte\n"
         "3 entries stored, 4 lines left out\n"},
        {"kv list | sort", 0, "=\tequals\nk\t2\n"},
        {"kv list | kv check -", 0, "2 entries compared, 0 differ\n"},
        {"printf 'k=3\\nnone=x\\n' | kv check -", 1,
         "-:1: has another value in the store\n-:2: not in the store\n2 entries compared, 2 differ\n"},
        {"head -c 2000000 /dev/zero | tr '\\0' x | sed 's/^/k=/' | kv load -", 1,
         "-:1: 500 request too long\n0 entries stored, 1 lines left out\n"},
        {"kv load none", 3, "vorn kv: none: No such file or directory\n0 entries stored, 0 lines left out\n"},
        {"kv purge", 0, ""},
        {"kv purge", 1, "vorn kv: purge: no such store\n"},
        {"kv list", 1, "vorn kv: list: no such store\n"},
        {"./vorn kv $at get k; ./vorn kv --store 12345678 $at purge", 2,
         "vorn kv: --store with an id of at most 7 characters is needed for get, try --help\n"
         "vorn kv: --store with an id of at most 7 characters is needed for purge, try --help\n"},
        {"kv put k", 2, "vorn kv: wrong number of arguments for put, try --help\n"},
        {"./vorn kv nowhere new", 2, "vorn kv: no HOST:PORT: nowhere, try --help\n"},
        {"./vorn kv bench --connections 2 --seconds 1 --ratio 1:1 $at | cut -b -4 | tail -n 1", 0, "all \n"},
        {"kill " + std::to_string(running.pid()), 0, ""},
    });
    EXPECT_EQ(running.end(0), 0);
    const std::string refused = at + ": IOERROR_CONNECT:errno=111 (Connection refused)\n";
    folder.expect({{"kv get k", 3, "vorn kv: cannot connect to " + refused}});
}

TEST(Vorn, CodesFilesOfAnyBytesAndTellsAboutItself) {
    harness::scratch().expect({
        {"head -c 200000 /dev/urandom > {}/f; ./vorn base64 {}/f | base64 -d | cmp - {}/f", 0, ""},
        {"base64 {}/f | ./vorn base64 -d | cmp - {}/f", 0, ""},
        {"./vorn urlencode {}/f | ./vorn urlencode -d | cmp - {}/f", 0, ""},
        {"printf 'a b\\0/%%' | ./vorn urlencode", 0, "a+b%00%2F%25"},
        {"printf '%%4' | ./vorn urlencode -d -", 0, "%4"},
        {"printf 'YW' | ./vorn base64 -d", 1, "vorn base64: the input is no base64\n"},
        {"./vorn base64 none", 3, "vorn base64: none: No such file or directory\n"},
        {"./vorn urlencode -x", 2, "vorn urlencode: unexpected '-x', try --help\n"},
        {"./vorn date 0 'Sun Nov 06 08:49:37 1994' x > {}/f; echo $?; cat {}/f", 0,
         "vorn date: 'x' is neither a number nor an HTTP date since 1970\n1\n"
         "Thu, 01 Jan 1970 00:00:00 GMT\n784111777\n"},
        {"./vorn kv --help | grep -o '^Exit codes'", 0, "Exit codes\n"},
        {"./vorn --version | cut -b -20", 0, "Vorncore Library 1.1\n"},
        {"./vorn 2> /dev/null", 2, ""},
        {"{ ./vorn nonsense; echo $?; } 2>&1 | sed -n '1p;$p'", 0, "vorn: no command 'nonsense'\n2\n"},
    });
}

TEST(VornFetch, FollowsRedirectsAsFarAsAllowed) {
    const struct {
        const char *options;
        int code;
        const char *output;
    } cases[] = {
        {"-L 1 -H 'X-A: 1' -b 'c=2'", 0, "hello"},
        {"-L 1 --max 4 -H X-A:1 -b c=2", 3,
         "vorn fetch: http://$/b: xpi_ostream.write() fail : the body is longer than --max\n"},
        {"-H X-A:1 -b c=2", 1, "moved"},
    };
    for (const auto &c : cases) {
        harness::scripted_peer peer(harness::scripted_peer::transport::tcp);
        const std::string at = "127.0.0.1:" + std::to_string(peer.port());
        const std::string rest = " HTTP/1.1\r\nHost: " + at + "\r\nConnection: close\r\nUser-Agent: vorn-fetch/" +
                                 VORNCORE_VERSION_STRING + "\r\nCookie: c=2\r\nX-A: 1\r\n\r\n";
        peer.expect("GET /a" + rest).send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 5\r\n\r\nmoved");
        if (c.code != 1) peer.accept_again().expect("GET /b" + rest).send("HTTP/1.1 200 OK\r\n\r\nhello");
        peer.start();
        harness::scratch().expect({{"./vorn fetch " + std::string(c.options) + " http://" + at + "/a", c.code,
                                    harness::replaced(c.output, "$", at)}});
    }
}

TEST(VornSql, PlaysItsSessions) {
    const std::string rows = "200 ok\nname,n,city\n\xC3\x84rger,#0,a#/b##\\\n\xE2\x82\xAC,,#nx\t\x1B\n\n";
    const struct {
        const char *command, *requests; // $ stands for the address of the gateway
        std::string replies;            // one for each line of the requests, | between them
        int code;
        const char *output;
    } sessions[] = {
        {"./vorn sql $ select", "*select \n", rows, 0,
         "name  | n    | city\n\xC3\x84rger | NULL | a,b#\\\n\xE2\x82\xAC     |      | \\nx\\t\\x1B\n"},
        {"./vorn sql -t $ select", "*select \n", rows, 0,
         "name\tn\tcity\n\xC3\x84rger\t\\N\ta,b#\\\\\n\xE2\x82\xAC\t\t\\nx\\t\x1B\n"},
        {"./vorn sql -l -n '<>' $ select", "*select \n", rows, 0,
         "name\nn\ncity\n\n\xC3\x84rger\n<>\na,b#\\\\\n\n\xE2\x82\xAC\n\n\\nx\\t\x1B\n\n"},
        {"./vorn sql -n '' $ 'insert ?' 'a,b' '' 'begin\n'", "*insert ? a#/b,#0,begin#n\n", "200 ok\n\n", 0, ""},
        {"./vorn sql $ commit 1", "*commit 1\n", "200 ok\n1,2\n3\n4,5,6\n\n", 0, "1 | 2\n3 | NULL\n4 | 5\n"},
        {"printf ' begin \\n\\nselect 1\\r\\ncommit\\nrollback\\nend' | ./vorn sql $", "TS\n*select 1 \nCI\nRB\nTE\n",
         "200 ok\n\n|200 ok\n1\n\n|200 ok\n\n|200 ok\n\n|200 ok\n\n", 0, "1\n"},
        {"printf 'one\\ntwo\\nthree\\n' | ./vorn sql -t $", "*one \n*two \n", "200 ok\n1\n\n|400 no such table\n", 1,
         "1\nvorn sql: line 2: 400 no such table\n"},
        {"printf 'a\\0b\\n' | ./vorn sql $", "", "", 1, "vorn sql: line 1: a NUL byte\n"},
        {"./vorn sql $ commit", "CI\n", "500 nothing to commit\n", 1, "vorn sql: 500 nothing to commit\n"},
        {"head -c 3000000 /dev/zero | tr '\\0' x | ./vorn sql $", "", "", 1,
         "vorn sql: line 1: COMMAND BUFFER OVERFLOW\n"},
        {"./vorn sql $ select", "*select \n", "200 ok\n1\n", 3, "vorn sql: the gateway closed the connection\n"},
        {"./vorn sql -t $ select", "*select \n", "200 ok\n1\n", 3, "1\nvorn sql: the gateway closed the connection\n"},
        {"./vorn sql -l $ select > /dev/full", "*select \n", rows, 3, "vorn: cannot write to standard output\n"},
        {"printf 'bad\\ngood\\n' | script -E never -qec './vorn sql $' /dev/null | tr -d '\\r'", "*bad \n*good \n",
         "400 bad\n|200 ok\n1\n\n", 0, "marrow> vorn sql: 400 bad\nmarrow> 1\n(1 row)\nmarrow> \n"},
        {"./vorn sql 127.0.0.1:1 x", "", "", 3,
         "vorn sql: cannot connect to 127.0.0.1:1: IOERROR_CONNECT:errno=111 (Connection refused)\n"},
        {"./vorn sql nowhere x", "", "", 2, "vorn sql: no HOST:PORT: nowhere, try --help\n"},
        {"./vorn sql -t", "", "", 2, "vorn sql: HOST:PORT is needed, try --help\n"},
        {"./vorn sql 127.0.0.1:1 'a\nb'", "", "", 2, "vorn sql: a statement is one line, try --help\n"},
    };
    for (const auto &s : sessions) {
        harness::scripted_peer gateway(harness::scripted_peer::transport::tcp);
        std::istringstream requests(s.requests), replies(s.replies);
        for (std::string request, reply; std::getline(requests, request) && std::getline(replies, reply, '|');)
            gateway.expect(request + '\n').send(reply);
        if (*s.requests) gateway.start();
        const std::string address = "127.0.0.1:" + std::to_string(gateway.port());
        harness::scratch().expect({{harness::replaced(s.command, "$", address), s.code, s.output}});
    }
}

} // namespace
