// SPDX-License-Identifier: MIT
// edctl voting get|enter|start|stop|exit
#include <cstdio>

#include "commands.h"
#include "libvask_external_device.h"

namespace edctl {
namespace {

void print_voting(const context &context, const ed_voting_info &info)
{
    if (context.json) {
        json_ptr json(cJSON_CreateObject());
        cJSON_AddNumberToObject(json.get(), "status", info.status);
        cJSON_AddNumberToObject(json.get(), "agree", info.agree);
        cJSON_AddNumberToObject(json.get(), "disagree", info.disagree);
        cJSON_AddNumberToObject(json.get(), "abandon", info.abandon);
        cJSON_AddNumberToObject(json.get(), "total", info.total);
        cJSON_AddNumberToObject(json.get(), "time", info.time);
        print_json(json.get());
        return;
    }
    printf("status:   %d\nagree:    %d\ndisagree: %d\nabandon:  %d\ntotal:    %d\ntime:     %d\n", info.status,
           info.agree, info.disagree, info.abandon, info.total, info.time);
}

// `selector` is the first field handed to ed_set_voting; -1 reads the vote with ed_get_voting.
int voting_step(const context &context, int selector, bool prints)
{
    ed_voting_info info{selector, -1, -1, -1, -1, -1};
    return run_operation(context, [&] {
        int result = selector < 0 ? ed_get_voting(info) : ed_set_voting(info);
        if (result == 0 && prints)
            print_voting(context, info);
        return result;
    });
}

} // namespace

int run_voting(const context &ctx, const arguments &args)
{
    static const std::vector<action> actions = {
        {"get", 0, 0, kService, [](const context &c, const arguments &) { return voting_step(c, -1, true); }},
        {"enter", 0, 0, kService, [](const context &c, const arguments &) { return voting_step(c, 0, false); }},
        {"start", 0, 0, kService, [](const context &c, const arguments &) { return voting_step(c, 2, false); }},
        {"stop", 0, 0, kService, [](const context &c, const arguments &) { return voting_step(c, 1, true); }},
        {"exit", 0, 0, kService, [](const context &c, const arguments &) { return voting_step(c, 3, false); }},
    };
    return dispatch("voting", actions, ctx, args);
}

} // namespace edctl
