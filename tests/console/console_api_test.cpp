// SPDX-License-Identifier: MIT
// The console's JSON API against the simulator: each endpoint's answer, the file on disk and what
// the simulator applied after each change.
#include "console_fixture.h"

using vask_test::compact_json;

TEST_F(ConsoleTest, Voting_ShouldMoveThroughTheStepsAndCountAVote)
{
    EXPECT_EQ(call("GET", "/api/voting").body,
              "{\"status\":0,\"agree\":0,\"disagree\":0,\"abandon\":0,\"total\":0,\"time\":0}\n");
    EXPECT_EQ(call("POST", "/api/voting", R"({"action":"enter"})").body, "{\"code\":0}\n");
    EXPECT_EQ(call("POST", "/api/voting", R"({"action":"start"})").status, 200);
    room_->edctl_ok({"sim", "vote", "agree"});
    vask_test::http_answer stopped = call("POST", "/api/voting", R"({"action":"stop"})");
    EXPECT_EQ(stopped.body, "{\"status\":3,\"agree\":1,\"disagree\":0,\"abandon\":0,\"total\":1,\"time\":0}\n");
    EXPECT_EQ(call("POST", "/api/voting", R"({"action":"exit"})").status, 200);
    EXPECT_EQ(call("GET", "/api/voting").number("status"), 0);
}

TEST_F(ConsoleTest, MicrophonesOn_ShouldListThePressedMicrophones)
{
    room_->edctl_ok({"sim", "press", "1", "7"});
    EXPECT_EQ(call("GET", "/api/microphones/on").body,
              "{\"microphones\":[{\"group\":\"1\",\"id\":\"7\",\"on\":true}]}\n");
}

TEST_F(ConsoleTest, MicCentralStateAndTest_ShouldAnswerTheServicesView)
{
    EXPECT_EQ(call("GET", "/api/mic-central/state").body, "{\"connected\":false,\"isconnect\":0}\n");
    EXPECT_EQ(call("POST", "/api/mic-central/test",
                   R"({"protocol":1,"ip_address":"192.0.2.41","username":"u","password":"p"})")
                  .status,
              200);
    EXPECT_EQ(call("GET", "/api/mic-central/state").body, "{\"connected\":true,\"isconnect\":1}\n");
}

TEST_F(ConsoleTest, Rs232DevicesAndImshare_ShouldAnswerAndChange)
{
    EXPECT_EQ(call("GET", "/api/rs232/devices").body,
              "{\"devices\":[{\"number\":0,\"port\":\"ttyS0\",\"description\":\"RS232 port 1\"},"
              "{\"number\":1,\"port\":\"ttyUSB0\",\"description\":\"USB serial adapter\"}]}\n");
    EXPECT_EQ(call("GET", "/api/imshare").body, "{\"hid\":false}\n");
    EXPECT_EQ(call("PUT", "/api/imshare", R"({"hid":true})").body, "{\"hid\":true}\n");
    EXPECT_EQ(call("GET", "/api/imshare").body, "{\"hid\":true}\n");
}

TEST_F(ConsoleTest, MicCentral_ShouldStoreTheMembersSentAndTellTheService)
{
    vask_test::http_answer changed =
        call("PUT", "/api/mic-central", R"({"enable":true,"protocol":"shure-tcp","ip_address":"192.0.2.41","username":"tech"})");
    ASSERT_EQ(changed.status, 200) << changed.body;
    EXPECT_EQ(call("GET", "/api/mic-central").body,
              "{\"enable\":true,\"protocol\":2,\"protocol_name\":\"shure-tcp\",\"ip_address\":\"192.0.2.41\","
              "\"username\":\"tech\",\"password\":\"\",\"baud_rate\":\"\",\"port\":\"\"}\n");
    EXPECT_NE(etc("external_device.json").find("\"shure-tcp\""), std::string::npos);
    EXPECT_NE(applied("miccentral_control").find("\"protocol\":\"shure-tcp\""), std::string::npos);
}

TEST_F(ConsoleTest, Castdeck_ShouldStoreTcpSettingsAndTellTheService)
{
    ASSERT_EQ(call("PUT", "/api/castdeck", R"({"enable":true,"protocol":1,"ip_address":"192.0.2.50","port":"9000"})")
                  .status,
              200);
    vask_test::http_answer read = call("GET", "/api/castdeck");
    EXPECT_EQ(read.number("protocol"), 1);
    EXPECT_EQ(read.text("ip_address"), "192.0.2.50");
    EXPECT_EQ(read.text("port"), "9000");
    EXPECT_NE(applied("castdeck_control").find("\"ip_address\":\"192.0.2.50\""), std::string::npos);
}

TEST_F(ConsoleTest, Projector_ShouldSwitchToPjlinkInTheFileAndTheService)
{
    ASSERT_EQ(call("PUT", "/api/projector", R"({"protocol":"pjlink","ip_address":"192.0.2.40","password":"secret"})")
                  .status,
              200);
    EXPECT_EQ(call("GET", "/api/projector").body,
              "{\"enable\":false,\"protocol\":24,\"protocol_name\":\"pjlink\",\"ip_address\":\"192.0.2.40\","
              "\"username\":\"\",\"password\":\"secret\",\"baud_rate\":\"\",\"port\":\"\"}\n");
    EXPECT_NE(etc("external_device.json").find("\"pjlink\""), std::string::npos);
    EXPECT_NE(applied("projector_control").find(R"("pjlink":{"ip_address":"192.0.2.40","password":"secret"})"),
              std::string::npos);
    ASSERT_EQ(call("PUT", "/api/projector", R"({"protocol":"hitachi_rs232","baud_rate":"9600"})").status, 200);
    EXPECT_EQ(call("GET", "/api/projector").text("baud_rate"), "9600");
    ASSERT_EQ(call("PUT", "/api/projector", R"({"protocol":"none"})").status, 200);
    EXPECT_EQ(call("GET", "/api/projector").text("protocol_name"), "none");
    EXPECT_EQ(call("POST", "/api/projector/test", R"({"protocol":"pjlink","ip_address":"192.0.2.40"})").status, 200);
    EXPECT_EQ(call("POST", "/api/projector/test", R"({"protocol":"hitachi_tcp","ip_address":"192.0.2.40"})").status,
              200);
}

TEST_F(ConsoleTest, TcpControl_ShouldChangeAuthenticationAndPort)
{
    ASSERT_EQ(call("PUT", "/api/tcp-control", R"({"authentication":true,"port":"2323"})").status, 200);
    EXPECT_EQ(call("GET", "/api/tcp-control").body,
              "{\"authentication\":true,\"port\":\"2323\",\"baud_rate\":\"9600\",\"portname\":\"ttyS0\"}\n");
    EXPECT_NE(applied("external_control").find(R"("authentication":true,"port":"2323")"), std::string::npos);
}

TEST_F(ConsoleTest, Rs232Control_ShouldMergeTheMembersSent)
{
    ASSERT_EQ(call("PUT", "/api/rs232/control", R"({"baud_rate":"115200","enable_USB_zorvo":true,"ignored_TTYUSB_A":2})")
                  .status,
              200);
    vask_test::http_answer read = call("GET", "/api/rs232/control");
    EXPECT_EQ(read.text("baud_rate"), "115200");
    EXPECT_EQ(read.text("port"), "ttyS0");
    EXPECT_EQ(read.number("ignored_TTYUSB_A"), 2);
    EXPECT_NE(applied("external_rs232_config").find("\"enable_USB_zorvo\":true"), std::string::npos);
}

TEST_F(ConsoleTest, MicControlItems_ShouldAddListExecuteAndDelete)
{
    const std::string item = R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"l":2})";
    ASSERT_EQ(call("POST", "/api/mic-control/items", item).status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/items").body, "{\"items\":[" + compact_json(item) + "]}\n");
    EXPECT_EQ(call("GET", "/api/mic-control/items?gr=2").body, "{\"items\":[]}\n");
    EXPECT_NE(etc("microphone_control.json").find("\"Chair\""), std::string::npos);
    EXPECT_EQ(applied("microphone_config"), "[" + compact_json(item) + "]");
    EXPECT_EQ(call("POST", "/api/mic-control/items/execute", item).status, 200);
    EXPECT_EQ(applied("executed"), R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"l":2,"simulated":false})");
    EXPECT_EQ(call("POST", "/api/mic-control/items/simulate", item).status, 200);
    EXPECT_EQ(applied("executed"), R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"l":2,"simulated":true})");
    EXPECT_EQ(call("POST", "/api/mic-control/home").status, 200);
    EXPECT_EQ(call("DELETE", "/api/mic-control/items/1/7").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/items").body, "{\"items\":[]}\n");
    EXPECT_EQ(etc("microphone_control.json").find("\"Chair\""), std::string::npos);
}

TEST_F(ConsoleTest, MicControlConflicts_ShouldAddAndDeleteAGroupsItem)
{
    ASSERT_EQ(call("POST", "/api/mic-control/conflicts", R"({"gr":"2","c0":1,"p0":4})").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/conflicts").body, "{\"items\":[{\"gr\":\"2\",\"c0\":1,\"p0\":4}]}\n");
    EXPECT_EQ(applied("microphone_group_conflict_config"), R"([{"gr":"2","c0":1,"p0":4}])");
    ASSERT_EQ(call("DELETE", "/api/mic-control/conflicts/2").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/conflicts").body, "{\"items\":[]}\n");
}

TEST_F(ConsoleTest, MicControlModes_ShouldStoreEachModeAndTellTheService)
{
    ASSERT_EQ(call("PUT", "/api/mic-control/default-mode", R"({"cancel_mode":1,"item":{"c0":2,"p0":3}})").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/default-mode").body, "{\"cancel_mode\":1,\"item\":{\"c0\":2,\"p0\":3}}\n");
    EXPECT_EQ(applied("microphone_default_config"), R"({"cancel_mode":1,"c0":2,"p0":3})");
    ASSERT_EQ(call("PUT", "/api/mic-control/conflict-mode", R"({"item":{"l":1}})").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/conflict-mode").body, "{\"item\":{\"l\":1}}\n");
    ASSERT_EQ(call("PUT", "/api/mic-control/speakers-mode", R"({"multi_mode":2,"cancel_mode":1})").status, 200);
    EXPECT_EQ(call("GET", "/api/mic-control/speakers-mode").body, "{\"multi_mode\":2,\"cancel_mode\":1}\n");
    EXPECT_EQ(applied("microphone_multiple_speakers_mode"), R"({"multi_mode":2,"cancel_mode":1})");
}

TEST_F(ConsoleTest, Zorvo_ShouldReadFirmwareChangeAMacroAndRunIt)
{
    EXPECT_EQ(call("GET", "/api/zorvo/firmware").text("fw"), "");
    ASSERT_EQ(call("PUT", "/api/zorvo/macros/2", R"({"scenes":4,"channels":[{"enable":true,"preset":"7"}]})").status,
              200);
    vask_test::http_answer macros = call("GET", "/api/zorvo/macros");
    EXPECT_NE(macros.body.find(R"({"index":2,"scenes":4,"channels":[{"channel":1,"enable":true,"preset":"7"})"),
              std::string::npos)
        << macros.body;
    EXPECT_NE(etc("external_device.json").find("\"channel_1_preset\":\t\"7\""), std::string::npos);
    EXPECT_EQ(call("POST", "/api/zorvo/macros/1/goto").status, 200);
    EXPECT_EQ(call("PUT", "/api/zorvo/macros/9", R"({"scenes":1})").status, 404);
}

TEST_F(ConsoleTest, ConfigValidate_ShouldRestoreABrokenFile)
{
    std::ofstream(room_->root() + "/etc/external_device.json") << "[1,2]";
    std::filesystem::create_directories(room_->root() + "/usr/share/vask/etc");
    std::filesystem::create_directories(room_->root() + "/var/lib/vask/etc");
    std::filesystem::copy_file(VASK_DEFAULT_CONFIG, room_->root() + "/usr/share/vask/etc/external_device.json");
    EXPECT_EQ(call("POST", "/api/config/validate").body, "{\"code\":0}\n");
    EXPECT_EQ(compact_json(vask_test::read_text_file(room_->root() + "/var/lib/vask/etc/external_device.json")),
              compact_json(vask_test::read_text_file(VASK_DEFAULT_CONFIG)));
}

TEST_F(ConsoleTest, Status_ShouldReportTheServiceOnline)
{
    ASSERT_TRUE(vask_test::eventually([&] { return call("GET", "/api/status").text("service") == "online"; }));
    EXPECT_NE(call("GET", "/api/status").body.find("\"login\":false"), std::string::npos)
        << "a console on loopback runs without login";
}

TEST_F(ConsoleTest, Replies_ShouldGoOutUncompressedToABrowser)
{
    httplib::Client browser("127.0.0.1", console_.port());
    browser.set_decompress(false);
    httplib::Result result = browser.Get("/api/voting", {{"Accept-Encoding", "gzip, deflate, br"}});
    ASSERT_TRUE(result);
    EXPECT_EQ(result->get_header_value("Content-Encoding"), "");
    EXPECT_EQ(result->get_header_value("Content-Type"), "application/json; charset=utf-8");
    EXPECT_EQ(result->body, "{\"status\":0,\"agree\":0,\"disagree\":0,\"abandon\":0,\"total\":0,\"time\":0}\n");
}
