// SPDX-License-Identifier: MIT
// What the network thread does with an arriving message: replies wake their caller, presence is
// recorded, signals and requests are queued for the dispatch thread.
#include "bus_internal.h"

#include <cstdlib>
#include <cstring>

#include "tulo_log.h"

namespace vask_bus {

namespace {

// The direct socket a presence names, from its user properties.
struct advertised_socket {
    std::string path;
    pid_t pid = 0;
    std::string boot;
};

advertised_socket read_advertised_socket(const mosquitto_property *properties)
{
    advertised_socket found;
    bool skip_first = false;
    for (const mosquitto_property *at = properties;; skip_first = true) {
        char *name = nullptr;
        char *value = nullptr;
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, skip_first);
        if (at == nullptr)
            break;
        if (strcmp(name, kDirectSocketProperty) == 0)
            found.path = value;
        else if (strcmp(name, kDirectPidProperty) == 0)
            found.pid = static_cast<pid_t>(atol(value));
        else if (strcmp(name, kDirectBootProperty) == 0)
            found.boot = value;
        free(name);
        free(value);
    }
    return found;
}

void record_presence(client_state *client, const std::string &topic, const mosquitto_message *message,
                     const mosquitto_property *properties)
{
    std::string service = topic.substr(0, topic.size() - strlen("/state"));
    std::string state(static_cast<const char *>(message->payload),
                      message->payload != nullptr ? static_cast<size_t>(message->payloadlen) : 0);
    advertised_socket socket;
    if (state == "online")
        socket = read_advertised_socket(properties);
    std::lock_guard<std::mutex> hold(client->mutex);
    if (state == "online")
        client->presence[service] = true;
    else if (state == "offline")
        client->presence[service] = false;
    else
        client->presence.erase(service); // a cleared retained state: unknown again
    client->presence_current.insert(service);
    record_route_locked(client, service, state == "online", socket.path, socket.pid, socket.boot);
    // Calls may wait for this service's state on the present connection.
    client->state_changed.notify_all();
}

// Answers a request on the network thread that read it, when its service makes no bus calls and no
// other handler runs or waits: the request then skips the hand-over to the dispatch thread. Returns
// false when the request must be queued instead.
bool serve_inline(client_state *client, const dispatch_item &item, size_t slash)
{
    std::unique_lock<std::mutex> lock(client->mutex);
    auto found = client->services.find(item.topic.substr(0, slash));
    if (found == client->services.end() || (found->second.flags & BUS_SERVICE_NO_BUS_CALLS) == 0 ||
        client->handler_running || !client->queue.empty())
        return false;
    claim_handler_slot(client, lock, item.topic);
    thread_local std::vector<char> reply(BUS_SERVICE_REPLY_CAPACITY + 1);
    int length = serve_request(client, lock, item.topic, item.payload.data(), item.payload.size(), reply);
    release_handler_slot(client);
    lock.unlock();
    if (length >= 0 && !item.response_topic.empty())
        publish_reply(client, item.response_topic, item.correlation, reply.data(), length);
    return true;
}

} // namespace

std::string read_correlation(const mosquitto_property *properties)
{
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) == nullptr)
        return std::string();
    std::string correlation(static_cast<const char *>(data), length);
    free(data);
    return correlation;
}

bool complete_call(std::unordered_map<std::string, pending_call *> &calls, const mosquitto_message *message,
                   const mosquitto_property *properties)
{
    auto found = calls.find(read_correlation(properties));
    if (found == calls.end())
        return false; // late, duplicated or foreign: nobody waits for it
    pending_call *call = found->second;
    calls.erase(found);
    int length = message->payload != nullptr ? message->payloadlen : 0;
    if (length >= BUS_REPLY_MAX) {
        call->result = BUS_ERR_REPLY_TOO_LARGE;
    } else {
        if (length > 0)
            memcpy(call->reply, message->payload, static_cast<size_t>(length));
        call->reply[length] = '\0';
        *call->reply_length = length;
        call->result = BUS_OK;
    }
    call->done = true;
    call->finished.notify_one();
    return true;
}

void deliver_reply(client_state *client, const mosquitto_message *message,
                   const mosquitto_property *properties)
{
    std::lock_guard<std::mutex> hold(client->mutex);
    complete_call(client->calls, message, properties);
}

void fail_calls(std::unordered_map<std::string, pending_call *> &calls, int result)
{
    for (auto &entry : calls) {
        entry.second->result = result;
        entry.second->done = true;
        entry.second->finished.notify_one();
    }
    calls.clear();
}

void fail_pending_calls(client_state *client, int result)
{
    fail_calls(client->calls, result);
}

namespace {

void route_message(client_state *client, const mosquitto_message *message, const mosquitto_property *properties)
{
    std::string topic = message->topic;
    if (topic == client->reply_topic) {
        deliver_reply(client, message, properties);
        return;
    }
    // Handlers and tables know topics without the namespace.
    if (topic.compare(0, client->wire_prefix.size(), client->wire_prefix) != 0)
        return;
    topic.erase(0, client->wire_prefix.size());
    size_t slash = topic.find('/');
    bool presence = slash != std::string::npos && topic.compare(slash, std::string::npos, "/state") == 0;
    dispatch_item item;
    if (slash != std::string::npos && topic.compare(slash, 8, "/method/") == 0) {
        item.request = true;
        char *response_topic = nullptr;
        if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &response_topic,
                                           false) != nullptr) {
            item.response_topic = response_topic;
            free(response_topic);
        }
        item.correlation = read_correlation(properties);
        uint32_t expiry_s = 0;
        // The broker hands on what is left of the caller's timeout.
        if (mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &expiry_s, false) != nullptr)
            item.expires = steady::now() + std::chrono::seconds(expiry_s);
    } else if (slash == std::string::npos || topic.compare(slash, 8, "/signal/") != 0) {
        // Presence, and the replies to other clients that only a monitor subscribes to.
        item.correlation = read_correlation(properties);
    }
    bool queued = false;
    bool dropped = queue_monitor_copy(client, &queued, topic, message, item.response_topic, item.correlation);
    if (presence) {
        record_presence(client, topic, message, properties);
    } else if (slash != std::string::npos &&
               (item.request || topic.compare(slash, 8, "/signal/") == 0)) {
        item.topic = std::move(topic);
        if (message->payload != nullptr && message->payloadlen > 0)
            item.payload.assign(static_cast<const char *>(message->payload),
                                static_cast<size_t>(message->payloadlen));
        if (!item.request || !serve_inline(client, item, slash)) {
            std::lock_guard<std::mutex> hold(client->mutex);
            // A monitor subscribes to more than the client handles itself.
            bool handled = item.request ? client->services.count(item.topic.substr(0, slash)) != 0
                                        : client->signals.count(item.topic) != 0;
            if (handled) {
                dropped = enqueue_locked(client, std::move(item)) || dropped;
                queued = true;
            }
        }
    }
    if (dropped)
        report_drops(client);
    // Woken after the unlock: a dispatch thread woken while the mutex is still held would only
    // block on it again, a context switch more per message when the two threads share a CPU. And
    // only for a message it has to handle: a request answered here or presence is none of its business.
    if (queued)
        client->queue_changed.notify_one();
}

} // namespace

void on_message(mosquitto *, void *obj, const mosquitto_message *message, const mosquitto_property *properties)
{
    try {
        route_message(static_cast<client_state *>(obj), message, properties);
    } catch (const std::exception &) {
        // Out of memory while copying a message: it is lost, the network thread carries on.
    }
}

} // namespace vask_bus
