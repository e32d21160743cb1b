// SPDX-License-Identifier: MIT
// A private broker, a fake "external_device" service and a connected client for the bus tests.
#ifndef VASK_TEST_BUS_FIXTURE_H
#define VASK_TEST_BUS_FIXTURE_H

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "broker.h"
#include "fake_service.h"
#include "vask_bus.h"

// True unless the suite runs with the direct path switched off (VASK_BUS_DIRECT=0): ctest runs the
// bus suites both ways.
inline bool direct_path_on()
{
    const char *direct = getenv("VASK_BUS_DIRECT");
    return direct == nullptr || strcmp(direct, "0") != 0;
}

class BusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The services' direct sockets go under a system root of the test's own.
        char root[] = "/tmp/vask-bus-XXXXXX";
        ASSERT_NE(mkdtemp(root), nullptr);
        root_ = root;
        setenv("VASK_SYSROOT", root, 1);
        broker_ = std::make_unique<vask_test::broker>();
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        ASSERT_EQ(bus_init(), BUS_OK);
        service_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(service_->ready());
        client_ = bus_client_new("bus_test");
        ASSERT_NE(client_, nullptr);
        ASSERT_EQ(bus_connect(client_, 0), BUS_OK);
    }

    void TearDown() override
    {
        bus_client_free(client_);
        service_.reset();
        bus_cleanup();
        broker_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
        unsetenv("VASK_SYSROOT");
    }

    // Calls `method` of "external_device" with `body`; returns the result and stores the reply.
    int call(const char *method, const std::string &body, std::string *reply = nullptr, int timeout_s = 5)
    {
        char buffer[BUS_REPLY_MAX];
        int length = -7;
        int rc = bus_method_call_sync(client_, "external_device", method, body.empty() ? nullptr : body.data(),
                                      static_cast<int>(body.size()), buffer, &length, timeout_s);
        if (reply != nullptr)
            *reply = rc == BUS_OK ? std::string(buffer, static_cast<size_t>(length)) : std::string();
        return rc;
    }

    std::string root_;
    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::fake_service> service_;
    bus_client *client_ = nullptr;
};

#endif
