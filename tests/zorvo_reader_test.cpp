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

// ---- GetFirmwareModelName and the model table ----

TEST(GetFirmwareModelName, ReleaseFilesOfTheThreeModels_ShouldGiveTheirNames)
{
    sysroot root;
    for (const auto &model : std::vector<std::pair<const char *, const char *>>{
             {"rv710", "RV710"}, {"rv720", "RV720"}, {"rv730", "RV730"}, {"unknown", "RV700"}}) {
        set_model(root, model.first);
        EXPECT_EQ(GetFirmwareModelName(), model.second) << model.first;
    }
}

TEST(GetFirmwareModelName, VersionIdBeforeId_ShouldWinWithItsQuotes)
{
    sysroot root;
    set_model(root, "debian");
    EXPECT_EQ(GetFirmwareModelName(), "\"12\"");
}

TEST(GetFirmwareModelName, QuotedId_ShouldKeepTheQuotes)
{
    sysroot root;
    set_model(root, "quoted");
    EXPECT_EQ(GetFirmwareModelName(), "\"RV710\"");
}

TEST(GetFirmwareModelName, LongValue_ShouldBeCutAfter36Characters)
{
    sysroot root;
    write_file(root.path("/etc/os-release"), "ID=" + std::string(50, 'x') + "\n");
    EXPECT_EQ(GetFirmwareModelName(), std::string(36, 'x'));
}

TEST(GetFirmwareModelName, LineLongerThan127Characters_ShouldBeSearchedInPieces)
{
    sysroot root;
    write_file(root.path("/etc/os-release"), "PRETTY_NAME=\"" + std::string(140, 'p') + "\"\nID=RV730\n");
    EXPECT_EQ(GetFirmwareModelName(), "RV730");
    // The second piece of a long line starts at character 128 and holds the key.
    write_file(root.path("/etc/os-release"), "X=" + std::string(125, 'a') + " ID=RV720 tail\nID=RV710\n");
    EXPECT_EQ(GetFirmwareModelName(), "RV720 tail");
}

TEST(GetFirmwareModelName, NoIdLine_ShouldGiveEmpty)
{
    sysroot root;
    write_file(root.path("/etc/os-release"), "NAME=\"Vask OS\"\nVERSION=3\n");
    log_capture capture;
    EXPECT_EQ(GetFirmwareModelName(), "");
    EXPECT_TRUE(capture.lines().empty());
}

TEST(GetFirmwareModelName, MissingFile_ShouldGiveEmptyAndLogThePath)
{
    sysroot root;
    log_capture capture;
    EXPECT_EQ(GetFirmwareModelName(), "");
    expect_lines(capture.lines(), {utils_line(0, "GetFirmwareModelName",
                                              "file open " + root.path("/etc/os-release") + " error 2")});
}

TEST(ZorvoModels, EveryModel_ShouldSizeTheMacrosItsWay)
{
    struct row {
        const char *release; // os-release fixture, or null for none
        size_t channels;
        size_t macro_count;
    };
    const row table[] = {
        {"rv710", 2, 3}, {"rv720", 4, 3}, {"rv730", 4, 9}, {"unknown", 4, 3},
        {"lowercase", 4, 3}, {"quoted", 4, 3}, {"debian", 4, 3}, {nullptr, 4, 3},
    };
    for (const row &r : table) {
        sysroot root;
        if (r.release != nullptr)
            set_model(root, r.release);
        root.set_config(R"({"zorvo_config":{"fw":"1","bootloader_fw":"2"}})");
        macros read{macro(7, 7, {})};
        ASSERT_EQ(ed_get_zorvo_macro_info(&read), 0);
        std::string model = r.release != nullptr ? r.release : "none";
        ASSERT_EQ(read.size(), r.macro_count) << model;
        for (size_t i = 0; i < read.size(); ++i)
            EXPECT_EQ(read[i], default_macro(static_cast<int>(i) + 1, static_cast<int>(r.channels))) << model;
    }
}

// ---- ReadExternalZORVOControlConfig ----

TEST(ZorvoConfig, Read_ShouldGiveTheModelsMacrosWithTheirValues)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config("{\"zorvo_config\":{\"fw\":\"1.0.3\",\"bootloader_fw\":\"0.9\"," + rv710_macros_json() + "}}");
    external_zorvo_info info;
    log_capture capture;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.fw, "1.0.3");
    EXPECT_EQ(info.bootloader_fw, "0.9");
    EXPECT_EQ(info.macros, rv710_macros());
    expect_lines(capture.lines(), {utils_line(2, kRead, kRead)});
}

TEST(ZorvoConfig, ReadMissingMacro_ShouldGiveDefaultsForIt)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":"",
        "Macro_1":{"scenes":2,"channel_1_enable":true,"channel_1_preset":"4","channel_2_enable":false,
        "channel_2_preset":"5"},
        "Macro_3":{"scenes":6}}})");
    external_zorvo_info info;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.macros, (macros{macro(1, 2, {{true, "4"}, {false, "5"}}), default_macro(2, 2),
                                   macro(3, 6, {{false, "1"}, {false, "1"}})}));
}

TEST(ZorvoConfig, ReadEnableValues_ShouldFollowTheirIntegerValue)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":"",
        "Macro_1":{"scenes":1,"channel_1_enable":0,"channel_2_enable":true},
        "Macro_2":{"scenes":1,"channel_1_enable":false,"channel_2_enable":1},
        "Macro_3":{"scenes":1,"channel_1_enable":"yes","channel_2_enable":null}}})");
    external_zorvo_info info;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    ASSERT_EQ(info.macros.size(), 3u);
    EXPECT_FALSE(info.macros[0].channels[0].enable);
    EXPECT_TRUE(info.macros[0].channels[1].enable);
    EXPECT_FALSE(info.macros[1].channels[0].enable);
    EXPECT_TRUE(info.macros[1].channels[1].enable);
    EXPECT_FALSE(info.macros[2].channels[0].enable);
    EXPECT_FALSE(info.macros[2].channels[1].enable);
}

TEST(ZorvoConfig, ReadPresets_ShouldDefaultToOneAndReadOtherTypesAsEmpty)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":"",
        "Macro_1":{"scenes":1,"channel_1_preset":"9"},
        "Macro_2":{"scenes":1,"channel_1_preset":3,"channel_2_preset":"x"}}})");
    external_zorvo_info info;
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    ASSERT_EQ(info.macros.size(), 3u);
    EXPECT_EQ(info.macros[0], macro(1, 1, {{false, "9"}, {false, "1"}}));
    EXPECT_EQ(info.macros[1], macro(2, 1, {{false, ""}, {false, "x"}}));
}

TEST(ZorvoConfig, ReadMembersBeyondTheModel_ShouldBeIgnored)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config(R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_10":{"scenes":8},
        "Macro_4":{"scenes":8},"Macro_1":{"scenes":2,"channel_3_enable":true,"channel_3_preset":"3"}}})");
    external_zorvo_info info;
    info.macros = macros(12, macro(9, 9, {{true, "9"}}));
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.macros,
              (macros{macro(1, 2, {{false, "1"}, {false, "1"}}), default_macro(2, 2), default_macro(3, 2)}));
}

TEST(ZorvoConfig, ReadVersionsThatAreNoStrings_ShouldReadEmpty)
{
    sysroot root;
    root.set_config(R"({"zorvo_config":{"fw":1,"bootloader_fw":null}})");
    external_zorvo_info info = info_of("old", "old", {});
    ASSERT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.fw, "");
    EXPECT_EQ(info.bootloader_fw, "");
    EXPECT_EQ(info.macros.size(), 3u);
}

TEST(ZorvoConfig, ReadWithoutRequiredMembers_ShouldFailAndLeaveTheRecord)
{
    sysroot root;
    set_model(root, "rv710");
    for (const char *text : {R"({"zorvo_config":{"bootloader_fw":""}})", R"({"zorvo_config":{"fw":""}})",
                             R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_2":{"channel_1_enable":true}}})",
                             R"({"zorvo_config":{"fw":"","bootloader_fw":"","Macro_1":7}})",
                             R"({"external_control":{}})", R"({"zorvo_config":"RV710"})"}) {
        root.set_config(text);
        external_zorvo_info info = info_of("kept", "kept", rv710_macros());
        log_capture capture;
        EXPECT_EQ(ReadExternalZORVOControlConfig(&info), -1) << text;
        EXPECT_EQ(info.fw, "kept");
        EXPECT_EQ(info.macros, rv710_macros());
        expect_lines(capture.lines(), {utils_line(2, kRead, kRead), utils_line(0, kRead, "error:(null)")});
    }
}

TEST(ZorvoConfig, ReadTextThatIsNotJson_ShouldFail)
{
    sysroot root;
    set_model(root, "rv710");
    root.set_config("{\"zorvo_config\":{\"fw\" \"1\"}}");
    external_zorvo_info info = info_of("kept", "", {});
    log_capture capture;
    EXPECT_EQ(ReadExternalZORVOControlConfig(&info), -1);
    EXPECT_EQ(info.fw, "kept");
    expect_lines(capture.lines(), {utils_line(2, kRead, kRead), utils_line(0, kRead, "error:\"1\"}}")});
}

TEST(ZorvoConfig, ReadMissingFile_ShouldSucceedAndLeaveTheRecord)
{
    sysroot root;
    set_model(root, "rv710");
    root.remove_config();
    external_zorvo_info info = info_of("kept", "kept", rv710_macros());
    log_capture capture;
    EXPECT_EQ(ReadExternalZORVOControlConfig(&info), 0);
    EXPECT_EQ(info.fw, "kept");
    EXPECT_EQ(info.macros, rv710_macros());
    expect_lines(capture.lines(), {utils_line(2, kRead, kRead), utils_line(0, kRead, "open config file failed")});
}

TEST(ZorvoConfig, ReadNullRecord_ShouldFail)
{
    sysroot root;
    set_model(root, "rv710");
    log_capture capture;
    EXPECT_EQ(ReadExternalZORVOControlConfig(nullptr), -1);
    expect_lines(capture.lines(), {utils_line(2, kRead, kRead), utils_line(0, kRead, "info = NULL")});
}

TEST(ZorvoConfig, Read_ShouldReadTheModelBeforeTakingTheLock)
{
    sysroot root; // no os-release: its failure is logged while the model is read
    root.set_config(R"({"zorvo_config":{"fw":""}})");
    external_zorvo_info info;
    lock_noting_log log;
    EXPECT_EQ(ReadExternalZORVOControlConfig(&info), -1);
    auto entries = log.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].message, kRead);
    EXPECT_FALSE(entries[0].lock_held);
    EXPECT_EQ(entries[1].function, "GetFirmwareModelName");
    EXPECT_FALSE(entries[1].lock_held);
    EXPECT_EQ(entries[2].message, "error:(null)");
    EXPECT_TRUE(entries[2].lock_held);
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}
