// The table of edctl's commands: it serves both dispatch and --help.
#ifndef EDCTL_COMMANDS_H
#define EDCTL_COMMANDS_H

#include <string>
#include <vector>

namespace edctl {

struct context {
    bool json = false;
};

struct command {
    const char *name;
    const char *synopsis;
    const char *summary;
    const char *example;
    int (*run)(const context &context, const std::vector<std::string> &args);
};

const std::vector<command> &commands();
const command *find_command(const std::string &name);

// Prints "edctl: <message>" and the pointer to --help on stderr; returns the usage exit code 2.
int usage_error(const char *format, const char *argument);

// Prints a failed operation's result and its meaning on stderr; returns the exit code (0 or 1).
int report(const char *what, int result);

} // namespace edctl

#endif
