// SPDX-License-Identifier: MIT
// The application's microphone control operations against a fake "external_device" service.
#include <gtest/gtest.h>
#include <memory>

#include "config/config_cycle.h"
#include "core_test_fixture.h"
#include "microphone_test_support.h"

using vask_test::formatted;
using vask_test::identities;
using vask_test::make_item;
using vask_test::with_lists;
using vask_test::received_call;

namespace {

using id_list = std::vector<std::pair<std::string, std::string>>;

// What the service received, as (method, body) pairs.
std::vector<std::pair<std::string, std::string>> bodies(const std::vector<received_call> &calls)
{
    std::vector<std::pair<std::string, std::string>> result;
    for (const received_call &call : calls)
        result.emplace_back(call.method, call.body);
    return result;
}

using call_list = std::vector<std::pair<std::string, std::string>>;

class MicrophoneOperationsTest : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        root_ = std::make_unique<vask_test::mic_root>();
        ASSERT_EQ(ed_init(), 0);
    }
    void TearDown() override
    {
        EXPECT_TRUE(vask_ed::config_lock_is_free());
        LibraryTest::TearDown();
        root_.reset();
    }

    call_list calls() { return bodies(service_->calls()); }

    std::unique_ptr<vask_test::mic_root> root_;
    // A full item and the body that carries it.
    microphone_info chair_ = make_item("1", "7", "Chair", {{3, 1}, {3, 2}, {4, 0}}, 2, -1, 0, 1);
    const std::string chair_body_ = R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"c1":4,"p1":0,"l":2,"b":0,"s":1})";
};

} // namespace

TEST_F(MicrophoneOperationsTest, SetMicControlInfo_ShouldStoreTheItemThenSendIt)
{
    EXPECT_EQ(ed_set_mic_control_info(chair_), 0);
    EXPECT_EQ(root_->file(), formatted(with_lists("[" + chair_body_ + "]", "[]")));
    EXPECT_EQ(calls(), (call_list{{"update_microphone_control_item", chair_body_}}));
}

TEST_F(MicrophoneOperationsTest, SetMicControlInfo_WithAMissingFile_ShouldFailAndSendNothing)
{
    root_->remove_file();
    EXPECT_EQ(ed_set_mic_control_info(chair_), -1);
    EXPECT_FALSE(root_->has_file());
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(MicrophoneOperationsTest, SetMicControlInfo_WhenTheServiceFails_ShouldKeepTheStoredItemAndReturnTheError)
{
    service_->reply("update_microphone_control_item", R"({"code":-1003})");
    EXPECT_EQ(ed_set_mic_control_info(chair_), -3);
    EXPECT_EQ(root_->file(), formatted(with_lists("[" + chair_body_ + "]", "[]")));
}

TEST_F(MicrophoneOperationsTest, DelMicControlInfo_ShouldRemoveTheItemThenSendIt)
{
    root_->set_document(with_lists(R"([{"gr":"1","id":"7"},{"gr":"1","id":"8"}])", "[]"));
    EXPECT_EQ(ed_del_mic_control_info(chair_), 0);
    EXPECT_EQ(root_->file(), formatted(with_lists(R"([{"gr":"1","id":"8"}])", "[]")));
    EXPECT_EQ(calls(), (call_list{{"delete_microphone_control_item", chair_body_}}));
}

TEST_F(MicrophoneOperationsTest, DelMicControlInfo_OfAnItemNotStored_ShouldStillCallTheServiceAndReturnItsResult)
{
    service_->reply("delete_microphone_control_item", R"({"code":-1002})");
    microphone_info item = make_item("5", "5");
    EXPECT_EQ(ed_del_mic_control_info(item), -2);
    EXPECT_EQ(calls(), (call_list{{"delete_microphone_control_item", R"({"gr":"5","id":"5"})"}}));
}

TEST_F(MicrophoneOperationsTest, SetMicGroupConflictInfo_ShouldStoreWithoutIdButSendTheId)
{
    EXPECT_EQ(ed_set_mic_group_conflict_info(chair_), 0);
    EXPECT_EQ(root_->file(),
              formatted(with_lists("[]", R"([{"gr":"1","nt":"Chair","c0":3,"p0":1,"c1":4,"p1":0,"l":2,"b":0,"s":1}])")));
    EXPECT_EQ(calls(), (call_list{{"update_mic_group_conflict_item", chair_body_}}));
}

TEST_F(MicrophoneOperationsTest, DelMicGroupConflictInfo_ShouldRemoveTheGroupsItemThenSendTheBody)
{
    root_->set_document(with_lists("[]", R"([{"gr":"2"},{"gr":"1","nt":"x"}])"));
    EXPECT_EQ(ed_del_mic_group_conflict_info(chair_), 0);
    EXPECT_EQ(root_->file(), formatted(with_lists("[]", R"([{"gr":"2"}])")));
    EXPECT_EQ(calls(), (call_list{{"delete_mic_group_conflict_item", chair_body_}}));
}

TEST_F(MicrophoneOperationsTest, ItemSetters_WhenTheStoreFails_ShouldNotCallTheService)
{
    root_->set_file("broken");
    EXPECT_EQ(ed_set_mic_control_info(chair_), -1);
    EXPECT_EQ(ed_del_mic_control_info(chair_), -1);
    EXPECT_EQ(ed_set_mic_group_conflict_info(chair_), -1);
    EXPECT_EQ(ed_del_mic_group_conflict_info(chair_), -1);
    EXPECT_EQ(root_->file(), "broken");
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(MicrophoneOperationsTest, ExeMicControlInfo_ShouldSimulateExecuteOrGoHomeWithoutTouchingTheFile)
{
    std::string before = root_->file();
    EXPECT_EQ(ed_exe_mic_control_info(0, chair_), 0);
    EXPECT_EQ(ed_exe_mic_control_info(1, chair_), 0);
    EXPECT_EQ(ed_exe_mic_control_info(2, chair_), 0);
    EXPECT_EQ(calls(), (call_list{{"simulate_microphone_control_item", chair_body_},
                                  {"execute_microphone_control_item", chair_body_},
                                  {"execute_microphone_control_home", ""}}));
    EXPECT_EQ(service_->calls()[2].body_length, 0);
    EXPECT_EQ(root_->file(), before);
}

TEST_F(MicrophoneOperationsTest, ExeMicControlInfo_WithAnUnknownAction_ShouldCallNothingAndGiveMinusTwo)
{
    EXPECT_EQ(ed_exe_mic_control_info(3, chair_), -2);
    EXPECT_EQ(ed_exe_mic_control_info(-1, chair_), -2);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(MicrophoneOperationsTest, ExeMicControlInfo_ShouldReturnTheServicesResult)
{
    service_->reply("execute_microphone_control_item", R"({"code":-5})");
    EXPECT_EQ(ed_exe_mic_control_info(1, chair_), -4);
}

TEST_F(MicrophoneOperationsTest, ModeSetters_ShouldStoreThenNotifyWithoutABody)
{
    microphone_info conflict = make_item("1", "2", "conflict", {}, 1);
    microphone_info cancel = make_item("", "", "cancel", {{2, 3}});
    multiple_speakers_mode mode{3, 1};
    EXPECT_EQ(ed_set_mic_control_conflict_mode_info(conflict), 0);
    EXPECT_EQ(ed_set_mic_control_cancel_mode_info(2, cancel), 0);
    EXPECT_EQ(ed_set_mic_control_multiple_speakers_mode_info(mode), 0);
    EXPECT_EQ(root_->file(),
              formatted(R"({"microphone_config":[],"microphone_group_conflict_config":[],)"
                        R"("microphone_general_conflict_config":{"nt":"conflict","l":1},)"
                        R"("microphone_default_config":{"cancel_mode":2,"nt":"cancel","c0":2,"p0":3},)"
                        R"("microphone_multiple_speakers_mode":{"multi_mode":3,"cancel_mode":1}})"));
    EXPECT_EQ(calls(), (call_list{{"mic_control_conflict_mode", ""},
                                  {"mic_control_cancel_mode", ""},
                                  {"mic_control_multiple_speakers_mode", ""}}));
}

TEST_F(MicrophoneOperationsTest, ModeSetters_WhenTheStoreFails_ShouldNotCallTheService)
{
    root_->remove_file();
    microphone_info info;
    multiple_speakers_mode mode;
    EXPECT_EQ(ed_set_mic_control_conflict_mode_info(info), -1);
    EXPECT_EQ(ed_set_mic_control_cancel_mode_info(1, info), -1);
    EXPECT_EQ(ed_set_mic_control_multiple_speakers_mode_info(mode), -1);
    EXPECT_TRUE(service_->calls().empty());
    EXPECT_FALSE(root_->has_file());
}

TEST_F(MicrophoneOperationsTest, ModeSetters_WhenTheServiceFails_ShouldKeepTheStoreAndReturnItsResult)
{
    service_->reply("mic_control_multiple_speakers_mode", R"({"code":-1001})");
    multiple_speakers_mode mode{5, 6};
    EXPECT_EQ(ed_set_mic_control_multiple_speakers_mode_info(mode), -1);
    EXPECT_EQ(calls(), (call_list{{"mic_control_multiple_speakers_mode", ""}}));
    multiple_speakers_mode read{-9, -9};
    EXPECT_EQ(ed_get_mic_control_multiple_speakers_mode_info(&read), 0);
    EXPECT_EQ(read.multi_mode, 5);
    EXPECT_EQ(read.cancel_mode, 6);
}

TEST_F(MicrophoneOperationsTest, ModeReaders_ShouldGiveWhatTheSettersStored)
{
    microphone_info cancel = make_item("", "", "c", {{1, 2}}, 3);
    ASSERT_EQ(ed_set_mic_control_cancel_mode_info(4, cancel), 0);
    microphone_info conflict = make_item("", "", "g", {}, -1, 1);
    ASSERT_EQ(ed_set_mic_control_conflict_mode_info(conflict), 0);

    int cancel_mode = -9;
    microphone_info read;
    EXPECT_EQ(ed_get_mic_control_cancel_mode_info(&cancel_mode, &read), 0);
    EXPECT_EQ(cancel_mode, 4);
    EXPECT_TRUE(vask_test::same_item(read, cancel));
    EXPECT_EQ(ed_get_mic_control_conflict_mode_info(&read), 0);
    EXPECT_TRUE(vask_test::same_item(read, conflict));
    EXPECT_EQ(ed_get_mic_control_conflict_mode_info(nullptr), -1);
}

TEST_F(MicrophoneOperationsTest, GetMicControlInfo_ShouldGiveTheStoredItemsFiltered)
{
    root_->set_document(with_lists(R"([{"gr":"1","id":"1"},{"gr":"2","id":"1"},{"gr":"1","id":"2"}])", "[]"));
    std::vector<microphone_info> list = {make_item("old", "old")};
    EXPECT_EQ(ed_get_mic_control_info("1", "", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "1"}, {"1", "2"}}));
    EXPECT_EQ(ed_get_mic_control_info("", "1", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "1"}, {"2", "1"}}));
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(MicrophoneOperationsTest, GetMicControlInfo_WhenNothingMatches_ShouldGiveMinusOneAndAnEmptyList)
{
    root_->set_document(with_lists(R"([{"gr":"1","id":"1"}])", "[]"));
    std::vector<microphone_info> list = {make_item("old", "old")};
    EXPECT_EQ(ed_get_mic_control_info("3", "", &list), -1);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(ed_get_mic_control_info("", "", nullptr), -1);
}

TEST_F(MicrophoneOperationsTest, GetMicControlInfo_WhenTheFileCannotBeOpened_ShouldKeepTheListAndJudgeIt)
{
    root_->remove_file();
    std::vector<microphone_info> list = {make_item("old", "old")};
    EXPECT_EQ(ed_get_mic_control_info("", "", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"old", "old"}}));
    list.clear();
    EXPECT_EQ(ed_get_mic_control_info("", "", &list), -1);
}

TEST_F(MicrophoneOperationsTest, GetMicGroupConflictInfo_ShouldGiveTheStoredGroupsFiltered)
{
    root_->set_document(with_lists("[]", R"([{"gr":"1","nt":"a"},{"gr":"2"}])"));
    std::vector<microphone_info> list;
    EXPECT_EQ(ed_get_mic_group_conflict_info("", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", ""}, {"2", ""}}));
    EXPECT_EQ(ed_get_mic_group_conflict_info("2", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"2", ""}}));
    EXPECT_EQ(ed_get_mic_group_conflict_info("9", &list), -1);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(ed_get_mic_group_conflict_info("", nullptr), -1);
}

TEST_F(MicrophoneOperationsTest, GetMicGroupConflictInfo_WithAMalformedFile_ShouldEmptyTheListAndFail)
{
    root_->set_file("{");
    std::vector<microphone_info> list = {make_item("old", "")};
    EXPECT_EQ(ed_get_mic_group_conflict_info("", &list), -1);
    EXPECT_TRUE(list.empty());
}

TEST_F(MicrophoneOperationsTest, ItemsSetAndDeletedThroughTheOperations_ShouldBeReadBack)
{
    microphone_info first = make_item("1", "1", "first");
    microphone_info second = make_item("1", "2", "second");
    ASSERT_EQ(ed_set_mic_control_info(first), 0);
    ASSERT_EQ(ed_set_mic_control_info(second), 0);
    first.nt = "again";
    ASSERT_EQ(ed_set_mic_control_info(first), 0);
    std::vector<microphone_info> list;
    ASSERT_EQ(ed_get_mic_control_info("1", "", &list), 0);
    ASSERT_EQ(identities(list), (id_list{{"1", "2"}, {"1", "1"}}));
    EXPECT_EQ(list[1].nt, "again");
    ASSERT_EQ(ed_del_mic_control_info(second), 0);
    ASSERT_EQ(ed_get_mic_control_info("1", "", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "1"}}));
    EXPECT_EQ(service_->calls().size(), 4u);
}
