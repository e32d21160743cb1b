// SPDX-License-Identifier: MIT
// Microphone control: the registered items, the group conflicts and the three modes, kept in
// /etc/microphone_control.json and applied by the service.
#include <libvask_external_device.h>

#include "api.h"
#include "records.h"

namespace console {

namespace {

json_ptr items_json(std::vector<microphone_info> &list, bool omit_id)
{
    json_ptr out = json_object();
    cJSON *array = cJSON_AddArrayToObject(out.get(), "items");
    for (microphone_info &item : list)
        cJSON_AddItemToArray(array, item_json(item, omit_id, false).release());
    return out;
}

api_reply list_items(const api_request &request)
{
    std::vector<microphone_info> list;
    int rc = ReadRegisteredMicListFromConfig(request.query_value("gr"), request.query_value("id"), &list);
    return from_result(rc, op_kind::file, rc == 0 ? items_json(list, false) : nullptr);
}

// Reads the body as one item with a group and an id, then hands it to `operation`.
template <typename Operation> api_reply with_item(const api_request &request, Operation operation)
{
    microphone_info item;
    problem bad = read_item(request.body, item, true, true, true);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(operation(item), op_kind::service);
}

api_reply set_item(const api_request &request) { return with_item(request, ed_set_mic_control_info); }

api_reply execute_item(const api_request &request)
{
    return with_item(request, [](microphone_info &item) { return ed_exe_mic_control_info(1, item); });
}

api_reply simulate_item(const api_request &request)
{
    return with_item(request, [](microphone_info &item) { return ed_exe_mic_control_info(0, item); });
}

api_reply go_home(const api_request &)
{
    microphone_info none;
    return from_result(ed_exe_mic_control_info(2, none), op_kind::service);
}

api_reply delete_item(const api_request &request)
{
    microphone_info item;
    item.gr = request.param(0);
    item.id = request.param(1);
    return from_result(ed_del_mic_control_info(item), op_kind::service);
}

api_reply list_conflicts(const api_request &request)
{
    std::vector<microphone_info> list;
    int rc = ReadMicrophoneGroupConflictConfig(request.query_value("gr"), &list);
    return from_result(rc, op_kind::file, rc == 0 ? items_json(list, true) : nullptr);
}

api_reply set_conflict(const api_request &request)
{
    microphone_info item;
    problem bad = read_item(request.body, item, true, false, false);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(ed_set_mic_group_conflict_info(item), op_kind::service);
}

api_reply delete_conflict(const api_request &request)
{
    microphone_info item;
    item.gr = request.param(0);
    return from_result(ed_del_mic_group_conflict_info(item), op_kind::service);
}

// The default and general-conflict items have neither group nor id.
problem read_mode_item(const cJSON *body, microphone_info &item)
{
    const cJSON *object = cJSON_GetObjectItemCaseSensitive(body, "item");
    if (!object)
        return "\"item\" is missing";
    problem bad = read_item(object, item, false, false, false);
    if (bad.empty() && !item.gr.empty())
        bad = "the mode's \"item\" has no \"gr\"";
    return bad.empty() ? bad : "\"item\": " + bad;
}

api_reply get_default_mode(const api_request &)
{
    int cancel_mode = 0;
    microphone_info item;
    int rc = ed_get_mic_control_cancel_mode_info(&cancel_mode, &item);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON_AddNumberToObject(out.get(), "cancel_mode", cancel_mode);
    cJSON_AddItemToObject(out.get(), "item", item_json(item, true, true).release());
    return ok(std::move(out));
}

api_reply set_default_mode(const api_request &request)
{
    static const char *const known[] = {"cancel_mode", "item", nullptr};
    int cancel_mode = 0;
    microphone_info item;
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_int(request.body, "cancel_mode", cancel_mode, true);
    if (bad.empty())
        bad = read_mode_item(request.body, item);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(ed_set_mic_control_cancel_mode_info(cancel_mode, item), op_kind::service);
}

api_reply get_conflict_mode(const api_request &)
{
    microphone_info item;
    int rc = ed_get_mic_control_conflict_mode_info(&item);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON_AddItemToObject(out.get(), "item", item_json(item, true, true).release());
    return ok(std::move(out));
}

api_reply set_conflict_mode(const api_request &request)
{
    static const char *const known[] = {"item", nullptr};
    microphone_info item;
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_mode_item(request.body, item);
    if (!bad.empty())
        return bad_input(bad);
    return from_result(ed_set_mic_control_conflict_mode_info(item), op_kind::service);
}

api_reply get_speakers_mode(const api_request &)
{
    multiple_speakers_mode mode;
    int rc = ed_get_mic_control_multiple_speakers_mode_info(&mode);
    if (rc != 0)
        return from_result(rc, op_kind::file);
    json_ptr out = json_object();
    cJSON_AddNumberToObject(out.get(), "multi_mode", mode.multi_mode);
    cJSON_AddNumberToObject(out.get(), "cancel_mode", mode.cancel_mode);
    return ok(std::move(out));
}

api_reply set_speakers_mode(const api_request &request)
{
    static const char *const known[] = {"multi_mode", "cancel_mode", nullptr};
    multiple_speakers_mode mode;
    int multi = 0, cancel = 0;
    problem bad = unknown_member(request.body, known);
    if (bad.empty())
        bad = read_int(request.body, "multi_mode", multi, true);
    if (bad.empty())
        bad = read_int(request.body, "cancel_mode", cancel, true);
    if (!bad.empty())
        return bad_input(bad);
    mode.multi_mode = multi;
    mode.cancel_mode = cancel;
    return from_result(ed_set_mic_control_multiple_speakers_mode_info(mode), op_kind::service);
}

} // namespace

std::vector<api_route> mic_control_routes()
{
    return {
        {"GET", "/api/mic-control/items", list_items},
        {"POST", "/api/mic-control/items", set_item},
        {"POST", "/api/mic-control/items/execute", execute_item},
        {"POST", "/api/mic-control/items/simulate", simulate_item},
        {"POST", "/api/mic-control/home", go_home},
        {"DELETE", "/api/mic-control/items/([^/]+)/([^/]+)", delete_item},
        {"GET", "/api/mic-control/conflicts", list_conflicts},
        {"POST", "/api/mic-control/conflicts", set_conflict},
        {"DELETE", "/api/mic-control/conflicts/([^/]+)", delete_conflict},
        {"GET", "/api/mic-control/default-mode", get_default_mode},
        {"PUT", "/api/mic-control/default-mode", set_default_mode},
        {"GET", "/api/mic-control/conflict-mode", get_conflict_mode},
        {"PUT", "/api/mic-control/conflict-mode", set_conflict_mode},
        {"GET", "/api/mic-control/speakers-mode", get_speakers_mode},
        {"PUT", "/api/mic-control/speakers-mode", set_speakers_mode},
    };
}

} // namespace console
