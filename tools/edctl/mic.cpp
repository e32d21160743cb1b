// SPDX-License-Identifier: MIT
// edctl mic on-list | central-state | central-test IP USER PASSWORD PROTOCOL
#include <cstdio>
#include <cstdlib>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

int on_list(const context &context, const arguments &)
{
    std::vector<mic_node> list;
    return run_operation(context, [&] {
        int result = ed_get_mic_on_list(&list);
        if (result != 0)
            return result;
        if (context.json) {
            json_ptr json(cJSON_CreateArray());
            for (const mic_node &node : list) {
                cJSON *entry = cJSON_CreateObject();
                cJSON_AddStringToObject(entry, "group", node.group.c_str());
                cJSON_AddStringToObject(entry, "id", node.id.c_str());
                cJSON_AddBoolToObject(entry, "on", node.on);
                cJSON_AddItemToArray(json.get(), entry);
            }
            print_json(json.get());
        } else {
            for (const mic_node &node : list)
                printf("group %s id %s %s\n", node.group.c_str(), node.id.c_str(), node.on ? "on" : "off");
        }
        return 0;
    });
}

int central_state(const context &context, const arguments &)
{
    int state = -1;
    return run_operation(context, [&] {
        int result = ed_get_mic_central_connection_state(&state);
        if (result != 0)
            return result;
        if (context.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddNumberToObject(json.get(), "isconnect", state);
            print_json(json.get());
        } else {
            printf("mic central: %s (%d)\n", state != 0 ? "connected" : "not connected", state);
        }
        return 0;
    });
}

int central_test(const context &context, const arguments &args)
{
    char *end = nullptr;
    long protocol = strtol(args[3].c_str(), &end, 10);
    if (args[3].empty() || *end != '\0' || protocol < -1 || protocol > 1000)
        return usage_error("PROTOCOL must be a protocol number, not '%s'", args[3].c_str());
    external_protocol_info info{true, static_cast<int32_t>(protocol), args[0], args[1], args[2], "", ""};
    return run_operation(context, [&] {
        int result = ed_mic_central_connection_test(info);
        if (result == 0 && context.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddBoolToObject(json.get(), "connected", true);
            print_json(json.get());
        } else if (result == 0) {
            printf("connection test succeeded\n");
        }
        return result;
    });
}

} // namespace

int run_mic(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"on-list", 0, 0, kService, on_list},
        {"central-state", 0, 0, kService, central_state},
        {"central-test", 4, 4, kService, central_test},
    };
    return dispatch("mic", actions, ctx, args);
}

} // namespace edctl
