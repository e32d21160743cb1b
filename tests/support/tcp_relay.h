// SPDX-License-Identifier: MIT
// A TCP relay on a free loopback port in front of a broker, that can go silent the way a network
// does: new connections accepted and never answered, or one open connection no longer carried in
// either direction while both its ends stay open.
#ifndef VASK_TEST_TCP_RELAY_H
#define VASK_TEST_TCP_RELAY_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vask_test {

class tcp_relay {
public:
    // Relays the connections made to url() to 127.0.0.1:`upstream_port`.
    explicit tcp_relay(int upstream_port);
    ~tcp_relay();
    tcp_relay(const tcp_relay &) = delete;
    tcp_relay &operator=(const tcp_relay &) = delete;

    std::string url() const;
    // Connections accepted from now on are held open and never carried to the broker (or back).
    void hold_new_connections(bool hold) { hold_new_ = hold; }
    // How many connections were accepted so far.
    int accepted();
    // Stops carrying connection `index` (0 for the first accepted), both ends left open.
    void freeze(int index);

private:
    struct link {
        int client = -1;
        int upstream = -1;
        std::atomic<bool> frozen{false};
        std::thread pump;
    };
    void accept_loop();
    static void pump(link *relayed, const std::atomic<bool> *stopping);

    int listener_ = -1;
    int port_ = 0;
    int upstream_port_ = 0;
    std::atomic<bool> hold_new_{false};
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::vector<std::unique_ptr<link>> links_;
    std::thread acceptor_;
};

} // namespace vask_test

#endif
