// SPDX-License-Identifier: MIT
#include "core/internal.h"
#include "core/method_call.h"
#include "core_test_fixture.h"
#include "log_capture.h"

using vask_test::log_capture;

TEST_F(LibraryTest, Init_ShouldConnectSoThatCallsReachTheService)
{
    ASSERT_EQ(ed_init(), 0);
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), 0);
    ASSERT_EQ(service_->calls().size(), 1u);
    EXPECT_EQ(service_->calls()[0].method, "ping");
}

TEST_F(LibraryTest, InitTwice_ShouldLogOnceAndCreateOneClient)
{
    log_capture capture;
    ASSERT_EQ(ed_init(), 0);
    bus_client *first = vask_ed::current_client();
    EXPECT_EQ(ed_init(), 0);
    EXPECT_EQ(vask_ed::current_client(), first);
    auto lines = capture.with_message("External device library already initialized");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, 59);
    EXPECT_EQ(lines[0].level, 0);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].line, 109);
    EXPECT_EQ(lines[0].function, "ed_init");
    // One bus connection was made, by one client.
    int connects = 0;
    for (const auto &line : capture.lines())
        if (line.function == "on_connect" && line.message.rfind("libvaskexternal_device-", 0) == 0)
            ++connects;
    EXPECT_EQ(connects, 1);
}

TEST_F(LibraryTest, ReleaseBeforeInit_ShouldLogAndReturnZero)
{
    log_capture capture;
    EXPECT_EQ(ed_release(), 0);
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "External device library not initialized");
    EXPECT_EQ(lines[0].module, 59);
    EXPECT_EQ(lines[0].level, 0);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].line, 128);
    EXPECT_EQ(lines[0].function, "ed_release");
}

TEST_F(LibraryTest, ReleaseTwice_ShouldLogTheSecondTime)
{
    ASSERT_EQ(ed_init(), 0);
    log_capture capture;
    EXPECT_EQ(ed_release(), 0);
    EXPECT_TRUE(capture.with_message("External device library not initialized").empty());
    EXPECT_EQ(ed_release(), 0);
    EXPECT_EQ(capture.with_message("External device library not initialized").size(), 1u);
}

TEST_F(LibraryTest, InitReleaseInit_ShouldCreateASecondClientThatWorks)
{
    ASSERT_EQ(ed_init(), 0);
    ASSERT_EQ(vask_ed::ed_method_call("first", nullptr, nullptr), 0);
    ASSERT_EQ(ed_release(), 0);
    log_capture capture;
    ASSERT_EQ(ed_init(), 0);
    EXPECT_NE(vask_ed::current_client(), nullptr);
    EXPECT_EQ(vask_ed::ed_method_call("second", nullptr, nullptr), 0);
    ASSERT_EQ(service_->calls().size(), 2u);
    EXPECT_EQ(service_->calls()[1].method, "second");
    int connects = 0;
    for (const auto &line : capture.lines())
        if (line.function == "on_connect" && line.message.rfind("libvaskexternal_device-", 0) == 0)
            ++connects;
    EXPECT_EQ(connects, 1);
}

TEST_F(LibraryTest, CallAfterRelease_ShouldFailWithoutTouchingTheFreedClient)
{
    ASSERT_EQ(ed_init(), 0);
    ASSERT_EQ(ed_release(), 0);
    EXPECT_EQ(vask_ed::current_client(), nullptr);
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), -1);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(LibraryTest, CallBeforeInit_ShouldFail)
{
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), -1);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(LibraryTest, InitWithoutABroker_ShouldStillOpenTheLibrary)
{
    // Not connected is not a failure of ed_init: the client keeps trying in the background.
    setenv("VASK_BUS_URL", "mqtt://127.0.0.1:1", 1);
    EXPECT_EQ(ed_init(), 0);
    EXPECT_EQ(vask_ed::ed_method_call("ping", nullptr, nullptr), -1);
    EXPECT_EQ(ed_release(), 0);
}

TEST(Options, SignalParse_ShouldDefaultToOne)
{
    EXPECT_EQ(vask_ed::option_value(ED_OPT_SIGNAL_PARSE), 1);
}

TEST(Options, SetOpt_ShouldStoreAnyIdAndOverwrite)
{
    EXPECT_EQ(ed_set_opt(42, 7), 0);
    EXPECT_EQ(vask_ed::option_value(42), 7);
    EXPECT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 0), 0);
    EXPECT_EQ(vask_ed::option_value(ED_OPT_SIGNAL_PARSE), 0);
    EXPECT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 5), 0);
    EXPECT_EQ(vask_ed::option_value(ED_OPT_SIGNAL_PARSE), 5);
    EXPECT_EQ(ed_set_opt(ED_OPT_SIGNAL_PARSE, 1), 0);
}

TEST(Options, ReadingAnAbsentOption_ShouldGiveZero)
{
    EXPECT_EQ(vask_ed::option_value(4711), 0);
}

TEST(Options, SetOpt_ShouldWorkBeforeInit)
{
    // No ed_init in this process: the option table exists from load time.
    EXPECT_EQ(ed_set_opt(3, 9), 0);
    EXPECT_EQ(vask_ed::option_value(3), 9);
}
