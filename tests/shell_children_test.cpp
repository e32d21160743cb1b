// SPDX-License-Identifier: MIT
// The shell commands the library starts get the process's standard streams and no other descriptor,
// also none that the application opened without close-on-exec.
#include <cerrno>
#include <climits>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "descriptor_listing.h"
#include "json_text.h"
#include "libvask_external_device.h"
#include "process.h"

namespace {

// A file opened the way an application might: without close-on-exec.
class inherited_descriptor {
public:
    explicit inherited_descriptor(const std::string &path)
        : path_(path), fd_(open(path.c_str(), O_RDWR | O_CREAT, 0600))
    {
    }
    ~inherited_descriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    inherited_descriptor(const inherited_descriptor &) = delete;
    inherited_descriptor &operator=(const inherited_descriptor &) = delete;
    int fd() const { return fd_; }
    const std::string &path() const { return path_; }
    bool inheritable() const { return fd_ > 2 && (fcntl(fd_, F_GETFD) & FD_CLOEXEC) == 0; }

private:
    std::string path_;
    int fd_;
};

} // namespace

TEST(ShellChildren, ExecShellCmd_ShouldNotHandTheShellADescriptorWithoutCloseOnExec)
{
    vask_test::temp_dir dir;
    inherited_descriptor open_file(dir.path() + "/inherited");
    ASSERT_TRUE(open_file.inheritable());
    // The shell lists its own descriptors into a file; ls's own are not among them. (The shell
    // keeps a copy of its standard output above 2 while the redirection lasts.)
    const std::string listing_file = dir.path() + "/listing";
    ASSERT_EQ(ExecShellCmd("ls -l /proc/$$/fd > '" + listing_file + "'", nullptr), 0);
    auto listed = vask_test::listed_descriptors(vask_test::read_file(listing_file));
    ASSERT_GE(listed.size(), 3u);
    for (const auto &[fd, target] : listed) {
        EXPECT_NE(fd, open_file.fd()) << "the shell has descriptor " << fd << " -> " << target;
        EXPECT_NE(target, open_file.path()) << "descriptor " << fd;
    }
}

TEST(ShellChildren, ExecShellCmd_ShouldStillReadTheCommandsOutputThroughItsPipe)
{
    vask_test::temp_dir dir;
    inherited_descriptor open_file(dir.path() + "/inherited");
    ASSERT_TRUE(open_file.inheritable());
    std::string output;
    ASSERT_EQ(ExecShellCmd("ls -l /proc/$$/fd; exit 4", &output), 4);
    auto listed = vask_test::listed_descriptors(output);
    std::vector<int> numbers;
    for (const auto &[fd, target] : listed) {
        numbers.push_back(fd);
        EXPECT_NE(target, open_file.path()) << "descriptor " << fd;
    }
    EXPECT_EQ(numbers, (std::vector<int>{0, 1, 2})) << output;
    // Standard output is the pipe the library reads.
    ASSERT_EQ(listed.size(), 3u);
    EXPECT_EQ(listed[1].second.compare(0, 6, "pipe:["), 0) << listed[1].second;
}

TEST(ShellChildren, Copy_ShouldNotHandCpADescriptorWithoutCloseOnExec)
{
    vask_test::temp_dir dir;
    inherited_descriptor open_file(dir.path() + "/inherited");
    ASSERT_TRUE(open_file.inheritable());
    // cp copies its own descriptor folder: one symbolic link per descriptor it has open (the one
    // it reads the folder with is gone by the time it copies it: cp exits with 1 then).
    const std::string copy = dir.path() + "/fds";
    int result = Copy("/proc/self/fd", copy);
    EXPECT_TRUE(result == 0 || result == 256) << result;
    std::unique_ptr<DIR, int (*)(DIR *)> listed(opendir(copy.c_str()), closedir);
    ASSERT_TRUE(listed);
    int entries = 0;
    while (const dirent *entry = readdir(listed.get())) {
        if (entry->d_name[0] == '.')
            continue;
        ++entries;
        char target[PATH_MAX] = {};
        ssize_t length = readlink((copy + "/" + entry->d_name).c_str(), target, sizeof target - 1);
        std::string leads_to = length > 0 ? std::string(target, static_cast<size_t>(length)) : "?";
        EXPECT_NE(leads_to, open_file.path()) << "cp inherited descriptor " << entry->d_name;
    }
    EXPECT_GE(entries, 3);
}

TEST(ShellChildren, CommandStartingWithADash_ShouldBeACommandNotAShellOption)
{
    std::string output;
    // A shell that took it for options would fail or run nothing.
    EXPECT_EQ(ExecShellCmd("-x 2>/dev/null; echo ran", &output), 0);
    EXPECT_EQ(output, "ran\n");
}
