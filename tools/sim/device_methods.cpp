// SPDX-License-Identifier: MIT
// The methods of the "external_device" service as the simulated box answers them.
#include <arpa/inet.h>

#include "sim_protocol.h"
#include "simulator.h"

namespace vask_sim {

std::string simulator::voting_step(int (vote::*step)(), bool with_results)
{
    int code = step != nullptr ? (vote_.*step)() : 0;
    if (step != nullptr && code == 0)
        emit("voting_results_event", vote_.results_json());
    if (!with_results || code != 0)
        return reply_text(code);
    return reply_text(0, ",\"voting_results\":" + vote_.results_json());
}

std::string simulator::query_voting(const cJSON *) { return voting_step(nullptr, true); }
std::string simulator::enter_voting(const cJSON *) { return voting_step(&vote::enter, false); }
std::string simulator::start_voting(const cJSON *) { return voting_step(&vote::start, false); }
std::string simulator::stop_voting(const cJSON *) { return voting_step(&vote::stop, true); }
std::string simulator::exit_voting(const cJSON *) { return voting_step(&vote::exit, false); }

// Succeeds, and connects the mic central, when the address is a dotted IPv4 address and the protocol
// a number; a body without them is a bad request; any other address cannot be reached.
std::string simulator::mic_connection_test(const cJSON *body)
{
    const cJSON *tcp = cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(body, "parameters"), "tcp");
    const cJSON *address = cJSON_GetObjectItemCaseSensitive(tcp, "ip_address");
    if (!cJSON_IsString(address) || !cJSON_IsNumber(cJSON_GetObjectItemCaseSensitive(body, "protocol")))
        return reply_text(kCodeBadRequest);
    in_addr parsed;
    if (inet_pton(AF_INET, address->valuestring, &parsed) != 1)
        return reply_text(kCodeUnreachable);
    isconnect_ = 1;
    return reply_text(0);
}

std::string simulator::get_mic_connection_state(const cJSON *)
{
    return reply_text(0, ",\"isconnect\":" + std::to_string(isconnect_));
}

std::string simulator::get_microphone_on_list(const cJSON *)
{
    json_ptr list(cJSON_CreateArray());
    for (const mic &m : mics_on_) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "Group", m.first.c_str());
        cJSON_AddStringToObject(entry, "ID", m.second.c_str());
        cJSON_AddNumberToObject(entry, "On", 1);
        cJSON_AddItemToArray(list.get(), entry);
    }
    return reply_text(0, ",\"mic_on_list\":" + print(list.get()));
}

std::string simulator::get_ex_rs232_device_list(const cJSON *)
{
    return reply_text(0, ",\"rs232_list\":" + print(rs232_list_.get()));
}

std::string simulator::get_imshare_info(const cJSON *)
{
    return reply_text(0, std::string(",\"hid\":") + (hid_ ? "true" : "false"));
}

std::string simulator::set_imshare_info(const cJSON *body)
{
    const cJSON *hid = cJSON_GetObjectItemCaseSensitive(body, "hid");
    if (!cJSON_IsBool(hid))
        return reply_text(kCodeBadRequest);
    hid_ = cJSON_IsTrue(hid);
    return reply_text(0);
}

} // namespace vask_sim
