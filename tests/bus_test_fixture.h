// SPDX-License-Identifier: MIT
// A private broker, a fake "external_device" service and a connected client for the bus tests.
#ifndef VASK_TEST_BUS_FIXTURE_H
#define VASK_TEST_BUS_FIXTURE_H

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "broker.h"
#include "fake_service.h"
#include "vask_bus.h"

class BusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
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

    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::fake_service> service_;
    bus_client *client_ = nullptr;
};

#endif
