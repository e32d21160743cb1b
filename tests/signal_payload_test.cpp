// SPDX-License-Identifier: MIT
// The parsers and releasers of the service's signal payloads.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "libvask_external_device.h"

namespace {

template <typename Record>
using owned = std::unique_ptr<Record, void (*)(void *)>;

owned<sig_mic_on_data> mic_on(const char *text)
{
    return owned<sig_mic_on_data>(static_cast<sig_mic_on_data *>(sig_mic_on_parser(text)),
                                  sig_mic_on_releaser);
}

owned<sig_mic_on_data> non_list_mic(const char *text)
{
    return owned<sig_mic_on_data>(static_cast<sig_mic_on_data *>(sig_non_list_mic_parser(text)),
                                  sig_non_list_mic_releaser);
}

owned<sig_voting_results_data> voting(const char *text)
{
    return owned<sig_voting_results_data>(
        static_cast<sig_voting_results_data *>(sig_voting_results_parser(text)),
        sig_voting_results_releaser);
}

owned<sig_info_data_change_data> info_change(const char *text)
{
    return owned<sig_info_data_change_data>(
        static_cast<sig_info_data_change_data *>(sig_info_data_change_parser(text)),
        sig_info_data_change_releaser);
}

owned<sig_cam_status_data> cam_status(const char *text)
{
    return owned<sig_cam_status_data>(static_cast<sig_cam_status_data *>(sig_cam_status_parser(text)),
                                      sig_cam_status_releaser);
}

struct parser_pair {
    const char *name;
    void *(*parser)(const char *);
    void (*releaser)(void *);
};

const parser_pair kAllParsers[] = {
    {"mic_on", sig_mic_on_parser, sig_mic_on_releaser},
    {"voting_results", sig_voting_results_parser, sig_voting_results_releaser},
    {"info_data_change", sig_info_data_change_parser, sig_info_data_change_releaser},
    {"cam_status", sig_cam_status_parser, sig_cam_status_releaser},
    {"non_list_mic", sig_non_list_mic_parser, sig_non_list_mic_releaser},
};

// A payload that every parser accepts.
const char *kEveryKey = R"({"Status":1,"Agree":2,"Disagree":3,"Abandon":4,"Total":10,"Time":60,)"
                        R"("Type":5,"Data":6,"Group":"G","Id":"I","On":true})";

} // namespace

// ---- the microphone records ----

TEST(SignalPayload, SigMicOnParser_ShouldReadGroupAndOnWithIdEmpty)
{
    auto record = mic_on(R"({"Group":"A","On":true})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->group, "A");
    EXPECT_EQ(record->id, "");
    EXPECT_TRUE(record->on);
}

TEST(SignalPayload, SigMicOnParser_ShouldReadIdWithGroupEmptyAndOnZeroAsOff)
{
    auto record = mic_on(R"({"Id":"5","On":0})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->group, "");
    EXPECT_EQ(record->id, "5");
    EXPECT_FALSE(record->on);
}

TEST(SignalPayload, SigMicOnParser_ShouldReturnNullWithoutGroupAndId)
{
    EXPECT_EQ(mic_on(R"({"On":1})"), nullptr);
    EXPECT_EQ(mic_on("{}"), nullptr);
    EXPECT_EQ(mic_on(R"({"group_name":"A","ID_":"1","On":true})"), nullptr);
}

TEST(SignalPayload, SigMicOnParser_ShouldReadAllThreeMembers)
{
    auto record = mic_on(R"({"Group":"hall 2","Id":"17","On":1,"Extra":[1,2]})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->group, "hall 2");
    EXPECT_EQ(record->id, "17");
    EXPECT_TRUE(record->on);
}

TEST(SignalPayload, SigMicOnParser_ShouldLeaveOnFalseWhenItIsMissing)
{
    auto record = mic_on(R"({"Group":"A","Id":"1"})");
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(record->on);
}

TEST(SignalPayload, SigMicOnParser_ShouldSetOnExactlyWhenItsIntegerValueIsOne)
{
    struct case_t {
        const char *on;
        bool expected;
    };
    const case_t cases[] = {
        {"true", true},   {"1", true},     {"1.9", true},  {"false", false}, {"0", false},
        {"2", false},     {"-1", false},   {"0.5", false}, {"\"1\"", false}, {"null", false},
        {"[1]", false},   {"{}", false},
    };
    for (const case_t &c : cases) {
        std::string text = std::string(R"({"Group":"A","On":)") + c.on + "}";
        auto record = mic_on(text.c_str());
        ASSERT_NE(record, nullptr) << text;
        EXPECT_EQ(record->on, c.expected) << text;
    }
}

TEST(SignalPayload, SigMicOnParser_ShouldReadGroupOrIdThatIsNotAStringAsEmpty)
{
    auto number_group = mic_on(R"({"Group":5,"Id":"x","On":true})");
    ASSERT_NE(number_group, nullptr);
    EXPECT_EQ(number_group->group, "");
    EXPECT_EQ(number_group->id, "x");
    EXPECT_TRUE(number_group->on);

    auto null_id = mic_on(R"({"Group":"g","Id":null})");
    ASSERT_NE(null_id, nullptr);
    EXPECT_EQ(null_id->group, "g");
    EXPECT_EQ(null_id->id, "");

    // A present key counts for the required "Group" or "Id" even when its value is not a string.
    for (const char *text : {R"({"Id":{"a":1}})", R"({"Group":["a"]})", R"({"Group":true})"}) {
        auto record = mic_on(text);
        ASSERT_NE(record, nullptr) << text;
        EXPECT_EQ(record->group, "") << text;
        EXPECT_EQ(record->id, "") << text;
    }
}

TEST(SignalPayload, SigMicOnParser_ShouldLookUpKeysAtTheTopLevelOnly)
{
    EXPECT_EQ(mic_on(R"({"data":{"Group":"A","Id":"1"}})"), nullptr);
    EXPECT_EQ(mic_on(R"([{"Group":"A","Id":"1"}])"), nullptr);
}

TEST(SignalPayload, SigMicOnParser_ShouldCopyStringsWithEscapesAndUtf8)
{
    auto record = mic_on(R"({"Group":"Sal\u00f3n \"B\"","Id":"a\\b"})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->group, "Sal\xc3\xb3n \"B\"");
    EXPECT_EQ(record->id, "a\\b");
}

TEST(SignalPayload, SigNonListMicParser_ShouldParseExactlyLikeSigMicOnParser)
{
    const char *texts[] = {
        R"({"Group":"A","On":true})", R"({"Id":"5","On":0})", R"({"On":1})",
        R"({"Group":7,"Id":"9","On":1})", "not json", "",
    };
    for (const char *text : texts) {
        auto expected = mic_on(text);
        auto record = non_list_mic(text);
        ASSERT_EQ(record == nullptr, expected == nullptr) << text;
        if (record == nullptr)
            continue;
        EXPECT_EQ(record->group, expected->group) << text;
        EXPECT_EQ(record->id, expected->id) << text;
        EXPECT_EQ(record->on, expected->on) << text;
    }
}

// ---- the voting record ----

TEST(SignalPayload, SigVotingResultsParser_ShouldReadAllSixIntegers)
{
    auto record = voting(R"({"Status":2,"Agree":11,"Disagree":3,"Abandon":1,"Total":15,"Time":120})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->status, 2);
    EXPECT_EQ(record->agree, 11);
    EXPECT_EQ(record->disagree, 3);
    EXPECT_EQ(record->abandon, 1);
    EXPECT_EQ(record->total, 15);
    EXPECT_EQ(record->time, 120);
}

TEST(SignalPayload, SigVotingResultsParser_ShouldReturnNullWhenAnyKeyIsMissing)
{
    const char *keys[] = {"Status", "Agree", "Disagree", "Abandon", "Total", "Time"};
    for (const char *missing : keys) {
        std::string text = "{";
        for (const char *key : keys)
            if (std::string(key) != missing)
                text += std::string(text.size() > 1 ? "," : "") + "\"" + key + "\":1";
        text += "}";
        EXPECT_EQ(voting(text.c_str()), nullptr) << text;
    }
}

TEST(SignalPayload, SigVotingResultsParser_ShouldTakeTheIntegerValueOfAnyJsonType)
{
    auto record = voting(
        R"({"Status":true,"Agree":2.9,"Disagree":"7","Abandon":null,"Total":-1.5,"Time":false})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->status, 1);
    EXPECT_EQ(record->agree, 2);
    EXPECT_EQ(record->disagree, 0);
    EXPECT_EQ(record->abandon, 0);
    EXPECT_EQ(record->total, -1);
    EXPECT_EQ(record->time, 0);
}

// ---- the information-change record ----

TEST(SignalPayload, SigInfoDataChangeParser_ShouldTakeTheIntegerPartOfANumber)
{
    auto record = info_change(R"({"Type":1,"Data":3.7})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->type, 1);
    EXPECT_EQ(record->data, 3);
}

TEST(SignalPayload, SigInfoDataChangeParser_ShouldPassValuesThroughUnchanged)
{
    auto record = info_change(R"({"Type":-4,"Data":3000000000})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->type, -4);
    // The integer value of a number beyond int is the nearest int.
    EXPECT_EQ(record->data, INT_MAX);
}

TEST(SignalPayload, SigInfoDataChangeParser_ShouldReturnNullWithoutTypeOrData)
{
    EXPECT_EQ(info_change(R"({"Type":1})"), nullptr);
    EXPECT_EQ(info_change(R"({"Data":1})"), nullptr);
    EXPECT_EQ(info_change("{}"), nullptr);
}

// ---- the camera record ----

TEST(SignalPayload, SigCamStatusParser_ShouldGiveEmptyStringsAndOffForStatusAlone)
{
    auto record = cam_status(R"({"Status":2})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->status, 2);
    EXPECT_EQ(record->group, "");
    EXPECT_EQ(record->id, "");
    EXPECT_FALSE(record->on);
}

TEST(SignalPayload, SigCamStatusParser_ShouldReadStatusGroupIdAndOn)
{
    auto record = cam_status(R"({"Status":0,"Group":"cam","Id":"3","On":true})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->status, 0);
    EXPECT_EQ(record->group, "cam");
    EXPECT_EQ(record->id, "3");
    EXPECT_TRUE(record->on);
}

TEST(SignalPayload, SigCamStatusParser_ShouldReturnNullWithoutStatus)
{
    EXPECT_EQ(cam_status(R"({"Group":"cam","Id":"3","On":true})"), nullptr);
}

TEST(SignalPayload, SigCamStatusParser_ShouldReadGroupOrIdThatIsNotAStringAsEmpty)
{
    auto record = cam_status(R"({"Status":1,"Group":12,"Id":false,"On":1})");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->status, 1);
    EXPECT_EQ(record->group, "");
    EXPECT_EQ(record->id, "");
    EXPECT_TRUE(record->on);
}

// ---- what every parser and releaser shares ----

TEST(SignalPayload, SignalParsers_ShouldReturnNullForTextThatIsNotJson)
{
    for (const parser_pair &pair : kAllParsers) {
        for (const char *text : {"", "{", "not json", R"({"Group":"A",)", "{'Group':'A'}"})
            EXPECT_EQ(pair.parser(text), nullptr) << pair.name << ": " << text;
        EXPECT_EQ(pair.parser(nullptr), nullptr) << pair.name;
    }
}

TEST(SignalPayload, SignalParsers_ShouldReturnNullForJsonThatIsNotAnObject)
{
    for (const parser_pair &pair : kAllParsers)
        for (const char *text : {"[1,2]", "5", R"("Group")", "null", "true"})
            EXPECT_EQ(pair.parser(text), nullptr) << pair.name << ": " << text;
}

TEST(SignalPayload, SignalParsers_ShouldReturnAFreshRecordForEachCall)
{
    for (const parser_pair &pair : kAllParsers) {
        void *first = pair.parser(kEveryKey);
        void *second = pair.parser(kEveryKey);
        EXPECT_NE(first, nullptr) << pair.name;
        EXPECT_NE(second, nullptr) << pair.name;
        EXPECT_NE(first, second) << pair.name;
        pair.releaser(first);
        pair.releaser(second);
    }
}

TEST(SignalPayload, SignalReleasers_ShouldIgnoreNull)
{
    for (const parser_pair &pair : kAllParsers)
        EXPECT_NO_THROW(pair.releaser(nullptr)) << pair.name;
}

TEST(SignalPayload, SignalRecords_ShouldKeepTheirMembersInOrder)
{
    static_assert(std::is_same<decltype(sig_mic_on_data::status), int>::value, "status is an int");
    static_assert(std::is_same<decltype(sig_mic_on_data::group), std::string>::value, "group");
    static_assert(std::is_same<decltype(sig_mic_on_data::id), std::string>::value, "id");
    static_assert(std::is_same<decltype(sig_mic_on_data::on), bool>::value, "on is a bool");
    static_assert(std::is_same<decltype(sig_cam_status_data::on), bool>::value, "on is a bool");

    sig_mic_on_data mic{};
    EXPECT_LT(static_cast<void *>(&mic.status), static_cast<void *>(&mic.group));
    EXPECT_LT(static_cast<void *>(&mic.group), static_cast<void *>(&mic.id));
    EXPECT_LT(static_cast<void *>(&mic.id), static_cast<void *>(&mic.on));
    sig_cam_status_data cam{};
    EXPECT_LT(static_cast<void *>(&cam.status), static_cast<void *>(&cam.group));
    EXPECT_LT(static_cast<void *>(&cam.group), static_cast<void *>(&cam.id));
    EXPECT_LT(static_cast<void *>(&cam.id), static_cast<void *>(&cam.on));

    // Aggregate initialisation follows member order, so it pins the order of the int records.
    sig_voting_results_data votes{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(std::vector<int>({votes.status, votes.agree, votes.disagree, votes.abandon, votes.total,
                                votes.time}),
              std::vector<int>({1, 2, 3, 4, 5, 6}));
    sig_info_data_change_data change{7, 8};
    EXPECT_EQ(change.type, 7);
    EXPECT_EQ(change.data, 8);
}
