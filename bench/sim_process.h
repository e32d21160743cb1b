// SPDX-License-Identifier: MIT
// A private broker and external-device-sim in a process of its own, for the benchmarks that measure
// the library against the simulated box, with a client of the simulator's control service.
#ifndef VASK_BENCH_SIM_PROCESS_H
#define VASK_BENCH_SIM_PROCESS_H

#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>

#include "broker.h"
#include "cpu_usage.h"
#include "libvask_external_device.h"
#include "process.h"
#include "sim_protocol.h"
#include "tulo_log.h"
#include "vask_bus.h"

namespace vask_bench {

// Opens the library again with its calls on the direct path or through the broker (VASK_BUS_DIRECT
// is read when its bus client is made); false when it does not open.
inline bool reopen_library(bool direct)
{
    ed_release();
    if (direct)
        unsetenv("VASK_BUS_DIRECT");
    else
        setenv("VASK_BUS_DIRECT", "0", 1);
    bool opened = ed_init() == 0;
    unsetenv("VASK_BUS_DIRECT");
    return opened;
}

// Fails `state` when fewer than `wanted` calls took the path the benchmark names between the two
// readings of a client's counters, so that no run reports one path's figures as the other's.
inline void check_path(benchmark::State &state, const bus_direct_stats &before, const bus_direct_stats &after,
                       bool direct, unsigned long long wanted)
{
    unsigned long long made = direct ? after.calls_direct - before.calls_direct : after.calls_broker - before.calls_broker;
    if (!state.error_occurred() && made < wanted)
        state.SkipWithError(direct ? "calls did not go over the direct socket" : "calls did not go through the broker");
}

class simulated_box {
public:
    // Starts the broker and the simulator (logging to a file in its system root) and connects the
    // control client; VASK_BUS_URL names the broker from then on. ready() tells whether all of it
    // came up.
    simulated_box()
    {
        setenv("VASK_BUS_URL", broker_.url().c_str(), 1);
        if (!broker_.started() ||
            !sim_.start({VASK_SIM, "--foreground", "--bus", broker_.url(), "--root", root_.path()}, {},
                        root_.path() + "/sim.log") ||
            !sim_.wait_for_line(vask_sim::kReadyLine, std::chrono::seconds(10))) {
            fprintf(stderr, "cannot start the broker and %s\n", VASK_SIM);
            return;
        }
        if (bus_init() != BUS_OK)
            return;
        bus_ready_ = true;
        control_ = bus_client_new("bench_control");
        ready_ = control_ != nullptr && bus_connect(control_, 0) == BUS_OK;
    }
    ~simulated_box()
    {
        if (bus_ready_) {
            bus_client_free(control_);
            bus_cleanup();
        }
        if (sim_.running())
            sim_.stop(SIGTERM);
    }
    simulated_box(const simulated_box &) = delete;
    simulated_box &operator=(const simulated_box &) = delete;

    bool ready() const { return ready_; }
    const std::string &root() const { return root_.path(); }
    int broker_port() const { return broker_.port(); }

    // Calls `method` of the simulator's control service; the reply text, or "" on failure.
    std::string control(const char *method, const std::string &body, int timeout_s = 30)
    {
        char reply[BUS_REPLY_MAX];
        int length = 0;
        int rc = bus_method_call_sync(control_, vask_sim::kControlService, method, body.data(),
                                      static_cast<int>(body.size()), reply, &length, timeout_s);
        return rc == BUS_OK ? std::string(reply, static_cast<size_t>(length)) : std::string();
    }

private:
    vask_test::broker broker_;
    vask_test::temp_dir root_;
    vask_test::child_process sim_;
    bool bus_ready_ = false;
    bool ready_ = false;
    bus_client *control_ = nullptr;
};

// The main of a benchmark program against the simulated box: starts `box`, opens the library on
// it, runs `body` (which runs the benchmarks and returns the exit status), then closes it all. 1
// when the box or the library cannot be started.
template <typename Body>
int run_against_box(int argc, char **argv, std::unique_ptr<simulated_box> &box, Body body)
{
    benchmark::Initialize(&argc, argv);
    TULO_LOG_set_level(0);
    box = std::make_unique<simulated_box>();
    if (!box->ready() || ed_init() != 0)
        return 1;
    int status = body();
    benchmark::Shutdown();
    ed_release();
    box.reset();
    return status;
}

} // namespace vask_bench

#endif
