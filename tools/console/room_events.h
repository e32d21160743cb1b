// SPDX-License-Identifier: MIT
// What /api/events streams: the service's five signals, taken from the library's signal callbacks,
// and the service's presence.
//
// The library's header offers no presence query, and vask_bus.h no subscription to the retained
// "external_device/state" topic. What the public interface does give: a call to a service whose
// presence is "offline" fails at once with BUS_ERR_NO_SERVICE. So a bus client of the console's own
// probes the service with "get_mic_connection_state" (a read without side effects) every probe
// interval: BUS_ERR_NO_SERVICE, or BUS_ERR_FAILED (the broker is out of reach), means offline;
// any other answer, a timeout included (a service that is registered but slow), means online.
#ifndef VASK_CONSOLE_ROOM_EVENTS_H
#define VASK_CONSOLE_ROOM_EVENTS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vask_bus.h>

#include "event_hub.h"

namespace console {

class room_events {
public:
    // `probe_interval` is the pause between two presence probes; each probe waits at most 2 s.
    room_events(event_hub &hub, std::chrono::milliseconds probe_interval);
    ~room_events();
    room_events(const room_events &) = delete;
    room_events &operator=(const room_events &) = delete;

    // Registers the signal callbacks (after ed_init), probes once (at most 2 s) and starts the
    // probe's thread. False when the bus library cannot be started or the probe's client cannot be
    // made.
    bool start();
    // Stops the probe and unregisters the callbacks (before ed_release). Waits for a probe in flight.
    void stop();

    // "online", "offline", or "unknown" before the first probe has answered.
    std::string presence() const;

private:
    void probe();
    void probe_loop();
    void set_presence(const char *state);

    event_hub &hub_;
    std::chrono::milliseconds interval_;
    bus_client *probe_ = nullptr;
    bool bus_started_ = false;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::string presence_ = "unknown";
};

} // namespace console

#endif
