// SPDX-License-Identifier: MIT
// Client lifecycle: making and freeing clients, connecting and disconnecting.
#include "bus_internal.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mqtt_protocol.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>
#include <stdexcept>

#include "tulo_log.h"

using namespace vask_bus;

namespace {

constexpr size_t kMaxNameLength = 64;

std::mutex g_registry_mutex;
int g_init_count = 0;

// A handle is not the client's address but a slot number with the slot's generation, so that a
// freed handle is never taken for a newer client that reuses its memory or its slot. The slots never
// move, so that every call resolves its handle without a lock; they are changed under the registry
// mutex.
struct client_slot {
    // Zero-initialised, so the table costs no memory until slots are used; a handle carries the
    // generation plus one, so that no made-up handle with a zero generation ever resolves.
    std::atomic<uint64_t> generation{0};
    std::atomic<client_state *> client{nullptr};
};
constexpr int kSlotBits = 16;
constexpr uintptr_t kSlotMask = (uintptr_t{1} << kSlotBits) - 1;
// At most this many clients live in a process at once.
constexpr size_t kMaxClients = kSlotMask;
client_slot g_slots[kMaxClients];
size_t g_slots_used = 0;
std::vector<size_t> g_free_slots;

// Gives `client` a slot and its handle (registry mutex held).
bus_client *register_client(client_state *client)
{
    size_t index;
    if (!g_free_slots.empty()) {
        index = g_free_slots.back();
        g_free_slots.pop_back();
    } else {
        if (g_slots_used >= kMaxClients)
            throw std::length_error("too many bus clients");
        index = g_slots_used++;
    }
    g_slots[index].client.store(client, std::memory_order_release);
    uint64_t generation = g_slots[index].generation.load(std::memory_order_relaxed) + 1;
    return reinterpret_cast<bus_client *>((generation << kSlotBits) | (index + 1));
}

// Takes the handle's slot back; the handle and its copies stop resolving (registry mutex held).
void unregister_client(const bus_client *handle)
{
    size_t index = (reinterpret_cast<uintptr_t>(handle) & kSlotMask) - 1;
    g_slots[index].generation.fetch_add(1, std::memory_order_acq_rel);
    g_slots[index].client.store(nullptr, std::memory_order_release);
    g_free_slots.push_back(index);
}

uint64_t random_seed()
{
    uint64_t seed = 0;
    if (getrandom(&seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed))
        seed = static_cast<uint64_t>(steady::now().time_since_epoch().count()) ^
               (static_cast<uint64_t>(getpid()) << 32);
    return seed;
}

// The process's sockets, as "<fd> socket:[<inode>]".
std::set<std::string> open_sockets()
{
    std::set<std::string> sockets;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr)
        return sockets;
    while (const dirent *entry = readdir(dir)) {
        char target[64];
        ssize_t length = readlinkat(dirfd(dir), entry->d_name, target, sizeof target);
        if (length > 7 && memcmp(target, "socket:", 7) == 0)
            sockets.insert(std::string(entry->d_name) + " " + std::string(target, static_cast<size_t>(length)));
    }
    closedir(dir);
    return sockets;
}

// Marks the local sockets that appeared since `before` close-on-exec: mosquitto_new's pair, whose
// numbers nothing else tells. A local socket another thread of the application opens in that very
// instant is marked too: the lesser harm, against a pair leaking into every program started later.
void close_new_local_sockets_on_exec(const std::set<std::string> &before)
{
    for (const std::string &entry : open_sockets()) {
        if (before.count(entry) != 0)
            continue;
        int fd = atoi(entry.c_str());
        int domain = 0;
        socklen_t length = sizeof domain;
        if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &length) == 0 && domain == AF_UNIX)
            set_close_on_exec(fd);
    }
}

} // namespace

namespace vask_bus {

mosquitto *new_connection_handle(const std::string &client_id, void *user)
{
    std::set<std::string> sockets_before = open_sockets();
    mosquitto *mosq = mosquitto_new(client_id.c_str(), false, user);
    close_new_local_sockets_on_exec(sockets_before);
    if (mosq == nullptr)
        return nullptr;
    mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq, MOSQ_OPT_TCP_NODELAY, 1);
    return mosq;
}

int configure_transport(mosquitto *mosq, const broker_address &address)
{
    const char *username = secure_getenv("VASK_BUS_USERNAME");
    const char *password = secure_getenv("VASK_BUS_PASSWORD");
    if (username != nullptr && *username != '\0' &&
        mosquitto_username_pw_set(mosq, username, password) != MOSQ_ERR_SUCCESS)
        return BUS_ERR_INVALID;
    if (address.tls) {
        const char *cafile = secure_getenv("VASK_BUS_CAFILE");
        bool have_cafile = cafile != nullptr && *cafile != '\0';
        if (mosquitto_tls_set(mosq, have_cafile ? cafile : nullptr, have_cafile ? nullptr : "/etc/ssl/certs",
                              nullptr, nullptr, nullptr) != MOSQ_ERR_SUCCESS)
            return BUS_ERR_INVALID;
    }
    return BUS_OK;
}

client_state *resolve_client(const bus_client *handle)
{
    uintptr_t token = reinterpret_cast<uintptr_t>(handle);
    if ((token & kSlotMask) == 0)
        return nullptr;
    size_t index = (token & kSlotMask) - 1;
    uint64_t generation = static_cast<uint64_t>(token >> kSlotBits);
    if (index >= kMaxClients || generation == 0 ||
        g_slots[index].generation.load(std::memory_order_acquire) != generation - 1)
        return nullptr;
    return g_slots[index].client.load(std::memory_order_acquire);
}

int subscribe_locked(client_state *client, const std::string &topic, int qos)
{
    int mid = 0;
    int rc = mosquitto_subscribe_v5(client->mosq, &mid, wire(client, topic).c_str(), qos, 0, nullptr);
    if (rc == MOSQ_ERR_SUCCESS)
        client->unacked_subscriptions.insert(mid);
    return rc;
}

void wait_for_acks(client_state *client, std::unique_lock<std::mutex> &lock, steady::time_point deadline)
{
    client->state_changed.wait_until(lock, deadline, [client] {
        return !client->connected || client->unacked_subscriptions.empty();
    });
}

void publish_presence(client_state *client, const std::string &service, bool online)
{
    const char *text = online ? "online" : "offline";
    // "online" names the direct socket, for the callers on this host.
    mosquitto_property *properties = nullptr;
    if (online && client->direct_server != nullptr) {
        std::string pid = std::to_string(getpid());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kDirectSocketProperty,
                                           client->direct_server->path.c_str());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kDirectPidProperty, pid.c_str());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kDirectBootProperty,
                                           boot_id().c_str());
    }
    int mid = 0;
    int rc = publish_tracked_locked(client, &mid, wire(client, state_topic(service)), static_cast<int>(strlen(text)),
                                    text, true, properties);
    mosquitto_property_free_all(&properties);
    if (rc == MOSQ_ERR_SUCCESS && !online)
        client->unacked_presence.insert(mid);
}

void announce_offline(client_state *client, std::unique_lock<std::mutex> &lock,
                      const std::vector<std::string> &services)
{
    if (!client->connected)
        return;
    for (const std::string &service : services)
        publish_presence(client, service, false);
    client->state_changed.wait_for(lock, kTeardownStepWait, [client] {
        return !client->connected || client->unacked_presence.empty();
    });
}

} // namespace vask_bus

extern "C" int bus_init(void)
{
    std::lock_guard<std::mutex> hold(g_registry_mutex);
    if (g_init_count == 0 && mosquitto_lib_init() != MOSQ_ERR_SUCCESS)
        return BUS_ERR_FAILED;
    ++g_init_count;
    return BUS_OK;
}

extern "C" void bus_cleanup(void)
{
    std::lock_guard<std::mutex> hold(g_registry_mutex);
    if (g_init_count == 0)
        return;
    if (--g_init_count == 0)
        mosquitto_lib_cleanup();
}

extern "C" bus_client *bus_client_new(const char *name)
{
    if (!valid_name(name) || strlen(name) > kMaxNameLength)
        return nullptr;
    {
        std::lock_guard<std::mutex> hold(g_registry_mutex);
        if (g_init_count == 0)
            return nullptr;
    }
    try {
        auto *client = new client_state;
        client->name = name;
        client->random.seed(random_seed());
        char suffix[32];
        snprintf(suffix, sizeof suffix, "-%d-%08x", static_cast<int>(getpid()),
                 static_cast<unsigned>(client->random() & 0xffffffffu));
        client->client_id = client->name + suffix;
        const char *ns = secure_getenv("VASK_BUS_NAMESPACE");
        if (!valid_namespace(ns)) {
            TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "bus_client_new",
                                   "bad topic namespace VASK_BUS_NAMESPACE=%s", ns);
            delete client;
            return nullptr;
        }
        if (ns != nullptr && *ns != '\0')
            client->wire_prefix = std::string(ns) + "/";
        client->reply_topic = wire(client, "bus/reply/" + client->client_id);
        const char *own_calls = secure_getenv("VASK_BUS_CALLS_CONNECTION");
        client->calls_connection_enabled = own_calls == nullptr || strcmp(own_calls, "0") != 0;
        if (!init_calls_connection(client)) {
            delete client;
            return nullptr;
        }
        client->mosq = new_connection_handle(client->client_id, client);
        if (client->mosq == nullptr) {
            free_calls_connection(client);
            delete client;
            return nullptr;
        }
        // Our own network thread, not mosquitto_loop_start: in 2.0.11 threaded mode set by hand does
        // not combine with loop_start, and the loop's own reconnect delay cannot double.
        mosquitto_threaded_set(client->mosq, true);
        install_network_callbacks(client);
        client->limits = limits_from_environment();
        const char *direct = secure_getenv("VASK_BUS_DIRECT");
        client->direct_enabled = direct == nullptr || strcmp(direct, "0") != 0;
        if (set_connect_properties(client) != BUS_OK) {
            mosquitto_destroy(client->mosq);
            free_calls_connection(client);
            delete client;
            return nullptr;
        }
        {
            std::lock_guard<std::mutex> hold(g_registry_mutex);
            client->handle = register_client(client);
        }
        try {
            client->dispatcher = std::thread(dispatch_main, client);
        } catch (const std::exception &) {
            std::lock_guard<std::mutex> hold(g_registry_mutex);
            unregister_client(client->handle);
            mosquitto_destroy(client->mosq);
            free_calls_connection(client);
            delete client;
            return nullptr;
        }
        return client->handle;
    } catch (const std::exception &) {
        return nullptr;
    }
}

extern "C" void bus_client_set_user(bus_client *handle, void *user)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return;
    std::lock_guard<std::mutex> hold(client->mutex);
    client->user = user;
}

extern "C" int bus_connect(bus_client *handle, int flags)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (flags != 0)
        return BUS_ERR_INVALID;
    const char *url = secure_getenv("VASK_BUS_URL");
    broker_address address;
    if (!parse_broker_url(url != nullptr && *url != '\0' ? url : "mqtt://127.0.0.1:1883", &address)) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "bus_connect",
                               "bad broker address VASK_BUS_URL=%s", url);
        return BUS_ERR_INVALID;
    }
    std::unique_lock<std::mutex> lock(client->mutex);
    if (client->network_running)
        return BUS_OK;
    int rc = configure_transport(client->mosq, address);
    if (rc != BUS_OK)
        return rc;
    client->address = address;
    reopen_calls_connection(client);
    client->stopping = false;
    client->reconnect_now = false;
    client->backoff_s = 1;
    client->network_running = true;
    // Listening before the first connection, whose "online" names the socket.
    start_direct_server_locked(client);
    client->network = std::thread(network_main, client, address);
    auto deadline = steady::now() + kAckWait;
    client->state_changed.wait_until(lock, deadline, [client] { return client->connected; });
    wait_for_acks(client, lock, deadline);
    return client->connected ? BUS_OK : BUS_ERR_FAILED;
}

extern "C" int bus_disconnect(bus_client *handle)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (in_handler())
        return BUS_ERR_INVALID;
    std::unique_lock<std::mutex> lock(client->mutex);
    if (!client->network_running)
        return BUS_OK;
    std::vector<std::string> services;
    for (const auto &entry : client->services)
        services.push_back(entry.first);
    announce_offline(client, lock, services);
    client->stopping = true;
    mosquitto_disconnect_v5(client->mosq, 0, nullptr);
    client->state_changed.notify_all();
    lock.unlock();
    client->network.join();
    close_calls_connection(client);
    stop_direct_server(client);
    drop_direct_links(client);
    lock.lock();
    client->network_running = false;
    client->connected = false;
    fail_pending_calls(client, BUS_ERR_FAILED);
    client->queue.clear();
    client->queue_bytes = 0;
    wait_for_handler(client, lock, topic_match{std::string(), true});
    return BUS_OK;
}

extern "C" void bus_client_free(bus_client *handle)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return;
    if (in_handler()) {
        TULO_LOG_write_newline(BUS_LOG_MODULE, 0, kLogSource, __LINE__, "bus_client_free",
                               "refused: called from a handler of the bus");
        return;
    }
    bus_disconnect(handle);
    {
        std::lock_guard<std::mutex> hold(g_registry_mutex);
        unregister_client(handle);
    }
    {
        std::lock_guard<std::mutex> hold(client->mutex);
        client->dispatch_stop = true;
        client->queue_changed.notify_all();
    }
    client->dispatcher.join();
    mosquitto_destroy(client->mosq);
    free_calls_connection(client);
    delete client;
}
