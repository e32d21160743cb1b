// SPDX-License-Identifier: MIT
// What /api/events streams: the service's five signals, taken from the library's signal callbacks,
// and the service's presence.
//
// The library's header offers no presence query, and vask_bus.h no subscription of its own to the
// retained "external_device/state" topic; what it offers is a monitor, which hands its client the
// service's presence as it changes (with the retained state on every connection). So a bus client
// of the console's own monitors the service and keeps its presence; nothing is ever called for it.
// The monitor also receives the service's requests, the replies on the bus and the service's
// signals (on the box the broker's ACL passes the signals only): they are dropped unread.
#ifndef VASK_CONSOLE_ROOM_EVENTS_H
#define VASK_CONSOLE_ROOM_EVENTS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vask_bus.h>

#include "event_hub.h"

namespace console {

class room_events {
public:
    explicit room_events(event_hub &hub);
    ~room_events();
    room_events(const room_events &) = delete;
    room_events &operator=(const room_events &) = delete;

    // Registers the signal callbacks (after ed_init) and connects the monitoring client: at most
    // 2 s for the connection, then at most kFirstPresence for the service's retained presence.
    // Without a connection, or when the service never announced itself on this broker, the
    // presence starts "offline"; the client keeps trying and the presence follows its events. False
    // when the bus library cannot be started or the client cannot be made.
    bool start();
    // Frees the monitoring client (waiting for an event being handled) and unregisters the
    // callbacks (before ed_release).
    void stop();

    // "online", "offline", or "unknown" before start() has decided. While the console's own
    // connection to the broker is down it keeps the last state seen; the broker hands over the
    // service's current state when the connection returns.
    std::string presence() const;

    static constexpr std::chrono::milliseconds kFirstPresence{1000};

private:
    static void on_bus_event(bus_client *client, void *user, const bus_monitor_event *event);
    void set_presence(const char *state);

    event_hub &hub_;
    bus_client *watcher_ = nullptr;
    bool bus_started_ = false;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string presence_ = "unknown";
};

} // namespace console

#endif
