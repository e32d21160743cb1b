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

// The nearest-rank percentile `fraction` of sorted `micros` (not empty).
inline double rank(const std::vector<double> &micros, double fraction)
{
    size_t index = static_cast<size_t>(std::ceil(fraction * static_cast<double>(micros.size())));
    return micros[std::min(micros.size(), std::max<size_t>(index, 1)) - 1];
}

// Makes `call` kWarmupCalls times; false (the benchmark ended with an error) when one fails.
template <typename Call>
bool warm_up(benchmark::State &state, Call &call)
{
    for (int i = 0; i < kWarmupCalls; ++i) {
        if (!call()) {
            state.SkipWithError("a warm-up call failed");
            return false;
        }
    }
    return true;
}

// Makes `call` once and adds its duration to `micros`; its result.
template <typename Call>
bool timed(Call &call, std::vector<double> &micros)
{
    auto start = std::chrono::steady_clock::now();
    bool ok = call();
    micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    return ok;
}

// Sorts `micros` (not empty) and reports them: p50_us, p99_us, calls.
inline void report_latency(benchmark::State &state, std::vector<double> &micros)
{
    std::sort(micros.begin(), micros.end());
    state.counters["p50_us"] = rank(micros, 0.50);
    state.counters["p99_us"] = rank(micros, 0.99);
    state.counters["calls"] = static_cast<double>(micros.size());
}

// Runs `call` (a callable returning true on success) once per iteration and times each call; the
// first failure ends the benchmark with an error.
template <typename Call>
void measure_calls(benchmark::State &state, Call call)
{
    if (!warm_up(state, call))
        return;
    std::vector<double> micros;
    micros.reserve(static_cast<size_t>(state.max_iterations));
    double cpu_start = box_cpu_seconds();
    for (auto _ : state) {
        if (!timed(call, micros)) {
            state.SkipWithError("a call failed");
            break;
        }
    }
    double cpu_used = box_cpu_seconds() - cpu_start;
    if (micros.empty())
        return;
    state.counters["cpu_us_per_call"] = cpu_used * 1e6 / static_cast<double>(micros.size());
    report_latency(state, micros);
}

// Two ways of making the same call, taken turn about in the same iterations, so that whatever the
// machine does meanwhile (other virtual machines, frequency changes) falls on both alike:
// p50_us and p99_us of `call`, baseline_p50_us of `baseline`, and vs_baseline, the ratio of the two
// medians.
template <typename Call, typename Baseline>
void measure_paired(benchmark::State &state, Call call, Baseline baseline)
{
    if (!warm_up(state, call) || !warm_up(state, baseline))
        return;
    std::vector<double> micros, baseline_micros;
    micros.reserve(static_cast<size_t>(state.max_iterations));
    baseline_micros.reserve(static_cast<size_t>(state.max_iterations));
    bool first = true;
    for (auto _ : state) {
        // Alternating which one goes first keeps a cache or a wake-up left by one off the other.
        bool ok = first ? timed(call, micros) && timed(baseline, baseline_micros)
                        : timed(baseline, baseline_micros) && timed(call, micros);
        first = !first;
        if (!ok) {
            state.SkipWithError("a call failed");
            break;
        }
    }
    if (micros.empty() || baseline_micros.empty())
        return;
    report_latency(state, micros);
    std::sort(baseline_micros.begin(), baseline_micros.end());
    state.counters["baseline_p50_us"] = rank(baseline_micros, 0.50);
    state.counters["vs_baseline"] = rank(micros, 0.50) / rank(baseline_micros, 0.50);
}

} // namespace vask_bench

#endif
