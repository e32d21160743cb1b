// edctl rs232 devices
#include <cstdio>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

int devices(const context &context, const arguments &)
{
    std::vector<external_rs232_info> list;
    return with_library("rs232 devices", [&] {
        int result = ed_get_external_rs232_device_list(&list);
        if (result != 0)
            return result;
        if (context.json) {
            json_ptr json(cJSON_CreateArray());
            for (const external_rs232_info &device : list) {
                cJSON *entry = cJSON_CreateObject();
                cJSON_AddNumberToObject(entry, "number", device.number);
                cJSON_AddStringToObject(entry, "port", device.port.c_str());
                cJSON_AddStringToObject(entry, "description", device.description.c_str());
                cJSON_AddItemToArray(json.get(), entry);
            }
            print_json(json.get());
        } else {
            for (const external_rs232_info &device : list)
                printf("%d %s %s\n", device.number, device.port.c_str(), device.description.c_str());
        }
        return 0;
    });
}

} // namespace

int run_rs232(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"devices", 0, 0, devices},
    };
    return dispatch("rs232", actions, ctx, args);
}

} // namespace edctl
