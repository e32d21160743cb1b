// SPDX-License-Identifier: MIT
// The mic central as the service sees it: connection test, connection state, microphones on.
#include "core/internal.h"
#include "core/method_call.h"
#include "core/record_fields.h"
#include "service/service_replies.h"

namespace vask_ed {
namespace {

const string_field<mic_node> kMicNodeStrings[] = {
    {"Group", &mic_node::group},
    {"ID", &mic_node::id},
};

void read_mic_node(const cJSON *element, mic_node &node)
{
    read_string_fields(element, kMicNodeStrings, node);
    const cJSON *on = cJSON_GetObjectItem(element, "On");
    node.on = on == nullptr || on->valueint != 0;
}

} // namespace

void read_connection_state(const cJSON *reply, int *state)
{
    const cJSON *isconnect = cJSON_GetObjectItem(reply, "isconnect");
    *state = isconnect != nullptr ? isconnect->valueint : 0;
}

void read_mic_on_list(const cJSON *reply, std::vector<mic_node> *list)
{
    append_records(reply, "mic_on_list", list, read_mic_node);
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_mic_central_connection_test(const external_protocol_info &info)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, 911, "ed_mic_central_connection_test",
                           "ed_mic_central_connection_test");
    json_ptr root(cJSON_CreateObject());
    cJSON *parameters = cJSON_CreateObject();
    cJSON *tcp = cJSON_CreateObject();
    if (!root || parameters == nullptr || tcp == nullptr) {
        cJSON_Delete(parameters);
        cJSON_Delete(tcp);
        return -1;
    }
    cJSON_AddStringToObject(tcp, "ip_address", info.ip_address.c_str());
    cJSON_AddStringToObject(tcp, "username", info.username.c_str());
    cJSON_AddStringToObject(tcp, "password", info.password.c_str());
    cJSON_AddItemToObject(parameters, "tcp", tcp);
    // "parameters" goes in before "protocol": the service reads the printed order.
    cJSON_AddItemToObject(root.get(), "parameters", parameters);
    cJSON_AddNumberToObject(root.get(), "protocol", info.protocol);
    json_text printed(cJSON_Print(root.get()));
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, 946, "ed_mic_central_connection_test", "%s",
                           printed ? printed.get() : "");
    return ed_method_call("mic_connection_test", root.get(), nullptr);
}

ED_API int ed_get_mic_central_connection_state(int *state)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 2, kLogLibrary, 894, "ed_get_mic_central_connection_state",
                           "ed_get_mic_central_connection_state");
    if (state == nullptr)
        return -1;
    return call_reading_reply("get_mic_connection_state", nullptr,
                              [state](const cJSON *reply) { read_connection_state(reply, state); });
}

ED_API int ed_get_mic_on_list(std::vector<mic_node> *list)
{
    if (list == nullptr)
        return -1;
    return call_reading_reply("get_microphone_on_list", nullptr,
                              [list](const cJSON *reply) { read_mic_on_list(reply, list); });
}
