#include "service.h"

#include <cstring>

#include "sim_protocol.h"
#include "tulo_log.h"

namespace vask_sim {
namespace {

std::string code_only(int code)
{
    return "{\"code\":" + std::to_string(code) + "}";
}

} // namespace

service::service(bus_client *client) : client_(client)
{
    methods_ = {
        {"query_voting", [this](const std::string &) { return voting_call(nullptr, true); }},
        {"enter_voting", [this](const std::string &) { return voting_call(&vote::enter, false); }},
        {"start_voting", [this](const std::string &) { return voting_call(&vote::start, false); }},
        {"stop_voting", [this](const std::string &) { return voting_call(&vote::stop, true); }},
        {"exit_voting", [this](const std::string &) { return voting_call(&vote::exit, false); }},
    };
}

std::string service::voting_call(int (vote::*action)(), bool with_results)
{
    int code = action != nullptr ? (vote_.*action)() : 0;
    if (action != nullptr && code == 0)
        emit_voting_results();
    if (!with_results || code != 0)
        return code_only(code);
    return "{\"code\":0,\"voting_results\":" + vote_.results_json() + "}";
}

void service::emit_voting_results()
{
    std::string payload = vote_.results_json();
    bus_signal_emit(client_, kServiceName, "voting_results_event", payload.data(),
                    static_cast<int>(payload.size()));
}

std::string service::answer(const std::string &name, const std::string &body)
{
    std::lock_guard<std::mutex> hold(mutex_);
    auto found = methods_.find(name);
    if (found == methods_.end()) {
        TULO_LOG_write_newline(0, 1, "external-device-sim", __LINE__, "answer", "unknown method %s",
                               name.c_str());
        return code_only(kCodeUnknownMethod);
    }
    return found->second(body);
}

int service::handle(bus_client *, void *user, const char *method, const char *body, int body_length,
                    char *reply, int capacity)
{
    auto *self = static_cast<service *>(user);
    TULO_LOG_write_newline(0, 2, "external-device-sim", __LINE__, "handle", "%s %.*s", method,
                           body_length, body);
    std::string text = self->answer(method, std::string(body, static_cast<size_t>(body_length)));
    // Sent as it is even when longer than a caller's buffer, so that callers meet that case too.
    if (static_cast<int>(text.size()) > capacity)
        return -1;
    memcpy(reply, text.data(), text.size());
    return static_cast<int>(text.size());
}

} // namespace vask_sim
