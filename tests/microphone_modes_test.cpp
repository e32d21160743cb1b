// SPDX-License-Identifier: MIT
// The three mode sections of the microphone control file.
#include <gtest/gtest.h>

#include "config/config_cycle.h"
#include "microphone_test_support.h"

using vask_test::expect_lines;
using vask_test::formatted;
using vask_test::make_item;
using vask_test::utils_line;

namespace {

// The default file with its sections in their shipped order.
const char kDefaultLists[] = R"("microphone_config":[],"microphone_group_conflict_config":[])";
const char kDefaultSection[] = R"("microphone_default_config":{"cancel_mode":0})";
const char kGeneralSection[] = R"("microphone_general_conflict_config":{})";
const char kSpeakersSection[] = R"("microphone_multiple_speakers_mode":{"multi_mode":1,"cancel_mode":0})";

std::string document(std::initializer_list<std::string> members)
{
    std::string text = "{";
    for (const std::string &member : members)
        text += (text.size() > 1 ? "," : "") + member;
    return text + "}";
}

class MicrophoneModesTest : public ::testing::Test {
protected:
    vask_test::mic_root root_;
    vask_test::log_capture log_;

    void TearDown() override { EXPECT_TRUE(vask_ed::config_lock_is_free()); }

    // Calls each of the six functions once; returns their results in order.
    std::vector<int> run_all()
    {
        int cancel_mode = -9;
        microphone_info info;
        multiple_speakers_mode mode;
        return {ReadMicrophoneDefaultConfig(&cancel_mode, &info), UpdateMicrophoneDefaultConfig(1, &info),
                ReadMicrophoneGeneralConflictConfig(&info), UpdateMicrophoneGeneralConflictConfig(&info),
                ReadMicrophoneMultipleSpeakersMode(&mode), UpdateMicrophoneMultipleSpeakersMode(&mode)};
    }
};

} // namespace

TEST_F(MicrophoneModesTest, DefaultFile_ShouldHoldTheFiveSectionsAsTheLibraryPrintsThem)
{
    EXPECT_EQ(root_.file(), formatted(document({kDefaultLists, kDefaultSection, kGeneralSection, kSpeakersSection})));
}

TEST_F(MicrophoneModesTest, ReadMicrophoneDefaultConfig_OfTheDefaultFile_ShouldGiveCancelModeZeroAndAnEmptyItem)
{
    int cancel_mode = -9;
    microphone_info info = make_item("x", "y", "z", {{1, 1}}, 4);
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, &info), 0);
    EXPECT_EQ(cancel_mode, 0);
    EXPECT_TRUE(vask_test::same_item(info, microphone_info()));
    expect_lines(log_.lines(), {utils_line(2, "ReadMicrophoneDefaultConfig", "Read Mic Default Config")});
}

TEST_F(MicrophoneModesTest, ReadMicrophoneDefaultConfig_ShouldReadCancelModeAndTheItemIncludingAStrayGr)
{
    root_.set_document(R"({"microphone_default_config":{"cancel_mode":3,"gr":"x","nt":"n","c0":1,"p0":2,"l":4}})");
    int cancel_mode = -9;
    microphone_info info;
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, &info), 0);
    EXPECT_EQ(cancel_mode, 3);
    EXPECT_TRUE(vask_test::same_item(info, make_item("x", "", "n", {{1, 2}}, 4)));

    // Written back, the record loses its "gr".
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(cancel_mode, &info), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"microphone_default_config":{"cancel_mode":3,"nt":"n","c0":1,"p0":2,"l":4}})"));
}

TEST_F(MicrophoneModesTest, ReadMicrophoneDefaultConfig_WithoutCancelMode_ShouldGiveZero)
{
    root_.set_document(R"({"microphone_default_config":{"nt":"n"}})");
    int cancel_mode = -9;
    microphone_info info;
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, &info), 0);
    EXPECT_EQ(cancel_mode, 0);
    EXPECT_EQ(info.nt, "n");
}

TEST_F(MicrophoneModesTest, ReadMicrophoneDefaultConfig_WithANullRecord_ShouldLogTheReadFailureAndStillGiveTheCancelMode)
{
    root_.set_document(R"({"microphone_default_config":{"cancel_mode":2}})");
    int cancel_mode = -9;
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, nullptr), -1);
    EXPECT_EQ(cancel_mode, 2);
    expect_lines(log_.lines(), {utils_line(2, "ReadMicrophoneDefaultConfig", "Read Mic Default Config"),
                                utils_line(0, "ReadMicrophoneDefaultConfig", "cJSON_GetMicroPhoneInfo:-1")});
}

TEST_F(MicrophoneModesTest, ReadMicrophoneDefaultConfig_WithANullCancelMode_ShouldFailWithoutReading)
{
    microphone_info info = make_item("keep", "");
    EXPECT_EQ(ReadMicrophoneDefaultConfig(nullptr, &info), -1);
    EXPECT_EQ(info.gr, "keep");
    expect_lines(log_.lines(), {utils_line(0, "ReadMicrophoneDefaultConfig", "null point")});
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneDefaultConfig_ShouldWriteCancelModeAndTheItemWithoutGrAndIdAtTheEnd)
{
    microphone_info info = make_item("x", "y", "Chair", {{3, 1}, {3, 2}, {6, 7}}, -1, 0, 2, -5);
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(4, &info), 0);
    EXPECT_EQ(root_.file(),
              formatted(document({kDefaultLists, kGeneralSection, kSpeakersSection,
                                  R"("microphone_default_config":{"cancel_mode":4,"nt":"Chair","c0":3,"p0":1,"c1":6,"p1":7,"o":0,"b":2})"})));
    expect_lines(log_.lines(), {utils_line(2, "UpdateMicrophoneDefaultConfig", "Update Mic Default Config")});
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneDefaultConfig_WithANullRecord_ShouldWriteTheCancelModeAlone)
{
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(7, nullptr), 0);
    EXPECT_EQ(root_.file(), formatted(document({kDefaultLists, kGeneralSection, kSpeakersSection,
                                                R"("microphone_default_config":{"cancel_mode":7})"})));
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneDefaultConfig_WithoutTheSection_ShouldAddIt)
{
    root_.set_document(R"({"other":[1,2]})");
    microphone_info info = make_item("", "", "", {}, 1);
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(0, &info), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"other":[1,2],"microphone_default_config":{"cancel_mode":0,"l":1}})"));
}

TEST_F(MicrophoneModesTest, ReadMicrophoneGeneralConflictConfig_ShouldReadTheItem)
{
    root_.set_document(R"({"microphone_general_conflict_config":{"nt":"g","c0":2,"p0":3,"s":1,"cancel_mode":5}})");
    microphone_info info;
    EXPECT_EQ(ReadMicrophoneGeneralConflictConfig(&info), 0);
    EXPECT_TRUE(vask_test::same_item(info, make_item("", "", "g", {{2, 3}}, -1, -1, -1, 1)));
    expect_lines(log_.lines(),
                 {utils_line(2, "ReadMicrophoneGeneralConflictConfig", "Read Mic GeneralConflict Config")});
}

TEST_F(MicrophoneModesTest, ReadMicrophoneGeneralConflictConfig_WithANullRecord_ShouldFail)
{
    EXPECT_EQ(ReadMicrophoneGeneralConflictConfig(nullptr), -1);
    expect_lines(log_.lines(),
                 {utils_line(2, "ReadMicrophoneGeneralConflictConfig", "Read Mic GeneralConflict Config"),
                  utils_line(0, "ReadMicrophoneGeneralConflictConfig", "cJSON_GetMicroPhoneInfo:-1")});
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneGeneralConflictConfig_ShouldWriteTheItemWithoutGrAndIdAtTheEnd)
{
    microphone_info info = make_item("1", "2", "all", {{1, 0}}, 3, 2, 1, 0);
    EXPECT_EQ(UpdateMicrophoneGeneralConflictConfig(&info), 0);
    EXPECT_EQ(root_.file(),
              formatted(document({kDefaultLists, kDefaultSection, kSpeakersSection,
                                  R"("microphone_general_conflict_config":{"nt":"all","c0":1,"p0":0,"l":3,"o":2,"b":1,"s":0})"})));
    expect_lines(log_.lines(),
                 {utils_line(2, "UpdateMicrophoneGeneralConflictConfig", "Update Mic GeneralConflict Config")});

    microphone_info read;
    EXPECT_EQ(ReadMicrophoneGeneralConflictConfig(&read), 0);
    EXPECT_TRUE(vask_test::same_item(read, make_item("", "", "all", {{1, 0}}, 3, 2, 1, 0)));
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneGeneralConflictConfig_WithANullRecord_ShouldWriteAnEmptySection)
{
    root_.set_document(R"({"microphone_general_conflict_config":{"nt":"old"},"x":1})");
    EXPECT_EQ(UpdateMicrophoneGeneralConflictConfig(nullptr), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"x":1,"microphone_general_conflict_config":{}})"));
}

TEST_F(MicrophoneModesTest, ReadMicrophoneMultipleSpeakersMode_ShouldReadBothNumbers)
{
    root_.set_document(R"({"microphone_multiple_speakers_mode":{"multi_mode":3,"cancel_mode":2}})");
    multiple_speakers_mode mode{-9, -9};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(mode.multi_mode, 3);
    EXPECT_EQ(mode.cancel_mode, 2);
    expect_lines(log_.lines(), {utils_line(2, "ReadMicrophoneMultipleSpeakersMode", "Read Mic MultipleSpeakers Mode")});
}

TEST_F(MicrophoneModesTest, ReadMicrophoneMultipleSpeakersMode_ShouldGiveOneAndZeroForMissingNumbers)
{
    root_.set_document(R"({"microphone_multiple_speakers_mode":{"multi_mode":2}})");
    multiple_speakers_mode mode{-9, -9};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(mode.multi_mode, 2);
    EXPECT_EQ(mode.cancel_mode, 0);

    root_.set_document(R"({"microphone_multiple_speakers_mode":{}})");
    mode = {-9, -9};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(mode.multi_mode, 1);
    EXPECT_EQ(mode.cancel_mode, 0);
}

TEST_F(MicrophoneModesTest, MultipleSpeakersMode_MissingSection_ShouldFailUntilTheFirstUpdate)
{
    root_.set_document(R"({"microphone_config":[]})");
    multiple_speakers_mode mode{-9, -9};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), -1);
    EXPECT_EQ(mode.multi_mode, -9);

    multiple_speakers_mode stored{2, 1};
    EXPECT_EQ(UpdateMicrophoneMultipleSpeakersMode(&stored), 0);
    EXPECT_EQ(root_.file(),
              formatted(R"({"microphone_config":[],"microphone_multiple_speakers_mode":{"multi_mode":2,"cancel_mode":1}})"));
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(mode.multi_mode, 2);
    EXPECT_EQ(mode.cancel_mode, 1);
    expect_lines(log_.lines(),
                 {utils_line(2, "ReadMicrophoneMultipleSpeakersMode", "Read Mic MultipleSpeakers Mode"),
                  utils_line(0, "ReadMicrophoneMultipleSpeakersMode", "error:(null)"),
                  utils_line(2, "UpdateMicrophoneMultipleSpeakersMode", "Update Mic MultipleSpeakers Config"),
                  utils_line(2, "ReadMicrophoneMultipleSpeakersMode", "Read Mic MultipleSpeakers Mode")});
}

TEST_F(MicrophoneModesTest, UpdateMicrophoneMultipleSpeakersMode_ShouldMoveTheSectionToTheEnd)
{
    root_.set_document(document({kSpeakersSection, kDefaultLists}));
    multiple_speakers_mode mode{0, 5};
    EXPECT_EQ(UpdateMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(root_.file(),
              formatted(document({kDefaultLists, R"("microphone_multiple_speakers_mode":{"multi_mode":0,"cancel_mode":5})"})));
}

TEST_F(MicrophoneModesTest, MultipleSpeakersMode_WithANullRecord_ShouldFailWithoutTouchingTheFile)
{
    std::string before = root_.file();
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(nullptr), -1);
    EXPECT_EQ(UpdateMicrophoneMultipleSpeakersMode(nullptr), -1);
    EXPECT_EQ(root_.file(), before);
    expect_lines(log_.lines(), {utils_line(0, "ReadMicrophoneMultipleSpeakersMode", "null point"),
                                utils_line(0, "UpdateMicrophoneMultipleSpeakersMode", "null point")});
}

TEST_F(MicrophoneModesTest, Readers_WithoutTheirSection_ShouldFailWithErrorNull)
{
    root_.set_document(R"({"microphone_config":[]})");
    int cancel_mode = -9;
    microphone_info info = make_item("keep", "");
    multiple_speakers_mode mode{-9, -9};
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, &info), -1);
    EXPECT_EQ(ReadMicrophoneGeneralConflictConfig(&info), -1);
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), -1);
    EXPECT_EQ(cancel_mode, -9);
    EXPECT_EQ(info.gr, "keep");
    expect_lines(log_.lines(), {utils_line(2, "ReadMicrophoneDefaultConfig", "Read Mic Default Config"),
                                utils_line(0, "ReadMicrophoneDefaultConfig", "error:(null)"),
                                utils_line(2, "ReadMicrophoneGeneralConflictConfig", "Read Mic GeneralConflict Config"),
                                utils_line(0, "ReadMicrophoneGeneralConflictConfig", "error:(null)"),
                                utils_line(2, "ReadMicrophoneMultipleSpeakersMode", "Read Mic MultipleSpeakers Mode"),
                                utils_line(0, "ReadMicrophoneMultipleSpeakersMode", "error:(null)")});
}

TEST_F(MicrophoneModesTest, Sections_ShouldBeFoundWithoutRegardToCaseAndReplacedUnderTheirOwnName)
{
    root_.set_document(R"({"Microphone_Multiple_Speakers_Mode":{"multi_mode":4},"x":1})");
    multiple_speakers_mode mode{-9, -9};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(mode.multi_mode, 4);
    EXPECT_EQ(UpdateMicrophoneMultipleSpeakersMode(&mode), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"x":1,"microphone_multiple_speakers_mode":{"multi_mode":4,"cancel_mode":0}})"));
}

TEST_F(MicrophoneModesTest, ASectionThatIsNotAnObject_ShouldFailTheReaderAndBeReplacedByTheWriter)
{
    root_.set_document(R"({"microphone_default_config":5,"x":1})");
    int cancel_mode = -9;
    microphone_info info;
    EXPECT_EQ(ReadMicrophoneDefaultConfig(&cancel_mode, &info), -1);
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(1, &info), 0);
    EXPECT_EQ(root_.file(), formatted(R"({"x":1,"microphone_default_config":{"cancel_mode":1}})"));
}

TEST_F(MicrophoneModesTest, AllSix_WithAMissingFile_ShouldFailWithTheirOpenMessagesAndCreateNothing)
{
    root_.remove_file();
    EXPECT_EQ(run_all(), std::vector<int>({-1, -1, -1, -1, -1, -1}));
    EXPECT_FALSE(root_.has_file());
    expect_lines(log_.lines(),
                 {utils_line(2, "ReadMicrophoneDefaultConfig", "Read Mic Default Config"),
                  utils_line(0, "ReadMicrophoneDefaultConfig", "open config file failed"),
                  utils_line(2, "UpdateMicrophoneDefaultConfig", "Update Mic Default Config"),
                  utils_line(0, "UpdateMicrophoneDefaultConfig", "open external_device config file failed"),
                  utils_line(2, "ReadMicrophoneGeneralConflictConfig", "Read Mic GeneralConflict Config"),
                  utils_line(0, "ReadMicrophoneGeneralConflictConfig", "open config file failed"),
                  utils_line(2, "UpdateMicrophoneGeneralConflictConfig", "Update Mic GeneralConflict Config"),
                  utils_line(0, "UpdateMicrophoneGeneralConflictConfig", "open external_device config file failed"),
                  utils_line(2, "ReadMicrophoneMultipleSpeakersMode", "Read Mic MultipleSpeakers Mode"),
                  utils_line(0, "ReadMicrophoneMultipleSpeakersMode", "open config file failed"),
                  utils_line(2, "UpdateMicrophoneMultipleSpeakersMode", "Update Mic MultipleSpeakers Config"),
                  utils_line(0, "UpdateMicrophoneMultipleSpeakersMode", "open external_device config file failed")});
}

TEST_F(MicrophoneModesTest, AllSix_WithAMalformedFile_ShouldFailAndLeaveTheFileUntouched)
{
    root_.set_file("{\"microphone_default_config\": bad}");
    EXPECT_EQ(run_all(), std::vector<int>({-1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(root_.file(), "{\"microphone_default_config\": bad}");
    // The text from the parse error on.
    std::vector<vask_test::log_line> errors = log_.with_message("error:bad}");
    EXPECT_EQ(errors.size(), 6u);
    for (const vask_test::log_line &line : errors)
        EXPECT_EQ(line.level, 0);
}

TEST_F(MicrophoneModesTest, Writers_WithARootThatIsNotAnObject_ShouldFailAndLeaveTheFileUntouched)
{
    root_.set_file("[]");
    microphone_info info;
    multiple_speakers_mode mode;
    EXPECT_EQ(UpdateMicrophoneDefaultConfig(1, &info), -1);
    EXPECT_EQ(UpdateMicrophoneGeneralConflictConfig(&info), -1);
    EXPECT_EQ(UpdateMicrophoneMultipleSpeakersMode(&mode), -1);
    EXPECT_EQ(root_.file(), "[]");
    EXPECT_EQ(log_.with_message("error:(null)").size(), 3u);
}

TEST_F(MicrophoneModesTest, AnEmptyFile_ShouldFailEveryFunction)
{
    root_.set_file("");
    EXPECT_EQ(run_all(), std::vector<int>({-1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(root_.file(), "");
}
