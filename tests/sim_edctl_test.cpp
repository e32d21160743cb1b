// SPDX-License-Identifier: MIT
#include <fstream>
#include <sstream>

#include "sim_fixture.h"

using namespace std::chrono_literals;
using vask_test::run_program;
using vask_test::run_result;

class EdctlTest : public SimTest {
protected:
    run_result edctl(std::vector<std::string> args)
    {
        args.insert(args.begin(), VASK_EDCTL);
        return run_program(args, env_);
    }
};

TEST_F(EdctlTest, MicOnList_ShouldPrintTheMicrophonesThatAreOn)
{
    EXPECT_EQ(edctl({"sim", "press", "1", "7"}).exit_code, 0);
    EXPECT_EQ(edctl({"sim", "press", "2", "3"}).exit_code, 0);
    auto text = edctl({"mic", "on-list"});
    EXPECT_EQ(text.exit_code, 0) << text.err;
    EXPECT_EQ(text.out, "group 1 id 7 on\ngroup 2 id 3 on\n");
    auto json = edctl({"--json", "mic", "on-list"});
    EXPECT_EQ(json.out, "[{\"group\":\"1\",\"id\":\"7\",\"on\":true},{\"group\":\"2\",\"id\":\"3\",\"on\":true}]\n");
}

TEST_F(EdctlTest, MicCentral_ShouldTestAndReportTheConnection)
{
    EXPECT_EQ(edctl({"--json", "mic", "central-state"}).out, "{\"isconnect\":0}\n");
    auto bad = edctl({"mic", "central-test", "nowhere", "admin", "secret", "2"});
    EXPECT_EQ(bad.exit_code, 1);
    EXPECT_EQ(bad.err, "edctl: mic central-test failed: -1 (the external_device service answered with a failure)\n");
    auto good = edctl({"mic", "central-test", "192.0.2.10", "admin", "secret", "2"});
    EXPECT_EQ(good.exit_code, 0) << good.err;
    EXPECT_EQ(good.out, "connection test succeeded\n");
    EXPECT_EQ(edctl({"mic", "central-state"}).out, "mic central: connected (1)\n");
    auto calls = edctl({"sim", "calls"});
    EXPECT_NE(calls.out.find("mic_connection_test {\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.10\","
                             "\"username\":\"admin\",\"password\":\"secret\"}},\"protocol\":2}\n"),
              std::string::npos)
        << calls.out;
    EXPECT_EQ(edctl({"mic", "central-test", "192.0.2.10", "admin", "secret", "tcp"}).exit_code, 2);
}

TEST_F(EdctlTest, Rs232Devices_ShouldPrintTheList)
{
    auto text = edctl({"rs232", "devices"});
    EXPECT_EQ(text.exit_code, 0) << text.err;
    EXPECT_EQ(text.out, "0 ttyS0 RS232 port 1\n1 ttyUSB0 USB serial adapter\n");
    EXPECT_EQ(edctl({"sim", "state", "{\"rs232_list\":[]}"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "rs232", "devices"}).out, "[]\n");
}

TEST_F(EdctlTest, Imshare_ShouldSetAndGetTheFlag)
{
    EXPECT_EQ(edctl({"imshare", "get"}).out, "image sharing: off\n");
    EXPECT_EQ(edctl({"imshare", "set", "on"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "imshare", "get"}).out, "{\"hid\":true}\n");
    EXPECT_EQ(edctl({"imshare", "set", "maybe"}).exit_code, 2);
}

TEST_F(EdctlTest, Watch_ShouldPrintEachSignalAsItArrives)
{
    std::string err_file = root_.path() + "/watch.err";
    vask_test::child_process watch;
    ASSERT_TRUE(watch.start({VASK_EDCTL, "--json", "watch", "--count", "3"}, env_, err_file));
    // Subscribed once it says so on standard error.
    ASSERT_TRUE(vask_test::eventually([&] {
        std::ifstream in(err_file);
        std::stringstream text;
        text << in.rdbuf();
        return text.str().find("edctl: watching mic_on_event") != std::string::npos;
    }));
    EXPECT_EQ(edctl({"sim", "press", "1", "2"}).exit_code, 0);
    EXPECT_EQ(edctl({"sim", "info-change", "{\"Type\":3,\"Data\":4}"}).exit_code, 0);
    EXPECT_EQ(edctl({"sim", "cam-status", "{\"Status\":1,\"Group\":\"C\"}"}).exit_code, 0);
    ASSERT_TRUE(watch.wait_for_line(
        "{\"event\":\"cam_status_event\",\"status\":1,\"group\":\"C\",\"id\":\"\",\"on\":false}", 10s))
        << watch.output();
    EXPECT_EQ(watch.output(), "{\"event\":\"mic_on_event\",\"group\":\"1\",\"id\":\"2\",\"on\":true}\n"
                              "{\"event\":\"info_data_change_event\",\"type\":3,\"data\":4}\n"
                              "{\"event\":\"cam_status_event\",\"status\":1,\"group\":\"C\",\"id\":\"\",\"on\":false}\n");
    // It ends by itself after three signals.
    int status = watch.stop(0, 10s);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(EdctlTest, WatchInText_ShouldNameTheMembers)
{
    std::string err_file = root_.path() + "/watch.err";
    vask_test::child_process watch;
    ASSERT_TRUE(watch.start({VASK_EDCTL, "watch", "non_list_mic_event"}, env_, err_file));
    ASSERT_TRUE(vask_test::eventually([&] {
        std::ifstream in(err_file);
        std::stringstream text;
        text << in.rdbuf();
        return text.str() == "edctl: watching non_list_mic_event\n";
    }));
    EXPECT_EQ(edctl({"sim", "press", "7", "70"}).exit_code, 0);
    ASSERT_TRUE(watch.wait_for_line("non_list_mic_event group=7 id=70 on=true", 10s)) << watch.output();
    // Interrupted, it stops cleanly.
    int status = watch.stop(SIGINT, 10s);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(EdctlTest, WatchUnknownEvent_ShouldBeAUsageError)
{
    auto r = edctl({"watch", "no_such_event"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "edctl: unknown event 'no_such_event'\ntry 'edctl --help'\n");
}

TEST_F(EdctlTest, SimReply_ShouldCannAndClearAnAnswer)
{
    EXPECT_EQ(edctl({"sim", "reply", "get_imshare_info", "{\"code\":-5}"}).exit_code, 0);
    auto r = edctl({"imshare", "get"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "edctl: imshare get failed: -4 (no answer from the external_device service within 8 s)\n");
    EXPECT_EQ(edctl({"sim", "reply", "get_imshare_info", "--clear"}).exit_code, 0);
    EXPECT_EQ(edctl({"imshare", "get"}).exit_code, 0);
}

TEST_F(EdctlTest, SimVote_ShouldCountWhileAVoteRuns)
{
    EXPECT_EQ(edctl({"sim", "vote", "agree"}).exit_code, 1);
    EXPECT_EQ(edctl({"voting", "enter"}).exit_code, 0);
    EXPECT_EQ(edctl({"voting", "start"}).exit_code, 0);
    EXPECT_EQ(edctl({"sim", "vote", "agree"}).exit_code, 0);
    EXPECT_EQ(edctl({"sim", "vote", "abandon"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "voting", "stop"}).out,
              "{\"status\":3,\"agree\":1,\"disagree\":0,\"abandon\":1,\"total\":2,\"time\":0}\n");
}

TEST_F(EdctlTest, SimCommands_ShouldRefuseBadInput)
{
    EXPECT_EQ(edctl({"sim", "cam-status", "not json"}).exit_code, 2);
    EXPECT_EQ(edctl({"sim", "press", "1"}).exit_code, 2);
    EXPECT_EQ(edctl({"sim", "emit", "e", "x", "0"}).exit_code, 2);
    EXPECT_EQ(edctl({"sim", "frob"}).exit_code, 2);
    auto stopped_sim = edctl({"sim", "release", "5", "5"});
    EXPECT_EQ(stopped_sim.exit_code, 1);
    EXPECT_EQ(stopped_sim.err, "edctl: sim release failed: the simulator answered {\"code\":1}\n");
}

TEST_F(EdctlTest, CommandHelp_ShouldDescribeEveryCommandWithAnExample)
{
    for (const char *command : {"voting", "mic", "rs232", "imshare", "watch", "sim"}) {
        auto r = edctl({command, "--help"});
        EXPECT_EQ(r.exit_code, 0) << command;
        EXPECT_EQ(r.out.rfind(std::string("usage: edctl ") + command + " ", 0), 0u) << r.out;
        EXPECT_NE(r.out.find("example: edctl "), std::string::npos) << command;
    }
}

TEST_F(EdctlTest, SimWithoutASimulator_ShouldSayItIsNotRunning)
{
    sim_.stop(SIGTERM);
    auto r = edctl({"sim", "press", "1", "1"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "edctl: sim press failed: external-device-sim is not running (-1003)\n");
}
