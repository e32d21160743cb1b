// SPDX-License-Identifier: MIT
// Registering for the service's signals and their dispatch to the application's callbacks, over a
// private broker and by direct calls of the dispatcher.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "broker.h"
#include "core/internal.h"
#include "core/signals.h"
#include "fake_service.h"
#include "libvask_external_device.h"
#include "log_capture.h"
#include "process.h"

// ---- the library's subscription calls, seen on their way to the bus library ----

namespace {

struct bus_call {
    std::string function;
    bus_client *client;
    std::string service;
    std::string event;
    bus_signal_handler handler;
    int result;
};

std::mutex g_bus_calls_mutex;
std::vector<bus_call> g_bus_calls;

void record_bus_call(const bus_call &call)
{
    std::lock_guard<std::mutex> hold(g_bus_calls_mutex);
    g_bus_calls.push_back(call);
}

std::vector<bus_call> bus_calls()
{
    std::lock_guard<std::mutex> hold(g_bus_calls_mutex);
    return g_bus_calls;
}

void clear_bus_calls()
{
    std::lock_guard<std::mutex> hold(g_bus_calls_mutex);
    g_bus_calls.clear();
}

template <typename Function>
Function next_definition(const char *name)
{
    void *found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        abort();
    return reinterpret_cast<Function>(found);
}

} // namespace

// These definitions take the place of the bus library's for this program: they record the call and
// pass it on to the bus library unchanged.
extern "C" int bus_signal_subscribe(bus_client *client, const char *service, const char *event,
                                    bus_signal_handler handler)
{
    using function = int (*)(bus_client *, const char *, const char *, bus_signal_handler);
    static const function real = next_definition<function>("bus_signal_subscribe");
    int result = real(client, service, event, handler);
    record_bus_call({"subscribe", client, service != nullptr ? service : "", event != nullptr ? event : "",
                     handler, result});
    return result;
}

extern "C" int bus_signal_unsubscribe(bus_client *client, const char *service, const char *event)
{
    using function = int (*)(bus_client *, const char *, const char *);
    static const function real = next_definition<function>("bus_signal_unsubscribe");
    int result = real(client, service, event);
    record_bus_call({"unsubscribe", client, service != nullptr ? service : "",
                     event != nullptr ? event : "", nullptr, result});
    return result;
}

namespace {

using vask_test::eventually;

const std::string kPrefix = "external_device/signal/";
const char *const kEvents[] = {"mic_on_event", "voting_results_event", "info_data_change_event",
                               "cam_status_event", "non_list_mic_event"};

// ---- what the callbacks saw; they run on the bus library's thread ----

struct delivery {
    std::string callback;
    std::string event;
    bool event_null = false;
    const void *data = nullptr;
    void *user = nullptr;
    std::string group;
    std::string id;
    bool on = false;
    std::vector<int> ints;
    std::string raw;
};

class recorder {
public:
    void add(delivery d)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        deliveries_.push_back(std::move(d));
    }
    std::vector<delivery> all()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return deliveries_;
    }
    size_t size()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        return deliveries_.size();
    }
    size_t count(const std::string &callback)
    {
        std::lock_guard<std::mutex> hold(mutex_);
        size_t n = 0;
        for (const delivery &d : deliveries_)
            n += d.callback == callback ? 1 : 0;
        return n;
    }
    void clear()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        deliveries_.clear();
    }

private:
    std::mutex mutex_;
    std::vector<delivery> deliveries_;
};

recorder g_seen;

delivery start(const char *callback, const char *event, void *data, void *user)
{
    delivery d;
    d.callback = callback;
    d.event_null = event == nullptr;
    d.event = event != nullptr ? event : "";
    d.data = data;
    d.user = user;
    return d;
}

// Copies only group, id and on: the microphone parsers leave status unset.
void on_mic(const char *event, void *data, void *user)
{
    delivery d = start("mic", event, data, user);
    const auto *record = static_cast<const sig_mic_on_data *>(data);
    d.group = record->group;
    d.id = record->id;
    d.on = record->on;
    g_seen.add(d);
}

void on_mic_other(const char *event, void *data, void *user)
{
    delivery d = start("mic_other", event, data, user);
    d.group = static_cast<const sig_mic_on_data *>(data)->group;
    g_seen.add(d);
}

void on_non_list_mic(const char *event, void *data, void *user)
{
    delivery d = start("non_list_mic", event, data, user);
    const auto *record = static_cast<const sig_mic_on_data *>(data);
    d.group = record->group;
    d.id = record->id;
    d.on = record->on;
    g_seen.add(d);
}

void on_cam(const char *event, void *data, void *user)
{
    delivery d = start("cam", event, data, user);
    const auto *record = static_cast<const sig_cam_status_data *>(data);
    d.ints = {record->status};
    d.group = record->group;
    d.id = record->id;
    d.on = record->on;
    g_seen.add(d);
}

void on_voting(const char *event, void *data, void *user)
{
    delivery d = start("voting", event, data, user);
    const auto *r = static_cast<const sig_voting_results_data *>(data);
    d.ints = {r->status, r->agree, r->disagree, r->abandon, r->total, r->time};
    g_seen.add(d);
}

void on_info(const char *event, void *data, void *user)
{
    delivery d = start("info", event, data, user);
    const auto *r = static_cast<const sig_info_data_change_data *>(data);
    d.ints = {r->type, r->data};
    g_seen.add(d);
}

void on_raw(const char *event, void *data, void *user)
{
    delivery d = start("raw", event, data, user);
    d.raw = static_cast<const char *>(data);
    g_seen.add(d);
}

void on_throw(const char *event, void *data, void *user)
{
    g_seen.add(start("throw", event, data, user));
    throw std::runtime_error("callback failed");
}

// Leaves every event without a callback, the option at its default and the recordings empty.
void reset_signals()
{
    for (const char *event : kEvents)
        ed_unregister_signal(event);
    ed_set_opt(ED_OPT_SIGNAL_PARSE, 1);
    g_seen.clear();
    clear_bus_calls();
}

std::vector<vask_test::log_line> library_lines(vask_test::log_capture &log)
{
    std::vector<vask_test::log_line> found;
    for (const vask_test::log_line &line : log.lines())
        if (line.module == ED_LOG_MODULE)
            found.push_back(line);
    return found;
}

// ---- over the bus: the library's client, a fake service that emits, a private broker ----

class SignalBus : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(broker_.started());
        setenv("VASK_BUS_URL", broker_.url().c_str(), 1);
        reset_signals();
        ASSERT_EQ(ed_init(), 0);
        ASSERT_NE(vask_ed::current_client(), nullptr);
        fake_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(fake_->ready());
    }

    void TearDown() override
    {
        reset_signals();
        ed_release();
        fake_.reset();
    }

    bool emit(const char *event, const std::string &payload)
    {
        return bus_signal_emit(fake_->client(), "external_device", event, payload.data(),
                               static_cast<int>(payload.size())) == BUS_OK;
    }

    static bool wait_for(size_t deliveries, std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        return eventually([deliveries] { return g_seen.size() >= deliveries; }, timeout);
    }

    vask_test::broker broker_;
    std::unique_ptr<vask_test::fake_service> fake_;
};

TEST_F(SignalBus, EdRegisterSignal_ShouldDeliverEachEventAsItsRecord)
{
    vask_test::log_capture log;
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_EQ(ed_register_signal("voting_results_event", on_voting), 0);
    ASSERT_EQ(ed_register_signal("info_data_change_event", on_info), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    ASSERT_EQ(ed_register_signal("non_list_mic_event", on_non_list_mic), 0);

    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"A","Id":"1","On":true})"));
    ASSERT_TRUE(emit("voting_results_event",
                     R"({"Status":2,"Agree":5,"Disagree":3,"Abandon":1,"Total":9,"Time":30})"));
    ASSERT_TRUE(emit("info_data_change_event", R"({"Type":4,"Data":7.9})"));
    ASSERT_TRUE(emit("cam_status_event", R"({"Status":3,"Group":"C","On":1})"));
    ASSERT_TRUE(emit("non_list_mic_event", R"({"Id":"99","On":false})"));
    ASSERT_TRUE(wait_for(5));

    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[0].callback, "mic");
    EXPECT_EQ(seen[0].event, "mic_on_event");
    EXPECT_EQ(seen[0].group, "A");
    EXPECT_EQ(seen[0].id, "1");
    EXPECT_TRUE(seen[0].on);
    EXPECT_EQ(seen[1].callback, "voting");
    EXPECT_EQ(seen[1].event, "voting_results_event");
    EXPECT_EQ(seen[1].ints, std::vector<int>({2, 5, 3, 1, 9, 30}));
    EXPECT_EQ(seen[2].callback, "info");
    EXPECT_EQ(seen[2].event, "info_data_change_event");
    EXPECT_EQ(seen[2].ints, std::vector<int>({4, 7}));
    EXPECT_EQ(seen[3].callback, "cam");
    EXPECT_EQ(seen[3].event, "cam_status_event");
    EXPECT_EQ(seen[3].ints, std::vector<int>({3}));
    EXPECT_EQ(seen[3].group, "C");
    EXPECT_EQ(seen[3].id, "");
    EXPECT_TRUE(seen[3].on);
    EXPECT_EQ(seen[4].callback, "non_list_mic");
    EXPECT_EQ(seen[4].event, "non_list_mic_event");
    EXPECT_EQ(seen[4].group, "");
    EXPECT_EQ(seen[4].id, "99");
    EXPECT_FALSE(seen[4].on);
    // The bus client's user pointer is NULL unless the application sets it.
    for (const delivery &d : seen)
        EXPECT_EQ(d.user, nullptr) << d.callback;
    EXPECT_TRUE(library_lines(log).empty());
}

TEST_F(SignalBus, EdRegisterSignal_ShouldSubscribeTheShortNameWithTheDispatcher)
{
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    std::vector<bus_call> calls = bus_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "subscribe");
    EXPECT_EQ(calls[0].client, vask_ed::current_client());
    EXPECT_EQ(calls[0].service, "external_device");
    EXPECT_EQ(calls[0].event, "cam_status_event");
    EXPECT_EQ(calls[0].handler, &ed_signal_handler);
    EXPECT_EQ(calls[0].result, BUS_OK);
}

TEST_F(SignalBus, EdRegisterSignal_ShouldReturnMinusThreeWithoutSubscribingForAnUnknownEvent)
{
    for (const char *event : {"no_such_event", "", "MIC_ON_EVENT", "mic_on", "mic_on_event ",
                              "signal/mic_on_event"})
        EXPECT_EQ(ed_register_signal(event, on_mic), -3) << event;
    EXPECT_TRUE(bus_calls().empty());
}

TEST_F(SignalBus, EdRegisterSignal_ShouldReturnMinusThreeForAFullTopic)
{
    EXPECT_EQ(ed_register_signal("external_device/signal/mic_on_event", on_mic), -3);
    EXPECT_EQ(ed_unregister_signal("external_device/signal/mic_on_event"), -3);
    EXPECT_TRUE(bus_calls().empty());
}

TEST_F(SignalBus, EdRegisterSignal_ShouldReturnMinusThreeForANullEvent)
{
    EXPECT_EQ(ed_register_signal(nullptr, on_mic), -3);
    EXPECT_EQ(ed_unregister_signal(nullptr), -3);
    EXPECT_TRUE(bus_calls().empty());
}

TEST_F(SignalBus, EdRegisterSignal_ShouldReplaceTheCallbackAndSubscribeAgainWhenRegisteredTwice)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic_other), 0);
    std::vector<bus_call> calls = bus_calls();
    ASSERT_EQ(calls.size(), 2u);
    for (const bus_call &call : calls) {
        EXPECT_EQ(call.function, "subscribe");
        EXPECT_EQ(call.event, "mic_on_event");
    }

    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"twice"})"));
    ASSERT_TRUE(wait_for(1));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].callback, "mic_other");
    EXPECT_EQ(seen[0].group, "twice");
}

TEST_F(SignalBus, EdRegisterSignal_ShouldReturnZeroWhenTheBusRefusesTheSubscription)
{
    ed_release();
    EXPECT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    std::vector<bus_call> calls = bus_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "subscribe");
    EXPECT_NE(calls[0].result, BUS_OK);
    EXPECT_EQ(ed_unregister_signal("mic_on_event"), 0);
    calls = bus_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].function, "unsubscribe");
    EXPECT_NE(calls[1].result, BUS_OK);
}

TEST_F(SignalBus, EdUnregisterSignal_ShouldUnsubscribeTheShortName)
{
    ASSERT_EQ(ed_register_signal("voting_results_event", on_voting), 0);
    clear_bus_calls();
    EXPECT_EQ(ed_unregister_signal("voting_results_event"), 0);
    std::vector<bus_call> calls = bus_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "unsubscribe");
    EXPECT_EQ(calls[0].client, vask_ed::current_client());
    EXPECT_EQ(calls[0].service, "external_device");
    EXPECT_EQ(calls[0].event, "voting_results_event");
    EXPECT_EQ(calls[0].result, BUS_OK);
    // The key stays, with no callback.
    const vask_ed::callback_table &callbacks = vask_ed::signal_callbacks();
    EXPECT_EQ(callbacks.size(), 5u);
    ASSERT_EQ(callbacks.count(kPrefix + "voting_results_event"), 1u);
    EXPECT_EQ(callbacks.at(kPrefix + "voting_results_event").load(), nullptr);
}

TEST_F(SignalBus, EdUnregisterSignal_ShouldReturnMinusThreeWithoutUnsubscribingForAnUnknownEvent)
{
    for (const char *event : {"no_such_event", "", "Cam_Status_Event"})
        EXPECT_EQ(ed_unregister_signal(event), -3) << event;
    EXPECT_TRUE(bus_calls().empty());
}

TEST_F(SignalBus, EdUnregisterSignal_ShouldStopDeliveries)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"before"})"));
    ASSERT_TRUE(wait_for(1));

    ASSERT_EQ(ed_unregister_signal("mic_on_event"), 0);
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(emit("mic_on_event", R"({"Group":"after"})"));
    // Signals of one sender arrive in the order sent: once this one is in, no earlier one can follow.
    ASSERT_TRUE(emit("cam_status_event", R"({"Status":1})"));
    ASSERT_TRUE(eventually([] { return g_seen.count("cam") == 1; }));

    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].callback, "mic");
    EXPECT_EQ(seen[0].group, "before");
    EXPECT_EQ(seen[1].callback, "cam");
}

TEST_F(SignalBus, EdRegisterSignal_ShouldDeliverAgainAfterUnregisterAndRegister)
{
    ASSERT_EQ(ed_register_signal("info_data_change_event", on_info), 0);
    ASSERT_EQ(ed_unregister_signal("info_data_change_event"), 0);
    ASSERT_EQ(ed_register_signal("info_data_change_event", on_info), 0);
    ASSERT_TRUE(emit("info_data_change_event", R"({"Type":1,"Data":2})"));
    ASSERT_TRUE(wait_for(1));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].ints, std::vector<int>({1, 2}));
}

TEST_F(SignalBus, EdSignalHandler_ShouldNotDeliverAMicOnEventWithoutGroupAndId)
{
    vask_test::log_capture log;
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_TRUE(emit("mic_on_event", R"({"On":true})"));
    ASSERT_TRUE(emit("mic_on_event", "not json"));
    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"last"})"));
    ASSERT_TRUE(wait_for(1));
    // The dispatch thread handles signals in arrival order: the first two are done with by now.
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].group, "last");
    EXPECT_TRUE(library_lines(log).empty());
}

TEST_F(SignalBus, EdSignalHandler_ShouldHandTheRawPayloadWhenSignalParseIsZero)
{
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_raw), 0);
    const std::string texts[] = {R"({"Group":"A","On":true})", R"({"On":1})", "not json at all"};
    for (const std::string &text : texts)
        ASSERT_TRUE(emit("mic_on_event", text));
    ASSERT_TRUE(wait_for(3));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(seen[i].event, "mic_on_event");
        EXPECT_EQ(seen[i].raw, texts[i]);
    }
}

TEST_F(SignalBus, EdSignalHandler_ShouldParseForAnyNonZeroSignalParse)
{
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 5), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"five","Id":"5","On":true})"));
    ASSERT_TRUE(wait_for(1));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].group, "five");
    EXPECT_EQ(seen[0].id, "5");
    EXPECT_TRUE(seen[0].on);
}

TEST_F(SignalBus, EdSignalHandler_ShouldPassTheBusClientsUserPointer)
{
    int marker = 0;
    bus_client_set_user(vask_ed::current_client(), &marker);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    ASSERT_TRUE(emit("cam_status_event", R"({"Status":4})"));
    ASSERT_TRUE(wait_for(1));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].user, &marker);
}

TEST_F(SignalBus, EdSignalHandler_ShouldDropSignalsOfAnEventRegisteredWithANullCallback)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", nullptr), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    ASSERT_TRUE(emit("mic_on_event", R"({"Group":"A","On":true})"));
    ASSERT_TRUE(emit("cam_status_event", R"({"Status":1})"));
    ASSERT_TRUE(wait_for(1));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].callback, "cam");
}

TEST_F(SignalBus, EdSignalHandler_ShouldDeliverTenThousandSignalsInOrder)
{
    constexpr int kCount = 10000;
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    for (int i = 0; i < kCount; ++i)
        ASSERT_TRUE(
            emit("mic_on_event", R"({"Group":"burst","Id":")" + std::to_string(i) + R"(","On":true})"));
    ASSERT_TRUE(wait_for(kCount, std::chrono::seconds(100))) << g_seen.size() << " delivered";

    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), static_cast<size_t>(kCount));
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(seen[i].id, std::to_string(i)) << "at " << i;
        ASSERT_EQ(seen[i].group, "burst");
    }
}

// ---- direct calls of the dispatcher with crafted topics and payloads ----

class SignalHandler : public ::testing::Test {
protected:
    void SetUp() override { reset_signals(); }
    void TearDown() override { reset_signals(); }
};

TEST_F(SignalHandler, EdSignalHandler_ShouldIgnoreATopicThatIsNotOneOfTheFiveWithoutALogLine)
{
    for (const char *event : kEvents)
        ASSERT_EQ(ed_register_signal(event, on_raw), 0);
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    vask_test::log_capture log;
    const char *payload = R"({"Group":"A","Id":"1","Status":1})";
    for (const char *topic :
         {"external_device/signal/unknown_event", "mic_on_event", "external_device/signal/",
          "external_device/signal/mic_on_event/x", "other/signal/mic_on_event",
          "external_device/method/mic_on_event", "EXTERNAL_DEVICE/signal/mic_on_event", ""})
        ed_signal_handler(nullptr, nullptr, topic, payload, static_cast<int>(strlen(payload)));
    ed_signal_handler(nullptr, nullptr, nullptr, payload, 0);
    EXPECT_EQ(g_seen.size(), 0u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalHandler, EdSignalHandler_ShouldPassTheEventNameThatFollowsThePrefix)
{
    ASSERT_EQ(ed_register_signal("non_list_mic_event", on_mic), 0);
    const std::string topic = kPrefix + "non_list_mic_event";
    ed_signal_handler(nullptr, nullptr, topic.c_str(), R"({"Id":"1"})", 10);
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_FALSE(seen[0].event_null);
    EXPECT_EQ(seen[0].event, "non_list_mic_event");
    EXPECT_EQ(seen[0].id, "1");
}

TEST_F(SignalHandler, EdSignalHandler_ShouldHandOverThePayloadPointerItselfWhenSignalParseIsZero)
{
    ASSERT_EQ(ed_register_signal("cam_status_event", on_raw), 0);
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    const std::string topic = kPrefix + "cam_status_event";
    char payload[] = "{ no parser reads this";
    int marker = 0;
    ed_signal_handler(nullptr, &marker, topic.c_str(), payload, 3);
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].data, static_cast<const void *>(payload));
    EXPECT_EQ(seen[0].raw, payload);
    EXPECT_EQ(seen[0].event, "cam_status_event");
    EXPECT_EQ(seen[0].user, &marker);
}

TEST_F(SignalHandler, EdSignalHandler_ShouldForwardUserAndIgnoreClientAndLength)
{
    ASSERT_EQ(ed_register_signal("voting_results_event", on_voting), 0);
    const std::string topic = kPrefix + "voting_results_event";
    const char *payload = R"({"Status":1,"Agree":2,"Disagree":3,"Abandon":4,"Total":10,"Time":5})";
    int marker = 0;
    ed_signal_handler(reinterpret_cast<bus_client *>(&marker), &marker, topic.c_str(), payload, 0);
    ed_signal_handler(nullptr, nullptr, topic.c_str(), payload, -1);
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].user, &marker);
    EXPECT_EQ(seen[0].ints, std::vector<int>({1, 2, 3, 4, 10, 5}));
    EXPECT_EQ(seen[1].user, nullptr);
    EXPECT_EQ(seen[1].ints, std::vector<int>({1, 2, 3, 4, 10, 5}));
}

TEST_F(SignalHandler, EdSignalHandler_ShouldSkipTheCallbackForABadPayloadWithoutALogLine)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_EQ(ed_register_signal("voting_results_event", on_voting), 0);
    ASSERT_EQ(ed_register_signal("info_data_change_event", on_info), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", on_cam), 0);
    ASSERT_EQ(ed_register_signal("non_list_mic_event", on_mic), 0);
    vask_test::log_capture log;
    for (const char *event : kEvents) {
        const std::string topic = kPrefix + event;
        for (const char *payload : {"", "not json", "{}", R"({"On":true})", "[1]"})
            ed_signal_handler(nullptr, nullptr, topic.c_str(), payload, static_cast<int>(strlen(payload)));
    }
    EXPECT_EQ(g_seen.size(), 0u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalHandler, EdSignalHandler_ShouldNeverCallANullCallback)
{
    const char *payload = R"({"Status":1,"Agree":1,"Disagree":1,"Abandon":1,"Total":1,"Time":1,)"
                          R"("Type":1,"Data":1,"Group":"G","Id":"I","On":true})";
    vask_test::log_capture log;
    // Never registered, registered as NULL, and unregistered: all three leave no callback.
    ASSERT_EQ(ed_register_signal("cam_status_event", nullptr), 0);
    ASSERT_EQ(ed_register_signal("mic_on_event", on_mic), 0);
    ASSERT_EQ(ed_unregister_signal("mic_on_event"), 0);
    for (int parse : {1, 0}) {
        ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, parse), 0);
        for (const char *event : kEvents) {
            const std::string topic = kPrefix + event;
            ed_signal_handler(nullptr, nullptr, topic.c_str(), payload, static_cast<int>(strlen(payload)));
        }
    }
    EXPECT_EQ(g_seen.size(), 0u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalHandler, EdSignalHandler_ShouldLetTheCallbacksExceptionPropagate)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", on_throw), 0);
    const std::string topic = kPrefix + "mic_on_event";
    EXPECT_THROW(ed_signal_handler(nullptr, nullptr, topic.c_str(), R"({"Group":"A"})", 13),
                 std::runtime_error);
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    EXPECT_THROW(ed_signal_handler(nullptr, nullptr, topic.c_str(), "raw", 3), std::runtime_error);
    EXPECT_EQ(g_seen.count("throw"), 2u);
}

// ---- the tables ----

TEST(SignalTables, SignalTables_ShouldMapTheFiveFullTopicsToTheirParsersAndReleasers)
{
    struct expected_entry {
        const char *event;
        vask_ed::signal_parser parser;
        vask_ed::signal_releaser releaser;
    };
    const expected_entry expected[] = {
        {"mic_on_event", sig_mic_on_parser, sig_mic_on_releaser},
        {"voting_results_event", sig_voting_results_parser, sig_voting_results_releaser},
        {"info_data_change_event", sig_info_data_change_parser, sig_info_data_change_releaser},
        {"cam_status_event", sig_cam_status_parser, sig_cam_status_releaser},
        {"non_list_mic_event", sig_non_list_mic_parser, sig_non_list_mic_releaser},
    };
    EXPECT_EQ(vask_ed::kSignalPrefix, kPrefix);
    const vask_ed::callback_table &callbacks = vask_ed::signal_callbacks();
    const vask_ed::parser_table &parsers = vask_ed::signal_parsers();
    const vask_ed::releaser_table &releasers = vask_ed::signal_releasers();
    EXPECT_EQ(callbacks.size(), 5u);
    EXPECT_EQ(parsers.size(), 5u);
    EXPECT_EQ(releasers.size(), 5u);
    for (const expected_entry &entry : expected) {
        const std::string topic = kPrefix + entry.event;
        EXPECT_EQ(callbacks.count(topic), 1u) << topic;
        ASSERT_EQ(parsers.count(topic), 1u) << topic;
        ASSERT_EQ(releasers.count(topic), 1u) << topic;
        EXPECT_EQ(parsers.at(topic), entry.parser) << topic;
        EXPECT_EQ(releasers.at(topic), entry.releaser) << topic;
    }
}

// ---- the dispatcher on tables made for the test: the paths the fixed tables never take ----

struct trace {
    std::vector<std::string> steps;
    std::vector<const void *> released;
};
trace g_trace;
sig_info_data_change_data g_fixed_record{1, 2};

void *parse_fixed(const char *)
{
    g_trace.steps.push_back("parse");
    return &g_fixed_record;
}

void *parse_null(const char *)
{
    g_trace.steps.push_back("parse");
    return nullptr;
}

void *parse_out_of_range(const char *)
{
    g_trace.steps.push_back("parse");
    throw std::out_of_range("from the parser");
}

void *parse_runtime_error(const char *)
{
    g_trace.steps.push_back("parse");
    throw std::runtime_error("from the parser");
}

void *parse_and_switch_parsing_off(const char *)
{
    g_trace.steps.push_back("parse");
    ed_set_opt(ED_OPT_SIGNAL_PARSE, 0);
    return &g_fixed_record;
}

void release_traced(void *record)
{
    g_trace.steps.push_back("release");
    g_trace.released.push_back(record);
}

void release_out_of_range(void *)
{
    g_trace.steps.push_back("release");
    throw std::out_of_range("from the releaser");
}

void callback_traced(const char *event, void *data, void *user)
{
    g_trace.steps.push_back("callback");
    g_seen.add(start("traced", event, data, user));
}

void callback_throwing(const char *, void *, void *)
{
    g_trace.steps.push_back("callback");
    throw std::runtime_error("from the callback");
}

const std::string kTestTopic = kPrefix + "test_event";

class SignalDispatch : public ::testing::Test {
protected:
    void SetUp() override
    {
        reset_signals();
        g_trace = trace();
        callbacks_.emplace(kTestTopic, callback_traced);
    }
    void TearDown() override { reset_signals(); }

    void dispatch(const char *payload = "{}", void *user = nullptr)
    {
        vask_ed::dispatch_signal(callbacks_, parsers_, releasers_, user, kTestTopic.c_str(), payload);
    }

    vask_ed::callback_table callbacks_;
    vask_ed::parser_table parsers_;
    vask_ed::releaser_table releasers_;
};

void expect_not_supported_topic(vask_test::log_capture &log)
{
    std::vector<vask_test::log_line> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, 59);
    EXPECT_EQ(lines[0].level, 0);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].line, 1448);
    EXPECT_EQ(lines[0].function, "ed_signal_handler");
    EXPECT_EQ(lines[0].message, "not supported topic\n");
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldLogNotSupportedTopicWhenTheTopicHasNoParser)
{
    releasers_.emplace(kTestTopic, release_traced);
    vask_test::log_capture log;
    dispatch();
    expect_not_supported_topic(log);
    EXPECT_TRUE(g_trace.steps.empty());
    EXPECT_EQ(g_seen.size(), 0u);
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldLogNotSupportedTopicWhenTheParserRaisesOutOfRange)
{
    parsers_.emplace(kTestTopic, parse_out_of_range);
    releasers_.emplace(kTestTopic, release_traced);
    vask_test::log_capture log;
    dispatch();
    expect_not_supported_topic(log);
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse"}));
    EXPECT_EQ(g_seen.size(), 0u);
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldLetOtherParserErrorsPropagate)
{
    parsers_.emplace(kTestTopic, parse_runtime_error);
    releasers_.emplace(kTestTopic, release_traced);
    vask_test::log_capture log;
    EXPECT_THROW(dispatch(), std::runtime_error);
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse"}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldReleaseTheRecordAfterTheCallback)
{
    parsers_.emplace(kTestTopic, parse_fixed);
    releasers_.emplace(kTestTopic, release_traced);
    int marker = 0;
    dispatch("{}", &marker);
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "callback", "release"}));
    EXPECT_EQ(g_trace.released, std::vector<const void *>({&g_fixed_record}));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].data, &g_fixed_record);
    EXPECT_EQ(seen[0].event, "test_event");
    EXPECT_EQ(seen[0].user, &marker);
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldReleaseNullWithoutCallingBackWhenTheParserFails)
{
    parsers_.emplace(kTestTopic, parse_null);
    releasers_.emplace(kTestTopic, release_traced);
    dispatch();
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "release"}));
    EXPECT_EQ(g_trace.released, std::vector<const void *>({nullptr}));
    EXPECT_EQ(g_seen.size(), 0u);
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldEndSilentlyWhenTheTopicHasNoReleaser)
{
    parsers_.emplace(kTestTopic, parse_fixed);
    vask_test::log_capture log;
    EXPECT_NO_THROW(dispatch());
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "callback"}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldEndSilentlyWhenTheReleaserRaisesOutOfRange)
{
    parsers_.emplace(kTestTopic, parse_fixed);
    releasers_.emplace(kTestTopic, release_out_of_range);
    vask_test::log_capture log;
    EXPECT_NO_THROW(dispatch());
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "callback", "release"}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldNeitherParseNorReleaseWhenSignalParseIsZero)
{
    parsers_.emplace(kTestTopic, parse_fixed);
    releasers_.emplace(kTestTopic, release_traced);
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    const char *payload = "raw";
    dispatch(payload);
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"callback"}));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].data, static_cast<const void *>(payload));
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldReadSignalParseAgainAfterParsing)
{
    parsers_.emplace(kTestTopic, parse_and_switch_parsing_off);
    releasers_.emplace(kTestTopic, release_traced);
    const char *payload = "{}";
    dispatch(payload);
    // Parsed while the option was set, handed over raw because it was cleared before the hand-over.
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "callback"}));
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].data, static_cast<const void *>(payload));
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldReleaseTheRecordWhenTheCallbackThrows)
{
    callbacks_.at(kTestTopic).store(callback_throwing);
    parsers_.emplace(kTestTopic, parse_fixed);
    releasers_.emplace(kTestTopic, release_traced);
    EXPECT_THROW(dispatch(), std::runtime_error);
    EXPECT_EQ(g_trace.steps, std::vector<std::string>({"parse", "callback", "release"}));
    EXPECT_EQ(g_trace.released, std::vector<const void *>({&g_fixed_record}));
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldPassNullAsEventNameWhenThePrefixIsAbsent)
{
    const std::string topic = "no-prefix-topic";
    callbacks_.emplace(topic, callback_traced);
    parsers_.emplace(topic, parse_fixed);
    releasers_.emplace(topic, release_traced);
    vask_ed::dispatch_signal(callbacks_, parsers_, releasers_, nullptr, topic.c_str(), "{}");
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].event_null);
}

TEST_F(SignalDispatch, EdSignalHandler_ShouldTakeTheTextAfterTheFirstOccurrenceOfThePrefix)
{
    const std::string topic = "x/" + kPrefix + "a/" + kPrefix + "b";
    callbacks_.emplace(topic, callback_traced);
    parsers_.emplace(topic, parse_fixed);
    vask_ed::dispatch_signal(callbacks_, parsers_, releasers_, nullptr, topic.c_str(), "{}");
    std::vector<delivery> seen = g_seen.all();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].event, "a/" + kPrefix + "b");
}

} // namespace
