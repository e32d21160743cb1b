// SPDX-License-Identifier: MIT
// edctl sim ...: drives external-device-sim through its control service on the bus.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "sim_protocol.h"
#include "vask_bus.h"

namespace edctl {
namespace {

// Calls `method` of the simulator's control service with `body` (null: none). On success the reply
// is stored in `*reply` when given. Reports failures as `what`; returns the exit code.
int control_call(const std::string &what, const char *method, const cJSON *body, json_ptr *reply = nullptr)
{
    char text[BUS_REPLY_MAX] = {0};
    int length = 0;
    int rc;
    {
        own_client client("edctl");
        if (!client.connected())
            return not_connected(what);
        char *printed = body != nullptr ? cJSON_PrintUnformatted(body) : nullptr;
        rc = bus_method_call_sync(client.get(), vask_sim::kControlService, method, printed,
                                  printed != nullptr ? static_cast<int>(strlen(printed)) : 0, text, &length, 8);
        cJSON_free(printed);
    }
    if (rc != BUS_OK) {
        const char *meaning = rc == BUS_ERR_NO_SERVICE ? "external-device-sim is not running"
                              : rc == BUS_ERR_TIMEOUT  ? "no answer in time"
                                                       : "the call was not delivered";
        fprintf(stderr, "edctl: %s failed: %s (%d)\n", what.c_str(), meaning, rc);
        return 1;
    }
    json_ptr parsed(cJSON_Parse(text));
    const cJSON *code = cJSON_GetObjectItemCaseSensitive(parsed.get(), "code");
    if (!cJSON_IsNumber(code) || code->valueint != 0) {
        fprintf(stderr, "edctl: %s failed: the simulator answered %s\n", what.c_str(), text);
        return 1;
    }
    if (reply != nullptr)
        *reply = std::move(parsed);
    return 0;
}

// A JSON argument given on the command line, or a usage error.
int parse_argument(const std::string &text, json_ptr *json)
{
    json->reset(cJSON_Parse(text.c_str()));
    if (!*json)
        return usage_error("not JSON: %s", text.c_str());
    return 0;
}

int mic_action(const char *name, const char *method, const arguments &args)
{
    json_ptr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "group", args[0].c_str());
    cJSON_AddStringToObject(body.get(), "id", args[1].c_str());
    return control_call(std::string("sim ") + name, method, body.get());
}

int emit_object(const char *name, const char *method, const arguments &args)
{
    json_ptr body;
    if (int rc = parse_argument(args[0], &body))
        return rc;
    return control_call(std::string("sim ") + name, method, body.get());
}

int vote(const context &, const arguments &args)
{
    json_ptr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "choice", args[0].c_str());
    return control_call("sim vote", "cast_vote", body.get());
}

int emit(const context &, const arguments &args)
{
    json_ptr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "event", args[0].c_str());
    cJSON *payload = cJSON_Parse(args[1].c_str());
    cJSON_AddItemToObject(body.get(), "payload", payload != nullptr ? payload : cJSON_CreateString(args[1].c_str()));
    if (args.size() == 3) {
        char *end = nullptr;
        long count = strtol(args[2].c_str(), &end, 10);
        if (count < 1 || *end != '\0')
            return usage_error("COUNT must be 1 or more, not '%s'", args[2].c_str());
        cJSON_AddNumberToObject(body.get(), "count", static_cast<double>(count));
    }
    return control_call("sim emit", "emit", body.get());
}

int reply(const context &, const arguments &args)
{
    json_ptr body(cJSON_CreateObject());
    cJSON_AddStringToObject(body.get(), "method", args[0].c_str());
    if (args[1] == "--clear")
        return control_call("sim reply", "clear_reply", body.get());
    if (args[1] == "--none")
        cJSON_AddTrueToObject(body.get(), "no_reply");
    else
        cJSON_AddStringToObject(body.get(), "reply", args[1].c_str());
    return control_call("sim reply", "set_reply", body.get());
}

int calls(const context &context, const arguments &)
{
    json_ptr all(cJSON_CreateArray());
    int from = 0;
    for (;;) {
        json_ptr body(cJSON_CreateObject());
        cJSON_AddNumberToObject(body.get(), "from", from);
        json_ptr page;
        if (int rc = control_call("sim calls", "calls", body.get(), &page))
            return rc;
        const cJSON *entry = nullptr;
        cJSON_ArrayForEach(entry, cJSON_GetObjectItemCaseSensitive(page.get(), "calls"))
            cJSON_AddItemToArray(all.get(), cJSON_Duplicate(entry, true));
        int next = cJSON_GetObjectItemCaseSensitive(page.get(), "next")->valueint;
        int total = cJSON_GetObjectItemCaseSensitive(page.get(), "total")->valueint;
        if (next >= total || next <= from)
            break;
        from = next;
    }
    if (context.json) {
        print_json(all.get());
        return 0;
    }
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, all.get())
    {
        printf("%s %s\n", cJSON_GetObjectItemCaseSensitive(entry, "method")->valuestring,
               cJSON_GetObjectItemCaseSensitive(entry, "body")->valuestring);
    }
    return 0;
}

} // namespace

int run_sim(const context &ctx, const arguments &args)
{
    // None opens the library: each calls the simulator's control service on a client of its own.
    static const std::vector<action> actions = {
        {"press", 2, 2, kNothing, [](const context &, const arguments &a) { return mic_action("press", "press_mic", a); }},
        {"release", 2, 2, kNothing, [](const context &, const arguments &a) { return mic_action("release", "release_mic", a); }},
        {"vote", 1, 1, kNothing, vote},
        {"cam-status", 1, 1, kNothing,
         [](const context &, const arguments &a) { return emit_object("cam-status", "emit_cam_status", a); }},
        {"info-change", 1, 1, kNothing,
         [](const context &, const arguments &a) { return emit_object("info-change", "emit_info_change", a); }},
        {"non-list-mic", 1, 1, kNothing,
         [](const context &, const arguments &a) { return emit_object("non-list-mic", "emit_non_list_mic", a); }},
        {"emit", 2, 3, kNothing, emit},
        {"reply", 2, 2, kNothing, reply},
        {"state", 1, 1, kNothing, [](const context &, const arguments &a) { return emit_object("state", "set_state", a); }},
        {"calls", 0, 0, kNothing, calls},
        {"applied", 1, 1, kNothing,
         [](const context &, const arguments &a) {
             json_ptr body(cJSON_CreateObject());
             cJSON_AddStringToObject(body.get(), "section", a[0].c_str());
             json_ptr reply;
             if (int rc = control_call("sim applied", "applied", body.get(), &reply))
                 return rc;
             print_json(cJSON_GetObjectItemCaseSensitive(reply.get(), "applied"));
             return 0;
         }},
        {"clear-calls", 0, 0, kNothing,
         [](const context &, const arguments &) { return control_call("sim clear-calls", "clear_calls", nullptr); }},
    };
    return dispatch("sim", actions, ctx, args);
}

} // namespace edctl
