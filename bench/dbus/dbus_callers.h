// SPDX-License-Identifier: MIT
// The calling side of the D-Bus baselines: a synchronous method call with a string argument and a
// string reply, once with sd-bus and once with GDBus, each on its own connection to the private bus.
#ifndef VASK_BENCH_DBUS_CALLERS_H
#define VASK_BENCH_DBUS_CALLERS_H

#include <string>

struct sd_bus;
struct _GDBusConnection;

namespace vask_bench {

class sdbus_caller {
public:
    explicit sdbus_caller(const std::string &address);
    ~sdbus_caller();
    sdbus_caller(const sdbus_caller &) = delete;
    sdbus_caller &operator=(const sdbus_caller &) = delete;
    bool connected() const { return bus_ != nullptr; }
    // Calls `method` of `destination` with `body`; the reply's string goes to `reply`. False on any failure.
    bool call(const char *destination, const char *method, const std::string &body, std::string &reply);

private:
    sd_bus *bus_ = nullptr;
};

class gdbus_caller {
public:
    explicit gdbus_caller(const std::string &address);
    ~gdbus_caller();
    gdbus_caller(const gdbus_caller &) = delete;
    gdbus_caller &operator=(const gdbus_caller &) = delete;
    bool connected() const { return connection_ != nullptr; }
    bool call(const char *destination, const char *method, const std::string &body, std::string &reply);

private:
    _GDBusConnection *connection_ = nullptr;
};

} // namespace vask_bench

#endif
