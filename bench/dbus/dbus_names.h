// SPDX-License-Identifier: MIT
// Where the D-Bus baseline services live, shared by the responders and the benchmark's callers.
#ifndef VASK_BENCH_DBUS_NAMES_H
#define VASK_BENCH_DBUS_NAMES_H

namespace vask_bench {

constexpr const char *kObjectPath = "/org/vask/Bench";
constexpr const char *kInterface = "org.vask.Bench";
constexpr const char *kSdBusName = "org.vask.Bench.SdBus";
constexpr const char *kGDBusName = "org.vask.Bench.GDBus";

} // namespace vask_bench

#endif
