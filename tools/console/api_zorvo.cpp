// SPDX-License-Identifier: MIT
// The USB remote controller's firmware and macros, and the check of the configuration file.
#include <libvask_external_device.h>

#include "api.h"
#include "records.h"

namespace console {

namespace {

api_reply get_firmware(const api_request &)
{
    external_zorvo_fw_info info;
    int rc = ed_get_zorvo_fw_info(&info);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON_AddStringToObject(out.get(), "fw", info.fw.c_str());
    cJSON_AddStringToObject(out.get(), "bootloader_fw", info.bootloader_fw.c_str());
    cJSON_AddStringToObject(out.get(), "model", GetFirmwareModelName().c_str());
    return ok(std::move(out));
}

api_reply get_macros(const api_request &)
{
    std::vector<external_zorvo_macro_info> macros;
    int rc = ed_get_zorvo_macro_info(&macros);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON *array = cJSON_AddArrayToObject(out.get(), "macros");
    for (const external_zorvo_macro_info &macro : macros) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddNumberToObject(entry, "index", macro.index);
        cJSON_AddNumberToObject(entry, "scenes", macro.scenes);
        cJSON *channels = cJSON_AddArrayToObject(entry, "channels");
        for (const macro_channel &channel : macro.channels) {
            cJSON *c = cJSON_CreateObject();
            cJSON_AddNumberToObject(c, "channel", channel.channel);
            cJSON_AddBoolToObject(c, "enable", channel.enable);
            cJSON_AddStringToObject(c, "preset", channel.preset.c_str());
            cJSON_AddItemToArray(channels, c);
        }
        cJSON_AddItemToArray(array, entry);
    }
    return ok(std::move(out));
}

// Macro numbers in a path: 1 to 99 (the largest box has 9).
int macro_number(const std::string &text)
{
    if (text.empty() || text.size() > 2 || text[0] < '1' || text[0] > '9' ||
        (text.size() == 2 && (text[1] < '0' || text[1] > '9')))
        return -1;
    return std::stoi(text);
}

problem merge_channels(const cJSON *channels, external_zorvo_macro_info &macro)
{
    if (!cJSON_IsArray(channels))
        return "\"channels\" must be an array";
    if (cJSON_GetArraySize(channels) > static_cast<int>(macro.channels.size()))
        return "this box's macros have " + std::to_string(macro.channels.size()) + " channels";
    size_t position = 0;
    for (const cJSON *entry = channels->child; entry; entry = entry->next, ++position) {
        static const char *const known[] = {"channel", "enable", "preset", nullptr};
        macro_channel &channel = macro.channels[position];
        problem bad = cJSON_IsObject(entry) ? unknown_member(entry, known) : "each channel must be an object";
        if (bad.empty())
            bad = read_bool(entry, "enable", channel.enable, false);
        if (bad.empty())
            bad = read_string(entry, "preset", channel.preset, false);
        if (!bad.empty())
            return "channel " + std::to_string(position + 1) + ": " + bad;
    }
    return problem();
}

api_reply set_macro(const api_request &request)
{
    static const char *const known[] = {"scenes", "channels", nullptr};
    int number = macro_number(request.param(0));
    std::vector<external_zorvo_macro_info> macros;
    int rc = ed_get_zorvo_macro_info(&macros);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    if (number < 1 || number > static_cast<int>(macros.size()))
        return refusal(404, "this box has macros 1 to " + std::to_string(macros.size()));
    external_zorvo_macro_info &macro = macros[static_cast<size_t>(number - 1)];
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_int(request.body, "scenes", macro.scenes, false);
    if (bad.empty() && macro.scenes < 0)
        bad = "\"scenes\" must be a whole number from 0";
    const cJSON *channels = cJSON_GetObjectItemCaseSensitive(request.body, "channels");
    if (bad.empty() && channels)
        bad = merge_channels(channels, macro);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(ed_set_zorvo_macro_info(macros), op_kind::file);
}

api_reply goto_macro(const api_request &request)
{
    int number = macro_number(request.param(0));
    if (number < 1)
        return refusal(404, "no such macro \"" + request.param(0) + "\"");
    return from_result(ed_zorvo_goto_macro(number), op_kind::service);
}

api_reply validate_config(const api_request &) { return from_result(ValidateJsonConfig(), op_kind::file); }

} // namespace

std::vector<api_route> zorvo_routes()
{
    return {
        {"GET", "/api/zorvo/firmware", get_firmware},
        {"GET", "/api/zorvo/macros", get_macros},
        {"PUT", "/api/zorvo/macros/([^/]+)", set_macro},
        {"POST", "/api/zorvo/macros/([^/]+)/goto", goto_macro},
        {"POST", "/api/config/validate", validate_config},
    };
}

} // namespace console
