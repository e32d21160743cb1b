// SPDX-License-Identifier: MIT
#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <chrono>
#include <mutex>
#include <string>

#include "bus_test_fixture.h"
#include "log_capture.h"
#include "process.h"

using namespace std::chrono_literals;

namespace {

std::atomic<int> g_signals{0};

void count_signal(bus_client *, void *, const char *, const void *, int)
{
    ++g_signals;
}

} // namespace

TEST_F(BusTest, BrokerRestart_ShouldReconnectAndSubscribeAgain)
{
    g_signals = 0;
    ASSERT_EQ(bus_signal_subscribe(client_, "external_device", "mic_on_event", count_signal), BUS_OK);
    ASSERT_EQ(bus_signal_emit(service_->client(), "external_device", "mic_on_event", "1", 1), BUS_OK);
    ASSERT_TRUE(vask_test::eventually([] { return g_signals.load() == 1; }));

    broker_->kill();
    // While the broker is away calls fail at once instead of waiting for their timeout, except on
    // the direct path, which needs no broker.
    if (direct_path_on())
        EXPECT_EQ(call("ping", "", nullptr, 1), BUS_OK);
    else
        ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "", nullptr, 1) == BUS_ERR_FAILED; }));
    ASSERT_TRUE(broker_->restart());

    // Both clients come back by themselves; the restarted broker knows nothing of their sessions.
    ASSERT_TRUE(vask_test::eventually([&] { return call("ping", "", nullptr, 2) == BUS_OK; }, 20s));
    ASSERT_TRUE(vask_test::eventually([&] {
        bus_signal_emit(service_->client(), "external_device", "mic_on_event", "2", 1);
        return g_signals.load() >= 2;
    }, 20s));
}

TEST_F(BusTest, Disconnect_ShouldPublishOfflineForItsServices)
{
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    bus_client *provider = bus_client_new("provider");
    ASSERT_EQ(bus_service_register(provider, "clean_service",
                                   [](bus_client *, void *, const char *, const char *, int, char *reply, int) {
                                       reply[0] = 'k';
                                       return 1;
                                   },
                                   nullptr),
              BUS_OK);
    ASSERT_EQ(bus_connect(provider, 0), BUS_OK);
    ASSERT_EQ(bus_method_call_sync(client_, "clean_service", "m", nullptr, 0, buffer, &length, 5), BUS_OK);
    EXPECT_STREQ(buffer, "k");
    ASSERT_EQ(bus_disconnect(provider), BUS_OK);
    EXPECT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "clean_service", "m", nullptr, 0, buffer, &length, 1) == BUS_ERR_NO_SERVICE;
    }));
    // Connecting again announces it again.
    ASSERT_EQ(bus_connect(provider, 0), BUS_OK);
    EXPECT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "clean_service", "m", nullptr, 0, buffer, &length, 1) == BUS_OK;
    }));
    bus_client_free(provider);
}

TEST_F(BusTest, RegisterWhileConnected_ShouldServeAndSetTheWill)
{
    char buffer[BUS_REPLY_MAX];
    int length = 0;
    bus_client *provider = bus_client_new("provider");
    ASSERT_EQ(bus_connect(provider, 0), BUS_OK);
    auto answer = [](bus_client *, void *, const char *, const char *, int, char *reply, int) {
        reply[0] = 'r';
        return 1;
    };
    ASSERT_EQ(bus_service_register(provider, "late_service", answer, nullptr), BUS_OK);
    EXPECT_EQ(bus_service_register(provider, "late_service", answer, nullptr), BUS_ERR_INVALID);
    ASSERT_EQ(bus_method_call_sync(client_, "late_service", "m", nullptr, 0, buffer, &length, 5), BUS_OK);
    EXPECT_STREQ(buffer, "r");
    EXPECT_EQ(bus_service_unregister(provider, "late_service"), BUS_OK);
    EXPECT_EQ(bus_service_unregister(provider, "late_service"), BUS_ERR_INVALID);
    EXPECT_TRUE(vask_test::eventually([&] {
        return bus_method_call_sync(client_, "late_service", "m", nullptr, 0, buffer, &length, 1) == BUS_ERR_NO_SERVICE;
    }));
    bus_client_free(provider);
}

TEST_F(BusTest, InitAndCleanup_ShouldBeReferenceCounted)
{
    // The fixture and the fake service each hold one reference; two more and their release leave
    // the library usable.
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_cleanup();
    EXPECT_EQ(call("ping", ""), BUS_OK);
    bus_client *another = bus_client_new("another");
    EXPECT_NE(another, nullptr);
    bus_client_free(another);
}

TEST_F(BusTest, BrokerKilledDuringABurstOfCalls_ShouldEndEveryCallWithinItsTimeout)
{
    std::atomic<bool> stop{false};
    std::atomic<int> ok{0}, failed{0}, late{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            while (!stop) {
                auto start = std::chrono::steady_clock::now();
                int rc = call("echo", "{\"burst\":true}", nullptr, 2);
                if (std::chrono::steady_clock::now() - start > 3s)
                    ++late;
                (rc == BUS_OK ? ok : failed)++;
            }
        });
    }
    ASSERT_TRUE(vask_test::eventually([&] { return ok.load() > 100; }));
    broker_->kill();
    if (direct_path_on()) {
        // Local calls do not need the broker: not one fails while it is away.
        int before = ok.load();
        ASSERT_TRUE(vask_test::eventually([&] { return ok.load() > before + 100; }));
        EXPECT_EQ(failed.load(), 0);
    } else {
        ASSERT_TRUE(vask_test::eventually([&] { return failed.load() > 100; }));
    }
    ASSERT_TRUE(broker_->restart());
    // Back without anything done by the application.
    int before = ok.load();
    EXPECT_TRUE(vask_test::eventually([&] { return ok.load() > before + 100; }, 30s));
    stop = true;
    for (auto &caller : callers)
        caller.join();
    EXPECT_EQ(late.load(), 0) << "calls took longer than their timeout plus 1 s";
}

TEST_F(BusTest, ServiceNotBackAfterABrokerRestart_ShouldBeCalledOnceItAnnouncesItself)
{
    ASSERT_EQ(call("ping", ""), BUS_OK);
    broker_->kill();
    // The service goes while the broker is away: nothing can tell the caller.
    service_.reset();
    ASSERT_TRUE(broker_->restart());
    // The caller is back on the broker, which has lost every retained state: a call to a service
    // nobody provides fails at once while disconnected, and waits for its timeout once connected.
    auto probe = [&] {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        return bus_method_call_sync(client_, "nobody_here", "ping", nullptr, 0, reply, &length, 1);
    };
    ASSERT_TRUE(vask_test::eventually([&] { return probe() == BUS_ERR_TIMEOUT; }, 15s));
    EXPECT_EQ(call("ping", "", nullptr, 1), BUS_ERR_TIMEOUT) << "a service that does not come back";

    // It comes back a second later. A call made before that waits for its announcement instead of
    // sending a request that nobody receives and waiting out its whole timeout.
    std::thread comeback([&] {
        std::this_thread::sleep_for(1s);
        service_ = std::make_unique<vask_test::fake_service>();
    });
    auto start = std::chrono::steady_clock::now();
    int rc = call("ping", "", nullptr, 5);
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    comeback.join();
    ASSERT_TRUE(service_->ready());
    EXPECT_EQ(rc, BUS_OK);
    EXPECT_LT(took, 4.0);
}
