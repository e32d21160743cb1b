// SPDX-License-Identifier: MIT
// A private broker and external-device-sim as a separate process, with the library opened on them
// and a client of the simulator's control service.
#ifndef VASK_TEST_SIM_FIXTURE_H
#define VASK_TEST_SIM_FIXTURE_H

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/wait.h>

#include "broker.h"
#include "libvask_external_device.h"
#include "process.h"
#include "sim_protocol.h"
#include "vask_bus.h"

class SimTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        broker_ = std::make_unique<vask_test::broker>();
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        setenv("VASK_SYSROOT", root_.path().c_str(), 1);
        env_ = {"VASK_BUS_URL=" + broker_->url(), "VASK_SYSROOT=" + root_.path()};
        ASSERT_TRUE(sim_.start({VASK_SIM, "--foreground"}, env_, root_.path() + "/sim.log"));
        ASSERT_TRUE(sim_.wait_for_line(vask_sim::kReadyLine, std::chrono::seconds(10)));
        ASSERT_EQ(bus_init(), BUS_OK);
        control_ = bus_client_new("sim_test_control");
        ASSERT_EQ(bus_connect(control_, 0), BUS_OK);
        ASSERT_EQ(ed_init(), 0);
    }

    void TearDown() override
    {
        ed_release();
        bus_client_free(control_);
        bus_cleanup();
        if (sim_.running()) {
            int status = sim_.stop(SIGTERM);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "simulator exit status " << status;
        }
        broker_.reset();
    }

    // Calls `method` of the simulator's control service; returns the reply text ("" on failure).
    std::string control(const char *method, const std::string &body = std::string())
    {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        int rc = bus_method_call_sync(control_, vask_sim::kControlService, method,
                                      body.empty() ? nullptr : body.data(), static_cast<int>(body.size()), reply,
                                      &length, 30);
        return rc == BUS_OK ? std::string(reply, static_cast<size_t>(length)) : std::string();
    }

    vask_test::temp_dir root_;
    std::unique_ptr<vask_test::broker> broker_;
    vask_test::child_process sim_;
    std::vector<std::string> env_;
    bus_client *control_ = nullptr;
};

#endif
