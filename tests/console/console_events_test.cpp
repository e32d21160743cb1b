// SPDX-License-Identifier: MIT
// /api/events: the service's signals in order, and its presence.
#include "console_fixture.h"
#include "event_reader.h"

TEST_F(ConsoleTest, Events_ShouldDeliverABurstOf1000SignalsInOrder)
{
    vask_test::event_reader reader(console_.port());
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"event\":\"presence\"") == 1; }));
    room_->edctl_ok({"sim", "emit", "mic_on_event", R"("{\"Group\":\"1\",\"Id\":\"%d\",\"On\":1}")", "1000"});
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"mic_on_event\"") == 1000; },
                                      std::chrono::seconds(60)))
        << reader.count("\"mic_on_event\"") << " of 1000 arrived";
    std::vector<std::string> records = reader.records();
    ASSERT_EQ(records.size(), 1001u);
    EXPECT_EQ(records[0], R"({"seq":0,"event":"presence","data":{"state":"online"}})");
    long first = std::stol(records[1].substr(7));
    for (size_t i = 1; i < records.size(); ++i) {
        EXPECT_EQ(records[i], "{\"seq\":" + std::to_string(first + static_cast<long>(i) - 1) +
                                  ",\"event\":\"mic_on_event\",\"data\":{\"group\":\"1\",\"id\":\"" +
                                  std::to_string(i - 1) + "\",\"on\":true}}");
    }
    EXPECT_NE(call("GET", "/api/status").body.find("\"dropped\":0"), std::string::npos);
}

TEST_F(ConsoleTest, Events_ShouldCarryEachSignalKind)
{
    vask_test::event_reader reader(console_.port());
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"event\":\"presence\"") == 1; }));
    room_->edctl_ok({"sim", "cam-status", R"({"Status":2,"Group":"1","Id":"3","On":1})"});
    room_->edctl_ok({"sim", "info-change", R"({"Type":4,"Data":5})"});
    room_->edctl_ok({"sim", "press", "9", "9"});
    ASSERT_EQ(call("POST", "/api/voting", R"({"action":"enter"})").status, 200);
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("voting_results_event") == 1; }));
    std::string all;
    for (const std::string &record : reader.records())
        all += record.substr(record.find(",\"event\"")) + "\n";
    EXPECT_EQ(all, ",\"event\":\"presence\",\"data\":{\"state\":\"online\"}}\n"
                   ",\"event\":\"cam_status_event\",\"data\":{\"group\":\"1\",\"id\":\"3\",\"on\":true,\"status\":2}}\n"
                   ",\"event\":\"info_data_change_event\",\"data\":{\"type\":4,\"data\":5}}\n"
                   ",\"event\":\"non_list_mic_event\",\"data\":{\"group\":\"9\",\"id\":\"9\",\"on\":true}}\n"
                   ",\"event\":\"voting_results_event\",\"data\":{\"status\":1,\"agree\":0,\"disagree\":0,"
                   "\"abandon\":0,\"total\":0,\"time\":0}}\n");
}

TEST_F(ConsoleTest, Events_ShouldReportTheServiceOfflineAndBackOnline)
{
    vask_test::event_reader reader(console_.port());
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"state\":\"online\"") == 1; }));
    room_->stop_sim_cleanly();
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"state\":\"offline\"") == 1; }));
    EXPECT_EQ(call("GET", "/api/status").text("service"), "offline");
    ASSERT_TRUE(room_->start_sim());
    ASSERT_TRUE(vask_test::eventually([&] { return reader.count("\"state\":\"online\"") == 2; }));
    EXPECT_EQ(call("GET", "/api/voting").status, 200);
}

TEST_F(ConsoleTest, Events_ShouldResumeAfterTheLastEventId)
{
    ASSERT_TRUE(vask_test::eventually([&] { return call("GET", "/api/status").text("service") == "online"; }));
    ASSERT_EQ(call("POST", "/api/voting", R"({"action":"enter"})").status, 200);
    ASSERT_EQ(call("POST", "/api/voting", R"({"action":"start"})").status, 200);
    ASSERT_TRUE(vask_test::eventually([&] {
        return call("GET", "/api/status").body.find("\"published\":3") != std::string::npos;
    })) << call("GET", "/api/status").body;
    // Records 1 (presence) and 2 (entered) were seen; 3 (started) was not.
    vask_test::event_reader reader(console_.port(), {{"Last-Event-ID", "2"}});
    ASSERT_TRUE(vask_test::eventually([&] { return reader.records().size() == 2; }));
    EXPECT_EQ(reader.records()[1], "{\"seq\":3,\"event\":\"voting_results_event\",\"data\":{\"status\":2,\"agree\":0,"
                                   "\"disagree\":0,\"abandon\":0,\"total\":0,\"time\":0}}");
}
