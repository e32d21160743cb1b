// SPDX-License-Identifier: MIT
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "process.h"

using namespace std::chrono_literals;

namespace {

struct received_signal {
    bus_client *client;
    void *user;
    std::string topic;
    std::string payload;
    int length;
    bool terminated;
};

struct recorder {
    std::mutex mutex;
    std::vector<received_signal> signals;

    size_t count()
    {
        std::lock_guard<std::mutex> hold(mutex);
        return signals.size();
    }
};

recorder *g_recorder = nullptr;

void record(bus_client *client, void *user, const char *topic, const void *payload, int length)
{
    const char *text = static_cast<const char *>(payload);
    std::lock_guard<std::mutex> hold(g_recorder->mutex);
    g_recorder->signals.push_back({client, user, topic, std::string(text, static_cast<size_t>(length)), length,
                                   text[length] == '\0'});
}

class BusSignalTest : public BusTest {
protected:
    void SetUp() override
    {
        BusTest::SetUp();
        g_recorder = &recorder_;
    }
    void TearDown() override
    {
        BusTest::TearDown();
        g_recorder = nullptr;
    }
    int emit(const char *event, const std::string &payload)
    {
        return bus_signal_emit(service_->client(), "external_device", event, payload.data(),
                               static_cast<int>(payload.size()));
    }
    recorder recorder_;
};

} // namespace

TEST_F(BusSignalTest, Signal_ShouldReachTheHandlerWithTopicPayloadAndUser)
{
    int marker = 0;
    bus_client_set_user(client_, &marker);
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event", record), BUS_OK);
    ASSERT_EQ(emit("mic_on_event", "{\"Group\":\"A\"}"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == 1; }));
    const received_signal &s = recorder_.signals[0];
    EXPECT_EQ(s.client, client_);
    EXPECT_EQ(s.user, &marker);
    EXPECT_EQ(s.topic, "external_device/signal/mic_on_event");
    EXPECT_EQ(s.payload, "{\"Group\":\"A\"}");
    EXPECT_EQ(s.length, 13);
    EXPECT_TRUE(s.terminated);
}

TEST_F(BusSignalTest, Signals_ShouldArriveInTheOrderSent)
{
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "voting_results_event", record), BUS_OK);
    const int count = 5000;
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(emit("voting_results_event", std::to_string(i)), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == count; }, 30s));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(recorder_.signals[static_cast<size_t>(i)].payload, std::to_string(i));
}

TEST_F(BusSignalTest, Subscribe_ShouldReplaceTheHandlerOfTheSameSignal)
{
    static std::atomic<int> first{0};
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "cam_status_event",
                                   [](bus_client *, void *, const char *, const void *, int) { ++first; }),
              BUS_OK);
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "cam_status_event", record), BUS_OK);
    ASSERT_EQ(emit("cam_status_event", "{}"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == 1; }));
    EXPECT_EQ(first.load(), 0);
}

TEST_F(BusSignalTest, Unsubscribe_ShouldStopDeliveries)
{
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event", record), BUS_OK);
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "cam_status_event", record), BUS_OK);
    ASSERT_EQ(bus_signal_unsubscribe(client_, "external_device", "mic_on_event"), BUS_OK);
    ASSERT_EQ(emit("mic_on_event", "dropped"), BUS_OK);
    // Signals of one publisher arrive in order: once the second is here, the first was dropped.
    ASSERT_EQ(emit("cam_status_event", "kept"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == 1; }));
    EXPECT_EQ(recorder_.signals[0].payload, "kept");
    EXPECT_EQ(bus_signal_unsubscribe(client_, "external_device", "never_subscribed"), BUS_OK);
}

TEST_F(BusSignalTest, HandlerMakingASynchronousCall_ShouldNotDeadlock)
{
    static bus_client *caller;
    static std::atomic<int> result{1};
    static std::string reply_text;
    caller = client_;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "info_data_change_event",
                                   [](bus_client *, void *, const char *, const void *, int) {
                                       char reply[BUS_REPLY_MAX];
                                       int length = 0;
                                       int rc = bus_method_call_sync(caller, "external_device", "echo", "{\"in\":1}", 8,
                                                                     reply, &length, 5);
                                       reply_text.assign(reply, rc == BUS_OK ? static_cast<size_t>(length) : 0);
                                       result = rc;
                                   }),
              BUS_OK);
    ASSERT_EQ(emit("info_data_change_event", "{}"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return result.load() != 1; }));
    EXPECT_EQ(result.load(), BUS_OK);
    EXPECT_EQ(reply_text, "{\"in\":1}");
}

TEST_F(BusSignalTest, TeardownFromAHandler_ShouldBeRefusedNotDeadlock)
{
    static bus_client *self;
    static std::atomic<int> unsubscribe_rc{1}, disconnect_rc{1};
    self = client_;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event",
                                   [](bus_client *, void *, const char *, const void *, int) {
                                       unsubscribe_rc = bus_signal_unsubscribe(self, "external_device", "mic_on_event");
                                       disconnect_rc = bus_disconnect(self);
                                       bus_client_free(self); // refused: the client stays usable
                                   }),
              BUS_OK);
    ASSERT_EQ(emit("mic_on_event", "{}"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return disconnect_rc.load() != 1; }));
    EXPECT_EQ(unsubscribe_rc.load(), BUS_ERR_INVALID);
    EXPECT_EQ(disconnect_rc.load(), BUS_ERR_INVALID);
    EXPECT_EQ(call("ping", ""), BUS_OK);
}

TEST_F(BusSignalTest, Unsubscribe_ShouldWaitForTheRunningHandler)
{
    static std::mutex gate_mutex;
    static std::condition_variable gate;
    static bool entered = false, may_leave = false, left = false;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event",
                                   [](bus_client *, void *, const char *, const void *, int) {
                                       std::unique_lock<std::mutex> hold(gate_mutex);
                                       entered = true;
                                       gate.notify_all();
                                       gate.wait(hold, [] { return may_leave; });
                                       left = true;
                                   }),
              BUS_OK);
    ASSERT_EQ(emit("mic_on_event", "{}"), BUS_OK);
    {
        std::unique_lock<std::mutex> hold(gate_mutex);
        ASSERT_TRUE(gate.wait_for(hold, 10s, [] { return entered; }));
    }
    std::atomic<bool> returned{false};
    std::thread unsubscriber([&] {
        EXPECT_EQ(bus_signal_unsubscribe(client_, "external_device", "mic_on_event"), BUS_OK);
        std::lock_guard<std::mutex> hold(gate_mutex);
        EXPECT_TRUE(left) << "unsubscribe returned while the handler still ran";
        returned = true;
    });
    {
        std::lock_guard<std::mutex> hold(gate_mutex);
        may_leave = true;
        gate.notify_all();
    }
    unsubscriber.join();
    EXPECT_TRUE(returned.load());
}

TEST_F(BusSignalTest, Emit_ShouldRefuseBadArgumentsAndFailWhenNotConnected)
{
    EXPECT_EQ(bus_signal_emit(client_, "external_device", "a/b", "x", 1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_signal_emit(client_, "external_device", "e", nullptr, 1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_signal_emit(client_, "external_device", "e", "x", -1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_signal_emit(nullptr, "external_device", "e", "x", 1), BUS_ERR_FAILED);
    EXPECT_EQ(bus_signal_subscribe(client_, "external_device", "e", nullptr), BUS_ERR_INVALID);
    EXPECT_EQ(bus_signal_subscribe(client_, "external_device", "+", record), BUS_ERR_INVALID);
    bus_client *idle = bus_client_new("idle");
    EXPECT_EQ(bus_signal_emit(idle, "external_device", "e", "x", 1), BUS_ERR_FAILED);
    bus_client_free(idle);
}

TEST_F(BusSignalTest, SubscriptionMadeBeforeConnecting_ShouldBeMadeOnConnect)
{
    bus_client *late = bus_client_new("late");
    ASSERT_NE(late, nullptr);
    ASSERT_EQ(bus_signal_subscribe(late, "external_device", "mic_on_event", record), BUS_OK);
    ASSERT_EQ(bus_connect(late, 0), BUS_OK);
    ASSERT_EQ(emit("mic_on_event", "hello"), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == 1; }));
    EXPECT_EQ(recorder_.signals[0].client, late);
    bus_client_free(late);
}

TEST_F(BusSignalTest, Unsubscribe_ShouldLeaveSignalsOfOtherEventsAlone)
{
    static std::mutex gate_mutex;
    static std::condition_variable gate;
    static bool entered = false, may_leave = false;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "busy",
                                   [](bus_client *, void *, const char *, const void *, int) {
                                       std::unique_lock<std::mutex> hold(gate_mutex);
                                       entered = true;
                                       gate.notify_all();
                                       gate.wait(hold, [] { return may_leave; });
                                   }),
              BUS_OK);
    // "ev" is a prefix of "ev2": unsubscribing the one must not touch the other.
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "ev", record), BUS_OK);
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "ev2", record), BUS_OK);
    ASSERT_EQ(emit("busy", "{}"), BUS_OK);
    {
        std::unique_lock<std::mutex> hold(gate_mutex);
        ASSERT_TRUE(gate.wait_for(hold, 10s, [] { return entered; }));
    }
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(emit("ev2", std::to_string(i)), BUS_OK);
    // The reply comes from the emitting service after its signals, so they are queued by now.
    ASSERT_EQ(call("echo", "{}"), BUS_OK);
    std::atomic<bool> returned{false};
    std::thread unsubscriber([&] {
        EXPECT_EQ(bus_signal_unsubscribe(client_, "external_device", "ev"), BUS_OK);
        returned = true;
    });
    EXPECT_TRUE(vask_test::eventually([&] { return returned.load(); }))
        << "unsubscribing ev waited for the handler of another signal";
    {
        std::lock_guard<std::mutex> hold(gate_mutex);
        may_leave = true;
        gate.notify_all();
    }
    unsubscriber.join();
    ASSERT_TRUE(vask_test::eventually([&] { return recorder_.count() == 3; }));
    EXPECT_EQ(recorder_.signals[2].topic, "external_device/signal/ev2");
}
