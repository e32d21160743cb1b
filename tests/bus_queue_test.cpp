// SPDX-License-Identifier: MIT
// The limits of a client's queues: a subscriber that falls behind, an emitter whose broker does not
// acknowledge, and requests whose callers have given up.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_test_fixture.h"
#include "log_capture.h"
#include "process.h"

using namespace std::chrono_literals;

namespace {

std::atomic<int> g_delivered{0};

void slow_subscriber(bus_client *, void *, const char *, const void *, int)
{
    ++g_delivered;
    std::this_thread::sleep_for(20ms);
}

long resident_kib()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return -1;
}

bus_client_stats stats_of(bus_client *client)
{
    bus_client_stats stats{};
    EXPECT_EQ(bus_client_get_stats(client, &stats), BUS_OK);
    return stats;
}

} // namespace

TEST_F(BusTest, SubscriberFallingBehindAFlood_ShouldDropTheOldestSignalsAndCountThem)
{
    constexpr int kSignals = 20000;
    constexpr int kLimitMessages = 500;
    constexpr unsigned long kLimitBytes = 256 * 1024;
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    g_delivered = 0;
    ASSERT_EQ(bus_client_set_limits(client_, kLimitMessages, kLimitBytes, 10000, 16ul << 20), BUS_OK);
    // The emitter, in this process too, keeps little in its own sending queue.
    ASSERT_EQ(bus_client_set_limits(service_->client(), 10000, 16ul << 20, 200, 16ul << 20), BUS_OK);
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "flood_event", slow_subscriber), BUS_OK);
    long before_kib = resident_kib();

    const std::string payload(1024, 'x');
    long peak_kib = before_kib;
    unsigned long peak_queued = 0, peak_bytes = 0;
    for (int i = 0; i < kSignals; ++i) {
        int rc;
        while ((rc = bus_signal_emit(service_->client(), "external_device", "flood_event", payload.data(),
                                     static_cast<int>(payload.size()))) == BUS_ERR_QUEUE_FULL)
            std::this_thread::sleep_for(1ms);
        ASSERT_EQ(rc, BUS_OK);
        if (i % 500 == 0) {
            bus_client_stats stats = stats_of(client_);
            peak_queued = std::max(peak_queued, stats.dispatch_queued);
            peak_bytes = std::max(peak_bytes, stats.dispatch_bytes);
            peak_kib = std::max(peak_kib, resident_kib());
        }
    }
    // Every signal is accounted for: handed to the subscriber, waiting, or counted as dropped.
    ASSERT_TRUE(vask_test::eventually([&] {
        bus_client_stats stats = stats_of(client_);
        return g_delivered.load() + static_cast<long long>(stats.dispatch_queued) +
                   static_cast<long long>(stats.signals_dropped) ==
               kSignals;
    }, 30s));
    bus_client_stats stats = stats_of(client_);
    EXPECT_LE(peak_queued, static_cast<unsigned long>(kLimitMessages));
    EXPECT_LE(peak_bytes, kLimitBytes);
    EXPECT_GT(stats.signals_dropped, static_cast<unsigned long long>(kSignals / 2));
    EXPECT_EQ(stats.requests_dropped, 0u);
    // 20 MB went through; what stays is bounded by the limits, not by the flood.
#if defined(__SANITIZE_ADDRESS__)
    // The address sanitizer keeps freed memory in quarantine (up to 256 MiB) to catch uses after
    // free, so resident memory tells nothing about the queues there; their levels above do.
    (void)peak_kib;
#else
#if defined(__SANITIZE_THREAD__)
    // The thread sanitizer's shadow memory grows with every byte touched.
    constexpr long kGrowthBoundKib = 32 * 1024;
#else
    constexpr long kGrowthBoundKib = 8 * 1024;
#endif
    EXPECT_LT(peak_kib - before_kib, kGrowthBoundKib)
        << "resident memory grew from " << before_kib << " KiB to " << peak_kib;
#endif

    bool reported = false;
    for (const vask_test::log_line &line : log.lines()) {
        if (line.function != "dispatch" || line.message.find("falls behind") == std::string::npos)
            continue;
        reported = true;
        EXPECT_EQ(line.level, 1);
        EXPECT_EQ(line.source, "vask_bus");
        EXPECT_EQ(line.message.rfind("bus_test-", 0), 0u) << line.message;
        EXPECT_NE(line.message.find(" falls behind: its dispatch queue is full ("), std::string::npos) << line.message;
        EXPECT_NE(line.message.find(" requests, the oldest first"), std::string::npos) << line.message;
    }
    EXPECT_TRUE(reported);
    // Logged at most once a second, not once a signal.
    EXPECT_LT(log.lines().size(), 100u);
}

TEST_F(BusTest, DroppingForAFlood_ShouldKeepTheNewestSignalsInOrder)
{
    static std::mutex mutex;
    static std::vector<int> seen;
    static std::atomic<bool> first_running{false};
    seen.clear();
    first_running = false;
    ASSERT_EQ(bus_client_set_limits(client_, 10, 1ul << 20, 10000, 16ul << 20), BUS_OK);
    // The first signal holds the dispatch thread while the rest arrive.
    auto handler = [](bus_client *, void *, const char *, const void *payload, int) {
        int n = std::stoi(static_cast<const char *>(payload));
        if (n == 0) {
            first_running = true;
            std::this_thread::sleep_for(1s);
        }
        std::lock_guard<std::mutex> hold(mutex);
        seen.push_back(n);
    };
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "numbered", handler), BUS_OK);
    ASSERT_EQ(bus_signal_emit(service_->client(), "external_device", "numbered", "0", 1), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([] { return first_running.load(); }));
    for (int i = 1; i < 100; ++i) {
        std::string text = std::to_string(i);
        ASSERT_EQ(bus_signal_emit(service_->client(), "external_device", "numbered", text.data(),
                                  static_cast<int>(text.size())),
                  BUS_OK);
    }
    ASSERT_TRUE(vask_test::eventually([] {
        std::lock_guard<std::mutex> hold(mutex);
        return !seen.empty() && seen.back() == 99;
    }));
    std::lock_guard<std::mutex> hold(mutex);
    // The one running, then the ten newest.
    std::vector<int> expected = {0, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(stats_of(client_).signals_dropped, 89u);
}

TEST_F(BusTest, EmitWhileTheBrokerDoesNotAcknowledge_ShouldReportAFullQueue)
{
    ASSERT_EQ(bus_client_set_limits(service_->client(), 10000, 16ul << 20, 50, 16ul << 20), BUS_OK);
    broker_->pause();
    int accepted = 0;
    int rc = BUS_OK;
    for (int i = 0; i < 200 && rc == BUS_OK; ++i) {
        rc = bus_signal_emit(service_->client(), "external_device", "mic_on_event", "{}", 2);
        if (rc == BUS_OK)
            ++accepted;
    }
    bus_client_stats stats = stats_of(service_->client());
    broker_->resume();
    EXPECT_EQ(rc, BUS_ERR_QUEUE_FULL);
    EXPECT_EQ(accepted, 50);
    EXPECT_EQ(stats.send_queued, 50u);
    EXPECT_EQ(stats.emits_refused, 1u);
    // Once the broker acknowledges, the queue empties and signals go out again.
    EXPECT_TRUE(vask_test::eventually([&] {
        return bus_signal_emit(service_->client(), "external_device", "mic_on_event", "{}", 2) == BUS_OK;
    }));
}

TEST_F(BusTest, SendLimitInBytes_ShouldRefuseASignalThatDoesNotFit)
{
    ASSERT_EQ(bus_client_set_limits(service_->client(), 10000, 16ul << 20, 10000, 1000), BUS_OK);
    broker_->pause();
    const std::string payload(600, 'x');
    int first = bus_signal_emit(service_->client(), "external_device", "mic_on_event", payload.data(), 600);
    int second = bus_signal_emit(service_->client(), "external_device", "mic_on_event", payload.data(), 600);
    broker_->resume();
    EXPECT_EQ(first, BUS_OK);
    EXPECT_EQ(second, BUS_ERR_QUEUE_FULL);
}

TEST_F(BusTest, Limits_ShouldRefuseBadValuesAndFreedClients)
{
    EXPECT_EQ(bus_client_set_limits(client_, 0, 1, 1, 1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_client_set_limits(client_, 1, 0, 1, 1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_client_set_limits(client_, 1, 1, -1, 1), BUS_ERR_INVALID);
    EXPECT_EQ(bus_client_set_limits(client_, 1, 1, 1, 0), BUS_ERR_INVALID);
    EXPECT_EQ(bus_client_set_limits(nullptr, 1, 1, 1, 1), BUS_ERR_FAILED);
    EXPECT_EQ(bus_client_get_stats(client_, nullptr), BUS_ERR_INVALID);
    bus_client_stats stats{};
    EXPECT_EQ(bus_client_get_stats(nullptr, &stats), BUS_ERR_FAILED);
}

TEST(BusQueueEnvironment, LimitsFromTheEnvironment_ShouldApplyToNewClients)
{
    vask_test::broker broker;
    setenv("VASK_BUS_URL", broker.url().c_str(), 1);
    setenv("VASK_BUS_QUEUE_MESSAGES", "3", 1);
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_client *client = bus_client_new("env_limits");
    unsetenv("VASK_BUS_QUEUE_MESSAGES");
    ASSERT_NE(client, nullptr);
    ASSERT_EQ(bus_connect(client, 0), BUS_OK);
    broker.pause();
    int rc = BUS_OK, accepted = 0;
    while (rc == BUS_OK && accepted < 10) {
        rc = bus_signal_emit(client, "env", "tick", "1", 1);
        accepted += rc == BUS_OK;
    }
    broker.resume();
    EXPECT_EQ(accepted, 3);
    EXPECT_EQ(rc, BUS_ERR_QUEUE_FULL);
    bus_client_free(client);
    bus_cleanup();
}

TEST(BusQueueEnvironment, MalformedLimit_ShouldBeIgnoredAndLogged)
{
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    setenv("VASK_BUS_QUEUE_BYTES", "12k", 1);
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_client *client = bus_client_new("env_limits");
    unsetenv("VASK_BUS_QUEUE_BYTES");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(log.with_message("ignoring VASK_BUS_QUEUE_BYTES=12k: not a number from 1 to 1099511627776").size(), 1u);
    bus_client_free(client);
    bus_cleanup();
}

TEST_F(BusTest, RequestsWhoseCallersGaveUp_ShouldNotRun)
{
    // Four callers with a 1 s timeout meet a handler that takes longer than that: only the
    // request that was already running completes; the others expire in the queue.
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    service_->hold("act");
    std::vector<std::future<int>> callers;
    for (int i = 0; i < 4; ++i) {
        callers.push_back(std::async(std::launch::async, [this] { return call("act", "", nullptr, 1); }));
        if (i == 0) {
            ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
        }
    }
    for (auto &caller : callers)
        EXPECT_EQ(caller.get(), BUS_ERR_TIMEOUT);
    std::this_thread::sleep_for(1500ms);
    service_->release();
    ASSERT_TRUE(vask_test::eventually([&] { return stats_of(service_->client()).requests_expired == 3; }));
    std::this_thread::sleep_for(200ms);
    int ran = 0;
    for (const vask_test::received_call &received : service_->calls())
        ran += received.method == "act";
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(log.with_message("request external_device/method/act expired before its handler ran; dropped").size(), 3u);
    // A fresh request still runs.
    EXPECT_EQ(call("ping", "", nullptr, 2), BUS_OK);
}
