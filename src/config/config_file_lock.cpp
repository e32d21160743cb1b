// The advisory lock beside a configuration file, and the bound of the wait for it.
#include "config/config_file_lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
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

bool config_file_lock::try_lock()
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

bool config_file_lock::lock_within_bound()
{
    const int bound_ms = config_lock_timeout_ms();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(bound_ms);
    std::chrono::milliseconds pause = kFirstPause;
    while (!try_lock()) {
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            TULO_LOG_write_newline(ED_LOG_MODULE, 0, call_.source, call_.line, call_.function,
                                   "configuration file %s is locked by another process, gave up after %g s",
                                   target_.c_str(), bound_ms / 1000.0);
            return false;
        }
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
        pause = std::min(pause * 2, kLongestPause);
    }
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
