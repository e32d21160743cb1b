// SPDX-License-Identifier: MIT
#include <vector>

#include "core_test_fixture.h"
#include "log_capture.h"

using vask_test::log_capture;

class ServiceOperationsTest : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(ed_init(), 0);
    }
    vask_test::received_call last_call()
    {
        auto calls = service_->calls();
        return calls.empty() ? vask_test::received_call{} : calls.back();
    }
};

TEST_F(ServiceOperationsTest, MicConnectionTest_ShouldSendParametersBeforeProtocol)
{
    external_protocol_info info{true, 5, "192.0.2.7", "admin", "secret", "9600", "4001"};
    log_capture capture;
    EXPECT_EQ(ed_mic_central_connection_test(info), 0);
    auto call = last_call();
    EXPECT_EQ(call.method, "mic_connection_test");
    EXPECT_EQ(call.body, "{\"parameters\":{\"tcp\":{\"ip_address\":\"192.0.2.7\",\"username\":\"admin\","
                         "\"password\":\"secret\"}},\"protocol\":5}");
    auto lines = capture.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0].message, "ed_mic_central_connection_test");
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].line, 911);
    EXPECT_EQ(lines[0].source, "libvask_external_device");
    EXPECT_EQ(lines[0].function, "ed_mic_central_connection_test");
    EXPECT_EQ(lines[1].message, "{\n\t\"parameters\":\t{\n\t\t\"tcp\":\t{\n\t\t\t\"ip_address\":\t\"192.0.2.7\",\n"
                                "\t\t\t\"username\":\t\"admin\",\n\t\t\t\"password\":\t\"secret\"\n\t\t}\n\t},\n"
                                "\t\"protocol\":\t5\n}");
    EXPECT_EQ(lines[1].level, 2);
    EXPECT_EQ(lines[1].line, 946);
    EXPECT_EQ(lines[1].function, "ed_mic_central_connection_test");
}

TEST_F(ServiceOperationsTest, MicConnectionTest_ShouldReturnTheServiceResult)
{
    service_->reply("mic_connection_test", "{\"code\":-1002}");
    external_protocol_info info{};
    EXPECT_EQ(ed_mic_central_connection_test(info), -2);
}

TEST_F(ServiceOperationsTest, ConnectionState_ShouldReadIsconnect)
{
    service_->reply("get_mic_connection_state", "{\"code\":0,\"isconnect\":1}");
    int state = -7;
    log_capture capture;
    ASSERT_EQ(ed_get_mic_central_connection_state(&state), 0);
    EXPECT_EQ(state, 1);
    EXPECT_EQ(last_call().method, "get_mic_connection_state");
    EXPECT_EQ(last_call().body_length, 0);
    auto lines = capture.with_message("ed_get_mic_central_connection_state");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].line, 894);
    EXPECT_EQ(lines[0].function, "ed_get_mic_central_connection_state");
}

TEST_F(ServiceOperationsTest, ConnectionStateFailure_ShouldLeaveTheStateUnchanged)
{
    service_->reply("get_mic_connection_state", "{\"code\":-1002,\"isconnect\":1}");
    int state = -7;
    EXPECT_EQ(ed_get_mic_central_connection_state(&state), -2);
    EXPECT_EQ(state, -7);
    EXPECT_EQ(ed_get_mic_central_connection_state(nullptr), -1);
}

TEST_F(ServiceOperationsTest, MicOnList_ShouldAppendEntriesWithOnDefaultingToTrue)
{
    service_->reply("get_microphone_on_list", "{\"code\":0,\"mic_on_list\":[{\"Group\":\"1\",\"ID\":\"7\"},"
                                              "{\"ID\":\"3\",\"On\":0},{\"Group\":\"2\",\"ID\":\"4\",\"On\":true}]}");
    std::vector<mic_node> list{{"old", "0", false}};
    ASSERT_EQ(ed_get_mic_on_list(&list), 0);
    EXPECT_EQ(last_call().method, "get_microphone_on_list");
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0].group, "old");
    EXPECT_EQ(list[1].group, "1");
    EXPECT_EQ(list[1].id, "7");
    EXPECT_TRUE(list[1].on);
    EXPECT_EQ(list[2].group, "");
    EXPECT_EQ(list[2].id, "3");
    EXPECT_FALSE(list[2].on);
    EXPECT_EQ(list[3].id, "4");
    EXPECT_TRUE(list[3].on);
}

TEST_F(ServiceOperationsTest, MicOnListWithoutTheList_ShouldAppendNothing)
{
    std::vector<mic_node> list;
    service_->reply("get_microphone_on_list", "{\"code\":0}");
    EXPECT_EQ(ed_get_mic_on_list(&list), 0);
    service_->reply("get_microphone_on_list", "{\"code\":0,\"mic_on_list\":{\"Group\":\"1\"}}");
    EXPECT_EQ(ed_get_mic_on_list(&list), 0);
    EXPECT_TRUE(list.empty());
}

TEST_F(ServiceOperationsTest, MicOnListFailure_ShouldLeaveTheListUntouched)
{
    service_->reply("get_microphone_on_list", "{\"code\":-5,\"mic_on_list\":[{\"ID\":\"1\"}]}");
    std::vector<mic_node> list;
    EXPECT_EQ(ed_get_mic_on_list(&list), -4);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(ed_get_mic_on_list(nullptr), -1);
}

TEST_F(ServiceOperationsTest, NonStringGroupOrId_ShouldReadAsEmpty)
{
    service_->reply("get_microphone_on_list", "{\"code\":0,\"mic_on_list\":[{\"Group\":5,\"ID\":null}]}");
    std::vector<mic_node> list;
    ASSERT_EQ(ed_get_mic_on_list(&list), 0);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].group, "");
    EXPECT_EQ(list[0].id, "");
}

TEST_F(ServiceOperationsTest, Rs232List_ShouldReadPortDescriptionAndNumber)
{
    service_->reply("get_ex_rs232_device_list",
                    "{\"code\":0,\"rs232_list\":[{\"Port\":\"ttyUSB0\",\"Number\":2},{},"
                    "{\"Port\":\"ttyS1\",\"Description\":\"projector\",\"Number\":0}]}");
    std::vector<external_rs232_info> list{{9, "kept", "first"}};
    ASSERT_EQ(ed_get_external_rs232_device_list(&list), 0);
    EXPECT_EQ(last_call().method, "get_ex_rs232_device_list");
    EXPECT_EQ(last_call().body_length, 0);
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0].port, "kept");
    EXPECT_EQ(list[1].number, 2);
    EXPECT_EQ(list[1].port, "ttyUSB0");
    EXPECT_EQ(list[1].description, "");
    EXPECT_EQ(list[2].number, -1);
    EXPECT_EQ(list[2].port, "");
    EXPECT_EQ(list[2].description, "");
    EXPECT_EQ(list[3].number, 0);
    EXPECT_EQ(list[3].description, "projector");
}

TEST_F(ServiceOperationsTest, Rs232ListOddReplies_ShouldNeverThrow)
{
    std::vector<external_rs232_info> list;
    service_->reply("get_ex_rs232_device_list", "{\"code\":0}");
    EXPECT_EQ(ed_get_external_rs232_device_list(&list), 0);
    EXPECT_TRUE(list.empty());
    service_->reply("get_ex_rs232_device_list", "{\"code\":0,\"rs232_list\":[{\"Port\":1,\"Description\":[]}]}");
    ASSERT_EQ(ed_get_external_rs232_device_list(&list), 0);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].port, "");
    EXPECT_EQ(list[0].description, "");
    service_->reply("get_ex_rs232_device_list", "{\"code\":-1003}");
    EXPECT_EQ(ed_get_external_rs232_device_list(&list), -3);
    EXPECT_EQ(list.size(), 1u);
    EXPECT_EQ(ed_get_external_rs232_device_list(nullptr), -1);
}

TEST_F(ServiceOperationsTest, GetImshare_ShouldReadHid)
{
    imshare_info info{false};
    log_capture capture;
    service_->reply("get_imshare_info", "{\"code\":0,\"hid\":1}");
    ASSERT_EQ(ed_get_imshare_info(&info), 0);
    EXPECT_TRUE(info.hid);
    service_->reply("get_imshare_info", "{\"code\":0,\"hid\":false}");
    ASSERT_EQ(ed_get_imshare_info(&info), 0);
    EXPECT_FALSE(info.hid);
    service_->reply("get_imshare_info", "{\"code\":0,\"hid\":true}");
    ASSERT_EQ(ed_get_imshare_info(&info), 0);
    EXPECT_TRUE(info.hid);
    EXPECT_EQ(last_call().method, "get_imshare_info");
    auto lines = capture.with_message("ed_get_imshare_info");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].line, 1038);
    EXPECT_EQ(lines[0].function, "ed_get_imshare_info");
}

TEST_F(ServiceOperationsTest, GetImshareFailure_ShouldLeaveTheRecordUntouched)
{
    imshare_info info{true};
    service_->reply("get_imshare_info", "{\"code\":-1002,\"hid\":false}");
    EXPECT_EQ(ed_get_imshare_info(&info), -2);
    EXPECT_TRUE(info.hid);
    EXPECT_EQ(ed_get_imshare_info(nullptr), -1);
}

TEST_F(ServiceOperationsTest, SetImshare_ShouldSendHidAsABoolean)
{
    log_capture capture;
    EXPECT_EQ(ed_set_imshare_info(imshare_info{false}), 0);
    EXPECT_EQ(last_call().method, "set_imshare_info");
    EXPECT_EQ(last_call().body, "{\"hid\":false}");
    EXPECT_EQ(ed_set_imshare_info(imshare_info{true}), 0);
    EXPECT_EQ(last_call().body, "{\"hid\":true}");
    auto lines = capture.with_message("ed_set_imshare_info");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].line, 1020);
    EXPECT_EQ(lines[0].function, "ed_set_imshare_info");
    service_->reply("set_imshare_info", "{\"code\":-1003}");
    EXPECT_EQ(ed_set_imshare_info(imshare_info{true}), -3);
}
