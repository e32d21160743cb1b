// SPDX-License-Identifier: MIT
// No descriptor of the library reaches the programs it starts: with the library connected to the
// bus (also after a reconnection) and the configuration lock file held, a shell command run
// through the library sees its standard streams only, and every descriptor of the process is
// marked close-on-exec.
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unistd.h>

#include "broker.h"
#include "config/config_cycle.h"
#include "config_test_support.h"
#include "descriptor_listing.h"
#include "fake_service.h"
#include "libvask_external_device.h"

namespace {

// The open descriptors of this process and what each leads to.
std::map<int, std::string> open_descriptors()
{
    std::map<int, std::string> found;
    std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir("/proc/self/fd"), closedir);
    if (!dir)
        return found;
    int own = dirfd(dir.get());
    while (const dirent *entry = readdir(dir.get())) {
        if (entry->d_name[0] == '.')
            continue;
        int fd = atoi(entry->d_name);
        if (fd == own)
            continue;
        char target[PATH_MAX] = {};
        std::string link = std::string("/proc/self/fd/") + entry->d_name;
        ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
        found[fd] = length > 0 ? std::string(target, static_cast<size_t>(length)) : "?";
    }
    return found;
}

// The descriptors a shell run by the library has open, from `ls -l` of its own /proc/<pid>/fd
// ("... 3 -> /proc/1234/fd"): number -> target. When the shell runs ls in its own place, ls's
// descriptor of the folder it lists is among them.
std::map<int, std::string> shell_descriptors()
{
    std::string listing;
    EXPECT_EQ(ExecShellCmd("ls -l /proc/$$/fd", &listing), 0);
    std::map<int, std::string> found;
    for (const auto &[fd, target] : vask_test::listed_descriptors(listing))
        found[fd] = target;
    return found;
}

bool is_listed_folder(const std::string &target)
{
    return target.compare(0, 6, "/proc/") == 0 && target.size() > 9 &&
           target.compare(target.size() - 3, 3, "/fd") == 0;
}

class CloseOnExecTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // What the test program inherited from whoever started it is not the library's.
        for (const auto &entry : open_descriptors())
            if (entry.first > 2)
                fcntl(entry.first, F_SETFD, fcntl(entry.first, F_GETFD) | FD_CLOEXEC);
        broker_ = std::make_unique<vask_test::broker>();
        setenv("VASK_BUS_URL", broker_->url().c_str(), 1);
        service_ = std::make_unique<vask_test::fake_service>();
        ASSERT_TRUE(service_->ready());
        ASSERT_EQ(ed_init(), 0);
        ed_voting_info info{};
        ASSERT_EQ(ed_get_voting(info), 0);
    }

    void TearDown() override
    {
        ed_release();
        service_.reset();
        broker_.reset();
    }

    // Fails for every descriptor of the process without close-on-exec, and for every descriptor
    // of a shell run by the library besides its standard streams.
    void expect_nothing_leaks(const char *when)
    {
        for (const auto &entry : open_descriptors()) {
            int flags = fcntl(entry.first, F_GETFD);
            if (entry.first > 2) {
                EXPECT_TRUE(flags >= 0 && (flags & FD_CLOEXEC) != 0)
                    << when << ": descriptor " << entry.first << " -> " << entry.second << " lacks close-on-exec";
            }
        }
        auto shell = shell_descriptors();
        EXPECT_EQ(shell.count(0) + shell.count(1) + shell.count(2), 3u) << when;
        for (const auto &entry : shell)
            if (entry.first > 2 && !is_listed_folder(entry.second))
                ADD_FAILURE() << when << ": the shell inherited descriptor " << entry.first << " -> " << entry.second;
    }

    std::unique_ptr<vask_test::broker> broker_;
    std::unique_ptr<vask_test::fake_service> service_;
};

} // namespace

TEST_F(CloseOnExecTest, ShellCommandWhileConnectedAndHoldingTheLockFile_ShouldSeeOnlyItsStandardStreams)
{
    vask_test::sysroot root;
    int lock_files_seen = 0;
    vask_ed::config_call call("CloseOnExecTest", __LINE__);
    int result = vask_ed::read_config(call, [&](const cJSON *, const cJSON *) {
        for (const auto &entry : open_descriptors())
            if (entry.second == root.config_path() + ".lock")
                ++lock_files_seen;
        expect_nothing_leaks("inside a configuration cycle");
        return 0;
    });
    EXPECT_EQ(result, 0);
    // The cycle did hold its lock file while the shell ran.
    EXPECT_EQ(lock_files_seen, 1);
}

TEST_F(CloseOnExecTest, ShellCommandAfterTheBusReconnected_ShouldSeeOnlyItsStandardStreams)
{
    expect_nothing_leaks("connected");
    broker_->kill();
    ASSERT_TRUE(broker_->restart());
    ed_voting_info info{};
    // A new connection is a new socket.
    ASSERT_TRUE(vask_test::eventually([&] { return ed_get_voting(info) == 0; }, std::chrono::seconds(30)));
    expect_nothing_leaks("reconnected");
}

TEST_F(CloseOnExecTest, Copy_ShouldNotHandTheBusConnectionToItsCommand)
{
    // cp copies its own descriptor folder: one symbolic link per descriptor it has open. The entry
    // of the descriptor cp reads the folder with is gone by the time it copies it: cp says so and
    // exits with 1 (a wait status of 256), having copied the others.
    vask_test::temp_dir dir;
    const std::string copy = dir.path() + "/fds";
    int result = Copy("/proc/self/fd", copy);
    EXPECT_TRUE(result == 0 || result == 256) << result;
    std::unique_ptr<DIR, int (*)(DIR *)> listed(opendir(copy.c_str()), closedir);
    ASSERT_TRUE(listed);
    std::set<int> standard;
    while (const dirent *entry = readdir(listed.get())) {
        if (entry->d_name[0] == '.')
            continue;
        int fd = atoi(entry->d_name);
        char target[PATH_MAX] = {};
        ssize_t length = readlink((copy + "/" + entry->d_name).c_str(), target, sizeof target - 1);
        std::string leads_to = length > 0 ? std::string(target, static_cast<size_t>(length)) : "?";
        if (fd <= 2)
            standard.insert(fd);
        // Besides its standard streams cp has only the folders it copies from and to.
        else if (!is_listed_folder(leads_to) && leads_to.compare(0, dir.path().size(), dir.path()) != 0)
            ADD_FAILURE() << "cp inherited descriptor " << fd << " -> " << leads_to;
    }
    EXPECT_EQ(standard, (std::set<int>{0, 1, 2}));
}
