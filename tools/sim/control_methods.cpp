// SPDX-License-Identifier: MIT
// The simulator's control service: what tests and "edctl sim" use to drive the simulated box.
#include <algorithm>

#include "sim_protocol.h"
#include "simulator.h"
#include "vask_bus.h"

namespace vask_sim {
namespace {

constexpr int kMaxEmitCount = 1000000;
// A "calls" reply stays well inside a caller's reply buffer.
constexpr size_t kCallsReplyBudget = BUS_REPLY_MAX - 200;

bool mic_of(const cJSON *body, std::pair<std::string, std::string> *m)
{
    m->first = string_member(body, "group");
    m->second = string_member(body, "id");
    return !m->first.empty() || !m->second.empty();
}

// The payload of an "emit_*" method: the body itself, which must be a JSON object.
bool object_payload(const cJSON *body, std::string *payload)
{
    if (!cJSON_IsObject(body))
        return false;
    *payload = print(body);
    return true;
}

} // namespace

std::string simulator::press_mic(const cJSON *body)
{
    mic m;
    if (!mic_of(body, &m))
        return reply_text(kCodeBadRequest);
    if (listed_mics_.count(m) == 0) {
        emit("non_list_mic_event", mic_event_payload(m, true));
        return reply_text(0);
    }
    if (std::find(mics_on_.begin(), mics_on_.end(), m) == mics_on_.end())
        mics_on_.push_back(m);
    emit("mic_on_event", mic_event_payload(m, true));
    return reply_text(0);
}

std::string simulator::release_mic(const cJSON *body)
{
    mic m;
    if (!mic_of(body, &m))
        return reply_text(kCodeBadRequest);
    auto found = std::find(mics_on_.begin(), mics_on_.end(), m);
    if (found == mics_on_.end())
        return reply_text(kCodeWrongState);
    mics_on_.erase(found);
    emit("mic_on_event", mic_event_payload(m, false));
    return reply_text(0);
}

std::string simulator::cast_vote(const cJSON *body)
{
    int code = vote_.cast(string_member(body, "choice"));
    if (code == 0)
        emit("voting_results_event", vote_.results_json());
    return reply_text(code);
}

std::string simulator::emit_cam_status(const cJSON *body)
{
    std::string payload;
    if (!object_payload(body, &payload))
        return reply_text(kCodeBadRequest);
    emit("cam_status_event", payload);
    return reply_text(0);
}

std::string simulator::emit_info_change(const cJSON *body)
{
    std::string payload;
    if (!object_payload(body, &payload))
        return reply_text(kCodeBadRequest);
    emit("info_data_change_event", payload);
    return reply_text(0);
}

std::string simulator::emit_non_list_mic(const cJSON *body)
{
    std::string payload;
    if (!object_payload(body, &payload))
        return reply_text(kCodeBadRequest);
    emit("non_list_mic_event", payload);
    return reply_text(0);
}

std::string simulator::emit_any(const cJSON *body)
{
    std::string event = string_member(body, "event");
    const cJSON *payload = cJSON_GetObjectItemCaseSensitive(body, "payload");
    const cJSON *count_item = cJSON_GetObjectItemCaseSensitive(body, "count");
    int count = cJSON_IsNumber(count_item) ? count_item->valueint : 1;
    if (event.empty() || payload == nullptr || count < 1 || count > kMaxEmitCount)
        return reply_text(kCodeBadRequest);
    std::string text = cJSON_IsString(payload) ? payload->valuestring : print(payload);
    size_t counter = cJSON_IsString(payload) ? text.find("%d") : std::string::npos;
    outbox_.push_back({event, text, counter, count, true});
    return reply_text(0);
}

std::string simulator::set_reply(const cJSON *body)
{
    std::string method = string_member(body, "method");
    const cJSON *text = cJSON_GetObjectItemCaseSensitive(body, "reply");
    bool silent = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(body, "no_reply"));
    if (method.empty() || (!silent && !cJSON_IsString(text)))
        return reply_text(kCodeBadRequest);
    canned_[method] = canned{silent, silent ? std::string() : std::string(text->valuestring)};
    return reply_text(0);
}

std::string simulator::clear_reply(const cJSON *body)
{
    std::string method = string_member(body, "method");
    if (method.empty())
        return reply_text(kCodeBadRequest);
    canned_.erase(method);
    return reply_text(0);
}

std::string simulator::set_state(const cJSON *body)
{
    if (!cJSON_IsObject(body))
        return reply_text(kCodeBadRequest);
    const cJSON *isconnect = cJSON_GetObjectItemCaseSensitive(body, "isconnect");
    const cJSON *rs232 = cJSON_GetObjectItemCaseSensitive(body, "rs232_list");
    const cJSON *listed = cJSON_GetObjectItemCaseSensitive(body, "listed_mics");
    if ((isconnect != nullptr && !cJSON_IsNumber(isconnect)) || (rs232 != nullptr && !cJSON_IsArray(rs232)) ||
        (listed != nullptr && !cJSON_IsArray(listed)))
        return reply_text(kCodeBadRequest);
    if (isconnect != nullptr)
        isconnect_ = isconnect->valueint;
    if (rs232 != nullptr)
        rs232_list_.reset(cJSON_Duplicate(rs232, true));
    if (listed != nullptr) {
        listed_mics_.clear();
        const cJSON *entry;
        cJSON_ArrayForEach(entry, listed) listed_mics_.insert({string_member(entry, "Group"), string_member(entry, "ID")});
    }
    return reply_text(0);
}

std::string simulator::calls(const cJSON *body)
{
    const cJSON *from_item = cJSON_GetObjectItemCaseSensitive(body, "from");
    size_t from = cJSON_IsNumber(from_item) && from_item->valueint > 0 ? static_cast<size_t>(from_item->valueint) : 0;
    json_ptr list(cJSON_CreateArray());
    size_t used = 0;
    size_t total = calls_first_ + calls_.size();
    // Calls older than the record are gone: the page starts at the oldest one kept.
    size_t next = std::max(from, calls_first_);
    for (; next < total; ++next) {
        const call &c = calls_[next - calls_first_];
        json_ptr entry(cJSON_CreateObject());
        cJSON_AddStringToObject(entry.get(), "method", c.method.c_str());
        cJSON_AddStringToObject(entry.get(), "body", c.body.c_str());
        size_t size = print(entry.get()).size() + 1;
        if (used + size > kCallsReplyBudget)
            break;
        used += size;
        cJSON_AddItemToArray(list.get(), entry.release());
    }
    return reply_text(0, ",\"total\":" + std::to_string(total) + ",\"next\":" + std::to_string(next) +
                             ",\"calls\":" + print(list.get()));
}

std::string simulator::clear_calls(const cJSON *)
{
    calls_.clear();
    calls_first_ = 0;
    return reply_text(0);
}

} // namespace vask_sim
