// SPDX-License-Identifier: MIT
// Replacing a configuration file: a new file renamed over the old one, or a guarded rewrite in place.
#include "config/replace_file.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vask_ed {
namespace {

// Symbolic links followed before giving up (the kernel's own limit).
constexpr int kMaxLinks = 40;
// Names tried for a temporary file before giving up.
constexpr int kTempAttempts = 100;

class unique_fd {
public:
    explicit unique_fd(int fd) : fd_(fd) {}
    ~unique_fd()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Closes now and reports the result: a late write error shows up here.
    int close()
    {
        int fd = fd_;
        fd_ = -1;
        return ::close(fd);
    }

private:
    int fd_;
};

// Keeps errno across the clean-up calls of a failure path.
class errno_keeper {
public:
    errno_keeper() : saved_(errno) {}
    ~errno_keeper() { errno = saved_; }

private:
    int saved_;
};

std::string folder_of(const std::string &path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string name_of(const std::string &path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The path the links of `path` lead to; the last one need not exist (a link to a file not yet
// created leads to where that file will be).
std::string follow_links(std::string path)
{
    for (int hop = 0; hop < kMaxLinks; ++hop) {
        struct stat info;
        if (lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        std::vector<char> target(PATH_MAX + 1);
        ssize_t length = readlink(path.c_str(), target.data(), PATH_MAX);
        if (length <= 0)
            return path;
        std::string next(target.data(), static_cast<size_t>(length));
        path = next[0] == '/' ? next : folder_of(path) + "/" + next;
    }
    return path;
}

bool write_all(int fd, const char *text, size_t length)
{
    while (length > 0) {
        ssize_t written = ::write(fd, text, length);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// The name of every temporary file made for `target`, before the process id and the counter.
std::string temp_prefix(const std::string &target)
{
    return "." + name_of(target) + ".tmp";
}

// A new file next to `target`, created with the permissions a new file gets (0666 less the
// umask), so that a first write creates the file as fopen would. -1 when none can be made.
int create_temp(const std::string &target, std::string *temp_path)
{
    static std::atomic<unsigned> counter{0};
    std::string prefix = folder_of(target) + "/" + temp_prefix(target) + std::to_string(getpid()) + ".";
    for (int attempt = 0; attempt < kTempAttempts; ++attempt) {
        std::string candidate = prefix + std::to_string(counter++);
        int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            *temp_path = candidate;
            return fd;
        }
        if (errno != EEXIST)
            return -1;
    }
    return -1;
}

// Gives the new file the old one's mode and owner. False when it cannot take them.
bool take_over_attributes(int fd, const struct stat &old)
{
    struct stat mine;
    if (fstat(fd, &mine) != 0)
        return false;
    if ((mine.st_uid != old.st_uid || mine.st_gid != old.st_gid) && fchown(fd, old.st_uid, old.st_gid) != 0)
        return false;
    // After the owner: changing the owner may clear the set-id bits.
    return fchmod(fd, old.st_mode & 07777) == 0;
}

// Persists the rename itself; a folder that cannot be flushed changes nothing for the reader.
void flush_folder(const std::string &folder)
{
    unique_fd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir)
        fsync(dir.get());
}

enum class temp_result { done, failed, unavailable };

temp_result replace_through_temp(const std::string &target, const struct stat *old, const char *text,
                                 size_t length)
{
    std::string temp_path;
    unique_fd temp(create_temp(target, &temp_path));
    if (!temp)
        return temp_result::unavailable;
    if (old != nullptr && !take_over_attributes(temp.get(), *old)) {
        ::unlink(temp_path.c_str());
        return temp_result::unavailable;
    }
    if (!write_all(temp.get(), text, length) || fsync(temp.get()) != 0 || temp.close() != 0 ||
        ::rename(temp_path.c_str(), target.c_str()) != 0) {
        errno_keeper keep;
        ::unlink(temp_path.c_str());
        return temp_result::failed;
    }
    flush_folder(folder_of(target));
    return temp_result::done;
}

int rewrite_in_place(const std::string &target, const char *text, size_t length)
{
    unique_fd file(::open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (!file)
        return -1;
    struct stat info;
    if (fstat(file.get(), &info) != 0)
        return -1;
    bool regular = S_ISREG(info.st_mode);
    // Room first: a full disk fails here, before a single byte of the old text is overwritten.
    if (regular && length > 0) {
        int error = posix_fallocate(file.get(), 0, static_cast<off_t>(length));
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    if (!write_all(file.get(), text, length))
        return -1;
    if (regular && ftruncate(file.get(), static_cast<off_t>(length)) != 0)
        return -1;
    if (fsync(file.get()) != 0 && regular)
        return -1;
    return file.close() == 0 ? 0 : -1;
}

} // namespace

std::string resolve_file_links(const std::string &path)
{
    return follow_links(path);
}

void remove_stale_temp_files(const std::string &target)
{
    errno_keeper keep;
    std::string folder = folder_of(target);
    std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir(folder.c_str()), closedir);
    if (!dir)
        return;
    std::string prefix = temp_prefix(target);
    while (const struct dirent *entry = readdir(dir.get())) {
        std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0)
            continue;
        // "<prefix><pid>.<counter>": a name of any other shape is not one of ours.
        const char *digits = name.c_str() + prefix.size();
        char *end = nullptr;
        long pid = strtol(digits, &end, 10);
        if (end == digits || *end != '.' || pid <= 0 || pid > INT_MAX)
            continue;
        // A writer that still runs (or cannot be asked, EPERM) may be about to rename its file.
        if (static_cast<pid_t>(pid) == getpid() || kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH)
            continue;
        ::unlink((folder + "/" + name).c_str());
    }
}

int replace_file_text(const std::string &path, const char *text, size_t length)
{
    std::string target = follow_links(path);
    struct stat old;
    bool exists = stat(target.c_str(), &old) == 0;
    if (exists) {
        // A file the process may not write is not replaced behind its back.
        if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0)
            return -1;
        // A device or a pipe keeps its node: only its content is written.
        if (!S_ISREG(old.st_mode))
            return rewrite_in_place(target, text, length);
    }
    switch (replace_through_temp(target, exists ? &old : nullptr, text, length)) {
    case temp_result::done: return 0;
    case temp_result::failed: return -1;
    case temp_result::unavailable: break;
    }
    return rewrite_in_place(target, text, length);
}

} // namespace vask_ed
