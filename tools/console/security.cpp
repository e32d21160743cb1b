// SPDX-License-Identifier: MIT
#include "security.h"

#include <crypt.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/random.h>

namespace console {

namespace {

struct free_deleter {
    void operator()(void *memory) const { std::free(memory); }
};

} // namespace

std::string hash_password(const std::string &password)
{
    // Count 0: libcrypt's default cost for yescrypt; no random bytes given: it reads them itself.
    std::unique_ptr<char, free_deleter> setting(crypt_gensalt_ra("$y$", 0, nullptr, 0));
    if (!setting)
        return std::string();
    void *data = nullptr;
    int size = 0;
    const char *hash = crypt_ra(password.c_str(), setting.get(), &data, &size);
    std::unique_ptr<void, free_deleter> owner(data);
    if (!hash || hash[0] == '*')
        return std::string();
    return hash;
}

bool verify_password(const std::string &password, const std::string &hash)
{
    if (hash.empty())
        return false;
    void *data = nullptr;
    int size = 0;
    const char *computed = crypt_ra(password.c_str(), hash.c_str(), &data, &size);
    std::unique_ptr<void, free_deleter> owner(data);
    if (!computed || std::strlen(computed) != hash.size())
        return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < hash.size(); ++i)
        difference |= static_cast<unsigned char>(computed[i] ^ hash[i]);
    return difference == 0;
}

std::string random_token(size_t bytes)
{
    std::string raw(bytes, '\0');
    size_t filled = 0;
    while (filled < bytes) {
        ssize_t got = getrandom(&raw[filled], bytes - filled, 0);
        if (got <= 0)
            return std::string();
        filled += static_cast<size_t>(got);
    }
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : raw) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
    }
    return hex;
}

session_table::session_table(std::chrono::seconds idle, std::chrono::seconds lifetime, size_t max_sessions)
    : idle_(idle), lifetime_(lifetime), max_sessions_(max_sessions)
{
}

void session_table::expire(std::chrono::steady_clock::time_point now)
{
    for (auto it = sessions_.begin(); it != sessions_.end();) {
        bool stale = now - it->second.used > idle_ || now - it->second.created > lifetime_;
        it = stale ? sessions_.erase(it) : std::next(it);
    }
}

session_table::created session_table::create()
{
    created made{random_token(32), random_token(32)};
    if (made.token.empty() || made.csrf.empty())
        return created{};
    auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    expire(now);
    while (sessions_.size() >= max_sessions_) {
        auto oldest = sessions_.begin();
        for (auto it = sessions_.begin(); it != sessions_.end(); ++it) {
            if (it->second.created < oldest->second.created)
                oldest = it;
        }
        sessions_.erase(oldest);
    }
    sessions_[made.token] = session{made.csrf, now, now};
    return made;
}

bool session_table::find(const std::string &token, std::string &csrf)
{
    auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    expire(now);
    auto found = sessions_.find(token);
    if (token.empty() || found == sessions_.end())
        return false;
    found->second.used = now;
    csrf = found->second.csrf;
    return true;
}

void session_table::remove(const std::string &token)
{
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.erase(token);
}

long login_throttle::locked_for(const std::string &address)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = addresses_.find(address);
    if (found == addresses_.end() || found->second.failures < kLockAfter)
        return 0;
    auto left = kLockTime - (std::chrono::steady_clock::now() - found->second.last);
    if (left <= std::chrono::seconds(0)) {
        addresses_.erase(found);
        return 0;
    }
    return static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(left).count()) + 1;
}

std::chrono::milliseconds login_throttle::failed(const std::string &address)
{
    auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    if (addresses_.size() >= kMaxAddresses && !addresses_.count(address)) {
        // Many addresses failing at once: forget the ones quiet for longest rather than grow.
        for (auto it = addresses_.begin(); it != addresses_.end();)
            it = now - it->second.last > kLockTime ? addresses_.erase(it) : std::next(it);
        if (addresses_.size() >= kMaxAddresses)
            addresses_.erase(addresses_.begin());
    }
    record &entry = addresses_[address];
    entry.failures += 1;
    entry.last = now;
    return std::min(kStep * entry.failures, kMaxPause);
}

void login_throttle::succeeded(const std::string &address)
{
    std::lock_guard<std::mutex> lock(mutex_);
    addresses_.erase(address);
}

} // namespace console
