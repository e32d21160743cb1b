// SPDX-License-Identifier: MIT
// edctl rs232 devices | control get | control set KEY=VALUE..., and edctl serial discover RULES_FILE
#include <cstdio>
#include <cstdlib>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

int devices(const context &ctx, const arguments &)
{
    std::vector<external_rs232_info> list;
    return run_operation(ctx, [&] {
        int result = ed_get_external_rs232_device_list(&list);
        if (result != 0)
            return result;
        if (ctx.json) {
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

// The settings by their names in the file; a text setting is unset by "", a number by -1.
struct text_setting {
    const char *key;
    std::string external_rs232_control::*member;
};
struct number_setting {
    const char *key;
    int external_rs232_control::*member;
};
struct flag_setting {
    const char *key;
    bool external_rs232_control::*member;
};
const text_setting kTexts[] = {
    {"builtin_TTY", &external_rs232_control::builtin_TTY},
    {"port", &external_rs232_control::port},
    {"baud_rate", &external_rs232_control::baud_rate},
    {"default_command", &external_rs232_control::default_command},
    {"focus_command", &external_rs232_control::focus_command},
    {"conflict_command", &external_rs232_control::conflict_command},
};
const number_setting kNumbers[] = {
    {"ignored_TTYUSB_A", &external_rs232_control::ignored_TTYUSB_A},
    {"ignored_TTYUSB_B", &external_rs232_control::ignored_TTYUSB_B},
};
const flag_setting kFlags[] = {
    {"disable_USB_camctrl", &external_rs232_control::disable_USB_camctrl},
    {"enable_USB_wenk9", &external_rs232_control::enable_USB_wenk9},
    {"enable_USB_zorvo", &external_rs232_control::enable_USB_zorvo},
};

void print_control(const context &ctx, const external_rs232_control &info)
{
    json_ptr json(cJSON_CreateObject());
    for (const auto &s : kTexts)
        cJSON_AddStringToObject(json.get(), s.key, (info.*s.member).c_str());
    for (const auto &s : kNumbers)
        cJSON_AddNumberToObject(json.get(), s.key, info.*s.member);
    for (const auto &s : kFlags)
        cJSON_AddBoolToObject(json.get(), s.key, info.*s.member);
    if (ctx.json) {
        print_json(json.get());
        return;
    }
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, json.get())
    {
        char *value = cJSON_IsString(member) ? nullptr : cJSON_PrintUnformatted(member);
        printf("%-20s %s\n", member->string, value != nullptr ? value : member->valuestring);
        cJSON_free(value);
    }
}

int apply_control_settings(const arguments &args, external_rs232_control *info)
{
    for (const std::string &arg : args) {
        size_t equals = arg.find('=');
        if (equals == std::string::npos)
            return usage_error("not KEY=VALUE: %s", arg.c_str());
        std::string key = arg.substr(0, equals), value = arg.substr(equals + 1);
        bool known = false;
        for (const auto &s : kTexts)
            if (key == s.key)
                info->*s.member = value, known = true;
        for (const auto &s : kNumbers) {
            if (key != s.key)
                continue;
            char *end = nullptr;
            long number = strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || number < -1 || number > 999)
                return usage_error("%s", (key + " takes a ttyUSB number, or -1 to unset").c_str());
            info->*s.member = static_cast<int>(number);
            known = true;
        }
        for (const auto &s : kFlags) {
            if (key != s.key)
                continue;
            if (value != "on" && value != "off" && value != "1" && value != "0")
                return usage_error("%s", (key + " takes on or off").c_str());
            info->*s.member = value == "on" || value == "1";
            known = true;
        }
        if (!known)
            return usage_error("unknown setting '%s'", key.c_str());
    }
    return 0;
}

int control_get(const context &ctx, const arguments &)
{
    external_rs232_control info;
    return run_operation(ctx, [&] {
        int result = ed_get_external_rs232_control_info(&info);
        if (result == 0)
            print_control(ctx, info);
        return result;
    });
}

int control_set(const context &ctx, const arguments &args)
{
    external_rs232_control info;
    ed_get_external_rs232_control_info(&info); // the stored settings are the starting point
    if (int rc = apply_control_settings(args, &info))
        return rc;
    return run_operation(ctx, [&] { return ed_set_external_rs232_control_info(info); });
}

int control(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kDeviceFile, control_get},
        {"set", 1, 32, kDeviceFile | kService, control_set},
    };
    return dispatch("rs232 control", actions, ctx, args);
}

int discover(const context &ctx, const arguments &args)
{
    std::vector<std::string> links, devices;
    if (ReadUdevRulesSYMLINK(args[0], &links) != 0) {
        fprintf(stderr, "edctl: serial discover failed: cannot read %s\n", args[0].c_str());
        return 1;
    }
    ChecksSYMLINKandGetDevice(&links, &devices);
    std::string console = GetCmdlineConsoleName();
    if (ctx.json) {
        json_ptr json(cJSON_CreateObject());
        cJSON *l = cJSON_AddArrayToObject(json.get(), "links");
        for (const std::string &link : links)
            cJSON_AddItemToArray(l, cJSON_CreateString(link.c_str()));
        cJSON *d = cJSON_AddArrayToObject(json.get(), "devices");
        for (const std::string &device : devices)
            cJSON_AddItemToArray(d, cJSON_CreateString(device.c_str()));
        cJSON_AddStringToObject(json.get(), "console", console.c_str());
        print_json(json.get());
        return 0;
    }
    for (const std::string &link : links)
        printf("link    %s\n", link.c_str());
    for (const std::string &device : devices)
        printf("device  %s\n", device.c_str());
    printf("console %s\n", console.c_str());
    return 0;
}

} // namespace

int run_rs232(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"devices", 0, 0, kService, devices},
        {"control", 1, 33, kNothing, control},
    };
    return dispatch("rs232", actions, ctx, args);
}

int run_serial(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"discover", 1, 1, kNothing, discover},
    };
    return dispatch("serial", actions, ctx, args);
}

} // namespace edctl
