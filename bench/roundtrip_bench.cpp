// Round trip of one method call: the library and its bus against raw libmosquitto request/reply with
// the same topics, properties and QoS, all through one private broker in the same run.
#include <benchmark/benchmark.h>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <mutex>
#include <string>

#include "broker.h"
#include "libvask_external_device.h"
#include "vask_bus.h"

namespace {

const char kVotingReply[] =
    "{\"code\":0,\"voting_results\":{\"Status\":2,\"Agree\":5,\"Disagree\":3,\"Abandon\":1,\"Total\":9,\"Time\":30}}";

std::unique_ptr<vask_test::broker> g_broker;

int answer(bus_client *, void *, const char *, const char *, int, char *reply, int)
{
    memcpy(reply, kVotingReply, sizeof kVotingReply - 1);
    return static_cast<int>(sizeof kVotingReply - 1);
}

// The "external_device" service on the bus, answering every method with a voting reply.
struct bus_service {
    bus_client *client = nullptr;
    bus_service()
    {
        bus_init();
        client = bus_client_new("bench_service");
        bus_service_register(client, "external_device", answer, nullptr);
        bus_connect(client, 0);
    }
    ~bus_service()
    {
        bus_client_free(client);
        bus_cleanup();
    }
};

// Raw libmosquitto: a responder and a requester, each with the library's own network thread.
struct raw_pair {
    mosquitto *responder = nullptr;
    mosquitto *requester = nullptr;
    std::mutex mutex;
    std::condition_variable replied;
    bool done = false;

    static mosquitto *client(const char *id, void *self)
    {
        mosquitto *m = mosquitto_new(id, true, self);
        mosquitto_int_option(m, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_int_option(m, MOSQ_OPT_TCP_NODELAY, 1);
        return m;
    }

    raw_pair()
    {
        mosquitto_lib_init();
        responder = client("raw_responder", this);
        requester = client("raw_requester", this);
        mosquitto_message_v5_callback_set(responder, [](mosquitto *m, void *, const mosquitto_message *,
                                                        const mosquitto_property *properties) {
            char *topic = nullptr;
            void *correlation = nullptr;
            uint16_t length = 0;
            mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
            mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length, false);
            mosquitto_property *reply_properties = nullptr;
            mosquitto_property_add_binary(&reply_properties, MQTT_PROP_CORRELATION_DATA, correlation, length);
            mosquitto_publish_v5(m, nullptr, topic, sizeof kVotingReply - 1, kVotingReply, 0, false, reply_properties);
            mosquitto_property_free_all(&reply_properties);
            free(topic);
            free(correlation);
        });
        mosquitto_message_v5_callback_set(requester, [](mosquitto *, void *user, const mosquitto_message *,
                                                        const mosquitto_property *) {
            auto *self = static_cast<raw_pair *>(user);
            std::lock_guard<std::mutex> hold(self->mutex);
            self->done = true;
            self->replied.notify_one();
        });
        for (mosquitto *m : {responder, requester}) {
            mosquitto_connect_bind_v5(m, "127.0.0.1", g_broker->port(), 30, nullptr, nullptr);
            mosquitto_loop_start(m);
        }
        int mid = 0;
        mosquitto_subscribe_v5(responder, &mid, "raw_service/method/+", 0, 0, nullptr);
        mosquitto_subscribe_v5(requester, &mid, "bus/reply/raw_requester", 0, 0, nullptr);
    }

    void call()
    {
        static const unsigned char correlation[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
        mosquitto_property *properties = nullptr;
        mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, "bus/reply/raw_requester");
        mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation, sizeof correlation);
        mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, 8);
        std::unique_lock<std::mutex> lock(mutex);
        done = false;
        mosquitto_publish_v5(requester, nullptr, "raw_service/method/query_voting", 0, nullptr, 0, false, properties);
        mosquitto_property_free_all(&properties);
        replied.wait_for(lock, std::chrono::seconds(8), [this] { return done; });
    }

    ~raw_pair()
    {
        for (mosquitto *m : {responder, requester}) {
            mosquitto_disconnect(m);
            mosquitto_loop_stop(m, false);
            mosquitto_destroy(m);
        }
        mosquitto_lib_cleanup();
    }
};

void RawMosquittoRoundTrip(benchmark::State &state)
{
    raw_pair pair;
    pair.call(); // subscriptions settled
    for (auto _ : state)
        pair.call();
}

void BusMethodCall(benchmark::State &state)
{
    bus_service service;
    bus_client *client = bus_client_new("bench_client");
    bus_connect(client, 0);
    char reply[BUS_REPLY_MAX];
    int length = 0;
    for (auto _ : state) {
        if (bus_method_call_sync(client, "external_device", "query_voting", nullptr, 0, reply, &length, 8) != BUS_OK)
            state.SkipWithError("call failed");
    }
    bus_client_free(client);
}

void LibraryGetVoting(benchmark::State &state)
{
    bus_service service;
    ed_init();
    ed_voting_info info{};
    for (auto _ : state) {
        if (ed_get_voting(info) != 0)
            state.SkipWithError("ed_get_voting failed");
    }
    ed_release();
}

BENCHMARK(RawMosquittoRoundTrip)->UseRealTime();
BENCHMARK(BusMethodCall)->UseRealTime();
BENCHMARK(LibraryGetVoting)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    g_broker = std::make_unique<vask_test::broker>();
    setenv("VASK_BUS_URL", g_broker->url().c_str(), 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_broker.reset();
    return 0;
}
