// SPDX-License-Identifier: MIT
#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "rs232_zorvo_test_support.h"

using namespace rs232_zorvo_test;
using vask_test::log_capture;
using vask_test::temp_dir;


using list = std::vector<std::string>;

namespace {

// A rules file with `text` in a temporary folder.
class rules_file {
public:
    explicit rules_file(const std::string &text) : path_(dir_.path() + "/test.rules") { write_file(path_, text); }
    const std::string &path() const { return path_; }

private:
    temp_dir dir_;
    std::string path_;
};

list links_of(const std::string &text)
{
    rules_file rules(text);
    list links{"stale"};
    EXPECT_EQ(ReadUdevRulesSYMLINK(rules.path(), &links), 0);
    return links;
}

bool exists(const std::string &path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

// Runs the test body in folder `dir` and comes back, so that a command planted in a file name
// would leave its traces there.
class working_folder {
public:
    explicit working_folder(const std::string &dir)
    {
        char *current = getcwd(nullptr, 0);
        previous_ = current != nullptr ? current : "/";
        free(current);
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~working_folder()
    {
        if (chdir(previous_.c_str()) != 0)
            ADD_FAILURE() << "cannot return to " << previous_;
    }

private:
    std::string previous_;
};

// File names that a shell would take for more than a name.
const char *const kHostileNames[] = {
    ";touch pwned", "$(touch pwned)", "`touch pwned`", "a\ntouch pwned", "x' ; touch pwned ; '", "a b",
    "-rf", "--help", "*", "\"quoted\"", "&& touch pwned", "| touch pwned", "> pwned",
};

} // namespace

// ---- StringSplit ----

TEST(StringSplit, CommaText_ShouldKeepEmptyPiecesButNotAnEmptyLastOne)
{
    list pieces{"stale"};
    EXPECT_EQ(StringSplit("a,,b,", ",", pieces), 0);
    EXPECT_EQ(pieces, (list{"a", "", "b"}));
    EXPECT_EQ(StringSplit(",a", ",", pieces), 0);
    EXPECT_EQ(pieces, (list{"", "a"}));
    EXPECT_EQ(StringSplit(",,", ",", pieces), 0);
    EXPECT_EQ(pieces, (list{"", ""}));
}

TEST(StringSplit, EmptyText_ShouldGiveNoPiece)
{
    list pieces{"stale"};
    EXPECT_EQ(StringSplit("", ",", pieces), 0);
    EXPECT_TRUE(pieces.empty());
}

TEST(StringSplit, TextWithoutSeparator_ShouldGiveItWhole)
{
    list pieces{"stale", "more"};
    EXPECT_EQ(StringSplit("abc", ",", pieces), 0);
    EXPECT_EQ(pieces, list{"abc"});
    EXPECT_EQ(StringSplit("abc", "", pieces), 0);
    EXPECT_EQ(pieces, list{"abc"});
}

TEST(StringSplit, LongSeparator_ShouldMatchAnyCharacterFirstAndTheWholeSeparatorThen)
{
    list pieces;
    // The first search stops at ';' (one character of ";,"), and then skips two characters.
    EXPECT_EQ(StringSplit("a;b,c;,d", ";,", pieces), 0);
    EXPECT_EQ(pieces, (list{"a", ",c", "d"}));
    EXPECT_EQ(StringSplit("ab::cd::ef", "::", pieces), 0);
    EXPECT_EQ(pieces, (list{"ab", "cd", "ef"}));
}

TEST(StringSplit, SeparatorRunningPastTheEnd_ShouldStopCleanly)
{
    list pieces;
    EXPECT_EQ(StringSplit("a,", ",x", pieces), 0);
    EXPECT_EQ(pieces, list{"a"});
}

TEST(StringSplit, TextThatIsOneOfThePieces_ShouldBeSplitAsItWas)
{
    list pieces{"x,y,z"};
    EXPECT_EQ(StringSplit(pieces[0], ",", pieces), 0);
    EXPECT_EQ(pieces, (list{"x", "y", "z"}));
}

// ---- ReadUdevRulesSYMLINK ----

TEST(ReadUdevRulesSYMLINK, BoxRulesFile_ShouldGiveTheDevLinksInFileOrder)
{
    list links{"stale"};
    log_capture capture;
    ASSERT_EQ(ReadUdevRulesSYMLINK(fixture("udev/99-vask-serial.rules"), &links), 0);
    EXPECT_EQ(links, (list{"/dev/camctrl", "/dev/zorvo", "/dev/wenk9"}));
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "ReadUdevRulesSYMLINK", "Read UdevRulesSYMLINK"}});
}

TEST(ReadUdevRulesSYMLINK, RulesWithBothFormsCommentsAndSeveralNames_ShouldTakeThemAsTheServiceDoes)
{
    list links;
    ASSERT_EQ(ReadUdevRulesSYMLINK(fixture("udev/60-vask-usb-serial.rules"), &links), 0);
    EXPECT_EQ(links, (list{"/dev/rs232ctrl", "/dev/serial/by-role/control", "/dev/arduino", "/dev/retired",
                           "/dev/builtin_tty console_tty"}));
}

TEST(ReadUdevRulesSYMLINK, EmptyFile_ShouldGiveAnEmptyList)
{
    EXPECT_TRUE(links_of("").empty());
}

TEST(ReadUdevRulesSYMLINK, TwoAssignmentsOnOneLine_ShouldGiveTwoEntriesInLineOrder)
{
    EXPECT_EQ(links_of("KERNEL==\"ttyUSB0\", SYMLINK+=\"first\", SYMLINK+=\"second\"\n"),
              (list{"/dev/first", "/dev/second"}));
}

TEST(ReadUdevRulesSYMLINK, FieldWithoutQuotes_ShouldGiveTheWholeFieldWithBlankAndNewline)
{
    EXPECT_EQ(links_of("KERNEL==\"ttyUSB0\", SYMLINK+=plain\n"), list{"/dev/ SYMLINK+=plain\n"});
}

TEST(ReadUdevRulesSYMLINK, LastLineWithoutNewline_ShouldBeRead)
{
    EXPECT_EQ(links_of("KERNEL==\"ttyS1\", SYMLINK+=\"a\"\nKERNEL==\"ttyS2\", SYMLINK+=\"b\""),
              (list{"/dev/a", "/dev/b"}));
    EXPECT_EQ(links_of("SYMLINK+=plain"), list{"/dev/SYMLINK+=plain"});
}

TEST(ReadUdevRulesSYMLINK, FieldWithOneQuote_ShouldRunFromItToTheEndOfTheField)
{
    EXPECT_EQ(links_of("KERNEL==\"ttyS1\", SYMLINK+=\"open\n"), list{"/dev/open\n"});
}

TEST(ReadUdevRulesSYMLINK, QuotesAroundTheWholeField_ShouldGiveTheTextBetweenFirstAndLast)
{
    EXPECT_EQ(links_of("ENV{X}=\"1\" SYMLINK+=\"name\"\n"), list{"/dev/1\" SYMLINK+=\"name"});
}

TEST(ReadUdevRulesSYMLINK, LineOfAnyLength_ShouldBeReadWhole)
{
    std::string name(5000, 'n');
    std::string line = "ENV{ID_SERIAL}==\"" + std::string(20000, 's') + "\", SYMLINK+=\"" + name + "\"\n";
    EXPECT_EQ(links_of(line), list{"/dev/" + name});
}

TEST(ReadUdevRulesSYMLINK, LinesWithoutSymlink_ShouldAddNothing)
{
    EXPECT_TRUE(links_of("ACTION==\"add\", KERNEL==\"ttyUSB*\", MODE=\"0666\"\n\n# no link here\n").empty());
}

TEST(ReadUdevRulesSYMLINK, CommentNamingSymlink_ShouldCountLikeARule)
{
    EXPECT_EQ(links_of("# SYMLINK names below\n"), list{"/dev/# SYMLINK names below\n"});
}

TEST(ReadUdevRulesSYMLINK, MissingFile_ShouldFailAndLeaveTheList)
{
    temp_dir dir;
    list links{"kept"};
    log_capture capture;
    EXPECT_EQ(ReadUdevRulesSYMLINK(dir.path() + "/absent.rules", &links), -1);
    EXPECT_EQ(links, list{"kept"});
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "ReadUdevRulesSYMLINK", "Read UdevRulesSYMLINK"},
                                   {0, "utils", kAnyLine, "ReadUdevRulesSYMLINK", "open rules file failed"}});
}

TEST(ReadUdevRulesSYMLINK, Folder_ShouldFailAsAFileThatCannotBeOpened)
{
    temp_dir dir;
    list links{"kept"};
    log_capture capture;
    EXPECT_EQ(ReadUdevRulesSYMLINK(dir.path(), &links), -1);
    EXPECT_EQ(links, list{"kept"});
    EXPECT_EQ(capture.with_message("open rules file failed").size(), 1u);
}

TEST(ReadUdevRulesSYMLINK, NullList_ShouldFail)
{
    log_capture capture;
    EXPECT_EQ(ReadUdevRulesSYMLINK(fixture("udev/99-vask-serial.rules"), nullptr), -1);
    expect_lines(capture.lines(), {{2, "utils", kAnyLine, "ReadUdevRulesSYMLINK", "Read UdevRulesSYMLINK"},
                                   {0, "utils", kAnyLine, "ReadUdevRulesSYMLINK", "symlink_list failed"}});
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

TEST(ReadUdevRulesSYMLINK, EveryRulesFileOfThisMachine_ShouldGiveDevPaths)
{
    int files = 0;
    for (const char *folder : {"/lib/udev/rules.d", "/usr/lib/udev/rules.d"}) {
        DIR *dir = opendir(folder);
        if (dir == nullptr)
            continue;
        while (const struct dirent *entry = readdir(dir)) {
            std::string name = entry->d_name;
            if (name.size() < 6 || name.compare(name.size() - 6, 6, ".rules") != 0)
                continue;
            std::string path = std::string(folder) + "/" + name;
            list links{"stale"};
            EXPECT_EQ(ReadUdevRulesSYMLINK(path, &links), 0) << path;
            for (const std::string &link : links)
                EXPECT_EQ(link.compare(0, 5, "/dev/"), 0) << path << ": " << link;
            std::string text = read_file(path);
            if (text.find("SYMLINK") == std::string::npos)
                EXPECT_TRUE(links.empty()) << path;
            else
                EXPECT_FALSE(links.empty()) << path;
            ++files;
        }
        closedir(dir);
    }
    if (files == 0)
        GTEST_SKIP() << "this machine has no udev rules files";
}

// ---- ChecksSYMLINKandGetDevice ----

class SerialLinks : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(mkdir(dev_.c_str(), 0755), 0);
        write_file(dev_ + "/ttyUSB0", "");
        write_file(dev_ + "/ttyUSB1", "");
        link("ttyUSB0", "camctrl");
        link("ttyUSB0", "zorvo");
        link(dev_ + "/ttyUSB1", "wenk9");
        link("ttyUSB9", "dangling");
        link("/dev/null", "nullctrl");
    }
    void link(const std::string &target, const std::string &name)
    {
        ASSERT_EQ(symlink(target.c_str(), (dev_ + "/" + name).c_str()), 0) << name;
    }
    // The resolved path of a device of the folder, with its first "/dev/" erased.
    std::string device(const std::string &name) const { return dir_.path() + name; }
    std::string at(const std::string &name) const { return dev_ + "/" + name; }

    temp_dir dir_;
    std::string dev_ = dir_.path() + "/dev";
};

TEST_F(SerialLinks, ExistingLinks_ShouldGiveTheDevicesBehindThemInListOrder)
{
    ASSERT_EQ(dir_.path().find("/dev/"), std::string::npos);
    list links{at("wenk9"), at("camctrl"), at("nullctrl")};
    list devices{"stale"};
    log_capture capture;
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &devices), 0);
    EXPECT_EQ(devices, (list{device("ttyUSB1"), device("ttyUSB0"), "null"}));
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "ChecksSYMLINKandGetDevice", "udev Ignored [" + device("ttyUSB1") + "]"},
                  {2, "utils", kAnyLine, "ChecksSYMLINKandGetDevice", "udev Ignored [" + device("ttyUSB0") + "]"},
                  {2, "utils", kAnyLine, "ChecksSYMLINKandGetDevice", "udev Ignored [null]"}});
}

TEST_F(SerialLinks, DanglingAndAbsentLinks_ShouldBeSkippedSilently)
{
    list links{at("dangling"), at("absent"), at("zorvo"), "/dev/vask-test-absent-link"};
    list devices;
    log_capture capture;
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &devices), 0);
    EXPECT_EQ(devices, list{device("ttyUSB0")});
    EXPECT_EQ(capture.lines().size(), 1u);
}

TEST_F(SerialLinks, AllLinksAbsent_ShouldGiveAnEmptyList)
{
    list links{at("dangling"), at("absent")};
    list devices{"stale"};
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &devices), 0);
    EXPECT_TRUE(devices.empty());
}

TEST_F(SerialLinks, TwoLinksToOneDevice_ShouldGiveItsNameTwice)
{
    list links{at("camctrl"), at("zorvo")};
    list devices;
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &devices), 0);
    EXPECT_EQ(devices, (list{device("ttyUSB0"), device("ttyUSB0")}));
}

TEST_F(SerialLinks, SameListForBoth_ShouldBeReplacedByTheDevices)
{
    list links{at("wenk9"), at("dangling")};
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &links), 0);
    EXPECT_EQ(links, list{device("ttyUSB1")});
}

TEST_F(SerialLinks, EmptyLinkList_ShouldClearTheDeviceList)
{
    list links;
    list devices{"stale"};
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &devices), 0);
    EXPECT_TRUE(devices.empty());
}

TEST_F(SerialLinks, NullLists_ShouldFailAndChangeNothing)
{
    list links{at("zorvo")};
    list devices{"kept"};
    log_capture capture;
    EXPECT_EQ(ChecksSYMLINKandGetDevice(nullptr, &devices), -1);
    EXPECT_EQ(ChecksSYMLINKandGetDevice(&links, nullptr), -1);
    EXPECT_EQ(devices, list{"kept"});
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ChecksSYMLINKandGetDevice", "symlink_list failed"},
                                   {0, "utils", kAnyLine, "ChecksSYMLINKandGetDevice", "usbtty_list failed"}});
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

TEST_F(SerialLinks, RulesLinksResolvedAndCompared_ShouldFindTheBoxsOwnDevice)
{
    // The chain the service runs: the links of the rules, the devices behind them, the search.
    // The rules name links under /dev; here they are made under the test's folder.
    list links;
    ASSERT_EQ(ReadUdevRulesSYMLINK(fixture("udev/99-vask-serial.rules"), &links), 0);
    for (std::string &link : links)
        link = dir_.path() + link;
    list ignored;
    ASSERT_EQ(ChecksSYMLINKandGetDevice(&links, &ignored), 0);
    EXPECT_EQ(ignored, (list{device("ttyUSB0"), device("ttyUSB0"), device("ttyUSB1")}));
    EXPECT_EQ(CompareUdevIgnoreLists(device("ttyUSB1"), &ignored), 1);
    EXPECT_EQ(CompareUdevIgnoreLists(device("ttyUSB2"), &ignored), 0);
}

// ---- CompareUdevIgnoreLists ----

TEST(CompareUdevIgnoreLists, ExactName_ShouldBeListed)
{
    list ignored{"ttyUSB1", "ttyUSB0"};
    EXPECT_EQ(CompareUdevIgnoreLists("ttyUSB0", &ignored), 1);
    EXPECT_EQ(CompareUdevIgnoreLists("ttyUSB1", &ignored), 1);
}

TEST(CompareUdevIgnoreLists, PrefixCaseOrEmptyList_ShouldNotBeListed)
{
    list ignored{"ttyUSB01"};
    EXPECT_EQ(CompareUdevIgnoreLists("ttyUSB0", &ignored), 0);
    EXPECT_EQ(CompareUdevIgnoreLists("ttyUSB011", &ignored), 0);
    EXPECT_EQ(CompareUdevIgnoreLists("TTYUSB01", &ignored), 0);
    list empty;
    EXPECT_EQ(CompareUdevIgnoreLists("", &empty), 0);
}

TEST(CompareUdevIgnoreLists, NullList_ShouldNotBeListed)
{
    log_capture capture;
    EXPECT_EQ(CompareUdevIgnoreLists("ttyUSB0", nullptr), 0);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "CompareUdevIgnoreLists", "Ignored_List failed"}});
    EXPECT_TRUE(vask_ed::config_lock_is_free());
}

// ---- GetCmdlineConsoleName ----

namespace {

std::string console_of(const char *cmdline_fixture)
{
    sysroot root;
    install_fixture(root, std::string("cmdline/") + cmdline_fixture, "/proc/cmdline");
    return GetCmdlineConsoleName();
}

} // namespace

TEST(GetCmdlineConsoleName, ConsoleWithSpeed_ShouldEndAtTheComma)
{
    sysroot root;
    install_fixture(root, "cmdline/rockchip", "/proc/cmdline");
    log_capture capture;
    EXPECT_EQ(GetCmdlineConsoleName(), "ttyS2");
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "GetCmdlineConsoleName", "GetCmdlineConsoleName ttyS2"}});
}

TEST(GetCmdlineConsoleName, ConsoleWithoutComma_ShouldTakeSixteenCharactersBlanksIncluded)
{
    EXPECT_EQ(console_of("no-comma"), "ttyS0 root=/dev/");
}

TEST(GetCmdlineConsoleName, ConsoleAtTheEndOfTheLine_ShouldKeepTheNewline)
{
    EXPECT_EQ(console_of("short"), "ttyS0\n");
}

TEST(GetCmdlineConsoleName, NoConsole_ShouldGiveEmptyAndLogNothing)
{
    sysroot root;
    install_fixture(root, "cmdline/none", "/proc/cmdline");
    log_capture capture;
    EXPECT_EQ(GetCmdlineConsoleName(), "");
    EXPECT_TRUE(capture.lines().empty());
}

TEST(GetCmdlineConsoleName, ConsoleBeyondTheFirst127Characters_ShouldBeFoundInTheNextPiece)
{
    std::string text = read_file(fixture("cmdline/long-console-late"));
    ASSERT_GE(text.find("console="), 127u);
    EXPECT_EQ(console_of("long-console-late"), "ttyFIQ0 root=PAR");
}

TEST(GetCmdlineConsoleName, ConsoleBehindACommaOfItsPiece_ShouldBeLostAndALaterOneTaken)
{
    std::string text = read_file(fixture("cmdline/long-comma-first"));
    ASSERT_LT(text.find("console=ttyFIQ0"), 127u);
    ASSERT_GT(text.find("console=ttyS2"), 127u);
    EXPECT_EQ(console_of("long-comma-first"), "ttyS2");
}

TEST(GetCmdlineConsoleName, ConsoleSplitAcrossTwoPieces_ShouldNotBeSeen)
{
    std::string text = read_file(fixture("cmdline/long-console-split"));
    ASSERT_LT(text.find("console="), 127u);
    ASSERT_GT(text.find("console=") + 8, 127u);
    EXPECT_EQ(console_of("long-console-split"), "");
}

TEST(GetCmdlineConsoleName, MissingFile_ShouldGiveEmptyAndLogThePath)
{
    sysroot root;
    log_capture capture;
    EXPECT_EQ(GetCmdlineConsoleName(), "");
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "GetCmdlineConsoleName",
                                    "file open " + root.path("/proc/cmdline") + " error 2"}});
}

// ---- Copy and RemoveAll ----

TEST(Copy, Folder_ShouldBeCopiedRecursively)
{
    temp_dir dir;
    ASSERT_EQ(mkdir((dir.path() + "/from").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((dir.path() + "/from/sub").c_str(), 0755), 0);
    write_file(dir.path() + "/from/sub/file.txt", "content");
    EXPECT_EQ(Copy(dir.path() + "/from", dir.path() + "/to"), 0);
    EXPECT_EQ(read_file(dir.path() + "/to/sub/file.txt"), "content");
}

TEST(Copy, File_ShouldOverwriteTheDestination)
{
    temp_dir dir;
    write_file(dir.path() + "/a", "new");
    write_file(dir.path() + "/b", "old");
    EXPECT_EQ(Copy(dir.path() + "/a", dir.path() + "/b"), 0);
    EXPECT_EQ(read_file(dir.path() + "/b"), "new");
}

TEST(Copy, MissingSource_ShouldReturnZeroAndRunNothing)
{
    temp_dir dir;
    working_folder here(dir.path());
    log_capture capture;
    EXPECT_EQ(Copy(dir.path() + "/absent", dir.path() + "/to"), 0);
    EXPECT_EQ(Copy("absent", "$(touch pwned)"), 0);
    EXPECT_FALSE(exists(dir.path() + "/to"));
    EXPECT_FALSE(exists(dir.path() + "/pwned"));
    EXPECT_TRUE(capture.lines().empty());
}

TEST(Copy, FailingCopy_ShouldReturnTheCommandsStatus)
{
    temp_dir dir;
    write_file(dir.path() + "/a", "x");
    log_capture capture;
    int result = Copy(dir.path() + "/a", dir.path() + "/no/such/folder/b");
    ASSERT_GT(result, 0);
    EXPECT_TRUE(WIFEXITED(result));
    EXPECT_EQ(WEXITSTATUS(result), 1);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(Copy, HostileNames_ShouldBeCopiedAsNamesAndRunNothing)
{
    temp_dir dir;
    working_folder here(dir.path());
    ASSERT_EQ(mkdir("to", 0755), 0);
    for (const char *name : kHostileNames) {
        write_file(dir.path() + "/" + name, name);
        EXPECT_EQ(Copy(dir.path() + "/" + name, dir.path() + "/to/" + name), 0) << name;
        EXPECT_EQ(read_file(dir.path() + "/to/" + name), name) << name;
    }
    EXPECT_FALSE(exists("pwned"));
    EXPECT_FALSE(exists("to/pwned"));
}

TEST(Copy, RelativeNamesStartingWithDash_ShouldNotBeTakenForOptions)
{
    temp_dir dir;
    working_folder here(dir.path());
    write_file("-v", "source");
    EXPECT_EQ(Copy("-v", "--target-directory=x"), 0);
    EXPECT_EQ(read_file("--target-directory=x"), "source");
}

TEST(Copy, PathWithAZeroByte_ShouldFailAndRunNothing)
{
    temp_dir dir;
    write_file(dir.path() + "/a", "x");
    log_capture capture;
    std::string to = dir.path() + "/b";
    to.push_back('\0');
    to += "c";
    EXPECT_EQ(Copy(dir.path() + "/a", to), -1);
    EXPECT_FALSE(exists(dir.path() + "/b"));
    expect_lines(capture.lines(), {{1, "utils", kAnyLine, "Copy",
                                    "Failed to copy " + dir.path() + "/a to " + dir.path() + "/b (-1)"}});
}

TEST(RemoveAll, Folder_ShouldBeRemovedWithItsContent)
{
    temp_dir dir;
    ASSERT_EQ(mkdir((dir.path() + "/tree").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((dir.path() + "/tree/sub").c_str(), 0755), 0);
    write_file(dir.path() + "/tree/sub/file", "x");
    EXPECT_EQ(RemoveAll(dir.path() + "/tree"), 0);
    EXPECT_FALSE(exists(dir.path() + "/tree"));
}

TEST(RemoveAll, MissingPath_ShouldReturnZero)
{
    temp_dir dir;
    log_capture capture;
    EXPECT_EQ(RemoveAll(dir.path() + "/absent"), 0);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(RemoveAll, HostileNames_ShouldRemoveOnlyThatNameAndRunNothing)
{
    temp_dir dir;
    working_folder here(dir.path());
    write_file("keep", "x");
    for (const char *name : kHostileNames) {
        write_file(name, name);
        EXPECT_EQ(RemoveAll(dir.path() + "/" + name), 0) << name;
        EXPECT_FALSE(exists(name)) << name;
        EXPECT_TRUE(exists("keep")) << name;
    }
    write_file("-rf", "x");
    EXPECT_EQ(RemoveAll("-rf"), 0);
    EXPECT_FALSE(exists("-rf"));
    EXPECT_TRUE(exists("keep"));
    EXPECT_FALSE(exists("pwned"));
}

TEST(RemoveAll, PathWithAZeroByte_ShouldFailAndRemoveNothing)
{
    temp_dir dir;
    write_file(dir.path() + "/a", "x");
    std::string path = dir.path() + "/a";
    path.push_back('\0');
    path += "/b";
    log_capture capture;
    EXPECT_EQ(RemoveAll(path), -1);
    EXPECT_TRUE(exists(dir.path() + "/a"));
    expect_lines(capture.lines(),
                 {{1, "utils", kAnyLine, "RemoveAll", "Failed to remove " + dir.path() + "/a (-1)"}});
}
