// SPDX-License-Identifier: MIT
// The dispatch thread: runs signal and method handlers one at a time, in arrival order, away from
// the network thread so that a handler may itself wait for a reply.
#include "bus_internal.h"

#include <cstring>
#include <vector>

#include "tulo_log.h"

namespace vask_bus {

namespace {

thread_local bool t_in_handler = false;

void run_signal(client_state *client, std::unique_lock<std::mutex> &lock, const dispatch_item &item)
{
    auto found = client->signals.find(item.topic);
    if (found == client->signals.end() || found->second == nullptr)
        return; // unsubscribed after it was queued
    bus_signal_handler handler = found->second;
    void *user = client->user;
    lock.unlock();
    {
        handler_scope scope;
        handler(client->handle, user, item.topic.c_str(), item.payload.c_str(),
                static_cast<int>(item.payload.size()));
    }
    lock.lock();
}

void run_request(client_state *client, std::unique_lock<std::mutex> &lock, const dispatch_item &item,
                 std::vector<char> &reply)
{
    std::string service = item.topic.substr(0, item.topic.find('/'));
    std::string method = item.topic.substr(service.size() + strlen("/method/"));
    auto found = client->services.find(service);
    if (found == client->services.end())
        return;
    service_entry entry = found->second;
    lock.unlock();
    int length;
    {
        handler_scope scope;
        length = entry.handler(client->handle, entry.user, method.c_str(), item.payload.c_str(),
                               static_cast<int>(item.payload.size()), reply.data(),
                               BUS_SERVICE_REPLY_CAPACITY);
    }
    if (length > BUS_SERVICE_REPLY_CAPACITY) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "dispatch",
                               "handler of %s returned %d bytes, more than its buffer; no reply sent",
                               item.topic.c_str(), length);
    } else if (length >= 0 && !item.response_topic.empty()) {
        mosquitto_property *properties = nullptr;
        if (!item.correlation.empty())
            mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                          item.correlation.data(),
                                          static_cast<uint16_t>(item.correlation.size()));
        mosquitto_publish_v5(client->mosq, nullptr, item.response_topic.c_str(), length,
                             reply.data(), kQosRequest, false, properties);
        mosquitto_property_free_all(&properties);
    }
    lock.lock();
}

} // namespace

bool in_handler()
{
    return t_in_handler;
}

handler_scope::handler_scope()
{
    t_in_handler = true;
}

handler_scope::~handler_scope()
{
    t_in_handler = false;
}

void dispatch_main(client_state *client)
{
    std::vector<char> reply(BUS_SERVICE_REPLY_CAPACITY + 1);
    std::unique_lock<std::mutex> lock(client->mutex);
    for (;;) {
        client->queue_changed.wait(lock, [client] { return client->dispatch_stop || !client->queue.empty(); });
        if (client->dispatch_stop)
            break;
        dispatch_item item = std::move(client->queue.front());
        client->queue_bytes -= item.cost();
        client->queue.pop_front();
        if (item.request && steady::now() >= item.expires) {
            // Its caller has given up: running it now would repeat an action the caller retries.
            ++client->stats.requests_expired;
            lock.unlock();
            TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "dispatch",
                                   "request %s expired before its handler ran; dropped", item.topic.c_str());
            lock.lock();
            continue;
        }
        client->handler_running = true;
        client->running_topic = item.topic;
        try {
            if (item.monitor_kind != 0)
                run_monitor(client, lock, item);
            else if (item.request)
                run_request(client, lock, item, reply);
            else
                run_signal(client, lock, item);
        } catch (...) {
            // A handler's exception must not end the thread that serves every other handler.
            if (!lock.owns_lock())
                lock.lock();
            TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "dispatch",
                                   "handler of %s threw an exception", item.topic.c_str());
        }
        client->handler_running = false;
        client->running_topic.clear();
        ++client->handlers_finished;
        client->handler_done.notify_all();
    }
}

void wait_for_handler(client_state *client, std::unique_lock<std::mutex> &lock, const topic_match &match)
{
    if (!client->handler_running || !match(client->running_topic))
        return;
    uint64_t running = client->handlers_finished;
    client->handler_done.wait(lock, [client, running] { return client->handlers_finished != running; });
}

void drop_queued(client_state *client, const topic_match &match)
{
    for (auto it = client->queue.begin(); it != client->queue.end();) {
        if (match(it->topic))
            it = unqueue_locked(client, it);
        else
            ++it;
    }
}

} // namespace vask_bus
