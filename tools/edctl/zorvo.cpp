// SPDX-License-Identifier: MIT
// edctl zorvo fw | macros | set-macro N SETTING... | goto N | init: the USB remote controller.
#include <cstdio>
#include <cstdlib>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

bool parse_number(const std::string &text, int *number)
{
    char *end = nullptr;
    long value = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < -1000000 || value > 1000000)
        return false;
    *number = static_cast<int>(value);
    return true;
}

int fw(const context &ctx, const arguments &)
{
    external_zorvo_fw_info info;
    return run_operation(ctx, [&] {
        int result = ed_get_zorvo_fw_info(&info);
        if (result == 0 && ctx.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddStringToObject(json.get(), "fw", info.fw.c_str());
            cJSON_AddStringToObject(json.get(), "bootloader_fw", info.bootloader_fw.c_str());
            print_json(json.get());
        } else if (result == 0) {
            printf("fw:            %s\nbootloader_fw: %s\n", info.fw.c_str(), info.bootloader_fw.c_str());
        }
        return result;
    });
}

int macros(const context &ctx, const arguments &)
{
    std::vector<external_zorvo_macro_info> list;
    return run_operation(ctx, [&] {
        int result = ed_get_zorvo_macro_info(&list);
        if (result != 0)
            return result;
        json_ptr json(cJSON_CreateArray());
        for (const auto &macro : list) {
            cJSON *entry = cJSON_CreateObject();
            cJSON_AddNumberToObject(entry, "index", macro.index);
            cJSON_AddNumberToObject(entry, "scenes", macro.scenes);
            cJSON *channels = cJSON_AddArrayToObject(entry, "channels");
            for (const auto &channel : macro.channels) {
                cJSON *c = cJSON_CreateObject();
                cJSON_AddNumberToObject(c, "channel", channel.channel);
                cJSON_AddBoolToObject(c, "enable", channel.enable);
                cJSON_AddStringToObject(c, "preset", channel.preset.c_str());
                cJSON_AddItemToArray(channels, c);
            }
            cJSON_AddItemToArray(json.get(), entry);
        }
        if (ctx.json) {
            print_json(json.get());
            return 0;
        }
        for (const auto &macro : list) {
            printf("Macro_%d scenes=%d", macro.index, macro.scenes);
            for (const auto &channel : macro.channels)
                printf(" ch%d=%s/%s", channel.channel, channel.enable ? "on" : "off", channel.preset.c_str());
            printf("\n");
        }
        return 0;
    });
}

// set-macro N scenes=S chK=on|off presetK=P ...: changes one macro and keeps the others.
int set_macro(const context &ctx, const arguments &args)
{
    int index = 0;
    if (!parse_number(args[0], &index) || index < 1)
        return usage_error("macro number must be 1 or more, not '%s'", args[0].c_str());
    std::vector<external_zorvo_macro_info> list;
    ed_get_zorvo_macro_info(&list);
    external_zorvo_macro_info *macro = nullptr;
    for (auto &m : list)
        if (m.index == index)
            macro = &m;
    if (macro == nullptr)
        return usage_error("this box has no macro %s", args[0].c_str());
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &arg = args[i];
        size_t equals = arg.find('=');
        std::string key = arg.substr(0, equals), value = equals == std::string::npos ? "" : arg.substr(equals + 1);
        int number = 0;
        if (key == "scenes" && parse_number(value, &number)) {
            macro->scenes = number;
            continue;
        }
        bool preset = key.rfind("preset", 0) == 0;
        bool channel = key.rfind("ch", 0) == 0;
        if ((preset || channel) && parse_number(key.substr(preset ? 6 : 2), &number) && number >= 1 &&
            number <= static_cast<int>(macro->channels.size())) {
            if (preset)
                macro->channels[static_cast<size_t>(number - 1)].preset = value;
            else if (value == "on" || value == "off")
                macro->channels[static_cast<size_t>(number - 1)].enable = value == "on";
            else
                return usage_error("%s", (key + " takes on or off").c_str());
            continue;
        }
        return usage_error("not a macro setting (scenes=N, chK=on|off, presetK=TEXT): %s", arg.c_str());
    }
    return run_operation(ctx, [&] { return ed_set_zorvo_macro_info(list); });
}

int go_to(const context &ctx, const arguments &args)
{
    int index = 0;
    if (!parse_number(args[0], &index))
        return usage_error("macro number expected, not '%s'", args[0].c_str());
    return run_operation(ctx, [&] { return ed_zorvo_goto_macro(index); });
}

int init(const context &ctx, const arguments &)
{
    return run_operation(ctx, [] { return InitExternalZORVOControlConfig(); });
}

} // namespace

int run_zorvo(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"fw", 0, 0, kDeviceFile, fw},
        {"macros", 0, 0, kDeviceFile, macros},
        {"set-macro", 2, 64, kDeviceFile, set_macro},
        {"goto", 1, 1, kService, go_to},
        {"init", 0, 0, kDeviceFile, init},
    };
    return dispatch("zorvo", actions, ctx, args);
}

} // namespace edctl
