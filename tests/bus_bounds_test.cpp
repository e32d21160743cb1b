// SPDX-License-Identifier: MIT
// Time bounds of the bus against peers that do not answer: a broker host that drops connection
// attempts, a broker that stops answering, a connection lost while calls wait.
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bus_test_fixture.h"
#include "libvask_external_device.h"
#include "log_capture.h"
#include "process.h"

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

namespace {

// A loopback listener that never accepts and whose accept queue is full: the kernel drops every
// further connection attempt, so a blocking connect to it waits minutes for the TCP handshake.
class silent_listener {
public:
    silent_listener()
    {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(fd_, 0);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length);
        port_ = ntohs(address.sin_port);
        for (int i = 0; i < 4; ++i) {
            int filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            connect(filler, reinterpret_cast<sockaddr *>(&address), sizeof address);
            fillers_.push_back(filler);
        }
        // The handshakes of the fillers complete in the kernel, without an accept.
        std::this_thread::sleep_for(200ms);
    }
    ~silent_listener()
    {
        for (int filler : fillers_)
            close(filler);
        close(fd_);
    }
    std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port_); }
    int port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
    std::vector<int> fillers_;
};

double seconds_since(steady::time_point start)
{
    return std::chrono::duration<double>(steady::now() - start).count();
}

// The bound the header gives for bus_disconnect and bus_client_free, with room for a loaded machine.
constexpr double kTeardownBoundS = 1.5;

std::atomic<int> g_signals{0};

void count_signal(bus_client *, void *, const char *, const void *, int)
{
    ++g_signals;
}

} // namespace

TEST(BusBounds, TeardownWhileTheBrokerHostDropsConnections_ShouldReturnWithinItsBound)
{
    silent_listener silent;
    setenv("VASK_BUS_URL", silent.url().c_str(), 1);
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_client *client = bus_client_new("bounds");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(bus_connect(client, 0), BUS_ERR_FAILED);

    auto start = steady::now();
    EXPECT_EQ(bus_disconnect(client), BUS_OK);
    bus_client_free(client);
    EXPECT_LT(seconds_since(start), kTeardownBoundS);
    bus_cleanup();
}

TEST(BusBounds, ConnectionAttemptToASilentHost_ShouldBeGivenUpAfterFiveSeconds)
{
    silent_listener silent;
    setenv("VASK_BUS_URL", silent.url().c_str(), 1);
    vask_test::log_capture log(TULO_LOG_LEVEL_WARNING);
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_client *client = bus_client_new("bounds");
    ASSERT_NE(client, nullptr);
    auto start = steady::now();
    bus_connect(client, 0);
    const std::string expected =
        "cannot reach broker 127.0.0.1:" + std::to_string(silent.port()) + " (no answer within 5 s), retrying";
    EXPECT_TRUE(vask_test::eventually([&] { return !log.with_message(expected).empty(); }, 9s));
    EXPECT_GE(seconds_since(start), 4.5);
    for (const vask_test::log_line &line : log.with_message(expected)) {
        EXPECT_EQ(line.module, BUS_LOG_MODULE);
        EXPECT_EQ(line.level, 1);
        EXPECT_EQ(line.source, "vask_bus");
        EXPECT_EQ(line.function, "network_main");
    }
    bus_client_free(client);
    bus_cleanup();
}

TEST(BusBounds, ReleaseWhileTheBrokerHostDropsConnections_ShouldReturnWithinItsBound)
{
    silent_listener silent;
    setenv("VASK_BUS_URL", silent.url().c_str(), 1);
    ASSERT_EQ(ed_init(), 0);
    auto start = steady::now();
    EXPECT_EQ(ed_release(), 0);
    EXPECT_LT(seconds_since(start), kTeardownBoundS);
}

TEST_F(BusTest, TeardownWhileTheBrokerIsFrozen_ShouldReturnWithinItsBound)
{
    ASSERT_EQ(bus_service_register(client_, "bounds_service", [](bus_client *, void *, const char *, const char *, int,
                                                                 char *, int) { return 0; },
                                   nullptr),
              BUS_OK);
    broker_->pause();
    auto start = steady::now();
    bus_client_free(client_);
    client_ = nullptr;
    double took = seconds_since(start);
    broker_->resume();
    EXPECT_LT(took, kTeardownBoundS);
}

TEST_F(BusTest, ConnectionLostWhileACallWaits_ShouldFailTheCallAtOnce)
{
    service_->hold("act");
    auto result = std::async(std::launch::async, [&] {
        auto start = steady::now();
        int rc = call("act", "", nullptr, 8);
        return std::make_pair(rc, seconds_since(start));
    });
    ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
    broker_->kill();
    if (direct_path_on()) {
        // The reply comes over the service's own socket, which the broker's end leaves alone.
        service_->release();
        EXPECT_EQ(result.get().first, BUS_OK);
        return;
    }
    auto [rc, took] = result.get();
    service_->release();
    EXPECT_EQ(rc, BUS_ERR_FAILED);
    EXPECT_LT(took, 3.0) << "the call waited for a reply that could no longer arrive";
}

TEST_F(BusTest, ReconnectAfterAnOrderlyDisconnect_ShouldReceiveTheSignalsSentMeanwhile)
{
    // The session outlives the connection (session expiry), so QoS 1 signals wait at the broker.
    g_signals = 0;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event", count_signal), BUS_OK);
    ASSERT_EQ(bus_disconnect(client_), BUS_OK);
    ASSERT_EQ(bus_signal_emit(service_->client(), "external_device", "mic_on_event", "1", 1), BUS_OK);
    // Acknowledged by the broker once the sending queue is empty again.
    ASSERT_TRUE(vask_test::eventually([&] {
        bus_client_stats stats{};
        return bus_client_get_stats(service_->client(), &stats) == BUS_OK && stats.send_queued == 0;
    }));
    ASSERT_EQ(bus_connect(client_, 0), BUS_OK);
    EXPECT_TRUE(vask_test::eventually([] { return g_signals.load() == 1; }, 5s));
}

TEST_F(BusTest, FreedHandle_ShouldNotReachANewerClient)
{
    // A newer client may reuse the freed one's memory; the old handle must still be refused.
    bus_client *old_handle = bus_client_new("first");
    ASSERT_NE(old_handle, nullptr);
    bus_client_free(old_handle);
    bus_client *newer = bus_client_new("second");
    ASSERT_NE(newer, nullptr);
    EXPECT_NE(newer, old_handle);
    EXPECT_EQ(bus_signal_subscribe(old_handle, "external_device", "mic_on_event", count_signal), BUS_ERR_FAILED);
    EXPECT_EQ(bus_connect(old_handle, 0), BUS_ERR_FAILED);
    bus_client_stats stats{};
    EXPECT_EQ(bus_client_get_stats(old_handle, &stats), BUS_ERR_FAILED);
    bus_client_free(old_handle); // ignored, and leaves the newer client alone
    EXPECT_EQ(bus_connect(newer, 0), BUS_OK);
    bus_client_free(newer);
}

TEST_F(BusTest, MadeUpHandle_ShouldBeRefused)
{
    EXPECT_EQ(bus_connect(reinterpret_cast<bus_client *>(uintptr_t{0x1000}), 0), BUS_ERR_FAILED);
    EXPECT_EQ(bus_disconnect(reinterpret_cast<bus_client *>(~uintptr_t{0})), BUS_ERR_FAILED);
}

namespace {

std::atomic<int> g_slow_calls{0};

void slow_callback(const char *, void *, void *)
{
    ++g_slow_calls;
    std::this_thread::sleep_for(50ms);
}

} // namespace

TEST_F(BusTest, LibraryStats_ShouldCountTheSignalsItsCallbacksMissed)
{
    bus_client_stats stats{};
    EXPECT_EQ(ed_get_bus_stats(&stats), -1) << "not open yet";
    setenv("VASK_BUS_QUEUE_MESSAGES", "5", 1);
    ASSERT_EQ(ed_init(), 0);
    unsetenv("VASK_BUS_QUEUE_MESSAGES");
    EXPECT_EQ(ed_get_bus_stats(nullptr), -1);
    g_slow_calls = 0;
    ASSERT_EQ(ed_register_signal("mic_on_event", slow_callback), 0);
    const std::string payload = "{\"Group\":\"1\",\"Id\":\"7\",\"On\":true}";
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(bus_signal_emit(service_->client(), "external_device", "mic_on_event", payload.data(),
                                  static_cast<int>(payload.size())),
                  BUS_OK);
    ASSERT_TRUE(vask_test::eventually([&] {
        return ed_get_bus_stats(&stats) == 0 && stats.dispatch_queued == 0 &&
               g_slow_calls.load() + static_cast<int>(stats.signals_dropped) == 50;
    }));
    EXPECT_GT(stats.signals_dropped, 0u);
    ed_unregister_signal("mic_on_event");
    EXPECT_EQ(ed_release(), 0);
    EXPECT_EQ(ed_get_bus_stats(&stats), -1) << "closed again";
}

TEST_F(BusTest, LibraryCalls_ShouldTakeTheDirectPathUnlessItIsSwitchedOff)
{
    bus_direct_stats stats{};
    EXPECT_EQ(ed_get_bus_direct_stats(&stats), -1) << "not open yet";
    ASSERT_EQ(ed_init(), 0);
    EXPECT_EQ(ed_get_bus_direct_stats(nullptr), -1);
    // The fake service's {"code":0} is all the library needs to hear back; the path is what counts.
    imshare_info info{};
    static_cast<void>(ed_get_imshare_info(&info));
    ASSERT_EQ(ed_get_bus_direct_stats(&stats), 0);
    if (direct_path_on()) {
        EXPECT_EQ(stats.calls_direct, 1u);
        EXPECT_EQ(stats.calls_broker, 0u);
    } else {
        EXPECT_EQ(stats.calls_direct, 0u);
        EXPECT_EQ(stats.calls_broker, 1u);
    }
    EXPECT_EQ(ed_release(), 0);
    EXPECT_EQ(ed_get_bus_direct_stats(&stats), -1) << "closed again";
}
