// SPDX-License-Identifier: MIT
#include "simulator.h"

#include <chrono>
#include <cstring>
#include <thread>

#include "sim_protocol.h"
#include "tulo_log.h"

namespace vask_sim {

namespace {
constexpr const char *kMicrophoneConfig = "/etc/microphone_control.json";
} // namespace

std::string reply_text(int code, const std::string &members)
{
    return "{\"code\":" + std::to_string(code) + members + "}";
}

std::string string_member(const cJSON *object, const char *key)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsString(item) ? item->valuestring : "";
}

std::string print(const cJSON *json)
{
    char *text = cJSON_PrintUnformatted(json);
    std::string printed = text != nullptr ? text : "null";
    cJSON_free(text);
    return printed;
}

simulator::simulator(bus_client *device, bus_client *control)
    : device_(device), control_(control),
      device_methods_{
          {"query_voting", &simulator::query_voting},
          {"enter_voting", &simulator::enter_voting},
          {"start_voting", &simulator::start_voting},
          {"stop_voting", &simulator::stop_voting},
          {"exit_voting", &simulator::exit_voting},
          {"mic_connection_test", &simulator::mic_connection_test},
          {"get_mic_connection_state", &simulator::get_mic_connection_state},
          {"get_microphone_on_list", &simulator::get_microphone_on_list},
          {"get_ex_rs232_device_list", &simulator::get_ex_rs232_device_list},
          {"get_imshare_info", &simulator::get_imshare_info},
          {"set_imshare_info", &simulator::set_imshare_info},
          {"set_mic_central_info", [](simulator &s, const cJSON *) { return s.apply_section("miccentral_control"); }},
          {"castdeck_control_settings", [](simulator &s, const cJSON *) { return s.apply_section("castdeck_control"); }},
          {"projector_control_pjlink_settings",
           [](simulator &s, const cJSON *) { return s.apply_section("projector_control"); }},
          {"projector_control_hitachi_tcp_settings",
           [](simulator &s, const cJSON *) { return s.apply_section("projector_control"); }},
          {"projector_control_hitachi_rs232_settings",
           [](simulator &s, const cJSON *) { return s.apply_section("projector_control"); }},
          {"projector_control_none_settings",
           [](simulator &s, const cJSON *) { return s.apply_section("projector_control"); }},
          {"external_control_tcp_settings",
           [](simulator &s, const cJSON *) { return s.apply_section("external_control"); }},
          {"set_external_rs232_control_info",
           [](simulator &s, const cJSON *) { return s.apply_section("external_rs232_config"); }},
          {"zorvo_goto_marco", &simulator::zorvo_goto_macro},
          {"update_microphone_control_item",
           [](simulator &s, const cJSON *b) { return s.microphone_item("microphone_config", true, b); }},
          {"delete_microphone_control_item",
           [](simulator &s, const cJSON *b) { return s.microphone_item("microphone_config", false, b); }},
          {"update_mic_group_conflict_item",
           [](simulator &s, const cJSON *b) { return s.microphone_item("microphone_group_conflict_config", true, b); }},
          {"delete_mic_group_conflict_item",
           [](simulator &s, const cJSON *b) { return s.microphone_item("microphone_group_conflict_config", false, b); }},
          {"simulate_microphone_control_item", [](simulator &s, const cJSON *b) { return s.execute_item(true, b); }},
          {"execute_microphone_control_item", [](simulator &s, const cJSON *b) { return s.execute_item(false, b); }},
          {"execute_microphone_control_home", [](simulator &, const cJSON *) { return reply_text(0); }},
          {"mic_control_conflict_mode",
           [](simulator &s, const cJSON *) {
               return s.apply_section("microphone_general_conflict_config", kMicrophoneConfig);
           }},
          {"mic_control_cancel_mode",
           [](simulator &s, const cJSON *) { return s.apply_section("microphone_default_config", kMicrophoneConfig); }},
          {"mic_control_multiple_speakers_mode",
           [](simulator &s, const cJSON *) {
               return s.apply_section("microphone_multiple_speakers_mode", kMicrophoneConfig);
           }},
          {"projector_control_pjlink_test", &simulator::projector_test},
          {"projector_control_hitachi_tcp_test", &simulator::projector_test},
      },
      control_methods_{
          {"press_mic", &simulator::press_mic},
          {"release_mic", &simulator::release_mic},
          {"cast_vote", &simulator::cast_vote},
          {"emit_cam_status", &simulator::emit_cam_status},
          {"emit_info_change", &simulator::emit_info_change},
          {"emit_non_list_mic", &simulator::emit_non_list_mic},
          {"emit", &simulator::emit_any},
          {"set_reply", &simulator::set_reply},
          {"clear_reply", &simulator::clear_reply},
          {"set_state", &simulator::set_state},
          {"calls", &simulator::calls},
          {"clear_calls", &simulator::clear_calls},
          {"applied", &simulator::applied},
      },
      rs232_list_(cJSON_Parse("[{\"Number\":0,\"Port\":\"ttyS0\",\"Description\":\"RS232 port 1\"},"
                              "{\"Number\":1,\"Port\":\"ttyUSB0\",\"Description\":\"USB serial adapter\"}]"))
{
    // Two groups of eight microphones are listed by default.
    for (const char *group : {"1", "2"})
        for (int id = 1; id <= 8; ++id)
            listed_mics_.insert({group, std::to_string(id)});
}

int simulator::answer(const std::string &text, char *reply, int capacity)
{
    if (static_cast<int>(text.size()) > capacity)
        return -1;
    memcpy(reply, text.data(), text.size());
    return static_cast<int>(text.size());
}

void simulator::emit(const char *event, const std::string &payload)
{
    outbox_.push_back({event, payload});
}

bool simulator::send_emissions(std::vector<emission> emissions, bool wait_for_room)
{
    for (const emission &e : emissions) {
        for (int i = 0; i < e.count; ++i) {
            std::string one = e.payload;
            if (e.counter != std::string::npos)
                one.replace(e.counter, 2, std::to_string(i));
            // A burst may outrun the broker's acknowledgements: wait for room in the sending queue
            // rather than lose a signal, but not for ever.
            auto deadline = std::chrono::steady_clock::now() + kEmitRoomWait;
            int rc;
            while ((rc = bus_signal_emit(device_, kServiceName, e.event.c_str(), one.data(),
                                         static_cast<int>(one.size()))) == BUS_ERR_QUEUE_FULL &&
                   wait_for_room && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            if (rc == BUS_OK)
                continue;
            TULO_LOG_write_newline(kLogModule, 1, kLogSource, __LINE__, "emit", "signal %s not sent (%d)",
                                   e.event.c_str(), rc);
            if (e.reported)
                return false;
        }
    }
    return true;
}

int simulator::run_method(const method &found, const cJSON *body, bool wait_for_room, char *reply, int capacity)
{
    std::string text;
    std::vector<emission> emissions;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        text = found(*this, body);
        emissions.swap(outbox_);
    }
    if (!send_emissions(std::move(emissions), wait_for_room))
        text = reply_text(kCodeBadRequest);
    return answer(text, reply, capacity);
}

int simulator::handle_device(bus_client *, void *user, const char *method, const char *body, int body_length,
                             char *reply, int capacity)
{
    auto *self = static_cast<simulator *>(user);
    std::string text(body, static_cast<size_t>(body_length));
    TULO_LOG_write_newline(kLogModule, 2, kLogSource, __LINE__, "handle", "%s %s", method, text.c_str());
    json_ptr parsed(cJSON_Parse(text.c_str()));
    {
        std::lock_guard<std::mutex> hold(self->mutex_);
        if (self->calls_.size() == kCallsKept) {
            self->calls_.pop_front();
            ++self->calls_first_;
        }
        self->calls_.push_back({method, text.substr(0, kCallBodyShown)});
        auto canned = self->canned_.find(method);
        if (canned != self->canned_.end())
            return canned->second.silent ? -1 : answer(canned->second.text, reply, capacity);
    }
    auto found = self->device_methods_.find(method);
    if (found == self->device_methods_.end()) {
        TULO_LOG_write_newline(kLogModule, 1, kLogSource, __LINE__, "handle", "unknown method %s", method);
        return answer(reply_text(kCodeUnknownMethod), reply, capacity);
    }
    return self->run_method(found->second, parsed.get(), false, reply, capacity);
}

int simulator::handle_control(bus_client *, void *user, const char *method, const char *body, int body_length,
                              char *reply, int capacity)
{
    auto *self = static_cast<simulator *>(user);
    json_ptr parsed(cJSON_Parse(std::string(body, static_cast<size_t>(body_length)).c_str()));
    auto found = self->control_methods_.find(method);
    if (found == self->control_methods_.end())
        return answer(reply_text(kCodeUnknownMethod), reply, capacity);
    return self->run_method(found->second, parsed.get(), true, reply, capacity);
}

std::string simulator::mic_event_payload(const mic &m, bool on) const
{
    json_ptr payload(cJSON_CreateObject());
    cJSON_AddStringToObject(payload.get(), "Group", m.first.c_str());
    cJSON_AddStringToObject(payload.get(), "Id", m.second.c_str());
    cJSON_AddBoolToObject(payload.get(), "On", on);
    return print(payload.get());
}

} // namespace vask_sim
