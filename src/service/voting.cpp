// SPDX-License-Identifier: MIT
// Delegate voting: the service runs the vote; the library reads and moves it.
#include "core/internal.h"
#include "core/method_call.h"
#include "core/record_fields.h"
#include "service/service_replies.h"

namespace vask_ed {
namespace {

const int_field<ed_voting_info> kVotingFields[] = {
    {"Status", &ed_voting_info::status},   {"Agree", &ed_voting_info::agree},
    {"Disagree", &ed_voting_info::disagree}, {"Abandon", &ed_voting_info::abandon},
    {"Total", &ed_voting_info::total},     {"Time", &ed_voting_info::time},
};

// Calls a voting method; when `info` is given and the call succeeds, fills it from the reply's
// "voting_results" object.
int call_voting(const char *method, ed_voting_info *info)
{
    if (info == nullptr)
        return ed_method_call(method, nullptr, nullptr);
    return call_reading_reply(method, nullptr, [info](const cJSON *reply) { read_voting_results(reply, info); });
}

} // namespace

void read_voting_results(const cJSON *reply, ed_voting_info *info)
{
    read_int_fields(cJSON_GetObjectItem(reply, "voting_results"), kVotingFields, *info);
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_get_voting(ed_voting_info &info)
{
    return call_voting("query_voting", &info);
}

ED_API int ed_set_voting(ed_voting_info &info)
{
    switch (info.status) {
    case 0: return call_voting("enter_voting", nullptr);
    case 1: return call_voting("stop_voting", &info);
    case 2: return call_voting("start_voting", nullptr);
    case 3: return call_voting("exit_voting", nullptr);
    default: return call_voting("query_voting", &info);
    }
}
