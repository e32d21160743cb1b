// SPDX-License-Identifier: MIT
// The advisory lock beside a configuration file that keeps the cycles of other processes out, and
// the bound of every wait for it.
#ifndef VASK_ED_CONFIG_CONFIG_FILE_LOCK_H
#define VASK_ED_CONFIG_CONFIG_FILE_LOCK_H

#include <string>
#include <sys/types.h>

#include "config/config_cycle.h"

namespace vask_ed {

// How long a cycle waits for a lock file that another process holds before it gives up.
constexpr int kConfigLockTimeoutMs = 5000;
// The longest bound VASK_CONFIG_LOCK_TIMEOUT_MS may set.
constexpr int kConfigLockTimeoutMaxMs = 600000;
// The mode of the lock file: its owner and the configuration file's group may open it to lock it,
// nobody else, so that no other user can stall the box's configuration.
constexpr mode_t kLockFileMode = 0640;

// The bound in milliseconds: VASK_CONFIG_LOCK_TIMEOUT_MS (read with secure_getenv at each call)
// when it is a whole number from 1 to kConfigLockTimeoutMaxMs, otherwise kConfigLockTimeoutMs.
int config_lock_timeout_ms();

// The lock "<target>.lock" of the resolved configuration file `target`, opened (and created when
// missing: mode kLockFileMode, the configuration file's group) but not yet locked. No link is
// followed and nothing but a regular file is used; an existing lock file of this user that others
// may open is narrowed to kLockFileMode. When the lock file cannot be opened or created, the lock is
// unavailable: logged once per process at level 1 with `call`'s source, line and function, and
// every cycle goes on under the process lock only. Closing it (the destructor) releases the lock.
class config_file_lock {
public:
    config_file_lock(const config_call &call, const std::string &target, bool exclusive);
    ~config_file_lock();
    config_file_lock(const config_file_lock &) = delete;
    config_file_lock &operator=(const config_file_lock &) = delete;

    // False when the lock file is unavailable: there is nothing to lock.
    bool available() const { return fd_ >= 0; }
    // True once the lock is held.
    bool held() const { return held_; }

    // Takes the lock when nobody else holds it and no other cycle waits for it, without waiting.
    // True when it is held (or unavailable); false otherwise.
    bool try_lock();
    // Waits for the lock, at most config_lock_timeout_ms(): marked as waiting meanwhile, it tries
    // when the lock file is closed by a holder and at the latest after 1 ms, then each time twice
    // as long up to 50 ms. True when it is held (or unavailable). When the time is up, logs
    // "configuration file <target> is locked by another process, gave up after <bound> s" at
    // level 0 as a line of `call` and returns false.
    bool lock_within_bound();

private:
    bool take();
    bool others_waiting() const;
    void set_waiting(bool waiting);
    void give_up_as_unavailable(int error);

    const config_call &call_;
    std::string target_;
    int operation_;
    int fd_;
    bool held_ = false;
};

} // namespace vask_ed

#endif
