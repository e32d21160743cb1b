// SPDX-License-Identifier: MIT
// The limits of a client's two queues, what they drop, and their counters.
#include "bus_internal.h"

#include <cerrno>
#include <cstdlib>

#include "tulo_log.h"

namespace vask_bus {
namespace {

constexpr auto kDropLogInterval = std::chrono::seconds(1);

// A positive number from the environment, or `fallback` when unset or not one.
unsigned long long environment_number(const char *name, unsigned long long fallback, unsigned long long most)
{
    const char *text = secure_getenv(name);
    if (text == nullptr || *text == '\0')
        return fallback;
    char *end = nullptr;
    errno = 0;
    unsigned long long value = strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 1 || value > most || *text == '-') {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "bus_client_new",
                               "ignoring %s=%s: not a number from 1 to %llu", name, text, most);
        return fallback;
    }
    return value;
}

// The oldest queued signal, or the oldest request when no signal waits.
std::deque<dispatch_item>::iterator oldest_droppable(client_state *client)
{
    for (auto it = client->queue.begin(); it != client->queue.end(); ++it)
        if (!it->request)
            return it;
    return client->queue.begin();
}

} // namespace

queue_limits limits_from_environment()
{
    queue_limits limits;
    int messages = static_cast<int>(environment_number("VASK_BUS_QUEUE_MESSAGES", kDefaultQueueMessages, 1u << 30));
    size_t bytes = static_cast<size_t>(environment_number("VASK_BUS_QUEUE_BYTES", kDefaultQueueBytes, 1ull << 40));
    limits.dispatch_messages = limits.send_messages = messages;
    limits.dispatch_bytes = limits.send_bytes = bytes;
    return limits;
}

std::deque<dispatch_item>::iterator unqueue_locked(client_state *client, std::deque<dispatch_item>::iterator it)
{
    client->queue_bytes -= it->cost();
    return client->queue.erase(it);
}

bool enqueue_locked(client_state *client, dispatch_item &&item)
{
    bool dropped = false;
    size_t cost = item.cost();
    // A message larger than the byte limit on its own still gets through an empty queue.
    while (!client->queue.empty() &&
           (static_cast<int>(client->queue.size()) >= client->limits.dispatch_messages ||
            client->queue_bytes + cost > client->limits.dispatch_bytes)) {
        auto victim = oldest_droppable(client);
        if (victim->request)
            ++client->stats.requests_dropped;
        else
            ++client->stats.signals_dropped;
        unqueue_locked(client, victim);
        dropped = true;
    }
    client->queue_bytes += cost;
    client->queue.push_back(std::move(item));
    return dropped;
}

void report_drops(client_state *client)
{
    unsigned long long signals, requests;
    size_t messages;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        auto now = steady::now();
        if (client->drop_logged != steady::time_point{} && now - client->drop_logged < kDropLogInterval)
            return;
        client->drop_logged = now;
        signals = client->stats.signals_dropped;
        requests = client->stats.requests_dropped;
        messages = client->queue.size();
    }
    TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "dispatch",
                           "%s falls behind: its dispatch queue is full (%zu messages); dropped so far: "
                           "%llu signals, %llu requests, the oldest first",
                           client->client_id.c_str(), messages, signals, requests);
}

int publish_tracked_locked(client_state *client, int *mid, const std::string &topic, int length,
                           const void *payload, bool retain, const mosquitto_property *properties)
{
    int rc = mosquitto_publish_v5(client->mosq, mid, topic.c_str(), length, payload, kQosSignal, retain, properties);
    if (rc == MOSQ_ERR_SUCCESS) {
        client->outgoing[*mid] = static_cast<size_t>(length);
        client->outgoing_bytes += static_cast<size_t>(length);
    }
    return rc;
}

} // namespace vask_bus

using namespace vask_bus;

extern "C" int bus_client_set_limits(bus_client *handle, int dispatch_messages, unsigned long dispatch_bytes,
                                     int send_messages, unsigned long send_bytes)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (dispatch_messages < 1 || dispatch_bytes < 1 || send_messages < 1 || send_bytes < 1)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    client->limits.dispatch_messages = dispatch_messages;
    client->limits.dispatch_bytes = dispatch_bytes;
    client->limits.send_messages = send_messages;
    client->limits.send_bytes = send_bytes;
    return BUS_OK;
}

extern "C" int bus_client_get_stats(bus_client *handle, bus_client_stats *stats)
{
    return copy_figures(handle, stats, [](client_state *client, bus_client_stats *out) {
        *out = client->stats;
        out->dispatch_queued = client->queue.size();
        out->dispatch_bytes = client->queue_bytes;
        out->send_queued = client->outgoing.size();
        out->send_bytes = client->outgoing_bytes;
    });
}
