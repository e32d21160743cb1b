// SPDX-License-Identifier: MIT
// Internal state of a bus client, shared by the files of libvask_bus.
#ifndef VASK_BUS_INTERNAL_H
#define VASK_BUS_INTERNAL_H

#include "vask_bus.h"
#include "calls_internal.h"
#include "direct_internal.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
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
// Teardown waits this long for the broker to acknowledge the "offline" of the client's services,
// and then as long again for the DISCONNECT to leave; a silent broker costs no more.
constexpr auto kTeardownStepWait = std::chrono::milliseconds(400);
// One connection attempt (name resolution, TCP, TLS, CONNACK) is given up after this long.
constexpr auto kConnectTimeout = std::chrono::seconds(5);

// Defaults of the queue limits (VASK_BUS_QUEUE_MESSAGES / VASK_BUS_QUEUE_BYTES override them).
constexpr int kDefaultQueueMessages = 10000;
constexpr size_t kDefaultQueueBytes = 16u * 1024u * 1024u;

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
    int flags = 0; // BUS_SERVICE_NO_BUS_CALLS
};

// A signal or a request, copied out of the network thread for the dispatch thread.
struct dispatch_item {
    bool request = false;
    int monitor_kind = 0; // a BUS_MONITOR_* kind for a monitor's copy of a message
    std::string topic;
    std::string payload;
    std::string response_topic;
    std::string correlation;
    // A request's message expiry, counted from its arrival; a request still queued then is dropped,
    // since its caller has given up.
    steady::time_point expires = steady::time_point::max();

    size_t cost() const { return topic.size() + payload.size() + response_topic.size() + correlation.size(); }
};

// What a client's queues may hold, and what they counted.
struct queue_limits {
    int dispatch_messages = kDefaultQueueMessages;
    size_t dispatch_bytes = kDefaultQueueBytes;
    int send_messages = kDefaultQueueMessages;
    size_t send_bytes = kDefaultQueueBytes;
};

struct broker_address {
    std::string host;
    int port = 0;
    bool tls = false;
};

} // namespace vask_bus

struct client_state {
    bus_client *handle = nullptr; // what the application and the handlers see
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
    vask_bus::broker_address address;  // set by bus_connect
    uint64_t connection_count = 0;     // connections made so far: a calls connection knows its own
    std::set<int> unacked_subscriptions;
    std::set<int> unacked_presence; // "offline" announcements not yet acknowledged by the broker

    std::map<std::string, bus_signal_handler> signals;      // full topic -> handler
    std::map<std::string, vask_bus::service_entry> services; // service name -> handler
    std::string monitor_service; // the service a monitor watches, or empty
    bus_monitor_handler monitor_handler = nullptr;
    void *monitor_user = nullptr;
    std::string will_service; // applied by the network thread before each connection attempt
    std::unordered_map<std::string, bool> presence; // service name -> online
    // The services of `presence` whose state arrived on the present connection. One learnt on an
    // earlier connection may be stale: a broker restarted without its retained states says nothing
    // of a service until the service announces itself again.
    std::set<std::string> presence_current;
    std::unordered_map<std::string, vask_bus::pending_call *> calls; // correlation -> caller
    std::mt19937_64 random;
    void *user = nullptr;

    std::deque<vask_bus::dispatch_item> queue;
    size_t queue_bytes = 0;
    vask_bus::queue_limits limits;
    std::map<int, size_t> outgoing; // QoS 1 messages not yet acknowledged: message id -> bytes
    size_t outgoing_bytes = 0;
    bus_client_stats stats{};
    bus_direct_stats direct_stats{};
    std::atomic<unsigned long long> calls_direct{0}; // counted without the mutex, on the call's fast path
    bool direct_enabled = true; // VASK_BUS_DIRECT, bus_client_set_direct
    // Calls through the broker take a connection of their own (VASK_BUS_CALLS_CONNECTION; set by
    // bus_client_new and only read after, without the mutex). It has a lock of its own, which may be
    // taken with `mutex` held, never the other way round.
    bool calls_connection_enabled = true;
    std::unique_ptr<vask_bus::calls_connection> calls_link;
    std::unique_ptr<vask_bus::direct_server> direct_server; // while the client's services listen directly
    std::unordered_map<std::string, vask_bus::direct_route> direct_routes; // service -> its direct socket
    std::map<std::string, std::shared_ptr<vask_bus::direct_link>> direct_links; // socket path -> connection
    vask_bus::steady::time_point drop_logged{};
    std::condition_variable queue_changed;
    std::thread dispatcher;
    bool dispatch_stop = false;
    // One handler of a client runs at a time, whichever thread runs it (the dispatch thread, the
    // network thread for a service that makes no bus calls, the direct socket's thread).
    bool handler_running = false;
    std::string running_topic;
    uint64_t handlers_finished = 0;
    std::condition_variable handler_done;
};

namespace vask_bus {

// The client of a handle; null for a null, freed or made-up handle.
client_state *resolve_client(const bus_client *handle);

// True while the calling thread runs a signal or method handler of any client.
bool in_handler();

// Marks the calling thread as running a handler for the life of the scope.
struct handler_scope {
    handler_scope();
    ~handler_scope();
    handler_scope(const handler_scope &) = delete;
    handler_scope &operator=(const handler_scope &) = delete;
};

bool valid_name(const char *name);
std::string signal_topic(const std::string &service, const std::string &event);
std::string method_topic(const std::string &service, const std::string &method);
std::string state_topic(const std::string &service);

// The topic as published and subscribed: the client's namespace in front of `topic`.
inline std::string wire(const client_state *client, const std::string &topic)
{
    return client->wire_prefix + topic;
}

// Checks VASK_BUS_NAMESPACE: empty, or topic levels without wildcards, not starting or ending with '/'.
bool valid_namespace(const char *ns);

// Parses VASK_BUS_URL; false for a malformed URL.
bool parse_broker_url(const char *url, broker_address *out);

// Subscribes while the client's mutex is held, so that the acknowledgement cannot be handled before
// its message id is recorded. Returns the mosquitto result.
int subscribe_locked(client_state *client, const std::string &topic, int qos);

// Waits (mutex held through `lock`) until every recorded subscription is acknowledged, the client
// disconnects, or `deadline` passes.
void wait_for_acks(client_state *client, std::unique_lock<std::mutex> &lock, steady::time_point deadline);

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

// Waits until no handler of the client runs, then marks one running for `topic` (mutex held).
void claim_handler_slot(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic);
void release_handler_slot(client_state *client);

// Runs the method handler for request `topic` ("S/method/M") with the slot claimed and the mutex held
// through `lock` (released while the handler runs). Returns the reply's length in `reply`, or < 0 when
// nothing is to be answered (no such service any more, the handler declined, or its reply overflowed).
int serve_request(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic,
                  const char *body, size_t body_length, std::vector<char> &reply);

// Publishes a service's reply to a request that came through the broker.
void publish_reply(client_state *client, const std::string &response_topic, const std::string &correlation,
                   const char *reply, int length);

// Counts and logs a request whose caller gave up before its handler could run (mutex held through `lock`).
void drop_expired_request(client_state *client, std::unique_lock<std::mutex> &lock, const std::string &topic);

// True on the network thread of `client`: a synchronous call on it there would wait for itself.
bool on_network_thread(const client_state *client);
void mark_network_thread(const client_state *client);

// Waits until a running handler whose topic matches has returned.
void wait_for_handler(client_state *client, std::unique_lock<std::mutex> &lock, const topic_match &match);

// Removes the queued items whose topic matches.
void drop_queued(client_state *client, const topic_match &match);

void publish_presence(client_state *client, const std::string &service, bool online);

// Announces `services` as offline and waits (at most kTeardownStepWait) until the broker has
// acknowledged it.
// An unacknowledged announcement would be sent again after a reconnection, possibly after the
// "online" of that connection, and leave the service looking offline.
void announce_offline(client_state *client, std::unique_lock<std::mutex> &lock,
                      const std::vector<std::string> &services);

// The frame of a getter of a client's figures: BUS_ERR_FAILED for a null or freed client,
// BUS_ERR_INVALID for a null `out`, else `copy(client, out)` with the client's mutex held and BUS_OK.
template <typename Figures, typename Copy>
int copy_figures(bus_client *handle, Figures *out, Copy copy)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (out == nullptr)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    copy(client, out);
    return BUS_OK;
}

// Reads VASK_BUS_QUEUE_MESSAGES and VASK_BUS_QUEUE_BYTES into the defaults of a new client.
queue_limits limits_from_environment();

// Adds an arriving signal or request to the dispatch queue (mutex held), dropping the oldest
// signals (or, when none is queued, the oldest requests) that no longer fit the limits. Returns
// true when something was dropped.
bool enqueue_locked(client_state *client, dispatch_item &&item);

// Removes the queued item at `it` and gives back its room.
std::deque<dispatch_item>::iterator unqueue_locked(client_state *client, std::deque<dispatch_item>::iterator it);

// Logs the drops counted so far at level 1, at most once a second (mutex not held).
void report_drops(client_state *client);

// Publishes a QoS 1 message and records it until the broker acknowledges it (mutex held, so that
// the acknowledgement cannot be handled before the record exists).
int publish_tracked_locked(client_state *client, int *mid, const std::string &topic, int length,
                           const void *payload, bool retain, const mosquitto_property *properties = nullptr);

// Marks a descriptor close-on-exec, so that programs the application starts do not inherit it.
void set_close_on_exec(int fd);

// A libmosquitto handle for a connection of `client` as `client_id`, speaking MQTT v5 without
// Nagle's delay, its local socket pair closed on exec; null when it cannot be made.
mosquitto *new_connection_handle(const std::string &client_id, void *user);
// Sets the credentials and TLS of VASK_BUS_USERNAME, VASK_BUS_PASSWORD and VASK_BUS_CAFILE.
int configure_transport(mosquitto *mosq, const broker_address &address);
// Starts a connection attempt of `mosq` to `address` without waiting for it (host names resolved
// within `deadline`, given up when the client stops).
int start_attempt(client_state *client, mosquitto *mosq, const broker_address &address, int keepalive_s,
                  steady::time_point deadline);

// The connection's callbacks, and the properties every connection of the client is made with.
void install_network_callbacks(client_state *client);
int set_connect_properties(client_state *client);

// The network thread: connects, runs the connection, reconnects with back-off until stopped.
void network_main(client_state *client, broker_address address);

// Subscribes to what the monitor of the client watches (mutex held).
void subscribe_monitor_locked(client_state *client);

// Queues the monitor's copy of an arriving message (`topic` without the namespace) when the
// client's monitor watches it, and then sets `*queued`; true when that dropped something from the
// full queue.
bool queue_monitor_copy(client_state *client, bool *queued, const std::string &topic, const mosquitto_message *message,
                        const std::string &response_topic, const std::string &correlation);

// Hands a monitor's copy to the monitor's handler (dispatch thread, mutex held through `lock`).
void run_monitor(client_state *client, std::unique_lock<std::mutex> &lock, const dispatch_item &item);

// Network-thread entry points.
void on_message(mosquitto *mosq, void *obj, const mosquitto_message *message,
                const mosquitto_property *properties);
void deliver_reply(client_state *client, const mosquitto_message *message,
                   const mosquitto_property *properties);
// The correlation data of a message, or empty.
std::string read_correlation(const mosquitto_property *properties);
// Hands the reply `message` to the call in `calls` its correlation data names, and removes it from
// there (the lock that guards `calls` held); false when nobody waits for it.
bool complete_call(std::unordered_map<std::string, pending_call *> &calls, const mosquitto_message *message,
                   const mosquitto_property *properties);
void fail_pending_calls(client_state *client, int result);
// Ends every call of `calls` with `result` and empties it (the lock that guards `calls` held).
void fail_calls(std::unordered_map<std::string, pending_call *> &calls, int result);

void dispatch_main(client_state *client);

// A new correlation id, none of those `calls` waits for.
std::string new_correlation(std::mt19937_64 &random, const std::unordered_map<std::string, pending_call *> &calls);

// Publishes a request to `topic` (as on the wire) with `reply_topic` as its response topic and what
// is left until `deadline` as its message expiry. Returns the mosquitto result.
int publish_request(mosquitto *mosq, const std::string &reply_topic, const std::string &topic, const char *body,
                    int body_length, const std::string &correlation, steady::time_point deadline);

} // namespace vask_bus

#endif
