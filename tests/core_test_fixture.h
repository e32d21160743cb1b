// SPDX-License-Identifier: MIT
// A private broker and a fake "external_device" service for the library's operations.
#ifndef VASK_TEST_CORE_FIXTURE_H
#define VASK_TEST_CORE_FIXTURE_H

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

#include "broker.h"
#include "fake_service.h"
#include "libvask_external_device.h"

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        broker_ = std::make_unique<vask_test::broker>();
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        service_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(service_->ready());
    }

    void TearDown() override
    {
        ed_release();
        service_.reset();
        broker_.reset();
    }

    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::fake_service> service_;
};

#endif
