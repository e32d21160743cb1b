// The table of edctl's commands: it serves both dispatch and --help.
#ifndef EDCTL_COMMANDS_H
#define EDCTL_COMMANDS_H

#include <cjson/cJSON.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace edctl {

struct context {
    bool json = false;
};

using arguments = std::vector<std::string>;

struct command {
    const char *name;
    const char *synopsis;
    const char *summary;
    const char *example;
    int (*run)(const context &context, const arguments &args);
};

// One action of a command family ("get", "set", ...): its name, how many arguments may follow it,
// and what runs it.
struct action {
    const char *name;
    size_t min_arguments;
    size_t max_arguments;
    int (*run)(const context &context, const arguments &args);
};

const std::vector<command> &commands();
const command *find_command(const std::string &name);

// Runs the action of `family` named by args[0] with the arguments that follow; a usage error when
// there is none, it is unknown, or the count of its arguments differs.
int dispatch(const char *family, const std::vector<action> &actions, const context &context, const arguments &args);

// Prints "edctl: <message>" and the pointer to --help on stderr; returns the usage exit code 2.
int usage_error(const char *format, const char *argument);

// Prints a failed operation's result and its meaning on stderr; returns the exit code (0 or 1).
int report(const std::string &what, int result);

// Opens the library, runs `operation`, closes the library and reports its result as `what`.
int with_library(const std::string &what, const std::function<int()> &operation);

struct json_deleter {
    void operator()(cJSON *json) const { cJSON_Delete(json); }
};
using json_ptr = std::unique_ptr<cJSON, json_deleter>;

// Prints `json` unformatted on one line of standard output and flushes it.
void print_json(const cJSON *json);

// The command families, one file each.
int run_voting(const context &context, const arguments &args);
int run_mic(const context &context, const arguments &args);
int run_rs232(const context &context, const arguments &args);
int run_imshare(const context &context, const arguments &args);
int run_watch(const context &context, const arguments &args);
int run_monitor(const context &context, const arguments &args);
int run_sim(const context &context, const arguments &args);
int run_config_command(const context &context, const arguments &args);
int run_mic_central(const context &context, const arguments &args);
int run_castdeck(const context &context, const arguments &args);
int run_projector(const context &context, const arguments &args);
int run_tcp_control(const context &context, const arguments &args);
int run_serial(const context &context, const arguments &args);
int run_zorvo(const context &context, const arguments &args);
int run_mic_control(const context &context, const arguments &args);

} // namespace edctl

#endif
