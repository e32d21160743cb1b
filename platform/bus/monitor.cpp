// SPDX-License-Identifier: MIT
// Monitors: a client that watches a service's traffic, for tools.
#include "bus_internal.h"

#include <cstring>

namespace vask_bus {
namespace {

constexpr const char *kReplyPrefix = "bus/reply/";

bool starts_with(const std::string &text, const std::string &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The BUS_MONITOR_* kind of a message on `topic` (without the namespace) for a monitor of
// `service`, or 0 when it does not watch it.
int watched_kind(const std::string &service, const std::string &topic)
{
    if (starts_with(topic, kReplyPrefix))
        return BUS_MONITOR_REPLY;
    if (topic == state_topic(service))
        return BUS_MONITOR_PRESENCE;
    if (starts_with(topic, method_topic(service, "")))
        return BUS_MONITOR_REQUEST;
    if (starts_with(topic, signal_topic(service, "")))
        return BUS_MONITOR_SIGNAL;
    return 0;
}

// The client id at the end of a reply topic as it is on the wire.
std::string reply_client_id(const client_state *client, const std::string &reply_topic)
{
    std::string prefix = wire(client, kReplyPrefix);
    return starts_with(reply_topic, prefix) ? calling_client(reply_topic.substr(prefix.size())) : std::string();
}

} // namespace

void subscribe_monitor_locked(client_state *client)
{
    if (client->monitor_service.empty())
        return;
    subscribe_locked(client, method_topic(client->monitor_service, "+"), kQosRequest);
    subscribe_locked(client, signal_topic(client->monitor_service, "+"), kQosRequest);
    subscribe_locked(client, std::string(kReplyPrefix) + "+", kQosRequest);
}

bool queue_monitor_copy(client_state *client, bool *queued, const std::string &topic, const mosquitto_message *message,
                        const std::string &response_topic, const std::string &correlation)
{
    std::lock_guard<std::mutex> hold(client->mutex);
    if (client->monitor_service.empty())
        return false;
    int kind = watched_kind(client->monitor_service, topic);
    if (kind == 0)
        return false;
    dispatch_item item;
    item.monitor_kind = kind;
    item.topic = topic;
    if (message->payload != nullptr && message->payloadlen > 0)
        item.payload.assign(static_cast<const char *>(message->payload), static_cast<size_t>(message->payloadlen));
    item.response_topic = response_topic;
    item.correlation = correlation;
    *queued = true;
    return enqueue_locked(client, std::move(item));
}

void run_monitor(client_state *client, std::unique_lock<std::mutex> &lock, const dispatch_item &item)
{
    bus_monitor_handler handler = client->monitor_handler;
    void *user = client->monitor_user;
    if (handler == nullptr)
        return;
    std::string service, name, client_id;
    size_t slash = item.topic.find('/');
    if (item.monitor_kind == BUS_MONITOR_REPLY) {
        client_id = calling_client(item.topic.substr(strlen(kReplyPrefix)));
    } else {
        service = item.topic.substr(0, slash);
        if (item.monitor_kind != BUS_MONITOR_PRESENCE)
            name = item.topic.substr(item.topic.find('/', slash + 1) + 1);
        if (item.monitor_kind == BUS_MONITOR_REQUEST)
            client_id = reply_client_id(client, item.response_topic);
    }
    bus_monitor_event event{};
    event.kind = item.monitor_kind;
    event.service = service.c_str();
    event.name = name.c_str();
    event.payload = item.payload.c_str();
    event.length = static_cast<int>(item.payload.size());
    event.client_id = client_id.c_str();
    event.correlation = item.correlation.empty() ? nullptr : item.correlation.data();
    event.correlation_length = static_cast<int>(item.correlation.size());
    lock.unlock();
    {
        handler_scope scope;
        handler(client->handle, user, &event);
    }
    lock.lock();
}

} // namespace vask_bus

using namespace vask_bus;

extern "C" int bus_monitor(bus_client *handle, const char *service, bus_monitor_handler handler, void *user)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || handler == nullptr)
        return BUS_ERR_INVALID;
    std::unique_lock<std::mutex> lock(client->mutex);
    bool same = client->monitor_service == service;
    client->monitor_service = service;
    client->monitor_handler = handler;
    client->monitor_user = user;
    if (client->connected && !same) {
        subscribe_monitor_locked(client);
        // The retained presence came with the connection, before the monitor: start it with the
        // presence known now.
        auto known = client->presence.find(service);
        if (known != client->presence.end()) {
            dispatch_item item;
            item.monitor_kind = BUS_MONITOR_PRESENCE;
            item.topic = state_topic(service);
            item.payload = known->second ? "online" : "offline";
            enqueue_locked(client, std::move(item));
            client->queue_changed.notify_one();
        }
        wait_for_acks(client, lock, steady::now() + kAckWait);
    }
    return BUS_OK;
}
