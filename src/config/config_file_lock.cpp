// SPDX-License-Identifier: MIT
// The advisory lock beside a configuration file, and the bound of the wait for it.
#include "config/config_file_lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace vask_ed {
namespace {

constexpr std::chrono::milliseconds kFirstPause{1};
constexpr std::chrono::milliseconds kLongestPause{50};

std::atomic<bool> lock_file_failure_logged{false};

// Gives a lock file just made the configuration file's group, so that the applications of that
// group lock the same file whoever made it. A group the process may not give keeps the kernel's.
void take_config_group(int fd, const std::string &target)
{
    struct stat config;
    if (stat(target.c_str(), &config) == 0)
        (void)fchown(fd, static_cast<uid_t>(-1), config.st_gid);
    // After the owner: chown may clear mode bits. The umask of the process that happens to make it
    // must not lock the group out.
    (void)fchmod(fd, kLockFileMode);
}

// Opens the lock file, creating it when it is not there yet. -1 with errno set when it cannot.
int open_lock_file(const std::string &target)
{
    std::string path = target + ".lock";
    // No link is followed: nothing a link planted beside the file leads to is opened or created.
    // Not blocking: a FIFO planted there would stall the open itself.
    const int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    int fd = ::open(path.c_str(), flags);
    if (fd < 0 && errno == ENOENT) {
        fd = ::open(path.c_str(), flags | O_CREAT | O_EXCL, kLockFileMode);
        if (fd >= 0)
            take_config_group(fd, target);
        else if (errno == EEXIST)
            fd = ::open(path.c_str(), flags);
    }
    if (fd < 0)
        return -1;
    struct stat info;
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return -1;
    }
    // Older versions made it readable by everyone; whoever could open it could stall every cycle.
    if (info.st_uid == geteuid() && (info.st_mode & 07777 & ~kLockFileMode) != 0)
        (void)fchmod(fd, info.st_mode & kLockFileMode);
    return fd;
}

// Wakes a waiter as soon as a holder closes the lock file (a cycle ends by closing it), instead of
// at its next check only: a waiter that merely polled would lose the lock, time after time, to the
// processes that take it again at once, and could wait out its bound on a busy file. The pauses
// between checks stay the bound of each wait: a holder may unlock without closing, and without a
// watch (inotify unavailable, e.g. out of instances) the waiter polls alone.
class release_watch {
public:
    explicit release_watch(const std::string &lock_path) : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        if (fd_ >= 0 && inotify_add_watch(fd_, lock_path.c_str(), IN_CLOSE | IN_DONT_FOLLOW) < 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~release_watch()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    release_watch(const release_watch &) = delete;
    release_watch &operator=(const release_watch &) = delete;

    // Returns after `pause`, or earlier when the lock file was closed since the last call.
    void wait(std::chrono::milliseconds pause)
    {
        if (fd_ < 0) {
            std::this_thread::sleep_for(pause);
            return;
        }
        struct pollfd ready = {fd_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(pause.count())) > 0) {
            // The events themselves say nothing more: they are only drained.
            alignas(struct inotify_event) char events[4096];
            while (read(fd_, events, sizeof events) > 0) {
            }
        }
    }

private:
    int fd_;
};

// Byte 0 of the lock file carries a shared OFD lock (fcntl, apart from flock) while a cycle waits
// for the lock file: a cycle that starts then waits its turn instead of taking the lock that was
// just released, so that a process that runs cycle after cycle cannot keep a waiter out until its
// bound, the way a reader after reader would keep out a writer.
struct flock waiting_mark(short type)
{
    struct flock mark = {};
    mark.l_type = type;
    mark.l_whence = SEEK_SET;
    mark.l_start = 0;
    mark.l_len = 1;
    return mark;
}

} // namespace

// The lock keeps the cycles of other processes (applications, edctl, the service) out of a cycle of
// this one. It sits beside the file the links lead to, so that every path to the same file locks
// the same lock file, and in a file of its own because the configuration file is replaced by a
// rename (a lock on it would stay with the old inode). Writers lock exclusively: their whole
// read-modify-write must not interleave with another one, or an update is lost. Readers lock
// shared: they never block each other, but wait for a writer, since a file rewritten in place (no
// temporary file possible) may be half-written meanwhile. The wait is polled, not blocking, so that
// it has a bound: a holder that never lets go (stopped, or another user's flock(1)) costs a call
// that bound and nothing more.

int config_lock_timeout_ms()
{
    const char *text = secure_getenv("VASK_CONFIG_LOCK_TIMEOUT_MS");
    if (text == nullptr || *text < '0' || *text > '9')
        return kConfigLockTimeoutMs;
    char *end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 1 || value > kConfigLockTimeoutMaxMs)
        return kConfigLockTimeoutMs;
    return static_cast<int>(value);
}

config_file_lock::config_file_lock(const config_call &call, const std::string &target, bool exclusive)
    : call_(call), target_(target), operation_(exclusive ? LOCK_EX : LOCK_SH), fd_(open_lock_file(target))
{
    if (fd_ < 0)
        give_up_as_unavailable(errno);
}

config_file_lock::~config_file_lock()
{
    if (fd_ >= 0)
        ::close(fd_);
}

bool config_file_lock::take()
{
    if (fd_ < 0 || held_)
        return true;
    while (flock(fd_, operation_ | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno == EWOULDBLOCK)
            return false;
        give_up_as_unavailable(errno);
        return true;
    }
    held_ = true;
    return true;
}

bool config_file_lock::others_waiting() const
{
    struct flock mark = waiting_mark(F_WRLCK);
    return fd_ >= 0 && fcntl(fd_, F_OFD_GETLK, &mark) == 0 && mark.l_type != F_UNLCK;
}

void config_file_lock::set_waiting(bool waiting)
{
    struct flock mark = waiting_mark(waiting ? F_RDLCK : F_UNLCK);
    if (fd_ >= 0)
        (void)fcntl(fd_, F_OFD_SETLK, &mark);
}

bool config_file_lock::try_lock()
{
    if (fd_ >= 0 && !held_ && others_waiting())
        return false;
    return take();
}

bool config_file_lock::lock_within_bound()
{
    const int bound_ms = config_lock_timeout_ms();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(bound_ms);
    release_watch watch(target_ + ".lock");
    set_waiting(true);
    std::chrono::milliseconds pause = kFirstPause;
    // The lock was just found taken (or others wait for it): wait first, then try.
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        watch.wait(std::max(std::min(pause, left), std::chrono::milliseconds(0)));
        pause = std::min(pause * 2, kLongestPause);
        if (take())
            break;
        if (std::chrono::steady_clock::now() >= deadline) {
            set_waiting(false);
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, call_.source, call_.line, call_.function,
                                   "configuration file %s is locked by another process, gave up after %g s",
                                   target_.c_str(), bound_ms / 1000.0);
            return false;
        }
    }
    set_waiting(false);
    return true;
}

// A lock file that cannot be opened, created or locked (read-only folder, no permission, no locks
// on that file system) does not fail the cycle: it goes on under the process lock only.
void config_file_lock::give_up_as_unavailable(int error)
{
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!lock_file_failure_logged.exchange(true))
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, call_.source, call_.line, call_.function,
                               "lock file %s.lock unavailable, errno=%d: other processes are not locked out",
                               target_.c_str(), error);
    errno = error;
}

} // namespace vask_ed
