// SPDX-License-Identifier: MIT
#include "core_test_fixture.h"

class VotingTest : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(ed_init(), 0);
    }
    std::string last_method()
    {
        auto calls = service_->calls();
        return calls.empty() ? std::string() : calls.back().method;
    }
};

TEST_F(VotingTest, GetVoting_ShouldFillAllSixValues)
{
    service_->reply("query_voting", "{\"code\":0,\"voting_results\":{\"Status\":2,\"Agree\":5,\"Disagree\":3,"
                                    "\"Abandon\":1,\"Total\":9,\"Time\":30}}");
    ed_voting_info info{-9, -9, -9, -9, -9, -9};
    ASSERT_EQ(ed_get_voting(info), 0);
    EXPECT_EQ(last_method(), "query_voting");
    EXPECT_EQ(service_->calls().back().body_length, 0);
    EXPECT_EQ(info.status, 2);
    EXPECT_EQ(info.agree, 5);
    EXPECT_EQ(info.disagree, 3);
    EXPECT_EQ(info.abandon, 1);
    EXPECT_EQ(info.total, 9);
    EXPECT_EQ(info.time, 30);
}

TEST_F(VotingTest, StopWithPartialResults_ShouldSetTheMissingValuesToMinusOne)
{
    service_->reply("stop_voting", "{\"code\":0,\"voting_results\":{\"Status\":2,\"Agree\":5}}");
    ed_voting_info info{1, 0, 0, 0, 0, 0};
    ASSERT_EQ(ed_set_voting(info), 0);
    EXPECT_EQ(last_method(), "stop_voting");
    EXPECT_EQ(info.status, 2);
    EXPECT_EQ(info.agree, 5);
    EXPECT_EQ(info.disagree, -1);
    EXPECT_EQ(info.abandon, -1);
    EXPECT_EQ(info.total, -1);
    EXPECT_EQ(info.time, -1);
}

TEST_F(VotingTest, ReplyWithoutResults_ShouldSetEveryValueToMinusOne)
{
    service_->reply("query_voting", "{\"code\":0}");
    ed_voting_info info{4, 4, 4, 4, 4, 4};
    ASSERT_EQ(ed_get_voting(info), 0);
    EXPECT_EQ(info.status, -1);
    EXPECT_EQ(info.time, -1);
}

TEST_F(VotingTest, EmptyReply_ShouldSetEveryValueToMinusOne)
{
    service_->reply("query_voting", "");
    ed_voting_info info{4, 4, 4, 4, 4, 4};
    ASSERT_EQ(ed_get_voting(info), 0);
    EXPECT_EQ(info.status, -1);
    EXPECT_EQ(info.agree, -1);
}

TEST_F(VotingTest, SelectorsOutsideTheTable_ShouldQuery)
{
    service_->reply("query_voting", "{\"code\":0,\"voting_results\":{\"Status\":3}}");
    for (int selector : {7, -1, 4, 100}) {
        ed_voting_info info{selector, 0, 0, 0, 0, 0};
        ASSERT_EQ(ed_set_voting(info), 0) << selector;
        EXPECT_EQ(last_method(), "query_voting") << selector;
        EXPECT_EQ(info.status, 3) << selector;
        EXPECT_EQ(info.agree, -1) << selector;
    }
}

TEST_F(VotingTest, ActionsWithoutResults_ShouldLeaveTheRecordUnchanged)
{
    const struct {
        int selector;
        const char *method;
    } actions[] = {{0, "enter_voting"}, {2, "start_voting"}, {3, "exit_voting"}};
    for (const auto &action : actions) {
        service_->reply(action.method, "{\"code\":0,\"voting_results\":{\"Status\":9,\"Agree\":9}}");
        ed_voting_info info{action.selector, 11, 12, 13, 14, 15};
        ASSERT_EQ(ed_set_voting(info), 0);
        EXPECT_EQ(last_method(), action.method);
        EXPECT_EQ(service_->calls().back().body_length, 0);
        EXPECT_EQ(info.status, action.selector);
        EXPECT_EQ(info.agree, 11);
        EXPECT_EQ(info.time, 15);
    }
}

TEST_F(VotingTest, ActionsWithoutResults_ShouldReturnTheServiceResult)
{
    service_->reply("enter_voting", "{\"code\":-1002}");
    ed_voting_info info{0, 0, 0, 0, 0, 0};
    EXPECT_EQ(ed_set_voting(info), -2);
}

TEST_F(VotingTest, FailingStop_ShouldKeepTheSelector)
{
    service_->reply("stop_voting", "{\"code\":-1002,\"voting_results\":{\"Status\":2}}");
    ed_voting_info info{1, 7, 7, 7, 7, 7};
    EXPECT_EQ(ed_set_voting(info), -2);
    EXPECT_EQ(info.status, 1);
    EXPECT_EQ(info.agree, 7);
}

TEST_F(VotingTest, FailingGet_ShouldLeaveTheRecordAsItWas)
{
    service_->reply("query_voting", "{\"code\":3,\"voting_results\":{\"Status\":2}}");
    ed_voting_info info{8, 8, 8, 8, 8, 8};
    EXPECT_EQ(ed_get_voting(info), -1);
    EXPECT_EQ(info.status, 8);
    EXPECT_EQ(info.time, 8);
}
