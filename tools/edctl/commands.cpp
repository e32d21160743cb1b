// SPDX-License-Identifier: MIT
#include "commands.h"

#include <cstdio>

#include "box_files.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

// The box file an action reads or writes, or null.
const char *file_of(unsigned needs)
{
    if (needs & kDeviceFile)
        return "/etc/external_device.json";
    if (needs & kMicFile)
        return "/etc/microphone_control.json";
    return nullptr;
}

// True when `file` (a fixed path under the system root) holds a JSON object; true for no file.
bool readable(const char *file)
{
    json_ptr document(file != nullptr ? vask_tools::read_box_json(file) : nullptr);
    return file == nullptr || cJSON_IsObject(document.get());
}

// What a negative result means for an action with these needs. The library's -1 covers both a
// file it could not read and a service that answered with a failure: the file is looked at here.
std::string failure_meaning(unsigned needs, int result)
{
    const char *file = file_of(needs);
    const std::string path = file != nullptr ? vask_tools::box_path(file) : std::string();
    if (result == -1 && !readable(file))
        return "cannot read " + path + ": missing or not valid JSON";
    if (needs & kService) {
        switch (result) {
        case -1:
            return file != nullptr ? "the settings could not be stored in " + path +
                                         ", or the external_device service answered with a failure"
                                   : "the external_device service answered with a failure";
        case -2: return "the service refused the request (bad arguments)";
        case -3: return "the external_device service is not running";
        case -4: return "no answer from the external_device service within 8 s";
        default: return "general failure";
        }
    }
    switch (result) {
    case -1: return file != nullptr ? "the settings in " + path + " are missing or not valid" : "general failure";
    case -2: return "unknown selector or unsupported protocol";
    default: return "general failure";
    }
}

// Runs one action; one that needs the service only once the broker answers, with the library open.
int run_action(const std::string &what, const action &a, context context, const arguments &args)
{
    context.needs = a.needs;
    context.operation = what;
    if ((a.needs & kService) == 0)
        return a.run(context, args);
    if (!broker_answers())
        return not_connected(what);
    ed_init();
    int result = a.run(context, args);
    ed_release();
    return result;
}

} // namespace

const std::vector<command> &commands()
{
    static const std::vector<command> table = {
        {"voting", "get|enter|start|stop|exit", "read the delegate vote or move it to its next step",
         "edctl --json voting get", run_voting},
        {"mic", "on-list | central-state | central-test IP USER PASSWORD PROTOCOL",
         "list the microphones that are on, read or test the mic central's connection",
         "edctl mic central-test 192.0.2.10 admin secret 2", run_mic},
        {"rs232", "devices | control get | control set KEY=VALUE...",
         "list the RS232 devices the service sees; read or change the RS232 control options",
         "edctl rs232 control set port=ttyS1 baud_rate=9600 ignored_TTYUSB_A=0", run_rs232},
        {"serial", "discover RULES_FILE",
         "list the serial links a udev rules file makes, the devices behind them and the kernel console",
         "edctl serial discover /lib/udev/rules.d/99-box-serial.rules", run_serial},
        {"zorvo", "fw | macros | set-macro N SETTING... | goto N | init",
         "the USB remote controller: firmware versions, macros (scenes=N chK=on|off presetK=TEXT), run one",
         "edctl zorvo set-macro 2 scenes=3 ch1=on preset1=4", run_zorvo},
        {"imshare", "get | set on|off", "read or set image sharing", "edctl imshare set on", run_imshare},
        {"config", "validate | show [SECTION]",
         "check /etc/external_device.json (restoring the factory default when broken) or print it",
         "edctl --root /tmp/box config show projector_control", run_config_command},
        {"mic-central", "get | set KEY=VALUE...",
         "read or change the mic central's stored settings (enable, protocol, ip_address, username,\n"
         "               password, baud_rate, port) and have the service apply them",
         "edctl mic-central set protocol=shure-tcp ip_address=192.0.2.20 port=2202", run_mic_central},
        {"castdeck", "get | set KEY=VALUE...", "read or change the media station's settings (protocol 0, 1 or 21)",
         "edctl castdeck set protocol=1 ip_address=192.0.2.30 port=5000", run_castdeck},
        {"projector", "get | pjlink IP PASSWORD | hitachi-tcp IP PASSWORD | hitachi-rs232 BAUD | none |\n"
                      "             test-pjlink IP PASSWORD | test-hitachi-tcp IP PASSWORD",
         "read the projector settings, switch its protocol, or test a connection",
         "edctl projector pjlink 192.0.2.40 secret", run_projector},
        {"tcp-control", "get | set on|off PORT", "read or change external control over TCP",
         "edctl tcp-control set on 23", run_tcp_control},
        {"mic-control",
         "list [gr=G] [id=I] | set|delete|execute|simulate ITEM | home | conflicts [gr=G] |\n"
         "             conflict-set|conflict-delete ITEM | default-mode get|set CANCEL_MODE [ITEM] |\n"
         "             conflict-mode get|set ITEM | speakers-mode get|set multi_mode=N cancel_mode=N",
         "microphone control items, group conflicts and modes; ITEM is gr=1 id=7 nt=Chair c0=3 p0=1 l=2\n"
         "               or one JSON object",
         "edctl mic-control set gr=1 id=7 nt=Chair c0=3 p0=1 l=2", run_mic_control},
        {"watch", "[--count N] [EVENT...]",
         "print each signal of the service as it arrives (all five events unless named) until interrupted",
         "edctl --json watch --count 3 mic_on_event", run_watch},
        {"monitor", "[--count N] [--method M]... [--event E]...",
         "show everything on the bus for the service: requests with their callers, replies with their code\n"
         "               and time, signals and presence, until interrupted (filters: only the named methods/events)",
         "edctl --json monitor --method get_voting_info", run_monitor},
        {"sim", "press|release GROUP ID | vote CHOICE | cam-status JSON | info-change JSON | non-list-mic JSON |\n"
                "             emit EVENT PAYLOAD [COUNT] | reply METHOD TEXT|--none|--clear | state JSON | calls |\n"
                "             clear-calls | applied SECTION",
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
        std::string what = std::string(family) + " " + a.name;
        if (args.size() - 1 < a.min_arguments || args.size() - 1 > a.max_arguments)
            return usage_error("wrong number of arguments for %s", what.c_str());
        return run_action(what, a, context, arguments(args.begin() + 1, args.end()));
    }
    std::string message = std::string("unknown ") + family + " action '%s'";
    return usage_error(message.c_str(), args[0].c_str());
}

bool box_file_readable(const context &context)
{
    return readable(file_of(context.needs));
}

int report(const context &context, int result)
{
    if (result == 0)
        return 0;
    fprintf(stderr, "edctl: %s failed: %d (%s)\n", context.operation.c_str(), result,
            failure_meaning(context.needs, result).c_str());
    return 1;
}

int run_operation(const context &context, const std::function<int()> &operation)
{
    return report(context, operation());
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
