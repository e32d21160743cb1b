// SPDX-License-Identifier: MIT
// The configuration lock and the one read-parse-modify-write cycle of the configuration files.
#include "config/config_cycle.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "config/config_file_lock.h"
#include "config/json_members.h"
#include "config/replace_file.h"
#include "core/sysroot.h"

namespace vask_ed {
namespace {

// True the first time it is asked for `target` in this process. A writer's temporary file outlives
// it only when the writer dies between making and renaming it, so one sweep per process, at its first
// write, clears what earlier processes left, without reading the whole folder (/etc holds hundreds of
// names) at every write.
bool first_write_of(const std::string &target)
{
    static std::mutex mutex;
    static std::set<std::string> written;
    std::lock_guard<std::mutex> hold(mutex);
    return written.insert(target).second;
}

pthread_mutex_t config_lock = PTHREAD_MUTEX_INITIALIZER;

// The process-wide lock as a lockable for std::unique_lock, which a cycle releases while it waits
// for another process.
struct process_lock {
    void lock() { pthread_mutex_lock(&config_lock); }
    void unlock() { pthread_mutex_unlock(&config_lock); }
} the_process_lock;

int line_or(int specific, int line)
{
    return specific != 0 ? specific : line;
}

// The document of the file, or null after the failure has been logged (and, for a missing file
// that the call may create, an empty document). `failed` receives the result of a failure.
json_ptr load_document(const config_call &call, const std::string &path, int *failed)
{
    std::vector<char> text;
    if (!read_config_file(call, path, &text)) {
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
    the_process_lock.lock();
}

config_lock_guard::~config_lock_guard()
{
    the_process_lock.unlock();
}

bool config_lock_is_free()
{
    if (pthread_mutex_trylock(&config_lock) != 0)
        return false;
    pthread_mutex_unlock(&config_lock);
    return true;
}

bool read_config_file(const config_call &call, const std::string &path, std::vector<char> *text)
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
    text->resize(count + 1);
    return true;
}

void log_config_error(const config_call &call, const char *message)
{
    TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function, "%s", message);
}

int store_config_text(const config_call &call, const std::string &path, const char *text, size_t length)
{
    if (replace_file_text(path, text, length) != 0) {
        TULO_LOG_write_newline(ED_LOG_MODULE, 0, call.source, call.line, call.function,
                               "write %s failed, errno=%d", path.c_str(), errno);
        return -1;
    }
    return 0;
}

int store_config_document(const config_call &call, const cJSON *root)
{
    json_text printed(cJSON_Print(root));
    if (!printed)
        return -1;
    return store_config_text(call, system_path(call.fixed_path), printed.get(), strlen(printed.get()));
}

int run_config_cycle(const config_call &call, bool write, section_logic logic, void *context)
{
    try {
        std::string path = system_path(call.fixed_path);
        std::string target = resolve_file_links(path);
        // Declared before the file lock, so released after it: a thread that takes the process lock
        // never finds the lock file still held by the cycle of another thread that just ended.
        std::unique_lock<process_lock> hold(the_process_lock, std::defer_lock);
        config_file_lock file_lock(call, target, write);
        hold.lock();
        // The process lock is never held while another process is waited for: it would stall the
        // cycles of every thread here, on every file. When the lock file is held elsewhere, it is
        // waited for alone (bounded), and the process lock taken after it.
        if (!file_lock.try_lock()) {
            hold.unlock();
            if (!file_lock.lock_within_bound())
                return -1;
            hold.lock();
        }
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
            return result == kConfigUnchanged ? 0 : result;
        result = store_config_document(call, root.get());
        // Only under the exclusive file lock is no writer of another process working beside it.
        if (result == 0 && file_lock.held() && first_write_of(target))
            remove_stale_temp_files(target);
        return result;
    } catch (const std::exception &) {
        return -1;
    }
}

} // namespace vask_ed
