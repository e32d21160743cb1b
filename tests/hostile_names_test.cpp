// SPDX-License-Identifier: MIT
// File names that a shell would take for more than a name, handed to every operation of the
// library that builds a shell command from a path: Copy, RemoveAll and the restore of the
// configuration file's factory default (from a system root with such a name). Each name is used
// relative to the working folder, so that it really starts the command's argument. The whole
// folder is compared before and after: the intended operation happens, or fails cleanly, and
// nothing else (no file "X" from an injected `touch X`, no other file touched).
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "config_test_support.h"
#include "libvask_external_device.h"

namespace fs = std::filesystem;

namespace {

struct hostile_name {
    const char *label;
    std::string name;
    bool fits; // false: longer than a file name may be, so nothing by that name can exist
};

// Test names and messages show the label; some names are 4 KB long or hold a newline.
void PrintTo(const hostile_name &name, std::ostream *out)
{
    *out << name.label;
}

std::string repeated(const std::string &piece, size_t total)
{
    std::string text;
    while (text.size() + piece.size() <= total)
        text += piece;
    return text;
}

const hostile_name kNames[] = {
    {"Semicolon", ";touch X", true},
    {"CommandSubstitution", "$(touch X)", true},
    {"Backticks", "`touch X`", true},
    {"Newline", "a\ntouch X", true},
    {"SingleQuotes", "x' ; touch X ; '", true},
    {"LeadingDash", "-rf X", true},
    {"LeadingDoubleDash", "--target-directory=X", true},
    {"Blanks", "  two  blanks  ", true},
    {"Tab", "tab\there", true},
    {"Pipe", "| touch X", true},
    {"Ampersands", "&& touch X", true},
    {"Redirection", "> X", true},
    {"Glob", "*", true},
    {"LongInjection4K", repeated("$(touch X);", 4096), false},
    {"Long4K", std::string(4096, 'n'), false},
};

// Every entry below the working folder: relative path -> file content, "<folder>" or "-> target".
using tree = std::map<std::string, std::string>;

tree snapshot()
{
    tree entries;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(".")) {
        std::string path = entry.path().lexically_relative(".").string();
        if (entry.is_symlink())
            entries[path] = "-> " + fs::read_symlink(entry.path()).string();
        else if (entry.is_directory())
            entries[path] = "<folder>";
        else
            entries[path] = vask_test::read_file(path);
    }
    return entries;
}

class HostileName : public ::testing::TestWithParam<hostile_name> {
protected:
    void SetUp() override
    {
        char *previous = getcwd(nullptr, 0);
        ASSERT_NE(previous, nullptr);
        previous_ = previous;
        free(previous);
        ASSERT_EQ(chdir(dir_.path().c_str()), 0);
        vask_test::write_file("keep", "untouched");
    }

    void TearDown() override
    {
        unsetenv("VASK_SYSROOT");
        EXPECT_EQ(chdir(previous_.c_str()), 0);
    }

    const std::string &name() const { return GetParam().name; }

    vask_test::temp_dir dir_;
    std::string previous_;
};

} // namespace

TEST_P(HostileName, CopyOfAFolder_ShouldCopyThatFolderAndRunNothing)
{
    const std::string copy = name() + ".copy";
    if (!GetParam().fits) {
        tree before = snapshot();
        // cp is run and refuses the name: its exit code 1, as a wait status.
        EXPECT_EQ(Copy("keep", name()), 1 << 8);
        EXPECT_EQ(snapshot(), before);
        return;
    }
    ASSERT_EQ(mkdir(name().c_str(), 0755), 0);
    vask_test::write_file(name() + "/inner", "content");
    tree expected = snapshot();
    EXPECT_EQ(Copy(name(), copy), 0);
    expected[copy] = "<folder>";
    expected[copy + "/inner"] = "content";
    EXPECT_EQ(snapshot(), expected);
}

TEST_P(HostileName, RemoveAll_ShouldRemoveThatTreeOnlyAndRunNothing)
{
    if (GetParam().fits) {
        ASSERT_EQ(mkdir(name().c_str(), 0755), 0);
        vask_test::write_file(name() + "/inner", "content");
    }
    tree expected = snapshot();
    expected.erase(name());
    expected.erase(name() + "/inner");
    // Nothing by a name that cannot exist: nothing is run, and that is success.
    EXPECT_EQ(RemoveAll(name()), 0);
    EXPECT_EQ(snapshot(), expected);
}

TEST_P(HostileName, DefaultRestoreUnderASystemRootOfThatName_ShouldCopyTheDefaultOnly)
{
    setenv("VASK_SYSROOT", name().c_str(), 1);
    if (!GetParam().fits) {
        tree before = snapshot();
        // No file there: nothing to validate, nothing restored, nothing run.
        EXPECT_EQ(ValidateJsonConfig(), 0);
        EXPECT_EQ(snapshot(), before);
        return;
    }
    const std::string root = name();
    for (const char *folder : {"", "/etc", "/usr", "/usr/share", "/usr/share/vask", "/usr/share/vask/etc", "/var",
                               "/var/lib", "/var/lib/vask", "/var/lib/vask/etc"})
        ASSERT_EQ(mkdir((root + folder).c_str(), 0755), 0) << folder;
    const std::string writable = root + "/var/lib/vask/etc/external_device.json";
    vask_test::write_file(root + "/usr/share/vask/etc/external_device.json", vask_test::default_document());
    vask_test::write_file(writable, "{\"broken\": tru");
    ASSERT_EQ(symlink("../var/lib/vask/etc/external_device.json", (root + "/etc/external_device.json").c_str()), 0);
    tree expected = snapshot();
    EXPECT_EQ(ValidateJsonConfig(), 0);
    expected[writable] = vask_test::default_document();
    // The cycle's lock file beside the resolved file is expected to appear, empty.
    expected[writable + ".lock"] = "";
    EXPECT_EQ(snapshot(), expected);
}

INSTANTIATE_TEST_SUITE_P(ShellWords, HostileName, ::testing::ValuesIn(kNames),
                         [](const ::testing::TestParamInfo<hostile_name> &info) { return info.param.label; });
