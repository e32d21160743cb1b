// SPDX-License-Identifier: MIT
// The service side: registration, presence and the connection's will.
#include "bus_internal.h"

using namespace vask_bus;

extern "C" int bus_service_register(bus_client *handle, const char *service,
                                    bus_method_handler handler, void *user)
{
    return bus_service_register_flags(handle, service, handler, user, 0);
}

extern "C" int bus_service_register_flags(bus_client *handle, const char *service, bus_method_handler handler,
                                          void *user, int flags)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || handler == nullptr || (flags & ~BUS_SERVICE_NO_BUS_CALLS) != 0)
        return BUS_ERR_INVALID;
    std::unique_lock<std::mutex> lock(client->mutex);
    if (client->services.count(service) != 0)
        return BUS_ERR_INVALID;
    client->services[service] = service_entry{handler, user, flags};
    start_direct_server_locked(client);
    auto deadline = steady::now() + kAckWait;
    if (client->will_service.empty()) {
        // The network thread sets the will before its next connection attempt.
        client->will_service = service;
        if (client->connected) {
            // A will only takes effect with a new connection; on_connect then subscribes and
            // announces every service.
            client->reconnect_now = true;
            mosquitto_disconnect_v5(client->mosq, 0, nullptr);
            client->state_changed.notify_all();
            client->state_changed.wait_until(lock, deadline, [client] { return !client->connected; });
            client->state_changed.wait_until(lock, deadline, [client] { return client->connected; });
            wait_for_acks(client, lock, deadline);
        }
        return BUS_OK;
    }
    if (client->connected) {
        subscribe_locked(client, method_topic(service, "+"), kQosRequest);
        publish_presence(client, service, true);
        wait_for_acks(client, lock, deadline);
    }
    return BUS_OK;
}

extern "C" int bus_service_unregister(bus_client *handle, const char *service)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (!valid_name(service) || in_handler())
        return BUS_ERR_INVALID;
    std::unique_lock<std::mutex> lock(client->mutex);
    if (client->services.erase(service) == 0)
        return BUS_ERR_INVALID;
    if (client->connected)
        mosquitto_unsubscribe_v5(client->mosq, nullptr, wire(client, method_topic(service, "+")).c_str(), nullptr);
    announce_offline(client, lock, {service});
    // The connection keeps its will; the next one is made without it.
    if (client->will_service == service)
        client->will_service.clear();
    const topic_match requests{method_topic(service, ""), true};
    drop_queued(client, requests);
    wait_for_handler(client, lock, requests);
    return BUS_OK;
}
