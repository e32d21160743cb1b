#include "commands.h"

#include <cstdio>

#include "libvask_external_device.h"

namespace edctl {

const std::vector<command> &commands()
{
    static const std::vector<command> table = {
        {"voting", "get|enter|start|stop|exit", "read the delegate vote or move it to its next step",
         "edctl --json voting get", run_voting},
        {"mic", "on-list | central-state | central-test IP USER PASSWORD PROTOCOL",
         "list the microphones that are on, read or test the mic central's connection",
         "edctl mic central-test 192.0.2.10 admin secret 2", run_mic},
        {"rs232", "devices", "list the RS232 serial devices the service sees", "edctl --json rs232 devices",
         run_rs232},
        {"imshare", "get | set on|off", "read or set image sharing", "edctl imshare set on", run_imshare},
        {"watch", "[--count N] [EVENT...]",
         "print each signal of the service as it arrives (all five events unless named) until interrupted",
         "edctl --json watch --count 3 mic_on_event", run_watch},
        {"sim", "press|release GROUP ID | vote CHOICE | cam-status JSON | info-change JSON | non-list-mic JSON |\n"
                "             emit EVENT PAYLOAD [COUNT] | reply METHOD TEXT|--none|--clear | state JSON | calls |\n"
                "             clear-calls",
         "drive external-device-sim through its control service", "edctl sim press 1 7", run_sim},
    };
    return table;
}

const command *find_command(const std::string &name)
{
    for (const command &c : commands())
        if (name == c.name)
            return &c;
    return nullptr;
}

int dispatch(const char *family, const std::vector<action> &actions, const context &context, const arguments &args)
{
    if (args.empty())
        return usage_error("%s needs an action", family);
    for (const action &a : actions) {
        if (args[0] != a.name)
            continue;
        if (args.size() - 1 < a.min_arguments || args.size() - 1 > a.max_arguments) {
            std::string what = std::string(family) + " " + a.name;
            return usage_error("wrong number of arguments for %s", what.c_str());
        }
        return a.run(context, arguments(args.begin() + 1, args.end()));
    }
    std::string message = std::string("unknown ") + family + " action '%s'";
    return usage_error(message.c_str(), args[0].c_str());
}

int report(const std::string &what, int result)
{
    if (result == 0)
        return 0;
    const char *meaning = "general failure (no connection to the bus, or the service refused)";
    switch (result) {
    case -2: meaning = "refused as invalid"; break;
    case -3: meaning = "the external_device service is offline"; break;
    case -4: meaning = "the service did not answer in time"; break;
    default: break;
    }
    fprintf(stderr, "edctl: %s failed: %d (%s)\n", what.c_str(), result, meaning);
    return 1;
}

int with_library(const std::string &what, const std::function<int()> &operation)
{
    ed_init();
    int result = operation();
    ed_release();
    return report(what, result);
}

void print_json(const cJSON *json)
{
    char *text = cJSON_PrintUnformatted(json);
    if (text != nullptr)
        printf("%s\n", text);
    cJSON_free(text);
    fflush(stdout);
}

} // namespace edctl
