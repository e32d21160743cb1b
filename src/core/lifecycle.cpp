// SPDX-License-Identifier: MIT
// Opening and closing the library, and the option table.
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include "core/internal.h"
#include "core/signals.h"

namespace vask_ed {
namespace {

std::atomic<bus_client *> g_client{nullptr};
bool g_initialised = false;

// Read on the bus library's dispatch thread while the application may set options, hence the lock.
std::mutex g_options_mutex;
std::unordered_map<int, int> g_options{{ED_OPT_SIGNAL_PARSE, 1}};

} // namespace

bus_client *current_client()
{
    return g_client.load(std::memory_order_acquire);
}

int option_value(int option)
{
    std::lock_guard<std::mutex> hold(g_options_mutex);
    return g_options[option];
}

} // namespace vask_ed

using namespace vask_ed;

ED_API int ed_init()
{
    if (g_initialised) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogLibrary, 109, "ed_init",
                               "External device library already initialized");
        return 0;
    }
    if (bus_init() < 0)
        return -1;
    bus_client *client = bus_client_new(kClientName);
    g_client.store(client, std::memory_order_release);
    // Before connecting, so that the connection's wait covers the broker's acknowledgements too.
    subscribe_registered_signals(client);
    // Not connected yet is not a failure: the client keeps trying in the background.
    bus_connect(client, 0);
    g_initialised = true;
    return 0;
}

ED_API int ed_release()
{
    if (!g_initialised) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogLibrary, 128, "ed_release",
                               "External device library not initialized");
        return 0;
    }
    bus_client *client = current_client();
    // The bus refuses to tear a client down from one of its handlers (the handler would wait for
    // itself) and does nothing then; closing anyway would leave a live client behind that keeps
    // delivering, and a later ed_init would subscribe a second one.
    if (client != nullptr && bus_disconnect(client) == BUS_ERR_INVALID) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, kLogLibrary, __LINE__, "ed_release",
                               "ed_release called from a signal callback: refused");
        return -1;
    }
    g_client.store(nullptr, std::memory_order_release);
    if (client != nullptr) {
        bus_client_free(client);
        bus_cleanup();
    }
    g_initialised = false;
    return 0;
}

ED_API int ed_get_bus_stats(bus_client_stats *stats)
{
    if (stats == nullptr)
        return -1;
    return bus_client_get_stats(current_client(), stats) == BUS_OK ? 0 : -1;
}

ED_API int ed_get_bus_direct_stats(bus_direct_stats *stats)
{
    if (stats == nullptr)
        return -1;
    return bus_client_get_direct_stats(current_client(), stats) == BUS_OK ? 0 : -1;
}

ED_API int ed_set_opt(int option, int value)
{
    try {
        std::lock_guard<std::mutex> hold(g_options_mutex);
        g_options[option] = value;
    } catch (const std::out_of_range &) {
        return -3;
    }
    return 0;
}
