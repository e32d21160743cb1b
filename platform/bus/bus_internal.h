// Internal state of a bus client, shared by the files of libvask_bus.
#ifndef VASK_BUS_INTERNAL_H
#define VASK_BUS_INTERNAL_H

#include "vask_bus.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace vask_bus {

using steady = std::chrono::steady_clock;

constexpr const char *kLogSource = "vask_bus";
constexpr int kQosRequest = 0;
constexpr int kQosSignal = 1;
constexpr auto kAckWait = std::chrono::seconds(2);

// One synchronous call waiting for its reply; lives on the caller's stack and is reachable from the
// client's table only while the caller waits.
struct pending_call {
    char *reply = nullptr;
    int *reply_length = nullptr;
    bool done = false;
    int result = BUS_ERR_TIMEOUT;
    std::condition_variable finished;
};

struct service_entry {
    bus_method_handler handler = nullptr;
    void *user = nullptr;
};

// A signal or a request, copied out of the network thread for the dispatch thread.
struct dispatch_item {
    bool request = false;
    std::string topic;
    std::string payload;
    std::string response_topic;
    std::string correlation;
};

struct broker_address {
    std::string host;
    int port = 0;
    bool tls = false;
};

} // namespace vask_bus

struct bus_client {
    std::string name;
    std::string client_id;
    std::string reply_topic; // as on the wire, namespace included
    std::string wire_prefix; // "<namespace>/" or empty: what every topic is prefixed with
    mosquitto *mosq = nullptr;

    // Everything below is guarded by `mutex`.
    std::mutex mutex;
    std::condition_variable state_changed; // connection state, subscription acknowledgements
    bool network_running = false;
    bool connected = false;
    bool stopping = false;
    bool reconnect_now = false;
    int backoff_s = 1;
    bool lost_logged = false;
    std::thread network;
    std::set<int> unacked_subscriptions;
    std::set<int> unacked_presence; // "offline" announcements not yet acknowledged by the broker

    std::map<std::string, bus_signal_handler> signals;      // full topic -> handler
    std::map<std::string, vask_bus::service_entry> services; // service name -> handler
    std::string will_service;
    std::unordered_map<std::string, bool> presence; // service name -> online
    std::unordered_map<std::string, vask_bus::pending_call *> calls; // correlation -> caller
    std::mt19937_64 random;
    void *user = nullptr;

    std::deque<vask_bus::dispatch_item> queue;
    std::condition_variable queue_changed;
    std::thread dispatcher;
    bool dispatch_stop = false;
    bool handler_running = false;
    std::string running_topic;
    uint64_t handlers_finished = 0;
    std::condition_variable handler_done;
};

namespace vask_bus {

// Handles of live clients; a null or freed handle fails the check.
bool client_is_live(const bus_client *client);

// True while the calling thread runs a signal or method handler of any client.
bool in_handler();

bool valid_name(const char *name);
std::string signal_topic(const std::string &service, const std::string &event);
std::string method_topic(const std::string &service, const std::string &method);
std::string state_topic(const std::string &service);

// The topic as published and subscribed: the client's namespace in front of `topic`.
inline std::string wire(const bus_client *client, const std::string &topic)
{
    return client->wire_prefix + topic;
}

// Checks VASK_BUS_NAMESPACE: empty, or topic levels without wildcards, not starting or ending with '/'.
bool valid_namespace(const char *ns);

// Parses VASK_BUS_URL; false for a malformed URL.
bool parse_broker_url(const char *url, broker_address *out);

// Subscribes while the client's mutex is held, so that the acknowledgement cannot be handled before
// its message id is recorded. Returns the mosquitto result.
int subscribe_locked(bus_client *client, const std::string &topic, int qos);

// Waits (mutex held through `lock`) until every recorded subscription is acknowledged, the client
// disconnects, or `deadline` passes.
void wait_for_acks(bus_client *client, std::unique_lock<std::mutex> &lock, steady::time_point deadline);

// Which queued items or running handler a teardown concerns: one signal's exact topic, or every
// topic under a prefix ("S/method/" for a service), or everything (an empty prefix).
struct topic_match {
    std::string text;
    bool prefix;
    bool operator()(const std::string &topic) const
    {
        return prefix ? topic.compare(0, text.size(), text) == 0 : topic == text;
    }
};

// Waits until a running handler whose topic matches has returned.
void wait_for_handler(bus_client *client, std::unique_lock<std::mutex> &lock, const topic_match &match);

// Removes the queued items whose topic matches.
void drop_queued(bus_client *client, const topic_match &match);

void publish_presence(bus_client *client, const std::string &service, bool online);

// Announces `services` as offline and waits (at most 2 s) until the broker has acknowledged it.
// An unacknowledged announcement would be sent again after a reconnection, possibly after the
// "online" of that connection, and leave the service looking offline.
void announce_offline(bus_client *client, std::unique_lock<std::mutex> &lock,
                      const std::vector<std::string> &services);

// Network-thread entry points.
void on_message(mosquitto *mosq, void *obj, const mosquitto_message *message,
                const mosquitto_property *properties);
void deliver_reply(bus_client *client, const mosquitto_message *message,
                   const mosquitto_property *properties);
void fail_pending_calls(bus_client *client, int result);

void dispatch_main(bus_client *client);

} // namespace vask_bus

#endif
