// SPDX-License-Identifier: MIT
// edctl imshare get | set on|off
#include <cstdio>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

int get(const context &context, const arguments &)
{
    imshare_info info{false};
    return run_operation(context, [&] {
        int result = ed_get_imshare_info(&info);
        if (result == 0 && context.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddBoolToObject(json.get(), "hid", info.hid);
            print_json(json.get());
        } else if (result == 0) {
            printf("image sharing: %s\n", info.hid ? "on" : "off");
        }
        return result;
    });
}

int set(const context &context, const arguments &args)
{
    if (args[0] != "on" && args[0] != "off")
        return usage_error("imshare set takes on or off, not '%s'", args[0].c_str());
    imshare_info info{args[0] == "on"};
    return run_operation(context, [&] { return ed_set_imshare_info(info); });
}

} // namespace

int run_imshare(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kService, get},
        {"set", 1, 1, kService, set},
    };
    return dispatch("imshare", actions, ctx, args);
}

} // namespace edctl
