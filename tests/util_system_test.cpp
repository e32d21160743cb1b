// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <termios.h>
#include <vector>

#include "libvask_external_device.h"
#include "log_capture.h"
#include "process.h"

using vask_test::log_capture;
using vask_test::temp_dir;

namespace {

void write_file(const std::string &path, const std::string &content)
{
    FILE *file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr) << path;
    ASSERT_EQ(fwrite(content.data(), 1, content.size(), file), content.size());
    ASSERT_EQ(fclose(file), 0);
}

// Asserts that exactly one line was logged, from the utilities, with these fields.
void expect_one_line(log_capture &capture, int level, const std::string &function, const std::string &message)
{
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, ED_LOG_MODULE);
    EXPECT_EQ(lines[0].level, level);
    EXPECT_EQ(lines[0].source, "utils");
    EXPECT_EQ(lines[0].function, function);
    EXPECT_EQ(lines[0].message, message);
}

// Sets an environment variable for the life of the object; the time zone is reloaded both ways.
class scoped_env {
public:
    scoped_env(const char *name, const std::string &value) : name_(name)
    {
        const char *old = getenv(name);
        had_old_ = old != nullptr;
        if (had_old_)
            old_ = old;
        setenv(name, value.c_str(), 1);
        tzset();
    }
    ~scoped_env()
    {
        if (had_old_)
            setenv(name_.c_str(), old_.c_str(), 1);
        else
            unsetenv(name_.c_str());
        tzset();
    }
    scoped_env(const scoped_env &) = delete;
    scoped_env &operator=(const scoped_env &) = delete;

private:
    std::string name_;
    bool had_old_ = false;
    std::string old_;
};

std::string print(const cJSON *json)
{
    char *text = cJSON_PrintUnformatted(json);
    std::string result = text != nullptr ? text : "(null)";
    cJSON_free(text);
    return result;
}

struct json_tree {
    explicit json_tree(const char *text) : json(cJSON_Parse(text)) {}
    ~json_tree() { cJSON_Delete(json); }
    json_tree(const json_tree &) = delete;
    json_tree &operator=(const json_tree &) = delete;
    cJSON *json;
};

// A BMP file header and BITMAPINFOHEADER of 54 bytes with the given width and height.
std::string bmp_header(uint32_t width, uint32_t height)
{
    std::string header(54, '\0');
    header[0] = 'B';
    header[1] = 'M';
    header[14] = 40;
    for (int i = 0; i < 4; ++i) {
        header[18 + i] = static_cast<char>((width >> (8 * i)) & 0xff);
        header[22 + i] = static_cast<char>((height >> (8 * i)) & 0xff);
    }
    return header;
}

} // namespace

// ---- ExecShellCmd ----

TEST(UtilSystem, ExecShellCmd_ShouldReturnTheExitCodeAndCaptureTheOutput)
{
    std::string output;
    EXPECT_EQ(ExecShellCmd("echo hello; echo world; exit 3", &output), 3);
    EXPECT_EQ(output, "hello\nworld\n");
}

TEST(UtilSystem, ExecShellCmd_ShouldReturnZeroForASuccessfulCommand)
{
    std::string output;
    EXPECT_EQ(ExecShellCmd("printf abc", &output), 0);
    EXPECT_EQ(output, "abc");
}

TEST(UtilSystem, ExecShellCmd_ShouldAppendToTheOutput)
{
    std::string output = "before:";
    EXPECT_EQ(ExecShellCmd("echo after", &output), 0);
    EXPECT_EQ(output, "before:after\n");
}

TEST(UtilSystem, ExecShellCmd_ShouldCaptureLinesLongerThanItsBuffer)
{
    std::string output;
    EXPECT_EQ(ExecShellCmd("head -c 2000 /dev/zero | tr '\\0' x", &output), 0);
    EXPECT_EQ(output, std::string(2000, 'x'));
}

TEST(UtilSystem, ExecShellCmd_ShouldDiscardTheOutputWhenNull)
{
    EXPECT_EQ(ExecShellCmd("echo ignored; exit 7", nullptr), 7);
}

TEST(UtilSystem, ExecShellCmd_ShouldReturnMinusOneWhenTheCommandIsKilled)
{
    std::string output;
    EXPECT_EQ(ExecShellCmd("echo before; kill -9 $$", &output), -1);
    EXPECT_EQ(output, "before\n");
}

TEST(UtilSystem, ExecShellCmd_ShouldReturnZeroWhenTheStatusIsLostToAnIgnoredSigchld)
{
    struct sigaction ignore = {};
    struct sigaction previous = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &previous), 0);
    std::string output;
    int result = ExecShellCmd("echo gone; exit 5", &output);
    sigaction(SIGCHLD, &previous, nullptr);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output, "gone\n");
}

// ---- cJSON_UpdateObjectItem ----

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldAddAMissingMember)
{
    json_tree tree("{\"a\":1}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "n", 5), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "d", 2.5), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "s", "text"), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "t", true), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "f", false), 0);
    EXPECT_EQ(print(tree.json), "{\"a\":1,\"n\":5,\"d\":2.5,\"s\":\"text\",\"t\":true,\"f\":false}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldReplaceTheMemberAndMoveItToTheEnd)
{
    json_tree tree("{\"n\":1,\"d\":1.5,\"s\":\"old\",\"b\":false,\"last\":0}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "n", 2), 0);
    EXPECT_EQ(print(tree.json), "{\"d\":1.5,\"s\":\"old\",\"b\":false,\"last\":0,\"n\":2}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "d", 0.25), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "s", "new"), 0);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "b", true), 0);
    EXPECT_EQ(print(tree.json), "{\"last\":0,\"n\":2,\"d\":0.25,\"s\":\"new\",\"b\":true}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldReplaceAMemberOfAnotherType)
{
    json_tree tree("{\"k\":{\"inner\":[1,2]}}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "k", "flat"), 0);
    EXPECT_EQ(print(tree.json), "{\"k\":\"flat\"}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldRemoveTheKeyForAnEmptyString)
{
    json_tree tree("{\"a\":\"x\",\"b\":1}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "a", ""), 0);
    EXPECT_EQ(print(tree.json), "{\"b\":1}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "missing", ""), 0);
    EXPECT_EQ(print(tree.json), "{\"b\":1}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldRefuseAnEmptyKeyInEveryForm)
{
    json_tree tree("{\"\":1,\"a\":2}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "", 5), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "", 5.5), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "", "x"), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "", ""), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "", true), -1);
    EXPECT_EQ(print(tree.json), "{\"\":1,\"a\":2}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldRefuseANullObjectOrKey)
{
    EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", 1), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", 1.0), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", "x"), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", ""), -1);
    EXPECT_EQ(cJSON_UpdateObjectItem(nullptr, "a", false), -1);
    json_tree tree("{\"a\":2}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, nullptr, 1), -1);
    EXPECT_EQ(print(tree.json), "{\"a\":2}");
}

TEST(UtilSystem, cJSON_UpdateObjectItem_ShouldRefuseANullStringValue)
{
    json_tree tree("{\"a\":\"x\"}");
    EXPECT_EQ(cJSON_UpdateObjectItem(tree.json, "a", static_cast<const char *>(nullptr)), -1);
    EXPECT_EQ(print(tree.json), "{\"a\":\"x\"}");
}

// ---- cJSON_AppendTwoArrays ----

TEST(UtilSystem, cJSON_AppendTwoArrays_ShouldAppendCopiesInOrder)
{
    json_tree dst("[1,\"a\"]");
    json_tree src("[2,\"b\",true,null]");
    EXPECT_EQ(cJSON_AppendTwoArrays(dst.json, src.json), 0);
    EXPECT_EQ(print(dst.json), "[1,\"a\",2,\"b\",true,null]");
    EXPECT_EQ(print(src.json), "[2,\"b\",true,null]");
}

TEST(UtilSystem, cJSON_AppendTwoArrays_ShouldCopyContainersWithoutTheirChildren)
{
    json_tree dst("[0]");
    json_tree src("[{\"k\":1},[1,2]]");
    EXPECT_EQ(cJSON_AppendTwoArrays(dst.json, src.json), 0);
    EXPECT_EQ(print(dst.json), "[0,{},[]]");
    EXPECT_EQ(print(src.json), "[{\"k\":1},[1,2]]");
}

TEST(UtilSystem, cJSON_AppendTwoArrays_ShouldRefuseAnEmptyArray)
{
    json_tree empty("[]");
    json_tree full("[1]");
    EXPECT_EQ(cJSON_AppendTwoArrays(empty.json, full.json), -1);
    EXPECT_EQ(print(empty.json), "[]");
    EXPECT_EQ(cJSON_AppendTwoArrays(full.json, empty.json), -1);
    EXPECT_EQ(print(full.json), "[1]");
}

TEST(UtilSystem, cJSON_AppendTwoArrays_ShouldRefuseNull)
{
    json_tree full("[1]");
    EXPECT_EQ(cJSON_AppendTwoArrays(nullptr, full.json), -1);
    EXPECT_EQ(cJSON_AppendTwoArrays(full.json, nullptr), -1);
    EXPECT_EQ(print(full.json), "[1]");
}

TEST(UtilSystem, cJSON_AppendTwoArrays_ShouldDoubleAnArrayAppendedToItself)
{
    json_tree array("[1,2]");
    EXPECT_EQ(cJSON_AppendTwoArrays(array.json, array.json), 0);
    EXPECT_EQ(print(array.json), "[1,2,1,2]");
}

// ---- Time ----

TEST(UtilSystem, GetTimeStamp_ShouldReturnTheSecondsSinceTheEpoch)
{
    using namespace std::chrono;
    int64_t before = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    int64_t stamp = GetTimeStamp();
    int64_t after = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST(UtilSystem, GetTimeStampU_ShouldReturnTheMicrosecondsSinceTheEpoch)
{
    using namespace std::chrono;
    auto before = static_cast<uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    uint64_t stamp = GetTimeStampU();
    auto after = static_cast<uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST(UtilSystem, MakeTimeString_ShouldFormatTheLocalTime)
{
    scoped_env zone("TZ", "UTC");
    std::string text = "old";
    EXPECT_EQ(MakeTimeString(0, &text), 0);
    EXPECT_EQ(text, "1970_01_01_00_00_00");
    EXPECT_EQ(MakeTimeString(1709283907, &text), 0);
    EXPECT_EQ(text, "2024_03_01_09_05_07");
}

TEST(UtilSystem, MakeTimeString_ShouldFollowTheTimeZone)
{
    scoped_env zone("TZ", "XYZ-2");
    std::string text;
    EXPECT_EQ(MakeTimeString(1709283907, &text), 0);
    EXPECT_EQ(text, "2024_03_01_11_05_07");
}

TEST(UtilSystem, MakeTimeString_ShouldRefuseATimeWithoutLocalTime)
{
    std::string text = "old";
    EXPECT_EQ(MakeTimeString(LONG_MAX, &text), -1);
    EXPECT_EQ(text, "old");
    EXPECT_EQ(MakeTimeString(0, nullptr), -1);
}

TEST(UtilSystem, GetCurrentTzOffset_ShouldReturnTheSecondsEastOfUtc)
{
    {
        scoped_env zone("TZ", "UTC");
        EXPECT_EQ(GetCurrentTzOffset(), 0.0);
    }
    {
        scoped_env zone("TZ", "XYZ-2");
        EXPECT_EQ(GetCurrentTzOffset(), 7200.0);
    }
    {
        scoped_env zone("TZ", "XYZ+5");
        EXPECT_EQ(GetCurrentTzOffset(), -18000.0);
    }
}

// ---- GetBmpWidthHeight ----

TEST(UtilSystem, GetBmpWidthHeight_ShouldReadTheSizeFromTheHeader)
{
    temp_dir dir;
    std::string path = dir.path() + "/image.bmp";
    write_file(path, bmp_header(1920, 1080) + std::string(16, '\x7f'));
    unsigned int width = 0;
    unsigned int height = 0;
    log_capture capture;
    EXPECT_EQ(GetBmpWidthHeight(path, &width, &height), 0);
    EXPECT_EQ(width, 1920u);
    EXPECT_EQ(height, 1080u);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(UtilSystem, GetBmpWidthHeight_ShouldReadLittleEndianValues)
{
    temp_dir dir;
    std::string path = dir.path() + "/image.bmp";
    write_file(path, bmp_header(0x12345678u, 0xfffffe0cu));
    unsigned int width = 0;
    unsigned int height = 0;
    EXPECT_EQ(GetBmpWidthHeight(path, &width, &height), 0);
    EXPECT_EQ(width, 0x12345678u);
    EXPECT_EQ(height, 0xfffffe0cu);
}

TEST(UtilSystem, GetBmpWidthHeight_ShouldLogAShortHeaderAndGoOn)
{
    temp_dir dir;
    std::string path = dir.path() + "/short.bmp";
    write_file(path, bmp_header(640, 480).substr(0, 20));
    unsigned int width = 0;
    unsigned int height = 99;
    log_capture capture;
    EXPECT_EQ(GetBmpWidthHeight(path, &width, &height), 0);
    EXPECT_EQ(width, 640u);
    EXPECT_EQ(height, 0u);
    expect_one_line(capture, 1, "GetBmpWidthHeight", "read file query 54 , but 20");
}

TEST(UtilSystem, GetBmpWidthHeight_ShouldLogAFileThatCannotBeOpened)
{
    temp_dir dir;
    std::string path = dir.path() + "/missing.bmp";
    unsigned int width = 7;
    unsigned int height = 8;
    log_capture capture;
    EXPECT_EQ(GetBmpWidthHeight(path, &width, &height), -1);
    EXPECT_EQ(width, 7u);
    EXPECT_EQ(height, 8u);
    expect_one_line(capture, 0, "GetBmpWidthHeight", "Failed to open bmp file: " + path);
}

TEST(UtilSystem, GetBmpWidthHeight_ShouldRefuseNullOutputs)
{
    temp_dir dir;
    std::string path = dir.path() + "/image.bmp";
    write_file(path, bmp_header(1, 2));
    unsigned int value = 0;
    EXPECT_EQ(GetBmpWidthHeight(path, nullptr, &value), -1);
    EXPECT_EQ(GetBmpWidthHeight(path, &value, nullptr), -1);
    EXPECT_EQ(value, 0u);
}

// ---- IPv4 addresses ----

TEST(UtilSystem, IsValidIpAddress_ShouldAcceptDottedQuads)
{
    EXPECT_TRUE(IsValidIpAddress("192.168.1.10"));
    EXPECT_TRUE(IsValidIpAddress("0.0.0.0"));
    EXPECT_TRUE(IsValidIpAddress("255.255.255.255"));
}

TEST(UtilSystem, IsValidIpAddress_ShouldRefuseEverythingElse)
{
    EXPECT_FALSE(IsValidIpAddress(""));
    EXPECT_FALSE(IsValidIpAddress("256.1.1.1"));
    EXPECT_FALSE(IsValidIpAddress("1.2.3"));
    EXPECT_FALSE(IsValidIpAddress("1.2.3.4.5"));
    EXPECT_FALSE(IsValidIpAddress(" 1.2.3.4"));
    EXPECT_FALSE(IsValidIpAddress("::1"));
    EXPECT_FALSE(IsValidIpAddress("host.example"));
}

TEST(UtilSystem, IsMulticastIpAddress_ShouldAcceptTheMulticastRange)
{
    EXPECT_TRUE(IsMulticastIpAddress("224.0.0.1"));
    EXPECT_TRUE(IsMulticastIpAddress("239.255.255.250"));
}

TEST(UtilSystem, IsMulticastIpAddress_ShouldRefuseOtherAddressesAndNonAddresses)
{
    EXPECT_FALSE(IsMulticastIpAddress("223.255.255.255"));
    EXPECT_FALSE(IsMulticastIpAddress("240.0.0.1"));
    EXPECT_FALSE(IsMulticastIpAddress("192.168.1.1"));
    EXPECT_FALSE(IsMulticastIpAddress("not an address"));
    EXPECT_FALSE(IsMulticastIpAddress("239.1"));
}

TEST(UtilSystem, GetIpAddress_ShouldReturnTheLoopbackAddress)
{
    std::string ip = "old";
    EXPECT_EQ(GetIpAddress("lo", &ip), 0);
    EXPECT_EQ(ip, "127.0.0.1");
}

TEST(UtilSystem, GetIpAddress_ShouldLeaveTheAddressForAMissingInterface)
{
    std::string ip = "old";
    EXPECT_EQ(GetIpAddress("nosuchif0", &ip), -1);
    EXPECT_EQ(ip, "old");
    EXPECT_EQ(GetIpAddress("", &ip), -1);
    EXPECT_EQ(ip, "old");
    EXPECT_EQ(GetIpAddress("lo", nullptr), -1);
}

TEST(UtilSystem, GetIpAddress_ShouldUseAtMostSixteenBytesOfTheName)
{
    std::string ip = "old";
    // "lo" followed by zero bytes within the first 16 names the loopback; what follows is not read.
    EXPECT_EQ(GetIpAddress(std::string("lo\0\0\0\0\0\0\0\0\0\0\0\0\0\0tail", 20), &ip), 0);
    EXPECT_EQ(ip, "127.0.0.1");
    ip = "old";
    EXPECT_EQ(GetIpAddress("averyveryverylonginterfacename", &ip), -1);
    EXPECT_EQ(ip, "old");
}

// ---- GetDeviceHostname and GetDeviceDescription ----

class UtilIdentityFiles : public ::testing::Test {
protected:
    temp_dir root;
    scoped_env sysroot{"VASK_SYSROOT", root.path()};
    void SetUp() override { ASSERT_EQ(mkdir((root.path() + "/etc").c_str(), 0755), 0); }
    std::string etc(const char *name) const { return root.path() + "/etc/" + name; }
};

TEST_F(UtilIdentityFiles, GetDeviceHostname_ShouldReturnTheFileAsRead)
{
    write_file(etc("hostname"), "box-01\n");
    log_capture capture;
    EXPECT_EQ(GetDeviceHostname(), "box-01\n");
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(UtilIdentityFiles, GetDeviceHostname_ShouldReadAtMostTwentyFourBytes)
{
    write_file(etc("hostname"), "abcdefghijklmnopqrstuvwxyz0123456789\n");
    EXPECT_EQ(GetDeviceHostname(), "abcdefghijklmnopqrstuvwx");
}

TEST_F(UtilIdentityFiles, GetDeviceHostname_ShouldLogTheDescriptionPathWhenMissing)
{
    write_file(etc("description"), "not read\n");
    log_capture capture;
    EXPECT_EQ(GetDeviceHostname(), "");
    expect_one_line(capture, 0, "GetDeviceHostname",
                    "file open " + etc("description") + " error " + std::to_string(ENOENT));
}

TEST_F(UtilIdentityFiles, GetDeviceHostname_ShouldLogAReadError)
{
    ASSERT_EQ(mkdir(etc("hostname").c_str(), 0755), 0);
    log_capture capture;
    EXPECT_EQ(GetDeviceHostname(), "");
    expect_one_line(capture, 1, "GetDeviceHostname", "read failed " + std::to_string(EISDIR));
}

TEST_F(UtilIdentityFiles, GetDeviceDescription_ShouldReturnTheFileAsRead)
{
    write_file(etc("hostname"), "box-01\n");
    write_file(etc("description"), "Room 4 media box\n");
    EXPECT_EQ(GetDeviceDescription(), "Room 4 media box\n");
}

TEST_F(UtilIdentityFiles, GetDeviceDescription_ShouldReadAtMostTwentyFourBytes)
{
    write_file(etc("description"), "Conference room on the third floor\n");
    EXPECT_EQ(GetDeviceDescription(), "Conference room on the t");
}

TEST_F(UtilIdentityFiles, GetDeviceDescription_ShouldLogWhenMissing)
{
    log_capture capture;
    EXPECT_EQ(GetDeviceDescription(), "");
    expect_one_line(capture, 0, "GetDeviceDescription",
                    "file open " + etc("description") + " error " + std::to_string(ENOENT));
}

TEST_F(UtilIdentityFiles, GetDeviceDescription_ShouldLogAReadError)
{
    ASSERT_EQ(mkdir(etc("description").c_str(), 0755), 0);
    log_capture capture;
    EXPECT_EQ(GetDeviceDescription(), "");
    expect_one_line(capture, 1, "GetDeviceDescription", "read failed " + std::to_string(EISDIR));
}

// ---- Sorting, hex and serial speeds ----

TEST(UtilSystem, IntReverseSort_ShouldSortInDescendingOrder)
{
    std::vector<int> values{3, -1, 10, 3, 0};
    std::sort(values.begin(), values.end(), IntReverseSort);
    EXPECT_EQ(values, (std::vector<int>{10, 3, 3, 0, -1}));
    EXPECT_TRUE(IntReverseSort(2, 1));
    EXPECT_FALSE(IntReverseSort(1, 2));
    EXPECT_FALSE(IntReverseSort(1, 1));
}

TEST(UtilSystem, RepresentHexInByte_ShouldParseEightBytes)
{
    unsigned char out[9];
    std::fill(std::begin(out), std::end(out), 0xee);
    EXPECT_EQ(RepresentHexInByte("0123456789abcDEF77", out), 1);
    const unsigned char expected[9] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xee};
    EXPECT_EQ(std::vector<unsigned char>(out, out + 9), std::vector<unsigned char>(expected, expected + 9));
}

TEST(UtilSystem, RepresentHexInByte_ShouldLeaveAPairThatDoesNotParse)
{
    unsigned char out[8];
    std::fill(std::begin(out), std::end(out), 0xee);
    EXPECT_EQ(RepresentHexInByte("zz23456789abcdef", out), 1);
    EXPECT_EQ(out[0], 0xee);
    EXPECT_EQ(out[1], 0x23);
    EXPECT_EQ(out[7], 0xef);
}

TEST(UtilSystem, RepresentHexInByte_ShouldRefuseShortOrNullInput)
{
    unsigned char out[8];
    std::fill(std::begin(out), std::end(out), 0xee);
    EXPECT_EQ(RepresentHexInByte("0123456789abcde", out), -1);
    EXPECT_EQ(RepresentHexInByte(nullptr, out), -1);
    EXPECT_EQ(RepresentHexInByte("0123456789abcdef", nullptr), -1);
    EXPECT_EQ(std::count(std::begin(out), std::end(out), 0xee), 8);
}

TEST(UtilSystem, ConvertBaudrate_ShouldMapEveryRateOfTheTable)
{
    const std::pair<int, speed_t> rates[] = {
        {0, B0},             {50, B50},           {75, B75},           {110, B110},
        {134, B134},         {150, B150},         {200, B200},         {300, B300},
        {600, B600},         {1200, B1200},       {1800, B1800},       {2400, B2400},
        {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
        {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},
        {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000},
        {1152000, B1152000}, {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000},
        {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
    };
    ASSERT_EQ(std::size(rates), 31u);
    for (const auto &rate : rates)
        EXPECT_EQ(ConvertBaudrate(rate.first), static_cast<int>(rate.second)) << rate.first;
}

TEST(UtilSystem, ConvertBaudrate_ShouldReturnMinusOneForOtherRates)
{
    EXPECT_EQ(ConvertBaudrate(14400), -1);
    EXPECT_EQ(ConvertBaudrate(128000), -1);
    EXPECT_EQ(ConvertBaudrate(1), -1);
    EXPECT_EQ(ConvertBaudrate(-1), -1);
    EXPECT_EQ(ConvertBaudrate(static_cast<int>(B115200)), -1);
}

TEST(UtilSystem, ConvertBaudrate_ShouldReturnTheConstantFor115200)
{
    EXPECT_EQ(ConvertBaudrate(115200), static_cast<int>(B115200));
}

TEST(UtilSystem, parse_hex_ShouldReturnTheValueOfADigitInBothCases)
{
    const std::string digits = "0123456789abcdef";
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(parse_hex(digits[i]), i) << digits[i];
        EXPECT_EQ(parse_hex(static_cast<char>(toupper(digits[i]))), i) << digits[i];
    }
}

TEST(UtilSystem, parse_hex_ShouldReturnMinusOneForANonHexCharacter)
{
    for (char c : {'g', 'G', ' ', '\0', '/', ':', '@', '`', 'x'})
        EXPECT_EQ(parse_hex(c), -1) << static_cast<int>(c);
}

TEST(UtilSystem, String_To_HexArray_ShouldConvertPairsHighDigitFirst)
{
    unsigned char out[4] = {0xee, 0xee, 0xee, 0xee};
    int count = -5;
    log_capture capture;
    EXPECT_EQ(String_To_HexArray("0aFf10", out, &count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(out[0], 0x0a);
    EXPECT_EQ(out[1], 0xff);
    EXPECT_EQ(out[2], 0x10);
    EXPECT_EQ(out[3], 0xee);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(UtilSystem, String_To_HexArray_ShouldAcceptTheEmptyString)
{
    unsigned char out[1] = {0xee};
    int count = 9;
    EXPECT_EQ(String_To_HexArray("", out, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out[0], 0xee);
}

TEST(UtilSystem, String_To_HexArray_ShouldAcceptTwoHundredFiftySixDigits)
{
    std::string hex;
    for (int i = 0; i < 128; ++i) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02X", i * 2);
        hex += pair;
    }
    ASSERT_EQ(hex.size(), 256u);
    unsigned char out[128] = {};
    int count = 0;
    EXPECT_EQ(String_To_HexArray(hex, out, &count), 0);
    EXPECT_EQ(count, 128);
    for (int i = 0; i < 128; ++i)
        EXPECT_EQ(out[i], static_cast<unsigned char>(i * 2)) << i;
}

TEST(UtilSystem, String_To_HexArray_ShouldRefuseAnOddLength)
{
    unsigned char out[2] = {0xee, 0xee};
    int count = 9;
    log_capture capture;
    EXPECT_EQ(String_To_HexArray("abc", out, &count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out[0], 0xee);
    expect_one_line(capture, 0, "String_To_HexArray", "overflow or string must odd length");
}

TEST(UtilSystem, String_To_HexArray_ShouldRefuseMoreThanTwoHundredFiftySixDigits)
{
    std::vector<unsigned char> out(200, 0xee);
    int count = 9;
    log_capture capture;
    EXPECT_EQ(String_To_HexArray(std::string(258, '0'), out.data(), &count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), 0xee), 200);
    expect_one_line(capture, 0, "String_To_HexArray", "overflow or string must odd length");
}

TEST(UtilSystem, String_To_HexArray_ShouldRefuseANonHexDigitWithoutAborting)
{
    unsigned char out[2] = {0xee, 0xee};
    int count = 9;
    log_capture capture;
    EXPECT_EQ(String_To_HexArray("00g1", out, &count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out[0], 0xee);
    EXPECT_EQ(out[1], 0xee);
    expect_one_line(capture, 0, "String_To_HexArray", "invalid hex digit");
}

TEST(UtilSystem, String_To_HexArray_ShouldRefuseNullOutputs)
{
    unsigned char out[1] = {0xee};
    int count = 9;
    EXPECT_EQ(String_To_HexArray("00", nullptr, &count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(String_To_HexArray("00", out, nullptr), -1);
    EXPECT_EQ(out[0], 0xee);
}

TEST(UtilSystem, TuloRS232Cmd_To_String_ShouldAppendLowerCaseHexPairs)
{
    const char bytes[] = {0x01, static_cast<char>(0xab), 0x00, static_cast<char>(0xff), 0x7e};
    std::string out = "cmd:";
    EXPECT_EQ(TuloRS232Cmd_To_String(bytes, &out, 5), 0);
    EXPECT_EQ(out, "cmd:01ab00ff7e");
}

TEST(UtilSystem, TuloRS232Cmd_To_String_ShouldAppendNothingBelowOneByte)
{
    const char bytes[] = {0x01};
    std::string out = "keep";
    EXPECT_EQ(TuloRS232Cmd_To_String(bytes, &out, 0), 0);
    EXPECT_EQ(TuloRS232Cmd_To_String(bytes, &out, -4), 0);
    EXPECT_EQ(TuloRS232Cmd_To_String(nullptr, &out, 0), 0);
    EXPECT_EQ(out, "keep");
}

TEST(UtilSystem, TuloRS232Cmd_To_String_ShouldRefuseNullPointers)
{
    const char bytes[] = {0x01};
    std::string out = "keep";
    EXPECT_EQ(TuloRS232Cmd_To_String(nullptr, &out, 1), -1);
    EXPECT_EQ(TuloRS232Cmd_To_String(bytes, nullptr, 1), -1);
    EXPECT_EQ(out, "keep");
}
