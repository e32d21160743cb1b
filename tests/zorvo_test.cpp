#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "core_test_fixture.h"
#include "rs232_zorvo_test_support.h"

using namespace rs232_zorvo_test;
using vask_test::log_capture;
using vask_test::temp_dir;


bool operator==(const macro_channel &a, const macro_channel &b)
{
    return std::tie(a.channel, a.enable, a.preset) == std::tie(b.channel, b.enable, b.preset);
}

bool operator==(const external_zorvo_macro_info &a, const external_zorvo_macro_info &b)
{
    return std::tie(a.index, a.scenes, a.channels) == std::tie(b.index, b.scenes, b.channels);
}

std::ostream &operator<<(std::ostream &out, const external_zorvo_macro_info &m)
{
    out << "{Macro_" << m.index << ", scenes " << m.scenes << ",";
    for (const macro_channel &c : m.channels)
        out << " [" << c.channel << " " << (c.enable ? "on" : "off") << " \"" << c.preset << "\"]";
    return out << "}";
}

namespace {

using macros = std::vector<external_zorvo_macro_info>;
using channel_values = std::vector<std::pair<bool, std::string>>;

const char *const kLib = "libvask_external_device";

// Sets the box model by installing an os-release fixture ("rv710", ...).
void set_model(const sysroot &root, const char *name)
{
    install_fixture(root, std::string("os-release/") + name, "/etc/os-release");
}

external_zorvo_macro_info macro(int index, int scenes, const channel_values &channels)
{
    external_zorvo_macro_info m;
    m.index = index;
    m.scenes = scenes;
    int n = 0;
    for (const auto &value : channels)
        m.channels.push_back({++n, value.first, value.second});
    return m;
}

// A macro as read for a member the file lacks.
external_zorvo_macro_info default_macro(int index, int channels)
{
    return macro(index, 1, channel_values(static_cast<size_t>(channels), {false, "1"}));
}

// The compact JSON of a macro member as the writer builds it: "scenes", then each channel's flag
// and preset.
std::string macro_json(int scenes, const channel_values &channels)
{
    std::string text = "{\"scenes\":" + std::to_string(scenes);
    int n = 0;
    for (const auto &value : channels) {
        ++n;
        text += ",\"channel_" + std::to_string(n) + "_enable\":" + (value.first ? "true" : "false");
        text += ",\"channel_" + std::to_string(n) + "_preset\":\"" + value.second + "\"";
    }
    return text + "}";
}

std::string default_macro_json(int channels)
{
    return macro_json(1, channel_values(static_cast<size_t>(channels), {false, "1"}));
}

// Three RV710 macros of two channels, all different from the defaults.
macros rv710_macros()
{
    return {macro(1, 3, {{true, "A"}, {false, "B"}}), macro(2, 4, {{false, "C"}, {true, "D"}}),
            macro(3, 5, {{true, "E"}, {true, "F"}})};
}

std::string rv710_macros_json()
{
    return "\"Macro_1\":" + macro_json(3, {{true, "A"}, {false, "B"}}) + ",\"Macro_2\":" +
           macro_json(4, {{false, "C"}, {true, "D"}}) + ",\"Macro_3\":" + macro_json(5, {{true, "E"}, {true, "F"}});
}

external_zorvo_info info_of(std::string fw, std::string bootloader_fw, macros list)
{
    external_zorvo_info info;
    info.fw = std::move(fw);
    info.bootloader_fw = std::move(bootloader_fw);
    info.macros = std::move(list);
    return info;
}

line_fields utils_line(int level, const char *function, const std::string &message)
{
    return {level, "utils", kAnyLine, function, message};
}

const char *const kRead = "ReadExternalZORVOControlConfig";
const char *const kUpdate = "UpdateExternalZORVOControlConfig";
const char *const kInit = "InitExternalZORVOControlConfig";

} // namespace

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
