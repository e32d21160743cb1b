// SPDX-License-Identifier: MIT
#include "mqtt_requester.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>

namespace vask_bench {

namespace {
constexpr size_t kCorrelationBytes = 16;
constexpr int kKeepaliveS = 30;
} // namespace

mqtt_requester::mqtt_requester(int port, const std::string &client_id)
    : reply_topic_("bus/reply/" + client_id), random_(std::random_device{}())
{
    mosquitto_lib_init();
    mosq_ = mosquitto_new(client_id.c_str(), true, this);
    if (mosq_ == nullptr)
        return;
    mosquitto_int_option(mosq_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq_, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_message_v5_callback_set(mosq_, on_message);
    mosquitto_subscribe_v5_callback_set(mosq_, on_subscribe);
    if (mosquitto_connect_bind_v5(mosq_, "127.0.0.1", port, kKeepaliveS, nullptr, nullptr) != MOSQ_ERR_SUCCESS ||
        mosquitto_loop_start(mosq_) != MOSQ_ERR_SUCCESS)
        return;
    if (mosquitto_subscribe_v5(mosq_, nullptr, reply_topic_.c_str(), 0, 0, nullptr) != MOSQ_ERR_SUCCESS)
        return;
    std::unique_lock<std::mutex> lock(mutex_);
    ready_ = changed_.wait_for(lock, std::chrono::seconds(5), [this] { return subscribed_; });
}

mqtt_requester::~mqtt_requester()
{
    if (mosq_ == nullptr)
        return;
    mosquitto_disconnect_v5(mosq_, 0, nullptr);
    mosquitto_loop_stop(mosq_, false);
    mosquitto_destroy(mosq_);
    mosquitto_lib_cleanup();
}

void mqtt_requester::on_subscribe(mosquitto *, void *self, int, int, const int *, const mosquitto_property *)
{
    auto *requester = static_cast<mqtt_requester *>(self);
    std::lock_guard<std::mutex> hold(requester->mutex_);
    requester->subscribed_ = true;
    requester->changed_.notify_all();
}

void mqtt_requester::on_message(mosquitto *, void *self, const mosquitto_message *message,
                                const mosquitto_property *properties)
{
    auto *requester = static_cast<mqtt_requester *>(self);
    void *correlation = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length, false) ==
        nullptr)
        return;
    std::lock_guard<std::mutex> hold(requester->mutex_);
    if (requester->reply_ != nullptr && requester->waiting_for_.size() == length &&
        memcmp(requester->waiting_for_.data(), correlation, length) == 0) {
        requester->reply_->assign(static_cast<const char *>(message->payload),
                                  static_cast<size_t>(message->payloadlen));
        requester->replied_ = true;
        requester->changed_.notify_all();
    }
    free(correlation);
}

bool mqtt_requester::call(const std::string &topic, const std::string &body, std::string &reply, int timeout_s)
{
    std::string correlation(kCorrelationBytes, '\0');
    for (size_t i = 0; i < kCorrelationBytes; i += sizeof(uint64_t)) {
        uint64_t bits = random_();
        memcpy(&correlation[i], &bits, sizeof bits);
    }
    {
        std::lock_guard<std::mutex> hold(mutex_);
        waiting_for_ = correlation;
        replied_ = false;
        reply_ = &reply;
    }
    mosquitto_property *properties = nullptr;
    mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, reply_topic_.c_str());
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                  static_cast<uint16_t>(correlation.size()));
    mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, static_cast<uint32_t>(timeout_s));
    int rc = mosquitto_publish_v5(mosq_, nullptr, topic.c_str(), static_cast<int>(body.size()),
                                  body.empty() ? nullptr : body.data(), 0, false, properties);
    mosquitto_property_free_all(&properties);
    std::unique_lock<std::mutex> lock(mutex_);
    bool ok = rc == MOSQ_ERR_SUCCESS &&
              changed_.wait_for(lock, std::chrono::seconds(timeout_s), [this] { return replied_; });
    reply_ = nullptr;
    waiting_for_.clear();
    return ok;
}

} // namespace vask_bench
