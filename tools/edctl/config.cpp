// SPDX-License-Identifier: MIT
// edctl config, mic-central, castdeck, projector and tcp-control: the settings stored in
// /etc/external_device.json (under --root) and applied by the service.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "box_files.h"
#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

constexpr const char *kConfiguration = "/etc/external_device.json";

std::string configuration_path()
{
    return vask_tools::box_path(kConfiguration);
}

json_ptr read_configuration()
{
    return json_ptr(vask_tools::read_box_json(kConfiguration));
}

// A protocol given by number or by name (the first number with that name).
bool parse_protocol(const std::string &text, int32_t *protocol)
{
    char *end = nullptr;
    long number = strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0' && number >= -1 && number <= 1000) {
        *protocol = static_cast<int32_t>(number);
        return true;
    }
    for (int n = 0; n <= 30; ++n) {
        if (!text.empty() && GetProtocolString(n) == text) {
            *protocol = n;
            return true;
        }
    }
    return false;
}

void print_device(const context &ctx, const external_protocol_info &info)
{
    if (ctx.json) {
        json_ptr json(cJSON_CreateObject());
        cJSON_AddBoolToObject(json.get(), "enable", info.enable);
        cJSON_AddNumberToObject(json.get(), "protocol", info.protocol);
        cJSON_AddStringToObject(json.get(), "protocol_name", GetProtocolString(info.protocol).c_str());
        cJSON_AddStringToObject(json.get(), "ip_address", info.ip_address.c_str());
        cJSON_AddStringToObject(json.get(), "username", info.username.c_str());
        cJSON_AddStringToObject(json.get(), "password", info.password.c_str());
        cJSON_AddStringToObject(json.get(), "baud_rate", info.baud_rate.c_str());
        cJSON_AddStringToObject(json.get(), "port", info.port.c_str());
        print_json(json.get());
        return;
    }
    printf("enable:     %s\nprotocol:   %d (%s)\nip_address: %s\nusername:   %s\npassword:   %s\n"
           "baud_rate:  %s\nport:       %s\n",
           info.enable ? "yes" : "no", info.protocol, GetProtocolString(info.protocol).c_str(),
           info.ip_address.c_str(), info.username.c_str(), info.password.c_str(), info.baud_rate.c_str(),
           info.port.c_str());
}

// Applies KEY=VALUE arguments to `info`; returns 0 or the usage exit code.
int apply_settings(const arguments &args, external_protocol_info *info)
{
    if (args.empty())
        return usage_error("%s", "set needs KEY=VALUE settings (enable, protocol, ip_address, username, password, "
                                 "baud_rate, port)");
    for (const std::string &arg : args) {
        size_t equals = arg.find('=');
        std::string key = arg.substr(0, equals);
        std::string value = equals == std::string::npos ? std::string() : arg.substr(equals + 1);
        if (equals == std::string::npos)
            return usage_error("not KEY=VALUE: %s", arg.c_str());
        if (key == "enable") {
            if (value != "0" && value != "1" && value != "yes" && value != "no")
                return usage_error("enable takes 1, 0, yes or no, not '%s'", value.c_str());
            info->enable = value == "1" || value == "yes";
        } else if (key == "protocol") {
            if (!parse_protocol(value, &info->protocol))
                return usage_error("unknown protocol '%s'", value.c_str());
        } else if (key == "ip_address") {
            info->ip_address = value;
        } else if (key == "username") {
            info->username = value;
        } else if (key == "password") {
            info->password = value;
        } else if (key == "baud_rate") {
            info->baud_rate = value;
        } else if (key == "port") {
            info->port = value;
        } else {
            return usage_error("unknown setting '%s'", key.c_str());
        }
    }
    return 0;
}

// get and set of a control device: `read` fills the record, `write` stores and applies it.
int device_get(const context &ctx, int (*read)(external_protocol_info *))
{
    external_protocol_info info{false, -1, "", "", "", "", ""};
    return run_operation(ctx, [&] {
        int result = read(&info);
        if (result == 0)
            print_device(ctx, info);
        return result;
    });
}

int device_set(const context &ctx, const arguments &args, int (*read)(external_protocol_info *),
                int (*write)(const external_protocol_info &))
{
    external_protocol_info info{false, -1, "", "", "", "", ""};
    read(&info); // the stored settings are the starting point; a failed read leaves the defaults
    if (int rc = apply_settings(args, &info))
        return rc;
    return run_operation(ctx, [&] { return write(info); });
}

int validate(const context &ctx, const arguments &)
{
    ValidateJsonConfig();
    json_ptr document = read_configuration();
    const char *state = !document ? "missing or not JSON" : cJSON_IsObject(document.get()) ? "valid" : "not an object";
    if (ctx.json) {
        json_ptr json(cJSON_CreateObject());
        cJSON_AddStringToObject(json.get(), "path", configuration_path().c_str());
        cJSON_AddBoolToObject(json.get(), "valid", document && cJSON_IsObject(document.get()));
        print_json(json.get());
    } else {
        printf("%s: %s\n", configuration_path().c_str(), state);
    }
    return document && cJSON_IsObject(document.get()) ? 0 : 1;
}

int show(const context &ctx, const arguments &args)
{
    if (args.size() > 1)
        return usage_error("%s", "config show takes at most one SECTION");
    json_ptr document = read_configuration();
    if (!document) {
        fprintf(stderr, "edctl: config show failed: cannot read %s: missing or not valid JSON\n",
                configuration_path().c_str());
        return 1;
    }
    const cJSON *shown = document.get();
    if (!args.empty()) {
        shown = cJSON_GetObjectItemCaseSensitive(document.get(), args[0].c_str());
        if (shown == nullptr) {
            fprintf(stderr, "edctl: config show failed: no section '%s'\n", args[0].c_str());
            return 1;
        }
    }
    if (ctx.json) {
        print_json(shown);
    } else {
        char *text = cJSON_Print(shown);
        printf("%s\n", text != nullptr ? text : "");
        cJSON_free(text);
    }
    return 0;
}

int run_config(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"validate", 0, 0, kDeviceFile, validate},
        {"show", 0, 1, kDeviceFile, show},
    };
    return dispatch("config", actions, ctx, args);
}

} // namespace

int run_config_command(const context &ctx, const arguments &args)
{
    return run_config(ctx, args);
}

int run_mic_central(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kDeviceFile, [](const context &c, const arguments &) { return device_get(c, ed_get_mic_central_info); }},
        {"set", 1, 16, kDeviceFile | kService,
         [](const context &c, const arguments &a) { return device_set(c, a, ed_get_mic_central_info, ed_set_mic_central_info); }},
    };
    return dispatch("mic-central", actions, ctx, args);
}

int run_castdeck(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kDeviceFile, [](const context &c, const arguments &) { return device_get(c, ed_get_castdeck_info); }},
        {"set", 1, 16, kDeviceFile | kService,
         [](const context &c, const arguments &a) { return device_set(c, a, ed_get_castdeck_info, ed_set_castdeck_info); }},
    };
    return dispatch("castdeck", actions, ctx, args);
}

int run_projector(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kDeviceFile, [](const context &c, const arguments &) { return device_get(c, ed_get_projector_settings); }},
        {"pjlink", 2, 2, kDeviceFile | kService,
         [](const context &c, const arguments &a) {
             return run_operation(c, [&] { return ed_set_pjlink_settings(a[0], a[1]); });
         }},
        {"hitachi-tcp", 2, 2, kDeviceFile | kService,
         [](const context &c, const arguments &a) {
             return run_operation(c, [&] { return ed_set_hitachi_tcp_settings(a[0], a[1]); });
         }},
        {"hitachi-rs232", 1, 1, kDeviceFile | kService,
         [](const context &c, const arguments &a) {
             return run_operation(c, [&] { return ed_set_hitachi_rs232_settings(a[0]); });
         }},
        {"none", 0, 0, kDeviceFile | kService,
         [](const context &c, const arguments &) {
             return run_operation(c, [&] { return ed_set_none_settings(); });
         }},
        {"test-pjlink", 2, 2, kService,
         [](const context &c, const arguments &a) {
             return run_operation(c, [&] { return ed_pjlink_test(a[0], a[1]); });
         }},
        {"test-hitachi-tcp", 2, 2, kService,
         [](const context &c, const arguments &a) {
             return run_operation(c, [&] { return ed_hitachi_tcp_test(a[0], a[1]); });
         }},
    };
    return dispatch("projector", actions, ctx, args);
}

int run_tcp_control(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kDeviceFile,
         [](const context &c, const arguments &) {
             external_control_info info{false, "", "", ""};
             return run_operation(c, [&] {
                 int result = ed_get_tcp_control_settings(&info);
                 if (result == 0 && c.json) {
                     json_ptr json(cJSON_CreateObject());
                     cJSON_AddBoolToObject(json.get(), "authentication", info.authentication);
                     cJSON_AddStringToObject(json.get(), "port", info.port.c_str());
                     cJSON_AddStringToObject(json.get(), "baud_rate", info.baud_rate.c_str());
                     cJSON_AddStringToObject(json.get(), "portname", info.portname.c_str());
                     print_json(json.get());
                 } else if (result == 0) {
                     printf("authentication: %s\nport:           %s\nbaud_rate:      %s\nportname:       %s\n",
                            info.authentication ? "on" : "off", info.port.c_str(), info.baud_rate.c_str(),
                            info.portname.c_str());
                 }
                 return result;
             });
         }},
        {"set", 2, 2, kDeviceFile | kService,
         [](const context &c, const arguments &a) {
             if (a[0] != "on" && a[0] != "off")
                 return usage_error("tcp-control set takes on or off, not '%s'", a[0].c_str());
             return run_operation(c, [&] { return ed_set_tcp_control_settings(a[0] == "on", a[1]); });
         }},
    };
    return dispatch("tcp-control", actions, ctx, args);
}

} // namespace edctl
