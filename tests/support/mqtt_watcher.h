// SPDX-License-Identifier: MIT
// A raw MQTT v5 client on libmosquitto, outside the bus library: it subscribes to any pattern
// (wildcards across namespaces included), records every message with its MQTT v5 properties, and
// publishes with the properties a bus request carries. Tests use it to look at the wire itself.
#ifndef VASK_TEST_MQTT_WATCHER_H
#define VASK_TEST_MQTT_WATCHER_H

#include <chrono>
#include <condition_variable>
#include <mosquitto.h>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace vask_test {

// One message as the watcher received it. The optional properties are empty / -1 when absent.
struct mqtt_message {
    std::string topic;
    std::string payload;
    bool retain = false;
    std::string response_topic;
    std::string correlation;
    long expiry = -1; // message expiry interval in seconds
};

// What publish() puts on a message besides topic and payload.
struct mqtt_publish_options {
    int qos = 0;
    bool retain = false;
    std::string response_topic;
    std::string correlation;
    long expiry = -1;
};

// Credentials and TLS for a broker that asks for them; empty members are not used.
struct mqtt_login {
    std::string username;
    std::string password;
    std::string cafile; // TLS with this CA certificate when set
    std::string client_id; // libmosquitto makes one up when empty
};

class mqtt_watcher {
public:
    // Connects to 127.0.0.1:`port` with a clean session and starts the network thread; connected()
    // tells whether the broker accepted the connection.
    explicit mqtt_watcher(int port, const mqtt_login &login = {});
    ~mqtt_watcher();
    mqtt_watcher(const mqtt_watcher &) = delete;
    mqtt_watcher &operator=(const mqtt_watcher &) = delete;

    bool connected();
    // Subscribes to `pattern` and waits (up to 10 s) for the broker's acknowledgement.
    bool subscribe(const std::string &pattern, int qos = 1);
    // Publishes; at QoS 1 or 2 waits (up to 10 s) until the broker has taken the message, which it
    // does for a message its ACL drops too.
    bool publish(const std::string &topic, const std::string &payload, const mqtt_publish_options &options = {});

    // A copy of the messages received so far, in arrival order.
    std::vector<mqtt_message> messages();
    // "topic payload" of each message received so far.
    std::vector<std::string> lines();
    // Waits until at least `count` messages have arrived.
    bool wait_for(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(20));
    void clear();

private:
    static void on_connect(mosquitto *, void *self, int rc, int flags, const mosquitto_property *);
    static void on_subscribe(mosquitto *, void *self, int mid, int count, const int *granted,
                             const mosquitto_property *);
    static void on_publish(mosquitto *, void *self, int mid, int reason, const mosquitto_property *);
    static void on_message(mosquitto *, void *self, const mosquitto_message *message,
                           const mosquitto_property *properties);

    mosquitto *mosq_ = nullptr;
    std::mutex mutex_;
    std::condition_variable changed_;
    int connect_result_ = -1;
    std::set<int> acknowledged_;
    std::set<int> published_;
    std::vector<mqtt_message> messages_;
};

} // namespace vask_test

#endif
