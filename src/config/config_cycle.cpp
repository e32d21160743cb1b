// The configuration lock and the one read-parse-modify-write cycle of the configuration files.
#include "config/config_cycle.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "config/json_members.h"
#include "config/replace_file.h"
#include "core/sysroot.h"

namespace vask_ed {
namespace {

pthread_mutex_t config_lock = PTHREAD_MUTEX_INITIALIZER;

// Readable by everyone who may read the configuration, so that applications running as other
// users lock the same file; flock needs no write access, so only the creator may write it.
constexpr mode_t kLockFileMode = 0644;

std::atomic<bool> lock_file_failure_logged{false};

// Opens the lock file, creating it when it is not there yet. -1 with errno set when it cannot.
int open_lock_file(const std::string &path)
{
    // No link is followed: nothing that a link planted beside the file leads to is created.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd >= 0 || errno != ENOENT)
        return fd;
    fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kLockFileMode);
    if (fd >= 0) {
        // The umask of the process that happens to create it must not lock other users out.
        fchmod(fd, kLockFileMode);
        return fd;
    }
    if (errno == EEXIST)
        return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    return -1;
}

// The advisory lock that keeps the cycles of other processes (applications, edctl, the service)
// out of a cycle of this one, on "<resolved file>.lock": beside the file the links lead to, so that
// every path to the same file locks the same lock file, and a separate file because the
// configuration file itself is replaced by a rename (a lock on it would stay with the old inode).
// Writers lock exclusively: their whole read-modify-write must not interleave with another one, or
// an update is lost. Readers lock shared: they never block each other, but wait for a writer, since
// a file rewritten in place (no temporary file possible) may be half-written meanwhile.
// A lock file that cannot be opened or created (read-only folder, no permission) does not fail the
// cycle: it goes on under the process lock only, logged once per process at level 1.
class config_file_lock {
public:
    config_file_lock(const config_call &call, const std::string &target, bool exclusive)
        : fd_(open_lock_file(target + ".lock"))
    {
        if (fd_ < 0) {
            report(call, target, errno);
            return;
        }
        while (flock(fd_, exclusive ? LOCK_EX : LOCK_SH) != 0) {
            if (errno == EINTR)
                continue;
            report(call, target, errno);
            ::close(fd_);
            fd_ = -1;
            return;
        }
    }
    // Closing the descriptor releases the lock.
    ~config_file_lock()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    config_file_lock(const config_file_lock &) = delete;
    config_file_lock &operator=(const config_file_lock &) = delete;
    bool held() const { return fd_ >= 0; }

private:
    static void report(const config_call &call, const std::string &target, int error)
    {
        if (!lock_file_failure_logged.exchange(true))
            TULO_LOG_write_newline(ED_LOG_MODULE, 1, call.source, call.line, call.function,
                                   "lock file %s.lock unavailable, errno=%d: other processes are not locked out",
                                   target.c_str(), error);
        errno = error;
    }

    int fd_;
};

int line_or(int specific, int line)
{
    return specific != 0 ? specific : line;
}

// Reads the whole file at `path` into `text`, zero-terminated. False, with errno set, when it
// cannot be opened or is not a file whose size can be taken.
bool read_whole_file(const config_call &call, const std::string &path, std::vector<char> *text)
{
    file_ptr file(fopen(path.c_str(), "re"));
    if (!file)
        return false;
    struct stat info;
    if (fstat(fileno(file.get()), &info) != 0)
        return false;
    if (S_ISDIR(info.st_mode)) {
        errno = EISDIR;
        return false;
    }
    if (fseek(file.get(), 0, SEEK_END) != 0)
        return false;
    long size = ftell(file.get());
    if (size < 0 || fseek(file.get(), 0, SEEK_SET) != 0)
        return false;
    text->assign(static_cast<size_t>(size) + 1, '\0');
    size_t count = fread(text->data(), 1, static_cast<size_t>(size), file.get());
    if (count != static_cast<size_t>(size))
        TULO_LOG_write_newline(ED_LOG_MODULE, 1, call.source, line_or(call.short_read_line, call.line), call.function,
                               "read file query %d , but %d", static_cast<int>(size), static_cast<int>(count));
    (*text)[count] = '\0';
    return true;
}

// The document of the file, or null after the failure has been logged (and, for a missing file
// that the call may create, an empty document). `failed` receives the result of a failure.
json_ptr load_document(const config_call &call, const std::string &path, int *failed)
{
    std::vector<char> text;
    if (!read_whole_file(call, path, &text)) {
        int error = errno;
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, line_or(call.open_failed_line, call.line), call.function,
                               "%s", call.open_failed);
        // Only a file that is not there starts empty: one that cannot be read is not overwritten.
        if (!call.missing_file_is_empty || error != ENOENT) {
            *failed = call.open_failed_result;
            return nullptr;
        }
        json_ptr empty(cJSON_CreateObject());
        if (!empty) {
            log_config_error(call, kNoParseError);
            *failed = -1;
        }
        return empty;
    }
    // The error text comes from this parse itself: cJSON's process-wide error pointer may be
    // changed meanwhile by a parse on another thread.
    const char *parse_end = nullptr;
    json_ptr root(cJSON_ParseWithOpts(text.data(), &parse_end, false));
    if (!root) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, line_or(call.parse_failed_line, call.line), call.function,
                               "error:%s", parse_end != nullptr ? parse_end : "(null)");
        if (call.on_parse_failure != nullptr)
            call.on_parse_failure(call, call.parse_failure_context);
        *failed = call.parse_failed_result;
    }
    return root;
}

} // namespace

config_lock_guard::config_lock_guard()
{
    pthread_mutex_lock(&config_lock);
}

config_lock_guard::~config_lock_guard()
{
    pthread_mutex_unlock(&config_lock);
}

bool config_lock_is_free()
{
    if (pthread_mutex_trylock(&config_lock) != 0)
        return false;
    pthread_mutex_unlock(&config_lock);
    return true;
}

void log_config_error(const config_call &call, const char *message)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function, "%s", message);
}

int store_config_document(const config_call &call, const cJSON *root)
{
    json_text printed(cJSON_Print(root));
    if (!printed)
        return -1;
    std::string path = system_path(call.fixed_path);
    if (replace_file_text(path, printed.get(), strlen(printed.get())) != 0) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function,
                               "write %s failed, errno=%d", path.c_str(), errno);
        return -1;
    }
    return 0;
}

int run_config_cycle(const config_call &call, bool write, section_logic logic, void *context)
{
    try {
        // Process lock first, file lock second, released in the opposite order: a thread waits for
        // another process only once no other thread of its own process is in a cycle.
        config_lock_guard hold;
        std::string path = system_path(call.fixed_path);
        std::string target = resolve_file_links(path);
        config_file_lock file_hold(call, target, write);
        int failed = 0;
        json_ptr root = load_document(call, path, &failed);
        if (!root)
            return failed;
        cJSON *section = nullptr;
        if (call.section != nullptr) {
            // A root that is not an object has no sections, and a writer must not add one to it.
            // A member that is not an object is no section: readers fail on it, writers replace it.
            if (cJSON_IsObject(root.get()))
                section = find_object(root.get(), call.section);
            if (section == nullptr && (call.missing_section != nullptr || !cJSON_IsObject(root.get()))) {
                log_config_error(call, call.missing_section != nullptr ? call.missing_section : kNoParseError);
                return -1;
            }
        }
        int result = logic(context, root.get(), section);
        if (result != 0 || !write)
            return result;
        result = store_config_document(call, root.get());
        // Only under the exclusive file lock is no writer of another process working beside it.
        if (result == 0 && file_hold.held())
            remove_stale_temp_files(target);
        return result;
    } catch (const std::exception &) {
        return -1;
    }
}

} // namespace vask_ed
