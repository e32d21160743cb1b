// SPDX-License-Identifier: MIT
// Synchronous method calls: request by response topic and correlation data, reply matched by the
// network thread.
#include "bus_internal.h"

#include <algorithm>
#include <cstring>

#include "tulo_log.h"

namespace vask_bus {
namespace {

constexpr int kMaxTimeoutS = 3600;
constexpr size_t kCorrelationBytes = 16;

} // namespace

// Random rather than a counter, so that a restarted process never repeats a pending call's id.
std::string new_correlation(std::mt19937_64 &random, const std::unordered_map<std::string, pending_call *> &calls)
{
    std::string correlation(kCorrelationBytes, '\0');
    do {
        for (size_t i = 0; i < kCorrelationBytes; i += sizeof(uint64_t)) {
            uint64_t bits = random();
            memcpy(&correlation[i], &bits, sizeof bits);
        }
    } while (calls.count(correlation) != 0);
    return correlation;
}

int publish_request(mosquitto *mosq, const std::string &reply_topic, const std::string &topic, const char *body,
                    int body_length, const std::string &correlation, steady::time_point deadline)
{
    // The broker drops the request once what is left of the caller's timeout has passed.
    auto left =
        std::chrono::duration_cast<std::chrono::seconds>(deadline - steady::now() + std::chrono::milliseconds(999));
    auto expiry_s = static_cast<uint32_t>(std::max<long>(left.count(), 1));
    mosquitto_property *properties = nullptr;
    int rc = mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, reply_topic.c_str());
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                           static_cast<uint16_t>(correlation.size()));
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, expiry_s);
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_publish_v5(mosq, nullptr, topic.c_str(), body_length, body, kQosRequest, false, properties);
    mosquitto_property_free_all(&properties);
    return rc;
}

namespace {

// A service whose state was learnt on an earlier connection and has not arrived on this one yet
// may be gone with a broker restarted without its retained states: a request sent now would reach
// nobody and wait out the whole timeout. The call waits, within its timeout, for the service's
// state on this connection (it comes with the subscription, or when the service announces itself
// again). BUS_OK to go on, else the call's result.
int wait_for_current_presence(client_state *client, const std::string &service, steady::time_point deadline)
{
    std::unique_lock<std::mutex> lock(client->mutex);
    client->state_changed.wait_until(lock, deadline, [&] {
        return !client->connected || client->presence.count(service) == 0 ||
               client->presence_current.count(service) != 0;
    });
    if (!client->connected)
        return BUS_ERR_FAILED;
    auto presence = client->presence.find(service);
    if (presence == client->presence.end())
        return BUS_OK; // never announced: a service without presence is called all the same
    if (client->presence_current.count(service) == 0)
        return BUS_ERR_TIMEOUT;
    return presence->second ? BUS_OK : BUS_ERR_NO_SERVICE;
}

} // namespace
} // namespace vask_bus

using namespace vask_bus;

extern "C" int bus_method_call_sync(bus_client *handle, const char *service, const char *method,
                                    const char *body, int body_length, char *reply,
                                    int *reply_length, int timeout_s)
{
    if (reply_length != nullptr)
        *reply_length = 0;
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || !valid_name(method) || reply == nullptr || reply_length == nullptr ||
        body_length < 0 || (body == nullptr && body_length != 0) || timeout_s < 1 ||
        timeout_s > kMaxTimeoutS)
        return BUS_ERR_INVALID;

    if (on_network_thread(client)) {
        // The reply could only be read by this very thread.
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "bus_method_call_sync",
                               "refused: called on the network thread of %s, from the handler of a service "
                               "registered with BUS_SERVICE_NO_BUS_CALLS",
                               client->client_id.c_str());
        return BUS_ERR_INVALID;
    }
    auto deadline = steady::now() + std::chrono::seconds(timeout_s);
    std::shared_ptr<direct_link> link;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        // A service on this host answers over its own socket, also while the broker is away.
        link = direct_link_locked(client, service, body_length);
        if (!client->connected && link == nullptr)
            return BUS_ERR_FAILED;
        auto presence = client->presence.find(service);
        if (presence != client->presence.end() && !presence->second)
            return BUS_ERR_NO_SERVICE;
    }
    if (link != nullptr) {
        int direct = call_direct(client, link, service, method, body, body_length, reply, reply_length, timeout_s);
        if (direct != kNotDirect)
            return direct;
    }
    int waited = wait_for_current_presence(client, service, deadline);
    if (waited != BUS_OK)
        return waited;

    std::string topic = wire(client, method_topic(service, method));
    uint64_t connection_count;
    broker_address address;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        if (!client->connected)
            return BUS_ERR_FAILED;
        ++client->direct_stats.calls_broker;
        connection_count = client->connection_count;
        address = client->address;
    }
    if (client->calls_connection_enabled) { // set once, by bus_client_new
        int rc = call_on_calls_connection(client, connection_count, address, topic, body, body_length, reply,
                                          reply_length, deadline);
        if (rc != kNoCallsConnection)
            return rc;
    }

    pending_call call;
    call.reply = reply;
    call.reply_length = reply_length;
    std::string correlation;
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        if (!client->connected)
            return BUS_ERR_FAILED;
        correlation = new_correlation(client->random, client->calls);
        // Registered before the request leaves, so that an early reply finds its caller.
        client->calls.emplace(correlation, &call);
    }
    int rc = publish_request(client->mosq, client->reply_topic, topic, body, body_length, correlation, deadline);

    std::unique_lock<std::mutex> lock(client->mutex);
    if (rc != MOSQ_ERR_SUCCESS && !call.done) {
        client->calls.erase(correlation);
        return BUS_ERR_FAILED;
    }
    call.finished.wait_until(lock, deadline, [&call] { return call.done; });
    if (!call.done) {
        client->calls.erase(correlation);
        return BUS_ERR_TIMEOUT;
    }
    return call.result;
}
