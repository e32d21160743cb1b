// SPDX-License-Identifier: MIT
// edctl without a broker: the commands that only read or write the box's files never connect, and
// every failure is said in the operation's own terms ("cannot read <path>", "not connected to <URL>").
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "process.h"

using vask_test::describe;
using vask_test::run_program;
using vask_test::run_result;

namespace {

// A loopback URL on which nothing listens: a port the kernel handed out and that was closed again.
std::string unused_url()
{
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        if (fd >= 0)
            close(fd);
        return std::string();
    }
    close(fd);
    return "mqtt://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void copy_file(const std::string &from, const std::string &to)
{
    std::ofstream(to) << read_file(from);
}

class EdctlWithoutBroker : public ::testing::Test {
protected:
    void SetUp() override
    {
        url_ = unused_url();
        ASSERT_FALSE(url_.empty());
        ASSERT_EQ(mkdir((root_.path() + "/etc").c_str(), 0755), 0);
    }

    void seed_files()
    {
        copy_file(VASK_DEFAULT_CONFIG, device_file());
        copy_file(VASK_DEFAULT_MIC_CONFIG, mic_file());
    }

    std::string device_file() const { return root_.path() + "/etc/external_device.json"; }
    std::string mic_file() const { return root_.path() + "/etc/microphone_control.json"; }

    run_result edctl(std::vector<std::string> args, std::vector<std::string> env = {})
    {
        args.insert(args.begin(), {VASK_EDCTL, "--root", root_.path()});
        env.push_back("TULO_LOG_LEVEL=2");
        return run_program(args, env);
    }

    // Runs the reading `command` (two words) and expects it to fail on `path` without any bus.
    void expect_cannot_read(const std::vector<std::string> &command, const std::string &path)
    {
        run_result r = edctl({"--bus", url_, command[0], command[1]});
        EXPECT_EQ(r.exit_code, 1) << describe(r);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find("edctl: " + command[0] + " " + command[1] + " failed: -1 (cannot read " + path +
                             ": missing or not valid JSON)\n"),
                  std::string::npos)
            << describe(r);
        EXPECT_EQ(r.err.find("vask_bus"), std::string::npos) << describe(r);
    }

    vask_test::temp_dir root_;
    std::string url_;
};

TEST_F(EdctlWithoutBroker, ReadingCommands_ShouldReadTheFilesWithoutTryingToConnect)
{
    seed_files();
    const std::vector<std::vector<std::string>> commands = {
        {"mic-central", "get"},     {"castdeck", "get"},        {"projector", "get"},
        {"tcp-control", "get"},     {"rs232", "control", "get"}, {"mic-control", "list"},
        {"mic-control", "conflicts"}, {"config", "show"},
    };
    for (std::vector<std::string> command : commands) {
        command.insert(command.begin(), {"--bus", url_});
        run_result r = edctl(command);
        EXPECT_EQ(r.exit_code, 0) << command[2] << "\n" << describe(r);
        // At trace level the bus library would log its connection attempt (and, without a broker,
        // "cannot reach broker"): nothing of the bus may appear.
        EXPECT_EQ(r.err.find("vask_bus"), std::string::npos) << command[2] << "\n" << describe(r);
        EXPECT_EQ(r.err.find("not connected"), std::string::npos) << command[2] << "\n" << describe(r);
    }
}

TEST_F(EdctlWithoutBroker, ReadingCommandWithAMissingFile_ShouldSayWhichFileCannotBeRead)
{
    expect_cannot_read({"mic-central", "get"}, device_file());
    expect_cannot_read({"mic-control", "list"}, mic_file());
}

TEST_F(EdctlWithoutBroker, ReadingCommandWithAFileThatIsNotJson_ShouldSayWhichFileCannotBeRead)
{
    std::ofstream(device_file()) << "{ not json";
    expect_cannot_read({"projector", "get"}, device_file());
}

TEST_F(EdctlWithoutBroker, ServiceCommand_ShouldSayNotConnectedToTheBusOption)
{
    run_result r = edctl({"--bus", url_, "voting", "get"});
    EXPECT_EQ(r.exit_code, 1) << describe(r);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("edctl: voting get failed: not connected to " + url_ + "\n"), std::string::npos)
        << describe(r);
}

TEST_F(EdctlWithoutBroker, ServiceCommand_ShouldSayNotConnectedToTheEnvironmentsUrl)
{
    run_result r = edctl({"imshare", "set", "on"}, {"VASK_BUS_URL=" + url_});
    EXPECT_EQ(r.exit_code, 1) << describe(r);
    EXPECT_NE(r.err.find("edctl: imshare set failed: not connected to " + url_ + "\n"), std::string::npos)
        << describe(r);
}

TEST_F(EdctlWithoutBroker, SetterWithoutABroker_ShouldLeaveTheStoredSettingsAlone)
{
    seed_files();
    const std::string before = read_file(device_file());
    run_result r = edctl({"--bus", url_, "mic-central", "set", "enable=1", "ip_address=192.0.2.9"});
    EXPECT_EQ(r.exit_code, 1) << describe(r);
    EXPECT_NE(r.err.find("edctl: mic-central set failed: not connected to " + url_ + "\n"), std::string::npos)
        << describe(r);
    EXPECT_EQ(read_file(device_file()), before);
}

TEST_F(EdctlWithoutBroker, Watch_ShouldSayNotConnectedInsteadOfWatching)
{
    run_result r = edctl({"--bus", url_, "watch", "--count", "1"});
    EXPECT_EQ(r.exit_code, 1) << describe(r);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("edctl: not connected to " + url_ + "\n"), std::string::npos) << describe(r);
    EXPECT_EQ(r.err.find("watching"), std::string::npos) << describe(r);
}

TEST_F(EdctlWithoutBroker, SimCommand_ShouldSayNotConnected)
{
    run_result r = edctl({"--bus", url_, "sim", "press", "1", "7"});
    EXPECT_EQ(r.exit_code, 1) << describe(r);
    EXPECT_NE(r.err.find("edctl: sim press failed: not connected to " + url_ + "\n"), std::string::npos)
        << describe(r);
}

} // namespace
