// SPDX-License-Identifier: MIT
// Logins: the password hash, the sessions and their CSRF tokens, and the slowing of failed logins.
#ifndef VASK_CONSOLE_SECURITY_H
#define VASK_CONSOLE_SECURITY_H

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace console {

// A yescrypt hash ("$y$...") of `password` with a fresh random salt, as /etc/shadow holds them;
// "" when libcrypt fails.
std::string hash_password(const std::string &password);
// True when `password` hashes to `hash` (compared in constant time).
bool verify_password(const std::string &password, const std::string &hash);
// `bytes` random bytes from the kernel as lowercase hex; "" when the kernel gives none.
std::string random_token(size_t bytes);

// The sessions of logged-in browsers and scripts: random tokens that expire after `idle` without
// use and `lifetime` after the login, whichever comes first. At most `max_sessions` live at once;
// a new login then ends the oldest.
class session_table {
public:
    session_table(std::chrono::seconds idle, std::chrono::seconds lifetime, size_t max_sessions);

    struct created {
        std::string token;
        std::string csrf;
    };
    // A new session; empty tokens when no random bytes could be had.
    created create();
    // True when `token` names a live session (and marks its use); `csrf` receives its CSRF token.
    bool find(const std::string &token, std::string &csrf);
    void remove(const std::string &token);
    std::chrono::seconds lifetime() const { return lifetime_; }

private:
    struct session {
        std::string csrf;
        std::chrono::steady_clock::time_point created;
        std::chrono::steady_clock::time_point used;
    };
    void expire(std::chrono::steady_clock::time_point now);

    std::mutex mutex_;
    std::map<std::string, session> sessions_;
    std::chrono::seconds idle_;
    std::chrono::seconds lifetime_;
    size_t max_sessions_;
};

// Failed logins per client address. Each failure is answered only after a pause that grows with
// the failures in a row (kStep times their number, at most kMaxPause); after kLockAfter failures
// the address is refused (429) until kLockTime has passed since its last failure, the right
// password included. A success clears the address.
class login_throttle {
public:
    static constexpr std::chrono::milliseconds kStep{250};
    static constexpr std::chrono::milliseconds kMaxPause{4000};
    static constexpr int kLockAfter = 5;
    static constexpr std::chrono::seconds kLockTime{300};
    static constexpr size_t kMaxAddresses = 4096;

    // Seconds until `address` may try again; 0 when it may now.
    long locked_for(const std::string &address);
    // Records a failure; the pause to make before answering it.
    std::chrono::milliseconds failed(const std::string &address);
    void succeeded(const std::string &address);

private:
    struct record {
        int failures = 0;
        std::chrono::steady_clock::time_point last;
    };
    std::mutex mutex_;
    std::map<std::string, record> addresses_;
};

} // namespace console

#endif
