// SPDX-License-Identifier: MIT
// The library driven by many application threads at once while the simulator's signals flow to a
// registered callback, and the same with the broker killed and started again underneath.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim_fixture.h"

using namespace std::chrono_literals;

namespace {

constexpr int kThreads = 8;
constexpr int kCallsPerThread = 1000;
constexpr const char *kEvent = "info_data_change_event";

// The raw payloads the callback received, in arrival order.
struct received_signals {
    std::mutex mutex;
    std::vector<std::string> payloads;
};

received_signals *g_received = nullptr;

void record(const char *, void *data, void *)
{
    std::lock_guard<std::mutex> hold(g_received->mutex);
    g_received->payloads.push_back(static_cast<const char *>(data));
}

std::string payload(int phase, int index)
{
    return "{\"Type\":" + std::to_string(phase) + ",\"Data\":" + std::to_string(index) + "}";
}

// Reads the vote into a record filled with -1 first, so that a call that returns 0 without
// writing the simulator's idle vote (all zero) counts as wrong.
bool read_idle_vote()
{
    ed_voting_info info{-1, -1, -1, -1, -1, -1};
    return ed_get_voting(info) == 0 && info.status == 0 && info.agree == 0 && info.disagree == 0 &&
           info.abandon == 0 && info.total == 0 && info.time == 0;
}

class LibraryConcurrencyTest : public SimTest {
protected:
    void SetUp() override
    {
        g_received = &received_;
        SimTest::SetUp();
        ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
        ASSERT_EQ(ed_register_signal(kEvent, record), 0);
    }

    void TearDown() override
    {
        ed_unregister_signal(kEvent);
        ed_set_opt(ED_OPT_SIGNAL_PARSE, 1);
        SimTest::TearDown();
        g_received = nullptr;
    }

    // The simulator emits `count` signals payload(phase, 0..count-1); true when it did.
    bool emit_burst(int phase, int count)
    {
        std::string body = "{\"event\":\"" + std::string(kEvent) + "\",\"payload\":\"{\\\"Type\\\":" +
                           std::to_string(phase) + ",\\\"Data\\\":%d}\",\"count\":" + std::to_string(count) + "}";
        return control("emit", body) == "{\"code\":0}";
    }

    // The payloads of `phase` received so far, in arrival order.
    std::vector<std::string> received(int phase)
    {
        std::string prefix = "{\"Type\":" + std::to_string(phase) + ",";
        std::lock_guard<std::mutex> hold(received_.mutex);
        std::vector<std::string> found;
        for (const std::string &p : received_.payloads)
            if (p.compare(0, prefix.size(), prefix) == 0)
                found.push_back(p);
        return found;
    }

    // Expects the payloads of `phase` to be payload(phase, 0..count-1), each once, in order.
    void expect_burst(int phase, int count)
    {
        ASSERT_TRUE(vask_test::eventually([&] { return received(phase).size() >= static_cast<size_t>(count); }, 60s))
            << "phase " << phase << ": " << received(phase).size() << " of " << count;
        std::vector<std::string> got = received(phase);
        ASSERT_EQ(got.size(), static_cast<size_t>(count)) << "phase " << phase;
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(got[static_cast<size_t>(i)], payload(phase, i)) << "phase " << phase;
    }

    received_signals received_;
};

} // namespace

TEST_F(LibraryConcurrencyTest, EightThreadsCallingWhileSignalsFlow_ShouldAnswerEveryCallAndDeliverEverySignal)
{
    constexpr int kBurst = 500;
    constexpr int kMaxBursts = 20;
    std::atomic<int> wrong{0};
    std::atomic<int> running{kThreads};
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < kCallsPerThread; ++i)
                if (!read_idle_vote())
                    ++wrong;
            --running;
        });
    }
    // Bursts while the calls run, at most kMaxBursts of them.
    int bursts = 0;
    int bursts_during_calls = 0;
    int failed_bursts = 0;
    while (bursts < kMaxBursts && (running.load() > 0 || bursts == 0)) {
        if (!emit_burst(bursts, kBurst))
            ++failed_bursts;
        ++bursts;
        if (running.load() > 0)
            ++bursts_during_calls;
    }
    for (auto &caller : callers)
        caller.join();
    EXPECT_EQ(wrong.load(), 0) << "of " << kThreads * kCallsPerThread << " calls";
    EXPECT_EQ(failed_bursts, 0);
    EXPECT_GT(bursts_during_calls, 0) << "no burst was delivered while the calls ran";
    for (int phase = 0; phase < bursts; ++phase)
        expect_burst(phase, kBurst);
    std::lock_guard<std::mutex> hold(received_.mutex);
    EXPECT_EQ(received_.payloads.size(), static_cast<size_t>(bursts) * kBurst);
}

TEST_F(LibraryConcurrencyTest, BrokerKilledWhileThreadsCallAndSignalsFlow_ShouldResumeSignalsByItself)
{
    constexpr int kBeforePhase = 1000000; // the signals of the pump, some of them lost in the outage
    std::atomic<bool> stop{false};
    std::vector<std::atomic<int>> ok(kThreads);
    std::atomic<int> failed{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            while (!stop)
                (read_idle_vote() ? ok[static_cast<size_t>(t)] : failed)++;
        });
    }
    std::atomic<bool> stop_pump{false};
    std::thread pump([&] {
        while (!stop_pump)
            emit_burst(kBeforePhase, 20);
    });
    auto total_ok = [&] {
        int sum = 0;
        for (auto &count : ok)
            sum += count.load();
        return sum;
    };
    ASSERT_TRUE(vask_test::eventually([&] { return total_ok() > 400 && received(kBeforePhase).size() > 100; }, 30s));

    broker_->kill();
    const char *direct = getenv("VASK_BUS_DIRECT");
    if (direct == nullptr || strcmp(direct, "0") != 0) {
        // The calls go over the simulator's direct socket, which the outage leaves alone: not one
        // fails, while the signals (which only the broker carries) stop.
        int before = total_ok();
        ASSERT_TRUE(vask_test::eventually([&] { return total_ok() > before + 400; }, 30s));
        EXPECT_EQ(failed.load(), 0);
    } else {
        // While the broker is away every call fails at once.
        ASSERT_TRUE(vask_test::eventually([&] { return failed.load() > 100; }, 30s));
    }
    ASSERT_TRUE(broker_->restart());
    std::vector<int> at_restart;
    for (auto &count : ok)
        at_restart.push_back(count.load());
    // Every application thread gets answers again, without the application doing anything.
    EXPECT_TRUE(vask_test::eventually([&] {
        for (size_t t = 0; t < ok.size(); ++t)
            if (ok[t].load() < at_restart[t] + 50)
                return false;
        return true;
    }, 60s));
    stop_pump = true;
    pump.join();

    // The callback registered before the outage gets signals again: one gets through once the
    // library has subscribed anew, then a whole burst arrives, once each and in order.
    EXPECT_TRUE(vask_test::eventually([&] {
        emit_burst(2, 1);
        return !received(2).empty();
    }, 60s));
    emit_burst(3, 1000);
    expect_burst(3, 1000);
    stop = true;
    for (auto &caller : callers)
        caller.join();
}
