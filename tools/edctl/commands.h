// SPDX-License-Identifier: MIT
// The table of edctl's commands: it serves both dispatch and --help.
#ifndef EDCTL_COMMANDS_H
#define EDCTL_COMMANDS_H

#include <cjson/cJSON.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vask_bus.h"

namespace edctl {

// What an action needs besides its arguments: the service (edctl then opens the library and its
// bus connection around the action) and the box file it reads or writes (named in its errors).
enum needs : unsigned {
    kNothing = 0,
    kService = 1u << 0,
    kDeviceFile = 1u << 1, // /etc/external_device.json
    kMicFile = 1u << 2,    // /etc/microphone_control.json
};

struct context {
    bool json = false;
    unsigned needs = kNothing; // of the action running, set by dispatch
    std::string operation;     // the running action's words ("rs232 control get"), set by dispatch
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
// what it needs (a combination of `needs`) and what runs it.
struct action {
    const char *name;
    size_t min_arguments;
    size_t max_arguments;
    unsigned needs;
    int (*run)(const context &context, const arguments &args);
};

const std::vector<command> &commands();
const command *find_command(const std::string &name);

// Runs the action of `family` named by args[0] with the arguments that follow; a usage error when
// there is none, it is unknown, or the count of its arguments differs. An action that needs the
// service runs only once the broker answers (else "not connected to <URL>", exit 1), with the
// library open.
int dispatch(const char *family, const std::vector<action> &actions, const context &context, const arguments &args);

// Prints "edctl: <message>" and the pointer to --help on stderr; returns the usage exit code 2.
int usage_error(const char *format, const char *argument);

// Prints a failed operation's result and its meaning, in the terms of what the running action
// needs (context.needs), on stderr; returns the exit code (0 or 1).
int report(const context &context, int result);

// False when the box file the running action reads (context.needs) is missing or not a JSON object.
bool box_file_readable(const context &context);

// Runs `operation` and reports its result as the running action's.
int run_operation(const context &context, const std::function<int()> &operation);

// The broker edctl uses: --bus, else VASK_BUS_URL, else mqtt://127.0.0.1:1883.
std::string bus_url();

// True when the broker of bus_url() accepts a connection of edctl's own within the bus library's
// 2 s. The library's client cannot tell: it keeps trying in the background and fails each call.
bool broker_answers();

// Prints "edctl: <what> failed: not connected to <URL>" on stderr; returns the exit code 1.
int not_connected(const std::string &what);

// A bus client of edctl's own, connected to bus_url() within the bus library's 2 s when the broker
// answers; freed, with the bus library, on destruction.
class own_client {
public:
    explicit own_client(const char *name);
    ~own_client();
    own_client(const own_client &) = delete;
    own_client &operator=(const own_client &) = delete;
    bool connected() const { return connected_; }
    bus_client *get() const { return client_; }

private:
    bool started_ = false;
    bus_client *client_ = nullptr;
    bool connected_ = false;
};

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
