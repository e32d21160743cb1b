// SPDX-License-Identifier: MIT
// Requests to the external_device service: the vote, the microphones that are on, the mic central's
// connection, the RS232 devices it sees and image sharing.
#include <cstring>
#include <libvask_external_device.h>

#include "api.h"
#include "records.h"

namespace console {

namespace {

// The actions of a vote and the selector ed_set_voting takes for each.
struct vote_action {
    const char *name;
    int selector;
};
constexpr vote_action kVoteActions[] = {{"enter", 0}, {"stop", 1}, {"start", 2}, {"exit", 3}};

api_reply get_voting(const api_request &)
{
    ed_voting_info vote{};
    int rc = ed_get_voting(vote);
    return from_result(rc, op_kind::service, rc == 0 ? vote_json(vote) : nullptr);
}

api_reply set_voting(const api_request &request)
{
    static const char *const known[] = {"action", nullptr};
    std::string action;
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_string(request.body, "action", action, true);
    if (!bad.empty())
        return bad_input(bad);
    for (const vote_action &candidate : kVoteActions) {
        if (action != candidate.name)
            continue;
        ed_voting_info vote{};
        vote.status = candidate.selector;
        int rc = ed_set_voting(vote);
        // Only stopping answers the results; the other steps answer {"code":0}.
        return from_result(rc, op_kind::service, rc == 0 && candidate.selector == 1 ? vote_json(vote) : nullptr);
    }
    return bad_input("\"action\" must be one of enter, start, stop, exit");
}

api_reply get_microphones_on(const api_request &)
{
    std::vector<mic_node> list;
    int rc = ed_get_mic_on_list(&list);
    if (rc != 0)
        return from_result(rc, op_kind::service);
    json_ptr out = json_object();
    cJSON *array = cJSON_AddArrayToObject(out.get(), "microphones");
    for (const mic_node &mic : list)
        cJSON_AddItemToArray(array, microphone_json(mic.group, mic.id, mic.on).release());
    return ok(std::move(out));
}

api_reply get_mic_central_state(const api_request &)
{
    int state = 0;
    int rc = ed_get_mic_central_connection_state(&state);
    if (rc != 0)
        return from_result(rc, op_kind::service);
    json_ptr out = json_object();
    cJSON_AddBoolToObject(out.get(), "connected", state != 0);
    cJSON_AddNumberToObject(out.get(), "isconnect", state);
    return ok(std::move(out));
}

api_reply test_mic_central(const api_request &request)
{
    external_protocol_info info{};
    info.protocol = -1;
    problem bad = merge_protocol(request.body, info);
    if (bad.empty() && !cJSON_GetObjectItemCaseSensitive(request.body, "protocol"))
        bad = "\"protocol\" is missing";
    if (bad.empty() && !cJSON_GetObjectItemCaseSensitive(request.body, "ip_address"))
        bad = "\"ip_address\" is missing";
    if (!bad.empty())
        return bad_input(bad);
    return from_result(ed_mic_central_connection_test(info), op_kind::service);
}

api_reply get_rs232_devices(const api_request &)
{
    std::vector<external_rs232_info> list;
    int rc = ed_get_external_rs232_device_list(&list);
    if (rc != 0)
        return from_result(rc, op_kind::service);
    json_ptr out = json_object();
    cJSON *array = cJSON_AddArrayToObject(out.get(), "devices");
    for (const external_rs232_info &device : list) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddNumberToObject(entry, "number", device.number);
        cJSON_AddStringToObject(entry, "port", device.port.c_str());
        cJSON_AddStringToObject(entry, "description", device.description.c_str());
        cJSON_AddItemToArray(array, entry);
    }
    return ok(std::move(out));
}

json_ptr imshare_json(const imshare_info &info)
{
    json_ptr out = json_object();
    cJSON_AddBoolToObject(out.get(), "hid", info.hid);
    return out;
}

api_reply get_imshare(const api_request &)
{
    imshare_info info{};
    int rc = ed_get_imshare_info(&info);
    return from_result(rc, op_kind::service, rc == 0 ? imshare_json(info) : nullptr);
}

api_reply set_imshare(const api_request &request)
{
    static const char *const known[] = {"hid", nullptr};
    imshare_info info{};
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_bool(request.body, "hid", info.hid, true);
    if (!bad.empty())
        return bad_input(bad);
    int rc = ed_set_imshare_info(info);
    return from_result(rc, op_kind::service, rc == 0 ? imshare_json(info) : nullptr);
}

} // namespace

std::vector<api_route> service_routes()
{
    return {
        {"GET", "/api/voting", get_voting},
        {"POST", "/api/voting", set_voting},
        {"GET", "/api/microphones/on", get_microphones_on},
        {"GET", "/api/mic-central/state", get_mic_central_state},
        {"POST", "/api/mic-central/test", test_mic_central},
        {"GET", "/api/rs232/devices", get_rs232_devices},
        {"GET", "/api/imshare", get_imshare},
        {"PUT", "/api/imshare", set_imshare},
    };
}

} // namespace console
