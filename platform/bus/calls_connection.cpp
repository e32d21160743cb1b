// SPDX-License-Identifier: MIT
// The calls connection: synchronous calls through the broker written and read by the calling
// threads themselves. Of the callers waiting on it, one at a time polls its socket and reads what
// arrives, handing each reply to its caller; when its own reply is in, it hands the reading on.
#include "bus_internal.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "tulo_log.h"

namespace vask_bus {
namespace {

// A handshake step waits in slices this long, so that bus_disconnect is not kept waiting by it.
constexpr auto kHandshakeSlice = std::chrono::milliseconds(50);
// After a connection could not be made, calls share the client's connection this long.
constexpr auto kRetryAfterFailure = std::chrono::seconds(30);

void on_calls_connect(mosquitto *, void *obj, int rc, int, const mosquitto_property *properties)
{
    auto *link = static_cast<calls_connection *>(obj);
    link->handshake_rc = rc;
    uint16_t keepalive = 0;
    if (mosquitto_property_read_int16(properties, MQTT_PROP_SERVER_KEEP_ALIVE, &keepalive, false) != nullptr)
        link->server_keepalive_s = keepalive;
}

void on_calls_subscribe(mosquitto *, void *obj, int, int count, const int *granted, const mosquitto_property *)
{
    auto *link = static_cast<calls_connection *>(obj);
    link->handshake_subscribed = count == 1 && granted[0] == kQosRequest ? 1 : 0;
}

// Runs inside mosquitto_loop_read, on the caller that reads, the connection's mutex held.
void on_calls_message(mosquitto *, void *obj, const mosquitto_message *message, const mosquitto_property *properties)
{
    auto *link = static_cast<calls_connection *>(obj);
    link->last_read = steady::now();
    try {
        complete_call(link->calls, message, properties);
    } catch (const std::exception &) {
        // Out of memory while reading the correlation data: the reply is lost, its caller times out.
    }
}

int ms_until(steady::time_point deadline)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady::now());
    return static_cast<int>(std::max<long>(left.count() + 1, 0));
}

bool is_stopping(calls_connection &link)
{
    std::lock_guard<std::mutex> hold(link.mutex);
    return link.stopping;
}

// Runs the handshake of `mosq` (which only this thread uses) until `done`, the deadline, an error,
// or bus_disconnect.
template <typename Done>
bool run_handshake(calls_connection &link, mosquitto *mosq, steady::time_point deadline, Done done)
{
    while (!done()) {
        if (steady::now() >= deadline || is_stopping(link))
            return false;
        int slice = std::min(ms_until(deadline), static_cast<int>(kHandshakeSlice.count()));
        if (mosquitto_loop(mosq, std::max(slice, 1), 1) != MOSQ_ERR_SUCCESS)
            return false;
    }
    return true;
}

// Makes a connection for `link` (the caller holds `connecting`, not the mutex): connected, its reply
// topic subscribed. Null when the broker cannot be reached, refuses, or `deadline` passes.
mosquitto *make_connection(client_state *client, calls_connection &link, const broker_address &address,
                           steady::time_point deadline)
{
    mosquitto *mosq = new_connection_handle(link.client_id, &link);
    if (mosq == nullptr)
        return nullptr;
    mosquitto_connect_v5_callback_set(mosq, on_calls_connect);
    mosquitto_subscribe_v5_callback_set(mosq, on_calls_subscribe);
    link.handshake_rc = -1;
    link.handshake_subscribed = -1;
    link.server_keepalive_s = 0;
    // No keepalive of its own: nothing reads an idle calls connection. The broker then applies its
    // maximum, and the connection is made anew before it could expire (see idle_limit).
    bool made = configure_transport(mosq, address) == BUS_OK &&
                start_attempt(client, mosq, address, 0, deadline) == MOSQ_ERR_SUCCESS &&
                run_handshake(link, mosq, deadline, [&link] { return link.handshake_rc >= 0; }) &&
                link.handshake_rc == 0 &&
                mosquitto_subscribe_v5(mosq, nullptr, link.reply_topic.c_str(), kQosRequest, 0, nullptr) ==
                    MOSQ_ERR_SUCCESS &&
                run_handshake(link, mosq, deadline, [&link] { return link.handshake_subscribed >= 0; }) &&
                link.handshake_subscribed == 1;
    if (!made) {
        mosquitto_destroy(mosq);
        return nullptr;
    }
    mosquitto_message_v5_callback_set(mosq, on_calls_message);
    return mosq;
}

// Ends the connection (mutex held, nobody reading): its waiting calls get `result`.
void drop_locked(calls_connection &link, int result)
{
    fail_calls(link.calls, result);
    if (link.mosq != nullptr) {
        mosquitto_disconnect_v5(link.mosq, 0, nullptr);
        mosquitto_destroy(link.mosq);
        link.mosq = nullptr;
    }
    link.changed.notify_all();
}

void wake_reader(calls_connection &link)
{
    uint64_t one = 1;
    ssize_t written = write(link.wake_fd, &one, sizeof one);
    (void)written; // a full counter wakes the reader as well
}

// Asks the reader, if any, to drop the connection; drops it now when nobody reads (mutex held).
void drop_or_ask_reader(calls_connection &link, int result)
{
    if (link.reading) {
        link.drop_requested = true;
        wake_reader(link);
    } else {
        drop_locked(link, result);
    }
}

// Polls the socket until something arrives, the deadline, or a wake-up, and reads what arrived
// (mutex held through `lock`, released while polling).
void read_once(calls_connection &link, std::unique_lock<std::mutex> &lock, steady::time_point deadline)
{
    link.reading = true;
    pollfd fds[2] = {{mosquitto_socket(link.mosq), POLLIN, 0}, {link.wake_fd, POLLIN, 0}};
    lock.unlock();
    int ready = poll(fds, 2, ms_until(deadline));
    lock.lock();
    link.reading = false;
    if (ready > 0 && (fds[1].revents & POLLIN) != 0) {
        uint64_t count;
        ssize_t drained = read(link.wake_fd, &count, sizeof count);
        (void)drained;
    }
    if (link.drop_requested.exchange(false) || link.stopping)
        drop_locked(link, BUS_ERR_FAILED);
    else if (ready > 0 && fds[0].revents != 0 && mosquitto_loop_read(link.mosq, 1) != MOSQ_ERR_SUCCESS)
        drop_locked(link, BUS_ERR_FAILED); // lost: no reply can come on it any more
    link.changed.notify_all();
}

// Lets one of the other waiting callers read, when nobody does (mutex held).
void pass_reading_on(calls_connection &link)
{
    if (!link.reading && !link.calls.empty())
        link.calls.begin()->second->finished.notify_one();
}

// Reads what an idle connection has received before a request goes out on it: a connection the
// broker has closed is found so, and made anew, instead of swallowing the request (mutex held,
// nobody reading).
void take_in_pending(calls_connection &link)
{
    pollfd fd = {mosquitto_socket(link.mosq), POLLIN, 0};
    if (poll(&fd, 1, 0) > 0 && mosquitto_loop_read(link.mosq, 1) != MOSQ_ERR_SUCCESS)
        drop_locked(link, BUS_ERR_FAILED);
}

// A connection made during the client's present connection, ready for a request (mutex held
// through `lock`). BUS_OK, kNoCallsConnection, or the call's result when its deadline passes first.
int ensure_connection(client_state *client, calls_connection &link, std::unique_lock<std::mutex> &lock,
                      uint64_t connection_count, const broker_address &address, steady::time_point deadline)
{
    for (;;) {
        if (link.stopping)
            return kNoCallsConnection;
        auto now = steady::now();
        if (link.mosq != nullptr && !link.connecting) {
            bool idle_too_long = link.idle_limit.count() > 0 && now - std::max(link.last_read, link.last_sent) >
                                                                      link.idle_limit;
            if (link.made_on == connection_count && !link.drop_requested && !idle_too_long) {
                if (!link.reading)
                    take_in_pending(link);
                if (link.mosq != nullptr)
                    return BUS_OK;
                continue;
            }
            drop_or_ask_reader(link, BUS_ERR_FAILED);
        }
        if (link.connecting || link.mosq != nullptr) {
            if (!link.changed.wait_until(lock, deadline, [&link] { return !link.connecting && !link.reading; }))
                return BUS_ERR_TIMEOUT;
            continue;
        }
        if (now < link.retry_after)
            return kNoCallsConnection;
        link.connecting = true;
        link.drop_requested = false;
        lock.unlock();
        mosquitto *made = make_connection(client, link, address, std::min(deadline, now + kConnectTimeout));
        lock.lock();
        link.connecting = false;
        link.changed.notify_all();
        if (link.stopping) {
            // Ended by bus_disconnect, not refused: nothing to give up on.
            if (made != nullptr)
                mosquitto_destroy(made);
            return kNoCallsConnection;
        }
        if (made == nullptr) {
            link.retry_after = steady::now() + kRetryAfterFailure;
            TULO_LOG_write_newline(BUS_LOG_MODULE, 1, kLogSource, __LINE__, "bus_method_call_sync",
                                   "no calls connection %s to broker %s:%d; calls share the connection of %s for %lld s",
                                   link.client_id.c_str(), address.host.c_str(), address.port,
                                   client->client_id.c_str(), static_cast<long long>(kRetryAfterFailure.count()));
            return kNoCallsConnection;
        }
        link.mosq = made;
        link.made_on = connection_count;
        link.last_read = link.last_sent = steady::now();
        link.idle_limit = std::chrono::seconds(link.server_keepalive_s / 2);
        return BUS_OK;
    }
}

} // namespace

bool init_calls_connection(client_state *client)
{
    auto link = std::make_unique<calls_connection>();
    link->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (link->wake_fd < 0)
        return false;
    link->client_id = client->client_id + kCallsIdSuffix;
    link->reply_topic = wire(client, "bus/reply/" + link->client_id);
    link->random.seed(client->random());
    client->calls_link = std::move(link);
    return true;
}

void free_calls_connection(client_state *client)
{
    if (client->calls_link == nullptr)
        return;
    if (client->calls_link->mosq != nullptr)
        mosquitto_destroy(client->calls_link->mosq);
    close(client->calls_link->wake_fd);
    client->calls_link.reset();
}

int call_on_calls_connection(client_state *client, uint64_t connection_count, const broker_address &address,
                             const std::string &topic, const char *body, int body_length, char *reply,
                             int *reply_length, steady::time_point deadline)
{
    calls_connection &link = *client->calls_link;
    std::unique_lock<std::mutex> lock(link.mutex);
    int ready = ensure_connection(client, link, lock, connection_count, address, deadline);
    if (ready != BUS_OK)
        return ready;

    pending_call call;
    call.reply = reply;
    call.reply_length = reply_length;
    std::string correlation = new_correlation(link.random, link.calls);
    // Registered before the request leaves, so that whoever reads finds its caller.
    link.calls.emplace(correlation, &call);
    auto sent = steady::now();
    if (publish_request(link.mosq, link.reply_topic, topic, body, body_length, correlation, deadline) !=
        MOSQ_ERR_SUCCESS) {
        // Part of the request may have left: nothing more can go on this connection.
        link.calls.erase(correlation);
        drop_or_ask_reader(link, BUS_ERR_FAILED);
        return BUS_ERR_FAILED;
    }
    link.last_sent = sent;
    while (!call.done && steady::now() < deadline) {
        if (!link.reading && link.mosq != nullptr)
            read_once(link, lock, deadline);
        else
            call.finished.wait_until(lock, deadline, [&] { return call.done || !link.reading; });
    }
    if (!call.done) {
        link.calls.erase(correlation);
        // Nothing at all arrived since the request left: the connection may be dead without knowing
        // it (a network that went silent). Once no other call waits on it, the next call makes a new one.
        if (link.last_read < sent && link.calls.empty() && link.mosq != nullptr)
            drop_or_ask_reader(link, BUS_ERR_FAILED);
    }
    pass_reading_on(link);
    return call.done ? call.result : BUS_ERR_TIMEOUT;
}

void calls_connection_lost(client_state *client)
{
    if (client->calls_link == nullptr)
        return;
    client->calls_link->drop_requested = true;
    wake_reader(*client->calls_link);
}

void close_calls_connection(client_state *client)
{
    calls_connection &link = *client->calls_link;
    std::unique_lock<std::mutex> lock(link.mutex);
    link.stopping = true;
    wake_reader(link);
    // A reader wakes at once; a handshake looks every kHandshakeSlice.
    link.changed.wait(lock, [&link] { return !link.reading && !link.connecting; });
    link.drop_requested = false;
    drop_locked(link, BUS_ERR_FAILED);
}

void reopen_calls_connection(client_state *client)
{
    calls_connection &link = *client->calls_link;
    std::lock_guard<std::mutex> hold(link.mutex);
    link.stopping = false;
    link.retry_after = {};
}

std::string calling_client(const std::string &reply_client_id)
{
    std::string suffix = kCallsIdSuffix;
    if (reply_client_id.size() > suffix.size() &&
        reply_client_id.compare(reply_client_id.size() - suffix.size(), suffix.size(), suffix) == 0)
        return reply_client_id.substr(0, reply_client_id.size() - suffix.size());
    return reply_client_id;
}

} // namespace vask_bus
