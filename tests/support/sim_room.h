// SPDX-License-Identifier: MIT
// One conference room as the tests see it: external-device-sim in a system root of its own, seeded
// with the factory configuration files, on a given broker and topic namespace, and edctl run with
// the same environment. Needs VASK_SIM, VASK_EDCTL, VASK_DEFAULT_CONFIG and VASK_DEFAULT_MIC_CONFIG.
#ifndef VASK_TEST_SIM_ROOM_H
#define VASK_TEST_SIM_ROOM_H

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "process.h"
#include "sim_protocol.h"

namespace vask_test {

class sim_room {
public:
    // `url` is the broker; `ns` the room's VASK_BUS_NAMESPACE ("" for none); `extra_env` more
    // "NAME=value" entries (credentials, CA file) for both the simulator and edctl.
    sim_room(const std::string &url, const std::string &ns, const std::vector<std::string> &extra_env = {})
    {
        std::filesystem::create_directories(root_.path() + "/etc");
        std::filesystem::copy_file(VASK_DEFAULT_CONFIG, root_.path() + "/etc/external_device.json");
        std::filesystem::copy_file(VASK_DEFAULT_MIC_CONFIG, root_.path() + "/etc/microphone_control.json");
        env_ = {"VASK_BUS_URL=" + url, "VASK_SYSROOT=" + root_.path()};
        if (!ns.empty())
            env_.push_back("VASK_BUS_NAMESPACE=" + ns);
        env_.insert(env_.end(), extra_env.begin(), extra_env.end());
        url_ = url;
    }

    // Starts the simulator, with `sim_env` added to its environment only (its own credentials), and
    // waits until it can be called.
    bool start_sim(const std::vector<std::string> &sim_env = {})
    {
        std::vector<std::string> env = env_;
        env.insert(env.end(), sim_env.begin(), sim_env.end());
        return sim_.start({VASK_SIM, "--foreground", "--bus", url_, "--root", root_.path()}, env,
                          root_.path() + "/sim.log") &&
               sim_.wait_for_line(vask_sim::kReadyLine, std::chrono::seconds(20));
    }

    // Stops the simulator with `signal`; the wait status (-1 when it was not running).
    int stop_sim(int signal) { return sim_.running() ? sim_.stop(signal) : -1; }

    // Stops a simulator still running with SIGTERM and expects its clean exit.
    void stop_sim_cleanly()
    {
        int status = stop_sim(SIGTERM);
        if (status != -1) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "simulator exit status " << status;
        }
    }

    run_result edctl(std::vector<std::string> args) const
    {
        args.insert(args.begin(), VASK_EDCTL);
        return run_program(args, env_);
    }

    // Runs edctl, expecting success; its standard output.
    std::string edctl_ok(const std::vector<std::string> &args) const
    {
        run_result r = edctl(args);
        EXPECT_EQ(r.exit_code, 0) << r.err;
        return r.out;
    }

    const std::string &root() const { return root_.path(); }
    const std::vector<std::string> &env() const { return env_; }

private:
    temp_dir root_;
    std::string url_;
    std::vector<std::string> env_;
    child_process sim_;
};

} // namespace vask_test

#endif
