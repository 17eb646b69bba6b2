// The subcommands of vorn: one source each, and a line in the table of main.cpp.
#pragma once

namespace vorn {

enum exit_code {
    exit_done = 0,
    exit_no = 1,      // asked and answered: not there, not equal, not all of it
    exit_usage = 2,   // the command line makes no sense
    exit_failure = 3, // the service, the network or a file failed
};

/// `arguments[0]` is the name of the subcommand.
struct command {
    const char *name;
    const char *summary;
    int (*run)(int count, char **arguments);
};

int base64(int count, char **arguments);
int date(int count, char **arguments);
int fetch(int count, char **arguments);
int kv(int count, char **arguments);
int md5(int count, char **arguments);
int scramble(int count, char **arguments);
int sql(int count, char **arguments);
int urlencode(int count, char **arguments);
int xml(int count, char **arguments);

} // namespace vorn
