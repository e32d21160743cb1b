// SPDX-License-Identifier: MIT
// Signal subscriptions, kept in the client's own table, and signal emission.
#include "bus_internal.h"

using namespace vask_bus;

extern "C" int bus_signal_subscribe(bus_client *handle, const char *service, const char *event,
                                    bus_signal_handler handler)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || !valid_name(event) || handler == nullptr)
        return BUS_ERR_INVALID;
    std::string topic = signal_topic(service, event);
    std::unique_lock<std::mutex> lock(client->mutex);
    bool known = client->signals.count(topic) != 0;
    client->signals[topic] = handler;
    if (client->connected && !known) {
        subscribe_locked(client, topic, kQosSignal);
        wait_for_acks(client, lock, steady::now() + kAckWait);
    }
    return BUS_OK;
}

extern "C" int bus_signal_unsubscribe(bus_client *handle, const char *service, const char *event)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || !valid_name(event) || in_handler())
        return BUS_ERR_INVALID;
    std::string topic = signal_topic(service, event);
    std::unique_lock<std::mutex> lock(client->mutex);
    if (client->signals.erase(topic) == 0)
        return BUS_OK;
    if (client->connected)
        mosquitto_unsubscribe_v5(client->mosq, nullptr, wire(client, topic).c_str(), nullptr);
    const topic_match exact{topic, false};
    drop_queued(client, exact);
    wait_for_handler(client, lock, exact);
    return BUS_OK;
}

extern "C" int bus_signal_emit(bus_client *handle, const char *service, const char *event,
                               const void *payload, int length)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || !valid_name(event) || length < 0 || (payload == nullptr && length != 0))
        return BUS_ERR_INVALID;
    std::string topic = wire(client, signal_topic(service, event));
    std::lock_guard<std::mutex> hold(client->mutex);
    if (!client->connected)
        return BUS_ERR_FAILED;
    if (static_cast<int>(client->outgoing.size()) >= client->limits.send_messages ||
        client->outgoing_bytes + static_cast<size_t>(length) > client->limits.send_bytes) {
        ++client->stats.emits_refused;
        return BUS_ERR_QUEUE_FULL;
    }
    int mid = 0;
    return publish_tracked_locked(client, &mid, topic, length, payload, false) == MOSQ_ERR_SUCCESS ? BUS_OK
                                                                                                  : BUS_ERR_FAILED;
}
