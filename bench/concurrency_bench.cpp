// SPDX-License-Identifier: MIT
// Calls per second when 1, 2, 4 and 8 application threads read the vote at once through the
// library's one bus client, against the simulator in a process of its own on a private broker:
// through the broker (LibraryGetVoting, VASK_BUS_DIRECT=0) and over the simulator's direct socket
// (DirectGetVoting).
// A call spends most of its time waiting on other processes (the broker, the simulator), so more
// threads should overlap those waits: the library must not serialize its callers. The same calls
// made straight on a bus client show what the bus itself allows.
//
// On a machine with few CPUs the threads soon use them all, and the rate is then set by the CPU
// that one call costs in all three processes (this one, the broker, the simulator): each benchmark
// reports it as `cpu_us_per_call`, so that a rate that stops growing can be told apart from a
// caller that waits for another. UnixFloorPingPong shows what the machine allows at all: each thread
// on a unix socket of its own to unix_responder, which answers each on a thread of its own.
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "libvask_external_device.h"
#include "sim_process.h"
#include "vask_bus.h"

namespace {

std::unique_ptr<vask_bench::simulated_box> g_box;
bus_client *g_bus_caller = nullptr; // through the broker
std::string g_floor_path;           // unix_responder's socket
constexpr char kFloorMethod[] = "query_voting";

// Runs `call` (true on success) in every thread's loop; the first thread also measures the CPU the
// calls of all threads cost, between the start and the end of the timed loop, which all threads
// enter and leave together: per call (`cpu_us_per_call`) and as the CPUs kept busy meanwhile
// (`cpus_busy`, CPU seconds per second), which shows when the rate has reached the machine's CPUs.
template <typename Call>
void run_calls(benchmark::State &state, Call call)
{
    double cpu_start = state.thread_index() == 0 ? vask_bench::box_cpu_seconds() : 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (!call()) {
            state.SkipWithError("call failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        double cpu_used = vask_bench::box_cpu_seconds() - cpu_start;
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.counters["cpu_us_per_call"] =
            benchmark::Counter(cpu_used * 1e6 / static_cast<double>(state.iterations() * state.threads()));
        state.counters["cpus_busy"] = benchmark::Counter(seconds > 0 ? cpu_used / seconds : 0);
    }
}

// The library's calls on one path. The first thread opens the library again for it before the
// timed loop, which every thread enters together, and checks the path the calls took after it.
void library_calls(benchmark::State &state, bool direct)
{
    bus_direct_stats before{};
    if (state.thread_index() == 0 &&
        (!vask_bench::reopen_library(direct) || ed_get_bus_direct_stats(&before) != 0))
        state.SkipWithError("the library did not open");
    ed_voting_info info{};
    run_calls(state, [&info] { return ed_get_voting(info) == 0; });
    if (state.thread_index() == 0) {
        bus_direct_stats after{};
        ed_get_bus_direct_stats(&after);
        vask_bench::check_path(state, before, after, direct,
                               static_cast<unsigned long long>(state.iterations()) *
                                   static_cast<unsigned long long>(state.threads()));
    }
}

void LibraryGetVoting(benchmark::State &state)
{
    library_calls(state, false);
}

void DirectGetVoting(benchmark::State &state)
{
    library_calls(state, true);
}

// The same request and reply on a bus client of the benchmark's own, without the library.
void BusQueryVoting(benchmark::State &state)
{
    char reply[BUS_REPLY_MAX];
    int length = 0;
    run_calls(state, [&] {
        return bus_method_call_sync(g_bus_caller, "external_device", "query_voting", nullptr, 0, reply, &length,
                                    8) == BUS_OK;
    });
}

// A request and its reply on a bare unix socket, each thread on a connection of its own.
void UnixFloorPingPong(benchmark::State &state)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", g_floor_path.c_str());
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        state.SkipWithError("cannot connect to unix_responder");
    char reply[BUS_REPLY_MAX];
    run_calls(state, [&] {
        return send(fd, kFloorMethod, strlen(kFloorMethod), MSG_NOSIGNAL) > 0 && recv(fd, reply, sizeof reply, 0) > 0;
    });
    if (fd >= 0)
        close(fd);
}

BENCHMARK(LibraryGetVoting)->ThreadRange(1, 8)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(DirectGetVoting)->ThreadRange(1, 8)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BusQueryVoting)->ThreadRange(1, 8)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(UnixFloorPingPong)->ThreadRange(1, 8)->UseRealTime()->MeasureProcessCPUTime();

} // namespace

int main(int argc, char **argv)
{
    return vask_bench::run_against_box(argc, argv, g_box, [] {
        g_bus_caller = bus_client_new("bench_caller");
        if (bus_client_set_direct(g_bus_caller, 0) != BUS_OK || bus_connect(g_bus_caller, 0) != BUS_OK)
            return 1;
        g_floor_path = g_box->root() + "/floor.sock";
        vask_test::child_process floor;
        if (!floor.start({VASK_UNIX_RESPONDER, g_floor_path, "floor", std::string(kFloorMethod) + "={\"code\":0}"}, {},
                         g_box->root() + "/unix_responder.log") ||
            !floor.wait_for_line("ready", std::chrono::seconds(10)))
            return 1;
        benchmark::RunSpecifiedBenchmarks();
        bus_client_free(g_bus_caller);
        return 0;
    });
}
