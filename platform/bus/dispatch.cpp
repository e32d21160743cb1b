// SPDX-License-Identifier: MIT
// The dispatch thread: runs signal and method handlers one at a time, in arrival order, away from
// the network thread so that a handler may itself wait for a reply.
#include "bus_internal.h"

#include <cstring>
#include <vector>

#include "tulo_log.h"

namespace vask_bus {

namespace {

void log_thrown(const std::string &topic)
{
    TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "dispatch", "handler of %s threw an exception",
                           topic.c_str());
}

thread_local bool t_in_handler = false;
thread_local const client_state *t_network_client = nullptr;

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
    int length = serve_request(client, lock, item.topic, item.payload.data(), item.payload.size(), reply);
    if (length < 0 || item.response_topic.empty())
        return;
    lock.unlock();
    publish_reply(client, item.response_topic, item.correlation, reply.data(), length);
    lock.lock();
}

} // namespace

int serve_request(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic,
                  const char *body, size_t body_length, std::vector<char> &reply)
{
    size_t slash = topic.find('/');
    std::string service = topic.substr(0, slash);
    std::string method = topic.substr(slash + strlen("/method/"));
    auto found = client->services.find(service);
    if (found == client->services.end())
        return -1; // unregistered after the request arrived
    service_entry entry = found->second;
    lock.unlock();
    int length = -1;
    try {
        handler_scope scope;
        length = entry.handler(client->handle, entry.user, method.c_str(), body, static_cast<int>(body_length),
                               reply.data(), BUS_SERVICE_REPLY_CAPACITY);
    } catch (...) {
        // Whichever thread runs it, a handler's exception must not end the thread.
        log_thrown(topic);
    }
    if (length > BUS_SERVICE_REPLY_CAPACITY) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "dispatch",
                               "handler of %s returned %d bytes, more than its buffer; no reply sent",
                               topic.c_str(), length);
        length = -1;
    }
    lock.lock();
    return length;
}

void publish_reply(client_state *client, const std::string &response_topic, const std::string &correlation,
                   const char *reply, int length)
{
    mosquitto_property *properties = nullptr;
    if (!correlation.empty())
        mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                      static_cast<uint16_t>(correlation.size()));
    mosquitto_publish_v5(client->mosq, nullptr, response_topic.c_str(), length, reply, kQosRequest, false,
                         properties);
    mosquitto_property_free_all(&properties);
}

void drop_expired_request(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic)
{
    // Its caller has given up: running it now would repeat an action the caller retries.
    ++client->stats.requests_expired;
    lock.unlock();
    TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "dispatch",
                           "request %s expired before its handler ran; dropped", topic.c_str());
    lock.lock();
}

void claim_handler_slot(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic)
{
    client->handler_done.wait(lock, [client] { return !client->handler_running; });
    client->handler_running = true;
    client->running_topic = topic;
}

void release_handler_slot(client_state *client)
{
    client->handler_running = false;
    client->running_topic.clear();
    ++client->handlers_finished;
    client->handler_done.notify_all();
    // The dispatch thread waits for the slot only with something queued; woken for nothing, it
    // would cost a context switch for every request answered on another thread.
    if (!client->queue.empty())
        client->queue_changed.notify_one();
}

bool on_network_thread(const client_state *client)
{
    return t_network_client == client;
}

void mark_network_thread(const client_state *client)
{
    t_network_client = client;
}

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
        // A handler running on another thread (the network thread, the direct socket's) finishes
        // first; the item is taken only then, so that a teardown still finds it queued.
        client->queue_changed.wait(lock, [client] {
            return client->dispatch_stop || (!client->queue.empty() && !client->handler_running);
        });
        if (client->dispatch_stop)
            break;
        dispatch_item item = std::move(client->queue.front());
        client->queue_bytes -= item.cost();
        client->queue.pop_front();
        claim_handler_slot(client, lock, item.topic);
        if (item.request && steady::now() >= item.expires) {
            drop_expired_request(client, lock, item.topic);
            release_handler_slot(client);
            continue;
        }
        try {
            if (item.monitor_kind != 0)
                run_monitor(client, lock, item);
            else if (item.request)
                run_request(client, lock, item, reply);
            else
                run_signal(client, lock, item);
        } catch (...) {
            // A handler's exception must not end the thread that serves every other handler.
            log_thrown(item.topic);
            if (!lock.owns_lock())
                lock.lock();
        }
        release_handler_slot(client);
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
