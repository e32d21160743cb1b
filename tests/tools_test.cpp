// SPDX-License-Identifier: MIT
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

#include "broker.h"
#include "process.h"

using namespace std::chrono_literals;
using vask_test::run_program;
using vask_test::run_result;

namespace {

// Ended: no such process, or one that only waits to be reaped by whoever adopted it.
bool gone(pid_t pid)
{
    if (kill(pid, 0) != 0)
        return true;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string pid_text, name, state;
    stat >> pid_text >> name >> state;
    return state == "Z";
}

} // namespace

class ToolsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        broker_ = std::make_unique<vask_test::broker>();
        env_ = {"VASK_BUS_URL=" + broker_->url(), "VASK_SYSROOT=" + root_.path()};
        ASSERT_TRUE(sim_.start({VASK_SIM, "--foreground"}, env_, root_.path() + "/sim.log"));
        ASSERT_TRUE(sim_.wait_for_line("external-device-sim: ready", 10s));
    }

    void TearDown() override
    {
        if (sim_.running()) {
            int status = sim_.stop(SIGTERM);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "simulator exit status " << status;
        }
        broker_.reset();
    }

    run_result edctl(std::vector<std::string> args)
    {
        args.insert(args.begin(), VASK_EDCTL);
        return run_program(args, env_);
    }

    vask_test::temp_dir root_;
    std::unique_ptr<vask_test::broker> broker_;
    vask_test::child_process sim_;
    std::vector<std::string> env_;
};

TEST_F(ToolsTest, VotingGet_ShouldPrintTheIdleVote)
{
    auto r = edctl({"voting", "get"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "status:   0\nagree:    0\ndisagree: 0\nabandon:  0\ntotal:    0\ntime:     0\n");
}

TEST_F(ToolsTest, VotingGetJson_ShouldPrintOneDocument)
{
    auto r = edctl({"--json", "voting", "get"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "{\"status\":0,\"agree\":0,\"disagree\":0,\"abandon\":0,\"total\":0,\"time\":0}\n");
}

TEST_F(ToolsTest, VoteFromEnterToExit_ShouldMoveThroughEveryStatus)
{
    EXPECT_EQ(edctl({"voting", "enter"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "voting", "get"}).out.substr(0, 12), "{\"status\":1,");
    EXPECT_EQ(edctl({"voting", "start"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "voting", "get"}).out.substr(0, 12), "{\"status\":2,");
    auto stopped = edctl({"--json", "voting", "stop"});
    EXPECT_EQ(stopped.exit_code, 0) << stopped.err;
    EXPECT_EQ(stopped.out.substr(0, 12), "{\"status\":3,");
    EXPECT_EQ(edctl({"voting", "exit"}).exit_code, 0);
    EXPECT_EQ(edctl({"--json", "voting", "get"}).out.substr(0, 12), "{\"status\":0,");
}

TEST_F(ToolsTest, StepOutOfOrder_ShouldExitOneWithTheResult)
{
    auto r = edctl({"voting", "start"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "edctl: voting start failed: -1 (the external_device service answered with a failure)\n");
}

TEST_F(ToolsTest, SimulatorStopped_ShouldMakeEdctlReportTheServiceOffline)
{
    int status = sim_.stop(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    auto r = edctl({"voting", "get"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "edctl: voting get failed: -3 (the external_device service is not running)\n");
}

TEST_F(ToolsTest, SimulatorKilled_ShouldLeaveTheServiceOfflineByItsWill)
{
    sim_.stop(SIGKILL);
    EXPECT_TRUE(vask_test::eventually([&] { return edctl({"voting", "get"}).exit_code == 1; }));
    auto r = edctl({"voting", "get"});
    EXPECT_EQ(r.err, "edctl: voting get failed: -3 (the external_device service is not running)\n");
}

TEST_F(ToolsTest, UsageErrors_ShouldExitTwoWithAHint)
{
    auto none = edctl({});
    EXPECT_EQ(none.exit_code, 2);
    EXPECT_EQ(none.err, "edctl: no command given\ntry 'edctl --help'\n");
    auto unknown = edctl({"frobnicate"});
    EXPECT_EQ(unknown.exit_code, 2);
    EXPECT_EQ(unknown.err, "edctl: unknown command 'frobnicate'\ntry 'edctl --help'\n");
    auto action = edctl({"voting", "maybe"});
    EXPECT_EQ(action.exit_code, 2);
    EXPECT_EQ(action.err, "edctl: unknown voting action 'maybe'\ntry 'edctl --help'\n");
    auto missing = edctl({"voting"});
    EXPECT_EQ(missing.exit_code, 2);
    auto option = edctl({"--nope", "voting", "get"});
    EXPECT_EQ(option.exit_code, 2);
}

TEST_F(ToolsTest, Help_ShouldListEveryCommandAndExitZero)
{
    auto r = edctl({"--help"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("usage: edctl [OPTIONS] COMMAND [ARGS...]"), std::string::npos);
    EXPECT_NE(r.out.find("  voting "), std::string::npos);
    auto command = edctl({"voting", "--help"});
    EXPECT_EQ(command.exit_code, 0);
    EXPECT_NE(command.out.find("usage: edctl voting get|enter|start|stop|exit"), std::string::npos);
    EXPECT_NE(command.out.find("example: edctl --json voting get"), std::string::npos);
    auto version = edctl({"--version"});
    EXPECT_EQ(version.exit_code, 0);
    EXPECT_EQ(version.out.rfind("edctl ", 0), 0u);
}

TEST_F(ToolsTest, BusOption_ShouldPointEdctlAtTheBroker)
{
    auto r = run_program({VASK_EDCTL, "--bus", broker_->url(), "voting", "get"}, {"VASK_BUS_URL=mqtt://127.0.0.1:1"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST_F(ToolsTest, SimulatorHelp_ShouldExitZero)
{
    auto r = run_program({VASK_SIM, "--help"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("usage: external-device-sim [OPTIONS]"), std::string::npos);
    EXPECT_EQ(run_program({VASK_SIM, "--bogus"}).exit_code, 2);
}

TEST_F(ToolsTest, SimulatorWithoutForeground_ShouldDetachOnceReady)
{
    // The fixture's simulator goes first, so that the detached one is the only provider.
    sim_.stop(SIGTERM);
    auto started = run_program({VASK_SIM}, env_);
    ASSERT_EQ(started.exit_code, 0);
    ASSERT_EQ(started.out.rfind("external-device-sim: ready\nexternal-device-sim: pid ", 0), 0u) << started.out;
    pid_t pid = std::stoi(started.out.substr(started.out.rfind(' ') + 1));
    ASSERT_GT(pid, 1);
    EXPECT_EQ(edctl({"voting", "get"}).exit_code, 0);
    ASSERT_EQ(kill(pid, SIGTERM), 0);
    EXPECT_TRUE(vask_test::eventually([&] { return gone(pid); }));
    auto r = edctl({"voting", "get"});
    EXPECT_EQ(r.err, "edctl: voting get failed: -3 (the external_device service is not running)\n");
}

TEST_F(ToolsTest, SimulatorWithoutABroker_ShouldFailToStart)
{
    auto r = run_program({VASK_SIM, "--bus", "mqtt://127.0.0.1:1"}, env_);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("external-device-sim: cannot connect to the broker"), std::string::npos) << r.err;
}
