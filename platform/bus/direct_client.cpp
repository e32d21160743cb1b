// SPDX-License-Identifier: MIT
// The caller's side of the direct path: calls to a service on the same host over its unix socket.
#include "bus_internal.h"

using namespace vask_bus;

extern "C" int bus_client_get_direct_stats(bus_client *handle, bus_direct_stats *stats)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (stats == nullptr)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    *stats = client->direct_stats;
    return BUS_OK;
}

extern "C" int bus_client_set_direct(bus_client *handle, int enabled)
{
    client_state *client = resolve_client(handle);
    if (client == nullptr)
        return BUS_ERR_FAILED;
    if (enabled != 0 && enabled != 1)
        return BUS_ERR_INVALID;
    std::lock_guard<std::mutex> hold(client->mutex);
    client->direct_enabled = enabled == 1;
    return BUS_OK;
}
