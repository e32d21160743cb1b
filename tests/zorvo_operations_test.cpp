// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "core_test_fixture.h"
#include "zorvo_test_support.h"

using namespace zorvo_test;
using vask_test::log_capture;
using vask_test::temp_dir;

// ---- Remote controller operations ----

class ZorvoOperations : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(ed_init(), 0);
        set_model(root_, "rv710");
    }
    sysroot root_;
};

TEST_F(ZorvoOperations, GetFirmware_ShouldCopyTheStoredVersions)
{
    root_.set_config("{\"zorvo_config\":{\"fw\":\"1.4.2\",\"bootloader_fw\":\"0.3\"," + rv710_macros_json() + "}}");
    external_zorvo_fw_info info{"old", "old"};
    log_capture capture;
    ASSERT_EQ(ed_get_zorvo_fw_info(&info), 0);
    EXPECT_EQ(info.fw, "1.4.2");
    EXPECT_EQ(info.bootloader_fw, "0.3");
    expect_lines(capture.lines(),
                 {{2, kLib, kAnyLine, "ed_get_zorvo_fw_info", "ed_get_zorvo_fw_info"}, utils_line(2, kRead, kRead)});
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ZorvoOperations, GetFirmwareWithoutSection_ShouldFailAndLeaveTheRecord)
{
    root_.set_config(R"({"external_control":{}})");
    external_zorvo_fw_info info{"old", "older"};
    EXPECT_EQ(ed_get_zorvo_fw_info(&info), -1);
    EXPECT_EQ(info.fw, "old");
    EXPECT_EQ(info.bootloader_fw, "older");
    EXPECT_EQ(ed_get_zorvo_fw_info(nullptr), -1);
}

TEST_F(ZorvoOperations, GetFirmwareWithoutFile_ShouldGiveEmptyVersions)
{
    root_.remove_config();
    external_zorvo_fw_info info{"old", "older"};
    EXPECT_EQ(ed_get_zorvo_fw_info(&info), 0);
    EXPECT_EQ(info.fw, "");
    EXPECT_EQ(info.bootloader_fw, "");
}

TEST_F(ZorvoOperations, GetMacros_ShouldReplaceTheVectorWithTheModelsMacros)
{
    root_.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_1":{"scenes":2,"channel_1_enable":true,
        "channel_1_preset":"2","channel_3_enable":true},"Macro_4":{"scenes":3},"Macro_10":{"scenes":3}}})");
    macros read{macro(8, 8, {{true, "8"}})};
    log_capture capture;
    ASSERT_EQ(ed_get_zorvo_macro_info(&read), 0);
    EXPECT_EQ(read, (macros{macro(1, 2, {{true, "2"}, {false, "1"}}), default_macro(2, 2), default_macro(3, 2)}));
    expect_lines(capture.lines(), {{2, kLib, kAnyLine, "ed_get_zorvo_macro_info", "ed_get_zorvo_macro_info"},
                                   utils_line(2, kRead, kRead)});
}

TEST_F(ZorvoOperations, GetMacrosFailures_ShouldLeaveTheVector)
{
    root_.set_config("not json");
    macros read{macro(8, 8, {{true, "8"}})};
    EXPECT_EQ(ed_get_zorvo_macro_info(&read), -1);
    EXPECT_EQ(read, macros{macro(8, 8, {{true, "8"}})});
    EXPECT_EQ(ed_get_zorvo_macro_info(nullptr), -1);
    root_.remove_config();
    EXPECT_EQ(ed_get_zorvo_macro_info(&read), 0);
    EXPECT_TRUE(read.empty());
}

TEST_F(ZorvoOperations, SetTheMacrosJustRead_ShouldRewriteTheSameValuesAndKeepTheVersions)
{
    std::string text = formatted("{\"external_control\":{},\"zorvo_config\":{\"fw\":\"1.4.2\",\"bootloader_fw\":"
                                 "\"0.3\"," + rv710_macros_json() + "},\"castdeck_control\":{}}");
    root_.set_config(text);
    macros read;
    ASSERT_EQ(ed_get_zorvo_macro_info(&read), 0);
    log_capture capture;
    EXPECT_EQ(ed_set_zorvo_macro_info(read), 0);
    EXPECT_EQ(root_.config(), text);
    expect_lines(capture.lines(), {{2, kLib, kAnyLine, "ed_set_zorvo_macro_info", "ed_set_zorvo_macro_info"},
                                   utils_line(2, kRead, kRead), utils_line(2, kUpdate, kUpdate)});
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ZorvoOperations, SetChangedMacros_ShouldStoreThemAndKeepTheVersions)
{
    root_.set_config(R"({"zorvo_config":{"fw":"1.4.2","bootloader_fw":"0.3"}})");
    EXPECT_EQ(ed_set_zorvo_macro_info(rv710_macros()), 0);
    EXPECT_EQ(root_.config(),
              formatted("{\"zorvo_config\":{\"fw\":\"1.4.2\",\"bootloader_fw\":\"0.3\"," + rv710_macros_json() + "}}"));
}

TEST_F(ZorvoOperations, SetTooFewMacros_ShouldFailWithoutWriting)
{
    const std::string before = R"({"zorvo_config":{"fw":"1","bootloader_fw":"2"}})";
    root_.set_config(before);
    macros list = rv710_macros();
    list.resize(2);
    EXPECT_EQ(ed_set_zorvo_macro_info(list), -1);
    EXPECT_EQ(root_.config(), before);
}

TEST_F(ZorvoOperations, SetWithUnreadableSection_ShouldFailWithoutWriting)
{
    const std::string before = R"({"zorvo_config":{"bootloader_fw":"2"}})";
    root_.set_config(before);
    EXPECT_EQ(ed_set_zorvo_macro_info(rv710_macros()), -1);
    EXPECT_EQ(root_.config(), before);
}

TEST_F(ZorvoOperations, SetWithoutFile_ShouldSucceedWithoutWriting)
{
    root_.remove_config();
    EXPECT_EQ(ed_set_zorvo_macro_info(rv710_macros()), 0);
    EXPECT_FALSE(root_.has_config());
}

TEST_F(ZorvoOperations, GotoMacro_ShouldSendTheIndexToZorvoGotoMarco)
{
    log_capture capture;
    EXPECT_EQ(ed_zorvo_goto_macro(2), 0);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "zorvo_goto_marco");
    EXPECT_EQ(calls[0].body, "{\"macro_index\":2}");
    expect_lines(capture.lines(),
                 {{2, kLib, kAnyLine, "ed_zorvo_goto_macro", "ed_zorvo_goto_macro"},
                  {2, kLib, kAnyLine, "ed_zorvo_goto_macro", "======= client send messagebus : {\"macro_index\":2} "}});
}

TEST_F(ZorvoOperations, GotoMacroOutOfRange_ShouldBePassedOnUnchecked)
{
    EXPECT_EQ(ed_zorvo_goto_macro(-7), 0);
    EXPECT_EQ(ed_zorvo_goto_macro(40), 0);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].body, "{\"macro_index\":-7}");
    EXPECT_EQ(calls[1].body, "{\"macro_index\":40}");
}

TEST_F(ZorvoOperations, GotoMacroRefused_ShouldReturnTheMappedCode)
{
    service_->reply("zorvo_goto_marco", "{\"code\":-1002}");
    EXPECT_EQ(ed_zorvo_goto_macro(9), -2);
    service_->reply("zorvo_goto_marco", "{\"code\":-1003}");
    EXPECT_EQ(ed_zorvo_goto_macro(9), -3);
}

TEST(ZorvoOperationsWithoutService, GotoMacroWithTheLibraryClosed_ShouldFail)
{
    EXPECT_EQ(ed_zorvo_goto_macro(1), -1);
}
