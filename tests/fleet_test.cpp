// SPDX-License-Identifier: MIT
// Two rooms on one central broker, each in a topic namespace of its own: the simulators, edctl and
// one raw MQTT subscriber that watches every room at once.
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <sys/wait.h>

#include "broker.h"
#include "mqtt_watcher.h"
#include "sim_room.h"

using namespace std::chrono_literals;
using vask_test::run_result;

namespace {

// The vote's elapsed seconds depend on how fast the machine runs the steps; everything else is exact.
std::string without_time(const std::string &text)
{
    return std::regex_replace(text, std::regex("\"([Tt]ime)\":[0-9]+"), "\"$1\":T");
}

std::vector<std::string> without_time(std::vector<std::string> lines)
{
    for (std::string &line : lines)
        line = without_time(line);
    return lines;
}

const char *const kOffline = "edctl: voting get failed: -3 (the external_device service is not running)\n";

} // namespace

class FleetTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        room1_ = std::make_unique<vask_test::sim_room>(central_.url(), "site/room1");
        room2_ = std::make_unique<vask_test::sim_room>(central_.url(), "site/room2");
        ASSERT_TRUE(room1_->start_sim());
        ASSERT_TRUE(room2_->start_sim());
    }

    void TearDown() override
    {
        room1_->stop_sim_cleanly();
        room2_->stop_sim_cleanly();
    }

    vask_test::broker central_;
    std::unique_ptr<vask_test::sim_room> room1_, room2_;
};

TEST_F(FleetTest, CallsInOneRoom_ShouldNeverReachTheOther)
{
    vask_test::mqtt_watcher watcher(central_.port());
    ASSERT_TRUE(watcher.subscribe("site/+/external_device/signal/#"));

    // Each step waits for its signal, so the order seen across rooms is the order of the steps.
    room1_->edctl_ok({"voting", "enter"});
    ASSERT_TRUE(watcher.wait_for(1));
    room2_->edctl_ok({"sim", "press", "1", "7"});
    ASSERT_TRUE(watcher.wait_for(2));
    room1_->edctl_ok({"voting", "start"});
    ASSERT_TRUE(watcher.wait_for(3));
    room1_->edctl_ok({"sim", "vote", "agree"});
    ASSERT_TRUE(watcher.wait_for(4));
    EXPECT_EQ(room2_->edctl_ok({"imshare", "set", "on"}), "");
    EXPECT_EQ(without_time(room1_->edctl_ok({"--json", "voting", "stop"})),
              "{\"status\":3,\"agree\":1,\"disagree\":0,\"abandon\":0,\"total\":1,\"time\":T}\n");
    ASSERT_TRUE(watcher.wait_for(5));
    EXPECT_EQ(room2_->edctl_ok({"projector", "pjlink", "192.0.2.20", "secret"}), "");

    EXPECT_EQ(without_time(watcher.lines()),
              (std::vector<std::string>{
                  "site/room1/external_device/signal/voting_results_event "
                  "{\"Status\":1,\"Agree\":0,\"Disagree\":0,\"Abandon\":0,\"Total\":0,\"Time\":T}",
                  "site/room2/external_device/signal/mic_on_event {\"Group\":\"1\",\"Id\":\"7\",\"On\":true}",
                  "site/room1/external_device/signal/voting_results_event "
                  "{\"Status\":2,\"Agree\":0,\"Disagree\":0,\"Abandon\":0,\"Total\":0,\"Time\":T}",
                  "site/room1/external_device/signal/voting_results_event "
                  "{\"Status\":2,\"Agree\":1,\"Disagree\":0,\"Abandon\":0,\"Total\":1,\"Time\":T}",
                  "site/room1/external_device/signal/voting_results_event "
                  "{\"Status\":3,\"Agree\":1,\"Disagree\":0,\"Abandon\":0,\"Total\":1,\"Time\":T}",
              }));

    EXPECT_EQ(room1_->edctl_ok({"sim", "calls"}), "enter_voting \nstart_voting \nstop_voting \n");
    EXPECT_EQ(room2_->edctl_ok({"sim", "calls"}),
              "set_imshare_info {\"hid\":true}\nprojector_control_pjlink_settings \n");
    // The setting made in room 2 is room 2's alone.
    EXPECT_EQ(room1_->edctl_ok({"imshare", "get"}), "image sharing: off\n");
    EXPECT_EQ(room2_->edctl_ok({"imshare", "get"}), "image sharing: on\n");
}

TEST_F(FleetTest, KilledSimulator_ShouldTakeOnlyItsRoomOffline)
{
    vask_test::mqtt_watcher watcher(central_.port());
    ASSERT_TRUE(watcher.subscribe("site/+/external_device/state"));
    ASSERT_TRUE(watcher.wait_for(2));
    EXPECT_EQ(watcher.lines(), (std::vector<std::string>{"site/room1/external_device/state online",
                                                         "site/room2/external_device/state online"}));

    int status = room1_->stop_sim(SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    // The broker publishes the dead simulator's will for room 1 only.
    ASSERT_TRUE(watcher.wait_for(3));
    EXPECT_EQ(watcher.lines().back(), "site/room1/external_device/state offline");

    run_result dead = room1_->edctl({"voting", "get"});
    EXPECT_EQ(dead.exit_code, 1);
    EXPECT_EQ(dead.err, kOffline);
    run_result control = room1_->edctl({"sim", "calls"});
    EXPECT_EQ(control.exit_code, 1);
    EXPECT_EQ(control.err, "edctl: sim calls failed: external-device-sim is not running (-1003)\n");

    EXPECT_EQ(room2_->edctl_ok({"voting", "get"}),
              "status:   0\nagree:    0\ndisagree: 0\nabandon:  0\ntotal:    0\ntime:     0\n");
    EXPECT_EQ(room2_->edctl_ok({"sim", "calls"}), "query_voting \n");
    EXPECT_EQ(watcher.messages().size(), 3u);
}
