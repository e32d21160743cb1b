// SPDX-License-Identifier: MIT
// Closing and reopening the library while signals are registered: ed_release from a callback is
// refused, and the callbacks stored survive ed_release and a new ed_init, delivered once each.
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "core/internal.h"
#include "core/method_call.h"
#include "core_test_fixture.h"
#include "log_capture.h"
#include "process.h"

using vask_test::eventually;
using vask_test::log_capture;

namespace {

// What the callbacks saw, "event:Group", in arrival order; they run on the bus library's thread.
std::mutex g_mutex;
std::vector<std::string> g_seen;
std::atomic<int> g_release_result{0};
std::atomic<bool> g_release_in_callback{false};

void record(const char *event, void *data)
{
    std::string group;
    if (std::string(event) == "cam_status_event")
        group = static_cast<sig_cam_status_data *>(data)->group;
    else
        group = static_cast<sig_mic_on_data *>(data)->group;
    std::lock_guard<std::mutex> hold(g_mutex);
    g_seen.push_back(std::string(event) + ":" + group);
}

void on_signal(const char *event, void *data, void *)
{
    if (g_release_in_callback.exchange(false))
        g_release_result = ed_release();
    record(event, data);
}

std::vector<std::string> seen()
{
    std::lock_guard<std::mutex> hold(g_mutex);
    return g_seen;
}

size_t count_of(const std::string &delivery)
{
    size_t n = 0;
    for (const std::string &s : seen())
        n += s == delivery ? 1 : 0;
    return n;
}

class LifecycleSignals : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        std::lock_guard<std::mutex> hold(g_mutex);
        g_seen.clear();
    }

    void TearDown() override
    {
        for (const char *event : {"mic_on_event", "cam_status_event", "voting_results_event"})
            ed_unregister_signal(event);
        LibraryTest::TearDown();
    }

    bool emit(const char *event, const std::string &group)
    {
        std::string payload = R"({"Status":1,"Group":")" + group + R"(","Id":"1","On":1})";
        return bus_signal_emit(service_->client(), "external_device", event, payload.data(),
                               static_cast<int>(payload.size())) == BUS_OK;
    }

    // Emits `group` and waits until it has been delivered at least once.
    bool deliver(const char *event, const std::string &group)
    {
        std::string expected = std::string(event) + ":" + group;
        return emit(event, group) && eventually([&] { return count_of(expected) >= 1; });
    }

    // True when, after every expected delivery arrived, no further one shows up for a while: a
    // second live client of the library would deliver its copy within milliseconds.
    static bool stays_at(size_t deliveries)
    {
        return !eventually([deliveries] { return seen().size() > deliveries; }, std::chrono::milliseconds(500));
    }
};

TEST_F(LifecycleSignals, ReleaseFromACallback_ShouldBeRefusedWithALogLineAndKeepTheLibraryOpen)
{
    ASSERT_EQ(ed_init(), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_signal), 0);
    log_capture capture;
    g_release_in_callback = true;
    ASSERT_TRUE(deliver("mic_on_event", "first"));
    EXPECT_EQ(g_release_result.load(), -1);
    auto lines = capture.with_message("ed_release called from a signal callback: refused");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, 59);
    EXPECT_EQ(lines[0].level, 0);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].function, "ed_release");
    EXPECT_GT(lines[0].line, 0);

    // Still open, with its one client: signals arrive once and the service answers.
    ASSERT_TRUE(deliver("mic_on_event", "second"));
    EXPECT_TRUE(stays_at(2));
    EXPECT_EQ(count_of("mic_on_event:second"), 1u);
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), 0);
    EXPECT_TRUE(capture.with_message("External device library already initialized").empty());

    // The application's own thread closes it.
    EXPECT_EQ(ed_release(), 0);
    EXPECT_EQ(vask_ed::current_client(), nullptr);
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), -1);
    EXPECT_TRUE(capture.with_message("External device library not initialized").empty());
}

TEST_F(LifecycleSignals, ReleaseFromACallbackThenReleaseAndInit_ShouldNeverDeliverTwice)
{
    ASSERT_EQ(ed_init(), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_signal), 0);
    g_release_in_callback = true;
    ASSERT_TRUE(deliver("mic_on_event", "inside"));
    ASSERT_EQ(ed_release(), 0);
    ASSERT_EQ(ed_init(), 0);
    // An application registers again after reopening: that replaces, it does not add.
    ASSERT_EQ(ed_register_signal("mic_on_event", on_signal), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_signal), 0);
    ASSERT_TRUE(deliver("mic_on_event", "reopened"));
    ASSERT_TRUE(deliver("cam_status_event", "camera"));
    EXPECT_TRUE(stays_at(3)) << seen().size() << " deliveries";
    EXPECT_EQ(count_of("mic_on_event:inside"), 1u);
    EXPECT_EQ(count_of("mic_on_event:reopened"), 1u);
    EXPECT_EQ(count_of("cam_status_event:camera"), 1u);
}

TEST_F(LifecycleSignals, InitAfterRelease_ShouldSubscribeAgainEveryEventWithAStoredCallback)
{
    ASSERT_EQ(ed_init(), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_signal), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_signal), 0);
    ASSERT_EQ(ed_register_signal("voting_results_event", nullptr), 0);
    ASSERT_TRUE(deliver("mic_on_event", "before"));
    ASSERT_EQ(ed_release(), 0);

    ASSERT_EQ(ed_init(), 0);
    ASSERT_TRUE(deliver("mic_on_event", "after"));
    ASSERT_TRUE(deliver("cam_status_event", "after"));
    EXPECT_TRUE(stays_at(3)) << seen().size() << " deliveries";
    EXPECT_EQ(count_of("mic_on_event:after"), 1u);
    EXPECT_EQ(count_of("cam_status_event:after"), 1u);
}

TEST_F(LifecycleSignals, RegisterBeforeInit_ShouldDeliverOnceTheLibraryIsOpen)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", on_signal), 0);
    ASSERT_EQ(ed_init(), 0);
    ASSERT_TRUE(deliver("mic_on_event", "early"));
    EXPECT_TRUE(stays_at(1));
}

} // namespace
