// SPDX-License-Identifier: MIT
// The microphone item and its JSON form: writing, reading back, deleting from an array, clearing.
#include <gtest/gtest.h>
#include <memory>

#include "core/internal.h"
#include "microphone_test_support.h"

using vask_ed::json_ptr;
using vask_ed::json_text;
using vask_test::formatted;
using vask_test::item_json;
using vask_test::make_item;

namespace {

class MicrophoneRecordTest : public ::testing::Test {
protected:
    // None of these functions touches a file; a system root keeps it so should one try.
    vask_test::mic_root root_;
    vask_test::log_capture log_;

    void TearDown() override { EXPECT_TRUE(log_.lines().empty()) << "the record functions log nothing"; }
};

std::string compact(const cJSON *json)
{
    json_text text(cJSON_PrintUnformatted(json));
    return text ? text.get() : "";
}

json_ptr parse(const char *text)
{
    json_ptr tree(cJSON_Parse(text));
    EXPECT_NE(tree, nullptr) << text;
    return tree;
}

// Reads `text` into a record that starts out filled with other values.
microphone_info read_item(const char *text, int *result = nullptr)
{
    json_ptr object = parse(text);
    microphone_info info = make_item("old", "old", "old", {{9, 9}}, 9, 9, 9, 9);
    int got = cJSON_GetMicroPhoneInfo(object.get(), &info);
    if (result != nullptr)
        *result = got;
    return info;
}

// The array `text` after deleting `info`.
std::string after_delete(const char *text, microphone_info info, bool match_group_only)
{
    json_ptr array = parse(text);
    cJSON_DeleteMicroPhoneInfoFromArray(array.get(), &info, match_group_only);
    return compact(array.get());
}

} // namespace

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldWriteEverySetMemberInOrder)
{
    microphone_info info = make_item("1", "7", "Chair", {{3, 1}, {4, 2}}, 2, 0, 5, 6);
    EXPECT_EQ(item_json(info), R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"c1":4,"p1":2,"l":2,"o":0,"b":5,"s":6})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldRenumberPairsDenselyAndKeepTheFirstPairOfEachC)
{
    microphone_info info = make_item("", "", "", {{3, 1}, {3, 2}, {-1, 4}, {5, -1}, {6, 7}});
    EXPECT_EQ(item_json(info), R"({"c0":3,"p0":1,"c1":6,"p1":7})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldNotCountASkippedPairAsWritten)
{
    // The pair (5,-1) is not written, so a later pair with c 5 is the first of its c.
    microphone_info info = make_item("", "", "", {{5, -1}, {5, 2}, {-1, -1}, {0, 0}});
    EXPECT_EQ(item_json(info), R"({"c0":5,"p0":2,"c1":0,"p1":0})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldLeaveOutGrAndIdOnRequest)
{
    microphone_info info = make_item("1", "7", "Chair", {}, 2);
    EXPECT_EQ(item_json(info, true, false), R"({"gr":"1","nt":"Chair","l":2})");
    EXPECT_EQ(item_json(info, false, true), R"({"id":"7","nt":"Chair","l":2})");
    EXPECT_EQ(item_json(info, true, true), R"({"nt":"Chair","l":2})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldLeaveOutEmptyTextsAndNegativeNumbers)
{
    EXPECT_EQ(item_json(make_item("", "", "", {}, -1, -7, 0, -1)), R"({"b":0})");
    EXPECT_EQ(item_json(make_item("", "3", "")), R"({"id":"3"})");
    EXPECT_EQ(item_json(microphone_info()), "{}");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldWriteTenPairsUpToC9)
{
    std::vector<cpreset> pairs;
    for (int c = 0; c < 10; ++c)
        pairs.push_back({c + 10, c});
    std::string written = item_json(make_item("1", "2", "", pairs));
    EXPECT_EQ(written, R"({"gr":"1","id":"2","c0":10,"p0":0,"c1":11,"p1":1,"c2":12,"p2":2,"c3":13,"p3":3,)"
                       R"("c4":14,"p4":4,"c5":15,"p5":5,"c6":16,"p6":6,"c7":17,"p7":7,"c8":18,"p8":8,"c9":19,"p9":9})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_ShouldAddToTheMembersAlreadyThere)
{
    json_ptr object = parse(R"({"cancel_mode":2})");
    microphone_info info = make_item("1", "2", "x");
    cJSON_AddMicroPhoneInfo(object.get(), &info, false, false);
    EXPECT_EQ(compact(object.get()), R"({"cancel_mode":2,"gr":"1","id":"2","nt":"x"})");
}

TEST_F(MicrophoneRecordTest, AddMicroPhoneInfo_WithNullArguments_ShouldDoNothing)
{
    json_ptr object(cJSON_CreateObject());
    cJSON_AddMicroPhoneInfo(object.get(), nullptr, false, false);
    EXPECT_EQ(compact(object.get()), "{}");
    microphone_info info = make_item("1", "2");
    cJSON_AddMicroPhoneInfo(nullptr, &info, false, false);
    EXPECT_EQ(info.gr, "1");
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_OfAnEmptyObject_ShouldGiveANotSetRecordAndKeepTheTag)
{
    json_ptr object = parse("{}");
    microphone_info info = make_item("g", "i", "n", {{1, 2}}, 1, 2, 3, 4);
    info.tag = 42;
    EXPECT_EQ(cJSON_GetMicroPhoneInfo(object.get(), &info), 0);
    EXPECT_EQ(info.tag, 42);
    EXPECT_EQ(info.gr, "");
    EXPECT_EQ(info.id, "");
    EXPECT_EQ(info.nt, "");
    EXPECT_TRUE(info.cp_list.empty());
    EXPECT_EQ(info.l, -1);
    EXPECT_EQ(info.o, -1);
    EXPECT_EQ(info.b, -1);
    EXPECT_EQ(info.s, -1);
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldReadEveryMember)
{
    int result = -9;
    microphone_info info = read_item(R"({"gr":"1","id":"7","nt":"Chair","c0":3,"p0":1,"c1":4,"p1":2,"l":2,"o":0,"b":5,"s":6})",
                                     &result);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(vask_test::same_item(info, make_item("1", "7", "Chair", {{3, 1}, {4, 2}}, 2, 0, 5, 6)));
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldReadNumberGroupAndIdAsDecimalText)
{
    EXPECT_EQ(read_item(R"({"gr":12})").gr, "12");
    EXPECT_EQ(read_item(R"({"gr":-5})").gr, "-5");
    EXPECT_EQ(read_item(R"({"gr":3.9})").gr, "3");
    EXPECT_EQ(read_item(R"({"gr":true})").gr, "");
    EXPECT_EQ(read_item(R"({"gr":null})").gr, "");
    EXPECT_EQ(read_item(R"({"gr":[1]})").gr, "");
    EXPECT_EQ(read_item(R"({"gr":{"a":1}})").gr, "");
    EXPECT_EQ(read_item(R"({"id":7})").id, "7");
    EXPECT_EQ(read_item(R"({"id":"07"})").id, "07");
    EXPECT_EQ(read_item(R"({"id":false})").id, "");
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldReadANtThatIsNotAStringAsEmpty)
{
    EXPECT_EQ(read_item(R"({"nt":"text"})").nt, "text");
    EXPECT_EQ(read_item(R"({"nt":5})").nt, "");
    EXPECT_EQ(read_item(R"({"nt":null})").nt, "");
    EXPECT_EQ(read_item(R"({"nt":{"x":"y"}})").nt, "");
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldSkipPairGapsAndRenumberThemWhenWrittenBack)
{
    microphone_info info = read_item(R"({"c0":1,"p0":2,"c1":8,"c2":3,"p2":4,"p3":9})");
    ASSERT_EQ(info.cp_list.size(), 2u);
    EXPECT_EQ(info.cp_list[0].c, 1);
    EXPECT_EQ(info.cp_list[0].p, 2);
    EXPECT_EQ(info.cp_list[1].c, 3);
    EXPECT_EQ(info.cp_list[1].p, 4);
    EXPECT_EQ(item_json(info), R"({"c0":1,"p0":2,"c1":3,"p1":4})");
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldReadOnlyTheFirstNinePairs)
{
    std::vector<cpreset> pairs;
    for (int c = 0; c < 10; ++c)
        pairs.push_back({c, c + 100});
    std::string written = item_json(make_item("1", "2", "", pairs));
    microphone_info info = read_item(written.c_str());
    ASSERT_EQ(info.cp_list.size(), 9u);
    EXPECT_EQ(info.cp_list[8].c, 8);
    EXPECT_EQ(info.cp_list[8].p, 108);
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldTakeTheIntegerValueOfNumbersWhateverTheirType)
{
    microphone_info info = read_item(R"({"l":"x","o":2.9,"b":true,"s":false,"c0":"5","p0":1.5})");
    EXPECT_EQ(info.l, 0);
    EXPECT_EQ(info.o, 2);
    EXPECT_EQ(info.b, 1);
    EXPECT_EQ(info.s, 0);
    ASSERT_EQ(info.cp_list.size(), 1u);
    EXPECT_EQ(info.cp_list[0].c, 0);
    EXPECT_EQ(info.cp_list[0].p, 1);
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_ShouldCompareKeysExactly)
{
    microphone_info info = read_item(R"({"GR":"1","Id":"2","NT":"x","L":3,"C0":1,"P0":2})");
    EXPECT_EQ(info.gr, "");
    EXPECT_EQ(info.id, "");
    EXPECT_EQ(info.nt, "");
    EXPECT_EQ(info.l, -1);
    EXPECT_TRUE(info.cp_list.empty());
}

TEST_F(MicrophoneRecordTest, GetMicroPhoneInfo_WithNullArguments_ShouldFailAndLeaveTheRecord)
{
    json_ptr object = parse(R"({"gr":"1"})");
    EXPECT_EQ(cJSON_GetMicroPhoneInfo(object.get(), nullptr), -1);
    microphone_info info = make_item("g", "i");
    EXPECT_EQ(cJSON_GetMicroPhoneInfo(nullptr, &info), -1);
    EXPECT_EQ(info.gr, "g");
    EXPECT_EQ(info.id, "i");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_ShouldRemoveOnlyTheFirstMatch)
{
    const char *array = R"([{"gr":"1","id":"2","nt":"a"},{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"b"}])";
    EXPECT_EQ(after_delete(array, make_item("1", "2"), false),
              R"([{"gr":"1","id":"3"},{"gr":"1","id":"2","nt":"b"}])");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_ShouldNeedTheIdUnlessMatchingTheGroupOnly)
{
    const char *array = R"([{"gr":"1"},{"gr":"1","id":"2"}])";
    EXPECT_EQ(after_delete(array, make_item("1", ""), true), R"([{"gr":"1","id":"2"}])");
    // Without "id" an element never matches, not even a record whose id is empty.
    EXPECT_EQ(after_delete(array, make_item("1", ""), false), R"([{"gr":"1"},{"gr":"1","id":"2"}])");
    EXPECT_EQ(after_delete(array, make_item("1", "2"), false), R"([{"gr":"1"}])");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_ShouldMatchTheGroupAloneWhateverTheId)
{
    EXPECT_EQ(after_delete(R"([{"gr":"2","id":"1"},{"gr":"1","id":"9"}])", make_item("1", "5"), true),
              R"([{"gr":"2","id":"1"}])");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_NextToAStringGroup_ShouldCompareTheIdAsText)
{
    EXPECT_EQ(after_delete(R"([{"gr":"1","id":"7"}])", make_item("1", "7"), false), "[]");
    EXPECT_EQ(after_delete(R"([{"gr":"1","id":"07"}])", make_item("1", "7"), false), R"([{"gr":"1","id":"07"}])");
    // An "id" that is not a string reads as the empty text.
    EXPECT_EQ(after_delete(R"([{"gr":"1","id":7}])", make_item("1", "7"), false), R"([{"gr":"1","id":7}])");
    EXPECT_EQ(after_delete(R"([{"gr":"1","id":7}])", make_item("1", ""), false), "[]");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_NextToANumberGroup_ShouldCompareTheIdAsANumber)
{
    EXPECT_EQ(after_delete(R"([{"gr":1,"id":7}])", make_item("1", "7"), false), "[]");
    EXPECT_EQ(after_delete(R"([{"gr":-4,"id":7}])", make_item("-4", "7"), false), "[]");
    // A string "id" has the integer value 0.
    EXPECT_EQ(after_delete(R"([{"gr":1,"id":"7"}])", make_item("1", "7"), false), R"([{"gr":1,"id":"7"}])");
    EXPECT_EQ(after_delete(R"([{"gr":1,"id":"7"}])", make_item("1", "0"), false), "[]");
    EXPECT_EQ(after_delete(R"([{"gr":1}])", make_item("1", "3"), true), "[]");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_ShouldSkipElementsWithoutAUsableGroup)
{
    const char *array = R"([{"id":"7"},{"gr":true,"id":"7"},{"gr":null,"id":"7"},5,"x",[1],{"gr":"","id":"7"}])";
    EXPECT_EQ(after_delete(array, make_item("", "7"), false),
              R"([{"id":"7"},{"gr":true,"id":"7"},{"gr":null,"id":"7"},5,"x",[1]])");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_WithoutAMatch_ShouldLeaveTheArrayAsItWas)
{
    const char *array = R"([{"gr":"1","id":"2"},{"gr":"3","id":"4"}])";
    EXPECT_EQ(after_delete(array, make_item("1", "4"), false), R"([{"gr":"1","id":"2"},{"gr":"3","id":"4"}])");
    EXPECT_EQ(after_delete("[]", make_item("1", "2"), false), "[]");
}

TEST_F(MicrophoneRecordTest, DeleteMicroPhoneInfoFromArray_WithNullArguments_ShouldDoNothing)
{
    json_ptr array = parse(R"([{"gr":"1","id":"2"}])");
    cJSON_DeleteMicroPhoneInfoFromArray(array.get(), nullptr, false);
    microphone_info info = make_item("1", "2");
    cJSON_DeleteMicroPhoneInfoFromArray(nullptr, &info, false);
    EXPECT_EQ(compact(array.get()), R"([{"gr":"1","id":"2"}])");
}

TEST_F(MicrophoneRecordTest, ResetMicrophoneInfo_ShouldClearEverythingButTheTag)
{
    microphone_info info = make_item("1", "2", "x", {{1, 2}}, 3, 4, 5, 6);
    info.tag = 7;
    EXPECT_EQ(ResetMicrophoneInfo(&info), 0);
    microphone_info cleared;
    cleared.tag = 7;
    EXPECT_TRUE(vask_test::same_item(info, cleared));
    EXPECT_EQ(ResetMicrophoneInfo(nullptr), -1);
}

TEST_F(MicrophoneRecordTest, Records_ShouldStartNotSetAndCarryTheTagWhenCopied)
{
    microphone_info fresh;
    EXPECT_EQ(fresh.l, -1);
    EXPECT_EQ(fresh.o, -1);
    EXPECT_EQ(fresh.b, -1);
    EXPECT_EQ(fresh.s, -1);
    cpreset pair;
    EXPECT_EQ(pair.c, -1);
    EXPECT_EQ(pair.p, -1);
    multiple_speakers_mode mode;
    EXPECT_EQ(mode.multi_mode, 1);
    EXPECT_EQ(mode.cancel_mode, 0);
    microphone_info original = make_item("1", "2", "x", {{1, 2}}, 3);
    original.tag = 200;
    microphone_info copy = original;
    EXPECT_TRUE(vask_test::same_item(copy, original));
    microphone_info moved = std::move(copy);
    EXPECT_EQ(moved.tag, 200);
}

TEST_F(MicrophoneRecordTest, WrittenItems_ShouldPrintAsTheFileHoldsThem)
{
    json_ptr object(cJSON_CreateObject());
    microphone_info info = make_item("1", "2", "", {{3, 4}});
    cJSON_AddMicroPhoneInfo(object.get(), &info, false, false);
    json_text printed(cJSON_Print(object.get()));
    EXPECT_STREQ(printed.get(), "{\n\t\"gr\":\t\"1\",\n\t\"id\":\t\"2\",\n\t\"c0\":\t3,\n\t\"p0\":\t4\n}");
    EXPECT_EQ(formatted(R"({"gr":"1","id":"2","c0":3,"p0":4})"), printed.get());
}
