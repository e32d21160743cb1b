// SPDX-License-Identifier: MIT
// A private dbus-daemon on a unix socket in a temporary folder, with a generated session-like
// configuration, owned by the benchmark (stopped by pid on destruction).
#ifndef VASK_BENCH_PRIVATE_BUS_H
#define VASK_BENCH_PRIVATE_BUS_H

#include <string>

#include "process.h"

namespace vask_bench {

class private_bus {
public:
    // Starts the daemon and waits until its socket accepts connections; started() tells whether it did.
    private_bus();
    bool started() const { return started_; }
    // "unix:path=<dir>/bus"
    const std::string &address() const { return address_; }
    pid_t pid() const { return daemon_.pid(); }

private:
    vask_test::temp_dir dir_;
    vask_test::child_process daemon_;
    std::string address_;
    bool started_ = false;
};

} // namespace vask_bench

#endif
