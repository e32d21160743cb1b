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

// ---- UpdateExternalZORVOControlConfig ----

TEST(ZorvoConfig, UpdateExistingSection_ShouldReplaceInPlaceAndAddWhatIsMissing)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"external_control":{},"zorvo_config":{"bootloader_fw":"0.9",
        "Macro_1":{"channel_2_preset":"7","scenes":2,"extra":true},"fw":"1.0","Macro_10":{"scenes":4}},
        "castdeck_control":{}})");
    external_zorvo_info info = info_of("2.0", "1.0", rv710_macros());
    log_capture capture;
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_control":{},"zorvo_config":{"bootloader_fw":"1.0",
        "Macro_1":{"channel_2_preset":"B","scenes":3,"extra":true,"channel_1_enable":true,"channel_1_preset":"A",
        "channel_2_enable":false},"fw":"2.0","Macro_10":{"scenes":4},
        "Macro_2":)" + macro_json(4, {{false, "C"}, {true, "D"}}) +
                                       ",\"Macro_3\":" + macro_json(5, {{true, "E"}, {true, "F"}}) +
                                       R"(},"castdeck_control":{}})"));
    expect_lines(capture.lines(), {utils_line(2, kUpdate, kUpdate)});
}

TEST(ZorvoConfig, UpdateMissingSection_ShouldAddItWholeAtTheEnd)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"external_control":{},"castdeck_control":{"enable":false}})");
    external_zorvo_info info = info_of("2.0", "1.0", rv710_macros());
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_control":{},"castdeck_control":{"enable":false},
        "zorvo_config":{"fw":"2.0","bootloader_fw":"1.0",)" + rv710_macros_json() + "}}"));
}

TEST(ZorvoConfig, UpdateSectionThatIsNoObject_ShouldReplaceItAtTheEnd)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":[1],"external_control":{}})");
    external_zorvo_info info = info_of("", "", rv710_macros());
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_control":{},"zorvo_config":{"fw":"","bootloader_fw":"",)" +
                                       rv710_macros_json() + "}}"));
}

TEST(ZorvoConfig, UpdateMacroIndexFive_ShouldWriteTheMemberMacro5)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":""}})");
    macros list = rv710_macros();
    list[0].index = 5;
    external_zorvo_info info = info_of("", "", list);
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_5":)" +
                                       macro_json(3, {{true, "A"}, {false, "B"}}) + ",\"Macro_2\":" +
                                       macro_json(4, {{false, "C"}, {true, "D"}}) + ",\"Macro_3\":" +
                                       macro_json(5, {{true, "E"}, {true, "F"}}) + "}}"));
}

TEST(ZorvoConfig, UpdateChannelNumbers_ShouldNotChooseTheKeys)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":""}})");
    macros list = rv710_macros();
    list[0].channels[0].channel = 9;
    list[0].channels[1].channel = 1;
    external_zorvo_info info = info_of("", "", list);
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{"fw":"","bootloader_fw":"",)" + rv710_macros_json() + "}}"));
}

TEST(ZorvoConfig, UpdateMoreMacrosAndChannelsThanTheModel_ShouldWriteTheFirstOnly)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":""}})");
    macros list = rv710_macros();
    for (auto &m : list)
        m.channels.push_back({3, true, "extra"});
    list.push_back(macro(4, 9, {{true, "9"}, {true, "9"}}));
    external_zorvo_info info = info_of("", "", list);
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{"fw":"","bootloader_fw":"",)" + rv710_macros_json() + "}}"));
}

TEST(ZorvoConfig, UpdateTooFewMacrosOrChannels_ShouldFailWithoutWriting)
{
    sysroot root;
    set_model(root, "rv710");
    const std::string before = R"({"zorvo_config":{"fw":"1","bootloader_fw":"2"}})";
    macros too_few_channels = rv710_macros();
    too_few_channels[2].channels.pop_back();
    macros too_few_macros = rv710_macros();
    too_few_macros.pop_back();
    for (const macros &list : {too_few_macros, too_few_channels, macros{}}) {
        root.set_config(before);
        external_zorvo_info info = info_of("", "", list);
        log_capture capture;
        EXPECT_EQ(UpdateExternalZORVOControlConfig(&info), -1);
        EXPECT_EQ(root.config(), before);
        expect_lines(capture.lines(), {utils_line(2, kUpdate, kUpdate),
                                       utils_line(0, kUpdate, "zorvo_config needs 3 macros of 2 channels")});
    }
}

TEST(ZorvoConfig, UpdateMissingFile_ShouldSucceedWithoutWriting)
{
    sysroot root;
    set_model(root, "rv710");
    root.remove_config();
    external_zorvo_info info = info_of("", "", {});
    log_capture capture;
    EXPECT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_FALSE(root.has_config());
    expect_lines(capture.lines(),
                 {utils_line(2, kUpdate, kUpdate), utils_line(0, kUpdate, "open config file failed")});
}

TEST(ZorvoConfig, UpdateTextThatIsNotJsonOrRootThatIsNoObject_ShouldFailWithoutWriting)
{
    sysroot root;
    set_model(root, "rv710");
    for (const char *text : {"{\"zorvo_config\":", "[]", "\"zorvo\""}) {
        root.set_config(text);
        external_zorvo_info info = info_of("", "", rv710_macros());
        EXPECT_EQ(UpdateExternalZORVOControlConfig(&info), -1) << text;
        EXPECT_EQ(root.config(), text);
    }
}

TEST(ZorvoConfig, UpdateNullRecord_ShouldFail)
{
    sysroot root;
    std::string before = root.config();
    EXPECT_EQ(UpdateExternalZORVOControlConfig(nullptr), -1);
    EXPECT_EQ(root.config(), before);
}

TEST(ZorvoConfig, Update_ShouldReadTheModelBeforeTakingTheLock)
{
    sysroot root;
    external_zorvo_info info;
    lock_noting_log log;
    EXPECT_EQ(UpdateExternalZORVOControlConfig(&info), -1);
    auto entries = log.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].message, kUpdate);
    EXPECT_FALSE(entries[0].lock_held);
    EXPECT_EQ(entries[1].function, "GetFirmwareModelName");
    EXPECT_FALSE(entries[1].lock_held);
    EXPECT_EQ(entries[2].message, "zorvo_config needs 3 macros of 4 channels");
    EXPECT_TRUE(entries[2].lock_held);
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

TEST(ZorvoConfig, ReadThenUpdate_ShouldLeaveANormalisedFileAsItWas)
{
    sysroot root;
    set_model(root, "rv730");
    std::string text = "{\"zorvo_config\":{\"fw\":\"3\",\"bootloader_fw\":\"4\"";
    for (int i = 1; i <= 9; ++i)
        text += ",\"Macro_" + std::to_string(i) + "\":" +
                macro_json(i, {{i % 2 == 0, "p" + std::to_string(i)}, {true, "1"}, {false, "2"}, {true, "3"}});
    text += "}}";
    root.set_config(formatted(text));
    external_zorvo_info info;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    ASSERT_EQ(info.macros.size(), 9u);
    EXPECT_EQ(info.macros[8], macro(9, 9, {{false, "p9"}, {true, "1"}, {false, "2"}, {true, "3"}}));
    ASSERT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(text));
}

// ---- InitExternalZORVOControlConfig ----

TEST(ZorvoConfig, InitPartialSection_ShouldWriteTheFullFormWithEmptyVersions)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"1.0","bootloader_fw":"0.5","Macro_2":{"scenes":5,
        "channel_1_enable":true,"channel_1_preset":"3","channel_3_enable":true},"other":1},"external_control":{}})");
    log_capture capture;
    EXPECT_EQ(InitExternalZORVOControlConfig(), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_2":{"scenes":5,
        "channel_1_enable":true,"channel_1_preset":"3","channel_3_enable":true,"channel_2_enable":false,
        "channel_2_preset":"1"},"other":1,"Macro_1":)" + default_macro_json(2) +
                                       ",\"Macro_3\":" + default_macro_json(2) + R"(},"external_control":{}})"));
    expect_lines(capture.lines(),
                 {utils_line(2, kInit, kInit), utils_line(2, kRead, kRead), utils_line(2, kUpdate, kUpdate)});
}

TEST(ZorvoConfig, InitShippedDefault_ShouldKeepItsModelsMacros)
{
    sysroot root;
    set_model(root, "rv730");
    ASSERT_EQ(InitExternalZORVOControlConfig(), 0);
    external_zorvo_info info = info_of("x", "y", {});
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.fw, "");
    EXPECT_EQ(info.bootloader_fw, "");
    ASSERT_EQ(info.macros.size(), 9u);
    std::string section = section_of(root.config(), "zorvo_config");
    for (int i = 1; i <= 9; ++i)
        EXPECT_NE(section.find("\"Macro_" + std::to_string(i) + "\":"), std::string::npos) << i;
}

TEST(ZorvoConfig, InitMissingFile_ShouldSucceedWithoutWriting)
{
    sysroot root;
    set_model(root, "rv710");
    root.remove_config();
    log_capture capture;
    EXPECT_EQ(InitExternalZORVOControlConfig(), 0);
    EXPECT_FALSE(root.has_config());
    expect_lines(capture.lines(),
                 {utils_line(2, kInit, kInit), utils_line(2, kRead, kRead),
                  utils_line(0, kRead, "open config file failed"), utils_line(2, kUpdate, kUpdate),
                  utils_line(0, kUpdate, "open config file failed")});
}

TEST(ZorvoConfig, InitUnreadableSection_ShouldFailWithoutWriting)
{
    sysroot root;
    for (const char *text : {"{\"zorvo_config\": {", R"({"external_control":{}})"}) {
        root.set_config(text);
        log_capture capture;
        EXPECT_EQ(InitExternalZORVOControlConfig(), -1) << text;
        EXPECT_EQ(root.config(), text);
        auto lines = capture.lines();
        ASSERT_FALSE(lines.empty());
        expect_lines({lines.back()}, {utils_line(0, kInit, "ReadExternalZORVOControlConfig fail")});
        EXPECT_TRUE(capture.with_message(kUpdate).empty());
    }
}

TEST(ZorvoConfig, WritersOfTwoSectionsInTwoThreads_ShouldBothLandEveryTime)
{
    sysroot root;
    set_model(root, "rv710");
    constexpr int kRounds = 40;
    std::thread rs232([] {
        for (int i = 0; i < kRounds; ++i) {
            external_rs232_control info;
            info.port = "ttyS" + std::to_string(i);
            EXPECT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
        }
    });
    std::thread zorvo([] {
        for (int i = 0; i < kRounds; ++i) {
            external_zorvo_info info = info_of("fw" + std::to_string(i), "", rv710_macros());
            EXPECT_EQ(UpdateExternalZORVOControlConfig(&info), 0);
        }
    });
    rs232.join();
    zorvo.join();
    external_rs232_control rs232_read;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&rs232_read), 0);
    EXPECT_EQ(rs232_read.port, "ttyS" + std::to_string(kRounds - 1));
    external_zorvo_info zorvo_read;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&zorvo_read), 0);
    EXPECT_EQ(zorvo_read.fw, "fw" + std::to_string(kRounds - 1));
    EXPECT_EQ(zorvo_read.macros, rv710_macros());
}
