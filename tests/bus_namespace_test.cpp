// SPDX-License-Identifier: MIT
#include <mosquitto.h>
#include <mutex>
#include <string>
#include <vector>

#include "bus_test_fixture.h"
#include "process.h"

using namespace std::chrono_literals;

namespace {

int answer_with_user(bus_client *, void *user, const char *, const char *, int, char *reply, int capacity)
{
    return snprintf(reply, static_cast<size_t>(capacity), "%s", static_cast<const char *>(user));
}

// A client created with VASK_BUS_NAMESPACE set to `ns` ("" for none).
bus_client *client_in(const char *ns, const char *name)
{
    if (*ns != '\0')
        setenv("VASK_BUS_NAMESPACE", ns, 1);
    else
        unsetenv("VASK_BUS_NAMESPACE");
    bus_client *client = bus_client_new(name);
    unsetenv("VASK_BUS_NAMESPACE");
    if (client != nullptr)
        bus_connect(client, 0);
    return client;
}

std::string call_in(bus_client *client, int timeout_s = 5)
{
    char reply[BUS_REPLY_MAX];
    int length = 0;
    int rc = bus_method_call_sync(client, "external_device", "query_voting", nullptr, 0, reply, &length, timeout_s);
    return rc == BUS_OK ? std::string(reply, static_cast<size_t>(length)) : "error " + std::to_string(rc);
}

std::mutex g_mutex;
std::vector<std::string> g_seen;

void remember(bus_client *, void *, const char *topic, const void *payload, int)
{
    std::lock_guard<std::mutex> hold(g_mutex);
    g_seen.push_back(std::string(topic) + " " + static_cast<const char *>(payload));
}

} // namespace

TEST_F(BusTest, Namespaces_ShouldKeepTheRoomsApart)
{
    static char room_a[] = "room A", room_b[] = "room B";
    setenv("VASK_BUS_NAMESPACE", "site/roomA", 1);
    bus_client *service_a = bus_client_new("service_a");
    setenv("VASK_BUS_NAMESPACE", "site/roomB", 1);
    bus_client *service_b = bus_client_new("service_b");
    unsetenv("VASK_BUS_NAMESPACE");
    ASSERT_NE(service_a, nullptr);
    ASSERT_NE(service_b, nullptr);
    bus_service_register(service_a, "external_device", answer_with_user, room_a);
    bus_service_register(service_b, "external_device", answer_with_user, room_b);
    ASSERT_EQ(bus_connect(service_a, 0), BUS_OK);
    ASSERT_EQ(bus_connect(service_b, 0), BUS_OK);

    bus_client *caller_a = client_in("site/roomA", "caller");
    bus_client *caller_b = client_in("site/roomB", "caller");
    EXPECT_EQ(call_in(caller_a), "room A");
    EXPECT_EQ(call_in(caller_b), "room B");
    // The fixture's service lives outside any namespace, and so does its caller.
    EXPECT_EQ(call_in(client_), "{\"code\":0}");
    EXPECT_EQ(service_->calls().size(), 1u);

    // Signals stay in their room; handlers see the topic without the namespace.
    ASSERT_EQ(bus_signal_subscribe(caller_b, "external_device", "mic_on_event", remember), BUS_OK);
    ASSERT_EQ(bus_signal_emit(service_a, "external_device", "mic_on_event", "a", 1), BUS_OK);
    ASSERT_EQ(bus_signal_emit(service_b, "external_device", "mic_on_event", "b", 1), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([] {
        std::lock_guard<std::mutex> hold(g_mutex);
        return !g_seen.empty();
    }));
    {
        std::lock_guard<std::mutex> hold(g_mutex);
        EXPECT_EQ(g_seen, (std::vector<std::string>{"external_device/signal/mic_on_event b"}));
    }

    // A room's service going offline leaves the other room's alone.
    bus_client_free(service_a);
    EXPECT_TRUE(vask_test::eventually([&] { return call_in(caller_a, 1) == "error -1003"; }));
    EXPECT_EQ(call_in(caller_b), "room B");

    bus_client_free(caller_a);
    bus_client_free(caller_b);
    bus_client_free(service_b);
}

TEST_F(BusTest, OneWildcardSubscription_ShouldSeeTheSignalsOfEveryRoom)
{
    setenv("VASK_BUS_NAMESPACE", "roomA", 1);
    bus_client *room_a = bus_client_new("emitter");
    setenv("VASK_BUS_NAMESPACE", "roomB", 1);
    bus_client *room_b = bus_client_new("emitter");
    unsetenv("VASK_BUS_NAMESPACE");
    ASSERT_EQ(bus_connect(room_a, 0), BUS_OK);
    ASSERT_EQ(bus_connect(room_b, 0), BUS_OK);

    struct seen_t {
        std::mutex mutex;
        std::vector<std::string> topics;
    } seen;
    mosquitto *watcher = mosquitto_new(nullptr, true, &seen);
    mosquitto_int_option(watcher, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_message_v5_callback_set(watcher, [](mosquitto *, void *user, const mosquitto_message *m,
                                                  const mosquitto_property *) {
        auto *s = static_cast<seen_t *>(user);
        std::lock_guard<std::mutex> hold(s->mutex);
        s->topics.push_back(m->topic);
    });
    ASSERT_EQ(mosquitto_connect(watcher, "127.0.0.1", broker_->port(), 30), MOSQ_ERR_SUCCESS);
    ASSERT_EQ(mosquitto_loop_start(watcher), MOSQ_ERR_SUCCESS);
    ASSERT_EQ(mosquitto_subscribe(watcher, nullptr, "+/external_device/signal/#", 1), MOSQ_ERR_SUCCESS);
    // Emitted until the subscription is in place; both rooms then show up.
    ASSERT_TRUE(vask_test::eventually([&] {
        bus_signal_emit(room_a, "external_device", "cam_status_event", "{}", 2);
        bus_signal_emit(room_b, "external_device", "cam_status_event", "{}", 2);
        std::lock_guard<std::mutex> hold(seen.mutex);
        bool a = false, b = false;
        for (const auto &topic : seen.topics) {
            a = a || topic == "roomA/external_device/signal/cam_status_event";
            b = b || topic == "roomB/external_device/signal/cam_status_event";
        }
        return a && b;
    }));
    mosquitto_disconnect(watcher);
    mosquitto_loop_stop(watcher, false);
    mosquitto_destroy(watcher);
    bus_client_free(room_a);
    bus_client_free(room_b);
}

TEST_F(BusTest, BadNamespace_ShouldBeRefused)
{
    for (const char *ns : {"+", "room/#", "/room", "room/", "a//b"}) {
        setenv("VASK_BUS_NAMESPACE", ns, 1);
        EXPECT_EQ(bus_client_new("any"), nullptr) << ns;
    }
    unsetenv("VASK_BUS_NAMESPACE");
}
