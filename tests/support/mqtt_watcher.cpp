// SPDX-License-Identifier: MIT
#include "mqtt_watcher.h"

#include <cstdlib>
#include <mqtt_protocol.h>

namespace vask_test {

namespace {

constexpr auto kAckWait = std::chrono::seconds(10);

std::string read_string_property(const mosquitto_property *properties, int identifier)
{
    char *value = nullptr;
    if (mosquitto_property_read_string(properties, identifier, &value, false) == nullptr)
        return std::string();
    std::string text = value;
    free(value);
    return text;
}

} // namespace

mqtt_watcher::mqtt_watcher(int port, const mqtt_login &login)
{
    mosquitto_lib_init();
    mosq_ = mosquitto_new(login.client_id.empty() ? nullptr : login.client_id.c_str(), true, this);
    if (mosq_ == nullptr)
        return;
    mosquitto_int_option(mosq_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq_, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(mosq_, on_connect);
    mosquitto_subscribe_v5_callback_set(mosq_, on_subscribe);
    mosquitto_message_v5_callback_set(mosq_, on_message);
    mosquitto_publish_v5_callback_set(mosq_, on_publish);
    if (!login.username.empty())
        mosquitto_username_pw_set(mosq_, login.username.c_str(), login.password.c_str());
    if (!login.cafile.empty() &&
        mosquitto_tls_set(mosq_, login.cafile.c_str(), nullptr, nullptr, nullptr, nullptr) != MOSQ_ERR_SUCCESS)
        return;
    if (mosquitto_connect_bind_v5(mosq_, "127.0.0.1", port, 30, nullptr, nullptr) == MOSQ_ERR_SUCCESS)
        mosquitto_loop_start(mosq_);
}

mqtt_watcher::~mqtt_watcher()
{
    if (mosq_ != nullptr) {
        mosquitto_disconnect(mosq_);
        mosquitto_loop_stop(mosq_, false);
        mosquitto_destroy(mosq_);
    }
    mosquitto_lib_cleanup();
}

void mqtt_watcher::on_connect(mosquitto *, void *self, int rc, int, const mosquitto_property *)
{
    auto *watcher = static_cast<mqtt_watcher *>(self);
    std::lock_guard<std::mutex> hold(watcher->mutex_);
    watcher->connect_result_ = rc;
    watcher->changed_.notify_all();
}

void mqtt_watcher::on_subscribe(mosquitto *, void *self, int mid, int count, const int *granted,
                                const mosquitto_property *)
{
    auto *watcher = static_cast<mqtt_watcher *>(self);
    std::lock_guard<std::mutex> hold(watcher->mutex_);
    // A refused subscription is acknowledged with a reason code of 0x80 or more.
    if (count == 1 && granted[0] < 0x80)
        watcher->acknowledged_.insert(mid);
    watcher->changed_.notify_all();
}

void mqtt_watcher::on_publish(mosquitto *, void *self, int mid, int, const mosquitto_property *)
{
    auto *watcher = static_cast<mqtt_watcher *>(self);
    std::lock_guard<std::mutex> hold(watcher->mutex_);
    watcher->published_.insert(mid);
    watcher->changed_.notify_all();
}

void mqtt_watcher::on_message(mosquitto *, void *self, const mosquitto_message *message,
                              const mosquitto_property *properties)
{
    auto *watcher = static_cast<mqtt_watcher *>(self);
    mqtt_message copy;
    copy.topic = message->topic;
    if (message->payload != nullptr)
        copy.payload.assign(static_cast<const char *>(message->payload), static_cast<size_t>(message->payloadlen));
    copy.retain = message->retain;
    copy.response_topic = read_string_property(properties, MQTT_PROP_RESPONSE_TOPIC);
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length, false) != nullptr) {
        copy.correlation.assign(static_cast<const char *>(data), length);
        free(data);
    }
    uint32_t expiry = 0;
    if (mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &expiry, false) != nullptr)
        copy.expiry = static_cast<long>(expiry);
    std::lock_guard<std::mutex> hold(watcher->mutex_);
    watcher->messages_.push_back(std::move(copy));
    watcher->changed_.notify_all();
}

bool mqtt_watcher::connected()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kAckWait, [this] { return connect_result_ >= 0; });
    return connect_result_ == 0;
}

bool mqtt_watcher::subscribe(const std::string &pattern, int qos)
{
    if (!connected())
        return false;
    int mid = 0;
    if (mosquitto_subscribe_v5(mosq_, &mid, pattern.c_str(), qos, 0, nullptr) != MOSQ_ERR_SUCCESS)
        return false;
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kAckWait, [&] { return acknowledged_.count(mid) > 0; });
}

bool mqtt_watcher::publish(const std::string &topic, const std::string &payload, const mqtt_publish_options &options)
{
    if (mosq_ == nullptr)
        return false;
    mosquitto_property *properties = nullptr;
    int rc = MOSQ_ERR_SUCCESS;
    if (!options.response_topic.empty())
        rc = mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, options.response_topic.c_str());
    if (rc == MOSQ_ERR_SUCCESS && !options.correlation.empty())
        rc = mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, options.correlation.data(),
                                           static_cast<uint16_t>(options.correlation.size()));
    if (rc == MOSQ_ERR_SUCCESS && options.expiry >= 0)
        rc = mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                          static_cast<uint32_t>(options.expiry));
    int mid = 0;
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_publish_v5(mosq_, &mid, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                                  options.qos, options.retain, properties);
    mosquitto_property_free_all(&properties);
    if (rc != MOSQ_ERR_SUCCESS)
        return false;
    if (options.qos == 0)
        return true;
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kAckWait, [&] { return published_.count(mid) > 0; });
}

std::vector<mqtt_message> mqtt_watcher::messages()
{
    std::lock_guard<std::mutex> hold(mutex_);
    return messages_;
}

std::vector<std::string> mqtt_watcher::lines()
{
    std::vector<std::string> lines;
    for (const mqtt_message &message : messages())
        lines.push_back(message.topic + " " + message.payload);
    return lines;
}

bool mqtt_watcher::wait_for(size_t count, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return messages_.size() >= count; });
}

void mqtt_watcher::clear()
{
    std::lock_guard<std::mutex> hold(mutex_);
    messages_.clear();
}

} // namespace vask_test
