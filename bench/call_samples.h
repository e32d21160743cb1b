// SPDX-License-Identifier: MIT
// Per-call latency of a benchmark: every call's duration on the steady clock, reported as the
// counters p50_us and p99_us (nearest rank) beside Google Benchmark's mean time, and the CPU one call
// costs in this process and every process it started (cpu_us_per_call).
#ifndef VASK_BENCH_CALL_SAMPLES_H
#define VASK_BENCH_CALL_SAMPLES_H

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <vector>

#include "cpu_usage.h"

namespace vask_bench {

// Calls before the measured ones: connections, subscriptions and caches settle.
constexpr int kWarmupCalls = 50;

// Runs `call` (a callable returning true on success) once per iteration and times each call; the
// first failure ends the benchmark with an error.
template <typename Call>
void measure_calls(benchmark::State &state, Call call)
{
    for (int i = 0; i < kWarmupCalls; ++i) {
        if (!call()) {
            state.SkipWithError("a warm-up call failed");
            return;
        }
    }
    std::vector<double> micros;
    micros.reserve(static_cast<size_t>(state.max_iterations));
    double cpu_start = box_cpu_seconds();
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        bool ok = call();
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        if (!ok) {
            state.SkipWithError("a call failed");
            break;
        }
    }
    double cpu_used = box_cpu_seconds() - cpu_start;
    if (micros.empty())
        return;
    state.counters["cpu_us_per_call"] = cpu_used * 1e6 / static_cast<double>(micros.size());
    std::sort(micros.begin(), micros.end());
    auto rank = [&micros](double fraction) {
        size_t index = static_cast<size_t>(std::ceil(fraction * static_cast<double>(micros.size())));
        return micros[std::min(micros.size(), std::max<size_t>(index, 1)) - 1];
    };
    state.counters["p50_us"] = rank(0.50);
    state.counters["p99_us"] = rank(0.99);
    state.counters["calls"] = static_cast<double>(micros.size());
}

} // namespace vask_bench

#endif
