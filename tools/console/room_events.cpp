// SPDX-License-Identifier: MIT
#include "room_events.h"

#include <atomic>
#include <cstring>
#include <libvask_external_device.h>

#include "json.h"
#include "records.h"

namespace console {

namespace {

// Signal callbacks get the library's user pointer, which the console cannot set: the hub they
// feed is kept here while room_events runs.
std::atomic<event_hub *> signal_hub{nullptr};

json_ptr signal_json(const char *event, const void *data)
{
    if (std::strcmp(event, "voting_results_event") == 0)
        return vote_json(*static_cast<const sig_voting_results_data *>(data));
    if (std::strcmp(event, "info_data_change_event") == 0) {
        auto *change = static_cast<const sig_info_data_change_data *>(data);
        json_ptr out = json_object();
        cJSON_AddNumberToObject(out.get(), "type", change->type);
        cJSON_AddNumberToObject(out.get(), "data", change->data);
        return out;
    }
    if (std::strcmp(event, "cam_status_event") == 0) {
        auto *cam = static_cast<const sig_cam_status_data *>(data);
        json_ptr out = microphone_json(cam->group, cam->id, cam->on);
        cJSON_AddNumberToObject(out.get(), "status", cam->status);
        return out;
    }
    auto *mic = static_cast<const sig_mic_on_data *>(data); // mic_on_event, non_list_mic_event
    return microphone_json(mic->group, mic->id, mic->on);
}

void on_signal(const char *event, void *data, void *)
{
    event_hub *hub = signal_hub.load();
    json_ptr record = signal_json(event, data);
    if (hub && record)
        hub->publish(event, json_text(record.get()));
}

constexpr const char *kSignals[] = {"mic_on_event", "voting_results_event", "info_data_change_event",
                                    "cam_status_event", "non_list_mic_event"};

constexpr const char *kService = "external_device";
constexpr const char *kProbeMethod = "get_mic_connection_state";
constexpr int kProbeTimeoutSeconds = 2;

} // namespace

room_events::room_events(event_hub &hub, std::chrono::milliseconds probe_interval)
    : hub_(hub), interval_(probe_interval)
{
}

room_events::~room_events() { stop(); }

bool room_events::start()
{
    signal_hub.store(&hub_);
    for (const char *event : kSignals)
        ed_register_signal(event, on_signal);
    if (bus_init() != BUS_OK)
        return false;
    bus_started_ = true;
    probe_ = bus_client_new("vask_console");
    if (!probe_)
        return false;
    // Not connected within 2 s: the client keeps trying, and the probe reports offline meanwhile.
    bus_connect(probe_, 0);
    // The first probe before the console serves, so that no client sees "unknown".
    probe();
    thread_ = std::thread(&room_events::probe_loop, this);
    return true;
}

void room_events::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
    if (signal_hub.load() == &hub_) {
        for (const char *event : kSignals)
            ed_unregister_signal(event);
        signal_hub.store(nullptr);
    }
    bus_client_free(probe_);
    probe_ = nullptr;
    if (bus_started_)
        bus_cleanup();
    bus_started_ = false;
}

std::string room_events::presence() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return presence_;
}

void room_events::set_presence(const char *state)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (presence_ == state)
            return;
        presence_ = state;
    }
    hub_.publish("presence", std::string("{\"state\":\"") + state + "\"}");
}

void room_events::probe()
{
    char reply[BUS_REPLY_MAX];
    int length = 0;
    int rc = bus_method_call_sync(probe_, kService, kProbeMethod, nullptr, 0, reply, &length, kProbeTimeoutSeconds);
    set_presence(rc == BUS_ERR_NO_SERVICE || rc == BUS_ERR_FAILED ? "offline" : "online");
}

void room_events::probe_loop()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, interval_, [this] { return stopping_; })) {
        lock.unlock();
        probe();
        lock.lock();
    }
}

} // namespace console
