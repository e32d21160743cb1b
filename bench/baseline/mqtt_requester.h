// SPDX-License-Identifier: MIT
// The calling side of the raw MQTT v5 baseline, written as a hand-written synchronous call with
// libmosquitto would be: libmosquitto's own network thread, a response topic, 16 bytes of random
// correlation data and a message expiry on each request, QoS 0 both ways, the caller woken by the
// network thread when the reply with its correlation data arrives.
#ifndef VASK_BENCH_MQTT_REQUESTER_H
#define VASK_BENCH_MQTT_REQUESTER_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>

struct mosquitto;
struct mosquitto_message;
typedef struct mqtt5__property mosquitto_property;

namespace vask_bench {

class mqtt_requester {
public:
    // Connects as `client_id` to the broker on 127.0.0.1:`port` and subscribes to its reply topic
    // "bus/reply/<client_id>"; ready() tells whether both succeeded.
    mqtt_requester(int port, const std::string &client_id);
    ~mqtt_requester();
    mqtt_requester(const mqtt_requester &) = delete;
    mqtt_requester &operator=(const mqtt_requester &) = delete;
    bool ready() const { return ready_; }

    // Publishes `body` to `topic` and waits up to `timeout_s` for the reply; false on a timeout or
    // a transport error.
    bool call(const std::string &topic, const std::string &body, std::string &reply, int timeout_s);

private:
    static void on_message(mosquitto *, void *self, const mosquitto_message *message,
                           const mosquitto_property *properties);
    static void on_subscribe(mosquitto *, void *self, int, int, const int *, const mosquitto_property *);

    mosquitto *mosq_ = nullptr;
    std::string reply_topic_;
    std::mt19937_64 random_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool subscribed_ = false;
    bool ready_ = false;
    std::string waiting_for_; // correlation data of the call in flight
    bool replied_ = false;
    std::string *reply_ = nullptr;
};

} // namespace vask_bench

#endif
