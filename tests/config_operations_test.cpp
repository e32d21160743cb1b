// SPDX-License-Identifier: MIT
// The operations on stored devices: getters, setters that store and then tell the service, the
// projector tests, and what the service hears when a store fails.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "config_test_support.h"
#include "core_test_fixture.h"
#include "libvask_external_device.h"

using vask_test::kAnyLine;
using vask_test::expect_lines;
using vask_test::formatted;
using vask_test::helper_run;
using vask_test::log_capture;
using vask_test::run_helper;
using vask_test::section_of;

namespace {

constexpr const char *kLibrary = "libvask_external_device";

ino_t inode_of(const std::string &path)
{
    struct stat info {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    return info.st_ino;
}

} // namespace

class ConfigOperations : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        root_ = std::make_unique<vask_test::sysroot>();
        ASSERT_EQ(ed_init(), 0);
    }
    void TearDown() override
    {
        LibraryTest::TearDown();
        root_.reset();
    }
    std::vector<std::string> methods()
    {
        std::vector<std::string> names;
        for (const auto &call : service_->calls())
            names.push_back(call.method);
        return names;
    }
    // The one call the service received, which must have had no body.
    void expect_one_call(const std::string &method)
    {
        auto calls = service_->calls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].method, method);
        EXPECT_EQ(calls[0].body, "");
        EXPECT_EQ(calls[0].body_length, 0);
    }
    // The default document with `section` replaced by `compact` (in its place).
    std::string default_with(const char *section, const std::string &compact)
    {
        cJSON *tree = cJSON_Parse(vask_test::default_document().c_str());
        cJSON_ReplaceItemInObject(tree, section, cJSON_Parse(compact.c_str()));
        char *text = cJSON_Print(tree);
        std::string result = text;
        cJSON_free(text);
        cJSON_Delete(tree);
        return result;
    }
    std::unique_ptr<vask_test::sysroot> root_;
};

// ---- Getters -------------------------------------------------------------------------------

TEST_F(ConfigOperations, Getters_ShouldLogTheirNameAndReadTheirSection)
{
    root_->set_config("{\"miccentral_control\":{\"enable\":true,\"protocol\":\"shure-tcp\",\"parameters\":{\"tcp\":{"
                      "\"ip_address\":\"192.0.2.1\",\"port\":\"4001\"}}},"
                      "\"castdeck_control\":{\"protocol\":\"usb-olvin-s1\"},"
                      "\"projector_control\":{\"protocol\":\"pjlink\",\"parameters\":{\"pjlink\":{\"ip_address\":"
                      "\"192.0.2.24\",\"password\":\"pj\"}}},"
                      "\"external_control\":{\"tcp\":{\"authentication\":true,\"port\":\"2323\"},\"rs232\":{}}}");
    log_capture capture;
    external_protocol_info mic{};
    ASSERT_EQ(ed_get_mic_central_info(&mic), 0);
    EXPECT_EQ(mic.protocol, 2);
    EXPECT_EQ(mic.ip_address, "192.0.2.1");
    EXPECT_EQ(mic.port, "4001");
    external_protocol_info castdeck{};
    ASSERT_EQ(ed_get_castdeck_info(&castdeck), 0);
    EXPECT_EQ(castdeck.protocol, 25);
    external_protocol_info projector{};
    ASSERT_EQ(ed_get_projector_settings(&projector), 0);
    EXPECT_EQ(projector.protocol, 24);
    EXPECT_EQ(projector.password, "pj");
    external_control_info control{};
    ASSERT_EQ(ed_get_tcp_control_settings(&control), 0);
    EXPECT_TRUE(control.authentication);
    EXPECT_EQ(control.port, "2323");
    expect_lines(capture.lines(),
                 {{2, kLibrary, kAnyLine, "ed_get_mic_central_info", "ed_get_mic_central_info"},
                  {2, kLibrary, kAnyLine, "ed_get_castdeck_info", "ed_get_castdeck_info"},
                  {2, kLibrary, kAnyLine, "ed_get_projector_settings", "ed_get_projector_settings"},
                  {2, kLibrary, kAnyLine, "ed_get_tcp_control_settings", "ed_get_tcp_control_settings"}});
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ConfigOperations, GettersOnAFailure_ShouldReturnTheReadersResult)
{
    root_->set_config("{}");
    external_protocol_info info{};
    EXPECT_EQ(ed_get_mic_central_info(&info), -1);
    EXPECT_EQ(info.protocol, -1);
    EXPECT_EQ(ed_get_castdeck_info(&info), -1);
    EXPECT_EQ(ed_get_projector_settings(&info), -1);
    external_control_info control{};
    EXPECT_EQ(ed_get_tcp_control_settings(&control), -1);
    EXPECT_EQ(ed_get_mic_central_info(nullptr), -1);
    EXPECT_EQ(ed_get_tcp_control_settings(nullptr), -1);
}

// ---- The mic central -----------------------------------------------------------------------

TEST_F(ConfigOperations, SetMicCentralEqualToTheStoredSettings_ShouldNeitherWriteNorCall)
{
    std::string before = root_->config();
    ino_t inode = inode_of(root_->config_path());
    log_capture capture;
    // What the default section reads as.
    EXPECT_EQ(ed_set_mic_central_info({false, 0, "0.0.0.0", "", "", "", ""}), 0);
    EXPECT_EQ(root_->config(), before);
    EXPECT_EQ(inode_of(root_->config_path()), inode);
    EXPECT_TRUE(service_->calls().empty());
    expect_lines(capture.lines(), {{2, kLibrary, kAnyLine, "ed_set_mic_central_info",
                                    "ed_set_mic_central_info [0]@0.0.0.0 "}});
}

TEST_F(ConfigOperations, SetMicCentralChanged_ShouldStoreThenTellTheService)
{
    log_capture capture;
    EXPECT_EQ(ed_set_mic_central_info({true, 2, "192.0.2.10", "admin", "secret", "", "4001"}), 0);
    EXPECT_EQ(root_->config(),
              default_with("miccentral_control",
                           "{\"enable\":true,\"protocol\":\"shure-tcp\",\"parameters\":{\"tcp\":{\"ip_address\":"
                           "\"192.0.2.10\",\"username\":\"admin\",\"password\":\"secret\",\"port\":\"4001\"}}}"));
    expect_one_call("set_mic_central_info");
    expect_lines(capture.lines(),
                 {{2, kLibrary, kAnyLine, "ed_set_mic_central_info", "ed_set_mic_central_info [2]@192.0.2.10 admin"},
                  {2, "utils", kAnyLine, "UpdateControlDeviceSettings",
                   "UpdateControlDeviceSettings miccentral_control, enable 1 protocol shure-tcp, username admin"}});
    // The same settings again change nothing.
    EXPECT_EQ(ed_set_mic_central_info({true, 2, "192.0.2.10", "admin", "secret", "", "4001"}), 0);
    EXPECT_EQ(service_->calls().size(), 1u);
}

TEST_F(ConfigOperations, SetMicCentralToCreatorTcp_ShouldStoreANameThatReadsBackAsUnknown)
{
    EXPECT_EQ(ed_set_mic_central_info({true, 4, "192.0.2.10", "", "", "", ""}), 0);
    EXPECT_EQ(section_of(root_->config(), "miccentral_control"),
              formatted("{\"enable\":true,\"protocol\":\"creator-tcp\",\"parameters\":{\"tcp\":{"
                        "\"ip_address\":\"192.0.2.10\"}}}"));
    external_protocol_info info{};
    EXPECT_EQ(ed_get_mic_central_info(&info), 0);
    EXPECT_EQ(info.protocol, -1);
}

TEST_F(ConfigOperations, SetMicCentralRefusedByTheService_ShouldKeepTheStoredSettings)
{
    service_->reply("set_mic_central_info", "{\"code\":-1002}");
    EXPECT_EQ(ed_set_mic_central_info({false, 21, "", "", "", "9600", ""}), -2);
    external_protocol_info info{};
    ASSERT_EQ(ed_get_mic_central_info(&info), 0);
    EXPECT_EQ(info.protocol, 21);
    EXPECT_EQ(info.baud_rate, "9600");
}

TEST_F(ConfigOperations, SetMicCentralOverABrokenFile_ShouldNotTellTheService)
{
    root_->set_config("{\"miccentral_control\":");
    EXPECT_EQ(ed_set_mic_central_info({true, 1, "192.0.2.1", "", "", "", ""}), -1);
    EXPECT_EQ(root_->config(), "{\"miccentral_control\":");
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ConfigOperations, ServiceCallOfASetter_ShouldBeMadeWithTheLockReleased)
{
    service_->hold("set_mic_central_info");
    std::atomic<int> result{99};
    std::thread setter([&] { result = ed_set_mic_central_info({true, 1, "192.0.2.1", "", "", "", ""}); });
    ASSERT_TRUE(vask_test::eventually([&] { return service_->held(); }));
    // The setter is inside its service call: a reader must get the lock now.
    std::atomic<int> read{99};
    std::thread reader([&] {
        external_protocol_info info{};
        read = ReadControlDeviceConfig("miccentral_control", &info);
    });
    bool finished = vask_test::eventually([&] { return read != 99; });
    service_->release();
    setter.join();
    reader.join();
    EXPECT_TRUE(finished) << "the reader waited for the service call";
    EXPECT_EQ(read, 0);
    EXPECT_EQ(result, 0);
}

// ---- The media station ---------------------------------------------------------------------

TEST_F(ConfigOperations, SetCastdeckTcp_ShouldStoreTheRecordsTextsAndCall)
{
    log_capture capture;
    EXPECT_EQ(ed_set_castdeck_info({true, 1, "192.0.2.30", "op", "pw", "9600", "8080"}), 0);
    EXPECT_EQ(root_->config(),
              default_with("castdeck_control",
                           "{\"enable\":true,\"protocol\":\"tcp\",\"parameters\":{\"tcp\":{\"ip_address\":"
                           "\"192.0.2.30\",\"username\":\"op\",\"password\":\"pw\",\"port\":\"8080\"}}}"));
    expect_one_call("castdeck_control_settings");
    expect_lines(capture.lines(),
                 {{2, kLibrary, kAnyLine, "ed_set_castdeck_info", "ed_set_castdeck_settings"},
                  {2, "utils", kAnyLine, "UpdateControlDeviceSettings",
                   "UpdateControlDeviceSettings castdeck_control, enable 1 protocol tcp, username op"}});
}

TEST_F(ConfigOperations, SetCastdeckNoneAndRs232_ShouldStoreOnlyWhatTheyUse)
{
    EXPECT_EQ(ed_set_castdeck_info({true, 21, "192.0.2.30", "op", "pw", "115200", "8080"}), 0);
    EXPECT_EQ(section_of(root_->config(), "castdeck_control"),
              formatted("{\"enable\":true,\"protocol\":\"rs232\",\"parameters\":{\"rs232\":{\"baud_rate\":"
                        "\"115200\"}}}"));
    EXPECT_EQ(ed_set_castdeck_info({false, 0, "192.0.2.30", "op", "pw", "115200", "8080"}), 0);
    EXPECT_EQ(section_of(root_->config(), "castdeck_control"), formatted("{\"enable\":false,\"protocol\":\"none\"}"));
    EXPECT_EQ(methods(), (std::vector<std::string>{"castdeck_control_settings", "castdeck_control_settings"}));
}

TEST_F(ConfigOperations, SetCastdeckTwiceTheSame_ShouldWriteAndCallEachTime)
{
    EXPECT_EQ(ed_set_castdeck_info({false, 0, "", "", "", "", ""}), 0);
    ino_t inode = inode_of(root_->config_path());
    EXPECT_EQ(ed_set_castdeck_info({false, 0, "", "", "", "", ""}), 0);
    EXPECT_NE(inode_of(root_->config_path()), inode);
    EXPECT_EQ(service_->calls().size(), 2u);
}

TEST_F(ConfigOperations, SetCastdeckWithAnUnsupportedProtocol_ShouldChangeNothing)
{
    std::string before = root_->config();
    ino_t inode = inode_of(root_->config_path());
    for (int protocol : {2, 25, -1, 24}) {
        EXPECT_EQ(ed_set_castdeck_info({true, protocol, "192.0.2.30", "", "", "", ""}), -2) << protocol;
    }
    EXPECT_EQ(root_->config(), before);
    EXPECT_EQ(inode_of(root_->config_path()), inode);
    EXPECT_TRUE(service_->calls().empty());
}

// ---- Projector tests -----------------------------------------------------------------------

TEST_F(ConfigOperations, ProjectorTests_ShouldSendTheAddressAndPassword)
{
    log_capture capture;
    EXPECT_EQ(ed_pjlink_test("192.0.2.20", "pjpass"), 0);
    EXPECT_EQ(ed_hitachi_tcp_test("192.0.2.21", "hipass"), 0);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].method, "projector_control_pjlink_test");
    EXPECT_EQ(calls[0].body, "{\"ip_address\":\"192.0.2.20\",\"password\":\"pjpass\"}");
    EXPECT_EQ(calls[1].method, "projector_control_hitachi_tcp_test");
    EXPECT_EQ(calls[1].body, "{\"ip_address\":\"192.0.2.21\",\"password\":\"hipass\"}");
    expect_lines(capture.lines(), {{2, kLibrary, 389, "ed_pjlink_test", "ed_pjlink_test"},
                                   {2, kLibrary, 376, "ed_hitachi_tcp_test", "ed_hitachi_tcp_test"}});
    EXPECT_EQ(root_->config(), vask_test::default_document());
}

TEST_F(ConfigOperations, ProjectorTests_ShouldReturnTheServiceResult)
{
    service_->reply("projector_control_pjlink_test", "{\"code\":-1003}");
    service_->reply("projector_control_hitachi_tcp_test", "{\"code\":-5}");
    EXPECT_EQ(ed_pjlink_test("", ""), -3);
    EXPECT_EQ(ed_hitachi_tcp_test("", ""), -4);
}

// ---- Projector and TCP control setters -----------------------------------------------------

TEST_F(ConfigOperations, ProjectorSetters_ShouldReplaceTheirMembersInPlaceAndCall)
{
    struct setter_case {
        std::function<int()> call;
        const char *method;
        const char *function;
        const char *entry;
        int line;
        const char *projector;
    };
    const std::string hitachi_tcp = "\"hitachi_tcp\":{\"ip_address\":\"\",\"password\":\"\"}";
    const std::string pjlink = "\"pjlink\":{\"ip_address\":\"\",\"password\":\"\"}";
    const std::vector<setter_case> cases = {
        {[] { return ed_set_pjlink_settings("192.0.2.20", "pj"); }, "projector_control_pjlink_settings",
         "ed_set_pjlink_settings", "ed_set_hitachi_pjlink_settings", 316,
         "{\"protocol\":\"pjlink\",\"parameters\":{\"pjlink\":{\"ip_address\":\"192.0.2.20\",\"password\":\"pj\"},"
         "\"hitachi_tcp\":{\"ip_address\":\"\",\"password\":\"\"},\"hitachi_rs232\":{\"baud_rate\":\"19200\"}}}"},
        {[] { return ed_set_hitachi_tcp_settings("192.0.2.21", "hi"); }, "projector_control_hitachi_tcp_settings",
         "ed_set_hitachi_tcp_settings", "ed_set_hitachi_tcp_settings", 215,
         "{\"protocol\":\"hitachi_tcp\",\"parameters\":{\"pjlink\":{\"ip_address\":\"\",\"password\":\"\"},"
         "\"hitachi_tcp\":{\"ip_address\":\"192.0.2.21\",\"password\":\"hi\"},\"hitachi_rs232\":{\"baud_rate\":"
         "\"19200\"}}}"},
        {[] { return ed_set_hitachi_rs232_settings("9600"); }, "projector_control_hitachi_rs232_settings",
         "ed_set_hitachi_rs232_settings", "ed_set_hitachi_rs232_settings", 266,
         "{\"protocol\":\"hitachi_rs232\",\"parameters\":{\"pjlink\":{\"ip_address\":\"\",\"password\":\"\"},"
         "\"hitachi_tcp\":{\"ip_address\":\"\",\"password\":\"\"},\"hitachi_rs232\":{\"baud_rate\":\"9600\"}}}"},
        {[] { return ed_set_none_settings(); }, "projector_control_none_settings", "ed_set_none_settings",
         "ed_set_none_settings", 168,
         "{\"protocol\":\"none\",\"parameters\":{\"pjlink\":{\"ip_address\":\"\",\"password\":\"\"},"
         "\"hitachi_tcp\":{\"ip_address\":\"\",\"password\":\"\"},\"hitachi_rs232\":{\"baud_rate\":\"19200\"}}}"},
    };
    for (const setter_case &c : cases) {
        root_->set_config(vask_test::default_document());
        log_capture capture;
        auto calls_before = service_->calls().size();
        EXPECT_EQ(c.call(), 0) << c.function;
        EXPECT_EQ(root_->config(), default_with("projector_control", c.projector)) << c.function;
        auto calls = service_->calls();
        ASSERT_EQ(calls.size(), calls_before + 1);
        EXPECT_EQ(calls.back().method, c.method);
        EXPECT_EQ(calls.back().body_length, 0);
        expect_lines(capture.lines(), {{2, kLibrary, c.line, c.function, c.entry}});
    }
}

TEST_F(ConfigOperations, NoneSetterOverPjlink_ShouldChangeOnlyTheProtocol)
{
    const std::string section = "{\"protocol\":\"pjlink\",\"parameters\":{\"pjlink\":{\"ip_address\":\"192.0.2.20\","
                                "\"password\":\"pj\"},\"hitachi_tcp\":{\"ip_address\":\"192.0.2.21\"},"
                                "\"hitachi_rs232\":{}}}";
    root_->set_config(default_with("projector_control", section));
    EXPECT_EQ(ed_set_none_settings(), 0);
    std::string expected = section;
    expected.replace(expected.find("\"pjlink\""), 8, "\"none\"");
    EXPECT_EQ(root_->config(), default_with("projector_control", expected));
}

TEST_F(ConfigOperations, Rs232SetterWithoutABaudRateKey_ShouldNotAddIt)
{
    root_->set_config("{\"projector_control\":{\"protocol\":\"none\",\"parameters\":{\"hitachi_rs232\":{}}}}");
    EXPECT_EQ(ed_set_hitachi_rs232_settings("9600"), 0);
    EXPECT_EQ(root_->config(),
              formatted("{\"projector_control\":{\"protocol\":\"hitachi_rs232\","
                        "\"parameters\":{\"hitachi_rs232\":{}}}}"));
}

TEST_F(ConfigOperations, PjlinkSetterOnAOneLineFileWithoutItsBlock_ShouldRewriteItFormatted)
{
    root_->set_config("{\"projector_control\":{\"parameters\":{},\"protocol\":\"none\"},\"z\":true}");
    EXPECT_EQ(ed_set_pjlink_settings("192.0.2.20", "pj"), 0);
    EXPECT_EQ(root_->config(), "{\n\t\"projector_control\":\t{\n\t\t\"parameters\":\t{\n\t\t},\n"
                               "\t\t\"protocol\":\t\"pjlink\"\n\t},\n\t\"z\":\ttrue\n}");
    expect_one_call("projector_control_pjlink_settings");
}

TEST_F(ConfigOperations, TcpControlSetter_ShouldWriteABoolAndAStringPort)
{
    log_capture capture;
    EXPECT_EQ(ed_set_tcp_control_settings(true, "2323"), 0);
    EXPECT_EQ(section_of(root_->config(), "external_control"),
              "{\n\t\"tcp\":\t{\n\t\t\"authentication\":\ttrue,\n\t\t\"port\":\t\"2323\"\n\t},\n\t\"rs232\":\t{\n"
              "\t\t\"baud_rate\":\t\"9600\",\n\t\t\"portname\":\t\"ttyS0\"\n\t}\n}");
    EXPECT_EQ(ed_set_tcp_control_settings(false, "23"), 0);
    // The default holds "authentication": false and "port": "23", in this order.
    EXPECT_EQ(root_->config(), vask_test::default_document());
    EXPECT_EQ(methods(), (std::vector<std::string>{"external_control_tcp_settings", "external_control_tcp_settings"}));
    expect_lines(capture.lines(), {{2, kLibrary, 402, "ed_set_tcp_control_settings", "ed_set_tcp_control_settings"},
                                   {2, kLibrary, 402, "ed_set_tcp_control_settings", "ed_set_tcp_control_settings"}});
}

TEST_F(ConfigOperations, SetterWithoutItsSection_ShouldWriteTheFileBackAndStillCall)
{
    std::string text = formatted("{\"miccentral_control\":{\"protocol\":\"none\"}}");
    root_->set_config(text);
    service_->reply("external_control_tcp_settings", "{\"code\":-1002}");
    EXPECT_EQ(ed_set_tcp_control_settings(true, "1"), -2);
    EXPECT_EQ(ed_set_hitachi_tcp_settings("192.0.2.1", ""), 0);
    EXPECT_EQ(root_->config(), text);
    EXPECT_EQ(methods(),
              (std::vector<std::string>{"external_control_tcp_settings", "projector_control_hitachi_tcp_settings"}));
}

TEST_F(ConfigOperations, SettersWithoutAFile_ShouldFailWithTheirLinesAndNotCall)
{
    root_->remove_config();
    struct missing_case {
        std::function<int()> call;
        const char *function;
        const char *entry;
        int entry_line;
        int open_line;
    };
    const std::vector<missing_case> cases = {
        {[] { return ed_set_none_settings(); }, "ed_set_none_settings", "ed_set_none_settings", 168, 174},
        {[] { return ed_set_hitachi_tcp_settings("a", "b"); }, "ed_set_hitachi_tcp_settings",
         "ed_set_hitachi_tcp_settings", 215, 221},
        {[] { return ed_set_hitachi_rs232_settings("9600"); }, "ed_set_hitachi_rs232_settings",
         "ed_set_hitachi_rs232_settings", 266, 272},
        {[] { return ed_set_pjlink_settings("a", "b"); }, "ed_set_pjlink_settings", "ed_set_hitachi_pjlink_settings",
         316, 322},
        {[] { return ed_set_tcp_control_settings(true, "23"); }, "ed_set_tcp_control_settings",
         "ed_set_tcp_control_settings", 402, 408},
    };
    for (const missing_case &c : cases) {
        log_capture capture;
        EXPECT_EQ(c.call(), -1) << c.function;
        expect_lines(capture.lines(), {{2, kLibrary, c.entry_line, c.function, c.entry},
                                       {0, kLibrary, c.open_line, c.function, "open projector config file failed"}});
    }
    EXPECT_FALSE(root_->has_config());
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ConfigOperations, SettersOverABrokenFile_ShouldLogTheParseErrorAndNotCall)
{
    struct broken_case {
        std::function<int()> call;
        const char *function;
        int entry_line;
        int parse_line;
    };
    const std::vector<broken_case> cases = {
        {[] { return ed_set_none_settings(); }, "ed_set_none_settings", 168, 194},
        {[] { return ed_set_hitachi_tcp_settings("a", "b"); }, "ed_set_hitachi_tcp_settings", 215, 241},
        {[] { return ed_set_hitachi_rs232_settings("9600"); }, "ed_set_hitachi_rs232_settings", 266, 292},
        {[] { return ed_set_pjlink_settings("a", "b"); }, "ed_set_pjlink_settings", 316, 342},
        {[] { return ed_set_tcp_control_settings(true, "23"); }, "ed_set_tcp_control_settings", 402, 428},
    };
    root_->set_config("{\"projector_control\": {\"protocol\": pjlink}}");
    for (const broken_case &c : cases) {
        log_capture capture;
        EXPECT_EQ(c.call(), -1) << c.function;
        auto lines = vask_test::fields_of(capture.lines());
        ASSERT_EQ(lines.size(), 2u) << c.function;
        EXPECT_EQ(lines[0].line, c.entry_line);
        EXPECT_EQ(lines[1], (vask_test::line_fields{0, kLibrary, c.parse_line, c.function, "error:pjlink}}"}));
    }
    EXPECT_EQ(root_->config(), "{\"projector_control\": {\"protocol\": pjlink}}");
    EXPECT_TRUE(service_->calls().empty());
}

// ---- A failed store is not announced -------------------------------------------------------

TEST_F(ConfigOperations, FaultHelperWithoutFaults_ShouldTellTheService)
{
    helper_run run = run_helper("set_pjlink", "");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(methods(), std::vector<std::string>{"projector_control_pjlink_settings"});
    EXPECT_NE(root_->config().find("192.0.2.20"), std::string::npos);
}

TEST_F(ConfigOperations, SettersWhoseWriteFails_ShouldNotTellTheService)
{
    std::string before = root_->config();
    for (const char *operation : {"set_pjlink", "set_mic", "set_none"}) {
        helper_run run = run_helper(operation, "write:28:/.external_device.json.tmp");
        EXPECT_EQ(run.result, -1) << operation;
        bool logged = false;
        for (const std::string &line : run.log)
            logged = logged || line.find("failed, errno=28") != std::string::npos;
        EXPECT_TRUE(logged) << operation;
    }
    EXPECT_EQ(root_->config(), before);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(ConfigOperations, SetterWithAShortRead_ShouldLogItsLinesAndNotCall)
{
    helper_run run = run_helper("set_none", "fread:0:external_device.json");
    EXPECT_EQ(run.result, -1);
    std::string text = root_->config();
    int size = static_cast<int>(text.size());
    std::string half = text.substr(0, static_cast<size_t>(size / 2));
    const char *parse_end = nullptr;
    cJSON_Delete(cJSON_ParseWithOpts(half.c_str(), &parse_end, false));
    ASSERT_NE(parse_end, nullptr);
    EXPECT_EQ(run.log, (std::vector<std::string>{
                           "2|libvask_external_device|168|ed_set_none_settings|ed_set_none_settings",
                           "1|libvask_external_device|185|ed_set_none_settings|read file query " +
                               std::to_string(size) + " , but " + std::to_string(size / 2),
                           "0|libvask_external_device|194|ed_set_none_settings|error:" + std::string(parse_end),
                       }));
    EXPECT_TRUE(service_->calls().empty());
}
