// SPDX-License-Identifier: MIT
// The control items and group-conflict items of the microphone control file.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "config/config_cycle.h"
#include "microphone_test_support.h"

using vask_test::expect_lines;
using vask_test::formatted;
using vask_test::identities;
using vask_test::item_json;
using vask_test::make_item;
using vask_test::kModes;
using vask_test::with_lists;
using vask_test::utils_line;

namespace {

using id_list = std::vector<std::pair<std::string, std::string>>;

class MicrophoneItemsTest : public ::testing::Test {
protected:
    vask_test::mic_root root_;
    vask_test::log_capture log_;

    void TearDown() override { EXPECT_TRUE(vask_ed::config_lock_is_free()); }

    void set_lists(const std::string &controls, const std::string &conflicts = "[]")
    {
        root_.set_document(with_lists(controls, conflicts));
    }
    void expect_lists(const std::string &controls, const std::string &conflicts = "[]")
    {
        EXPECT_EQ(root_.file(), formatted(with_lists(controls, conflicts)));
    }

    std::vector<microphone_info> read_controls(const std::string &gr = "", const std::string &id = "",
                                               int expected_result = 0)
    {
        std::vector<microphone_info> list;
        EXPECT_EQ(ReadRegisteredMicListFromConfig(gr, id, &list), expected_result);
        return list;
    }
};

} // namespace

TEST_F(MicrophoneItemsTest, UpdateControlItem_ShouldReplaceTheEntryOfTheSameIdentityAndMoveItToTheEnd)
{
    std::vector<microphone_info> list = {make_item("1", "2", "old"), make_item("1", "3")};
    microphone_info item = make_item("1", "2", "new", {{4, 5}}, 6);
    item.tag = 9;
    EXPECT_EQ(UpdateControlItem(&list, &item), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "3"}, {"1", "2"}}));
    EXPECT_TRUE(vask_test::same_item(list[1], item));
}

TEST_F(MicrophoneItemsTest, UpdateControlItem_ShouldCompareGroupAndIdExactlyIncludingEmptyOnes)
{
    std::vector<microphone_info> list = {make_item("1", ""), make_item("", "1"), make_item("01", "2")};
    microphone_info item = make_item("1", "");
    EXPECT_EQ(UpdateControlItem(&list, &item), 0);
    EXPECT_EQ(identities(list), (id_list{{"", "1"}, {"01", "2"}, {"1", ""}}));
}

TEST_F(MicrophoneItemsTest, UpdateControlItem_IntoAnEmptyList_ShouldGiveAListOfOne)
{
    std::vector<microphone_info> list;
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(UpdateControlItem(&list, &item), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "2"}}));
}

TEST_F(MicrophoneItemsTest, UpdateControlItem_ShouldNotCompareTheEntryThatSlidesIntoAnErasedPlace)
{
    std::vector<microphone_info> list = {make_item("1", "2", "a"), make_item("1", "2", "b"), make_item("1", "3"),
                                         make_item("1", "2", "c")};
    microphone_info item = make_item("1", "2", "new");
    EXPECT_EQ(UpdateControlItem(&list, &item), 0);
    // "a" goes, "b" slides into its place unseen, "c" is compared and goes.
    ASSERT_EQ(identities(list), (id_list{{"1", "2"}, {"1", "3"}, {"1", "2"}}));
    EXPECT_EQ(list[0].nt, "b");
    EXPECT_EQ(list[2].nt, "new");
}

TEST_F(MicrophoneItemsTest, UpdateControlItem_WithAnItemOfTheListItself_ShouldMergeACopy)
{
    std::vector<microphone_info> list = {make_item("1", "2", "a"), make_item("3", "4")};
    EXPECT_EQ(UpdateControlItem(&list, &list[0]), 0);
    ASSERT_EQ(identities(list), (id_list{{"3", "4"}, {"1", "2"}}));
    EXPECT_EQ(list[1].nt, "a");
}

TEST_F(MicrophoneItemsTest, UpdateControlItem_WithNullArguments_ShouldFail)
{
    std::vector<microphone_info> list = {make_item("1", "2")};
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(UpdateControlItem(nullptr, &item), -1);
    EXPECT_EQ(UpdateControlItem(&list, nullptr), -1);
    EXPECT_EQ(list.size(), 1u);
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithoutFilters_ShouldGiveEveryEntryThatHasAGroup)
{
    set_lists(R"([{"gr":"1","id":"1","nt":"a","c0":1,"p0":2,"l":0},{"id":"2"},{"gr":"","id":"3"},{"gr":2,"id":4},)"
              R"(5,{"gr":true,"id":"6"},{"gr":"3"}])");
    std::vector<microphone_info> list = read_controls();
    ASSERT_EQ(identities(list), (id_list{{"1", "1"}, {"2", "4"}, {"3", ""}}));
    EXPECT_TRUE(vask_test::same_item(list[0], make_item("1", "1", "a", {{1, 2}}, 0)));
    expect_lines(log_.lines(), {utils_line(2, "ReadRegisteredMicListFromConfig", "Read Mic Control Config")});
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithAGroupFilter_ShouldGiveThatGroupAlsoWhenItIsANumber)
{
    set_lists(R"([{"gr":"5","id":"1"},{"gr":"6","id":"1"},{"gr":5,"id":2},{"gr":"55","id":"3"}])");
    EXPECT_EQ(identities(read_controls("5")), (id_list{{"5", "1"}, {"5", "2"}}));
    EXPECT_EQ(identities(read_controls("5", "2")), (id_list{{"5", "2"}}));
    EXPECT_EQ(identities(read_controls("", "1")), (id_list{{"5", "1"}, {"6", "1"}}));
    EXPECT_TRUE(read_controls("7").empty());
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithTwoEntriesOfOneIdentity_ShouldKeepTheLaterInItsPlace)
{
    set_lists(R"([{"gr":"1","id":"2","nt":"first"},{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"second"},)"
              R"({"gr":"1","id":"4"}])");
    std::vector<microphone_info> list = read_controls();
    ASSERT_EQ(identities(list), (id_list{{"1", "3"}, {"1", "2"}, {"1", "4"}}));
    EXPECT_EQ(list[1].nt, "second");
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_ShouldGiveTheListThatUpdateControlItemBuilds)
{
    // Many entries of few identities, in a scrambled order, some numbers and some texts.
    std::string array = "[";
    std::vector<microphone_info> merged;
    for (int i = 0; i < 200; ++i) {
        microphone_info entry = make_item(std::to_string(i * 7 % 5), std::to_string(i * 13 % 11), "n" + std::to_string(i));
        array += (i > 0 ? "," : "") + item_json(entry);
        EXPECT_EQ(UpdateControlItem(&merged, &entry), 0);
    }
    set_lists(array + "]");
    std::vector<microphone_info> list = read_controls();
    ASSERT_EQ(list.size(), merged.size());
    for (size_t i = 0; i < list.size(); ++i)
        EXPECT_TRUE(vask_test::same_item(list[i], merged[i])) << i;
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_ShouldReplaceTheCallersList)
{
    set_lists(R"([{"gr":"1","id":"2"}])");
    std::vector<microphone_info> list = {make_item("9", "9")};
    EXPECT_EQ(ReadRegisteredMicListFromConfig("", "", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"1", "2"}}));
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithAMissingFile_ShouldLeaveTheListAsItWas)
{
    root_.remove_file();
    std::vector<microphone_info> list = {make_item("9", "9")};
    EXPECT_EQ(ReadRegisteredMicListFromConfig("", "", &list), -1);
    EXPECT_EQ(identities(list), (id_list{{"9", "9"}}));
    expect_lines(log_.lines(), {utils_line(2, "ReadRegisteredMicListFromConfig", "Read Mic Control Config"),
                                utils_line(0, "ReadRegisteredMicListFromConfig", "open config file failed")});
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithAMalformedFile_ShouldEmptyTheListAndFail)
{
    root_.set_file("{\"microphone_config\": [");
    std::vector<microphone_info> list = {make_item("9", "9")};
    EXPECT_EQ(ReadRegisteredMicListFromConfig("", "", &list), -1);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(root_.file(), "{\"microphone_config\": [");
    ASSERT_EQ(log_.lines().size(), 2u);
    EXPECT_EQ(log_.lines()[1].level, 0);
    EXPECT_EQ(log_.lines()[1].message.rfind("error:", 0), 0u) << log_.lines()[1].message;
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithoutAnArray_ShouldEmptyTheListAndFail)
{
    for (const char *text : {R"({"microphone_group_conflict_config":[]})", R"({"microphone_config":{"gr":"1"}})", "[]"}) {
        root_.set_document(text);
        std::vector<microphone_info> list = {make_item("9", "9")};
        EXPECT_EQ(ReadRegisteredMicListFromConfig("", "", &list), -1) << text;
        EXPECT_TRUE(list.empty()) << text;
    }
    EXPECT_EQ(log_.with_message("error:(null)").size(), 3u);
}

TEST_F(MicrophoneItemsTest, ReadRegisteredMicListFromConfig_WithANullList_ShouldFail)
{
    EXPECT_EQ(ReadRegisteredMicListFromConfig("", "", nullptr), -1);
    expect_lines(log_.lines(), {utils_line(0, "ReadRegisteredMicListFromConfig", "null point")});
}

TEST_F(MicrophoneItemsTest, ReadMicrophoneGroupConflictConfig_ShouldKeepTheLastEntryOfEachGroupAndFilterOnTheGroup)
{
    set_lists("[]", R"([{"gr":"1","nt":"a"},{"gr":"2"},{"gr":"1","nt":"b"},{"nt":"none"},{"gr":3}])");
    std::vector<microphone_info> list;
    EXPECT_EQ(ReadMicrophoneGroupConflictConfig("", &list), 0);
    ASSERT_EQ(identities(list), (id_list{{"2", ""}, {"1", ""}, {"3", ""}}));
    EXPECT_EQ(list[1].nt, "b");
    EXPECT_EQ(ReadMicrophoneGroupConflictConfig("3", &list), 0);
    EXPECT_EQ(identities(list), (id_list{{"3", ""}}));
    EXPECT_EQ(ReadMicrophoneGroupConflictConfig("4", &list), 0);
    EXPECT_TRUE(list.empty());
    expect_lines(log_.lines(), {utils_line(2, "ReadMicrophoneGroupConflictConfig", "Read Mic GroupConflict Config"),
                                utils_line(2, "ReadMicrophoneGroupConflictConfig", "Read Mic GroupConflict Config"),
                                utils_line(2, "ReadMicrophoneGroupConflictConfig", "Read Mic GroupConflict Config")});
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_ShouldAppendTheItemWithEverySetMember)
{
    set_lists(R"([{"gr":"1","id":"1"}])");
    microphone_info item = make_item("2", "7", "Chair", {{3, 1}, {3, 9}, {4, 2}}, 2, -1, 0);
    EXPECT_EQ(AddMicrophoneControlSettings(&item), 0);
    expect_lists(R"([{"gr":"1","id":"1"},{"gr":"2","id":"7","nt":"Chair","c0":3,"p0":1,"c1":4,"p1":2,"l":2,"b":0}])");
    expect_lines(log_.lines(), {utils_line(2, "AddMicrophoneControlSettings", "Add Mic Control Settings")});
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_OfAStoredIdentity_ShouldReplaceItAndMoveItToTheEnd)
{
    set_lists(R"([{"gr":"1","id":"2","nt":"old","l":1},{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"dup"}])");
    microphone_info item = make_item("1", "2", "new");
    EXPECT_EQ(AddMicrophoneControlSettings(&item), 0);
    // Only the first stored entry of the identity is replaced.
    expect_lists(R"([{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"dup"},{"gr":"1","id":"2","nt":"new"}])");
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_ShouldReplaceAnEntryStoredWithNumbers)
{
    set_lists(R"([{"gr":1,"id":7,"nt":"numbers"},{"gr":"2","id":"1"}])");
    microphone_info item = make_item("1", "7", "text");
    EXPECT_EQ(AddMicrophoneControlSettings(&item), 0);
    expect_lists(R"([{"gr":"2","id":"1"},{"gr":"1","id":"7","nt":"text"}])");
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_WithoutTheArray_ShouldFailAndLeaveTheFile)
{
    root_.set_document(R"({"microphone_group_conflict_config":[]})");
    std::string before = root_.file();
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(AddMicrophoneControlSettings(&item), -1);
    EXPECT_EQ(root_.file(), before);
    expect_lines(log_.lines(), {utils_line(2, "AddMicrophoneControlSettings", "Add Mic Control Settings"),
                                utils_line(0, "AddMicrophoneControlSettings", "error:(null)")});
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_WithAMissingFile_ShouldFailWithoutCreatingIt)
{
    root_.remove_file();
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(AddMicrophoneControlSettings(&item), -1);
    EXPECT_FALSE(root_.has_file());
    expect_lines(log_.lines(), {utils_line(2, "AddMicrophoneControlSettings", "Add Mic Control Settings"),
                                utils_line(0, "AddMicrophoneControlSettings", "open config file failed")});
}

TEST_F(MicrophoneItemsTest, AddMicrophoneControlSettings_WithAMalformedFile_ShouldFailAndLeaveIt)
{
    root_.set_file("not json");
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(AddMicrophoneControlSettings(&item), -1);
    EXPECT_EQ(root_.file(), "not json");
    expect_lines(log_.lines(), {utils_line(2, "AddMicrophoneControlSettings", "Add Mic Control Settings"),
                                utils_line(0, "AddMicrophoneControlSettings", "error:not json")});
}

TEST_F(MicrophoneItemsTest, AddMicrophoneGroupConflictConfig_ShouldReplaceTheGroupsEntryAndStoreNoId)
{
    set_lists(R"([{"gr":"1","id":"1"}])", R"([{"gr":"1","nt":"old","c0":1,"p0":1},{"gr":"2"}])");
    microphone_info item = make_item("1", "5", "new", {{2, 2}});
    EXPECT_EQ(AddMicrophoneGroupConflictConfig(&item), 0);
    expect_lists(R"([{"gr":"1","id":"1"}])", R"([{"gr":"2"},{"gr":"1","nt":"new","c0":2,"p0":2}])");
    expect_lines(log_.lines(), {utils_line(2, "AddMicrophoneGroupConflictConfig", "Add Mic GroupConflict Config")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneControlConfig_ShouldReplaceTheWholeArrayAndMoveItToTheEnd)
{
    set_lists(R"([{"gr":"9","id":"9"}])", R"([{"gr":"1"}])");
    std::vector<microphone_info> list = {make_item("1", "2", "a", {{1, 1}}), make_item("3", "", "", {}, 4)};
    EXPECT_EQ(UpdateMicrophoneControlConfig(&list), 0);
    EXPECT_EQ(root_.file(), formatted(std::string(R"({"microphone_group_conflict_config":[{"gr":"1"}],)") + kModes +
                                      R"(,"microphone_config":[{"gr":"1","id":"2","nt":"a","c0":1,"p0":1},)"
                                      R"({"gr":"3","l":4}]})"));
    expect_lines(log_.lines(), {utils_line(2, "UpdateMicrophoneControlConfig", "Update Mic Control Config"),
                                utils_line(2, "UpdateMicrophoneControlConfig", "Update microphone_list 1-2"),
                                utils_line(2, "UpdateMicrophoneControlConfig", "Update microphone_list 3-")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneControlConfig_WithAnEmptyList_ShouldWriteAnEmptyArray)
{
    set_lists(R"([{"gr":"9","id":"9"}])");
    std::vector<microphone_info> list;
    EXPECT_EQ(UpdateMicrophoneControlConfig(&list), 0);
    EXPECT_EQ(root_.file(), formatted(std::string(R"({"microphone_group_conflict_config":[],)") + kModes +
                                      R"(,"microphone_config":[]})"));
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneControlConfig_WithAMalformedFile_ShouldRebuildItHoldingTheListAlone)
{
    root_.set_file("{\"microphone_default_config\": {\"cancel_mode\": 3}, \"x\": bad}");
    std::vector<microphone_info> list = {make_item("1", "2")};
    EXPECT_EQ(UpdateMicrophoneControlConfig(&list), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"microphone_config":[{"gr":"1","id":"2"}]})"));
    expect_lines(log_.lines(), {utils_line(2, "UpdateMicrophoneControlConfig", "Update Mic Control Config"),
                                utils_line(0, "UpdateMicrophoneControlConfig", "error:bad}"),
                                utils_line(2, "UpdateMicrophoneControlConfig", "Update microphone_list 1-2")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneControlConfig_WithAMissingFile_ShouldFailWithTheWriterMessage)
{
    root_.remove_file();
    std::vector<microphone_info> list = {make_item("1", "2")};
    EXPECT_EQ(UpdateMicrophoneControlConfig(&list), -1);
    EXPECT_FALSE(root_.has_file());
    expect_lines(log_.lines(),
                 {utils_line(2, "UpdateMicrophoneControlConfig", "Update Mic Control Config"),
                  utils_line(0, "UpdateMicrophoneControlConfig", "open external_device config file failed")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneControlConfig_WithARootThatIsNotAnObject_ShouldFailAndLeaveTheFile)
{
    root_.set_file("[1]");
    std::vector<microphone_info> list = {make_item("1", "2")};
    EXPECT_EQ(UpdateMicrophoneControlConfig(&list), -1);
    EXPECT_EQ(root_.file(), "[1]");
    EXPECT_EQ(UpdateMicrophoneControlConfig(nullptr), -1);
    expect_lines(log_.lines(), {utils_line(2, "UpdateMicrophoneControlConfig", "Update Mic Control Config"),
                                utils_line(0, "UpdateMicrophoneControlConfig", "error:(null)"),
                                utils_line(0, "UpdateMicrophoneControlConfig", "null point")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneGroupConflictConfig_ShouldWriteTheListWithoutIds)
{
    set_lists(R"([{"gr":"9","id":"9"}])", R"([{"gr":"1"}])");
    std::vector<microphone_info> list = {make_item("4", "2", "x"), make_item("5", "")};
    EXPECT_EQ(UpdateMicrophoneGroupConflictConfig(&list), 0);
    EXPECT_EQ(root_.file(), formatted(std::string(R"({"microphone_config":[{"gr":"9","id":"9"}],)") + kModes +
                                      R"(,"microphone_group_conflict_config":[{"gr":"4","nt":"x"},{"gr":"5"}]})"));
    expect_lines(log_.lines(),
                 {utils_line(2, "UpdateMicrophoneGroupConflictConfig", "Update Mic GroupConflict Config"),
                  utils_line(2, "UpdateMicrophoneGroupConflictConfig", "Update group_conflict 4"),
                  utils_line(2, "UpdateMicrophoneGroupConflictConfig", "Update group_conflict 5")});
}

TEST_F(MicrophoneItemsTest, UpdateMicrophoneGroupConflictConfig_WithAnEmptyFile_ShouldRebuildIt)
{
    root_.set_file("");
    std::vector<microphone_info> list = {make_item("4", "")};
    EXPECT_EQ(UpdateMicrophoneGroupConflictConfig(&list), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"microphone_group_conflict_config":[{"gr":"4"}]})"));
}

TEST_F(MicrophoneItemsTest, DeleteMicrophoneControlConfig_ShouldRemoveTheFirstEntryOfTheIdentity)
{
    set_lists(R"([{"gr":"1","id":"2","nt":"a"},{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"b"}])", R"([{"gr":"1"}])");
    microphone_info item = make_item("1", "2", "whatever");
    EXPECT_EQ(DeleteMicrophoneControlConfig(&item), 0);
    expect_lists(R"([{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"b"}])", R"([{"gr":"1"}])");
    expect_lines(log_.lines(), {utils_line(2, "DeleteMicrophoneControlConfig", "Delete Mic Control Config")});
}

TEST_F(MicrophoneItemsTest, DeleteMicrophoneControlConfig_OfAnItemNotStored_ShouldSucceedAndRewriteTheSameDocument)
{
    // Written compact, the file comes back formatted: proof that it was rewritten, unchanged.
    std::string compact = with_lists(R"([{"gr":"1","id":"2"}])", "[]");
    root_.set_file(compact);
    microphone_info item = make_item("1", "3");
    EXPECT_EQ(DeleteMicrophoneControlConfig(&item), 0);
    EXPECT_EQ(root_.file(), formatted(compact));
}

TEST_F(MicrophoneItemsTest, DeleteFunctions_WithoutTheirArrayOrFile_ShouldFail)
{
    root_.set_document(R"({"x":1})");
    microphone_info item = make_item("1", "2");
    EXPECT_EQ(DeleteMicrophoneControlConfig(&item), -1);
    EXPECT_EQ(DeleteMicrophoneGroupConflictConfig(&item), -1);
    EXPECT_EQ(root_.file(), formatted(R"({"x":1})"));
    root_.remove_file();
    EXPECT_EQ(DeleteMicrophoneControlConfig(&item), -1);
    EXPECT_EQ(DeleteMicrophoneGroupConflictConfig(nullptr), -1);
    EXPECT_FALSE(root_.has_file());
    expect_lines(log_.lines(),
                 {utils_line(2, "DeleteMicrophoneControlConfig", "Delete Mic Control Config"),
                  utils_line(0, "DeleteMicrophoneControlConfig", "error:(null)"),
                  utils_line(2, "DeleteMicrophoneGroupConflictConfig", "Delete Mic GroupConflict Config"),
                  utils_line(0, "DeleteMicrophoneGroupConflictConfig", "error:(null)"),
                  utils_line(2, "DeleteMicrophoneControlConfig", "Delete Mic Control Config"),
                  utils_line(0, "DeleteMicrophoneControlConfig", "open config file failed"),
                  utils_line(0, "DeleteMicrophoneGroupConflictConfig", "null point")});
}

TEST_F(MicrophoneItemsTest, DeleteMicrophoneGroupConflictConfig_ShouldMatchOnTheGroupAlone)
{
    set_lists("[]", R"([{"gr":"1","nt":"a"},{"gr":"2"},{"gr":"1","nt":"b"}])");
    microphone_info item = make_item("1", "anything");
    EXPECT_EQ(DeleteMicrophoneGroupConflictConfig(&item), 0);
    expect_lists("[]", R"([{"gr":"2"},{"gr":"1","nt":"b"}])");
    expect_lines(log_.lines(),
                 {utils_line(2, "DeleteMicrophoneGroupConflictConfig", "Delete Mic GroupConflict Config")});
}

TEST_F(MicrophoneItemsTest, TenThousandItems_ShouldBeReadAddedReplacedAndDeletedCorrectly)
{
    const int count = 10000;
    std::vector<microphone_info> stored;
    for (int i = 0; i < count; ++i)
        stored.push_back(make_item(std::to_string(i / 100), std::to_string(i), "Seat " + std::to_string(i),
                                   {{i % 7, 1}, {7, i % 3}}, i % 4));
    TULO_LOG_set_level(1);
    ASSERT_EQ(UpdateMicrophoneControlConfig(&stored), 0);

    std::vector<microphone_info> list = read_controls();
    ASSERT_EQ(list.size(), stored.size());
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(vask_test::same_item(list[i], stored[i])) << i;

    microphone_info added = make_item("new", "1", "added");
    ASSERT_EQ(AddMicrophoneControlSettings(&added), 0);
    microphone_info replaced = make_item("0", "5", "replaced");
    ASSERT_EQ(AddMicrophoneControlSettings(&replaced), 0);
    microphone_info deleted = make_item("99", "9999");
    ASSERT_EQ(DeleteMicrophoneControlConfig(&deleted), 0);

    list = read_controls();
    ASSERT_EQ(list.size(), static_cast<size_t>(count));
    EXPECT_EQ(identities({list[4], list[5]}), (id_list{{"0", "4"}, {"0", "6"}}));
    EXPECT_EQ(identities({list[count - 3], list[count - 2], list[count - 1]}),
              (id_list{{"99", "9998"}, {"new", "1"}, {"0", "5"}}));
    EXPECT_EQ(list[count - 1].nt, "replaced");
    EXPECT_EQ(identities(read_controls("99")).size(), 99u);
    EXPECT_TRUE(log_.with_message("error:(null)").empty());
}

TEST_F(MicrophoneItemsTest, WritersOnManyThreads_ShouldAllLandTheirItems)
{
    TULO_LOG_set_level(1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 25; ++i) {
                microphone_info item = make_item(std::to_string(t), std::to_string(i));
                EXPECT_EQ(AddMicrophoneControlSettings(&item), 0);
                EXPECT_EQ(AddMicrophoneGroupConflictConfig(&item), 0);
                std::vector<microphone_info> seen;
                EXPECT_EQ(ReadRegisteredMicListFromConfig(std::to_string(t), "", &seen), 0);
                EXPECT_EQ(seen.size(), static_cast<size_t>(i + 1));
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(read_controls().size(), 100u);
    std::vector<microphone_info> groups;
    EXPECT_EQ(ReadMicrophoneGroupConflictConfig("", &groups), 0);
    // One entry per group, the order being that of the threads' last writes.
    id_list found = identities(groups);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (id_list{{"0", ""}, {"1", ""}, {"2", ""}, {"3", ""}}));
}
