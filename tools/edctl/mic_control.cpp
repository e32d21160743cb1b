// SPDX-License-Identifier: MIT
// edctl mic-control ...: the microphone control items, group conflicts and modes of
// /etc/microphone_control.json, stored by the library and acted on by the service.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

// An item from the command line: one JSON object, or words such as gr=1 id=7 nt=Chair c0=3 p0=1 l=2.
int parse_item(const arguments &args, microphone_info *info)
{
    json_ptr object;
    if (args.size() == 1 && !args[0].empty() && args[0][0] == '{') {
        object.reset(cJSON_Parse(args[0].c_str()));
        if (!cJSON_IsObject(object.get()))
            return usage_error("not a JSON object: %s", args[0].c_str());
    } else {
        object.reset(cJSON_CreateObject());
        for (const std::string &arg : args) {
            size_t equals = arg.find('=');
            if (equals == std::string::npos || equals == 0)
                return usage_error("not KEY=VALUE: %s", arg.c_str());
            std::string key = arg.substr(0, equals), value = arg.substr(equals + 1);
            if (key == "gr" || key == "id" || key == "nt") {
                cJSON_AddStringToObject(object.get(), key.c_str(), value.c_str());
                continue;
            }
            char *end = nullptr;
            long number = strtol(value.c_str(), &end, 10);
            bool numeric_key = key == "l" || key == "o" || key == "b" || key == "s" ||
                               ((key[0] == 'c' || key[0] == 'p') && key.size() == 2 && isdigit(key[1]));
            if (!numeric_key)
                return usage_error("unknown item key '%s' (gr, id, nt, c0..c8, p0..p8, l, o, b, s)", key.c_str());
            if (value.empty() || *end != '\0')
                return usage_error("%s", (key + " takes a number").c_str());
            cJSON_AddNumberToObject(object.get(), key.c_str(), static_cast<double>(number));
        }
    }
    cJSON_GetMicroPhoneInfo(object.get(), info);
    return 0;
}

// The item's JSON form: every set key, in the file's order.
json_ptr item_json(microphone_info info)
{
    json_ptr json(cJSON_CreateObject());
    cJSON_AddMicroPhoneInfo(json.get(), &info, false, false);
    return json;
}

std::string item_words(const microphone_info &info)
{
    json_ptr json = item_json(info);
    std::string words;
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, json.get())
    {
        words += words.empty() ? "" : " ";
        words += std::string(member->string) + "=" +
                 (cJSON_IsString(member) ? member->valuestring : std::to_string(member->valueint));
    }
    return words;
}

void print_items(const context &ctx, const std::vector<microphone_info> &list)
{
    if (ctx.json) {
        json_ptr array(cJSON_CreateArray());
        for (const microphone_info &info : list)
            cJSON_AddItemToArray(array.get(), item_json(info).release());
        print_json(array.get());
        return;
    }
    for (const microphone_info &info : list)
        printf("%s\n", item_words(info).c_str());
}

// gr=G and id=I filters of the list commands.
int parse_filters(const arguments &args, std::string *gr, std::string *id)
{
    for (const std::string &arg : args) {
        if (arg.rfind("gr=", 0) == 0)
            *gr = arg.substr(3);
        else if (arg.rfind("id=", 0) == 0 && id != nullptr)
            *id = arg.substr(3);
        else
            return usage_error("not a filter (gr=G or id=I): %s", arg.c_str());
    }
    return 0;
}

int list(const context &ctx, const arguments &args)
{
    std::string gr, id;
    if (int rc = parse_filters(args, &gr, &id))
        return rc;
    std::vector<microphone_info> items;
    // An empty list is how the library reports "no item": printed as such, not a failure, unless
    // the file itself cannot be read.
    ed_get_mic_control_info(gr, id, &items);
    if (items.empty() && !box_file_readable(ctx))
        return report(ctx, -1);
    print_items(ctx, items);
    return 0;
}

int conflicts(const context &ctx, const arguments &args)
{
    std::string gr;
    if (int rc = parse_filters(args, &gr, nullptr))
        return rc;
    std::vector<microphone_info> items;
    ed_get_mic_group_conflict_info(gr, &items);
    if (items.empty() && !box_file_readable(ctx))
        return report(ctx, -1);
    print_items(ctx, items);
    return 0;
}

// An item operation of the library, with the service told afterwards.
int with_item(const context &ctx, const arguments &args, int (*operation)(microphone_info &))
{
    microphone_info info;
    if (int rc = parse_item(args, &info))
        return rc;
    return run_operation(ctx, [&] { return operation(info); });
}

int execute(const context &ctx, int action, const arguments &args)
{
    microphone_info info;
    if (action != 2)
        if (int rc = parse_item(args, &info))
            return rc;
    return run_operation(ctx, [&] { return ed_exe_mic_control_info(action, info); });
}

int default_mode_get(const context &ctx, const arguments &)
{
    int cancel_mode = 0;
    microphone_info info;
    return run_operation(ctx, [&] {
        int result = ed_get_mic_control_cancel_mode_info(&cancel_mode, &info);
        if (result == 0 && ctx.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddNumberToObject(json.get(), "cancel_mode", cancel_mode);
            cJSON_AddItemToObject(json.get(), "item", item_json(info).release());
            print_json(json.get());
        } else if (result == 0) {
            printf("cancel_mode: %d\nitem:        %s\n", cancel_mode, item_words(info).c_str());
        }
        return result;
    });
}

int default_mode_set(const context &ctx, const arguments &args)
{
    char *end = nullptr;
    long cancel_mode = strtol(args[0].c_str(), &end, 10);
    if (args[0].empty() || *end != '\0')
        return usage_error("CANCEL_MODE must be a number, not '%s'", args[0].c_str());
    microphone_info info;
    if (int rc = parse_item(arguments(args.begin() + 1, args.end()), &info))
        return rc;
    return run_operation(ctx, [&] { return ed_set_mic_control_cancel_mode_info(static_cast<int>(cancel_mode), info); });
}

int conflict_mode_get(const context &ctx, const arguments &)
{
    microphone_info info;
    return run_operation(ctx, [&] {
        int result = ed_get_mic_control_conflict_mode_info(&info);
        if (result == 0 && ctx.json)
            print_json(item_json(info).get());
        else if (result == 0)
            printf("%s\n", item_words(info).c_str());
        return result;
    });
}

int speakers_mode_get(const context &ctx, const arguments &)
{
    multiple_speakers_mode mode;
    return run_operation(ctx, [&] {
        int result = ed_get_mic_control_multiple_speakers_mode_info(&mode);
        if (result == 0 && ctx.json) {
            json_ptr json(cJSON_CreateObject());
            cJSON_AddNumberToObject(json.get(), "multi_mode", mode.multi_mode);
            cJSON_AddNumberToObject(json.get(), "cancel_mode", mode.cancel_mode);
            print_json(json.get());
        } else if (result == 0) {
            printf("multi_mode:  %d\ncancel_mode: %d\n", mode.multi_mode, mode.cancel_mode);
        }
        return result;
    });
}

int speakers_mode_set(const context &ctx, const arguments &args)
{
    multiple_speakers_mode mode;
    ed_get_mic_control_multiple_speakers_mode_info(&mode);
    for (const std::string &arg : args) {
        char *end = nullptr;
        size_t equals = arg.find('=');
        std::string key = arg.substr(0, equals);
        long value = equals == std::string::npos ? 0 : strtol(arg.c_str() + equals + 1, &end, 10);
        if (equals == std::string::npos || *end != '\0' || (key != "multi_mode" && key != "cancel_mode"))
            return usage_error("not multi_mode=N or cancel_mode=N: %s", arg.c_str());
        (key == "multi_mode" ? mode.multi_mode : mode.cancel_mode) = static_cast<int32_t>(value);
    }
    return run_operation(ctx, [&] { return ed_set_mic_control_multiple_speakers_mode_info(mode); });
}

// The three mode sections, each read with get and stored (and applied by the service) with set.
int default_mode(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kMicFile, default_mode_get},
        {"set", 1, 32, kMicFile | kService, default_mode_set},
    };
    return dispatch("mic-control default-mode", actions, ctx, args);
}

int conflict_mode(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kMicFile, conflict_mode_get},
        {"set", 1, 32, kMicFile | kService,
         [](const context &c, const arguments &a) { return with_item(c, a, ed_set_mic_control_conflict_mode_info); }},
    };
    return dispatch("mic-control conflict-mode", actions, ctx, args);
}

int speakers_mode(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kMicFile, speakers_mode_get},
        {"set", 1, 2, kMicFile | kService, speakers_mode_set},
    };
    return dispatch("mic-control speakers-mode", actions, ctx, args);
}

} // namespace

int run_mic_control(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"list", 0, 2, kMicFile, list},
        {"set", 1, 32, kMicFile | kService,
         [](const context &c, const arguments &a) { return with_item(c, a, ed_set_mic_control_info); }},
        {"delete", 1, 32, kMicFile | kService,
         [](const context &c, const arguments &a) { return with_item(c, a, ed_del_mic_control_info); }},
        {"execute", 1, 32, kMicFile | kService, [](const context &c, const arguments &a) { return execute(c, 1, a); }},
        {"simulate", 1, 32, kMicFile | kService, [](const context &c, const arguments &a) { return execute(c, 0, a); }},
        {"home", 0, 0, kMicFile | kService, [](const context &c, const arguments &a) { return execute(c, 2, a); }},
        {"conflicts", 0, 1, kMicFile, conflicts},
        {"conflict-set", 1, 32, kMicFile | kService,
         [](const context &c, const arguments &a) { return with_item(c, a, ed_set_mic_group_conflict_info); }},
        {"conflict-delete", 1, 32, kMicFile | kService,
         [](const context &c, const arguments &a) { return with_item(c, a, ed_del_mic_group_conflict_info); }},
        {"default-mode", 1, 33, kNothing, default_mode},
        {"conflict-mode", 1, 33, kNothing, conflict_mode},
        {"speakers-mode", 1, 3, kNothing, speakers_mode},
    };
    return dispatch("mic-control", actions, ctx, args);
}

} // namespace edctl
