// SPDX-License-Identifier: MIT
// The connection a client's calls through the broker take: what goes out on it, what happens when
// it cannot be made, and what ends the calls that wait on it.
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "broker.h"
#include "fake_service.h"
#include "log_capture.h"
#include "mqtt_watcher.h"
#include "tcp_relay.h"
#include "vask_bus.h"

using namespace std::chrono_literals;

namespace {

// A client id as bus_client_new makes them for the name "bus_test".
const std::string kClientId = "bus_test-[0-9]+-[0-9a-f]{8}";

class CallsConnectionTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (bus_client *client : clients_)
            bus_client_free(client);
        relay_.reset();
        service_.reset();
        if (broker_ != nullptr)
            bus_cleanup();
        broker_.reset();
        unsetenv("VASK_BUS_CALLS_CONNECTION");
    }

    // A broker with the test configuration plus `extra`, the fake service on it, and a client of the
    // test that calls through the broker.
    void start(const std::string &extra = std::string())
    {
        broker_ = std::make_unique<vask_test::broker>(
            [extra](int port) { return vask_test::broker_config(port) + extra; });
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        ASSERT_EQ(bus_init(), BUS_OK);
        service_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(service_->ready());
        client_ = new_client();
        ASSERT_NE(client_, nullptr);
    }

    // As start(), with the client's connections made through a relay that can go silent; the
    // service connects to the broker itself.
    void start_behind_relay()
    {
        broker_ = std::make_unique<vask_test::broker>();
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        ASSERT_EQ(bus_init(), BUS_OK);
        service_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(service_->ready());
        relay_ = std::make_unique<vask_test::tcp_relay>(broker_->port());
        setenv("VASK_BUS_URL", relay_->url().c_str(), 1);
        client_ = new_client();
        ASSERT_NE(client_, nullptr);
        ASSERT_EQ(relay_->accepted(), 1);
    }

    bus_client *new_client()
    {
        bus_client *client = bus_client_new("bus_test");
        if (client == nullptr)
            return nullptr;
        clients_.push_back(client);
        // The fake service is on this host: without this its direct socket would take the calls.
        if (bus_client_set_direct(client, 0) != BUS_OK || bus_connect(client, 0) != BUS_OK)
            return nullptr;
        return client;
    }

    static int call(bus_client *client, const char *method, int timeout_s = 5)
    {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        return bus_method_call_sync(client, "external_device", method, nullptr, 0, reply, &length, timeout_s);
    }

    // The response topics of the requests the watcher saw.
    static std::vector<std::string> response_topics(vask_test::mqtt_watcher &watcher)
    {
        std::vector<std::string> topics;
        for (const vask_test::mqtt_message &message : watcher.messages())
            topics.push_back(message.response_topic);
        return topics;
    }

    // The id of the client whose calls connection names `reply_topic` ("bus/reply/<id>-calls").
    static std::string calling_id(const std::string &reply_topic)
    {
        const std::string prefix = "bus/reply/", suffix = "-calls";
        return reply_topic.substr(prefix.size(), reply_topic.size() - prefix.size() - suffix.size());
    }

    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::fake_service> service_;
    std::unique_ptr<vask_test::tcp_relay> relay_;
    bus_client *client_ = nullptr;
    std::vector<bus_client *> clients_;
};

TEST_F(CallsConnectionTest, CallThroughTheBroker_ShouldAskForItsReplyOnTheCallsConnection)
{
    start();
    vask_test::mqtt_watcher watcher(broker_->port());
    ASSERT_TRUE(watcher.subscribe("external_device/method/#", 0));
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    ASSERT_TRUE(watcher.wait_for(2));
    std::vector<std::string> topics = response_topics(watcher);
    ASSERT_EQ(topics.size(), 2u);
    EXPECT_TRUE(std::regex_match(topics[0], std::regex("bus/reply/" + kClientId + "-calls"))) << topics[0];
    EXPECT_EQ(topics[1], topics[0]); // one connection for the client's calls, kept
}

TEST_F(CallsConnectionTest, CallsConnectionSwitchedOff_ShouldAskForTheReplyOnTheClientsConnection)
{
    setenv("VASK_BUS_CALLS_CONNECTION", "0", 1);
    start();
    vask_test::mqtt_watcher watcher(broker_->port());
    ASSERT_TRUE(watcher.subscribe("external_device/method/#", 0));
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    ASSERT_TRUE(watcher.wait_for(1));
    std::vector<std::string> topics = response_topics(watcher);
    ASSERT_EQ(topics.size(), 1u);
    EXPECT_TRUE(std::regex_match(topics[0], std::regex("bus/reply/" + kClientId))) << topics[0];
}

TEST_F(CallsConnectionTest, BrokerRefusingTheCallsConnection_ShouldLeaveTheCallsOnTheClientsConnection)
{
    // The broker takes a few connections; once the service's and the client's own are in, the
    // rest is taken up, so that the calls connection is one too many.
    start("max_connections 4\n");
    std::vector<std::unique_ptr<vask_test::mqtt_watcher>> fillers;
    while (fillers.size() < 8) {
        auto filler = std::make_unique<vask_test::mqtt_watcher>(broker_->port());
        if (!filler->connected())
            break;
        fillers.push_back(std::move(filler));
    }
    ASSERT_LT(fillers.size(), 8u);
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    EXPECT_EQ(call(client_, "ping"), BUS_OK);
    EXPECT_EQ(call(client_, "ping"), BUS_OK);
    std::vector<vask_test::log_line> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u); // not tried again for each call
    std::regex expected("no calls connection (" + kClientId + ")-calls to broker 127\\.0\\.0\\.1:" +
                        std::to_string(broker_->port()) + "; calls share the connection of \\1 for 30 s");
    EXPECT_TRUE(std::regex_match(lines[0].message, expected)) << lines[0].message;
    EXPECT_EQ(lines[0].level, 1);
    EXPECT_EQ(lines[0].source, "vask_bus");
    EXPECT_EQ(lines[0].function, "bus_method_call_sync");
    EXPECT_EQ(lines[0].module, BUS_LOG_MODULE);
}

TEST_F(CallsConnectionTest, CallsConnectionMeetingASilentBroker_ShouldEndTheCallWithinItsTimeout)
{
    start_behind_relay();
    relay_->hold_new_connections(true);
    auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(call(client_, "ping", 2), BUS_ERR_TIMEOUT);
    auto took = std::chrono::steady_clock::now() - asked;
    EXPECT_GE(took, 1900ms);
    EXPECT_LT(took, 2500ms);
    // Given up, the calls are left on the client's own connection for a while.
    EXPECT_EQ(call(client_, "ping", 2), BUS_OK);
}

TEST_F(CallsConnectionTest, CallsConnectionMeetingASilentBroker_ShouldBeGivenUpAfterFiveSeconds)
{
    start_behind_relay();
    relay_->hold_new_connections(true);
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(call(client_, "ping", 8), BUS_OK); // on the client's own connection, once given up
    auto took = std::chrono::steady_clock::now() - asked;
    EXPECT_GE(took, 4900ms);
    EXPECT_LT(took, 6500ms);
    std::vector<vask_test::log_line> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message.rfind("no calls connection ", 0), 0u) << lines[0].message;
}

TEST_F(CallsConnectionTest, DisconnectWhileACallsConnectionMeetsASilentBroker_ShouldReturnWithinItsBound)
{
    start_behind_relay();
    relay_->hold_new_connections(true);
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    std::future<int> caller = std::async(std::launch::async, [this] { return call(client_, "ping", 8); });
    ASSERT_TRUE(vask_test::eventually([&] { return relay_->accepted() == 2; }));
    auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(bus_disconnect(client_), BUS_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 1s);
    ASSERT_EQ(caller.wait_for(1s), std::future_status::ready);
    EXPECT_EQ(caller.get(), BUS_ERR_FAILED);
    // Ended by the disconnection, not refused by the broker: nothing to report.
    for (const vask_test::log_line &line : log.lines())
        ADD_FAILURE() << line.function << ": " << line.message;
}

TEST_F(CallsConnectionTest, CallsConnectionGoneSilent_ShouldBeMadeAnewAfterACallThatHeardNothing)
{
    start_behind_relay();
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    ASSERT_EQ(relay_->accepted(), 2); // the client's own connection and its calls connection
    relay_->freeze(1);
    EXPECT_EQ(call(client_, "ping", 1), BUS_ERR_TIMEOUT);
    EXPECT_EQ(call(client_, "ping", 2), BUS_OK);
    EXPECT_EQ(relay_->accepted(), 3);
}

TEST_F(CallsConnectionTest, ClientsOwnConnectionLostWhileACallWaits_ShouldFailTheCallAtOnce)
{
    start();
    vask_test::mqtt_watcher watcher(broker_->port());
    ASSERT_TRUE(watcher.subscribe("external_device/method/#", 0));
    service_->hold("act");
    auto started = std::chrono::steady_clock::now();
    std::future<int> caller = std::async(std::launch::async, [this] { return call(client_, "act", 20); });
    ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
    ASSERT_TRUE(watcher.wait_for(1));
    // Only the client's own connection goes: another one takes over its session.
    vask_test::mqtt_login intruder_login;
    intruder_login.client_id = calling_id(response_topics(watcher).at(0));
    vask_test::mqtt_watcher intruder(broker_->port(), intruder_login);
    ASSERT_EQ(caller.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(caller.get(), BUS_ERR_FAILED);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
    service_->release();
}

TEST_F(CallsConnectionTest, DisconnectWhileACallWaits_ShouldFailTheCallAtOnce)
{
    start();
    service_->hold("act");
    std::future<int> caller = std::async(std::launch::async, [this] { return call(client_, "act", 20); });
    ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
    auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(bus_disconnect(client_), BUS_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 1s);
    ASSERT_EQ(caller.wait_for(1s), std::future_status::ready);
    EXPECT_EQ(caller.get(), BUS_ERR_FAILED);
    service_->release();
    // Connected again, the client calls on a new calls connection.
    ASSERT_EQ(bus_connect(client_, 0), BUS_OK);
    EXPECT_EQ(call(client_, "ping"), BUS_OK);
}

TEST_F(CallsConnectionTest, IdleCallsConnectionDroppedByTheBroker_ShouldBeMadeAnewForTheNextCall)
{
    // The broker gives every connection a keepalive of 10 s (its least) and drops one silent for
    // 15 s, found by its next check within a few seconds; the calls connection sends nothing while
    // idle.
    start("max_keepalive 10\n");
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    std::this_thread::sleep_for(20s);
    auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(call(client_, "ping", 3), BUS_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);
}

TEST_F(CallsConnectionTest, ManyThreadsOnOneCallsConnection_ShouldEachGetTheirOwnReply)
{
    start();
    std::vector<std::future<bool>> callers;
    for (int thread = 0; thread < 8; ++thread) {
        callers.push_back(std::async(std::launch::async, [this, thread] {
            for (int i = 0; i < 200; ++i) {
                std::string body = std::to_string(thread) + ":" + std::to_string(i);
                char reply[BUS_REPLY_MAX];
                int length = 0;
                if (bus_method_call_sync(client_, "external_device", "echo", body.data(), static_cast<int>(body.size()),
                                         reply, &length, 5) != BUS_OK ||
                    std::string(reply, static_cast<size_t>(length)) != body)
                    return false;
            }
            return true;
        }));
    }
    for (auto &caller : callers)
        EXPECT_TRUE(caller.get());
}

TEST_F(CallsConnectionTest, MonitorOfACallOnTheCallsConnection_ShouldNameTheCallingClient)
{
    start();
    bus_client *watcher = new_client();
    ASSERT_NE(watcher, nullptr);
    struct seen {
        std::mutex mutex;
        std::vector<std::string> ids;
    } events;
    ASSERT_EQ(bus_monitor(
                  watcher, "external_device",
                  [](bus_client *, void *user, const bus_monitor_event *event) {
                      auto *into = static_cast<seen *>(user);
                      std::lock_guard<std::mutex> hold(into->mutex);
                      if (event->kind == BUS_MONITOR_REQUEST || event->kind == BUS_MONITOR_REPLY)
                          into->ids.push_back(std::to_string(event->kind) + " " + event->client_id);
                  },
                  &events),
              BUS_OK);
    vask_test::mqtt_watcher wire(broker_->port());
    ASSERT_TRUE(wire.subscribe("external_device/method/#", 0));
    ASSERT_EQ(call(client_, "ping"), BUS_OK);
    ASSERT_TRUE(wire.wait_for(1));
    std::string own_id = calling_id(response_topics(wire).at(0));
    ASSERT_TRUE(vask_test::eventually([&] {
        std::lock_guard<std::mutex> hold(events.mutex);
        return events.ids.size() >= 2;
    }));
    std::lock_guard<std::mutex> hold(events.mutex);
    EXPECT_EQ(events.ids, (std::vector<std::string>{std::to_string(BUS_MONITOR_REQUEST) + " " + own_id,
                                                   std::to_string(BUS_MONITOR_REPLY) + " " + own_id}));
}

} // namespace
