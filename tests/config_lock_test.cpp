// SPDX-License-Identifier: MIT
// The configuration lock against other processes: a lock file held elsewhere (by flock(1), or by a
// process stopped inside a cycle) costs a call a bounded wait and never stalls the other threads'
// cycles, and only the configuration's owner and group may open the lock file at all.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "config/config_file_lock.h"
#include "config_test_support.h"
#include "libvask_external_device.h"

using namespace std::chrono_literals;
using vask_test::expect_lines;
using vask_test::kAnyLine;
using vask_test::log_capture;
using vask_test::sysroot;

namespace {

// Sets the bound of the wait for the lock file for the life of a scope (null: the default bound).
class lock_bound {
public:
    explicit lock_bound(const char *milliseconds)
    {
        if (milliseconds != nullptr)
            setenv("VASK_CONFIG_LOCK_TIMEOUT_MS", milliseconds, 1);
        else
            unsetenv("VASK_CONFIG_LOCK_TIMEOUT_MS");
    }
    ~lock_bound() { unsetenv("VASK_CONFIG_LOCK_TIMEOUT_MS"); }
    lock_bound(const lock_bound &) = delete;
    lock_bound &operator=(const lock_bound &) = delete;
};

// util-linux's flock(1) holding a lock file until released: the shell opens the file on
// descriptor 9, flock locks that descriptor, and the shell becomes sleep, which keeps it; stopping
// that one process releases the lock.
class lock_holder {
public:
    bool hold(const std::string &lock_path, bool shared)
    {
        std::string script = std::string("exec 9<\"$0\" && flock ") + (shared ? "-s" : "-x") +
                             " 9 && echo held && exec sleep 600";
        return child_.start({"/bin/sh", "-c", script, lock_path}) && child_.wait_for_line("held", 10s);
    }
    void release() { child_.stop(SIGTERM); }

private:
    vask_test::child_process child_;
};

struct bounded_result {
    int result;
    bool in_time;
};

// Runs `call` on a thread of its own and gives it `limit`. When it has not returned by then,
// `unblock` lets it go on and it is waited for, so that a call that waits without a bound fails the
// test instead of hanging it.
bounded_result call_bounded(const std::function<int()> &call, const std::function<void()> &unblock,
                            std::chrono::milliseconds limit = 20s)
{
    std::atomic<bool> done{false};
    int result = 99;
    std::thread worker([&] {
        result = call();
        done = true;
    });
    bool in_time = vask_test::eventually([&] { return done.load(); }, limit);
    if (!in_time)
        unblock();
    worker.join();
    return {result, in_time};
}

// The resolved configuration file as the library names it: the link's target beside the link's
// folder, not made canonical.
std::string resolved_config(const sysroot &root)
{
    return root.path("/etc/../var/lib/vask/etc/external_device.json");
}

std::string gave_up(const sysroot &root, const char *seconds)
{
    return "configuration file " + resolved_config(root) + " is locked by another process, gave up after " +
           seconds + " s";
}

int update_port(const char *port)
{
    external_control_info info{true, port, "9600", "ttyS1"};
    return UpdateExternalControlConfig(&info);
}

int read_control(external_control_info *info)
{
    return ReadExternalControlConfig(info);
}

int read_port_into(std::string *port)
{
    external_control_info info{};
    int result = read_control(&info);
    *port = info.port;
    return result;
}

// True when this process has a descriptor of `path` open.
bool holds_descriptor_of(const std::string &path)
{
    for (int fd = 0; fd < 1024; ++fd) {
        char target[4096] = {};
        ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
        if (length > 0 && std::string(target, static_cast<size_t>(length)) == path)
            return true;
    }
    return false;
}

// The state letter of process `pid` ('T' when stopped).
char process_state(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    size_t end = text.rfind(')');
    return end != std::string::npos && end + 2 < text.size() ? text[end + 2] : '?';
}

mode_t mode_of(const std::string &path)
{
    struct stat info {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

// The lock file of the sysroot's configuration, made by the library as any first cycle makes it.
std::string make_lock_file(const sysroot &root)
{
    external_control_info info{};
    EXPECT_EQ(read_control(&info), 0);
    return root.config_path() + ".lock";
}

} // namespace

TEST(ConfigLockBound, Variable_ShouldSetTheBoundOnlyToAWholeNumberOfMillisecondsInRange)
{
    unsetenv("VASK_CONFIG_LOCK_TIMEOUT_MS");
    EXPECT_EQ(vask_ed::config_lock_timeout_ms(), 5000);
    for (auto [text, expected] : std::vector<std::pair<const char *, int>>{{"250", 250},
                                                                          {"1", 1},
                                                                          {"600000", 600000},
                                                                          {"600001", 5000},
                                                                          {"0", 5000},
                                                                          {"-5", 5000},
                                                                          {"+5", 5000},
                                                                          {" 5", 5000},
                                                                          {"5s", 5000},
                                                                          {"", 5000},
                                                                          {"99999999999999999999", 5000}}) {
        lock_bound bound(text);
        EXPECT_EQ(vask_ed::config_lock_timeout_ms(), expected) << "\"" << text << "\"";
    }
}

namespace {

// A writer while flock(1) holds the lock file shared, with the bound `bound_ms` (null: the
// default): it returns -1 in time, logs exactly its entry and that it gave up after `seconds`, and
// leaves the file as it was.
void expect_writer_to_give_up(const char *bound_ms, const char *seconds)
{
    sysroot root;
    std::string lock_path = make_lock_file(root);
    const std::string before = root.config();
    lock_holder holder;
    ASSERT_TRUE(holder.hold(lock_path, true));
    lock_bound bound(bound_ms);
    log_capture capture;
    bounded_result write = call_bounded([] { return update_port("4444"); }, [&] { holder.release(); });
    EXPECT_TRUE(write.in_time) << "the writer waited past the bound";
    EXPECT_EQ(write.result, -1);
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateExternalControlConfig", "UpdateExternalControlConfig"},
                  {0, "utils", kAnyLine, "UpdateExternalControlConfig", gave_up(root, seconds)}});
    EXPECT_EQ(root.config(), before);
}

} // namespace

TEST(ConfigLockBound, WriterWhileAnotherProcessHoldsTheLockShared_ShouldGiveUpLogAndWriteNothing)
{
    expect_writer_to_give_up("300", "0.3");
}

TEST(ConfigLockBound, ReaderWhileAnotherProcessHoldsTheLockExclusively_ShouldGiveUpAndLog)
{
    sysroot root;
    std::string lock_path = make_lock_file(root);
    lock_holder holder;
    ASSERT_TRUE(holder.hold(lock_path, false));
    lock_bound bound("300");
    log_capture capture;
    external_control_info info{};
    bounded_result read = call_bounded([&] { return read_control(&info); }, [&] { holder.release(); });
    EXPECT_TRUE(read.in_time) << "the reader waited past the bound";
    EXPECT_EQ(read.result, -1);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ReadExternalControlConfig", gave_up(root, "0.3")}});

    // Once the holder is gone the same call goes through.
    holder.release();
    EXPECT_EQ(read_control(&info), 0);
    EXPECT_EQ(info.port, "23");
}

TEST(ConfigLockBound, WithoutTheVariable_ShouldGiveUpAfterFiveSeconds)
{
    expect_writer_to_give_up(nullptr, "5");
}

TEST(ConfigLockBound, ValidateWhileAnotherProcessHoldsTheLock_ShouldGiveUpWithoutRestoring)
{
    sysroot root;
    std::string lock_path = make_lock_file(root);
    root.set_config("[]");
    lock_holder holder;
    ASSERT_TRUE(holder.hold(lock_path, true));
    lock_bound bound("300");
    log_capture capture;
    bounded_result validate = call_bounded([] { return ValidateJsonConfig(); }, [&] { holder.release(); });
    EXPECT_TRUE(validate.in_time);
    // Kept: ValidateJsonConfig returns 0 in every case.
    EXPECT_EQ(validate.result, 0);
    expect_lines(capture.lines(), {{0, "utils", kAnyLine, "ValidateJsonConfig", gave_up(root, "0.3")}});
    EXPECT_EQ(root.config(), "[]");
}

TEST(ConfigLockBound, WaitForAnotherProcess_ShouldLeaveTheProcessLockToCyclesOnOtherFiles)
{
    sysroot root;
    vask_test::write_file(root.path("/etc/microphone_control.json"), vask_test::read_file(VASK_DEFAULT_MIC_CONFIG));
    std::string lock_path = make_lock_file(root);
    lock_holder holder;
    ASSERT_TRUE(holder.hold(lock_path, false));
    // Long enough that the waiter is still waiting while the other file is written.
    lock_bound bound("60000");

    std::atomic<int> waiting{99};
    std::thread waiter([&] { waiting = update_port("4444"); });
    // The waiter has the lock file open: it is in its cycle, waiting for the holder.
    bool waiter_in_cycle = vask_test::eventually([&] { return holds_descriptor_of(lock_path); }, 10s);
    EXPECT_TRUE(waiter_in_cycle);

    multiple_speakers_mode mode{2, 1};
    bounded_result other =
        call_bounded([&] { return UpdateMicrophoneMultipleSpeakersMode(&mode); }, [&] { holder.release(); }, 10s);
    EXPECT_TRUE(other.in_time) << "a cycle on another file waited for the process lock";
    EXPECT_EQ(other.result, 0);
    EXPECT_EQ(waiting, 99) << "the waiter did not wait for the holder";

    // Released before the bound: the waiter's cycle goes through.
    holder.release();
    waiter.join();
    EXPECT_EQ(waiting, 0);
    std::string port;
    EXPECT_EQ(read_port_into(&port), 0);
    EXPECT_EQ(port, "4444");
    multiple_speakers_mode stored{};
    EXPECT_EQ(ReadMicrophoneMultipleSpeakersMode(&stored), 0);
    EXPECT_EQ(stored.multi_mode, 2);
    EXPECT_EQ(stored.cancel_mode, 1);
}

TEST(ConfigLockBound, ProcessStoppedInsideACycle_ShouldCostTheOthersNoMoreThanTheBound)
{
    sysroot root;
    const std::string before = root.config();
    vask_test::child_process stopped;
    ASSERT_TRUE(stopped.start({VASK_CONFIG_PROCESS_HELPER, "stop-inside"}, {"VASK_SYSROOT=" + root.dir()}));
    ASSERT_TRUE(stopped.wait_for_line("inside", 10s)) << stopped.output();
    ASSERT_TRUE(vask_test::eventually([&] { return process_state(stopped.pid()) == 'T'; }));
    auto resume = [&] { kill(stopped.pid(), SIGCONT); };

    lock_bound bound("300");
    log_capture capture;
    bounded_result write = call_bounded([] { return update_port("4444"); }, resume);
    EXPECT_TRUE(write.in_time) << "a writer waited past the bound";
    EXPECT_EQ(write.result, -1);
    std::string port;
    bounded_result read = call_bounded([&] { return read_port_into(&port); }, resume);
    EXPECT_TRUE(read.in_time) << "a reader waited past the bound";
    EXPECT_EQ(read.result, -1);
    expect_lines(capture.lines(),
                 {{2, "utils", kAnyLine, "UpdateExternalControlConfig", "UpdateExternalControlConfig"},
                  {0, "utils", kAnyLine, "UpdateExternalControlConfig", gave_up(root, "0.3")},
                  {0, "utils", kAnyLine, "ReadExternalControlConfig", gave_up(root, "0.3")}});
    // A writer in a third process fares the same.
    vask_test::run_result other = vask_test::run_program(
        {VASK_CONFIG_PROCESS_HELPER, "once", "7777"},
        {"VASK_SYSROOT=" + root.dir(), "VASK_CONFIG_LOCK_TIMEOUT_MS=300", "TULO_LOG_LEVEL=0"}, 20s);
    EXPECT_EQ(other.out, "result -1\n") << vask_test::describe(other);
    EXPECT_NE(other.err.find(gave_up(root, "0.3")), std::string::npos) << other.err;
    EXPECT_EQ(root.config(), before);

    // Continued, the stopped writer finishes its cycle, and the lock is free again.
    resume();
    EXPECT_TRUE(stopped.wait_for_line("result 0", 10s)) << stopped.output();
    EXPECT_EQ(read_port_into(&port), 0);
    EXPECT_EQ(port, "5555");
}

// ---- The lock file ---------------------------------------------------------------------------

namespace {

// A group other than this process's own that the configuration file may be given: any as root,
// otherwise a supplementary group. -1 when there is none.
gid_t another_group()
{
    if (geteuid() == 0)
        return 4242;
    std::vector<gid_t> groups(static_cast<size_t>(getgroups(0, nullptr)) + 1);
    int count = getgroups(static_cast<int>(groups.size()), groups.data());
    for (int i = 0; i < count; ++i)
        if (groups[static_cast<size_t>(i)] != getegid())
            return groups[static_cast<size_t>(i)];
    return static_cast<gid_t>(-1);
}

} // namespace

TEST(ConfigLockFile, NewLockFile_ShouldBeOpenToTheOwnerAndTheConfigurationGroupOnly)
{
    sysroot root;
    gid_t group = another_group();
    if (group == static_cast<gid_t>(-1))
        GTEST_SKIP() << "no group to give the configuration file";
    ASSERT_EQ(chown(root.config_path().c_str(), static_cast<uid_t>(-1), group), 0);
    // Whatever the umask of the process that makes it.
    mode_t previous = umask(0);
    std::string lock_path = make_lock_file(root);
    umask(previous);
    struct stat info {};
    ASSERT_EQ(lstat(lock_path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(info.st_gid, group);
    EXPECT_EQ(info.st_uid, geteuid());
}

TEST(ConfigLockFile, ExistingLockFileOpenToEveryone_ShouldBeNarrowedWhenOwned)
{
    sysroot root;
    std::string lock_path = root.config_path() + ".lock";
    for (auto [old_mode, new_mode] : std::vector<std::pair<mode_t, mode_t>>{{0644, 0640}, {0666, 0640}, {0600, 0600}}) {
        unlink(lock_path.c_str());
        vask_test::write_file(lock_path, "");
        ASSERT_EQ(chmod(lock_path.c_str(), old_mode), 0);
        std::string port;
        EXPECT_EQ(read_port_into(&port), 0);
        EXPECT_EQ(mode_of(lock_path), new_mode) << std::oct << old_mode;
        EXPECT_EQ(update_port("24"), 0);
        EXPECT_EQ(mode_of(lock_path), new_mode) << std::oct << old_mode;
    }
}

TEST(ConfigLockFile, FifoInPlaceOfTheLockFile_ShouldNotStallTheCycle)
{
    sysroot root;
    std::string lock_path = root.config_path() + ".lock";
    ASSERT_EQ(mkfifo(lock_path.c_str(), 0644), 0);
    std::string port;
    // A reader stalled in opening the FIFO goes on once a writer opens it.
    bounded_result read = call_bounded([&] { return read_port_into(&port); },
                                       [&] { close(open(lock_path.c_str(), O_WRONLY | O_NONBLOCK)); }, 10s);
    EXPECT_TRUE(read.in_time) << "the cycle stalled opening a FIFO";
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(port, "23");
}
