// SPDX-License-Identifier: MIT
#include <atomic>
#include <mutex>
#include <vector>

#include "sim_fixture.h"

using namespace std::chrono_literals;

namespace {

const char kOk[] = "{\"code\":0}";

struct seen {
    std::mutex mutex;
    std::vector<std::string> events;
    std::vector<sig_voting_results_data> votes;
    std::vector<sig_mic_on_data> mics;
    std::vector<std::string> raw;

    size_t count()
    {
        std::lock_guard<std::mutex> hold(mutex);
        return events.size();
    }
};

seen *g_seen = nullptr;

void record(const char *event, void *data, void *)
{
    std::lock_guard<std::mutex> hold(g_seen->mutex);
    g_seen->events.push_back(event);
    std::string name = event;
    if (name == "voting_results_event")
        g_seen->votes.push_back(*static_cast<sig_voting_results_data *>(data));
    else if (name == "mic_on_event" || name == "non_list_mic_event")
        g_seen->mics.push_back(*static_cast<sig_mic_on_data *>(data));
}

void record_raw(const char *event, void *data, void *)
{
    std::lock_guard<std::mutex> hold(g_seen->mutex);
    g_seen->events.push_back(event);
    g_seen->raw.push_back(static_cast<const char *>(data));
}

class SimEndToEndTest : public SimTest {
protected:
    void SetUp() override
    {
        g_seen = &seen_;
        SimTest::SetUp();
    }
    void TearDown() override
    {
        for (const char *event : {"mic_on_event", "voting_results_event", "info_data_change_event",
                                  "cam_status_event", "non_list_mic_event"})
            ed_unregister_signal(event);
        ed_set_opt(ED_OPT_SIGNAL_PARSE, 1);
        SimTest::TearDown();
        g_seen = nullptr;
    }
    seen seen_;
};

} // namespace

TEST_F(SimEndToEndTest, WholeVote_ShouldReadTheTalliesAndDeliverEveryChange)
{
    ASSERT_EQ(ed_register_signal("voting_results_event", record), 0);
    ed_voting_info info{0, 0, 0, 0, 0, 0};
    ASSERT_EQ(ed_set_voting(info), 0); // enter
    info.status = 2;
    ASSERT_EQ(ed_set_voting(info), 0); // start
    EXPECT_EQ(control("cast_vote", "{\"choice\":\"agree\"}"), kOk);
    EXPECT_EQ(control("cast_vote", "{\"choice\":\"agree\"}"), kOk);
    EXPECT_EQ(control("cast_vote", "{\"choice\":\"disagree\"}"), kOk);
    info.status = 1;
    ASSERT_EQ(ed_set_voting(info), 0); // stop, with the results
    EXPECT_EQ(info.status, vask_sim::kVoteStopped);
    EXPECT_EQ(info.agree, 2);
    EXPECT_EQ(info.disagree, 1);
    EXPECT_EQ(info.abandon, 0);
    EXPECT_EQ(info.total, 3);
    ed_voting_info queried{};
    ASSERT_EQ(ed_get_voting(queried), 0);
    EXPECT_EQ(queried.total, 3);
    EXPECT_EQ(queried.status, vask_sim::kVoteStopped);
    info.status = 3;
    ASSERT_EQ(ed_set_voting(info), 0); // exit
    ASSERT_EQ(ed_get_voting(queried), 0);
    EXPECT_EQ(queried.status, vask_sim::kVoteIdle);

    // enter, start, three votes, stop, exit: seven changes, each delivered as a parsed record.
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 7; }));
    std::lock_guard<std::mutex> hold(seen_.mutex);
    const int statuses[] = {1, 2, 2, 2, 2, 3, 0};
    const int totals[] = {0, 0, 1, 2, 3, 3, 0};
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(seen_.votes[i].status, statuses[i]) << i;
        EXPECT_EQ(seen_.votes[i].total, totals[i]) << i;
    }
    EXPECT_EQ(seen_.votes[4].agree, 2);
    EXPECT_EQ(seen_.votes[4].disagree, 1);
}

TEST_F(SimEndToEndTest, VoteStepOutOfOrder_ShouldFail)
{
    ed_voting_info info{2, 0, 0, 0, 0, 0};
    EXPECT_EQ(ed_set_voting(info), -1); // start before enter
    EXPECT_NE(control("cast_vote", "{\"choice\":\"agree\"}"), kOk);
}

TEST_F(SimEndToEndTest, MicrophonePress_ShouldArriveAsAParsedRecord)
{
    ASSERT_EQ(ed_register_signal("mic_on_event", record), 0);
    ASSERT_EQ(ed_register_signal("non_list_mic_event", record), 0);
    EXPECT_EQ(control("press_mic", "{\"group\":\"1\",\"id\":\"7\"}"), kOk);
    EXPECT_EQ(control("press_mic", "{\"group\":\"9\",\"id\":\"99\"}"), kOk);
    EXPECT_EQ(control("release_mic", "{\"group\":\"1\",\"id\":\"7\"}"), kOk);
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 3; }));
    std::lock_guard<std::mutex> hold(seen_.mutex);
    EXPECT_EQ(seen_.events, (std::vector<std::string>{"mic_on_event", "non_list_mic_event", "mic_on_event"}));
    EXPECT_EQ(seen_.mics[0].group, "1");
    EXPECT_EQ(seen_.mics[0].id, "7");
    EXPECT_TRUE(seen_.mics[0].on);
    EXPECT_EQ(seen_.mics[1].id, "99");
    EXPECT_FALSE(seen_.mics[2].on);
}

TEST_F(SimEndToEndTest, MicOnList_ShouldFollowPressAndRelease)
{
    EXPECT_EQ(control("press_mic", "{\"group\":\"2\",\"id\":\"3\"}"), kOk);
    EXPECT_EQ(control("press_mic", "{\"group\":\"1\",\"id\":\"1\"}"), kOk);
    std::vector<mic_node> list;
    ASSERT_EQ(ed_get_mic_on_list(&list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].group, "2");
    EXPECT_EQ(list[0].id, "3");
    EXPECT_TRUE(list[0].on);
    EXPECT_EQ(control("release_mic", "{\"group\":\"2\",\"id\":\"3\"}"), kOk);
    list.clear();
    ASSERT_EQ(ed_get_mic_on_list(&list), 0);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].id, "1");
}

TEST_F(SimEndToEndTest, SignalParseOff_ShouldHandTheRawPayload)
{
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", record_raw), 0);
    EXPECT_EQ(control("emit_cam_status", "{\"Status\":4,\"Group\":\"A\",\"Id\":\"2\",\"On\":true}"), kOk);
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 1; }));
    std::lock_guard<std::mutex> hold(seen_.mutex);
    EXPECT_EQ(seen_.raw[0], "{\"Status\":4,\"Group\":\"A\",\"Id\":\"2\",\"On\":true}");
}

TEST_F(SimEndToEndTest, Unregister_ShouldStopDeliveries)
{
    ASSERT_EQ(ed_register_signal("info_data_change_event", record), 0);
    ASSERT_EQ(ed_register_signal("cam_status_event", record), 0);
    EXPECT_EQ(control("emit_info_change", "{\"Type\":1,\"Data\":2}"), kOk);
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 1; }));
    ASSERT_EQ(ed_unregister_signal("info_data_change_event"), 0);
    EXPECT_EQ(control("emit_info_change", "{\"Type\":1,\"Data\":3}"), kOk);
    // Signals of one emitter arrive in order: once the camera status is here, the dropped one is past.
    EXPECT_EQ(control("emit_cam_status", "{\"Status\":1}"), kOk);
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 2; }));
    std::lock_guard<std::mutex> hold(seen_.mutex);
    EXPECT_EQ(seen_.events, (std::vector<std::string>{"info_data_change_event", "cam_status_event"}));
}

TEST_F(SimEndToEndTest, BurstOf10000Signals_ShouldAllArriveInOrder)
{
    ASSERT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    ASSERT_EQ(ed_register_signal("info_data_change_event", record_raw), 0);
    EXPECT_EQ(control("emit", "{\"event\":\"info_data_change_event\",\"payload\":\"{\\\"Type\\\":%d}\",\"count\":10000}"),
              kOk);
    ASSERT_TRUE(vask_test::eventually([&] { return seen_.count() == 10000; }, 60s)) << seen_.count();
    std::lock_guard<std::mutex> hold(seen_.mutex);
    for (size_t i = 0; i < 10000; ++i)
        ASSERT_EQ(seen_.raw[i], "{\"Type\":" + std::to_string(i) + "}");
}

TEST_F(SimEndToEndTest, ServiceQueries_ShouldReflectTheSimulatorsState)
{
    int state = -1;
    ASSERT_EQ(ed_get_mic_central_connection_state(&state), 0);
    EXPECT_EQ(state, 0);
    external_protocol_info bad{true, 2, "not-an-address", "u", "p", "", ""};
    EXPECT_EQ(ed_mic_central_connection_test(bad), -1);
    external_protocol_info good{true, 2, "192.0.2.10", "u", "p", "", ""};
    EXPECT_EQ(ed_mic_central_connection_test(good), 0);
    ASSERT_EQ(ed_get_mic_central_connection_state(&state), 0);
    EXPECT_EQ(state, 1);

    EXPECT_EQ(control("set_state", "{\"rs232_list\":[{\"Number\":4,\"Port\":\"ttyUSB3\",\"Description\":\"x\"}]}"), kOk);
    std::vector<external_rs232_info> devices;
    ASSERT_EQ(ed_get_external_rs232_device_list(&devices), 0);
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].number, 4);
    EXPECT_EQ(devices[0].port, "ttyUSB3");

    imshare_info share{false};
    ASSERT_EQ(ed_set_imshare_info(imshare_info{true}), 0);
    ASSERT_EQ(ed_get_imshare_info(&share), 0);
    EXPECT_TRUE(share.hid);
}

TEST_F(SimEndToEndTest, CannedReplies_ShouldReplaceOrSilenceAnAnswer)
{
    EXPECT_EQ(control("set_reply", "{\"method\":\"get_imshare_info\",\"reply\":\"{\\\"code\\\":-1002}\"}"), kOk);
    imshare_info share{false};
    EXPECT_EQ(ed_get_imshare_info(&share), -2);
    // A reply longer than the caller's buffer is sent as it is.
    std::string big = "{\"code\":0,\"pad\":\"" + std::string(3000, 'x') + "\"}";
    std::string escaped;
    for (char c : big)
        escaped += c == '"' ? std::string("\\\"") : std::string(1, c);
    EXPECT_EQ(control("set_reply", "{\"method\":\"get_imshare_info\",\"reply\":\"" + escaped + "\"}"), kOk);
    EXPECT_EQ(ed_get_imshare_info(&share), -1);
    EXPECT_EQ(control("clear_reply", "{\"method\":\"get_imshare_info\"}"), kOk);
    EXPECT_EQ(ed_get_imshare_info(&share), 0);
    EXPECT_EQ(control("nonsense"), "{\"code\":-1002}");
}

TEST_F(SimEndToEndTest, Calls_ShouldListEveryMethodAndBodyReceived)
{
    ASSERT_EQ(ed_set_imshare_info(imshare_info{true}), 0);
    ed_voting_info info{};
    ASSERT_EQ(ed_get_voting(info), 0);
    EXPECT_EQ(control("calls"), "{\"code\":0,\"total\":2,\"next\":2,\"calls\":[{\"method\":\"set_imshare_info\","
                                "\"body\":\"{\\\"hid\\\":true}\"},{\"method\":\"query_voting\",\"body\":\"\"}]}");
    EXPECT_EQ(control("clear_calls"), kOk);
    EXPECT_EQ(control("calls"), "{\"code\":0,\"total\":0,\"next\":0,\"calls\":[]}");
}

TEST_F(SimEndToEndTest, Calls_ShouldKeepTheLastTenThousandAndCountEveryOne)
{
    ed_voting_info info{};
    for (int i = 0; i < 10002; ++i)
        ASSERT_EQ(ed_get_voting(info), 0);
    // A body is kept as far as "calls" shows it: 1,024 bytes.
    std::string body = "{\"hid\":true,\"pad\":\"" + std::string(2000, 'x') + "\"}";
    char reply[BUS_REPLY_MAX];
    int length = 0;
    ASSERT_EQ(bus_method_call_sync(control_, "external_device", "set_imshare_info", body.data(),
                                   static_cast<int>(body.size()), reply, &length, 5),
              BUS_OK);

    // Every call is counted; the first three are gone, so a page asked from 1 starts at 3.
    std::string page = control("calls", "{\"from\":1}");
    cJSON *parsed = cJSON_Parse(page.c_str());
    ASSERT_NE(parsed, nullptr) << page;
    EXPECT_EQ(cJSON_GetObjectItem(parsed, "total")->valueint, 10003);
    int next = cJSON_GetObjectItem(parsed, "next")->valueint;
    const cJSON *shown = cJSON_GetObjectItem(parsed, "calls");
    ASSERT_GT(cJSON_GetArraySize(shown), 0);
    EXPECT_EQ(next - cJSON_GetArraySize(shown), 3);
    EXPECT_STREQ(cJSON_GetObjectItem(cJSON_GetArrayItem(shown, 0), "method")->valuestring, "query_voting");
    cJSON_Delete(parsed);

    EXPECT_EQ(control("calls", "{\"from\":10002}"),
              "{\"code\":0,\"total\":10003,\"next\":10003,\"calls\":[{\"method\":\"set_imshare_info\",\"body\":\"" +
                  [&] {
                      std::string escaped;
                      for (char c : body.substr(0, 1024))
                          escaped += c == '"' ? std::string("\\\"") : std::string(1, c);
                      return escaped;
                  }() +
                  "\"}]}");
}
