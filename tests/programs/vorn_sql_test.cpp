#include "support/harness.h"
#include "support/peer.h"
#include "support/program.h"

namespace {

struct session {
    const char *command; // @ stands for "./vorn sql", # for the address of the gateway
    std::vector<std::pair<const char *, std::string>> script; // what the gateway gets and what it answers
    int code;
    std::string output;
};

void play(const session &s) {
    SCOPED_TRACE(s.command);
    harness::scripted_peer gateway(harness::scripted_peer::transport::tcp);
    for (const auto &[request, reply] : s.script) gateway.expect(request).send(reply);
    gateway.start();
    std::string output;
    const std::string command = harness::replaced(harness::replaced(s.command, "@", "./vorn sql"), "#",
                                                  "127.0.0.1:" + std::to_string(gateway.port()));
    EXPECT_EQ(harness::run(command, &output), s.code);
    EXPECT_EQ(output, s.output);
}

const std::string rows = "200 ok\nname,n,city\n\xC3\x84rger,#0,a#/b##\\\n\xE2\x82\xAC,,#nx\t\x1B\n\n";

TEST(VornSql, PlaysItsSessions) {
    const session sessions[] = {
        {"@ # select",
         {{"*select \n", rows}},
         0,
         "name  | n    | city\n\xC3\x84rger | NULL | a,b#\\\n\xE2\x82\xAC     |      | \\nx\\t\\x1B\n"},
        {"@ -t # select",
         {{"*select \n", rows}},
         0,
         "name\tn\tcity\n\xC3\x84rger\t\\N\ta,b#\\\\\n\xE2\x82\xAC\t\t\\nx\\t\x1B\n"},
        {"@ -l -n '<>' # select",
         {{"*select \n", rows}},
         0,
         "name\nn\ncity\n\n\xC3\x84rger\n<>\na,b#\\\\\n\n\xE2\x82\xAC\n\n\\nx\\t\x1B\n\n"},
        {"@ -n '' # 'insert ?' 'a,b' '' 'begin\n'", {{"*insert ? a#/b,#0,begin#n\n", "200 ok\n\n"}}, 0, ""},
        {"@ # commit 1", {{"*commit 1\n", "200 ok\n1,2\n3\n4,5,6\n\n"}}, 0, "1 | 2\n3 | NULL\n4 | 5\n"},
        {"@ # begin", {{"TS\n", "200 ok\n\n"}}, 0, ""},
        {"printf ' begin \\n\\nselect 1\\r\\ncommit\\nrollback\\nend' | @ #",
         {{"TS\n", "200 ok\n\n"},
          {"*select 1 \n", "200 ok\n1\n\n"},
          {"CI\n", "200 ok\n\n"},
          {"RB\n", "200 ok\n\n"},
          {"TE\n", "200 ok\n\n"}},
         0,
         "1\n"},
        {"printf 'one\\ntwo\\nthree\\n' | @ -t #",
         {{"*one \n", "200 ok\n1\n\n"}, {"*two \n", "400 no such table\n"}},
         1,
         "1\nvorn sql: line 2: 400 no such table\n"},
        {"printf 'a\\0b\\n' | @ #", {}, 1, "vorn sql: line 1: a NUL byte\n"},
        {"@ # commit", {{"CI\n", "500 nothing to commit\n"}}, 1, "vorn sql: 500 nothing to commit\n"},
        {"head -c 3000000 /dev/zero | tr '\\0' x | @ #", {}, 1, "vorn sql: line 1: COMMAND BUFFER OVERFLOW\n"},
        {"@ # select", {{"*select \n", "200 ok\n1\n"}}, 3, "vorn sql: the gateway closed the connection\n"},
        {"@ -t # select", {{"*select \n", "200 ok\n1\n"}}, 3, "1\nvorn sql: the gateway closed the connection\n"},
        {"@ -l # select > /dev/full", {{"*select \n", rows}}, 3, "vorn: cannot write to standard output\n"},
    };
    for (const session &s : sessions) play(s);
}

TEST(VornSql, PromptsAtATerminalAndGoesOn) {
    harness::scripted_peer gateway(harness::scripted_peer::transport::tcp);
    gateway.expect("*bad \n").send("400 bad\n").expect("*good \n").send("200 ok\n1\n\n").start();
    std::string output;
    const std::string at = "127.0.0.1:" + std::to_string(gateway.port());
    EXPECT_EQ(harness::run("printf 'bad\\ngood\\n' | script -qec './vorn sql " + at + "' /dev/null", &output), 0);
    std::erase(output, '\r');
    for (const char *part : {"marrow> ", "vorn sql: 400 bad\n", "1\n(1 row)\nmarrow> "})
        EXPECT_NE(output.find(part), std::string::npos) << part << " in " << output;
}

TEST(VornSql, RefusesWhatMakesNoSense) {
    const session sessions[] = {
        {"@ 127.0.0.1:1 x",
         {},
         3,
         "vorn sql: cannot connect to 127.0.0.1:1: IOERROR_CONNECT:errno=111 (Connection refused)\n"},
        {"@ nowhere x", {}, 2, "vorn sql: no HOST:PORT: nowhere, try --help\n"},
        {"@ -t", {}, 2, "vorn sql: HOST:PORT is needed, try --help\n"},
        {"@ 127.0.0.1:1 'a\nb'", {}, 2, "vorn sql: a statement is one line, try --help\n"},
    };
    std::string output;
    for (const session &s : sessions) {
        std::string command = s.command;
        command.replace(0, 1, "./vorn sql");
        EXPECT_EQ(harness::run(command, &output), s.code) << command;
        EXPECT_EQ(output, s.output) << command;
    }
}

} // namespace
