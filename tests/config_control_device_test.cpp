// SPDX-License-Identifier: MIT
// The protocol table and the control-device, projector and external-control sections: what each
// reader finds and exactly what each writer leaves in the file.
#include <climits>
#include <map>
#include <string>
#include <vector>

#include "config_test_support.h"
#include "libvask_external_device.h"

using vask_test::kAnyLine;
using vask_test::expect_lines;
using vask_test::formatted;
using vask_test::log_capture;
using vask_test::sysroot;

namespace {

// A record whose every field is set, to see which fields a call touches.
external_protocol_info filled()
{
    return {true, 77, "ip?", "user?", "password?", "baud?", "port?"};
}

cJSON *parsed(const char *text)
{
    cJSON *tree = cJSON_Parse(text);
    EXPECT_NE(tree, nullptr) << text;
    return tree;
}

} // namespace

// ---- Protocol table ------------------------------------------------------------------------

TEST(GetProtocolString, EveryNumber_ShouldGiveTheTableName)
{
    const std::vector<std::string> names = {
        "",  // -1
        "none",           "tcp",           "shure-tcp",           "show-tcp",       "creator-tcp",
        "sennheiser-tcp", "bosch-tcp",     "bxb-tcp",             "hayaco-tcp",     "televic-tcp",
        "atuc-tcp",       "atnd-tcp",      "atnd_8_district-tcp", "bosch_ccu2-tcp", "televic_dcerno-tcp",
        "shure_mxa-tcp",  "shure_mxw-tcp", "shure_mxcw-tcp",      "televic_tlv-tcp", "bxb_fcs-tcp",
        "none",  // 20
        "rs232",          "show-rs232",
        "none",  // 23
        "",      // 24
        "usb-olvin-s1",
        "",  // 26
    };
    ASSERT_EQ(names.size(), 28u);
    for (int number = -1; number <= 26; ++number)
        EXPECT_EQ(GetProtocolString(number), names[static_cast<size_t>(number + 1)]) << number;
}

TEST(GetProtocolString, NumbersOutsideTheTable_ShouldGiveNone)
{
    for (int number : {-2, 27, 100, INT_MIN, INT_MAX})
        EXPECT_EQ(GetProtocolString(number), "none") << number;
}

// ---- TCP parameter block -------------------------------------------------------------------

TEST(ReadTcpDeviceConfig, OnlyAnAddress_ShouldLeaveTheOtherTextsEmpty)
{
    cJSON *section = parsed("{\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.3\"}}}");
    external_protocol_info info = filled();
    EXPECT_EQ(cJSON_ReadTCPDeviceConfig(section, &info), 0);
    EXPECT_EQ(info.ip_address, "192.0.2.3");
    EXPECT_EQ(info.username, "");
    EXPECT_EQ(info.password, "");
    EXPECT_EQ(info.port, "");
    EXPECT_TRUE(info.enable);
    EXPECT_EQ(info.protocol, 77);
    EXPECT_EQ(info.baud_rate, "baud?");
    cJSON_Delete(section);
}

TEST(ReadTcpDeviceConfig, FullBlock_ShouldFillTheFourTexts)
{
    cJSON *section = parsed("{\"parameters\":{\"tcp\":{\"port\":\"4001\",\"password\":\"pw\",\"username\":\"admin\","
                            "\"ip_address\":\"192.0.2.3\"}}}");
    external_protocol_info info = filled();
    EXPECT_EQ(cJSON_ReadTCPDeviceConfig(section, &info), 0);
    EXPECT_EQ(info.ip_address, "192.0.2.3");
    EXPECT_EQ(info.username, "admin");
    EXPECT_EQ(info.password, "pw");
    EXPECT_EQ(info.port, "4001");
    cJSON_Delete(section);
}

TEST(ReadTcpDeviceConfig, MissingBlock_ShouldMarkTheRecordFailedAndKeepItsTexts)
{
    for (const char *text : {"{\"parameters\":{\"rs232\":{}}}", "{\"protocol\":\"tcp\"}", "{\"parameters\":\"tcp\"}"}) {
        cJSON *section = parsed(text);
        external_protocol_info info = filled();
        log_capture capture;
        EXPECT_EQ(cJSON_ReadTCPDeviceConfig(section, &info), -1) << text;
        EXPECT_EQ(info.protocol, -1);
        EXPECT_EQ(info.ip_address, "ip?");
        EXPECT_EQ(info.username, "user?");
        EXPECT_EQ(info.password, "password?");
        EXPECT_EQ(info.port, "port?");
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "cJSON_ReadTCPDeviceConfig", "error:(null)"}});
        cJSON_Delete(section);
    }
}

TEST(ReadTcpDeviceConfig, ValueThatIsNotAString_ShouldReadAsEmpty)
{
    cJSON *section = parsed("{\"parameters\":{\"tcp\":{\"ip_address\":5,\"port\":4001,\"username\":null,"
                            "\"password\":[\"x\"]}}}");
    external_protocol_info info = filled();
    EXPECT_EQ(cJSON_ReadTCPDeviceConfig(section, &info), 0);
    EXPECT_EQ(info.ip_address, "");
    EXPECT_EQ(info.port, "");
    EXPECT_EQ(info.username, "");
    EXPECT_EQ(info.password, "");
    cJSON_Delete(section);
}

TEST(ReadTcpDeviceConfig, NullArguments_ShouldFail)
{
    external_protocol_info info = filled();
    EXPECT_EQ(cJSON_ReadTCPDeviceConfig(nullptr, &info), -1);
    EXPECT_EQ(info.protocol, -1);
    cJSON *section = parsed("{\"parameters\":{\"tcp\":{}}}");
    EXPECT_EQ(cJSON_ReadTCPDeviceConfig(section, nullptr), -1);
    cJSON_Delete(section);
}

// ---- Reading a control device --------------------------------------------------------------

class ControlDeviceRead : public ::testing::Test {
protected:
    // Stores {"<section>": <section_text>} and reads it back.
    int read(const std::string &section_text, external_protocol_info *info,
             const std::string &section = "miccentral_control")
    {
        root_.set_config("{\"other\":{},\"" + section + "\":" + section_text + "}");
        return ReadControlDeviceConfig(section, info);
    }
    sysroot root_;
};

TEST_F(ControlDeviceRead, EveryNameReadBack_ShouldGiveItsNumber)
{
    const std::map<std::string, int> numbers = {
        {"none", 0},
        {"tcp", 1},
        {"shure-tcp", 2},
        {"show-tcp", 3},
        {"sennheiser-tcp", 5},
        {"bosch-tcp", 6},
        {"hayaco-tcp", 8},
        {"televic-tcp", 9},
        {"atuc-tcp", 10},
        {"atnd-tcp", 11},
        {"atnd_8_district-tcp", 12},
        {"bosch_ccu2-tcp", 13},
        {"televic_dcerno-tcp", 14},
        {"shure_mxa-tcp", 15},
        {"shure_mxw-tcp", 16},
        {"shure_mxcw-tcp", 17},
        {"televic_tlv-tcp", 18},
        {"bxb_fcs-tcp", 19},
        {"rs232", 21},
        {"usb-olvin-s1", 25},
    };
    for (const auto &[name, number] : numbers) {
        external_protocol_info info = filled();
        EXPECT_EQ(read("{\"protocol\":\"" + name +
                           "\",\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.8\"},"
                           "\"rs232\":{\"baud_rate\":\"9600\"}}}",
                       &info),
                  0)
            << name;
        EXPECT_EQ(info.protocol, number) << name;
    }
}

TEST_F(ControlDeviceRead, NamesNotReadBack_ShouldGiveMinusOneAndSucceedSilently)
{
    for (const char *name : {"creator-tcp", "bxb-tcp", "show-rs232", "", "Shure-tcp", "pjlink", "none "}) {
        external_protocol_info info = filled();
        log_capture capture;
        EXPECT_EQ(read(std::string("{\"enable\":true,\"protocol\":\"") + name +
                           "\",\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.8\"}}}",
                       &info),
                  0)
            << name;
        EXPECT_EQ(info.protocol, -1) << name;
        EXPECT_TRUE(info.enable);
        EXPECT_EQ(info.ip_address, "0.0.0.0");
        EXPECT_TRUE(capture.lines().empty()) << name;
    }
}

TEST_F(ControlDeviceRead, TcpSection_ShouldFillTheRecord)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"enable\":true,\"protocol\":\"shure-tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.8\","
                   "\"username\":\"admin\",\"password\":\"pw\",\"port\":\"4001\"}}}",
                   &info),
              0);
    EXPECT_TRUE(info.enable);
    EXPECT_EQ(info.protocol, 2);
    EXPECT_EQ(info.ip_address, "192.0.2.8");
    EXPECT_EQ(info.username, "admin");
    EXPECT_EQ(info.password, "pw");
    EXPECT_EQ(info.port, "4001");
    EXPECT_EQ(info.baud_rate, "");
}

TEST_F(ControlDeviceRead, None_ShouldResetTheRecordButKeepItsPort)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"protocol\":\"none\",\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.8\",\"port\":\"9\"},"
                   "\"rs232\":{\"baud_rate\":\"9600\"}}}",
                   &info),
              0);
    EXPECT_FALSE(info.enable);
    EXPECT_EQ(info.protocol, 0);
    EXPECT_EQ(info.ip_address, "0.0.0.0");
    EXPECT_EQ(info.username, "");
    EXPECT_EQ(info.password, "");
    EXPECT_EQ(info.baud_rate, "");
    EXPECT_EQ(info.port, "port?");
}

TEST_F(ControlDeviceRead, MissingProtocol_ShouldGiveMinusOneAndTheResetAddress)
{
    external_protocol_info info = filled();
    EXPECT_EQ(read("{\"enable\":1}", &info), 0);
    EXPECT_EQ(info.protocol, -1);
    EXPECT_EQ(info.ip_address, "0.0.0.0");
    EXPECT_TRUE(info.enable);
}

TEST_F(ControlDeviceRead, ProtocolThatIsNotAString_ShouldReadAsAnEmptyName)
{
    external_protocol_info info = filled();
    EXPECT_EQ(read("{\"protocol\":1}", &info), 0);
    EXPECT_EQ(info.protocol, -1);
}

TEST_F(ControlDeviceRead, TcpWithoutParameters_ShouldFail)
{
    external_protocol_info info = filled();
    log_capture capture;
    EXPECT_EQ(read("{\"protocol\":\"tcp\"}", &info), -1);
    EXPECT_EQ(info.protocol, -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "error:(null)"}});
}

TEST_F(ControlDeviceRead, Rs232_ShouldReadTheBaudRate)
{
    external_protocol_info info = filled();
    EXPECT_EQ(read("{\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{\"baud_rate\":\"115200\"}}}", &info), 0);
    EXPECT_EQ(info.protocol, 21);
    EXPECT_EQ(info.baud_rate, "115200");
    EXPECT_EQ(info.ip_address, "0.0.0.0");
    EXPECT_EQ(read("{\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{}}}", &info), 0);
    EXPECT_EQ(info.protocol, 21);
    EXPECT_EQ(info.baud_rate, "");
}

TEST_F(ControlDeviceRead, Rs232WithoutItsBlock_ShouldFail)
{
    for (const char *text : {"{\"protocol\":\"rs232\"}", "{\"protocol\":\"rs232\",\"parameters\":{\"tcp\":{}}}"}) {
        external_protocol_info info = filled();
        log_capture capture;
        EXPECT_EQ(read(text, &info), -1) << text;
        EXPECT_EQ(info.protocol, -1);
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "error:(null)"}});
    }
}

TEST_F(ControlDeviceRead, UsbDevice_ShouldNeedNoParameters)
{
    external_protocol_info info = filled();
    EXPECT_EQ(read("{\"enable\":true,\"protocol\":\"usb-olvin-s1\"}", &info), 0);
    EXPECT_EQ(info.protocol, 25);
    EXPECT_TRUE(info.enable);
}

TEST_F(ControlDeviceRead, EnableForms_ShouldReadByTheirIntegerValue)
{
    for (auto [text, enabled] : {std::pair<const char *, bool>{"true", true}, {"1", true}, {"2", true},
                                 {"false", false}, {"0", false}, {"\"yes\"", false}, {"null", false}}) {
        external_protocol_info info{};
        EXPECT_EQ(read(std::string("{\"enable\":") + text + ",\"protocol\":\"none\"}", &info), 0);
        EXPECT_EQ(info.enable, enabled) << text;
    }
    external_protocol_info info = filled();
    EXPECT_EQ(read("{\"protocol\":\"none\"}", &info), 0);
    EXPECT_FALSE(info.enable);
}

TEST_F(ControlDeviceRead, SectionName_ShouldBeFoundWhateverItsCase)
{
    root_.set_config("{\"MicCentral_Control\":{\"protocol\":\"usb-olvin-s1\"}}");
    external_protocol_info info{};
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &info), 0);
    EXPECT_EQ(info.protocol, 25);
}

TEST_F(ControlDeviceRead, MissingSection_ShouldFail)
{
    root_.set_config("{\"castdeck_control\":{\"protocol\":\"none\"}}");
    external_protocol_info info = filled();
    log_capture capture;
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &info), -1);
    EXPECT_EQ(info.protocol, -1);
    EXPECT_EQ(info.ip_address, "0.0.0.0");
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "error:(null)"}});
}

TEST_F(ControlDeviceRead, MissingOrBrokenFile_ShouldFailWithItsLogLine)
{
    root_.remove_config();
    external_protocol_info info = filled();
    {
        log_capture capture;
        EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &info), -1);
        EXPECT_EQ(info.protocol, -1);
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "open config file failed"}});
    }
    root_.set_config("{\"miccentral_control\": {\"protocol\": none}}");
    info = filled();
    log_capture capture;
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &info), -1);
    EXPECT_EQ(info.protocol, -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "error:none}}"}});
}

TEST_F(ControlDeviceRead, NullRecord_ShouldFail)
{
    log_capture capture;
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", nullptr), -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadControlDeviceConfig", "info = NULL"}});
}

// ---- Writing a whole record ----------------------------------------------------------------

class ControlDeviceWrite : public ::testing::Test {
protected:
    int update(const std::string &seed, external_protocol_info info)
    {
        root_.set_config(formatted(seed));
        return UpdateControlDeviceConfig("s", &info);
    }
    int settings(const std::string &seed, bool enable, const std::string &protocol, const std::string &port,
                 const std::string &ip, const std::string &password, const std::string &baud,
                 const std::string &username)
    {
        root_.set_config(formatted(seed));
        return UpdateControlDeviceSettings("s", enable, protocol, port, ip, password, baud, username);
    }
    void expect_file(const std::string &compact) { EXPECT_EQ(root_.config(), formatted(compact)); }
    sysroot root_;
};

TEST_F(ControlDeviceWrite, RecordDisabled_ShouldLeaveAStoredEnableTrue)
{
    ASSERT_EQ(update("{\"s\":{\"enable\":true,\"protocol\":\"none\"},\"z\":1}", {false, 0, "", "", "", "", ""}), 0);
    expect_file("{\"s\":{\"enable\":true,\"protocol\":\"none\"},\"z\":1}");
}

TEST_F(ControlDeviceWrite, RecordEnabled_ShouldAppendASecondEnableThatReadersDoNotSee)
{
    ASSERT_EQ(update("{\"s\":{\"enable\":false,\"protocol\":\"none\"}}", {true, 0, "", "", "", "", ""}), 0);
    expect_file("{\"s\":{\"enable\":false,\"enable\":true,\"protocol\":\"none\"}}");
    external_protocol_info info{};
    ASSERT_EQ(ReadControlDeviceConfig("s", &info), 0);
    EXPECT_FALSE(info.enable);
}

TEST_F(ControlDeviceWrite, TcpRecordOverATcpBlock_ShouldUpdateAddressPasswordUserInThatOrder)
{
    ASSERT_EQ(update("{\"s\":{\"enable\":true,\"protocol\":\"none\",\"parameters\":{\"tcp\":{\"ip_address\":\"old\","
                     "\"username\":\"u0\",\"password\":\"p0\",\"port\":\"23\"}}}}",
                     {false, 2, "192.0.2.1", "", "pw", "9600", "4001"}),
              0);
    expect_file("{\"s\":{\"enable\":true,\"parameters\":{\"tcp\":{\"port\":\"23\",\"ip_address\":\"192.0.2.1\","
                "\"password\":\"pw\"}},\"protocol\":\"shure-tcp\"}}");
}

TEST_F(ControlDeviceWrite, TcpRecordWithoutParameters_ShouldAddTheNonEmptyTextsButNoPort)
{
    ASSERT_EQ(update("{\"s\":{\"protocol\":\"none\"}}", {false, 15, "192.0.2.1", "admin", "", "", "4001"}), 0);
    expect_file("{\"s\":{\"protocol\":\"shure_mxa-tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.1\","
                "\"username\":\"admin\"}}}}");
}

TEST_F(ControlDeviceWrite, TcpRecordWithParametersButNoTcp_ShouldAddTheBlock)
{
    ASSERT_EQ(update("{\"s\":{\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{\"baud_rate\":\"9600\"}}}}",
                     {false, 1, "h", "u", "p", "", ""}),
              0);
    expect_file("{\"s\":{\"parameters\":{\"rs232\":{\"baud_rate\":\"9600\"},\"tcp\":{\"ip_address\":\"h\","
                "\"username\":\"u\",\"password\":\"p\"}},\"protocol\":\"tcp\"}}");
}

TEST_F(ControlDeviceWrite, CreatorTcpRecord_ShouldStoreANameThatReadsBackAsUnknown)
{
    ASSERT_EQ(update("{\"s\":{}}", {false, 4, "h", "", "", "", ""}), 0);
    expect_file("{\"s\":{\"protocol\":\"creator-tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"h\"}}}}");
    external_protocol_info info{};
    EXPECT_EQ(ReadControlDeviceConfig("s", &info), 0);
    EXPECT_EQ(info.protocol, -1);
}

TEST_F(ControlDeviceWrite, Rs232Record_ShouldSetTheBaudRateCreatingItsObjects)
{
    ASSERT_EQ(update("{\"s\":{\"enable\":false,\"protocol\":\"none\"}}", {false, 21, "", "", "", "115200", ""}), 0);
    expect_file("{\"s\":{\"enable\":false,\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{"
                "\"baud_rate\":\"115200\"}}}}");
    ASSERT_EQ(update("{\"s\":{\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{\"baud_rate\":\"9600\",\"x\":1}}}}",
                     {false, 21, "", "", "", "19200", ""}),
              0);
    expect_file("{\"s\":{\"parameters\":{\"rs232\":{\"x\":1,\"baud_rate\":\"19200\"}},\"protocol\":\"rs232\"}}");
}

TEST_F(ControlDeviceWrite, UsbAndOtherRecords_ShouldDropTheParameters)
{
    const std::string seed = "{\"s\":{\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"h\"}},\"k\":1}}";
    ASSERT_EQ(update(seed, {false, 25, "", "", "", "", ""}), 0);
    expect_file("{\"s\":{\"k\":1,\"protocol\":\"usb-olvin-s1\"}}");
    for (int other : {0, 20, 22, 24, 26, -1, 99}) {
        ASSERT_EQ(update(seed, {false, other, "h", "u", "p", "9600", "1"}), 0);
        expect_file("{\"s\":{\"k\":1,\"protocol\":\"none\"}}");
    }
}

TEST_F(ControlDeviceWrite, RecordForAMissingSection_ShouldAddTheSectionAtTheEnd)
{
    ASSERT_EQ(update("{\"z\":1}", {true, 3, "192.0.2.1", "admin", "pw", "9600", "4001"}), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"show-tcp\",\"parameters\":{\"tcp\":{"
                "\"ip_address\":\"192.0.2.1\",\"username\":\"admin\",\"password\":\"pw\"}}}}");
    ASSERT_EQ(update("{\"z\":1}", {false, 21, "h", "", "", "9600", ""}), 0);
    expect_file("{\"z\":1,\"s\":{\"parameters\":{\"rs232\":{\"baud_rate\":\"9600\"}},\"protocol\":\"rs232\"}}");
    ASSERT_EQ(update("{\"z\":1}", {true, 25, "h", "", "", "", ""}), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"usb-olvin-s1\",\"parameters\":{}}}");
    ASSERT_EQ(update("{\"z\":1}", {false, 22, "h", "", "", "", ""}), 0);
    expect_file("{\"z\":1,\"s\":{\"protocol\":\"none\"}}");
    ASSERT_EQ(update("{\"z\":1}", {false, 7, "", "", "", "", ""}), 0);
    expect_file("{\"z\":1,\"s\":{\"protocol\":\"bxb-tcp\",\"parameters\":{\"tcp\":{}}}}");
}

TEST_F(ControlDeviceWrite, RecordWithoutAFile_ShouldCreateTheFileWithOnlyItsSection)
{
    root_.remove_config();
    external_protocol_info info{true, 1, "192.0.2.1", "", "", "", ""};
    log_capture capture;
    ASSERT_EQ(UpdateControlDeviceConfig("castdeck_control", &info), 0);
    expect_file("{\"castdeck_control\":{\"enable\":true,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{"
                "\"ip_address\":\"192.0.2.1\"}}}}");
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateControlDeviceConfig", "Update Control Device Config castdeck_control"},
                  {0, "utils", kAnyLine, "UpdateControlDeviceConfig", "open external_device config file failed"}});
}

TEST_F(ControlDeviceWrite, RecordOverABrokenFile_ShouldFailAndKeepIt)
{
    root_.set_config("{\"s\": [}");
    external_protocol_info info{true, 1, "h", "", "", "", ""};
    log_capture capture;
    EXPECT_EQ(UpdateControlDeviceConfig("s", &info), -1);
    EXPECT_EQ(root_.config(), "{\"s\": [}");
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateControlDeviceConfig", "Update Control Device Config s"},
                  {0, "utils", kAnyLine, "UpdateControlDeviceConfig", "error:}"}});
}

// ---- Writing loose settings ----------------------------------------------------------------

TEST_F(ControlDeviceWrite, SettingsWithAMadeUpTcpName_ShouldStoreItWithATcpBlock)
{
    log_capture capture;
    ASSERT_EQ(settings("{\"s\":{\"enable\":false,\"protocol\":\"none\"}}", true, "acme-tcp-v2", "4001", "192.0.2.9",
                       "pw", "9600", "admin"),
              0);
    expect_file("{\"s\":{\"enable\":true,\"protocol\":\"acme-tcp-v2\",\"parameters\":{\"tcp\":{"
                "\"ip_address\":\"192.0.2.9\",\"username\":\"admin\",\"password\":\"pw\",\"port\":\"4001\"}}}}");
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateControlDeviceSettings",
                                    "UpdateControlDeviceSettings s, enable 1 protocol acme-tcp-v2, username admin"}});
}

TEST_F(ControlDeviceWrite, SettingsOverATcpBlock_ShouldUpdateEachTextMovingItToTheEnd)
{
    ASSERT_EQ(settings("{\"s\":{\"enable\":true,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"a\","
                       "\"username\":\"b\",\"password\":\"c\",\"port\":\"d\"}}}}",
                       true, "shure-tcp", "", "192.0.2.1", "x", "", "y"),
              0);
    expect_file("{\"s\":{\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.1\",\"password\":\"x\",\"username\":\"y\"}},"
                "\"enable\":true,\"protocol\":\"shure-tcp\"}}");
}

TEST_F(ControlDeviceWrite, SettingsWithParametersButNoTcp_ShouldAddTheBlockInCreationOrder)
{
    ASSERT_EQ(settings("{\"s\":{\"protocol\":\"usb-olvin-s1\",\"parameters\":{}}}", false, "tcp", "23", "h", "p", "",
                       ""),
              0);
    expect_file("{\"s\":{\"parameters\":{\"tcp\":{\"ip_address\":\"h\",\"password\":\"p\",\"port\":\"23\"}},"
                "\"enable\":false,\"protocol\":\"tcp\"}}");
}

TEST_F(ControlDeviceWrite, Rs232Settings_ShouldSetTheBaudRateAndKeepOtherBlocks)
{
    ASSERT_EQ(settings("{\"s\":{\"enable\":true,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{\"ip_address\":\"h\"}}}}",
                       true, "rs232", "1", "h2", "p", "9600", "u"),
              0);
    expect_file("{\"s\":{\"parameters\":{\"tcp\":{\"ip_address\":\"h\"},\"rs232\":{\"baud_rate\":\"9600\"}},"
                "\"enable\":true,\"protocol\":\"rs232\"}}");
}

TEST_F(ControlDeviceWrite, ShowRs232Settings_ShouldStoreNoneAndDropTheParameters)
{
    ASSERT_EQ(settings("{\"s\":{\"enable\":false,\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{\"baud_rate\":"
                       "\"9600\"}}}}",
                       true, "show-rs232", "", "", "", "9600", ""),
              0);
    expect_file("{\"s\":{\"enable\":true,\"protocol\":\"none\"}}");
}

TEST_F(ControlDeviceWrite, UsbSettings_ShouldStoreTheNameAndDropTheParameters)
{
    ASSERT_EQ(settings("{\"s\":{\"enable\":true,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{}}}}", false,
                       "usb-olvin-s1", "", "", "", "", ""),
              0);
    expect_file("{\"s\":{\"enable\":false,\"protocol\":\"usb-olvin-s1\"}}");
}

TEST_F(ControlDeviceWrite, EmptyProtocol_ShouldDeleteOnlyTheProtocol)
{
    ASSERT_EQ(settings("{\"s\":{\"enable\":false,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{}}}}", true, "", "1",
                       "h", "p", "9600", "u"),
              0);
    expect_file("{\"s\":{\"parameters\":{\"tcp\":{}},\"enable\":true}}");
}

TEST_F(ControlDeviceWrite, SettingsForAMissingSection_ShouldAddItWithEnableFirst)
{
    ASSERT_EQ(settings("{\"z\":1}", false, "", "1", "h", "p", "9600", "u"), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":false,\"protocol\":\"\",\"parameters\":{}}}");
    ASSERT_EQ(settings("{\"z\":1}", true, "bosch-tcp", "4001", "192.0.2.1", "", "9600", "admin"), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"bosch-tcp\",\"parameters\":{\"tcp\":{"
                "\"ip_address\":\"192.0.2.1\",\"username\":\"admin\",\"port\":\"4001\"}}}}");
    ASSERT_EQ(settings("{\"z\":1}", true, "rs232", "1", "h", "p", "19200", "u"), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{"
                "\"baud_rate\":\"19200\"}}}}");
    ASSERT_EQ(settings("{\"z\":1}", true, "usb-olvin-s1", "1", "h", "p", "19200", "u"), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"usb-olvin-s1\",\"parameters\":{}}}");
    ASSERT_EQ(settings("{\"z\":1}", true, "show-rs232", "1", "h", "p", "19200", "u"), 0);
    expect_file("{\"z\":1,\"s\":{\"enable\":true,\"protocol\":\"none\"}}");
}

TEST_F(ControlDeviceWrite, SettingsWithoutAFile_ShouldCreateTheFileWithOnlyTheirSection)
{
    root_.remove_config();
    log_capture capture;
    ASSERT_EQ(UpdateControlDeviceSettings("miccentral_control", true, "shure-tcp", "4001", "192.0.2.1", "pw", "",
                                          "admin"),
              0);
    expect_file("{\"miccentral_control\":{\"enable\":true,\"protocol\":\"shure-tcp\",\"parameters\":{\"tcp\":{"
                "\"ip_address\":\"192.0.2.1\",\"username\":\"admin\",\"password\":\"pw\",\"port\":\"4001\"}}}}");
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateControlDeviceSettings",
                   "UpdateControlDeviceSettings miccentral_control, enable 1 protocol shure-tcp, username admin"},
                  {0, "utils", kAnyLine, "UpdateControlDeviceSettings", "open external_device config file failed"}});
    external_protocol_info info{};
    ASSERT_EQ(ReadControlDeviceConfig("miccentral_control", &info), 0);
    EXPECT_EQ(info.protocol, 2);
    EXPECT_EQ(info.port, "4001");
}

TEST_F(ControlDeviceWrite, SettingsOverABrokenFile_ShouldFailAndKeepIt)
{
    root_.set_config("{");
    EXPECT_EQ(UpdateControlDeviceSettings("s", true, "tcp", "", "", "", "", ""), -1);
    EXPECT_EQ(root_.config(), "{");
}

// ---- Projector -----------------------------------------------------------------------------

class ProjectorRead : public ::testing::Test {
protected:
    int read(const std::string &section_text, external_protocol_info *info)
    {
        root_.set_config("{\"projector_control\":" + section_text + "}");
        return ReadProjectorConfig(info);
    }
    sysroot root_;
    const std::string blocks_ = "{\"pjlink\":{\"ip_address\":\"192.0.2.24\",\"password\":\"pj\"},"
                                "\"hitachi_tcp\":{\"ip_address\":\"192.0.2.1\",\"password\":\"hi\"},"
                                "\"hitachi_rs232\":{\"baud_rate\":\"19200\"}}";
};

TEST_F(ProjectorRead, Pjlink_ShouldReadItsOwnBlock)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"protocol\":\"pjlink\",\"parameters\":" + blocks_ + "}", &info), 0);
    EXPECT_EQ(info.protocol, 24);
    EXPECT_EQ(info.ip_address, "192.0.2.24");
    EXPECT_EQ(info.password, "pj");
    EXPECT_EQ(info.baud_rate, "");
    EXPECT_EQ(info.username, "");
    EXPECT_FALSE(info.enable);
    EXPECT_EQ(info.port, "port?");
}

TEST_F(ProjectorRead, HitachiProtocols_ShouldReadTheirBlocks)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"protocol\":\"hitachi_tcp\",\"parameters\":" + blocks_ + "}", &info), 0);
    EXPECT_EQ(info.protocol, 1);
    EXPECT_EQ(info.ip_address, "192.0.2.1");
    EXPECT_EQ(info.password, "hi");
    info = filled();
    ASSERT_EQ(read("{\"protocol\":\"hitachi_rs232\",\"parameters\":" + blocks_ + "}", &info), 0);
    EXPECT_EQ(info.protocol, 21);
    EXPECT_EQ(info.baud_rate, "19200");
    EXPECT_EQ(info.ip_address, "0.0.0.0");
    EXPECT_EQ(info.password, "");
}

TEST_F(ProjectorRead, None_ShouldReadNoBlock)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"protocol\":\"none\",\"parameters\":{}}", &info), 0);
    EXPECT_EQ(info.protocol, 0);
    EXPECT_EQ(info.ip_address, "0.0.0.0");
}

TEST_F(ProjectorRead, NamesThatDifferInCaseOrAreUnknown_ShouldGiveMinusOneAndSucceed)
{
    for (const char *name : {"PJLink", "pjlink ", "tcp", "", "creator-tcp"}) {
        external_protocol_info info = filled();
        log_capture capture;
        EXPECT_EQ(read(std::string("{\"protocol\":\"") + name + "\",\"parameters\":" + blocks_ + "}", &info), 0)
            << name;
        EXPECT_EQ(info.protocol, -1) << name;
        EXPECT_TRUE(capture.lines().empty());
    }
}

TEST_F(ProjectorRead, AbsentKeysOfTheBlock_ShouldReadAsEmpty)
{
    external_protocol_info info = filled();
    ASSERT_EQ(read("{\"protocol\":\"pjlink\",\"parameters\":{\"pjlink\":{\"password\":7}}}", &info), 0);
    EXPECT_EQ(info.protocol, 24);
    EXPECT_EQ(info.ip_address, "");
    EXPECT_EQ(info.password, "");
}

TEST_F(ProjectorRead, MissingPieces_ShouldFailWithMinusOne)
{
    for (const std::string &text : {std::string("{\"protocol\":\"pjlink\",\"parameters\":{\"hitachi_tcp\":{}}}"),
                                    std::string("{\"protocol\":\"none\"}"), std::string("{\"parameters\":{}}")}) {
        external_protocol_info info = filled();
        log_capture capture;
        EXPECT_EQ(read(text, &info), -1) << text;
        EXPECT_EQ(info.protocol, -1);
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadProjectorConfig", "error:(null)"}});
    }
    root_.set_config("{\"other\":{}}");
    external_protocol_info info = filled();
    log_capture capture;
    EXPECT_EQ(ReadProjectorConfig(&info), -1);
    EXPECT_EQ(info.protocol, -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadProjectorConfig", "error:(null)"}});
}

TEST_F(ProjectorRead, MissingFile_ShouldFail)
{
    root_.remove_config();
    external_protocol_info info = filled();
    log_capture capture;
    EXPECT_EQ(ReadProjectorConfig(&info), -1);
    EXPECT_EQ(info.protocol, -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadProjectorConfig", "open config file failed"}});
}

// ---- External control ----------------------------------------------------------------------

class ExternalControl : public ::testing::Test {
protected:
    sysroot root_;
};

TEST_F(ExternalControl, Read_ShouldFillEveryField)
{
    root_.set_config("{\"external_control\":{\"tcp\":{\"authentication\":true,\"port\":\"2323\"},"
                     "\"rs232\":{\"baud_rate\":\"115200\",\"portname\":\"ttyUSB1\"}}}");
    external_control_info info{false, "x", "x", "x"};
    ASSERT_EQ(ReadExternalControlConfig(&info), 0);
    EXPECT_TRUE(info.authentication);
    EXPECT_EQ(info.port, "2323");
    EXPECT_EQ(info.baud_rate, "115200");
    EXPECT_EQ(info.portname, "ttyUSB1");
}

TEST_F(ExternalControl, ReadOfAbsentOrOddValues_ShouldGiveFalseAndEmptyTexts)
{
    root_.set_config("{\"external_control\":{\"tcp\":{\"port\":23},\"rs232\":{}}}");
    external_control_info info{true, "x", "x", "x"};
    ASSERT_EQ(ReadExternalControlConfig(&info), 0);
    EXPECT_FALSE(info.authentication);
    EXPECT_EQ(info.port, "");
    EXPECT_EQ(info.baud_rate, "");
    EXPECT_EQ(info.portname, "");
    root_.set_config("{\"external_control\":{\"tcp\":{\"authentication\":3},\"rs232\":{}}}");
    ASSERT_EQ(ReadExternalControlConfig(&info), 0);
    EXPECT_TRUE(info.authentication);
}

TEST_F(ExternalControl, ReadOfAnIncompleteSection_ShouldFailWithItsMessage)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{\"external_control\":{\"tcp\":{}}}", "Get rs232 failed"},
        {"{\"external_control\":{\"rs232\":{}}}", "Get tcp failed"},
        {"{\"other\":{}}", "Get external_control failed"},
    };
    for (const auto &[text, message] : cases) {
        root_.set_config(text);
        external_control_info info{true, "x", "y", "z"};
        log_capture capture;
        EXPECT_EQ(ReadExternalControlConfig(&info), -1) << text;
        EXPECT_TRUE(info.authentication);
        EXPECT_EQ(info.port, "x");
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadExternalControlConfig", message}});
    }
}

TEST_F(ExternalControl, ReadOfAMissingOrBrokenFile_ShouldFail)
{
    root_.set_config("nope");
    external_control_info info{};
    {
        log_capture capture;
        EXPECT_EQ(ReadExternalControlConfig(&info), -1);
        expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadExternalControlConfig", "error:nope"}});
    }
    root_.remove_config();
    log_capture capture;
    EXPECT_EQ(ReadExternalControlConfig(&info), -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadExternalControlConfig", "open config file failed"}});
}

TEST_F(ExternalControl, Update_ShouldReplaceEachValueInItsPlace)
{
    external_control_info info{true, "2323", "115200", "ttyUSB0"};
    log_capture capture;
    ASSERT_EQ(UpdateExternalControlConfig(&info), 0);
    std::string text = root_.config();
    EXPECT_EQ(vask_test::section_of(text, "external_control"),
              formatted("{\"tcp\":{\"authentication\":true,\"port\":\"2323\"},"
                        "\"rs232\":{\"baud_rate\":\"115200\",\"portname\":\"ttyUSB0\"}}"));
    std::string expected = vask_test::default_document();
    auto change = [&expected](const std::string &from, const std::string &to) {
        size_t at = expected.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        expected.replace(at, from.size(), to);
    };
    change("\"authentication\":\tfalse", "\"authentication\":\ttrue");
    change("\"port\":\t\"23\"", "\"port\":\t\"2323\"");
    change("\"baud_rate\":\t\"9600\",\n\t\t\t\"portname\":\t\"ttyS0\"",
           "\"baud_rate\":\t\"115200\",\n\t\t\t\"portname\":\t\"ttyUSB0\"");
    EXPECT_EQ(text, expected);
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateExternalControlConfig", "UpdateExternalControlConfig"}});
}

TEST_F(ExternalControl, UpdateOfMissingBlocks_ShouldAddThemAtTheEnd)
{
    root_.set_config("{\"external_control\":{\"tcp\":{\"port\":\"1\"}},\"z\":1}");
    external_control_info info{true, "2", "9600", "ttyS1"};
    ASSERT_EQ(UpdateExternalControlConfig(&info), 0);
    EXPECT_EQ(root_.config(), formatted("{\"external_control\":{\"tcp\":{\"port\":\"2\",\"authentication\":true},"
                                        "\"rs232\":{\"baud_rate\":\"9600\",\"portname\":\"ttyS1\"}},\"z\":1}"));
}

TEST_F(ExternalControl, UpdateWithoutTheSection_ShouldLeaveTheFileAsItWas)
{
    std::string text = formatted("{\"miccentral_control\":{\"protocol\":\"none\"},\"z\":[1,2]}");
    root_.set_config(text);
    external_control_info info{true, "2", "9600", "ttyS1"};
    EXPECT_EQ(UpdateExternalControlConfig(&info), 0);
    EXPECT_EQ(root_.config(), text);
}

TEST_F(ExternalControl, UpdateOfAMissingOrBrokenFile_ShouldFail)
{
    external_control_info info{true, "2", "9600", "ttyS1"};
    root_.set_config("{\"external_control\":");
    EXPECT_EQ(UpdateExternalControlConfig(&info), -1);
    EXPECT_EQ(root_.config(), "{\"external_control\":");
    root_.remove_config();
    log_capture capture;
    EXPECT_EQ(UpdateExternalControlConfig(&info), -1);
    EXPECT_FALSE(root_.has_config());
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateExternalControlConfig", "UpdateExternalControlConfig"},
                                   {0, "utils", kAnyLine, "UpdateExternalControlConfig",
                                    "open external_device config file failed"}});
}
