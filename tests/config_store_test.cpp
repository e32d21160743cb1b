// SPDX-License-Identifier: MIT
// The configuration file as a whole: its default, validation and restore, the lock, the atomic
// replacement of the file and its failures, and many threads writing at once.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "config/config_cycle.h"
#include "config_test_support.h"
#include "libvask_external_device.h"

using vask_test::kAnyLine;
using vask_test::expect_lines;
using vask_test::formatted;
using vask_test::log_capture;
using vask_test::helper_run;
using vask_test::run_helper;
using vask_test::sysroot;

namespace {

const std::vector<std::string> kBoxSections = {"projector_control",  "external_control",      "miccentral_control",
                                               "castdeck_control",   "external_rs232_config", "zorvo_config"};

constexpr const char *kNotAnObject = "JSON 不是預期的 Object 格式，收到的是類型: %d";

std::string not_an_object(int type)
{
    char text[128];
    snprintf(text, sizeof text, kNotAnObject, type);
    return text;
}

struct stat stat_of(const std::string &path)
{
    struct stat info {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info;
}

// The names in a folder, but "." and "..".
std::vector<std::string> folder_entries(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        // The file lock against other processes stays beside the file for good.
        if (name != "external_device.json.lock")
            names.push_back(name);
    }
    return names;
}

} // namespace

// ---- The factory default -------------------------------------------------------------------

TEST(DefaultDocument, Sections_ShouldBeEverySectionOfABoxInOrder)
{
    EXPECT_EQ(vask_test::section_names(vask_test::default_document()), kBoxSections);
}

TEST(DefaultDocument, Text_ShouldBeExactlyWhatTheWritersPrint)
{
    std::string text = vask_test::default_document();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(formatted(text), text);
    EXPECT_EQ(text.substr(0, 25), "{\n\t\"projector_control\":\t{");
}

TEST(DefaultDocument, Readers_ShouldReadEverySectionOfIt)
{
    sysroot root;
    external_protocol_info mic{};
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &mic), 0);
    EXPECT_EQ(mic.protocol, 0);
    EXPECT_FALSE(mic.enable);
    external_protocol_info castdeck{};
    EXPECT_EQ(ReadControlDeviceConfig("castdeck_control", &castdeck), 0);
    EXPECT_EQ(castdeck.protocol, 0);
    external_protocol_info projector{};
    EXPECT_EQ(ReadProjectorConfig(&projector), 0);
    EXPECT_EQ(projector.protocol, 0);
    external_control_info control{};
    ASSERT_EQ(ReadExternalControlConfig(&control), 0);
    EXPECT_FALSE(control.authentication);
    EXPECT_EQ(control.port, "23");
    EXPECT_EQ(control.baud_rate, "9600");
    EXPECT_EQ(control.portname, "ttyS0");
}

TEST(DefaultDocument, EachProjectorProtocol_ShouldFindItsParameterBlock)
{
    sysroot root;
    std::string text = vask_test::default_document();
    for (const char *protocol : {"pjlink", "hitachi_tcp", "hitachi_rs232"}) {
        std::string edited = text;
        edited.replace(edited.find("\"none\""), 6, std::string("\"") + protocol + "\"");
        root.set_config(edited);
        external_protocol_info info{};
        EXPECT_EQ(ReadProjectorConfig(&info), 0) << protocol;
        EXPECT_NE(info.protocol, -1) << protocol;
    }
}

// ---- Validation and restore ----------------------------------------------------------------

TEST(ValidateJsonConfig, ObjectDocument_ShouldBeLeftAloneSilently)
{
    sysroot root;
    root.set_config("{\"a\":1}");
    log_capture capture;
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), "{\"a\":1}");
    EXPECT_TRUE(capture.lines().empty());
}

TEST(ValidateJsonConfig, TextThatIsNotJson_ShouldBeReplacedByTheDefault)
{
    sysroot root;
    root.set_config("{\"a\": tru}");
    log_capture capture;
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), vask_test::default_document());
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ValidateJsonConfig", "error:tru}"},
                                   {2, "utils", kAnyLine, "ValidateJsonConfig", "copy default config"}});
}

TEST(ValidateJsonConfig, ArrayRoot_ShouldBeReplacedAndLoggedWithType32)
{
    sysroot root;
    root.set_config("[]");
    log_capture capture;
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), vask_test::default_document());
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ValidateJsonConfig", not_an_object(32)},
                                   {2, "utils", kAnyLine, "ValidateJsonConfig", "copy default config"}});
}

TEST(ValidateJsonConfig, NumberAndStringRoots_ShouldBeLoggedWithTheirTypeCodes)
{
    sysroot root;
    for (auto [text, type] : {std::pair<const char *, int>{"7", 8}, {"\"text\"", 16}, {"null", 4}, {"true", 2}}) {
        root.set_config(text);
        log_capture capture;
        EXPECT_EQ(ValidateJsonConfig(), 0);
        EXPECT_EQ(root.config(), vask_test::default_document()) << text;
        auto lines = capture.lines();
        ASSERT_EQ(lines.size(), 2u) << text;
        EXPECT_EQ(lines[0].message, not_an_object(type));
        EXPECT_EQ(lines[0].level, 0);
    }
}

TEST(ValidateJsonConfig, ZeroLengthFile_ShouldBeRestoredWhileAReaderFails)
{
    sysroot root;
    root.set_config("");
    external_protocol_info info{};
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", &info), -1);
    EXPECT_EQ(info.protocol, -1);
    log_capture capture;
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), vask_test::default_document());
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ValidateJsonConfig", "error:"},
                                   {2, "utils", kAnyLine, "ValidateJsonConfig", "copy default config"}});
}

TEST(ValidateJsonConfig, MissingFile_ShouldBeLoggedAndNotRestored)
{
    sysroot root(false);
    log_capture capture;
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_FALSE(root.has_config());
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ValidateJsonConfig", "open config file failed"}});
}

TEST(ValidateJsonConfig, MissingWritableFolder_ShouldNotBeCreated)
{
    sysroot root;
    // The live file is a plain file here, so that it can be read while the writable copy's folder
    // is gone.
    unlink(root.path("/etc/external_device.json").c_str());
    vask_test::write_file(root.path("/etc/external_device.json"), "[1]");
    std::filesystem::remove_all(root.path("/var/lib/vask/etc"));
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_FALSE(std::filesystem::exists(root.path("/var/lib/vask/etc")));
    EXPECT_EQ(root.config(), "[1]");
}

TEST(ValidateJsonConfig, BrokenDefault_ShouldBeCopiedAsItIs)
{
    sysroot root;
    vask_test::write_file(root.path("/usr/share/vask/etc/external_device.json"), "broken");
    root.set_config("[]");
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), "broken");
}

TEST(ValidateJsonConfig, RootWithBlanksAndQuotes_ShouldStillBeRestored)
{
    sysroot root(true, "it's a $root; `x`");
    root.set_config("[]");
    EXPECT_EQ(ValidateJsonConfig(), 0);
    EXPECT_EQ(root.config(), vask_test::default_document());
}

// ---- The configuration lock ----------------------------------------------------------------

namespace {

struct locked_call {
    const char *name;
    std::function<int()> call;
};

// Functions that hold the lock for their whole cycle, with their result on a good default file
// (the result on a file that is not JSON is -1 for each).
std::vector<locked_call> lock_holders()
{
    return {
        {"ReadControlDeviceConfig",
         [] {
             external_protocol_info info{};
             return ReadControlDeviceConfig("miccentral_control", &info);
         }},
        {"ReadProjectorConfig",
         [] {
             external_protocol_info info{};
             return ReadProjectorConfig(&info);
         }},
        {"ReadExternalControlConfig",
         [] {
             external_control_info info{};
             return ReadExternalControlConfig(&info);
         }},
        {"UpdateControlDeviceSettings",
         [] { return UpdateControlDeviceSettings("castdeck_control", true, "none", "", "", "", "", ""); }},
        {"UpdateControlDeviceConfig",
         [] {
             external_protocol_info info{false, 0, "", "", "", "", ""};
             return UpdateControlDeviceConfig("castdeck_control", &info);
         }},
        {"UpdateExternalControlConfig",
         [] {
             external_control_info info{true, "24", "9600", "ttyS1"};
             return UpdateExternalControlConfig(&info);
         }},
    };
}

} // namespace

TEST(ConfigLock, EveryReaderAndWriter_ShouldWaitForTheLockAndReadOnlyAfterIt)
{
    sysroot root;
    for (const locked_call &function : lock_holders()) {
        auto hold = std::make_unique<vask_ed::config_lock_guard>();
        // A call that did not wait would read this text and fail.
        root.set_config("not json");
        std::atomic<int> result{99};
        std::thread caller([&] { result = function.call(); });
        // While the lock is held the call cannot finish; one that finishes has read without it.
        EXPECT_FALSE(vask_test::eventually([&] { return result != 99; }, std::chrono::milliseconds(200)))
            << function.name;
        root.set_config(vask_test::default_document());
        hold.reset();
        caller.join();
        EXPECT_EQ(result, 0) << function.name;
    }
}

TEST(ConfigLock, EveryPath_ShouldLeaveTheLockFree)
{
    sysroot root;
    auto check = [](const char *what) { EXPECT_TRUE(vask_ed::config_lock_is_free()) << what; };
    for (const std::string &text : {std::string("not json"), std::string("{}"), std::string("[]"),
                                    vask_test::default_document()}) {
        root.set_config(text);
        for (const locked_call &function : lock_holders()) {
            function.call();
            check(function.name);
        }
        ValidateJsonConfig();
        check("ValidateJsonConfig");
    }
    root.remove_config();
    for (const locked_call &function : lock_holders()) {
        function.call();
        check(function.name);
        root.remove_config();
    }
    EXPECT_EQ(UpdateControlDeviceConfig("miccentral_control", nullptr), -1);
    check("UpdateControlDeviceConfig with a null record");
    EXPECT_EQ(ReadControlDeviceConfig("miccentral_control", nullptr), -1);
    EXPECT_EQ(ReadProjectorConfig(nullptr), -1);
    EXPECT_EQ(ReadExternalControlConfig(nullptr), -1);
    EXPECT_EQ(UpdateExternalControlConfig(nullptr), -1);
    check("null records");
}

TEST(ConfigLock, NullRecordOfTheWriter_ShouldLogAndLetTheNextCallRun)
{
    sysroot root;
    log_capture capture;
    EXPECT_EQ(UpdateControlDeviceConfig("miccentral_control", nullptr), -1);
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateControlDeviceConfig",
                   "Update Control Device Config miccentral_control"},
                  {0, "utils", kAnyLine, "UpdateControlDeviceConfig", "info = NULL"}});
    // A lock left held would block this call for ever; it runs on its own thread with a bound.
    std::atomic<int> result{99};
    std::thread next([&] {
        result = UpdateControlDeviceSettings("miccentral_control", false, "none", "", "", "", "", "");
    });
    if (!vask_test::eventually([&] { return result != 99; })) {
        // The thread waits for ever: leave it behind so that the test ends.
        next.detach();
        FAIL() << "the lock was left held";
    }
    next.join();
    EXPECT_EQ(result, 0);
}

// ---- Writing the file ----------------------------------------------------------------------

TEST(ConfigWrite, OneSectionChanged_ShouldKeepEveryOtherSectionIntactAndInOrder)
{
    sysroot root;
    ASSERT_EQ(UpdateControlDeviceSettings("castdeck_control", true, "tcp", "9000", "192.0.2.5", "pw", "", "op"), 0);
    std::string text = root.config();
    std::string original = vask_test::default_document();
    EXPECT_EQ(vask_test::section_names(text), kBoxSections);
    for (const std::string &name : kBoxSections) {
        if (name == "castdeck_control")
            continue;
        EXPECT_EQ(vask_test::section_of(text, name.c_str()), vask_test::section_of(original, name.c_str())) << name;
    }
    EXPECT_EQ(formatted(text), text);
}

TEST(ConfigWrite, OneLineFile_ShouldComeBackFormattedWithTabs)
{
    sysroot root;
    root.set_config("{\"castdeck_control\":{\"enable\":false,\"protocol\":\"none\"},\"other\":[1,2]}");
    ASSERT_EQ(UpdateControlDeviceSettings("castdeck_control", false, "none", "", "", "", "", ""), 0);
    EXPECT_EQ(root.config(), "{\n\t\"castdeck_control\":\t{\n\t\t\"enable\":\tfalse,\n"
                             "\t\t\"protocol\":\t\"none\"\n\t},\n"
                             "\t\"other\":\t[1, 2]\n}");
}

TEST(ConfigWrite, LinkedFile_ShouldBeReplacedWithItsLinkModeAndOwnerKept)
{
    sysroot root;
    std::string file = root.config_path();
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    // Root can give the file away; an ordinary user keeps it as its own.
    uid_t owner = getuid() == 0 ? 4242 : getuid();
    gid_t group = getuid() == 0 ? 4343 : getgid();
    ASSERT_EQ(chown(file.c_str(), owner, group), 0);
    struct stat before = stat_of(file);
    ASSERT_EQ(UpdateControlDeviceSettings("miccentral_control", true, "tcp", "1", "192.0.2.1", "", "", ""), 0);
    struct stat after = stat_of(file);
    EXPECT_NE(after.st_ino, before.st_ino) << "a new file is renamed over the old one";
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(after.st_uid, owner);
    EXPECT_EQ(after.st_gid, group);
    char target[256] = {};
    ASSERT_GT(readlink(root.path("/etc/external_device.json").c_str(), target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "../var/lib/vask/etc/external_device.json");
    EXPECT_EQ(folder_entries(root.path("/var/lib/vask/etc")), std::vector<std::string>{"external_device.json"});
    EXPECT_NE(root.config().find("192.0.2.1"), std::string::npos);
}

TEST(ConfigWrite, MissingFileBehindALink_ShouldBeCreatedWhereTheLinkLeads)
{
    sysroot root(false);
    mode_t mask = umask(022);
    umask(mask);
    ASSERT_EQ(UpdateControlDeviceSettings("miccentral_control", false, "none", "", "", "", "", ""), 0);
    struct stat link_info {};
    ASSERT_EQ(lstat(root.path("/etc/external_device.json").c_str(), &link_info), 0);
    EXPECT_TRUE(S_ISLNK(link_info.st_mode));
    EXPECT_EQ(root.config(), formatted("{\"miccentral_control\":{\"enable\":false,\"protocol\":\"none\"}}"));
    EXPECT_EQ(stat_of(root.config_path()).st_mode & 0777, 0666u & ~mask);
}

TEST(ConfigWrite, RootThatIsNotAnObject_ShouldBeRefusedAndKept)
{
    sysroot root;
    root.set_config("[1,2]");
    log_capture capture;
    EXPECT_EQ(UpdateControlDeviceSettings("miccentral_control", true, "none", "", "", "", "", ""), -1);
    EXPECT_EQ(root.config(), "[1,2]");
    external_control_info info{true, "1", "2", "3"};
    EXPECT_EQ(UpdateExternalControlConfig(&info), -1);
    EXPECT_EQ(root.config(), "[1,2]");
    auto lines = capture.with_message("error:(null)");
    EXPECT_EQ(lines.size(), 2u);
}

TEST(ConfigWrite, SectionThatIsNotAnObject_ShouldBeReplacedByTheWritersSection)
{
    sysroot root;
    root.set_config("{\"miccentral_control\":5,\"b\":1}");
    ASSERT_EQ(UpdateControlDeviceSettings("miccentral_control", true, "none", "", "", "", "", ""), 0);
    EXPECT_EQ(root.config(), formatted("{\"b\":1,\"miccentral_control\":{\"enable\":true,\"protocol\":\"none\"}}"));
}

namespace {

// cJSON allocations fail from the `fail_at`-th one on while it is set (0: never).
std::atomic<int> allocations{0};
std::atomic<int> fail_at{0};

void *counting_malloc(size_t size)
{
    int count = ++allocations;
    if (fail_at != 0 && count >= fail_at)
        return nullptr;
    return malloc(size);
}

} // namespace

TEST(ConfigWrite, NodeThatCannotBeMade_ShouldFailCleanlyAndKeepTheFile)
{
    sysroot root;
    const std::vector<std::pair<std::string, std::function<int()>>> writers = {
        {"settings into a section",
         [] { return UpdateControlDeviceSettings("miccentral_control", true, "tcp", "1", "h", "p", "", "u"); }},
        {"settings into a new section",
         [] { return UpdateControlDeviceSettings("new_control", true, "rs232", "", "", "", "9600", ""); }},
        {"record into a section",
         [] {
             external_protocol_info info{true, 2, "h", "u", "p", "", ""};
             return UpdateControlDeviceConfig("castdeck_control", &info);
         }},
        {"record into a new section",
         [] {
             external_protocol_info info{true, 21, "", "", "", "9600", ""};
             return UpdateControlDeviceConfig("new_control", &info);
         }},
        {"external control",
         [] {
             external_control_info info{true, "2", "3", "4"};
             return UpdateExternalControlConfig(&info);
         }},
    };
    cJSON_Hooks hooks = {counting_malloc, free};
    for (const auto &[name, write] : writers) {
        bool reached_the_end = false;
        for (int n = 1; n < 5000 && !reached_the_end; ++n) {
            root.set_config(vask_test::default_document());
            allocations = 0;
            fail_at = n;
            cJSON_InitHooks(&hooks);
            int result = write();
            cJSON_InitHooks(nullptr);
            reached_the_end = allocations < n;
            if (reached_the_end) {
                EXPECT_EQ(result, 0) << name;
                EXPECT_NE(root.config(), vask_test::default_document()) << name;
                continue;
            }
            EXPECT_EQ(result, -1) << name << " failing at allocation " << n;
            EXPECT_EQ(root.config(), vask_test::default_document()) << name << " failing at allocation " << n;
        }
        EXPECT_TRUE(reached_the_end) << name;
        EXPECT_TRUE(vask_ed::config_lock_is_free()) << name;
    }
    fail_at = 0;
}

// ---- Failures of the write, through the fault helper ---------------------------------------

namespace {

constexpr const char *kTempFiles = "/.external_device.json.tmp";
constexpr const char *kLiveFile = "etc/external_device.json";
constexpr const char *kSettingsEntry =
    "2|utils|%d|UpdateControlDeviceSettings|UpdateControlDeviceSettings miccentral_control, enable 1 protocol "
    "shure-tcp, username admin";

} // namespace

class ConfigWriteFault : public ::testing::Test {
protected:
    void SetUp() override
    {
        original_ = root_.config();
        inode_ = stat_of(root_.config_path()).st_ino;
    }
    // The old file is as it was: same text, same file, nothing left beside it.
    void expect_untouched()
    {
        EXPECT_EQ(root_.config(), original_);
        EXPECT_EQ(stat_of(root_.config_path()).st_ino, inode_);
        EXPECT_EQ(folder_entries(root_.path("/var/lib/vask/etc")), std::vector<std::string>{"external_device.json"});
    }
    bool stored() { return root_.config().find("192.0.2.10") != std::string::npos; }

    sysroot root_;
    std::string original_;
    ino_t inode_ = 0;
};

TEST_F(ConfigWriteFault, WithoutFaults_ShouldStoreThroughANewFile)
{
    helper_run run = run_helper("settings", "");
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(stored());
    EXPECT_NE(stat_of(root_.config_path()).st_ino, inode_);
    EXPECT_EQ(folder_entries(root_.path("/var/lib/vask/etc")), std::vector<std::string>{"external_device.json"});
}

TEST_F(ConfigWriteFault, NoRoomForTheNewText_ShouldFailAndKeepTheOldFile)
{
    helper_run run = run_helper("settings", std::string("write:28:") + kTempFiles);
    EXPECT_EQ(run.result, -1);
    expect_untouched();
    ASSERT_EQ(run.log.size(), 2u);
    EXPECT_EQ(run.log[1], "0|utils|" + run.log[0].substr(8, run.log[0].find('|', 8) - 8) +
                              "|UpdateControlDeviceSettings|write " + root_.path("/etc/external_device.json") +
                              " failed, errno=28");
}

TEST_F(ConfigWriteFault, FailedFlush_ShouldFailAndKeepTheOldFile)
{
    helper_run run = run_helper("settings", std::string("fsync:5:") + kTempFiles);
    EXPECT_EQ(run.result, -1);
    expect_untouched();
}

TEST_F(ConfigWriteFault, FailedRename_ShouldFailAndLeaveNoTemporaryFile)
{
    helper_run run = run_helper("settings", std::string("rename:5:") + kLiveFile);
    EXPECT_EQ(run.result, -1);
    expect_untouched();
}

TEST_F(ConfigWriteFault, NoTemporaryFileInTheFolder_ShouldRewriteInPlace)
{
    helper_run run = run_helper("settings", std::string("open:13:") + kTempFiles);
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(stored());
    EXPECT_EQ(stat_of(root_.config_path()).st_ino, inode_) << "the same file, rewritten";
    EXPECT_EQ(formatted(root_.config()), root_.config());
    EXPECT_EQ(folder_entries(root_.path("/var/lib/vask/etc")), std::vector<std::string>{"external_device.json"});
}

TEST_F(ConfigWriteFault, ReadOnlyFolderAndNoRoom_ShouldFailBeforeTouchingTheFile)
{
    helper_run run =
        run_helper("settings", std::string("open:30:") + kTempFiles + ";fallocate:28:" + kLiveFile);
    EXPECT_EQ(run.result, -1);
    expect_untouched();
}

TEST_F(ConfigWriteFault, NoPermissionOnTheFile_ShouldFailAndKeepIt)
{
    helper_run run = run_helper("settings", std::string("access:13:") + kLiveFile);
    EXPECT_EQ(run.result, -1);
    expect_untouched();
}

TEST_F(ConfigWriteFault, NoPermissionAnywhere_ShouldFailAndKeepTheFile)
{
    helper_run run = run_helper("settings", "open:13:external_device.json");
    EXPECT_EQ(run.result, -1);
    expect_untouched();
}

TEST_F(ConfigWriteFault, UnreadableFile_ShouldNotBeReplacedByANewDocument)
{
    helper_run run = run_helper("settings", "fopen:13:external_device.json");
    EXPECT_EQ(run.result, -1);
    expect_untouched();
    ASSERT_EQ(run.log.size(), 2u);
    EXPECT_NE(run.log[1].find("|UpdateControlDeviceSettings|open external_device config file failed"),
              std::string::npos);
    EXPECT_EQ(run.log[1].substr(0, 8), "0|utils|");
}

TEST_F(ConfigWriteFault, ShortRead_ShouldBeLoggedAndTheShorterTextParsed)
{
    helper_run run = run_helper("read", "fread:0:external_device.json");
    EXPECT_EQ(run.result, -1);
    ASSERT_EQ(run.log.size(), 2u);
    int size = static_cast<int>(original_.size());
    std::string line = run.log[0].substr(8, run.log[0].find('|', 8) - 8);
    EXPECT_EQ(run.log[0], "1|utils|" + line + "|ReadControlDeviceConfig|read file query " + std::to_string(size) +
                              " , but " + std::to_string(size / 2));
    // The error text is the rest of the half that was read, from where its parse stopped.
    std::string half = original_.substr(0, static_cast<size_t>(size / 2));
    const char *parse_end = nullptr;
    cJSON_Delete(cJSON_ParseWithOpts(half.c_str(), &parse_end, false));
    ASSERT_NE(parse_end, nullptr);
    EXPECT_EQ(run.log[1], "0|utils|" + line + "|ReadControlDeviceConfig|error:" + parse_end);
}

TEST_F(ConfigWriteFault, EntryLine_ShouldBeTheWritersOwn)
{
    helper_run run = run_helper("settings", "");
    ASSERT_EQ(run.log.size(), 1u);
    int line = std::stoi(run.log[0].substr(8));
    char expected[256];
    snprintf(expected, sizeof expected, kSettingsEntry, line);
    EXPECT_EQ(run.log[0], expected);
}

// ---- Many threads ----------------------------------------------------------------------------

class ConfigConcurrency : public ::testing::Test {
protected:
    sysroot root_;
};

// Four threads write four different sections 500 times each; after every write a thread reads
// its own section back and must find its last value: an update lost to an interleaved
// read-modify-write of another thread would show an older one.
TEST_F(ConfigConcurrency, FourThreadsWritingDifferentSections_ShouldLoseNoUpdate)
{
    constexpr int kWrites = 500;
    std::atomic<int> failures{0};
    std::atomic<int> lost{0};
    auto count = [&](int result) {
        if (result != 0)
            ++failures;
    };
    std::vector<std::thread> writers;
    writers.emplace_back([&] {
        for (int i = 0; i < kWrites; ++i) {
            std::string user = "mic" + std::to_string(i);
            count(UpdateControlDeviceSettings("miccentral_control", true, "shure-tcp", "4001", "192.0.2.1", "pw", "",
                                              user));
            external_protocol_info info{};
            count(ReadControlDeviceConfig("miccentral_control", &info));
            if (info.username != user)
                ++lost;
        }
    });
    writers.emplace_back([&] {
        for (int i = 0; i < kWrites; ++i) {
            std::string user = "cast" + std::to_string(i);
            external_protocol_info record{false, 1, "192.0.2.2", user, "pw", "", ""};
            count(UpdateControlDeviceConfig("castdeck_control", &record));
            external_protocol_info info{};
            count(ReadControlDeviceConfig("castdeck_control", &info));
            if (info.username != user)
                ++lost;
        }
    });
    writers.emplace_back([&] {
        for (int i = 0; i < kWrites; ++i) {
            external_control_info control{i % 2 == 0, std::to_string(i), "9600", "ttyS0"};
            count(UpdateExternalControlConfig(&control));
            external_control_info info{};
            count(ReadExternalControlConfig(&info));
            if (info.port != std::to_string(i))
                ++lost;
        }
    });
    writers.emplace_back([&] {
        for (int i = 0; i < kWrites; ++i) {
            std::string user = "aux" + std::to_string(i);
            count(UpdateControlDeviceSettings("aux_control", false, "tcp", "1", "192.0.2.4", "", "", user));
            external_protocol_info info{};
            count(ReadControlDeviceConfig("aux_control", &info));
            if (info.username != user)
                ++lost;
        }
    });
    for (auto &writer : writers)
        writer.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(lost, 0);
    std::string text = root_.config();
    EXPECT_NE(text.find("\"mic499\""), std::string::npos);
    EXPECT_NE(text.find("\"cast499\""), std::string::npos);
    EXPECT_NE(text.find("\"port\":\t\"499\""), std::string::npos);
    EXPECT_NE(text.find("\"aux499\""), std::string::npos);
    std::vector<std::string> sections = kBoxSections;
    sections.push_back("aux_control");
    EXPECT_EQ(vask_test::section_names(text), sections);
}

// Another process (or a thread that does not take the lock) reading the file while writers
// rewrite it always finds a whole document.
TEST_F(ConfigConcurrency, ReaderBesideTheWriters_ShouldNeverSeeAPartialFile)
{
    constexpr int kWrites = 500;
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::atomic<int> partial{0};
    std::thread reader([&] {
        auto check_once = [&] {
            std::string text = root_.config();
            ++reads;
            std::vector<std::string> names = vask_test::section_names(text);
            if (names.size() < kBoxSections.size() || text.size() < 100 || formatted(text) != text)
                ++partial;
        };
        while (!done)
            check_once();
        check_once();
    });
    std::vector<std::thread> writers;
    for (int t = 0; t < 2; ++t)
        writers.emplace_back([t] {
            for (int i = 0; i < kWrites; ++i) {
                std::string value(static_cast<size_t>(1 + (i * 37) % 400), static_cast<char>('a' + t));
                if (t == 0)
                    UpdateControlDeviceSettings("miccentral_control", true, "tcp", "1", "192.0.2.1", value, "", "u");
                else
                    UpdateControlDeviceSettings("castdeck_control", true, "tcp", "1", "192.0.2.1", "", "", value);
            }
        });
    for (auto &writer : writers)
        writer.join();
    done = true;
    reader.join();
    EXPECT_GT(reads, 0);
    EXPECT_EQ(partial, 0);
}
