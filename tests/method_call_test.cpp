// SPDX-License-Identifier: MIT
#include <cstring>

#include "core/internal.h"
#include "core/method_call.h"
#include "core_test_fixture.h"

using vask_ed::ed_method_call;
using vask_ed::json_ptr;

class MethodCallTest : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(ed_init(), 0);
    }

    // The result of a call of "m" answered with `reply`.
    int result_of(const std::string &reply)
    {
        service_->reply("m", reply);
        return ed_method_call("m", nullptr, nullptr);
    }
};

TEST_F(MethodCallTest, ReplyCode_ShouldBeMappedToTheLibraryResult)
{
    EXPECT_EQ(result_of("{\"code\":0}"), 0);
    EXPECT_EQ(result_of("{\"code\":-1002}"), -2);
    EXPECT_EQ(result_of("{\"code\":-1001}"), -1);
    EXPECT_EQ(result_of("{\"code\":-1003}"), -3);
    EXPECT_EQ(result_of("{\"code\":-5}"), -4);
    EXPECT_EQ(result_of("{\"code\":7}"), -1);
    EXPECT_EQ(result_of("{\"code\":-4}"), -1);
}

TEST_F(MethodCallTest, ReplyWithoutCode_ShouldGiveMinusOne)
{
    EXPECT_EQ(result_of("{\"result\":1}"), -1);
}

TEST_F(MethodCallTest, ReplyCodeOfAnyJsonType_ShouldBeReadAsItsIntegerValue)
{
    // The integer value of a string item is 0, so a string code reads as success.
    EXPECT_EQ(result_of("{\"code\":\"-1002\"}"), 0);
    EXPECT_EQ(result_of("{\"code\":-1002.7}"), -2);
    // cJSON gives true the integer value 1, false 0.
    EXPECT_EQ(result_of("{\"code\":true}"), -1);
    EXPECT_EQ(result_of("{\"code\":false}"), 0);
}

TEST_F(MethodCallTest, NonJsonReply_ShouldStoreNullAndGiveMinusOne)
{
    service_->reply("m", "this is not json");
    cJSON *reply = reinterpret_cast<cJSON *>(0x1);
    EXPECT_EQ(ed_method_call("m", nullptr, &reply), -1);
    EXPECT_EQ(reply, nullptr);
}

TEST_F(MethodCallTest, ReplyDocument_ShouldBeHandedToTheCallerAlsoOnFailure)
{
    service_->reply("m", "{\"code\":-1002,\"why\":\"bad\"}");
    cJSON *reply = nullptr;
    EXPECT_EQ(ed_method_call("m", nullptr, &reply), -2);
    json_ptr owned(reply);
    ASSERT_NE(reply, nullptr);
    EXPECT_STREQ(cJSON_GetObjectItem(reply, "why")->valuestring, "bad");
}

TEST_F(MethodCallTest, EmptyReply_ShouldSucceedAndLeaveTheReplyPointerUntouched)
{
    service_->reply("m", "");
    cJSON sentinel{};
    cJSON *reply = &sentinel;
    EXPECT_EQ(ed_method_call("m", nullptr, &reply), 0);
    EXPECT_EQ(reply, &sentinel);
}

TEST_F(MethodCallTest, ServiceOffline_ShouldGiveMinusThree)
{
    service_->unregister();
    EXPECT_TRUE(vask_test::eventually([] { return ed_method_call("m", nullptr, nullptr) == -3; }));
}

TEST_F(MethodCallTest, ReplyTooLarge_ShouldGiveMinusOne)
{
    service_->reply("m", "{\"code\":0,\"pad\":\"" + std::string(3000, 'p') + "\"}");
    cJSON sentinel{};
    cJSON *reply = &sentinel;
    EXPECT_EQ(ed_method_call("m", nullptr, &reply), -1);
    EXPECT_EQ(reply, &sentinel);
}

TEST_F(MethodCallTest, BadArgumentsRefusedByTheBus_ShouldGiveMinusTwo)
{
    EXPECT_EQ(ed_method_call("no/such", nullptr, nullptr), -2);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(MethodCallTest, NullRequest_ShouldSendAnEmptyBody)
{
    ASSERT_EQ(ed_method_call("m", nullptr, nullptr), 0);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].body_length, 0);
    EXPECT_EQ(calls[0].body, "");
}

TEST_F(MethodCallTest, Request_ShouldBeSentUnformattedAndStayTheCallers)
{
    json_ptr request(cJSON_CreateObject());
    cJSON_AddNumberToObject(request.get(), "a", 1);
    cJSON_AddStringToObject(request.get(), "b", "x y");
    ASSERT_EQ(ed_method_call("m", request.get(), nullptr), 0);
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].body, "{\"a\":1,\"b\":\"x y\"}");
    EXPECT_EQ(calls[0].body_length, 17);
    // Still the caller's: usable after the call.
    EXPECT_EQ(cJSON_GetObjectItem(request.get(), "a")->valueint, 1);
}

TEST(ServiceCodes, Map_ShouldFoldEveryCodeIntoTheLibraryResults)
{
    struct {
        int code;
        int result;
    } const table[] = {{0, 0}, {-5, -4}, {-1001, -1}, {-1002, -2}, {-1003, -3}, {-1004, -1}, {1, -1}, {-1, -1}, {7, -1}};
    for (const auto &row : table)
        EXPECT_EQ(vask_ed::map_service_code(row.code), row.result) << row.code;
}
