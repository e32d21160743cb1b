// SPDX-License-Identifier: MIT
// A hand-written MQTT v5 service with libmosquitto: answers "<service>/method/<M>" requests with
// the canned reply of M, on the request's response topic with its correlation data, straight from
// the network thread's message callback. The baseline the bus's service side is measured against.
//
//   mqtt_responder PORT SERVICE METHOD=REPLY...
// Prints "ready" once its subscription is acknowledged; stops on SIGTERM or SIGINT.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <string>

#include "replies.h"

namespace {

volatile sig_atomic_t g_stop = 0;

struct responder {
    std::map<std::string, std::string> replies;
    std::string prefix; // "<service>/method/"
};

void on_message(mosquitto *m, void *user, const mosquitto_message *message, const mosquitto_property *properties)
{
    auto *self = static_cast<responder *>(user);
    const char *topic = message->topic;
    if (strncmp(topic, self->prefix.c_str(), self->prefix.size()) != 0)
        return;
    auto found = self->replies.find(topic + self->prefix.size());
    char *response_topic = nullptr;
    void *correlation = nullptr;
    uint16_t correlation_length = 0;
    if (found == self->replies.end() ||
        mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &response_topic, false) == nullptr)
        return;
    mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &correlation_length,
                                   false);
    mosquitto_property *reply_properties = nullptr;
    if (correlation != nullptr)
        mosquitto_property_add_binary(&reply_properties, MQTT_PROP_CORRELATION_DATA, correlation,
                                      correlation_length);
    const std::string &reply = found->second;
    mosquitto_publish_v5(m, nullptr, response_topic, static_cast<int>(reply.size()), reply.data(), 0, false,
                         reply_properties);
    mosquitto_property_free_all(&reply_properties);
    free(response_topic);
    free(correlation);
}

void on_subscribe(mosquitto *, void *, int, int, const int *, const mosquitto_property *)
{
    printf("ready\n");
    fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    responder self;
    if (!vask_bench::parse_replies(argc, argv, "PORT SERVICE METHOD=REPLY...", self.replies))
        return 2;
    int port = atoi(argv[1]);
    if (port <= 0 || port > 65535) {
        fprintf(stderr, "%s: bad port '%s'\n", argv[0], argv[1]);
        return 2;
    }
    self.prefix = std::string(argv[2]) + "/method/";
    struct sigaction action {};
    action.sa_handler = [](int) { g_stop = 1; };
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);

    mosquitto_lib_init();
    std::string id = std::string(argv[2]) + "-responder";
    mosquitto *m = mosquitto_new(id.c_str(), true, &self);
    if (m == nullptr)
        return 1;
    mosquitto_int_option(m, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(m, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_message_v5_callback_set(m, on_message);
    mosquitto_subscribe_v5_callback_set(m, on_subscribe);
    int rc = mosquitto_connect_bind_v5(m, "127.0.0.1", port, 30, nullptr, nullptr);
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_subscribe_v5(m, nullptr, (self.prefix + "+").c_str(), 0, 0, nullptr);
    // This thread is the network thread: the callbacks above run here, between the loop's polls.
    while (rc == MOSQ_ERR_SUCCESS && !g_stop)
        rc = mosquitto_loop(m, 250, 1);
    if (!g_stop)
        fprintf(stderr, "%s: %s\n", argv[0], mosquitto_strerror(rc));
    mosquitto_disconnect_v5(m, 0, nullptr);
    mosquitto_destroy(m);
    mosquitto_lib_cleanup();
    return g_stop ? 0 : 1;
}
