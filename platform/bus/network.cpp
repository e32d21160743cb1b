// SPDX-License-Identifier: MIT
// The network thread of a client: connection attempts that nothing can hold for long, the
// connection's callbacks, reconnection with back-off, and the will.
#include "bus_internal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tulo_log.h"

namespace vask_bus {
namespace {

constexpr int kKeepaliveS = 15;
constexpr int kSessionExpiryS = 120;
constexpr int kMaxBackoffS = 30;
constexpr auto kLoopTimeout = std::chrono::milliseconds(250);
constexpr auto kResolvePoll = std::chrono::milliseconds(20);

void on_connect(mosquitto *, void *obj, int rc, int, const mosquitto_property *)
{
    auto *client = static_cast<client_state *>(obj);
    if (rc != 0) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "on_connect",
                               "broker refused the connection of %s: %s", client->client_id.c_str(),
                               mosquitto_reason_string(rc));
        return;
    }
    std::lock_guard<std::mutex> hold(client->mutex);
    client->connected = true;
    ++client->connection_count;
    client->backoff_s = 1;
    client->lost_logged = false;
    client->unacked_subscriptions.clear();
    client->unacked_presence.clear();
    client->presence_current.clear();
    // The broker may have lost our session (a restart): subscribe again to the whole table.
    // Presence first and at QoS 0: the broker writes the retained states straight after its
    // acknowledgement, ahead of the acknowledgements of the later subscriptions, so once
    // bus_connect has seen every acknowledgement the client knows which services are offline.
    subscribe_locked(client, "+/state", kQosRequest);
    subscribe_locked(client, "bus/reply/" + client->client_id, kQosRequest);
    for (const auto &entry : client->signals)
        subscribe_locked(client, entry.first, kQosSignal);
    for (const auto &entry : client->services)
        subscribe_locked(client, method_topic(entry.first, "+"), kQosRequest);
    subscribe_monitor_locked(client);
    // Queued after the subscriptions on the same connection, so whoever sees "online" can call.
    for (const auto &entry : client->services)
        publish_presence(client, entry.first, true);
    TULO_LOG_write_newline(BUS_LOG_MODULE, 2, kLogSource, __LINE__, "on_connect", "%s connected",
                           client->client_id.c_str());
    client->state_changed.notify_all();
}

// Marks the client disconnected (mutex held). A call in flight can no longer get its reply: the
// reply topic's subscription and the QoS 0 reply went with the connection.
void lose_connection_locked(client_state *client)
{
    if (client->connected) {
        client->connected = false;
        client->state_changed.notify_all();
    }
    fail_pending_calls(client, BUS_ERR_FAILED);
    calls_connection_lost(client);
}

void on_disconnect(mosquitto *, void *obj, int rc, const mosquitto_property *)
{
    auto *client = static_cast<client_state *>(obj);
    std::lock_guard<std::mutex> hold(client->mutex);
    bool was_connected = client->connected;
    lose_connection_locked(client);
    if (rc == MQTT_RC_SESSION_TAKEN_OVER) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "on_disconnect",
                               "session taken over: another connection uses client id %s",
                               client->client_id.c_str());
    } else if (was_connected && !client->stopping && !client->reconnect_now) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "on_disconnect",
                               "%s lost its connection (%d), reconnecting",
                               client->client_id.c_str(), rc);
    }
}

void on_subscribe(mosquitto *, void *obj, int mid, int, const int *, const mosquitto_property *)
{
    auto *client = static_cast<client_state *>(obj);
    std::lock_guard<std::mutex> hold(client->mutex);
    client->unacked_subscriptions.erase(mid);
    client->state_changed.notify_all();
}

void on_publish(mosquitto *, void *obj, int mid, int, const mosquitto_property *)
{
    auto *client = static_cast<client_state *>(obj);
    std::lock_guard<std::mutex> hold(client->mutex);
    auto sent = client->outgoing.find(mid);
    if (sent != client->outgoing.end()) {
        client->outgoing_bytes -= sent->second;
        client->outgoing.erase(sent);
    }
    if (client->unacked_presence.erase(mid) != 0)
        client->state_changed.notify_all();
}

// The will is read by libmosquitto while it makes a connection, so it is changed only here,
// between two connections, on the thread that makes them.
void apply_will_locked(client_state *client)
{
    if (client->will_service.empty()) {
        mosquitto_will_clear(client->mosq);
        return;
    }
    static const char offline[] = "offline";
    mosquitto_will_set_v5(client->mosq, wire(client, state_topic(client->will_service)).c_str(),
                          static_cast<int>(strlen(offline)), offline, kQosSignal, true, nullptr);
}

bool numeric_host(const std::string &host)
{
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(AF_INET, host.c_str(), address) == 1 || inet_pton(AF_INET6, host.c_str(), address) == 1;
}

// A resolution on the resolver's own thread, with everything it reads kept beside it.
struct resolution {
    gaicb request{};
    std::string name;
    addrinfo hints{};
};

// Resolutions given up while the resolver still works on them: it reads their name and writes
// their result when it is done, so they are kept for the life of the process.
std::mutex g_abandoned_mutex;
std::vector<std::unique_ptr<resolution>> g_abandoned;

// Resolves a host name on the resolver's own thread, so that the wait can end at `deadline` or when
// the client stops. Gives the first address in numeric form in `numeric`; false when the name does
// not resolve in time or the client stops.
bool resolve_within(client_state *client, const std::string &host, steady::time_point deadline, std::string *numeric)
{
    auto job = std::make_unique<resolution>();
    job->name = host;
    job->hints.ai_family = AF_UNSPEC;
    job->hints.ai_socktype = SOCK_STREAM;
    job->request.ar_name = job->name.c_str();
    job->request.ar_request = &job->hints;
    gaicb *list[] = {&job->request};
    if (getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr) != 0)
        return false;
    int state;
    while ((state = gai_error(&job->request)) == EAI_INPROGRESS) {
        std::unique_lock<std::mutex> lock(client->mutex);
        if (client->stopping || steady::now() >= deadline)
            break;
        client->state_changed.wait_for(lock, kResolvePoll);
    }
    if (state == EAI_INPROGRESS && gai_cancel(&job->request) != EAI_ALLDONE) {
        if (gai_error(&job->request) == EAI_INPROGRESS) {
            std::lock_guard<std::mutex> hold(g_abandoned_mutex);
            g_abandoned.push_back(std::move(job));
        }
        return false;
    }
    state = gai_error(&job->request);
    addrinfo *result = job->request.ar_result;
    char text[INET6_ADDRSTRLEN] = "";
    bool found = state == 0 && result != nullptr &&
                 getnameinfo(result->ai_addr, result->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0;
    if (result != nullptr)
        freeaddrinfo(result);
    if (found)
        *numeric = text;
    return found;
}



// Ends the connection or the attempt now: a socket still connecting stops its handshake, a
// connected one reads its end; the loop then closes it.
void drop_socket(client_state *client)
{
    int fd = mosquitto_socket(client->mosq);
    if (fd >= 0)
        shutdown(fd, SHUT_RDWR);
}

// Runs one connection until it ends: lost, refused, given up at the attempt's deadline, or closed
// by bus_disconnect (DISCONNECT sent, or the socket dropped when it cannot leave in time).
int run_connection(client_state *client, steady::time_point attempt_deadline, bool *timed_out)
{
    bool stop_sent = false;
    bool dropped = false;
    steady::time_point stop_deadline{};
    int rc = MOSQ_ERR_SUCCESS;
    while (rc == MOSQ_ERR_SUCCESS) {
        auto now = steady::now();
        auto wait = kLoopTimeout;
        if (stop_sent && !dropped)
            wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(stop_deadline - now));
        rc = mosquitto_loop(client->mosq, static_cast<int>(std::max<long>(wait.count(), 1)), 1);
        bool stop, connected;
        {
            std::lock_guard<std::mutex> hold(client->mutex);
            stop = client->stopping;
            connected = client->connected;
        }
        now = steady::now();
        // bus_disconnect may have raced with a connection that was still being made.
        if (stop && !stop_sent) {
            mosquitto_disconnect_v5(client->mosq, 0, nullptr);
            stop_sent = true;
            stop_deadline = now + kTeardownStepWait;
        }
        if (dropped || rc != MOSQ_ERR_SUCCESS)
            continue;
        if (stop_sent && now >= stop_deadline) {
            drop_socket(client);
            dropped = true;
        } else if (!connected && !stop_sent && now >= attempt_deadline) {
            *timed_out = true;
            drop_socket(client);
            dropped = true;
        }
    }
    return rc;
}

} // namespace

// Starts a connection attempt without waiting for it: libmosquitto makes the TCP connection
// non-blocking and sends CONNECT once it is up. A host name is resolved first within the attempt's
// deadline; over TLS the name itself is handed on, since the broker's certificate is checked
// against it.
int start_attempt(client_state *client, mosquitto *mosq, const broker_address &address, int keepalive_s,
                  steady::time_point deadline)
{
    std::string host = address.host;
    if (!numeric_host(host)) {
        std::string numeric;
        if (!resolve_within(client, host, deadline, &numeric))
            return MOSQ_ERR_EAI;
        if (!address.tls)
            host = numeric;
    }
    int rc = mosquitto_connect_bind_async(mosq, host.c_str(), address.port, keepalive_s, nullptr);
    if (rc == MOSQ_ERR_SUCCESS)
        set_close_on_exec(mosquitto_socket(mosq));
    return rc;
}

void set_close_on_exec(int fd)
{
    if (fd < 0)
        return;
    int flags = fcntl(fd, F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0)
        fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

void install_network_callbacks(client_state *client)
{
    mosquitto_connect_v5_callback_set(client->mosq, on_connect);
    mosquitto_disconnect_v5_callback_set(client->mosq, on_disconnect);
    mosquitto_subscribe_v5_callback_set(client->mosq, on_subscribe);
    mosquitto_message_v5_callback_set(client->mosq, on_message);
    mosquitto_publish_v5_callback_set(client->mosq, on_publish);
}

int set_connect_properties(client_state *client)
{
    // libmosquitto 2.0 keeps the properties given to its blocking connect for every later
    // connection, the non-blocking ones included, which take none of their own. Handed over with
    // an impossible port, they are stored and nothing is connected. Without the session expiry
    // the broker would forget the session, and the QoS 1 signals sent during a short outage, at
    // every disconnection.
    mosquitto_property *properties = nullptr;
    if (mosquitto_property_add_int32(&properties, MQTT_PROP_SESSION_EXPIRY_INTERVAL, kSessionExpiryS) !=
        MOSQ_ERR_SUCCESS)
        return BUS_ERR_FAILED;
    int rc = mosquitto_connect_bind_v5(client->mosq, "127.0.0.1", -1, kKeepaliveS, nullptr, properties);
    mosquitto_property_free_all(&properties);
    return rc == MOSQ_ERR_INVAL ? BUS_OK : BUS_ERR_FAILED;
}

void network_main(client_state *client, broker_address address)
{
    mark_network_thread(client);
    std::unique_lock<std::mutex> lock(client->mutex);
    while (!client->stopping) {
        apply_will_locked(client);
        lock.unlock();
        auto attempt_deadline = steady::now() + kConnectTimeout;
        bool timed_out = false;
        int rc = start_attempt(client, client->mosq, address, kKeepaliveS, attempt_deadline);
        if (rc == MOSQ_ERR_SUCCESS)
            rc = run_connection(client, attempt_deadline, &timed_out);
        timed_out = timed_out || (rc == MOSQ_ERR_EAI && steady::now() >= attempt_deadline);
        lock.lock();
        lose_connection_locked(client);
        if (client->stopping)
            break;
        if (client->reconnect_now) {
            client->reconnect_now = false;
            continue;
        }
        if (!client->lost_logged) {
            client->lost_logged = true;
            // The reason names the attempt's deadline from the constant that sets it.
            std::string reason = timed_out ? "no answer within " +
                                                 std::to_string(std::chrono::seconds(kConnectTimeout).count()) + " s"
                                           : mosquitto_strerror(rc);
            TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "network_main",
                                   "cannot reach broker %s:%d (%s), retrying", address.host.c_str(),
                                   address.port, reason.c_str());
        }
        int wait_s = client->backoff_s;
        client->backoff_s = std::min(client->backoff_s * 2, kMaxBackoffS);
        client->state_changed.wait_for(lock, std::chrono::seconds(wait_s),
                                       [client] { return client->stopping || client->reconnect_now; });
        client->reconnect_now = false;
    }
}

} // namespace vask_bus
