// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <tuple>

#include "core_test_fixture.h"
#include "rs232_zorvo_test_support.h"

using namespace rs232_zorvo_test;
using vask_test::log_capture;
using vask_test::temp_dir;


static auto as_tuple(const external_rs232_control &c)
{
    return std::tie(c.builtin_TTY, c.ignored_TTYUSB_A, c.ignored_TTYUSB_B, c.disable_USB_camctrl, c.enable_USB_wenk9,
                    c.enable_USB_zorvo, c.port, c.baud_rate, c.default_command, c.focus_command, c.conflict_command);
}

bool operator==(const external_rs232_control &a, const external_rs232_control &b)
{
    return as_tuple(a) == as_tuple(b);
}

std::ostream &operator<<(std::ostream &out, const external_rs232_control &c)
{
    return out << "{builtin_TTY \"" << c.builtin_TTY << "\", A " << c.ignored_TTYUSB_A << ", B " << c.ignored_TTYUSB_B
               << ", camctrl " << c.disable_USB_camctrl << ", wenk9 " << c.enable_USB_wenk9 << ", zorvo "
               << c.enable_USB_zorvo << ", port \"" << c.port << "\", baud_rate \"" << c.baud_rate << "\", default \""
               << c.default_command << "\", focus \"" << c.focus_command << "\", conflict \"" << c.conflict_command
               << "\"}";
}

namespace {

const char *const kReadEntry = "Read External RS232 Control Config";
const char *const kUpdateEntry = "Update External RS232 Control Config";

// A record with every field set to a value that differs from the unset one.
external_rs232_control every_field_set()
{
    external_rs232_control c;
    c.builtin_TTY = "ttyS3";
    c.ignored_TTYUSB_A = 0;
    c.ignored_TTYUSB_B = 7;
    c.disable_USB_camctrl = true;
    c.enable_USB_wenk9 = true;
    c.enable_USB_zorvo = true;
    c.port = "ttyS1";
    c.baud_rate = "115200";
    c.default_command = "AA0101";
    c.focus_command = "AA0202";
    c.conflict_command = "AA0303";
    return c;
}

// Fields that a reader must overwrite: none of them is the unset value.
external_rs232_control garbage()
{
    external_rs232_control c = every_field_set();
    c.builtin_TTY = "stale";
    c.ignored_TTYUSB_A = 99;
    return c;
}

void expect_read_entry_then(log_capture &capture, std::vector<line_fields> more)
{
    std::vector<line_fields> expected = {
        {2, "utils", kAnyLine, "ReadExternalRS232ControlConfig", kReadEntry}};
    expected.insert(expected.end(), more.begin(), more.end());
    expect_lines(capture.lines(), expected);
}

} // namespace

TEST(RS232ControlConfig, ValueInitialisedRecord_ShouldHaveEveryFieldUnset)
{
    external_rs232_control c{};
    EXPECT_EQ(c.builtin_TTY, "");
    EXPECT_EQ(c.ignored_TTYUSB_A, -1);
    EXPECT_EQ(c.ignored_TTYUSB_B, -1);
    EXPECT_FALSE(c.disable_USB_camctrl);
    EXPECT_FALSE(c.enable_USB_wenk9);
    EXPECT_FALSE(c.enable_USB_zorvo);
    EXPECT_EQ(c.port, "");
    EXPECT_EQ(c.baud_rate, "");
    EXPECT_EQ(c.default_command, "");
    EXPECT_EQ(c.focus_command, "");
    EXPECT_EQ(c.conflict_command, "");
}

TEST(RS232ControlConfig, Read_ShouldFillEveryFieldFromItsKey)
{
    sysroot root;
    root.set_config(R"({"external_control":{"tcp":{"port":"23"}},"external_rs232_config":{"vendor":"x",
        "conflict_command":"AA0303","focus_command":"AA0202","default_command":"AA0101","baud_rate":"115200",
        "port":"ttyS1","enable_USB_zorvo":true,"enable_USB_wenk9":true,"disable_USB_camctrl":true,
        "ignored_TTYUSB_B":7,"ignored_TTYUSB_A":0,"builtin_TTY":"ttyS3"}})");
    external_rs232_control info = garbage();
    log_capture capture;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(info, every_field_set());
    expect_read_entry_then(capture, {});
}

TEST(RS232ControlConfig, ReadEmptySection_ShouldGiveEveryFieldUnset)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{}})");
    external_rs232_control info = garbage();
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(info, external_rs232_control{});
}

TEST(RS232ControlConfig, ReadMissingKeys_ShouldLeaveThoseFieldsUnset)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"port":"ttyS0","ignored_TTYUSB_B":3}})");
    external_rs232_control info = garbage();
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    external_rs232_control expected;
    expected.port = "ttyS0";
    expected.ignored_TTYUSB_B = 3;
    EXPECT_EQ(info, expected);
}

TEST(RS232ControlConfig, ReadFlags_ShouldFollowTheirIntegerValue)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"disable_USB_camctrl":false,"enable_USB_wenk9":0,
        "enable_USB_zorvo":2}})");
    external_rs232_control info;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    EXPECT_FALSE(info.disable_USB_camctrl);
    EXPECT_FALSE(info.enable_USB_wenk9);
    EXPECT_TRUE(info.enable_USB_zorvo);

    root.set_config(R"({"external_rs232_config":{"disable_USB_camctrl":true,"enable_USB_wenk9":1,
        "enable_USB_zorvo":-1}})");
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    EXPECT_TRUE(info.disable_USB_camctrl);
    EXPECT_TRUE(info.enable_USB_wenk9);
    EXPECT_TRUE(info.enable_USB_zorvo);
}

TEST(RS232ControlConfig, ReadPortNumbers_ShouldTakeTheIntegerValue)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"ignored_TTYUSB_A":3.9,"ignored_TTYUSB_B":-1}})");
    external_rs232_control info = garbage();
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(info.ignored_TTYUSB_A, 3);
    EXPECT_EQ(info.ignored_TTYUSB_B, -1);
}

TEST(RS232ControlConfig, ReadTextKeyHoldingAnotherType_ShouldReadEmpty)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"port":5,"baud_rate":true,"builtin_TTY":null,
        "default_command":["AA"],"focus_command":{"a":"b"},"conflict_command":"CC"}})");
    external_rs232_control info = garbage();
    log_capture capture;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    external_rs232_control expected;
    expected.conflict_command = "CC";
    EXPECT_EQ(info, expected);
    expect_read_entry_then(capture, {});
}

TEST(RS232ControlConfig, ReadMissingSection_ShouldFailWithTheRecordReset)
{
    sysroot root;
    root.set_config(R"({"zorvo_config":{"fw":""}})");
    external_rs232_control info = garbage();
    log_capture capture;
    EXPECT_EQ(ReadExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(info, external_rs232_control{});
    expect_read_entry_then(capture, {{0, "utils", kAnyLine, "ReadExternalRS232ControlConfig", "error:(null)"}});
}

TEST(RS232ControlConfig, ReadSectionThatIsNoObject_ShouldFail)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":"ttyS0"})");
    external_rs232_control info = garbage();
    EXPECT_EQ(ReadExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(info, external_rs232_control{});
}

TEST(RS232ControlConfig, ReadTextThatIsNotJson_ShouldFailWithTheRecordReset)
{
    sysroot root;
    root.set_config("{\"external_rs232_config\": {\"port\": }");
    external_rs232_control info = garbage();
    log_capture capture;
    EXPECT_EQ(ReadExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(info, external_rs232_control{});
    expect_read_entry_then(capture, {{0, "utils", kAnyLine, "ReadExternalRS232ControlConfig", "error:}"}});
}

TEST(RS232ControlConfig, ReadMissingFile_ShouldFail)
{
    sysroot root;
    root.remove_config();
    external_rs232_control info = garbage();
    log_capture capture;
    EXPECT_EQ(ReadExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(info, external_rs232_control{});
    expect_read_entry_then(capture,
                           {{0, "utils", kAnyLine, "ReadExternalRS232ControlConfig", "open config file failed"}});
}

TEST(RS232ControlConfig, ReadNullRecord_ShouldFailWithoutTakingTheLock)
{
    sysroot root;
    log_capture capture;
    EXPECT_EQ(ReadExternalRS232ControlConfig(nullptr), -1);
    expect_read_entry_then(capture, {{0, "utils", kAnyLine, "ReadExternalRS232ControlConfig", "info = NULL"}});
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

TEST(RS232ControlConfig, Read_ShouldHoldTheConfigurationLockForItsCycleOnly)
{
    sysroot root;
    root.set_config(R"({"zorvo_config":{}})");
    external_rs232_control info;
    lock_noting_log log;
    EXPECT_EQ(ReadExternalRS232ControlConfig(&info), -1);
    auto entries = log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].message, kReadEntry);
    EXPECT_FALSE(entries[0].lock_held);
    // The missing section is found while the file is read, under the lock.
    EXPECT_EQ(entries[1].message, "error:(null)");
    EXPECT_TRUE(entries[1].lock_held);
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

TEST(RS232ControlConfig, Update_ShouldMoveManagedKeysToTheEndAfterUnmanagedOnes)
{
    sysroot root;
    root.set_config(R"({"projector_control":{"protocol":"none"},"external_rs232_config":{"port":"ttyS0",
        "vendor_option":"keep","builtin_TTY":"ttyS0","ignored_TTYUSB_A":3,"enable_USB_zorvo":true,
        "conflict_command":"old","baud_rate":"9600","vendor_number":4},"zorvo_config":{"fw":"1.2"}})");
    external_rs232_control info = every_field_set();
    info.ignored_TTYUSB_B = -1;
    info.enable_USB_wenk9 = false;
    info.conflict_command.clear();
    log_capture capture;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"projector_control":{"protocol":"none"},"external_rs232_config":{
        "vendor_option":"keep","vendor_number":4,"builtin_TTY":"ttyS3","ignored_TTYUSB_A":0,
        "disable_USB_camctrl":true,"enable_USB_zorvo":true,"port":"ttyS1","baud_rate":"115200",
        "focus_command":"AA0202","default_command":"AA0101"},"zorvo_config":{"fw":"1.2"}})"));
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", kUpdateEntry}});
}

TEST(RS232ControlConfig, UpdateEveryFieldSet_ShouldWriteTheElevenKeysInTheirOrder)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{}})");
    external_rs232_control info = every_field_set();
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_rs232_config":{"builtin_TTY":"ttyS3","ignored_TTYUSB_A":0,
        "ignored_TTYUSB_B":7,"disable_USB_camctrl":true,"enable_USB_wenk9":true,"enable_USB_zorvo":true,
        "port":"ttyS1","baud_rate":"115200","focus_command":"AA0202","default_command":"AA0101",
        "conflict_command":"AA0303"}})"));
}

TEST(RS232ControlConfig, UpdateEveryFieldUnset_ShouldRemoveTheManagedKeysOnly)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"builtin_TTY":"ttyS0","ignored_TTYUSB_A":1,"vendor":{"a":1},
        "ignored_TTYUSB_B":2,"disable_USB_camctrl":true,"enable_USB_wenk9":true,"enable_USB_zorvo":true,
        "port":"p","baud_rate":"b","focus_command":"f","default_command":"d","conflict_command":"c",
        "note":"kept"},"castdeck_control":{"enable":false}})");
    external_rs232_control info;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_rs232_config":{"vendor":{"a":1},"note":"kept"},
        "castdeck_control":{"enable":false}})"));
}

TEST(RS232ControlConfig, UpdateMissingSection_ShouldAddTheSetKeysAtTheEndOfTheDocument)
{
    sysroot root;
    root.set_config(R"({"projector_control":{"protocol":"none"},"zorvo_config":{"fw":""}})");
    external_rs232_control info;
    info.port = "ttyS1";
    info.ignored_TTYUSB_B = 4;
    info.enable_USB_wenk9 = true;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"projector_control":{"protocol":"none"},"zorvo_config":{"fw":""},
        "external_rs232_config":{"ignored_TTYUSB_B":4,"enable_USB_wenk9":true,"port":"ttyS1"}})"));
}

TEST(RS232ControlConfig, UpdateMissingSectionNothingSet_ShouldAddAnEmptySection)
{
    sysroot root;
    root.set_config(R"({"zorvo_config":{"fw":""}})");
    external_rs232_control info;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{"fw":""},"external_rs232_config":{}})"));
}

TEST(RS232ControlConfig, UpdateSectionThatIsNoObject_ShouldReplaceItAtTheEnd)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":"ttyS0","zorvo_config":{}})");
    external_rs232_control info;
    info.port = "ttyS1";
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"zorvo_config":{},"external_rs232_config":{"port":"ttyS1"}})"));
}

TEST(RS232ControlConfig, UpdatePortZero_ShouldWriteTheNumberZero)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"ignored_TTYUSB_A":5}})");
    external_rs232_control info;
    info.ignored_TTYUSB_A = 0;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_rs232_config":{"ignored_TTYUSB_A":0}})"));
}

TEST(RS232ControlConfig, UpdateFalseFlag_ShouldRemoveTheKeyInsteadOfWritingFalse)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{"disable_USB_camctrl":false,"enable_USB_wenk9":true,
        "enable_USB_zorvo":1}})");
    external_rs232_control info;
    info.enable_USB_zorvo = true;
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    EXPECT_EQ(root.config(), formatted(R"({"external_rs232_config":{"enable_USB_zorvo":true}})"));
}

TEST(RS232ControlConfig, UpdateThenRead_ShouldGiveTheRecordBack)
{
    sysroot root;
    external_rs232_control written = every_field_set();
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&written), 0);
    external_rs232_control read;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&read), 0);
    EXPECT_EQ(read, written);

    written = external_rs232_control{};
    written.baud_rate = "9600";
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&written), 0);
    ASSERT_EQ(ReadExternalRS232ControlConfig(&read), 0);
    EXPECT_EQ(read, written);
}

TEST(RS232ControlConfig, UpdateDefaultDocument_ShouldKeepEveryOtherSection)
{
    sysroot root;
    std::string before = root.config();
    external_rs232_control info;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&info), 0);
    ASSERT_EQ(UpdateExternalRS232ControlConfig(&info), 0);
    std::string after = root.config();
    EXPECT_EQ(section_names(after), section_names(before));
    for (const std::string &name : section_names(before)) {
        if (name != "external_rs232_config") {
            EXPECT_EQ(section_of(after, name), section_of(before, name)) << name;
        }
    }
    external_rs232_control again;
    ASSERT_EQ(ReadExternalRS232ControlConfig(&again), 0);
    EXPECT_EQ(again, info);
}

TEST(RS232ControlConfig, UpdateMissingFile_ShouldFailWithoutCreatingIt)
{
    sysroot root;
    root.remove_config();
    external_rs232_control info = every_field_set();
    log_capture capture;
    EXPECT_EQ(UpdateExternalRS232ControlConfig(&info), -1);
    EXPECT_FALSE(root.has_config());
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", kUpdateEntry},
                  {0, "utils", kAnyLine, "UpdateExternalRS232ControlConfig",
                   "open external_device config file failed"}});
}

TEST(RS232ControlConfig, UpdateTextThatIsNotJson_ShouldFailAndLeaveTheFile)
{
    sysroot root;
    const std::string broken = "{\"external_rs232_config\": ";
    root.set_config(broken);
    external_rs232_control info = every_field_set();
    log_capture capture;
    EXPECT_EQ(UpdateExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(root.config(), broken);
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", kUpdateEntry},
                                   {0, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", "error:"}});
}

TEST(RS232ControlConfig, UpdateRootThatIsNoObject_ShouldFailAndLeaveTheFile)
{
    sysroot root;
    const std::string array = "[1, 2]";
    root.set_config(array);
    external_rs232_control info = every_field_set();
    EXPECT_EQ(UpdateExternalRS232ControlConfig(&info), -1);
    EXPECT_EQ(root.config(), array);
}

TEST(RS232ControlConfig, UpdateNullRecord_ShouldFail)
{
    sysroot root;
    std::string before = root.config();
    log_capture capture;
    EXPECT_EQ(UpdateExternalRS232ControlConfig(nullptr), -1);
    EXPECT_EQ(root.config(), before);
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", kUpdateEntry},
                                   {0, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", "info = NULL"}});
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

class RS232ControlOperations : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(ed_init(), 0);
    }
    sysroot root_;
};

TEST_F(RS232ControlOperations, Get_ShouldReturnTheReadersResultAndRecord)
{
    root_.set_config(R"({"external_rs232_config":{"port":"ttyS4","enable_USB_zorvo":true}})");
    external_rs232_control info = garbage();
    log_capture capture;
    ASSERT_EQ(ed_get_external_rs232_control_info(&info), 0);
    external_rs232_control expected;
    expected.port = "ttyS4";
    expected.enable_USB_zorvo = true;
    EXPECT_EQ(info, expected);
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "ReadExternalRS232ControlConfig", kReadEntry}});

    root_.set_config(R"({"zorvo_config":{}})");
    EXPECT_EQ(ed_get_external_rs232_control_info(&info), -1);
    EXPECT_EQ(ed_get_external_rs232_control_info(nullptr), -1);
    EXPECT_TRUE(service_->calls().empty());
}

TEST_F(RS232ControlOperations, Set_ShouldStoreThenCallTheServiceWithoutBody)
{
    root_.set_config(R"({"external_rs232_config":{"port":"ttyS0"}})");
    external_rs232_control info;
    info.builtin_TTY = "ttyS2";
    info.baud_rate = "57600";
    log_capture capture;
    ASSERT_EQ(ed_set_external_rs232_control_info(info), 0);
    EXPECT_EQ(root_.config(), formatted(R"({"external_rs232_config":{"builtin_TTY":"ttyS2","baud_rate":"57600"}})"));
    auto calls = service_->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "set_external_rs232_control_info");
    EXPECT_EQ(calls[0].body_length, 0);
    EXPECT_EQ(calls[0].body, "");
    // The writer's line is the only one: the operation logs nothing of its own.
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "UpdateExternalRS232ControlConfig", kUpdateEntry}});
}

TEST_F(RS232ControlOperations, SetWhenTheServiceFails_ShouldKeepTheFileAndReturnTheCode)
{
    service_->reply("set_external_rs232_control_info", "{\"code\":-1002}");
    root_.set_config(R"({"external_rs232_config":{}})");
    external_rs232_control info;
    info.port = "ttyUSB1";
    EXPECT_EQ(ed_set_external_rs232_control_info(info), -2);
    EXPECT_EQ(root_.config(), formatted(R"({"external_rs232_config":{"port":"ttyUSB1"}})"));
    EXPECT_EQ(service_->calls().size(), 1u);
}

TEST_F(RS232ControlOperations, SetWhenTheStoreFails_ShouldNotCallTheService)
{
    const std::string broken = "not json";
    root_.set_config(broken);
    external_rs232_control info = every_field_set();
    EXPECT_EQ(ed_set_external_rs232_control_info(info), -1);
    EXPECT_EQ(root_.config(), broken);
    root_.remove_config();
    EXPECT_EQ(ed_set_external_rs232_control_info(info), -1);
    EXPECT_TRUE(service_->calls().empty());
}

TEST(RS232ControlOperationsWithoutService, SetWithTheLibraryClosed_ShouldStoreAndFail)
{
    sysroot root;
    root.set_config(R"({"external_rs232_config":{}})");
    external_rs232_control info;
    info.port = "ttyS1";
    EXPECT_EQ(ed_set_external_rs232_control_info(info), -1);
    EXPECT_EQ(root.config(), formatted(R"({"external_rs232_config":{"port":"ttyS1"}})"));
}
