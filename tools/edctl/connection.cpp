// SPDX-License-Identifier: MIT
// edctl's view of the bus: which broker it uses and whether that broker answers.
#include <cstdio>
#include <cstdlib>

#include "commands.h"

namespace edctl {

std::string bus_url()
{
    // --bus is stored in VASK_BUS_URL before any command runs; the bus library reads the same.
    const char *url = getenv("VASK_BUS_URL");
    return url != nullptr && *url != '\0' ? url : "mqtt://127.0.0.1:1883";
}

int not_connected(const std::string &what)
{
    fprintf(stderr, "edctl: %s failed: not connected to %s\n", what.c_str(), bus_url().c_str());
    return 1;
}

bool broker_answers()
{
    own_client probe("edctl");
    return probe.connected();
}

own_client::own_client(const char *name)
{
    started_ = bus_init() == BUS_OK;
    if (!started_)
        return;
    client_ = bus_client_new(name);
    connected_ = client_ != nullptr && bus_connect(client_, 0) == BUS_OK;
}

own_client::~own_client()
{
    bus_client_free(client_);
    if (started_)
        bus_cleanup();
}

} // namespace edctl
