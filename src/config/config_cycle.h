// SPDX-License-Identifier: MIT
// The one cycle every reader and writer of the box's configuration files goes through: take the
// configuration lock, read the whole file, parse it, hand the document (and the section the
// function owns) to the function's own logic, print and replace the file when it changed it,
// release the lock. What differs between functions is described by a config_call.
#ifndef VASK_ED_CONFIG_CONFIG_CYCLE_H
#define VASK_ED_CONFIG_CONFIG_CYCLE_H

#include <cjson/cJSON.h>
#include <cstddef>
#include <pthread.h>
#include <string>
#include <type_traits>
#include <vector>

#include "core/internal.h"

namespace vask_ed {

constexpr const char *kExternalDeviceConfig = "/etc/external_device.json";

// Messages shared by many configuration functions.
constexpr const char *kOpenConfigFailed = "open config file failed";
constexpr const char *kOpenWriterConfigFailed = "open external_device config file failed";
constexpr const char *kInfoNull = "info = NULL";
// What an "error:%s" line reads when no parse failed (a missing section or member after a good
// parse): the text cJSON's process-wide error pointer gives then, without a null pointer to "%s".
constexpr const char *kNoParseError = "error:(null)";

// The process-wide configuration lock, held for the life of a scope. Plain and non-recursive:
// nothing nests, an operation that reads and then writes takes it twice in turn. Whoever holds it
// waits for no other process.
class config_lock_guard {
public:
    config_lock_guard();
    ~config_lock_guard();
    config_lock_guard(const config_lock_guard &) = delete;
    config_lock_guard &operator=(const config_lock_guard &) = delete;
};

// True when no thread holds the configuration lock at the moment of the call (for tests).
bool config_lock_is_free();

// What a configuration function tells the cycle about itself.
struct config_call {
    config_call(const char *function_name, int log_line) : function(function_name), line(log_line) {}

    // The public function named in every log line of the cycle, the source and the line number.
    const char *function;
    int line;
    const char *source = kLogUtils;
    // Functions whose log lines carry fixed numbers give them here; 0 means `line`.
    int open_failed_line = 0;
    int short_read_line = 0;
    int parse_failed_line = 0;

    // The fixed path of the file (under VASK_SYSROOT when set).
    const char *fixed_path = kExternalDeviceConfig;

    // A file that cannot be opened: the level-0 message, and the result returned; or, with
    // `missing_file_is_empty`, the message and then an empty document as if the file held "{}".
    const char *open_failed = kOpenConfigFailed;
    int open_failed_result = -1;
    bool missing_file_is_empty = false;

    // A text that is not JSON: "error:<text at the parse error>" at level 0, then
    // `on_parse_failure` (still under the lock, with this call and `parse_failure_context`) when
    // set, and `parse_failed_result` is returned.
    int parse_failed_result = -1;
    void (*on_parse_failure)(const config_call &call, void *context) = nullptr;
    void *parse_failure_context = nullptr;

    // The root member the function owns, looked up with cJSON's case-insensitive rule. When it is
    // missing (or not an object) and `missing_section` is set, that message is logged at level 0
    // and the call fails with -1; otherwise the function's logic receives a null section. A root
    // that is not an object fails such a call with -1 (logged "error:(null)" when no message is
    // set), so that no writer adds a section to it.
    const char *section = nullptr;
    const char *missing_section = nullptr;
};

// A function's logic: receives the parsed root and its section (or null, see config_call) and
// returns 0, kConfigUnchanged or a negative result.
using section_logic = int (*)(void *context, cJSON *root, cJSON *section);

// What a write cycle's logic returns when it succeeded without changing the document: the cycle
// then returns 0 and writes nothing.
constexpr int kConfigUnchanged = 1;

// The cycle itself. With `write` set and the logic returning 0, the document is printed formatted
// and replaces the file (replace_file_text); a failed replacement gives -1. kConfigUnchanged gives
// 0; every other result of the logic is returned as it is and nothing is written. A
// standard-library exception thrown by the logic is turned into -1.
// Two locks are held from before the file is opened to after it is written: the process lock and
// the advisory file lock "<resolved file>.lock" against other processes (config_file_lock:
// exclusive for a write, shared for a read; without it when the lock file is unavailable). The
// process lock is never held while the file lock is waited for; that wait is bounded by
// config_lock_timeout_ms(), after which the cycle fails with -1 (logged, nothing read or written).
// A successful write removes the temporary files of killed writers.
int run_config_cycle(const config_call &call, bool write, section_logic logic, void *context);

// Reads: `read(const cJSON *root, const cJSON *section)` copies what it needs out of the document.
template <typename Read>
int read_config(const config_call &call, Read &&read)
{
    using read_type = std::remove_reference_t<Read>;
    return run_config_cycle(
        call, false,
        [](void *context, cJSON *root, cJSON *section) {
            return (*static_cast<read_type *>(context))(static_cast<const cJSON *>(root),
                                                        static_cast<const cJSON *>(section));
        },
        &read);
}

// Writes: `edit(cJSON *root, cJSON *section)` changes the document; returning 0 stores it.
template <typename Edit>
int edit_config(const config_call &call, Edit &&edit)
{
    using edit_type = std::remove_reference_t<Edit>;
    return run_config_cycle(
        call, true,
        [](void *context, cJSON *root, cJSON *section) {
            return (*static_cast<edit_type *>(context))(root, section);
        },
        &edit);
}

// The write step of the cycle, for a caller inside a write cycle (process lock and exclusive file
// lock held, e.g. a parse-failure hook of edit_config): prints
// `root` formatted and replaces the file of `call` with it (store_config_text). Returns 0 or -1.
int store_config_document(const config_call &call, const cJSON *root);

// Replaces the file at `path` with `text` (replace_file_text), inside a write cycle as above.
// Returns 0, or -1 after logging "write <path> failed, errno=<n>" at level 0 as a line of `call`
// (the file is then as it was).
int store_config_text(const config_call &call, const std::string &path, const char *text, size_t length);

// Reads the whole file at `path` into `text`: its bytes and a terminating zero that is not part of
// the file. A short read logs "read file query <size> , but <count>" at level 1 as a line of `call`
// and keeps what was read. False, with errno set, when the file cannot be opened or is a folder.
bool read_config_file(const config_call &call, const std::string &path, std::vector<char> *text);

// Logs `message` at level 0 as a line of `call`.
void log_config_error(const config_call &call, const char *message);

} // namespace vask_ed

#endif
